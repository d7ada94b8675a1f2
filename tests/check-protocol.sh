#!/bin/sh
# Compares docs/protocol.md with the lists of the code: every message with its
# code, name, sender and whether it is answered, and the extensions of
# measurement files. Likewise the dissector's lists of messages and results.
#
#   tests/check-protocol.sh [ROOT]
#
# Prints what stands in one place only (< the code, > the other); exit status 1
# when there is anything.
set -u
export LC_ALL=C
cd "${1:-$(dirname "$0")/..}" || exit 2
work=$(mktemp -d) || exit 2
trap 'rm -rf "$work"' EXIT

# CODE NAME SENDER ANSWERED
sed -n 's/^ *X(\(NET_[A-Z_]*\), \([0-9]*\), k\([A-Za-z]*\), \([a-z]*\),.*/\2 \1 \3 \4/p' \
  protocol/MessageCodes.h | awk '{ print $1, $2, tolower($3), $4 }' >"$work/code"
grep -o '"[a-z0-9]*"' protocol/MeasurementFiles.cpp | tr -d '"' >>"$work/code"

# A row with an answer of its own: not empty, not "none", not a later message.
awk -F ' *[|] *' '/^[|] 2[0-9]* / {
    gsub("\\\\[|]", "")
    split($2, message, " ")
    gsub("`", "", message[2])
    print message[1], message[2], $3, ($5 ~ /^(none|a [0-9]+ .*)?$/ ? "false" : "true")
  }' docs/protocol.md >"$work/document"
sed -n 's/^(`\(tm [a-z0-9 ]*\)`).*/\1/p' docs/protocol.md | tr ' ' '\n' >>"$work/document"

# CODE MEANING
sed -n 's/^ *X([A-Z_]*, \(-*[0-9]*\), .*"\(.*\)").*/\1 \2/p; s/^ *X(NET_[A-Z_]*, \([0-9]*\),.*"\(.*\)").*/\1 \2/p' \
  protocol/MessageCodes.h protocol/ResultCodes.h >>"$work/code"
sed -n 's/^  \[\(-*[0-9]*\)\] = "\(.*\)",/\1 \2/p' packaging/wireshark/kqft.lua >>"$work/document"

[ -s "$work/code" ] && diff "$work/code" "$work/document" | grep '^[<>]'
cmp -s "$work/code" "$work/document"
