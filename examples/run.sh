#!/usr/bin/env bash
# Runs every example with the pvbconditioner given as argument.
set -euo pipefail
program=$(realpath "$1")
cd "$(dirname "$0")/first-run"
MVKDIR=${MVKDIR:-$PWD} "$program" first.par
