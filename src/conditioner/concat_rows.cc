// One row after the other into the destination: its timeplate by content, its states
// by columns, its structure as it is.

#include <fmt/printf.h>

#include <algorithm>
#include <string>

#include "base/errors.h"
#include "conditioner/concat_internal.h"
#include "conditioner/messages.h"
#include "conditioner/scan_transfer.h"
#include "conditioner/timeplate_transfer.h"
#include "pvb/database.h"
#include "pvb/property.h"
#include "storage/page.h"

namespace {

constexpr std::string_view kFunction = "concatRow";

int fail(const RowCopy& copy, const std::string& reason) {
  errno = 0;
  PBerrPush(PBconditionerError, kConcatFailed, kFunction, copy.src.pvbName, reason);
  return -2;
}

int failRow(const RowCopy& copy, std::uint32_t number, const char* reason) {
  return fail(copy, fmt::sprintf("row %d: %s", number, reason));
}

}  // namespace

RowCopy makeRowCopy(PVBregion& dest, PVBregion& src, const SignalTable& table) {
  const PVBpatternData& rows = *PVBget(src.pvbHandle)->patterns;
  RowCopy copy = {dest, src, table, baseTimePlate(dest.pvbHandle),
                  buildScalarPairs(table, src, dest)};
  copy.extended = PVBmodelExtended(dest.pvbHandle, true) || PVBmodelExtended(src.pvbHandle, true);
  copy.plates.assign(kNoTimePlate, UNDEF);
  copy.subroutines.assign(rows.subroutines.size(), -1);
  // A region that begins inside a repeated row has this row twice.
  copy.rowsLeft = std::uint64_t{PageCount(rows.rows)} + 1;
  return copy;
}

// --- Loops ---------------------------------------------------------------------------

