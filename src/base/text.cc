#include "base/text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "base/errors.h"
#include "base/platform.h"

namespace {

constexpr int kNoMoreMemory = 82;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// The digits at the start of `text` with the sign, held within an int.
int digitsToInt(std::string_view text, bool negative) {
  constexpr std::int64_t kBeyond = std::int64_t{std::numeric_limits<int>::max()} + 1;
  std::int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    value = std::min(value * 10 + (c - '0'), kBeyond);
  }
  if (negative) return static_cast<int>(-value);
  return static_cast<int>(std::min(value, kBeyond - 1));
}

}  // namespace

void TextArrayFree::operator()(char** texts) const {
  for (char** text = texts; *text != nullptr; ++text) PBfree(*text);
  PBfree(texts);
}

PBtext PBcopyStr(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t size = std::strlen(text) + 1;
  PBtext copy(static_cast<char*>(platform().allocate(size)));
  if (!copy) {
    PBpostError("PBcopyStr", kNoMoreMemory);
    return nullptr;
  }
  std::memcpy(copy.get(), text, size);
  return copy;
}

PBtextArray PBcopyStrArray(const char* const* texts) {
  if (texts == nullptr) return nullptr;
  std::size_t count = 0;
  while (texts[count] != nullptr) ++count;
  // Zeroed, so it is a null-ended array at every moment.
  PBtextArray copies(static_cast<char**>(PBcalloc(count + 1, sizeof(char*))));
  for (std::size_t i = 0; i < count; ++i) {
    copies[i] = PBcopyStr(texts[i]).release();
    if (copies[i] == nullptr) return nullptr;
  }
  return copies;
}

bool PBstrEq(TextArg a, TextArg b) {
  return a.absent() == b.absent() &&
         std::ranges::equal(a.view(), b.view(), std::ranges::equal_to(), lower, lower);
}

bool PBisEmpty(TextArg text) { return text.view().empty(); }

// Wraps around rather than overflow; nobody can tell from the text's order.
int PBstrHash(TextArg text) {
  std::uint32_t sum = 0;
  for (const char c : text.view()) sum += static_cast<std::uint32_t>(static_cast<signed char>(c));
  return static_cast<int>(sum);
}

int PBstrCompare(const char* a, const char* b) {
  if (a == nullptr) return b == nullptr ? 0 : 1;
  return b == nullptr ? -1 : std::strcmp(a, b);
}

int PBtextToInt(std::string_view text) {
  text.remove_prefix(
      static_cast<std::size_t>(std::ranges::find_if_not(text, PBisSpace) - text.begin()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  return digitsToInt(text, negative);
}

bool PBendsWithOneOf(std::string_view text, std::string_view endings) {
  while (!endings.empty()) {
    const std::string_view ending = endings.substr(0, endings.find(' '));
    if (text.size() >= ending.size() && PBstrEq(text.substr(text.size() - ending.size()), ending)) {
      return true;
    }
    endings.remove_prefix(std::min(ending.size() + 1, endings.size()));
  }
  return false;
}

std::string PBlowerText(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), lower);
  return result;
}

std::string PBstripSpace(std::string_view text) {
  std::string result(text);
  std::erase_if(result, PBisSpace);
  return result;
}
