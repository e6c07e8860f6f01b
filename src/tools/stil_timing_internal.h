#pragma once

// Waves of single characters, and how those of a signal become shapes.

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "equations/expression.h"
#include "tools/stil_expression.h"
#include "tools/stil_timing.h"

struct WaveEvent {
  std::int64_t time;         // femtoseconds
  std::uint32_t expression;  // number of the text, 0 for none
  char state;
  bool redundant = false;  // an X where nothing is compared already

  bool sameTime(const WaveEvent& other) const {
    return time == other.time && expression == other.expression;
  }
};
using Wave = std::vector<WaveEvent>;

// What a wave does where it compares: windows as a state and an X, edges as a state.
// `end` is the end of the cycle.
Wave plainCompares(std::span<const WaveEvent> events, const WaveEvent& end);

bool drives(char state);

// A shape and the data with which it gives a wave.
struct ShapedWave {
  ShapeId shape = kNoShape;
  std::uint8_t code = 0;
};

// Makes shapes of waves. Texts of expressions are kept here by number.
class ShapeMaker {
 public:
  explicit ShapeMaker(PatternWriter& writer) : writer_(writer), texts_(1) {}

  std::uint32_t expression(const std::string& text);
  // The shapes of the waves of a signal, in order; waves without events have none.
  std::vector<ShapedWave> shape(std::vector<Wave> waves);
  // The characters that a signal of the direction has with these waves, one for each of
  // `characters`.
  StilCharacters characters(SignalDirection direction, std::string_view characters,
                            std::span<const Wave* const> waves);

 private:
  struct Class;
  ShapeId enter(const Wave& times, std::string_view states);

  PatternWriter& writer_;
  std::deque<std::string> texts_;
  std::unordered_map<std::string, std::uint32_t> numbers_;
};

struct WaveTime {
  std::int64_t value = 0;  // femtoseconds
  StilTime text;
};

// Reads the events of waves, of one table after the other.
class WaveReader {
 public:
  WaveReader(StilReader& reader, const ssData& equations, bool lenient, ShapeMaker& shapes)
      : reader_(reader), scope_(equations), lenient_(lenient), shapes_(shapes) {}

  bool readPeriod(const std::string& text, const StilWhere& where);
  const WaveTime& period() const { return period_; }
  // Adds a wave for each character, as plainCompares gives it.
  bool read(const StilWave& wave, std::vector<Wave>& waves);

 private:
  bool readTimes(const StilWave& wave);
  bool time(const std::string& text, const WaveTime* before, const StilWhere& where, WaveTime& out);
  void warnOutOfOrder(const StilWave& wave);
  void warnBehindPeriod(const StilWave& wave);
  bool readCharacter(const StilWave& wave, std::size_t character, std::vector<Wave>& waves);
  bool state(const StilState& from, const StilWhere& where, bool warns, char& to);
  WaveEvent event(const WaveTime& time, char state);

  StilReader& reader_;
  ExpressionScope scope_;
  bool lenient_;
  ShapeMaker& shapes_;
  WaveTime period_;
  std::vector<WaveTime> times_;  // of the events of a wave
};

// The tables in force.
struct StilTables {
  struct Table {
    std::size_t number;                  // in the writer
    std::vector<std::uint32_t> signals;  // by signal, its characters in `sets`
  };
  std::vector<Table> tables;
  std::unordered_map<std::string, std::size_t> byName;  // numbers in the writer
  std::deque<StilCharacters> sets;                      // the first is that of no wave at all
};
struct StilTiming::Parts : StilTables {};
