#pragma once

// What the sources of the signal transfer share.

#include "conditioner/region.h"
#include "pvb/signal.h"

// Notes in the region's map which signal of the destination stands for one of its own.
void noteSignalId(PVBregion& region, PVBid id, PVBid destId);
// Gives a signal of the destination the further columns that one of a source has; the
// destination takes on the extended model when that needs it.
void widenSignal(const PVBregion& dest, PVBsignal& signal, const PVBsignal& source);
// The end of an operation whose destination can't take a signal.
[[noreturn]] void failSignal(const PVBregion& dest, const PVBsignal& signal);
