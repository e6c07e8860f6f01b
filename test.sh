#!/usr/bin/env bash
# Installs what is missing, builds, and runs all tests. An argument names the
# preset to test: debug (the default), release or asan.
set -euo pipefail
cd "$(dirname "$0")"
source scripts/packages.sh
preset=${1:-debug}

scripts/install-packages.sh "${test_packages[@]}"
scripts/build.sh "$preset"
ctest --test-dir "build/$preset" --output-on-failure -j "$(nproc)" --progress
