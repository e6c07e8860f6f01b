#pragma once

// What the reader and the writer of SRF share.

#include <cerrno>
#include <string_view>

#include "base/errors.h"

// A post that no failing system call stands behind; false, for the caller to return.
inline bool postSrf(std::string_view function, int code, std::string_view text) {
  errno = 0;
  PBpostError(function, code, text);
  return false;
}
