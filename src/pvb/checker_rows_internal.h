#pragma once

// What the parts of the walk over the rows share. A signal's outcome in a row depends on the
// row's timeplate, the selector that the row holds, and on which of its columns hold data. So
// each timeplate is compiled into a plan, where each signal has one outcome for each of the
// four cases; the walk picks an outcome for each signal and has nothing more to do where it
// is clean. Of rows that were clean throughout the shape is remembered: a row of the same
// plate and shape needs no look at its signals at all.

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "pvb/checker_internal.h"

// --- Plans (checker_rows_plan.cc) ----------------------------------------------------

enum Held : unsigned { kHoldsNone = 0, kHoldsIn = 1, kHoldsOut = 2, kHoldsBoth = 3 };

struct Outcome {
  RowTracks tracks;
  DataNeed need;
  bool ambiguous = false;
  bool clean = false;
  bool seen = false;  // its tracks are marked as used
};
using Outcomes = std::array<Outcome, 4>;  // by Held

struct Columns {
  std::int32_t in = -1;
  std::int32_t out = -1;
};

// Columns that hold a signal's data. A multiplexed signal has those of its parts, the
// others one pair.
struct SignalPlan {
  Columns columns;
  bool plain = false;  // one pair of columns, no selector: `byData` is all there is
  Outcomes byData;
  std::map<char, std::unique_ptr<Outcomes>> bySelector;
};

struct PlatePlan {
  const PVBtimePlate* plate = nullptr;
  SignalSlots slots;
  std::vector<DataNeed> needs;  // by slot
  std::vector<SignalPlan> signals;
};

// The codes in a signal's columns, 0 where there is none.
inline int codeAt(const PVBrow& row, std::int32_t column) {
  return column < 0 ? 0 : rowCode(row.states(), static_cast<std::uint32_t>(column));
}
inline unsigned heldBy(Columns codes) {
  return (codes.in != 0 ? kHoldsIn : 0U) | (codes.out != 0 ? kHoldsOut : 0U);
}

// The plans of a database's timeplates, made as they are met.
class PlatePlans {
 public:
  explicit PlatePlans(const Check& check);

  // Null when there is no such timeplate. Good until the next call.
  PlatePlan* of(PVBid id);
  Outcomes& outcomesFor(PlatePlan& plan, std::size_t signal, const PVBrow& row);
  // Of a multiplexed signal the codes of the first part that has any.
  Columns codesOf(const PlatePlan& plan, std::size_t signal, const PVBrow& row) const;

 private:
  Columns inRow(const DataColumns& columns) const;
  std::unique_ptr<PlatePlan> compile(const PVBtimePlate& plate) const;
  SignalPlan planSignal(const PlatePlan& plan, std::size_t signal) const;
  Outcomes outcomes(const PlatePlan& plan, std::size_t signal, char selector) const;
  bool isAmbiguous(const PlatePlan& plan, std::size_t signal, char selector) const;

  const Check& check_;
  std::int32_t columns_;                           // that a row has room for
  std::vector<std::unique_ptr<PlatePlan>> plans_;  // by id of the timeplate
  std::size_t planned_ = 0;                        // signals in plans_
};

// --- Shapes (checker_rows_shape.cc) --------------------------------------------------

// The shapes of rows that were clean, by timeplate. A row's shape is what decides about the
// outcomes of all signals: which columns of data hold any, and what those of selectors hold.
// Observed rows are known only when each of their columns held its state in a former row of
// the shape as well.
class RowShapes {
 public:
  RowShapes(const Check& check, bool observed);

  // Whether a row like this one was noted. A row that is known needs no further look.
  bool isKnown(const PVBrow& row);
  // Notes the row that isKnown was asked about last.
  void note(const PVBrow& row);

 private:
  struct Shape {
    std::vector<std::uint64_t> key;
    std::vector<std::uint16_t> codes;  // seen in each column, a bit for each
  };
  struct PlateShapes {
    std::vector<Shape> shapes;
    std::size_t next = 0;  // to be replaced
  };

  void addColumn(std::int32_t column, bool selector);
  void makeKey(const PVBrow& row);
  Shape* find(std::uint16_t plate);
  Shape& add(std::uint16_t plate);
  bool sawCodes(const Shape& shape, const PVBrow& row) const;
  void noteCodes(Shape& shape, const PVBrow& row) const;

  bool observed_;
  std::size_t bytes_;  // of a row's states
  // Bits of a row's states that count as they are, and those (the lowest of each column)
  // that count as set when the column holds anything.
  std::vector<std::uint64_t> asTheyAre_;
  std::vector<std::uint64_t> ifAny_;
  std::vector<std::uint64_t> key_;  // of the row asked about last
  std::vector<PlateShapes> plates_;
  std::size_t kept_ = 0;  // bytes of all shapes
};

// --- Judgement (checker_rows_judge.cc) -----------------------------------------------

// Records what an outcome that isn't clean comes to.
bool judgeSignal(Check& check, const RowPlace& place, std::size_t signal, const Outcome& outcome,
                 Columns codes);
bool signalProblem(Check& check, const RowPlace& place, Problem problem, std::size_t signal,
                   PVBmessageItem column = none());
