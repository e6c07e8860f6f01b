#pragma once

// What a run is: the settings that everything reads, the queue with its regions
// and lists, and the two roads on which a run ends.

#include <cstdio>

#include "base/platform.h"
#include "base/time.h"
#include "conditioner/lists.h"
#include "conditioner/operation.h"

struct Run {
  StreamPtr reportFile;          // open when the report goes to a file
  FILE* reportStream = nullptr;  // the report file, else standard output
  FILE* debugStream = nullptr;   // of the debug dumps
  OpKind currentOperation = kOpNone;
  bool optimizeTimePlates = false;
  std::int32_t tpGenLimit = -1;  // timeplates; -1 without a limit
  TIME minPeriod = TIME_ZERO;
  bool shortTpNames = false;

  OpList opList;
  RegionTable regionTable;
  SignalLists lists;
};

// The one run of the process. Set by main and initParams, read by everything.
extern Run run;

// Carries out the queue in order. Returns the program's exit code; a handler
// that fails ends the process through fatalExit.
int runOperations();

// From now on a failed check tells what was posted before, and closes the open databases,
// unsaved, before the process ends, so that no private copies of them stay behind.
void closeDatabasesAfterFailedCheck();

// The end after a failure: prints both error stacks, closes what is open, exits
// with code 1.
[[noreturn]] void fatalExit();

// The end of a run that went well: the exit code, which is 1 only when the
// report could not be written.
int finishRun();
