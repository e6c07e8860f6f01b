#include "pvb/pin.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "base/text.h"
#include "pvb/database.h"
#include "pvb/pin_internal.h"
#include "pvb/property.h"
#include "pvb/signal.h"

namespace {

// Buckets come with the row width, which a damaged header may have set.
constexpr int kMostBuckets = 1 << 16;
constexpr int kSpareBuckets = 4;

// --- Tables --------------------------------------------------------------------------

template <typename Record>
int compareIds(const void* probe, const void* member) {
  return static_cast<const Record*>(probe)->id == static_cast<const Record*>(member)->id ? 0 : 1;
}
template <typename Record>
int hashId(const void* member) {
  return static_cast<const Record*>(member)->id;
}

template <std::optional<std::string> PVBpin::*Field>
int compareTexts(const void* probe, const void* member) {
  return static_cast<const PVBpin*>(probe)->*Field == static_cast<const PVBpin*>(member)->*Field
             ? 0
             : 1;
}
template <std::optional<std::string> PVBpin::*Field>
int hashText(const void* member) {
  return PBstrHash(static_cast<const PVBpin*>(member)->*Field);
}

int compareNumbers(const void* probe, const void* member) {
  const auto* wanted = static_cast<const PVBcolumn*>(probe);
  return wanted->number == static_cast<const PVBcolumn*>(member)->number ? 0 : 1;
}
int hashNumber(const void* member) { return static_cast<const PVBcolumn*>(member)->number; }

// The tables of one kind of pin.
struct PinTables {
  HashTable<PVBpin>& byId;
  HashTable<PVBpin>& byName;
  HashTable<PVBpin>& byNode;
};

PinTables tablesOf(PVBpinData& data, PinKind kind) {
  if (kind == PinKind::ate) return {data.atePins, data.ateByName, data.ateByNode};
  return {data.dutPins, data.dutByName, data.dutByNode};
}

template <typename Record>
Record* findId(const HashTable<Record>& table, PVBid id) {
  Record probe;
  probe.id = id;
  return table.find(probe);
}

template <typename Record>
void freeAll(HashTable<Record>& table) {
  table.forEach([&](Record& record) {
    table.remove(&record);
    const std::unique_ptr<Record> owned(&record);
  });
}

PVBpinData* sectionOf(int database) {
  PVBdatabase* slot = PVBgetSection(database, kSectionPins);
  return slot != nullptr ? slot->pins.get() : nullptr;
}

// --- Ids -----------------------------------------------------------------------------

// The next id that isn't in use in the table; -1 is never given.
template <typename Record>
PVBid takeNextId(PVBpinData& data, const HashTable<Record>& table) {
  PVBid id = UNDEF;
  do {
    id = data.nextID;
    if (id < 1 || id == std::numeric_limits<PVBid>::max()) id = 1;
    data.nextID = id + 1;
  } while (findId(table, id) != nullptr);
  return id;
}

PVBid insertPin(int database, PinKind kind, std::unique_ptr<PVBpin> pin) {
  PVBpinData* data = sectionOf(database);
  if (data == nullptr || !pin) return UNDEF;
  pin->id = takeNextId(*data, tablesOf(*data, kind).byId);
  const PVBid id = pin->id;
  if (!enterPin(*data, kind, std::move(pin))) return UNDEF;
  data->changed = true;
  return id;
}

// --- Look-up -------------------------------------------------------------------------

PVBpin* pinById(int database, PinKind kind, PVBid id) {
  PVBpinData* data = sectionOf(database);
  return data != nullptr ? findId(tablesOf(*data, kind).byId, id) : nullptr;
}

PVBpin* pinByName(int database, PinKind kind, std::string_view name) {
  PVBpinData* data = sectionOf(database);
  if (data == nullptr) return nullptr;
  PVBpin probe;
  probe.name = name;
  return tablesOf(*data, kind).byName.find(probe);
}

PVBpin* pinByNode(int database, PinKind kind, std::string_view node) {
  PVBpinData* data = sectionOf(database);
  if (data == nullptr) return nullptr;
  PVBpin probe;
  probe.node = node;
  return tablesOf(*data, kind).byNode.find(probe);
}

template <typename Record>
Record* first(int database, HashTable<Record> PVBpinData::*table) {
  const PVBpinData* data = sectionOf(database);
  return data != nullptr ? static_cast<Record*>(PBhashFirst((data->*table).handle())) : nullptr;
}

template <typename Record>
Record* next(int database, HashTable<Record> PVBpinData::*table) {
  const PVBpinData* data = sectionOf(database);
  return data != nullptr ? static_cast<Record*>(PBhashNext((data->*table).handle())) : nullptr;
}

// --- Deleting ------------------------------------------------------------------------

// Takes an id out of one list of each signal named.
void removeFromSignals(int database, const PVBidList& signals, PVBidList PVBsignal::*list,
                       PVBid id) {
  const PVBdatabase* slot = PVBgetSection(database, kSectionSignals);
  if (slot == nullptr || !slot->signals) return;
  for (const PVBid signalId : signals) {
    PVBsignal* signal = PVBsignalInqByID(database, signalId);
    if (signal == nullptr || PVBidListRemove(signal->*list, id) == 0) continue;
    slot->signals->changed = true;
  }
}

// The same for the records of a table.
template <typename Record>
void removeFromAll(const HashTable<Record>& table, const PVBidList& ids, PVBidList Record::*list,
                   PVBid id) {
  for (const PVBid other : ids) {
    Record* record = findId(table, other);
    if (record != nullptr) PVBidListRemove(record->*list, id);
  }
}

// The record out of its tables; the caller's from then on.
std::unique_ptr<PVBpin> takePin(PVBpinData& data, PinKind kind, PVBid id) {
  const PinTables tables = tablesOf(data, kind);
  std::unique_ptr<PVBpin> pin(findId(tables.byId, id));
  if (!pin) return nullptr;
  tables.byId.remove(pin.get());
  if (pin->name) tables.byName.remove(pin.get());
  if (pin->node) tables.byNode.remove(pin.get());
  if (kind == PinKind::ate) data.atePinCount = std::max(data.atePinCount - 1, 0);
  return pin;
}

int deletePin(int database, PinKind kind, PVBid id) {
  PVBpinData* data = sectionOf(database);
  if (data == nullptr) return -2;
  if (id == UNDEF) return 0;
  const std::unique_ptr<PVBpin> pin = takePin(*data, kind, id);
  if (!pin) return 0;
  const bool ate = kind == PinKind::ate;
  removeFromSignals(database, pin->signals, ate ? &PVBsignal::lists3 : &PVBsignal::lists4, id);
  removeFromAll(data->atePins, pin->linkedPins, &PVBpin::linkedPins, id);
  removeFromAll(data->dutPins, pin->linkedPins, &PVBpin::linkedPins, id);
  removeFromAll(data->columns, pin->columns, ate ? &PVBcolumn::atePins : &PVBcolumn::dutPins, id);
  if (pin->propList != UNDEF) PVBpropListFree(database, pin->propList);
  data->changed = true;
  return 0;
}

}  // namespace

