// The lists and their records: what the callers of the property section do.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <limits>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/property.h"
#include "pvb/property_internal.h"
#include "storage/cio.h"
#include "storage/swapendian.h"

namespace {

// So many records may wait for the disk before they are brought there.
constexpr std::size_t kMostUnflushed = 4096;

// The walk of PVBpropInqNext: one in the process. It lives from PVBpropInqFirst to
// the next one, or until its database is closed.
struct Iteration {
  int database = -1;
  std::optional<PropWalk> walk;
  PVBproperty current;
};
Iteration iteration;

PVBpropertyData* sectionOf(int database) {
  PVBdatabase* slot = PVBgetSection(database, kSectionProperties);
  return slot != nullptr ? slot->properties.get() : nullptr;
}

// Empty when there is no such list in use.
ListHandle getList(const PVBpropertyData& data, PVBid id) {
  if (id < 0) return {};
  ListHandle list = ListHandle::get(data.lists, static_cast<std::uint32_t>(id), typePropList);
  return list && list->inUse != 0 ? std::move(list) : ListHandle();
}

PropValues valuesOf(const PVBpropertyData& data) {
  return {data.values, data.format, data.valuesEnd, data.pathOfValues};
}

PropWalk walkOf(const PVBpropertyData& data, PVBid id) {
  const ListHandle list = getList(data, id);
  return PropWalk(valuesOf(data), list ? list->head : kNoRecord);
}

// The post of what ended a walk is printed at once; the caller goes on.
bool endWalk() {
  PBflushErrors();
  return false;
}

// To the next live record with the key.
bool nextLive(PropWalk& walk, std::int32_t key) {
  while (walk.next()) {
    const PropRecord& record = walk.record();
    if (record.valid != 0 && (key == kAnyKey || record.key == key)) return true;
  }
  return walk.failed() && endWalk();
}

bool readProperty(const PropWalk& walk, PVBproperty& out) {
  const PropRecord& record = walk.record();
  out.key = record.key;
  if (record.value == kNoRecord) {
    out.value.reset();
    return true;
  }
  if (!out.value) out.value.emplace();
  return propReadValue(walk.values(), record, *out.value) || endWalk();
}

// --- Free lists ----------------------------------------------------------------------

// The lowest free block; none when all are in use.
std::optional<std::uint32_t> takeFreedList(PVBpropertyData& data) {
  if (!data.freedLists.empty()) {
    std::pop_heap(data.freedLists.begin(), data.freedLists.end(), std::greater<>());
    const std::uint32_t block = data.freedLists.back();
    data.freedLists.pop_back();
    return block;
  }
  const std::uint32_t count = PageCount(data.lists);
  while (data.firstFreeList < count) {
    const std::uint32_t block = data.firstFreeList;
    const ListHandle list = ListHandle::get(data.lists, block, typePropList);
    if (!list) return std::nullopt;
    ++data.firstFreeList;
    if (list->inUse == 0) return block;
  }
  return std::nullopt;
}

ListHandle newListBlock(PVBpropertyData& data) {
  if (const std::optional<std::uint32_t> freed = takeFreedList(data)) {
    return ListHandle::get(data.lists, *freed, typePropList);
  }
  void* bytes = nullptr;
  const std::int64_t block = PageNewTyped(data.lists, bytes, typePropList);
  if (block < 0 || block > std::numeric_limits<PVBid>::max()) return {};
  const auto number = static_cast<std::uint32_t>(block);
  data.firstFreeList = std::max(data.firstFreeList, number + 1);
  return ListHandle(data.lists, number, bytes);
}

// --- Records -------------------------------------------------------------------------

// Writes the value and the record behind it at the end of the values; the record's
// offset, none on failure. What a failed write leaves is overwritten by the next.
std::optional<std::uint32_t> appendRecord(PVBpropertyData& data, const PVBproperty& property,
                                          std::uint32_t next) {
  PropRecord record;
  record.next = next;
  record.key = property.key;
  std::uint64_t offset = data.valuesEnd;
  const std::uint64_t length = property.value ? std::uint64_t{property.value->size()} + 1 : 0;
  if (length + offset + sizeof record >= kNoRecord) {
    errno = EFBIG;
    return std::nullopt;
  }
  if (propOwnValues(data) != 0) return std::nullopt;
  if (PBcfseek(data.values, data.valuesEnd, SEEK_SET) != 0) return std::nullopt;
  if (property.value) {
    const std::int64_t written = PBcfwrite(data.values, property.value->c_str(), length);
    if (written != static_cast<std::int64_t>(length)) return std::nullopt;
    record.value = data.valuesEnd;
    record.length = static_cast<std::uint32_t>(length);
    offset += length;
  }
  if (!propWriteRecord(data.values, record)) return std::nullopt;
  data.valuesEnd = static_cast<std::uint32_t>(offset + sizeof record);
  return static_cast<std::uint32_t>(offset);
}

void noteOldHead(PVBpropertyData& data, PVBid list, std::uint32_t head) {
  if (data.unflushed.size() >= kMostUnflushed && PBcfflush(data.values) == 0) {
    data.unflushed.clear();
  }
  data.unflushed.push_back({list, head});
}

bool matches(const PropWalk& walk, const PVBproperty& property, bool& same) {
  same = walk.record().valid != 0 && walk.record().key == property.key;
  if (!same || !property.value) return true;
  return propSameValue(walk.values(), walk.record(), *property.value, same);
}

bool markDead(PVBpropertyData& data, std::uint32_t record) {
  if (propOwnValues(data) != 0) return false;
  const std::int64_t place = std::int64_t{record} + std::int64_t{offsetof(PropRecord, valid)};
  if (PBcfseek(data.values, place, SEEK_SET) != 0) return false;
  return PBcfputc(data.values, 0) == 0;
}

struct LiveRecord {
  std::uint32_t offset;
  std::int32_t key;
};

// The live records of a list, the newest first.
std::vector<LiveRecord> liveRecords(const PVBpropertyData& data, PVBid list) {
  std::vector<LiveRecord> records;
  PropWalk walk = walkOf(data, list);
  while (nextLive(walk, kAnyKey)) records.push_back({walk.offset(), walk.record().key});
  return records;
}

// The value of a record; false where it can't be read.
bool readValueAt(const PropValues& values, std::uint32_t offset, PVBproperty& out) {
  PropWalk walk(values, offset);
  return walk.next() ? readProperty(walk, out) : endWalk();
}

}  // namespace

