#!/bin/sh
# Checks what the compiler does not: which folder may include which, that no
# files include each other in a circle, where system headers and questions about
# the operating system may stand, how long files may be.
#
#   tests/check-layers.sh [ROOT]
#
# Prints every offence, circles as their names in a row, all others as
# FILE:LINE: TEXT; exit status 1 when there is one.
set -u
export LC_ALL=C
cd "${1:-$(dirname "$0")/..}" || exit 2
offences=$(mktemp) || exit 2
trap 'rm -f "$offences"' EXIT

sources() { find "$@" -type f \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | sort; }

# Headers for hosts in C include each other by what lies beside them.
all='platform net protocol client session server transfer programs bindings'

# A folder may include from itself and from those named behind it.
allow() {
  folder=$1
  shift
  pattern=$(echo "$folder" "$@" | tr ' ' '|')
  for file in $(sources "$folder" | grep -v '^bindings/c/kqft'); do
    grep -HnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$file" |
      grep -vE "\"(KQFileTransServiceExport\.h|KQFTransferExport\.h|($pattern)/[^\"]*)\"" |
      sed 's/$/   [folder may not include this]/'
  done
}

# Standard headers have no suffix; anything else in angle brackets belongs to
# an operating system, to the option parser of the programs, or is what one
# file alone sees: the hash functions, the web server, the reader of JSON.
system_headers() {
  for file in $(sources $all); do
    case $file in */posix/* | */windows/* | bindings/c/kqft*) continue ;; esac
    grep -HnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*<[^>]*[./]' "$file" |
      grep -vE '^(programs/[^:]*:[0-9]+:.*<CLI/|transfer/Digest(Avx2)?\.cpp:[0-9]+:.*<xxhash\.h>|programs/kqft-status/(WebServer\.cpp:[0-9]+:.*<httplib\.h>|ServerFacts\.cpp:[0-9]+:.*<nlohmann/json\.hpp>))' | sed 's/$/   [system header]/'
    grep -HnE '^[[:space:]]*#[[:space:]]*(if|ifdef|ifndef|elif).*(_WIN32|_WIN64|_MSC_VER|__linux|__unix|__APPLE__|__FreeBSD)' \
      "$file" | sed 's/$/   [question about the operating system]/'
  done
}

# A header and the source file of its name count as one.
circles() {
  sources $all tests | xargs awk -F '"' '
    /^[ \t]*#[ \t]*include[ \t]*"/ {
      from = FILENAME
      sub(/^tests\//, "", from)
      sub(/\.[a-z]+$/, "", from)
      if (sub(/\.h$/, "", $2) && $2 != from) print from, $2
    }' | tsort 2>&1 >/dev/null | awk '
    function tell() { if (ring != "") print ring " " first "   [include each other in a circle]" }
    /contains a loop/ { tell(); ring = ""; next }
    { if (ring == "") first = $2; ring = ring (ring == "" ? "" : " ") $2 }
    END { tell() }'
}

long_files() {
  for file in $(sources $all tests); do
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
  allow bindings transfer server client protocol net platform
  circles
  system_headers
  long_files
} >"$offences"

cat "$offences"
[ ! -s "$offences" ]
