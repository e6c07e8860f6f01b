#include "tools/build.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/errors.h"
#include "pvb/property.h"
#include "tools/build_internal.h"
#include "tools/nearest.h"
#include "tools/tool_progress.h"

bool BuildContext::fail(MessageCode code, std::string text) const {
  const std::string reasons = takePostedReasons();
  if (!reasons.empty()) text += ": " + reasons;
  return in.failLine(code, text);
}

namespace {

constexpr int kBuffers = 64;

// Sections in the order of the text: what a line names stands above it.
enum class Part { signals, timePlates, pins, vectors, patterns, labels, findings, files };

// The whole text: which part takes which line.
class DumpBuild {
 public:
  DumpBuild(DumpScanner& in, const std::string& path)
      : build_{in, -1, path, nullptr, nullptr},
        signals(build_),
        timePlates(build_),
        pins(build_),
        vectors(build_),
        rows(build_, vectors),
        records(build_) {}
  ~DumpBuild();
  DumpBuild(const DumpBuild&) = delete;
  DumpBuild& operator=(const DumpBuild&) = delete;

  bool run(bool quiet);
  bool property();
  bool emptyProperties();

 private:
  bool firstLine();
  bool databaseLine();
  bool open();
  bool line();
  bool enter(Part part);
  bool finishPart();
  bool unknownLine();
  bool makeList();
  bool close();
  bool readsBack();

  BuildContext build_;
  DumpHeader header_;
  Part part_ = Part::signals;

