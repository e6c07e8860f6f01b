#pragma once

// The operation that turns comments on rows into repeat counts and loops. A comment that
// holds the repeat keyword and a number behind it gives its row that count; one that holds
// the loop keyword and two numbers, cycles in blocks and passes, puts the rows of so many
// cycles, from the next multiple of the block size on, into a loop. Works on the source in
// place, or on a destination that becomes a copy of the source first.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "conditioner/region.h"
#include "pvb/row.h"

// `dest` may be null. 0, or -2 after a push. Comments that can't be followed are told in
// the report and left alone.
int AddCompression(const PVBregion* dest, const PVBregion& src, std::int32_t loopBlockSize,
                   const std::string& repeatKeyword, const std::string& loopKeyword);

// What the comments of a row ask for; none when they don't.
std::optional<std::int32_t> findRepeatComment(int database, const PVBrow& row,
                                              std::string_view keyword);
struct LoopComment {
  std::int32_t cycles;  // in blocks
  std::int32_t count;   // passes
};
std::optional<LoopComment> findLoopComment(int database, const PVBrow& row,
                                           std::string_view keyword);
