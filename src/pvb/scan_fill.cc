#include <algorithm>

#include "pvb/database.h"
#include "pvb/scan_run_internal.h"
#include "pvb/signal.h"
#include "pvb/state_vector.h"

namespace {

constexpr int kCodeNone = 0;  // '-'

// Where the states of a run show in a row: the column that drives the chain's input
// and the one that expects its output; kNoColumn for what the run doesn't have.
struct RunColumns {
  std::uint16_t in = kNoColumn;
  std::uint16_t out = kNoColumn;
};

std::uint16_t columnOf(int database, PVBid signal, std::uint16_t PVBsignal::*column) {
  const PVBsignal* found = signal == UNDEF ? nullptr : PVBobjectInqByID(database, signal);
  return found != nullptr ? found->*column : kNoColumn;
}

RunColumns columnsOf(int database, const PVBscanRun& run) {
  RunColumns columns;
  if (run.type == RUN_INPUT || run.type == RUN_FEEDBACK) {
    columns.in = columnOf(database, PVBinqInSignal(database, run.chain), &PVBsignal::inColumn);
  }
  if (run.type == RUN_OUTPUT || run.type == RUN_FEEDBACK) {
    columns.out = columnOf(database, PVBinqOutSignal(database, run.chain), &PVBsignal::outColumn);
  }
  return columns;
}

void setColumns(int database, PVBrow& row, const RunColumns& columns, int code) {
  const auto width = static_cast<std::uint32_t>(std::max(PVBrowDataSize(database), 0)) * 2;
  for (const std::uint16_t column : {columns.in, columns.out}) {
    if (column != kNoColumn && column < width) setRowCode(row.states(), column, code);
  }
}

// The cell whose state is at the chain's edges in a cycle: the last cell's leaves
// first, and what becomes the last cell's state goes in first. UNDEF behind the end.
PVBid cellAtEdge(const PVBsignal& chain, std::uint32_t cycle) {
  const std::size_t length = chain.members.size();
  return cycle < length ? chain.members[length - 1 - cycle] : UNDEF;
}

int fillRun(int database, PVBrow& row, const PVBscanRun& run, std::uint32_t cycle) {
  const PVBsignal* chain = PVBobjectInqByID(database, run.chain);
  if (chain == nullptr) return scanRunFailure(database, kStatusNotInUse);
  const PVBid cell = cellAtEdge(*chain, cycle);
  if (cell == UNDEF) return 0;
  const int code =
      PVBstateVectorGet(database, run.state, static_cast<std::uint32_t>(PVBidIndex(cell)));
  if (code == kVectorFailure) return -2;
  setColumns(database, row, columnsOf(database, run), code);
  return 0;
}

}  // namespace

int PVBscanFillStates(int database, PVBrow& row, std::uint32_t cycle) {
  if (row.type != ROW_SCAN) return scanRunFailure(database, kStatusBadType);
  if (cycle >= row.count) return scanRunFailure(database, kStatusScanCycle);
  ScanRunWalk walk(database, row);
  while (walk.next()) {
    if (fillRun(database, row, walk.run(), cycle) != 0) return -2;
  }
  return walk.good() ? 0 : -2;
}

void PVBscanClearStates(int database, PVBrow& row) {
  ScanRunWalk walk(database, row);
  while (walk.next()) setColumns(database, row, columnsOf(database, walk.run()), kCodeNone);
}
