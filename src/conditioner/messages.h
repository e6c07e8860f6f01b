#pragma once

// Names for the rows of PBconditionerError that the front end pushes.

enum ConditionerMessage : int {
  kOptimizerFailed = 11,
  kCommandLine = 12,
  kInvalidTime = 13,
  kStartBehindStop = 14,
  kInvalidRegion = 15,
  kInvalidOperation = 17,
  kNoFileName = 18,
  kNoSuchFile = 21,
  kTwoColumns = 25,
  kNoParameter = 29,
  kMultiplexedSignals = 33,
  kRenameListArgument = 34,
  kAddListArgument = 35,
  kTrackListArgument = 36,
  kCutListArgument = 37,
  kRegionArgument = 38,
  kOperationArgument = 39,
  kTooManyArguments = 43,
  kStartMisaligned = 45,
  kStopMisaligned = 46,
  kIncompatiblePmodes = 47,
  kCompression = 51,
  kTooManyDisjoint = 52,
  kThirdOperandMissing = 64,
  kFunctionAndText = 88,
  kText = 90,
};
