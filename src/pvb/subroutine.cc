#include <algorithm>
#include <cerrno>
#include <string>

#include "base/errors.h"
#include "base/text.h"
#include "pvb/pattern_internal.h"
#include "pvb/section_text.h"

namespace {

constexpr std::size_t kTableGrowth = 8;
// More than any pattern has, and little enough that a damaged file can't ask for
// memory without end.
constexpr std::size_t kMaxSubroutines = 65536;
constexpr int kFileVersion = 1;
// The shortest line of the file.
constexpr std::size_t kMinRecordBytes = 16;

// --- The table -----------------------------------------------------------------------

// The first free slot; the table's size when there is none.
std::size_t freeSlot(const PVBpatternData& data) {
  const auto isFree = [](const PVBsubroutine& s) { return s.root == kNoNode; };
  const auto place = std::find_if(data.subroutines.begin(), data.subroutines.end(), isFree);
  return static_cast<std::size_t>(place - data.subroutines.begin());
}

bool growTable(PVBpatternData& data) {
  if (data.subroutines.size() + kTableGrowth > kMaxSubroutines) {
    errno = 0;
    PBpostError("PVBpattern", 82);
    return false;
  }
  data.subroutines.resize(data.subroutines.size() + kTableGrowth);
  return true;
}

// The first one in use from `index` on, or -1.
int nextInUse(const PVBpatternData& data, int index) {
  for (; index < static_cast<int>(data.subroutines.size()); ++index) {
    if (data.subroutines[static_cast<std::size_t>(index)].root != kNoNode) return index;
  }
  return -1;
}

template <typename Same>
int findByName(int database, Same same) {
  const PVBpatternData* data = patternData(database);
  if (data == nullptr) return -1;
  const auto& table = data->subroutines;
  const auto place = std::find_if(table.begin(), table.end(), [&](const PVBsubroutine& s) {
    return s.root != kNoNode && s.name && same(*s.name);
  });
  return place != table.end() ? static_cast<int>(place - table.begin()) : -1;
}

int refuseName(int database, std::int32_t status) {
  PVBsetStatus(database, status);
  return -1;
}

}  // namespace

int PVBsubroutineNew(int database, std::string_view name) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return -1;
  if (name.empty()) return refuseName(database, kStatusEmptyName);
  if (PVBsubroutineByName(database, name) >= 0) return refuseName(database, kStatusNameTaken);
  const std::size_t index = freeSlot(*data);
  if (index == data->subroutines.size() && !growTable(*data)) return -1;
  const std::int64_t root = PVBtreeNew(data->nodes);
  if (root < 0) return -1;
  data->subroutines[index] = {};
  data->subroutines[index].root = static_cast<std::uint32_t>(root);
  data->subroutines[index].name = std::string(name);
  data->changed = true;
  return static_cast<int>(index);
}

// What still calls it stands for nothing from then on.
int PVBsubroutineDelete(int database, int index) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr || index < 0) return -2;
  if (findSubroutine(*data, static_cast<std::uint32_t>(index)) == nullptr) return -2;
  callGraph(database, *data);
  PVBsubroutine& subroutine = data->subroutines[static_cast<std::size_t>(index)];
  const std::uint32_t root = subroutine.root;
  subroutine = {};
  data->changed = true;
  const int result = freeTreeDeep(database, *data, index, root);
  return noteChanged(database, *data, {index}) == 0 ? result : -2;
}

int PVBsubroutineFirst(int database) {
  PVBpatternData* data = patternData(database);
  if (data != nullptr) data->cursor = -1;
  return PVBsubroutineNext(database);
}

int PVBsubroutineNext(int database) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return -1;
  const int index = nextInUse(*data, data->cursor + 1);
  data->cursor = index >= 0 ? index : static_cast<int>(data->subroutines.size());
  return index;
}

const PVBsubroutine* PVBsubroutineInq(int database, int index) {
  const PVBpatternData* data = patternData(database);
  return data != nullptr ? findSubroutine(*data, static_cast<std::uint32_t>(index)) : nullptr;
}

std::string_view PVBsubroutineName(int database, int index) {
  const PVBsubroutine* subroutine = PVBsubroutineInq(database, index);
  return subroutine != nullptr && subroutine->name ? std::string_view(*subroutine->name)
                                                   : std::string_view();
}

int PVBsubroutineByName(int database, std::string_view name) {
  return findByName(database, [&](const std::string& other) { return other == name; });
}

