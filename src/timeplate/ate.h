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
// A fault ends the reading with a notice of the optimizer and -2. The tables live until
// the next ateInit.

#include <string_view>

#include "pvb/id.h"
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

// Counts a timeplate's use of a shape by so many rows, for the summary.
void ateCountUse(std::string_view states, std::int64_t rows);
// The summary of families in the report; empties the counts.
void ateFamilySummary();

// Names of signals in the shape file are looked up in this database. ateInit runs before
// the database of a merge is there: names are then kept, and looked up here, where one
// that is missing is told. -1: no database.
int ateBindSignals(int database);
