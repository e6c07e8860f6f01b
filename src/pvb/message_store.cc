// "pvb.m", the headings:
//
//   MESSAGES 1 stamp
//   number of headings
//   for each: number itemCount limit, then the short name and the text as counted texts
//
// "pvb.mt", the findings, heading by heading in the same order:
//
//   MESSAGEITEMS 1 stamp
//   for each heading:  number of findings
//   for each finding:  number of items
//   for each item:     kind number hasText, then the text as counted text if it has one
//
// The stamp is a checksum of all that both files hold. Where the two differ, a save
// was broken off between them and the findings are no longer known: there are none
// until the next check.

#include "pvb/message_store.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/section_text.h"

namespace {

constexpr std::string_view kHeadingsName = "pvb.m";
constexpr std::string_view kItemsName = "pvb.mt";
constexpr std::string_view kHeadingsWord = "MESSAGES";
constexpr std::string_view kItemsWord = "MESSAGEITEMS";
constexpr std::int64_t kVersion = 1;

// The least that each takes in its file, in bytes.
constexpr std::size_t kHeadingBytes = 10;  // "0 0 0\n0\n0\n"
constexpr std::size_t kFindingBytes = 2;   // "0\n"
constexpr std::size_t kItemBytes = 6;      // "0 0 0\n"

// --- Stamp ---------------------------------------------------------------------------

// FNV-1a over the bytes of numbers and texts.
class Stamp {
 public:
  void add(std::int64_t number) {
    for (unsigned shift = 0; shift < 64; shift += 8) {
      addByte(static_cast<std::uint64_t>(number) >> shift & 0xFF);
    }
  }
  void add(std::string_view text) {
    add(static_cast<std::int64_t>(text.size()));
    for (const char c : text) addByte(static_cast<unsigned char>(c));
  }
  std::uint32_t value() const { return value_; }

 private:
  void addByte(std::uint64_t byte) {
    value_ = (value_ ^ static_cast<std::uint32_t>(byte)) * 16777619U;
  }

