// Any bytes as a time, a frequency, a rational number and decimal digits: the
// readers stop inside the text, what they accept is in range, and what is written
// reads back as the same value.

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "base/errors.h"
#include "base/time.h"
#include "require.h"

namespace {

void checkTime(std::string_view text) {
  TIME time = TIME_MAX;
  std::size_t end = text.size() + 1;
  const int result = parseTIME(text, time, &end);
  require(end <= text.size() && (result == 0 || result == -2));
  require(time >= TIME_ZERO && time <= TIME_MAX);
  for (const char unit : std::string_view("fpnum ?")) {
    std::string written;
    TIME back;
    require(PBformatTIME(written, unit, -1, -1, time) == static_cast<int>(written.size()));
    require(parseTIME(written, back, &end) == 0 && back == time && end == written.size());
  }
  require(PBdigitsToTIME(PBtimeToDecimal(time)) == time);
  require(PBdigitsToTIME(text) <= TIME_MAX);
}

void checkFormat(std::string_view text, TIME time) {
  if (text.size() < 3) return;
  std::string written;
  const auto width = static_cast<signed char>(text[1]),
             precision = static_cast<signed char>(text[2]);
  const int length = PBformatTIME(written, text[0], width, precision, time);
  require(length == -2 || (length == static_cast<int>(written.size()) && length >= width));
  PBdiscardErrors();
}

void checkFrequency(std::string_view text) {
  double hertz = -1, back = -1;
  std::size_t end = text.size() + 1;
  const int result = PBparseFrequency(text, hertz, &end);
  require(end <= text.size() && std::isfinite(hertz) && hertz >= 0);
  require(result == 1 || hertz == 0);
  std::string written;
  PBformatFrequency(written, hertz);
  if (written.ends_with("PHz")) return;  // a unit that is written but not read
  require(PBparseFrequency(written, back, &end) == 1 && end == written.size());
  // Nine digits behind the point are written, and a double has some 15.
  require(std::fabs(back - hertz) <= std::fmax(1e-9, hertz * 1e-9));
}

void checkRational(std::string_view text) {
  std::int32_t whole = -1, numerator = -1, denominator = -1;
  std::string message;
  if (PBparseRational(text, whole, numerator, denominator, message) == -2) {
    require(!message.empty() && whole == -1 && numerator == -1 && denominator == -1);
    return;
  }
  require(message.empty() && whole >= 0 && numerator >= 0 && numerator < denominator);
  require(whole > 0 || numerator > 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  checkTime(text);
  TIME time;
  parseTIME(text.substr(std::min<std::size_t>(size, 3)), time);
  checkFormat(text, time);
  checkFrequency(text);
  checkRational(text);
  return 0;
}
