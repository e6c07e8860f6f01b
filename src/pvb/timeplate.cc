#include "pvb/timeplate.h"

#include <algorithm>
#include <cerrno>
#include <functional>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/timeplate_internal.h"

namespace {

constexpr const char* kFileName = "pvb.tp";
constexpr std::uint32_t kModeBits = 0xFF;

PVBtimePlateData* loaded(int database) {
  const PVBdatabase* slot = PVBgetSection(database, kSectionTimePlates);
  return slot != nullptr ? slot->timePlates.get() : nullptr;
}

int highestVersion(const PVBdatabase& slot) {
  return slot.version >= 1000 ? kExtendedPlateFile : kClassicPlateFile;
}

int fail(int database, std::int32_t status) {
  PVBsetStatus(database, status);
  return -2;
}

PVBid failId(int database, std::int32_t status) {
  PVBsetStatus(database, status);
  return UNDEF;
}

PVBtimePlate* find(const PVBtimePlateData& data, PVBid id) {
  if (id < 0 || static_cast<std::size_t>(id) >= data.plates.size()) return nullptr;
  return data.plates[static_cast<std::size_t>(id)].get();
}

// A plate whose name was changed behind the index's back isn't found by the old one.
PVBtimePlate* findByName(const PVBtimePlateData& data, std::string_view name) {
  const auto found = data.byName.find(std::string(name));
  if (found == data.byName.end()) return nullptr;
  PVBtimePlate* plate = find(data, found->second);
  return plate != nullptr && plate->name == name ? plate : nullptr;
}

void dropName(PVBtimePlateData& data, const PVBtimePlate& plate) {
  data.takenNumbers.clear();
  if (plate.name && findByName(data, *plate.name) == &plate) data.byName.erase(*plate.name);
}

bool nameInUse(const PVBtimePlateData& data, const PVBtimePlate& plate) {
  return plate.name && findByName(data, *plate.name) != nullptr;
}

void fillFirstFree(PVBtimePlateData& data) {
  data.tpFirstFree.clear();
  for (std::size_t i = data.plates.size(); i-- > 0;) {
    if (data.plates[i] == nullptr) data.tpFirstFree.push_back(static_cast<PVBid>(i));
  }
}

// The place of an id in the stack, which falls to its top.
auto freePlace(PVBtimePlateData& data, PVBid id) {
  auto& stack = data.tpFirstFree;
  return std::lower_bound(stack.begin(), stack.end(), id, std::greater<>());
}

// Takes an id out of the stack; one beyond the table leaves a hole up to it.
void takeId(PVBtimePlateData& data, PVBid id) {
  const auto size = static_cast<PVBid>(data.plates.size());
  if (id < size) {
    data.tpFirstFree.erase(freePlace(data, id));
    return;
  }
  PVBidList holes;
  for (PVBid hole = id - 1; hole >= size; --hole) holes.push_back(hole);
  data.tpFirstFree.insert(data.tpFirstFree.begin(), holes.begin(), holes.end());
}

int readError(const std::string& path, int code) {
  PBpostError("PVBtimePlateOpen", code, path);
  return -2;
}

}  // namespace

bool tpEnter(PVBtimePlateData& data, std::unique_ptr<PVBtimePlate> plate) {
  const PVBid id = plate->id;
  if (id < 0 || id > kMaxTimePlate || find(data, id) != nullptr || nameInUse(data, *plate)) {
    return false;
  }
  if (plate->name) data.byName[*plate->name] = id;
  PVBtimePlateRebuildMaps(*plate);
  const auto place = static_cast<std::size_t>(id);
  if (place >= data.plates.size()) data.plates.resize(place + 1);
  data.plates[place] = std::move(plate);
  return true;
}

// --- The section ---------------------------------------------------------------------

