#!/usr/bin/env bash
# Fuzzes one target, or each of them, for some seconds.
#
#   scripts/fuzz.sh TARGET|all SECONDS
#
# Targets: message command alarm signature masking ring model. New inputs are kept in build/fuzz-corpus/;
# an input that fails is written to build/fuzz-artifacts/ and makes the script fail.
set -euo pipefail
cd "$(dirname "$0")/.."

targets=(message command alarm signature masking ring model)
if [ $# -ne 2 ] || ! [[ " all ${targets[*]} " == *" $1 "* ]] || ! [[ $2 =~ ^[0-9]+$ ]]; then
  sed -n '2,7p' "$0" | sed 's/^# \{0,1\}//' >&2
  exit 2
fi
[ "$1" = all ] || targets=("$1")

scripts/install-deps.sh fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]/#/fuzz_}"

for target in "${targets[@]}"; do
  found=build/fuzz-corpus/$target
  mkdir -p "$found" build/fuzz-artifacts
  log=build/fuzz-artifacts/$target.log
  options=(-max_total_time="$2" -timeout=25 -rss_limit_mb=4096 -print_final_stats=1 -verbosity=1
    -artifact_prefix="build/fuzz-artifacts/$target-")
  [ -f "fuzz/dictionaries/$target.dict" ] && options+=(-dict="fuzz/dictionaries/$target.dict")
  if ! "build/fuzz/fuzz/fuzz_$target" "${options[@]}" "$found" "fuzz/corpus/$target" >"$log" 2>&1; then
    tail -n 40 "$log"
    echo "fuzz.sh: $target failed; its input is in build/fuzz-artifacts/"
    exit 1
  fi
  echo "$target: $(awk '/number_of_executed_units/ {print $2}' "$log") inputs in $2 s," \
    "$(grep -Eo 'cov: [0-9]+' "$log" | tail -n 1)"
done
