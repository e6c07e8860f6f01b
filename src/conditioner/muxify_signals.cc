// Each scalar of the source becomes a multiplexed signal with its children.

#include <fmt/printf.h>

#include <string>
#include <unordered_set>

#include "conditioner/muxify_internal.h"
#include "pvb/pattern.h"

namespace {

constexpr std::string_view kFunction = "muxifySignals()";

bool isMultiplexed(const PVBsignal& signal) {
  return signal.type == MEM_MUX || signal.type == MEM_MUX_BUS;
}

std::string nameOf(const PVBsignal& signal) { return signal.name.value_or(""); }

// --- Making --------------------------------------------------------------------------

std::unique_ptr<PVBsignal> likeSignal(const PVBsignal& signal, std::optional<std::string> name,
                                      SignalType type) {
  auto made = PVBsignalNew();
  made->name = std::move(name);
  made->type = type;
  made->direction = signal.direction;
  return made;
}

// The children stand in no group: only their parent leads to them.
bool makeChildren(Muxify& mux, const PVBsignal& signal, std::vector<PVBid>& children) {
  for (int n = 1; static_cast<int>(children.size()) < mux.degree; ++n) {
    std::string name = nameOf(signal) + "_" + std::to_string(n);
    if (PVBsignalInqByName(mux.src, name) != nullptr) continue;
    const PVBid child = PVBsignalInsert(mux.dest, likeSignal(signal, std::move(name), MEM_SIGNAL));
    if (child == UNDEF) return muxifyFails(kFunction, "PVBsignalAdd() failed for mux child.");
    children.push_back(child);
  }
  return true;
}

bool muxifySignal(Muxify& mux, const PVBsignal& signal) {
  auto parent = likeSignal(signal, signal.name, MEM_MUX);
  std::vector<PVBid> children;
  if (!makeChildren(mux, signal, children)) return false;
  parent->muxChildren = children;
  if (PVBsignalAdd(mux.dest, std::move(parent)) == UNDEF) {
    return muxifyFails(kFunction, "PVBsignalAdd() failed for mux parent.");
  }
  mux.muxChildren[signal.id] = std::move(children);
  return true;
}

int columnsFor(std::int32_t direction) {
  if (direction == BIDIR) return 2;
  return direction == INPUT || direction == OUTPUT ? 1 : 0;
}

// Rows get their width at once, instead of being made wider for each child. Where so many
// columns can't be had, the child that has none left tells it.
void widenRows(const Muxify& mux) {
  std::int64_t columns = 0;
  for (const PVBsignal* signal : mux.srcSignals) {
    columns += columnsFor(signal->direction);
  }
  columns *= mux.degree;
  if (columns <= kMaxColumns) PVBpatternWidenRows(mux.dest, static_cast<int>(columns));
}

}  // namespace

bool createSignalList(Muxify& mux) {
  PVBidList signals;
  for (const PVBid id : PVBsignalInqAll(mux.src)) {
    const PVBsignal* signal = PVBsignalInqByID(mux.src, id);
    if (signal == nullptr) continue;
    if (isMultiplexed(*signal)) {
      return muxifyRefuses(fmt::sprintf("Muxed signal (%s) detected in source PVB.  Not supported.",
                                        nameOf(*signal)));
    }
    if (signal->type != MEM_GROUP) signals.push_back(id);
  }
  // A scalar stands in the list for itself and for every bus that holds it.
  std::unordered_set<PVBid> taken;
  for (const PVBid id : PVBsignalListToScalars(mux.src, signals)) {
    const PVBsignal* signal = PVBsignalInqByID(mux.src, id);
    if (signal != nullptr && taken.insert(id).second) mux.srcSignals.push_back(signal);
  }
  return true;
}

bool muxifySignals(Muxify& mux) {
  widenRows(mux);
  for (const PVBsignal* signal : mux.srcSignals) {
    if (!muxifySignal(mux, *signal)) return false;
  }
  return true;
}

const std::vector<PVBid>* getMuxedChildList(const Muxify& mux, const PVBsignal& signal) {
  const auto found = mux.muxChildren.find(signal.id);
  if (found != mux.muxChildren.end()) return &found->second;
  muxifyFails("getMuxedChildList()",
              fmt::sprintf("srcSignal (%s) not found in muxChildren map.", nameOf(signal)));
  return nullptr;
}
