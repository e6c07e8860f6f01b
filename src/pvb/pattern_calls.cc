// Who calls whom: the counts of call rows, circles among them, and an order in
// which sums can be computed. Circles are found by Tarjan's walk with a stack of
// its own, since chains of calls are as long as a file wants them to be.

#include <algorithm>

#include "pvb/pattern_internal.h"

namespace {

using Calls = std::map<std::uint32_t, std::uint32_t>;

Calls countCalls(int database, int pattern, std::vector<std::uint32_t>& callers) {
  Calls calls;
  PatternWalk walk(database, pattern);
  while (walk.next()) {
    const PVBnodeEntry& entry = walk.entry();
    if (entry.type != ROW_SUBR_CALL || entry.index >= callers.size()) continue;
    ++calls[entry.index];
    ++callers[entry.index];
  }
  return calls;
}

class CallOrder {
 public:
  explicit CallOrder(const CallGraph& graph, std::size_t count)
      : graph_(graph), numbers_(count), lows_(count), open_(count), recursive_(count) {}

  void run() {
    for (std::uint32_t i = 0; i < numbers_.size(); ++i) {
      if (numbers_[i] == 0) visitFrom(i);
    }
  }
  bool recursive(std::uint32_t subroutine) const { return recursive_[subroutine]; }
  std::vector<std::uint32_t> take() { return std::move(order_); }

 private:
  struct Visit {
    std::uint32_t subroutine;
    Calls::const_iterator next;
  };
  const Calls& callsOf(std::uint32_t subroutine) const { return graph_.calls[subroutine + 1]; }

  void enter(std::uint32_t subroutine) {
    numbers_[subroutine] = lows_[subroutine] = ++lastNumber_;
    open_[subroutine] = true;
    stack_.push_back(subroutine);
    path_.push_back({subroutine, callsOf(subroutine).begin()});
  }
  void visitFrom(std::uint32_t first) {
    enter(first);
    while (!path_.empty()) {
      Visit& visit = path_.back();
      const std::uint32_t caller = visit.subroutine;
      if (visit.next == callsOf(caller).end()) {
        leave(caller);
        continue;
      }
      const std::uint32_t callee = (visit.next++)->first;
      if (callee == caller) recursive_[caller] = true;
      if (numbers_[callee] == 0) {
        enter(callee);
      } else if (open_[callee]) {
        lows_[caller] = std::min(lows_[caller], numbers_[callee]);
      }
    }
  }
  void leave(std::uint32_t subroutine) {
    path_.pop_back();
    if (!path_.empty()) {
      std::uint32_t& low = lows_[path_.back().subroutine];
      low = std::min(low, lows_[subroutine]);
    }
    if (lows_[subroutine] != numbers_[subroutine]) return;
    const bool circle = stack_.back() != subroutine;
    std::uint32_t member = 0;
    do {
      member = stack_.back();
      stack_.pop_back();
      open_[member] = false;
      if (circle) recursive_[member] = true;
      order_.push_back(member);
    } while (member != subroutine);
  }

  const CallGraph& graph_;
  std::vector<std::uint32_t> numbers_;  // order of the first visit, from 1; 0: not yet
  std::vector<std::uint32_t> lows_;
  std::vector<bool> open_;
  std::vector<bool> recursive_;
  std::vector<std::uint32_t> stack_;
  std::vector<Visit> path_;
  std::vector<std::uint32_t> order_;
  std::uint32_t lastNumber_ = 0;
};

}  // namespace

bool hasSubroutines(const PVBpatternData& data) {
  return std::any_of(data.subroutines.begin(), data.subroutines.end(),
                     [](const PVBsubroutine& subroutine) { return subroutine.root != kNoNode; });
}

CallGraph& callGraph(int database, PVBpatternData& data) {
  const std::size_t count = data.subroutines.size();
  if (!data.calls) {
    data.calls = std::make_unique<CallGraph>();
    data.calls->callers.resize(count);
    data.calls->calls.resize(count + 1);
    for (int pattern = kMainPattern; pattern < static_cast<int>(count); ++pattern) {
      if (pattern >= 0 && data.subroutines[static_cast<std::size_t>(pattern)].root == kNoNode) {
        continue;
      }
      data.calls->calls[callerIndex(pattern)] = countCalls(database, pattern, data.calls->callers);
    }
    PVBidList marked;
    orderByCalls(database, data, marked);
  }
  data.calls->callers.resize(count);
  data.calls->calls.resize(count + 1);
  return *data.calls;
}

std::vector<std::uint32_t> orderByCalls(int database, PVBpatternData& data, PVBidList& changed) {
  CallOrder order(callGraph(database, data), data.subroutines.size());
  order.run();
  for (std::uint32_t i = 0; i < data.subroutines.size(); ++i) {
    PVBsubroutine& subroutine = data.subroutines[i];
    if (subroutine.recursive == order.recursive(i)) continue;
    subroutine.recursive = order.recursive(i);
    changed.push_back(static_cast<PVBid>(i));
  }
  return order.take();
}

void noteCall(int database, PVBpatternData& data, int pattern, std::uint32_t callee, int delta) {
  if (!data.calls || callee >= data.subroutines.size()) return;
  CallGraph& graph = callGraph(database, data);
  Calls& calls = graph.calls[callerIndex(pattern)];
  const bool before = calls.count(callee) != 0;
  if (delta > 0) {
    ++calls[callee];
    ++graph.callers[callee];
  } else if (before) {
    if (--calls[callee] == 0) calls.erase(callee);
    --graph.callers[callee];
  }
  const bool after = calls.count(callee) != 0;
  if (before == after || pattern == kMainPattern) return;
  PVBidList changed;
  orderByCalls(database, data, changed);
  noteChanged(database, data, changed);
}
