#pragma once

// Which slots of a timeplate a row uses for a signal: the one that the row's selector
// names, or by the data that the row holds.

#include <array>
#include <cstdint>

#include "pvb/row.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"

// Slots in force for a signal in a row, at most one input and one output slot; a slot
// of both directions stands alone.
struct RowTracks {
  int count = 0;
  std::array<std::int32_t, 2> slot = {kNoTrack, kNoTrack};
};

// All slots in force. Without selectors: the input slot when the row has only input
// data for the signal, the output slot when it has only output data, otherwise both.
RowTracks PVBrowFindTracks(int database, const PVBsignal& signal, const PVBtimePlate& plate,
                           const PVBrow& row);
// The slot that drives the signal in this row (the first of those in force), with its
// direction (0 to 3); kNoTrack, with kUndefinedDirection, when there is none.
std::int32_t PVBrowFindTrack(int database, const PVBsignal& signal, const PVBtimePlate& plate,
                             const PVBrow& row, int& direction);
