#!/bin/bash
# Compares what is said of the commands and options of the programs:
# by --help, by the manual pages and by the completion of bash.
#
#   tests/check-usage.sh ROOT BUILD
#
# Prints what stands in one place only; exit status 1 when there is anything.
set -u
export LC_ALL=C
root=$1
bin=$2/bin
# shellcheck source=tests/compare.bash
. "$root/tests/compare.bash"

# What --help of a program, or of a command of it, lists in a section.
listed() { # SECTION PROGRAM [COMMAND]
  "$bin/$2" ${3:+"$3"} --help | awk -v section="$1:" '
    /^[A-Z]/ { inside = $0 == section }
    inside && /^  [^ ]/ { sub(/\{.*/, "", $1); gsub(",", "\n", $1); print $1 }'
}

# What a manual page explains in a section, without its fonts.
explained() { # SECTION PAGE
  sed 's/\\-/-/g; s/\\f[A-Z]//g; s/["[]/ /g' "$root/docs/man/$2" | awk -v section="$1" '
    /^\.SH/ { inside = $2 == section }
    tag && inside { $1 = ""; print }
    { tag = /^\.TP/ }'
}

options() { grep -oE '(^| )--?[a-z][a-z-]*' | tr -d ' '; }

# What bash offers in the place of the last word.
completed() { # PROGRAM WORD...
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMPREPLY=()
  "_${1//-/_}"
  printf '%s\n' "${COMPREPLY[@]}"
}

programs='kqft kqft-server'
[[ ! -x $bin/kqft-status ]] || programs+=' kqft-status'
for program in $programs; do
  # shellcheck source=/dev/null
  . "$root/packaging/bash-completion/$program"
done

for page in kqft-server.8 kqft-status.1; do
  program=${page%.*}
  [[ " $programs " == *" $program "* ]] || continue
  own=$(listed Options "$program")
  compare "$program: --help (<) and manual (>)" "$own" "$(explained OPTIONS "$page" | options)"
  compare "$program: --help (<) and completion (>)" "$(grep ^-- <<<"$own")" "$(completed "$program" -)"
done

general=$(listed Options kqft)
commands=$(listed Subcommands kqft)
all=$general
compare "kqft: commands of --help (<) and manual (>)" "$commands" \
  "$(explained COMMANDS kqft.1 | awk '{ print $1 }')"
compare "kqft: commands of --help (<) and completion (>)" "$commands" "$(completed kqft '')"
compare "kqft: --help (<) and completion (>)" "$(grep ^-- <<<"$general")" "$(completed kqft -)"
for command in $commands; do
  own=$(listed Options kqft "$command")
  all+=$'\n'$own
  compare "kqft $command: --help (<) and completion (>)" \
    "$(grep -h ^-- <<<"$general"$'\n'"$own")" "$(completed kqft "$command" -)"
done
compare "kqft: --help (<) and manual (>)" "$all" \
  "$(cat <(explained COMMANDS kqft.1) <(explained FILTERS kqft.1) <(explained OPTIONS kqft.1) | options)"
exit $offences
