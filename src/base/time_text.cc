// The text forms of times and frequencies. Both are read by a recogniser that is
// a table of rows; the rows are turned into a look-up by state and byte when the
// program is compiled, so that a character costs one step.

#include <fmt/printf.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>

#include "base/errors.h"
#include "base/time.h"
#include "base/time_internal.h"

namespace {

constexpr int kTimeDigits = 18;

constexpr auto kPowersOfTen = [] {
  std::array<std::uint64_t, kTimeDigits + 1> powers{1};
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
  return powers;
}();

// --- Units ---------------------------------------------------------------------------

// Unit letters in steps of 1,000. Blank stands for seconds and for plain hertz.
constexpr std::string_view kTimeUnits = "fpnum ";
constexpr std::string_view kFrequencyUnits = " kmgt";
constexpr std::array<const char*, 6> kFrequencyUnitTexts = {"Hz",  "KHz", "MHz",
                                                            "GHz", "THz", "PHz"};

// The power of ten of a unit, -1 for a letter that is none.
int unitPower(std::string_view units, char unit) {
  const std::size_t index = units.find(unit);
  return index == std::string_view::npos ? -1 : 3 * static_cast<int>(index);
}

int frequencyUnitPower(char unit) {
  const int power = unitPower(kFrequencyUnits, unit);
  if (power >= 0) return power;
  fmt::fprintf(stderr, "FATAL: Unknown units character '%c'\n", unit);
  return 0;
}

// --- The recogniser ------------------------------------------------------------------

enum Action : std::uint8_t {
  kNoAction = 0,
  kKeepDigit = 1,
  kCountFraction = 2,
  kSetUnit = 4,
  kSetExponentSign = 8,
  kExponentDigit = 16,
};

struct Row {
  std::uint8_t state;
  std::string_view characters;
  std::uint8_t next;
  bool accepts;
  int actions;
};

constexpr std::string_view kDigit = "0123456789";
constexpr std::string_view kBlank = " \t";
constexpr std::string_view kExponent = "eE";
constexpr std::string_view kTimeUnit = "fFpPnNuUmM";
constexpr std::string_view kSecond = "sS";
constexpr std::string_view kFrequencyUnit = "kKmMgGtT";
constexpr std::string_view kHertz = "hH";

// A time always ends in "S", so a bare number is none.
constexpr std::array kTimeRows = {
    Row{0, kDigit, 1, false, kKeepDigit},
    Row{0, ".", 5, false, kNoAction},
    Row{0, kBlank, 0, false, kNoAction},
    Row{1, kDigit, 1, false, kKeepDigit},
    Row{1, ".", 2, false, kNoAction},
    Row{1, kExponent, 3, false, kNoAction},
    Row{1, kTimeUnit, 6, false, kSetUnit},
    Row{1, kSecond, 8, true, kSetUnit},
    Row{2, kDigit, 2, false, kKeepDigit | kCountFraction},
    Row{2, kExponent, 3, false, kNoAction},
    Row{2, kTimeUnit, 6, false, kSetUnit},
    Row{2, kSecond, 8, true, kSetUnit},
    Row{3, "+-", 7, false, kSetExponentSign},
    Row{3, kDigit, 4, false, kExponentDigit},
    Row{4, kDigit, 4, false, kExponentDigit},
    Row{4, kTimeUnit, 6, false, kSetUnit},
    Row{4, kSecond, 8, true, kSetUnit},
    Row{5, kDigit, 2, false, kKeepDigit | kCountFraction},
    Row{6, kSecond, 8, true, kNoAction},
    Row{7, kDigit, 4, false, kExponentDigit},
};

// A bare number is a frequency in hertz; a unit letter needs its "Hz".
constexpr std::array kFrequencyRows = {
    Row{0, kDigit, 1, true, kKeepDigit},
    Row{0, ".", 5, false, kNoAction},
    Row{0, kBlank, 0, false, kNoAction},
    Row{1, kDigit, 1, true, kKeepDigit},
    Row{1, ".", 2, true, kNoAction},
    Row{1, kExponent, 3, false, kNoAction},
    Row{1, kFrequencyUnit, 6, false, kSetUnit},
    Row{1, kHertz, 8, false, kNoAction},
    Row{2, kDigit, 2, true, kKeepDigit | kCountFraction},
    Row{2, kExponent, 3, false, kNoAction},
    Row{2, kFrequencyUnit, 6, false, kSetUnit},
    Row{2, kHertz, 8, false, kNoAction},
    Row{3, "+", 7, false, kNoAction},
    Row{3, kDigit, 4, true, kExponentDigit},
    Row{4, kDigit, 4, true, kExponentDigit},
    Row{4, kFrequencyUnit, 6, false, kSetUnit},
    Row{4, kHertz, 8, false, kNoAction},
    Row{5, kDigit, 2, true, kKeepDigit | kCountFraction},
    Row{6, kHertz, 8, false, kNoAction},
    Row{7, kDigit, 4, true, kExponentDigit},
    Row{8, "zZ", 9, true, kNoAction},
};

constexpr std::size_t kStates = 10;

// All zeros where no row holds the character: there the recogniser stops.
struct Step {
  bool exists = false;
  std::uint8_t next = 0;
  bool accepts = false;
  std::uint8_t actions = kNoAction;
};
using StepTable = std::array<std::array<Step, 256>, kStates>;

// The first row of a state that holds a character wins.
template <std::size_t N>
constexpr StepTable stepsOf(const std::array<Row, N>& rows) {
  StepTable table{};
  for (const Row& row : rows) {
    for (const char c : row.characters) {
      Step& step = table[row.state][static_cast<unsigned char>(c)];
      if (step.exists) continue;
      step = {true, row.next, row.accepts, static_cast<std::uint8_t>(row.actions)};
    }
  }
  return table;
}

constexpr StepTable kTimeSteps = stepsOf(kTimeRows);
constexpr StepTable kFrequencySteps = stepsOf(kFrequencyRows);

// The digits of a number of any length: zeros in front, then up to 18 kept as a
// value; of the others only the count is known.
struct Number {
  std::uint64_t value = 0;
  int valueDigits = 0;
  std::int64_t leadingZeros = 0;
  std::int64_t digits = 0;          // all of them
  std::int64_t fractionDigits = 0;  // those behind the point
  std::int64_t fractionZeros = 0;   // at the end of the fraction
  std::int64_t exponent = 0;        // without its sign, saturated
  bool negativeExponent = false;
  char unit = ' ';
};

// Longer than any text, so that a saturated exponent outweighs all digits.
constexpr std::int64_t kExponentLimit = 1000000000000000;

void keepDigit(Number& number, int digit) {
  ++number.digits;
  if (digit == 0 && number.valueDigits == 0) {
    ++number.leadingZeros;
  } else if (number.valueDigits < kTimeDigits) {
    number.value = number.value * 10 + static_cast<std::uint64_t>(digit);
    ++number.valueDigits;
  }
}

void countFraction(Number& number, int digit) {
  ++number.fractionDigits;
  number.fractionZeros = digit == 0 ? number.fractionZeros + 1 : 0;
}

void addExponentDigit(Number& number, int digit) {
  if (number.exponent < kExponentLimit) number.exponent = number.exponent * 10 + digit;
}

char unitOf(char c) {
  const char lower = static_cast<char>(c | 0x20);
  return lower == 's' ? ' ' : lower;
}

void apply(Number& number, std::uint8_t actions, char c) {
  if ((actions & kKeepDigit) != 0) keepDigit(number, c - '0');
  if ((actions & kCountFraction) != 0) countFraction(number, c - '0');
  if ((actions & kSetUnit) != 0) number.unit = unitOf(c);
  if ((actions & kSetExponentSign) != 0) number.negativeExponent = c == '-';
  if ((actions & kExponentDigit) != 0) addExponentDigit(number, c - '0');
}

// Reads as far as there are steps, up to `end`; whether the last one accepts.
bool recognise(const StepTable& steps, std::string_view text, Number& number, std::size_t& end) {
  bool accepted = false;
  std::uint8_t state = 0;
  for (end = 0; end < text.size(); ++end) {
    const Step step = steps[state][static_cast<unsigned char>(text[end])];
    if (!step.exists) break;
    apply(number, step.actions, text[end]);
    accepted = step.accepts;
    state = step.next;
  }
  return accepted;
}

std::int64_t signedExponent(const Number& number) {
  return number.negativeExponent ? -number.exponent : number.exponent;
}

// The number's first `count` digits (at most 18), zeros added where it has fewer.
std::uint64_t firstDigits(const Number& number, std::int64_t count) {
  const std::int64_t surplus = number.leadingZeros + number.valueDigits - count;
  if (surplus > number.valueDigits) return 0;
  if (surplus >= 0) return number.value / kPowersOfTen[static_cast<std::size_t>(surplus)];
  return number.value * kPowersOfTen[static_cast<std::size_t>(-surplus)];
}

int timeOfNumber(const Number& number, TIME& out) {
  const std::int64_t fraction = number.fractionDigits - number.fractionZeros;
  const std::int64_t length = number.digits - number.fractionZeros;
  const std::int64_t total = signedExponent(number) + unitPower(kTimeUnits, number.unit) - fraction;
  const std::int64_t newLength = total + length;
  if (newLength <= 0 || newLength > kTimeDigits) return -2;
  out = fromFemtoseconds(static_cast<std::int64_t>(firstDigits(number, newLength)));
  return total < 0 ? -2 : 0;
}

double hertzOfNumber(const Number& number) {
  if (number.value == 0) return 0.0;
  const std::int64_t uncounted = number.digits - number.leadingZeros - number.valueDigits;
  const std::int64_t power =
      signedExponent(number) + frequencyUnitPower(number.unit) - number.fractionDigits + uncounted;
  return static_cast<double>(static_cast<long double>(number.value) *
                             std::pow(10.0L, static_cast<long double>(power)));
}

// --- Writing -------------------------------------------------------------------------

// All 18 digits of a time; `significant` of them are left without leading zeros.
struct TimeDigits {
  std::array<char, kTimeDigits> text;
  int significant = 0;

