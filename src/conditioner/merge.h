#pragma once

// Merge: two regions side by side in time. The destination has the signals of both as
// columns and, as rows, the cycles of both, cut so that each cycle boundary of either
// is a row boundary.

#include <optional>
#include <string>

#include "conditioner/region.h"

// `refPvb` is the database after whose timeplates generated ones are named, unless
// short names were asked for. 0 or -2.
int merge(PVBregion& dest, PVBregion& src1, PVBregion& src2, const std::string& refPvb);

// The reference database: open from initRefPVB to closeRefPVB, each 0 or -2.
int initRefPVB(const std::string& path);
int closeRefPVB(const std::string& path);
// The name of a plate generated at a time of the pattern; none when the reference
// database has no row, timeplate or name there.
std::optional<std::string> refTimePlateName(TIME time);
