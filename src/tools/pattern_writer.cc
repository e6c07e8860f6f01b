#include "tools/pattern_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/label.h"
#include "pvb/property.h"
#include "tools/flat_walk.h"
#include "tools/message.h"
#include "tools/pattern_writer_internal.h"

namespace {

constexpr std::int32_t kCommentKey = 0;
constexpr std::uint64_t kMostRows = kNoRowNumber - 1;
constexpr std::uint64_t kMostCycles = 0xFFFFFFFF;
constexpr const char* kTooLong = "the pattern is longer than a database can hold";

}  // namespace

// --- Length --------------------------------------------------------------------------

bool PatternLength::add(std::uint32_t rows, std::uint32_t count, std::uint64_t cycles,
                        std::int64_t time) {
  const std::uint64_t passes = (passes_.empty() ? 1 : passes_.back()) * count;
  const auto timeLeft = static_cast<std::uint64_t>(femtoseconds(TIME_MAX) - time_);
  if (rows > kMostRows - rows_) return false;
  if (cycles != 0 && passes > (kMostCycles - cycles_) / cycles) return false;
  if (time != 0 && passes > timeLeft / static_cast<std::uint64_t>(time)) return false;
  rows_ += rows;
  cycles_ += cycles * passes;
  time_ += static_cast<std::int64_t>(static_cast<std::uint64_t>(time) * passes);
  return true;
}

// Passes beyond all cycles count as that many: nothing can stand in the loop then.
bool PatternLength::beginLoop(std::uint32_t count) {
  if (!addRows(2)) return false;
  --rows_;  // that of the end, which comes behind the body
  const std::uint64_t around = passes_.empty() ? 1 : passes_.back();
  passes_.push_back(std::min(around * count, kMostCycles + 1));
  return true;
}

// --- The writer ----------------------------------------------------------------------

struct PatternWriter::Parts {
  Parts(int handle, ssData* equations)
      : database(handle), plates(handle, equations, failure), batch(handle) {}

  struct Column {
    std::int32_t in = -1;
    std::int32_t out = -1;
  };
  struct Outer {  // the pattern around a subroutine
    PatternLength length;
    RowNotes notes;
  };

  bool fail(std::string text);
  // The same for a call of the database, with its reasons.
  bool refused(std::string text);
  bool addSignal(const WriterSignal& signal);
  // Enters a row behind the last one.
  bool insert(PVBrow& row);
  bool insertStructure(std::uint32_t type, std::uint32_t count, std::uint32_t link);
  bool noteAt(PVBrow& row, std::uint32_t number);
  // Gives notes to a row that is there.
  bool noteAtRow(std::uint32_t number);
  bool noteAtLastRow() { return length.rows() == 0 || noteAtRow(length.rows() - 1); }

  int database;
  std::string failure;
  PlateMaker plates;
  std::optional<FixBatch> batch;
  std::vector<PVBid> ids;  // by signal, as are the columns
  std::vector<Column> columns;
  std::vector<std::uint8_t> states;  // of the next row
  PatternLength length;
  RowNotes notes;
  std::optional<Outer> outer;
  std::unordered_map<int, PatternLength> subroutines;  // that are done
  std::uint64_t rows = 0;
};

PatternWriter::PatternWriter(int database, ssData* equations)
    : parts_(std::make_unique<Parts>(database, equations)) {}
PatternWriter::~PatternWriter() = default;

const std::string& PatternWriter::failure() const { return parts_->failure; }
std::size_t PatternWriter::plateCount() const { return parts_->plates.count(); }
std::uint64_t PatternWriter::rowCount() const { return parts_->rows; }

bool PatternWriter::Parts::fail(std::string text) {
  if (failure.empty()) failure = std::move(text);
  return false;
}

bool PatternWriter::Parts::refused(std::string text) {
  std::string reasons = takePostedReasons();
  const char* status = nullptr;
  if (reasons.empty() && PVBinqStatus(database, status) != 0 && status != nullptr) {
    reasons = status;
  }
  if (!reasons.empty()) text += ": " + reasons;
  return fail(std::move(text));
}

// --- Signals, tables, shapes ---------------------------------------------------------

