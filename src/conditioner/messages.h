#pragma once

// Names for the rows of PBconditionerError that only operations push; those that lower
// floors push too stand in base/messages.h.

#include "base/messages.h"

enum ConditionerMessage : int {
  kCopyOperationFailed = 3,
  kFlattenFailed = 8,
  kDeleteFailed = 10,
  kOptimizerFailed = 11,
  kCommandLine = 12,
  kInvalidTime = 13,
  kStartBehindStop = 14,
  kInvalidRegion = 15,
  kInvalidOperation = 17,
  kNoFileName = 18,
  kNoSuchFile = 21,
  kTooManyTimePlates = 22,
  kSignalsDisjoint = 24,
  kTwoColumns = 25,
  kSheetsOverlap = 26,
  kEquationMergeFailed = 27,
  kConcatRegionFailed = 28,
  kNoParameter = 29,
  kIncompatibleRegions = 30,
  kPatternMergeFailed = 32,
  kMultiplexedSignals = 33,
  kRenameListArgument = 34,
  kAddListArgument = 35,
  kTrackListArgument = 36,
  kCutListArgument = 37,
  kRegionArgument = 38,
  kOperationArgument = 39,
  kPeriodTooShort = 42,
  kTooManyArguments = 43,
  kStartMisaligned = 45,
  kStopMisaligned = 46,
  kIncompatiblePmodes = 47,
  kSameReference = 49,
  kCompression = 51,
  kTooManyDisjoint = 52,
  kThirdOperandMissing = 64,
  kNoPatternRows = 84,
  kConcatFailed = 85,
  kText = 90,
};
