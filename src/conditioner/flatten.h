#pragma once

// The operation that plays a pattern out: loops, calls and repeat counts become single
// rows, and the subroutines go. Works on the source in place, or on a destination that
// becomes a copy of the source first; a failure on the way leaves the pattern as it was.

#include "conditioner/region.h"

// `dest` may be null. 0, or -2 after a push.
int flatten(const PVBregion& src, const PVBregion* dest);
