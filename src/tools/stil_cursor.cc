#include "tools/stil_cursor.h"

#include <fmt/format.h>

#include <charconv>

namespace {

// Characters of a token that a message shows.
constexpr std::size_t kShown = 40;

}  // namespace

std::uint32_t StilReferenceNumbers::number(std::string_view text, bool expression) {
  const auto first = text.empty() ? 0U : static_cast<unsigned char>(text[text.size() / 2]);
  const auto last = text.empty() ? 0U : static_cast<unsigned char>(text.back());
  Recent& recent = recent_[(text.size() + first * 5U + last * 3U) % kRecent];
  if (recent.expression == expression && !text.empty() && recent.text == text) {
    return recent.number;
  }
  auto& numbers = numbers_[expression ? 1 : 0];
  const auto known = numbers.find(text);
  recent.number = known != numbers.end() ? known->second : count_;
  if (known == numbers.end()) numbers.emplace(text, count_++);
  recent.text = text;
  recent.expression = expression;
  return recent.number;
}

std::string stilFound(const StilToken& token) {
  const std::string_view text = token.text.substr(0, kShown);
  const std::string_view dots = token.text.size() > kShown ? "..." : "";
  switch (token.kind) {
    case StilTokenKind::word:
      return fmt::format("{}{}", text, dots);
    case StilTokenKind::string:
      return fmt::format("\"{}{}\"", text, dots);
    case StilTokenKind::expression:
      return fmt::format("'{}{}'", text, dots);
    default:
      return std::string(stilTokenText(token.kind));
  }
}

// --- Files ---------------------------------------------------------------------------

void StilCursor::add(std::unique_ptr<StilScanner> scanner) {
  names_.push_back(scanner->name());
  scanners_.push_back(std::move(scanner));
}

bool StilCursor::enter(std::uint32_t file) {
  resume(file);
  next();
  return !failed();
}

bool StilCursor::enter(const StilWhere& where) {
  resume(where.file);
  return current_->seek(where.place) && !failed();
}

void StilCursor::resume(std::uint32_t file) {
  failed_ = failed();
  file_ = file;
  current_ = scanners_[file].get();
}

void StilCursor::close(std::uint32_t file) {
  if (current_ == scanners_[file].get()) current_ = nullptr;
  scanners_[file].reset();
}

bool StilCursor::skipBlock() { return current_->skipBlock() && !failed(); }

// --- Messages ------------------------------------------------------------------------

Message StilCursor::message(Severity severity, const StilWhere& where, MessageCode code,
                            std::string text) const {
  Message message;
  message.severity = severity;
  message.code = code;
  message.text = std::move(text);
  message.file = where.file < names_.size() ? names_[where.file] : std::string();
  message.line = where.place.line;
  message.column = where.place.column;
  return message;
}

bool StilCursor::fail(MessageCode code, std::string text) {
  if (failed()) return false;
  failed_ = true;
  return current_->fail(code, std::move(text));
}

bool StilCursor::failAt(const StilWhere& where, MessageCode code, std::string text) {
  if (failed()) return false;
  failed_ = true;
  if (where.file < scanners_.size() && scanners_[where.file] != nullptr) {
    return scanners_[where.file]->failAt(where.place, code, std::move(text));
  }
  sink_(message(Severity::error, where, code, std::move(text)));
  return false;
}

bool StilCursor::expected(std::string_view what) {
  if (is(StilTokenKind::end)) {
    return fail(kStilUnended, fmt::format("the text ends where {} is expected", what));
  }
  return fail(kStilSyntax, fmt::format("{} is expected, not {}", what, stilFound(token())));
}

bool StilCursor::unended(const StilWhere& begin, std::string_view what) {
  return failAt(begin, kStilUnended, fmt::format("the block of {} has no '}}'", what));
}

void StilCursor::warnAt(const StilWhere& where, MessageCode code, std::string text) {
  if (where.file < scanners_.size() && scanners_[where.file] != nullptr) {
    scanners_[where.file]->warnAt(where.place, code, std::move(text));
  } else {
    sink_(message(Severity::warning, where, code, std::move(text)));
  }
}

void StilCursor::warnOnce(const StilWhere& where, MessageCode code, std::string text) {
  if (warned_.insert(text).second) warnAt(where, code, std::move(text));
}

// --- Pieces --------------------------------------------------------------------------

bool StilCursor::take(StilTokenKind kind, std::string_view what) {
  if (!is(kind)) return expected(what);
  next();
  return true;
}

bool StilCursor::name(std::string& text, std::string_view what) {
  if (!isName() || token().text.empty()) return expected(what);
  const bool quoted = is(StilTokenKind::string);
  text = token().text;
  next();
  while (quoted && is(StilTokenKind::word)) {
    if (token().joined && token().text.front() == '[') {
      text += token().text;
      next();
      break;
    }
    if (token().text != ".") break;
    next();
    if (!is(StilTokenKind::string)) return expected("a name between double quotes behind '.'");
    text += token().text;
    next();
  }
  return true;
}

bool StilCursor::optionalName(std::string& text) {
  text.clear();
  return isName() ? name(text, "a name") : !failed();
}

bool StilCursor::expressionText(std::string& text, std::string_view what) {
  if (!isName() && !is(StilTokenKind::expression)) return expected(what);
  text = token().text;
  next();
  return true;
}

bool StilCursor::reference(StilReference& reference, std::string_view what) {
  reference.where = where();
  reference.expression = is(StilTokenKind::expression);
  if (reference.expression) {
    reference.text = token().text;
    next();
  } else if (!name(reference.text, what)) {
    return false;
  }
  reference.number = referenceNumber(reference.text, reference.expression);
  return true;
}

bool StilCursor::number(std::uint64_t& value, std::uint64_t most, std::string_view what) {
  const std::string_view text = token().text;
  const char* textEnd = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), textEnd, value);
  if (!is(StilTokenKind::word) || stop != textEnd || error == std::errc::invalid_argument) {
    return expected(what);
  }
  if (error != std::errc() || value > most) {
    return fail(kStilTooLong, fmt::format("{} is more than {}", stilFound(token()), most));
  }
  next();
  return true;
}

bool StilCursor::annotation(std::string& text) {
  if (!is(StilTokenKind::annotation)) return expected("'{*' behind Ann");
  text = token().text;
  next();
  return true;
}

bool StilCursor::passOver() {
  while (!is(StilTokenKind::stop) && !is(StilTokenKind::open)) {
    if (is(StilTokenKind::end) || is(StilTokenKind::close)) return expected("';' or '{'");
    next();
  }
  if (is(StilTokenKind::open) && !skipBlock()) return false;
  next();
  return !failed();
}
