#include "pvb/label.h"

#include <fmt/printf.h>

#include <algorithm>
#include <array>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/section_text.h"

namespace {

constexpr std::string_view kFileName = "pvb.lb";
constexpr std::int32_t kVersion = 2;
constexpr std::int32_t kFirstVersion = 1;
constexpr std::int32_t kFirstWithText = 2;
constexpr std::int32_t kLastKind = 4;
// Five numbers or counts of a label, each a digit and a line end at least.
constexpr std::size_t kMinLabelBytes = 10;

// Rows of labelError.
enum LabelMessage : int {
  kBadHandle = 0,
  kNotOpen = 1,
  kNoName = 2,
  kBadKind = 3,
  kCannotRead = 8,
  kCannotWrite = 9,
};

int fail(LabelMessage message) {
  PBerrPush(labelError, message);
  return -2;
}

// The labels of an open database; null after a message.
PVBlabelData* sectionOf(int database) {
  if (database == -1) {
    fail(kBadHandle);
    return nullptr;
  }
  PVBdatabase* slot = PVBgetSection(database, kSectionLabels);
  if (slot == nullptr || !slot->labels) {
    fail(kNotOpen);
    return nullptr;
  }
  return slot->labels.get();
}

PVBlabel* currentLabel(int database) {
  PVBlabelData* data = sectionOf(database);
  if (data == nullptr || data->current < 0) return nullptr;
  const auto index = static_cast<std::size_t>(data->current);
  if (index >= data->labels.size()) return nullptr;
  data->changed = true;
  return &data->labels[index];
}

// UNDEF when there is no such row.
PVBid rowIdAt(int database, std::int32_t subroutine, std::uint32_t rowNumber) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || !slot->patterns || rowNumber == kNoRowNumber) return UNDEF;
  PVBposition position;
  position.row = rowNumber;
  const RowHandle row(database, PVBpatternInqRow(database, subroutine, position, BY_ROW));
  return row ? static_cast<PVBid>(row->id) : UNDEF;
}

// --- Recomputing ---------------------------------------------------------------------

// Holds a label against the row at its number; false when its number isn't right.
bool confirmLabel(int database, PVBlabel& label) {
  if (label.rowNumber == kNoRowNumber) return false;
  const PVBid found = rowIdAt(database, label.subroutine, label.rowNumber);
  if (found != UNDEF && (found == label.rowId || label.rowNumber == 0)) {
    label.rowId = found;
    return true;
  }
  label.rowNumber = kNoRowNumber;
  return false;
}

// Labels that look for their rows, by row id; each row takes its own out.
class LostLabels {
 public:
  // A label without a row id can't be found.
  void add(PVBlabel& label) {
    if (label.rowId != UNDEF) labels_.push_back({&label, false});
  }
  void sort() {
    std::stable_sort(labels_.begin(), labels_.end(),
                     [](const Lost& a, const Lost& b) { return a.label->rowId < b.label->rowId; });
    left_ = labels_.size();
  }
  bool empty() const { return left_ == 0; }

  void found(PVBid rowId, std::int32_t subroutine, std::uint32_t rowNumber) {
    auto lost = std::lower_bound(labels_.begin(), labels_.end(), rowId,
                                 [](const Lost& a, PVBid id) { return a.label->rowId < id; });
    for (; lost != labels_.end() && lost->label->rowId == rowId; ++lost) {
      lost->label->rowNumber = rowNumber;
      lost->label->subroutine = subroutine;
      if (!std::exchange(lost->found, true)) --left_;
    }
  }

 private:
  struct Lost {
    PVBlabel* label;
    bool found;
  };
  std::vector<Lost> labels_;
  std::size_t left_ = 0;
};

int searchPattern(int database, int pattern, LostLabels& lost) {
  PatternWalk walk(database, pattern);
  while (!lost.empty() && walk.next()) {
    lost.found(static_cast<PVBid>(walk.entry().child), pattern, walk.rowNumber());
  }
  return walk.failed() ? -2 : 0;
}

int searchAll(int database, LostLabels& lost) {
  if (lost.empty()) return 0;
  if (searchPattern(database, kMainPattern, lost) != 0) return -2;
  int index = PVBsubroutineFirst(database);
  for (; index >= 0 && !lost.empty(); index = PVBsubroutineNext(database)) {
    if (searchPattern(database, index, lost) != 0) return -2;
  }
  return 0;
}

int recompute(int database, std::vector<PVBlabel>& labels) {
  const PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || !slot->patterns) return 0;
  LostLabels lost;
  for (PVBlabel& label : labels) {
    if (!confirmLabel(database, label)) lost.add(label);
  }
  lost.sort();
  return searchAll(database, lost);
}

// --- The file ------------------------------------------------------------------------

bool readLabel(SectionReader& reader, std::int32_t version, PVBlabel& label) {
  std::optional<std::string> name;
  if (!reader.countedText(name)) return false;
  label.name = std::move(name).value_or(std::string());
  if (!reader.number(label.subroutine) || !reader.number(label.kind)) return false;
  if (!reader.number(label.rowId) || !reader.number(label.rowNumber) || !reader.lineEnd()) {
    return false;
  }
  return version < kFirstWithText || reader.countedText(label.text);
}

