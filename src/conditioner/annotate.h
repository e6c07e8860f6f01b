#pragma once

// The operation that leaves on each row the name of its timeplate, as a comment. Works on
// the source in place, or on a destination that becomes a copy of the source first.

#include "conditioner/region.h"

// `dest` may be null. 0, or -2; a row that has a timeplate but no property list fails the
// operation before any row is changed.
int annotateVectors(const PVBregion* src, const PVBregion* dest);
