#pragma once

// What the sources of concatenate share: the copying of the rows of one region.

#include <cstdint>
#include <deque>
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

// A subroutine under way: how far its rows have been read and written.
struct SubroutineCopy {
  PatternWalk walk;
  PatternCopy to;
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
  // Subroutines whose rows are still to come, the one at work last. A deque, since rows
  // being copied refer to its elements while it grows.
  std::deque<SubroutineCopy> pending = {};
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

// Copies one row to the next place of `to`, and with a call the subroutine that the
// destination doesn't have by name. 0, or -2 after a push.
int concatRow(RowCopy& copy, PatternCopy& to, const SourceRow& source);
