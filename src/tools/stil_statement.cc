#include "tools/stil_statement.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tools/stil_reader.h"

namespace {

using Kind = StilTokenKind;

// What stands behind the word of a statement.
enum class Form : std::uint8_t {
  assignments,    // { a = 01; }
  routine,        // name; or name { a = 01; }
  named,          // name;
  plain,          // ;
  counted,        // number { statements }
  body,           // { statements }
  bodyOrNothing,  // { statements } or ;
  annotation,     // {* text *}
  passedOver,     // anything
};

}  // namespace

struct StilStatementWord {
  std::string_view word;
  StilStatementKind kind;
  Form form;
};

namespace {

constexpr std::array<StilStatementWord, 22> kStatements = {{
    {"V", StilStatementKind::vector, Form::assignments},
    {"Vector", StilStatementKind::vector, Form::assignments},
    {"C", StilStatementKind::condition, Form::assignments},
    {"Condition", StilStatementKind::condition, Form::assignments},
    {"F", StilStatementKind::fixed, Form::assignments},
    {"Fixed", StilStatementKind::fixed, Form::assignments},
    {"Call", StilStatementKind::call, Form::routine},
    {"Macro", StilStatementKind::macro, Form::routine},
    {"Ann", StilStatementKind::annotation, Form::annotation},
    {"W", StilStatementKind::table, Form::named},
    {"WaveformTable", StilStatementKind::table, Form::named},
    {"Shift", StilStatementKind::shift, Form::body},
    {"Loop", StilStatementKind::loop, Form::counted},
    {"MatchLoop", StilStatementKind::matchLoop, Form::counted},
    {"Goto", StilStatementKind::gotoLabel, Form::named},
    {"If", StilStatementKind::branch, Form::passedOver},
    {"Else", StilStatementKind::branch, Form::passedOver},
    {"While", StilStatementKind::branch, Form::passedOver},
    {"Stop", StilStatementKind::stop, Form::plain},
    {"BreakPoint", StilStatementKind::breakPoint, Form::bodyOrNothing},
    {"IddqTestPoint", StilStatementKind::iddq, Form::plain},
    {"ScanChain", StilStatementKind::scanChain, Form::named},
}};

bool mayAssign(Form form) { return form == Form::assignments || form == Form::routine; }
bool mayHaveBody(Form form) {
  return form == Form::counted || form == Form::body || form == Form::bodyOrNothing;
}

const StilStatementWord* findStatement(std::string_view word) {
  const auto* row = std::find_if(kStatements.begin(), kStatements.end(),
                                 [word](const auto& entry) { return entry.word == word; });
  return row != kStatements.end() ? row : nullptr;
}

constexpr std::uint64_t kMostCount = UINT64_MAX;
// Room that statements may grow to before it is given back: lone long ones would add up.
constexpr std::uint64_t kKeptRoom = std::uint64_t{64} << 20;
constexpr std::uint64_t kLargeRoom = 4096;
constexpr std::size_t kMostSpare = 256;

// Takes the last of `spare`, which has room of its own, or makes a new one.
template <typename T>
T& grow(std::vector<T>& list, std::vector<T>& spare) {
  if (spare.empty()) return list.emplace_back();
  list.push_back(std::move(spare.back()));
  spare.pop_back();
  return list.back();
}

template <typename T>
void shrink(std::vector<T>& list, std::size_t size, std::vector<T>& spare) {
  while (list.size() > size) {
    if (spare.size() < kMostSpare) spare.push_back(std::move(list.back()));
    list.pop_back();
  }
}

}  // namespace

bool StilStatementReader::read(StilStatement& statement) {
  giveRoomBack(statement);
  room_ = 0;
  const bool done = readNested(statement, 0);
  if (room_ > kLargeRoom) grown_ += room_;
  return done;
}

bool StilStatementReader::readRoutine(StilRoutine& routine) {
  room_ = routinesRoom_;
  const bool done = readBody(routine.body, 0, routine.name);
  routinesRoom_ = room_;
  return done;
}

bool StilStatementReader::readNested(StilStatement& statement, int depth) {
  statement.label.clear();
  statement.name.clear();
  statement.count = 0;
  if (!takeRoom(sizeof(StilStatement))) return false;
  const StilStatementWord* word = nullptr;
  bool quoted = cursor_.is(Kind::string);
  if (!readWord(statement, word)) return false;
  if (cursor_.is(Kind::colon)) {
    statement.label = word != nullptr ? word->word : std::string_view(statement.name);
    statement.name.clear();
    cursor_.next();
    quoted = cursor_.is(Kind::string);
    if (!readWord(statement, word)) return false;
    if (cursor_.is(Kind::colon)) return cursor_.expected("a statement behind the label");
  }
  if (word == nullptr) return readUnknown(statement, quoted);
  return readRest(statement, *word, depth);
}

