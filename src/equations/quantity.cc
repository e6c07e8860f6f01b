#include "equations/quantity.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "equations/quantity_internal.h"

namespace {

using Arguments = std::span<const Quantity>;

constexpr std::size_t kAnyCount = std::numeric_limits<std::size_t>::max();
constexpr int kMaxPower = 64;

Wide greatestDivisor(Wide a, Wide b) {
  while (b != 0) {
    const Wide rest = a % b;
    a = b;
    b = rest;
  }
  return a;
}

bool isFinite(const Quantity& value, std::string& reason) {
  if (std::isfinite(value.number)) return true;
  reason = "the number is too large";
  return false;
}

bool setDouble(Quantity& out, double number, std::string& reason) {
  out.exact = false;
  out.numerator = 0;
  out.denominator = 1;
  out.number = number;
  return isFinite(out, reason);
}

bool setWhole(Quantity& out, std::int64_t number) { return setFraction(out, number, 1); }

// The unit that both have; a plain 0 has any.
bool commonDimension(const Quantity& a, const Quantity& b, Dimension& out, std::string& reason) {
  out = a.plainZero() ? b.dimension : a.dimension;
  if (a.dimension == b.dimension || a.plainZero() || b.plainZero()) return true;
  reason = fmt::format("{} and {} don't fit together", dimensionText(a.dimension),
                       dimensionText(b.dimension));
  return false;
}

bool addDimensions(Dimension& out, const Dimension& a, const Dimension& b, int sign,
                   std::string& reason) {
  out = {a.time + sign * b.time, a.volt + sign * b.volt, a.ampere + sign * b.ampere};
  const int highest = std::max({std::abs(out.time), std::abs(out.volt), std::abs(out.ampere)});
  if (highest <= kMaxPower) return true;
  reason = "the power of a unit is too high";
  return false;
}

// --- Operators -----------------------------------------------------------------------

bool negate(Arguments arguments, Quantity& out, std::string&) {
  out = arguments[0];
  out.numerator = -out.numerator;
  out.number = -out.number;
  return true;
}

bool addSigned(const Quantity& a, const Quantity& b, int sign, Quantity& out, std::string& reason) {
  Quantity sum;
  if (!commonDimension(a, b, sum.dimension, reason)) return false;
  const bool exact = a.exact && b.exact &&
                     setFraction(sum,
                                 static_cast<Wide>(a.numerator) * b.denominator +
                                     sign * (static_cast<Wide>(b.numerator) * a.denominator),
                                 static_cast<Wide>(a.denominator) * b.denominator);
  if (!exact && !setDouble(sum, a.number + sign * b.number, reason)) return false;
  out = sum;
  return true;
}

bool add(Arguments arguments, Quantity& out, std::string& reason) {
  return addSigned(arguments[0], arguments[1], 1, out, reason);
}

bool subtract(Arguments arguments, Quantity& out, std::string& reason) {
  return addSigned(arguments[0], arguments[1], -1, out, reason);
}

bool product(const Quantity& a, const Quantity& b, Quantity& out, std::string& reason) {
  Quantity result;
  if (!addDimensions(result.dimension, a.dimension, b.dimension, 1, reason)) return false;
  const bool exact = a.exact && b.exact &&
                     setFraction(result, static_cast<Wide>(a.numerator) * b.numerator,
                                 static_cast<Wide>(a.denominator) * b.denominator);
  if (!exact && !setDouble(result, a.number * b.number, reason)) return false;
  out = result;
  return true;
}

bool quotient(const Quantity& a, const Quantity& b, Quantity& out, std::string& reason) {
  Quantity result;
  if (b.number == 0) {
    reason = "division by zero";
    return false;
  }
  if (!addDimensions(result.dimension, a.dimension, b.dimension, -1, reason)) return false;
  const bool exact = a.exact && b.exact &&
                     setFraction(result, static_cast<Wide>(a.numerator) * b.denominator,
                                 static_cast<Wide>(a.denominator) * b.numerator);
  if (!exact && !setDouble(result, a.number / b.number, reason)) return false;
  out = result;
  return true;
}

bool multiply(Arguments arguments, Quantity& out, std::string& reason) {
  return product(arguments[0], arguments[1], out, reason);
}

bool divide(Arguments arguments, Quantity& out, std::string& reason) {
  return quotient(arguments[0], arguments[1], out, reason);
}

// --- Choosing ------------------------------------------------------------------------

bool isBelow(const Quantity& a, const Quantity& b) {
  if (!a.exact || !b.exact) return a.number < b.number;
  return static_cast<Wide>(a.numerator) * b.denominator <
         static_cast<Wide>(b.numerator) * a.denominator;
}

bool chooseBy(Arguments arguments, bool lowest, Quantity& out, std::string& reason) {
  Quantity best = arguments[0];
  for (const Quantity& next : arguments.subspan(1)) {
    Dimension dimension;
    if (!commonDimension(best, next, dimension, reason)) return false;
    if (lowest ? isBelow(next, best) : isBelow(best, next)) best = next;
    best.dimension = dimension;
  }
  out = best;
  return true;
}

bool minimum(Arguments arguments, Quantity& out, std::string& reason) {
  return chooseBy(arguments, true, out, reason);
}

bool maximum(Arguments arguments, Quantity& out, std::string& reason) {
  return chooseBy(arguments, false, out, reason);
}

bool absolute(Arguments arguments, Quantity& out, std::string& reason) {
  if (arguments[0].number < 0) return negate(arguments, out, reason);
  out = arguments[0];
  return true;
}

// --- Rounding ------------------------------------------------------------------------

// The largest whole number not above `value` + `halves` / 2.
bool floorOf(const Quantity& value, int halves, Quantity& out, std::string& reason) {
  Quantity result;
  const bool exact = value.exact && setWhole(result, floorOfFraction(value, halves));
  if (!exact && !setDouble(result, std::floor(value.number + 0.5 * halves), reason)) return false;
  out = result;
  return true;
}

bool ceilOf(const Quantity& value, Quantity& out, std::string& reason) {
  Quantity negative;
  return negate(Arguments(&value, 1), negative, reason) && floorOf(negative, 0, negative, reason) &&
         negate(Arguments(&negative, 1), out, reason);
}

using Rounding = bool (*)(const Quantity& value, Quantity& out, std::string& reason);

bool roundTo(Arguments arguments, Rounding rounding, Quantity& out, std::string& reason) {
  const Quantity& value = arguments[0];
  if (arguments.size() == 1) {
    if (value.dimension.plain()) return rounding(value, out, reason);
    reason = fmt::format("{} is rounded to the multiples of a step, the second argument",
                         dimensionText(value.dimension));
    return false;
  }
  Dimension dimension;
  Quantity count;
  if (!commonDimension(value, arguments[1], dimension, reason)) return false;
  if (!quotient(value, arguments[1], count, reason) || !rounding(count, count, reason))
    return false;
  count.dimension = Dimension();
  return product(count, arguments[1], out, reason);
}

bool floorFunction(Arguments arguments, Quantity& out, std::string& reason) {
  constexpr auto kDown = [](const Quantity& value, Quantity& result, std::string& why) {
    return floorOf(value, 0, result, why);
  };
  return roundTo(arguments, kDown, out, reason);
}

bool ceilFunction(Arguments arguments, Quantity& out, std::string& reason) {
  return roundTo(arguments, ceilOf, out, reason);
}

bool roundFunction(Arguments arguments, Quantity& out, std::string& reason) {
  constexpr auto kNearest = [](const Quantity& value, Quantity& result, std::string& why) {
    return floorOf(value, 1, result, why);
  };
  return roundTo(arguments, kNearest, out, reason);
}

bool modulo(Arguments arguments, Quantity& out, std::string& reason) {
  Quantity multiple;
  return floorFunction(arguments, multiple, reason) &&
         addSigned(arguments[0], multiple, -1, out, reason);
}

// --- Powers and roots ----------------------------------------------------------------

// The root of a square number, else -1.
std::int64_t wholeRoot(std::int64_t square) {
  const auto root = static_cast<std::int64_t>(std::llround(std::sqrt(static_cast<double>(square))));
  return static_cast<Wide>(root) * root == square ? root : -1;
}

bool squareRoot(Arguments arguments, Quantity& out, std::string& reason) {
  const Quantity& value = arguments[0];
  const Dimension& of = value.dimension;
  if (value.number < 0) {
    reason = "a number below zero has no root";
    return false;
  }
  if (of.time % 2 != 0 || of.volt % 2 != 0 || of.ampere % 2 != 0) {
    reason = fmt::format("{} has no root", dimensionText(of));
    return false;
  }
  Quantity root;
  root.dimension = {of.time / 2, of.volt / 2, of.ampere / 2};
  const std::int64_t above = value.exact ? wholeRoot(value.numerator) : -1;
  const std::int64_t below = value.exact ? wholeRoot(value.denominator) : -1;
  const bool exact = above >= 0 && below > 0 && setFraction(root, above, below);
  if (!exact && !setDouble(root, std::sqrt(value.number), reason)) return false;
  out = root;
  return true;
}

bool wholePower(const Quantity& base, std::int64_t exponent, Quantity& out, std::string& reason) {
  Quantity result;
  setWhole(result, 1);
  for (std::int64_t i = 0; i < std::abs(exponent); ++i) {
    const bool good = exponent > 0 ? product(result, base, result, reason)
                                   : quotient(result, base, result, reason);
    if (!good) return false;
  }
  out = result;
  return true;
}

bool power(Arguments arguments, Quantity& out, std::string& reason) {
  const Quantity& base = arguments[0];
  const Quantity& exponent = arguments[1];
  if (!exponent.dimension.plain()) {
    reason = "an exponent is a plain number";
    return false;
  }
  const bool whole = exponent.exact && exponent.denominator == 1;
  if (whole && std::abs(exponent.numerator) <= kMaxPower) {
    return wholePower(base, exponent.numerator, out, reason);
  }
  if (!base.dimension.plain()) {
    reason = fmt::format("{} takes whole exponents up to {} only", dimensionText(base.dimension),
                         kMaxPower);
    return false;
  }
  if (base.number < 0 && !whole) {
    reason = "a number below zero takes whole exponents only";
    return false;
  }
  if (base.number == 0 && exponent.number < 0) {
    reason = "division by zero";
    return false;
  }
  Quantity result;
  if (!setDouble(result, std::pow(base.number, exponent.number), reason)) return false;
  out = result;
  return true;
}

constexpr std::array<QuantityFunction, 14> kFunctions = {{
    {"neg", 1, 1, negate},
    {"+", 2, 2, add},
    {"-", 2, 2, subtract},
    {"*", 2, 2, multiply},
    {"/", 2, 2, divide},
    {"min", 1, kAnyCount, minimum},
    {"max", 1, kAnyCount, maximum},
    {"abs", 1, 1, absolute},
    {"floor", 1, 2, floorFunction},
    {"ceil", 1, 2, ceilFunction},
    {"round", 1, 2, roundFunction},
    {"mod", 2, 2, modulo},
    {"sqrt", 1, 1, squareRoot},
    {"pow", 2, 2, power},
}};

}  // namespace

