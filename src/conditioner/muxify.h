#pragma once

// Muxify folds a pattern in time: with degree d, every d cycles of the source become one
// row of a new database, on a timeplate that is the d timeplates laid end to end. Each
// scalar signal of the source becomes a multiplexed one, whose child i does what the
// signal did in the i-th cycle of the group, so that a tester of a d-th of the rate drives
// one pin from d channels.
//
// Rows of a group are read by cycle, so loops, calls and repeats of the source are seen
// through. What stands at the destination before is deleted. Buses, user groups, scan
// objects, labels and messages aren't carried over.

#include "conditioner/region.h"

inline constexpr int kMinMuxDegree = 2;
inline constexpr int kMaxMuxDegree = 16;

// 0, or -2 after a push when a database can't be had or closed. Signals or rows that can't
// be folded are told on the stack and in the report, and the result is 0 all the same: the
// queue behind the operation goes on. The destination then holds what was made so far.
int muxify(PVBregion& src, PVBregion& dest, int degree);
