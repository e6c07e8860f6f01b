#pragma once

// A region, the operand of every operation: a named stretch of time of the main
// pattern of one database. Regions are plain records; the run's RegionTable owns
// them from the reading of the parameters to the end. An operation opens the
// database, walks the rows between the bounds and closes; the next operation of the
// run may use the same region again.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/time.h"
#include "equations/equation_merge.h"
#include "pvb/id.h"
#include "pvb/pattern.h"
#include "timeplate/split.h"

// A scan object of a source and its copy in the destination.
struct ScanIdPair {
  PVBid from;
  PVBid to;
};

struct PVBregion {
  std::string regionName;  // as printed in reports and messages
  // On a region that only carries the name of a signal list as operand; the
  // region then has neither name nor path.
  std::string listName;
  std::string pvbName;          // path of the database directory
  std::int32_t pvbHandle = -1;  // -1: no database is open for the region
  TIME start = TIME_ZERO;
  TIME stop = TIME_MAX;

  // The rest is working state of the operation under way.

  // By signal id of this database: the id of the same signal in the destination, -1
  // where it isn't carried over. Empty until an operation needs it.
  std::vector<PVBid> sigIDMap;
  PVBposition cursor;  // the row that the walk is at
  // Cycles of that row which follow a cut first cycle and are the walk's next row.
  std::uint32_t cyclesPending = 0;
  std::optional<eqSheetTable> sheets;
  std::vector<ScanIdPair> scanIDMap;  // in rising index of `from`
  // State vectors without a name, which can't be found again in the destination.
  std::unordered_map<PVBid, PVBid> vectorIDMap;
};

std::unique_ptr<PVBregion> PVBregionNew();
void PVBregionInit(PVBregion& region, std::string_view name, std::string_view path, TIME start,
                   TIME stop);
// Closes the database where it is still open and forgets the working state; bounds and
// handle stay. 0, or -2 when the close failed. Null is no failure.
int PVBregionClose(PVBregion* region);
// The same record, or the same directory and bounds.
bool PVBregionEqual(const PVBregion& a, const PVBregion& b);
// Rows between the bounds, for progress displays.
std::int64_t PVBregionRowCount(const PVBregion& region);
bool PVBregionHasEquations(const PVBregion& region);

// --- Walking -------------------------------------------------------------------------

// Whether walks take repeats, loops, calls and scan rows as they are. Off, they refuse
// them. Set by StructuresAllowed only.
extern bool structuresAllowed;
// Allows structures to the end of a scope.
class StructuresAllowed {
 public:
  StructuresAllowed() { structuresAllowed = true; }
  ~StructuresAllowed() { structuresAllowed = false; }
  StructuresAllowed(const StructuresAllowed&) = delete;
  StructuresAllowed& operator=(const StructuresAllowed&) = delete;
};

// How PVBregionPatternInqNext steps.
enum RegionStep : int { kStepRow = 0, kStepCycle = 1 };

// A row of a walk. The timeplate is null for a row without one, and a piece (see
// isPiece) where a bound of the region cuts the cycle. `count` is how many cycles of
// the row lie in the region, and what a copy of the row must have: that of the row
// unless the region begins inside it, 1 for a cut cycle and when stepping by cycle. To
// be emptied before the region is closed.
struct RegionRow {
  RowHandle row;
  PlatePtr plate;
  std::uint32_t count = 1;
};

// The row that holds the start: 0, or -2, silent when there is no row there. With
// structures allowed, a region may begin at a loop or call as a whole and inside a
// repeated row: a cut cycle then comes first, the cycles left are the next row.
int PVBregionPatternInqFirst(PVBregion& region, RegionRow& row);
// The next row: 0, -1 at the end of the region, -2 after a push for a row or stop that is
// refused and after a post for a damaged pattern. `row` is emptied first.
int PVBregionPatternInqNext(PVBregion& region, int step, RegionRow& row);

struct SigCategories;
// Whether two regions may be merged: see signal_transfer.h for the categories.
bool PVBregionCompatible(PVBregion& region1, PVBregion& region2, int equationState,
                         const SigCategories& categories);

// --- The regions of a run ------------------------------------------------------------

// The regions of a run by key. A key may be given again: look-ups find the newer
// region. A region that is taken out of look-up stays alive with the table,
// since operations already queued may hold it.
class RegionTable {
 public:
  // The table owns the region; the result lives as long as the table.
  PVBregion& insert(std::string_view key, std::unique_ptr<PVBregion> region);
  // Null when no region has this key.
  PVBregion* find(std::string_view key) const;
  // Takes a region out of look-up.
  void remove(const PVBregion& region);
  std::size_t size() const { return regions_.size(); }

 private:
  std::vector<std::unique_ptr<PVBregion>> regions_;
  // The newest region of each key. A table of its own and not a PBhash: keys like
  // "region000001" have few different byte sums.
  std::unordered_map<std::string, PVBregion*> newest_;
};

// The key of a path: its last component, one trailing "/" and a drive prefix
// left out. "/" and "\" separate components.
std::string regionKey(std::string_view path);

// Fills a new region from texts: null or "begin", null or "end" (any case) stand
// for the ends of time. -2 after a push (a text that is no time, a start behind
// the stop).
int initRegionFromParams(PVBregion& region, std::string_view name, std::string_view path,
                         const std::string* startText, const std::string* stopText);
