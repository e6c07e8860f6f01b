#include "timeplate/tp_rewrite.h"

#include <span>
#include <vector>

#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_rewrite_internal.h"

namespace {

const TpSignal* forbiddenInRows(const PVBtimePlate& owner, RowChanges& changes) {
  if (changes.empty()) return nullptr;
  for (const std::int32_t number : tpRowList(owner.id)) {
    const TpRow* row = tpRowGet(number);
    const TpSignal* signal = row == nullptr ? nullptr : changes.forbiddenIn(*row);
    if (signal != nullptr) return signal;
  }
  return nullptr;
}

// Gives the rows of a timeplate their data for what was shown in this way, and a new owner.
// A row that belongs to neither of the pair is left alone.
void rewriteSide(PVBid owner, RowChanges* changes, ShownBy way, PVBid newOwner) {
  static TpRow copy;
  if (changes != nullptr && !changes->concern(way)) changes = nullptr;
  if (owner == newOwner && changes == nullptr) return;
  for (const std::int32_t number : tpRowList(owner)) {
    const TpRow* row = tpRowGet(number);
    if (row == nullptr || (row->timeplate != tpPair.first && row->timeplate != tpPair.second)) {
      continue;
    }
    copy = *row;
    bool changed = changes != nullptr && changes->rewrite(copy, way);
    if (owner != newOwner && row->timeplate == owner) {
      copy.timeplate = static_cast<std::uint16_t>(newOwner);
      changed = true;
    }
    if (changed) tpRowPut(number, copy);
  }
}

// All signals for which a row would do something else, whatever its data.
std::vector<const TpSignal*> allForbidden(const PVBtimePlate& plate) {
  std::vector<const TpSignal*> signals;
  const std::unique_ptr<PVBtimePlate> after = tpWithCandidates(plate);
  RowChanges changes(plate, *after, 0, false);
  if (changes.empty()) return signals;
  for (const std::int32_t number : tpRowList(plate.id)) {
    const TpRow* row = tpRowGet(number);
    if (row != nullptr) changes.gatherForbidden(*row, signals);
  }
  return signals;
}

// Begins the pair again without the candidates of these signals; without any when they
// have none.
void dropCandidates(std::span<const TpSignal* const> signals) {
  struct Kept {
    const TpSignal* signal;
    int direction;
    Candidate candidate;
  };
  std::vector<bool> dropped(tpRun.signals.size());
  for (const TpSignal* signal : signals) dropped[static_cast<std::size_t>(signal->index)] = true;
  std::vector<Kept> kept;
  for (const auto& [index, direction] : tpPair.used) {
    const auto place = static_cast<std::size_t>(index);
    const TpSignal& signal = tpRun.signals[place];
    if (!dropped[place]) kept.push_back({&signal, direction, tpPairCandidate(signal, direction)});
  }
  if (kept.size() == tpPair.used.size()) kept.clear();
  const TpPair before = std::move(tpPair);
  tpPair = {};
  tpPairBegin(before.first, before.second);
  tpPair.scratch = before.scratch;
  tpPair.rewriteFirst = before.rewriteFirst;
  tpPair.rewriteSecond = before.rewriteSecond;
  for (const Kept& each : kept) {
    tpPairSet(*each.signal, each.direction, each.candidate.wave) = each.candidate;
  }
}

}  // namespace

const TpSignal* tpRowsForbid(const PVBtimePlate& first, const PVBtimePlate* second,
                             bool keepOwners) {
  const std::unique_ptr<PVBtimePlate> after = tpWithCandidates(first);
  RowChanges changes(first, *after, 0, false);
  const TpSignal* signal = forbiddenInRows(first, changes);
  if (signal != nullptr || second == nullptr) return signal;
  const std::unique_ptr<PVBtimePlate> own = keepOwners ? tpWithCandidates(*second) : nullptr;
  RowChanges secondChanges(*second, own != nullptr ? *own : *after, 1, false);
  return forbiddenInRows(*second, secondChanges);
}

void tpRewriteRows(PVBtimePlate& first, PVBtimePlate* second, bool keepOwners) {
  const std::unique_ptr<PVBtimePlate> after = tpWithCandidates(first);
  if (tpPair.rewriteFirst) {
    RowChanges changes(first, *after, 0, false);
    rewriteSide(first.id, &changes, ShownBy::rows, first.id);
  }
  if (second == nullptr) return;
  const PVBid newOwner = keepOwners ? second->id : first.id;
  if (!tpPair.rewriteSecond) {
    if (!keepOwners) rewriteSide(second->id, nullptr, ShownBy::rows, newOwner);
    return;
  }
  const std::unique_ptr<PVBtimePlate> own = keepOwners ? tpWithCandidates(*second) : nullptr;
  RowChanges changes(*second, own != nullptr ? *own : *after, 1, false);
  rewriteSide(second->id, &changes, ShownBy::rows, newOwner);
}

void tpRewriteStaticRows(const PVBtimePlate& plate, int side, bool overwrite) {
  const PVBtimePlate* target = &plate;
  if (side == 1 && !tpRun.trackPass) target = PVBtimePlateInqByID(tpRun.database, tpPair.first);
  if (target == nullptr) return;
  const std::unique_ptr<PVBtimePlate> after = tpWithCandidates(*target);
  RowChanges changes(plate, *after, side, overwrite);
  rewriteSide(plate.id, &changes, ShownBy::waves, plate.id);
}

void tpRewriteAlone(PVBtimePlate& plate, bool overwrite) {
  tpRewriteStaticRows(plate, 0, overwrite);
  tpRewriteRows(plate, nullptr, true);
  tpApplyCandidates(plate);
}

void tpKeepCandidatesThatHold(const PVBtimePlate& plate) {
  while (tpPairHasCandidate()) {
    const std::vector<const TpSignal*> signals = allForbidden(plate);
    if (signals.empty()) return;
    dropCandidates(signals);
  }
}
