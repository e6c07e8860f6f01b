#include "tools/stil_range.h"

#include <algorithm>
#include <charconv>

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// False when the text isn't a number, or one beyond 32 bits.
bool readIndex(std::string_view text, std::uint32_t& index) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, index);
  return error == std::errc() && stop == end;
}

// Where the last bracket opens that the text ends with; npos for none.
std::size_t findBracket(std::string_view text) {
  if (!text.ends_with(']')) return std::string_view::npos;
  return text.rfind('[');
}

}  // namespace

std::string StilRange::name(std::uint64_t at) const {
  const std::uint64_t index = first <= last ? first + at : first - at;
  std::string text(base);
  text += '[';
  text += std::to_string(index);
  text += ']';
  return text;
}

std::optional<StilRange> stilRange(std::string_view text) {
  const std::size_t bracket = findBracket(text);
  if (bracket == std::string_view::npos) return std::nullopt;
  const std::string_view inside = text.substr(bracket + 1, text.size() - bracket - 2);
  const std::size_t dots = inside.find("..");
  if (dots == std::string_view::npos) return std::nullopt;
  StilRange range;
  range.base = text.substr(0, bracket);
  if (!readIndex(inside.substr(0, dots), range.first)) return std::nullopt;
  if (!readIndex(inside.substr(dots + 2), range.last)) return std::nullopt;
  return range;
}

std::string_view stilBusName(std::string_view text) {
  const std::size_t bracket = findBracket(text);
  if (bracket == std::string_view::npos) return {};
  const std::string_view inside = text.substr(bracket + 1, text.size() - bracket - 2);
  if (inside.empty() || !std::all_of(inside.begin(), inside.end(), isDigit)) return {};
  return text.substr(0, bracket);
}