PVBpinData::PVBpinData(int buckets)
    : atePins(buckets, compareIds<PVBpin>, hashId<PVBpin>),
      dutPins(buckets, compareIds<PVBpin>, hashId<PVBpin>),
      columns(buckets, compareIds<PVBcolumn>, hashId<PVBcolumn>),
      ateByName(buckets, compareTexts<&PVBpin::name>, hashText<&PVBpin::name>),
      dutByName(buckets, compareTexts<&PVBpin::name>, hashText<&PVBpin::name>),
      ateByNode(buckets, compareTexts<&PVBpin::node>, hashText<&PVBpin::node>),
      dutByNode(buckets, compareTexts<&PVBpin::node>, hashText<&PVBpin::node>),
      columnsByNumber(buckets, compareNumbers, hashNumber) {}

PVBpinData::~PVBpinData() {
  freeAll(atePins);
  freeAll(dutPins);
  freeAll(columns);
}

// --- Entering ------------------------------------------------------------------------

std::int32_t pinNumber(const std::optional<std::string>& node) {
  if (!node) return -1;
  const char* at = node->data();
  const char* end = at + node->size();
  while (at != end && PBisSpace(*at)) ++at;
  if (at == end || *at < '0' || *at > '9') return -1;
  std::int32_t value = -1;
  const auto [rest, error] = std::from_chars(at, end, value);
  const bool alone = std::all_of(rest, end, PBisSpace);
  return error == std::errc() && alone ? value : -1;
}

