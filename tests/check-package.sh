#!/bin/sh
# Installs a build to a place of its own and uses it as strangers do: the
# first program of the README is built against it by find_package and by
# pkg-config, and uploads a file to the installed server.
#
#   tests/check-package.sh SOURCE BUILD COMPILER
set -eu
source=$1
build=$2
compiler=$3
work=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill "$server"; rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/moved-later" >"$work/install.log" || {
  cat "$work/install.log"
  exit 1
}
mv "$work/moved-later" "$work/prefix"  # nothing may depend on the place
for file in bin/kqft bin/kqft-server share/man/man1/kqft.1 share/man/man8/kqft-server.8 \
  share/bash-completion/completions/kqft lib/systemd/system/kqft-server.service \
  lib/systemd/system/kqft-verify.service lib/systemd/system/kqft-verify.timer \
  lib/systemd/user/kqft-watch@.service lib/systemd/system/kqft-server@.service \
  etc/logrotate.d/kqft-server; do
  [ -f "$work/prefix/$file" ] || {
    echo "not installed: $file"
    exit 1
  }
done

mkdir "$work/app" "$work/projects" "$work/log"
# README shows the programs that are installed.
examples=$(find "$work/prefix/share/doc" -name examples)
awk '/^```cpp$/ { on = 1; next } /^```$/ { on = 0 } on' "$source/README.md" >"$work/shown.cpp"
cat "$examples/upload.cpp" "$examples/projects.cpp" | cmp - "$work/shown.cpp"
cp "$examples/upload.cpp" "$work/app/app.cpp"
cp "$examples/projects.cpp" "$work/app/"
cat >"$work/app/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.21)
project(app CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(KQFileTransService REQUIRED)
add_executable(app app.cpp)
target_link_libraries(app PRIVATE KQFileTransService::KQFileTransService)
add_executable(projects projects.cpp)
target_link_libraries(projects PRIVATE KQFileTransService::kqft)
END
cmake -G Ninja -S "$work/app" -B "$work/app/build" -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/app/build" >/dev/null

# Behind <windows.h>, which turns common words into macros, too.
cat >"$work/app/windows.h" <<'END'
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>
#define SendMessage SendMessageW
#define GetObject GetObjectW
#define CreateFile CreateFileW
#define DeleteFile DeleteFileW
#define min(a, b) (((a) < (b)) ? (a) : (b))
#define max(a, b) (((a) > (b)) ? (a) : (b))
#define small char
#define interface struct
#define near
#define far
#define ERROR 0
#define IN
#define OUT
END
cat >"$work/app/host.cpp" <<'END'
#include "client/KQFileTransServiceClient.h"
#include "server/KQFileTransServiceServer.h"
class CWindowsHost : public CKQFileTransServiceClient {
 public:
  ~CWindowsHost() override { Stop(); }
  bool Ask() { return SendMessage(2511, nullptr, 0); }
};
int main() { return CWindowsHost().Ask() ? 1 : 0; }
END

# Every header stands by itself, in C++17.
headers=$work/prefix/include/KQFileTransService
(cd "$headers" && find . -name '*.h') | while read -r header; do
  echo "#include \"$header\"" >"$work/app/header.cpp"
  "$compiler" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I "$headers" "$work/app/header.cpp" || {
    echo "$header does not stand by itself"
    exit 1
  }
done

export PKG_CONFIG_PATH="$(dirname "$(find "$work/prefix" -name KQFileTransService.pc)")"
# shellcheck disable=SC2046 # a list of words on purpose
"$compiler" "$work/app/app.cpp" $(pkg-config --cflags --libs KQFileTransService) -o "$work/app/app"
# shellcheck disable=SC2046 # as above
"$compiler" "$work/app/projects.cpp" $(pkg-config --cflags --libs kqft) -o "$work/app/projects"
# shellcheck disable=SC2046 # as above
"$compiler" -include "$work/app/windows.h" "$work/app/host.cpp" \
  $(pkg-config --cflags --libs KQFileTransService) -o "$work/app/host"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir KQFileTransService)
export LD_LIBRARY_PATH
(cd "$work" && app/host)

# start_server BLOCKS: sets $server and $port; it cannot write longer files.
start_server() {
  : >"$work/ready"
  (
    ulimit -f "$1"
    exec "$work/prefix/bin/kqft-server" --dir "$work/projects" --log-dir "$work/log" --port 0 \
      --listen 127.0.0.1 --no-confine
  ) >/dev/null 2>"$work/ready" &
  server=$!
  while ! grep -q '^listening on ' "$work/ready"; do
    kill -0 "$server"
    sleep 0.05
  done
  port=$(sed 's/.*:\([0-9]*\) .*/\1/' "$work/ready")
}

stop_server() {
  kill "$server"
  wait "$server"
  server=
}

# One server that keeps running: each run begins while it could still be busy
# with the one before. A file without bytes counts as well.
start_server unlimited
for app in "$work/app/build/app" "$work/app/app" "$work/app/app"; do
  for bytes in 700000 0; do
    head -c "$bytes" /dev/urandom >"$work/run1.tm"
    rm -rf "$work/projects/Demo"
    "$app" 127.0.0.1 "$port" "$work/run1.tm" 2>/dev/null
    cmp "$work/run1.tm" "$work/projects/Demo/run1.tm"
  done
done

# Whole projects, cancelled once on their way.
mkdir -p "$work/run7/deep" && head -c 30M /dev/urandom >"$work/run7/run.tm"
head -c 5M /dev/urandom >"$work/run7/deep/a.dat"
for app in "$work/app/build/projects" "$work/app/projects" "$work/app/projects"; do
  rm -rf "$work/projects/Demo" "$work/back"
  "$app" 127.0.0.1 "$port" "$work/run7" "$work/back" >/dev/null 2>"$work/said"
  diff -r "$work/run7" "$work/back/Demo"
  [ ! -s "$work/said" ]  # nothing of the library's on the host's streams
done
stop_server

# A server that can store a part only: that is no success.
start_server 256
head -c 700000 /dev/urandom >"$work/run1.tm"
rm -rf "$work/projects/Demo"
if "$work/app/app" 127.0.0.1 "$port" "$work/run1.tm" 2>/dev/null; then
  echo "half a file passed for a whole one"
  exit 1
fi
held=$(wc -c <"$work/projects/Demo/run1.tm")
[ "$held" -gt 0 ] && [ "$held" -lt 700000 ]
stop_server
echo "the installed tree serves"
