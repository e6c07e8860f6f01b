#include "base/time.h"

#include <cmath>

#include "base/time_internal.h"

namespace {

// One more than the femtoseconds of TIME_MAX.
constexpr std::int64_t kEndOfTime = 1000000000000000000;

// Floor division, also for a negative `a`; 0 <= remainder < b. Needs b > 0.
struct Quotient {
  std::int64_t count;
  std::int64_t remainder;
};
Quotient divideFloor(std::int64_t a, std::int64_t b) {
  Quotient result = {a / b, a % b};
  if (result.remainder < 0) {
    result.remainder += b;
    --result.count;
  }
  return result;
}

TIME divideRoundingUpFrom(TIME a, std::int64_t divisor, std::int64_t smallestRemainder) {
  const Quotient quotient = divideFloor(toFemtoseconds(a), divisor);
  return fromFemtoseconds(quotient.count + (quotient.remainder >= smallestRemainder ? 1 : 0));
}

}  // namespace

// --- Conversion ----------------------------------------------------------------------

TIME PBintToTIME(std::int32_t femtoseconds) {
  return femtoseconds < 0 ? TIME_ZERO : fromFemtoseconds(femtoseconds);
}

TIME PBlongToTIME(std::int32_t femtoseconds) { return fromFemtoseconds(femtoseconds); }

TIME PBdoubleToTIME(double femtoseconds) {
  if (std::isnan(femtoseconds)) return TIME_ZERO;
  const double rounded = femtoseconds + 0.5;
  if (rounded >= static_cast<double>(kEndOfTime)) return TIME_MAX;
  if (rounded <= -static_cast<double>(kEndOfTime)) return PBsubTIME(TIME_ZERO, TIME_MAX);
  return fromFemtoseconds(static_cast<std::int64_t>(rounded));
}

std::int32_t PBtimeToInt(TIME time) { return static_cast<std::int32_t>(toFemtoseconds(time)); }
std::int64_t PBtimeToLong(TIME time) { return toFemtoseconds(time); }
double PBtimeToDouble(TIME time) { return static_cast<double>(toFemtoseconds(time)); }
double PBtimeToSeconds(TIME time) { return PBtimeToDouble(time) * 1e-15; }

TIME PBsecondsToTIME(double seconds) {
  if (std::isnan(seconds) || seconds < 1e-15) return TIME_ZERO;
  if (seconds >= 1000.0) return TIME_MAX;
  return PBdoubleToTIME(seconds * 1e15);
}

// --- Arithmetic ----------------------------------------------------------------------

TIME PBmulTIME(TIME a, TIME b) {
  const __int128 product = static_cast<__int128>(toFemtoseconds(a)) * toFemtoseconds(b);
  return fromFemtoseconds(static_cast<std::int64_t>(product % kEndOfTime));
}

TIME PBdivTIME(TIME a, TIME b) {
  TIME remainder;
  return PBdivModTIME(a, b, remainder);
}

TIME PBdivModTIME(TIME a, TIME b, TIME& remainder) {
  remainder = a;
  if (b <= TIME_ZERO) return TIME_MAX;
  if (a < b) return TIME_ZERO;
  const Quotient quotient = divideFloor(toFemtoseconds(a), toFemtoseconds(b));
  remainder = fromFemtoseconds(quotient.remainder);
  return fromFemtoseconds(quotient.count);
}

TIME PBgcdTIME(TIME a, TIME b) {
  if (b == TIME_MAX) return a;
  while (b > TIME_ZERO) {
    TIME remainder;
    PBdivModTIME(a, b, remainder);
    a = b;
    b = remainder;
  }
  return a;
}

int PBpercentTIME(TIME a, TIME b) {
  if (a <= TIME_ZERO) return 0;
  if (a >= b || b <= TIME_ZERO) return 100;
  return static_cast<int>(PBtimeToDouble(a) * 100.0 / PBtimeToDouble(b) + 0.5);
}

TIME PBfsToPsTIME(TIME a) { return divideRoundingUpFrom(a, 1000, 500); }
TIME PBpsToFsTIME(TIME a) { return PBmulTIME(a, fromFemtoseconds(1000)); }

TIME PBrescaleTIME(TIME a, std::int32_t from, std::int32_t to) {
  if (from == to || from <= 0 || to <= 0) return a;
  if (from < to) return PBmulTIME(a, fromFemtoseconds(to / from));
  // Half of the factor is its floor, so that factor 3 rounds 1 up, and factor 1
  // (as from 3 to 2) rounds every value up. Kept on purpose: times that were
  // rescaled before must come out the same again.
  const std::int32_t factor = from / to;
  return divideRoundingUpFrom(a, factor, factor / 2);
}

TIME PBroundToMultipleTIME(TIME a, TIME b) {
  if (b <= TIME_ZERO) return TIME_ZERO;
  const std::int64_t step = toFemtoseconds(b);
  const Quotient quotient = divideFloor(toFemtoseconds(a), step);
  const bool up = quotient.remainder > step - quotient.remainder;
  return fromFemtoseconds((quotient.count + (up ? 1 : 0)) * step);
}

TIME PBfloorToMultipleTIME(TIME a, TIME b) {
  if (b <= TIME_ZERO) return TIME_ZERO;
  return fromFemtoseconds(toFemtoseconds(a) -
                          divideFloor(toFemtoseconds(a), toFemtoseconds(b)).remainder);
}
