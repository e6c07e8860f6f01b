#pragma once

// The timeplate optimizer's place in a run: its start, when the parameters ask for it,
// the passes that a merge asks for, and its finish, which every run goes through.

#include <cstdio>

#include "base/param.h"

// Starts the optimizer inside another program: its messages carry the name
// "TimePlate Optimize" from here on, its lines go to `report` (not owned) and
// the run time is counted from now. Reads its parameters from the program's arguments
// (without the program's name) and the shape file. With `Optimize` = 2 and a
// `DestinationPVB` it also does its whole work, on the database that `WaveSource` names,
// which is then as it was after a failure. False after a failure.
bool tpOptInit(FILE* report, ParamArguments arguments);

// The database that the passes work on, open for writing; -1 for none.
void tpOptimizerSetDatabase(int database);
int tpOptimizerDatabase();
// Sees that the run over that database is under way, which begins when its signals are
// there. 0 or -2. tpOptimizeGenerated does this; who checks shapes before it does it first.
int tpOptimizerBegin();
// One pass over its timeplates and rows; the last one with `finish`. The number of
// timeplates left, or -2.
int tpOptimizeGenerated(bool finish);

// The passes so far; tp_successor.h tells what they made of timeplates.
unsigned tpOptimizerPasses();

// Gives up what the passes hold, unsaved; for the end of a run that failed.
void tpOptimizerRelease();

// Prints the run time line (on standard output when the optimizer reports there,
// else on standard error), then prints and empties both error stacks.
void tpOptimizerFinish();
