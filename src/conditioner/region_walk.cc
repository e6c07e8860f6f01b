// Walking the rows of a region. The first row is looked up by time and cut where the
// region begins inside a cycle; the rest is found by stepping the cursor, and cut or
// ended where `stop` lies.

#include <fmt/printf.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "conditioner/region.h"
#include "pvb/database.h"

bool structuresAllowed = false;

namespace {

constexpr std::string_view kFirst = "PVBregionPatternInqFirst";
constexpr std::string_view kNext = "PVBregionPatternInqNext";

// --- Structures ----------------------------------------------------------------------

bool isLoop(std::uint32_t type) { return type == ROW_LOOP || type == ROW_END_LOOP; }
bool hasCycles(std::uint32_t type) { return type == ROW_LITERAL || type == ROW_SCAN; }

// Whether the walk refuses rows like this one. Scan rows of several cycles are refused
// as a first row only.
bool isRefused(const PVBrow& row) {
  switch (row.type) {
    case ROW_LOOP:
    case ROW_END_LOOP:
    case ROW_SUBR_CALL:
      return !structuresAllowed;
    case ROW_LITERAL:
      return !structuresAllowed && row.count >= 2;
    case ROW_SCAN:
      return false;
    default:
      return true;
  }
}

// What the message says of a row that is refused. The blank at the end is part of it.
std::string structureText(const PVBrow& row, const PVBposition& at) {
  switch (row.type) {
    case ROW_LOOP:
    case ROW_END_LOOP:
      if (row.count < 2) {
        return fmt::sprintf("Loop structure found on row %ld, cycle %ld. ", at.row, at.cycle);
      }
      return fmt::sprintf("Loop structure with %d repeats found on row %ld, cycle %ld. ", row.count,
                          at.row, at.cycle);
    case ROW_SUBR_CALL:
      return fmt::sprintf("Subroutine structure found on row %ld. ", at.row);
    case ROW_LITERAL:
    case ROW_SCAN:
      return fmt::sprintf("%d repeats found on row %ld, cycle %ld. ", row.count, at.row, at.cycle);
    case ROW_SPACER:
      return fmt::sprintf("Skip structure found on row %ld, duration %s. ", at.row,
                          PBformatTIME(row.spacerTime));
    default:
      return fmt::sprintf("Unsupported structure found on row %ld. ", at.row);
  }
}

// All refusals empty the row.
int refuse(std::string_view function, RegionRow& row, std::string_view structure) {
  PBerrPush(PBconditionerError, kCompression, function, structure);
  row = RegionRow();
  return -2;
}

int refuseBound(std::string_view function, int message, TIME bound, const PVBregion& region,
                RegionRow& row) {
  PBerrPush(PBconditionerError, message, function, PBformatTIME(bound), region.regionName);
  row = RegionRow();
  return -2;
}

// --- Rows ----------------------------------------------------------------------------

// For rows that the tree has but that can't be had.
int failDamaged(std::string_view function, const PVBregion& region, RegionRow& row) {
  row = RegionRow();
  errno = 0;
  PBpostError(function, 87, PVBfilePath(region.pvbName, "pvb.pd"));
  return -2;
}

bool lookUp(PVBregion& region, int kind, RegionRow& row) {
  row.row = RowHandle(region.pvbHandle,
                      PVBpatternInqRow(region.pvbHandle, kMainPattern, region.cursor, kind));
  if (row.row) row.count = std::max(row.row->count, 1U);
  return static_cast<bool>(row.row);
}

// Only rows with cycles of their own have a timeplate.
PlatePtr plateOf(const PVBregion& region, const PVBrow& row) {
  if (!hasCycles(row.type) || row.timeplate == kNoTimePlate) return nullptr;
  return borrowPlate(PVBtimePlateInqByID(region.pvbHandle, row.timeplate));
}

TIME periodOf(const PlatePtr& plate) { return plate != nullptr ? plate->period : TIME_ZERO; }

// --- The first row -------------------------------------------------------------------

// The entry of the pattern's own tree that holds the start, loops and calls as a whole.
bool findOutermost(const PVBregion& region, PVBposition& position, PVBnodeEntry& entry) {
  const PVBdatabase* slot = PVBgetSection(region.pvbHandle, kSectionPatterns);
  const std::int64_t root = PVBpatternRoot(region.pvbHandle, kMainPattern);
  if (slot == nullptr || root < 0) return false;
  position.time = region.start;
  return PVBtreeFind(slot->patterns->nodes, static_cast<std::uint32_t>(root), position, BY_TIME,
                     entry) == 0;
}

// The region begins in a loop or a call: such a row is taken whole or not at all.
int beginAtStructure(PVBregion& region, const PVBposition& outermost, RegionRow& first) {
  region.cursor = outermost;
  if (!lookUp(region, BY_ROW, first)) return failDamaged(kFirst, region, first);
  if (!isRefused(*first.row) && PBeqTIME(region.cursor.time, region.start)) return 0;
  return refuse(kFirst, first, structureText(*first.row, region.cursor));
}

// Whether the row's scan runs would have to be cut: they shift from its first cycle on.
bool beginsInsideRuns(const PVBregion& region, const PVBposition& rowBegin, const PVBrow& row) {
  return row.type == ROW_SCAN && row.count >= 2 && row.link != kNoLink &&
         !PBeqTIME(rowBegin.time, region.start);
}

// The region begins inside the cycle at the cursor: what is left of it comes first, the
// `cyclesBehind` of the same row are the next row.
int beginInsideCycle(PVBregion& region, std::uint32_t cyclesBehind, RegionRow& first) {
  if (first.row->count < 2 && PVBregionHasEquations(region)) {
    return refuseBound(kFirst, kStartMisaligned, region.start, region, first);
  }
  const TIME offset = PBsubTIME(region.start, region.cursor.time);
  first.plate = splitTimePlate(first.plate, offset).rest;
  first.count = 1;
  region.cyclesPending = cyclesBehind;
  return 0;
}

}  // namespace

