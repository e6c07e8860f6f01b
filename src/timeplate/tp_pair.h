#pragma once

// The pair of timeplates at hand: what each signal's tracks would become, and what of the
// rows has to be rewritten for it. One pair at a time; the records are used again, so that
// a pair that fails costs no allocation.

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "timeplate/tp_run.h"
#include "timeplate/wave.h"

// What a track becomes.
struct Candidate {
  bool set = false;
  bool fromSecond = false;   // taken over as it was from the one timeplate that has it
  bool fromHistory = false;  // shown to hold by the rows, not by the waves alone
  bool strobesCut = false;   // windows were cut out and put back
  Wave wave;
  const PVBtrack* source = nullptr;  // of fromSecond: the whole track
};

// What the data of each signal turned out to be, as codes of the row data by signal index
// (0: nothing to write).
using ScratchRow = std::vector<std::uint8_t>;

struct TpPair {
  PVBid first = UNDEF;
  PVBid second = UNDEF;
  bool rewriteFirst = false;                            // rows of first
  bool rewriteSecond = false;                           // rows of second
  std::vector<std::array<Candidate, 3>> tpoCandidates;  // by signal index and direction
  std::array<ScratchRow, 2> scratch;                    // by side, from tpMatchPair
  int reduced = 0;                                      // candidates that are new waves
  int identical = 0;                                    // tracks that were equal already
  std::vector<std::pair<int, int>> used;                // candidates set, by index and direction
};
extern TpPair tpPair;

// Forgets the pair before. `second` is UNDEF when one timeplate is checked alone.
void tpPairBegin(PVBid first, PVBid second);
// Gives the candidate's record, marked as set.
Candidate& tpPairSet(const TpSignal& signal, int direction, const Wave& wave);
const Candidate& tpPairCandidate(const TpSignal& signal, int direction);
bool tpPairHasCandidate();

// Puts the candidates into a timeplate's tracks, on new ones where it has none; a signal
// that shares its track with others leaves it, unless all of them change in the same way.
// Expressions stay with edges whose time stays. The maps are built anew and the memos of
// changed tracks forgotten.
void tpApplyCandidates(PVBtimePlate& plate);