bool readLabels(SectionReader& reader, std::vector<PVBlabel>& labels) {
  std::int32_t version = 0;
  std::int32_t count = 0;
  if (!reader.keyword("LABEL") || !reader.number(version)) return false;
  if (version < kFirstVersion || version > kVersion) return false;
  if (!reader.count(count, kMinLabelBytes) || !reader.lineEnd()) return false;
  for (std::int32_t i = 0; i < count; ++i) {
    if (!readLabel(reader, version, labels.emplace_back())) return false;
  }
  return reader.atExactEnd();
}

int readFile(const std::string& path, std::vector<PVBlabel>& labels) {
  SectionReader reader;
  const SectionOpen opened = reader.open(path);
  if (opened == SectionOpen::missing) return 0;
  if (opened == SectionOpen::failed) {
    fmt::fprintf(stderr, "Error opening label file %s\n", path);
    return -2;
  }
  return readLabels(reader, labels) && reader.close() ? 0 : fail(kCannotRead);
}

void writeLabel(SectionWriter& writer, const PVBlabel& label) {
  writer.countedText(label.name);
  writer.line(label.subroutine);
  writer.line(label.kind);
  writer.line(label.rowId);
  writer.line(static_cast<std::int32_t>(label.rowNumber));
  writer.countedText(label.text);
}

const char* kindWord(std::int32_t kind) {
  constexpr std::array<const char*, 3> kWords = {"lab ", "BB  ", "BE  "};
  const bool known = kind >= 0 && static_cast<std::size_t>(kind) < kWords.size();
  return known ? kWords[static_cast<std::size_t>(kind)] : "?   ";
}

}  // namespace

int PVBlabelsOpen(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return fail(database == -1 ? kBadHandle : kNotOpen);
  if (slot->labels) return 0;
  auto data = std::make_unique<PVBlabelData>();
  if (readFile(PVBfilePath(slot->path, kFileName), data->labels) != 0) return -2;
  data->current = static_cast<int>(data->labels.size()) - 1;
  // In a damaged pattern the labels that can't be found stay undefined: their row ids
  // are kept, and the database can still be looked at.
  recompute(database, data->labels);
  slot->labels = std::move(data);
  slot->sectionsOpen |= kSectionLabels;
  return 0;
}

int PVBlabelsSave(int database, const std::string& directory) {
  PVBlabelData* data = sectionOf(database);
  if (data == nullptr) return -2;
  const std::string& ownPath = PVBpath(database);
  const bool own = directory.empty() || directory == ownPath;
  SectionWriter writer;
  const std::string path = PVBfilePath(own ? ownPath : directory, kFileName);
  if (!writer.open(path, SectionWriter::Storage::plain)) return fail(kCannotWrite);
  writer.text(fmt::sprintf("LABEL %d %d\n", kVersion, data->labels.size()));
  for (const PVBlabel& label : data->labels) writeLabel(writer, label);
  if (!writer.commit()) return fail(kCannotWrite);
  if (own) data->changed = false;
  return 0;
}

int PVBlabelsClose(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  slot->labels.reset();
  slot->sectionsOpen &= ~static_cast<std::uint32_t>(kSectionLabels);
  return 0;
}

int PVBlabelAdd(int database, std::int32_t subroutine, const char* name, std::int32_t kind,
                std::uint32_t rowNumber) {
  PVBlabelData* data = sectionOf(database);
  if (data == nullptr) return -2;
  if (name == nullptr) return fail(kNoName);
  if (kind < 0 || kind > kLastKind) return fail(kBadKind);
  const PVBid rowId = rowIdAt(database, subroutine, rowNumber);
  data->labels.push_back({name, subroutine, kind, rowId, rowNumber, std::nullopt});
  data->current = static_cast<int>(data->labels.size()) - 1;
  data->changed = true;
  return 0;
}

void PVBlabelSetRowId(int database, PVBid rowId) {
  if (PVBlabel* label = currentLabel(database)) label->rowId = rowId;
}

void PVBlabelSetText(int database, std::string_view text) {
  if (PVBlabel* label = currentLabel(database)) label->text = text;
}

void PVBlabelClear(int database) {
  PVBlabelData* data = sectionOf(database);
  if (data == nullptr) return;
  data->labels.clear();
  data->current = -1;
  data->changed = true;
}

int PVBlabelRecompute(int database) {
  PVBlabelData* data = sectionOf(database);
  if (data == nullptr) return -2;
  data->changed = true;
  return recompute(database, data->labels);
}

const std::vector<PVBlabel>& PVBlabels(int database) {
  static const std::vector<PVBlabel> none;
  const PVBdatabase* slot = PVBget(database);
  return slot != nullptr && slot->labels ? slot->labels->labels : none;
}

void PVBlabelDump(int database, FILE* stream) {
  const std::vector<PVBlabel>& labels = PVBlabels(database);
  fmt::fprintf(stream, "\n=== PVB Label Objects (%d)===\n", labels.size());
  for (const PVBlabel& label : labels) {
    fmt::fprintf(stream, "%s %s#  %ld id %ld ", label.name, kindWord(label.kind),
                 static_cast<std::int32_t>(label.rowNumber), label.rowId);
    if (label.subroutine != -1) fmt::fprintf(stream, "subr %ld", label.subroutine);
    fmt::fprintf(stream, "%s\n", label.text.value_or(std::string()));
  }
}