int PVBregionPatternInqFirst(PVBregion& region, RegionRow& row) {
  row = RegionRow();
  region.cyclesPending = 0;
  PVBposition outermost;
  PVBnodeEntry entry;
  if (!findOutermost(region, outermost, entry)) return -2;
  if (isLoop(entry.type) || entry.type == ROW_SUBR_CALL) {
    return beginAtStructure(region, outermost, row);
  }

  PVBposition& cursor = region.cursor;
  cursor = PVBposition();
  cursor.time = region.start;
  if (!lookUp(region, BY_TIME, row)) return failDamaged(kFirst, region, row);
  const bool repeated = !structuresAllowed && row.count >= 2;
  if (isRefused(*row.row) || repeated) return refuse(kFirst, row, structureText(*row.row, cursor));
  if (beginsInsideRuns(region, outermost, *row.row)) {
    return refuse(
        kFirst, row,
        fmt::sprintf("Scan structure found on row %ld, cycle %ld. ", cursor.row, cursor.cycle));
  }

  row.plate = plateOf(region, *row.row);
  const std::uint32_t cyclesBefore = cursor.cycle - outermost.cycle;
  const TIME end = PBaddTIME(cursor.time, periodOf(row.plate));
  if (PBcmpTIME(cursor.time, region.start) > 0 || PBcmpTIME(region.start, end) >= 0 ||
      cyclesBefore >= row.count) {
    assertFail(__FILE__, __LINE__);
  }
  row.count -= cyclesBefore;
  if (PBeqTIME(cursor.time, region.start)) return 0;
  return beginInsideCycle(region, row.count - 1, row);
}

// --- The rows behind it --------------------------------------------------------------

namespace {

// Whether the pattern is over at `place`; false when a row there couldn't be read.
bool isAtEnd(const PVBregion& region, int kind, std::uint32_t place) {
  PVBposition sums;
  if (PVBpatternInqSize(region.pvbHandle, kMainPattern, sums) != 0) return false;
  return place >= (kind == BY_CYCLE ? sums.cycle : sums.row);
}

// Finds the next row: 0, -1 behind the last one, -2 for a damaged pattern.
int step(PVBregion& region, int stepKind, RegionRow& next) {
  const std::uint32_t pending = std::exchange(region.cyclesPending, 0);
  const bool restOfRow = stepKind == kStepRow && pending > 0;
  const int kind = stepKind == kStepCycle || restOfRow ? BY_CYCLE : BY_ROW;
  std::uint32_t& place = kind == BY_CYCLE ? region.cursor.cycle : region.cursor.row;
  const std::uint32_t wanted = ++place;
  const bool found = lookUp(region, kind, next);
  if (!found && isAtEnd(region, kind, wanted)) return -1;
  // Sums that put the row at another place would keep the walk going for ever.
  if (!found || place != wanted) return failDamaged(kNext, region, next);
  if (restOfRow) next.count = pending;
  if (stepKind == kStepCycle) next.count = 1;
  return 0;
}

// Whether the region's end isn't looked for in rows like this one.
bool hasNoEndTest(const PVBrow& row) {
  return isLoop(row.type) || (row.type == ROW_SCAN && !structuresAllowed);
}

// How long one pass of the row takes.
TIME lengthOf(const PVBregion& region, const RegionRow& row) {
  if (row.row->type != ROW_SUBR_CALL) return periodOf(row.plate);
  PVBposition sums;
  PVBpatternInqSize(region.pvbHandle, static_cast<int>(row.row->link), sums);
  return sums.time;
}

// Whether `count` times `length` is at most `room`, which isn't negative.
bool fitsInto(TIME room, TIME length, std::uint32_t count) {
  const std::int64_t once = PBtimeToLong(length);
  return once <= 0 || PBtimeToLong(room) / once >= count;
}

// Honours `stop` in the row at the cursor.
int applyStop(PVBregion& region, RegionRow& row) {
  const TIME room = PBsubTIME(region.stop, region.cursor.time);
  const int sign = PBcmpTIME(room, TIME_ZERO);
  if (sign >= 0 && fitsInto(room, lengthOf(region, row), row.count)) return 0;
  if (sign <= 0) {
    row = RegionRow();
    return -1;
  }
  // Unlike a start, a stop inside any other row than these is never honoured.
  const bool single = row.row->type == ROW_LITERAL && row.row->count < 2;
  if (!single || PVBregionHasEquations(region)) {
    return refuseBound(kNext, kStopMisaligned, region.stop, region, row);
  }
  row.plate = splitTimePlate(row.plate, room).first;
  return 0;
}

}  // namespace

int PVBregionPatternInqNext(PVBregion& region, int stepKind, RegionRow& row) {
  row = RegionRow();
  if (stepKind != kStepRow && stepKind != kStepCycle) return -2;
  const int found = step(region, stepKind, row);
  if (found != 0) return found;
  if (isRefused(*row.row)) return refuse(kNext, row, structureText(*row.row, region.cursor));
  row.plate = plateOf(region, *row.row);
  if (PBeqTIME(region.stop, TIME_MAX) || hasNoEndTest(*row.row)) return 0;
  return applyStop(region, row);
}
