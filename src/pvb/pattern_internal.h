#pragma once

// What the sources of rows, patterns and subroutines share.

#include <cstdint>
#include <map>
#include <vector>

#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/tree_internal.h"

// The section's data; null with status 1 when it isn't loaded.
inline PVBpatternData* patternData(int database) {
  PVBdatabase* slot = PVBgetSection(database, kSectionPatterns);
  return slot != nullptr ? slot->patterns.get() : nullptr;
}
// The root of a pattern; kNoNode for an index out of range and a free slot.
std::uint32_t rootOf(int database, const PVBpatternData& data, int pattern);
std::int32_t addressBaseOf(const PVBpatternData& data, int pattern);
const PVBsubroutine* findSubroutine(const PVBpatternData& data, std::uint32_t index);

// --- Rows (row.cc) -------------------------------------------------------------------

// Gives a row's block back to the file, at once or with its last hold.
void freeRowBlock(PVBpatternData& data, std::uint32_t id);
constexpr bool hasTimePlate(std::uint32_t type) {
  return type == ROW_LITERAL || type == ROW_SCAN || type == ROW_MATCH;
}
constexpr bool hasComment(std::uint32_t type) {
  return type == ROW_LOOP || type == ROW_END_LOOP || type == ROW_SUBR_CALL;
}

// --- Finding (pattern_lookup.cc) -----------------------------------------------------

// A loop on the way to a row: where its entry stands.
struct LoopLevel {
  std::uint32_t root;  // of the tree
  std::uint32_t row;   // in this tree
};

// Goes from the root of a pattern down to a row, through bodies and, for look-ups,
// calls. Reads only nodes: no row block is touched on the way.
class RowSearch {
 public:
  enum class Goal { lookUp, edit };
  RowSearch(int database, PVBpatternData& data, Goal goal);

  // `found`, `end` behind the last row of the pattern, or `bad`.
  Seek run(int pattern, const PVBposition& position, int kind);

  // After `found`: the row's entry, and how far the key lies behind the beginning.
  const PVBnodeEntry& entry() const { return path_.entry(); }
  std::uint64_t offset() const { return key_.value; }
  // Passes of the row itself that lie before the key.
  std::uint32_t pass() const { return pass_; }
  // The beginning of what was found.
  void fill(PVBposition& position) const;

  // After an edit search: the place in the innermost tree and the loops around it,
  // outermost first.
  TreePath& path() { return path_; }
  std::uint32_t root() const { return root_; }
  std::uint32_t rowInTree() const { return path_.before().rows; }
  const std::vector<LoopLevel>& loops() const { return loops_; }

 private:
  bool enterLoop();
  bool enterCall();
  void skipPasses(const TreeSums& once);
  void skipRowPasses();
  void count(const TreeSums& sums);

  int database_;
  PVBpatternData& data_;
  Goal goal_;
  TreePath path_;
  TreeKey key_;
  TreeSums total_;
  std::uint32_t root_ = kNoNode;
  std::int32_t addressBase_ = 0;
  std::uint32_t pass_ = 0;
  std::uint32_t levels_ = 0;
  std::uint32_t calls_ = 0;  // entered so far
  std::vector<LoopLevel>& loops_;
};

// --- Changing (pattern_edit.cc) ------------------------------------------------------

// The plate of a row counts as used from now on.
void markTimePlate(int database, const PVBrow& row);
// Brings the entries of the loops around a changed tree up to date, then what
// stands on the pattern's sums.
int propagateChange(int database, PVBpatternData& data, int pattern,
                    const std::vector<LoopLevel>& loops);
// A body with its end row for a new loop row: its root, or -1.
std::int64_t makeBody(int database, PVBpatternData& data, const PVBrow& loop);
// Frees a row and all that hangs on it, bodies within bodies included.
int freeRowDeep(int database, PVBpatternData& data, int pattern, std::uint32_t id);
// The same for every row of a tree, and its nodes.
int freeTreeDeep(int database, PVBpatternData& data, int pattern, std::uint32_t root);

// --- Calls and sums (pattern_calls.cc, pattern_fix.cc) -------------------------------

// Who calls whom. Counts of call rows, kept up to date by noteCall once they were
// asked for; so callGraph comes before the first call row is inserted or removed.
struct CallGraph {
  // By pattern, the main one first, subroutine i at i + 1: the rows that call each.
  std::vector<std::map<std::uint32_t, std::uint32_t>> calls;
  std::vector<std::uint32_t> callers;  // by subroutine
};
// Where the calls of a pattern stand in CallGraph::calls.
constexpr std::size_t callerIndex(int pattern) { return static_cast<std::size_t>(pattern) + 1; }
CallGraph& callGraph(int database, PVBpatternData& data);
bool hasSubroutines(const PVBpatternData& data);
// A call row came (1) or went (-1). Circles of calls are marked; the sums follow.
void noteCall(int database, PVBpatternData& data, int pattern, std::uint32_t callee, int delta);
// Subroutines, the called before their callers. Sets `recursive` in all; those
// whose mark changed are added to `changed`.
std::vector<std::uint32_t> orderByCalls(int database, PVBpatternData& data, PVBidList& changed);

// Takes over the sums of a pattern's tree and brings its callers up to date, at
// once or at the end of the batch.
int noteChange(int database, PVBpatternData& data, int pattern);
// The same for subroutines whose sums are right already.
int noteChanged(int database, PVBpatternData& data, const PVBidList& subroutines);
// Recomputes every loop and call.
int fixAllCalls(int database, PVBpatternData& data);
// What is still to be fixed, also within a batch.
int fixPending(int database, PVBpatternData& data);

// `time` so many times.
TIME timesCount(TIME time, std::uint32_t count);

// --- Files (subroutine.cc, old_tree.cc) ----------------------------------------------

// Reads "pvb.ps", whose roots must lie below `nodeCount`; one that isn't there is an
// empty table. 0 or -2 with a post.
int readSubroutines(PVBpatternData& data, const std::string& path, std::uint32_t nodeCount);
int writeSubroutines(const PVBpatternData& data, const std::string& path);
// A loop row that was given its new body, and the body that it had.
struct ConvertedLoop {
  std::uint32_t row;
  std::uint32_t oldBody;
};
// PVBpatternConvertTree, with the loop rows it changed added to `loops`.
std::int64_t convertTree(int database, PVBpatternData& data, int oldNodes, std::uint32_t oldRoot,
                         int version, std::vector<ConvertedLoop>& loops);
// Gives loop rows their old bodies back.
void undoConversion(int database, const std::vector<ConvertedLoop>& loops);
// Block size of the nodes of an old version.
std::uint32_t oldNodeSize(int version);
inline constexpr int kFirstCurrentVersion = 8;
