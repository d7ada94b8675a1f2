#!/bin/sh
# Runs programs for Windows under Wine, in a system of their own.
#
#   tests/wine.sh PREFIX start
#   tests/wine.sh PREFIX PROGRAM.exe [ARGUMENT...]
#   tests/wine.sh PREFIX test PROGRAM.exe [ARGUMENT...]
#   tests/wine.sh PREFIX stop
#
# start makes the system that PREFIX names when it is missing, and leaves one
# process there until stop: else each program would start and end Wine's own
# processes, which keep the caller's streams open. test gives them none to keep:
# what the program prints comes at its end.
set -eu
export WINEPREFIX=$1 WINEDEBUG=-all LC_ALL=C.UTF-8
shift

# A scattered layout of the memory leaves no room, now and then, where Wine
# needs it.
wine="setarch $(uname -m) -R /usr/lib/wine/wine64"

case $1 in
start)
  mkdir -p "$WINEPREFIX"
  [ -e "$WINEPREFIX/system.reg" ] || $wine wineboot -i >/dev/null 2>&1
  setsid sh -c "sleep 86400 | $wine cmd" </dev/null >/dev/null 2>&1 &
  echo $! >"$WINEPREFIX/keeper"  # of a session of its own
  exec $wine cmd /c exit </dev/null >/dev/null 2>&1
  ;;
stop)
  /usr/lib/wine/wineserver64 -k || true
  kill -- "-$(cat "$WINEPREFIX/keeper")" && rm "$WINEPREFIX/keeper"
  ;;
test)
  shift
  printed=$(mktemp)
  status=0
  $wine "$@" </dev/null >"$printed" 2>&1 || status=$?
  cat "$printed"
  rm "$printed"
  exit $status
  ;;
*)
  exec $wine "$@"
  ;;
esac
