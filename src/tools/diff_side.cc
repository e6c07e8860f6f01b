// One side of a comparison, and passes of both sides that needn't be compared.

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "pvb/database.h"
#include "tools/diff_internal.h"

namespace {

// Cycles of `period` that begin before `limit`.
std::uint64_t cyclesBefore(std::int64_t start, std::int64_t period, std::int64_t limit) {
  if (start >= limit) return 0;
  if (period == 0) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>((limit - start - 1) / period + 1);
}

// Passes behind this one that may be left out: the walk comes to stand within the
// stretch, and no pass left out reaches beyond it.
std::uint64_t passesWithin(const DiffSideWalk& side, const FlatPass& pass) {
  const std::int64_t room = side.stretch().to - pass.start;
  if (pass.time <= 0 || room <= 0) return room > 0 ? pass.left : 0;
  const auto whole = static_cast<std::uint64_t>(room / pass.time);
  return whole == 0 ? 0 : std::min(pass.left, whole - 1);
}

}  // namespace

DiffSideWalk::DiffSideWalk(int database, const DiffStretch& stretch, EventStore& store,
                           const std::vector<const PVBsignal*>& signals, PreviousMode mode)
    : database_(database),
      stretch_(stretch),
      walk_(database, kMainPattern),
      meaning_(database, store, signals, mode),
      previous_(signals.size(), kLeftUnknown) {}

// --- The stretch ---------------------------------------------------------------------

// The cycle that holds the beginning of the stretch stays.
bool DiffSideWalk::reach() {
  while (stretch_.from > 0 && walk_.time() < stretch_.from && walk_.next()) {
    if (walk_.beginsPass()) skipPasses();
    if (walk_.failed()) break;
    const FlatStep& step = walk_.step();
    if (step.start >= stretch_.from) break;
    std::uint64_t cycles = step.count;
    if (step.period > 0) {
      const auto whole = static_cast<std::uint64_t>((stretch_.from - step.start) / step.period);
      cycles = std::min(cycles, whole);
    }
    if (cycles > 0 && meaning_.usesPrevious() && !isSpacer()) leaveAll();
    walk_.take(cycles);
    if (step.count > 0) break;
  }
  firstCycle_ = walk_.cycle();
  return !walk_.failed();
}

// Passes that end before the stretch: all but the first leave the signals alike.
void DiffSideWalk::skipPasses() {
  for (const FlatPass& pass : walk_.passes()) {
    if (pass.firstCycle != walk_.cycle() || pass.time <= 0) continue;
    const auto before = static_cast<std::uint64_t>((stretch_.from - pass.start) / pass.time);
    const std::uint64_t passes = std::min(pass.left, before);
    if (passes == 0) continue;
    walk_.skipPasses(pass.serial, passes);
    return;
  }
}

bool DiffSideWalk::ready() {
  while (walk_.step().count == 0) {
    if (!walk_.next()) return false;
  }
  return !walk_.failed() && walk_.time() < stretch_.to;
}

std::uint64_t DiffSideWalk::left() const {
  return std::min(step().count, cyclesBefore(step().start, step().period, stretch_.to));
}

std::int64_t DiffSideWalk::time() const {
  return std::min(walk_.time(), stretch_.to) - stretch_.from;
}

std::string DiffSideWalk::place(int pattern, std::uint32_t row) const {
  if (pattern == kMainPattern) return fmt::format("{}", row);
  return fmt::format("{}:{}", PVBsubroutineName(database_, pattern), row);
}

// --- What went before ----------------------------------------------------------------

EventListId DiffSideWalk::settled(PlateMeaning& plate, std::size_t signal) {
  const EventListId id = meaning_.events(plate, *step().row, signal);
  if (!meaning_.usesPrevious()) return id;
  return meaning_.effect(id).settled[previous_[signal]];
}

void DiffSideWalk::leaveAll() {
  PlateMeaning& plate = meaning_.plate(step().row->timeplate);
  for (std::size_t i = 0; i < previous_.size(); ++i) {
    leave(i, meaning_.events(plate, *step().row, i));
  }
}

// --- Equal rows ----------------------------------------------------------------------

bool EqualRows::samePlates(std::uint16_t a, std::uint16_t b) {
  const std::uint32_t key = static_cast<std::uint32_t>(a) << 16 | b;
  if (last_ != nullptr && key == lastPlates_ && last_->rows > kRowsBefore) return last_->same;
  if (pairs_.size() >= kMostPairs) pairs_.clear();
  PlatePair& pair = pairs_[key];
  lastPlates_ = key;
  last_ = &pair;
  if (pair.rows > kRowsBefore) return pair.same;
  if (++pair.rows <= kRowsBefore) return false;
  return pair.same =
             sameMeaning(a_.meaning(), a_.meaning().plate(a), b_.meaning(), b_.meaning().plate(b));
}

