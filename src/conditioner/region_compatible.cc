// Whether two regions may be merged. Where they have signals or equations in common,
// their rows must agree one by one as far as both reach; otherwise it is enough that
// both can be walked.

#include "conditioner/region.h"
#include "conditioner/signal_transfer.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/row_track.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"

namespace {

// A signal of both regions, as each database has it.
struct CommonSignal {
  const PVBsignal* in1;
  const PVBsignal* in2;
};

// A row of each region.
struct RowPair {
  RegionRow row1;
  RegionRow row2;
};

// False when region 2 lacks one of the signals.
bool findCommon(const PVBregion& region2, const SignalTable& overlap,
                std::vector<CommonSignal>& common) {
  common.reserve(overlap.signals().size());
  for (const PVBsignal* signal : overlap.signals()) {
    const PVBsignal* other = PVBsignalInqByName(region2.pvbHandle, signal->name.value_or(""));
    if (other == nullptr) return false;
    common.push_back({signal, other});
  }
  return true;
}

// The wave that drives a signal in a row; null when there is none.
const PVBtrack* drivingTrack(int database, const PVBsignal& signal, const RegionRow& row) {
  if (row.plate->levels.empty()) return nullptr;
  int direction = kUndefinedDirection;
  const std::int32_t slot = PVBrowFindTrack(database, signal, *row.plate, *row.row, direction);
  const std::vector<PVBtrack>& tracks = row.plate->levels.front().tracks;
  const bool exists = slot >= 0 && static_cast<std::size_t>(slot) < tracks.size();
  return exists ? &tracks[static_cast<std::size_t>(slot)] : nullptr;
}

bool sameWave(const PVBtrack& a, const PVBtrack& b) {
  return a.eventTimes == b.eventTimes && a.stateChars == b.stateChars;
}

// The code in a column; as unset where the rows don't reach.
int codeIn(int database, const PVBrow& row, std::uint16_t column) {
  return column / 2 < PVBrowDataSize(database) ? rowCode(row.states(), column) : 0;
}

bool sameSignal(int database1, int database2, const CommonSignal& signal, const RowPair& rows) {
  const PVBtrack* track1 = drivingTrack(database1, *signal.in1, rows.row1);
  const PVBtrack* track2 = drivingTrack(database2, *signal.in2, rows.row2);
  if (track1 == nullptr || track2 == nullptr || !sameWave(*track1, *track2)) return false;
  // Only a column that both have is compared.
  const auto sameState = [&](std::uint16_t column1, std::uint16_t column2) {
    return column1 == kNoColumn || column2 == kNoColumn ||
           codeIn(database1, *rows.row1.row, column1) == codeIn(database2, *rows.row2.row, column2);
  };
  return sameState(signal.in1->inColumn, signal.in2->inColumn) &&
         sameState(signal.in1->outColumn, signal.in2->outColumn);
}

bool sameRow(int database1, int database2, const std::vector<CommonSignal>& common,
             const RowPair& rows) {
  if (!PBeqTIME(rows.row1.plate->period, rows.row2.plate->period)) return false;
  for (const CommonSignal& signal : common) {
    if (!sameSignal(database1, database2, signal, rows)) return false;
  }
  return true;
}

bool beginsWithLiteral(PVBregion& region, RegionRow& row) {
  return PVBregionPatternInqFirst(region, row) == 0 && row.row->type == ROW_LITERAL;
}

// --- Without comparing ---------------------------------------------------------------

bool isWhole(const PVBregion& region) {
  return PBeqTIME(region.start, TIME_ZERO) && PBeqTIME(region.stop, TIME_MAX);
}

// Whether the tree says of a row that it is one cycle with a timeplate: no walk without
// structures refuses it.
bool isPlain(const PVBregion& region, const PVBnodeEntry& entry) {
  const bool cycle = entry.type == ROW_LITERAL || entry.type == ROW_SCAN;
  return cycle && entry.cycles == 1 && entry.index != kNoTimePlate &&
         PVBtimePlateInqByID(region.pvbHandle, static_cast<PVBid>(entry.index)) != nullptr;
}

// Whether all rows are plain as far as both regions reach. Reads no row; where there is
// anything else the walk by rows finds it again and says what.
bool arePlain(const PVBregion& region1, const PVBregion& region2) {
  PatternWalk walk1(region1.pvbHandle, kMainPattern);
  PatternWalk walk2(region2.pvbHandle, kMainPattern);
  while (walk1.next() && walk2.next()) {
    if (!isPlain(region1, walk1.entry()) || !isPlain(region2, walk2.entry())) return false;
  }
  return !walk1.failed() && !walk2.failed();
}

}  // namespace

bool PVBregionCompatible(PVBregion& region1, PVBregion& region2, int equationState,
                         const SigCategories& categories) {
  const SignalTable& overlap = categories[OVERLAP_SCALARS];
  const bool mustCompare = equationState == kEquationsInBoth || !overlap.empty();
  std::vector<CommonSignal> common;
  if (!findCommon(region2, overlap, common)) return false;

  RowPair rows;
  if (!beginsWithLiteral(region1, rows.row1) || !beginsWithLiteral(region2, rows.row2)) {
    return false;
  }
  if (!mustCompare && isWhole(region1) && isWhole(region2) && arePlain(region1, region2)) {
    return true;
  }
  for (;;) {
    // A row without a timeplate takes no time and has nothing to be merged.
    if (rows.row1.plate == nullptr || rows.row2.plate == nullptr) return false;
    if (mustCompare && !sameRow(region1.pvbHandle, region2.pvbHandle, common, rows)) return false;
    const int next1 = PVBregionPatternInqNext(region1, kStepRow, rows.row1);
    const int next2 = PVBregionPatternInqNext(region2, kStepRow, rows.row2);
    if (next1 == -1 || next2 == -1) return true;
    if (next1 != 0 || next2 != 0) return false;
  }
}
