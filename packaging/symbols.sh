#!/bin/sh
# Writes what the libraries of built packages export into packaging/debian,
# where the build of packages compares it: when a version is released.
#
#   packaging/symbols.sh [DIRECTORY]    of build-debs.sh: build/debs
set -eu
cd "$(dirname "$0")/.."
debs=${1:-build/debs}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for package in libkqfiletransservice1 libkqft1; do
  dpkg-deb -x "$debs/${package}"_*.deb "$work/$package"
  dpkg-gensymbols "-p$package" -v1.0.0 -P"$work/$package" -O"$work/$package.symbols" >/dev/null
  # Templates of the standard library come and go with the compiler.
  sed -E 's/^ (_Z(T[ISV]|Z|GV)?N?K?(S|9__gnu_cxx))/ (optional=templinst)\1/; /6SState/s/^ _/ (optional)_/' \
    "$work/$package.symbols" >"packaging/debian/$package.symbols"
done
