#include "conditioner/signal_transfer.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "conditioner/signal_transfer_internal.h"
#include "pvb/database.h"
#include "pvb/timeplate.h"

namespace {

// With more entries pending a list of signals stops.
constexpr int kMostPending = 30;
constexpr char kForcePrevious = 'P';
constexpr std::uint32_t kInheritedFlag = 0x40000000;

// The signals of "ALL", and what stands in the way of listing them.
struct SignalWalk {
  std::vector<PVBsignal*> signals;
  PVBid highestId = UNDEF;
};

SignalWalk allSignals(int database) {
  SignalWalk walk;
  const PVBsignal* all = PVBsignalInqByID(database, kGroupAll);
  if (all == nullptr) return walk;
  for (const PVBid id : PVBsignalListToScalars(database, all->members)) {
    PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal == nullptr || !signal->name) continue;
    walk.signals.push_back(signal);
    walk.highestId = std::max(walk.highestId, id);
  }
  return walk;
}

// Maps are tables by id, so that ids of a class would ask for any amount of memory.
bool idsFitMap(const PVBregion& region, PVBid highest) {
  if (highest <= kMaxIdIndex) return true;
  errno = 0;
  PBerrPush(PBconditionerError, kFunctionAndText, "signalTableOf",
            "signal id out of range in PVB (" + region.pvbName + ")");
  return false;
}

// --- Categories ----------------------------------------------------------------------

int countMultiplexed(int database) {
  const PVBidList& ids = PVBsignalInqAll(database);
  return static_cast<int>(std::count_if(ids.begin(), ids.end(), [database](PVBid id) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    return signal != nullptr && (signal->type == MEM_MUX || signal->type == MEM_MUX_BUS);
  }));
}

bool refuseMultiplexed(const PVBregion& region) {
  const int count = countMultiplexed(region.pvbHandle);
  if (count == 0) return false;
  errno = 0;
  PBerrPush(PBconditionerError, kMultiplexedSignals, "categorizeSignals", std::to_string(count),
            region.regionName);
  return true;
}

SignalTable tableAndMap(PVBregion& region) {
  SignalTable table = signalTableOf(region);
  if (table.empty()) assertFail(__FILE__, __LINE__);
  makeSigIDMap(region);
  return table;
}

// Parts `all` by whether `other` has a signal of the name.
void part(const SignalTable& all, const SignalTable& other, SignalTable* both,
          SignalTable& onlyHere) {
  for (PVBsignal* signal : all.signals()) {
    const bool there = other.find(*signal->name) != nullptr;
    if (!there) onlyHere.insert(*signal);
    if (there && both != nullptr) both->insert(*signal);
  }
}

// --- Disjoint signals ----------------------------------------------------------------

void pushColumns(std::string_view left, std::string_view right) {
  PBerrPush(PBconditionerError, kTwoColumns, left, right);
}

void pushTooMany() { PBerrPush(PBconditionerError, kTooManyDisjoint); }

// False when the list had to stop.
bool pushSignals(const SignalTable& table, const PVBregion& region) {
  for (const PVBsignal* signal : table.signals()) {
    pushColumns(region.pvbName, *signal->name);
    if (PBerrCount() > kMostPending) return false;
  }
  return true;
}

// --- P mode --------------------------------------------------------------------------

bool hasForcePrevious(const PVBtimePlate& plate) {
  return std::any_of(plate.levels.begin(), plate.levels.end(), [](const PVBlevel& level) {
    return std::any_of(level.tracks.begin(), level.tracks.end(), [](const PVBtrack& track) {
      return track.stateChars.find(kForcePrevious) != std::string::npos;
    });
  });
}

bool usesPmode(int database) {
  const PVBidList& plates = PVBtimePlateInqAll(database);
  return std::any_of(plates.begin(), plates.end(), [database](PVBid id) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(database, id);
    return plate != nullptr && hasForcePrevious(*plate);
  });
}

}  // namespace

void SignalTable::insert(PVBsignal& signal) {
  if (byName_.try_emplace(*signal.name, &signal).second) signals_.push_back(&signal);
}

PVBsignal* SignalTable::find(std::string_view name) const {
  const auto found = byName_.find(name);
  return found != byName_.end() ? found->second : nullptr;
}

