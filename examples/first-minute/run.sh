#!/usr/bin/env bash
# The first minute: two STIL patterns of one chip are read, conditioned to one, checked
# and written out again.
#
#   examples/first-minute/run.sh PROGRAMS WORK
#
# PROGRAMS is the folder with both programs, WORK a new one for what is made.
set -euo pipefail
programs=$(realpath "$1")
mkdir -p "$2"
work=$(realpath "$2")
cd "$(dirname "$0")"
cp memory.stil bus.stil chip.ops chip.par "$work"
cd "$work"
export PATH="$programs:$PATH" MVKDIR="${MVKDIR:-$work}"

say() { printf '\n# %s\n' "$*"; }
run() {
  printf '$ %s\n' "$*"
  "$@"
}

say "Read a memory self test and two runs over the register bus."
run pvb import memory.stil -o memory.pvb --flat --force
run pvb import bus.stil -o readback.pvb --exec readback --flat --force
run pvb import bus.stil -o walking.pvb --exec walking --flat --force

say "Put the bus runs behind each other and the memory test beside them (chip.ops)."
rm -rf bus.pvb chip.pvb
echo '$ pvbconditioner chip.par'
pvbconditioner chip.par >chip.log 2>&1 || { cat chip.log; exit 1; }
grep -E '^(Concatenate|Merge) ' chip.rpt

say "Is the result sound, and does it still say what each of its sources said?"
run pvb verify chip.pvb
run pvb diff memory.pvb chip.pvb --common
run pvb diff readback.pvb bus.pvb --b-to 30.3us
run pvb diff walking.pvb bus.pvb --b-from 30.3us
run pvb diff bus.pvb chip.pvb --common

say "Write it for other tools, read it back, and compare."
run pvb export chip.pvb -o chip.stil --force
run pvb export chip.pvb -o chip.vcd --force
run pvb import chip.stil -o again.pvb --force
run pvb diff chip.pvb again.pvb
