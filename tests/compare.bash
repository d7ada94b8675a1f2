# For checks that compare what is said in two places; sets offences to 1 where
# they differ. To be sourced.
offences=0

compare() { # WHAT FIRST SECOND: both as lines in any order
  local one two
  one=$(sort -u <<<"$2")
  two=$(sort -u <<<"$3")
  [[ $one != "$two" || ! $one ]] || return 0
  echo "$1 differ:"
  diff <(echo "$one") <(echo "$two") | grep '^[<>]'
  offences=1
}
