#pragma once

// What a target demands of the code that it runs: otherwise the run ends as a crash.

#include <cstdlib>

inline void require(bool holds) {
  if (!holds) std::abort();
}
