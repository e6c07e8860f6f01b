#include "tools/stil_scanner.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>

namespace {

// What a byte is where a token may begin. The kinds of bytes that are a token of their
// own have the token's kind.
enum class ByteKind : std::uint8_t { blank, line, word, slash, quote, apostrophe, mark, control };

// Where a search ends, a bit each. All end at a zero byte.
constexpr std::uint8_t kEndsWord = 1;
constexpr std::uint8_t kEndsString = 2;
constexpr std::uint8_t kEndsExpression = 4;
constexpr std::uint8_t kEndsRemark = 8;  // what ends at a star: comments and annotations
constexpr std::uint8_t kEndsLine = 16;
constexpr std::uint8_t kEndsSkip = 32;  // of what no skipped block needs to see

constexpr bool isControl(unsigned char c) {
  const bool blank = c == ' ' || (c >= '\t' && c <= '\r');
  return (c < ' ' && !blank) || c == 0x7F;
}

constexpr ByteKind kindOf(unsigned char c) {
  if (isControl(c)) return ByteKind::control;
  if (c == '\n') return ByteKind::line;
  if (c <= ' ') return ByteKind::blank;
  if (c == '/') return ByteKind::slash;
  if (c == '"') return ByteKind::quote;
  if (c == '\'') return ByteKind::apostrophe;
  const bool mark = c == '{' || c == '}' || c == ';' || c == '=' || c == ':';
  return mark ? ByteKind::mark : ByteKind::word;
}

constexpr std::uint8_t stopsOf(unsigned char c) {
  const ByteKind kind = kindOf(c);
  const bool control = kind == ByteKind::control;
  const bool line = kind == ByteKind::line;
  unsigned stops = 0;
  if (kind != ByteKind::word) stops |= kEndsWord;
  if (c == '"' || line || control) stops |= kEndsString;
  if (c == '\'' || line || control) stops |= kEndsExpression;
  if (c == '*' || line || c == 0) stops |= kEndsRemark;
  if (line || c == 0) stops |= kEndsLine;
  if (c == '"' || c == '\'' || c == '/' || c == '{' || c == '}' || line || control) {
    stops |= kEndsSkip;
  }
  return static_cast<std::uint8_t>(stops);
}

template <typename T, T (*kRule)(unsigned char)>
constexpr std::array<T, 256> byteTable() {
  std::array<T, 256> table{};
  for (std::size_t c = 0; c < table.size(); ++c) table[c] = kRule(static_cast<unsigned char>(c));
  return table;
}
constexpr std::array<ByteKind, 256> kKinds = byteTable<ByteKind, kindOf>();
constexpr std::array<std::uint8_t, 256> kStopBits = byteTable<std::uint8_t, stopsOf>();

StilTokenKind markKind(char c) {
  switch (c) {
    case '{':
      return StilTokenKind::open;
    case '}':
      return StilTokenKind::close;
    case ';':
      return StilTokenKind::stop;
    case '=':
      return StilTokenKind::equals;
    default:
      return StilTokenKind::colon;
  }
}

// As it is said where one of them has no end.
constexpr std::string_view kString = "the name in quotes";
constexpr std::string_view kExpression = "the expression";
constexpr std::string_view kAnnotation = "the annotation";
constexpr std::string_view kComment = "the comment";

// Bytes of a line that are shown in front of a place and from it on.
constexpr std::size_t kShown = 100;

}  // namespace

std::string_view stilTokenText(StilTokenKind kind) {
  static constexpr std::array<std::string_view, 10> kTexts = {"the end of the text",
                                                              "a name",
                                                              "a name in quotes",
                                                              "an expression",
                                                              "an annotation",
                                                              "'{'",
                                                              "'}'",
                                                              "';'",
                                                              "'='",
                                                              "':'"};
  return kTexts[static_cast<std::size_t>(kind)];
}

