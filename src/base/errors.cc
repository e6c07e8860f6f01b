#include "base/errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <vector>

std::string PBprogramName;
NoticeSettings tpNoticeSettings;

namespace {

constexpr const char* kNoArgument = "*** NO ARG ***";
// A line is formatted into a buffer of this many bytes, its final zero included.
constexpr std::size_t kLineBytes = 3100;
constexpr int kFoundLineLength = 3071;

// An argument is copied when it is pushed; none stands for the constant.
using OwnedArg = std::optional<std::string>;

OwnedArg copyArg(ErrArg arg) { return arg ? OwnedArg(std::string(*arg)) : OwnedArg(); }

// The format is a row of a message table; rows hold nothing but %s slots, and a
// row with fewer slots than arguments ignores the rest.
std::string formatRow(const char* row, const OwnedArg& arg1, const OwnedArg& arg2,
                      const OwnedArg& arg3) {
  const auto text = [](const OwnedArg& arg) { return arg ? arg->c_str() : kNoArgument; };
  std::array<char, kLineBytes> line;
  std::snprintf(line.data(), line.size(), row, text(arg1), text(arg2), text(arg3));
  return line.data();
}

void printAsPerror(const std::string& line, int savedErrno) {
  errno = savedErrno;
  std::perror(line.c_str());
}

class MessageStack {
 public:
  void push(MessageTable table, int index, ErrArg arg1, ErrArg arg2, ErrArg arg3) {
    if (entries_.size() >= kErrStackDepth) return;
    const int savedErrno = errno;
    entries_.push_back({table[static_cast<std::size_t>(index)], copyArg(arg1), copyArg(arg2),
                        copyArg(arg3), savedErrno});
    errno = 0;
  }

  void clear() {
    entries_.clear();
    errno = 0;
  }

  int count() const { return static_cast<int>(entries_.size()); }

  void print(FILE* stream) const {
    for (const Entry& entry : entries_) {
      const std::string line = formatRow(entry.row, entry.arg1, entry.arg2, entry.arg3);
      if (entry.savedErrno != 0) {
        printAsPerror(line, entry.savedErrno);
      } else if (logger_) {
        logger_(line);
      } else {
        std::fprintf(stream, "%s\n", line.c_str());
      }
    }
    errno = 0;
  }

  void setLogger(ErrLogger logger) { logger_ = std::move(logger); }

 private:
  struct Entry {
    const char* row;
    OwnedArg arg1, arg2, arg3;
    int savedErrno;
  };
  std::vector<Entry> entries_;
  ErrLogger logger_;
};

struct NumberedEntry {
  std::string_view function;
  int code;
  int savedErrno;
  OwnedArg extra;
};

struct AbortAction {
  AbortFn fn;
  void** place;
};

// The module's process-wide state: filled by the functions of the header, empty
// at the start, never destroyed before the exit.
struct ErrorState {
  MessageStack messages;
  MessageStack warnings;
  std::vector<NumberedEntry> numbered;
  std::vector<FatalHandler*> fatalHandlers;
  bool runningFatalHandlers = false;
  std::vector<AbortAction> abortActions;
};

// Made at the first use and left alive, so that errors can be told until the
// very end of the process.
ErrorState& state() {
  static ErrorState& instance = *std::make_unique<ErrorState>().release();
  return instance;
}

std::string numberedLine(const NumberedEntry& entry) {
  std::string line;
  if (!entry.function.empty()) line.append(entry.function).append(": ");
  const std::string text = PBerrorText(entry.code);
  line += text;
  if (entry.extra) {
    if (!text.empty()) line += ": ";
    line += *entry.extra;
  }
  return line;
}

bool matches(const NumberedEntry& entry, ErrArg function, int code) {
  return (!function || entry.function == *function) && (code == 0 || entry.code == code);
}

void printAssertFailure(const char* /*file*/, int /*line*/) {
  PBerrPrint(stderr);
  std::fputs("Internal Error. Save input files and contact KORVANE representative.\n", stderr);
}

void fatalWithLabel(const char* label, std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  PBfatalExit(std::string("\n  (").append(label).append(") ").append(text));
}

void doNotice(int level, std::string_view text) {
  if (level < 0 || level > 8) {
    level = 1;
    text = "bad error ID";
  }
  FILE* stream = tpNoticeSettings.stream;
  if (stream != nullptr) {
    const std::string line = formatRow(tpNoticeError[static_cast<std::size_t>(level)],
                                       PBprogramName, std::string(text), OwnedArg());
    std::fprintf(stream, "\n%s\n", line.c_str());
  }
  if (stream != stdout) {
    errno = 0;
    PBerrPush(tpNoticeError, level, PBprogramName, text);
  }
}

}  // namespace

