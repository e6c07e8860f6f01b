#pragma once

// What the sources of the pair loop share.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "timeplate/tp_merge.h"

// --- Working order -------------------------------------------------------------------

// Kept from pass to pass of a run.
struct TpMergeState {
  std::vector<OrderEntry> tpoOrder;  // id UNDEF where a timeplate was absorbed
  int tpoLastCount = 0;              // timeplates left by the last full pass; 0 before it
  std::unordered_set<PVBid> tpoProtected;
  // By signal index: whether a track holds a P, and whether rows that said nothing of the
  // signal have got a track, so that the state before later rows isn't known any more.
  std::vector<bool> previousUsed;
  std::vector<bool> unsettled;
};
extern TpMergeState tpMergeState;

// Brings the working order up to date with the timeplates there are, and sorts it.
void tpUpdateOrder(std::span<const PVBid> ids);
// The debug tables of the report, at trace level 2.
void tpReportOrder();
// Signals by how often they kept a pair apart.
void tpReportFailures();

// --- One pair ------------------------------------------------------------------------

// A timeplate as the pair loop sees it. The tracks are in the plate's map as well; here
// they are found without a search.
struct PlateView {
  PVBtimePlate* plate = nullptr;                    // null: absorbed
  std::vector<std::array<std::int32_t, 3>> tracks;  // by signal index and direction
  bool isProtected = false;
};
// Reads the tracks off the plate; a track that hasn't been given a direction counts for
// that of its wave only, in the plate's map too.
void tpViewTracks(PlateView& view);
void tpNormaliseDirections(PVBtimePlate& plate);

// Looks at all signals of a pair and leaves the candidates in tpPair. False when one of
// them keeps the two apart.
bool tpComparePair(PlateView& first, PlateView& second);

// --- What became of timeplates -------------------------------------------------------

// From now on timeplates are kept as they were before a change, for rows to come.
void tpKeepOriginals(bool keep);
// The timeplate is about to be changed or absorbed.
void tpNoteOriginal(const PVBtimePlate& plate);
// A track of the timeplate has another wave: what was true of rows through it may not
// hold for rows to come.
void tpNoteChanged(PVBid plate);
// `second` is gone. `alike`: its rows, those to come included, mean the same through
// `first`.
void tpNoteAbsorbed(PVBid second, PVBid first, bool alike);
