// The record line of "pvb.s" and what follows it; a field stands in the file versions
// named, and keeps the value of a new record in the others. Versions 4 to 8 never were.
//
//   LINE                                    VERSIONS
//   id                                      all
//   name, a word                            0
//   memberCount propList type direction     all
//   inColumn outColumn                      all
//   leftIndex rightIndex                    all
//   variety                                 from 2
//   radix, a character                      from 3
//   inStates: count id, number of texts     from 9
//   outStates: the same                     from 9
//   bitIn bitOut multiTrack                 from 11
//   multiBit                                from 12
//
//   AFTER THE LINE
//   name alias description, counted texts   from 1
//   members                                 all
//   muxChildren                             from 10
//   lists3 lists4 lists5                    all
//   inStates, outStates: counted text and   from 9
//     id for each text
//   tracks                                  from 11
//   bitTracks                               from 12

#include <algorithm>
#include <array>
#include <cerrno>
#include <unordered_set>

#include "base/errors.h"
#include "base/text.h"
#include "pvb/section_text.h"
#include "pvb/signal.h"
#include "pvb/signal_internal.h"

namespace {

constexpr int kOpenFailed = 81;
constexpr int kWriteFailed = 85;
constexpr int kBadFormat = 87;

constexpr std::array<std::int32_t, 8> kReadableVersions = {0, 1, 2, 3, 9, 10, 11, 12};
constexpr std::int32_t kClassicFile = 10;
constexpr std::int32_t kExtendedFile = 12;

struct Versions {
  std::int32_t first;
  std::int32_t last;
};
constexpr Versions kAllVersions = {0, kExtendedFile};
constexpr Versions kOnlyFirst = {0, 0};
constexpr Versions since(std::int32_t version) { return {version, kExtendedFile}; }

// Texts of the two state tables of a record, as its line counts them.
struct TextCounts {
  std::int32_t in = 0;
  std::int32_t out = 0;
};

// The kinds of fields that their type doesn't tell.
template <typename Text>
struct AsWord {
  Text& text;
};
template <typename Text>
AsWord(Text&) -> AsWord<Text>;
template <typename Table>
struct Entries {
  Table& table;
  std::int32_t count;
};
template <typename Table>
Entries(Table&, std::int32_t) -> Entries<Table>;
template <typename List>
struct Parts {  // ids of signals that the filter of a save may leave out
  List& list;
};
template <typename List>
Parts(List&) -> Parts<List>;
struct LineEnd {};

// Calls `visit` with the versions of each field and the field, in the order of the
// file, until one gives false. `Signal` is a const PVBsignal for writing.
template <typename Signal, typename Visit>
bool visitRecord(Signal& s, TextCounts& texts, Visit visit) {
  const bool line = visit(kAllVersions, s.id) && visit(kOnlyFirst, AsWord{s.name}) &&
                    visit(kAllVersions, s.memberCount) && visit(kAllVersions, s.propList) &&
                    visit(kAllVersions, s.type) && visit(kAllVersions, s.direction) &&
                    visit(kAllVersions, s.inColumn) && visit(kAllVersions, s.outColumn) &&
                    visit(kAllVersions, s.leftIndex) && visit(kAllVersions, s.rightIndex) &&
                    visit(since(2), s.variety) && visit(since(3), s.radix) &&
                    visit(since(9), s.inStates.count) && visit(since(9), s.inStates.id) &&
                    visit(since(9), texts.in) && visit(since(9), s.outStates.count) &&
                    visit(since(9), s.outStates.id) && visit(since(9), texts.out) &&
                    visit(since(11), s.bitIn) && visit(since(11), s.bitOut) &&
                    visit(since(11), s.multiTrack) && visit(since(12), s.multiBit);
  return line && visit(kAllVersions, LineEnd{}) && visit(since(1), s.name) &&
         visit(since(1), s.alias) && visit(since(1), s.description) &&
         visit(kAllVersions, Parts{s.members}) && visit(since(10), Parts{s.muxChildren}) &&
         visit(kAllVersions, s.lists3) && visit(kAllVersions, s.lists4) &&
         visit(kAllVersions, s.lists5) && visit(since(9), Entries{s.inStates, texts.in}) &&
         visit(since(9), Entries{s.outStates, texts.out}) && visit(since(11), s.tracks) &&
         visit(since(12), s.bitTracks);
}

// --- Reading -------------------------------------------------------------------------

class RecordReader {
 public:
  RecordReader(SectionReader& in, std::int32_t version) : in_(in), version_(version) {}

