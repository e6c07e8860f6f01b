#pragma once

// Numbers with units: what expressions are made of. A quantity is an exact fraction of
// 64 bits as long as that holds it, and a double from then on; times are counted in
// femtoseconds, which keeps sums, multiples and parts of times exact. A plain 0 goes
// with every unit.
//
// Values only; failure is false with the reason in words.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/time.h"

// Powers of the units of a value: 1, 0, 0 is a time and -1, 0, 0 a frequency.
struct Dimension {
  int time = 0;
  int volt = 0;
  int ampere = 0;

  friend bool operator==(const Dimension&, const Dimension&) = default;
  bool plain() const { return *this == Dimension(); }
};
inline constexpr Dimension kTimeDimension = {1, 0, 0};
inline constexpr Dimension kFrequencyDimension = {-1, 0, 0};
inline constexpr Dimension kVoltageDimension = {0, 1, 0};
inline constexpr Dimension kCurrentDimension = {0, 0, 1};

// Counted in femtoseconds, volts and amperes and their powers.
struct Quantity {
  Dimension dimension;
  bool exact = true;  // numerator / denominator, in lowest terms
  std::int64_t numerator = 0;
  std::int64_t denominator = 1;  // above 0
  double number = 0;             // the same, or all that is known

  bool plainZero() const { return dimension.plain() && number == 0; }
};

// --- Text and times ------------------------------------------------------------------

// Reads a number and its unit at `position`, which holds a digit or a point, and leaves
// `position` behind it, or at what is wrong.
bool readQuantity(std::string_view text, std::size_t& position, Quantity& out, std::string& reason);
// "12.5nS", "100MHz", "3.3V", "0.25"; "2 V A" or "5 S^2" with other powers.
std::string quantityText(const Quantity& value);
// "a time", "a plain number".
std::string dimensionText(Dimension dimension);

Quantity quantityOfTime(TIME time);
// A number in seconds, hertz, volts, amperes.
Quantity quantityOfNumber(double number, Dimension dimension);
// To the nearest femtosecond, a tie going up. False for what isn't a time, for one below
// zero and for one above TIME_MAX.
bool quantityToTime(const Quantity& value, TIME& time, std::string& reason);

// --- Arithmetic ----------------------------------------------------------------------

// An operation by its name in expressions, with the numbers of arguments that it takes.
// Operators stand under their characters, the sign as "neg".
struct QuantityFunction {
  std::string_view name;
  std::size_t least;
  std::size_t most;
  bool (*apply)(std::span<const Quantity> arguments, Quantity& out, std::string& reason);
};
// Null when there is none.
const QuantityFunction* quantityFunction(std::string_view name);