StilScanner::StilScanner(std::unique_ptr<ByteSource> source, MessageSink sink,
                         std::size_t pieceSize)
    : source_(std::move(source)), sink_(std::move(sink)), pieceSize_(pieceSize), buffer_(1) {}

// --- Messages ------------------------------------------------------------------------

StilPlace StilScanner::here() const {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  const std::uint64_t column = std::min(offset() - lineStart_ + 1, kMost);
  return {offset(), line_, static_cast<std::uint32_t>(column)};
}

// What is at hand of the line around a place; `begin` is how much of the line isn't
// there in front.
std::string StilScanner::sourceLine(const StilPlace& place, std::size_t& begin) const {
  if (place.offset < bufferOffset_ || place.offset > bufferOffset_ + end_) return {};
  const auto at = static_cast<std::size_t>(place.offset - bufferOffset_);
  const std::size_t before = std::min({kShown, at, std::size_t{place.column} - 1});
  const std::string_view text(buffer_.data(), end_);
  std::string_view line = text.substr(at - before, before + kShown);
  line = line.substr(0, line.find('\n', before));
  if (line.ends_with('\r')) line.remove_suffix(1);
  begin = std::size_t{place.column} - 1 - before;
  return std::string(line);
}

void StilScanner::tell(Severity severity, const StilPlace& place, MessageCode code,
                       std::string text) const {
  Message message;
  message.severity = severity;
  message.code = code;
  message.text = std::move(text);
  message.file = name();
  message.line = place.line;
  message.column = place.column;
  message.sourceLine = sourceLine(place, message.sourceBegin);
  sink_(message);
}

bool StilScanner::fail(MessageCode code, std::string text) {
  return failAt(token_.place, code, std::move(text));
}

bool StilScanner::failAt(const StilPlace& place, MessageCode code, std::string text) {
  if (!failed_) tell(Severity::error, place, code, std::move(text));
  failed_ = true;
  return false;
}

void StilScanner::warnAt(const StilPlace& place, MessageCode code, std::string text) {
  if (!failed_) tell(Severity::warning, place, code, std::move(text));
}

bool StilScanner::failUnended(const StilPlace& begin, std::string_view what) {
  return failAt(begin, kStilUnended, fmt::format("{} that begins here has no end", what));
}

// Only a token that is kept grows, so it is the current one.
bool StilScanner::failLong() {
  return failAt(token_.place, kStilTooLong,
                fmt::format("a name, text or data of more than {} bytes", kLongestToken));
}

bool StilScanner::failByte() {
  const unsigned value = static_cast<unsigned char>(byte());
  return failAt(here(), kStilSyntax,
                value == 0 ? std::string("a zero byte: this isn't a text")
                           : fmt::format("a control character, 0x{:02X}", value));
}

// --- The buffer ----------------------------------------------------------------------

// Reads more behind what is there, from start_ on; false at the end of the text and
// after a failure.
bool StilScanner::fill() {
  if (failed_ || ended_) return false;
  if (end_ - start_ > kLongestToken) return failLong();
  // A source that gives little at a time must not have all moved each time.
  if (buffer_.size() - end_ - 1 < (pieceSize_ + 1) / 2) makeRoom();
  const std::size_t room = std::min(buffer_.size() - end_ - 1, pieceSize_);
  const std::ptrdiff_t got = source_->read(buffer_.data() + end_, room);
  if (got > 0) end_ += static_cast<std::size_t>(got);
  buffer_[end_] = '\0';
  if (got < 0) {
    return failAt(here(), kCantRead, "the text can't be read: " + source_->reason());
  }
  ended_ = got == 0;
  return !ended_;
}

