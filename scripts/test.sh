#!/usr/bin/env bash
# Installs what is missing, builds everything for development and runs all tests. Complete by itself on a
# bare Debian 12; needs the network only when a package is missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/build-env.sh

scripts/install-deps.sh
cmake --preset dev
cmake --build --preset dev -j "$JOBS"
ctest --preset dev -j "$JOBS" "$@"
