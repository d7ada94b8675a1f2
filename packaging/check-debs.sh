#!/bin/bash
# Uses the packages in a Debian of their own: the former version, an upgrade to
# this one with the projects kept, the tests of packaging/debian/tests, removal
# and purge.
#
#   packaging/check-debs.sh [DIRECTORY]    of build-debs.sh: build/debs
#
# Needs to be root, debootstrap and a mirror; a few minutes. Exit status 0 when
# all went well.
set -eu
cd "$(dirname "$0")/.."
. tools/require-packages.sh
require_packages debootstrap
debs=$(realpath "${1:-build/debs}")
root=$(mktemp -d)
chmod 755 "$root"
inside() { chroot "$root" env DEBIAN_FRONTEND=noninteractive LC_ALL=C PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }
cleanup() {
  umount -q "$root/proc" || true
  rm -rf "$root"
}
trap cleanup EXIT

say() { echo "== $*"; }

say "a fresh Debian 12"
debootstrap --variant=minbase bookworm "$root" "${MIRROR:-http://deb.debian.org/debian}" >"$debs/debootstrap.log"
mount -t proc proc "$root/proc"

# The former version: what people have when this one comes.
former=1.0.0-0
mkdir "$root/former" "$root/now"
for deb in "$debs"/*.deb; do
  case $deb in *-dbgsym_*) continue ;; esac
  cp "$deb" "$root/now"
  dpkg-deb -R "$deb" "$root/unpacked"
  now=$(sed -n 's/^Version: //p' "$root/unpacked/DEBIAN/control")
  sed -i "s/$now/$former/g" "$root/unpacked/DEBIAN/control"
  dpkg-deb -b "$root/unpacked" "$root/former" >/dev/null
  rm -r "$root/unpacked"
done

say "the former version, and a project put there"
inside apt-get -qq update
inside sh -c 'apt-get -qq -y --no-install-recommends install /former/*.deb' >"$debs/install.log" 2>&1 || {
  tail "$debs/install.log"
  exit 1
}
cp -r packaging/debian/tests "$root/tests"
inside sh /tests/transfer
inside dpkg-query -W -f '${Package} ${Version} ${Status}\n' kqft kqft-server libkqft1
before=$(cd "$root/var/lib/kqft" && find . -type f -exec sha256sum {} + | sort)
echo "# by the administrator" >"$root/etc/kqft/bench1.conf"

say "an upgrade"
inside sh -c 'apt-get -qq -y --no-install-recommends install /now/*.deb' >"$debs/upgrade.log" 2>&1 || {
  tail "$debs/upgrade.log"
  exit 1
}
inside dpkg-query -W -f '${Package} ${Version} ${Status}\n' kqft kqft-server libkqft1
[ "$before" = "$(cd "$root/var/lib/kqft" && find . -type f -exec sha256sum {} + | sort)" ]
[ -f "$root/etc/kqft/bench1.conf" ]
inside sh /tests/transfer
inside apt-get -qq -y --no-install-recommends install g++ pkg-config >/dev/null 2>&1
inside sh /tests/build

say "removed, and purged"
packages=$(inside dpkg-query -W -f '${Package}\n' '*kqf*')
# shellcheck disable=SC2086 # a list of words
inside apt-get -qq -y remove $packages >/dev/null 2>&1
[ -d "$root/var/lib/kqft/Run7" ] && [ ! -e "$root/usr/bin/kqft-server" ]
rm "$root/etc/kqft/bench1.conf"
inside sh -c "dpkg -P \$(dpkg-query -W -f '\${db:Status-Abbrev} \${Package}\n' | sed -n 's/^rc *\([^ ]*kqf[^ ]*\)/\1/p')"
left=$(cd "$root" && find . -xdev \( -iname '*kqf*' -o -iname '*kq*trans*' \) \
  ! -path './tmp/*' ! -path './var/lib/kqft*' ! -path './former/*' ! -path './now/*' ! -path './proc/*' ! -path './var/cache/*')
[ -z "$left" ] || { echo "left: $left"; exit 1; }
[ "$before" != "" ] && [ -d "$root/var/lib/kqft/Run7" ]
say "only the projects are left: $(find "$root/var/lib/kqft" -type f | wc -l) files"