  template <typename Field>
  bool operator()(Versions versions, Field&& field) {
    return version_ < versions.first || version_ > versions.last || read(field);
  }

 private:
  bool read(std::int32_t& number) { return in_.number(number); }
  bool read(std::uint16_t& number) { return in_.number(number); }
  bool read(char& character) { return in_.character(character); }
  bool read(AsWord<std::optional<std::string>>& word) { return in_.word(word.text.emplace()); }
  bool read(std::optional<std::string>& text) { return in_.countedText(text); }
  bool read(PVBidList& list) { return in_.idList(list); }
  bool read(Parts<PVBidList>& parts) { return in_.idList(parts.list); }
  bool read(LineEnd&) { return true; }
  bool read(Entries<PVBstateTable>& entries) {
    for (std::int32_t i = 0; i < entries.count; ++i) {
      auto& [text, id] = entries.table.entries.emplace_back();
      if (!in_.countedText(text) || !in_.number(id)) return false;
    }
    return true;
  }

  SectionReader& in_;
  std::int32_t version_;
};

bool isReadable(std::int32_t version, bool extended) {
  return version <= (extended ? kExtendedFile : kClassicFile) &&
         std::find(kReadableVersions.begin(), kReadableVersions.end(), version) !=
             kReadableVersions.end();
}

// Whether the record was entered: its id and its name must be new.
bool enterRecord(PVBsignalData& data, std::unique_ptr<PVBsignal> signal) {
  const bool known = signal->id == UNDEF || findById(data, signal->id) != nullptr ||
                     (signal->name && findByName(data, *signal->name) != nullptr);
  if (known) return false;
  const PVBsignal* entered = enterSignal(data, std::move(signal));
  if (entered == nullptr) return false;
  claimColumns(data, *entered);
  claimScanIndex(data, entered->id);
  return true;
}

bool readRecords(SectionReader& in, PVBsignalData& data, std::int32_t version) {
  while (!in.atEnd()) {
    std::unique_ptr<PVBsignal> signal = PVBsignalNew();
    TextCounts texts;
    if (!visitRecord(*signal, texts, RecordReader(in, version))) return false;
    if (!enterRecord(data, std::move(signal))) return false;
  }
  return true;
}

bool readFile(SectionReader& in, PVBsignalData& data, bool extended) {
  std::int32_t version = 0;
  if (!in.keyword("SIGNALS") || !in.number(version) || !isReadable(version, extended)) return false;
  if (!in.number(data.nextColumn) || !in.number(data.nextID)) return false;
  data.nextColumn = std::max(data.nextColumn, 0);
  return in.idList(data.allGroups) && readRecords(in, data, version);
}

int SignalDataRead(int database, PVBsignalData& data) {
  const std::string path = PVBfilePath(PVBget(database)->path, "pvb.s");
  SectionReader in;
  const SectionOpen opened = in.open(path);
  if (opened == SectionOpen::missing) return 0;
  if (opened == SectionOpen::failed) {
    PBpostError("SignalDataRead", kOpenFailed, path);
    return -2;
  }
  errno = 0;
  if (readFile(in, data, PVBmodelExtended(database, true)) && in.close()) return 0;
  PBpostError("SignalDataRead", kBadFormat, path);
  return -2;
}

// --- Writing -------------------------------------------------------------------------

class RecordWriter {
 public:
  RecordWriter(SectionWriter& out, std::int32_t version, const std::unordered_set<PVBid>& unused)
      : out_(out), version_(version), unused_(unused) {}