  std::uint32_t value_ = 2166136261U;
};

void addFinding(Stamp& stamp, const std::vector<PVBmessageItem>& items) {
  stamp.add(static_cast<std::int64_t>(items.size()));
  for (const PVBmessageItem& item : items) {
    stamp.add(std::int64_t{item.kind});
    stamp.add(item.number);
    stamp.add(std::int64_t{item.text.has_value()});
    stamp.add(std::string_view(item.text ? *item.text : std::string_view()));
  }
}

std::uint32_t stampOf(const std::vector<PVBmessageHeading>& headings) {
  Stamp stamp;
  for (const PVBmessageHeading& heading : headings) {
    for (const std::int32_t word : {heading.number, heading.itemCount, heading.limit}) {
      stamp.add(std::int64_t{word});
    }
    stamp.add(std::string_view(heading.shortName));
    stamp.add(std::string_view(heading.text));
    stamp.add(static_cast<std::int64_t>(heading.findings.size()));
    for (const auto& finding : heading.findings) addFinding(stamp, finding);
  }
  return stamp.value();
}

// --- Reading -------------------------------------------------------------------------

bool readStart(SectionReader& reader, std::string_view word, std::uint32_t& stamp) {
  std::int64_t version = 0;
  return reader.keyword(word) && reader.number(version) && version == kVersion &&
         reader.number(stamp);
}

bool readText(SectionReader& reader, std::string& out) {
  std::optional<std::string> text;
  if (!reader.countedText(text)) return false;
  out = std::move(text).value_or(std::string());
  return true;
}

bool readHeading(SectionReader& reader, PVBmessageHeading& heading) {
  return reader.number(heading.number) && reader.number(heading.itemCount) &&
         reader.number(heading.limit) && readText(reader, heading.shortName) &&
         readText(reader, heading.text);
}

bool readHeadings(SectionReader& reader, std::vector<PVBmessageHeading>& headings,
                  std::uint32_t& stamp) {
  std::int32_t count = 0;
  if (!readStart(reader, kHeadingsWord, stamp) || !reader.count(count, kHeadingBytes)) return false;
  headings.resize(static_cast<std::size_t>(count));
  for (PVBmessageHeading& heading : headings) {
    if (!readHeading(reader, heading)) return false;
  }
  return reader.atEnd();
}

bool readItem(SectionReader& reader, PVBmessageItem& item) {
  std::int32_t hasText = 0;
  if (!reader.number(item.kind) || !reader.number(item.number) || !reader.number(hasText)) {
    return false;
  }
  if (hasText == 0) return true;
  return hasText == 1 && readText(reader, item.text.emplace());
}

bool readFinding(SectionReader& reader, std::vector<PVBmessageItem>& items) {
  std::int32_t count = 0;
  if (!reader.count(count, kItemBytes)) return false;
  items.resize(static_cast<std::size_t>(count));
  for (PVBmessageItem& item : items) {
    if (!readItem(reader, item)) return false;
  }
  return true;
}

// `same` tells whether the file goes with the headings; if it doesn't, nothing more
// is read.
bool readItems(SectionReader& reader, std::vector<PVBmessageHeading>& headings, std::uint32_t stamp,
               bool& same) {
  std::uint32_t found = 0;
  if (!readStart(reader, kItemsWord, found)) return false;
  same = found == stamp;
  if (!same) return true;
  for (PVBmessageHeading& heading : headings) {
    std::int32_t count = 0;
    if (!reader.count(count, kFindingBytes)) return false;
    heading.findings.resize(static_cast<std::size_t>(count));
    for (auto& finding : heading.findings) {
      if (!readFinding(reader, finding)) return false;
    }
  }
  return reader.atEnd() && stampOf(headings) == stamp;
}

enum class Loaded { all, nothing, failed };

// Opens a file and gives it to `read`; a failure is posted.
template <typename Read>
Loaded loadFile(const std::string& path, Read read) {
  SectionReader reader;
  const SectionOpen opened = reader.open(path);
  if (opened == SectionOpen::missing) return Loaded::nothing;
  if (opened == SectionOpen::failed) {
    PBpostError("PVBmessagesOpen", 81, path);
    return Loaded::failed;
  }
  errno = 0;
  if (read(reader)) return Loaded::all;
  PBpostError("PVBmessagesOpen", 87, path);
  return Loaded::failed;
}

Loaded load(const std::string& directory, std::vector<PVBmessageHeading>& headings) {
  std::uint32_t stamp = 0;
  const Loaded loaded = loadFile(PVBfilePath(directory, kHeadingsName), [&](SectionReader& reader) {
    return readHeadings(reader, headings, stamp);
  });
  if (loaded != Loaded::all) return loaded;
  bool same = false;
  const Loaded items = loadFile(PVBfilePath(directory, kItemsName), [&](SectionReader& reader) {
    return readItems(reader, headings, stamp, same);
  });
  return items == Loaded::all && !same ? Loaded::nothing : items;
}

// --- Writing -------------------------------------------------------------------------

void writeStart(SectionWriter& writer, std::string_view word, std::uint32_t stamp) {
  writer.text(word);
  writer.text(" ");
  writer.number(kVersion);
  writer.text(" ");
  writer.line(stamp);
}

void writeWords(SectionWriter& writer, std::int64_t first, std::int64_t second,
                std::int64_t third) {
  writer.number(first);
  writer.text(" ");
  writer.number(second);
  writer.text(" ");
  writer.line(third);
}

void writeHeadings(SectionWriter& writer, const std::vector<PVBmessageHeading>& headings) {
  writer.line(static_cast<std::int64_t>(headings.size()));
  for (const PVBmessageHeading& heading : headings) {
    writeWords(writer, heading.number, heading.itemCount, heading.limit);
    writer.countedText(heading.shortName);
    writer.countedText(heading.text);
  }
}

void writeItem(SectionWriter& writer, const PVBmessageItem& item) {
  writeWords(writer, item.kind, item.number, item.text ? 1 : 0);
  if (item.text) writer.countedText(item.text);
}

void writeItems(SectionWriter& writer, const std::vector<PVBmessageHeading>& headings) {
  for (const PVBmessageHeading& heading : headings) {
    writer.line(static_cast<std::int64_t>(heading.findings.size()));
    for (const auto& finding : heading.findings) {
      writer.line(static_cast<std::int64_t>(finding.size()));
      for (const PVBmessageItem& item : finding) writeItem(writer, item);
    }
  }
}

// Writes a whole file; a failure is posted.
template <typename Write>
int saveFile(const std::string& path, Write write) {
  SectionWriter writer;
  if (!writer.open(path, SectionWriter::Storage::plain)) {
    PBpostError("PVBmessagesSave", 81, path);
    return -2;
  }
  write(writer);
  if (writer.commit()) return 0;
  PBpostError("PVBmessagesSave", 85, path);
  return -2;
}

int addTo(PVBmessageData& data, PVBmessageHeading& heading, std::vector<PVBmessageItem> items) {
  const auto limit = static_cast<std::size_t>(std::max(heading.limit, 0));
  if (heading.findings.size() >= limit) return 0;
  heading.findings.push_back(std::move(items));
  data.changed = true;
  return 0;
}

PVBmessageData* messagesOf(int database) {
  const PVBdatabase* db = PVBgetSection(database, kSectionMessages);
  return db != nullptr ? db->messages.get() : nullptr;
}

}  // namespace