void propForgetWalk(int database) {
  if (iteration.database == database) iteration = {};
}

PVBid PVBpropListNew(int database) {
  PVBpropertyData* data = sectionOf(database);
  if (data == nullptr) return UNDEF;
  ListHandle list = newListBlock(*data);
  if (!list) return UNDEF;
  *list = {kNoRecord, 1, {}};
  list.markDirty();
  data->dirty = true;
  data->needRewrite = true;
  return static_cast<PVBid>(list.block());
}

void PVBpropListFree(int database, PVBid id) {
  PVBpropertyData* data = sectionOf(database);
  if (data == nullptr) return;
  ListHandle list = getList(*data, id);
  if (!list) return;
  list->inUse = 0;
  list.markDirty();
  if (list.block() < data->firstFreeList) {
    data->freedLists.push_back(list.block());
    std::push_heap(data->freedLists.begin(), data->freedLists.end(), std::greater<>());
  }
  data->dirty = true;
  data->hasGarbage = true;
}

bool PVBpropListExists(int database, PVBid id) {
  const PVBpropertyData* data = sectionOf(database);
  return data != nullptr && getList(*data, id);
}

bool PVBpropListIsUnused(int database, PVBid id) {
  const PVBpropertyData* data = sectionOf(database);
  if (data == nullptr) return true;
  const ListHandle list = getList(*data, id);
  return !list || list->head == kNoRecord;
}

