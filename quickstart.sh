#!/usr/bin/env bash
# The first minute: installs what is missing, builds, and takes two STIL patterns through
# both programs.
set -euo pipefail
cd "$(dirname "$0")"
source scripts/packages.sh

echo "Building (some minutes the first time) ..."
scripts/install-packages.sh "${build_packages[@]}"
scripts/build.sh release -DPVB_TESTS=OFF
examples/first-minute/run.sh build/release build/first-minute

cat <<'END'

Done. All of it is in build/first-minute; from here on:

  less examples/first-minute/chip.ops               what was asked for
  less build/first-minute/chip.rpt                  the report on it
  build/release/pvb show build/first-minute/chip.pvb
  build/release/pvb show build/first-minute/chip.pvb rows --rows 0..8
  build/release/pvb import YOUR.stil -o YOUR.pvb    a pattern of your own
  build/release/pvb help                            all that pvb does
  less README.md                                    and where the documents are
END
