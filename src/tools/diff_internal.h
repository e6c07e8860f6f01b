#pragma once

// What the ways to compare share: a database on one side with the walk over its
// pattern, where differences go, and the passes of loops that needn't be compared.

#include <string>
#include <unordered_map>
#include <vector>

#include "tools/diff.h"
#include "tools/flat_walk.h"
#include "tools/tool_progress.h"

class DiffSideWalk {
 public:
  DiffSideWalk(int database, const DiffStretch& stretch, EventStore& store,
               const std::vector<const PVBsignal*>& signals, PreviousMode mode);

  // Walks to the beginning of the stretch; a cycle that begins before it and ends
  // behind it is the first one. False after a failure.
  bool reach();
  // Whether a step stands at hand that begins within the stretch.
  bool ready();
  const FlatStep& step() const { return walk_.step(); }
  // Cycles of the step within the stretch.
  std::uint64_t left() const;
  bool isSpacer() const { return step().row->type == ROW_SPACER; }
  void take(std::uint64_t cycles) { walk_.take(cycles); }

  FlatWalk& walk() { return walk_; }
  const FlatWalk& walk() const { return walk_; }
  Meaning& meaning() { return meaning_; }
  const DiffStretch& stretch() const { return stretch_; }
  // From the beginning of the stretch; at its end the length.
  std::int64_t time() const;
  std::uint64_t cycle() const { return walk_.cycle() - firstCycle_; }
  std::string place() const { return place(step().pattern, step().rowNumber); }
  std::string place(int pattern, std::uint32_t row) const;

  // States that the signals were left at.
  std::vector<std::uint8_t>& previous() { return previous_; }
  // The events of a signal in the step, with what went before put in.
  EventListId settled(PlateMeaning& plate, std::size_t signal);
  // Takes over how events leave a signal.
  void leave(std::size_t signal, EventListId events) {
    const ListEffect& effect = meaning_.effect(events);
    if (effect.drives) previous_[signal] = effect.after;
  }
  // The same for all signals of the step.
  void leaveAll();

 private:
  void skipPasses();

  int database_;
  DiffStretch stretch_;
  FlatWalk walk_;
  Meaning meaning_;
  std::vector<std::uint8_t> previous_;
  std::uint64_t firstCycle_ = 0;
};

// Whether both sides are known to stand at rows of the same bytes under plates that mean
// the same to all signals: then the events are the same where the signals were left alike.
// Plates are compared when rows under both have been met often enough for it to pay.
class EqualRows {
 public:
  EqualRows(DiffSideWalk& a, DiffSideWalk& b) : a_(a), b_(b), bytes_(a.meaning().usedBytes()) {}
  bool equal();

 private:
  static constexpr int kRowsBefore = 16;
  static constexpr std::size_t kMostPairs = std::size_t{1} << 20;
  struct PlatePair {
    int rows = 0;  // met, up to the comparison
    bool same = false;
  };

  bool samePlates(std::uint16_t a, std::uint16_t b);

  DiffSideWalk& a_;
  DiffSideWalk& b_;
  std::size_t bytes_;
  std::unordered_map<std::uint32_t, PlatePair> pairs_;
  std::uint32_t lastPlates_ = 0;
  const PlatePair* last_ = nullptr;  // of `pairs_`
};

// Counts differences and tells them; a difference of n cycles counts n.
class DiffTally {
 public:
  explicit DiffTally(const DifferenceSink& told) : told_(told) {}
  void tell(const Difference& difference) {
    count += difference.cycles;
    told_(difference);
  }

  std::uint64_t count = 0;

 private:
  const DifferenceSink& told_;
};

// Passes of loops, calls and long runs of cycles that meet again and again on both sides,
// be it every second pass of one side and every third of the other: once two stretches
// between meetings have been compared, all others differ as the second one does, because
// nothing but the passes themselves decides how they leave the signals.
class PassSkip {
 public:
  // Whether both sides stand where passes begin.
  static bool meets(const DiffSideWalk& a, const DiffSideWalk& b);
  // Both sides stand at the same place.
  void arrive(DiffSideWalk& a, DiffSideWalk& b, DiffTally& tally);
  // The same for long runs of cycles of different lengths that stand apart in time: they
  // meet again when they are as far apart as the first time.
  bool meetsApart(const DiffSideWalk& a, const DiffSideWalk& b, std::int64_t apart) const;
  void arriveApart(DiffSideWalk& a, DiffSideWalk& b, DiffTally& tally, std::int64_t apart);

 private:
  struct Place {
    std::uint64_t serial;
    std::uint64_t number;
  };
  struct Pair {
    Place a;
    Place b;
    std::uint64_t differences;
    std::uint64_t passesA = 0;  // since the meeting before
    std::uint64_t passesB = 0;
  };
  bool meet(DiffSideWalk& a, const FlatPass& passA, DiffSideWalk& b, const FlatPass& passB,
            DiffTally& tally);
  static bool skip(Pair& pair, DiffSideWalk& a, const FlatPass& passA, DiffSideWalk& b,
                   const FlatPass& passB, DiffTally& tally);

  std::vector<Pair> pairs_;
  // The runs that stood apart last.
  Pair runs_{};
  std::int64_t apart_ = 0;
};

// What is compared, signal by signal in one order on both sides.
struct DiffSignals {
  std::vector<const PVBsignal*> a;
  std::vector<const PVBsignal*> b;
};

// False after a failure of a walk, which is in its `failure`. The progress is the time of `a`.
bool diffCycles(DiffSideWalk& a, DiffSideWalk& b, const DiffSignals& signals,
                const EventStore& store, DiffTally& tally, Progress& progress);
bool diffWaves(DiffSideWalk& a, DiffSideWalk& b, const DiffSignals& signals,
               const EventStore& store, DiffTally& tally, Progress& progress);
