#pragma once

// Carrying the states of rows over into a destination. Which column goes where is
// worked out once for each pair of regions; a row then is copied in runs of bytes.

#include <cstdint>
#include <utility>
#include <vector>

#include "conditioner/signal_transfer.h"
#include "pvb/row.h"
#include "pvb/state_map.h"

// Scalars of a source with the destination's signals of the same names, and what
// follows from them for the states of rows. Valid while neither database's signals
// change.
struct ScalarPairs {
  std::vector<std::pair<const PVBsignal*, const PVBsignal*>> pairs;
  StateMap states;
  // Columns of characters of 8 bits, -1 for none: the low half of a character stands in
  // the first, the high half in the second.
  struct BitColumns {
    std::int32_t fromIn;
    std::int32_t fromOut;
    std::int32_t toIn;
    std::int32_t toOut;
  };
  std::vector<BitColumns> bits;
};

// The pairs of the signals of `table`, which are of `src`, that the destination has too.
// Columns that the rows of either database have no room for are left out.
ScalarPairs buildScalarPairs(const SignalTable& table, const PVBregion& src, const PVBregion& dest);
// For merge: the first pairs are those of source 1 (its own and the common signals),
// the second those only in source 2.
std::pair<ScalarPairs, ScalarPairs> buildScalarPairs(const SigCategories& categories,
                                                     const PVBregion& src1, const PVBregion& src2,
                                                     const PVBregion& dest);
// Copies the states over the pairs, and the repeat count.
void copyRowStates(PVBrow& destRow, const PVBrow& srcRow, const ScalarPairs& pairs);
// A new row of the destination with a timeplate and the states of both rows; the repeat
// count of row 2 stands. An empty handle when there is no room.
RowHandle mergeRow(int destDatabase, const PVBrow& row1, const PVBrow& row2, PVBid plate,
                   const ScalarPairs& pairs1, const ScalarPairs& pairs2);
// Gives the new row copies of the source row's properties; the order in which the values
// read stays, their kinds end up reversed against them: kept on purpose. Copies are made
// of all, however many there are; a property that can't be read is told on standard error
// and left out, one that can't be written ends the run.
void copyRowProperties(PVBrow& destRow, const PVBrow& srcRow, int destDatabase, int srcDatabase);
// The same for two rows, the first one's first.
void mergeRowProperties(PVBrow& newRow, int destDatabase, const PVBrow& row1, int database1,
                        const PVBrow& row2, int database2);
