// Symbolic times and rational numbers.

#include <fmt/printf.h>

#include <array>

#include "base/time.h"
#include "base/time_internal.h"

namespace {

TIME truth(bool value) { return fromFemtoseconds(value ? 1 : 0); }

struct OperatorRow {
  const char* text;
  TIME (*apply)(TIME a, TIME b);
};

// By SymOperator.
constexpr std::array<OperatorRow, 10> kOperators = {{
    {"+", PBaddTIME},
    {"-", PBsubTIME},
    {"*", PBmulTIME},
    {"/", PBdivTIME},
    {"=", [](TIME a, TIME b) { return truth(a == b); }},
    {"<>", [](TIME a, TIME b) { return truth(a != b); }},
    {">=", [](TIME a, TIME b) { return truth(a >= b); }},
    {"<=", [](TIME a, TIME b) { return truth(a <= b); }},
    {">", [](TIME a, TIME b) { return truth(a > b); }},
    {"<", [](TIME a, TIME b) { return truth(a < b); }},
}};

std::string operandText(const SymTIME& operand) {
  if (operand.text) return *operand.text;
  std::string text;
  PBformatTIME(text, 'n', -1, -1, operand.value);
  return text;
}

constexpr std::size_t kPartDigits = 9;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads the digits of one part; `part` names it, empty for a plain integer.
// false with the reason in `message`.
bool readPart(std::string_view digits, const char* part, std::int32_t& out, std::string& message) {
  const bool named = *part != '\0';
  const std::string place = named ? fmt::sprintf(" in the %s", part) : std::string();
  out = 0;
  for (const char c : digits) {
    if (!isDigit(c)) {
      message = fmt::sprintf("'%c'%s is not a decimal digit.", c, place);
      return false;
    }
  }
  if (digits.empty()) message = fmt::sprintf("integer expected%s.", place);
  if (digits.size() > kPartDigits) message = fmt::sprintf("number%s is too large.", place);
  if (digits.empty() || digits.size() > kPartDigits) return false;
  for (const char c : digits) out = out * 10 + (c - '0');
  return true;
}

struct Mixed {
  std::int32_t whole = 0;
  std::int32_t numerator = 0;
  std::int32_t denominator = 1;
};

bool readFraction(std::string_view left, std::string_view right, Mixed& out, std::string& message) {
  std::int32_t dividend = 0;
  if (!readPart(left, "numerator", dividend, message)) return false;
  if (!readPart(right, "denominator", out.denominator, message)) return false;
  if (out.denominator == 0) {
    message = "denominator must not be 0.";
    return false;
  }
  out.whole = dividend / out.denominator;
  out.numerator = dividend % out.denominator;
  return true;
}

bool readDecimal(std::string_view left, std::string_view right, Mixed& out, std::string& message) {
  if (!readPart(left, "part before the decimal point", out.whole, message)) return false;
  if (!readPart(right, "part after the decimal point", out.numerator, message)) return false;
  for (std::size_t i = 0; i < right.size(); ++i) out.denominator *= 10;
  return true;
}

bool readMixed(std::string_view text, Mixed& out, std::string& message) {
  const auto after = [&](std::size_t place) { return text.substr(place + 1); };
  if (const std::size_t slash = text.find('/'); slash != std::string_view::npos) {
    return readFraction(text.substr(0, slash), after(slash), out, message);
  }
  if (const std::size_t point = text.find('.'); point != std::string_view::npos) {
    return readDecimal(text.substr(0, point), after(point), out, message);
  }
  return readPart(text, "", out.whole, message);
}

}  // namespace

SymTIME PBapplySymTIME(SymOperator op, const SymTIME& a, const SymTIME& b) {
  const OperatorRow& row = kOperators[static_cast<std::size_t>(op)];
  SymTIME result = {row.apply(a.value, b.value), std::nullopt};
  if (a.text || b.text) {
    result.text = fmt::sprintf("(%s) %s (%s)", operandText(a), row.text, operandText(b));
  }
  return result;
}

int PBcmpSymTIME(const SymTIME& a, const SymTIME& b) {
  if (!a.text && !b.text) return PBcmpTIME(a.value, b.value);
  if (!a.text || !b.text) return -1;
  const int order = a.text->compare(*b.text);
  return order < 0 ? -1 : order > 0 ? 1 : 0;
}

RationalTIME PBtimeToRational(TIME time) { return {kTimeDenominator, time.major, time.minor}; }

int PBrationalToTIME(const RationalTIME& rational, TIME& out) {
  const bool known = rational.denominator == kTimeDenominator;
  out = known ? TIME{rational.numeratorMajor, rational.numeratorMinor} : TIME_ZERO;
  return known ? 0 : -2;
}

int PBparseRational(std::string_view text, std::int32_t& whole, std::int32_t& numerator,
                    std::int32_t& denominator, std::string& message) {
  message.clear();
  Mixed mixed;
  if (!readMixed(text, mixed, message)) return -2;
  if (mixed.whole == 0 && mixed.numerator == 0) {
    message = "must not be zero.";
    return -2;
  }
  whole = mixed.whole;
  numerator = mixed.numerator;
  denominator = mixed.denominator;
  return 0;
}
