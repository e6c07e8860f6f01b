// What the passes made of timeplates, for who keeps them by id from before a pass.

#include <unordered_map>

#include "timeplate/optimizer.h"
#include "timeplate/tp_merge_internal.h"

namespace {

struct Changes {
  std::unordered_set<PVBid> changed;
  // From a timeplate that is gone to the one that stands for it, UNDEF for none.
  std::unordered_map<PVBid, PVBid> absorbed;
};
Changes changes;

}  // namespace

void tpNoteChanged(PVBid plate) { changes.changed.insert(plate); }

void tpNoteAbsorbed(PVBid second, PVBid first, bool alike) {
  changes.absorbed[second] = alike && !changes.changed.contains(second) ? first : UNDEF;
  // The id is free for a new timeplate.
  changes.changed.erase(second);
}

PVBid tpOptimizerSuccessor(PVBid plate) {
  // Each step leads to a timeplate that was still there when this one went.
  for (auto next = changes.absorbed.find(plate); next != changes.absorbed.end();
       next = changes.absorbed.find(plate)) {
    plate = next->second;
    if (plate == UNDEF) return UNDEF;
  }
  return changes.changed.contains(plate) ? UNDEF : plate;
}

void tpOptimizerForgetChanges() { changes = Changes(); }