SignalTable signalTableOf(const PVBregion& region) {
  SignalTable table;
  const SignalWalk walk = allSignals(region.pvbHandle);
  if (!idsFitMap(region, walk.highestId)) return table;
  for (PVBsignal* signal : walk.signals) table.insert(*signal);
  return table;
}

void makeSigIDMap(PVBregion& region) {
  if (!region.sigIDMap.empty()) return;
  const PVBid highest = std::min(allSignals(region.pvbHandle).highestId, kMaxIdIndex);
  region.sigIDMap.assign(static_cast<std::size_t>(highest) + 1, UNDEF);
}

void noteSignalId(PVBregion& region, PVBid id, PVBid destId) {
  if (id < 0 || id > kMaxIdIndex) assertFail(__FILE__, __LINE__);
  const auto place = static_cast<std::size_t>(id);
  if (place >= region.sigIDMap.size()) region.sigIDMap.resize(place + 1, UNDEF);
  region.sigIDMap[place] = destId;
}

int categorizeSignals(PVBregion& region1, PVBregion& region2, SigCategories& categories) {
  if (refuseMultiplexed(region1) || refuseMultiplexed(region2)) return -2;
  auto& tables = categories.tables;
  tables = {};
  tables[SRC1_ALL_SCALARS] = tableAndMap(region1);
  tables[SRC2_ALL_SCALARS] = tableAndMap(region2);
  part(tables[SRC1_ALL_SCALARS], tables[SRC2_ALL_SCALARS], &tables[OVERLAP_SCALARS],
       tables[SRC1_DISJOINT_SCALARS]);
  part(tables[SRC2_ALL_SCALARS], tables[SRC1_ALL_SCALARS], nullptr, tables[SRC2_DISJOINT_SCALARS]);
  return 0;
}

void listDisjointSignals(const SigCategories& categories, const PVBregion& region1,
                         const PVBregion& region2) {
  errno = 0;
  pushColumns("PVB Name", "Disjoint Signals:");
  pushColumns("--------", "----------------");
  if (!pushSignals(categories[SRC1_DISJOINT_SCALARS], region1)) {
    // Once for each table: kept on purpose.
    pushTooMany();
    pushTooMany();
  } else if (!pushSignals(categories[SRC2_DISJOINT_SCALARS], region2)) {
    pushTooMany();
  }
}

void mapSignalsByName(PVBregion& src, PVBregion& dest) {
  makeSigIDMap(src);
  makeSigIDMap(dest);
  for (const PVBsignal* signal : allSignals(src.pvbHandle).signals) {
    PVBsignal* same = PVBsignalInqByName(dest.pvbHandle, *signal->name);
    if (same == nullptr) assertFail(__FILE__, __LINE__);
    widenSignal(dest, *same, *signal);
    noteSignalId(src, signal->id, same->id);
    noteSignalId(dest, same->id, same->id);
  }
}

int mergePmode(PVBregion& dest, PVBregion& src1, PVBregion& src2) {
  const std::int32_t mode1 = PVBpmode(src1.pvbHandle);
  const std::int32_t mode2 = PVBpmode(src2.pvbHandle);
  if (mode1 == mode2) return PVBsetPmode(dest.pvbHandle, mode1);
  const bool uses1 = usesPmode(src1.pvbHandle);
  const bool uses2 = usesPmode(src2.pvbHandle);
  if (uses1 && uses2) {
    errno = 0;
    PBerrPush(PBconditionerError, kIncompatiblePmodes, "mergePmode", src1.pvbName, src2.pvbName);
    return -2;
  }
  return PVBsetPmode(dest.pvbHandle, uses1 || !uses2 ? mode1 : mode2);
}

void inheritFlag(const PVBregion& dest, const PVBregion& src1, const PVBregion& src2) {
  const std::uint32_t flags = PVBdatabaseFlags(src1.pvbHandle) | PVBdatabaseFlags(src2.pvbHandle);
  if ((flags & kInheritedFlag) == 0) return;
  PVBsetDatabaseFlags(dest.pvbHandle, PVBdatabaseFlags(dest.pvbHandle) | kInheritedFlag);
}
