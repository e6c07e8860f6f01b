#pragma once

// Add: new scalar signals, each with a track in every timeplate and one state in all rows
// of the main pattern, as a list of the operation file says.

#include "conditioner/region.h"

// `listCarrier` holds the list's name. Bad items are pushed and passed over; -2 only for a
// database that is missing or can't be opened.
int adds(PVBregion& dest, PVBregion& src, const PVBregion& listCarrier);
