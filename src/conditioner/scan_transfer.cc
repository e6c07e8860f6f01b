#include "conditioner/scan_transfer.h"

#include <algorithm>
#include <unordered_map>

#include "pvb/signal.h"

namespace {

std::int32_t typeOfClass(int idClass) {
  switch (idClass) {
    case kClassScanCell:
      return kScanCellType;
    case kClassScanRegister:
      return kScanRegisterType;
    case kClassScanGroup:
      return kScanGroupType;
    default:
      return kScanChainType;
  }
}

// An object of the destination, UNDEF for none, and whether it has just been made.
struct Placed {
  PVBid id = UNDEF;
  bool isNew = false;
};

// Edge signals of a chain, of either database.
struct Edges {
  PVBid in = UNDEF;
  PVBid out = UNDEF;
};

class ChainCarrier {
 public:
  ChainCarrier(PVBregion& src, const PVBregion& dest, const SignalTable& table)
      : src_(src), dest_(dest.pvbHandle), table_(table) {}

  // False when the walk over the chains ends here.
  bool carry(const PVBsignal& chain, bool skipExisting) {
    Edges edges;
    if (chain.members.empty() || !chain.name || !keptEdges(chain, edges)) return true;
    if (!destinationEdges(edges)) return false;
    const Placed placed = place(chain, true);
    if (PVBidClass(placed.id) != kClassScanChain) return true;
    PVBsignal& copy = *PVBobjectInqByID(dest_, placed.id);
    if (placed.isNew || !skipExisting) completeEdges(copy, edges);
    const bool fill = placed.isNew || (!skipExisting && copy.members.empty());
    tasks_.push_back({&chain, placed.id, fill});
    carryMembers();
    return true;
  }

 private:
  // Members that wait to be carried over; `fill`: into an owner that has none yet.
  struct Task {
    const PVBsignal* source;
    PVBid owner;
    bool fill;
  };

  PVBid keptEdge(const PVBsignal& chain, std::size_t place) const {
    const PVBid id = place < chain.lists3.size() ? chain.lists3[place] : UNDEF;
    const PVBsignal* signal = id != UNDEF ? PVBsignalInqByID(src_.pvbHandle, id) : nullptr;
    const bool kept = signal != nullptr && signal->name && table_.find(*signal->name) != nullptr;
    return kept ? id : UNDEF;
  }

  bool keptEdges(const PVBsignal& chain, Edges& edges) const {
    edges = {keptEdge(chain, 0), keptEdge(chain, 1)};
    return edges.in != UNDEF || edges.out != UNDEF;
  }

  bool destinationEdges(Edges& edges) const {
    for (PVBid* edge : {&edges.in, &edges.out}) {
      if (*edge == UNDEF) continue;
      const PVBsignal& signal = *PVBsignalInqByID(src_.pvbHandle, *edge);
      const PVBsignal* same = PVBsignalInqByName(dest_, *signal.name);
      if (same == nullptr) return false;
      *edge = same->id;
    }
    return true;
  }

  static void completeEdges(PVBsignal& chain, const Edges& edges) {
    chain.lists3.resize(std::max<std::size_t>(chain.lists3.size(), 2), UNDEF);
    if (chain.lists3[0] == UNDEF) chain.lists3[0] = edges.in;
    if (chain.lists3[1] == UNDEF) chain.lists3[1] = edges.out;
  }

  // Groups within groups by hand: they may be nested deeper than calls. Each object of
  // the source is taken apart once, so groups that hold one another end too.
  void carryMembers() {
    while (!tasks_.empty()) {
      const Task task = tasks_.back();
      tasks_.pop_back();
      PVBidList members;
      for (const PVBid id : task.source->members) {
        const PVBid there = memberFor(id, task.fill);
        if (there != UNDEF) members.push_back(there);
      }
      if (task.fill) PVBobjectInqByID(dest_, task.owner)->members = std::move(members);
    }
  }

  PVBid memberFor(PVBid id, bool make) {
    const auto known = placed_.find(id);
    if (known != placed_.end()) return known->second;
    const int idClass = PVBidClass(id);
    const bool isMember = idClass == kClassScanCell || idClass == kClassScanRegister ||
                          (idClass == kClassScanGroup && id != kGroupAllScan);
    const PVBsignal* source = isMember ? PVBobjectInqByID(src_.pvbHandle, id) : nullptr;
    if (source == nullptr) return UNDEF;
    const Placed placed = place(*source, make);
    if (placed.id == UNDEF) return UNDEF;
    placed_[id] = placed.id;
    if (idClass != kClassScanGroup) src_.scanIDMap.push_back({id, placed.id});
    if (!source->members.empty()) tasks_.push_back({source, placed.id, placed.isNew});
    return placed.id;
  }

  // The destination's object of the name, or, if it may be made, a new one.
  Placed place(const PVBsignal& source, bool make) const {
    const PVBsignal* same = source.name ? PVBsignalInqByName(dest_, *source.name) : nullptr;
    const int idClass = PVBidClass(source.id);
    if (same != nullptr && PVBidClass(same->id) == idClass) return {same->id, false};
    // A chain is found by its name alone, the others by who holds them.
    if (!make || (same != nullptr && idClass == kClassScanChain)) return {};
    std::unique_ptr<PVBsignal> copy = PVBsignalCopy(source);
    copy->type = typeOfClass(idClass);
    if (same != nullptr) copy->name.reset();
    copy->members.clear();
    for (PVBidList* list : {&copy->muxChildren, &copy->lists3, &copy->lists4, &copy->lists5}) {
      list->clear();
    }
    return {enter(std::move(copy), source.id), true};
  }

  // Under the same id where that is free.
  PVBid enter(std::unique_ptr<PVBsignal> object, PVBid id) const {
    if (PVBobjectInqByID(dest_, id) != nullptr) {
      return PVBscanObjectInsert(dest_, std::move(object));
    }
    object->id = id;
    const PVBid entered = PVBsignalInsertAs(dest_, std::move(object));
    PVBsignal* root = PVBobjectInqByID(dest_, kGroupAllScan);
    if (entered != UNDEF && root != nullptr) root->members.push_back(entered);
    return entered;
  }

  PVBregion& src_;
  int dest_;
  const SignalTable& table_;
  std::unordered_map<PVBid, PVBid> placed_;  // by id of the source
  std::vector<Task> tasks_;
};

// The chains of a database in rising id.
PVBidList chainsOf(int database) {
  PVBidList chains;
  for (const PVBid id : PVBobjectInqAll(database)) {
    if (PVBidClass(id) == kClassScanChain) chains.push_back(id);
  }
  std::sort(chains.begin(), chains.end());
  return chains;
}

}  // namespace

void copyScanChains(PVBregion& src, PVBregion& dest, const SignalTable& table, bool skipExisting) {
  src.scanIDMap.clear();
  src.vectorIDMap.clear();
  ChainCarrier carrier(src, dest, table);
  for (const PVBid id : chainsOf(src.pvbHandle)) {
    const PVBsignal* chain = PVBobjectInqByID(src.pvbHandle, id);
    if (chain != nullptr && !carrier.carry(*chain, skipExisting)) break;
  }
  std::sort(src.scanIDMap.begin(), src.scanIDMap.end(),
            [](const ScanIdPair& a, const ScanIdPair& b) {
              return PVBidIndex(a.from) < PVBidIndex(b.from);
            });
}
