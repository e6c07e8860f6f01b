#include "pvb/signal.h"

#include <algorithm>
#include <cerrno>

#include "base/errors.h"
#include "pvb/pin.h"
#include "pvb/property.h"
#include "pvb/signal_internal.h"

namespace {

constexpr int kNameExists = 129;

// --- Ids -----------------------------------------------------------------------------

struct ScanClass {
  std::int32_t type;
  int idClass;
};
// In the order of PVBsignalData::nextScanIndex.
constexpr std::array<ScanClass, 4> kScanClasses = {{
    {kScanCellType, kClassScanCell},
    {kScanRegisterType, kClassScanRegister},
    {kScanGroupType, kClassScanGroup},
    {kScanChainType, kClassScanChain},
}};

bool isScanId(PVBid id) {
  return std::any_of(kScanClasses.begin(), kScanClasses.end(),
                     [id](const ScanClass& row) { return row.idClass == PVBidClass(id); });
}

// Steps `next` on until an id of the class is free; UNDEF when all are in use.
PVBid takeId(const PVBsignalData& data, int idClass, std::int32_t& next) {
  if (next < 1 || next > kMaxIdIndex) next = 1;
  for (int tried = 0; tried <= data.byId.count() && tried < kMaxIdIndex; ++tried) {
    const PVBid id = PVBidMake(idClass, static_cast<std::uint32_t>(next));
    next = next == kMaxIdIndex ? 1 : next + 1;
    if (findById(data, id) == nullptr) return id;
  }
  return UNDEF;
}

// --- Entering ------------------------------------------------------------------------

// Whether a record may be entered under its name; posts a name in use.
bool nameIsGood(int database, const PVBsignalData& data, const std::optional<std::string>& name,
                std::string_view function) {
  if (!name) return true;
  if (!name->empty() && findByName(data, *name) == nullptr) return true;
  PVBsetStatus(database, name->empty() ? kStatusEmptyName : kStatusNameTaken);
  if (name->empty()) return false;
  errno = 0;
  PBpostError(function, kNameExists, *name);
  return false;
}

int giveColumns(int database, PVBsignal& signal) {
  return signal.multiTrack != 0 ? PVBsignalAllocTracks(database, signal, 1)
                                : PVBsignalAllocColumns(database, signal);
}

void noteGroup(PVBsignalData& data, const PVBsignal& signal) {
  if (signal.type == MEM_GROUP && signal.name) data.allGroups.push_back(signal.id);
}

// The signal as it stands in the tables, or null with a status; id and name are free.
PVBsignal* enter(int database, PVBsignalData& data, std::unique_ptr<PVBsignal> signal) {
  PVBsignal* entered = enterSignal(data, std::move(signal));
  if (entered == nullptr) {
    PVBsetStatus(database, kStatusNoMemory);
    return nullptr;
  }
  claimColumns(data, *entered);
  return entered;
}

// What was found, when it may be deleted or renamed; else null with a status.
PVBsignal* changeable(int database, PVBsignal* found) {
  if (found == nullptr || !PVBisImplicit(database, found->id)) return found;
  PVBsetStatus(database, kStatusImplicitGroup);
  return nullptr;
}

// --- Deleting ------------------------------------------------------------------------

void removeFromLists(PVBsignalData& data, const std::unordered_set<PVBid>& gone) {
  const auto isGone = [&gone](PVBid id) { return gone.contains(id); };
  std::erase_if(data.allGroups, isGone);
  data.byId.forEach([&](PVBsignal& signal) {
    std::erase_if(signal.members, isGone);
    std::erase_if(signal.muxChildren, isGone);
    if (signal.type == kScanChainType) std::ranges::replace_if(signal.lists3, isGone, UNDEF);
  });
}

bool takeOutForGood(int database, PVBsignalData& data, PVBid id) {
  PVBsignal* signal = changeable(database, PVBsignalInqByID(database, id));
  if (signal == nullptr) return false;
  if (signal->propList != UNDEF) PVBpropListFree(database, signal->propList);
  takeOut(data, *signal);
  return true;
}

// --- Words ---------------------------------------------------------------------------

struct Word {
  std::int32_t value;
  const char* text;
};
constexpr std::array<Word, 5> kTypeNames = {{
    {MEM_SIGNAL, "MEM_SIGNAL"},
    {MEM_BUS, "MEM_BUS"},
    {MEM_GROUP, "MEM_GROUP"},
    {MEM_MUX, "MEM_MUX"},
    {MEM_MUX_BUS, "MEM_MUX_BUS"},
}};
constexpr std::array<Word, 5> kRadixNames = {
    {{0, "binary"}, {1, "octal"}, {2, "decimal"}, {3, "hexadecimal"}, {4, "symbolic"}}};

template <std::size_t Size>
const char* wordOf(const std::array<Word, Size>& words, std::int32_t value, const char* other) {
  const auto row = std::find_if(words.begin(), words.end(),
                                [value](const Word& word) { return word.value == value; });
  return row != words.end() ? row->text : other;
}

}  // namespace

