#!/bin/sh
# Installs the Debian or Ubuntu packages that the named groups need and that are missing.
#     scripts/install-packages.sh build|test|bench|fuzz|coverage|valgrind|demo|measure|lint|training|report ...
# The one list of packages of the project.
set -eu

packages() {
    case "$1" in
    build) echo "g++ cmake make ninja-build pkg-config libopus-dev libogg-dev libsndfile1-dev libsoxr-dev \
                 libcli11-dev nlohmann-json3-dev libpcap-dev libkissfft-dev \
                 libhwy-dev zlib1g-dev" ;;
    test) echo "libgtest-dev libgmock-dev" ;;
    bench) echo "libbenchmark-dev" ;;
    fuzz) # the run-time library is a package of its own, but in Ubuntu 22.04
        echo "clang"
        grep -qx 'VERSION_CODENAME=jammy' /etc/os-release || echo "libclang-rt-dev" ;;
    coverage) echo "gcovr" ;;
    valgrind) echo "valgrind" ;;
    demo) echo "fillets-ng-data-nl" ;;
    measure) echo "fillets-ng-data-nl sox libsox-fmt-base" ;;
    lint) echo "clang-format clang-tidy" ;;
    training) echo "python3 python3-numpy python3-scipy python3-torch" ;;
    report) # any Node 18 or newer with npm will do
        command -v npm >/dev/null || echo "nodejs npm"
        # Ubuntu has Chromium as a snap only, which not every machine can run.
        ! grep -qx 'ID=debian' /etc/os-release || echo "chromium" ;;
    *) echo "install-packages.sh: unknown group '$1': use build, test, bench, fuzz, coverage, valgrind," \
            "demo, measure, lint, training or report" >&2
       exit 2 ;;
    esac
}

missing=""
for group in "$@"; do
    wanted=$(packages "$group")
    for package in $wanted; do
        dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing="$missing $package"
    done
done
[ -n "$missing" ] || exit 0

root=""
[ "$(id -u)" = 0 ] || root=sudo
echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
$root apt-get update -qq
# shellcheck disable=SC2086
$root apt-get install -y -qq --no-install-recommends $missing >/dev/null
