// Sums that follow from other trees: those of loops, of calls and of rows whose
// plate has another period now.

#include <algorithm>
#include <utility>

#include "pvb/pattern_internal.h"
#include "pvb/timeplate.h"

namespace {

enum class Refresh { calls, all };

// Recomputes the entries of a pattern's tree and of the bodies in it, from the
// leaves up. One stack holds the way through trees and bodies, and no node is held
// from step to step.
class TreeRefresh {
 public:
  TreeRefresh(int database, PVBpatternData& data, Refresh what)
      : database_(database), data_(data), what_(what), nodesLeft_(countNodes(data.nodes)) {}

  int run(std::uint32_t root) {
    enter(root);
    while (!path_.empty()) step();
    return result_;
  }

 private:
  struct Step {
    std::uint32_t node;
    std::uint32_t index;
  };

  bool enter(std::uint32_t node) {
    // In a sound file every node is reached once.
    const bool possible = nodesLeft_ > 0 && node != kNoNode;
    if (possible) {
      --nodesLeft_;
      path_.push_back({node, 0});
    } else {
      result_ = -2;
    }
    return possible;
  }
  void step() {
    NodeHandle node = getNode(data_.nodes, path_.back().node);
    if (!node) {
      result_ = -2;
      return leave(nullptr);
    }
    if (node->leaf == 1) refreshRows(node);
    const std::uint32_t index = path_.back().index;
    if (index == node->count) {
      const TreeSums sums = sumsOf(*node);
      node.release();
      return leave(&sums);
    }
    const PVBnodeEntry& entry = node->entries[index];
    const std::uint32_t below = node->leaf == 1 ? entry.index : entry.child;
    node.release();
    if (!enter(below)) ++path_.back().index;
  }
  // Up to the next loop, or the end.
  void refreshRows(NodeHandle& node) {
    std::uint32_t& index = path_.back().index;
    for (; index < node->count && node->entries[index].type != ROW_LOOP; ++index) {
      PVBnodeEntry entry = node->entries[index];
      refreshRow(entry);
      put(node, index, entry);
    }
  }
  void refreshRow(PVBnodeEntry& entry) {
    if (entry.type == ROW_SUBR_CALL) {
      fetchEntry(entry);
    } else if (what_ == Refresh::all && hasTimePlate(entry.type)) {
      const auto plate = static_cast<PVBid>(entry.index);
      const bool none = entry.index == kNoTimePlate;
      const TIME period = none ? TIME_ZERO : PVBtimePlatePeriod(database_, plate);
      entry.time = timesCount(period, entry.cycles);
    }
  }
  void fetchEntry(PVBnodeEntry& entry) {
    const RowHandle row(database_, PVBrowGet(database_, entry.child));
    if (row && row->type == entry.type) {
      entry = PVBrowToEntry(database_, *row);
    } else {
      result_ = -2;
    }
  }
  // From a node that is done to the entry that stands for it.
  void leave(const TreeSums* sums) {
    path_.pop_back();
    if (path_.empty()) return;
    const std::uint32_t index = path_.back().index++;
    NodeHandle node = getNode(data_.nodes, path_.back().node);
    if (!node || index >= node->count || sums == nullptr) return;
    PVBnodeEntry entry = node->entries[index];
    if (node->leaf == 0) {
      setSums(entry, *sums);
    } else {
      fetchEntry(entry);
    }
    put(node, index, entry);
  }
  static void put(NodeHandle& node, std::uint32_t index, const PVBnodeEntry& entry) {
    if (sumsOf(node->entries[index]) == sumsOf(entry)) return;
    node->entries[index] = entry;
    node.markDirty();
  }

