#pragma once

// Bus ranges of an operation file: NAME[LEFT..RIGHT] stands for the scalars NAME[LEFT] to
// NAME[RIGHT].

#include <cstdint>
#include <string>
#include <string_view>

// Whether a name is to be taken for a range: it has a bracket, and a ".".
bool isBusRange(std::string_view name);
// Whether a range is well formed and no scalar in "ALL" has its bare name. False after a
// push; `listName` and `srcPath` are for the message.
bool validateBus(std::string_view name, std::string_view listName, int database,
                 std::string_view srcPath);
// The same in silence.
bool isValidBus(std::string_view name, int database);

// The bounds, as far as there are numbers.
int busLeftIndex(std::string_view name);
int busRightIndex(std::string_view name);
// What stands before the last "["; none without one.
std::string_view busBase(std::string_view name);
// What stands between the last "[" and the last character.
std::string_view busIndexText(std::string_view name);
std::string busMemberName(std::string_view base, std::string_view indexText);

// A valid range, low bound first.
struct BusRange {
  explicit BusRange(std::string_view name);
  std::int64_t width() const { return high - low; }
  std::string member(std::int64_t index) const;

  std::string base;
  std::int64_t low;
  std::int64_t high;
};
