#include "tools/flat_walk.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "pvb/database.h"
#include "pvb/scan_run.h"
#include "pvb/timeplate.h"

namespace {

constexpr std::int64_t kMinorUnits = 1000000000;
const std::int64_t kLongest = femtoseconds(TIME_MAX);

bool isCycleRow(std::uint32_t type) {
  return type == ROW_LITERAL || type == ROW_SCAN || type == ROW_MATCH;
}

std::string patternName(int database, int pattern) {
  if (pattern == kMainPattern) return "the main pattern";
  return fmt::format("subroutine \"{}\"", PVBsubroutineName(database, pattern));
}

// What the walk over a pattern's own rows tells.
struct PatternContent {
  bool cycles = false;
  std::set<int> calls;
};

bool readContent(int database, int pattern, PatternContent& content) {
  PatternWalk walk(database, pattern);
  while (walk.next()) {
    const PVBnodeEntry& entry = walk.entry();
    if (entry.type == ROW_SUBR_CALL) content.calls.insert(static_cast<int>(entry.index));
    if (isCycleRow(entry.type) || entry.type == ROW_SPACER) content.cycles = true;
  }
  return !walk.failed();
}

std::uint32_t longestChain(int database, const PVBrow& row) {
  std::int32_t length = 0;
  const PVBscanRunIterator runs = PVBcreateScanRunIterator(database, row);
  for (const PVBid run : runs.runs) {
    length = std::max(length, PVBchainLength(database, PVBinqChain(database, run)));
  }
  return static_cast<std::uint32_t>(length);
}

}  // namespace

std::int64_t femtoseconds(TIME time) { return PBtimeToLong(time); }

TIME timeOfFemtoseconds(std::int64_t value) {
  return {static_cast<std::int32_t>(value / kMinorUnits),
          static_cast<std::int32_t>(value % kMinorUnits)};
}

// --- Before the walk -----------------------------------------------------------------

FlatWalk::FlatWalk(int database, int pattern) : database_(database) {
  const PVBdatabase* slot = PVBgetSection(database, kSectionPatterns);
  const std::int64_t root = PVBpatternRoot(database, pattern);
  if (slot == nullptr || root < 0) {
    fail("there is no such pattern");
    return;
  }
  nodes_ = slot->patterns->nodes;
  hasCycles_.resize(slot->patterns->subroutines.size());
  if (check(pattern)) push(static_cast<std::uint32_t>(root), pattern, 0, 1);
}

// Walks over all patterns that can be reached: their trees must be sound, no call may
// come back to its caller. What a pattern has no cycles is known afterwards.
bool FlatWalk::check(int pattern) {
  struct Open {
    int pattern;
    PatternContent content;
  };
  std::vector<bool> open(hasCycles_.size());
  std::vector<bool> done(hasCycles_.size());
  std::vector<Open> path;
  const auto enterPattern = [&](int index) {
    path.push_back({index, {}});
    if (index != kMainPattern) open[static_cast<std::size_t>(index)] = true;
    return readContent(database_, index, path.back().content) ||
           fail(fmt::format("pvb.pk: the rows of {} can't be read", patternName(database_, index)));
  };
  if (!enterPattern(pattern)) return false;
  while (!path.empty()) {
    Open& top = path.back();
    if (top.content.calls.empty()) {
      const bool cycles = top.content.cycles;
      if (top.pattern != kMainPattern) {
        const auto index = static_cast<std::size_t>(top.pattern);
        open[index] = false;
        done[index] = true;
        hasCycles_[index] = cycles;
      }
      path.pop_back();
      if (!path.empty() && cycles) path.back().content.cycles = true;
      continue;
    }
    const int callee = *top.content.calls.begin();
    top.content.calls.erase(top.content.calls.begin());
    const auto index = static_cast<std::size_t>(callee);
    if (PVBsubroutineInq(database_, callee) == nullptr || index >= open.size()) {
      return fail(fmt::format("{} calls a subroutine that doesn't exist",
                              patternName(database_, top.pattern)));
    }
    if (open[index]) {
      return fail(fmt::format("{} calls itself", patternName(database_, callee)));
    }
    if (done[index]) {
      top.content.cycles = top.content.cycles || hasCycles_[index];
    } else if (!enterPattern(callee)) {
      return false;
    }
  }
  return true;
}

