// What a row's data for a signal come to.

#include "pvb/checker_rows_internal.h"

namespace {

// What one row's data for one signal come to, from the slots in force and the columns
// that hold data. "Separate" is two slots in force, one driving and one expecting.
//
//   SLOTS TAKE     ROW HOLDS   PROBLEM
//   nothing        driven      1 unnecessary input
//                  expected    0 unnecessary output
//                  both        2 unnecessary input and output
//   driven         nothing     4 missing input
//                  expected    10 wrong column with X or Z, 50 with 0 or 1
//                  both        0 unnecessary output
//   expected       nothing     5 missing output
//                  driven      9 wrong column with X or Z, 49 with 0 or 1
//                  both        1 unnecessary input
//   both           nothing     6 missing input and output
//                  driven      5 missing output
//                  expected    4 missing input
//   separate, any  both        12 bus contention
//
// A signal whose columns stand in a list has 7 for each column that is missing and 3 for
// each that is unnecessary in place of 0 to 6, 9, 10, 49 and 50: its columns have no
// direction of their own. Which slots are in force is ambiguous, 8, where the signal
// stands on several slots of one side, could select, and the row selects none of them.
// What the observer and the marks of use get is the same with and without a problem.
//
// In a scan row the runs give the data of the edges of their chains, so an edge is never
// short of data but needs a track that takes them, 42; a signal that isn't an edge and
// has no data either, on a track that would take some, is 45 in place of 4 to 7.

// What the table says, by what the slots take and what the row holds.
enum class Verdict : std::uint8_t {
  fine,
  idleIn,
  idleOut,
  idleBoth,
  noIn,
  noOut,
  noBoth,
  outForIn,
  inForOut
};
constexpr std::array<std::array<Verdict, 4>, 4> kVerdicts = {{
    {Verdict::fine, Verdict::idleIn, Verdict::idleOut, Verdict::idleBoth},
    {Verdict::noIn, Verdict::fine, Verdict::outForIn, Verdict::idleOut},
    {Verdict::noOut, Verdict::inForOut, Verdict::fine, Verdict::idleIn},
    {Verdict::noBoth, Verdict::noOut, Verdict::noIn, Verdict::fine},
}};

// Codes of 0 and 1; all others may as well be meant as they stand.
bool isLogicLevel(int code) { return code == 1 || code == 2; }

bool judgePair(Check& check, const RowPlace& place, std::size_t signal, const Outcome& outcome,
               unsigned held, Columns codes) {
  const unsigned need = (outcome.need.in ? kHoldsIn : 0U) | (outcome.need.out ? kHoldsOut : 0U);
  const auto idle = [&](Problem problem) {
    return !check.mayHaveIdleData && signalProblem(check, place, problem, signal);
  };
  const auto misplaced = [&](int code, Problem level, Problem logic) {
    if (isLogicLevel(code)) return signalProblem(check, place, logic, signal);
    return !check.mayHaveOtherLevels && signalProblem(check, place, level, signal);
  };
  switch (kVerdicts[need][held]) {
    case Verdict::fine:
      return false;
    case Verdict::idleIn:
      return idle(kUnnecessaryInput);
    case Verdict::idleOut:
      return idle(kUnnecessaryOutput);
    case Verdict::idleBoth:
      return idle(kUnnecessaryData);
    case Verdict::noIn:
      return signalProblem(check, place, kMissingInput, signal);
    case Verdict::noOut:
      return signalProblem(check, place, kMissingOutput, signal);
    case Verdict::noBoth:
      return signalProblem(check, place, kMissingData, signal);
    case Verdict::outForIn:
      return misplaced(codes.out, kLevelInInputColumn, kOutputInInputColumn);
    case Verdict::inForOut:
      return misplaced(codes.in, kLevelInOutputColumn, kInputInOutputColumn);
  }
  return false;
}

bool judgeList(Check& check, const RowPlace& place, std::size_t signal, const Outcome& outcome,
               unsigned held) {
  const bool outputOnly = check.signals[signal].record->direction == OUTPUT;
  const std::int64_t outPlace = outputOnly ? 1 : 2;
  struct Side {
    bool needed;
    bool held;
    std::int64_t column;
  };
  for (const Side& side : {Side{outcome.need.in, (held & kHoldsIn) != 0, 1},
                           Side{outcome.need.out, (held & kHoldsOut) != 0, outPlace}}) {
    if (side.needed == side.held || (side.held && check.mayHaveIdleData)) continue;
    if (signalProblem(check, place, side.needed ? kMissingColumn : kUnnecessaryColumn, signal,
                      item(columnItem, side.column))) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool signalProblem(Check& check, const RowPlace& place, Problem problem, std::size_t signal,
                   PVBmessageItem column) {
  return prob4(check, problem, item(subrItem, place.pattern), item(rowItem, place.number),
               std::move(column), item(sigItem, check.signals[signal].id));
}

bool judgeSignal(Check& check, const RowPlace& place, std::size_t signal, const Outcome& outcome,
                 Columns codes) {
  const CheckedSignal& checked = check.signals[signal];
  if (outcome.ambiguous && prob3(check, kMissingSelector, item(subrItem, place.pattern),
                                 item(rowItem, place.number), item(sigItem, checked.id))) {
    return true;
  }
  const unsigned held = heldBy(codes);
  if (outcome.tracks.count == 2 && held == kHoldsBoth)
    return signalProblem(check, place, kBusContention, signal);
  return checked.record->multiTrack != 0 ? judgeList(check, place, signal, outcome, held)
                                         : judgePair(check, place, signal, outcome, held, codes);
}
