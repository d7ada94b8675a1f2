#!/bin/bash
# Compares what the documents list with the sources: the locks and shared words
# of docs/threads.md, the results of docs/protocol.md (check-protocol.sh has its
# messages), the tests that docs/windows.md explains the lack of, and the paths
# that any document names.
#
#   tests/check-docs.sh [ROOT]
#
# Prints what stands in one place only; exit status 1 when there is anything.
set -u
export LC_ALL=C
cd "${1:-$(dirname "$0")/..}" || exit 2
rooms='platform net protocol client session server transfer programs bindings'
# shellcheck source=tests/compare.bash
. tests/compare.bash

# CLASS::MEMBER of every lock and shared word; those two types themselves are
# made of what they wrap.
declared() {
  # shellcheck disable=SC2086 # folders on purpose
  find $rooms \( -name '*.h' -o -name '*.cpp' \) ! -name SharedWord.h ! -name ThreadLock.h \
    -exec awk '
    FNR == 1 { split("", at) }
    { sub(/[ \t]*\/\/.*/, "") }
    /^ *(class|struct) [^;]*$/ {
      indent = match($0, /[^ ]/)
      sub(/^ *(class|struct) +(KQFT_[A-Z_]+ +)?/, "")
      sub(/[ :]+(final|public|private|\{).*/, "")
      at[indent] = $1
    }
    /^ *\};/ { delete at[match($0, /[^ ]/)] }
    match($0, /(CSharedWord<.*>|mutex>?|CThreadLock\*) m_[A-Za-z]+( = .*|\{.*\})?;/) {
      $0 = substr($0, RSTART, RLENGTH)
      sub(/( = .*|\{.*\})?;$/, "")
      name = $NF
      for (indent = 9; indent > 0; --indent) if (indent in at) name = at[indent] "::" name
      print name
    }' {} +
}

# The first column of its tables of locks and words. A member without its class
# belongs to the class before it in that row.
described() {
  awk '/^## / { inside = /^## (Locks|Shared words)/ } inside && /^\|/' docs/threads.md |
    cut -d '|' -f 2 | awk -F '`' '{
      class = ""
      for (i = 2; i <= NF; i += 2) {
        name = $i
        if (name !~ /(^|::)m_/) continue
        if (match(name, /^.*::/)) class = substr(name, 1, RLENGTH)
        else name = class name
        print name
      }
    }'
}

compare "locks and shared words: sources (<) and docs/threads.md (>)" "$(declared)" "$(described)"

# What docs/threads.md calls by name, anywhere in it.
words=$(grep -oE '`[A-Za-z_:]+`' docs/threads.md | tr -d '`' | sed 's/.*:://' | sort -u)
# shellcheck disable=SC2086
compare "names: docs/threads.md (<) and sources (>)" "$words" \
  "$(grep -rhowFf <(echo "$words") --include='*.h' --include='*.cpp' $rooms | sort -u)"

compare "results: protocol/ResultCodes.h (<) and docs/protocol.md (>)" \
  "$(sed -nE 's/^ *X\(([A-Z_]+), (-?[0-9]+), "(.*)"\).*/\2 \1 \3/p' protocol/ResultCodes.h)" \
  "$(sed -nE 's/−/-/; s/^\| (-?[0-9]+) \| `([A-Z_]+)` \| (.*) \|$/\1 \2 \3/p' docs/protocol.md)"

# The same in C, by names that are made of these.
compare "results: protocol/ResultCodes.h (<) and bindings/c/kqft/codes.h (>)" \
  "$(sed -nE 's/^ *X\(([A-Z_]+), (-[0-9]+), "(.*)"\).*/\1 \2 \3/p' protocol/ResultCodes.h |
    sed -E 's/^(ERROR_CODE_)?/KQFT_E_/; s/_ERROR / /')" \
  "$(sed -nE 's|^ *(KQFT_E_[A-Z_]+) = (-[0-9]{1,2}), +///< (.*)$|\1 \2 \3|p' bindings/c/kqft/codes.h)"
compare "results: bindings/c/kqft/codes.h (<) and bindings/python/kqft/codes.py (>)" \
  "$(sed -nE 's|^ *KQFT_(E_)?([A-Z_]+) = (-?[0-9]+),? +///<.*|\2 \3|p' bindings/c/kqft/codes.h)" \
  "$(sed -nE 's|^    ([A-Z_]+) = (-?[0-9]+)( .*)?$|\1 \2|p' bindings/python/kqft/codes.py)"

compare "functions: bindings/c/kqft (<) and bindings/c/kqft.def (>)" \
  "$(grep -hoE '^KQFT_C_API [^(]*\bkqft_[a-z_]+\(' bindings/c/kqft/*.h | grep -oE 'kqft_[a-z_]+')" \
  "$(sed -n 's/^  //p' bindings/c/kqft.def)"

# Whole paths from the root on.
for path in $(grep -hoE "\`(${rooms// /|}|tests|tools|bench|deploy|docs|cmake|packaging)/[A-Za-z0-9_./-]+\`" \
  README.md docs/*.md | tr -d '`' | sort -u); do
  [[ -e $path ]] || { echo "a document names $path, which is not there"; offences=1; }
done

# What does not run on Windows, or not under Wine.
posix=$(find tests -path '*/posix/*Test.cpp' -exec sed -nE 's/^TEST(_F)?\(([A-Za-z]+),.*/\2/p' {} + | sort -u)
under_wine=$(sed -nE 's/^set\(left_out "(.*)"\)/\1/p' tests/windows.cmake | tr ':' '\n' | sed 's/^Both.//; s/\*.*//')
for left in $posix $under_wine; do
  grep -qE "^\|.*\`$left" docs/windows.md || { echo "docs/windows.md gives no reason for $left"; offences=1; }
done
exit $offences