bool FlatWalk::fail(std::string text) {
  failure_ = std::move(text);
  return false;
}

// --- Walking -------------------------------------------------------------------------

void FlatWalk::push(std::uint32_t root, int pattern, std::uint32_t firstRow, std::uint32_t passes) {
  frames_.push_back({TreeCursor(nodes_, root),
                     root,
                     pattern,
                     firstRow,
                     firstRow,
                     {++serial_, 0, passes - 1U, step_.cycle, step_.start, 0, 0}});
  if (passes > 1) ++repeated_;
}

// A pass without cycles is as good as all of them.
void FlatWalk::endPass() {
  Frame& frame = frames_.back();
  FlatPass& pass = frame.pass;
  if (pass.left > 0 && step_.cycle != pass.firstCycle) {
    --pass.left;
    ++pass.number;
    pass.cycles = step_.cycle - pass.firstCycle;
    pass.time = step_.start - pass.start;
    pass.firstCycle = step_.cycle;
    pass.start = step_.start;
    frame.cursor = TreeCursor(nodes_, frame.root);
    frame.nextRow = frame.firstRow;
    return;
  }
  if (pass.left + pass.number > 0) --repeated_;
  frames_.pop_back();
}

void FlatWalk::take(std::uint64_t cycles) {
  step_.cycle += cycles;
  step_.count -= cycles;
  step_.start += step_.period * static_cast<std::int64_t>(cycles);
}

bool FlatWalk::next() {
  take(step_.count);
  while (!failed()) {
    if (scanCycle_ < scanCycles_) return scanCycles();
    row_.reset();
    step_.row = nullptr;
    if (frames_.empty()) return false;
    Frame& frame = frames_.back();
    PVBnodeEntry entry;
    if (!frame.cursor.next(entry)) {
      if (frame.cursor.failed()) return fail("pvb.pk: the order of the rows can't be read");
      endPass();
      continue;
    }
    const std::uint32_t rowNumber = frame.nextRow;
    frame.nextRow += entry.type == ROW_LOOP ? std::max(entry.rows, 1U) : 1U;
    if (enter(entry, rowNumber) && step_.count > 0) return true;
  }
  return false;
}

bool FlatWalk::enter(const PVBnodeEntry& entry, std::uint32_t rowNumber) {
  const bool structure = entry.type == ROW_LOOP || entry.type == ROW_SUBR_CALL;
  if (!structure) return enterRow(entry.child, rowNumber, 1);
  const RowHandle row(database_, PVBrowGet(database_, entry.child));
  if (!row) return fail(fmt::format("pvb.pd: row {} can't be read", rowNumber));
  if (row->count == 0) return true;
  return entry.type == ROW_LOOP ? enterLoop(entry, rowNumber, row->count) : enterCall(entry, *row);
}

// A body of one row is a repeat of the row.
bool FlatWalk::enterLoop(const PVBnodeEntry& entry, std::uint32_t rowNumber, std::uint32_t count) {
  TreeCursor cursor(nodes_, entry.index);
  PVBnodeEntry first;
  PVBnodeEntry second;
  const bool single = cursor.next(first) && cursor.next(second) && second.type == ROW_END_LOOP &&
                      (first.type == ROW_LITERAL || first.type == ROW_MATCH);
  if (single && !cursor.next(second)) return enterRow(first.child, rowNumber + 1, count);
  push(entry.index, frames_.back().pattern, rowNumber + 1, count);
  return true;
}

// The check before the walk went by the entries.
bool FlatWalk::enterCall(const PVBnodeEntry& entry, const PVBrow& row) {
  const std::uint32_t index = row.link;
  if (index != entry.index || index >= hasCycles_.size()) {
    return fail("pvb.pd: a call isn't the one that its tree tells");
  }
  if (!hasCycles_[index]) return true;
  const auto pattern = static_cast<int>(index);
  const std::int64_t root = PVBpatternRoot(database_, pattern);
  if (root < 0) return fail("pvb.ps: a subroutine has no rows");
  push(static_cast<std::uint32_t>(root), pattern, 0, row.count);
  return true;
}

