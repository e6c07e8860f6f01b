// What the passes made of timeplates, for who keeps them by id from before a pass.

#include <unordered_map>

#include "timeplate/tp_merge_internal.h"
#include "timeplate/tp_successor.h"

namespace {

struct Absorption {
  PVBid by;
  bool alike;
};

struct Changes {
  bool keepOriginals = false;
  std::unordered_set<PVBid> changed;
  std::unordered_map<PVBid, Absorption> absorbed;
  // As they were before, of those that have been changed or absorbed.
  std::unordered_map<PVBid, std::shared_ptr<const PVBtimePlate>> originals;
};
Changes changes;

}  // namespace

void tpKeepOriginals(bool keep) { changes.keepOriginals = keep; }

void tpNoteOriginal(const PVBtimePlate& plate) {
  if (!changes.keepOriginals || changes.originals.contains(plate.id)) return;
  if (changes.originals.size() >= tpRedirectLimit()) return;
  changes.originals.emplace(plate.id, PVBtimePlateCopy(plate));
}

void tpNoteChanged(PVBid plate) { changes.changed.insert(plate); }

void tpNoteAbsorbed(PVBid second, PVBid first, bool alike) {
  changes.absorbed[second] = {first, alike && !changes.changed.contains(second)};
  // The id is free for a new timeplate.
  changes.changed.erase(second);
}

TpSuccessor tpOptimizerSuccessor(PVBid plate) {
  TpSuccessor successor = {plate, true};
  // Each step leads to a timeplate that was still there when this one went.
  for (auto next = changes.absorbed.find(plate); next != changes.absorbed.end();
       next = changes.absorbed.find(successor.plate)) {
    successor = {next->second.by, successor.alike && next->second.alike};
  }
  successor.alike = successor.alike && !changes.changed.contains(successor.plate);
  return successor;
}

std::shared_ptr<const PVBtimePlate> tpOptimizerOriginal(PVBid plate) {
  const auto found = changes.originals.find(plate);
  return found != changes.originals.end() ? found->second : nullptr;
}

void tpOptimizerForgetChanges() { changes = Changes(); }
