#!/bin/sh
# Runs clang-tidy, as .clang-tidy wants it, over what a build compiles.
#
#   tools/lint.sh [BUILD]      BUILD: one by Clang, current; build/asan unless given
#
# Prints the findings; exit status 1 when there are any, 3 where clang-tidy is
# not installed. What was clean is remembered in BUILD/lint and not looked at
# again until a file that it includes, its command or .clang-tidy changes.
set -eu
cd "$(dirname "$0")/.."
. tools/clang-tool.sh

tidy=$(clang_tool clang-tidy) || exit $?
exec python3 tools/lint.py "$tidy" "${1:-build/asan}"