// The first word: of the table, or else in `name`.
bool StilStatementReader::readWord(StilStatement& statement, const StilStatementWord*& word) {
  statement.where = cursor_.where();
  word = cursor_.is(Kind::word) ? findStatement(cursor_.token().text) : nullptr;
  if (word == nullptr) return cursor_.name(statement.name, "a statement or '}'");
  cursor_.next();
  return true;
}

bool StilStatementReader::readUnknown(StilStatement& statement, bool quoted) {
  if (quoted) return cursor_.expected("':' behind the label");
  statement.kind = StilStatementKind::unknown;
  shrink(statement.assignments, 0, spareAssignments_);
  shrink(statement.body, 0, spareStatements_);
  const char first = statement.name.front();
  const bool letter = (first >= 'A' && first <= 'Z') || (first >= 'a' && first <= 'z');
  if (!letter && first != '_') {
    return cursor_.failAt(statement.where, kStilSyntax,
                          fmt::format("a statement is expected, not {}", statement.name));
  }
  if (statement.name == "Include") {
    return cursor_.failAt(statement.where, kStilUnsupported,
                          "a file can be included between blocks only");
  }
  cursor_.warnOnce(statement.where, kStilUnknownStatement,
                   fmt::format("{} is no statement of a pattern", statement.name));
  return cursor_.passOver();
}

bool StilStatementReader::readRest(StilStatement& statement, const StilStatementWord& word,
                                   int depth) {
  statement.kind = word.kind;
  if (!mayAssign(word.form)) shrink(statement.assignments, 0, spareAssignments_);
  if (!mayHaveBody(word.form)) shrink(statement.body, 0, spareStatements_);
  switch (word.form) {
    case Form::assignments:
      return readAssignments(statement);
    case Form::routine:
      return readRoutineCall(statement);
    case Form::named:
      return cursor_.name(statement.name, "a name") && cursor_.end();
    case Form::plain:
      return cursor_.end();
    case Form::counted:
      return readCounted(statement, depth);
    case Form::bodyOrNothing:
      if (cursor_.is(Kind::open)) return readBody(statement.body, depth, word.word);
      shrink(statement.body, 0, spareStatements_);
      return cursor_.take(Kind::stop, "';' or '{'");
    case Form::body:
      return readBody(statement.body, depth, word.word);
    case Form::annotation:
      return cursor_.annotation(statement.name);
    case Form::passedOver:
      statement.name = word.word;
      return cursor_.passOver();
  }
  return false;
}

bool StilStatementReader::readAssignments(StilStatement& statement) {
  std::vector<StilAssignment>& list = statement.assignments;
  std::size_t count = 0;
  const bool done = cursor_.block("assignments", [&] {
    if (count == list.size()) grow(list, spareAssignments_);
    return readAssignment(list[count++]);
  });
  shrink(list, count, spareAssignments_);
  return done;
}

bool StilStatementReader::readAssignment(StilAssignment& assignment) {
  if (!cursor_.reference(assignment.signals, "a signal or a group")) return false;
  if (!cursor_.take(Kind::equals, "'='")) return false;
  if (!data_.read(assignment.data)) return false;
  return takeRoom(sizeof(StilAssignment) + assignment.signals.text.size() + data_.size());
}

bool StilStatementReader::readRoutineCall(StilStatement& statement) {
  if (!cursor_.name(statement.name, "the name of a procedure or macro")) return false;
  if (cursor_.is(Kind::open)) return readAssignments(statement);
  shrink(statement.assignments, 0, spareAssignments_);
  return cursor_.take(Kind::stop, "';' or '{'");
}

bool StilStatementReader::readCounted(StilStatement& statement, int depth) {
  const bool match = statement.kind == StilStatementKind::matchLoop;
  if (match && cursor_.isWord("Infinite")) {
    cursor_.next();
  } else if (!cursor_.number(statement.count, kMostCount, "how many times")) {
    return false;
  }
  return readBody(statement.body, depth, match ? "MatchLoop" : "Loop");
}

bool StilStatementReader::readBody(std::vector<StilStatement>& body, int depth,
                                   std::string_view what) {
  if (depth >= kDeepestStatement) {
    return cursor_.fail(kStilTooLong, fmt::format("statements are nested deeper than {} levels",
                                                  kDeepestStatement));
  }
  std::size_t count = 0;
  const bool done = cursor_.block(
      what,
      [&] {
        if (count == body.size()) grow(body, spareStatements_);
        return readNested(body[count++], depth + 1);
      },
      StilAnnotations::item);
  shrink(body, count, spareStatements_);
  return done;
}

bool StilStatementReader::takeRoom(std::uint64_t bytes) {
  room_ += bytes;
  if (room_ <= kMostStilRoom) return true;
  return cursor_.fail(kStilTooLong, fmt::format("a statement with its body, or all routines, "
                                                "would take up more than {} bytes",
                                                kMostStilRoom));
}

void StilStatementReader::giveRoomBack(StilStatement& statement) {
  if (grown_ <= kKeptRoom) return;
  grown_ = 0;
  statement = {};
  spareAssignments_ = {};
  spareStatements_ = {};
}
