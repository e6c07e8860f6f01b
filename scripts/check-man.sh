#!/usr/bin/env bash
# The manual pages of the build directory given as argument: all are there, and nothing in
# them makes groff warn.
set -euo pipefail
pages=("${1:?}"/docs/man/{pvb,pvbconditioner}.1 "$1"/docs/man/pvb-{database,operations}.5)
for page in "${pages[@]}"; do
  [ -s "$page" ] || { echo "$page is missing" >&2; exit 1; }
  warnings=$(groff -t -man -ww -Tutf8 -z "$page" 2>&1)
  [ -z "$warnings" ] || { echo "$warnings" >&2; exit 1; }
done
