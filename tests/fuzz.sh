#!/bin/sh
# Fuzzes every target, as many at a time as there are processors.
#
#   tests/fuzz.sh SECONDS [TARGET...]      (KQFT_FUZZ_JOBS: so many at a time)
#
# Begins with the committed seeds and with what earlier runs have found
# interesting (build/fuzz/corpus). Ends with a table; exit status 1 when there
# is a finding, whose input and report then lie in build/fuzz/findings.
set -eu
seconds=${1:?usage: tests/fuzz.sh SECONDS [TARGET...]}
shift
cd "$(dirname "$0")/.."
. tools/require-packages.sh
require_packages g++ cmake ninja-build pkg-config libgtest-dev libcli11-dev libxxhash-dev clang libclang-rt-14-dev

out=$PWD/build/fuzz
mkdir -p "$out"
{ cmake --preset fuzz && cmake --build --preset fuzz; } >"$out/build.log" 2>&1 || {
  cat "$out/build.log"
  exit 1
}
[ $# -gt 0 ] || set -- $(ls tests/fuzz/seeds)
rm -rf "$out/findings"
mkdir -p "$out/findings" "$out/logs"

# The files of the targets are small and many: in memory where there is room.
[ ! -w /dev/shm ] || export TMPDIR=/dev/shm
export ASAN_OPTIONS=allocator_may_return_null=1:detect_leaks=1

fuzz_one() {
  mkdir -p "$out/corpus/$1"
  status=0
  "$out/bin/kqft_fuzz_$1" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=25 \
    -print_final_stats=1 -artifact_prefix="$out/findings/$1-" \
    "$out/corpus/$1" "tests/fuzz/seeds/$1" >"$out/logs/$1" 2>&1 </dev/null || status=$?
  echo "$status" >"$out/logs/$1.status"
  [ "$status" -eq 0 ] || cp "$out/logs/$1" "$out/findings/$1.report"
}

# One after the other from a list that all workers take from.
fuzz_all() {
  for target in "$@"; do
    if mkdir "$out/findings/.taken-$target" 2>/dev/null; then fuzz_one "$target"; fi
  done
}
jobs=${KQFT_FUZZ_JOBS:-$(nproc)}
while [ "$jobs" -gt 0 ]; do
  fuzz_all "$@" &
  jobs=$((jobs - 1))
done
wait
rm -rf "$out"/findings/.taken-*

failed=0
printf '%-16s %10s %8s %9s %9s\n' target runs seconds coverage findings
for target in "$@"; do
  log=$out/logs/$target
  found=0
  [ "$(cat "$log.status")" -eq 0 ] || found=1
  failed=$((failed + found))
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  took=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log")
  cover=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -1)
  printf '%-16s %10s %8s %9s %9s\n' "$target" "${runs:--}" "${took:--}" "${cover:--}" "$found"
done
[ "$failed" -eq 0 ]
