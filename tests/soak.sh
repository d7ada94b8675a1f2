#!/bin/bash
# Kills kqft, kqft-server or both in the middle of transfers, in the middle of
# a write, before a rename or a removal or at any moment, edits files between some runs, lets
# later runs go on, and compares every file by SHA-256 and with its inventory.
# Then fills a disk, makes room, and compares.
#
#   tests/soak.sh [ROUNDS [SEED]]    1000 rounds by default
#   tests/soak.sh sweep              instead: every call to the file system that
#                                    can fail, every place where a connection
#                                    can end, one by one (some minutes)
#   BUILD=DIR tests/soak.sh          the programs of another build than build/dev
#
# A seed draws the same kills again, as far as time allows. Exit status 0 when
# nothing was lost and every kind of kill has struck.
set -u
cd "$(dirname "$0")/.." || exit 2
build=${BUILD:-$PWD/build/dev}
if [ "${1:-}" = sweep ]; then
  set -o pipefail
  KQFT_SWEEP=all "$build/bin/kqft_tests" --gtest_filter='*TransferFault*:BulkTransfer.LinkMay*:PowerLoss.*:TransferLife.SmallFiles*' --gtest_brief=1 |
    grep --line-buffered -v '^new client:\|^client disconnect:'
  exit
fi
rounds=${1:-1000}
seed=${2:-$((RANDOM + 1))}
preload=$build/lib/libkill_at_call.so
for needed in "$build/bin/kqft" "$build/bin/kqft-server" "$preload"; do
  [ -f "$needed" ] || { echo "$needed is missing: build first (./test.sh dev)" >&2; exit 2; }
done
RANDOM=$seed
work=$(mktemp -d "${TMPDIR:-/tmp}/kqft-soak.XXXXXX") || exit 2
server=
end_server() {
  [ -z "$server" ] || { kill -9 "$server"; wait "$server"; } 2>/dev/null
  server=
}
trap 'end_server; [ -n "${lost:-}" ] || rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# Hashes of all files below a directory but kqft's own, by name: also shows one
# too many.
hashes() { (cd "$1" && find . -type f ! -name 'kqft.*' -print0 | LC_ALL=C sort -z | xargs -0r sha256sum); }

# ---- What is moved: 3 MiB, two recordings, many small files, and the server's
# copy of one recording in three segments with six ranges missing.
bytes() { # COUNT: the same for a seed on every run
  seq -f %.0f $(((seed * 100 + ++made) * 1000003)) 1000000000000 2>/dev/null | head -c "$1"
}
made=0
P=$work/local/P
mkdir -p "$P/Model" "$P/channels" "$P/small/deep" "$work/held/P" "$work/part"
bytes 1500000 >"$P/Run.tm"
bytes 700001 >"$P/bus.can"
bytes 400000 >"$P/Model/notes.bin"
for i in 1 2 3 4 5; do bytes $((i * 7001)) >"$P/channels/c$i.txt"; done
for i in {1..40}; do bytes $((i * 997 % 4096)) >"$P/small/s$i"; done
mv "$P"/small/s*5 "$P/small/deep" && : >"$P/small/none"
printf 'a project\n' >"$P/P.kqsln"
: >"$P/empty.gps"
segment() { tail -c +$(($1 + 1)) "$P/Run.tm" | head -c "$2"; }
held=$work/held/P
segment 0 500000 >"$held/Run.tm"
segment 500000 400000 >"$held/Run(1).tm"
segment 900000 300000 >"$held/Run(2).tm"
printf '[FileInfo]\r\nFileCount=2\r\nSize1=500000\r\nSize2=900000\r\n' >"$held/Run.fi"
head='[Lost_Pos]\r\nnRecordCount=6\r\nnHeadSize=0\r\n'
printf "$head" >"$held/Run.li"
cp -r "$held" "$work/filled"
i=0
for at in 1000 300000 499000 600001 899999 1000000; do
  case $at in 499000) length=1000 ;; 899999) length=1 ;; *) length=90000 ;; esac
  file=Run.tm start=0
  [ $at -lt 500000 ] || { file='Run(1).tm' start=500000; }
  [ $at -lt 900000 ] || { file='Run(2).tm' start=900000; }
  head -c $length /dev/zero | dd of="$held/$file" bs=64K oflag=seek_bytes seek=$((at - start)) \
    conv=notrunc status=none
  printf 'lost_info_%d=%d,%d\r\n' $i $at $length >>"$held/Run.li"
  printf 'lost_info_%d=%d,0\r\n' $i $((at + length)) >>"$work/filled/Run.li"
  i=$((i + 1))
done
hashes "$P" >"$work/whole"
segment 900000 600000 >"$work/filled/Run(2).tm"
cp -r "$P/." "$work/part/P" && rm "$work/part/P/Run.tm" && cp "$work/filled/"* "$work/part/P"
hashes "$work/part/P" >"$work/whole-resumed"

