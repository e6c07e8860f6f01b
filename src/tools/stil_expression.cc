#include "tools/stil_expression.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>

#include "base/text.h"

namespace {

constexpr int kExponentLimit = 1000;

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool startsName(char c) { return isLetter(c) || c == '_'; }
bool continuesName(char c) { return startsName(c) || isDigit(c) || c == '.' || c == '$'; }

// --- Units ---------------------------------------------------------------------------

struct Prefix {
  char letter;
  int power;
};
constexpr std::array<Prefix, 12> kPrefixes = {{{'E', 18},
                                               {'P', 15},
                                               {'T', 12},
                                               {'G', 9},
                                               {'M', 6},
                                               {'k', 3},
                                               {'m', -3},
                                               {'u', -6},
                                               {'n', -9},
                                               {'p', -12},
                                               {'f', -15},
                                               {'a', -18}}};

// What is written in another case than it should be: "NS", "Ps", "mhz", "KHz".
constexpr std::string_view kTimePrefixes = "munpfa";
constexpr std::string_view kFrequencyPrefixes = "kmgt";

char rightCase(char prefix, std::string_view base) {
  const char lower = static_cast<char>(prefix | 0x20);
  if (lower == 'k') return 'k';
  const bool mega = base == "s" && prefix == 'M';
  if (PBstrEq(base, "s") && !mega && kTimePrefixes.find(lower) != std::string_view::npos) {
    return lower;
  }
  const bool milli = base == "Hz" && prefix == 'm';
  if (PBstrEq(base, "Hz") && !milli && kFrequencyPrefixes.find(lower) != std::string_view::npos) {
    return static_cast<char>(lower & ~0x20);
  }
  return prefix;
}

// Units of the other side, by base and power of ten.
struct KnownUnit {
  std::string_view base;
  int power;
  std::string_view text;
};
constexpr std::array<KnownUnit, 19> kKnownUnits = {{
    {"s", 0, "s"},     {"s", -3, "ms"}, {"s", -6, "us"},  {"s", -9, "ns"},  {"s", -12, "ps"},
    {"s", -15, "fs"},  {"Hz", 0, "Hz"}, {"Hz", 3, "kHz"}, {"Hz", 6, "MHz"}, {"Hz", 9, "GHz"},
    {"Hz", 12, "THz"}, {"V", 0, "V"},   {"V", -3, "mV"},  {"V", -6, "uV"},  {"V", -9, "nV"},
    {"A", 0, "A"},     {"A", -3, "mA"}, {"A", -6, "uA"},  {"A", -9, "nA"},
}};

struct Unit {
  std::string_view text;
  int power = 0;  // of ten, that the number is to be multiplied by
};

Unit knownUnit(std::string_view base, int power) {
  const auto* row = std::ranges::find_if(
      kKnownUnits, [&](const KnownUnit& unit) { return unit.base == base && unit.power == power; });
  return row != kKnownUnits.end() ? Unit{row->text, 0} : Unit{base, power};
}

std::optional<Unit> unitOf(std::string_view text) {
  struct Base {
    std::string_view name;
    bool anyCase;
  };
  static constexpr std::array<Base, 4> kBases = {
      {{"Hz", true}, {"s", true}, {"V", false}, {"A", false}}};
  if (text.empty()) return Unit();
  for (const Base& base : kBases) {
    if (text.size() < base.name.size()) continue;
    const std::string_view end = text.substr(text.size() - base.name.size());
    if (base.anyCase ? !PBstrEq(end, base.name) : end != base.name) continue;
    const std::string_view prefix = text.substr(0, text.size() - base.name.size());
    if (prefix.empty()) return knownUnit(base.name, 0);
    if (prefix.size() > 1) return std::nullopt;
    const char letter = rightCase(prefix[0], end);
    const auto* row = std::ranges::find(kPrefixes, letter, &Prefix::letter);
    if (row == kPrefixes.end()) return std::nullopt;
    return knownUnit(base.name, row->power);
  }
  return std::nullopt;
}

// --- The text ------------------------------------------------------------------------

class Translation {
 public:
  Translation(std::string_view text, const StilTime* before, StilTime& out, std::string& reason)
      : text_(text), before_(before), out_(out), reason_(reason) {}

