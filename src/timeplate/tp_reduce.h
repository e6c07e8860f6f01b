#pragma once

// The question at the heart of merging: can one wave stand for two waves of a signal, for
// every row that uses either? Answered on states, with the data of the rows.
//
// All of it works on reused records: a wave that is returned is good until the next call.

#include "timeplate/tp_run.h"
#include "timeplate/wave.h"

// --- Matching on states alone --------------------------------------------------------

// What the data of a signal turned out to be in a match. 0 nothing, 1 D, 2 U, 3 Z, 4
// another driven state: as a code of the row data 1 to 3 can be written.
struct MatchState {
  char tpBoundData = 'N';
  int tpMatchResult = 0;
};
extern MatchState tpMatch;
void tpMatchReset();
// Whether the target's state can show `flat`, binding the row's data where it must.
bool tpMatchState(char target, char flat);
// Whether the target, with the data that tpMatch has then, shows at every time what the
// flat wave does; fills the target's unset times.
bool tpStaticMatch(const Wave& flat, Wave& target, int flatCount, int targetCount);
// Both must match, A first. The results are those of the two waves; who has exchanged them
// exchanges the results. `failSide` is 0 or 1 after a failure.
struct PairMatch {
  bool matched = false;
  int failSide = 0;
  int resultA = 0;
  int resultB = 0;
};
PairMatch tpMatchPair(const Wave& waveA, const Wave& waveB, Wave& target, int countA, int countB);

// --- Matching against the rows -------------------------------------------------------

// A wave with the row's data put in for S and C, and what P stands for. A P stays where
// what the row before has left isn't known: it is as itself only. `row` isn't looked at
// any more once the row store is asked for the row before.
void tpFlattenForRow(const PVBtimePlate& plate, int track, const TpSignal& signal, const TpRow& row,
                     Wave& flat);
// One side of a propagation: a timeplate with a track of the signal.
struct PropagateSide {
  const PVBtimePlate* plate = nullptr;  // null: not looked at
  int track = kNoTrack;
  Wave* working = nullptr;  // the side's working copy
};
// Whether the target can show what the rows of both sides do; fills the target's unset
// times. `failSide` is 0 or 1 after a failure of one side's rows, -1 when the rows pass but
// the times that they ask for together are none of a wave. Asks the row store.
bool tpPropagate(const PropagateSide& first, const PropagateSide& second, Wave& target,
                 const TpSignal& signal, int& failSide);

// --- Reduction -----------------------------------------------------------------------

struct Reduction {
  const Wave* wave = nullptr;  // null: none
  bool fromHistory = false;    // shown by the rows
  const char* reason = "";     // of a refusal, for the report; good until the next call
};
// Tracks `a` of first and `b` of second, of one signal and direction. The full reduction
// and that of a protected first timeplate. Both set tpPair's rewrite flags and scratch
// rows. `direction` 2 with tpoOptimizeOnly cuts the strobe windows first.
Reduction tpReduceTracks(const PVBtimePlate& first, const PVBtimePlate& second, int a, int b,
                         const TpSignal& signal, int direction);
Reduction tpReduceTracksConservative(const PVBtimePlate& first, const PVBtimePlate& second, int a,
                                     int b, const TpSignal& signal, int direction);
