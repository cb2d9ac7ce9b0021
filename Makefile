# make        builds everything into build/release
# make demo   conceals a piece of speech at 20 % loss, into demo/
# make compare-demo  the same speech at twelve losses, as tables and a page
# make compare-redundancy  losses without and with FEC and redundant audio, at the same BITRATE (48000)
# make gstreamer-demo  a lossy call by opusdec and by aiplcopusdec; LOSS=0.1
# make measure  the figures of a ten-minute call
# make bench  what frames, kernels and requests cost: bench/README.md, as JSON in build/bench.json
# make channels  how many calls one core carries, with the worker and without
# make test   all tests: the programs' in a Debug build with sanitizers and in the Release build, a short
#             run of each fuzzer, and the page's in Chromium
# make fresh-root RELEASE=trixie  make demo and make test in a new minimal Debian 13 (bookworm: 12)
# make deb    the Debian packages into build/deb, checked by lintian
# make package-root RELEASE=trixie  builds the packages in one new minimal Debian, uses them in another
# make install, uninstall  with PREFIX (/usr/local) and DESTDIR
# make fuzz   each fuzzer for FUZZ_SECONDS, see fuzz/README.md
# make long-run  a day of calls at full speed; memory and descriptors must not grow
# make jitter-table  delay and late losses of the jitter buffer on simulated networks
# make threads   the tests of several threads and processes under ThreadSanitizer
# make valgrind  the library's tests under Valgrind
# make test-32   the library and its tests for 32-bit x86, in an emulator where the machine runs no such programs
# make mutation  changes the library in 114 places, one at a time, and fails when its tests do not notice a change
# make coverage  which lines and branches of src/ the tests reach, also in build/coverage/report.html
# make train-data, loop-data, train, export, model-report   the neural model again; see docs/model-experiments.md
# make report, report-test  the page of aiplc compare, see report/README.md
# Each target first installs the Debian or Ubuntu packages it lacks.

JOBS := $(shell nproc)
CONFIGURE = cmake --preset $(1) --log-level=WARNING -Wno-dev
BUILD = $(CONFIGURE) && cmake --build --preset $(1) -j $(JOBS)
TEST = ctest --test-dir build/$(1) -j $(JOBS) --output-on-failure --no-tests=error
SOURCES = $(shell git ls-files '*.cpp' '*.h' '*.c')
SCRIPTS = $(shell git ls-files '*.sh') .ci/run

.PHONY: all channels tool deb package-root demo compare-demo measure bench test fresh-root fuzz long-run jitter-table \
        threads valgrind test-32 mutation coverage compare-redundancy gstreamer-demo install uninstall \
        docs format style lint clean train-data loop-data train export model-report report report-test

all:
	scripts/install-packages.sh build test
	$(call BUILD,release)

# Library, worker and tool alone, without the tests and their packages, unless those are there already.
tool:
	scripts/install-packages.sh build
	[ -f build/release/build.ninja ] || $(call CONFIGURE,tool)
	cmake --build build/release -j $(JOBS) --target aiplc aiplc_worker plugins

demo: tool
	scripts/install-packages.sh demo
	scripts/demo.sh build/release/bin/aiplc demo

compare-demo: tool
	scripts/install-packages.sh demo
	scripts/compare_demo.sh build/release/bin/aiplc demo

compare-redundancy: tool
	scripts/install-packages.sh measure
	scripts/compare_redundancy.py build/release/bin/aiplc build/redundancy $(BITRATE)

LOSS ?= 0.1
gstreamer-demo:
	scripts/install-packages.sh build demo gstreamer
	$(if $(wildcard build/release/build.ninja),cmake build/release >/dev/null,$(call CONFIGURE,tool))
	cmake --build build/release -j $(JOBS) --target aiplc_worker plugins
	scripts/gstreamer_demo.sh build/release build/gstreamer-demo $(LOSS)

# Add PACED=paced for the run at the pace of a call.
measure: tool
	scripts/install-packages.sh measure
	scripts/measure.sh build/release/bin/aiplc build/measure $(PACED)

# Paced runs last ten seconds each; AIPLC_BENCH_PACED_FRAMES=30000 makes it ten minutes. FILTER picks
# benchmarks by a regular expression: make bench FILTER=kernel
FILTER ?= .
bench:
	scripts/install-packages.sh build bench
	$(call BUILD,bench) --target aiplc_bench
	build/bench/bin/aiplc_bench --benchmark_filter='$(FILTER)' --benchmark_counters_tabular \
		--benchmark_enable_random_interleaving=true --benchmark_out=build/bench.json

