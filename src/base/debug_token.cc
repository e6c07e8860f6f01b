#include "base/debug_token.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "base/errors.h"
#include "base/hash.h"
#include "base/platform.h"
#include "base/srf.h"
#include "base/text.h"
#include "base/text_file.h"

namespace {

constexpr int kBuckets = 64;
constexpr std::string_view kNoValue = "null";
constexpr std::string_view kNoDescription = "<nil>";
constexpr std::string_view kTrue = "true";
constexpr std::string_view kFilePathToken = "write_to_file_path";
constexpr std::string_view kBreakPointToken = "debug_break_point_token";
constexpr std::string_view kOrderToken = "debug.token_order";

// --- Reserved tokens -----------------------------------------------------------------

// The tokens that are asked for by flag; positions in kFlagTokens.
enum Flag : std::uint8_t {
  kAlways,
  kNever,
  kStdout,
  kStderr,
  kWriteToFile,
  kDisplay,
  kMutex,
  kLineNumbers,
  kTokenPrefix,
  kAssert,
  kProblem,
  kTodo,
  kSaveTokens,
  kFlagCount
};
constexpr std::array<std::string_view, kFlagCount> kFlagTokens = {"always",
                                                                  "never",
                                                                  "stdout",
                                                                  "stderr",
                                                                  "write_to_file",
                                                                  "debug_token_display",
                                                                  "debug.mutex",
                                                                  "debug.prefix.line_numbers",
                                                                  "debug.prefix.tokens",
                                                                  "assert",
                                                                  "problem",
                                                                  "todo",
                                                                  "savetokens"};

std::optional<std::string_view> forcedValue(std::string_view token) {
  if (token == kFlagTokens[kAlways]) return kTrue;
  if (token == kFlagTokens[kNever]) return "false";
  return std::nullopt;
}

// --- The table -----------------------------------------------------------------------

int compareTokens(const void* probe, const void* member) {
  return static_cast<const DebugToken*>(probe)->token ==
                 static_cast<const DebugToken*>(member)->token
             ? 0
             : 1;
}
int hashToken(const void* member) {
  return PBstrHash(static_cast<const DebugToken*>(member)->token);
}

std::optional<std::string> ownedText(std::optional<std::string_view> text) {
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

// Tokens by name. They are never removed, so their addresses stay good.
class Table {
 public:
  DebugToken* find(std::string_view token) {
    probe_.token = token;
    return index_.find(probe_);
  }
  DebugToken& findOrAdd(std::string_view token) {
    if (DebugToken* known = find(token)) return *known;
    DebugToken& added = *tokens_.emplace_back(std::make_unique<DebugToken>());
    added.token = token;
    added.value = ownedText(forcedValue(token));
    if (index_.insert(&added) != 0) PBsystemError("no memory for debug tokens");
    return added;
  }
  void setValue(DebugToken& token, std::optional<std::string_view> value) {
    const std::optional<std::string_view> forced = forcedValue(token.token);
    token.value = ownedText(forced ? forced : value);
    token.isDefault = token.hasDefault && token.value == token.defaultValue;
  }
  std::vector<DebugToken> inHashOrder() const {
    std::vector<DebugToken> all;
    index_.forEach([&](const DebugToken& token) { all.push_back(token); });
    return all;
  }
  // In the order in which they came into the table.
  std::vector<DebugToken> inDefaultOrder() const {
    std::vector<DebugToken> all;
    for (const auto& token : tokens_) all.push_back(*token);
    return all;
  }

 private:
  std::vector<std::unique_ptr<DebugToken>> tokens_;
  HashTable<DebugToken> index_{kBuckets, compareTokens, hashToken};
  DebugToken probe_;
};

// The module's process-wide state. The table and all that is read from it live
// from one DebugTokenLoad to the next; the functions until replaced.
struct DebugState {
  std::unique_ptr<Table> table;
  std::string tokenFile = kDebugTokenFile;
  // What the table says of the reserved tokens, so that the frequent questions
  // need no look-up.
  std::array<bool, kFlagCount> flags = {true};  // "always" needs no table
  std::string breakPointToken;                  // empty for none
  std::string outputPath;
  StreamPtr output;  // of write_to_file

  bool suspended = false;
  int lineNumber = 0;
  std::function<void(std::string_view)> logger;
  std::function<bool(std::string_view)> enabler;
  std::function<void(std::string_view)> breakPoint;
  DebugLockStep lock;
  DebugLockStep unlock;
};

// Made at the first use and left alive, so that output works until the very end.
DebugState& state() {
  static DebugState& instance = *std::make_unique<DebugState>().release();
  return instance;
}

// --- Output --------------------------------------------------------------------------

void putOn(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

void printOnStreams(std::string_view text) {
  const DebugState& debug = state();
  const bool toStderr = debug.flags[kStderr] || (!debug.flags[kStdout] && !debug.output);
  if (debug.flags[kStdout]) putOn(stdout, text);
  if (toStderr) putOn(stderr, text);
  if (debug.output) putOn(debug.output.get(), text);
}

void print(std::string_view text) {
  if (state().suspended) return;
  if (state().logger) {
    state().logger(text);
  } else {
    printOnStreams(text);
  }
}

// --- The lock ------------------------------------------------------------------------

// Holds the table's lock for a scope, under the name of the public operation.
class TableLock {
 public:
  explicit TableLock(std::string_view function, int line = __builtin_LINE())
      : function_(function), line_(line) {
    if (!state().lock) return;
    trace("{(locking MVK#debug %s, line %d)}\n");
    state().lock(where());
    trace("{(MVK#debug %s, line %d; locked)}\n");
  }
  ~TableLock() {
    if (!state().unlock) return;
    trace("{(unlocking MVK#debug %s, line %d)}\n");
    state().unlock(where());
  }
  TableLock(const TableLock&) = delete;
  TableLock& operator=(const TableLock&) = delete;

 private:
  std::string where() const { return std::string(function_) + ":" + std::to_string(line_); }
  void trace(const char* format) const {
    if (state().flags[kMutex] && !state().suspended)
      printOnStreams(fmt::sprintf(format, function_, line_));
  }

  std::string_view function_;
  int line_;
};

// --- Refreshing ----------------------------------------------------------------------

std::optional<std::string> valueInTable(std::string_view token) {
  const DebugToken* known = state().table ? state().table->find(token) : nullptr;
  return known != nullptr ? known->value : std::nullopt;
}

// Opens or closes the output file after a change of its tokens.
void refreshOutput() {
  DebugState& debug = state();
  const std::string path =
      debug.flags[kWriteToFile] ? valueInTable(kFilePathToken).value_or("") : "";
  if (path == debug.outputPath) return;
  debug.output = nullptr;
  debug.outputPath = path;
  if (path.empty()) return;
  debug.output = openStream(path, "w");
  if (!debug.output) PBpostError("DebugTokenSetValue", 81, path);
}

void refreshReserved() {
  DebugState& debug = state();
  for (std::size_t flag = 0; flag < kFlagCount; ++flag) {
    debug.flags[flag] = valueInTable(kFlagTokens[flag]) == kTrue;
  }
  debug.flags[kAlways] = true;
  debug.breakPointToken = valueInTable(kBreakPointToken).value_or("");
  refreshOutput();
}

bool isReserved(std::string_view token) {
  return token == kBreakPointToken || token == kFilePathToken ||
         std::ranges::find(kFlagTokens, token) != kFlagTokens.end();
}

// --- Loading -------------------------------------------------------------------------

constexpr std::string_view kColumns[] = {"token", "value", "description"};
constexpr std::uint32_t kTokenColumn = 1;

std::optional<std::string_view> columnOf(const SRFtuple& row, std::string_view column,
                                         std::string_view none) {
  const std::optional<std::string_view> text = SRF_get(row, column);
  return text == none ? std::nullopt : text;
}

bool takeDefault(const SRFtuple& row, std::uint32_t) {
  DebugToken& token = state().table->findOrAdd(*SRF_get(row, kColumns[0]));
  const std::optional<std::string_view> value = columnOf(row, kColumns[1], kNoValue);
  token.description = SRF_get(row, kColumns[2]).value_or("");
  token.hasDefault = true;
  const std::optional<std::string_view> forced = forcedValue(token.token);
  token.defaultValue = ownedText(forced ? forced : value);
  state().table->setValue(token, value);
  return true;
}

bool takeSetting(const SRFtuple& row, std::uint32_t) {
  DebugToken& token = state().table->findOrAdd(*SRF_get(row, kColumns[0]));
  state().table->setValue(token, columnOf(row, kColumns[1], kNoValue));
  if (!token.hasDefault) {
    token.description = ownedText(columnOf(row, kColumns[2], kNoDescription));
  }
  return true;
}

bool loadDefaults(std::string_view defaults) {
  const TableLock lock("DebugTokenLoad[Default]");
  state().table = std::make_unique<Table>();
  const SRFrowHandler handlers[] = {{kTokenColumn, takeDefault}};
  return SRF_parseBuffer(defaults, "[defaulttokentable]", handlers);
}

bool loadTokenFile() {
  const TableLock lock("DebugTokenLoad");
  bool sound = true;
  if (PBtextFileExists(state().tokenFile)) {
    const SRFrowHandler handlers[] = {{kTokenColumn, takeSetting}};
    sound = SRF_parseFile(state().tokenFile, handlers);
  }
  refreshReserved();
  return sound;
}

// --- Asking --------------------------------------------------------------------------

bool enabledByValue(std::string_view token) {
  const auto flag = std::ranges::find(kFlagTokens, token);
  if (flag != kFlagTokens.end()) {
    return state().flags[static_cast<std::size_t>(flag - kFlagTokens.begin())];
  }
  const TableLock lock("DebugTokenEnabled");
  return state().table && state().table->findOrAdd(token).value == kTrue;
}

// --- Writing -------------------------------------------------------------------------

constexpr std::string_view kFileHead =
    "# Debug token dump.\n"
    "#\n"
    "# A token is enabled by the value \"true\". Other values are for tokens that\n"
    "# are asked for their value; null stands for none.\n"
    "# A description of <nil> means that the token was met at run time and has no\n"
    "# default.\n"
    "# Only tokens NOT set to their default values appear in the table below.\n";

std::vector<DebugToken> tokensToWrite() {
  const TableLock lock("DebugTokenWrite");
  if (!state().table) return {};
  std::vector<DebugToken> tokens = state().table->inDefaultOrder();
  std::erase_if(tokens, [](const DebugToken& token) { return token.isDefault; });
  if (valueInTable(kOrderToken) != "default") {
    std::ranges::sort(tokens, {}, &DebugToken::token);
  }
  return tokens;
}

constexpr std::size_t kWrittenColumns = 3;
using WrittenRow = std::array<std::string, kWrittenColumns>;

WrittenRow rowOf(const DebugToken& token) {
  return {token.token, token.value.value_or(std::string(kNoValue)),
          token.description.value_or(std::string(kNoDescription))};
}

int columnWidth(const std::vector<WrittenRow>& rows, std::size_t column) {
  std::size_t width = kColumns[column].size();
  for (const WrittenRow& row : rows) width = std::max(width, row[column].size());
  constexpr std::size_t kWidest = 40;
  return static_cast<int>(std::min(width, kWidest));
}

bool writeRow(std::FILE* stream, const WrittenRow& row, std::array<int, kWrittenColumns> widths) {
  bool sound = true;
  for (std::size_t column = 0; column < kWrittenColumns; ++column) {
    if (column > 0) std::fputc(' ', stream);
    if (SRF_putString(stream, row[column], &widths[column])) continue;
    std::fputc('-', stream);
    sound = false;
  }
  std::fputc('\n', stream);
  return sound;
}

bool writeTable(std::FILE* stream, const std::vector<WrittenRow>& rows) {
  const int tokenWidth = columnWidth(rows, 0);
  const int valueWidth = columnWidth(rows, 1);
  fmt::fprintf(stream, "#%%%-*s %-*s %-s\n", tokenWidth, kColumns[0], valueWidth, kColumns[1],
               kColumns[2]);
  // The mark of the header stands before its first column.
  const std::array<int, kWrittenColumns> widths = {tokenWidth + 2, valueWidth, 0};
  bool sound = true;
  for (const WrittenRow& row : rows) sound = writeRow(stream, row, widths) && sound;
  std::fputs("#end of (token value description)\n", stream);
  return sound;
}

void printCategory(Flag category, const char* format, std::string_view text) {
  DebugPrintf(kFlagTokens[category], format, text);
}

std::string lineForm(std::string_view token, std::string_view line) {
  if (token == kFlagTokens[kAssert]) return fmt::sprintf(" !!!! (ASSERT): %s", line);
  if (token == kFlagTokens[kProblem]) return fmt::sprintf("  !?!? (PROBLEM): %s", line);
  return std::string(line);
}

void printLine(std::string_view token, std::string_view line) {
  DebugState& debug = state();
  std::string text;
  if (debug.flags[kLineNumbers]) text += fmt::sprintf("%-5d ", ++debug.lineNumber);
  if (debug.flags[kTokenPrefix]) text += fmt::sprintf("[%s] ", token);
  print(text.append(lineForm(token, line)).append("\n"));
}

}  // namespace

// --- Tokens --------------------------------------------------------------------------

bool DebugTokenLoad(std::string_view defaults, const std::optional<std::string>& tokenFile) {
  state().tokenFile = tokenFile.value_or(kDebugTokenFile);
  SRF_resetModes();
  SRF_setKeywords(kColumns);
  const bool defaultsSound = loadDefaults(defaults);
  const bool fileSound = loadTokenFile();
  return defaultsSound && fileSound;
}

bool DebugTokenEnabled(std::string_view token) {
  const DebugState& debug = state();
  const bool enabled = debug.enabler ? debug.enabler(token) : enabledByValue(token);
  if (debug.flags[kDisplay]) {
    print(fmt::sprintf("[DebugTokenEnabled] debug token '%s' %s enabled\n", token,
                       enabled ? "is" : "is not"));
  }
  if (debug.breakPoint && !token.empty() && token == debug.breakPointToken) {
    debug.breakPoint(token);
  }
  return enabled;
}

std::optional<std::string> DebugTokenValue(std::string_view token) {
  const TableLock lock("DebugTokenValue");
  return valueInTable(token);
}

std::int64_t DebugTokenValueLong(std::string_view token) {
  const std::int64_t value = std::strtoll(DebugTokenValue(token).value_or("").c_str(), nullptr, 10);
  errno = 0;
  return value;
}

double DebugTokenValueDouble(std::string_view token) {
  const double value = std::strtod(DebugTokenValue(token).value_or("").c_str(), nullptr);
  errno = 0;
  return value;
}

bool DebugTokenSetValue(std::string_view token, std::optional<std::string_view> value) {
  const TableLock lock("DebugTokenSetValue");
  Table* table = state().table.get();
  if (table == nullptr) return false;
  table->setValue(table->findOrAdd(token), value);
  if (isReserved(token)) refreshReserved();
  return true;
}

bool DebugTokenReset(std::string_view token) {
  const TableLock lock("DebugTokenReset");
  Table* table = state().table.get();
  DebugToken* known = table != nullptr ? table->find(token) : nullptr;
  if (known == nullptr) return false;
  table->setValue(*known, std::optional<std::string_view>(known->defaultValue));
  if (isReserved(token)) refreshReserved();
  return true;
}

bool DebugTokenIsDefault(std::string_view token) {
  const TableLock lock("DebugTokenIsDefault");
  const DebugToken* known = state().table ? state().table->find(token) : nullptr;
  return known != nullptr && known->isDefault;
}

std::vector<DebugToken> DebugTokenHashCopy() {
  const TableLock lock("DebugTokenHashCopy");
  return state().table ? state().table->inHashOrder() : std::vector<DebugToken>();
}

bool DebugTokenWrite(const std::string& path) {
  std::vector<WrittenRow> rows;
  for (const DebugToken& token : tokensToWrite()) rows.push_back(rowOf(token));
  StreamPtr stream = openStream(path, "w");
  if (!stream) {
    PBpostError("DebugTokenWrite", 81, path);
    return false;
  }
  std::fwrite(kFileHead.data(), 1, kFileHead.size(), stream.get());
  const bool sound = writeTable(stream.get(), rows);
  if (closeStream(std::move(stream)) == 0) return sound;
  PBpostError("DebugTokenWrite", 85, path);
  return false;
}

bool DebugTokenEndRun() {
  if (!state().flags[kSaveTokens]) return true;
  print(fmt::sprintf("** Writing token file '%s'\n", state().tokenFile));
  const bool written = DebugTokenWrite(state().tokenFile);
  print(fmt::sprintf("** Edit the file and set the %s value to \"true\" to enable debug output.\n",
                     kColumns[0]));
  return written;
}

// --- Printing ------------------------------------------------------------------------

void DebugPrefixPrint(std::string_view token, std::string_view text) {
  if (text.empty()) {
    print(fmt::sprintf("[DebugPrefixPrint] message for debug token '%s' is empty\n", token));
  }
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    printLine(token, text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void DebugAssertFailed(std::string_view text) {
  printCategory(kAssert, "ASSERT FAILURE: %s", text);
}
void DebugProblem(std::string_view text) { printCategory(kProblem, "PROBLEM: %s", text); }

void DebugPrintSuspend(bool suspended) { state().suspended = suspended; }

// --- Functions -----------------------------------------------------------------------

void DebugRegisterLogger(std::function<void(std::string_view line)> logger) {
  state().logger = std::move(logger);
}
void DebugRegisterEnabler(std::function<bool(std::string_view token)> enabler) {
  state().enabler = std::move(enabler);
}
void DebugRegisterBreakPoint(std::function<void(std::string_view token)> routine) {
  state().breakPoint = std::move(routine);
}
void DebugRegisterLock(DebugLockStep lock, DebugLockStep unlock) {
  state().lock = std::move(lock);
  state().unlock = std::move(unlock);
}
