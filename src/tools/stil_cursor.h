#pragma once

// The place in the STIL texts where a reader stands: the current token, and the small
// pieces that all statements are made of. Each piece is read from its first token on and
// leaves the token behind it as the current one.
//
// Whoever finds something wrong tells it here; the first failure is the only one told,
// and from then on every piece fails and the current token is the end.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tools/stil_model.h"
#include "tools/stil_scanner.h"

struct StilTextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>()(text);
  }
};

// Numbers of references: the same for equal ones. Looking up makes no strings.
class StilReferenceNumbers {
 public:
  explicit StilReferenceNumbers(std::uint32_t& count) : count_(count) {}
  std::uint32_t number(std::string_view text, bool expression);

 private:
  // Patterns name the same few references again and again: those found last, by a few of
  // their characters.
  struct Recent {
    std::string text;
    bool expression = false;
    std::uint32_t number = 0;
  };
  static constexpr std::size_t kRecent = 128;

  std::uint32_t& count_;
  std::vector<Recent> recent_ = std::vector<Recent>(kRecent);
  std::unordered_map<std::string, std::uint32_t, StilTextHash, std::equal_to<>> numbers_[2];
};

// Whether annotations of a block are items of it.
enum class StilAnnotations { passedOver, item };

class StilCursor {
 public:
  StilCursor(MessageSink sink, std::uint32_t& references)
      : sink_(std::move(sink)), references_(references) {}

  // Files: a text under its number, and going over to it. A text is read from its first
  // token on, or from a place of it.
  void add(std::unique_ptr<StilScanner> scanner);
  bool enter(std::uint32_t file);
  bool enter(const StilWhere& where);
  // Goes back to a text that stays where it was.
  void resume(std::uint32_t file);
  std::uint32_t file() const { return file_; }
  StilScanner* scanner(std::uint32_t file) { return scanners_[file].get(); }
  const StilScanner* scanner(std::uint32_t file) const { return scanners_[file].get(); }
  std::size_t files() const { return scanners_.size(); }
  // Gives the text back, whose messages then come without the line; another one is gone
  // over to before anything is read.
  void close(std::uint32_t file);

  const StilToken& token() const { return current_->token(); }
  void next() { current_->next(); }
  bool is(StilTokenKind kind) const { return current_->is(kind); }
  bool isWord(std::string_view word) const { return current_->isWord(word); }
  bool isName() const { return is(StilTokenKind::word) || is(StilTokenKind::string); }
  StilWhere where() const { return {file_, token().place}; }
  bool skipBlock();

  // Messages; false, all but the warnings.
  bool fail(MessageCode code, std::string text);
  bool failAt(const StilWhere& where, MessageCode code, std::string text);
  // "X is expected, not Y".
  bool expected(std::string_view what);
  void warnAt(const StilWhere& where, MessageCode code, std::string text);
  // Once for each text.
  void warnOnce(const StilWhere& where, MessageCode code, std::string text);
  bool failed() const { return failed_ || (current_ != nullptr && current_->failed()); }

  // Pieces.
  bool take(StilTokenKind kind, std::string_view what);
  // Strings joined by "." are one name; a range behind a string belongs to it.
  bool name(std::string& text, std::string_view what);
  // A name where there may be one, otherwise an empty text.
  bool optionalName(std::string& text);
  // A name or a text between single quotes.
  bool expressionText(std::string& text, std::string_view what);
  bool reference(StilReference& reference, std::string_view what);
  bool number(std::uint64_t& value, std::uint64_t most, std::string_view what);
  // Behind the word Ann.
  bool annotation(std::string& text);
  bool end() { return take(StilTokenKind::stop, "';'"); }
  // The rest of a statement: up to its `;`, or through its block.
  bool passOver();
  // `{`, items, `}`. `item` reads one; empty statements are none. `what` names the block
  // when it has no end.
  template <typename Item>
  bool block(std::string_view what, Item item,
             StilAnnotations annotations = StilAnnotations::passedOver);

  std::uint32_t referenceNumber(std::string_view text, bool expression) {
    return references_.number(text, expression);
  }

 private:
  Message message(Severity severity, const StilWhere& where, MessageCode code,
                  std::string text) const;
  bool unended(const StilWhere& begin, std::string_view what);

  MessageSink sink_;
  StilReferenceNumbers references_;
  std::vector<std::unique_ptr<StilScanner>> scanners_;
  std::vector<std::string> names_;
  std::uint32_t file_ = 0;
  StilScanner* current_ = nullptr;
  bool failed_ = false;
  std::unordered_set<std::string> warned_;
};

// A found token in a message, shortened.
std::string stilFound(const StilToken& token);

template <typename Item>
bool StilCursor::block(std::string_view what, Item item, StilAnnotations annotations) {
  const StilWhere begin = where();
  if (!take(StilTokenKind::open, "'{'")) return false;
  std::string text;
  while (!is(StilTokenKind::close)) {
    if (failed()) return false;
    if (is(StilTokenKind::end)) return unended(begin, what);
    if (is(StilTokenKind::stop)) {
      next();
    } else if (annotations == StilAnnotations::passedOver && isWord("Ann")) {
      next();
      if (!annotation(text)) return false;
    } else if (!item()) {
      return false;
    }
  }
  next();
  return !failed();
}
