#pragma once

// Rows for the pair loop: loading the stores, and what the row before leaves behind.

#include <span>

#include "timeplate/tp_run.h"
#include "timeplate/wave.h"

// Opens the stores and fills them, or brings the lists up to date with rows and
// timeplates that came later. `ids` are the timeplates; empty tracks are taken out of
// those not seen before. 0 or -2.
int tpPrepareRows(std::span<const PVBid> ids, bool withProgress);

// Takes empty tracks out of timeplates whose maps are right, but those that rows choose.
void tpRemoveEmptyTracks(std::span<const PVBid> ids, bool withProgress);

// The letter that a signal's wave left at the end of the row before `row`, 'N' when that
// isn't known; in P modes up to 2 for row 0 only. Reads the P state store, not the rows.
char loadPrevious(std::int32_t row, const TpSignal& signal);
// The letter that P stands for, by the run's P mode: `value` is the letter of the row's
// data, `pstate` the stored state going into the row, `previous` that of loadPrevious.
char tpPState(char value, char pstate, char previous);
