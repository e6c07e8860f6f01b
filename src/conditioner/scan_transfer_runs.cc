// The scan runs of rows, with the state vectors that they need.

#include <algorithm>
#include <cerrno>
#include <string>

#include "base/errors.h"
#include "conditioner/scan_transfer.h"
#include "pvb/scan_run.h"
#include "pvb/state_vector.h"

namespace {

constexpr char kFillByte = 0x44;  // two cells 'X'
constexpr int kFirstSettable = 1;
constexpr int kLastCode = 4;

int failRuns(std::string_view reason) {
  errno = 0;
  PBpostError("copyScanRuns", 0, reason);
  return -2;
}

// --- Vectors -------------------------------------------------------------------------

void setCell(std::string& bytes, std::uint32_t cell, unsigned code) {
  if (cell / 2 >= bytes.size()) bytes.resize(cell / 2 + 1, kFillByte);
  const unsigned shift = cell % 2 * 4;
  char& byte = bytes[cell / 2];
  byte = static_cast<char>((static_cast<unsigned char>(byte) & ~(15U << shift)) | code << shift);
}

// The states of a source's vector in the places of the destination's cells. Only what
// was set is looked at, since a vector may have a short chain's cells behind those of
// many others.
std::string movedStates(const std::string& states, const std::vector<ScanIdPair>& pairs) {
  std::string moved;
  auto pair = pairs.begin();
  const auto isBefore = [](const ScanIdPair& a, std::size_t cell) {
    return static_cast<std::size_t>(PVBidIndex(a.from)) < cell;
  };
  for (std::size_t at = states.find_first_not_of(kFillByte); at != std::string::npos;
       at = states.find_first_not_of(kFillByte, at + 1)) {
    pair = std::lower_bound(pair, pairs.end(), 2 * at, isBefore);
    const auto byte = static_cast<unsigned char>(states[at]);
    for (; pair != pairs.end() && isBefore(*pair, 2 * at + 2); ++pair) {
      const unsigned code = byte >> PVBidIndex(pair->from) % 2 * 4 & 15;
      const auto cell = static_cast<std::uint32_t>(PVBidIndex(pair->to));
      if (code >= kFirstSettable && code <= kLastCode) setCell(moved, cell, code);
    }
  }
  return moved;
}

// A new vector of the destination with the content of a source's; UNDEF after a line on
// standard error.
PVBid makeVector(int dest, const PVBregion& src, PVBid vector, const std::string& name) {
  const std::string* states = PVBstateVectorBytes(src.pvbHandle, vector);
  if (states == nullptr) return UNDEF;
  const std::string moved = movedStates(*states, src.scanIDMap);
  const std::uint32_t value = PVBstateVectorValue(src.pvbHandle, vector);
  const PVBid made = PVBstateVectorNew(dest, name);
  if (made == UNDEF) return UNDEF;
  if (!moved.empty() && PVBstateVectorSetBytes(dest, made, moved) != 0) return UNDEF;
  if (value != 0 && PVBstateVectorSetValue(dest, made, value) != 0) return UNDEF;
  return made;
}

PVBid vectorFor(int dest, PVBregion& src, PVBid vector) {
  const std::string name = PVBstateVectorName(src.pvbHandle, vector);
  PVBid there = UNDEF;
  if (!name.empty()) {
    there = PVBstateVectorByName(dest, name);
  } else if (const auto known = src.vectorIDMap.find(vector); known != src.vectorIDMap.end()) {
    there = known->second;
  }
  if (there != UNDEF) return there;
  there = makeVector(dest, src, vector, name);
  if (there == UNDEF) {
    failRuns("state vector (" + name + ") can't be copied; its scan run is left out");
    PBflushErrors();
  } else if (name.empty()) {
    src.vectorIDMap[vector] = there;
  }
  return there;
}

// --- Runs ----------------------------------------------------------------------------

// The destination's chain of the name of a source's; UNDEF when it has none.
PVBid chainFor(int dest, const PVBregion& src, PVBid chain) {
  const PVBsignal* source = PVBobjectInqByID(src.pvbHandle, chain);
  if (source == nullptr || !source->name) return UNDEF;
  const PVBsignal* same = PVBsignalInqByName(dest, *source->name);
  const bool isChain = same != nullptr && PVBidClass(same->id) == kClassScanChain;
  return isChain ? same->id : UNDEF;
}

}  // namespace

int copyScanRuns(PVBrow& destRow, const PVBrow& srcRow, const PVBregion& dest, PVBregion& src) {
  if (srcRow.type != ROW_SCAN || srcRow.link == kNoLink) return 0;
  const PVBscanRunIterator sources = PVBcreateScanRunIterator(src.pvbHandle, srcRow);
  if (!sources.whole) return failRuns("the scan runs of a row can't be read");
  std::vector<PVBscanRun> runs;
  for (const PVBid id : sources.runs) {
    PVBscanRun run;
    if (!PVBscanRunInq(src.pvbHandle, id, run)) return failRuns("a scan run can't be read");
    run.chain = chainFor(dest.pvbHandle, src, run.chain);
    if (run.chain == UNDEF) continue;
    run.state = vectorFor(dest.pvbHandle, src, run.state);
    if (run.state != UNDEF) runs.push_back(run);
  }
  if (PVBscanRunsAppend(dest.pvbHandle, destRow, runs) == 0) return 0;
  return failRuns("scan runs can't be written");
}
