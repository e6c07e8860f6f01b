#pragma once

// How failure is told. A function that fails returns a failure value and leaves
// a record of the reason on one of two stacks; each caller may add its own and
// return in turn; the outermost level prints both stacks and ends the run.
//
//   message-table stack   PBerrPush: a row of a message table with up to three
//                         texts. Printed oldest first.
//   numbered stack        PBpostError: a function name, a row of PBnumberedError
//                         and a detail. Printed newest first.
//   warning stack         the message-table stack's twin for warnings.
//
// All have 32 places; what comes after that is dropped in silence. A record
// keeps the system error number (errno) of its moment and sets errno to 0, so a
// reason of the system is printed once, with the record that it belongs to.
// Whoever tolerates a failure of the system sets errno to 0 itself.
//
// Beside the stacks stand the failed-check hook, the fatal line with its
// handlers, and the abort actions. One thread; process-wide state.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/messages.h"

// An argument of a message; none is shown as "*** NO ARG ***".
using ErrArg = std::optional<std::string_view>;
// Takes a finished line without a line end.
using ErrLogger = std::function<void(std::string_view line)>;

inline constexpr int kErrStackDepth = 32;

// The program's name in message prefixes; main sets it first, starting the
// timeplate optimizer changes it.
extern std::string PBprogramName;

// --- Message-table stack -------------------------------------------------------------

// Copies the arguments. `index` must be a row of `table`.
void PBerrPush(MessageTable table, int index, ErrArg arg1 = {}, ErrArg arg2 = {}, ErrArg arg3 = {});
// The out-of-memory forms: row = number of arguments given.
void PBerrPushMemory(ErrArg arg1 = {}, ErrArg arg2 = {}, ErrArg arg3 = {});
void PBerrClear();
int PBerrCount();
// Prints all entries, oldest first, and keeps them. An entry with a system error
// goes to standard error in the form of perror, whatever `stream` is; any other
// to the logger when there is one, else to `stream`.
void PBerrPrint(FILE* stream);
// An empty function takes the logger away.
void PBerrSetLogger(ErrLogger logger);

void PBwarnPush(MessageTable table, int index, ErrArg arg1 = {}, ErrArg arg2 = {},
                ErrArg arg3 = {});
void PBwarnClear();
int PBwarnCount();
void PBwarnPrint(FILE* stream);
void PBwarnSetLogger(ErrLogger logger);

// --- Numbered stack ------------------------------------------------------------------

// `function` is kept as a view: pass a constant text (empty for none). Returns
// the new depth.
int PBpostError(std::string_view function, int code, ErrArg extra = {});
// Removes the newest entry: its code, or -1 when there is none.
int PBpopError();
void PBdiscardErrors();
// Puts one path in the place of another in all details: for what went wrong in a copy that
// nobody knows. Paths stand there alone or behind a blank, with or without "/FILE".
void PBrenameInErrors(std::string_view path, std::string_view newPath);
// Prints and removes all entries, newest first, on standard error.
void PBflushErrors();
int PBerrorCount();
// The text of a code, or "Unknown error #%d".
std::string PBerrorText(int code);
// The line of the entry at `position` (0 is the oldest), cut to `size` - 1
// characters; empty when there is no such entry or `size` is below 1.
std::string PBformatError(int position, int size);
// The system error number of the entry at `position`; 0 for none.
int PBerrorSystemError(int position);
// Whether an entry has this function name and code; none and 0 match any.
bool PBerrorHas(ErrArg function, int code);
// As PBerrorHas, but the newest match itself: its line (at most 3,071
// characters) when `formatted`, else the first matching detail there is.
std::optional<std::string> PBerrorFind(ErrArg function, int code, bool formatted);

// --- Failed checks -------------------------------------------------------------------

using AssertHook = void (*)(const char* file, int line);
// Called at every failed internal check; the caller then exits with code 1.
// Starts as a hook that prints the message-table stack and the internal-error
// line on standard error.
extern AssertHook PBassertFail;
// The whole idiom: the hook, then exit with code 1.
[[noreturn]] void assertFail(const char* file, int line);

// --- Fatal line ----------------------------------------------------------------------

// A function to be run before a fatal exit, known by its address.
struct FatalHandler {
  void (*fn)(void* arg);
  void* arg;
};
// The pair is known by its own address and must outlive its registration.
void PBaddFatalHandler(FatalHandler* handler);
void PBremoveFatalHandler(FatalHandler* handler);
// Runs the handlers, newest first, prints the fatal line and exits with code 1.
// Returns only when handlers are already running.
void PBfatalExit(ErrArg text);
void PBsystemError(std::string_view text);
void PBuserError(std::string_view text);

// --- Abort actions -------------------------------------------------------------------

using AbortFn = void (*)(void* value);
// `fn` is called with what *place holds at the moment of the call. `place` names
// the entry and must outlive it.
void SetAbortAction(AbortFn fn, void** place);
void UnsetAbortAction(void** place);
// Calls every action, newest first, and keeps them.
void PBrunAbortActions();
// The abort actions, the numbered stack printed, exit with code 1.
[[noreturn]] void PBabort();

// --- Signals and notices -------------------------------------------------------------

using SignalFn = void (*)(int signal);
// Part of the interface without an effect: no signal is caught, a signal ends
// the process. Callers name what they would run.
void PBcatchSignal(int signal, SignalFn fn);
void PBreleaseSignal(int signal);

// Where tpNotice writes and how talkative it is; the optimizer sets both. The
// stream isn't owned.
struct NoticeSettings {
  FILE* stream = nullptr;
  int verbosity = 0;
};
extern NoticeSettings tpNoticeSettings;
// A line of the timeplate optimizer: to its report, and on the message-table
// stack unless the report is standard output. `level` is a row of tpNoticeError.
void tpNotice(int level, std::string_view text);
// The same when the verbosity is above 1.
void tpNoticeVerbose(int level, std::string_view text);
