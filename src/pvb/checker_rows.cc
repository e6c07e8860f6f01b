// The walk over the rows: what each row holds for each signal against the tracks that it
// selects, and what no row uses.
//
// A signal's outcome in a row depends on the row's timeplate, the selector that the row
// holds, and on which of its columns hold data. So each timeplate is compiled once into a
// plan, where each signal has one outcome for each of the four cases; the walk then picks
// an outcome for each signal and has nothing more to do where it is clean.

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

#include "pvb/checker_internal.h"
#include "pvb/pattern.h"
#include "pvb/row_track.h"

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

enum Held : unsigned { kHoldsNone = 0, kHoldsIn = 1, kHoldsOut = 2, kHoldsBoth = 3 };

struct Outcome {
  RowTracks tracks;
  DataNeed need;
  bool ambiguous = false;
  bool clean = false;
  bool seen = false;  // its tracks are marked as used
};
using Outcomes = std::array<Outcome, 4>;  // by Held

struct Columns {
  std::int32_t in = -1;
  std::int32_t out = -1;
};

// Columns that hold a signal's data. A multiplexed signal has those of its parts, the
// others one pair.
struct SignalPlan {
  Columns columns;
  bool plain = false;  // one pair of columns, no selector: `byData` is all there is
  Outcomes byData;
  std::map<char, std::unique_ptr<Outcomes>> bySelector;
};

struct PlatePlan {
  const PVBtimePlate* plate = nullptr;
  SignalSlots slots;
  std::vector<SignalPlan> signals;
};

// Uses of a plate and of its tracks, by any row.
struct PlateUse {
  bool used = false;
  std::vector<bool> tracks;
};

// Outcomes are kept for so many signals of all plates together; beyond that the plans are
// made anew as they are met.
constexpr std::size_t kMostPlanned = std::size_t{1} << 20;

class RowCheck {
 public:
  explicit RowCheck(Check& check) : check_(check), database_(check.database) {}

  bool run();

 private:
  void subrInit();
  void tpRefInit();
  bool walkPattern(int pattern);
  bool walkRow(const PVBrow& row);
  bool dataRow(const PVBrow& row);
  bool call(std::uint32_t subroutine);

  PlatePlan* planFor(PVBid id);
  std::unique_ptr<PlatePlan> compile(const PVBtimePlate& plate) const;
  SignalPlan planSignal(const PlatePlan& plan, std::size_t signal) const;
  Outcomes outcomes(const PlatePlan& plan, std::size_t signal, char selector) const;
  bool isAmbiguous(const PlatePlan& plan, std::size_t signal, char selector) const;
  Outcomes& outcomesFor(PlatePlan& plan, std::size_t signal, const PVBrow& row);

  Columns inRow(const DataColumns& columns) const;
  bool dataMatch(PlatePlan& plan, const PVBrow& row);
  Columns codesOf(const PlatePlan& plan, std::size_t signal, const PVBrow& row) const;
  bool visit(PlatePlan& plan, std::size_t signal, Outcome& outcome, Columns codes);
  void markUsed(const PlatePlan& plan, Outcome& outcome);
  void observe(const PlatePlan& plan, std::size_t signal, const Outcome& outcome,
               Columns codes) const;

  bool judge(std::size_t signal, const Outcome& outcome, Columns codes);
  bool judgePair(std::size_t signal, const Outcome& outcome, unsigned held, Columns codes);
  bool judgeList(std::size_t signal, const Outcome& outcome, unsigned held);
  bool signalProblem(Problem problem, std::size_t signal, PVBmessageItem column = none());

  bool scanMatch(PlatePlan& plan, const PVBrow& row);
  bool checkForSample(PlatePlan& plan, std::size_t signal, const PVBrow& row, const ScanEdge* edge);
  void observeEdge(const PlatePlan& plan, std::size_t signal, const Outcome& outcome,
                   const ScanEdge& edge) const;

  bool subrYell();
  bool tpRefFinis();
  bool unusedTracks(const PVBtimePlate& plate, const PlateUse& use);

  Check& check_;
  int database_;
  std::int32_t columns_ = 0;  // that a row has room for
  RowPlace place_;
  std::map<int, bool> called_;  // by subroutine
  std::vector<PlateUse> uses_;  // by id of the timeplate
  std::vector<std::unique_ptr<PlatePlan>> plans_;
  std::size_t planned_ = 0;  // signals in plans_
  std::vector<ScanEdge> edges_;
};

// --- Plans ---------------------------------------------------------------------------

