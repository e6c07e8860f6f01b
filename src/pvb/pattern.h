#pragma once

// Patterns: the main pattern and the subroutines of a database, as rows ("pvb.pd",
// see row.h) in counted trees ("pvb.pk", see tree.h), with scan runs ("pvb.rd", see
// scan_run.h) and the table of subroutines ("pvb.ps"):
//
//   SUBROUTINES 1 inUse tableSize
//   addressBase of the main pattern
//   for each in use: index root cycles rows time addresses addressBase, then the
//                    name as counted text
//
// A pattern is named by its subroutine index, -1 for the main pattern. A loop row
// stands for itself, the rows of its body and the body's end row, so rows within
// bodies have numbers of their own; a call doesn't count the rows of what it calls.
//
// Changing a row, a body, a subroutine or a period brings the sums of every outer
// tree and every caller up to date before the next look-up, or at PVBfixEnd when
// the change stands between PVBfixBegin and PVBfixEnd.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pvb/row.h"
#include "pvb/tree.h"

inline constexpr int kMainPattern = -1;

struct PVBsubroutine {
  std::uint32_t root = kNoNode;  // none: the slot is free
  std::optional<std::string> name;
  PVBposition sums;
  std::int32_t addressBase = 0;
  bool visited = false;
  bool recursive = false;
};

// A row that someone holds.
struct HeldRow {
  PVBrow* row;
  std::uint32_t id;
  bool doomed;  // deleted meanwhile: its block is freed with the last hold
};

struct CallGraph;
struct TreeHints;

struct PVBpatternData {
  PVBpatternData();
  ~PVBpatternData();

  int rows = -1;  // handles of the block files "pvb.pd", "pvb.pk", "pvb.rd"
  int nodes = -1;
  int runs = -1;
  std::vector<PVBsubroutine> subroutines;
  std::int32_t addressBase = 0;  // of the main pattern
  int cursor = -1;               // of PVBsubroutineNext
  int pendingFixes = 0;
  PVBidList changedSubroutines;      // to be fixed at PVBfixEnd
  std::unique_ptr<CallGraph> calls;  // who calls whom; null until it is asked for
  std::vector<HeldRow> heldRows;     // an element a hold
  std::unique_ptr<TreeHints> hints;  // where searches in `nodes` stand; never null
  bool changed = false;
};

// --- The section ---------------------------------------------------------------------

int PVBpatternOpen(int database, int rowWidth, int numBuffers);
int PVBpatternSave(int database, const std::string& directory);
// `unsaved` leaves "pvb.ps" as it is; block files are flushed all the same.
int PVBpatternClose(int database, bool unsaved = false);
bool PVBpatternExists(const std::string& directory);
// Rewrites "pvb.pd" for wider rows; the database's row width follows.
int PVBpatternWidenRows(int database, int newWidth);
// Copies the tree of an old node format (versions 0 to 7) from the open block file
// `oldNodes` into the database's; the new root, or -1.
std::int64_t PVBpatternConvertTree(int database, int oldNodes, std::uint32_t oldRoot, int version);

// --- Look-up and change --------------------------------------------------------------

// The root node of a pattern; -1 for an index out of range.
std::int64_t PVBpatternRoot(int database, int pattern);
// The index that was out of range last; for diagnostics.
extern int PVBpatternBadIndex;

