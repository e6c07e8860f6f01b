#!/usr/bin/env bash
# Runs every example with the programs of the build directory given as argument.
set -euo pipefail
programs=$(realpath "$1")
cd "$(dirname "$0")"

# A database from its text, seen three ways; dumping it gives the same text again.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for text in database/*.pvbt; do
  name=$(basename "$text" .pvbt)
  "$programs/pvb" build "$text" "$work/$name.pvb"
  "$programs/pvb" dump "$work/$name.pvb" -o "$work/$name.pvbt"
  "$programs/pvb" build "$work/$name.pvbt" "$work/again.pvb"
  "$programs/pvb" dump "$work/again.pvb" | diff "$work/$name.pvbt" -
  "$programs/pvb" verify "$work/$name.pvb"
  rm -r "$work/again.pvb"
done
"$programs/pvb" show "$work/counter.pvb"
"$programs/pvb" show "$work/counter.pvb" rows

cd first-run
MVKDIR=${MVKDIR:-$PWD} "$programs/pvbconditioner" first.par