# ---- Running
start_server() { # PLAN: nothing, or where to die; COMMAND that starts it, if any
  : >"$work/ready"
  ${2:-} env ${1:+"KQFT_KILL_AT=$1" "LD_PRELOAD=$preload"} "$build/bin/kqft-server" --dir "$work/server" \
    --log-dir "$work/log" --listen 127.0.0.1 --port 0 --no-confine $durable >/dev/null 2>"$work/ready" &
  server=$!
  until port=$(sed -n 's/^listening on 127.0.0.1:\([0-9]*\).*/\1/p' "$work/ready") && [ -n "$port" ]; do
    kill -0 $server 2>/dev/null || { echo "the server does not start: $(cat "$work/ready")"; exit 1; }
    sleep 0.005
  done
}

address=0
kqft() { # PLAN ARGUMENT...: from an address of its own, as another workstation
  export XDG_STATE_HOME=$work/state
  local plan=$1
  shift
  address=$((address + 1))
  exec env ${plan:+"KQFT_KILL_AT=$plan" "LD_PRELOAD=$preload"} "$build/bin/kqft" \
    --server "127.0.0.1:$port" --bind "127.1.$((address / 250)).$((address % 250 + 1))" \
    --log-dir "$work/log" "$@" >"$work/said" 2>&1
}

declare -A count most=() command=([put]=put [resume]=put [get]=get)
tally() { count[$1]=$((${count[$1]:-0} + 1)); }

lose() { # WHAT
  tally losses
  lost=$work/lost-$round
  mkdir -p "$lost" && cp -r "$work/server" "$work/back" "$work/said" "$lost"
  echo "LOST in round $round of seed $seed ($kind, $who, $how): $1; see $lost"
}

expect_whole() { # WHEN
  local expected=$work/whole found=$work/server/P
  [ $kind != put ] || expected=$work/whole-now
  [ $kind != resume ] || expected=$work/whole-resumed
  [ $kind != get ] || found=$work/back/P
  hashes "${root:-}$found" | cmp -s - "$expected" || lose "$1, but the files differ"
  [ $kind != put ] || [ "${root:-}" ] || verify >/dev/null || lose "$1, but the inventory differs"
}

# The server's disk against the inventory: status 0 when all is the same.
verify() { "$build/bin/kqft-server" --dir "$work/server" --verify --json P 2>/dev/null; }

# Whatever was cut: a digest that an inventory tells is that of the file. What
# is on its way has none.
expect_true_inventory() {
  [ $kind != put ] || ! verify | grep -q '"verdict":"changed","size"' || lose "an inventory is wrong"
}

# What somebody does to a file between two runs.
edit() {
  local file size
  case $((RANDOM % 3)) in 0) file=Run.tm ;; 1) file=bus.can ;; *) file=channels/c$((1 + RANDOM % 5)).txt ;; esac
  file=$work/now/P/$file
  size=$(stat -c %s "$file")
  case $((RANDOM % 4)) in
    0) bytes $((1 + RANDOM * 3)) >>"$file" ;;
    1) bytes 100 | dd of="$file" bs=100 oflag=seek_bytes seek=$((size / 2)) conv=notrunc status=none ;;
    2) truncate -s $((size / 2 + 1)) "$file" ;;
    3) bytes $((size + RANDOM % 3 - 1)) >"$file.new" && mv "$file.new" "$file" ;;
  esac
  tally edits
  hashes "$work/now/P" >"$work/whole-now"
}

# Every line of the side files whole, and none missing.
expect_side_files() {
  [ $kind = resume ] || return
  local li=$work/server/P/Run.li
  [ "$(grep -cE $'^(\[Lost_Pos]|nRecordCount=6|nHeadSize=0|lost_info_[0-5]=[0-9]+,[0-9]+)\r$' "$li")" = 9 ] &&
    cmp -s "$held/Run.fi" "$work/server/P/Run.fi" || lose "a side file is torn"
}

set_up() {
  durable=--durable
  [ $((RANDOM % 2)) = 0 ] || durable=--no-durable
  rm -rf "$work/server" "$work/back"
  mkdir -p "$work/server" "$work/back" "$work/log"
  case $kind in
    resume) cp -r "$work/held/P" "$work/server" ;;
    get) cp -r "$P" "$work/server" ;;
  esac
  rm -rf "$work/now" && mkdir "$work/now" && cp -rp "$P" "$work/now" && cp "$work/whole" "$work/whole-now"
  case $kind in
    get) words=(get P --into "$work/back") ;;
    put) words=(put --take-over "$work/now/P") ;; # from what another address has left
    resume) words=(put --take-over "$P") ;;
  esac
}

