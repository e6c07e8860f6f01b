#pragma once

// Rows made to say the same through the waves that their timeplates get, and the two
// passes over single timeplates that end in such a rewriting.

#include <span>

#include "timeplate/tp_run.h"

// The law of every rewriting: what is driven at each time of each row stays, for
// tpoOptimizeOnly what is compared as well. A row gets the data that the match of the waves
// or the row itself showed if that is so with them, else other data with which it is so.
// Where there are none, because the data also choose the track, or a state before isn't
// known, the rows forbid the change; who merges asks first:

// The first signal for which a row of either timeplate would do something else, whatever its
// data, once the pair's candidates are in place; null when there is none. What a scan row
// shifts may not change at all.
const TpSignal* tpRowsForbid(const PVBtimePlate& first, const PVBtimePlate* second,
                             bool keepOwners);

// Both ways of rewriting come before the candidates are put into a timeplate.

// For candidates that the rows have shown to hold: rows of first, of second, as the pair's
// flags say. Rows of `second` go over to `first` unless `keepOwners`.
void tpRewriteRows(PVBtimePlate& first, PVBtimePlate* second, bool keepOwners);
// For candidates that follow from the waves alone: side 0 or 1 of the pair. `overwrite`:
// also where a row has data already that say the same.
void tpRewriteStaticRows(const PVBtimePlate& plate, int side, bool overwrite);

// Sees that every track has a shape of the tester, mends those it can, and tells the
// report. The run has begun. False after a failure that ends the operation; tracks left
// invalid are a warning.
bool tpCheckShapes();
// Turns waves of simple shapes into what the shape file asks for. Within a run whose rows
// are prepared.
void tpForcedMappings(std::span<const PVBid> ids);
