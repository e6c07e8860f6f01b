// Timeplates compiled for the walk over the rows.

#include "pvb/checker_rows_internal.h"
#include "pvb/row_track.h"

namespace {

// Outcomes are kept for so many signals of all plates together; beyond that the plans are
// made anew as they are met.
constexpr std::size_t kMostPlanned = std::size_t{1} << 18;

bool isClean(const Outcome& outcome, unsigned held) {
  const unsigned need = (outcome.need.in ? kHoldsIn : 0U) | (outcome.need.out ? kHoldsOut : 0U);
  const bool contention = outcome.tracks.count == 2 && held == kHoldsBoth;
  return !outcome.ambiguous && !contention && need == held;
}

}  // namespace

PlatePlans::PlatePlans(const Check& check)
    : check_(check), columns_(2 * PVBrowDataSize(check.database)) {
  const PVBidList& ids = PVBtimePlateInqAll(check.database);
  plans_.resize(ids.empty() ? 0 : static_cast<std::size_t>(ids.back()) + 1);
}

Columns PlatePlans::inRow(const DataColumns& columns) const {
  const auto clip = [&](std::int32_t column) { return column < columns_ ? column : -1; };
  return {clip(columns.in), clip(columns.out)};
}

bool PlatePlans::isAmbiguous(const PlatePlan& plan, std::size_t signal, char selector) const {
  if (check_.signals[signal].record->multiBit == 0) return false;
  unsigned sides = 0;
  bool several = false;
  for (const auto& [slot, direction] : plan.slots.of(signal)) {
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

Outcomes PlatePlans::outcomes(const PlatePlan& plan, std::size_t signal, char selector) const {
  Outcomes result;
  if (plan.plate->levels.empty()) return result;
  const bool ambiguous = isAmbiguous(plan, signal, selector);
  for (unsigned held = 0; held < result.size(); ++held) {
    Outcome& outcome = result[held];
    outcome.tracks = PVBfindTracksAmong(*plan.plate, plan.slots.of(signal), selector,
                                        (held & kHoldsIn) != 0, (held & kHoldsOut) != 0);
    outcome.ambiguous = ambiguous;
    for (int i = 0; i < outcome.tracks.count; ++i) {
      const auto slot = static_cast<std::size_t>(outcome.tracks.slot[static_cast<std::size_t>(i)]);
      const DataNeed need = plan.needs[slot];
      outcome.need.in = outcome.need.in || need.in;
      outcome.need.out = outcome.need.out || need.out;
    }
    outcome.clean = isClean(outcome, held);
  }
  return result;
}

SignalPlan PlatePlans::planSignal(const PlatePlan& plan, std::size_t signal) const {
  const PVBsignal& record = *check_.signals[signal].record;
  SignalPlan result;
  result.columns = inRow(PVBsignalDataColumns(record));
  result.plain = record.multiBit == 0 && record.type == MEM_SIGNAL;
  result.byData = outcomes(plan, signal, kNoSelector);
  return result;
}

std::unique_ptr<PlatePlan> PlatePlans::compile(const PVBtimePlate& plate) const {
  auto plan = std::make_unique<PlatePlan>();
  plan->plate = &plate;
  plan->slots = slotsOfSignals(check_, plate);
  if (!plate.levels.empty()) {
    for (const PVBtrack& track : plate.levels.front().tracks)
      plan->needs.push_back(dataNeed(track));
  }
  plan->signals.reserve(check_.signals.size());
  for (std::size_t s = 0; s < check_.signals.size(); ++s) {
    plan->signals.push_back(planSignal(*plan, s));
  }
  return plan;
}

PlatePlan* PlatePlans::of(PVBid id) {
  if (id < 0 || static_cast<std::size_t>(id) >= plans_.size()) return nullptr;
  std::unique_ptr<PlatePlan>& plan = plans_[static_cast<std::size_t>(id)];
  if (plan) return plan.get();
  const PVBtimePlate* plate = PVBtimePlateInqByID(check_.database, id);
  if (plate == nullptr) return nullptr;
  if (planned_ > kMostPlanned) {
    for (auto& other : plans_) other.reset();
    planned_ = 0;
  }
  plan = compile(*plate);
  planned_ += plan->signals.size() + plan->slots.slot.size();
  return plan.get();
}

Outcomes& PlatePlans::outcomesFor(PlatePlan& plan, std::size_t signal, const PVBrow& row) {
  SignalPlan& own = plan.signals[signal];
  const char selector = PVBrowSelector(check_.database, *check_.signals[signal].record, row);
  if (selector == kNoSelector) return own.byData;
  std::unique_ptr<Outcomes>& place = own.bySelector[selector];
  if (!place) {
    place = std::make_unique<Outcomes>(outcomes(plan, signal, selector));
    ++planned_;
  }
  return *place;
}

Columns PlatePlans::codesOf(const PlatePlan& plan, std::size_t signal, const PVBrow& row) const {
  const PVBsignal& record = *check_.signals[signal].record;
  const Columns& own = plan.signals[signal].columns;
  Columns codes{codeAt(row, own.in), codeAt(row, own.out)};
  if (record.type != MEM_MUX) return codes;
  for (const PVBid id : record.muxChildren) {
    const PVBsignal* part = PVBsignalInqByID(check_.database, id);
    if (part == nullptr) continue;
    const Columns columns = inRow(PVBsignalDataColumns(*part));
    if (codes.in == 0) codes.in = codeAt(row, columns.in);
    if (codes.out == 0) codes.out = codeAt(row, columns.out);
  }
  return codes;
}
