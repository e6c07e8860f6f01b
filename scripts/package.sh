#!/usr/bin/env bash
# Builds the Debian package; prints where it is. The same sources give the same bytes.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
scripts/install-packages.sh "${package_packages[@]}"
SOURCE_DATE_EPOCH=$(sed -n 's/^set(PVB_RELEASE_EPOCH \([0-9]*\))$/\1/p' CMakeLists.txt)
export SOURCE_DATE_EPOCH
scripts/build.sh release -DPVB_TESTS=OFF
cpack --config build/release/CPackConfig.cmake -B build/package >build/package.log 2>&1 ||
  { cat build/package.log >&2; exit 1; }
ls build/package/*.deb
