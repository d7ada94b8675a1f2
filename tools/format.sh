#!/bin/sh
# Brings every source file into the form that .clang-format describes.
#
#   tools/format.sh            changes the files
#   tools/format.sh --check    only names what differs; exit status 1 then
#
# Exit status 3 where clang-format is not installed.
set -eu
cd "$(dirname "$0")/.."
. tools/clang-tool.sh

case ${1:-} in
  '') mode=-i ;;
  --check) mode=--dry-run ;;
  *)
    echo "usage: tools/format.sh [--check]" >&2
    exit 2
    ;;
esac
format=$(clang_tool clang-format) || exit $?
# Those that git knows or would add, unless they are deleted.
git ls-files -co --exclude-standard -- '*.cpp' '*.h' | while read -r file; do
  [ ! -f "$file" ] || printf '%s\0' "$file"
done | xargs -0 -r "$format" "$mode" --Werror
