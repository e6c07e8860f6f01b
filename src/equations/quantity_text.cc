// Quantities as text and as times.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>

#include "base/text.h"
#include "equations/quantity_internal.h"

namespace {

struct UnitRow {
  std::string_view text;
  bool anyCase;  // letters may be of any case
  int power;     // of ten, to the unit that quantities are counted in
  Dimension dimension;
};
// Of each dimension in falling size.
constexpr std::array<UnitRow, 21> kUnits = {{
    {"S", true, 15, kTimeDimension},        {"mS", true, 12, kTimeDimension},
    {"uS", true, 9, kTimeDimension},        {"nS", true, 6, kTimeDimension},
    {"pS", true, 3, kTimeDimension},        {"fS", true, 0, kTimeDimension},
    {"THz", true, -3, kFrequencyDimension}, {"GHz", true, -6, kFrequencyDimension},
    {"MHz", true, -9, kFrequencyDimension}, {"kHz", true, -12, kFrequencyDimension},
    {"Hz", true, -15, kFrequencyDimension}, {"kV", false, 3, kVoltageDimension},
    {"V", false, 0, kVoltageDimension},     {"mV", false, -3, kVoltageDimension},
    {"uV", false, -6, kVoltageDimension},   {"nV", false, -9, kVoltageDimension},
    {"A", false, 0, kCurrentDimension},     {"mA", false, -3, kCurrentDimension},
    {"uA", false, -6, kCurrentDimension},   {"nA", false, -9, kCurrentDimension},
    {"pA", false, -12, kCurrentDimension},
}};
constexpr double kFemtosecondsPerSecond = 1e15;

// One more than the femtoseconds of TIME_MAX.
constexpr std::int64_t kEndOfTime = 1000000000000000000;

constexpr int kExactDigits = 18;
// Beyond what any double can hold, so that the exponent needn't be counted further.
constexpr int kExponentLimit = 100000;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

const UnitRow* unitOf(std::string_view text) {
  const auto* found = std::ranges::find_if(kUnits, [text](const UnitRow& row) {
    return row.anyCase ? PBstrEq(row.text, text) : row.text == text;
  });
  return found != kUnits.end() ? found : nullptr;
}

// The digits of a literal: value * 10^power while `exact`.
struct Literal {
  std::int64_t value = 0;
  int significant = 0;
  int power = 0;
  bool exact = true;
  std::string_view text;
};

void takeDigit(Literal& literal, char digit, bool fraction) {
  if (fraction && literal.power > -kExponentLimit) --literal.power;
  if (digit == '0' && literal.significant == 0) return;
  literal.exact = ++literal.significant <= kExactDigits;
  if (literal.exact) literal.value = literal.value * 10 + (digit - '0');
}

// An "e" without digits behind it is no exponent.
void takeExponent(std::string_view text, std::size_t& position, Literal& literal) {
  std::size_t at = position + 1;
  const bool negative = at < text.size() && text[at] == '-';
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
  if (at >= text.size() || !isDigit(text[at])) return;
  int exponent = 0;
  for (; at < text.size() && isDigit(text[at]); ++at) {
    exponent = std::min(exponent * 10 + (text[at] - '0'), kExponentLimit);
  }
  literal.power += negative ? -exponent : exponent;
  position = at;
}

Literal takeLiteral(std::string_view text, std::size_t& position) {
  Literal literal;
  const std::size_t begin = position;
  bool fraction = false;
  for (; position < text.size(); ++position) {
    const char c = text[position];
    if (isDigit(c)) {
      takeDigit(literal, c, fraction);
    } else if (c == '.' && !fraction) {
      fraction = true;
    } else {
      break;
    }
  }
  if (position < text.size() && (text[position] == 'e' || text[position] == 'E')) {
    takeExponent(text, position, literal);
  }
  literal.text = text.substr(begin, position - begin);
  return literal;
}

bool setScaled(Quantity& out, const Literal& literal, int unitPower) {
  const int power = literal.power + unitPower;
  if (literal.significant == 0) return setFraction(out, 0, 1);
  if (!literal.exact || std::abs(power) > kExactDigits) return false;
  Wide scale = 1;
  for (int i = 0; i < std::abs(power); ++i) scale *= 10;
  return power >= 0 ? setFraction(out, literal.value * scale, 1)
                    : setFraction(out, literal.value, scale);
}

// The unit's letters right behind a number; null with a reason for none such.
std::optional<UnitRow> takeUnit(std::string_view text, std::size_t& position, std::string& reason) {
  const std::size_t begin = position;
  std::size_t end = begin;
  while (end < text.size() && (isLetter(text[end]) || isDigit(text[end]) || text[end] == '_')) {
    ++end;
  }
  if (end == begin) return UnitRow{"", false, 0, {}};
  const std::string_view unit = text.substr(begin, end - begin);
  const UnitRow* row = unitOf(unit);
  if (row == nullptr) {
    reason = fmt::format("\"{}\" is no unit", shownName(unit));
    return std::nullopt;
  }
  position = end;
  return *row;
}

std::string numberText(double number) { return fmt::format("{:.12g}", number); }

// In the largest unit that leaves a digit before the point, else in the smallest.
std::string scaledText(double number, Dimension dimension) {
  // What came out a little below a unit by rounding is still shown in it.
  constexpr double kRounding = 1 - 1e-12;
  const UnitRow* chosen = nullptr;
  for (const UnitRow& row : kUnits) {
    if (row.dimension != dimension) continue;
    chosen = &row;
    const bool fits =
        number == 0 ? row.power == 0 : std::abs(number) >= kRounding * std::pow(10.0, row.power);
    if (fits) break;
  }
  return numberText(number / std::pow(10.0, chosen->power)).append(chosen->text);
}

void appendPower(std::string& out, std::string_view unit, int power) {
  if (power == 0) return;
  out.append(" ").append(unit);
  if (power != 1) out += fmt::format("^{}", power);
}

std::string unitsText(Dimension dimension) {
  std::string out;
  appendPower(out, "S", dimension.time);
  appendPower(out, "V", dimension.volt);
  appendPower(out, "A", dimension.ampere);
  return out;
}

std::string timeText(const Quantity& value) {
  Quantity size = value;
  size.numerator = std::abs(size.numerator);
  size.number = std::abs(size.number);
  TIME time;
  std::string text;
  if (!quantityToTime(size, time, text)) {
    return numberText(value.number / kFemtosecondsPerSecond) + "S";
  }
  PBformatTIME(text, '?', -1, -1, time);
  return value.number < 0 ? "-" + text : text;
}

}  // namespace

