#!/bin/sh
# Checks what the compiler does not: which folder may include which, where
# system headers and questions about the operating system may stand, how long
# files may be.
#
#   tests/check-layers.sh [ROOT]
#
# Prints every offence as FILE:LINE: TEXT; exit status 1 when there is one.
set -u
export LC_ALL=C
cd "${1:-$(dirname "$0")/..}" || exit 2
offences=$(mktemp) || exit 2
trap 'rm -f "$offences"' EXIT

sources() { find "$@" -type f \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | sort; }

# A folder may include from itself and from those named behind it.
allow() {
  folder=$1
  shift
  pattern=$(echo "$folder" "$@" | tr ' ' '|')
  for file in $(sources "$folder"); do
    grep -HnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$file" |
      grep -vE "\"(KQFileTransServiceExport\.h|KQFTransferExport\.h|($pattern)/[^\"]*)\"" |
      sed 's/$/   [folder may not include this]/'
  done
}

# Standard headers have no suffix; anything else in angle brackets belongs to
# an operating system, to the option parser of the programs, or is the hash
# functions, which one file alone sees.
system_headers() {
  for file in $(sources platform net protocol client session server transfer programs); do
    case $file in */posix/* | */windows/*) continue ;; esac
    grep -HnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*<[^>]*[./]' "$file" |
      grep -vE '^(programs/[^:]*:[0-9]+:.*<CLI/|transfer/Digest\.cpp:[0-9]+:.*<xxhash\.h>)' | sed 's/$/   [system header]/'
    grep -HnE '^[[:space:]]*#[[:space:]]*(if|ifdef|ifndef|elif).*(_WIN32|_WIN64|_MSC_VER|__linux|__unix|__APPLE__|__FreeBSD)' \
      "$file" | sed 's/$/   [question about the operating system]/'
  done
}

long_files() {
  for file in $(sources platform net protocol client session server transfer programs tests); do
    lines=$(wc -l <"$file")
    [ "$lines" -lt 400 ] || echo "$file:$lines: 400 lines or more"
  done
}

{
  allow platform
  allow net platform
  allow protocol net platform
  allow client protocol net platform
  allow session protocol net platform
  allow server session protocol net platform
  allow transfer client protocol net platform
  allow programs transfer server client protocol net platform
  system_headers
  long_files
} >"$offences"

cat "$offences"
[ ! -s "$offences" ]
