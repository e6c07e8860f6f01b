#include "base/time.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <numeric>
#include <vector>

#include "base/errors.h"

namespace {

constexpr std::int64_t kEnd = 1000000000000000000;

TIME at(std::int64_t femtoseconds) {
  std::int64_t minor = femtoseconds % 1000000000;
  if (minor < 0) minor += 1000000000;
  return {static_cast<std::int32_t>((femtoseconds - minor) / 1000000000),
          static_cast<std::int32_t>(minor)};
}

// As many digits as any, so that short and long values come up alike.
rc::Gen<std::int64_t> femtoseconds(std::int64_t lowest = 0) {
  return rc::gen::exec([lowest] {
    std::int64_t limit = 10;
    for (int digits = *rc::gen::inRange(1, 19); digits > 1; --digits) limit *= 10;
    return std::max(lowest, *rc::gen::resize(1000, rc::gen::inRange<std::int64_t>(0, limit)));
  });
}

std::string format(char unit, int width, int precision, TIME time) {
  std::string text = "left over";
  const int length = PBformatTIME(text, unit, width, precision, time);
  EXPECT_EQ(length, static_cast<int>(text.size()));
  return text;
}

// --- Text ----------------------------------------------------------------------------

TEST(ParseTime, ReadsNumberExponentAndUnit) {
  const struct {
    const char* text;
    int result;
    std::int64_t femtoseconds;
    std::size_t end;
  } cases[] = {
      {"10NS", 0, 10000000, 4},
      {"1.5us", 0, 1500000000, 5},
      {"2E+3Ps", 0, 2000000, 6},
      {"2000e-3ps", 0, 2000, 9},
      {" \t.5ms rest", 0, 500000000000, 6},
      {"1.S", 0, 1000000000000000, 3},
      {"3nsx", 0, 3000000, 3},
      {"000S", 0, 0, 4},
      {"0000S", -2, 0, 5},  // zeros in front count as digits
      {"999.999999999999999S", 0, kEnd - 1, 20},
      {"1000S", -2, 0, 5},
      {"1.5FS", -2, 1, 5},  // stored without the digits that are lost
      {"0.4e-1fs", -2, 0, 8},
      {"1e99999999999999999999999999999S", -2, 0, 32},
      {"1e-99999999999999999999999999999S", -2, 0, 33},
      {"100", -2, 0, 3},
      {"5e+S", -2, 0, 3},
      {"3 ns", -2, 0, 1},
      {"10KS", -2, 0, 2},
      {"-1ns", -2, 0, 0},
      {"..5S", -2, 0, 1},
      {"", -2, 0, 0},
  };
  for (const auto& c : cases) {
    TIME time = TIME_MAX;
    std::size_t end = 99;
    EXPECT_EQ(parseTIME(std::string_view(c.text), time, &end), c.result) << c.text;
    EXPECT_EQ(PBtimeToLong(time), c.femtoseconds) << c.text;
    EXPECT_EQ(end, c.end) << c.text;
    EXPECT_EQ(parseTIME(c.text, time), c.result) << c.text;
  }
  TIME time = TIME_MAX;
  EXPECT_EQ(parseTIME(nullptr, time), -2);
  EXPECT_EQ(time, TIME_ZERO);
  EXPECT_EQ(PBerrorCount(), 0);
}

TEST(ParseTime, ReadsTextsOfAnyLength) {
  constexpr std::size_t kLong = 4000000;
  TIME time;
  EXPECT_EQ(parseTIME(std::string(kLong, ' ') + "7ps", time), 0);
  EXPECT_EQ(time, at(7000));
  EXPECT_EQ(parseTIME("1." + std::string(kLong, '0') + "ns", time), 0);
  EXPECT_EQ(time, at(1000000));
  EXPECT_EQ(parseTIME("1." + std::string(kLong, '0') + "1ns", time), -2);
  EXPECT_EQ(time, at(1000000));
  EXPECT_EQ(parseTIME(std::string(kLong, '9') + "ns", time), -2);
  EXPECT_EQ(time, TIME_ZERO);
  EXPECT_EQ(parseTIME("1e" + std::string(kLong, '9') + "ns", time), -2);
}

TEST(FormatTime, ChoosesUnitPrecisionAndWidth) {
  const struct {
    const char* text;
    char unit;
    int width;
    int precision;
    std::int64_t femtoseconds;
  } cases[] = {
      {"1.5nS", '?', -1, -1, 1500000},     {"0pS", '?', -1, -1, 0},
      {"1pS", '?', -1, -1, 1000},          {"999.999999999999999S", '?', -1, -1, kEnd - 1},
      {"1.99pS", 'p', -1, 2, 1999},  // cut, not rounded
      {"1.50000nS", 'n', -1, 5, 1500000},  {"0.000000000000001S", ' ', -1, -1, 1},
      {"1nS", 'n', -1, 0, 1999999},        {"1nS", 'n', -1, -7, 1999999},
      {"     10nS", 'n', 9, -1, 10000000}, {"10nS", 'n', 3, -1, 10000000},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(format(c.unit, c.width, c.precision, at(c.femtoseconds)), c.text);
  }
  EXPECT_EQ(PBtimeText(at(1500000)), "1.5ns");
}

TEST(FormatTime, RefusesUnitsAndValuesItCannotWrite) {
  std::string text;
  EXPECT_EQ(PBformatTIME(text, 'N', -1, -1, at(5)), -2);
  EXPECT_EQ(PBerrorFind("PBformatTIME", 0, false), "Invalid units specified");
  PBdiscardErrors();
  for (const TIME time : {at(-5), at(kEnd)}) {
    EXPECT_EQ(PBformatTIME(text, 'n', -1, 1, time), -2);
    EXPECT_EQ(text, "0.0nS");
    EXPECT_TRUE(PBerrorHas("PBformatTIME", 0));
    PBdiscardErrors();
  }
}

RC_GTEST_PROP(FormatTime, IsReadBackInEveryUnit, ()) {
  const TIME time = at(*femtoseconds());
  const char unit = *rc::gen::elementOf(std::string("fpnum ?"));
  const int width = *rc::gen::inRange(-1, 40);
  const int precision = *rc::gen::elementOf(std::vector<int>{-1, 18, 25});
  const std::string text = format(unit, width, precision, time);
  TIME back;
  std::size_t end = 0;
  RC_ASSERT(parseTIME(text, back, &end) == 0);
  RC_ASSERT(back == time);
  RC_ASSERT(end == text.size());
  RC_ASSERT(static_cast<int>(text.size()) >= width);
}

TEST(TimeDigits, AreDecimalFemtoseconds) {
  EXPECT_EQ(PBtimeToDecimal(at(5000000007)), "5000000007");
  EXPECT_EQ(PBdigitsToTIME(" \t\n12x34"), at(12));
  EXPECT_EQ(PBdigitsToTIME("x"), TIME_ZERO);
  EXPECT_EQ(PBdigitsToTIME("999999999999999999"), TIME_MAX);
  EXPECT_EQ(PBdigitsToTIME("0000000000000000001"), TIME_MAX);  // 19 digits
  EXPECT_EQ(PBdigitsToTIME("000000000000000001"), at(1));
}

TEST(Frequency, IsReadWithAndWithoutUnitAndWritten) {
  const struct {
    const char* text;
    int result;
    double hertz;
    std::size_t end;
  } cases[] = {
      {"10", 1, 10, 2},      {"1.5MHz", 1, 1.5e6, 6},
      {"2e3kHz", 1, 2e6, 6}, {"2e+3THZ", 1, 2e15, 7},
      {"0e9999", 1, 0, 6},   {"1 Hz", 1, 1, 1},
      {"10H", 0, 0, 3},      {"10K", 0, 0, 3},
      {"2e-3", 0, 0, 2},     {"1e99999999999999999999", 0, 0, 22},
      {"Hz", 0, 0, 0},       {"1000000000000000000000000", 1, 1e24, 25},
  };
  for (const auto& c : cases) {
    double hertz = -1;
    std::size_t end = 99;
    EXPECT_EQ(PBparseFrequency(c.text, hertz, &end), c.result) << c.text;
    EXPECT_DOUBLE_EQ(hertz, c.hertz) << c.text;
    EXPECT_EQ(end, c.end) << c.text;
  }
  std::string text;
  EXPECT_EQ(PBformatFrequency(text, 1000), 16);
  EXPECT_EQ(text, "1000.000000000Hz");  // not above the unit
  PBformatFrequency(text, 1.5e6);
  EXPECT_EQ(text, "1.500000000MHz");
}

// --- Conversion and arithmetic -------------------------------------------------------

TEST(TimeConversion, ClampsOnlyWhereItMust) {
  EXPECT_EQ(PBintToTIME(-1), TIME_ZERO);
  EXPECT_EQ(PBlongToTIME(-1), (TIME{-1, 999999999}));
  EXPECT_EQ(PBdoubleToTIME(1.5), at(2));
  EXPECT_EQ(PBdoubleToTIME(1e30), TIME_MAX);
  EXPECT_EQ(PBdoubleToTIME(std::nan("")), TIME_ZERO);
  EXPECT_EQ(PBtimeToInt(at((std::int64_t{7} << 32) + 5)), 5);
  EXPECT_EQ(PBsecondsToTIME(1000.0), TIME_MAX);
  EXPECT_EQ(PBsecondsToTIME(0.9e-15), TIME_ZERO);
  EXPECT_EQ(PBsecondsToTIME(2.5e-9), at(2500000));
  EXPECT_DOUBLE_EQ(PBtimeToSeconds(at(2500000)), 2.5e-9);
}

TEST(TimeArithmetic, HasAnAnswerForEveryOddOperand) {
  TIME remainder;
  for (const TIME b : {TIME_ZERO, at(-3)}) {
    EXPECT_EQ(PBdivModTIME(at(7), b, remainder), TIME_MAX);
    EXPECT_EQ(remainder, at(7));
    EXPECT_EQ(PBgcdTIME(at(7), b), at(7));
    EXPECT_EQ(PBroundToMultipleTIME(at(7), b), TIME_ZERO);
    EXPECT_EQ(PBfloorToMultipleTIME(at(7), b), TIME_ZERO);
    EXPECT_EQ(PBpercentTIME(at(7), b), 100);
  }
  EXPECT_EQ(PBgcdTIME(at(7), TIME_MAX), at(7));
  EXPECT_EQ(PBpercentTIME(at(-1), at(10)), 0);
  EXPECT_EQ(PBpercentTIME(at(1), at(3)), 33);
  EXPECT_EQ(PBpercentTIME(at(2), at(3)), 67);
  EXPECT_EQ(PBroundToMultipleTIME(at(15), at(10)), at(10));
  EXPECT_EQ(PBroundToMultipleTIME(at(16), at(10)), at(20));
  EXPECT_EQ(PBrescaleTIME(at(4), 3, 1), at(2));  // 1 is at least half of 3
  EXPECT_EQ(PBrescaleTIME(at(4), 0, 5), at(4));
  EXPECT_EQ(PBrescaleTIME(at(4), 2, 10), at(20));
  EXPECT_EQ(PBfsToPsTIME(at(1499)), at(1));
  EXPECT_EQ(PBfsToPsTIME(at(1500)), at(2));
}

RC_GTEST_PROP(TimeArithmetic, AddsSubtractsAndOrdersLikeWholeNumbers, ()) {
  const std::int64_t a = *femtoseconds(), b = *femtoseconds();
  RC_ASSERT(PBaddTIME(at(a), at(b)) == at(a + b));
  RC_ASSERT(PBsubTIME(at(a), at(b)) == at(a - b));
  RC_ASSERT(PBaddTIME(PBsubTIME(at(a), at(b)), at(b)) == at(a));
  RC_ASSERT(PBcmpTIME(at(a), at(b)) == (a > b) - (a < b));
  RC_ASSERT(PBtimeToLong(at(a - b)) == a - b);
  RC_ASSERT(PBdigitsToTIME(PBtimeToDecimal(at(a))) == at(a));
}

RC_GTEST_PROP(TimeArithmetic, MultipliesAndDividesLikeWholeNumbers, ()) {
  const std::int64_t a = *femtoseconds(), b = *femtoseconds(1);
  const __int128 product = static_cast<__int128>(a) * b;
  RC_ASSERT(PBtimeToLong(PBmulTIME(at(a), at(b))) == static_cast<std::int64_t>(product % kEnd));
  TIME remainder;
  RC_ASSERT(PBdivModTIME(at(a), at(b), remainder) == at(a / b));
  RC_ASSERT(remainder == at(a % b));
  RC_ASSERT(PBdivTIME(at(a), at(b)) == at(a / b));
  RC_ASSERT(PBgcdTIME(at(a), at(b)) == at(b == kEnd - 1 ? a : std::gcd(a, b)));
}

RC_GTEST_PROP(TimeArithmetic, RoundsToTheNearestMultiple, ()) {
  const std::int64_t a = *femtoseconds(), b = *femtoseconds(1);
  const std::int64_t below = a / b * b;
  RC_ASSERT(PBfloorToMultipleTIME(at(a), at(b)) == at(below));
  RC_ASSERT(PBroundToMultipleTIME(at(a), at(b)) ==
            at(a - below > below + b - a ? below + b : below));
}

// --- Symbolic times and rational numbers ---------------------------------------------

TEST(SymbolicTime, KeepsTheExpressionOfItsOperandsAndComparesByIt) {
  const SymTIME plain = {at(10000000), std::nullopt};
  const SymTIME named = {at(4000000), "period"};
  const SymTIME sum = PBapplySymTIME(SymOperator::add, named, plain);
  EXPECT_EQ(sum.value, at(14000000));
  EXPECT_EQ(sum.text, "(period) + (10nS)");
  EXPECT_EQ(PBapplySymTIME(SymOperator::divide, plain, plain).text, std::nullopt);
  const SymTIME different = PBapplySymTIME(SymOperator::notEqual, sum, named);
  EXPECT_EQ(different.value, at(1));
  EXPECT_EQ(different.text, "((period) + (10nS)) <> (period)");
  EXPECT_EQ(PBapplySymTIME(SymOperator::above, named, plain).text, "(period) > (10nS)");
  EXPECT_EQ(PBcmpSymTIME(plain, {at(1), std::nullopt}), 1);
  EXPECT_EQ(PBcmpSymTIME({at(2), "a"}, {at(1), "b"}), -1);
  EXPECT_EQ(PBcmpSymTIME(plain, named), -1);
}

TEST(Rational, ReadsFractionsDecimalsAndIntegers) {
  TIME back;
  EXPECT_EQ(PBrationalToTIME(PBtimeToRational({3, 4}), back), 0);
  EXPECT_EQ(back, (TIME{3, 4}));
  EXPECT_EQ(PBrationalToTIME({1000, 3, 4}, back), -2);
  std::int32_t whole = 0, numerator = 0, denominator = 0;
  std::string message;
  using Numbers = std::vector<std::int32_t>;
  const auto parse = [&](const char* text) {
    const int result = PBparseRational(text, whole, numerator, denominator, message);
    return result == 0 ? Numbers{whole, numerator, denominator} : Numbers{};
  };
  EXPECT_EQ(parse("7/3"), (Numbers{2, 1, 3}));
  EXPECT_EQ(parse("2.050"), (Numbers{2, 50, 1000}));
  EXPECT_EQ(parse("0.999999999"), (Numbers{0, 999999999, 1000000000}));
  EXPECT_EQ(parse("12"), (Numbers{12, 0, 1}));
  const std::vector<std::pair<const char*, const char*>> faults = {
      {"x1/3", "'x' in the numerator is not a decimal digit."},
      {"1/2.5", "'.' in the denominator is not a decimal digit."},
      {"1.", "integer expected in the part after the decimal point."},
      {"1/1234567890", "number in the denominator is too large."},
      {"-1", "'-' is not a decimal digit."},
      {"1/0", "denominator must not be 0."},
      {"0.00", "must not be zero."},
  };
  for (const auto& [text, reason] : faults) {
    EXPECT_TRUE(parse(text).empty()) << text;
    EXPECT_EQ(message, reason) << text;
  }
  EXPECT_EQ(whole, 12);  // of the last that was read
}

}  // namespace
