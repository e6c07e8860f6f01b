#pragma once

// Carries out the statements of STIL patterns: states of signals, waveform tables,
// procedures, macros, shifts and loops become cycles of a pattern writer.
//
//   V          a cycle: what is assigned, else the state in force
//   C, F       states for the cycles that follow; F to the end of its block, against
//              what V and C assign meanwhile
//   Call       the caller's states and table hold at the beginning and again behind it.
//              Without data it becomes a subroutine, one for each set of states at its
//              beginning that its rows depend on, in order of the calls; with data, and
//              beyond kMostVariants sets, its rows stand in place
//   Macro      in place; states and table stay as it leaves them
//   Shift      its vectors once for each character of the longest data behind `#`. Loads
//              end together: a short one repeats the state before the shift first; data to
//              compare begin together, and end with the state before the shift. Data of
//              a group or a signal of the call go to `#` of any name for these signals
//   Loop       a loop of the database, or a repeated row when its body is one vector; the
//              first pass stands in front where it differs from the others
//
// Supplies, which have no place in a pattern, come last among the model's signals: the
// writer is told of those in front of them only.
//
// `#` takes the next character of the call's data for each signal, `%` all of them at one
// time, both nothing where the call has no data: the state in force holds.

#include <cstdint>
#include <memory>
#include <string>

#include "tools/pattern_writer.h"
#include "tools/stil_names.h"
#include "tools/stil_reader.h"
#include "tools/stil_timing.h"

struct StilExpandOptions {
  bool lenient = false;
  bool flat = false;  // loops, repeats and calls written out
  // Beyond these the pattern is refused: rows, and statements carried out without any.
  std::uint64_t mostRows = 4'000'000'000;
  std::uint64_t mostIdle = std::uint64_t{1} << 26;
};

class StilExpand {
 public:
  static constexpr std::size_t kMostVariants = 16;

  StilExpand(StilReader& reader, StilNames& names, StilTiming& timing, PatternWriter& writer,
             StilExpandOptions options);
  ~StilExpand();

  // What names stand for, from now on; at first those of the constructor.
  void useNames(StilNames& names);
  // Procedures and macros that calls find, of the domains in force.
  void useRoutines(const StilDomains& domains);
  // Statements of a pattern in turn.
  bool begin();  // states unknown, no table
  bool statement(const StilStatement& statement);
  bool end();
  std::uint64_t cycles() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};
