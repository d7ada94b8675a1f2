#!/bin/sh
# Packs the archive for Windows and uses it as strangers do: a program built
# against what was unpacked sends a file to the server that was.
#
#   tests/windows/check-package.sh SOURCE BUILD COMPILER
set -eu
source=$1
build=$2
compiler=$3
work=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill -9 "$server"; rm -rf "$work"' EXIT
wine() { "$source/tests/wine.sh" "$build/wine" "$@"; }

(cd "$build" && cpack -G ZIP -B "$work") >"$work/cpack.log" || {
  cat "$work/cpack.log"
  exit 1
}
mkdir "$work/there" "$work/projects" "$work/log"
(cd "$work/there" && cmake -E tar xf "$work"/*.zip)
there=$(echo "$work"/there/*)
doc=share/doc/KQFileTransService
for file in bin/kqft.exe bin/kqft-server.exe bin/KQFileTransService.dll bin/libkqft.dll \
  lib/libKQFileTransService.dll.a lib/libkqft.dll.a include/KQFileTransService/transfer/ProjectClient.h \
  $doc/windows.md $doc/LICENSE; do
  [ -f "$there/$file" ] || {
    echo "not in the archive: $file"
    exit 1
  }
done

"$compiler" -std=c++17 -static -I"$there/include/KQFileTransService" \
  "$there/$doc/examples/projects.cpp" -o "$there/bin/app.exe" \
  "$there/lib/libkqft.dll.a" "$there/lib/libKQFileTransService.dll.a"
# In C there are only the header and either import library.
c=$(echo "$compiler" | sed 's/g++/gcc/')
"${c%gcc*}dlltool" -d "$there/lib/kqft.def" -l "$work/listed.a"
for library in "$there/lib/libkqft.dll.a" "$work/listed.a"; do
  "$c" -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$there/include" \
    "$there/$doc/examples/roundtrip.c" -o "$there/bin/c-$(basename "$library" .a).exe" "$library"
done
# A program's folder comes first where libraries are looked for.
"$source/tests/wine.sh" "$build/wine" "$there/bin/kqft-server.exe" --dir "$work/projects" \
  --log-dir "$work/log" --listen 127.0.0.1 --port 0 2>"$work/server.err" &
server=$!
for _ in $(seq 300); do
  grep -q listening "$work/server.err" && break
  sleep 0.1
done
port=$(sed -n 's/.*127\.0\.0\.1:\([0-9]*\).*/\1/p' "$work/server.err")
mkdir "$work/P"
echo content >"$work/P/file"
wine "$there/bin/kqft.exe" --server "127.0.0.1:$port" put "$work/P"
cmp "$work/P/file" "$work/projects/P/file"
wine "$there/bin/app.exe" 127.0.0.1 "$port" "$work/P" "$work/back"
cmp "$work/P/file" "$work/back/Demo/file"
for app in "$there"/bin/c-*.exe; do
  rm -r "$work/projects/Demo" "$work/back"
  wine "$app" 127.0.0.1 "$port" "$work/P" "$work/back"
  cmp "$work/P/file" "$work/back/Demo/file"
done