  bool run() {
    out_ = {{}, false};
    for (skipBlanks(); place_ < text_.size(); skipBlanks()) {
      if (!item()) return false;
      if (out_.text.size() > kLongestExpression) return fail("the expression is too long");
    }
    return !out_.text.empty() || fail("there is no expression");
  }

 private:
  bool fail(std::string reason) {
    reason_ = std::move(reason);
    return false;
  }
  void skipBlanks() {
    while (place_ < text_.size() && isBlank(text_[place_])) ++place_;
  }
  char peek(std::size_t ahead = 0) const {
    return place_ + ahead < text_.size() ? text_[place_ + ahead] : '\0';
  }

  bool item() {
    const char c = peek();
    if (isDigit(c) || (c == '.' && isDigit(peek(1)))) return operand() && number();
    if (c == '@') return operand() && eventBefore();
    if (c == '"') return operand() && quoted();
    if (startsName(c)) return name();
    constexpr std::string_view kPlain = "+-*/(),";
    if (kPlain.find(c) == std::string_view::npos) {
      return fail(fmt::format("'{}' isn't known here", c));
    }
    out_.text += c;
    ++place_;
    operandAbove_ = c == ')';
    return true;
  }

  // Without blanks two operands in a row would read as one.
  bool operand() {
    if (operandAbove_) return fail("an operator is expected");
    operandAbove_ = true;
    return true;
  }

  bool number() {
    const std::size_t begin = place_;
    while (isDigit(peek()) || peek() == '.') ++place_;
    const std::string_view digits = text_.substr(begin, place_ - begin);
    int power = 0;
    if (!exponent(power)) return fail("the exponent is out of range");
    const std::size_t letters = place_;
    while (isLetter(peek())) ++place_;
    const std::string_view text = text_.substr(letters, place_ - letters);
    const std::optional<Unit> unit = unitOf(text);
    if (!unit) return fail(fmt::format("\"{}\" is no unit of times, frequencies, V or A", text));
    power += unit->power;
    out_.text += digits;
    if (power != 0) out_.text += fmt::format("e{}", power);
    out_.text += unit->text;
    return true;
  }

  bool exponent(int& power) {
    if (peek() != 'e' && peek() != 'E') return true;
    const std::size_t sign = peek(1) == '-' || peek(1) == '+' ? 1 : 0;
    if (!isDigit(peek(1 + sign))) return true;
    const bool negative = peek(1) == '-';
    place_ += 1 + sign;
    for (; isDigit(peek()); ++place_) power = std::min(power * 10 + (peek() - '0'), kExponentLimit);
    if (power == kExponentLimit) return false;
    if (negative) power = -power;
    return true;
  }

  bool eventBefore() {
    while (peek() == '@') ++place_;
    if (continuesName(peek()) || peek() == '"') return fail("an event can't be named behind '@'");
    if (before_ == nullptr) return fail("there is no event that '@' could stand for");
    out_.text += "(" + before_->text + ")";
    out_.named = out_.named || before_->named;
    return true;
  }

  bool quoted() {
    const std::size_t end = text_.find('"', place_ + 1);
    if (end == std::string_view::npos) return fail("the name has no closing quote");
    variable(text_.substr(place_ + 1, end - place_ - 1));
    place_ = end + 1;
    return true;
  }

  bool name() {
    const std::size_t begin = place_;
    while (continuesName(peek())) ++place_;
    const std::string_view name = text_.substr(begin, place_ - begin);
    skipBlanks();
    if (!operand()) return false;
    if (peek() != '(') {
      variable(name);
      return true;
    }
    operandAbove_ = false;
    std::ranges::transform(name, std::back_inserter(out_.text), [](char c) {
      return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    });
    return true;
  }

  void variable(std::string_view name) {
    const std::string own = stilVariable(name);
    const bool plain = startsName(own.front()) && std::ranges::all_of(own, continuesName);
    out_.text += plain ? own : "'" + own + "'";
    out_.named = true;
  }

  std::string_view text_;
  const StilTime* before_;
  StilTime& out_;
  std::string& reason_;
  std::size_t place_ = 0;
  bool operandAbove_ = false;
};

}  // namespace

bool stilExpression(std::string_view stil, const StilTime* before, StilTime& out,
                    std::string& reason) {
  return Translation(stil, before, out, reason).run();
}

std::string stilVariable(std::string_view name) {
  std::string own(name.empty() ? "_" : name);
  for (char& c : own) {
    if (isBlank(c) || c == '\'') c = '_';
  }
  return own;
}
