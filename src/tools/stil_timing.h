#pragma once

// Timing of a STIL text as the pattern writer wants it: Spec blocks as equation sheets,
// waveform tables as tables, and for each signal and waveform character the shape and
// the data that give its events.
//
// A sheet is a Spec, a set a Category; a Selector chooses which of Min, Typ, Max, Meas
// a variable's expression is in its sets. Times are evaluated in exact fractions; an
// expression that names a variable stays with its event.
//
// Characters of a signal whose events have the same times share a shape where their
// states differ as data do: D, U, Z, N become S with data 0, 1, Z, X (C where another
// event of the wave goes against it), L, H, T, X become Q (R). So 0, 1 and Z of an input
// are one shape and a pulse is another. Events that drive go to the input slot of a
// signal for both directions, those that compare to its output slot.
//
// A window (l, h, t) is its state where it begins and X where it ends: where the next
// event of the wave says, or at the end of the cycle. An edge (L, H, T) is its state
// alone: an X that only ends it is left out. So a state that a later X follows is a
// window. A character that compares nothing is given by the shape of the others with data
// X, whatever the times of its own X: a shape of its own would make a timeplate of each
// set of signals that aren't compared.

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "equations/spec_data.h"
#include "tools/pattern_writer.h"
#include "tools/stil_model.h"
#include "tools/stil_names.h"
#include "tools/stil_reader.h"

struct StilTimingChoice {
  std::string timing;                   // domain; empty: the one without a name, or the only one
  std::vector<std::string> selectors;   // in force, the first that names a variable counts
  std::vector<std::string> categories;  // in force
};

// What a character does; `defined` is false for one that the signal has no wave of.
struct StilCharacter {
  bool defined = false;
  SignalCycle cycle;

  friend bool operator==(const StilCharacter&, const StilCharacter&) = default;
};
using StilCharacters = std::array<StilCharacter, 256>;

class StilTiming {
 public:
  explicit StilTiming(StilReader& reader);
  ~StilTiming();

  // The sheets of all Specs into `equations`, selected by the choice.
  bool readSpecs(const StilTimingChoice& choice, ssData& equations);
  // Enters tables and shapes. `directions` are those of the model's signals. With
  // `lenient` what has no counterpart is a warning in place of an error.
  bool readTables(const StilTimingChoice& choice, StilNames& names, const ssData& equations,
                  std::span<const SignalDirection> directions, bool lenient, PatternWriter& writer);

  // Number of a table in force (that of the writer), -1 for none.
  std::int64_t table(std::string_view name) const;
  // The characters of a signal in a table. Signals that have the same share one.
  const StilCharacters& characters(std::size_t table, std::uint32_t signal) const;

 private:
  struct Parts;
  StilReader& reader_;
  std::unique_ptr<Parts> parts_;
};
