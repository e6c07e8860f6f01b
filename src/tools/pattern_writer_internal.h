#pragma once

// The two halves of the pattern writer: the timeplates that combinations of shapes ask
// for, and the rows.

#include <deque>
#include <unordered_map>
#include <vector>

#include "pvb/pattern.h"
#include "pvb/timeplate.h"
#include "tools/pattern_writer.h"

// Shapes of a signal in one word: the input shape in the low half.
using ShapePair = std::uint64_t;
inline constexpr ShapePair kInHalf = 0xFFFFFFFF;

// Each combination that occurred keeps its pairs, so that a plate is found by a hash of
// them and then by all of them. The hash is the exclusive or of a number for each signal
// with its pair, which a change of one signal brings up to date.
class PlateMaker {
 public:
  PlateMaker(int database, ssData* equations, std::string& failure)
      : database_(database), equations_(equations), failure_(failure), shapes_(1) {}

  void addSignal(PVBid id, SignalDirection direction);
  std::size_t addTable(std::string_view name, TIME period, std::string_view expression);
  ShapeId addShape(const Shape& shape);

  bool useTable(std::size_t table);
  void setShapes(std::uint32_t signal, ShapeId in, ShapeId out) {
    const ShapePair pair = (ShapePair{out} << 32 | in) & masks_[signal];
    if (pair != pairs_[signal]) change(signal, pair);
  }
  // The plate of the table and the shapes in force; made if need be.
  bool plate(std::uint16_t& id) {
    if (changed_ && !settle()) return false;
    id = current_;
    return true;
  }
  std::int64_t period() const { return tables_[table_].period; }  // femtoseconds
  std::size_t count() const { return plates_.size(); }

 private:
  struct Table {
    std::string name;
    std::int64_t period;
    std::string expression;
  };
  struct Plate {
    std::size_t table;
    std::uint16_t id;
  };
  struct Slot {
    SignalDirection direction;
    ShapeId shape;
    PVBidList signals;
  };

  void change(std::uint32_t signal, ShapePair pair);
  bool settle();
  bool isCurrent(std::size_t plate) const;
  bool make();
  std::vector<Slot> slots() const;
  bool addWave(PVBtimePlate& plate, int index, const Slot& slot) const;
  bool addPeriodVariable(const std::string& plate);
  bool fail(std::string text);

  int database_;
  ssData* equations_;
  std::string& failure_;
  std::vector<Table> tables_;
  std::deque<Shape> shapes_;  // by id; the first is that of no events
  std::unordered_multimap<std::uint64_t, ShapeId> shapeByHash_;

  std::vector<PVBid> ids_;  // by signal, as are these
  std::vector<ShapePair> masks_;
  std::vector<ShapePair> pairs_;  // in force
  std::size_t table_ = 0;
  std::uint64_t hash_ = 0;
  bool changed_ = true;  // `current_` isn't that of the pairs in force
  std::uint16_t current_ = 0;

  std::vector<Plate> plates_;
  std::vector<ShapePair> platePairs_;  // of all plates, one behind the other
  std::unordered_multimap<std::uint64_t, std::size_t> plateByHash_;
};

// How long a pattern is, loops and calls written out. A row counts for as many cycles as
// the loops around it make of it, so what doesn't fit is seen before it is written.
class PatternLength {
 public:
  explicit PatternLength(int pattern = kMainPattern) : pattern_(pattern) {}

  int pattern() const { return pattern_; }
  std::uint32_t rows() const { return rows_; }
  bool inLoop() const { return !passes_.empty(); }

  // `count` times cycles and femtoseconds; false, and nothing changes, when the sums would
  // be more than a database holds.
  bool add(std::uint32_t rows, std::uint32_t count, std::uint64_t cycles, std::int64_t time);
  bool addRows(std::uint32_t rows) { return add(rows, 1, 0, 0); }
  bool addCall(const PatternLength& called) { return add(1, 1, called.cycles_, called.time_); }
  bool beginLoop(std::uint32_t count);
  void endLoop() { passes_.pop_back(); }

 private:
  int pattern_;
  std::uint32_t rows_ = 0;
  std::uint64_t cycles_ = 0;
  std::int64_t time_ = 0;
  std::vector<std::uint64_t> passes_;  // by loop, of those around it too
};

// What stands at the row that comes next.
struct RowNotes {
  std::vector<std::string> comments;
  std::vector<std::string> labels;

  bool empty() const { return comments.empty() && labels.empty(); }
  void clear() {
    comments.clear();
    labels.clear();
  }
};
