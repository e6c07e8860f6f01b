#!/usr/bin/env bash
# Configures and builds one preset (release, debug, asan, bench, fuzz); prints
# the build's output only when it fails. Arguments after the preset go to CMake.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift

log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
  tail -n 60 "$log" >&2
  exit 1
fi