bool readQuantity(std::string_view text, std::size_t& position, Quantity& out,
                  std::string& reason) {
  const std::size_t begin = position;
  const Literal literal = takeLiteral(text, position);
  if (literal.text == ".") {
    position = begin;
    reason = "a number is expected";
    return false;
  }
  const std::optional<UnitRow> unit = takeUnit(text, position, reason);
  if (!unit) return false;
  out.dimension = unit->dimension;
  if (setScaled(out, literal, unit->power)) return true;
  const char* end = literal.text.data() + literal.text.size();
  double number = 0;
  const bool good = std::from_chars(literal.text.data(), end, number).ec == std::errc();
  out.exact = false;
  out.number = number * std::pow(10.0, unit->power);
  if (good && std::isfinite(out.number)) return true;
  position = begin;
  reason = "the number is out of range";
  return false;
}

std::string shownName(std::string_view name) {
  constexpr std::size_t kLongest = 80;
  if (name.size() <= kLongest) return std::string(name);
  return std::string(name.substr(0, kLongest)) + "...";
}

std::string dimensionText(Dimension dimension) {
  if (dimension.plain()) return "a plain number";
  if (dimension == kTimeDimension) return "a time";
  if (dimension == kFrequencyDimension) return "a frequency";
  if (dimension == kVoltageDimension) return "a voltage";
  if (dimension == kCurrentDimension) return "a current";
  return "a value in" + unitsText(dimension);
}

std::string quantityText(const Quantity& value) {
  const Dimension& dimension = value.dimension;
  if (dimension.plain()) return numberText(value.number);
  if (dimension == kTimeDimension) return timeText(value);
  const bool known = dimension == kFrequencyDimension || dimension == kVoltageDimension ||
                     dimension == kCurrentDimension;
  if (known) return scaledText(value.number, dimension);
  return numberText(value.number / std::pow(kFemtosecondsPerSecond, dimension.time)) +
         unitsText(dimension);
}

Quantity quantityOfTime(TIME time) {
  Quantity out;
  out.dimension = kTimeDimension;
  setFraction(out, PBtimeToLong(time), 1);
  return out;
}

Quantity quantityOfNumber(double number, Dimension dimension) {
  Quantity out;
  out.dimension = dimension;
  out.exact = false;
  out.number = number * std::pow(kFemtosecondsPerSecond, dimension.time);
  return out;
}

bool quantityToTime(const Quantity& value, TIME& time, std::string& reason) {
  if (value.dimension != kTimeDimension && !value.plainZero()) {
    reason = fmt::format("{} isn't a time", dimensionText(value.dimension));
    return false;
  }
  if (value.number < 0) {
    reason = "the time is below zero";
    return false;
  }
  const bool fits = value.exact ? floorOfFraction(value, 1) < kEndOfTime
                                : value.number + 0.5 < static_cast<double>(kEndOfTime);
  if (!fits) {
    reason = "the time is too large";
    return false;
  }
  time = value.exact ? PBdigitsToTIME(std::to_string(floorOfFraction(value, 1)))
                     : PBdoubleToTIME(value.number);
  return true;
}
