#pragma once

// The name of the timeplate that a row uses, left on the row as a comment, so that it
// survives the renaming and merging of timeplates.

#include "pvb/row.h"

// The kind of property that is a comment.
inline constexpr std::int32_t kCommentProperty = 0;

// Adds the comment. A row without a property list gets an empty one and the answer is
// false, although nothing is wrong with it: kept on purpose, the callers stop there. A row
// without a timeplate needs no comment: true. The row isn't marked as changed.
bool annotateVector(int database, PVBrow& row);