int PVBtimePlateOpen(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  slot->timePlates = std::make_unique<PVBtimePlateData>();
  slot->sectionsOpen |= kSectionTimePlates;
  const std::string path = PVBfilePath(slot->path, kFileName);
  SectionReader reader;
  const SectionOpen opened = reader.open(path);
  if (opened == SectionOpen::missing) return 0;
  if (opened == SectionOpen::failed) return readError(path, 81);
  errno = 0;
  const bool whole = tpReadFile(reader, *slot->timePlates, highestVersion(*slot));
  const bool closed = reader.close();
  fillFirstFree(*slot->timePlates);
  return whole && closed ? 0 : readError(path, 87);
}

int PVBtimePlateSave(int database, const std::string& directory) {
  const PVBdatabase* slot = PVBgetSection(database, kSectionTimePlates);
  if (slot == nullptr) return -2;
  const bool own = directory.empty() || directory == slot->path;
  const std::string path = PVBfilePath(own ? slot->path : directory, kFileName);
  SectionWriter writer;
  if (!writer.open(path, SectionWriter::Storage::compressed)) {
    PBpostError("PVBtimePlateSave", 81, path);
    return -2;
  }
  if (!tpWriteFile(writer, *slot->timePlates, highestVersion(*slot)) || !writer.commit()) {
    PBpostError("PVBtimePlateSave", 85, path);
    return -2;
  }
  if (own) slot->timePlates->changed = false;
  return 0;
}

int PVBtimePlateClose(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  slot->timePlates.reset();
  slot->sectionsOpen &= ~static_cast<std::uint32_t>(kSectionTimePlates);
  return 0;
}

// --- Plates --------------------------------------------------------------------------

std::unique_ptr<PVBtimePlate> PVBtimePlateNew() { return std::make_unique<PVBtimePlate>(); }

PVBid PVBtimePlateInsert(int database, std::unique_ptr<PVBtimePlate> plate) {
  PVBtimePlateData* data = loaded(database);
  if (data == nullptr) return UNDEF;
  if (plate == nullptr) return failId(database, kStatusNullPointer);
  plate->id = data->tpFirstFree.empty() ? static_cast<PVBid>(data->plates.size())
                                        : data->tpFirstFree.back();
  if (plate->id > kMaxTimePlate) {
    errno = 0;
    PBpostError("(PVB)tpStore", 82);
  }
  return PVBtimePlateInsertAs(database, std::move(plate));
}

PVBid PVBtimePlateInsertAs(int database, std::unique_ptr<PVBtimePlate> plate) {
  PVBtimePlateData* data = loaded(database);
  if (data == nullptr) return UNDEF;
  if (plate == nullptr) return failId(database, kStatusNullPointer);
  if (nameInUse(*data, *plate)) return failId(database, kStatusNameTaken);
  const PVBid id = plate->id;
  if (id < 0 || id > kMaxTimePlate || find(*data, id) != nullptr) {
    return failId(database, kStatusOutOfBounds);
  }
  takeId(*data, id);
  tpEnter(*data, std::move(plate));
  data->changed = true;
  return id;
}

PVBtimePlate* PVBtimePlateInqByID(int database, PVBid id) {
  const PVBtimePlateData* data = loaded(database);
  return data != nullptr ? find(*data, id) : nullptr;
}

PVBtimePlate* PVBtimePlateInqByName(int database, std::string_view name) {
  const PVBtimePlateData* data = loaded(database);
  return data != nullptr ? findByName(*data, name) : nullptr;
}

std::string PVBtimePlateFreeName(int database, std::string_view base) {
  std::string name(base);
  PVBtimePlateData* data = loaded(database);
  if (data == nullptr || findByName(*data, name) == nullptr) return name;
  std::int32_t& taken = data->takenNumbers[name];
  for (;;) {
    std::string numbered = name + "_" + std::to_string(taken + 1);
    if (findByName(*data, numbered) == nullptr) return numbered;
    ++taken;
  }
}

const PVBidList& PVBtimePlateInqAll(int database) {
  static PVBidList ids;  // of the last call
  ids.clear();
  if (const PVBtimePlateData* data = loaded(database)) {
    for (const auto& plate : data->plates) {
      if (plate != nullptr) ids.push_back(plate->id);
    }
  }
  return ids;
}

