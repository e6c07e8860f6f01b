#!/usr/bin/env bash
# Runs every example with the programs of the build directory given as argument.
set -euo pipefail
programs=$(realpath "$1")
cd "$(dirname "$0")"
examples=$PWD

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

export MVKDIR=${MVKDIR:-$PWD}
(cd first-run && "$programs/pvbconditioner" first.par)

# Two ports of a chip become one pattern, which still says of each what its own said.
for text in motion/*.pvbt; do
  "$programs/pvb" build "$text" "$work/$(basename "$text" .pvbt).pvb"
done
cp motion/motion.* "$work"
cd "$work"
"$programs/pvbconditioner" motion.par
for made in both tail serial_again; do "$programs/pvb" verify $made.pvb; done
"$programs/pvb" diff serial.pvb both.pvb --ignore-cycles --signals sck,sel_n,mosi,miso
"$programs/pvb" diff parallel.pvb both.pvb --ignore-cycles --signals "strobe,d[3],d[2],d[1],d[0],parity"
"$programs/pvb" diff serial.pvb tail.pvb --a-from 240ns --a-to 640ns
"$programs/pvb" show both.pvb rows --rows 0..8

# The same merge with a timeplate for each pair of timings, and with those that can be folded
# folded: nothing that is driven or expected differs.
timeplates=$work/timeplates
cp -r "$examples/timeplates" "$timeplates"
cd "$timeplates"
for text in *.pvbt; do "$programs/pvb" build "$text" "$(basename "$text" .pvbt).pvb"; done
"$programs/pvbconditioner" merge.par
"$programs/pvbconditioner" fold.par
for made in both folded; do "$programs/pvb" verify $made.pvb; done
"$programs/pvb" show both.pvb timeplates
"$programs/pvb" show folded.pvb timeplates
"$programs/pvb" diff both.pvb folded.pvb --ignore-cycles

# Two STIL patterns in, one out.
"$examples/first-minute/run.sh" "$programs" "$work/first-minute"
