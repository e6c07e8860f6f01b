#include "timeplate/optimizer.h"

#include <ctime>

#include "base/errors.h"

namespace {

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

}  // namespace

bool tpOptInit(FILE* report) {
  PBprogramName = "TimePlate Optimize";
  tpNoticeSettings.stream = report;
  startSeconds = processorSeconds();
  return true;
}

void tpOptimizerFinish() {
  std::fflush(stdout);
  printRunTime(tpNoticeSettings.stream == stdout ? stdout : stderr);
  PBflushErrors();
  PBerrPrint(stderr);
  PBerrClear();
}