  std::string_view part(int from, int to) const {
    return {text.data() + from, static_cast<std::size_t>(to - from)};
  }
};

TimeDigits digitsOf(TIME time) {
  TimeDigits digits;
  std::uint32_t major = static_cast<std::uint32_t>(time.major);
  std::uint32_t minor = static_cast<std::uint32_t>(time.minor);
  for (std::size_t i = kTimeDigits / 2; i-- > 0; major /= 10, minor /= 10) {
    digits.text[i] = static_cast<char>('0' + major % 10);
    digits.text[i + kTimeDigits / 2] = static_cast<char>('0' + minor % 10);
  }
  const std::size_t first = digits.part(0, kTimeDigits).find_first_not_of('0');
  if (first != std::string_view::npos) digits.significant = kTimeDigits - static_cast<int>(first);
  return digits;
}

char automaticUnit(int significant) {
  return significant == 0 ? 'p' : kTimeUnits[static_cast<std::size_t>((significant - 1) / 3)];
}

void appendWhole(std::string& buffer, const TimeDigits& digits, int before) {
  const int first = kTimeDigits - digits.significant;
  if (first < before) {
    buffer.append(digits.part(first, before));
  } else {
    buffer.push_back('0');
  }
}

void appendFraction(std::string& buffer, const TimeDigits& digits, int before, int precision) {
  std::string_view fraction = digits.part(before, kTimeDigits);
  std::size_t count = static_cast<std::size_t>(std::max(precision, 0));
  if (precision == -1) count = fraction.find_last_not_of('0') + 1;
  if (count == 0) return;
  buffer.push_back('.');
  buffer.append(fraction.substr(0, count));
  if (count > fraction.size()) buffer.append(count - fraction.size(), '0');
}

void padLeft(std::string& buffer, int width) {
  if (width < 0 || buffer.size() >= static_cast<std::size_t>(width)) return;
  buffer.insert(0, static_cast<std::size_t>(width) - buffer.size(), ' ');
}

int postFormatError(std::string_view text) {
  errno = 0;
  PBpostError("PBformatTIME", 0, text);
  return -2;
}

int formatTime(std::string& buffer, char unit, int width, int precision, TIME time) {
  buffer.clear();
  const TimeDigits digits = digitsOf(time);
  if (unit == '?') unit = automaticUnit(digits.significant);
  const int power = unitPower(kTimeUnits, unit);
  if (power < 0) return postFormatError("Invalid units specified");

  appendWhole(buffer, digits, kTimeDigits - power);
  appendFraction(buffer, digits, kTimeDigits - power, precision);
  if (unit != ' ') buffer.push_back(unit);
  buffer.push_back('S');
  padLeft(buffer, width);
  return static_cast<int>(buffer.size());
}

// Set by PBsetTimeFormatter; null is the usual form.
TimeFormatter formatterInForce = nullptr;

}  // namespace

