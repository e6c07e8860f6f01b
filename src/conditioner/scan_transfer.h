#pragma once

// Carrying scan chains, and the scan runs of rows, over into a destination. A cell's
// place in a state vector is the index of its id, so objects keep their ids where these
// are free there, and the source's scanIDMap says where the others went.

#include "conditioner/signal_transfer.h"

// Makes the chains of the source whose edge signals are in `table`, with their members.
// Objects that the destination has by name are used; a chain that it has keeps its
// members, and with `skipExisting` its edge signals too. Notes the ids of the source's
// cells and registers in src.scanIDMap, of those in chains that are there already as
// well: their state vectors need them.
void copyScanChains(PVBregion& src, PVBregion& dest, const SignalTable& table, bool skipExisting);
// Gives a new scan row, not yet inserted, the runs of a source row, with the state
// vectors that the destination lacks; its count stays. Chains that the destination
// doesn't have are left out; so is, told on standard error, a run whose vector can't be
// made. 0, or -2 after a post when the source's runs can't be read or the row's not
// written.
int copyScanRuns(PVBrow& destRow, const PVBrow& srcRow, const PVBregion& dest, PVBregion& src);
