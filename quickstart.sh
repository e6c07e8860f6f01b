#!/usr/bin/env bash
# Installs what is missing, builds, and runs both programs on the examples.
set -euo pipefail
cd "$(dirname "$0")"
source scripts/packages.sh

scripts/install-packages.sh "${build_packages[@]}"
scripts/build.sh release -DPVB_TESTS=OFF
examples/run.sh build/release
