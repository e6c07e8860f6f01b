#pragma once

// The timeplate optimizer's place in a run: its start, when the parameters ask
// for it, and its finish, which every run goes through.

#include <cstdio>

// Starts the optimizer inside another program: its messages carry the name
// "TimePlate Optimize" from here on, its lines go to `report` (not owned) and
// the run time is counted from now. False after a failure.
bool tpOptInit(FILE* report);

// Prints the run time line (on standard output when the optimizer reports there,
// else on standard error), then prints and empties both error stacks.
void tpOptimizerFinish();
