#pragma once

// What the sources of the timeplate transfer share.

#include "conditioner/region.h"

// The destination's id of a signal of the region; UNDEF where it isn't carried over.
PVBid mappedId(const PVBregion& region, PVBid id);
