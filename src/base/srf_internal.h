#pragma once

// What the reader and the writer of SRF share.

#include <array>
#include <cerrno>
#include <string_view>

#include "base/errors.h"

// The white space of ASCII, whatever the locale.
constexpr std::array<bool, 256> makeSrfWhite() {
  std::array<bool, 256> white{};
  for (const char c : std::string_view(" \t\n\v\f\r")) white[static_cast<unsigned char>(c)] = true;
  return white;
}
inline constexpr std::array<bool, 256> kSrfWhite = makeSrfWhite();

inline bool isSrfWhite(char c) { return kSrfWhite[static_cast<unsigned char>(c)]; }

// A post that no failing system call stands behind; false, for the caller to return.
inline bool postSrf(std::string_view function, int code, std::string_view text) {
  errno = 0;
  PBpostError(function, code, text);
  return false;
}
