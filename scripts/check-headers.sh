#!/usr/bin/env bash
# Every public header compiles alone and twice, under strict warnings, with both compilers and with the
# newer standard that a plugin may use. Tried in a copy of what is installed, so that a header which leans
# on an internal one fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/build-env.sh

public_headers() { sed -n 's|^ *src/\([A-Za-z_]*\.h\))*$|'"$1"'/src/\1|p' "$1/CMakeLists.txt"; }
mapfile -t headers < <(public_headers PluginSDK; public_headers Util)
[ ${#headers[@]} -gt 0 ] || { echo "check-headers.sh: found no public header" >&2; exit 2; }

tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
mkdir "$tree/include"
cp "${headers[@]}" "$tree/include"
# As a plugin sees them: no private definitions, the include path of the cJSON package.
read -ra flags <<<"-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only -x c++ $(pkg-config --cflags libcjson)"

units=()
for header in "${headers[@]}"; do
  name=$(basename "$header")
  printf '#include "%s"\n#include "%s"\nint main() { return 0; }\n' "$name" "$name" >"$tree/$name.cpp"
  units+=("$tree/$name.cpp")
done
for compiler in g++ clang++; do
  for standard in c++17 c++20; do
    printf '%s\n' "${units[@]}" |
      xargs -P "$JOBS" -n 1 "$compiler" -std="$standard" -I"$tree/include" "${flags[@]}"
  done
done
echo "${#headers[@]} public headers compile alone and twice (g++ and clang++, C++17 and C++20)"
