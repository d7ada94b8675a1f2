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
  lib/systemd/system/kqft-verify.service lib/systemd/system/kqft-verify.timer; do
  [ -f "$work/prefix/$file" ] || {
    echo "not installed: $file"
    exit 1
  }
done

mkdir "$work/app" "$work/projects" "$work/log"
awk '/^```cpp$/ { on = 1; next } /^```$/ { if (on) exit } on' "$source/README.md" >"$work/app/app.cpp"
cat >"$work/app/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.21)
project(app CXX)
find_package(KQFileTransService REQUIRED)
add_executable(app app.cpp)
target_link_libraries(app PRIVATE KQFileTransService::KQFileTransService)
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

export PKG_CONFIG_PATH="$(dirname "$(find "$work/prefix" -name KQFileTransService.pc)")"
# shellcheck disable=SC2046 # a list of words on purpose
"$compiler" "$work/app/app.cpp" $(pkg-config --cflags --libs KQFileTransService) -o "$work/app/app"
# shellcheck disable=SC2046 # as above
"$compiler" -include "$work/app/windows.h" "$work/app/host.cpp" \
  $(pkg-config --cflags --libs KQFileTransService) -o "$work/app/host"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir KQFileTransService)
export LD_LIBRARY_PATH
(cd "$work" && app/host)

printf 'measured' >"$work/run1.tm"
for app in "$work/app/build/app" "$work/app/app"; do
  rm -rf "$work/projects/Demo"
  : >"$work/ready"
  "$work/prefix/bin/kqft-server" --dir "$work/projects" --log-dir "$work/log" --port 0 \
    --listen 127.0.0.1 --no-confine >/dev/null 2>"$work/ready" &
  server=$!
  while ! grep -q '^listening on ' "$work/ready"; do
    kill -0 "$server"
    sleep 0.05
  done
  "$app" 127.0.0.1 "$(sed 's/.*:\([0-9]*\) .*/\1/' "$work/ready")" "$work/run1.tm" 2>/dev/null
  cmp "$work/run1.tm" "$work/projects/Demo/run1.tm"
  # A server of its own for each: a plain client leaves it busy for a while.
  kill "$server"
  wait "$server"
  server=
done
echo "the installed tree serves"