const QuantityFunction* quantityFunction(std::string_view name) {
  const auto* found = std::ranges::find(kFunctions, name, &QuantityFunction::name);
  return found != kFunctions.end() ? found : nullptr;
}

bool setFraction(Quantity& out, Wide numerator, Wide denominator) {
  constexpr Wide kLimit = std::numeric_limits<std::int64_t>::max();
  if (denominator < 0) {
    numerator = -numerator;
    denominator = -denominator;
  }
  const Wide divisor = greatestDivisor(numerator < 0 ? -numerator : numerator, denominator);
  numerator /= divisor;
  denominator /= divisor;
  if (numerator > kLimit || numerator < -kLimit || denominator > kLimit) return false;
  out.exact = true;
  out.numerator = static_cast<std::int64_t>(numerator);
  out.denominator = static_cast<std::int64_t>(denominator);
  out.number = static_cast<double>(out.numerator) / static_cast<double>(out.denominator);
  return true;
}

std::int64_t floorOfFraction(const Quantity& value, int halves) {
  const Wide above =
      2 * static_cast<Wide>(value.numerator) + halves * static_cast<Wide>(value.denominator);
  const Wide below = 2 * static_cast<Wide>(value.denominator);
  const Wide cut = above / below;
  return static_cast<std::int64_t>(above % below < 0 ? cut - 1 : cut);
}