bool EqualRows::equal() {
  const PVBrow& rowA = *a_.step().row;
  const PVBrow& rowB = *b_.step().row;
  return samePlates(rowA.timeplate, rowB.timeplate) &&
         std::memcmp(rowA.states(), rowB.states(), bytes_) == 0;
}

// --- Passes --------------------------------------------------------------------------

namespace {

std::vector<FlatPass> allPasses(const FlatWalk& walk) {
  std::vector<FlatPass> passes = walk.passes();
  if (walk.isLongRun()) passes.push_back(walk.longRun());
  return passes;
}

}  // namespace

bool PassSkip::meets(const DiffSideWalk& a, const DiffSideWalk& b) {
  const bool passA = a.walk().beginsPass();
  const bool passB = b.walk().beginsPass();
  if (!passA && !passB) {
    // Runs of cycles of one length are nothing to meet again for.
    return a.step().period != b.step().period && a.walk().isLongRun() && b.walk().isLongRun();
  }
  return (passA || a.walk().isLongRun()) && (passB || b.walk().isLongRun());
}

void PassSkip::arrive(DiffSideWalk& a, DiffSideWalk& b, DiffTally& tally) {
  const std::vector<FlatPass> passesA = allPasses(a.walk());
  const std::vector<FlatPass> passesB = allPasses(b.walk());
  const auto isIn = [](const std::vector<FlatPass>& passes, std::uint64_t serial) {
    return std::ranges::find(passes, serial, &FlatPass::serial) != passes.end();
  };
  std::erase_if(pairs_, [&](const Pair& pair) {
    return !isIn(passesA, pair.a.serial) || !isIn(passesB, pair.b.serial);
  });
  for (const FlatPass& passA : passesA) {
    if (passA.firstCycle != a.walk().cycle()) continue;
    for (const FlatPass& passB : passesB) {
      if (passB.firstCycle != b.walk().cycle()) continue;
      // The places of the passes further in have moved with a skip.
      if (meet(a, passA, b, passB, tally)) return;
    }
  }
}

bool PassSkip::meet(DiffSideWalk& a, const FlatPass& passA, DiffSideWalk& b, const FlatPass& passB,
                    DiffTally& tally) {
  const auto pair = std::ranges::find_if(pairs_, [&](const Pair& known) {
    return known.a.serial == passA.serial && known.b.serial == passB.serial;
  });
  if (pair != pairs_.end()) return skip(*pair, a, passA, b, passB, tally);
  pairs_.push_back({{passA.serial, passA.number}, {passB.serial, passB.number}, tally.count});
  return false;
}

// False where the passes haven't met in a steady rhythm so far.
bool PassSkip::skip(Pair& pair, DiffSideWalk& a, const FlatPass& passA, DiffSideWalk& b,
                    const FlatPass& passB, DiffTally& tally) {
  const std::uint64_t countA = passA.number - pair.a.number;
  const std::uint64_t countB = passB.number - pair.b.number;
  const std::uint64_t differences = tally.count - pair.differences;
  const bool again = countA == pair.passesA && countB == pair.passesB;
  pair.a.number = passA.number;
  pair.b.number = passB.number;
  pair.differences = tally.count;
  pair.passesA = countA;
  pair.passesB = countB;
  if (!again || countA == 0 || countB == 0) return false;
  const std::uint64_t times =
      std::min(passesWithin(a, passA) / countA, passesWithin(b, passB) / countB);
  if (times == 0) return false;
  a.walk().skipPasses(passA.serial, times * countA);
  b.walk().skipPasses(passB.serial, times * countB);
  tally.count += differences * times;
  pair.a.number += times * countA;
  pair.b.number += times * countB;
  pair.differences = tally.count;
  return true;
}

bool PassSkip::meetsApart(const DiffSideWalk& a, const DiffSideWalk& b, std::int64_t apart) const {
  if (!a.walk().isLongRun() || !b.walk().isLongRun()) return false;
  if (a.step().period == b.step().period) return false;
  const bool known =
      runs_.a.serial == a.walk().longRun().serial && runs_.b.serial == b.walk().longRun().serial;
  return !known || apart == apart_;
}

void PassSkip::arriveApart(DiffSideWalk& a, DiffSideWalk& b, DiffTally& tally, std::int64_t apart) {
  const FlatPass runA = a.walk().longRun();
  const FlatPass runB = b.walk().longRun();
  if (runs_.a.serial == runA.serial && runs_.b.serial == runB.serial) {
    skip(runs_, a, runA, b, runB, tally);
    return;
  }
  runs_ = {{runA.serial, runA.number}, {runB.serial, runB.number}, tally.count};
  apart_ = apart;
}
