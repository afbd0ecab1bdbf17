#!/usr/bin/env bash
# Compares what the shared library exports with the committed list scripts/exports.txt: the list is the
# decision, so a symbol that appears or disappears is either a mistake or a new line there.
#
#   scripts/check-exports.sh [LIBRARY]            default: the library of the preset dev
#   scripts/check-exports.sh --update [LIBRARY]   writes the list anew
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C
list=scripts/exports.txt

update=false
if [ "${1-}" = --update ]; then
  update=true
  shift
fi
library=${1-build/dev/PluginSDK/libPluginSDK.so}
[ -e "$library" ] || { echo "check-exports.sh: $library is not built" >&2; exit 2; }

# Name and kind in words; the kind tells functions and objects from what the linker may merge (W, V, u).
exported() { nm --dynamic --defined-only --format=posix "$library" | awk '{print $1}' | sort -u; }

if $update; then
  exported >"$list"
  echo "$list: $(wc -l <"$list") symbols"
  exit 0
fi
if ! difference=$(diff "$list" <(exported)); then
  echo "check-exports.sh: $library differs from $list ('>' is exported and not listed):" >&2
  # c++filt leaves the marks of diff alone and makes the names readable.
  grep '^[<>]' <<<"$difference" | c++filt >&2
  echo "check-exports.sh: if that is intended: scripts/check-exports.sh --update" >&2
  exit 1
fi
echo "$(wc -l <"$list") exported symbols, all listed"
