// Patterns and procedures: rows as statements.
//
// Text of a comment that would end it is written with a blank in between. Each
// procedure says its table in front of its first vector, and so does the body of a
// loop, whose later passes begin with the table that the pass before left.

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "pvb/database.h"
#include "pvb/label.h"
#include "pvb/property.h"
#include "tools/export_stil_internal.h"

namespace {

// Properties under this key are comments.
constexpr std::int32_t kCommentKey = 0;
// Longer runs of a character are written as repeats of it.
constexpr std::size_t kShortRun = 8;

class PatternText : public StilRowVisitor {
 public:
  PatternText(StilExport& stil, int pattern);

  bool row(const PVBrow& row, StilRowPlace place) override;
  bool cycles(const PVBrow& row, std::uint32_t count, StilRowPlace place) override;
  bool beginLoop(std::uint32_t count) override;
  void endLoop() override;
  bool call(const PVBrow& row, StilRowPlace place) override;

 private:
  struct LabelPlace {
    std::uint32_t row;
    const PVBlabel* label;
  };

  std::string& text() { return stil_.text(); }
  void indent() { text().append(2 * (depth_ + 1), ' '); }
  void annotation(std::string_view comment);
  void comments(const PVBrow& row);
  void labels(const PVBrow& row, StilRowPlace place);
  void takeLabel();
  void useTable(const PVBrow& row);
  void states(const PVBrow& row, const StilPlate& plate);
  void appendRuns();

