#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "pvb/pattern.h"
#include "pvb/property.h"
#include "pvb/scan_run.h"
#include "pvb/state_vector.h"
#include "storage/page.h"
#include "tools/dump_internal.h"
#include "tools/tool_progress.h"

namespace {

// Names by which rows refer to timeplates and subroutines: a text in quotes, or
// "#NUMBER" where the name doesn't tell which one is meant.
std::vector<std::string> references(const std::vector<std::optional<std::string>>& names) {
  std::set<std::string_view> once, twice;
  for (const auto& name : names) {
    if (name && !once.insert(*name).second) twice.insert(*name);
  }
  std::vector<std::string> result;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const bool clear = names[i] && !twice.contains(*names[i]);
    result.push_back(clear ? quotedText(*names[i]) : fmt::format("#{}", i));
  }
  return result;
}

std::vector<std::optional<std::string>> timePlateNames(int database) {
  std::vector<std::optional<std::string>> names;
  for (const auto& plate : PVBget(database)->timePlates->plates) {
    names.push_back(plate != nullptr ? plate->name : std::nullopt);
  }
  return names;
}

std::vector<std::optional<std::string>> subroutineNames(int database) {
  std::vector<std::optional<std::string>> names;
  for (const PVBsubroutine& subroutine : PVBget(database)->patterns->subroutines) {
    names.push_back(subroutine.root != kNoNode ? subroutine.name : std::nullopt);
  }
  return names;
}

void appendReference(std::string& out, const std::vector<std::string>& table,
                     std::uint32_t number) {
  out += ' ';
  if (number < table.size()) {
    out += table[number];
  } else {
    out += '#';
    appendNumber(out, number);
  }
}

// Both columns of a byte of states.
struct StatePairs {
  constexpr StatePairs() {
    for (std::size_t i = 0; i < 256; ++i) {
      text[i] = {kStateCharacters[i & 15], kStateCharacters[i >> 4]};
    }
  }
  std::array<std::array<char, 2>, 256> text{};
};
constexpr StatePairs kStatePairs;

// Trailing '-' are left out, and so is the bar when nothing is left.
void appendStates(std::string& out, const std::uint8_t* states, std::size_t size) {
  while (size > 0 && states[size - 1] == 0) --size;
  if (size == 0) return;
  const std::size_t begin = out.size();
  out.resize(begin + 2 + 2 * size);
  char* to = out.data() + begin;
  *to++ = ' ';
  *to++ = '|';
  for (std::size_t i = 0; i < size; ++i) {
    *to++ = kStatePairs.text[states[i]][0];
    *to++ = kStatePairs.text[states[i]][1];
  }
  if (states[size - 1] < 16) out.pop_back();
}

class RowDump {
 public:
  explicit RowDump(const DumpContext& dump)
      : dump_(dump),
        database_(dump.database),
        dataSize_(static_cast<std::size_t>(PVBrowDataSize(dump.database))),
        timePlates_(references(timePlateNames(dump.database))),
        subroutines_(references(subroutineNames(dump.database))),
        progress_(PageCount(PVBget(dump.database)->patterns->rows), "Writing rows", dump.quiet) {}

  bool pattern(int index);

 private:
  struct OpenLoop {
    std::uint32_t count;
    std::string comment;
  };

  bool row(PVBrow& row);
  void head(const PVBrow& row);
  void fields(const PVBrow& row, std::uint32_t usualCount);
  void comment(const PVBrow& row, std::string_view usual);
  void loop(const PVBrow& row);
  void end(const PVBrow& row);
  void call(const PVBrow& row);
  bool runs(const PVBrow& row);
  void vector(PVBid vector);
  bool belowRow(const PVBrow& row);
  void closeLoops(std::size_t depth);
  void indent(std::size_t depth) { dump_.text().append(2 * (depth + 1), ' '); }

  const DumpContext& dump_;
  int database_;
  std::size_t dataSize_;
  std::vector<std::string> timePlates_;
  std::vector<std::string> subroutines_;
  PVBidList vectors_;  // all, in order; filled when the first nameless one is met
  std::vector<OpenLoop> loops_;
  Progress progress_;
  std::int64_t rowsWritten_ = 0;
};

bool RowDump::pattern(int index) {
  loops_.clear();
  PatternWalk walk(database_, index);
  while (walk.next()) {
    closeLoops(static_cast<std::size_t>(std::max(walk.depth(), 0)));
    const RowHandle handle(database_, PVBrowGet(database_, walk.entry().child));
    if (!handle) return dump_.fail(kRowsNotReadable, "pvb.pd: a row can't be read");
    if (!row(*handle)) return false;
  }
  if (walk.failed()) {
    return dump_.fail(kRowsNotReadable, "pvb.pk: the order of the rows can't be read");
  }
  closeLoops(0);
  return true;
}

// Bodies that lack their end row: the build gives them one.
void RowDump::closeLoops(std::size_t depth) {
  while (loops_.size() > depth) {
    loops_.pop_back();
    indent(loops_.size());
    dump_.text() += "end";
    dump_.end();
  }
}

bool RowDump::row(PVBrow& row) {
  progress_.update(++rowsWritten_);
  if (row.type == ROW_LOOP) {
    loop(row);
  } else if (row.type == ROW_END_LOOP) {
    end(row);
  } else if (row.type == ROW_SUBR_CALL) {
    call(row);
  } else {
    // Columns of the chains have no states of their own.
    if (row.type == ROW_SCAN) PVBscanClearStates(database_, row);
    head(row);
    fields(row, 1);
    appendStates(dump_.text(), row.states(), dataSize_);
    dump_.end();
  }
  return belowRow(row);
}