// Moves what is kept to the front, with a bit of the line for messages. There is room
// behind it for as much again, so that the bytes of a long token move a few times only.
void StilScanner::makeRoom() {
  const std::size_t from = start_ - std::min(start_, kShown);
  const std::size_t kept = end_ - from;
  const std::size_t wanted = 2 * kept + pieceSize_ + 1;
  const auto begin = buffer_.begin() + static_cast<std::ptrdiff_t>(from);
  if (buffer_.size() < wanted || buffer_.size() / 4 > wanted) {
    std::vector<char> other(wanted + kShown);
    std::copy_n(begin, kept, other.begin());
    buffer_.swap(other);
  } else {
    std::copy_n(begin, kept, buffer_.begin());
  }
  bufferOffset_ += from;
  start_ -= from;
  at_ -= from;
  end_ = kept;
}

void StilScanner::passMark() {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  const auto read = [this] { return std::string_view(buffer_.data(), end_); };
  while (end_ < kMark.size() && kMark.starts_with(read()) && fill()) {
  }
  if (!read().starts_with(kMark)) return;
  start_ = at_ = kMark.size();
  lineStart_ = at_;
}

// Whether the byte behind the next one is `second`.
bool StilScanner::secondIs(char second) {
  while (at_ + 1 >= end_ && fill()) {
  }
  return at_ + 1 < end_ && buffer_[at_ + 1] == second;
}

// --- Passing over ----------------------------------------------------------------------

void StilScanner::newLine() {
  ++at_;
  ++line_;
  lineStart_ = offset();
}

template <std::uint8_t kStops>
void StilScanner::passUntil() {
  const auto stops = [](char c) {
    return (kStopBits[static_cast<unsigned char>(c)] & kStops) != 0;
  };
  const char* next = buffer_.data() + at_;
  while (!stops(*next)) ++next;
  at_ = static_cast<std::size_t>(next - buffer_.data());
}

// A byte that ends a search, but doesn't belong to what is passed over: the end of the
// buffer, and all goes on; the end of the text or a control character, and it fails.
bool StilScanner::passOdd(bool keep, const StilPlace& begin, std::string_view what) {
  if (at_ < end_) return failByte();
  if (!keep) start_ = at_;
  if (fill()) return true;
  return !failed_ && failUnended(begin, what);
}

template <std::uint8_t kStops>
bool StilScanner::passQuoted(bool keep, std::string_view what) {
  const StilPlace begin = here();
  const char quote = byte();
  ++at_;
  for (;;) {
    passUntil<kStops>();
    if (byte() == quote) {
      ++at_;
      return true;
    }
    if (byte() == '\n') {
      newLine();
    } else if (!passOdd(keep, begin, what)) {
      return false;
    }
  }
}

// From the first of two characters to behind a star and `end`.
bool StilScanner::passToStar(char end, bool keep, std::string_view what) {
  const StilPlace begin = here();
  at_ += 2;
  for (;;) {
    passUntil<kEndsRemark>();
    if (byte() == '*') {
      if (!keep) start_ = at_;
      const bool found = secondIs(end);
      at_ += found ? 2 : 1;
      if (found) return true;
    } else if (byte() == '\n') {
      newLine();
    } else if (!passOdd(keep, begin, what)) {
      return false;
    }
  }
}

bool StilScanner::passLineComment() {
  for (;;) {
    passUntil<kEndsLine>();
    if (byte() == '\n') return true;
    if (at_ < end_) return failByte();
    start_ = at_;
    if (!fill()) return !failed_;
  }
}

bool StilScanner::passBlockComment() { return passToStar('/', false, kComment); }

// To the first byte of a token; false at the end of the text and after a failure.
bool StilScanner::passSpace() {
  for (;;) {
    switch (kKinds[static_cast<unsigned char>(byte())]) {
      case ByteKind::blank:
        ++at_;
        break;
      case ByteKind::line:
        newLine();
        break;
      case ByteKind::slash:
        start_ = at_;
        if (secondIs('/')) {
          if (!passLineComment()) return false;
        } else if (secondIs('*')) {
          if (!passBlockComment()) return false;
        } else {
          return !failed_;
        }
        break;
      case ByteKind::control:
        if (at_ < end_) return failByte();
        start_ = at_;
        if (!fill()) return false;
        if (offset() == 0) passMark();
        break;
      default:
        return true;
    }
  }
}

