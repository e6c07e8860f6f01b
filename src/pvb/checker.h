#pragma once

// The checker: walks a database and finds what is inconsistent in its signals and
// groups, timeplates, equations and rows. Each of its 62 problems has a number, a class
// (error or warning), a short name and a text with places for items; the table is in
// checker_problems.cc. Findings are kept in the database's message store and saved with
// it; four counters in its status tell how a check went.

#include <cstdint>
#include <cstdio>
#include <functional>

#include "pvb/timeplate.h"

// Runs the checks (`recheck`), else takes what is stored. `fullPVBcheck` adds the check of
// directions and those of states and times of slots. Findings are printed to `stream`;
// null: not at all. At most `limit` findings of a problem are stored. 0 or -2.
int PVBcheck(int database, bool recheck, bool fullPVBcheck, FILE* stream, std::int32_t limit);
// Prints the stored findings, without a stream on standard error. 0 or -2.
int PVBreportCheckMessages(int database, FILE* stream);
// What the counters say, a line each; good until the next call.
const char* checkerSummary(int database);

// Called for each row, signal and track that the walk over the rows visits; kind 0 is the
// state in the signal's primary data column. An empty function removes the observer.
using PVBstateObserver = std::function<void(int database, const PVBtimePlate& plate, int track,
                                            int kind, std::int32_t state)>;
void PVBcheckSetStateObserver(PVBstateObserver observer);
