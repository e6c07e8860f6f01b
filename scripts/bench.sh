#!/usr/bin/env bash
# Builds and runs the benchmarks: bench.sh [NAME], all unless one is named.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
scripts/install-packages.sh "${bench_packages[@]}"
scripts/build.sh bench
names=("${1:-}")
[ -n "${names[0]}" ] || mapfile -t names < <(basename -s .cc -a bench/*_bench.cc)
for name in "${names[@]}"; do
  "build/bench/bench/$name" --benchmark_color=false
done