bool FlatWalk::enterRow(std::uint32_t id, std::uint32_t rowNumber, std::uint64_t passes) {
  row_ = RowHandle(database_, PVBrowGet(database_, id));
  if (!row_) return fail(fmt::format("pvb.pd: row {} can't be read", rowNumber));
  if (row_->type == ROW_SPACER) return begin(*row_, rowNumber, 1);
  if (!isCycleRow(row_->type)) return true;
  return begin(*row_, rowNumber, row_->count * passes);
}

bool FlatWalk::begin(const PVBrow& row, std::uint32_t rowNumber, std::uint64_t count) {
  rowSerial_ = ++serial_;
  step_.row = &row;
  step_.pattern = frames_.back().pattern;
  step_.rowNumber = rowNumber;
  const TIME period =
      row.type == ROW_SPACER ? row.spacerTime : PVBtimePlatePeriod(database_, row.timeplate);
  step_.period = std::max<std::int64_t>(femtoseconds(period), 0);
  const auto room = static_cast<std::uint64_t>(kLongest - step_.start);
  if (step_.period > 0 && count > room / static_cast<std::uint64_t>(step_.period)) return tooLong();
  if (row.type == ROW_SCAN && row.link != kNoLink) return beginScan(count);
  step_.count = count;
  return true;
}

// --- Scan rows -----------------------------------------------------------------------

// The states come into a copy: behind a chain's end the row's own ones are needed.
bool FlatWalk::beginScan(std::uint64_t count) {
  scanCycle_ = 0;
  scanCycles_ = static_cast<std::uint32_t>(count);
  scanEnd_ = longestChain(database_, *row_);
  const std::size_t bytes = kRowStatesOffset + static_cast<std::size_t>(PVBrowDataSize(database_));
  scanRow_.resize(bytes / sizeof(std::uint64_t) + 1);
  return scanCycles_ == 0 || scanCycles();
}

bool FlatWalk::scanCycles() {
  auto* copy = reinterpret_cast<PVBrow*>(scanRow_.data());
  std::memcpy(static_cast<void*>(copy), row_.get(),
              kRowStatesOffset + static_cast<std::size_t>(PVBrowDataSize(database_)));
  if (PVBscanFillStates(database_, *copy, scanCycle_) != 0) {
    scanCycle_ = scanCycles_ = 0;
    return fail(fmt::format("row {}: what it shifts can't be read", step_.rowNumber));
  }
  step_.row = copy;
  step_.count = scanCycle_ < scanEnd_ ? 1 : scanCycles_ - scanCycle_;
  scanCycle_ += static_cast<std::uint32_t>(step_.count);
  return true;
}

// --- Passes --------------------------------------------------------------------------

bool FlatWalk::beginsPass() const {
  if (repeated_ == 0) return false;
  return std::ranges::any_of(frames_, [this](const Frame& frame) {
    return frame.pass.left + frame.pass.number > 0 && frame.pass.firstCycle == step_.cycle;
  });
}

std::vector<FlatPass> FlatWalk::passes() const {
  std::vector<FlatPass> passes;
  for (const Frame& frame : frames_) {
    if (frame.pass.left + frame.pass.number > 0) passes.push_back(frame.pass);
  }
  return passes;
}

FlatPass FlatWalk::longRun() const {
  return {rowSerial_, step_.cycle, step_.count - 1, step_.cycle, step_.start, 1, step_.period};
}

bool FlatWalk::tooLong() { return fail("the pattern is longer than a time can be"); }

void FlatWalk::skipPasses(std::uint64_t serial, std::uint64_t passes) {
  if (serial == rowSerial_) {
    take(passes);
    return;
  }
  const auto found = std::ranges::find_if(
      frames_, [serial](const Frame& frame) { return frame.pass.serial == serial; });
  if (found == frames_.end()) return;
  FlatPass& pass = found->pass;
  const auto room = static_cast<std::uint64_t>(kLongest - step_.start);
  if (pass.time > 0 && passes > room / static_cast<std::uint64_t>(pass.time)) {
    tooLong();
    return;
  }
  pass.left -= passes;
  pass.number += passes;
  const std::uint64_t cycles = passes * pass.cycles;
  const std::int64_t time = static_cast<std::int64_t>(passes) * pass.time;
  for (auto frame = found; frame != frames_.end(); ++frame) {
    frame->pass.firstCycle += cycles;
    frame->pass.start += time;
  }
  step_.cycle += cycles;
  step_.start += time;
}
