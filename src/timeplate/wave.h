#pragma once

// Waves as the optimizer works on them: a state for each edge, with its time. A time of
// zero is not set yet, but on the first edge. A wave without times known is a shape.
//
// Waves are reused as working copies: assigning one to another keeps the room it has.

#include <string>
#include <string_view>
#include <vector>

#include "base/time.h"
#include "pvb/timeplate.h"

struct Wave {
  std::string states;
  std::vector<TIME> times;  // as long as states

  int edges() const { return static_cast<int>(states.size()); }
  friend bool operator==(const Wave&, const Wave&) = default;
};

// --- States --------------------------------------------------------------------------

// Class codes of state characters; 0 for no state.
inline constexpr int kDriveClass = 16;
inline constexpr int kResponseClass = 8;
inline constexpr int kOtherClass = 24;
inline constexpr int kLowerDriveClass = 32;
inline constexpr int kLowerResponseClass = 40;
int tpStateClass(char state);
inline bool tpIsDrive(char state) { return tpStateClass(state) == kDriveClass; }
// What the complement of a row's data does where the data do `state`.
char tpComplement(char state);
// The letter of a code of the row data: D, U, Z for 1, 2, 3, else N.
char tpDataLetter(int code);
// The letter of a code of the P state store, "DUNZHLXT?" from 1 on, and back (0: none).
char tpStoredLetter(int code);
int tpStoredCode(char letter);

// --- Shapes --------------------------------------------------------------------------

bool tpShapeSimple(std::string_view states);   // none of C, P, S
bool tpShapeHasData(std::string_view states);  // C or S
// Of the first X: 0 none, 1 first, 3 last, 2 anywhere else.
int tpXPosition(std::string_view states);
// Of '?' at the ends: 0 both, with at least 3 edges; 1 start, 2 end, 3 neither.
int tpMuxClass(std::string_view states);
// Input 0, output 1, both 2; '?' says nothing, and nothing at all is input.
int tpClassifyDirection(std::string_view states);

// --- Waves ---------------------------------------------------------------------------

// One state an edge, each said once, so that a wave tells all of it.
bool tpIsPlainTrack(const PVBtrack& track);
// What a wave doesn't tell is the same: selectors, repeats, place in a longer cycle.
bool tpSameOutsideWaves(const PVBtrack& a, const PVBtrack& b);
// Wherever both tracks have an expression for an edge it is the same.
bool tpExpressionsAgree(const PVBtrack& a, const PVBtrack& b);
// Copies states and times of a track; a track with fewer times than states gets zeros.
void tpTakeWave(Wave& wave, const PVBtrack& track);
// Within the settings' tolerance, in seconds as doubles (zero: exactly).
bool tpTimesEqual(TIME a, TIME b);
// The same states at equal times.
bool tpWavesEqual(const Wave& a, const Wave& b);
// Whether two times can be the same edge: one is zero, or their femtoseconds as wrapping
// 32-bit numbers differ by no more than the tolerance.
bool tpTimesConform(TIME t1, TIME t2);
// Takes a '?' off each end of a wave of more than one edge. `end` gets the time of one at
// the end, and is left alone without one.
void tpStripQuestion(Wave& wave, TIME& end);
// Gives both waves an edge wherever one of them has one.
void tpAlignWaves(Wave& a, Wave& b);
// Gives the wave as many edges as `targetEdges` by repeating its last state, where the
// rest of the cycle leaves room for them. `end` is the end of a multiplexed wave,
// TIME_ZERO for none.
void tpStretchWave(Wave& wave, int targetEdges, TIME period, bool muxed, TIME end);

// --- Strobe windows of bidirectional waves -------------------------------------------

// Runs of Q as they stood in a wave, each with the edge behind it if that goes back to the
// state before the run.
struct StrobeWindows {
  Wave cut;                    // the edges taken out; those that aren't Q close a window
  std::vector<int> positions;  // of each in the wave it was taken from
};
// Whether two bidirectional waves are made of runs of driven and expected states in the
// same order.
bool tpSameRunStructure(std::string_view a, std::string_view b);
// Takes the windows out of a wave, and puts them back at the same times.
StrobeWindows tpCutStrobeWindows(Wave& wave);
void tpRestoreStrobeWindows(Wave& wave, const StrobeWindows& windows);
