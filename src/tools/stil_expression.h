#pragma once

// Expressions of STIL texts as equations/expression.h takes them. Names stay what they
// are, units are written as the other side knows them, `@` and `@@` become the time of the
// event before. The result has no blanks.

#include <string>
#include <string_view>

// Longest text that an expression may become; `@` can double it from event to event.
inline constexpr std::size_t kLongestExpression = 4096;

struct StilTime {
  std::string text = "0s";
  bool named = false;  // a variable stands in it
};
// `before` is what `@` stands for; null where there is nothing before. False with a
// reason in words.
bool stilExpression(std::string_view stil, const StilTime* before, StilTime& out,
                    std::string& reason);
// A variable's name as expressions of timeplates can hold it, which is without blanks.
std::string stilVariable(std::string_view name);
