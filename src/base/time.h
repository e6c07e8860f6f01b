#pragma once

// Times as exact whole femtoseconds in two words, up to almost 1,000 seconds:
// the type, its text forms and its arithmetic. Everything is a plain value; the
// only state is the formatter hook. Arithmetic never fails (dividing by zero
// gives TIME_MAX); reading text tells failure by its result and posts nothing.
//
// Invariant: 0 <= minor < 1,000,000,000. A value is negative only as a
// difference, and then `major` is: -1 femtosecond is {-1, 999999999}.

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct TIME {
  std::int32_t major = 0;  // units of 1,000,000,000 femtoseconds
  std::int32_t minor = 0;  // femtoseconds

  friend auto operator<=>(const TIME&, const TIME&) = default;
};

inline constexpr std::int64_t kFemtosecondsPerMajor = 1000000000;
inline constexpr TIME TIME_ZERO = {0, 0};
// The largest value; also the end of all data and the result of dividing by zero.
inline constexpr TIME TIME_MAX = {999999999, 999999999};

// --- Text ----------------------------------------------------------------------------

// Reads a number and its unit ("10NS", "1.5us", "2e3ps", "5S") from the start of
// `text`; what follows isn't looked at. `end` becomes the place where the reading
// stopped. 0, or -2 for no time (stores TIME_ZERO) and for a time with digits
// below the femtosecond (stores it without them).
int parseTIME(std::string_view text, TIME& out, std::size_t* end = nullptr);
// The same for a text that may be null, which is no time.
int parseTIME(const char* text, TIME& out, std::size_t* end = nullptr);
// Whether a text is a time and nothing else.
bool parseWholeTIME(std::string_view text, TIME& out);

// Replaces `buffer` by the text of a time and returns its length. `unit` is one
// of "fpnum", ' ' for seconds, or '?' for the largest that leaves a digit before
// the point; `width` pads with blanks on the left, -1 doesn't; `precision` is the
// count of digits behind the point, cut, not rounded, -1 for as many as needed.
// -2 after a post for another unit, and for a value outside TIME_ZERO..TIME_MAX,
// which is written as zero.
int PBformatTIME(std::string& buffer, char unit, int width, int precision, TIME time);
// With the automatic unit and all digits: "1.5nS".
std::string PBformatTIME(TIME time);
// The same with all letters lowered: "1.5ns".
std::string PBtimeText(TIME time);

// A function that replaces PBformatTIME, under the same rules.
using TimeFormatter = int (*)(std::string& buffer, char unit, int width, int precision, TIME time);
// Installs a formatter (null: none) and returns the one before.
TimeFormatter PBsetTimeFormatter(TimeFormatter formatter);

// Decimal femtosecond digits. Reading skips leading white space, stops at the
// first other character and gives TIME_MAX for 19 digits or more, leading zeros
// counted.
std::string PBtimeToDecimal(TIME time);
TIME PBdigitsToTIME(std::string_view text);

// Hertz from "10", "1.5MHz", "2e3kHz": 1, or 0 (stores 0) for no frequency and
// for one beyond a double.
int PBparseFrequency(std::string_view text, double& out, std::size_t* end = nullptr);
// "1.500000000MHz"; returns the length.
int PBformatFrequency(std::string& buffer, double hertz);

// --- Conversion ----------------------------------------------------------------------

TIME PBintToTIME(std::int32_t femtoseconds);   // negative: TIME_ZERO
TIME PBlongToTIME(std::int32_t femtoseconds);  // negative stays negative
// Adds 0.5 and truncates. What TIME can't hold is TIME_MAX, or minus that; no
// number is TIME_ZERO.
TIME PBdoubleToTIME(double femtoseconds);
std::int32_t PBtimeToInt(TIME time);   // low 32 bits of the femtoseconds
std::int64_t PBtimeToLong(TIME time);  // femtoseconds
double PBtimeToDouble(TIME time);      // femtoseconds
double PBtimeToSeconds(TIME time);
// Below a femtosecond: TIME_ZERO; from 1,000 seconds on: TIME_MAX.
TIME PBsecondsToTIME(double seconds);

