# make        builds everything into build/release
# make demo   conceals a piece of speech at 20 % loss, into demo/
# make measure  the figures of a ten-minute call
# make test   all tests, in a Debug build with sanitizers and in the Release build
# Each target first installs the Debian or Ubuntu packages it lacks.

JOBS := $(shell nproc)
BUILD = cmake --preset $(1) -G Ninja --log-level=WARNING -Wno-dev && cmake --build --preset $(1) -j $(JOBS)
SOURCES = $(shell git ls-files '*.cpp' '*.h' '*.c')

.PHONY: all demo measure test install format lint clean

all:
	scripts/install-packages.sh build test
	$(call BUILD,release)

demo: all
	scripts/install-packages.sh demo
	scripts/demo.sh build/release/bin/aiplc demo

# Add PACED=paced for the run at the pace of a call.
measure: all
	scripts/install-packages.sh measure
	scripts/measure.sh build/release/bin/aiplc build/measure $(PACED)

test:
	scripts/install-packages.sh build test
	$(call BUILD,debug)
	ctest --test-dir build/debug -j $(JOBS) --output-on-failure --no-tests=error
	$(call BUILD,release)
	ctest --test-dir build/release -j $(JOBS) --output-on-failure --no-tests=error

# PREFIX and DESTDIR as usual.
PREFIX ?= /usr/local
install: all
	cmake --install build/release --prefix $(PREFIX)

format:
	scripts/install-packages.sh lint
	clang-format -i $(SOURCES)

lint: all
	scripts/install-packages.sh lint
	clang-format --dry-run --Werror $(SOURCES)
	git ls-files -z '*.cpp' | xargs -0 -n 1 -P $(JOBS) clang-tidy --quiet -p build/release

clean:
	rm -rf build demo