# One run that is cut, if its end does not come first.
cut() {
  local plan= limit=$kind-$who-$how most_calls status=0
  case $how in
    moment) ;;
    *)
      most_calls=${most[$limit]:-100}
      [ $how != rename ] || most_calls=${most[$limit]:-10}
      [ $how != remove ] || most_calls=${most[$limit]:-6}
      at=$((1 + RANDOM % most_calls))
      plan=$how:$at
      ;;
  esac
  case $who in client) start_server ;; *) start_server "$plan" ;; esac
  case $who in
    server) (kqft "" --retries 0 "${words[@]}") & ;;
    *) (kqft "$plan" --retries 0 "${words[@]}") & ;;
  esac
  local client=$!
  address=$((address + 1))
  if [ $how = moment ]; then
    sleep "$(printf '0.%03d' $((RANDOM % 150)))"
    [ $who = server ] || kill -9 $client 2>/dev/null
    [ $who = client ] || kill -9 "$server" 2>/dev/null
  fi
  { wait $client; } 2>/dev/null
  status=$?
  tally "exit $status"
  if [ $status = 0 ]; then
    tally unhurt
    [ $how = moment ] || [ "${at:-1}" = 1 ] || most[$limit]=$((at - 1))
    expect_whole "exit status 0"
  else
    tally "cut"
    tally "$who"
    tally "at a ${how/remove/removal}"
  fi
  expect_side_files
  expect_true_inventory
  end_server
}

echo "seed $seed"
for ((round = 1; round <= rounds; ++round)); do
  case $((RANDOM % 3)) in 0) kind=put ;; 1) kind=resume ;; *) kind=get ;; esac
  set_up
  if [ $kind = put ] && [ $((RANDOM % 2)) = 0 ]; then # a later version of a project
    start_server
    (kqft "" "${words[@]}") || lose "the first run failed: $(cat "$work/said")"
    address=$((address + 1))
    end_server
    edit
  fi
  for ((cuts = 1 + RANDOM % 3; cuts > 0; --cuts)); do
    case $((RANDOM % 3)) in 0) who=server ;; 1) who=client ;; *) who=both ;; esac
    case $((RANDOM % 4)) in 0) how=write ;; 1) how=moment ;; 2) how=rename ;; *) how=remove ;; esac
    # Only these rename: the server its side files, a download its parts.
    case $how-$kind-$who in
      rename-put-* | rename-resume-client | rename-get-server) how=write ;;
    esac
    # Only the side files' locks are removed.
    case $how-$kind-$who in remove-put-* | remove-get-* | remove-resume-client) how=moment ;; esac
    # Only these write: the server what comes up, the client what comes down.
    case $how-$kind-$who in write-put-client | write-resume-client | write-get-server) how=moment ;; esac
    cut
    [ $kind != put ] || [ $((RANDOM % 2)) = 0 ] || edit
  done
  start_server
  (kqft "" "${words[@]}") || lose "the last run failed: $(cat "$work/said")"
  address=$((address + 1))
  expect_whole "the last run ended with 0"
  end_server
done 2>/dev/null # where the shell tells of every process that was killed
echo "$rounds rounds, ${count[cut]:-0} runs cut, ${count[unhurt]:-0} ended before they could be"
for name in server client both "at a write" "at a rename" "at a removal" "at a moment"; do
  echo "  killed $name: ${count[$name]:-0}"
  [ $rounds -lt 20 ] || [ "${count[$name]:-0}" -gt 0 ] || untried=$name
done
for name in "${!count[@]}"; do
  case $name in exit*) echo "  $name: ${count[$name]}" ;; esac
done | sort

# ---- A full disk: a file system of 4 MiB where the rights suffice, a limit on
# the size of files in any case. Room is made, and the same put goes on.
full_disk() { # NAME, a way to start a program, a way to make room, what kqft must say
  how=$1 kind=put who=server round=$1
  set_up
  start_server "" "$2"
  (kqft "" --retries 0 put --take-over "$P") && lose "a full disk, but exit status 0"
  address=$((address + 1))
  sed 's/^/  /' "$work/said" | tail -4
  grep -q "$4" "$work/said" || lose "not said: $4"
  $3
  (kqft "" put --take-over "$P") || lose "the last run failed: $(cat "$work/said")"
  address=$((address + 1))
  root=/proc/$server/root expect_whole "room was made"
  tally "full disks"
  end_server
}
small_disk() {
  exec unshare -rm sh -c 'mount -t tmpfs -o size=4m none "$0" && head -c 2500k /dev/zero >"$0/ballast" &&
    exec "$@"' "$work/server" "$@"
}
empty_small_disk() { rm "/proc/$server/root$work/server/ballast"; }
small_files() { ulimit -f 500 && exec "$@"; }
large_files() { end_server; start_server; }
kind=put
set_up
if (small_disk true) 2>/dev/null; then
  echo "a full file system:"
  full_disk "full file system" small_disk empty_small_disk 'cannot write the data (-10 ERROR_CODE_SERVER_WRITE)'
fi
echo "a limit on the size of files:"
full_disk "file limit" small_files large_files 'sent 49 of 51 files' # two are too large
echo "${count["full disks"]} full disks, ${count[edits]:-0} edits"
echo "${count[losses]:-0} losses"
[ -z "${untried:-}" ] || echo "none was killed: $untried"
[ "${count[losses]:-0}${untried:-}" = 0 ]