// --- Message-table and warning stacks ------------------------------------------------

void PBerrPush(MessageTable table, int index, ErrArg arg1, ErrArg arg2, ErrArg arg3) {
  state().messages.push(table, index, arg1, arg2, arg3);
}

void PBerrPushMemory(ErrArg arg1, ErrArg arg2, ErrArg arg3) {
  const int count = arg3 ? 3 : arg2 ? 2 : arg1 ? 1 : 0;
  PBerrPush(PBmemoryError, count, arg1, arg2, arg3);
}

void PBerrClear() { state().messages.clear(); }
int PBerrCount() { return state().messages.count(); }
void PBerrPrint(FILE* stream) { state().messages.print(stream); }
void PBerrSetLogger(ErrLogger logger) { state().messages.setLogger(std::move(logger)); }

void PBwarnPush(MessageTable table, int index, ErrArg arg1, ErrArg arg2, ErrArg arg3) {
  state().warnings.push(table, index, arg1, arg2, arg3);
}

void PBwarnClear() { state().warnings.clear(); }
int PBwarnCount() { return state().warnings.count(); }
void PBwarnPrint(FILE* stream) { state().warnings.print(stream); }
void PBwarnSetLogger(ErrLogger logger) { state().warnings.setLogger(std::move(logger)); }

// --- Numbered stack ------------------------------------------------------------------

int PBpostError(std::string_view function, int code, ErrArg extra) {
  const int savedErrno = errno;
  std::vector<NumberedEntry>& entries = state().numbered;
  if (entries.size() < kErrStackDepth) {
    entries.push_back({function, code, savedErrno, copyArg(extra)});
    errno = 0;
  }
  return static_cast<int>(entries.size());
}

int PBpopError() {
  std::vector<NumberedEntry>& entries = state().numbered;
  int code = -1;
  if (!entries.empty()) {
    code = entries.back().code;
    entries.pop_back();
  }
  errno = 0;
  return code;
}

void PBdiscardErrors() {
  state().numbered.clear();
  errno = 0;
}

void PBrenameInErrors(std::string_view path, std::string_view newPath) {
  for (NumberedEntry& entry : state().numbered) {
    if (!entry.extra) continue;
    std::string& text = *entry.extra;
    const std::size_t at = text.find(path);
    if (at == std::string::npos || (at > 0 && text[at - 1] != ' ')) continue;
    const std::size_t end = at + path.size();
    if (end == text.size() || text[end] == '/') text.replace(at, path.size(), newPath);
  }
}

void PBflushErrors() {
  std::vector<NumberedEntry>& entries = state().numbered;
  for (; !entries.empty(); entries.pop_back()) {
    const std::string line = numberedLine(entries.back());
    if (entries.back().savedErrno != 0) {
      printAsPerror(line, entries.back().savedErrno);
    } else {
      std::fprintf(stderr, "%s\n", line.c_str());
    }
    std::fflush(stderr);
  }
  errno = 0;
}

int PBerrorCount() { return static_cast<int>(state().numbered.size()); }

std::string PBerrorText(int code) {
  if (code < 0 || static_cast<std::size_t>(code) >= PBnumberedError.size()) {
    return "Unknown error #" + std::to_string(code);
  }
  return PBnumberedError[static_cast<std::size_t>(code)];
}

std::string PBformatError(int position, int size) {
  if (size < 1 || position < 0 || position >= PBerrorCount()) return {};
  return numberedLine(state().numbered[static_cast<std::size_t>(position)])
      .substr(0, static_cast<std::size_t>(size - 1));
}

