#!/usr/bin/env bash
# Builds Release and prints one table: every operation beside its peer or floor, measured in turn in one run.
#
#   scripts/bench.sh                  the table
#   scripts/bench.sh --filter=TEXT    only operations whose name contains TEXT
#   scripts/bench.sh --write          the table, and docs/performance.md with its figures and plots renewed
#   scripts/bench.sh --smoke          runs everything for a moment, under Google Benchmark too; for CI
# No timing fails it, only a program that does. Log files are written to the build directory's disk.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/build-env.sh

programs=(signing formats messages logging standard_output masking start_up)
options=(--rounds=21 --batch-ms=40)
smoke=false
write=false
for argument in "$@"; do
  case "$argument" in
    --smoke) smoke=true; options=(--rounds=1 --batch-ms=1) ;;
    --write) write=true ;;
    --filter=*) options+=("$argument") ;;
    *) echo "bench.sh: unknown option '$argument' (known: --smoke, --write, --filter=TEXT)" >&2; exit 2 ;;
  esac
done

scripts/install-deps.sh bench
cmake --preset bench >/dev/null
cmake --build --preset bench -j "$JOBS" --target benchmarks

cd build/bench/benchmarks
for program in "${programs[@]}"; do
  "./bench_$program" --side-by-side "${options[@]}"
  if $smoke; then "./bench_$program" --benchmark_min_time=0.001 >&2; fi
done >results.jsonl
cd ../../..

scripts/bench-report.py table build/bench/benchmarks/results.jsonl
if $write; then
  scripts/bench-report.py document build/bench/benchmarks/results.jsonl docs/performance.md
fi