bool enterPin(PVBpinData& data, PinKind kind, std::unique_ptr<PVBpin> pin) {
  const PinTables tables = tablesOf(data, kind);
  pin->number = pinNumber(pin->node);
  const bool entered = tables.byId.insert(pin.get()) == 0 &&
                       (!pin->name || tables.byName.insert(pin.get()) == 0) &&
                       (!pin->node || tables.byNode.insert(pin.get()) == 0);
  if (!entered) {
    tables.byId.remove(pin.get());
    tables.byName.remove(pin.get());
    return false;
  }
  if (kind == PinKind::ate) ++data.atePinCount;
  static_cast<void>(pin.release());  // the table by id owns it
  return true;
}

bool enterColumn(PVBpinData& data, std::unique_ptr<PVBcolumn> column) {
  const bool entered = data.columns.insert(column.get()) == 0 &&
                       (column->number == -1 || data.columnsByNumber.insert(column.get()) == 0);
  if (!entered) {
    data.columns.remove(column.get());
    return false;
  }
  static_cast<void>(column.release());  // the table by id owns it
  return true;
}

std::unique_ptr<PVBpin> PVBpinNew() { return std::make_unique<PVBpin>(); }

std::unique_ptr<PVBcolumn> PVBcolumnNew() { return std::make_unique<PVBcolumn>(); }

PVBid PVBatePinInsert(int database, std::unique_ptr<PVBpin> pin) {
  return insertPin(database, PinKind::ate, std::move(pin));
}

PVBid PVBdutPinInsert(int database, std::unique_ptr<PVBpin> pin) {
  return insertPin(database, PinKind::dut, std::move(pin));
}

PVBid PVBcolumnInsert(int database, std::unique_ptr<PVBcolumn> column) {
  PVBpinData* data = sectionOf(database);
  if (data == nullptr || !column) return UNDEF;
  column->id = takeNextId(*data, data->columns);
  return PVBcolumnInsertAs(database, std::move(column));
}

PVBid PVBpinInsertAs(int database, PinKind kind, std::unique_ptr<PVBpin> pin) {
  PVBpinData* data = sectionOf(database);
  if (data == nullptr || !pin || pin->id == UNDEF) return UNDEF;
  const PVBid id = pin->id;
  if (findId(tablesOf(*data, kind).byId, id) != nullptr) return UNDEF;
  if (!enterPin(*data, kind, std::move(pin))) return UNDEF;
  data->changed = true;
  return id;
}

PVBid PVBcolumnInsertAs(int database, std::unique_ptr<PVBcolumn> column) {
  PVBpinData* data = sectionOf(database);
  if (data == nullptr || !column || column->id == UNDEF) return UNDEF;
  const PVBid id = column->id;
  if (findId(data->columns, id) != nullptr) return UNDEF;
  if (!enterColumn(*data, std::move(column))) return UNDEF;
  data->changed = true;
  return id;
}

// --- The section ---------------------------------------------------------------------

