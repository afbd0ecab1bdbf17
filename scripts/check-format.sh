#!/usr/bin/env bash
# Whether every source stands as clang-format writes it; --fix rewrites those that do not.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mode=(--dry-run --Werror)
[ "${1-}" = --fix ] && mode=(-i)
# A clone may belong to another user than the one who runs CI.
mapfile -t files < <(git -c safe.directory='*' ls-files '*.cpp' '*.h')
clang-format "${mode[@]}" "${files[@]}"
echo "${#files[@]} files are formatted"
