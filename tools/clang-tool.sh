# Sourced: clang_tool NAME prints the path of a tool of Clang, in the version
# whose judgement the sources follow; others format and find differently. Says
# so in one line and returns 3 where it is not installed.

clang_tool() {
  for candidate in "$1-14" "$1"; do
    case $("$candidate" --version 2>/dev/null) in
      *"version 14."*) command -v "$candidate" && return 0 ;;
    esac
  done
  echo "$1 14 is not installed: nothing is checked by it" >&2
  return 3
}