// --- Times ---------------------------------------------------------------------------

int parseTIME(std::string_view text, TIME& out, std::size_t* end) {
  Number number;
  std::size_t stop = 0;
  const bool accepted = recognise(kTimeSteps, text, number, stop);
  if (end != nullptr) *end = stop;
  out = TIME_ZERO;
  return accepted ? timeOfNumber(number, out) : -2;
}

int parseTIME(const char* text, TIME& out, std::size_t* end) {
  return parseTIME(std::string_view(text != nullptr ? text : ""), out, end);
}

bool parseWholeTIME(std::string_view text, TIME& out) {
  std::size_t end = 0;
  return parseTIME(text, out, &end) == 0 && end == text.size();
}

int PBformatTIME(std::string& buffer, char unit, int width, int precision, TIME time) {
  if (formatterInForce != nullptr) return formatterInForce(buffer, unit, width, precision, time);
  if (time >= TIME_ZERO && time <= TIME_MAX)
    return formatTime(buffer, unit, width, precision, time);
  formatTime(buffer, unit, width, precision, TIME_ZERO);
  return postFormatError("Time value out of range");
}

TimeFormatter PBsetTimeFormatter(TimeFormatter formatter) {
  const TimeFormatter before = formatterInForce;
  formatterInForce = formatter;
  return before;
}

