#!/usr/bin/env bash
# clang-tidy, warnings as errors, over every source of the preset clang.
#   scripts/check-tidy.sh [FILE...]     default: all
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/build-env.sh

cmake --preset clang >/dev/null
if [ $# -eq 0 ]; then
  # Not looked at: sources made by the build (such as the plugin out of README.md), and the test support that
  # stands in for the C library's allocator, whose names are reserved.
  mapfile -t files < <(python3 -c '
import json, os
files = {os.path.relpath(entry["file"]) for entry in json.load(open("build/clang/compile_commands.json"))}
print(*sorted(f for f in files if not f.startswith(("build/", "..", "tests/CostSupport."))), sep="\n")')
  set -- "${files[@]}"
fi
# The counts of what was found in system headers are no findings.
printf '%s\n' "$@" | xargs -P "$JOBS" -n 1 clang-tidy -p build/clang --quiet 2> >(grep -v ' warnings\? generated\.$' >&2)
echo "$# files are tidy"
