#include "tools/dump_text.h"

#include <fmt/format.h>

#include <cerrno>

#include "base/errors.h"
#include "base/quote.h"
#include "tools/nearest.h"

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kNone = "none";
constexpr std::string_view kSubroutineClass = "sub:";

bool isBlank(char c) { return kBlanks.find(c) != std::string_view::npos; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

template <typename T>
bool wholeNumber(std::string_view text, T& out) {
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), out);
  return error == std::errc() && stop == text.data() + text.size();
}

bool parseId(std::string_view text, PVBid& out) {
  if (text == kNone) {
    out = UNDEF;
    return true;
  }
  std::uint32_t idClass = kClassSignal;
  std::uint32_t index = 0;
  if (text.starts_with(kSubroutineClass)) {
    if (!wholeNumber(text.substr(kSubroutineClass.size()), index) || index > 0x7FFFFFFE) {
      return false;
    }
    out = PVBidMake(kClassSubroutine, index);
    return true;
  }
  const std::size_t colon = text.find(':');
  if (colon != std::string_view::npos) {
    if (!wholeNumber(text.substr(0, colon), idClass) || idClass > 127) return false;
    text.remove_prefix(colon + 1);
  }
  if (!wholeNumber(text, index) || index > static_cast<std::uint32_t>(kMaxIdIndex)) return false;
  out = static_cast<PVBid>((idClass << 24) | index);
  return true;
}

bool parseTime(std::string_view text, TIME& out) {
  const std::size_t colon = text.find(':');
  if (colon != std::string_view::npos) {
    return wholeNumber(text.substr(0, colon), out.major) &&
           wholeNumber(text.substr(colon + 1), out.minor);
  }
  return parseWholeTIME(text, out);
}

}  // namespace

bool DumpScanner::nextLine() {
  while (!failed_ && file_) {
    std::string_view comment;
    const std::int64_t length = PBreadTextLine(file_.get(), line_, comment);
    if (length == -1) return false;
    if (length < 0) {
      const std::string reason = takePostedReasons();
      return failText(kCantRead, "the text can't be read: " + reason);
    }
    while (!line_.empty() && (line_.back() == '\n' || line_.back() == '\r')) line_.remove_suffix(1);
    position_ = 0;
    const char first = peek();
    if (first == 0 || first == '#') continue;
    return word(keyword_);
  }
  return false;
}

// --- Telling failures ----------------------------------------------------------------

bool DumpScanner::report(MessageCode code, std::string_view text, std::size_t column,
                         bool showLine) {
  if (failed_) return false;
  failed_ = true;
  errno = 0;
  Message message;
  message.code = code;
  message.text = text;
  message.file = name_;
  if (showLine) {
    message.line = PBgetTextLineNumber(file_.get());
    message.column = column;
    message.sourceLine = line_;
  }
  sink_(message);
  return false;
}

bool DumpScanner::fail(MessageCode code, std::string_view text) {
  return report(code, text, token_ + 1, true);
}

bool DumpScanner::failLine(MessageCode code, std::string_view text) {
  return report(code, text, line_.find_first_not_of(kBlanks) + 1, true);
}

bool DumpScanner::failColumn(MessageCode code, std::string_view text, std::size_t column) {
  return report(code, text, column, true);
}

bool DumpScanner::failText(MessageCode code, std::string_view text) {
  return report(code, text, 0, false);
}

// --- Words ---------------------------------------------------------------------------

char DumpScanner::peek() {
  while (position_ < line_.size() && isBlank(line_[position_])) ++position_;
  return position_ < line_.size() ? line_[position_] : '\0';
}

bool DumpScanner::atEnd() {
  peek();
  return position_ >= line_.size();
}

void DumpScanner::beginToken() {
  peek();
  token_ = position_;
}

std::string_view DumpScanner::tokenUpTo(std::string_view stops) {
  beginToken();
  while (position_ < line_.size() && !isBlank(line_[position_]) &&
         stops.find(line_[position_]) == std::string_view::npos) {
    ++position_;
  }
  return line_.substr(token_, position_ - token_);
}

bool DumpScanner::finish() {
  if (failed_) return false;
  beginToken();
  if (position_ == line_.size()) return true;
  return fail(kExtraText, "nothing more is expected on this line");
}

bool DumpScanner::word(std::string_view& out) {
  out = tokenUpTo("\"=|");
  return !out.empty() || fail(kExpected, "a word is expected");
}

bool DumpScanner::quoted(std::string& out) {
  beginToken();
  if (position_ >= line_.size() || line_[position_] != '"') {
    return fail(kExpected, "a text in double quotes is expected");
  }
  if (readQuoted(line_, position_, out)) return true;
  token_ = position_;
  const bool open = position_ >= line_.size();
  return fail(kBadQuoting, open ? "the text has no closing quote" : "the escape isn't known");
}

bool DumpScanner::optionalText(std::optional<std::string>& out) {
  if (peek() == '"') return quoted(out.emplace());
  out.reset();
  const std::string_view text = tokenUpTo("=");
  return text == kNone || fail(kExpected, "a text in double quotes or 'none' is expected");
}

bool DumpScanner::quotedCharacter(char& out) {
  std::string text;
  if (!quoted(text)) return false;
  if (text.size() != 1) return fail(kExpected, "one character in double quotes is expected");
  out = text.front();
  return true;
}

bool DumpScanner::id(PVBid& out) {
  const std::string_view text = tokenUpTo("=|\"");
  return parseId(text, out) || fail(kBadId, fmt::format("'{}' is no id", text));
}

bool DumpScanner::idList(PVBidList& out) {
  while (!atEnd()) {
    PVBid next = UNDEF;
    if (!id(next)) return false;
    out.push_back(next);
  }
  return !failed_;
}

bool DumpScanner::intList(PVBintList& out) {
  while (!atEnd()) {
    std::int32_t next = 0;
    if (!number(next)) return false;
    out.push_back(next);
  }
  return !failed_;
}

bool DumpScanner::time(TIME& out) {
  const std::string_view text = tokenUpTo("=|\"");
  return parseTime(text, out) || fail(kBadTime, fmt::format("'{}' is no time", text));
}

bool DumpScanner::states(std::string_view& out) {
  beginToken();
  out = {};
  if (position_ == line_.size()) return true;
  if (line_[position_] != '|') return fail(kExtraText, "states behind a bar are expected here");
  out = line_.substr(position_ + 1);
  position_ = line_.size();
  token_ += 1;
  return true;
}

bool DumpScanner::bytes(std::string_view& out) {
  out = tokenUpTo("");
  const std::size_t begin = token_;
  if (!finish()) return false;
  token_ = begin;
  return true;
}

bool DumpScanner::attribute(std::string_view& name) {
  const char first = peek();
  if (failed_ || first == 0 || first == '"' || first == '|' || isDigit(first)) return false;
  const std::size_t before = position_;
  name = tokenUpTo("=\"|");
  if (position_ < line_.size() && line_[position_] == '=') {
    ++position_;
    return true;
  }
  position_ = before;
  return false;
}

bool DumpScanner::unknownAttribute(std::string_view name, std::span<const std::string_view> known) {
  token_ = static_cast<std::size_t>(name.data() - line_.data());
  return fail(kUnknownAttribute,
              fmt::format("'{}' is no attribute here{}", name, didYouMean(name, known)));
}
