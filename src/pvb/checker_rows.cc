// The walk over the rows: what each row holds for each signal against the tracks that it
// selects, and what no row uses.

#include <cstdio>
#include <map>

#include "pvb/checker_rows_internal.h"
#include "pvb/pattern.h"
#include "pvb/row_track.h"

namespace {

// Uses of a plate and of its tracks, by any row.
struct PlateUse {
  bool used = false;
  std::vector<bool> tracks;
};

class RowCheck {
 public:
  explicit RowCheck(Check& check)
      : check_(check),
        database_(check.database),
        plans_(check),
        shapes_(check, static_cast<bool>(stateObserver())) {}

  bool run();

 private:
  void subrInit();
  void tpRefInit();
  bool walkPattern(int pattern);
  bool walkRow(const PVBrow& row);
  bool dataRow(const PVBrow& row);
  bool matchRow(const PVBrow& row);
  bool call(std::uint32_t subroutine);

  bool dataMatch(PlatePlan& plan, const PVBrow& row);
  bool visit(PlatePlan& plan, std::size_t signal, Outcome& outcome, Columns codes);
  void markUsed(const PlatePlan& plan, Outcome& outcome);
  void observe(const PlatePlan& plan, std::size_t signal, const Outcome& outcome,
               Columns codes) const;

  bool scanMatch(PlatePlan& plan, const PVBrow& row);
  bool checkForSample(PlatePlan& plan, std::size_t signal, const PVBrow& row, const ScanEdge* edge);
  void observeEdge(const PlatePlan& plan, std::size_t signal, const Outcome& outcome,
                   const ScanEdge& edge) const;

  bool subrYell();
  bool tpRefFinis();
  bool unusedTracks(const PVBtimePlate& plate, const PlateUse& use);

  Check& check_;
  int database_;
  PlatePlans plans_;
  RowShapes shapes_;
  RowPlace place_;
  std::map<int, bool> called_;  // by subroutine
  std::vector<PlateUse> uses_;  // by id of the timeplate
  std::vector<ScanEdge> edges_;
};

// --- One row -------------------------------------------------------------------------

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
  return !outcome.clean && judgeSignal(check_, place_, signal, outcome, codes);
}

// Notes the row's shape when there was nothing to find.
bool RowCheck::dataMatch(PlatePlan& plan, const PVBrow& row) {
  const bool observed = static_cast<bool>(stateObserver());
  bool clean = true;
  for (std::size_t s = 0; s < plan.signals.size(); ++s) {
    SignalPlan& signal = plan.signals[s];
    const Columns codes =
        signal.plain ? Columns{codeAt(row, signal.columns.in), codeAt(row, signal.columns.out)}
                     : plans_.codesOf(plan, s, row);
    Outcomes& outcomes = signal.plain ? signal.byData : plans_.outcomesFor(plan, s, row);
    Outcome& outcome = outcomes[heldBy(codes)];
    clean = clean && outcome.clean;
    if (outcome.clean && outcome.seen && !observed) continue;
    if (visit(plan, s, outcome, codes)) return true;
  }
  if (clean) shapes_.note(row);
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
  const Columns codes = plans_.codesOf(plan, signal, row);
  unsigned held = heldBy(codes);
  if (edge != nullptr && edge->inCodes != 0) held |= kHoldsIn;
  if (edge != nullptr && edge->outCodes != 0) held |= kHoldsOut;
  Outcome& outcome = plans_.outcomesFor(plan, signal, row)[held];
  if (!outcome.seen) markUsed(plan, outcome);
  if (edge == nullptr) {
    if (stateObserver()) observe(plan, signal, outcome, codes);
    const bool unused = held == kHoldsNone && (outcome.need.in || outcome.need.out);
    if (unused) return signalProblem(check_, place_, kUnusedSample, signal);
    return !outcome.clean && judgeSignal(check_, place_, signal, outcome, codes);
  }
  if (stateObserver()) observeEdge(plan, signal, outcome, *edge);
  const bool missing =
      (edge->inCodes != 0 && !outcome.need.in) || (edge->outCodes != 0 && !outcome.need.out);
  return missing && signalProblem(check_, place_, kMissingSample, signal);
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
  if (row.type != ROW_SCAN && shapes_.isKnown(row)) {
    uses_[row.timeplate].used = true;
    return false;
  }
  return matchRow(row);
}

bool RowCheck::matchRow(const PVBrow& row) {
  PlatePlan* plan = plans_.of(row.timeplate);
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
