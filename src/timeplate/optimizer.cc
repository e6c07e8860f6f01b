#include "timeplate/optimizer.h"

#include <fmt/printf.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

#include "base/errors.h"
#include "base/text.h"
#include "pvb/database.h"
#include "pvb/database_replace.h"
#include "pvb/timeplate.h"
#include "pvb/timeplate_expand.h"
#include "timeplate/ate.h"
#include "timeplate/pstate_store.h"
#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_merge.h"
#include "timeplate/tp_rewrite.h"
#include "timeplate/tp_run.h"
#include "timeplate/tp_settings.h"
#include "timeplate/working_copy.h"

namespace {

constexpr std::string_view kFunction = "tpOptInit";
constexpr int kNoDatabase = -1;
constexpr int kOptimizeOnly = 2;  // of `Optimize`
constexpr int kEndedBySignal = 2;

// Processor time at tpOptInit in whole seconds; 0 when it never ran.
long startSeconds = 0;

long processorSeconds() { return static_cast<long>(std::clock() / CLOCKS_PER_SEC); }

void printRunTime(FILE* stream) {
  const long seconds = processorSeconds() - startSeconds;
  if (seconds > -60 && seconds < 60) {
    std::fprintf(stream, "\n\nTotal run time = %ld seconds\n", seconds);
  } else {
    std::fprintf(stream, "\n\nTotal run time = %ld minutes %ld seconds\n", seconds / 60,
                 seconds % 60);
  }
}

void exitOnSignal(int /*signal*/) {
  tpNotice(kNoticeText, "signal caught: exiting cleanly");
  tpOptimizerFinish();
  std::exit(kEndedBySignal);
}

bool wantsOptimizeOnly() {
  const std::optional<std::string>& optimize = tpParam(TpParam::Optimize);
  return optimize && PBtextToInt(*optimize) == kOptimizeOnly;
}

// What the parameters ask for and won't get.
void reportUnavailable(bool optimizeOnly) {
  const bool source = !PBisEmpty(tpParam(TpParam::WaveSource));
  if (source && !optimizeOnly) {
    tpReport("WaveSource: generating timeplates from a wave source is not available.\n");
  } else if (source && !tpSettings.tpoOptimizeOnly) {
    tpReport("WaveSource: nothing is optimized by itself without DestinationPVB.\n");
  }
  if (ateUseMux()) {
    tpReport(
        "UseMuxTiming: applying multiplex timing is not available; multiplexed signals keep the"
        " timing that they have.\n");
  }
}

// --- An existing database ------------------------------------------------------------

bool mergeAll(int database) {
  tpOptimizerSetDatabase(database);
  if (ateBindSignals(database) != 0) return false;
  const PVBidList ids = PVBtimePlateInqAll(database);
  for (const PVBid id : ids) PVBtimePlateRebuildMaps(*PVBtimePlateInqByID(database, id));
  if (!expandTimePlates(database)) return false;
  if (tpRunBegin(database) != 0 || !tpCheckShapes()) return false;
  bool failed = false;
  tpMergeAll(ids, true, failed);
  return !failed;
}

bool saveAndClose(int database, WorkingCopy& target) {
  const auto refuse = [&](int message) {
    PBerrPush(PBconditionerError, message, kFunction, target.path());
    return false;
  };
  errno = 0;
  if (PVBsave(database) != 0) {
    PVBcloseUnsaved(database);
    return refuse(kCannotSave);
  }
  return (PVBclose(database) == 0 && target.putInPlace() == 0) || refuse(kCannotClose);
}

// In a copy beside the database, so that what fails or is killed leaves it as it was.
bool optimizeDatabase() {
  const std::optional<std::string>& source = tpParam(TpParam::WaveSource);
  if (PBisEmpty(source)) return tpRefuseParam(kMissingParameter, TpParam::WaveSource) == 0;
  WorkingCopy target(*source, true);
  const int database = PVBexists(*source) ? target.open(kFunction) : -1;
  if (database < 0) {
    tpReport(fmt::sprintf("Cannot open PVB file %s for timeplate optimization.\n", *source));
    return false;
  }
  const bool merged = mergeAll(database);
  tpOptimizerRelease();
  tpOptimizerSetDatabase(kNoDatabase);
  if (merged) return saveAndClose(database, target);
  PVBcloseUnsaved(database);
  return false;
}

}  // namespace

bool tpOptInit(FILE* report, ParamArguments arguments) {
  PBprogramName = "TimePlate Optimize";
  tpNoticeSettings = {.stream = report};
  startSeconds = processorSeconds();
  PBcatchSignal(SIGINT, exitOnSignal);
  PBcatchSignal(SIGTERM, exitOnSignal);
  if (tpReadSettings(arguments) != 0) return false;
  tpNoticeSettings.verbosity = tpSettings.tpoTrace;
  const bool optimizeOnly = wantsOptimizeOnly();
  tpSettings.tpoOptimizeOnly = optimizeOnly && !PBisEmpty(tpParam(TpParam::DestinationPVB));
  if (ateInit() != 0) return false;
  reportUnavailable(optimizeOnly);
  return !tpSettings.tpoOptimizeOnly || optimizeDatabase();
}

void tpOptimizerRelease() {
  tpPStateClose();
  tpRowStoreDrop();
  tpRowListsFree();
  tpMergeReset();
  tpRunEnd();
}

void tpOptimizerFinish() {
  std::fflush(stdout);
  printRunTime(tpNoticeSettings.stream == stdout ? stdout : stderr);
  PBflushErrors();
  PBerrPrint(stderr);
  PBerrClear();
}
