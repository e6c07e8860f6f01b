#pragma once

// What copy, concatenate, insert and merge share of signals: how the signals of two
// regions compare, and carrying them over into a destination with their columns,
// pins and pin columns. The regions' databases are open.

#include <array>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "conditioner/region.h"
#include "pvb/signal.h"

// Signals of one database by name, in the order of their "ALL" list. They belong to
// the database.
class SignalTable {
 public:
  void insert(PVBsignal& signal);
  // Null when there is none of this name.
  PVBsignal* find(std::string_view name) const;
  const std::vector<PVBsignal*>& signals() const { return signals_; }
  bool empty() const { return signals_.empty(); }

 private:
  std::vector<PVBsignal*> signals_;
  std::unordered_map<std::string_view, PVBsignal*> byName_;
};

enum SigCategory : std::size_t {
  SRC1_ALL_SCALARS = 0,
  SRC1_DISJOINT_SCALARS = 1,  // only in region 1
  SRC2_ALL_SCALARS = 2,
  SRC2_DISJOINT_SCALARS = 3,  // only in region 2
  OVERLAP_SCALARS = 4,        // of region 1, by name in region 2 too
};
struct SigCategories {
  std::array<SignalTable, 5> tables;
  const SignalTable& operator[](SigCategory category) const { return tables[category]; }
};

// The signals of the "ALL" list of the region's database. Empty when there are none, and
// after a push where an id is beyond what a map holds.
SignalTable signalTableOf(const PVBregion& region);
// Makes the region's sigIDMap, all -1, when it has none. Its size is bounded: whatever
// the ids of the database are, the map has at most an entry for each index of an id.
void makeSigIDMap(PVBregion& region);
// 0, or -2 after a push (a multiplexed signal).
int categorizeSignals(PVBregion& region1, PVBregion& region2, SigCategories& categories);
// Pushes a line for each signal that only one region has, until the stack is nearly full.
void listDisjointSignals(const SigCategories& categories, const PVBregion& region1,
                         const PVBregion& region2);

// Makes in the destination each signal of the table, in the order of the source's "ALL"
// list, with columns of its own, its pins and its pin columns; notes the new ids in the
// source's sigIDMap. A destination that can't take a signal ends the run after a push. One
// of the classic model takes on the extended one where a signal has further tracks or
// bits, since these would be lost otherwise.
void copySignals(PVBregion& dest, PVBregion& src, const SignalTable& table);
// The same for signals of both sources: made after source 1, wide enough for both.
void copyOverlapSignals(PVBregion& dest, PVBregion& src1, PVBregion& src2,
                        const SignalTable& table);
// Where the destination has the signals already: notes the ids of the same names in the
// maps of both regions, and makes the destination's as wide as the source's.
void mapSignalsByName(PVBregion& src, PVBregion& dest);

// The P mode of the destination after its two sources. 0, or -2 after a push.
int mergePmode(PVBregion& dest, PVBregion& src1, PVBregion& src2);
// The one flag of a database that its successor takes over is set where either source has
// it; the destination's other flags stay.
void inheritFlag(const PVBregion& dest, const PVBregion& src1, const PVBregion& src2);