Columns RowCheck::inRow(const DataColumns& columns) const {
  const auto clip = [&](std::int32_t column) { return column < columns_ ? column : -1; };
  return {clip(columns.in), clip(columns.out)};
}

bool isClean(const Outcome& outcome, unsigned held) {
  const unsigned need = (outcome.need.in ? kHoldsIn : 0U) | (outcome.need.out ? kHoldsOut : 0U);
  const bool contention = outcome.tracks.count == 2 && held == kHoldsBoth;
  return !outcome.ambiguous && !contention && need == held;
}

bool RowCheck::isAmbiguous(const PlatePlan& plan, std::size_t signal, char selector) const {
  if (check_.signals[signal].record->multiBit == 0) return false;
  unsigned sides = 0;
  bool several = false;
  for (const std::int32_t slot : plan.slots.of(signal)) {
    const int direction = PVBtrackDirection(*plan.plate, slot);
    const unsigned own = direction == INPUT ? 1U : direction == OUTPUT ? 2U : 3U;
    several = several || (sides & own) != 0;
    sides |= own;
    const std::vector<PVBtrack>& tracks = plan.plate->levels.front().tracks;
    const auto index = static_cast<std::size_t>(slot);
    if (selector == kNoSelector || index >= tracks.size()) continue;
    const PVBtrack& track = tracks[index];
    const bool named =
        track.selector == selector || PVBwaveSelectors(track).find(selector) != std::string::npos;
    if (named) return false;
  }
  return several;
}

Outcomes RowCheck::outcomes(const PlatePlan& plan, std::size_t signal, char selector) const {
  Outcomes result;
  if (plan.plate->levels.empty()) return result;
  const std::vector<PVBtrack>& tracks = plan.plate->levels.front().tracks;
  const bool ambiguous = isAmbiguous(plan, signal, selector);
  for (unsigned held = 0; held < result.size(); ++held) {
    Outcome& outcome = result[held];
    outcome.tracks = PVBfindTracksAmong(*plan.plate, plan.slots.of(signal), selector,
                                        (held & kHoldsIn) != 0, (held & kHoldsOut) != 0);
    outcome.ambiguous = ambiguous;
    for (int i = 0; i < outcome.tracks.count; ++i) {
      const auto slot = static_cast<std::size_t>(outcome.tracks.slot[static_cast<std::size_t>(i)]);
      const DataNeed need = dataNeed(tracks[slot]);
      outcome.need.in = outcome.need.in || need.in;
      outcome.need.out = outcome.need.out || need.out;
    }
    outcome.clean = isClean(outcome, held);
  }
  return result;
}

SignalPlan RowCheck::planSignal(const PlatePlan& plan, std::size_t signal) const {
  const PVBsignal& record = *check_.signals[signal].record;
  SignalPlan result;
  result.columns = inRow(PVBsignalDataColumns(record));
  result.plain = record.multiBit == 0 && record.type == MEM_SIGNAL;
  result.byData = outcomes(plan, signal, kNoSelector);
  return result;
}

std::unique_ptr<PlatePlan> RowCheck::compile(const PVBtimePlate& plate) const {
  auto plan = std::make_unique<PlatePlan>();
  plan->plate = &plate;
  plan->slots = slotsOfSignals(check_, plate);
  plan->signals.reserve(check_.signals.size());
  for (std::size_t s = 0; s < check_.signals.size(); ++s) {
    plan->signals.push_back(planSignal(*plan, s));
  }
  return plan;
}

PlatePlan* RowCheck::planFor(PVBid id) {
  std::unique_ptr<PlatePlan>& plan = plans_[static_cast<std::size_t>(id)];
  if (plan) return plan.get();
  const PVBtimePlate* plate = PVBtimePlateInqByID(database_, id);
  if (plate == nullptr) return nullptr;
  if (planned_ > kMostPlanned) {
    for (auto& other : plans_) other.reset();
    planned_ = 0;
  }
  plan = compile(*plate);
  planned_ += plan->signals.size() + plan->slots.slot.size();
  return plan.get();
}

Outcomes& RowCheck::outcomesFor(PlatePlan& plan, std::size_t signal, const PVBrow& row) {
  SignalPlan& own = plan.signals[signal];
  const char selector = PVBrowSelector(database_, *check_.signals[signal].record, row);
  if (selector == kNoSelector) return own.byData;
  std::unique_ptr<Outcomes>& place = own.bySelector[selector];
  if (!place) place = std::make_unique<Outcomes>(outcomes(plan, signal, selector));
  return *place;
}

