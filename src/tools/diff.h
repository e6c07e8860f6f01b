#pragma once

// Compares two databases by what they mean, not by their bytes: the signals by name,
// then the rows of the main patterns cycle by cycle, loops, calls, repeats and scan
// rows taken apart. Memory follows signals, timeplates and nesting, not the rows.
//
// Cycle by cycle, two cycles are equal when their periods are and each signal has the
// same events (meaning.h). With `ignoreCycles` only the waves count: the level that is
// driven and the one that is expected over time, wherever cycles begin and end and
// however often a level is said again.

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/meaning.h"
#include "tools/message.h"

// A part of a pattern in time: from `from` up to, not including, `to`. Femtoseconds.
struct DiffStretch {
  std::int64_t from = 0;
  std::int64_t to = std::numeric_limits<std::int64_t>::max();
};

struct DiffOptions {
  std::vector<std::string> signals;  // none: all
  bool common = false;               // only signals that both have
  bool ignoreCycles = false;
  PreviousMode previous = PreviousMode::resolve;
  DiffStretch stretchA;
  DiffStretch stretchB;
  bool quiet = true;  // no progress is shown
};

// What one side has where they differ.
struct DiffSide {
  std::string row;                   // "12", or "init:3" in a subroutine; may be empty
  std::optional<std::int64_t> time;  // femtoseconds
  std::string text;
};
struct Difference {
  std::string what;  // signal, direction, kind, period, events, wave, length
  std::string signal;
  std::optional<std::uint64_t> cycle;  // counted from the beginning of the stretches
  std::uint64_t cycles = 1;            // that differ in this way, one after the other
  DiffSide a;
  DiffSide b;
};
using DifferenceSink = std::function<void(const Difference& difference)>;

struct DiffResult {
  bool done = false;              // false after a message
  std::uint64_t differences = 0;  // of cycles and signals; more than were told
  std::uint64_t signals = 0;      // compared
  std::uint64_t cycles = 0;       // of the first database
};
// Of two open databases, which may be the same one twice.
DiffResult diffDatabases(int databaseA, int databaseB, const DiffOptions& options,
                         const DifferenceSink& told, const MessageSink& sink);

// Compares what is stored: section by section, rows as they are, names instead of ids.
DiffResult diffStructures(int databaseA, int databaseB, const DifferenceSink& told,
                          const MessageSink& sink);

// The verb: `pvb diff A B [options]`. The exit code.
int runDiff(std::span<const std::string> arguments);
