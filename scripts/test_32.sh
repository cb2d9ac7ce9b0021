#!/bin/sh
# Builds the library and its tests for 32-bit x86 and runs them, in an emulator where the machine runs
# no 32-bit programs. Ends well, with one line that says why, where this cannot be done.
#     scripts/test_32.sh [JOBS]
set -eu
cd "$(dirname "$0")/.."
jobs=${1:-$(nproc)}

skip() {
    echo "Tests for 32-bit x86 skipped: $1"
    exit 0
}

case "$(uname -m)" in
x86_64 | i?86) ;;
*) skip "this machine is $(uname -m)" ;;
esac
scripts/install-packages.sh x86-32 || skip "the packages g++-multilib and googletest cannot be installed"

probe=$(mktemp -d)
trap 'rm -rf "$probe"' EXIT
echo 'int main() { return 0; }' >"$probe/main.cpp"
c++ -m32 "$probe/main.cpp" -o "$probe/main" || skip "the compiler makes no 32-bit programs"
emulator=""
left_out='^$'
if ! "$probe/main" 2>/dev/null; then
    scripts/install-packages.sh emulator || skip "the machine runs no 32-bit programs, and qemu-user cannot be installed"
    emulator=$(command -v qemu-i386)
    left_out='WholeChain.*\(true' # at 48 kHz it takes minutes there
    echo "The machine runs no 32-bit programs: in qemu-i386, without the whole chain at 48 kHz."
fi

cmake --preset x86-32 --log-level=WARNING -Wno-dev -DCMAKE_CROSSCOMPILING_EMULATOR="$emulator" >/dev/null
cmake --build --preset x86-32 -j "$jobs"
ctest --test-dir build/x86-32 -j "$jobs" --output-on-failure --no-tests=error -E "$left_out"
