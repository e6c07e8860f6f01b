#pragma once

// Identifier codes as numbers: those of up to three of the 94 characters '!' to '~',
// shorter ones first.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

inline constexpr std::uint32_t kNoNet = std::numeric_limits<std::uint32_t>::max();
inline constexpr std::size_t kNoCodeNumber = std::numeric_limits<std::size_t>::max();
inline constexpr std::size_t kCodeCharacters = 94;

// The number of the code that stands at `p`, as far as it reaches (at most three
// characters), and its end; kNoCodeNumber for none. A byte of another kind must follow
// in the memory.
inline const char* vcdReadCode(const char* p, std::size_t& number) {
  const auto digit = [p](std::size_t i) {
    return std::size_t{static_cast<unsigned char>(p[i])} - std::size_t{'!'};
  };
  const std::size_t a = digit(0);
  number = kNoCodeNumber;
  if (a >= kCodeCharacters) return p;
  const std::size_t b = digit(1);
  number = a;
  if (b >= kCodeCharacters) return p + 1;
  const std::size_t c = digit(2);
  number = kCodeCharacters * (a + 1) + b;
  if (c >= kCodeCharacters) return p + 2;
  number = kCodeCharacters * (number + 1) + c;
  return p + 3;
}

inline std::size_t vcdCodeNumber(std::string_view code) {
  std::size_t number = 0;
  for (const char c : code) {
    const std::size_t digit = std::size_t{static_cast<unsigned char>(c)} - std::size_t{'!'};
    if (digit >= kCodeCharacters || code.size() > 3) return kNoCodeNumber;
    number = kCodeCharacters * number + digit + 1;
  }
  return number - 1;
}
