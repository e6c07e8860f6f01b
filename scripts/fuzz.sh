#!/usr/bin/env bash
# Runs the fuzz targets: fuzz.sh [TARGET [SECONDS]], all for 300 seconds each
# unless told otherwise. Stops at the first finding, whose input it keeps.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
scripts/install-packages.sh "${fuzz_packages[@]}"
scripts/build.sh fuzz

seconds=${2:-300}
targets=("${1:-}")
[ -n "${targets[0]}" ] || mapfile -t targets < <(basename -s .cc -a fuzz/*_fuzz.cc)
for target in "${targets[@]}"; do
  found=build/fuzz/found/$target
  mkdir -p "$found"
  echo "== $target, $seconds seconds"
  (cd build/fuzz && "fuzz/$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 \
     -max_len=65536 -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="found/$target-" \
     "found/$target" "../../fuzz/corpus/${target%_fuzz}") >"build/fuzz/$target.log" 2>&1 ||
    { tail -n 40 "build/fuzz/$target.log" >&2; exit 1; }
  grep -E 'stat::number_of_executed_units|DONE' "build/fuzz/$target.log"
done
