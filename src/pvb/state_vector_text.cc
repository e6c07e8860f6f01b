#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "pvb/database.h"
#include "pvb/signal.h"
#include "pvb/state_vector.h"
#include "pvb/state_vector_internal.h"

namespace {

constexpr std::int32_t kStatusRadixArgument = 12;  // "Invalid radix argument"
constexpr std::size_t kMaxBusWidth = 32;
constexpr std::string_view kCodeLetters = "-01ZX---";
constexpr int kCodeZero = 1;
constexpr int kCodeOne = 2;
constexpr int kCodeUnknown = 4;

// --- Radices -------------------------------------------------------------------------

struct Radix {
  char letter;  // as signals have it
  int base;
  unsigned bitsADigit;  // 0: no leading zeros
};
// By their numbers: binary, octal, decimal, hexadecimal.
constexpr Radix kRadices[] = {{'B', 2, 1}, {'O', 8, 3}, {'D', 10, 0}, {'H', 16, 4}};

std::optional<Radix> radixOfNumber(int number) {
  if (number < 0 || static_cast<std::size_t>(number) >= std::size(kRadices)) return {};
  return kRadices[number];
}

// A signal's radix: a letter, or the number itself. Anything else reads as decimal.
Radix radixOfSignal(const PVBsignal& signal) {
  for (const Radix& row : kRadices) {
    if (row.letter == signal.radix || row.letter == signal.radix - 'a' + 'A') return row;
  }
  return radixOfNumber(signal.radix).value_or(kRadices[2]);
}

std::string digits(std::uint32_t value, std::size_t width, const Radix& radix) {
  char text[kMaxBusWidth];
  const auto end = std::to_chars(text, text + sizeof text, value, radix.base).ptr;
  std::string result(text, end);
  for (char& c : result) {
    if (c >= 'a') c = static_cast<char>(c - 'a' + 'A');
  }
  const std::size_t wanted =
      radix.bitsADigit == 0 ? 0 : (width + radix.bitsADigit - 1) / radix.bitsADigit;
  if (result.size() < wanted) result.insert(0, wanted - result.size(), '0');
  return result;
}

bool readDigits(std::string_view text, const Radix& radix, std::uint32_t& value) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, radix.base);
  return !text.empty() && error == std::errc() && stop == end;
}

// --- Buses ---------------------------------------------------------------------------

// The signal whose members are a value's bits, the first the highest; null with a
// status.
const PVBsignal* busOf(int database, PVBid id) {
  const int idClass = PVBidClass(id);
  if (id != UNDEF && idClass != kClassSignal && idClass != kClassScanRegister &&
      idClass != kClassScanChain) {
    vectorFailure(database, kStatusWrongClass);
    return nullptr;
  }
  const PVBsignal* bus = id == UNDEF ? nullptr : PVBobjectInqByID(database, id);
  if (bus == nullptr) {
    vectorFailure(database, kStatusNotInUse);
    return nullptr;
  }
  if (!bus->members.empty() && bus->members.size() <= kMaxBusWidth) return bus;
  vectorFailure(database, kStatusBadRadix);
  return nullptr;
}

std::uint32_t cellOf(PVBid member) { return static_cast<std::uint32_t>(PVBidIndex(member)); }

// The text of a value: digits when all bits are known, the letter of a code that
// all have, else a question mark.
std::string valueText(const std::vector<int>& codes, const Radix& radix) {
  std::uint32_t value = 0;
  bool known = true;
  bool alike = true;
  for (const int code : codes) {
    known = known && (code == kCodeZero || code == kCodeOne);
    alike = alike && code == codes.front();
    value = value << 1 | (code == kCodeOne ? 1U : 0U);
  }
  if (known) return digits(value, codes.size(), radix);
  if (alike) return std::string(1, kCodeLetters[static_cast<std::size_t>(codes.front())]);
  return "?";
}

// The codes that a text stands for, in the order of the members; empty with a
// status when it stands for none.
std::vector<int> readCodes(int database, const PVBsignal& bus, std::string_view text) {
  const std::size_t width = bus.members.size();
  if (text == "X" || text == "x") return std::vector<int>(width, kCodeUnknown);
  std::uint32_t value = 0;
  if (!readDigits(text, radixOfSignal(bus), value)) {
    vectorFailure(database, kStatusBadRadix);
    return {};
  }
  if (width < kMaxBusWidth && value >> width != 0) {
    vectorFailure(database, kStatusBadLength);
    return {};
  }
  std::vector<int> codes(width);
  for (std::size_t i = 0; i < width; ++i) {
    codes[i] = (value >> (width - 1 - i) & 1) != 0 ? kCodeOne : kCodeZero;
  }
  return codes;
}

// --- Names ---------------------------------------------------------------------------

constexpr std::size_t kLongestPlainRun = 4;
constexpr std::size_t kLongestPlainName = 5;

bool compressionOff() {
  if (std::getenv("USE_ALLSCAN") == nullptr) return false;
  static bool told = false;
  if (!std::exchange(told, true)) {
    std::fputs("INFORMATIVE: Scan state compression disabled, using ALLSCAN.\n", stderr);
  }
  return true;
}

std::string runText(std::size_t length) { return fmt::format("X<{}>", length); }

}  // namespace

int PVBstateVectorFormat(int database, PVBid vector, PVBid id, int radix, std::string& text) {
  const std::optional<Radix> found = radixOfNumber(radix);
  if (!found) return vectorFailure(database, kStatusRadixArgument);
  const PVBsignal* bus = busOf(database, id);
  if (bus == nullptr) return -2;
  std::vector<int> codes;
  for (const PVBid member : bus->members) {
    codes.push_back(PVBstateVectorGet(database, vector, cellOf(member)));
    if (codes.back() == kVectorFailure) return -2;
  }
  text = valueText(codes, *found);
  return 0;
}

int PVBstateVectorParse(int database, PVBid vector, PVBid id, std::string_view text) {
  const PVBsignal* bus = busOf(database, id);
  if (bus == nullptr) return -2;
  const std::vector<int> codes = readCodes(database, *bus, text);
  if (codes.empty()) return -2;
  for (std::size_t i = 0; i < codes.size(); ++i) {
    if (PVBstateVectorSet(database, vector, cellOf(bus->members[i]), codes[i]) != 0) return -2;
  }
  return 0;
}

void PVBscanNameCompress(std::string& text) {
  if (text.size() <= kLongestPlainName || compressionOff()) return;
  const std::size_t front = std::min(text.find_first_not_of('X'), text.size());
  if (front > kLongestPlainRun) text.replace(0, front, runText(front));
  const std::size_t last = text.find_last_not_of('X');
  const std::size_t back = last == std::string::npos ? 0 : text.size() - last - 1;
  if (back > kLongestPlainRun) text.replace(last + 1, back, runText(back));
}
