#!/bin/sh
# Builds and runs every test, in four builds: plain, with AddressSanitizer and
# UndefinedBehaviorSanitizer, with ThreadSanitizer, and for Windows under Wine.
# Before that the form of the sources is checked, and what the second build
# compiles is linted, where the tools for it are installed.
#
#   ./test.sh              all four
#   ./test.sh dev tsan     only these
#
# Installs the Debian packages that are missing. Ends with one summary of
# CTest over all builds; exit status 0 when everything passed.
set -eu
cd "$(dirname "$0")"
. tools/require-packages.sh

require_packages g++ make cmake ninja-build pkg-config libgtest-dev libcli11-dev libxxhash-dev libcpp-httplib-dev \
  nlohmann-json3-dev clang libclang-rt-14-dev python3 xxhash tshark abigail-tools xz-utils

[ $# -gt 0 ] || set -- dev asan tsan windows
case " $* " in
*" windows "*) require_packages g++-mingw-w64-x86-64-posix googletest wine64 ;;
esac
jobs=$(($(nproc) * 2))

# ThreadSanitizer needs a fixed address layout where the kernel scatters
# mappings further than it can follow.
fixed_layout=
if [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ] &&
  setarch "$(uname -m)" -R true 2>/dev/null; then
  fixed_layout="setarch $(uname -m) -R"
fi

# A tool that is not installed says so and stops nothing.
check() {
  "$@" || [ $? -eq 3 ] || {
    echo "failed: $*" >&2
    exit 1
  }
}
check tools/format.sh --check

# A kernel without Landlock (or a container that hides it) cannot show that the
# server is confined.
if ! python3 -c 'import ctypes, sys; sys.exit(ctypes.CDLL(None).syscall(444, None, 0, 1) < 0)'; then
  echo "this kernel has no Landlock: the confinement of the server is not tested" >&2
  export KQFT_NO_LANDLOCK=1
fi

build() {
  echo "building: $1"
  cmake --preset "$1" -DKQFT_TEST_PREFIX="$1." >build/all/"$1".log 2>&1 &&
    $fixed_layout cmake --build --preset "$1" >>build/all/"$1".log 2>&1 || {
    cat build/all/"$1".log
    echo "the $1 build failed" >&2
    exit 1
  }
}

# One CTest tree over all builds gives one summary.
mkdir -p build/all
: >build/all/CTestTestfile.cmake
for preset in "$@"; do
  build "$preset"
  echo "subdirs(\"$PWD/build/$preset\")" >>build/all/CTestTestfile.cmake
  [ "$preset" != asan ] || check tools/lint.sh build/asan
done

$fixed_layout ctest --test-dir build/all -j "$jobs" --output-on-failure --progress