  template <typename Field>
  bool operator()(Versions versions, const Field& field) {
    if (version_ >= versions.first && version_ <= versions.last) write(field);
    return true;
  }

 private:
  void write(std::int32_t number) {
    out_.text(separator_);
    out_.number(number);
    separator_ = " ";
  }
  void write(std::uint16_t number) { write(std::int32_t{number}); }
  // A blank would be skipped when it is read.
  void write(char radix) {
    const bool visible = radix != '\0' && !PBisSpace(radix);
    out_.text(separator_);
    out_.text({visible ? &radix : &kDefaultRadix, 1});
  }
  void write(const AsWord<const std::optional<std::string>>& word) {
    out_.text(separator_);
    out_.text(word.text.value_or(""));
  }
  void write(const std::optional<std::string>& text) { out_.countedText(text); }
  // Version 10 has a blank before the new line.
  void write(const LineEnd&) { out_.text(version_ == kClassicFile ? " \n" : "\n"); }
  void write(const Entries<const PVBstateTable>& entries) {
    for (const auto& [text, id] : entries.table.entries) {
      out_.countedText(text);
      out_.line(id);
    }
  }
  void write(const PVBidList& list) { out_.idList(list); }
  void write(const Parts<const PVBidList>& parts) {
    if (unused_.empty()) return out_.idList(parts.list);
    PVBidList kept = parts.list;
    std::erase_if(kept, [this](PVBid id) { return unused_.contains(id); });
    out_.idList(kept);
  }

  static constexpr char kDefaultRadix = 'D';
  SectionWriter& out_;
  std::int32_t version_;
  const std::unordered_set<PVBid>& unused_;
  std::string_view separator_;
};

void writeFile(SectionWriter& out, const PVBsignalData& data, std::int32_t version) {
  out.text("SIGNALS ");
  out.line(version);
  out.number(data.nextColumn);
  out.text(" ");
  out.line(data.nextID);
  out.idList(data.allGroups);
  data.byId.forEach([&](const PVBsignal& signal) {
    if (data.unused.contains(signal.id)) return;
    TextCounts texts = {static_cast<std::int32_t>(signal.inStates.entries.size()),
                        static_cast<std::int32_t>(signal.outStates.entries.size())};
    visitRecord(signal, texts, RecordWriter(out, version, data.unused));
  });
}

}  // namespace

// --- The section ---------------------------------------------------------------------

int SignalDataCreate(int database, int rowWidth) {
  constexpr int kSpareBuckets = 4;
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  const int buckets = std::clamp(rowWidth, 0, kMaxRowWidth) + kSpareBuckets;
  slot->signals = std::make_unique<PVBsignalData>(buckets);
  PVBsignalData& data = *slot->signals;
  if (SignalDataRead(database, data) != 0) return -2;
  if (addImplicitGroups(database) != 0) {
    errno = 0;
    PBpostError("SignalDataCreate", kBadFormat, PVBfilePath(slot->path, "pvb.s"));
    return -2;
  }
  data.changed = false;
  slot->sectionsOpen |= kSectionSignals;
  slot->cachedIndex[2] = true;
  return 0;
}

int SignalDataWrite(int database, const std::string& directory) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return -2;
  const std::string& home = PVBget(database)->path;
  const bool toHome = directory.empty() || directory == home;
  const std::string path = PVBfilePath(toHome ? home : directory, "pvb.s");
  SectionWriter out;
  if (!out.open(path, SectionWriter::Storage::plain)) {
    PBpostError("SignalDataWrite", kOpenFailed, path);
    return -2;
  }
  writeFile(out, *data, PVBmodelExtended(database, true) ? kExtendedFile : kClassicFile);
  data->unused.clear();
  if (!out.commit()) {
    PBpostError("SignalDataWrite", kWriteFailed, path);
    return -2;
  }
  if (toHome) data->changed = false;
  return 0;
}

int SignalDataClose(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  slot->signals.reset();
  slot->sectionsOpen &= ~static_cast<std::uint32_t>(kSectionSignals);
  slot->cachedIndex[2] = false;
  return 0;
}
