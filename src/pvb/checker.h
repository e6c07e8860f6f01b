#pragma once

// The checker: walks a database and finds what is inconsistent in its signals and
// groups, timeplates, equations and rows. Each of its 62 problems has a number, a class
// (error or warning), a short name and a text with places for items; the table is in
// checker_problems.cc. Findings are kept in the database's message store and saved with
// it; four counters in its status tell how a check went.
//
// Times that come from equations are brought up to date before the timeplates are
// checked, by a function that the program installs: what evaluates them stands above
// this floor. Without one the stored times are checked.
//
// A check fails (-2) on what it can't walk, with a post under "PVBcheck"; a walk over
// rows that breaks off tells standard output.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "pvb/message_store.h"
#include "pvb/timeplate.h"

// Runs the checks (`recheck`), else takes what is stored. `fullPVBcheck` adds the check of
// directions and those of states and times of slots. Findings are printed to `stream`;
// null: not at all. At most `limit` findings of a problem are stored; of those that each
// row may raise, never more than kMostRowFindings. 0 or -2.
int PVBcheck(int database, bool recheck, bool fullPVBcheck, FILE* stream, std::int32_t limit);
// Prints the stored findings, without a stream on standard error. 0 or -2.
int PVBreportCheckMessages(int database, FILE* stream);
// What the counters say, a line each; good until the next call.
const char* checkerSummary(int database);

inline constexpr std::int32_t kMostRowFindings = 100000;

// Called for each signal and track that the walk over the rows visits, with each state that
// rows hold there; rows that only repeat what others held may be left out. Kind 0 is the
// state in the signal's primary data column, kind 1 that in its second one. For an edge of
// a chain in a scan row it is called for each state that the runs shift through it. An
// empty function removes the observer.
using PVBstateObserver = std::function<void(int database, const PVBtimePlate& plate, int track,
                                            int kind, std::int32_t state)>;
void PVBcheckSetStateObserver(PVBstateObserver observer);

// --- Times from equations ------------------------------------------------------------

// An expression that gave no time. Indices count from 0.
struct PVBtimeFault {
  enum class Kind { undefined, negative };
  Kind kind = Kind::undefined;
  PVBid timeplate = UNDEF;
  bool period = false;  // else the event
  int track = 0;
  int event = 0;
};
using PVBtimeFaultSink = std::function<void(const PVBtimeFault& fault)>;
// Brings the times of the database up to date, telling what failed. False, after a post,
// when the equations themselves can't be used.
using PVBtimeUpdate = std::function<bool(int database, const PVBtimeFaultSink& tell)>;
// For the whole process, until it is set again.
void PVBcheckSetTimeUpdate(PVBtimeUpdate update);

// --- Problems ------------------------------------------------------------------------

enum class ProblemClass { error, warning };
struct PVBproblem {
  ProblemClass problemClass;
  std::string_view shortName;
  std::string_view text;  // `@1` to `@5` stand for the items
};
inline constexpr int kProblemCount = 62;
// Null for a number that isn't in the table.
const PVBproblem* PVBproblemByNumber(std::int32_t number);
// The text of a stored finding, its items filled in, without a line end.
std::string PVBfindingText(int database, const PVBmessageHeading& heading,
                           const std::vector<PVBmessageItem>& items);
