#pragma once

// Which slots of a timeplate a row uses for a signal: the one that the row's selector
// names, or by the data that the row holds.
//
// A signal with columns of the multi-bit model has a selector there, a character that
// one of the tracks bears, as its own selector or as that of a row state. A selector of
// 0 or one that no slot of the signal bears is as none.

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "pvb/row.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"

inline constexpr char kNoSelector = 0;

// Slots in force for a signal in a row, at most one input and one output slot, in this
// order; a slot of both directions, or of none, stands alone.
struct RowTracks {
  int count = 0;
  std::array<std::int32_t, 2> slot = {kNoTrack, kNoTrack};
};

// All slots in force. Without selectors: the input slot when the row has only input
// data for the signal, the output slot when it has only output data, otherwise both
// (the slot of both directions where there is one). Of several slots of one direction
// the first counts; where the slot that the data ask for is missing, those that are
// there.
RowTracks PVBrowFindTracks(int database, const PVBsignal& signal, const PVBtimePlate& plate,
                           const PVBrow& row);
// The slot that drives the signal in this row (the first of those in force), with its
// direction (0 to 3); kNoTrack, with kUndefinedDirection, when there is none.
std::int32_t PVBrowFindTrack(int database, const PVBsignal& signal, const PVBtimePlate& plate,
                             const PVBrow& row, int& direction);

// --- What the choice goes by, for who makes it for many rows at once -----------------

// Columns of driven and of expected states; -1 for none.
struct DataColumns {
  std::int32_t in = -1;
  std::int32_t out = -1;
};
DataColumns PVBsignalDataColumns(const PVBsignal& signal);
// The selector that the row holds for the signal, kNoSelector for none.
char PVBrowSelector(int database, const PVBsignal& signal, const PVBrow& row);
RowTracks PVBfindTracks(const PVBsignal& signal, const PVBtimePlate& plate, char selector,
                        bool inData, bool outData);
// A slot with its direction (0 to 3), which takes a while to work out.
struct DirectedSlot {
  std::int32_t slot;
  int direction;
};
// The same for a signal whose slots are known, in rising order; they may hold it by a bus or
// a group.
RowTracks PVBfindTracksAmong(const PVBtimePlate& plate, std::span<const DirectedSlot> slots,
                             char selector, bool inData, bool outData);
RowTracks PVBrowFindTracksAmong(int database, const PVBsignal& signal, const PVBtimePlate& plate,
                                std::span<const DirectedSlot> slots, const PVBrow& row);

// The slots of the signals of a plate by signal, buses and groups on its tracks opened; made
// once for who asks about many signals.
class PlateSlots {
 public:
  PlateSlots() = default;
  PlateSlots(int database, const PVBtimePlate& plate);

  // In rising order; good as long as this is.
  std::span<const DirectedSlot> of(PVBid signal) const;
  std::size_t bytes() const { return signals_.size() * (sizeof(PVBid) + sizeof(DirectedSlot)); }

 private:
  std::vector<PVBid> signals_;       // sorted
  std::vector<DirectedSlot> slots_;  // of each of them
};
