#!/bin/sh
# Builds and runs every test, in three builds: plain, with AddressSanitizer
# and UndefinedBehaviorSanitizer, with ThreadSanitizer.
#
#   ./test.sh              all three
#   ./test.sh dev tsan     only these
#
# Installs the Debian packages that are missing. Ends with one summary of
# CTest over all builds; exit status 0 when everything passed.
set -eu
cd "$(dirname "$0")"
. tools/require-packages.sh

require_packages g++ cmake ninja-build pkg-config libgtest-dev libcli11-dev libxxhash-dev clang libclang-rt-14-dev python3 xxhash

[ $# -gt 0 ] || set -- dev asan tsan
jobs=$(($(nproc) * 2))

# ThreadSanitizer needs a fixed address layout where the kernel scatters
# mappings further than it can follow.
fixed_layout=
if [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ] &&
  setarch "$(uname -m)" -R true 2>/dev/null; then
  fixed_layout="setarch $(uname -m) -R"
fi

# One CTest tree over all builds gives one summary.
mkdir -p build/all
: >build/all/CTestTestfile.cmake
for preset in "$@"; do
  echo "building: $preset"
  cmake --preset "$preset" -DKQFT_TEST_PREFIX="$preset." >build/all/"$preset".log 2>&1 &&
    $fixed_layout cmake --build --preset "$preset" >>build/all/"$preset".log 2>&1 || {
    cat build/all/"$preset".log
    echo "the $preset build failed" >&2
    exit 1
  }
  echo "subdirs(\"$PWD/build/$preset\")" >>build/all/CTestTestfile.cmake
done

$fixed_layout ctest --test-dir build/all -j "$jobs" --output-on-failure --progress
