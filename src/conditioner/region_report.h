#pragma once

// How operations show regions in the report.

#include "conditioner/region.h"

// The two lines of the head of a table of regions, each beginning with a line end.
void printRegionHead();
// A region's name, path and bounds.
void printRegionLine(const PVBregion& region);
// Text to the report, paged.
void report(const std::string& text);
