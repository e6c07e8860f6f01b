#!/usr/bin/env bash
# clang-tidy over the program's sources, with the flags of the debug build.
set -euo pipefail
cd "$(dirname "$0")/.."
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! git ls-files -z 'src/*.cc' ':!src/*_test.cc' |
    xargs -0 -n 4 -P "$(nproc)" clang-tidy-14 --quiet -p build/debug \
      --extra-arg=-Wno-unknown-warning-option >"$log" 2>/dev/null; then
  cat "$log" >&2
  exit 1
fi