int PVBsubroutineByNameNoCase(int database, std::string_view name) {
  const std::string lowered = PBlowerText(name);
  return findByName(database,
                    [&](const std::string& other) { return PBlowerText(other) == lowered; });
}

// --- "pvb.ps" ------------------------------------------------------------------------

namespace {

bool readRecord(SectionReader& reader, int version, std::uint32_t nodeCount, PVBpatternData& data) {
  std::int32_t index = 0;
  PVBsubroutine record;
  PVBposition& sums = record.sums;
  if (!reader.number(index) || !reader.number(record.root) || !reader.number(sums.cycle) ||
      !reader.number(sums.row) || !reader.time(sums.time)) {
    return false;
  }
  if (version >= 1 && (!reader.number(sums.address) || !reader.number(record.addressBase))) {
    return false;
  }
  if (!reader.countedText(record.name)) return false;
  if (index < 0 || static_cast<std::size_t>(index) >= data.subroutines.size()) return false;
  PVBsubroutine& slot = data.subroutines[static_cast<std::size_t>(index)];
  if (slot.root != kNoNode || record.root >= nodeCount) return false;
  slot = std::move(record);
  return true;
}

bool readTable(SectionReader& reader, std::uint32_t nodeCount, PVBpatternData& data) {
  std::int32_t version = 0;
  std::int32_t inUse = 0;
  std::int32_t size = 0;
  if (!reader.keyword("SUBROUTINES") || !reader.number(version)) return false;
  if (version < 0 || version > kFileVersion) return false;
  if (!reader.count(inUse, kMinRecordBytes) || !reader.number(size)) return false;
  if (inUse < 0 || size < inUse || static_cast<std::size_t>(size) > kMaxSubroutines) return false;
  if (version >= 1 && !reader.number(data.addressBase)) return false;
  data.subroutines.resize(static_cast<std::size_t>(size));
  for (std::int32_t i = 0; i < inUse; ++i) {
    if (!readRecord(reader, version, nodeCount, data)) return false;
  }
  return reader.atEnd();
}

void writeRecord(SectionWriter& writer, std::size_t index, const PVBsubroutine& subroutine) {
  const PVBposition& sums = subroutine.sums;
  const std::string time = PBformatTIME(std::clamp(sums.time, TIME_ZERO, TIME_MAX));
  for (const std::int64_t number : {static_cast<std::int64_t>(index), std::int64_t{subroutine.root},
                                    std::int64_t{sums.cycle}, std::int64_t{sums.row}}) {
    writer.number(number);
    writer.text(" ");
  }
  writer.text(time);
  writer.text(" ");
  writer.number(sums.address);
  writer.text(" ");
  writer.number(subroutine.addressBase);
  writer.text(" ");
  writer.countedText(subroutine.name);
}

}  // namespace

int readSubroutines(PVBpatternData& data, const std::string& path, std::uint32_t nodeCount) {
  SectionReader reader;
  const SectionOpen opened = reader.open(path);
  if (opened == SectionOpen::missing) {
    errno = 0;
    return 0;
  }
  if (opened == SectionOpen::failed) {
    PBpostError("PVBpatternOpen", 81, path);
    return -2;
  }
  const bool good = readTable(reader, nodeCount, data);
  errno = good ? errno : 0;
  if (!reader.close() || !good) {
    PBpostError("PVBpatternOpen", 87, path);
    return -2;
  }
  return 0;
}

int writeSubroutines(const PVBpatternData& data, const std::string& path) {
  SectionWriter writer;
  if (!writer.open(path, SectionWriter::Storage::plain)) {
    PBpostError("PVBpatternSave", 81, path);
    return -2;
  }
  const auto inUse =
      std::count_if(data.subroutines.begin(), data.subroutines.end(),
                    [](const PVBsubroutine& subroutine) { return subroutine.root != kNoNode; });
  writer.text("SUBROUTINES 1 ");
  writer.number(inUse);
  writer.text(" ");
  writer.line(static_cast<std::int64_t>(data.subroutines.size()));
  writer.line(data.addressBase);
  for (std::size_t i = 0; i < data.subroutines.size(); ++i) {
    if (data.subroutines[i].root != kNoNode) writeRecord(writer, i, data.subroutines[i]);
  }
  if (writer.commit()) return 0;
  PBpostError("PVBpatternSave", 85, path);
  return -2;
}