std::string PBformatTIME(TIME time) {
  std::string text;
  PBformatTIME(text, '?', -1, -1, time);
  return text;
}

std::string PBtimeText(TIME time) {
  std::string text = PBformatTIME(time);
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string PBtimeToDecimal(TIME time) {
  if (time.major == 0) return fmt::sprintf("%d", time.minor);
  return fmt::sprintf("%d%09d", time.major, time.minor);
}

TIME PBdigitsToTIME(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
  if (start == std::string_view::npos) return TIME_ZERO;
  text = text.substr(start, kTimeDigits + 1);
  text = text.substr(0, text.find_first_not_of(kDigit));
  if (text.size() > kTimeDigits) return TIME_MAX;
  std::int64_t femtoseconds = 0;
  for (const char c : text) femtoseconds = femtoseconds * 10 + (c - '0');
  return fromFemtoseconds(femtoseconds);
}

// --- Frequencies ---------------------------------------------------------------------

int PBparseFrequency(std::string_view text, double& out, std::size_t* end) {
  Number number;
  std::size_t stop = 0;
  const bool accepted = recognise(kFrequencySteps, text, number, stop);
  if (end != nullptr) *end = stop;
  out = 0.0;
  if (!accepted) return 0;
  const double hertz = hertzOfNumber(number);
  if (!std::isfinite(hertz)) return 0;
  out = hertz;
  return 1;
}

int PBformatFrequency(std::string& buffer, double hertz) {
  std::size_t unit = 0;
  for (; unit + 1 < kFrequencyUnitTexts.size() && hertz > 1000.0; ++unit) hertz /= 1000.0;
  buffer = fmt::sprintf("%.9f%s", hertz, kFrequencyUnitTexts[unit]);
  return static_cast<int>(buffer.size());
}
