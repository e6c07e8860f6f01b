#include "pvb/state_map.h"

#include <algorithm>
#include <cstring>

#include "pvb/row.h"

namespace {

// Shorter ones aren't worth the calls.
constexpr std::uint32_t kShortestRun = 2;

// Each byte of `to` is the high half of one byte and the low half of the next.
void copyShifted(std::uint8_t* __restrict to, const std::uint8_t* __restrict from,
                 std::uint32_t length) {
  for (std::uint32_t i = 0; i < length; ++i) {
    to[i] = static_cast<std::uint8_t>(from[i] >> 4 | from[i + 1] << 4);
  }
}

}  // namespace

void StateMap::add(std::uint32_t from, std::uint32_t to) { columns_.push_back({from, to}); }

void StateMap::compile() {
  // 1. The last pair for each destination column, in the order of these.
  std::reverse(columns_.begin(), columns_.end());
  std::stable_sort(columns_.begin(), columns_.end(),
                   [](const Column& a, const Column& b) { return a.to < b.to; });
  const auto end = std::unique(columns_.begin(), columns_.end(),
                               [](const Column& a, const Column& b) { return a.to == b.to; });
  columns_.erase(end, columns_.end());
  // 2. Stretches in which both sides run in step.
  std::vector<Column> rest;
  for (std::size_t at = 0; at < columns_.size();) {
    std::uint32_t count = 1;
    while (at + count < columns_.size() && columns_[at + count].to == columns_[at].to + count &&
           columns_[at + count].from == columns_[at].from + count) {
      ++count;
    }
    cut(columns_[at], count, rest);
    at += count;
  }
  // 3. What is left, two columns a byte where that goes.
  columns_.clear();
  pairUp(rest);
}

// Whole bytes in the middle of the stretch become a run, its ends are left.
void StateMap::cut(const Column& first, std::uint32_t count, std::vector<Column>& rest) {
  const std::uint32_t lead = first.to % 2;
  std::uint32_t length = (count - lead) / 2;
  if (length < kShortestRun) length = 0;
  const std::uint32_t from = first.from + lead;
  if (length > 0) {
    (from % 2 == 0 ? runs_ : shifted_).push_back({from / 2, (first.to + lead) / 2, length});
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    const bool inRun = length > 0 && i >= lead && i < lead + 2 * length;
    if (!inRun) rest.push_back({first.from + i, first.to + i});
  }
}

void StateMap::pairUp(const std::vector<Column>& columns) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Column& column = columns[i];
    if (column.to % 2 == 0 && i + 1 < columns.size() && columns[i + 1].to == column.to + 1) {
      bytes_.push_back({column.from, columns[i + 1].from, column.to / 2});
      ++i;
    } else {
      columns_.push_back(column);
    }
  }
}

void StateMap::copy(std::uint8_t* to, const std::uint8_t* from) const {
  for (const Run& run : runs_) std::memcpy(to + run.to, from + run.from, run.length);
  for (const Run& run : shifted_) copyShifted(to + run.to, from + run.from, run.length);
  for (const Byte& byte : bytes_) {
    to[byte.to] =
        static_cast<std::uint8_t>(rowCode(from, byte.low) | rowCode(from, byte.high) << 4);
  }
  for (const Column& column : columns_) setRowCode(to, column.to, rowCode(from, column.from));
}
