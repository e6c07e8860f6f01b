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
// Cuts at `offset`, which lies within the period (an internal failure otherwise, as is
// no plate). The pieces have the names NAME_0pS and NAME_OFFSET, the plate's slots with
// their signals, directions and selectors, and on each track its events; `rest` begins
// with the state in force at the cut. A track whose first event is later than zero still
// begins its first piece with that event, at zero. Times in pieces are plain values: the
// expressions that they come from hold for the whole cycle only. Property lists aren't
// carried over.
PlatePieces splitTimePlate(const PlatePtr& plate, TIME offset);