// The row that holds the key, reserved, or null. `position` gets its beginning. By
// cycle and time the look-up goes through bodies and calls down to the row in force,
// and a repeat counts as a row of its own; within a call, row number and address are
// those of the call. BY_ID gives the block itself and says nothing of its place.
PVBrow* PVBpatternInqRow(int database, int pattern, PVBposition& position, int kind);
// The changes find their row at any depth of loops, but never enter a call. An id
// doesn't tell a place: BY_ID is refused with status 27.
//
// Inserts before the row that the key finds, or at the end when it finds none: the
// row's id, or -1. The key must be the beginning of a row. The row stays reserved.
// A new loop gets an empty body and its end row; an insertion at the end row's
// number goes into the body. A call must name a subroutine in use.
std::int64_t PVBrowInsert(int database, int pattern, PVBposition& position, int kind, PVBrow& row);
// Deletes the row and all that hangs on it (body, scan runs, property list). An end
// row goes with its loop only.
int PVBpatternDeleteRow(int database, int pattern, PVBposition& position, int kind);
// Takes over what was changed in a row: its entry and all sums. The row must be the
// one found, and can't become a loop or cease to be one.
int PVBrowUpdate(int database, int pattern, PVBposition& position, int kind, PVBrow& row);
// What an entry of a leaf says of a row.
PVBnodeEntry PVBrowToEntry(int database, const PVBrow& row);
// The sums over a whole pattern.
int PVBpatternInqSize(int database, int pattern, PVBposition& sums);
// Moves `rowCount` rows from row number `firstRow` on into the body of a new loop,
// ids kept: the loop row's id, or -1.
std::int64_t PVBloopMake(int database, int pattern, std::uint32_t firstRow, std::uint32_t rowCount,
                         std::uint32_t count);
// Moves the body of the loop row at `loopRow` out in its place, ids kept, and
// deletes the loop.
int PVBloopUnmake(int database, int pattern, std::uint32_t loopRow);

void PVBfixBegin(int database);
int PVBfixEnd(int database);
// Recomputes every entry that calls a changed subroutine.
int PVBsubroutineFix(int database, int subroutine);
// After the period of a timeplate has changed: recomputes all sums.
int PVBpatternFixTimes(int database);

// A batch of row changes: the sums of callers are brought up to date at its end.
class FixBatch {
 public:
  explicit FixBatch(int database) : database_(database) { PVBfixBegin(database); }
  ~FixBatch() { end(); }
  FixBatch(const FixBatch&) = delete;
  FixBatch& operator=(const FixBatch&) = delete;

  int end() {
    const int database = std::exchange(database_, -1);
    return database >= 0 ? PVBfixEnd(database) : 0;
  }

 private:
  int database_;
};

// --- Subroutines ---------------------------------------------------------------------

// A new, empty subroutine: its index, or -1.
int PVBsubroutineNew(int database, std::string_view name);
int PVBsubroutineDelete(int database, int index);
// Steps over the defined ones; -1 at the end.
int PVBsubroutineFirst(int database);
int PVBsubroutineNext(int database);
const PVBsubroutine* PVBsubroutineInq(int database, int index);
std::string_view PVBsubroutineName(int database, int index);
int PVBsubroutineByName(int database, std::string_view name);
int PVBsubroutineByNameNoCase(int database, std::string_view name);

// --- Walking -------------------------------------------------------------------------

// Walks the rows of a pattern in order, with their row numbers and nesting: a loop
// row, its body, the end row. Calls aren't followed. The pattern must not change
// meanwhile but through `update`; PVBrowGet(entry.child) gives the row itself.
class PatternWalk {
 public:
  PatternWalk(int database, int pattern);

  bool next();
  bool failed() const { return failed_; }
  const PVBnodeEntry& entry() const { return entry_; }
  std::uint32_t rowNumber() const { return rowNumber_; }
  // Loops around the row.
  int depth() const { return static_cast<int>(levels_.size()) - 1 - (entered_ ? 1 : 0); }
  // Takes over what was changed in the row that the walk is at, as PVBrowUpdate does, but
  // without a search as long as the row's length in time, rows and cycles stays. 0 or -2.
  int update(PVBrow& row);

 private:
  void enter(std::uint32_t root);

  int database_;
  int pattern_;
  int nodes_ = -1;
  std::uint32_t nodesLeft_ = 0;  // of the file, to be met by all levels together
  std::vector<TreeCursor> levels_;
  PVBnodeEntry entry_{};
  std::uint32_t rowNumber_ = 0;
  bool started_ = false;
  bool entered_ = false;  // entry_ is a loop whose body comes next
  bool failed_ = false;
};
