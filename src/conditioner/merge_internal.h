#pragma once

// What the merge sources share.

#include "conditioner/signal_transfer.h"

// Writes the rows of the destination, which has its signals, and the timeplates that they
// use. 0, or -2 after a push; what was written then remains.
int mergeCycle(PVBregion& dest, PVBregion& src1, PVBregion& src2, const SigCategories& categories);
