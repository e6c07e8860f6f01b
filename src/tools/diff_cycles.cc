// Cycle by cycle.

#include "tools/diff_internal.h"
#include "tools/dump_format.h"

namespace {

class CycleDiff {
 public:
  CycleDiff(DiffSideWalk& a, DiffSideWalk& b, const DiffSignals& signals, const EventStore& store,
            DiffTally& tally)
      : a_(a),
        b_(b),
        signals_(signals),
        store_(store),
        tally_(tally),
        rows_(a, b),
        usesPrevious_(a.meaning().usesPrevious() || b.meaning().usesPrevious()),
        leftAlike_(a.previous() == b.previous()) {}

  bool run(Progress& progress);

 private:
  void steps();
  void kinds(std::uint64_t cycles);
  void periods(std::uint64_t cycles);
  void signals(std::uint64_t cycles);
  void end(bool moreA, bool moreB);
  Difference difference(std::string what, std::uint64_t cycles) const;

  DiffSideWalk& a_;
  DiffSideWalk& b_;
  const DiffSignals& signals_;
  const EventStore& store_;
  DiffTally& tally_;
  PassSkip skip_;
  EqualRows rows_;
  bool usesPrevious_;
  bool leftAlike_;  // both sides left all signals in the same states
};

// --- Steps ---------------------------------------------------------------------------

bool CycleDiff::run(Progress& progress) {
  bool moreA = a_.ready();
  bool moreB = b_.ready();
  while (moreA && moreB) {
    progress.update(a_.time());
    if (PassSkip::meets(a_, b_)) skip_.arrive(a_, b_, tally_);
    steps();
    moreA = a_.ready();
    moreB = b_.ready();
  }
  if (a_.walk().failed() || b_.walk().failed()) return false;
  if (moreA || moreB) end(moreA, moreB);
  return true;
}

// A cycle settles what all that are equal to it leave behind, so a run of them is two
// comparisons.
void CycleDiff::steps() {
  const std::uint64_t cycles = std::min(a_.left(), b_.left());
  if (a_.isSpacer() || b_.isSpacer()) {
    if (a_.isSpacer() != b_.isSpacer()) {
      kinds(1);
      if (usesPrevious_) {
        if (!a_.isSpacer()) a_.leaveAll();
        if (!b_.isSpacer()) b_.leaveAll();
        leftAlike_ = a_.previous() == b_.previous();
      }
    } else {
      periods(1);
    }
    a_.take(1);
    b_.take(1);
    return;
  }
  kinds(cycles);
  periods(cycles);
  if (usesPrevious_ && cycles > 1) {
    signals(1);
    a_.take(1);
    b_.take(1);
  }
  const std::uint64_t rest = usesPrevious_ && cycles > 1 ? cycles - 1 : cycles;
  signals(rest);
  a_.take(rest);
  b_.take(rest);
}

Difference CycleDiff::difference(std::string what, std::uint64_t cycles) const {
  Difference difference;
  difference.what = std::move(what);
  difference.cycle = a_.cycle();
  difference.cycles = cycles;
  difference.a = {a_.place(), a_.step().start, {}};
  difference.b = {b_.place(), b_.step().start, {}};
  return difference;
}

void CycleDiff::kinds(std::uint64_t cycles) {
  const auto kind = [](const FlatStep& step) {
    return step.row->type == ROW_SPACER  ? "spacer"
           : step.row->type == ROW_MATCH ? "match"
                                         : "cycle";
  };
  Difference found = difference("kind", cycles);
  found.a.text = kind(a_.step());
  found.b.text = kind(b_.step());
  if (found.a.text != found.b.text) tally_.tell(found);
}

void CycleDiff::periods(std::uint64_t cycles) {
  if (a_.step().period == b_.step().period) return;
  Difference found = difference("period", cycles);
  appendTime(found.a.text, timeOfFemtoseconds(a_.step().period));
  appendTime(found.b.text, timeOfFemtoseconds(b_.step().period));
  tally_.tell(found);
}

// --- Signals -------------------------------------------------------------------------

void CycleDiff::signals(std::uint64_t cycles) {
  if (leftAlike_ && rows_.equal()) {
    if (!usesPrevious_) return;
    a_.leaveAll();
    b_.previous() = a_.previous();
    return;
  }
  PlateMeaning& plateA = a_.meaning().plate(a_.step().row->timeplate);
  PlateMeaning& plateB = b_.meaning().plate(b_.step().row->timeplate);
  for (std::size_t i = 0; i < signals_.a.size(); ++i) {
    const EventListId eventsA = a_.settled(plateA, i);
    const EventListId eventsB = b_.settled(plateB, i);
    if (eventsA != eventsB) {
      Difference found = difference("events", cycles);
      found.signal = *signals_.a[i]->name;
      found.a.text = store_.text(eventsA);
      found.b.text = store_.text(eventsB);
      tally_.tell(found);
    }
    if (!usesPrevious_) continue;
    a_.leave(i, eventsA);
    b_.leave(i, eventsB);
  }
  if (usesPrevious_) leftAlike_ = a_.previous() == b_.previous();
}

void CycleDiff::end(bool moreA, bool moreB) {
  Difference found;
  found.what = "length";
  found.cycle = a_.cycle();
  const auto tellSide = [](DiffSideWalk& side, bool more, DiffSide& told) {
    if (more) told.row = side.place();
    told.time = side.walk().time();
    told.text = more ? "goes on" : "ends";
  };
  tellSide(a_, moreA, found.a);
  tellSide(b_, moreB, found.b);
  tally_.tell(found);
}

}  // namespace

bool diffCycles(DiffSideWalk& a, DiffSideWalk& b, const DiffSignals& signals,
                const EventStore& store, DiffTally& tally, Progress& progress) {
  return CycleDiff(a, b, signals, store, tally).run(progress);
}
