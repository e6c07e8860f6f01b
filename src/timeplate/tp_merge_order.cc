// The order in which timeplates are tried, and the tables of the report.

#include <fmt/printf.h>

#include <algorithm>
#include <array>

#include "timeplate/tp_merge_internal.h"
#include "timeplate/tp_settings.h"

TpMergeState tpMergeState;

namespace {

constexpr int kFailureRule = 34;
constexpr int kListRule = 29;

std::string rule(int length) { return std::string(static_cast<std::size_t>(length), '-') + "\n"; }

// Whether an entry is passed over by one that moves towards the end.
bool isPassed(const OrderEntry& moving, const OrderEntry& other) {
  if (moving.isProtected && !other.isProtected) return false;
  return moving.mergeCount < other.mergeCount;
}

// Moves the entry at `from` behind those it has to stand behind, `gap` places a step.
void settle(std::vector<OrderEntry>& order, std::size_t from, std::size_t gap) {
  const OrderEntry moving = order[from];
  std::size_t to = from;
  while (to + gap < order.size() && isPassed(moving, order[to + gap])) {
    order[to] = order[to + gap];
    to += gap;
  }
  order[to] = moving;
}

std::size_t nextGap(std::size_t gap) { return gap > 4 ? (gap * 5 - 1) / 11 : 1; }

std::string nameOf(PVBid id) {
  const PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
  return plate != nullptr ? plate->name.value_or("") : "";
}

}  // namespace

void tpSortOrder(std::vector<OrderEntry>& order) {
  for (std::size_t gap = order.size(); gap > 1;) {
    gap = nextGap(gap);
    for (std::size_t i = order.size() - gap; i-- > 0;) settle(order, i, gap);
  }
}

void tpUpdateOrder(std::span<const PVBid> ids) {
  std::vector<OrderEntry>& order = tpMergeState.tpoOrder;
  std::unordered_set<PVBid> missing(ids.begin(), ids.end());
  // What is kept is no longer missing; holes and what has gone meanwhile are taken out.
  std::erase_if(order, [&](const OrderEntry& entry) { return missing.erase(entry.id) == 0; });
  for (const PVBid id : ids) {
    if (missing.erase(id) != 0) order.push_back({id, 0, false});
  }
  for (OrderEntry& entry : order) entry.isProtected = tpIsProtected(entry.id);
  tpSortOrder(order);
}

void tpProtect(std::span<const PVBid> ids) {
  tpMergeState.tpoProtected.insert(ids.begin(), ids.end());
}

bool tpIsProtected(PVBid id) { return tpMergeState.tpoProtected.contains(id); }

// --- Tables --------------------------------------------------------------------------

void tpReportOrder() {
  if (!tpTraces(2)) return;
  tpReport("\nList of Timeplates\n" + rule(kListRule));
  for (const OrderEntry& entry : tpMergeState.tpoOrder) {
    tpReport(fmt::sprintf("%20s %9d\n", nameOf(entry.id), entry.mergeCount));
  }
  tpReport(rule(kListRule));
  if (tpMergeState.tpoProtected.empty()) return;
  tpReport("\nProtected Timeplate List\n" + rule(kListRule));
  for (const OrderEntry& entry : tpMergeState.tpoOrder) {
    if (entry.isProtected) tpReport(fmt::sprintf("%20s\n", nameOf(entry.id)));
  }
  tpReport(rule(kListRule));
}

void tpReportFailures() {
  if (tpRun.tpoSignals.empty()) return tpReport("No signal list present\n");
  tpReport("\nSignal List - Fail Frequency\n" + rule(kFailureRule));
  for (const int index : tpRun.tpoSignals) {
    const TpSignal& signal = tpRun.signals[static_cast<std::size_t>(index)];
    if (signal.failCount == 0) continue;
    tpReport(fmt::sprintf("%20s %9d\n", signal.name, signal.failCount));
  }
  tpReport(rule(kFailureRule) + rule(kFailureRule));
}
