#include "conditioner/add_shape.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace {

struct Unit {
  char letter;
  double factor;
};
// In the order in which a token is searched for them.
constexpr Unit kUnits[] = {{'p', 1.0}, {'n', 1e3},  {'u', 1e6},
                           {'m', 1e9}, {'k', 1e15}, {'s', 1e12}};

constexpr std::string_view kLetters = "CSQRNX";

constexpr char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

bool holdsLetter(std::string_view token, char letter) {
  return std::ranges::any_of(token, [letter](char c) { return upper(c) == upper(letter); });
}

TIME timeOf(double value) {
  value += 0.5;
  const double limit = static_cast<double>(TIME_MAX.major) * kFemtosecondsPerMajor;
  if (!(value > 0)) return TIME_ZERO;
  if (value >= limit) return TIME_MAX;
  const auto whole = static_cast<std::int64_t>(value);
  return {static_cast<std::int32_t>(whole / kFemtosecondsPerMajor),
          static_cast<std::int32_t>(whole % kFemtosecondsPerMajor)};
}

// False when the token names no unit.
bool readTime(std::string_view token, TIME& time) {
  const auto unit = std::ranges::find_if(
      kUnits, [token](const Unit& row) { return holdsLetter(token, row.letter); });
  if (unit == std::end(kUnits)) return false;
  time = timeOf(std::strtod(std::string(token).c_str(), nullptr) * unit->factor);
  return true;
}

}  // namespace

ShapeResult readShape(std::string_view shape, const ShapeEvent& onEvent, std::string_view& token) {
  std::size_t at = std::min(shape.rfind('['), shape.size());
  for (bool last = false; !last; at += 2) {
    const std::size_t colon = at < shape.size() ? shape.find(':', at + 1) : shape.npos;
    token = shape.substr(std::min(at, shape.size()), colon - at);
    TIME time;
    if (colon == shape.npos || !readTime(token, time)) return ShapeResult::badUnit;
    at = colon + 1;
    if (at == shape.size()) return ShapeResult::badUnit;
    const char letter = upper(shape[at]);
    last = at + 1 < shape.size() && shape[at + 1] == ']';
    if (kLetters.find(letter) == kLetters.npos) return ShapeResult::badLetter;
    if (!onEvent(time, letter)) return ShapeResult::stopped;
  }
  return ShapeResult::ok;
}
