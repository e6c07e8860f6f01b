#pragma once

// What the passes of the timeplate optimizer share. Timeplates are known by their ids,
// which stay when the database is closed and opened again between two passes.

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/file_copy.h"
#include "pvb/timeplate.h"
#include "timeplate/working_database.h"

// Which of the 16 row states the rows drove on each track, a bit for each.
class TpTrackStates {
 public:
  void record(PVBid timeplate, int track, std::int32_t state);
  std::uint32_t of(PVBid timeplate, int track) const;

 private:
  std::vector<std::vector<std::uint32_t>> byPlate_;
};

// The tables of one operation.
struct TpOptimization {
  explicit TpOptimization(FILE* stream) : report(stream) {}

  int database = -1;
  FILE* report;
  WorkingDatabase target;
  TempFile findings;  // that the checker wrote down

  // As the checker told them. Tracks are counted from 1 here.
  std::vector<PVBid> tpUnusedTimeplates;
  std::vector<std::pair<PVBid, std::int32_t>> tpUnusedTracks;
  // The timeplates of the same tracks by track, equal ones in the order of their coming.
  std::multimap<std::int32_t, PVBid> tpUnusedTrackIndex;
  // Filled by the first run of the checker.
  TpTrackStates tpTrackStates;
  // From duplicate to master. Ids rise in the order in which timeplates were made.
  std::map<PVBid, PVBid> tpDuplicates;
};

// Runs the checker and fills the unused lists. False after a push when its findings can't
// be written down.
bool tpScanForUnused(TpOptimization& work);
void tpDeleteUnusedTracks(TpOptimization& work);
void tpDeleteUnusedTimeplates(TpOptimization& work);
// False when rows couldn't be repointed; nothing is deleted then.
bool tpDeleteDuplicateTimeplates(TpOptimization& work, bool annotateRows);

// The wave of a track on the first level; null where there is none.
const PVBtrack* tpFirstWave(const PVBtimePlate& plate, int track);
std::string tpName(const PVBtimePlate& plate);
// Events that have both time and state.
std::size_t tpEdgeCount(const PVBtrack& wave);

// Ends the process as a fault that nothing can catch, with the databases closed unsaved
// and nothing of the work left behind.
[[noreturn]] void tpEndAbnormally(TpOptimization& work);
