#pragma once

// Names with a range behind them, as a bus has: Bus[0..7], Bus[7..0].

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct StilRange {
  std::string_view base;  // "Bus"
  std::uint32_t first = 0;
  std::uint32_t last = 0;  // may be below `first`

  std::uint64_t size() const {
    return (first < last ? last - first : first - last) + std::uint64_t{1};
  }
  // Name number `at` from the left: "Bus[7]".
  std::string name(std::uint64_t at) const;
};

// Nothing when `text` doesn't end in a range.
std::optional<StilRange> stilRange(std::string_view text);
// What stands before the index of one signal, "Bus" of "Bus[3]"; empty where there is none.
std::string_view stilBusName(std::string_view text);
