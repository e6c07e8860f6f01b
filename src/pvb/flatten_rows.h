#pragma once

// A pattern played out: in the place of loops, calls and repeat counts stand the rows
// that they stand for, one after the other. Literal rows become as many rows as they
// have cycles, a spacer with a count one long spacer; scan and match rows stay as they
// are, count included.
//
// The flat rows are appended to a tree of their own, which changes places with the
// pattern's when it is whole. So the time is that of the rows of the result, the memory
// that of the nesting and a bit for each row of the database, and a failure on the way
// leaves the pattern as it was. What a row gives first keeps its block, and with it id
// and properties; everything behind it, and all that comes from subroutines, is copied.

#include <cstdint>

// Row numbers are shown as signed words.
inline constexpr std::uint32_t kMaxFlatRows = 0x7FFFFFFF;

// 0, or -2 after a post: the result has too many rows or more than the disk has room for
// (both found out before anything is changed), subroutines call each other in a circle, the pattern
// is damaged, or a file can't be written.
int flattenRows(int database, int pattern);