int PVBmessagesOpen(int database) {
  PVBdatabase* db = PVBget(database);
  if (db == nullptr) return -2;
  auto data = std::make_unique<PVBmessageData>();
  const Loaded loaded = load(db->path, data->headings);
  if (loaded == Loaded::failed) return -2;
  if (loaded == Loaded::nothing) data->headings.clear();
  db->messages = std::move(data);
  db->sectionsOpen |= kSectionMessages;
  return 0;
}

int PVBmessagesSave(int database, const std::string& directory) {
  PVBdatabase* db = PVBgetSection(database, kSectionMessages);
  if (db == nullptr) return -2;
  const std::string& target = directory.empty() ? db->path : directory;
  const std::vector<PVBmessageHeading>& headings = db->messages->headings;
  const std::uint32_t stamp = stampOf(headings);
  const int headingResult =
      saveFile(PVBfilePath(target, kHeadingsName), [&](SectionWriter& writer) {
        writeStart(writer, kHeadingsWord, stamp);
        writeHeadings(writer, headings);
      });
  if (headingResult != 0) return -2;
  const int itemResult = saveFile(PVBfilePath(target, kItemsName), [&](SectionWriter& writer) {
    writeStart(writer, kItemsWord, stamp);
    writeItems(writer, headings);
  });
  if (itemResult != 0) return -2;
  if (target == db->path) db->messages->changed = false;
  return 0;
}

int PVBmessagesClose(int database) {
  PVBdatabase* db = PVBget(database);
  if (db == nullptr) return -2;
  db->messages.reset();
  db->sectionsOpen &= ~static_cast<std::uint32_t>(kSectionMessages);
  return 0;
}

void PVBmessagesClear(int database) {
  PVBmessageData* data = messagesOf(database);
  if (data == nullptr || data->headings.empty()) return;
  data->headings.clear();
  data->changed = true;
}

int PVBmessageHeadingAdd(int database, std::int32_t number, std::string_view shortName,
                         std::string_view text, std::int32_t itemCount, std::int32_t limit) {
  PVBmessageData* data = messagesOf(database);
  if (data == nullptr) return -2;
  PVBmessageHeading& heading = data->headings.emplace_back();
  heading.number = number;
  heading.shortName = shortName;
  heading.text = text;
  heading.itemCount = itemCount;
  heading.limit = limit;
  data->changed = true;
  return 0;
}

int PVBmessageAdd(int database, std::vector<PVBmessageItem> items) {
  PVBmessageData* data = messagesOf(database);
  if (data == nullptr || data->headings.empty()) return -2;
  return addTo(*data, data->headings.back(), std::move(items));
}

int PVBmessageAddTo(int database, std::int32_t number, std::vector<PVBmessageItem> items) {
  PVBmessageData* data = messagesOf(database);
  if (data == nullptr) return -2;
  const auto heading =
      std::find_if(data->headings.rbegin(), data->headings.rend(),
                   [number](const PVBmessageHeading& row) { return row.number == number; });
  return heading != data->headings.rend() ? addTo(*data, *heading, std::move(items)) : -2;
}

const std::vector<PVBmessageHeading>& PVBmessages(int database) {
  static const std::vector<PVBmessageHeading> none;
  const PVBmessageData* data = messagesOf(database);
  return data != nullptr ? data->headings : none;
}
