#pragma once

// Concatenate and insert: the rows of one region behind or in front of another's; and
// the row copier that copy uses too. Failures push their reasons; a destination that
// couldn't be finished is left as it is.

#include "conditioner/signal_transfer.h"

enum ConcatMode : int { kAppend = 1, kPrepend = 2 };

// `mode` kAppend concatenates: the destination gets the rows of both regions. kPrepend
// inserts: the destination is a copy of database 2 with the rows of region 1 in front.
// 0 or -2.
int concat(PVBregion& dest, PVBregion& src1, PVBregion& src2, int mode);

// How concatRegion goes about it.
struct ConcatOptions {
  int mode = kAppend;
  bool label = false;  // marks the stretch by labels and comments (kAppend only)
  bool quiet = false;  // no progress: an inner step of another operation
};

// Appends or prepends the rows of a region, restricted to the signals of `table`.
// 0 or -2.
int concatRegion(PVBregion& dest, PVBregion& src, const SignalTable& table,
                 const ConcatOptions& options);
