#include <unordered_set>
#include <vector>

#include "pvb/signal.h"
#include "pvb/signal_internal.h"

namespace {

// The signals reached from "ALL" and from multiplexed ones, which are kept whether or
// not they are reached, through members and mux children.
class Reach {
 public:
  explicit Reach(const PVBsignalData& data) : data_(data) {
    add(findById(data, kGroupAll));
    data.byId.forEach([this](const PVBsignal& signal) {
      if (isMux(signal)) add(&signal);
    });
    while (!pending_.empty()) {
      const PVBsignal& signal = *pending_.back();
      pending_.pop_back();
      for (const PVBid id : signal.members) add(findById(data_, id));
      for (const PVBid id : signal.muxChildren) add(findById(data_, id));
    }
  }

  bool contains(const PVBsignal& signal) const { return reached_.contains(&signal); }

 private:
  void add(const PVBsignal* signal) {
    if (signal != nullptr && reached_.insert(signal).second) pending_.push_back(signal);
  }

  const PVBsignalData& data_;
  std::vector<const PVBsignal*> pending_;
  std::unordered_set<const PVBsignal*> reached_;
};

}  // namespace

void PVBsignalRenumber(int database) {
  const PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || slot->signals == nullptr) return;
  PVBsignalData& data = *slot->signals;
  const Reach reach(data);
  data.unused.clear();
  data.byId.forEach([&](const PVBsignal& signal) {
    // Ids that were never given out here belong to whoever chose them, and stay.
    const bool given = signal.type == MEM_SIGNAL && signal.id >= 0 && signal.id < data.nextID;
    if (given && !reach.contains(signal)) data.unused.insert(signal.id);
  });
}
