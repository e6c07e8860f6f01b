#pragma once

// How operations show texts and regions in the report of the run, which is open.

#include <string_view>

#include "conditioner/region.h"

// The two lines of the head of a table of regions, each beginning with a line end.
void printRegionHead();
// A region's name, path and bounds; begins with a line end.
void printRegionLine(const PVBregion& region);
// Text to the report, paged.
void report(std::string_view text);