namespace {

// Whether a row stands where the loops before it allow it. A body whose end row isn't
// its last row would pull rows into the copy's loop or out of it.
bool followLoops(const RowCopy& copy, PatternCopy& to, const SourceRow& source) {
  std::vector<std::uint32_t>& ends = to.sourceEnds;
  if (source.row.type == ROW_END_LOOP) {
    if (ends.empty() || ends.back() != source.number) return false;
    ends.pop_back();
    return true;
  }
  if (!ends.empty() && source.number >= ends.back()) return false;
  if (source.row.type != ROW_LOOP) return true;
  const std::uint32_t rows = PVBrowToEntry(copy.src.pvbHandle, source.row).rows;
  if (rows < 2) return false;
  ends.push_back(source.number + rows - 1);
  return true;
}

// --- Timeplates ----------------------------------------------------------------------

// Gives a stored plate copies of what is noted on the source's. 0 or -2.
int carryNotes(const RowCopy& copy, const PVBtimePlate& from, PVBtimePlate& to) {
  const int source = copy.src.pvbHandle;
  if (from.firstRow == UNDEF || !PVBpropListExists(source, from.firstRow)) return 0;
  to.firstRow = PVBpropListCarry(copy.dest.pvbHandle, source, from.firstRow);
  return to.firstRow != UNDEF ? 0 : -2;
}

// The id of the destination's plate with this content, stored if need be; UNDEF after
// a push. A plate that is there already keeps its own notes.
PVBid storePlate(RowCopy& copy, const SourceRow& source) {
  std::unique_ptr<PVBtimePlate> plate =
      translateTimePlate(*source.plate, *copy.base, copy.src, copy.table, copy.extended);
  if (plate == nullptr) {
    failRow(copy, source.number, "its timeplate can't be carried over");
    return UNDEF;
  }
  const int database = copy.dest.pvbHandle;
  const int before = PVBtimePlateCount(database);
  PVBtimePlate* stored = matchOrInsertTimePlate(database, std::move(plate));
  if (stored == nullptr) return UNDEF;
  const bool isNew = PVBtimePlateCount(database) > before;
  if (isNew && carryNotes(copy, *source.plate, *stored) != 0) {
    failRow(copy, source.number, "the properties of its timeplate can't be carried over");
    return UNDEF;
  }
  return stored->id;
}

// Sets the timeplate of a new row. Pieces of a cut plate have no id, and each is looked
// up by its content.
int mapPlate(RowCopy& copy, const SourceRow& source, PVBrow& row) {
  if (source.plate == nullptr) {
    if (source.row.timeplate == kNoTimePlate) return 0;
    return failRow(copy, source.number, "it has a timeplate that isn't there");
  }
  const bool piece = isPiece(*source.plate);
  PVBid id = piece ? UNDEF : copy.plates[static_cast<std::size_t>(source.plate->id)];
  if (id == UNDEF) id = storePlate(copy, source);
  if (id == UNDEF) return -2;
  if (!piece) copy.plates[static_cast<std::size_t>(source.plate->id)] = id;
  row.timeplate = static_cast<std::uint16_t>(id);
  return 0;
}

// --- Kinds of rows -------------------------------------------------------------------

int insert(const RowCopy& copy, PatternCopy& to, const SourceRow& source, PVBrow& row) {
  PVBposition position;
  position.row = to.next;
  if (PVBrowInsert(copy.dest.pvbHandle, to.pattern, position, BY_ROW, row) < 0) {
    return failRow(copy, source.number, "it can't be stored in the destination");
  }
  ++to.next;
  return 0;
}

// A row of the destination that has the source row's type and properties.
RowHandle newRow(const RowCopy& copy, const SourceRow& source) {
  RowHandle row(copy.dest.pvbHandle, PVBpatternNew(copy.dest.pvbHandle));
  if (!row) return row;
  row->type = source.row.type;
  row->count = source.row.count;
  row->repeat16 = source.row.repeat16;
  copyRowProperties(*row, source.row, copy.dest.pvbHandle, copy.src.pvbHandle);
  return row;
}

// A row without states has a comment where these would stand.
RowHandle newStructureRow(const RowCopy& copy, const SourceRow& source) {
  RowHandle row = newRow(copy, source);
  if (row) {
    PVBrowSetComment(copy.dest.pvbHandle, *row, PVBrowComment(copy.src.pvbHandle, source.row));
  }
  return row;
}

int copyLoop(const RowCopy& copy, PatternCopy& to, const SourceRow& source) {
  const RowHandle row = newStructureRow(copy, source);
  if (!row) return -2;
  if (insert(copy, to, source, *row) != 0) assertFail(__FILE__, __LINE__);
  return 0;
}

// The destination's subroutine of the same name as that of a call, or -1 after a push.
// One that isn't there is made, and its rows are put off: a subroutine may call itself
// or stand at the end of a long line of calls, and the main pattern's rows stay together.
int subroutineFor(RowCopy& copy, std::uint32_t index) {
  if (index < copy.subroutines.size() && copy.subroutines[index] >= 0) {
    return copy.subroutines[index];
  }
  const std::string name(PVBsubroutineName(copy.src.pvbHandle, static_cast<int>(index)));
  if (index >= copy.subroutines.size() || name.empty()) {
    return fail(copy, fmt::sprintf("subroutine '%d' not found", index)), -1;
  }
  int made = PVBsubroutineByName(copy.dest.pvbHandle, name);
  if (made < 0) {
    made = PVBsubroutineNew(copy.dest.pvbHandle, name);
    if (made < 0) return fail(copy, fmt::sprintf("subroutine '%s' can't be made", name)), -1;
    PVBsubroutine& record =
        PVBget(copy.dest.pvbHandle)->patterns->subroutines[static_cast<std::size_t>(made)];
    record.addressBase = PVBsubroutineInq(copy.src.pvbHandle, static_cast<int>(index))->addressBase;
    copy.made.push_back({static_cast<int>(index), made});
  }
  return copy.subroutines[index] = made;
}

int copyCall(RowCopy& copy, PatternCopy& to, const SourceRow& source) {
  const int subroutine = subroutineFor(copy, source.row.link);
  if (subroutine < 0) return -2;
  const RowHandle row = newStructureRow(copy, source);
  if (!row) return -2;
  row->link = static_cast<std::uint32_t>(subroutine);
  return insert(copy, to, source, *row);
}

int copyCycles(RowCopy& copy, PatternCopy& to, const SourceRow& source) {
  const RowHandle row = newRow(copy, source);
  if (!row || mapPlate(copy, source, *row) != 0) return -2;
  copyRowStates(*row, source.row, copy.pairs);
  if (source.row.type == ROW_SCAN && copyScanRuns(*row, source.row, copy.dest, copy.src) != 0) {
    return failRow(copy, source.number, "its scan runs can't be carried over");
  }
  row->count = source.count;
  return insert(copy, to, source, *row);
}

// The end row came with its loop; what is noted on the source's goes to it.
int copyEnd(const RowCopy& copy, PatternCopy& to, const SourceRow& source) {
  const int database = copy.dest.pvbHandle;
  PVBposition position;
  position.row = to.next++;
  const std::string_view comment = PVBrowComment(copy.src.pvbHandle, source.row);
  if (source.row.tag == UNDEF && comment.empty()) return 0;
  const RowHandle end(database, PVBpatternInqRow(database, to.pattern, position, BY_ROW));
  if (!end || end->type != ROW_END_LOOP) assertFail(__FILE__, __LINE__);
  PVBrowSetComment(database, *end, comment);
  copyRowProperties(*end, source.row, database, copy.src.pvbHandle);
  PVBrowDirty(database, *end);
  return 0;
}

int copyByType(RowCopy& copy, PatternCopy& to, const SourceRow& source) {
  switch (source.row.type) {
    case ROW_SUBR_CALL:
      return copyCall(copy, to, source);
    case ROW_LOOP:
      return copyLoop(copy, to, source);
    case ROW_END_LOOP:
      return copyEnd(copy, to, source);
    case ROW_LITERAL:
    case ROW_SCAN:
      return copyCycles(copy, to, source);
    case ROW_SPACER:
      // Only a subroutine's rows get here without having been refused.
      failRow(copy, source.number, "a spacer in a subroutine is not supported");
      assertFail(__FILE__, __LINE__);
    default:
      return 0;
  }
}

}  // namespace

