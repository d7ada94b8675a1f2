#!/bin/sh
# Shows the system at work: builds it, starts a server, sends a measurement
# project to it, lists it, interrupts and resumes an upload, fetches the
# project back, and compares every byte.
#
#   ./run.sh         with a project made for the occasion (300 MiB)
#   ./run.sh DIR     with a directory of yours; it is only read
#
# Everything happens on this machine and in a temporary directory that is
# deleted at the end. Installs the Debian packages that a build needs, where
# they are missing. Exit status 0 when every byte arrived.
set -eu
mine=${1:+$(cd "$1" && pwd)}
cd "$(dirname "$0")"
. tools/require-packages.sh

say() { printf '%s\n' "$*"; }
fail() {
  say "FAILED: $*"
  exit 1
}

work=
server=
clean_up() {
  if [ -n "$server" ]; then
    kill "$server" 2>/dev/null || true
    wait "$server" 2>/dev/null || true
  fi
  [ -z "$work" ] || rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

say "1. Building"
require_packages g++ cmake ninja-build pkg-config libcli11-dev libxxhash-dev libcpp-httplib-dev \
  nlohmann-json3-dev
mkdir -p build
{ cmake --preset release && cmake --build --preset release; } >build/release.log 2>&1 || {
  cat build/release.log
  fail "the build; see above"
}
kqft=$PWD/build/release/bin/kqft
work=$(mktemp -d "${TMPDIR:-/tmp}/kqft-run.XXXXXX")
mkdir "$work/server" "$work/log" "$work/home"
export HOME="$work/home"

# 204 files, 305 MiB of random bytes: four recordings, many small files.
make_project() {
  mkdir -p "$1/Model" "$1/channels" "$1/notes and pictures"
  for i in 1 2 3 4; do head -c 60M /dev/urandom >"$1/Run$i.tm"; done
  for i in $(seq 1 64); do head -c 1M /dev/urandom >"$1/channels/bus $i.can"; done
  for i in $(seq 1 134); do head -c 8K /dev/urandom >"$1/notes and pictures/página $i.txt"; done
  printf 'a project file\n' >"$1/Demo.kqsln"
  : >"$1/Model/empty.bin"
}

# Hashes of all files of a project but kqft's own, by name. Links count as their
# files.
hashes() {
  (cd "$1" && find . \( -type f -o -type l -xtype f \) ! -path './kqft.*' -print0 | LC_ALL=C sort -z |
    xargs -0r sha256sum)
}

bytes_in() {
  if [ -d "$1" ]; then du -sb "$1" | cut -f1; else echo 0; fi
}

if [ -n "$mine" ]; then
  project=$mine
else
  project=$work/Demo
  make_project "$project"
fi
name=$(basename "$project")
hashes "$project" >"$work/sent.sha256"
files=$(wc -l <"$work/sent.sha256")
say "2. The project: $name, $files files, $(du -shL "$project" | cut -f1)"

: >"$work/server.err"
start_server() {
  build/release/bin/kqft-server --dir "$work/server" --listen 127.0.0.1 --port 0 \
    --log-dir "$work/log" "$@" >"$work/server.out" 2>"$work/server.err" &
  server=$!
  while ! grep -q '^listening on ' "$work/server.err"; do
    kill -0 "$server" 2>/dev/null || return 1
    sleep 0.05
  done
}
if ! start_server; then
  grep -q -e --no-confine "$work/server.err" || fail "the server: $(cat "$work/server.err")"
  start_server --no-confine || fail "the server: $(cat "$work/server.err")"
fi
export KQFT_SERVER="$(sed -n 's/^listening on \([^ ]*\).*/\1/p' "$work/server.err")"
say "3. A server is $(cat "$work/server.err")"

say "4. Upload: kqft put $name"
"$kqft" put "$project" || fail "the upload"
hashes "$work/server/$name" >"$work/stored.sha256"
cmp -s "$work/sent.sha256" "$work/stored.sha256" || fail "the server holds different bytes"
say "   all $files files on the server are equal by SHA-256"

say "5. What the server has: kqft ls"
"$kqft" ls || fail "the list"

say "6. An upload interrupted half-way, then the same command again"
"$kqft" --quiet rm --yes "$name" || fail "deleting the project"
half=$(($(bytes_in "$project") / 2))
"$kqft" --quiet put "$project" &
put=$!
while kill -0 "$put" 2>/dev/null; do
  [ "$(bytes_in "$work/server/$name")" -lt "$half" ] || break
done
kill -TERM "$put" 2>/dev/null || true
if wait "$put"; then
  say "   too quick to be interrupted: it had ended already"
else
  say "   interrupted when the server held $(du -sh "$work/server/$name" | cut -f1); again:"
fi
"$kqft" put "$project" || fail "the second upload"
hashes "$work/server/$name" >"$work/stored.sha256"
cmp -s "$work/sent.sha256" "$work/stored.sha256" || fail "the server holds different bytes"
say "   all $files files on the server are equal by SHA-256"

say "7. Download: kqft get $name"
"$kqft" get "$name" --into "$work/fetched" || fail "the download"
hashes "$work/fetched/$name" >"$work/fetched.sha256"
cmp -s "$work/sent.sha256" "$work/fetched.sha256" || fail "what came back differs"
say "   all $files files that came back are equal by SHA-256"

say "8. Whether both sides hold the same: kqft verify $name"
"$kqft" verify "$name" "$project" || fail "the comparison"
say "Done: every byte arrived, both ways."
