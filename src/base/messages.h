#pragma once

// Every numbered message text of the program, as tables of format texts.
// A row is addressed by its number, which is part of the program's interface:
// rows are never moved. A row of a message table has up to three `%s` slots.

#include <span>

using MessageTable = std::span<const char* const>;

// The conditioner's messages: "%s" slot one is the reporting function.
extern const MessageTable PBconditionerError;
// Its rows about whole databases, which several floors push.
enum DatabaseMessage : int {
  kNoSuchDatabase = 23,
  kSameDatabase = 48,
  kCannotOpen = 50,
  kCannotClose = 80,
  kCannotSave = 81,
  kCopyFailed = 82,
  kFunctionAndText = 88,
};
// What PBpostError codes mean; code 0 leaves its whole meaning to the detail.
extern const MessageTable PBnumberedError;
// Levels of tpNotice.
extern const MessageTable tpNoticeError;
extern const MessageTable tpRenameError;
extern const MessageTable busOptimizeError;
extern const MessageTable labelError;
extern const MessageTable pinFileError;
extern const MessageTable pinGroupError;
// Out-of-memory forms; the row is the number of arguments.
extern const MessageTable PBmemoryError;