void RowDump::head(const PVBrow& row) {
  indent(loops_.size());
  for (const ValueWord& word : kPlainRowWords) {
    if (word.value != row.type) continue;
    dump_.text() += word.word;
    return;
  }
  dump_.text() += "other type=";
  appendNumber(dump_.text(), row.type);
}

void RowDump::fields(const PVBrow& row, std::uint32_t usualCount) {
  std::string& text = dump_.text();
  if (row.timeplate != kNoTimePlate) appendReference(text, timePlates_, row.timeplate);
  if (row.count != usualCount) {
    text += " x";
    appendNumber(text, row.count);
  }
  if (row.repeat16 != kNoRepeat16) {
    text += " @";
    appendNumber(text, row.repeat16);
  }
  const bool linked = row.type != ROW_LOOP && row.type != ROW_SUBR_CALL && row.type != ROW_SCAN;
  if (linked && row.link != kNoLink) {
    text += " link=";
    appendNumber(text, row.link);
  }
  appendFields(text, kRowFields, row);
}

void RowDump::comment(const PVBrow& row, std::string_view usual) {
  const std::string_view text = PVBrowComment(database_, row);
  if (text == usual) return;
  dump_.text() += " comment=";
  appendQuoted(dump_.text(), text);
}

void RowDump::loop(const PVBrow& row) {
  indent(loops_.size());
  dump_.text() += "loop";
  fields(row, 1);
  comment(row, {});
  dump_.end();
  loops_.push_back({row.count, std::string(PVBrowComment(database_, row))});
}

void RowDump::end(const PVBrow& row) {
  if (loops_.empty()) {
    dump_.text() += "# an end row without a loop";
    dump_.end();
    return;
  }
  const OpenLoop open = std::move(loops_.back());
  loops_.pop_back();
  indent(loops_.size());
  dump_.text() += "end";
  fields(row, open.count);
  comment(row, open.comment);
  dump_.end();
}

void RowDump::call(const PVBrow& row) {
  indent(loops_.size());
  dump_.text() += "call";
  appendReference(dump_.text(), subroutines_, row.link);
  fields(row, 1);
  comment(row, {});
  dump_.end();
}

// --- Below a row ---------------------------------------------------------------------

bool RowDump::belowRow(const PVBrow& row) {
  if (row.type == ROW_SCAN && row.link != kNoLink && !runs(row)) return false;
  if (row.tag == UNDEF) return true;
  const std::size_t depth = loops_.size() + (row.type == ROW_LOOP ? 0 : 1);
  return dumpProperties(dump_, row.tag, std::string(2 * (depth + 1), ' '));
}

bool RowDump::runs(const PVBrow& row) {
  PVBscanRunIterator iterator = PVBcreateScanRunIterator(database_, row);
  bool good = iterator.whole;
  for (PVBid id = PVBscanRunIterFirst(iterator); id != UNDEF; id = PVBscanRunIterNext(iterator)) {
    PVBscanRun run;
    good = good && PVBscanRunInq(database_, id, run);
    if (!good) break;
    indent(loops_.size() + 1);
    dump_.text() += "run ";
    appendWord(dump_.text(), kRunTypeWords, run.type);
    dump_.text() += ' ';
    appendId(dump_.text(), run.chain);
    vector(run.state);
    dump_.end();
  }
  return good || dump_.fail(kRowsNotReadable, "pvb.rd: a scan run can't be read");
}

// By name, or by its place among all vectors, from 1; `none` for one that isn't there.
void RowDump::vector(PVBid vector) {
  const std::string name = PVBstateVectorName(database_, vector);
  if (!name.empty()) {
    dump_.text() += ' ';
    appendQuoted(dump_.text(), name);
    return;
  }
  if (vectors_.empty()) {
    for (PVBid id = PVBstateVectorNext(database_, UNDEF);
         id != UNDEF && (vectors_.empty() || id > vectors_.back());
         id = PVBstateVectorNext(database_, id)) {
      vectors_.push_back(id);
    }
  }
  const auto place = std::ranges::lower_bound(vectors_, vector);
  if (place == vectors_.end() || *place != vector) {
    dump_.text() += " none";
    return;
  }
  dump_.text() += " #";
  appendNumber(dump_.text(), place - vectors_.begin() + 1);
}

bool dumpOnePattern(const DumpContext& dump, RowDump& rows, int index, std::int32_t base) {
  dump.text() += "rows ";
  if (index == kMainPattern) {
    dump.text() += "main";
  } else {
    appendNumber(dump.text(), index);
  }
  appendFields(dump.text(), kPatternFields, PatternHead{base});
  dump.end();
  return rows.pattern(index);
}

}  // namespace

bool dumpSubroutines(const DumpContext& dump) {
  const auto& subroutines = PVBget(dump.database)->patterns->subroutines;
  for (std::size_t i = 0; i < subroutines.size(); ++i) {
    if (subroutines[i].root == kNoNode) continue;
    dump.text() += "subroutine ";
    appendNumber(dump.text(), static_cast<std::int64_t>(i));
    dump.text() += ' ';
    appendOptional(dump.text(), subroutines[i].name);
    appendFields(dump.text(), kPatternFields, PatternHead{subroutines[i].addressBase});
    dump.end();
  }
  return true;
}

bool dumpPatterns(const DumpContext& dump) {
  const PVBpatternData& data = *PVBget(dump.database)->patterns;
  RowDump rows(dump);
  if (!dumpOnePattern(dump, rows, kMainPattern, data.addressBase)) return false;
  for (std::size_t i = 0; i < data.subroutines.size(); ++i) {
    if (data.subroutines[i].root == kNoNode) continue;
    if (!dumpOnePattern(dump, rows, static_cast<int>(i), 0)) return false;
  }
  return true;
}