// --- One row -------------------------------------------------------------------------

int codeAt(const PVBrow& row, std::int32_t column) {
  return column < 0 ? 0 : rowCode(row.states(), static_cast<std::uint32_t>(column));
}

unsigned heldBy(Columns codes) {
  return (codes.in != 0 ? kHoldsIn : 0U) | (codes.out != 0 ? kHoldsOut : 0U);
}

// The codes in a signal's columns, 0 where there is none; of a multiplexed signal those
// of the first part that has any.
Columns RowCheck::codesOf(const PlatePlan& plan, std::size_t signal, const PVBrow& row) const {
  const PVBsignal& record = *check_.signals[signal].record;
  const Columns& own = plan.signals[signal].columns;
  Columns codes{codeAt(row, own.in), codeAt(row, own.out)};
  if (record.type != MEM_MUX) return codes;
  for (const PVBid id : record.muxChildren) {
    const PVBsignal* part = PVBsignalInqByID(database_, id);
    if (part == nullptr) continue;
    const Columns columns = inRow(PVBsignalDataColumns(*part));
    if (codes.in == 0) codes.in = codeAt(row, columns.in);
    if (codes.out == 0) codes.out = codeAt(row, columns.out);
  }
  return codes;
}

void RowCheck::markUsed(const PlatePlan& plan, Outcome& outcome) {
  outcome.seen = true;
  PlateUse& use = uses_[static_cast<std::size_t>(plan.plate->id)];
  for (int i = 0; i < outcome.tracks.count; ++i) {
    const auto slot = static_cast<std::size_t>(outcome.tracks.slot[static_cast<std::size_t>(i)]);
    if (slot < use.tracks.size()) use.tracks[slot] = true;
  }
}

void RowCheck::observe(const PlatePlan& plan, std::size_t signal, const Outcome& outcome,
                       Columns codes) const {
  const bool outputFirst = check_.signals[signal].record->direction == OUTPUT;
  const bool second = check_.signals[signal].record->direction == BIDIR;
  for (int i = 0; i < outcome.tracks.count; ++i) {
    const std::int32_t slot = outcome.tracks.slot[static_cast<std::size_t>(i)];
    stateObserver()(database_, *plan.plate, slot, 0, outputFirst ? codes.out : codes.in);
    if (second) stateObserver()(database_, *plan.plate, slot, 1, codes.out);
  }
}

bool RowCheck::visit(PlatePlan& plan, std::size_t signal, Outcome& outcome, Columns codes) {
  if (!outcome.seen) markUsed(plan, outcome);
  if (stateObserver()) observe(plan, signal, outcome, codes);
  return !outcome.clean && judge(signal, outcome, codes);
}

bool RowCheck::dataMatch(PlatePlan& plan, const PVBrow& row) {
  const bool observed = static_cast<bool>(stateObserver());
  for (std::size_t s = 0; s < plan.signals.size(); ++s) {
    SignalPlan& signal = plan.signals[s];
    if (signal.plain) {
      const Columns codes{codeAt(row, signal.columns.in), codeAt(row, signal.columns.out)};
      Outcome& outcome = signal.byData[heldBy(codes)];
      if (outcome.clean && outcome.seen && !observed) continue;
      if (visit(plan, s, outcome, codes)) return true;
      continue;
    }
    const Columns codes = codesOf(plan, s, row);
    if (visit(plan, s, outcomesFor(plan, s, row)[heldBy(codes)], codes)) return true;
  }
  return false;
}

// --- Judgement -----------------------------------------------------------------------

bool RowCheck::signalProblem(Problem problem, std::size_t signal, PVBmessageItem column) {
  return prob4(check_, problem, item(subrItem, place_.pattern), item(rowItem, place_.number),
               std::move(column), item(sigItem, check_.signals[signal].id));
}

bool RowCheck::judge(std::size_t signal, const Outcome& outcome, Columns codes) {
  const CheckedSignal& checked = check_.signals[signal];
  if (outcome.ambiguous && prob3(check_, kMissingSelector, item(subrItem, place_.pattern),
                                 item(rowItem, place_.number), item(sigItem, checked.id))) {
    return true;
  }
  const unsigned held = heldBy(codes);
  if (outcome.tracks.count == 2 && held == kHoldsBoth) return signalProblem(kBusContention, signal);
  return checked.record->multiTrack != 0 ? judgeList(signal, outcome, held)
                                         : judgePair(signal, outcome, held, codes);
}

