#pragma once

// Messages of the companion program: one table of codes, each with its title, what
// to do about it, and a longer text for `pvb explain`. A message names a place (a
// file, a line and a column of a text, or a block of a file) and is printed as
//
//   FILE:LINE:COL: error: text [PVB0123]
//     the source line
//         ^
//     what to do
//
// Codes are unique and never used again for something else.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <span>
#include <string>
#include <string_view>

enum MessageCode : int {
  kUnknownVerb = 1,
  kBadUsage = 2,
  kUnknownCode = 3,
  kOutputLost = 4,

  kCantRead = 101,
  kCantWrite = 102,
  kExists = 103,
  kNoDatabase = 104,
  kCantOpenDatabase = 105,
  kNotReplaceable = 106,
  kCantSaveDatabase = 107,

  kNotADump = 201,
  kNewerDump = 202,
  kUnknownKeyword = 203,
  kWrongPlace = 204,
  kExpected = 205,
  kOutOfRange = 206,
  kBadQuoting = 207,
  kUnknownAttribute = 208,
  kExtraText = 209,
  kEndsEarly = 210,
  kBadState = 211,
  kBadTime = 212,
  kBadId = 213,
  kBadBytes = 214,
  kBadFileName = 215,

  kSignalRefused = 301,
  kTimePlateRefused = 302,
  kNoSuchTimePlate = 303,
  kSubroutineRefused = 304,
  kNoSuchSubroutine = 305,
  kStatesTooWide = 306,
  kLoopNesting = 307,
  kVectorRefused = 308,
  kRunRefused = 309,
  kPinRefused = 310,
  kPropertyRefused = 311,
  kRowRefused = 312,
  kBadDatabaseLine = 313,
  kLabelRefused = 314,
  kNoSuchVector = 315,
  kEquationRefused = 316,

  kHeaderFault = 401,
  kFileFault = 402,
  kBlockFileFault = 403,
  kContainerFault = 404,
  kPageFileFault = 405,
  kSectionFault = 406,
  kTreeFault = 407,
  kSharedRow = 408,
  kRowFault = 409,
  kEntryFault = 410,
  kTableSumsFault = 411,
  kLoopFault = 412,
  kLostBlocks = 413,
  kPropertyListFault = 414,
  kPropertyRecordFault = 415,
  kListWithoutOwner = 416,
  kScanRunFault = 417,
  kUnknownTimePlate = 418,
  kUnknownSignal = 419,
  kColumnFault = 420,
  kLostLabel = 421,
  kUnknownSubroutine = 422,

  kRowsNotReadable = 501,
  kPropertiesNotReadable = 502,
  kVectorsNotReadable = 503,
  kEquationsNotReadable = 504,
  kNotCheckable = 505,

  kNotComparable = 601,
  kNoSuchSignal = 602,
  kBadStretch = 603,

  kStilSyntax = 701,
  kStilUnended = 702,
  kStilTooLong = 703,
  kStilUnknownName = 704,
  kStilUnknownWave = 705,
  kStilBadExpression = 706,
  kStilUnknownRoutine = 707,
  kStilUnknownTable = 708,
  kStilNotCarried = 709,
  kStilUnsupported = 710,
  kStilDataCount = 711,
  kStilUnknownStatement = 712,
  kStilNoPattern = 713,
  kStilInclude = 714,
  kStilTwice = 715,
  kStilBadTime = 716,
  kStilNoState = 717,

  kVcdSyntax = 801,
  kVcdUnknownCode = 802,
  kVcdBadTime = 803,
  kVcdNoSignals = 804,
  kVcdNotCarried = 805,
  kVcdEndsEarly = 806,

  kUnknownFormat = 901,
  kImportRefused = 902,
  kExportRefused = 903,
  kExportNotCarried = 904,
};

struct MessageRow {
  MessageCode code;
  std::string_view title;
  std::string_view remedy;       // one sentence
  std::string_view explanation;  // for `pvb explain`
};
// In rising code.
std::span<const MessageRow> messageTable();
// Null for a code that isn't in the table.
const MessageRow* messageRow(int code);
// "PVB0123".
std::string messageCodeText(int code);

enum class Severity { error, warning, note };

struct Message {
  Severity severity = Severity::error;
  MessageCode code = kBadUsage;
  std::string text;
  std::string file;
  std::int64_t line = 0;        // from 1; 0 for none
  std::size_t column = 0;       // from 1, in bytes; 0 for none
  std::string place;            // within a file without lines: "block 12"
  std::string sourceLine;       // what the caret stands under
  std::size_t sourceBegin = 0;  // bytes of the line that sourceLine leaves out in front
  bool showsRemedy = true;
};

using MessageSink = std::function<void(const Message& message)>;

// When the program colours its words.
enum class ColorMode { automatic, always, never };
// Whether `stream` gets colour: by the mode, NO_COLOR, and whether it is a terminal.
bool usesColor(ColorMode mode, FILE* stream);

std::string formatMessage(const Message& message, bool color);
// On standard error.
void printMessage(const Message& message);
// What printMessage goes by; --color sets it.
void setMessageColor(ColorMode mode);

// The numbered error stack as one text, newest first, cleared: why a call failed.
// Empty when nothing was posted.
std::string takePostedReasons();
// An error about a file as a whole, or about none.
Message errorMessage(MessageCode code, std::string text, std::string file = {});
// The same with the reasons posted behind the text.
Message failureMessage(MessageCode code, std::string text, std::string file);
