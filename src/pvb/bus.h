#pragma once

// Buses formed from scalars whose names end in an index, such as d[0] and d[1].

#include <cstdio>

#include "pvb/id.h"

// How the indices of a bus run.
enum BusOrder : int {
  kBusHighFirst = 0,  // left bound the highest; the members from the lowest up
  kBusLowFirst = 1,   // left bound the lowest; the members from the highest down
  kBusAsSeen = 2,     // kBusLowFirst where the index seen first is the highest
};

// Forms buses of the members of "ALL". Each base name for which no bus can be formed is
// told to `stream` with the reason; null tells nobody. 0, or -2 after a post.
int PVBbusify(int database, int order, FILE* stream);
// The same on any group. On one other than "ALL" no bus is made: members are replaced by
// a bus of their name and bounds that is there already.
int PVBbusifyGroup(int database, PVBid group, int order, FILE* stream);

// Forms buses as PVBbusify does, telling standard output, then lets the members of each
// bus share one track in every timeplate where their events are the same. False after a
// line on standard error.
bool busifyPVB(int database);
