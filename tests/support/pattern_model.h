#pragma once

// What the main pattern of a database means, worked out from its dump alone: loops,
// calls and repeats are played, and each signal's states are read off the tracks of
// the rows' timeplates. Knows nothing of the programs' own code.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Times in picoseconds.
struct ModelCycle {
  std::int64_t start = 0;
  std::int64_t period = 0;
  std::size_t topRow = 0;  // which row of the main pattern, loops and calls as one
  bool literal = false;    // of a literal row that stands at the top
  bool single = false;     // and of one cycle only
};

// A signal from a time on: the direction of its slot, the event's state, and the row's
// datum where that state is one of a datum.
struct ModelChange {
  std::int64_t time;
  std::string state;
  bool operator==(const ModelChange&) const = default;
};
// By signal name and slot direction; neighbours differ.
using ModelWave = std::map<std::string, std::vector<ModelChange>>;

struct PatternModel {
  std::vector<ModelCycle> cycles;
  std::int64_t duration = 0;
  ModelWave wave;
};

PatternModel modelOf(const std::string& dump);

// The stretch from `start` to `stop`, its times from 0 on.
ModelWave sliceOf(const ModelWave& wave, std::int64_t start, std::int64_t stop);
// One wave, and another behind it from `at` on.
ModelWave joined(const ModelWave& first, std::int64_t at, const ModelWave& second);
// The events of a signal in each cycle, in nanoseconds with the states that they drive or
// expect: "0 D, 40 U, 60 D"; "-" for none. Of a slot for driven and one for expected states
// the row's data choose, as everywhere.
std::vector<std::string> cycleEvents(const std::string& dump, const std::string& signal);
// For messages.
std::string shown(const ModelWave& wave);