void claimScanIndex(PVBsignalData& data, PVBid id) {
  if (id == kGroupAllScan) return;
  for (std::size_t i = 0; i < kScanClasses.size(); ++i) {
    if (PVBidClass(id) != kScanClasses[i].idClass) continue;
    data.nextScanIndex[i] = std::max(data.nextScanIndex[i], PVBidIndex(id) + 1);
  }
}

// --- Records -------------------------------------------------------------------------

std::unique_ptr<PVBsignal> PVBsignalNew() { return std::make_unique<PVBsignal>(); }

std::unique_ptr<PVBsignal> PVBsignalCopy(const PVBsignal& signal) {
  auto copy = std::make_unique<PVBsignal>(signal);
  copy->id = UNDEF;
  copy->propList = UNDEF;
  copy->muxPosition = kMuxUnknown;
  copy->muxParent = nullptr;
  return copy;
}

PVBid PVBsignalInsert(int database, std::unique_ptr<PVBsignal> signal) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return UNDEF;
  if (!signal) return failWith(database, kStatusNullPointer, UNDEF);
  if (!nameIsGood(database, *data, signal->name, "PVBsignalInsert")) return UNDEF;
  signal->id = takeId(*data, kClassSignal, data->nextID);
  if (signal->id == UNDEF) return failWith(database, kStatusNoMemory, UNDEF);
  PVBsignal* entered = enter(database, *data, std::move(signal));
  if (entered == nullptr) return UNDEF;
  if (entered->type == MEM_SIGNAL && giveColumns(database, *entered) != 0) {
    takeOut(*data, *entered);
    return UNDEF;
  }
  noteGroup(*data, *entered);
  return entered->id;
}

PVBid PVBsignalInsertAs(int database, std::unique_ptr<PVBsignal> signal) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return UNDEF;
  if (!signal) return failWith(database, kStatusNullPointer, UNDEF);
  if (!isSignalId(signal->id) && !isScanId(signal->id)) {
    return failWith(database, kStatusWrongClass, UNDEF);
  }
  if (findById(*data, signal->id) != nullptr) return failWith(database, kStatusInternal, UNDEF);
  if (!nameIsGood(database, *data, signal->name, "PVBsignalInsertAs")) return UNDEF;
  const PVBsignal* entered = enter(database, *data, std::move(signal));
  if (entered == nullptr) return UNDEF;
  claimScanIndex(*data, entered->id);
  noteGroup(*data, *entered);
  return entered->id;
}

PVBid PVBscanObjectInsert(int database, std::unique_ptr<PVBsignal> object) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return UNDEF;
  if (!object) return failWith(database, kStatusNullPointer, UNDEF);
  const auto row = std::find_if(kScanClasses.begin(), kScanClasses.end(),
                                [&](const ScanClass& c) { return c.type == object->type; });
  if (row == kScanClasses.end()) return failWith(database, kStatusBadType, UNDEF);
  if (!nameIsGood(database, *data, object->name, "PVBscanObjectInsert")) return UNDEF;
  auto& next = data->nextScanIndex[static_cast<std::size_t>(row - kScanClasses.begin())];
  object->id = takeId(*data, row->idClass, next);
  if (object->id == UNDEF) return failWith(database, kStatusNoMemory, UNDEF);
  const PVBsignal* entered = enter(database, *data, std::move(object));
  if (entered == nullptr) return UNDEF;
  joinScanGroup(*data, entered->id);
  return entered->id;
}

int PVBsignalDelete(int database, PVBid id) { return PVBsignalsDelete(database, {id}); }

int PVBsignalsDelete(int database, const PVBidList& ids) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return -2;
  std::unordered_set<PVBid> gone;
  for (const PVBid id : ids) {
    if (takeOutForGood(database, *data, id)) gone.insert(id);
  }
  removeFromLists(*data, gone);
  PVBpinsForgetSignals(database, gone);
  return gone.size() == ids.size() ? 0 : -2;
}

int PVBsignalRename(int database, PVBid id, std::string_view name) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return -2;
  PVBsignal* signal = changeable(database, PVBobjectInqByID(database, id));
  if (signal == nullptr) return -2;
  if (signal->name == name) return 0;
  const std::optional<std::string> newName(name);
  if (!nameIsGood(database, *data, newName, "PVBsignalRename")) return -2;
  if (signal->name) data->byName.remove(signal);
  signal->name = newName;
  noteChange(*data);
  return data->byName.insert(signal) == 0 ? 0 : failWith(database, kStatusNoMemory, -2);
}

// --- Words ---------------------------------------------------------------------------

const char* PVBsignalTypeName(std::int32_t type) { return wordOf(kTypeNames, type, "UNKNOWN"); }

const char* PVBradixName(std::int32_t radix) { return wordOf(kRadixNames, radix, "undefined"); }
