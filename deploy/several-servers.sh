#!/bin/bash
# Three servers over one distributed file system, on one machine: builds a CephFS
# cluster on three hosts (namespaces with addresses of their own), mounts it on
# each, runs a confined kqft-server there, and lets workstations, who name all
# three servers, send and fetch while a storage daemon, the metadata server, a
# server or a whole host is killed, or a server says nothing for a while.
#
#   deploy/several-servers.sh [OPTION]...
#
#   --rounds N    50 unless given
#   --seed N      draws the same projects, deaths and moments again
#   --first N     begins with this round of the seed
#   --mib N       a project has 60 to N MiB; 140 unless given
#   --measure     afterwards throughput over the file system beside dd, and what
#                 three servers carry on the local file system
#   --verbose     says why something had to be called again
#   --no-install  takes what is there (else apt-get installs what is missing)
#   BUILD=DIR     programs of another build than build/release
#
# Needs root and some 12 GB below TMPDIR (/var/tmp). Everything runs in namespaces
# that end with this script, however it ends. Exit status 0 when every copy was
# equal, 1 when something was lost, 77 when it cannot be tried here.
set -u
here=$(cd "$(dirname "$0")" && pwd)
build=${BUILD:-$(dirname "$here")/build/release}
install=yes
arguments=()
for argument; do
  case $argument in
    --no-install) install= ;;
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//p}' "$0"; exit ;;
    *) arguments+=("$argument") ;;
  esac
done

skip() {
  echo "skipped: $1" >&2
  exit 77
}

[ "$(id -u)" = 0 ] || skip "only root can make namespaces and mount"
[ -c /dev/fuse ] || skip "there is no /dev/fuse"
for tool in ip unshare nsenter setpriv python3; do
  command -v $tool >/dev/null || skip "$tool is not installed"
done
unshare --mount --pid --net --uts --fork true 2>/dev/null || skip "namespaces are not allowed"
unshare --net sh -c 'ip link add name b0 type bridge && ip link add v0 type veth peer name w0' 2>/dev/null ||
  skip "the kernel has no bridges or no pairs of virtual links"
for program in kqft kqft-server; do
  [ -x "$build/bin/$program" ] || { echo "$build/bin/$program is missing: build first" >&2; exit 2; }
done
packages=$(sed -n 's/^PACKAGES = "\(.*\)"/\1/p' "$here/cephfs.py")
missing=
for package in $packages; do
  dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q ' installed' || missing+=" $package"
done
if [ "$missing" ]; then
  [ $install ] || skip "not installed:$missing"
  echo "installing$missing"
  # shellcheck disable=SC2086 # several packages
  { apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing; } \
    >/dev/null || skip "cannot install$missing"
fi

work=$(mktemp -d "${TMPDIR:-/var/tmp}/kqft-several.XXXXXX") || exit 2
chmod 711 "$work" # the servers run as nobody
inside=
# The first process of the namespace ends with unshare, and all others with it;
# mounts and links go with their namespaces.
clean() {
  trap '' INT TERM HUP
  [ -z "$inside" ] || { kill -9 "$inside"; wait "$inside"; } 2>/dev/null
  for _ in {1..100}; do
    rm -rf "$work" 2>/dev/null && break
    sleep 0.1
  done
}
trap clean EXIT
trap 'exit 130' INT TERM HUP
setpriv --pdeathsig KILL unshare --mount --pid --net --uts --fork --kill-child --mount-proc \
  python3 "$here/trials.py" "$build" "$work" "${arguments[@]}" &
inside=$!
wait $inside
status=$?
[ $status != 2 ] || echo "the namespaces ended early" >&2
exit $status