  int database_;
  PVBpatternData& data_;
  Refresh what_;
  std::uint32_t nodesLeft_;
  std::vector<Step> path_;
  int result_ = 0;
};

bool sameSums(const PVBposition& a, const PVBposition& b) {
  return a.time == b.time && a.row == b.row && a.cycle == b.cycle && a.address == b.address;
}

// Whether the stored sums had to be changed.
bool takeSums(const PVBpatternData& data, PVBsubroutine& subroutine) {
  PVBposition sums;
  if (PVBtreeSums(data.nodes, subroutine.root, sums) != 0) return false;
  const bool changed = !sameSums(sums, subroutine.sums);
  subroutine.sums = sums;
  return changed;
}

bool callsVisited(const PVBpatternData& data, int pattern) {
  const auto& calls = data.calls->calls[callerIndex(pattern)];
  return std::any_of(calls.begin(), calls.end(),
                     [&](const auto& call) { return data.subroutines[call.first].visited; });
}

// Marks as visited what has changed, and goes from the called to the callers.
int refreshCallers(int database, PVBpatternData& data, const std::vector<std::uint32_t>& order) {
  int result = 0;
  for (const std::uint32_t index : order) {
    PVBsubroutine& subroutine = data.subroutines[index];
    if (subroutine.root == kNoNode || !callsVisited(data, static_cast<int>(index))) continue;
    if (TreeRefresh(database, data, Refresh::calls).run(subroutine.root) != 0) result = -2;
    if (takeSums(data, subroutine)) subroutine.visited = true;
  }
  if (!callsVisited(data, kMainPattern)) return result;
  const std::uint32_t root = rootOf(database, data, kMainPattern);
  return TreeRefresh(database, data, Refresh::calls).run(root) == 0 ? result : -2;
}

int fixCallers(int database, PVBpatternData& data, PVBidList changed) {
  const CallGraph& graph = callGraph(database, data);
  const auto hasCallers = [&](PVBid index) {
    return graph.callers[static_cast<std::size_t>(index)] > 0;
  };
  if (std::none_of(changed.begin(), changed.end(), hasCallers)) return 0;
  data.changed = true;
  const std::vector<std::uint32_t> order = orderByCalls(database, data, changed);
  for (PVBsubroutine& subroutine : data.subroutines) subroutine.visited = false;
  for (const PVBid index : changed) {
    data.subroutines[static_cast<std::size_t>(index)].visited = true;
  }
  return refreshCallers(database, data, order);
}

}  // namespace

int noteChange(int database, PVBpatternData& data, int pattern) {
  if (pattern == kMainPattern) return 0;
  const auto index = static_cast<std::size_t>(pattern);
  if (!takeSums(data, data.subroutines[index])) return 0;
  if (callGraph(database, data).callers[index] == 0) return 0;
  return noteChanged(database, data, {pattern});
}

int noteChanged(int database, PVBpatternData& data, const PVBidList& subroutines) {
  if (subroutines.empty()) return 0;
  if (data.pendingFixes == 0) return fixCallers(database, data, subroutines);
  for (const PVBid index : subroutines) {
    if (!PVBidListContains(data.changedSubroutines, index)) {
      data.changedSubroutines.push_back(index);
    }
  }
  return 0;
}

int fixPending(int database, PVBpatternData& data) {
  if (data.changedSubroutines.empty()) return 0;
  return fixCallers(database, data, std::exchange(data.changedSubroutines, {}));
}

void PVBfixBegin(int database) {
  PVBpatternData* data = patternData(database);
  if (data != nullptr) ++data->pendingFixes;
}

int PVBfixEnd(int database) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr || data->pendingFixes == 0) return -2;
  return --data->pendingFixes == 0 ? fixPending(database, *data) : 0;
}

int PVBsubroutineFix(int database, int subroutine) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr || subroutine < 0) return -2;
  if (findSubroutine(*data, static_cast<std::uint32_t>(subroutine)) == nullptr) return -2;
  takeSums(*data, data->subroutines[static_cast<std::size_t>(subroutine)]);
  return fixCallers(database, *data, {subroutine});
}

namespace {

int refreshAll(int database, PVBpatternData& data, Refresh what) {
  data.changed = true;
  data.changedSubroutines.clear();
  int result = 0;
  PVBidList marked;
  std::vector<std::uint32_t> order;
  if (hasSubroutines(data)) order = orderByCalls(database, data, marked);
  for (const std::uint32_t index : order) {
    PVBsubroutine& subroutine = data.subroutines[index];
    if (subroutine.root == kNoNode) continue;
    if (TreeRefresh(database, data, what).run(subroutine.root) != 0) result = -2;
    takeSums(data, subroutine);
  }
  const std::uint32_t root = rootOf(database, data, kMainPattern);
  return TreeRefresh(database, data, what).run(root) == 0 ? result : -2;
}

}  // namespace

int fixAllCalls(int database, PVBpatternData& data) {
  return refreshAll(database, data, Refresh::calls);
}

int PVBpatternFixTimes(int database) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return -2;
  // Without plates every period would be zero.
  if (PVBgetSection(database, kSectionTimePlates) == nullptr) return -2;
  return refreshAll(database, *data, Refresh::all);
}
