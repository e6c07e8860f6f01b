#include "tools/nearest.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace {

// Longer words aren't compared: no word of ours is that long.
constexpr std::size_t kLongestWord = 64;

}  // namespace

int editDistance(std::string_view a, std::string_view b) {
  std::vector<int> older, before(b.size() + 1), row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) before[j] = static_cast<int>(j);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = static_cast<int>(i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const int replaced = before[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({replaced, before[j] + 1, row[j - 1] + 1});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) row[j] = std::min(row[j], older[j - 2] + 1);
    }
    older = before;
    before = row;
  }
  return before[b.size()];
}

std::string_view nearestWord(std::string_view word, std::span<const std::string_view> candidates) {
  if (word.size() > kLongestWord) return {};
  std::string_view nearest;
  int best = static_cast<int>(word.size()) / 3 + 1;
  for (const std::string_view candidate : candidates) {
    const int distance = editDistance(word, candidate);
    if (distance > best || (distance == best && !nearest.empty())) continue;
    best = distance;
    nearest = candidate;
  }
  return nearest;
}

std::string didYouMean(std::string_view word, std::span<const std::string_view> candidates) {
  const std::string_view nearest = nearestWord(word, candidates);
  return nearest.empty() ? std::string() : fmt::format(", did you mean '{}'?", nearest);
}
