#pragma once

// Cutting a timeplate in two at an offset into its cycle.

#include <memory>

#include "base/time.h"
#include "pvb/timeplate.h"

// A timeplate that is either a database's (borrowed: as long-lived as its section)
// or a piece of one, which lives as long as its last PlatePtr. A piece has id UNDEF.
using PlatePtr = std::shared_ptr<PVBtimePlate>;
PlatePtr borrowPlate(PVBtimePlate* plate);  // null stays null
bool isPiece(const PVBtimePlate& plate);

// The two sides of a cut; one of them is null, and the other the plate itself, when
// the offset is zero or the whole period.
struct PlatePieces {
  PlatePtr first;
  PlatePtr rest;
};
// Cuts at `offset`, which lies within the period. A track whose first event is later
// than zero still begins its first piece with that event, at zero.
PlatePieces splitTimePlate(const PlatePtr& plate, TIME offset);
