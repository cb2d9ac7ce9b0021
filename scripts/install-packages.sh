#!/bin/sh
# Installs the Debian or Ubuntu packages that the named groups need and that are missing.
#     scripts/install-packages.sh build|test|bench|fuzz|coverage|valgrind|x86-32|emulator|mutation|demo|measure| \
#                                 deb|gstreamer|live|docs|lint|style|training|report ...
# The one list of packages of the project.
set -eu

packages() {
    case "$1" in
    build) echo "g++ cmake make ninja-build pkg-config libopus-dev libogg-dev libsndfile1-dev libsoxr-dev \
                 libcli11-dev nlohmann-json3-dev libpcap-dev libkissfft-dev \
                 libhwy-dev zlib1g-dev libasound2-dev" ;;
    test) echo "libgtest-dev libgmock-dev" ;;
    bench) echo "libbenchmark-dev" ;;
    fuzz) # the run-time library is a package of its own, but in Ubuntu 22.04
        echo "clang"
        grep -qx 'VERSION_CODENAME=jammy' /etc/os-release || echo "libclang-rt-dev" ;;
    coverage) echo "gcovr" ;;
    valgrind) echo "valgrind" ;;
    x86-32) echo "g++-multilib googletest" ;;
    emulator) echo "qemu-user" ;;
    mutation) echo "python3" ;;
    deb) echo "debhelper dpkg-dev fakeroot help2man lintian" ;;
    demo) echo "fillets-ng-data-nl" ;;
    measure) echo "fillets-ng-data-nl sox libsox-fmt-base python3" ;;
    gstreamer) echo "libgstreamer1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base \
                     gstreamer1.0-plugins-good" ;;
    live) echo "ffmpeg gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good" ;;
    docs) echo "doxygen" ;;
    lint) echo "clang-format clang-tidy shellcheck flake8" ;;
    style) echo "clang-format shellcheck flake8" ;;
    training) echo "python3 python3-numpy python3-scipy python3-torch" ;;
    report) # any Node 18 or newer with npm will do
        command -v npm >/dev/null || echo "nodejs npm"
        # Ubuntu has Chromium as a snap only, which not every machine can run.
        ! grep -qx 'ID=debian' /etc/os-release || echo "chromium" ;;
    *) echo "install-packages.sh: unknown group '$1': use build, test, bench, fuzz, coverage, valgrind," \
            "x86-32, emulator, mutation, demo, measure, deb, gstreamer, live, docs, lint, style, training or" \
            "report" >&2
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

command="apt-get install -y --no-remove --no-install-recommends$missing"
root=""
if [ "$(id -u)" != 0 ]; then
    root=sudo
    command -v sudo >/dev/null || {
        echo "install-packages.sh: packages are missing and there is no sudo; run as root: $command" >&2
        exit 1
    }
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
export LC_ALL=C

# Runs a command as root with its output in the log. Apt reports how far it is on descriptor 3, which
# becomes the standard output here.
run_as_root() {
    # shellcheck disable=SC2016
    if $root sh -c 'exec 3>&1 >&2; DEBIAN_FRONTEND=noninteractive exec "$@"' sh "$@" 2>>"$log"; then
        echo "finished"
    fi
}

# A line for every tenth of the way, or one line that counts on a terminal. Fails unless it ends with "finished".
show_progress() {
    before=""
    while IFS=: read -r kind _ percent _; do
        case $kind in
        finished) [ -z "$before" ] || [ ! -t 1 ] || echo; return ;;
        dlstatus) kind=fetched ;;
        pmstatus) kind=installed ;;
        *) continue ;;
        esac
        percent=${percent%%.*}
        [ -t 1 ] || percent=$((percent / 10 * 10))
        [ "$kind $percent" != "$before" ] || continue
        before="$kind $percent"
        if [ -t 1 ]; then printf '\r  %s %s %%   ' "$kind" "$percent"; else echo "  $kind $percent %"; fi
    done
    return 1
}

# Sources of packages that do not answer matter only when a package is missing then.
run_as_root apt-get update -q | show_progress || true
# The figures are apt's own, such as "Need to get 61.1 MB of archives." --print-uris installs nothing;
# --assume-no does where apt sees nothing to ask.
# shellcheck disable=SC2086
size=$(apt-get install --print-uris --no-install-recommends -y $missing 2>/dev/null |
    sed -n 's/^[0-9]* upgraded, \([0-9]*\) newly installed.*/: newly installed \1, with what they need/p
            s/^Need to get \(.*\) of archives\./, to fetch \1/p
            s/^After this operation, \(.*\) of additional.*/, on disk \1/p' | tr -d '\n')
echo "Installing$missing$size"
# shellcheck disable=SC2086
run_as_root apt-get install -y -q --no-remove --no-install-recommends -o APT::Status-Fd=3 $missing | show_progress || {
    cat "$log"
    echo "install-packages.sh: the packages could not be installed; the command was: $command"
    exit 1
} >&2
