#!/usr/bin/env bash
# Makes the Debian packages of the library, its development files and its tool: build/packages/*.deb.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/build-env.sh

scripts/install-deps.sh package
cmake --preset package >/dev/null
cmake --build --preset package -j "$JOBS"
# Packages of an earlier version must not be taken for these.
umask 022  # what a package installs may be read by everybody
rm -rf build/packages build/package/*.deb
# The day of the version, so that equal contents make equal packages.
day=$(sed -n 's/^## \[[0-9.]*\] - //p' CHANGELOG.md | head -n 1)
export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(date -u -d "$day" +%s)}
cpack --preset package >/dev/null
mkdir build/packages
mv build/package/*.deb build/packages
ls build/packages/*.deb