 public:
  SignalBuild signals;
  TimePlateBuild timePlates;
  PinBuild pins;
  VectorBuild vectors;
  RowBuild rows;
  RecordBuild records;
};

struct Line {
  std::string_view keyword;
  Part part;
  bool (*take)(DumpBuild& build);
};
constexpr std::array kLines = {
    Line{"signals", Part::signals, [](DumpBuild& b) { return b.signals.section(); }},
    Line{"groups", Part::signals, [](DumpBuild& b) { return b.signals.groups(); }},
    Line{"signal", Part::signals, [](DumpBuild& b) { return b.signals.signal(); }},
    Line{"in-state", Part::signals, [](DumpBuild& b) { return b.signals.stateEntry(); }},
    Line{"out-state", Part::signals, [](DumpBuild& b) { return b.signals.stateEntry(); }},
    Line{"timeplates", Part::timePlates, [](DumpBuild& b) { return b.timePlates.section(); }},
    Line{"cycle", Part::timePlates, [](DumpBuild& b) { return b.timePlates.cycle(); }},
    Line{"timeplate", Part::timePlates, [](DumpBuild& b) { return b.timePlates.plate(); }},
    Line{"slot", Part::timePlates, [](DumpBuild& b) { return b.timePlates.slot(); }},
    Line{"of", Part::timePlates, [](DumpBuild& b) { return b.timePlates.slotSignals(); }},
    Line{"level", Part::timePlates, [](DumpBuild& b) { return b.timePlates.level(); }},
    Line{"track", Part::timePlates, [](DumpBuild& b) { return b.timePlates.track(); }},
    Line{"event", Part::timePlates, [](DumpBuild& b) { return b.timePlates.event(); }},
    Line{"state", Part::timePlates, [](DumpBuild& b) { return b.timePlates.state(); }},
    Line{"on", Part::timePlates, [](DumpBuild& b) { return b.timePlates.trackList(); }},
    Line{"selectors", Part::timePlates, [](DumpBuild& b) { return b.timePlates.trackList(); }},
    Line{"selector-types", Part::timePlates, [](DumpBuild& b) { return b.timePlates.trackList(); }},
    Line{"selector-states", Part::timePlates,
         [](DumpBuild& b) { return b.timePlates.trackList(); }},
    Line{"pins", Part::pins, [](DumpBuild& b) { return b.pins.section(); }},
    Line{"ate-pin", Part::pins, [](DumpBuild& b) { return b.pins.pin(); }},
    Line{"dut-pin", Part::pins, [](DumpBuild& b) { return b.pins.pin(); }},
    Line{"column", Part::pins, [](DumpBuild& b) { return b.pins.column(); }},
    Line{"vector", Part::vectors, [](DumpBuild& b) { return b.vectors.vector(); }},
    Line{"cells", Part::vectors, [](DumpBuild& b) { return b.vectors.cells(); }},
    Line{"subroutine", Part::patterns, [](DumpBuild& b) { return b.rows.subroutine(); }},
    Line{"rows", Part::patterns, [](DumpBuild& b) { return b.rows.rows(); }},
    Line{"run", Part::patterns, [](DumpBuild& b) { return b.rows.run(); }},
    Line{"label", Part::labels, [](DumpBuild& b) { return b.records.label(); }},
    Line{"heading", Part::findings, [](DumpBuild& b) { return b.records.heading(); }},
    Line{"finding", Part::findings, [](DumpBuild& b) { return b.records.finding(); }},
    Line{"item", Part::findings, [](DumpBuild& b) { return b.records.item(); }},
    Line{"equations", Part::files, [](DumpBuild& b) { return b.records.equations(); }},
    Line{"sheet", Part::files, [](DumpBuild& b) { return b.records.equationLine(); }},
    Line{"variable", Part::files, [](DumpBuild& b) { return b.records.equationLine(); }},
    Line{"set", Part::files, [](DumpBuild& b) { return b.records.equationLine(); }},
    Line{"value", Part::files, [](DumpBuild& b) { return b.records.equationLine(); }},
    Line{"file", Part::files, [](DumpBuild& b) { return b.records.file(); }},
    Line{"data", Part::files, [](DumpBuild& b) { return b.records.data(); }},
};
constexpr std::string_view kLastLine = "done";

DumpBuild::~DumpBuild() {
  if (build_.database < 0) return;
  rows.abandon();
  PVBcloseUnsaved(build_.database);
  PBdiscardErrors();
}

bool DumpBuild::run(bool quiet) {
  DumpScanner& in = build_.in;
  if (!firstLine() || !databaseLine() || !open()) return false;
  Progress progress(0, "Lines read:", quiet);
  while (in.nextLine()) {
    progress.update(in.lineNumber());
    if (in.keyword() == kLastLine) return in.finish() && finishPart() && close();
    if (!line()) return false;
  }
  return in.failText(kEndsEarly, "the text ends without its last line 'done'");
}

bool DumpBuild::firstLine() {
  DumpScanner& in = build_.in;
  if (!in.nextLine() || in.keyword() != kDumpMark) {
    return in.failText(kNotADump, fmt::format("the text doesn't begin with '{}'", kDumpMark));
  }
  int format = 0;
  if (!in.number(format) || !in.finish()) return false;
  return format == kDumpFormat ||
         in.failLine(kNewerDump,
                     fmt::format("format {} isn't known, only {}", format, kDumpFormat));
}

bool DumpBuild::databaseLine() {
  DumpScanner& in = build_.in;
  if (!in.nextLine() || in.keyword() != "database") {
    return in.failText(kBadDatabaseLine, "the second line isn't 'database'");
  }
  if (!readFields(in, kHeaderFields, header_)) return false;
  const bool known = header_.version == kClassicVersion || header_.version == kExtendedVersion;
  if (!known) return in.failLine(kBadDatabaseLine, "the version is neither 501 nor 1501");
  const bool fits = header_.rowWidth > 0 && header_.rowWidth <= kMaxRowWidth && header_.room >= 0 &&
                    header_.room <= kMaxRowWidth;
  return fits || in.failLine(kBadDatabaseLine, "the row width is out of range");
}

bool DumpBuild::open() {
  build_.database = PVBopenAny(build_.path, true, header_.rowWidth, kBuffers, kAllSections, false);
  if (build_.database < 0) return build_.fail(kCantSaveDatabase, "the database can't be made");
  PVBdatabase& slot = build_.slot();
  slot.version = header_.version;
  build_.ownProperties(slot.header.propList);
  if (header_.room <= slot.rowWidth) return true;
  return PVBpatternWidenRows(build_.database, header_.room) == 0 ||
         build_.fail(kCantSaveDatabase, "the rows can't be made so wide");
}

bool DumpBuild::line() {
  bool good = false;
  if (part_ == Part::patterns && rows.isRow(good)) return good;
  const std::string_view keyword = build_.in.keyword();
  if (keyword == "prop") return property();
  if (keyword == "props") return emptyProperties();
  for (const Line& line : kLines) {
    if (line.keyword == keyword) return enter(line.part) && line.take(*this);
  }
  const ListLine list = part_ == Part::signals ? signals.list()
                        : part_ == Part::pins  ? pins.list()
                                               : ListLine::unknown;
  return list == ListLine::unknown ? unknownLine() : list == ListLine::taken;
}

bool DumpBuild::unknownLine() {
  std::vector<std::string_view> known = {"prop", "props", "loop", "end", "call", "other", "done"};
  for (const Line& line : kLines) known.push_back(line.keyword);
  for (const ValueWord& word : kPlainRowWords) known.push_back(word.word);
  for (const auto& list : kSignalLists) known.push_back(list.keyword);
  for (const auto& list : kPinLists) known.push_back(list.keyword);
  for (const auto& list : kColumnLists) known.push_back(list.keyword);
  const std::string_view keyword = build_.in.keyword();
  if (std::ranges::find(known, keyword) != known.end()) {
    return build_.in.failLine(kWrongPlace, fmt::format("'{}' doesn't belong here", keyword));
  }
  return build_.in.failLine(
      kUnknownKeyword, fmt::format("'{}' is no keyword{}", keyword, didYouMean(keyword, known)));
}

bool DumpBuild::enter(Part part) {
  if (part < part_) {
    return build_.in.failLine(kWrongPlace,
                              fmt::format("'{}' stands too far below", build_.in.keyword()));
  }
  if (part == part_) return true;
  if (!finishPart()) return false;
  build_.noProperties();
  part_ = part;
  return true;
}

bool DumpBuild::finishPart() {
  switch (part_) {
    case Part::signals:
      return signals.finish();
    case Part::timePlates:
      return timePlates.finish();
    case Part::pins:
      return pins.finish();
    case Part::vectors:
      return vectors.finish();
    case Part::patterns:
      return rows.finish();
    case Part::files:
      return records.finish();
    case Part::labels:
    case Part::findings:
      return true;
  }
  return true;
}

// --- Properties ----------------------------------------------------------------------

bool DumpBuild::makeList() {
  if (part_ == Part::patterns && !rows.holdRow()) return false;
  if (build_.list == nullptr) {
    return build_.in.failLine(kWrongPlace, "there is nothing above that has properties");
  }
  if (*build_.list != UNDEF) return true;
  *build_.list = PVBpropListNew(build_.database);
  if (*build_.list == UNDEF) return build_.fail(kPropertyRefused, "there is no property list");
  if (build_.listRow != nullptr) PVBrowDirty(build_.database, *build_.listRow);
  return true;
}

// Closing turns the lists round: what is put last comes out as the oldest.
bool DumpBuild::property() {
  PVBproperty property;
  DumpScanner& in = build_.in;
  if (!in.number(property.key)) return false;
  if (!in.atEnd() && !in.quoted(property.value.emplace())) return false;
  if (!in.finish() || !makeList()) return false;
  return PVBputProp(build_.database, *build_.list, property) == 0 ||
         build_.fail(kPropertyRefused, "the property can't be stored");
}

bool DumpBuild::emptyProperties() { return build_.in.finish() && makeList(); }

// --- The end -------------------------------------------------------------------------

// Signals and pins are written before the closing looks for signals that nothing
// leads to: the text names all that are to stay.
bool DumpBuild::close() {
  const int database = build_.database;
  bool saved = SignalDataWrite(database, "") == 0 && PVBpinSave(database, "") == 0;
  PVBdatabase& slot = build_.slot();
  slot.header.rowWidth = header_.rowWidth;
  slot.header.counts = header_.counts;
  build_.database = -1;
  saved = PVBclose(database) == 0 && saved;
  if (!saved) return build_.fail(kCantSaveDatabase, "the database can't be saved");
  return readsBack();
}

// Numbers that a record holds may still be more than its file can: such a database
// must not come into place.
bool DumpBuild::readsBack() {
  constexpr std::uint32_t kTextSections =
      kSectionSignals | kSectionTimePlates | kSectionPins | kSectionMessages;
  const int database = PVBopenAny(build_.path, false, 0, kBuffers, kTextSections, false);
  if (database < 0) return build_.fail(kCantSaveDatabase, "the database can't be read back");
  PVBcloseUnsaved(database);
  return true;
}

}  // namespace

bool buildDatabase(DumpScanner& in, const std::string& path, bool quiet) {
  return DumpBuild(in, path).run(quiet);
}
