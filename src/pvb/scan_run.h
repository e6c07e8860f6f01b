#pragma once

// Scan runs: which state vectors a scan row shifts through which chains. A run is
// a block of the plain block file "pvb.rd"; the runs of a row are linked from the
// row's `link` on.
//
// Block, tag typePVBscanRun, 16 bytes; block n has id 0x0A000000 | n:
//
//   OFFSET  SIZE  FIELD  MEANING
//      0      4   type   RunType
//      4      4   chain  scan chain, id of class 9
//      8      4   state  state vector, id of class 8
//     12      4   next   the row's next run, -1 for none
//
// Chains and cells are records of the signal tables. A call that fails gives -1
// (or -2) and sets the status of the database.

#include <cstdint>
#include <span>
#include <vector>

#include "pvb/id.h"
#include "pvb/row.h"

enum RunType : std::uint32_t { RUN_INPUT = 0, RUN_OUTPUT = 1, RUN_FEEDBACK = 2 };

struct PVBscanRun {
  std::uint32_t type;
  PVBid chain;
  PVBid state;
  PVBid next;
};
static_assert(sizeof(PVBscanRun) == 16);
inline constexpr std::uint32_t kScanRunBlockSize = 16;

// Checks, then appends a run to those of a scan row, which is marked as changed;
// its count grows to the longest chain. The run's id, or -1. Status 10: no row; 5: no
// such chain; 6: ids of other classes; 17: not a scan row, or the chain lacks the
// signal that the type needs.
PVBid PVBscanRunInsert(int database, PVBrow* row, std::uint32_t type, PVBid chain, PVBid state);
// The same for many at one time, whose `next` isn't looked at; the row's count stays.
// Those that don't fit are left out. -2 with a status when one can't be stored.
int PVBscanRunsAppend(int database, PVBrow& row, std::span<const PVBscanRun> runs);
// The row's count stays.
int PVBscanRunDelete(int database, PVBrow& row, PVBid run);
// Frees all runs of a row (its `link` becomes none).
int PVBscanRunsFree(int database, PVBrow& row);
// Copies the runs of one scan row to another, whose `link` must be none (status 30).
int PVBscanRunsCopy(int database, PVBrow& to, const PVBrow& from);
// The run's fields by value; false with a status when there is no such run.
bool PVBscanRunInq(int database, PVBid run, PVBscanRun& out);
std::int32_t PVBscanRunType(int database, PVBid run);
int PVBscanRunSetType(int database, PVBid run, std::uint32_t type);
PVBid PVBscanRunChain(int database, PVBid run);
int PVBscanRunSetChain(int database, PVBid run, PVBid chain);
PVBid PVBscanRunState(int database, PVBid run);
int PVBscanRunSetState(int database, PVBid run, PVBid state);
PVBid PVBscanRunNext(int database, PVBid run);

// The runs of a row in order, as they were when the iterator was made; of a damaged
// chain of links those before the damage, with a status.
struct PVBscanRunIterator {
  PVBidList runs;
  bool whole = true;  // false: a run couldn't be read, and those behind it are missing
  int position = -1;
};
PVBscanRunIterator PVBcreateScanRunIterator(int database, const PVBrow& row);
PVBid PVBscanRunIterFirst(PVBscanRunIterator& iterator);
PVBid PVBscanRunIterNext(PVBscanRunIterator& iterator);
int PVBscanRunIterCount(const PVBscanRunIterator& iterator);
int PVBscanRunIterPosition(const PVBscanRunIterator& iterator);
void PVBscanRunIterFree(PVBscanRunIterator& iterator);

// --- Chains --------------------------------------------------------------------------

PVBid PVBinqInSignal(int database, PVBid chain);
PVBid PVBinqOutSignal(int database, PVBid chain);
// Cells; -1 when there is no such chain.
std::int32_t PVBchainLength(int database, PVBid chain);
PVBid PVBinqChain(int database, PVBid run);
PVBid PVBinqStateVector(int database, PVBid run);

// Fills the columns of the chains' signals in the states of a scan row for its
// cycle `cycle` (from 0), from the runs: 0, or -2 with a status (19: the row has no
// such cycle). In cycle n the state of the n-th cell from the chain's output end
// stands at both edges: an input run gives it to the input signal's input column, an
// output run to the output signal's output column. Behind a chain's end the row's
// own states stay. The row isn't marked as changed.
int PVBscanFillStates(int database, PVBrow& row, std::uint32_t cycle);
// Sets the columns of the chains' signals back to '-'.
void PVBscanClearStates(int database, PVBrow& row);