int concatRow(RowCopy& copy, PatternCopy& to, const SourceRow& source) {
  if (copy.rowsLeft-- == 0) {
    copy.rowsLeft = 0;
    return failRow(copy, source.number, "the pattern holds rows more than once");
  }
  if (!followLoops(copy, to, source)) {
    return failRow(copy, source.number, "a loop and its end row don't match");
  }
  return copyByType(copy, to, source);
}

// --- Subroutines ---------------------------------------------------------------------

namespace {

int copySubroutineRow(RowCopy& copy, PatternCopy& to, const PatternWalk& at) {
  const int database = copy.src.pvbHandle;
  const RowHandle row(database, PVBrowGet(database, at.entry().child));
  if (!row || row->type != at.entry().type) {
    return failRow(copy, at.rowNumber(), "it can't be read");
  }
  const bool timed = row->type == ROW_LITERAL || row->type == ROW_SCAN;
  PVBtimePlate* plate = timed && row->timeplate != kNoTimePlate
                            ? PVBtimePlateInqByID(database, row->timeplate)
                            : nullptr;
  return concatRow(copy, to, {*row, at.rowNumber(), plate, row->count});
}

int copySubroutine(RowCopy& copy, const SubroutinePair& pair) {
  PatternCopy to = {pair.to, 0, {}};
  PatternWalk walk(copy.src.pvbHandle, pair.from);
  while (walk.next()) {
    if (copySubroutineRow(copy, to, walk) != 0) return -2;
  }
  return walk.failed() ? fail(copy, "the order of a subroutine's rows can't be read") : 0;
}

}  // namespace

int concatSubroutines(RowCopy& copy) {
  for (std::size_t i = 0; i < copy.made.size(); ++i) {
    if (copySubroutine(copy, SubroutinePair(copy.made[i])) != 0) return -2;
  }
  return 0;
}
