#pragma once

// Carrying scan chains, and the scan runs of rows, over into a destination.

#include "conditioner/signal_transfer.h"

// Makes the chains of the source whose edge signals are in `table`, with their members;
// notes the objects' ids in src.scanIDMap. `skipExisting` leaves chains alone that the
// destination has by name.
void copyScanChains(PVBregion& src, PVBregion& dest, const SignalTable& table, bool skipExisting);
// Gives a new scan row, not yet inserted, the runs of a source row, with the state
// vectors that the destination lacks. Chains that it doesn't have are left out.
void copyScanRuns(PVBrow& destRow, const PVBrow& srcRow, const PVBregion& dest,
                  const PVBregion& src);
