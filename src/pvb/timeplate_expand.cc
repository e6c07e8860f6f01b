#include "pvb/timeplate_expand.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "base/errors.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"

namespace {

// Signals on the tracks that are taken apart, in all timeplates.
constexpr std::size_t kMostSignals = std::size_t{1} << 26;

bool isCompound(const PVBsignal& signal) {
  return signal.type == MEM_BUS || signal.type == MEM_GROUP || signal.type == MEM_MUX_BUS;
}

// The buses and groups of a database as a set of ids.
std::vector<bool> compoundSignals(int database) {
  std::vector<bool> compound;
  for (const PVBid id : PVBsignalInqAll(database)) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (id < 0 || signal == nullptr || !isCompound(*signal)) continue;
    const auto place = static_cast<std::size_t>(id);
    if (place >= compound.size()) compound.resize(place + 1);
    compound[place] = true;
  }
  return compound;
}

class Expansion {
 public:
  explicit Expansion(int database) : database_(database), compound_(compoundSignals(database)) {}

  // False when there is no room for all of them.
  bool expand(PVBtimePlate& plate) {
    bool expanded = false;
    for (int slot = 0; slot < PVBslotCount(plate); ++slot) {
      const PVBidList& signals = PVBtrackSignals(plate, slot);
      if (std::ranges::none_of(signals, [this](PVBid id) { return isCompoundId(id); })) continue;
      if (signals_ > kMostSignals) return false;
      const PVBidList& scalars = PVBsignalListToScalars(database_, signals);
      signals_ += scalars.size();
      PVBtrackSetSignals(plate, slot, scalars);
      expanded = true;
    }
    if (expanded) PVBtimePlateRebuildMaps(plate);
    return true;
  }

 private:
  bool isCompoundId(PVBid id) const {
    return id >= 0 && static_cast<std::size_t>(id) < compound_.size() &&
           compound_[static_cast<std::size_t>(id)];
  }

  int database_;
  std::vector<bool> compound_;
  std::size_t signals_ = 0;
};

}  // namespace

bool expandTimePlates(int database) {
  Expansion expansion(database);
  const PVBidList& ids = PVBtimePlateInqAll(database);
  if (std::ranges::all_of(
          ids, [&](PVBid id) { return expansion.expand(*PVBtimePlateInqByID(database, id)); })) {
    return true;
  }
  errno = 0;
  PBpostError("expandTimePlates", 0, "too many signals on tracks");
  return false;
}
