#pragma once

// Cut: signals removed from a database and its timeplates, as a list of the operation file
// says. Their columns of the rows stay, unused.

#include "conditioner/region.h"

// `listCarrier` holds the list's name. Names that aren't there are pushed and passed over.
int cut(PVBregion& dest, PVBregion& src, const PVBregion& listCarrier);
