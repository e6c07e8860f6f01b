#include <algorithm>

#include "pvb/signal.h"
#include "pvb/signal_internal.h"

namespace {

constexpr std::uint32_t kFnvBasis = 2166136261U;
constexpr std::uint32_t kFnvPrime = 16777619U;

// The keys that look-ups compare with, kept so that a look-up makes no record.
struct Probes {
  PVBsignal id;
  PVBsignal name;
};
Probes& probes() {
  static Probes instance;
  instance.name.name.emplace();
  return instance;
}

const PVBsignal& asSignal(const void* member) { return *static_cast<const PVBsignal*>(member); }

int compareIds(const void* probe, const void* member) {
  return asSignal(probe).id == asSignal(member).id ? 0 : 1;
}
int hashId(const void* member) { return asSignal(member).id; }

int compareNames(const void* probe, const void* member) {
  return *asSignal(probe).name == *asSignal(member).name ? 0 : 1;
}
// The order of the name table is nowhere visible, so names may spread as they like.
int hashName(const void* member) {
  std::uint32_t hash = kFnvBasis;
  for (const char c : *asSignal(member).name) {
    hash = (hash ^ static_cast<unsigned char>(c)) * kFnvPrime;
  }
  return static_cast<int>(hash);
}

// --- Caches --------------------------------------------------------------------------

void listIds(PVBsignalData& data) {
  if (data.idsKnown) return;
  data.signalIds.clear();
  data.objectIds.clear();
  data.byId.forEach([&data](const PVBsignal& signal) {
    data.objectIds.push_back(signal.id);
    if (isSignalId(signal.id)) data.signalIds.push_back(signal.id);
  });
  data.idsKnown = true;
}

void noteChildren(const PVBsignalData& data, PVBsignal& parent) {
  std::int32_t position = 0;
  for (const PVBid child : parent.muxChildren) {
    PVBsignal* part = findById(data, child);
    if (part != nullptr && part->muxParent == nullptr) {
      part->muxParent = &parent;
      part->muxPosition = position;
    }
    ++position;
  }
}

void findMuxParts(PVBsignalData& data) {
  if (data.muxPartsKnown) return;
  data.byId.forEach([](PVBsignal& signal) {
    signal.muxParent = nullptr;
    signal.muxPosition = kMuxUnknown;
  });
  data.byId.forEach([&data](PVBsignal& signal) {
    if (isMux(signal)) noteChildren(data, signal);
  });
  data.muxPartsKnown = true;
}

const PVBidList kNoIds;

}  // namespace

// --- The tables ----------------------------------------------------------------------

PVBsignalData::PVBsignalData(int buckets)
    : byId(buckets, compareIds, hashId), byName(buckets, compareNames, hashName) {}

PVBsignalData::~PVBsignalData() {
  byId.forEach([](PVBsignal& signal) { const std::unique_ptr<PVBsignal> owner(&signal); });
}

PVBsignalData* signalData(int database) {
  PVBdatabase* slot = PVBgetSection(database, kSectionSignals);
  return slot != nullptr ? slot->signals.get() : nullptr;
}

int failWith(int database, PVBstatusCode status, int result) {
  PVBsetStatus(database, status);
  return result;
}

PVBsignal* findById(const PVBsignalData& data, PVBid id) {
  PVBsignal& probe = probes().id;
  probe.id = id;
  return data.byId.find(probe);
}

PVBsignal* findByName(const PVBsignalData& data, std::string_view name) {
  PVBsignal& probe = probes().name;
  probe.name->assign(name);
  return data.byName.find(probe);
}

bool isSignalId(PVBid id) {
  constexpr std::uint32_t kSignalClasses = 0x3007;  // a bit a class: 0, 1, 2, 12, 13
  const int idClass = PVBidClass(id);
  return id >= 0 && idClass < 32 && ((kSignalClasses >> idClass) & 1U) != 0;
}

PVBsignal* enterSignal(PVBsignalData& data, std::unique_ptr<PVBsignal> signal) {
  if (data.byId.insert(signal.get()) != 0) return nullptr;
  if (signal->name && data.byName.insert(signal.get()) != 0) {
    data.byId.remove(signal.get());
    return nullptr;
  }
  noteChange(data);
  return signal.release();
}

std::unique_ptr<PVBsignal> takeOut(PVBsignalData& data, PVBsignal& signal) {
  data.byId.remove(&signal);
  if (signal.name) data.byName.remove(&signal);
  noteChange(data);
  return std::unique_ptr<PVBsignal>(&signal);
}

void noteChange(PVBsignalData& data) {
  data.changed = true;
  data.idsKnown = false;
  data.muxPartsKnown = false;
}

// --- Look-up -------------------------------------------------------------------------

PVBsignal* PVBsignalInqByID(int database, PVBid id) {
  if (signalData(database) == nullptr) return nullptr;
  if (isSignalId(id)) return PVBobjectInqByID(database, id);
  PVBsetStatus(database, id == UNDEF ? kStatusNotInUse : kStatusWrongClass);
  return nullptr;
}

PVBsignal* PVBobjectInqByID(int database, PVBid id) {
  const PVBsignalData* data = signalData(database);
  if (data == nullptr) return nullptr;
  PVBsignal* found = findById(*data, id);
  if (found == nullptr) PVBsetStatus(database, kStatusNotInUse);
  return found;
}

PVBsignal* PVBsignalInqByName(int database, std::string_view name) {
  const PVBsignalData* data = signalData(database);
  if (data == nullptr) return nullptr;
  PVBsignal* found = findByName(*data, name);
  if (found == nullptr) PVBsetStatus(database, name.empty() ? kStatusEmptyName : kStatusNoSuchName);
  return found;
}

const PVBidList& PVBsignalInqAll(int database) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return kNoIds;
  listIds(*data);
  return data->signalIds;
}

const PVBidList& PVBobjectInqAll(int database) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return kNoIds;
  listIds(*data);
  return data->objectIds;
}

PVBsignal* PVBmuxParent(int database, PVBsignal& part) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return nullptr;
  findMuxParts(*data);
  return part.muxParent;
}