// --- Arithmetic ----------------------------------------------------------------------

// Inline, as are the comparisons: several for each row of a walk.
inline TIME PBaddTIME(TIME a, TIME b) {
  const std::int64_t minor = std::int64_t{a.minor} + b.minor;
  const std::int64_t carry = minor >= kFemtosecondsPerMajor ? 1 : 0;
  return {static_cast<std::int32_t>(std::int64_t{a.major} + b.major + carry),
          static_cast<std::int32_t>(minor - carry * kFemtosecondsPerMajor)};
}
inline TIME PBsubTIME(TIME a, TIME b) {
  const std::int64_t minor = std::int64_t{a.minor} - b.minor;
  const std::int64_t borrow = minor < 0 ? 1 : 0;
  return {static_cast<std::int32_t>(std::int64_t{a.major} - b.major - borrow),
          static_cast<std::int32_t>(minor + borrow * kFemtosecondsPerMajor)};
}
// The low 18 digits of the product of the femtoseconds; `n` times a time is
// PBmulTIME(time, PBlongToTIME(n)).
TIME PBmulTIME(TIME a, TIME b);
// Floor of a / b as a plain count. A `b` of zero or below gives TIME_MAX and
// leaves `a` as the remainder.
TIME PBdivTIME(TIME a, TIME b);
TIME PBdivModTIME(TIME a, TIME b, TIME& remainder);
// A `b` of TIME_MAX, zero or below gives `a`.
TIME PBgcdTIME(TIME a, TIME b);
// `a` in percent of `b`, 0 to 100.
int PBpercentTIME(TIME a, TIME b);
inline bool PBeqTIME(TIME a, TIME b) { return a == b; }
// -1, 0, 1
inline int PBcmpTIME(TIME a, TIME b) { return a < b ? -1 : a > b ? 1 : 0; }

TIME PBfsToPsTIME(TIME a);
TIME PBpsToFsTIME(TIME a);
// Changes resolution by the whole factor between `from` and `to`; `a` itself
// when either is zero or below.
TIME PBrescaleTIME(TIME a, std::int32_t from, std::int32_t to);
// The multiple of `b` nearest to `a`, a tie going down, and the largest not
// above `a`; TIME_ZERO when `b` is zero or below.
TIME PBroundToMultipleTIME(TIME a, TIME b);
TIME PBfloorToMultipleTIME(TIME a, TIME b);

// --- Symbolic times ------------------------------------------------------------------

struct SymTIME {
  TIME value;
  std::optional<std::string> text;  // the expression that gave `value`
};

enum class SymOperator {
  add,
  subtract,
  multiply,
  divide,
  equal,
  notEqual,
  notBelow,
  notAbove,
  above,
  below
};

// Applies `op` to the values, a comparison giving 1 or 0 femtoseconds. When an
// operand has a text the result has "(%s) %s (%s)", a plain one shown in "n".
SymTIME PBapplySymTIME(SymOperator op, const SymTIME& a, const SymTIME& b);
// By text when both have one, by value when none has; -1 when one has.
int PBcmpSymTIME(const SymTIME& a, const SymTIME& b);

// --- Rational numbers ----------------------------------------------------------------

inline constexpr std::int32_t kTimeDenominator = 1000000000;

// (numeratorMajor * 1,000,000,000 + numeratorMinor) / denominator.
struct RationalTIME {
  std::int32_t denominator = kTimeDenominator;
  std::int32_t numeratorMajor = 0;
  std::int32_t numeratorMinor = 0;
};
RationalTIME PBtimeToRational(TIME time);
// 0, or -2 (stores TIME_ZERO) for any other denominator.
int PBrationalToTIME(const RationalTIME& rational, TIME& out);

// Reads a whole "a/b", "a.b" or "a" as whole + numerator / denominator; each part
// has one to nine digits. 0, or -2 with the reason in `message` and the numbers
// untouched. Zero isn't taken.
int PBparseRational(std::string_view text, std::int32_t& whole, std::int32_t& numerator,
                    std::int32_t& denominator, std::string& message);
