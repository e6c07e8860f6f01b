#include "tools/message.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/errors.h"
#include "tools/tool_progress.h"

namespace {

ColorMode messageColor = ColorMode::automatic;

// The longest source line shown; longer ones are shown around the caret.
constexpr std::size_t kMaxSourceLine = 120;
constexpr std::size_t kBeforeCaret = 60;
// The longest text shown; names may be of any length.
constexpr std::size_t kMaxText = 1000;

struct SeverityWord {
  std::string_view word;
  std::string_view color;
};
constexpr std::array<SeverityWord, 3> kSeverities = {{
    {"error", "\x1b[1;31m"},
    {"warning", "\x1b[1;35m"},
    {"note", "\x1b[1;36m"},
}};
constexpr std::string_view kPlainColor = "\x1b[0m";

std::string placeText(const Message& message) {
  std::string place = message.file;
  if (message.line > 0) place += fmt::format(":{}", message.line);
  if (message.column > 0) place += fmt::format(":{}", message.column);
  if (!message.place.empty()) place += ": " + message.place;
  return place.empty() ? "pvb" : place;
}

// Tabs and other control characters would move the caret away.
std::string printable(std::string_view text) {
  std::string result(text);
  std::replace_if(
      result.begin(), result.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, ' ');
  return result;
}

std::string sourceLines(const Message& message) {
  if (message.sourceLine.empty() || message.column <= message.sourceBegin) return {};
  const std::size_t caret =
      std::min(message.column - 1 - message.sourceBegin, message.sourceLine.size());
  std::size_t begin = 0;
  if (message.sourceLine.size() > kMaxSourceLine && caret > kBeforeCaret) {
    begin = caret - kBeforeCaret;
  }
  const std::string_view shown = std::string_view(message.sourceLine).substr(begin, kMaxSourceLine);
  return fmt::format("  {}\n  {}^\n", printable(shown), std::string(caret - begin, ' '));
}

std::string shownText(const std::string& text) {
  const std::string shown = printable(std::string_view(text).substr(0, kMaxText));
  return text.size() > kMaxText ? shown + "..." : shown;
}

}  // namespace

const MessageRow* messageRow(int code) {
  const auto table = messageTable();
  const auto row = std::find_if(table.begin(), table.end(),
                                [code](const MessageRow& entry) { return entry.code == code; });
  return row != table.end() ? &*row : nullptr;
}

std::string messageCodeText(int code) { return fmt::format("PVB{:04}", code); }

bool usesColor(ColorMode mode, FILE* stream) {
  if (mode != ColorMode::automatic) return mode == ColorMode::always;
  const char* noColor = std::getenv("NO_COLOR");
  if (noColor != nullptr && *noColor != '\0') return false;
  const int savedErrno = errno;
  const bool terminal = isatty(fileno(stream)) == 1;
  errno = savedErrno;
  return terminal;
}

std::string formatMessage(const Message& message, bool color) {
  const SeverityWord& severity = kSeverities[static_cast<std::size_t>(message.severity)];
  std::string text = fmt::format(
      "{}: {}{}{}: {} [{}]\n", placeText(message), color ? severity.color : "", severity.word,
      color ? kPlainColor : "", shownText(message.text), messageCodeText(message.code));
  text += sourceLines(message);
  const MessageRow* row = messageRow(message.code);
  if (row != nullptr && message.showsRemedy) text += fmt::format("  {}\n", row->remedy);
  return text;
}

void printMessage(const Message& message) {
  clearProgress();
  const std::string text = formatMessage(message, usesColor(messageColor, stderr));
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void setMessageColor(ColorMode mode) { messageColor = mode; }

namespace {

std::string postedReason(int position) {
  constexpr int kLongestReason = 512;
  const int systemError = PBerrorSystemError(position);
  std::string reason = PBformatError(position, kLongestReason);
  return systemError == 0 ? reason : fmt::format("{}: {}", reason, std::strerror(systemError));
}

}  // namespace

std::string takePostedReasons() {
  std::string reasons;
  std::string last;
  for (int i = PBerrorCount() - 1; i >= 0; --i) {
    std::string reason = postedReason(i);
    if (reason == last) continue;
    if (!reasons.empty()) reasons += "; ";
    reasons += reason;
    last = std::move(reason);
  }
  PBdiscardErrors();
  while (!reasons.empty() && reasons.back() == '\n') reasons.pop_back();
  return reasons;
}

Message errorMessage(MessageCode code, std::string text, std::string file) {
  Message message;
  message.code = code;
  message.text = std::move(text);
  message.file = std::move(file);
  return message;
}

Message failureMessage(MessageCode code, std::string text, std::string file) {
  const std::string reasons = takePostedReasons();
  if (!reasons.empty()) text += ": " + reasons;
  return errorMessage(code, std::move(text), std::move(file));
}
