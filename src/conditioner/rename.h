#pragma once

// Rename: new names for signals, one by one or as whole buses, as a list of the operation
// file says. Nothing but names changes.

#include "conditioner/region.h"

// `listCarrier` holds the list's name. Pairs that can't be carried out are pushed and
// passed over.
int renameSignal(PVBregion& dest, PVBregion& src, const PVBregion& listCarrier);
