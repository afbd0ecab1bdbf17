#!/usr/bin/env bash
# Lines and branches of the library that the tests run, per file and in total.
#   scripts/coverage.sh [--html DIRECTORY]
# The branch figure leaves out the branches that no source line asks for: those by which the compiler lets
# exceptions out of every call, and those on lines without code, such as closing braces.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/build-env.sh

scripts/install-deps.sh check
cmake --preset coverage >/dev/null
cmake --build --preset coverage -j "$JOBS"
# Counters add up over runs; a figure is about this one.
find build/coverage -name '*.gcda' -delete
ctest --preset coverage -j "$JOBS"

report=(gcovr --root . --object-directory build/coverage --filter PluginSDK/src/ --filter Util/src/
  --exclude-throw-branches --exclude-unreachable-branches build/coverage)
if [ "${1-}" = --html ]; then
  mkdir -p "$2"
  "${report[@]}" --html-details "$2/index.html"
fi
"${report[@]}"
"${report[@]}" --branches
# A file, not /dev/null: run by root, gcovr would replace the device by a file.
rest=$(mktemp)
trap 'rm -f "$rest"' EXIT
"${report[@]}" --print-summary --output "$rest" | grep -E '^(lines|branches):'