int PVBputProp(int database, PVBid id, const PVBproperty& property) {
  PVBpropertyData* data = sectionOf(database);
  if (data == nullptr) return -2;
  ListHandle list = getList(*data, id);
  if (!list) return -2;
  noteOldHead(*data, id, list->head);
  const std::optional<std::uint32_t> record = appendRecord(*data, property, list->head);
  list->head = record.value_or(kNoRecord);
  list.markDirty();
  data->dirty = true;
  if (record) return 0;
  PBpostError("PVBputProp", 85, data->pathOfValues);
  return -2;
}

int PVBdelProp(int database, PVBid id, const PVBproperty& property) {
  PVBpropertyData* data = sectionOf(database);
  if (data == nullptr) return -2;
  PropWalk walk = walkOf(*data, id);
  bool same = false;
  bool readable = true;
  while (readable && walk.next()) {
    readable = matches(walk, property, same);
    if (!readable || !same) continue;
    if (!markDead(*data, walk.offset())) {
      PBpostError("PVBdelProp", 85, data->pathOfValues);
      return -2;
    }
    data->dirty = true;
    data->hasGarbage = true;
  }
  if (walk.failed() || !readable) endWalk();
  return 0;
}

const PVBproperty* PVBpropInqFirst(int database, PVBid list) {
  return PVBpropInqFirstKey(database, list, kAnyKey);
}

const PVBproperty* PVBpropInqNext(int database) { return PVBpropInqNextKey(database, kAnyKey); }

const PVBproperty* PVBpropInqFirstKey(int database, PVBid list, std::int32_t key) {
  iteration.walk.reset();
  const PVBpropertyData* data = sectionOf(database);
  if (data == nullptr) return nullptr;
  iteration.database = database;
  iteration.walk = walkOf(*data, list);
  return PVBpropInqNextKey(database, key);
}

const PVBproperty* PVBpropInqNextKey(int database, std::int32_t key) {
  if (iteration.database != database || !iteration.walk) return nullptr;
  if (nextLive(*iteration.walk, key) && readProperty(*iteration.walk, iteration.current)) {
    return &iteration.current;
  }
  iteration.walk.reset();
  return nullptr;
}

std::optional<std::string> PVBpropGet(int database, PVBid list, std::int32_t key) {
  const PVBpropertyData* data = sectionOf(database);
  if (data == nullptr) return std::nullopt;
  PropWalk walk = walkOf(*data, list);
  PVBproperty property;
  if (!nextLive(walk, key) || !readProperty(walk, property)) return std::nullopt;
  return property.value;
}

PVBid PVBpropListDup(int database, PVBid list) {
  const PVBpropertyData* data = sectionOf(database);
  if (data == nullptr || !PVBpropListExists(database, list)) return UNDEF;
  const std::vector<LiveRecord> records = liveRecords(*data, list);
  const PropValues values = valuesOf(*data);
  const PVBid copy = PVBpropListNew(database);
  bool good = copy != UNDEF;
  PVBproperty property;
  for (auto record = records.rbegin(); good && record != records.rend(); ++record) {
    good =
        readValueAt(values, record->offset, property) && PVBputProp(database, copy, property) == 0;
  }
  if (good || copy == UNDEF) return copy;
  PVBpropListFree(database, copy);
  return UNDEF;
}

int PVBpropListAppend(int database, PVBid list, int fromDatabase, PVBid fromList, PropKinds kinds) {
  const PVBpropertyData* data = sectionOf(fromDatabase);
  if (data == nullptr) return 0;
  const std::vector<LiveRecord> records = liveRecords(*data, fromList);
  const PropValues values = valuesOf(*data);
  PVBproperty property;
  for (std::size_t i = records.size(); i-- > 0;) {
    if (!readValueAt(values, records[i].offset, property)) continue;
    if (kinds == PropKinds::reversed) property.key = records[records.size() - 1 - i].key;
    if (PVBputProp(database, list, property) != 0) return -2;
  }
  return 0;
}

PVBid PVBpropListCarry(int database, int fromDatabase, PVBid fromList) {
  const PVBid list = PVBpropListNew(database);
  if (list == UNDEF) return UNDEF;
  const int result = PVBpropListAppend(database, list, fromDatabase, fromList, PropKinds::kept);
  return result == 0 ? list : UNDEF;
}