# Processor time and memory of a call at 10 % loss by each predictor.
channels:
	scripts/install-packages.sh build bench
	$(call BUILD,bench) --target aiplc_channels
	build/bench/bin/aiplc_channels

# Without a browser or npm's registry the page's tests are left out, but not where CI is true.
test:
	scripts/install-packages.sh build test fuzz gstreamer
	scripts/install-packages.sh report || true
	@echo "== 1 of 4: the programs' tests, Debug build with sanitizers"
	$(call BUILD,debug)
	$(call TEST,debug)
	@echo "== 2 of 4: a short run of each fuzzer"
	$(call BUILD,fuzz)
	$(call TEST,fuzz)
	@echo "== 3 of 4: the programs' tests, Release build"
	$(call BUILD,release)
	$(call TEST,release)
	@echo "== 4 of 4: the page's tests"
	scripts/test_page.sh $(if $(filter true,$(CI)),required,optional)

# Needs root and debootstrap; see the script.
RELEASE ?= bookworm
TARGETS ?= demo test
fresh-root:
	scripts/fresh-root.sh $(RELEASE) $(TARGETS)

package-root:
	scripts/fresh-root.sh $(RELEASE) packages

deb:
	scripts/install-packages.sh build deb
	scripts/make_deb.sh

# Inputs that reach new code are kept in build/fuzz/found, one that fails in build/fuzz/failed-....
FUZZ_SECONDS ?= 60
fuzz:
	scripts/install-packages.sh build fuzz
	$(call BUILD,fuzz)
	for fuzzer in $(patsubst fuzz/corpus/%,%,$(wildcard fuzz/corpus/*)); do \
		mkdir -p build/fuzz/found/$$fuzzer && \
		build/fuzz/bin/fuzz_$$fuzzer -max_total_time=$(FUZZ_SECONDS) -timeout=20 -print_final_stats=1 \
			-artifact_prefix=build/fuzz/failed-$$fuzzer- build/fuzz/found/$$fuzzer fuzz/corpus/$$fuzzer || exit; \
	done

# With MODEL=autoregressive, the predictor that needs no network, about seven minutes instead of half an hour.
HOURS ?= 24
MODEL ?=
long-run: all
	AIPLC_MODEL=$(MODEL) build/release/bin/long_run $(HOURS)

# ThreadSanitizer does not know pthread_mutex_clocklock, so that mutexes taken in time look free to it.
threads:
	scripts/install-packages.sh build test
	$(call BUILD,threads)
	AIPLC_MODEL=autoregressive TSAN_OPTIONS='halt_on_error=1 report_mutex_bugs=0' $(call TEST,threads) \
		-R '^(Threads|Event|Mutex|NamedObject|Process|Wait|Protocol|Service|JobPool)'

# Delay and late losses of the jitter buffer on simulated networks, beside fixed ones of 40 and 80 ms.
jitter-table: all
	build/release/bin/jitter_table

valgrind: all
	scripts/install-packages.sh valgrind
	for tests in pipeline dsp copy_failure infer adapter protocol threads; do \
		AIPLC_MODEL=autoregressive valgrind -q --leak-check=full --child-silent-after-fork=yes \
			--error-exitcode=1 build/release/bin/$${tests}_test --gtest_brief=1 || exit; \
	done

test-32:
	scripts/install-packages.sh build
	scripts/test_32.sh $(JOBS)

# FILTER picks mutants by a regular expression: make mutation FILTER=src/infer
mutation:
	scripts/install-packages.sh build test mutation
	python3 scripts/mutate.py --jobs $(JOBS) --filter '$(FILTER)'

coverage:
	scripts/install-packages.sh build test coverage
	$(call BUILD,coverage)
	find build/coverage -name '*.gcda' -delete
	$(call TEST,coverage)
	gcovr --root . --filter src/ --exclude-throw-branches --html-details build/coverage/report.html \
		--print-summary build/coverage | tee build/coverage/summary.txt

# PREFIX and DESTDIR as usual.
PREFIX ?= /usr/local
install: tool
	cmake --install build/release --prefix $(PREFIX)

uninstall:
	cmake -DPREFIX=$(DESTDIR)$(PREFIX) -P cmake/Uninstall.cmake

# The API's pages from the public headers, in build/docs/html; a missing or wrong description is an error.
docs:
	scripts/install-packages.sh docs
	mkdir -p build
	doxygen docs/Doxyfile

format:
	scripts/install-packages.sh lint
	clang-format -i $(SOURCES)

# The quick part of lint: format, shell, Python, the arrows between folders, and the API's pages. Other
# versions of clang-format than 14 format otherwise.
style: docs
	scripts/install-packages.sh style
	scripts/folder_arrows.sh >/dev/null
	@shellcheck $(SCRIPTS)
	flake8 --max-line-length 110 --extend-ignore E731 training scripts
	@! clang-format --version | grep -q 'version 14\.' || clang-format --dry-run --Werror $(SOURCES)

lint: all style
	scripts/install-packages.sh lint bench fuzz
	git ls-files -z '*.cpp' ':!bench' ':!fuzz' | xargs -0 -n 1 -P $(JOBS) clang-tidy --quiet -p build/release
	for part in bench fuzz; do \
		$(call CONFIGURE,$$part) && \
		git ls-files -z "$$part/*.cpp" | xargs -0 -n 1 -P $(JOBS) clang-tidy --quiet -p build/$$part || exit 1; \
	done

# SPEECH and BACKGROUND are folders of recordings. LICENCES leaves all others out, such as
# LICENCES=CC0-1.0,CC-BY-4.0. An interrupted make train goes on where it stopped; a new one can begin
# with the weights at hand: make train START=training/weights/model.bin ADVERSARIAL_FROM=0 RATE=2e-4.
SPEECH ?= ../shared/speech/train
BACKGROUND ?= ../shared/speech/noise
LICENCES ?=
PASSES ?= 3
STEPS ?= 100000
ADVERSARIAL_FROM ?= 20000
START ?=
RATE ?= 1e-3
RUN ?= training/runs/run
PYTHON ?= /usr/bin/python3
COLLECT = build/release/bin/aiplc_collect_windows --speech $(SPEECH) --background $(BACKGROUND) \
          $(if $(LICENCES),--licences $(LICENCES))
WINDOWS = --train 'training/runs/train/*.windows' --valid 'training/runs/valid/*.windows'

train-data: all
	mkdir -p training/runs/train training/runs/valid
	$(COLLECT) --split valid --seed 7 --windows training/runs/valid/v
	seq 0 $$(($(JOBS) - 1)) | xargs -P $(JOBS) -I PART $(COLLECT) --split train --passes $(PASSES) \
		--part PART --parts $(JOBS) --windows training/runs/train/t

# Windows of calls that the weights at hand conceal, beside those of train-data.
loop-data: all
	mkdir -p training/runs/train
	seq 0 $$(($(JOBS) - 1)) | xargs -P $(JOBS) -I PART $(COLLECT) --split train --seed 21 \
		--answers model --model training/weights/model.bin --part PART --parts $(JOBS) --windows training/runs/train/c

train: all
	scripts/install-packages.sh training
	mkdir -p $(RUN) && rm -f $(RUN)/peers
	seq 0 $$(($(JOBS) - 1)) | xargs -P $(JOBS) -I PEER $(PYTHON) training/train.py $(WINDOWS) --out $(RUN) \
		--steps $(STEPS) --rate $(RATE) --adversarial-from $(ADVERSARIAL_FROM) $(if $(START),--start $(START)) \
		--signals build/release/bin/aiplc_make_signals --peers $(JOBS) --peer PEER --threads 1

export:
	scripts/install-packages.sh training
	$(PYTHON) training/export.py --model $(RUN)/last.pt --valid 'training/runs/valid/*.windows' \
		--weights training/weights/model.bin --vectors training/weights/model_vectors.bin

# Figures of the weights, in the worker's own inference. Add PLCMOS=FILE.py for a scorer of that measure.
model-report: all
	scripts/install-packages.sh training
	$(PYTHON) training/evaluate.py --model training/weights/model.bin --valid 'training/runs/valid/*.windows'
	for rate in 16000 48000; do \
		$(PYTHON) training/closed_loop.py --model training/weights/model.bin --speech $(SPEECH) --rate $$rate \
			--collector build/release/bin/aiplc_collect_windows $(if $(PLCMOS),--plcmos $(PLCMOS)); \
	done

report: ## builds report/dist/report.html, the page of aiplc compare
	scripts/install-packages.sh report
	cd report && npm ci --ignore-scripts --loglevel=error && npm run --silent check && npm run --silent build

report-test: ## checks report/dist against its sources and runs its tests in headless Chromium
	scripts/install-packages.sh report
	scripts/test_page.sh required

clean:
	rm -rf build demo
