#pragma once

// Fills a new database with a pattern that comes cycle by cycle, for importers. A cycle
// is: a table (a period and a name), and for each signal a shape with its data. From
// these the timeplates are made: one for each table and combination of shapes that
// occurs, in the order in which they occur. The first of a table has the table's name,
// the others that name with a number behind it.
//
// A shape is the wave of a slot: events with states as they stand in a timeplate, in
// rising time. A signal with one column (input, output) has one shape in a cycle, one
// for both directions has an input shape and an output shape. Codes are those of the row
// data: 0 '-', 1 '0', 2 '1', 3 'Z', 4 'X'. Signals with equal shapes share a slot.
//
// What is set holds for the cycles that follow. Setting costs the signals set, a cycle
// the bytes of its row; only a new combination of shapes costs more.
//
// Failure: false, with the reason in failure(), kept from then on.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/time.h"
#include "equations/spec_data.h"
#include "pvb/signal.h"

struct ShapeEvent {
  TIME time;               // from the cycle's beginning
  std::string expression;  // that the time comes from; empty for none
  char state;              // S, C, Q, R for the row's data

  friend bool operator==(const ShapeEvent&, const ShapeEvent&) = default;
};
using Shape = std::vector<ShapeEvent>;
using ShapeId = std::uint32_t;
// No events at all: the signal stands on no slot, and is left as it was.
inline constexpr ShapeId kNoShape = 0;

// What a signal does in a cycle. A signal with one column takes `in` and `inCode` when it
// is an input, `out` and `outCode` when it is an output.
struct SignalCycle {
  ShapeId in = kNoShape;
  ShapeId out = kNoShape;
  std::uint8_t inCode = 0;
  std::uint8_t outCode = 0;

  friend bool operator==(const SignalCycle&, const SignalCycle&) = default;
};

struct WriterSignal {
  std::string name;
  SignalDirection direction;
};

class PatternWriter {
 public:
  // Into an open, writable, empty database. `equations` (may be null) gets the variable
  // "PLATE.period" for each timeplate of a table whose period is an expression; the
  // caller saves them.
  PatternWriter(int database, ssData* equations);
  ~PatternWriter();

  // Enters the signals, in this order; later calls name them by their index.
  bool addSignals(std::span<const WriterSignal> signals);
  // A group of signals; false without a failure when the name is taken.
  bool addGroup(std::string_view name, std::span<const std::uint32_t> signals);
  // `expression` of the period, empty for none. The table's number.
  std::size_t addTable(std::string_view name, TIME period, std::string_view expression);
  // Equal shapes have equal numbers; an empty one is kNoShape.
  ShapeId addShape(const Shape& shape);

  void useTable(std::size_t table);
  void set(std::uint32_t signal, const SignalCycle& cycle);
  // Writes a row of `count` cycles, at least one.
  bool cycle(std::uint32_t count = 1);

  // Stand at the row that is written next, in front of the end of a loop at its end row;
  // several are kept in order. At the end of a pattern a label goes with its last row, and
  // comments too; where it has no row both are lost.
  void comment(std::string_view text);
  void label(std::string_view name);

  // Rows up to `endLoop` are the body; `count` is at least one. A loop may stand in a loop or in a
  // subroutine.
  bool beginLoop(std::uint32_t count);
  bool endLoop();
  // Rows up to `endSubroutine` are those of a subroutine: its number, -1 for a failure.
  // Not within another one. Table and states go on as they are; comments and labels in
  // hand stay with the pattern around.
  int beginSubroutine(std::string_view name);
  bool endSubroutine();
  bool call(int subroutine);

  // Brings all sums up to date; nothing may follow.
  bool finish();
  // Gives back what is held; for a database that is thrown away.
  void abandon();

  const std::string& failure() const;
  std::size_t plateCount() const;
  std::uint64_t rowCount() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};
