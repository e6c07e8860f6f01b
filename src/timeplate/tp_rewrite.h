#pragma once

// Rows made to say the same through the waves that their timeplates get, and the two
// passes over single timeplates that end in such a rewriting.

#include <span>

#include "timeplate/tp_run.h"

// For candidates that the rows have shown to hold: rows of first, of second, as the pair's
// flags say. Called before the candidates are put into a timeplate. Rows of `second` go
// over to `first` unless `keepOwners`.
void tpRewriteRows(PVBtimePlate& first, PVBtimePlate* second, bool keepOwners);
// For candidates that follow from the waves alone: side 0 or 1 of the pair. `overwrite`:
// also where a row has data already.
void tpRewriteStaticRows(const PVBtimePlate& plate, int side, bool overwrite);

// Sees that every track has a shape of the tester, mends those it can, and tells the
// report. False after a failure that ends the operation; tracks left invalid are a
// warning.
bool tpCheckShapes();
// Turns waves of simple shapes into what the shape file asks for.
void tpForcedMappings(std::span<const PVBid> ids);
