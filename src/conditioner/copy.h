#pragma once

// Copy and delete: a new database that holds one region of another; databases removed
// from disk.

#include "conditioner/operation.h"
#include "conditioner/region.h"

// `quiet`: an inner step of another operation, which reports for itself. 0 or -2.
int copy(PVBregion& dest, PVBregion& src, bool quiet = false);
// Removes the databases of the operands, which leave the region table. 0 or -2.
int deleteDB(OpSpec& operation, RegionTable& regions);
int deleteObject(const PVBregion& region);