int PBerrorSystemError(int position) {
  if (position < 0 || position >= PBerrorCount()) return 0;
  return state().numbered[static_cast<std::size_t>(position)].savedErrno;
}

bool PBerrorHas(ErrArg function, int code) {
  return std::ranges::any_of(
      state().numbered, [&](const NumberedEntry& entry) { return matches(entry, function, code); });
}

std::optional<std::string> PBerrorFind(ErrArg function, int code, bool formatted) {
  const std::vector<NumberedEntry>& entries = state().numbered;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    if (!matches(*entry, function, code)) continue;
    if (formatted) return numberedLine(*entry).substr(0, kFoundLineLength);
    if (entry->extra) return *entry->extra;
  }
  return std::nullopt;
}

// --- Failed checks -------------------------------------------------------------------

AssertHook PBassertFail = printAssertFailure;

void assertFail(const char* file, int line) {
  PBassertFail(file, line);
  std::exit(1);
}

// --- Fatal line ----------------------------------------------------------------------

void PBaddFatalHandler(FatalHandler* handler) {
  if (state().runningFatalHandlers) return;
  PBremoveFatalHandler(handler);
  if (state().fatalHandlers.size() >= kErrStackDepth) {
    std::fflush(stdout);
    std::fputs("Error detected within error package: ", stderr);
    std::fputs("error hander stack overflow -- too many handlers\n", stderr);
    std::exit(1);
  }
  state().fatalHandlers.push_back(handler);
}

void PBremoveFatalHandler(FatalHandler* handler) {
  if (state().runningFatalHandlers) return;
  std::erase(state().fatalHandlers, handler);
}

void PBfatalExit(ErrArg text) {
  ErrorState& errors = state();
  if (errors.runningFatalHandlers) return;
  errors.runningFatalHandlers = true;
  while (!errors.fatalHandlers.empty()) {
    const FatalHandler* handler = errors.fatalHandlers.back();
    errors.fatalHandlers.pop_back();
    handler->fn(handler->arg);
  }
  errors.runningFatalHandlers = false;
  std::fflush(stdout);
  if (!text) {
    std::fputs("Error encountered.  Exiting.\n", stderr);
  } else {
    std::string line = PBprogramName.empty() ? "Error encountered: "
                                             : "Error encountered in " + PBprogramName + ": ";
    line += *text;
    if (!text->ends_with('\n')) line += '\n';
    line += "  Exiting.\n";
    std::fputs(line.c_str(), stderr);
  }
  std::fflush(stderr);
  std::exit(1);
}

void PBsystemError(std::string_view text) { fatalWithLabel("system error", text); }
void PBuserError(std::string_view text) { fatalWithLabel("user error", text); }

// --- Abort actions -------------------------------------------------------------------

void SetAbortAction(AbortFn fn, void** place) { state().abortActions.push_back({fn, place}); }

void UnsetAbortAction(void** place) {
  std::vector<AbortAction>& actions = state().abortActions;
  if (actions.empty()) {
    PBpostError("UnsetAbortAction", 0, "Delete from empty stack");
    return;
  }
  const auto newest =
      std::find_if(actions.rbegin(), actions.rend(),
                   [&](const AbortAction& action) { return action.place == place; });
  if (newest == actions.rend()) {
    PBpostError("UnsetAbortAction", 0, "Item not found on stack");
    return;
  }
  actions.erase(std::next(newest).base());
}

void PBrunAbortActions() {
  const std::vector<AbortAction>& actions = state().abortActions;
  for (auto action = actions.rbegin(); action != actions.rend(); ++action) {
    action->fn(*action->place);
  }
}

void PBabort() {
  PBrunAbortActions();
  PBflushErrors();
  std::exit(1);
}

// --- Signals and notices -------------------------------------------------------------

void PBcatchSignal(int /*signal*/, SignalFn /*fn*/) {}
void PBreleaseSignal(int /*signal*/) {}

void tpNotice(int level, std::string_view text) { doNotice(level, text); }

void tpNoticeVerbose(int level, std::string_view text) {
  if (tpNoticeSettings.verbosity > 1) doNotice(level, text);
}