// What the table above says, by what the slots take and what the row holds.
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

bool RowCheck::judgePair(std::size_t signal, const Outcome& outcome, unsigned held, Columns codes) {
  const unsigned need = (outcome.need.in ? kHoldsIn : 0U) | (outcome.need.out ? kHoldsOut : 0U);
  const auto idle = [&](Problem problem) {
    return !check_.mayHaveIdleData && signalProblem(problem, signal);
  };
  const auto misplaced = [&](int code, Problem level, Problem logic) {
    if (isLogicLevel(code)) return signalProblem(logic, signal);
    return !check_.mayHaveOtherLevels && signalProblem(level, signal);
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
      return signalProblem(kMissingInput, signal);
    case Verdict::noOut:
      return signalProblem(kMissingOutput, signal);
    case Verdict::noBoth:
      return signalProblem(kMissingData, signal);
    case Verdict::outForIn:
      return misplaced(codes.out, kLevelInInputColumn, kOutputInInputColumn);
    case Verdict::inForOut:
      return misplaced(codes.in, kLevelInOutputColumn, kInputInOutputColumn);
  }
  return false;
}

bool RowCheck::judgeList(std::size_t signal, const Outcome& outcome, unsigned held) {
  const bool outputOnly = check_.signals[signal].record->direction == OUTPUT;
  const std::int64_t outPlace = outputOnly ? 1 : 2;
  struct Side {
    bool needed;
    bool held;
    std::int64_t column;
  };
  for (const Side& side : {Side{outcome.need.in, (held & kHoldsIn) != 0, 1},
                           Side{outcome.need.out, (held & kHoldsOut) != 0, outPlace}}) {
    if (side.needed == side.held || (side.held && check_.mayHaveIdleData)) continue;
    if (signalProblem(side.needed ? kMissingColumn : kUnnecessaryColumn, signal,
                      item(columnItem, side.column))) {
      return true;
    }
  }
  return false;
}

// --- Scan rows -----------------------------------------------------------------------

void RowCheck::observeEdge(const PlatePlan& plan, std::size_t signal, const Outcome& outcome,
                           const ScanEdge& edge) const {
  for (int code = 0; code < 16; ++code) {
    const Columns codes{(edge.inCodes >> code & 1) != 0 ? code : 0,
                        (edge.outCodes >> code & 1) != 0 ? code : 0};
    if (heldBy(codes) != 0) observe(plan, signal, outcome, codes);
  }
}

bool RowCheck::checkForSample(PlatePlan& plan, std::size_t signal, const PVBrow& row,
                              const ScanEdge* edge) {
  Columns codes = codesOf(plan, signal, row);
  if (edge != nullptr) {
    codes.in += edge->inCodes != 0;
    codes.out += edge->outCodes != 0;
  }
  const unsigned held = heldBy(codes);
  Outcome& outcome = outcomesFor(plan, signal, row)[held];
  if (!outcome.seen) markUsed(plan, outcome);
  if (edge == nullptr) {
    if (stateObserver()) observe(plan, signal, outcome, codes);
    const bool unused = held == kHoldsNone && (outcome.need.in || outcome.need.out);
    if (unused) return signalProblem(kUnusedSample, signal);
    return !outcome.clean && judge(signal, outcome, codes);
  }
  if (stateObserver()) observeEdge(plan, signal, outcome, *edge);
  const bool missing =
      (edge->inCodes != 0 && !outcome.need.in) || (edge->outCodes != 0 && !outcome.need.out);
  return missing && signalProblem(kMissingSample, signal);
}

bool RowCheck::scanMatch(PlatePlan& plan, const PVBrow& row) {
  auto edge = edges_.begin();  // in the order of the signals
  for (std::size_t s = 0; s < plan.signals.size(); ++s) {
    const bool isEdge = edge != edges_.end() && static_cast<std::size_t>(edge->signal) == s;
    if (checkForSample(plan, s, row, isEdge ? &*edge : nullptr)) return true;
    if (isEdge) ++edge;
  }
  return false;
}

// --- The walk ------------------------------------------------------------------------

