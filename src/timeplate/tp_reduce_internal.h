#pragma once

// What the files of the reduction share: why a match was refused, what P stands for on
// the way through a wave, and the proof that a target shows what a wave does.
//
// The proof decides. Matching walks states and times edge by edge, letting an unset time
// be any and N be anything on both sides; it finds the data and fills the times. Whether
// the target, with those, then shows the same is asked of the two waves as they run in
// time, so that nothing that a walk lets through can change what is driven.

#include <span>
#include <string>
#include <string_view>

#include "timeplate/ate.h"
#include "timeplate/tp_reduce.h"

// --- Refusals ------------------------------------------------------------------------

// Of the last match or reduction, without line ends.
extern std::string tpReason;
inline constexpr std::string_view kNoShape = "no shape";  // none was tested
// Sets the reason and traces `text`, of which it is a part. False.
bool tpRefuse(std::string_view reason, std::string_view text);
bool tpRefuse(std::string_view reason);  // as a line of its own
bool tpRefuseStates(char target, char flat);

// --- Time by time --------------------------------------------------------------------

// Whether two times are the same within the tolerance. Exact: neither wraps nor takes
// zero for unset, as tpTimesConform does.
bool tpSameTime(TIME t1, TIME t2);
// At least one edge, times strictly ascending.
bool tpIsSound(const Wave& wave);
// Strictly ascending but for the times behind the first that aren't set.
bool tpTimesAscend(const Wave& wave);
// Whether states `shown` at `times` are those of `flat` at every time. N in the flat wave
// tells nothing. An edge without a time may lie anywhere between its neighbours, and has
// to be right wherever it does.
bool tpShowsSame(const Wave& flat, std::string_view shown, std::span<const TIME> times);
// Whether the data that tpMatch has found can be written.
bool tpDataWritable(std::string_view target);
// The states of a target with `data` for S, P as it is.
void tpPutData(std::string_view target, char data, std::string& shown);

// --- P -------------------------------------------------------------------------------

// Stands for a P that isn't known; equal to itself as long as what is before it is.
inline constexpr char kUnknownPrevious = 'P';

// What is known of a signal going into a row.
struct RowStart {
  char pstate = 'N';
  char previous = 'N';
};
RowStart tpRowStart(const TpSignal& signal, std::int32_t row);

// The letter that a P stands for, from state to state of a wave.
class PreviousLetter {
 public:
  PreviousLetter(char value, RowStart start);
  char letter() const { return letter_; }
  void pass(char state);  // one that isn't P

 private:
  char value_;
  char letter_;
};

// The states of a wave with `value` for the row's data and what P stands for.
void tpResolve(std::string_view states, char value, RowStart start, std::string& flat);
// Every state decides what a later P is, also one of an undefined span or a strobe.
bool tpEveryStateCounts();

// --- Pieces of matching --------------------------------------------------------------

// Compares target time k with flat time i, or takes it over where it isn't set.
bool tpFillTime(const Wave& flat, std::size_t i, Wave& target, std::size_t k);
// Whether a target that is longer than the flat wave may show flat state i - 1 once more
// at its state k.
bool tpMayRepeat(const Wave& flat, std::size_t i, const Wave& target, std::size_t k);

// --- Reduction -----------------------------------------------------------------------

// Two tracks that are reduced, and what a shape is tried on. All records are used again.
struct ReducedTracks {
  const PVBtimePlate* first = nullptr;
  const PVBtimePlate* second = nullptr;
  int a = kNoTrack;
  int b = kNoTrack;
  const TpSignal* signal = nullptr;
  int table = kComplexShapes;
  bool cutsStrobes = false;
  TIME end;  // of a multiplexed wave

  Wave wholeA, wholeB;  // as the tracks stand
  Wave waveA, waveB;    // without spans and strobes
  Wave savedA, savedB;  // aligned
  Wave A, B;            // at work
  Wave target;
  StrobeWindows windowsA, windowsB;
  bool simpleA = false;
  bool simpleB = false;
};
extern ReducedTracks tpReduced;

// Steps 1 to 6: takes the tracks, and refuses those that no wave can stand for. `direction`
// is that of both.
bool tpBeginReduction(const PVBtimePlate& first, const PVBtimePlate& second, int a, int b,
                      const TpSignal& signal, int direction);
// Puts the strobes that were cut out of both waves into the target; refuses when it would
// compare otherwise than they.
bool tpRestoreStrobes();