int PVBpinsOpen(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  if (slot->pins) return 0;
  const int buckets = std::clamp(slot->rowWidth, 0, kMostBuckets) + kSpareBuckets;
  auto data = std::make_unique<PVBpinData>(buckets);
  if (pinDataRead(database, *data) != 0) return -2;
  slot->pins = std::move(data);
  slot->sectionsOpen |= kSectionPins;
  return 0;
}

int PVBpinsClose(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  slot->pins.reset();
  slot->sectionsOpen &= ~static_cast<std::uint32_t>(kSectionPins);
  return 0;
}

// --- Look-up and walks ---------------------------------------------------------------

PVBpin* PVBatePinInqByID(int database, PVBid id) { return pinById(database, PinKind::ate, id); }
PVBpin* PVBdutPinInqByID(int database, PVBid id) { return pinById(database, PinKind::dut, id); }

PVBcolumn* PVBcolumnInqByID(int database, PVBid id) {
  const PVBpinData* data = sectionOf(database);
  return data != nullptr ? findId(data->columns, id) : nullptr;
}

PVBpin* PVBatePinInqByName(int database, std::string_view name) {
  return pinByName(database, PinKind::ate, name);
}
PVBpin* PVBdutPinInqByName(int database, std::string_view name) {
  return pinByName(database, PinKind::dut, name);
}
PVBpin* PVBatePinInqByNode(int database, std::string_view node) {
  return pinByNode(database, PinKind::ate, node);
}
PVBpin* PVBdutPinInqByNode(int database, std::string_view node) {
  return pinByNode(database, PinKind::dut, node);
}

PVBcolumn* PVBcolumnInqByNumber(int database, std::int32_t number) {
  const PVBpinData* data = sectionOf(database);
  if (data == nullptr) return nullptr;
  PVBcolumn probe;
  probe.number = number;
  return data->columnsByNumber.find(probe);
}

PVBpin* PVBatePinFirst(int database) { return first(database, &PVBpinData::atePins); }
PVBpin* PVBatePinNext(int database) { return next(database, &PVBpinData::atePins); }
PVBpin* PVBdutPinFirst(int database) { return first(database, &PVBpinData::dutPins); }
PVBpin* PVBdutPinNext(int database) { return next(database, &PVBpinData::dutPins); }
PVBcolumn* PVBcolumnFirst(int database) { return first(database, &PVBpinData::columns); }
PVBcolumn* PVBcolumnNext(int database) { return next(database, &PVBpinData::columns); }

// --- Deleting ------------------------------------------------------------------------

int PVBatePinDelete(int database, PVBid id) { return deletePin(database, PinKind::ate, id); }
int PVBdutPinDelete(int database, PVBid id) { return deletePin(database, PinKind::dut, id); }

int PVBcolumnDelete(int database, PVBid id) {
  PVBpinData* data = sectionOf(database);
  if (data == nullptr) return -2;
  const std::unique_ptr<PVBcolumn> column(id != UNDEF ? findId(data->columns, id) : nullptr);
  if (!column) return 0;
  data->columns.remove(column.get());
  data->columnsByNumber.remove(column.get());
  removeFromSignals(database, column->signals, &PVBsignal::lists5, id);
  removeFromAll(data->atePins, column->atePins, &PVBpin::columns, id);
  removeFromAll(data->dutPins, column->dutPins, &PVBpin::columns, id);
  data->changed = true;
  return 0;
}

void PVBpinsForgetSignals(int database, const std::unordered_set<PVBid>& signals) {
  const PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || !slot->pins) return;
  PVBpinData& data = *slot->pins;
  const auto forget = [&](auto& record) {
    const auto forgotten =
        std::erase_if(record.signals, [&signals](PVBid id) { return signals.contains(id); });
    data.changed = data.changed || forgotten > 0;
  };
  data.atePins.forEach(forget);
  data.dutPins.forEach(forget);
  data.columns.forEach(forget);
}
