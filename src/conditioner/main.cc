// pvbconditioner: conditions pattern databases as its parameters and operation
// file say. Start-up, the queue, its carrying out, one of two ends.

#include <span>

#include "base/errors.h"
#include "base/program.h"
#include "conditioner/params.h"
#include "conditioner/run.h"
#include "equations/checker_times.h"

int main(int argc, char** argv) {
  PBprogramName = "PVConditioner";
  if (PBstartProgram(kProgramTitle, kProgramVersion) != 0) return 1;
  closeDatabasesAfterFailedCheck();
  installCheckerTimeUpdate();
  run.debugStream = stdout;
  PBerrClear();
  const std::span<const char* const> words(argv, static_cast<std::size_t>(argc));
  if (initParams(words.subspan(words.empty() ? 0 : 1)) != 0) fatalExit();
  return runOperations();
}
