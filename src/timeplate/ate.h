#pragma once

// The shapes that a tester can make, read from its shape file at the start of a run: a
// track may only become one of these. A shape file is a table file whose columns are
// the keys below, one or two to a row:
//
//   shape                      a shape; with C, P or S it is complex, else simple
//   muxShape                   NONE, ALL, or a shape for multiplexed signals
//   simpleShape, forceMap      every wave of the first becomes the second if it can
//   noMapping                  a signal that no such map is for
//   familyShape, shapeFamily   puts a complex shape in a family
//   signal, family             a signal that gets the shapes of one family only
//
// Complex shapes stand before what names them. A list of signals is a table file too, with
// the columns noMapping, signal and family. A fault ends the reading with a notice of the
// optimizer and -2. The tables live until the next ateInit.

#include <cstdint>
#include <string_view>

#include "pvb/id.h"
#include "pvb/timeplate.h"
#include "timeplate/wave.h"

// Tables; the complex one is also that of multiplexed signals until the file says
// otherwise. A shape's index in its table is its id.
inline constexpr int kSimpleShapes = 0;
inline constexpr int kComplexShapes = 1;
inline constexpr int kMuxShapes = 2;

// Reads the shape file (and the signal list) that the parameters name, and settles the P
// mode. 0 or -2.
int ateInit();
// The P mode that ateInit settled; -1 when it didn't.
int atePmode();

// A walk over the shapes that may be offered to a signal, in their order. A shape is
// good until the next ateInit.
struct ShapeWalk {
  int table = kComplexShapes;
  PVBid signal = UNDEF;
  int family = -1;   // its index; -1: the plain table
  int next = 0;      // within the family, or the table
  bool own = false;  // the signal has a family of its own
};
const Wave* ateFirstShape(ShapeWalk& walk, int table, PVBid signal);
const Wave* ateNextShape(ShapeWalk& walk);

// By the text of states; null and -1 for none.
const Wave* ateShapeLookup(int table, std::string_view states, int& id);
int ateShapeId(int table, std::string_view states);
int ateShapeCount(int table);
// The complex shape that waves of these states of the signal are to become, or null.
const Wave* ateForcedMap(std::string_view states, PVBid signal);
bool ateNoMapping(std::string_view signalName);
bool ateUseMux();

// Counts a timeplate that so many rows use, for the summary: the complex shapes on its
// tracks, and its rows once for each family that one of these belongs to.
void ateCountUse(const PVBtimePlate& plate, std::int64_t rows);
// The summary in the report: of each family how many of its shapes were counted, and the
// rows. Empties the counts.
void ateFamilySummary();

// Names of signals are only kept by ateInit, which runs before the database of a merge is
// there; here they are looked up, a bus or group standing for its signals. To be called when
// the database has its signals, which in a merge is before the first pass. -1: no database,
// and no signal has a family or is kept from maps. -2 after a notice for the first name
// that the database doesn't have: nothing must be optimized by tables that name it.
int ateBindSignals(int database);