bool PatternWriter::Parts::addSignal(const WriterSignal& signal) {
  auto record = PVBsignalNew();
  record->name = signal.name;
  record->direction = signal.direction;
  const PVBid id = PVBsignalAdd(database, std::move(record));
  if (id == UNDEF) return refused(fmt::format("signal '{}' can't be entered", signal.name));
  const PVBsignal& added = *PVBsignalInqByID(database, id);
  const auto column = [](std::uint16_t number) { return number != kNoColumn ? number : -1; };
  ids.push_back(id);
  columns.push_back({column(added.inColumn), column(added.outColumn)});
  plates.addSignal(id, signal.direction);
  return true;
}

bool PatternWriter::addSignals(std::span<const WriterSignal> signals) {
  if (!parts_->failure.empty()) return false;
  for (const WriterSignal& signal : signals) {
    if (!parts_->addSignal(signal)) return false;
  }
  parts_->states.resize(static_cast<std::size_t>(PVBrowDataSize(parts_->database)));
  return true;
}

bool PatternWriter::addGroup(std::string_view name, std::span<const std::uint32_t> signals) {
  if (!parts_->failure.empty() || PVBsignalInqByName(parts_->database, name) != nullptr) {
    return false;
  }
  auto group = PVBsignalNew();
  group->name = name;
  group->type = MEM_GROUP;
  for (const std::uint32_t signal : signals) group->members.push_back(parts_->ids[signal]);
  return PVBsignalAdd(parts_->database, std::move(group)) != UNDEF ||
         parts_->refused(fmt::format("group '{}' can't be entered", name));
}

std::size_t PatternWriter::addTable(std::string_view name, TIME period,
                                    std::string_view expression) {
  return parts_->plates.addTable(name, period, expression);
}

ShapeId PatternWriter::addShape(const Shape& shape) { return parts_->plates.addShape(shape); }

// --- Rows ----------------------------------------------------------------------------

void PatternWriter::useTable(std::size_t table) { parts_->plates.useTable(table); }

void PatternWriter::set(std::uint32_t signal, const SignalCycle& cycle) {
  Parts& parts = *parts_;
  parts.plates.setShapes(signal, cycle.in, cycle.out);
  const Parts::Column column = parts.columns[signal];
  std::uint8_t* states = parts.states.data();
  if (column.in >= 0) setRowCode(states, static_cast<std::uint32_t>(column.in), cycle.inCode);
  if (column.out >= 0) setRowCode(states, static_cast<std::uint32_t>(column.out), cycle.outCode);
}

bool PatternWriter::cycle(std::uint32_t count) {
  Parts& parts = *parts_;
  std::uint16_t plate = 0;
  if (!parts.failure.empty() || !parts.plates.plate(plate)) return false;
  if (count == 0) return parts.fail("a row needs a cycle");
  if (!parts.length.add(1, count, 1, parts.plates.period())) return parts.fail(kTooLong);
  const RowHandle row(parts.database, PVBpatternNew(parts.database));
  if (!row) return parts.refused("there is no room for a row");
  row->timeplate = plate;
  row->count = count;
  std::copy(parts.states.begin(), parts.states.end(), row->states());
  return parts.insert(*row);
}

// The length counts the row already.
bool PatternWriter::Parts::insert(PVBrow& row) {
  PVBposition position;
  position.row = length.rows() - 1;
  if (PVBrowInsert(database, length.pattern(), position, BY_ROW, row) < 0) {
    return refused("a row can't be added to its pattern");
  }
  ++rows;
  return notes.empty() || noteAt(row, length.rows() - 1);
}

bool PatternWriter::Parts::insertStructure(std::uint32_t type, std::uint32_t count,
                                           std::uint32_t link) {
  const RowHandle row(database, PVBpatternNew(database));
  if (!row) return refused("there is no room for a row");
  row->type = type;
  row->count = count;
  row->link = link;
  return insert(*row);
}

// --- Comments and labels -------------------------------------------------------------

void PatternWriter::comment(std::string_view text) { parts_->notes.comments.emplace_back(text); }
void PatternWriter::label(std::string_view name) { parts_->notes.labels.emplace_back(name); }

