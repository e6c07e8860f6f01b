#pragma once

// The pair loop of the optimizer: takes two timeplates of one period, tries to prove
// signal by signal that one can serve the rows of both, and folds them into one.
//
// Kept from pass to pass of a run: the working order with how many each timeplate has
// absorbed, the number left by the last full pass, protected timeplates, fail counts.

#include <span>
#include <vector>

#include "timeplate/tp_run.h"

// Merges what can be of `ids`; returns those that are left. `finish`: the last pass of the
// run, after which tables are written, forced mappings done, and the stores closed. -2 in
// `failed` when the rows couldn't be read or written back.
std::vector<PVBid> tpMergeAll(std::span<const PVBid> ids, bool finish, bool& failed);
// Timeplates of which no two are folded, and none gets another wave when it comes first;
// until the last pass is over.
void tpProtect(std::span<const PVBid> ids);
bool tpIsProtected(PVBid id);
// Forgets all that is kept.
void tpMergeReset();

// --- Pieces, for their tests ---------------------------------------------------------

// Sorts a working order by merges, most first, in place. Not stable: the sequence of gaps
// decides about equal counts, and by it which timeplates merge.
struct OrderEntry {
  PVBid id;
  int mergeCount;
  bool isProtected;
};
void tpSortOrder(std::vector<OrderEntry>& order);
