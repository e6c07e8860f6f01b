// The passes over the database of a merge.

#include <vector>

#include "pvb/database.h"
#include "pvb/timeplate_match.h"
#include "timeplate/ate.h"
#include "timeplate/optimizer.h"
#include "timeplate/tp_merge_internal.h"
#include "timeplate/tp_rows.h"
#include "timeplate/tp_settings.h"
#include "timeplate/tp_successor.h"

namespace {

// Set by tpOptimizerSetDatabase, for the merge under way.
struct Passes {
  int database = -1;
  unsigned done = 0;              // in the whole process
  bool trackPassEntered = false;  // the second of two passes is under way
};
Passes passes;

std::vector<PVBid> listTimePlates(int database) {
  const PVBidList& all = PVBtimePlateInqAll(database);
  return {all.begin(), all.end()};
}

void rebuildMaps(int database) {
  for (const PVBid id : listTimePlates(database)) {
    PVBtimePlateRebuildMaps(*PVBtimePlateInqByID(database, id));
  }
}

// One pass; the number of timeplates left, or -2.
int runPass(bool finish) {
  const std::vector<PVBid> ids = listTimePlates(passes.database);
  bool failed = false;
  const std::vector<PVBid> left = tpMergeAll(ids, finish, failed);
  rebuildMaps(passes.database);
  matchTimePlateClear();
  matchTimePlateSetTolerance(tpSettings.tpoTolerance);
  ++passes.done;
  return failed ? -2 : static_cast<int>(left.size());
}

// The pass that shrinks the tracks of the timeplates left.
int runTrackPass() {
  tpRun.trackPass = true;
  passes.trackPassEntered = true;
  const int left = tpOptimizeGenerated(true);
  passes.trackPassEntered = false;
  tpRun.trackPass = false;
  return left;
}

}  // namespace

void tpOptimizerSetDatabase(int database) {
  tpOptimizerRelease();
  tpOptimizerForgetChanges();
  passes.database = database;
}

int tpOptimizerDatabase() { return passes.database; }

unsigned tpOptimizerPasses() { return passes.done; }

int tpOptimizerBegin() {
  if (passes.database < 0) return -2;
  tpKeepOriginals(true);
  if (tpRun.database == passes.database && !tpRun.signals.empty()) return 0;
  if (tpRunBegin(passes.database) != 0) return -2;
  return ateBindSignals(passes.database);
}

int tpOptimizeGenerated(bool finish) {
  if (tpOptimizerBegin() != 0) return -2;
  // After the last pass there are no rows to come.
  tpKeepOriginals(!finish);
  rebuildMaps(passes.database);
  // Multiplexed signals are looked up by the maps of what has a wave.
  if (ateUseMux()) tpRemoveEmptyTracks(listTimePlates(passes.database), false);
  const bool trackPassFollows = tpSettings.tpoTrackPassWanted && !passes.trackPassEntered;
  const int left = runPass(finish && !trackPassFollows);
  if (left < 0 || !finish || !trackPassFollows) return left;
  return runTrackPass();
}
