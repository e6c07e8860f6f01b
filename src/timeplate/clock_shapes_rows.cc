// Rows say in their data what they said by their choice of track.

#include <algorithm>

#include "pvb/pattern.h"
#include "pvb/row_rewrite.h"
#include "pvb/row_track.h"
#include "timeplate/clock_shapes_internal.h"

namespace {

void setLevel(int database, PVBrow& row, std::int32_t column, int level) {
  if (column < 0 || level == 0 || column >= 2 * PVBrowDataSize(database)) return;
  setRowCode(row.states(), static_cast<std::uint32_t>(column), level);
}

int opposite(int level) {
  switch (level) {
    case kLowLevel:
      return kHighLevel;
    case kHighLevel:
      return kLowLevel;
    default:
      return 0;
  }
}

// Whether a row of the extended model, which `track` drives, was on one of the tracks that
// go. A row without a selector is on the track that its data name.
bool leavesTrack(char selector, int track, const TpRowClock& clock) {
  return selector != kNoSelector ? selector != clock.selector : track != clock.track;
}

void showClock(const TpClockPass& pass, const TpRowClock& clock, const PVBtimePlate& plate,
               PVBrow& row) {
  const std::int32_t track =
      PVBrowFindTracksAmong(pass.database, *clock.signal, plate, clock.slots, row).slot[0];
  const bool driven = std::ranges::any_of(clock.slots, [track](const DirectedSlot& slot) {
    return slot.slot == track && slot.direction == INPUT;
  });
  if (!driven) return;
  const char selector = PVBrowSelector(pass.database, *clock.signal, row);
  if (pass.tpVersionMode == 2 && leavesTrack(selector, track, clock)) {
    // It didn't pulse.
    if (selector != kNoSelector) {
      PVBrowSetState(pass.database, row, *clock.signal, clock.selector);
    }
    setLevel(pass.database, row, clock.column, clock.returnLevel);
  } else if (clock.convertToSample) {
    setLevel(pass.database, row, clock.column, opposite(clock.returnLevel));
  }
}

RowChange updateRow(const TpClockPass& pass, PVBrow& row) {
  if (row.timeplate == kNoTimePlate) return RowChange::none;
  const auto clocks = pass.rowClocks.find(row.timeplate);
  if (clocks == pass.rowClocks.end()) return RowChange::none;
  const PVBtimePlate* plate = PVBtimePlateInqByID(pass.database, row.timeplate);
  if (plate == nullptr) return RowChange::none;
  for (const TpRowClock& clock : clocks->second) showClock(pass, clock, *plate, row);
  return RowChange::changed;
}

}  // namespace

bool updateSlotAndState(const TpClockPass& pass, int pattern) {
  return PVBrewriteRows(pass.database, pattern, "updateSlotAndState",
                        [&pass](PVBrow& row) { return updateRow(pass, row); });
}
