#!/bin/sh
# Builds the Debian packages from what is committed, and lets lintian look at
# them.
#
#   packaging/build-debs.sh [DIRECTORY]    build/debs
#
# Installs what is missing for that. Exit status 0 when they are as they should be.
set -eu
cd "$(dirname "$0")/.."
. tools/require-packages.sh
require_packages build-essential debhelper dh-apparmor dh-python python3-all cmake ninja-build \
  pkg-config libcli11-dev libxxhash-dev libcpp-httplib-dev nlohmann-json3-dev git lintian
to=${1:-build/debs}
rm -rf "$to"
mkdir -p "$to/source"
git archive HEAD | tar -x -C "$to/source"
mv "$to/source/packaging/debian" "$to/source/debian"
(cd "$to/source" && dpkg-buildpackage -us -uc -b >../build.log 2>&1) || {
  grep -v '^\[[0-9]*/' "$to/build.log" | tail -30 | cut -c1-300
  exit 1
}
rm -r "$to/source"
lintian --fail-on error,warning --suppress-tags bad-distribution-in-changes-file "$to"/*.changes
ls "$to"/*.deb
