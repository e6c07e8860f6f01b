#include "timeplate/tp_optimize.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "base/errors.h"
#include "pvb/checker.h"
#include "pvb/database.h"
#include "timeplate/clock_shapes.h"
#include "timeplate/tp_optimize_internal.h"

// --- What the passes share -----------------------------------------------------------

const PVBtrack* tpFirstWave(const PVBtimePlate& plate, int track) {
  if (plate.levels.empty() || track < 0) return nullptr;
  const std::vector<PVBtrack>& tracks = plate.levels.front().tracks;
  const auto place = static_cast<std::size_t>(track);
  return place < tracks.size() ? &tracks[place] : nullptr;
}

std::string tpName(const PVBtimePlate& plate) { return plate.name.value_or(""); }

std::size_t tpEdgeCount(const PVBtrack& wave) {
  return std::min(wave.eventTimes.size(), wave.stateChars.size());
}

void tpEndAbnormally(TpOptimization& work) {
  work.findings = {};
  work.target.discard();
  for (int database = 0; database < MAXPVB; ++database) {
    if (PVBget(database) != nullptr) PVBcloseUnsaved(database);
  }
  std::abort();
}

namespace {

constexpr std::string_view kFunction = "tpOptimize";

int fail(int message, const std::string& text) {
  PBerrPush(PBconditionerError, message, kFunction, text);
  return -2;
}

// --- Observing -----------------------------------------------------------------------

// The checker tells the states that it sees for as long as this lives.
class StateObserver {
 public:
  explicit StateObserver(TpTrackStates& states) {
    PVBcheckSetStateObserver(
        [&states](int, const PVBtimePlate& plate, int track, int kind, std::int32_t state) {
          if (kind == kPrimaryColumn) states.record(plate.id, track, state);
        });
  }
  ~StateObserver() { PVBcheckSetStateObserver({}); }
  StateObserver(const StateObserver&) = delete;
  StateObserver& operator=(const StateObserver&) = delete;

 private:
  static constexpr int kPrimaryColumn = 0;
};

// The states are for the clocks only.
bool firstScan(TpOptimization& work, bool observed) {
  std::optional<StateObserver> observer;
  if (observed) observer.emplace(work.tpTrackStates);
  return tpScanForUnused(work);
}

// --- Steps ---------------------------------------------------------------------------

bool deletesAnything(const TpOptimizations& wanted) {
  return wanted.deleteDuplicates || wanted.deleteUnusedTps || wanted.deleteUnusedTracks;
}

// A failed save is told and leaves the database open, and is no failure.
int saveAndClose(TpOptimization& work) {
  errno = 0;
  if (PVBsave(work.database) != 0) {
    fail(kCannotSave, work.target.path());
    return 0;
  }
  return work.target.close() == 0 ? 0 : fail(kCannotClose, work.target.path());
}

int failClockShapes(FILE* report) {
  constexpr const char* kText = "\nERROR: tpSimplifyClockShapes() failed.  Exiting...\n";
  std::fputs(kText, stderr);
  std::fputs(kText, report);
  return -2;
}

// Clock shapes come first: tracks that are merged away leave others unused, which a new
// scan has to see.
int simplifyClocks(TpOptimization& work, bool scanAgain) {
  if (!tpSimplifyClockShapes(work.database, work.tpTrackStates, work.report)) {
    return failClockShapes(work.report);
  }
  if (!scanAgain) return 0;
  if (saveAndClose(work) != 0) return -2;
  work.database = work.target.openAgain(kFunction);
  if (work.database < 0) return -2;
  return tpScanForUnused(work) ? 0 : -2;
}

// Tracks before timeplates, and duplicates last, so that timeplates are compared without
// their dead tracks.
void deleteWanted(TpOptimization& work, const TpOptimizations& wanted) {
  if (wanted.deleteUnusedTracks) {
    tpDeleteUnusedTracks(work);
    std::fflush(work.report);
  }
  if (wanted.deleteUnusedTps) {
    tpDeleteUnusedTimeplates(work);
    std::fflush(work.report);
  }
  if (wanted.deleteDuplicates) {
    tpDeleteDuplicateTimeplates(work, wanted.annotateRows);
    std::fflush(work.report);
  }
}

}  // namespace

int tpOptimize(const std::optional<std::string>& source,
               const std::optional<std::string>& destination, const TpOptimizations& wanted,
               FILE* report) {
  if (!deletesAnything(wanted) && !wanted.clockShapes) {
    std::fputs("WARNING: No timeplate optimizations selected\n", stderr);
    return 0;
  }
  errno = 0;
  if (!source) return fail(kFunctionAndText, "src region is NULL");
  TpOptimization work(report);
  work.database = work.target.open(kFunction, *source, destination, report);
  if (work.database < 0) return -2;

  if (!firstScan(work, wanted.clockShapes)) return -2;
  if (wanted.clockShapes && simplifyClocks(work, deletesAnything(wanted)) != 0) return -2;
  deleteWanted(work, wanted);
  return saveAndClose(work);
}
