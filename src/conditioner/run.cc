#include "conditioner/run.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "pvb/database.h"
#include "timeplate/optimizer.h"

Run run;

namespace {

// Whether all that was written to the report has arrived; errno holds the reason
// when the system gave one just now.
bool closeReport() {
  if (run.reportFile) {
    run.reportStream = nullptr;
    return closeStream(std::move(run.reportFile)) == 0;
  }
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

// What the run changed only in part isn't saved over what was there.
void closeDatabasesUnsaved() {
  tpOptimizerRelease();
  for (int database = 0; database < MAXPVB; ++database) {
    if (PVBget(database) != nullptr) PVBcloseUnsaved(database);
  }
}

AssertHook printFailedCheck = nullptr;

void endFailedCheck(const char* file, int line) {
  // Closing may fail a check of its own.
  PBassertFail = printFailedCheck;
  PBflushErrors();
  printFailedCheck(file, line);
  closeDatabasesUnsaved();
}

}  // namespace

void closeDatabasesAfterFailedCheck() {
  printFailedCheck = PBassertFail;
  PBassertFail = endFailedCheck;
}

int runOperations() {
  for (OpSpec& op : run.opList) {
    run.currentOperation = op.type;
    const auto kind = static_cast<std::uint32_t>(op.type);
    if (kind >= operations().size() || operations()[kind].handler == nullptr) {
      std::fputs("Internal error: Unrecognized operation.  Exiting...\n", stderr);
      return 1;
    }
    if (operations()[kind].handler(op, run.regionTable) != 0) {
      // The handler says which pass it was, of an operation that has more than one.
      const int failed = operations()[static_cast<std::size_t>(op.type)].failureIndex;
      PBerrPush(PBconditionerError, failed, "main");
      fatalExit();
    }
  }
  return finishRun();
}

void fatalExit() {
  if (PBerrCount() > 0) {
    PBerrPrint(stderr);
    PBerrClear();
  }
  closeReport();
  if (run.optimizeTimePlates) tpOptimizerFinish();
  PBflushErrors();
  closeDatabasesUnsaved();
  std::exit(1);
}

int finishRun() {
  run.opList.clear();
  tpOptimizerFinish();
  errno = 0;
  if (closeReport()) return 0;
  const char* reason = errno != 0 ? std::strerror(errno) : "an earlier write failed";
  std::fprintf(stderr, "The report could not be written: %s\n", reason);
  return 1;
}
