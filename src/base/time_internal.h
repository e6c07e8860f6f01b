#pragma once

// What the sources of the time module share.

#include "base/time.h"

// Brings `minor` into its range also for a negative value; a `major` beyond 32
// bits wraps.
constexpr TIME fromFemtoseconds(std::int64_t femtoseconds) {
  std::int64_t major = femtoseconds / kFemtosecondsPerMajor;
  std::int64_t minor = femtoseconds % kFemtosecondsPerMajor;
  if (minor < 0) {
    minor += kFemtosecondsPerMajor;
    --major;
  }
  return {static_cast<std::int32_t>(major), static_cast<std::int32_t>(minor)};
}

constexpr std::int64_t toFemtoseconds(TIME time) {
  return time.major * kFemtosecondsPerMajor + time.minor;
}