bool PatternWriter::Parts::noteAt(PVBrow& row, std::uint32_t number) {
  if (!notes.comments.empty() && row.tag == UNDEF) row.tag = PVBpropListNew(database);
  PVBproperty property = {kCommentKey, std::nullopt};
  for (std::string& text : notes.comments) {
    property.value = std::move(text);
    if (row.tag == UNDEF || PVBputProp(database, row.tag, property) != 0) {
      return refused("a comment can't be stored");
    }
  }
  if (!notes.comments.empty()) PVBrowDirty(database, row);
  for (const std::string& name : notes.labels) {
    if (PVBlabelAdd(database, length.pattern(), name.c_str(), kLabelPlain, number) != 0) {
      return refused(fmt::format("label '{}' can't be entered", name));
    }
  }
  notes.clear();
  return true;
}

bool PatternWriter::Parts::noteAtRow(std::uint32_t number) {
  if (notes.empty()) return true;
  PVBposition position;
  position.row = number;
  const RowHandle row(database, PVBpatternInqRow(database, length.pattern(), position, BY_ROW));
  return row ? noteAt(*row, number) : refused("the last row can't be read");
}

// --- Structure -----------------------------------------------------------------------

bool PatternWriter::beginLoop(std::uint32_t count) {
  Parts& parts = *parts_;
  if (!parts.failure.empty()) return false;
  if (count == 0) return parts.fail("a loop needs a pass");
  if (!parts.length.beginLoop(count)) return parts.fail(kTooLong);
  return parts.insertStructure(ROW_LOOP, count, kNoLink);
}

// The end row came with its loop; comments and labels in hand are its.
bool PatternWriter::endLoop() {
  Parts& parts = *parts_;
  if (!parts.failure.empty()) return false;
  if (!parts.length.inLoop()) return parts.fail("there is no loop to end");
  parts.length.endLoop();
  if (!parts.length.addRows(1)) return parts.fail(kTooLong);
  ++parts.rows;
  return parts.noteAtLastRow();
}

int PatternWriter::beginSubroutine(std::string_view name) {
  Parts& parts = *parts_;
  if (!parts.failure.empty()) return -1;
  if (parts.outer) return parts.fail("a subroutine can't stand in another one"), -1;
  const int pattern = PVBsubroutineNew(parts.database, name);
  if (pattern < 0) return parts.refused(fmt::format("subroutine '{}' can't be made", name)), -1;
  parts.outer = {std::move(parts.length), std::move(parts.notes)};
  parts.length = PatternLength(pattern);
  parts.notes = {};
  return pattern;
}

bool PatternWriter::endSubroutine() {
  Parts& parts = *parts_;
  if (!parts.failure.empty()) return false;
  if (!parts.outer) return parts.fail("there is no subroutine to end");
  if (parts.length.inLoop()) return parts.fail("a loop has no end");
  if (!parts.noteAtLastRow()) return false;
  const int pattern = parts.length.pattern();
  parts.subroutines.emplace(pattern, std::move(parts.length));
  parts.length = std::move(parts.outer->length);
  parts.notes = std::move(parts.outer->notes);
  parts.outer.reset();
  return true;
}

bool PatternWriter::call(int subroutine) {
  Parts& parts = *parts_;
  if (!parts.failure.empty()) return false;
  const auto called = parts.subroutines.find(subroutine);
  if (called == parts.subroutines.end()) return parts.fail("there is no such subroutine");
  if (!parts.length.addCall(called->second)) return parts.fail(kTooLong);
  return parts.insertStructure(ROW_SUBR_CALL, 1, static_cast<std::uint32_t>(subroutine));
}

bool PatternWriter::finish() {
  Parts& parts = *parts_;
  if (!parts.failure.empty()) return false;
  if (parts.outer) return parts.fail("a subroutine has no end");
  if (parts.length.inLoop()) return parts.fail("a loop has no end");
  if (!parts.noteAtLastRow()) return false;
  if (parts.batch->end() != 0) return parts.refused("the sums can't be brought up to date");
  parts.batch.reset();
  return true;
}

void PatternWriter::abandon() {
  parts_->batch.reset();
  if (parts_->failure.empty()) parts_->failure = "the pattern was given up";
}