int PVBtimePlateCount(int database) {
  const PVBtimePlateData* data = loaded(database);
  if (data == nullptr) return 0;
  return static_cast<int>(data->plates.size() - data->tpFirstFree.size());
}

int PVBtimePlateDelete(int database, PVBid id) {
  PVBtimePlateData* data = loaded(database);
  if (data == nullptr) return -2;
  const PVBtimePlate* plate = find(*data, id);
  if (plate == nullptr) return fail(database, kStatusNotInUse);
  dropName(*data, *plate);
  data->plates[static_cast<std::size_t>(id)].reset();
  data->tpFirstFree.insert(freePlace(*data, id), id);
  data->changed = true;
  return 0;
}

int PVBtimePlateRename(int database, PVBid id, std::string_view name) {
  PVBtimePlateData* data = loaded(database);
  if (data == nullptr) return -2;
  PVBtimePlate* plate = find(*data, id);
  if (plate == nullptr) return fail(database, kStatusNotInUse);
  if (name.empty()) return fail(database, kStatusEmptyName);
  if (plate->name && *plate->name == name) return 0;
  if (findByName(*data, name) != nullptr) return fail(database, kStatusNameTaken);
  dropName(*data, *plate);
  plate->name = name;
  data->byName[*plate->name] = id;
  return 0;
}

std::unique_ptr<PVBtimePlate> PVBtimePlateCopy(const PVBtimePlate& plate) {
  auto copy = std::make_unique<PVBtimePlate>(plate);
  copy->id = UNDEF;
  copy->used = false;
  return copy;
}

TIME PVBtimePlatePeriod(int database, PVBid id) {
  const PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || slot->timePlates == nullptr) return TIME_ZERO;
  const PVBtimePlate* plate = find(*slot->timePlates, id);
  return plate != nullptr ? plate->period : TIME_ZERO;
}

// --- P mode, flags, cycles -----------------------------------------------------------

namespace {

int setWordBits(int database, std::uint32_t mask, std::uint32_t bits) {
  PVBtimePlateData* data = loaded(database);
  if (data == nullptr) return -2;
  const std::uint32_t word = static_cast<std::uint32_t>(data->tpVersion);
  data->tpVersion = static_cast<std::int32_t>((word & ~mask) | (bits & mask));
  data->changed = data->changed || word != static_cast<std::uint32_t>(data->tpVersion);
  return 0;
}

}  // namespace

std::int32_t PVBpmode(int database) {
  const PVBtimePlateData* data = loaded(database);
  if (data == nullptr) return LAST_FORCE;
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(data->tpVersion) & kModeBits);
}

int PVBsetPmode(int database, std::int32_t mode) {
  return setWordBits(database, kModeBits, static_cast<std::uint32_t>(mode));
}

std::uint32_t PVBdatabaseFlags(int database) {
  const PVBtimePlateData* data = loaded(database);
  return data != nullptr ? static_cast<std::uint32_t>(data->tpVersion) & ~kModeBits : 0;
}

int PVBsetDatabaseFlags(int database, std::uint32_t flags) {
  return setWordBits(database, ~kModeBits, flags);
}

int PVBcycleCreate(int database, std::string_view name, TIME time) {
  constexpr std::int16_t kGrowth = 8;
  constexpr std::size_t kMaxCycles = INT16_MAX - kGrowth;
  PVBtimePlateData* data = loaded(database);
  if (data == nullptr) return -1;
  std::int32_t index = 0;
  for (const PVBcycle& cycle : data->cycleTable) {
    if (cycle.name == name) return failId(database, kStatusNameTaken);
    index = std::max(index, cycle.index + 1);
  }
  if (std::max<std::size_t>(data->cycleTable.size(), static_cast<std::size_t>(index)) >=
      kMaxCycles) {
    return failId(database, kStatusOutOfBounds);
  }
  if (index >= data->cycleCapacity) {
    data->cycleCapacity = static_cast<std::int16_t>(index + kGrowth);
  }
  data->cycleTable.push_back({index, std::string(name), time});
  data->changed = true;
  return index;
}
