#!/usr/bin/env bash
# Compares the interface of the built library (symbols, and the types that its public headers pass) with the
# baseline in abi/. An incompatible change is allowed only together with a new major version.
#
#   scripts/check-abi.sh [LIBRARY]            default: the library of the preset dev (it needs debug info)
#   scripts/check-abi.sh --update [LIBRARY]   writes the baseline anew, for a release or an addition
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
baseline=abi/libPluginSDK.abi

update=false
if [ "${1-}" = --update ]; then
  update=true
  shift
fi
library=$(realpath "${1-build/dev/PluginSDK/libPluginSDK.so}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Types of the standard library count by name and size. Those of the inside are left out. The label is what
# makes libabigail keep a member of such a type and hide only what is in the type.
label='Artificial private types suppression speci'
label+=fication  # the whole as libabigail spells it
cat >"$work/opaque.supp" <<END
[suppress_type]
  label = $label
  name_regexp = ^(std|__gnu_cxx|__cxxabiv1|pluginsdk)::
  drop = yes
END
# The same bytes wherever it is written: no paths but those inside the project, no source positions.
current=$work/libPluginSDK.abi
abidw --suppressions "$work/opaque.supp" --exported-interfaces-only --no-corpus-path --no-comp-dir-path \
  --no-show-locs --no-parameter-names --no-elf-needed --no-write-default-sizes --type-id-style hash \
  --out-file "$current" "$library"
sed -i "s| path='$PWD/| path='|" "$current"

if $update; then
  mkdir -p abi
  cp "$current" "$baseline"
  echo "$baseline: $(wc -c <"$baseline") bytes"
  exit 0
fi
[ -e "$baseline" ] || { echo "check-abi.sh: $baseline is missing; make it with: scripts/check-abi.sh --update" >&2; exit 1; }

major() { sed -n "s/.*soname='libPluginSDK\.so\.\([0-9]*\)'.*/\1/p" "$1" | head -n 1; }
# Bit 1 and 2: the tool failed. 4: something changed. 8: changed so that existing plugins break.
status=0
abidiff --no-added-syms "$baseline" "$current" >"$work/report" || status=$?
if [ $((status & 3)) -ne 0 ]; then
  cat "$work/report" >&2
  echo "check-abi.sh: abidiff failed" >&2
  exit 1
fi
if [ $((status & 12)) -ne 0 ] && [ "$(major "$baseline")" = "$(major "$current")" ]; then
  cat "$work/report" >&2
  echo "check-abi.sh: the interface changed under the same major version. Keep it compatible, or raise the" >&2
  echo "check-abi.sh: major version; then, or when it is only additions: scripts/check-abi.sh --update" >&2
  exit 1
fi
echo "the interface is compatible with $baseline (major version $(major "$current"))"