  StilExport& stil_;
  std::vector<LabelPlace> labels_;
  std::size_t nextLabel_ = 0;
  std::string label_;  // of the statement that comes next
  std::size_t depth_;
  std::vector<std::string> loopComments_;  // of the loops open
  std::string loopComment_;
  std::uint32_t table_ = kNoTimePlate;  // in force; none where that isn't known
  std::string vector_;                  // name of the group and `=`
  std::string states_;
};

PatternText::PatternText(StilExport& stil, int pattern)
    : stil_(stil), vector_(fmt::format("V {{ {}=", stilQuoted(stil.allSignals))) {
  for (const PVBlabel& label : PVBlabels(stil.database)) {
    if (label.subroutine == pattern) labels_.push_back({label.rowNumber, &label});
  }
  std::ranges::stable_sort(labels_, {}, &LabelPlace::row);
  states_.resize(stil.signals.size());
  depth_ = pattern == kMainPattern ? 0 : 1;
}

// --- What stands at a row ------------------------------------------------------------

bool PatternText::row(const PVBrow& row, StilRowPlace place) {
  comments(row);
  labels(row, place);
  return true;
}

void PatternText::annotation(std::string_view comment) {
  indent();
  text() += "Ann {* ";
  for (std::size_t at = 0; at < comment.size();) {
    const std::size_t end = std::min(comment.find("*}", at), comment.size());
    text() += comment.substr(at, end - at);
    if (end < comment.size()) text() += "* }";
    at = end + 2;
  }
  text() += " *}\n";
  stil_.out.offer();
}

void PatternText::comments(const PVBrow& row) {
  if (row.tag != UNDEF && PVBpropListExists(stil_.database, row.tag)) {
    std::vector<std::string> found;  // newest first
    for (const PVBproperty* property = PVBpropInqFirst(stil_.database, row.tag);
         property != nullptr; property = PVBpropInqNext(stil_.database)) {
      if (property->key == kCommentKey) {
        found.push_back(property->value.value_or(""));
      } else {
        stil_.leaveOut("properties of rows that aren't comments");
      }
    }
    for (auto comment = found.rbegin(); comment != found.rend(); ++comment) annotation(*comment);
  }
  if (row.type == ROW_LITERAL || row.type == ROW_SCAN) return;
  const std::string_view comment = PVBrowComment(stil_.database, row);
  if (row.type == ROW_LOOP) loopComment_ = comment;
  const bool repeated =
      row.type == ROW_END_LOOP && !loopComments_.empty() && loopComments_.back() == comment;
  if (!comment.empty() && !repeated) annotation(comment);
}

// The last label of a row goes with its statement, where it has one.
void PatternText::labels(const PVBrow& row, StilRowPlace place) {
  const bool statement = row.type == ROW_LOOP || (row.count > 0 && row.type != ROW_END_LOOP);
  while (nextLabel_ < labels_.size() && labels_[nextLabel_].row < place.row) ++nextLabel_;
  label_.clear();
  for (; nextLabel_ < labels_.size() && labels_[nextLabel_].row == place.row; ++nextLabel_) {
    const PVBlabel& label = *labels_[nextLabel_].label;
    if (label.text) stil_.leaveOut("texts of labels");
    if (!label_.empty()) {
      stil_.warn("several labels of one row: all but the last are comments");
      annotation("label " + label_);
    }
    label_ = StilNameTable().take(label.name, "label");
  }
  if (statement || label_.empty()) return;
  stil_.warn("labels of rows that are no statements: they are comments");
  annotation("label " + label_);
  label_.clear();
}

void PatternText::takeLabel() {
  indent();
  if (label_.empty()) return;
  text().append(stilQuoted(label_)).append(": ");
  label_.clear();
}

// --- Vectors -------------------------------------------------------------------------

void PatternText::useTable(const PVBrow& row) {
  if (table_ == row.timeplate) return;
  table_ = row.timeplate;
  indent();
  text().append("W ").append(stilQuoted(stil_.plates[row.timeplate]->name)).append(";\n");
}

bool PatternText::cycles(const PVBrow& row, std::uint32_t count, StilRowPlace) {
  useTable(row);
  takeLabel();
  if (count > 1) text().append(fmt::format("Loop {} {{ ", count));
  text() += vector_;
  states(row, *stil_.plates[row.timeplate]);
  text() += count > 1 ? "; } }\n" : "; }\n";
  stil_.out.offer();
  return stil_.out.good() || stil_.refuse("the text can't be written");
}

void PatternText::states(const PVBrow& row, const StilPlate& plate) {
  const char* const* characters = plate.characters.data();
  char* to = states_.data();
  std::size_t longest = 0;
  std::size_t run = 0;
  char last = '\0';
  for (std::size_t i = 0; i < states_.size(); ++i) {
    const StilColumns& columns = stil_.columns[i];
    const std::size_t place = columns.selects
                                  ? stil_.selectedPlace(row, i, plate.codes[plate.signalCodes[i]])
                                  : stilPlainPlace(row, columns);
    const char state = characters[i][place];
    run = state == last ? run + 1 : 1;
    longest = std::max(longest, run);
    last = to[i] = state;
  }
  if (longest > kShortRun) {
    appendRuns();
  } else {
    text() += states_;
  }
}

void PatternText::appendRuns() {
  for (std::size_t at = 0; at < states_.size();) {
    std::size_t end = at + 1;
    while (end < states_.size() && states_[end] == states_[at]) ++end;
    if (end - at > kShortRun) {
      fmt::format_to(std::back_inserter(text()), "\\r{} {}", end - at, states_[at]);
      if (end < states_.size()) text() += ' ';
    } else {
      text().append(states_, at, end - at);
    }
    at = end;
  }
}

// --- Loops and calls -----------------------------------------------------------------

bool PatternText::beginLoop(std::uint32_t count) {
  takeLabel();
  text().append(fmt::format("Loop {} {{\n", count));
  loopComments_.push_back(std::move(loopComment_));
  ++depth_;
  if (stil_.plateCount > 1) table_ = kNoTimePlate;
  return true;
}

void PatternText::endLoop() {
  --depth_;
  loopComments_.pop_back();
  indent();
  stil_.line("}");
}

// What a procedure leaves in force is told again, for readers that keep it.
bool PatternText::call(const PVBrow& row, StilRowPlace place) {
  if (row.link >= stil_.procedures.size() || stil_.procedures[row.link].empty()) {
    return stil_.refuse(stil_.placeText(place) + " calls a subroutine that doesn't exist");
  }
  takeLabel();
  const std::string call = fmt::format("Call {};", stilQuoted(stil_.procedures[row.link]));
  stil_.line(row.count > 1 ? fmt::format("Loop {} {{ {} }}", row.count, call) : call);
  if (stil_.plateCount > 1) table_ = kNoTimePlate;
  return true;
}

bool writeProcedures(StilExport& stil) {
  const bool any =
      std::ranges::any_of(stil.procedures, [](const auto& name) { return !name.empty(); });
  if (!any) return true;
  stil.line("Procedures {");
  for (std::size_t i = 0; i < stil.procedures.size(); ++i) {
    if (stil.procedures[i].empty()) continue;
    stil.line(fmt::format("  {} {{", stilQuoted(stil.procedures[i])));
    PatternText text(stil, static_cast<int>(i));
    if (!stilWalkRows(stil, static_cast<int>(i), text)) return false;
    stil.line("  }");
  }
  stil.line("}");
  return true;
}

}  // namespace

bool stilWritePatterns(StilExport& stil) {
  if (!writeProcedures(stil)) return false;
  stil.line(fmt::format("Pattern {} {{", stilQuoted(kStilPattern)));
  PatternText text(stil, kMainPattern);
  if (!stilWalkRows(stil, kMainPattern, text)) return false;
  stil.line("}");
  return true;
}
