#pragma once

// What the parts of the checker share: the record of a running check and the recording
// of findings. The parts return true when the check must stop, since a finding couldn't
// be stored or the database can't be walked.

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "pvb/checker.h"
#include "pvb/database.h"
#include "pvb/row.h"
#include "pvb/signal.h"

// Kinds of items; the values stand in the message store.
enum CheckItemKind : std::int32_t {
  noItem = 0,  // fills a place that the text doesn't use
  tpItem,      // timeplate, by id
  rowItem,     // number of a row in its pattern, from 0
  rowidItem,   // id of a row
  subrItem,    // pattern, by index
  sigItem,     // signal, group or scan object, by id
  slotItem,    // slot of a timeplate, from 1
  columnItem,  // column of a signal, from 1: its first, its second
  trackItem,   // track of a timeplate, from 1
  eventItem,   // event of a track, from 1
  stringItem,
  pvbIdItem,  // an id that may name nothing
};

// Numbers of the problems, in the order of their table; those from 57 to 60 are of timing
// generators, which no database that can be loaded has.
enum Problem : int {
  kUnnecessaryOutput = 0,
  kUnnecessaryInput = 1,
  kUnnecessaryData = 2,
  kUnnecessaryColumn = 3,
  kMissingInput = 4,
  kMissingOutput = 5,
  kMissingData = 6,
  kMissingColumn = 7,
  kMissingSelector = 8,
  kLevelInOutputColumn = 9,  // X or Z
  kLevelInInputColumn = 10,
  kSlotColumn = 11,
  kBusContention = 12,
  kExtraSlot = 13,
  kSelectorTwice = 14,
  kNoRows = 15,
  kNeedsInputSlot = 16,
  kNeedsOutputSlot = 17,
  kBidirNeedsSlot = 18,
  kNeedsSlot = 19,
  kRowWithoutTimePlate = 20,
  kNoTimePlates = 21,
  kPreviousNotFirst = 22,
  kWrongGroup = 23,
  kNotInAll = 24,
  kNotInAllBidir = 25,
  kNotInAllInput = 26,
  kNotInAllOutput = 27,
  kEmptySlot = 28,
  kSlotWithoutSignals = 29,
  kSlotWithoutStates = 30,
  kWrongDirectionState = 31,
  kWrongSlot = 32,
  kMixedBus = 33,
  kRedundantTimes = 34,
  kDecreasingTimes = 35,
  kUnusedSubroutine = 36,
  kMemberClass = 37,
  kUndefinedRunType = 38,
  kMissingChain = 39,
  kMissingVector = 40,
  kWrongRunType = 41,
  kMissingSample = 42,
  kEmptyScanRow = 43,
  kConflictingRuns = 44,
  kUnusedSample = 45,
  kDuplicateAteName = 46,
  kUnusedTimePlate = 47,
  kUnusedTrack = 48,
  kInputInOutputColumn = 49,  // 0 or 1
  kOutputInInputColumn = 50,
  kUnknownInInputScan = 51,
  kPeriodNotPositive = 52,
  kPeriodUndefined = 53,
  kEventNegative = 54,
  kEventNotIncreasing = 55,
  kEventUndefined = 56,
  kUnknownId = 61,
};

enum class CheckPhase { timing, patterns };

// One scalar of "ALL".
struct CheckedSignal {
  PVBid id = UNDEF;
  const PVBsignal* record = nullptr;
};

struct Check {
  int database = -1;
  bool full = false;
  std::int32_t limit = 0;
  CheckPhase phase = CheckPhase::timing;
  PVBstatus* counts = nullptr;
  std::array<std::int32_t, kProblemCount> found{};  // by problem

  std::vector<CheckedSignal> signals;
  std::unordered_map<PVBid, std::int32_t> places;  // in `signals`, by id

  // Of testers of the family "VTMX", which keep data of both directions in the columns
  // of a signal.
  bool mayHaveIdleData = false;     // data that no slot takes are no problem
  bool mayHaveOtherLevels = false;  // nor are X and Z in the column of the other direction
};

inline PVBmessageItem item(CheckItemKind kind, std::int64_t number) { return {kind, number, {}}; }
inline PVBmessageItem item(std::string text) { return {stringItem, 0, std::move(text)}; }
inline PVBmessageItem none() { return {noItem, 0, {}}; }

// Record a finding with that number of items.
bool prob0(Check& check, int number);
bool prob1(Check& check, int number, PVBmessageItem a);
bool prob2(Check& check, int number, PVBmessageItem a, PVBmessageItem b);
bool prob3(Check& check, int number, PVBmessageItem a, PVBmessageItem b, PVBmessageItem c);
bool prob4(Check& check, int number, PVBmessageItem a, PVBmessageItem b, PVBmessageItem c,
           PVBmessageItem d);
bool prob5(Check& check, int number, PVBmessageItem a, PVBmessageItem b, PVBmessageItem c,
           PVBmessageItem d, PVBmessageItem e);

// "input", "output", "bidirectional", "undefined".
std::string directionWord(int direction);

// Columns that the states of a track take data from.
struct DataNeed {
  bool in = false;
  bool out = false;
};
DataNeed dataNeed(const PVBtrack& track);

// The slots of each signal of a plate, buses and groups opened. Sorted by signal, then
// slot; `first[s]` to `first[s + 1]` are those of signal s.
struct SignalSlots {
  std::vector<std::uint32_t> first;
  std::vector<std::int32_t> slot;

  std::span<const std::int32_t> of(std::size_t signal) const {
    return {slot.data() + first[signal], first[signal + 1] - first[signal]};
  }
};
SignalSlots slotsOfSignals(const Check& check, const PVBtimePlate& plate);

// --- The steps -----------------------------------------------------------------------

bool signalsNotInGroupAll(Check& check);
bool checkPinUniqueness(Check& check);
bool groupContentsValid(Check& check);
bool checkTimePlates(Check& check);
bool checkPatterns(Check& check);

// --- Scan rows -----------------------------------------------------------------------

// What the runs of a scan row do to one signal: the codes that they shift through its
// columns, a bit each.
struct ScanEdge {
  std::int32_t signal = -1;  // place in Check::signals
  std::uint16_t inCodes = 0;
  std::uint16_t outCodes = 0;
};
struct RowPlace {
  int pattern = -1;
  std::uint32_t number = 0;
};
// Checks the runs of a scan row; `edges` gets the signals that they use, each once.
bool checkScanRun(Check& check, const PVBrow& row, const RowPlace& place,
                  std::vector<ScanEdge>& edges);

const PVBstateObserver& stateObserver();
const PVBtimeUpdate& timeUpdate();