bool RowCheck::dataRow(const PVBrow& row) {
  if (row.type == ROW_SCAN && checkScanRun(check_, row, place_, edges_)) return true;
  if (row.timeplate == kNoTimePlate) {
    return prob2(check_, kRowWithoutTimePlate, item(subrItem, place_.pattern),
                 item(rowItem, place_.number));
  }
  PlatePlan* plan = row.timeplate < plans_.size() ? planFor(row.timeplate) : nullptr;
  if (plan == nullptr) {
    const std::string what = "timeplate of pattern row " + std::to_string(place_.number) + ": ";
    return prob2(check_, kUnknownId, item(what), item(pvbIdItem, row.timeplate));
  }
  uses_[row.timeplate].used = true;
  return row.type == ROW_SCAN ? scanMatch(*plan, row) : dataMatch(*plan, row);
}

bool RowCheck::call(std::uint32_t subroutine) {
  const auto index = static_cast<int>(subroutine);
  const auto found = called_.find(index);
  if (found == called_.end()) {
    const std::string what = "subroutine of pattern row " + std::to_string(place_.number) + ": ";
    return prob2(check_, kUnknownId, item(what), item(pvbIdItem, index));
  }
  if (index != place_.pattern) found->second = true;
  return false;
}

bool RowCheck::walkRow(const PVBrow& row) {
  switch (row.type) {
    case ROW_LITERAL:
    case ROW_MATCH:
    case ROW_SCAN:
      return dataRow(row);
    case ROW_SUBR_CALL:
      return call(row.link);
    default:
      return false;
  }
}

bool RowCheck::walkPattern(int pattern) {
  PatternWalk walk(database_, pattern);
  bool any = false;
  while (walk.next()) {
    any = true;
    place_ = {pattern, walk.rowNumber()};
    const RowHandle row(database_, PVBrowGet(database_, walk.entry().child));
    if (!row) {
      std::printf("PVBcheck: row %u can't be read\n", walk.rowNumber());
      return true;
    }
    if (walkRow(*row)) return true;
  }
  if (walk.failed()) {
    std::printf("PVBcheck: the rows can't be walked\n");
    return true;
  }
  return !any && prob1(check_, kNoRows, item(subrItem, pattern));
}

void RowCheck::subrInit() {
  for (int index = PVBsubroutineFirst(database_); index >= 0;
       index = PVBsubroutineNext(database_)) {
    called_[index] = false;
  }
}

void RowCheck::tpRefInit() {
  const PVBidList& ids = PVBtimePlateInqAll(database_);
  const std::size_t size = ids.empty() ? 0 : static_cast<std::size_t>(ids.back()) + 1;
  uses_.resize(size);
  plans_.resize(size);
  for (const PVBid id : ids) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(database_, id);
    const auto slots = static_cast<std::size_t>(plate != nullptr ? PVBslotCount(*plate) : 0);
    uses_[static_cast<std::size_t>(id)].tracks.assign(slots, false);
  }
}

bool RowCheck::subrYell() {
  for (const auto& [index, called] : called_) {
    if (!called && prob1(check_, kUnusedSubroutine, item(subrItem, index))) return true;
  }
  return false;
}

bool RowCheck::unusedTracks(const PVBtimePlate& plate, const PlateUse& use) {
  for (std::size_t slot = 0; slot < use.tracks.size(); ++slot) {
    if (use.tracks[slot]) continue;
    const auto index = static_cast<int>(slot);
    const PVBidList& signals = PVBtrackSignals(plate, index);
    if (prob4(check_, kUnusedTrack, item(slotItem, std::int64_t{index} + 1),
              signals.empty() ? item("none") : item(sigItem, signals.front()),
              item(directionWord(PVBtrackDirection(plate, index))), item(tpItem, plate.id))) {
      return true;
    }
  }
  return false;
}

bool RowCheck::tpRefFinis() {
  const PVBidList ids = PVBtimePlateInqAll(database_);
  for (const PVBid id : ids) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(database_, id);
    const PlateUse& use = uses_[static_cast<std::size_t>(id)];
    if (plate == nullptr) continue;
    const bool stop =
        use.used ? unusedTracks(*plate, use) : prob1(check_, kUnusedTimePlate, item(tpItem, id));
    if (stop) return true;
  }
  return false;
}

bool RowCheck::run() {
  columns_ = 2 * PVBrowDataSize(database_);
  subrInit();
  tpRefInit();
  if (walkPattern(kMainPattern)) return true;
  for (const auto& [index, called] : called_) {
    if (walkPattern(index)) return true;
  }
  return subrYell() || tpRefFinis();
}

}  // namespace

bool checkPatterns(Check& check) {
  check.counts->patternErrors = 0;
  check.counts->patternWarnings = 0;
  check.phase = CheckPhase::patterns;
  return RowCheck(check).run();
}
