#pragma once

// What the sources of concatenate share: the copying of the rows of one region.

#include <cstdint>
#include <memory>
#include <vector>

#include "conditioner/concat.h"
#include "conditioner/row_transfer.h"

// A pattern of the destination that rows are written to, and where its source is. A
// loop gets its end row when its loop row is written; the source's end row then only
// counts, so both sides must agree on where loops end.
struct PatternCopy {
  int pattern = kMainPattern;             // of the destination
  std::uint32_t next = 0;                 // row number of the next row there
  std::vector<std::uint32_t> sourceEnds;  // end rows of the loops around, outermost first
};

// A subroutine of the source and its copy, by their indices.
struct SubroutinePair {
  int from;
  int to;
};

// What the rows of one region have in common while they are copied. Both databases
// are open and the source's doesn't change.
struct RowCopy {
  PVBregion& dest;
  PVBregion& src;
  const SignalTable& table;
  std::unique_ptr<PVBtimePlate> base;  // see baseTimePlate
  ScalarPairs pairs;
  bool extended = false;  // either database is of the extended data model
  // By the source's ids and indices: what stands for them in the destination, -1 while
  // that isn't known.
  std::vector<PVBid> plates = {};
  std::vector<int> subroutines = {};
  // Those made here, in this order; their rows come behind those of the main pattern.
  std::vector<SubroutinePair> made = {};
  // How many more rows the source can have: each row has a block of its own.
  std::uint64_t rowsLeft = 0;
};

RowCopy makeRowCopy(PVBregion& dest, PVBregion& src, const SignalTable& table);

// A row of the source, with the timeplate that holds for it (null for none) and the
// cycles of it that are wanted.
struct SourceRow {
  const PVBrow& row;
  std::uint32_t number;  // within its pattern
  PVBtimePlate* plate;
  std::uint32_t count;
};

// Copies one row to the next place of `to`; with a call, makes the subroutine that the
// destination doesn't have by name. 0, or -2 after a push.
int concatRow(RowCopy& copy, PatternCopy& to, const SourceRow& source);
// Copies the rows of the subroutines that were made, and of those that these call.
int concatSubroutines(RowCopy& copy);