bool StilScanner::passWord() {
  for (;;) {
    passUntil<kEndsWord>();
    if (byte() == '/') {
      if (secondIs('/') || secondIs('*')) return true;
      ++at_;
    } else if (at_ < end_ || !fill()) {
      return !failed_;
    }
  }
}

// --- Tokens --------------------------------------------------------------------------

// The token goes from start_ to at_, but for some bytes before and behind its text.
void StilScanner::take(StilTokenKind kind, bool good, std::size_t before, std::size_t behind) {
  if (good && at_ - start_ > kLongestToken) good = failLong();
  token_.kind = good ? kind : StilTokenKind::end;
  token_.text = {};
  if (good) token_.text = {buffer_.data() + start_ + before, at_ - start_ - before - behind};
}

const StilToken& StilScanner::next() {
  const std::uint64_t behind = offset();
  const bool more = !failed_ && passSpace();
  token_.joined = behind == offset() && behind != 0;
  token_.place = here();
  start_ = at_;
  if (!more) {
    take(StilTokenKind::end, false, 0, 0);
    return token_;
  }
  switch (kKinds[static_cast<unsigned char>(byte())]) {
    case ByteKind::quote:
      take(StilTokenKind::string, passQuoted<kEndsString>(true, kString), 1, 1);
      break;
    case ByteKind::apostrophe:
      take(StilTokenKind::expression, passQuoted<kEndsExpression>(true, kExpression), 1, 1);
      break;
    case ByteKind::mark:
      if (byte() == '{' && secondIs('*')) {
        take(StilTokenKind::annotation, passToStar('}', true, kAnnotation), 2, 2);
        break;
      }
      ++at_;
      take(markKind(buffer_[start_]), !failed_, 0, 0);
      break;
    default:
      take(StilTokenKind::word, passWord(), 0, 0);
  }
  return token_;
}

// Passes over the next thing in a block that isn't a plain byte. False after a failure.
bool StilScanner::passInBlock(std::uint64_t& depth) {
  start_ = at_;
  switch (byte()) {
    case '\n':
      newLine();
      return true;
    case '"':
      return passQuoted<kEndsString>(false, kString);
    case '\'':
      return passQuoted<kEndsExpression>(false, kExpression);
    case '/':
      if (secondIs('/')) return passLineComment();
      if (secondIs('*')) return passBlockComment();
      ++at_;
      return !failed_;
    case '{':
      if (secondIs('*')) return passToStar('}', false, kAnnotation);
      ++depth;
      ++at_;
      return !failed_;
    case '}':
      --depth;
      ++at_;
      return true;
    default:
      return failByte();
  }
}

bool StilScanner::skipBlock() {
  const StilPlace brace = token_.place;
  std::uint64_t depth = 1;
  while (depth > 0 && !failed_) {
    passUntil<kEndsSkip>();
    start_ = at_;
    if (at_ < end_) {
      passInBlock(depth);
    } else if (!fill() && !failed_) {
      failUnended(brace, "the block");
    }
  }
  if (!failed_) --at_;
  next();
  token_.joined = false;
  return !failed_;
}

bool StilScanner::seek(const StilPlace& place) {
  if (failed_) return false;
  if (place.offset >= bufferOffset_ && place.offset <= bufferOffset_ + end_) {
    at_ = static_cast<std::size_t>(place.offset - bufferOffset_);
  } else if (source_->seek(place.offset)) {
    bufferOffset_ = place.offset;
    at_ = end_ = 0;
    buffer_[0] = '\0';
    ended_ = false;
  } else {
    return failAt(place, kCantRead, "the text can't be read again: " + source_->reason());
  }
  start_ = at_;
  line_ = place.line;
  lineStart_ = place.offset - std::min<std::uint64_t>(place.offset, place.column - 1);
  next();
  token_.joined = false;
  return !failed_;
}
