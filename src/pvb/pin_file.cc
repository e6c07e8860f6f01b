// The text file "pvb.p":
//
//   PINS version           0, 1 or 2; 2 written
//   nextID
//   for each ATE pin       ATE, then a pin record
//   for each DUT pin       DUT, then a pin record
//   for each column        COL, then a column record
//
// each kind in the order of its id table. A pin record, a value a line: id, class,
// propList, flags (from version 1 on), name and node as counted texts, the id lists
// linkedPins, signals, columns and spare, description as counted text (from version 2
// on). A column record: id, number, flag, the id lists atePins, dutPins and signals.
// The lists of signals are written without the signals that the same save leaves out.

#include <algorithm>
#include <cerrno>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/pin.h"
#include "pvb/pin_internal.h"
#include "pvb/section_text.h"
#include "pvb/signal.h"

namespace {

constexpr std::string_view kFileName = "pvb.p";
constexpr std::int32_t kVersion = 2;
constexpr std::int32_t kFirstWithFlags = 1;
constexpr std::int32_t kFirstWithDescription = 2;

int fail(std::string_view function, int code, std::string_view path) {
  PBpostError(function, code, path);
  return -2;
}

int badFormat(std::string_view function, std::string_view path) {
  errno = 0;
  return fail(function, 87, path);
}

// --- Reading -------------------------------------------------------------------------

bool readPin(SectionReader& reader, std::int32_t version, PVBpin& pin) {
  if (!reader.number(pin.id) || !reader.number(pin.pinClass)) return false;
  if (!reader.number(pin.propList)) return false;
  if (version >= kFirstWithFlags && !reader.number(pin.flags)) return false;
  if (!reader.countedText(pin.name) || !reader.countedText(pin.node)) return false;
  for (PVBidList* list : {&pin.linkedPins, &pin.signals, &pin.columns, &pin.spare}) {
    if (!reader.idList(*list)) return false;
  }
  return version < kFirstWithDescription || reader.countedText(pin.description);
}

bool readColumn(SectionReader& reader, PVBcolumn& column) {
  std::int32_t flag = 0;
  if (!reader.number(column.id) || !reader.number(column.number)) return false;
  if (!reader.number(flag) || flag < -128 || flag > 255) return false;
  column.flag = static_cast<std::uint8_t>(flag);
  return reader.idList(column.atePins) && reader.idList(column.dutPins) &&
         reader.idList(column.signals);
}

bool readRecord(SectionReader& reader, std::int32_t version, PVBpinData& data) {
  std::string kind;
  if (!reader.word(kind)) return false;
  if (kind == "COL") {
    auto column = PVBcolumnNew();
    return readColumn(reader, *column) && enterColumn(data, std::move(column));
  }
  if (kind != "ATE" && kind != "DUT") return false;
  auto pin = PVBpinNew();
  return readPin(reader, version, *pin) &&
         enterPin(data, kind == "ATE" ? PinKind::ate : PinKind::dut, std::move(pin));
}

// --- Writing -------------------------------------------------------------------------

// Writes lists of signals without those that the save leaves out.
class SignalFilter {
 public:
  explicit SignalFilter(const PVBdatabase& slot)
      : unused_(slot.signals ? &slot.signals->unused : nullptr) {}

  const PVBidList& operator()(const PVBidList& signals) {
    if (unused_ == nullptr || unused_->empty()) return signals;
    kept_ = signals;
    std::erase_if(kept_, [&](PVBid id) { return unused_->count(id) != 0; });
    return kept_;
  }

 private:
  const std::unordered_set<PVBid>* unused_;
  PVBidList kept_;
};

void writePin(SectionWriter& writer, SignalFilter& filter, std::string_view kind,
              const PVBpin& pin) {
  writer.text(kind);
  writer.line(pin.id);
  writer.line(pin.pinClass);
  writer.line(pin.propList);
  writer.line(pin.flags);
  writer.countedText(pin.name);
  writer.countedText(pin.node);
  writer.idList(pin.linkedPins);
  writer.idList(filter(pin.signals));
  writer.idList(pin.columns);
  writer.idList(pin.spare);
  writer.countedText(pin.description);
}

void writeColumn(SectionWriter& writer, SignalFilter& filter, const PVBcolumn& column) {
  writer.text("COL\n");
  writer.line(column.id);
  writer.line(column.number);
  writer.line(column.flag);
  writer.idList(column.atePins);
  writer.idList(column.dutPins);
  writer.idList(filter(column.signals));
}

void writeAll(SectionWriter& writer, SignalFilter filter, const PVBpinData& data) {
  writer.text("PINS ");
  writer.line(kVersion);
  writer.line(data.nextID);
  data.atePins.forEach([&](const PVBpin& pin) { writePin(writer, filter, "ATE\n", pin); });
  data.dutPins.forEach([&](const PVBpin& pin) { writePin(writer, filter, "DUT\n", pin); });
  data.columns.forEach([&](const PVBcolumn& column) { writeColumn(writer, filter, column); });
}

}  // namespace

int pinDataRead(int database, PVBpinData& data) {
  const std::string path = PVBfilePath(PVBpath(database), kFileName);
  SectionReader reader;
  const SectionOpen opened = reader.open(path);
  if (opened == SectionOpen::missing) return 0;
  if (opened == SectionOpen::failed) return fail("PinDataCreate", 81, path);
  std::int32_t version = 0;
  if (!reader.keyword("PINS") || !reader.number(version) || version < 0 || version > kVersion ||
      !reader.number(data.nextID)) {
    return badFormat("pinDataRead", path);
  }
  while (!reader.atEnd()) {
    if (!readRecord(reader, version, data)) return badFormat("getPin", path);
  }
  return reader.close() ? 0 : badFormat("pinDataRead", path);
}

int PVBpinSave(int database, const std::string& directory) {
  PVBdatabase* slot = PVBgetSection(database, kSectionPins);
  if (slot == nullptr) return -2;
  const bool own = directory.empty() || directory == slot->path;
  const std::string path = PVBfilePath(own ? slot->path : directory, kFileName);
  SectionWriter writer;
  if (!writer.open(path, SectionWriter::Storage::plain)) return fail("PVBpinSave", 81, path);
  writeAll(writer, SignalFilter(*slot), *slot->pins);
  if (!writer.commit()) return fail("PVBpinSave", 85, path);
  if (own) slot->pins->changed = false;
  return 0;
}
