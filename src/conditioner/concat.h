#pragma once

// Concatenate and insert: the rows of one region behind or in front of another's; and
// the row copier that copy uses too.

#include "conditioner/signal_transfer.h"

enum ConcatMode : int { kAppend = 1, kPrepend = 2 };

// `mode` kAppend concatenates: the destination gets the rows of both regions. kPrepend
// inserts: the destination is a copy of database 2 with the rows of region 1 in front.
// 0 or -2.
int concat(PVBregion& dest, PVBregion& src1, PVBregion& src2, int mode);

// Appends or prepends the rows of a region, restricted to the signals of `table`. With
// `label` the stretch is marked by a pair of labels and comments (kAppend only). 0 or -2.
int concatRegion(PVBregion& dest, PVBregion& src, const SignalTable& table, int mode, bool label);
