#pragma once

// A pattern cycle by cycle: loops, calls and repeats taken apart as the walk goes on,
// in memory that follows the nesting, not the length. Equal cycles in a row come as
// one step, and the loops and calls around a step can be skipped by whole passes, so
// that a count of 10^9 costs no more than one of 10.
//
// The pattern must not change meanwhile. One row is reserved at a time. Damaged trees,
// subroutines that call themselves and patterns longer than a time can be end the walk
// with a failure; each loop and call met is known to end before the walk begins.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "pvb/pattern.h"
#include "pvb/row.h"
#include "pvb/tree.h"

// Times here are whole femtoseconds.
std::int64_t femtoseconds(TIME time);
TIME timeOfFemtoseconds(std::int64_t value);

// Cycles of one row with the same states, or a spacer.
struct FlatStep {
  const PVBrow* row = nullptr;  // its type, timeplate and states in these cycles
  int pattern = kMainPattern;   // where the row stands
  std::uint32_t rowNumber = 0;
  std::uint64_t cycle = 0;  // number of the first cycle; a spacer counts as one
  std::uint64_t count = 0;  // cycles
  std::int64_t start = 0;   // of the first one
  std::int64_t period = 0;  // of each
};

// A pass of a loop or call that has several of them, or a cycle of a long run of equal
// ones.
struct FlatPass {
  std::uint64_t serial;      // its own for each time that a loop, call or row is entered
  std::uint64_t number;      // of the pass, counted on by 1
  std::uint64_t left;        // passes behind this one
  std::uint64_t firstCycle;  // where this pass began
  std::int64_t start;
  std::uint64_t cycles;  // how long a pass is; known from the second one on
  std::int64_t time;
};

class FlatWalk {
 public:
  // Checks the trees of the pattern and of what it calls.
  FlatWalk(int database, int pattern);

  // The step behind the current one; false at the end and after a failure.
  bool next();
  const FlatStep& step() const { return step_; }
  // Takes cycles off the beginning of the step. Behind the last one `next` is due.
  void take(std::uint64_t cycles);
  // Where the walk stands: the beginning of what is left of the step, or the end.
  std::uint64_t cycle() const { return step_.cycle; }
  std::int64_t time() const { return step_.start; }

  bool failed() const { return !failure_.empty(); }
  const std::string& failure() const { return failure_; }

  // The repeated loops and calls around the step, outermost first.
  std::vector<FlatPass> passes() const;
  // Whether a pass of one of them begins here.
  bool beginsPass() const;
  // Whether many equal cycles are left of the step, and these as passes of one cycle.
  bool isLongRun() const { return step_.count >= kLongRun; }
  FlatPass longRun() const;
  // At the first step of a pass of `serial`, but not of its first: leaves out passes, at
  // most those that are left. The walk then stands at the same step of a later pass.
  void skipPasses(std::uint64_t serial, std::uint64_t passes);

 private:
  // A pattern or a body being walked.
  struct Frame {
    TreeCursor cursor;
    std::uint32_t root;
    int pattern;
    std::uint32_t firstRow;
    std::uint32_t nextRow;
    FlatPass pass;
  };

  bool check(int pattern);
  bool fail(std::string text);
  bool tooLong();
  void push(std::uint32_t root, int pattern, std::uint32_t firstRow, std::uint32_t passes);
  void endPass();
  bool enter(const PVBnodeEntry& entry, std::uint32_t rowNumber);
  bool enterLoop(const PVBnodeEntry& entry, std::uint32_t rowNumber, std::uint32_t count);
  bool enterCall(const PVBnodeEntry& entry, const PVBrow& row);
  bool enterRow(std::uint32_t id, std::uint32_t rowNumber, std::uint64_t passes);
  bool begin(const PVBrow& row, std::uint32_t rowNumber, std::uint64_t count);
  bool beginScan(std::uint64_t count);
  bool scanCycles();

  static constexpr std::uint64_t kLongRun = 64;

  int database_;
  int nodes_ = -1;
  std::string failure_;
  std::vector<bool> hasCycles_;  // by subroutine
  std::vector<Frame> frames_;
  std::size_t repeated_ = 0;  // of the frames
  std::uint64_t serial_ = 0;  // the last one given
  std::uint64_t rowSerial_ = 0;
  FlatStep step_;
  RowHandle row_;

  // The cycles of a scan row that differ from each other.
  std::vector<std::uint64_t> scanRow_;  // room for the row with the states of a cycle
  std::uint32_t scanCycle_ = 0;
  std::uint32_t scanCycles_ = 0;
  std::uint32_t scanEnd_ = 0;  // of the longest chain
};
