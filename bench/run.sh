#!/bin/sh
# Measures everything, three rounds, medians, beside what else moves files on
# this machine, and tells at the end which bars hold.
#
#   bench/run.sh [large] [small] [far] [durable] [links] [requests] [parser] [rounds]
#
# Builds into build/release. Takes 20 minutes and up to 10 GiB of the
# memory file system. Peers that are not installed are left out:
#   apt-get install rsync vsftpd nginx-light openssh-server curl
# Nothing else should run meanwhile. Exit status 0 when every bar holds.
set -eu
cd "$(dirname "$0")/.."
parts=${*:-large small far durable links requests parser rounds}
for part in $parts; do
  case $part in
    large | small | far | durable | links | requests | parser | rounds) ;;
    *) echo "no such part: $part" >&2; exit 2 ;;
  esac
done

mkdir -p build
{ cmake --preset release -DKQFT_BUILD_BENCH=ON && cmake --build build/release; } \
  >build/bench.log 2>&1 || { cat build/bench.log; exit 1; }
bin=build/release/bin
shown=$(mktemp "${TMPDIR:-/tmp}/kqft-bench.XXXXXX")
trap 'rm -f "$shown"' EXIT

wants() { case " $parts " in *" $1 "*) ;; *) return 1 ;; esac; }

# What a program shows, here and in the summary. A failure is shown there too.
show() {
  echo
  echo "== $*"
  { "$@" 2>&1 || echo "[falls short] $1 ended with status $?"; } | tee -a "$shown"
}

# What a virtual machine's host has taken of its processors, and all their time.
stolen() { awk '$1 == "cpu" { print $9, $2 + $3 + $4 + $5 + $6 + $7 + $8 + $9 }' /proc/stat; }
before=$(stolen)

# Programs that hold a server show its links on their standard output.
quiet() { "$@" >/dev/null; }

moved=
for part in large small far durable; do
  if wants $part; then moved="$moved $part"; fi
done
if [ -n "$moved" ]; then
  show bench/transfer.py build/release $moved
fi
if wants links; then show bench/links.py build/release; fi
if wants requests; then show quiet "$bin/kqft-request"; fi
if wants parser; then show "$bin/kqft-parser"; fi
if wants rounds; then show quiet "$bin/kqft-rounds"; fi

echo
echo "$before $(stolen)" | awk '{
  printf "The host took %.1f %% of this machine'"'"'s processors meanwhile.\n", 100 * ($3 - $1) / ($4 - $2) }'
echo "== Bars"
grep '^\[' "$shown" || true
! grep -q '^\[falls short\]' "$shown"
