#pragma once

// Clocks that stand on several tracks of one timeplate: a pulse track, whose wave goes
// through three states, and flat ones, by which rows choose not to pulse. Where the flat
// tracks only ever hold the level that the pulse returns to, they go, the pulse's middle
// state becomes data of the rows, and the rows say pulse or no pulse there.

#include <cstdio>
#include <string_view>

#include "timeplate/tp_optimize_internal.h"

// Simplifies the clocks of a database in memory. `states` are those that the rows drive on
// each track. False when a timeplate or row can't be read or there is no selector left.
bool tpSimplifyClockShapes(int database, const TpTrackStates& states, FILE* report);

// Why a signal of a timeplate was left with its tracks, the last time that one was; for
// looking into a run.
extern std::string_view tpClockReason;
