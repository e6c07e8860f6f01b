#pragma once

// Tokens of a STIL text, read in pieces, with the exact place of each. A token:
//
//   word         anything up to white space, { } ; = : ' " or a comment: names (with
//                brackets and dots as they stand: pdata[11], Bus[0..7]), numbers,
//                L/H/X, data (01XX, \r40, #), + and - between names
//   string       "..." without the quotes; a backslash is a character like any other;
//                may run over lines
//   expression   '...' without the quotes, may run over lines
//   annotation   the text of {* ... *}, without these and as it stands
//   { } ; = :    a character
//
// // and /* */ comments are white space. An annotation begins at "{*" only, and is a
// token wherever it stands (behind the word Ann).
//
// The first failure (a string, comment or annotation without end, a token longer than
// kLongestToken, a zero byte, a read failure) is told to the sink; from then on each
// token is `end` and failed() holds.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/byte_source.h"
#include "tools/message.h"

enum class StilTokenKind : std::uint8_t {
  end,
  word,
  string,
  expression,
  annotation,
  open,    // {
  close,   // }
  stop,    // ;
  equals,  // =
  colon,   // :
};
// "a name", "'{'": for messages.
std::string_view stilTokenText(StilTokenKind kind);

// Where a token begins. Lines and columns (bytes) count from 1.
struct StilPlace {
  std::uint64_t offset = 0;  // in the text
  std::uint32_t line = 1;
  std::uint32_t column = 1;
};

struct StilToken {
  StilTokenKind kind = StilTokenKind::end;
  std::string_view text;  // good until the next token is read
  StilPlace place;
};

class StilScanner {
 public:
  static constexpr std::size_t kLongestToken = std::size_t{64} << 20;

  StilScanner(std::unique_ptr<ByteSource> source, MessageSink sink);

  // Reads the next token; `end` at the end of the text and after a failure.
  const StilToken& next();
  const StilToken& token() const { return token_; }
  bool is(StilTokenKind kind) const { return token_.kind == kind; }
  bool isWord(std::string_view word) const {
    return token_.kind == StilTokenKind::word && token_.text == word;
  }

  // With `{` as the current token: goes on to its `}`, which is then the current token.
  // False at the end of the text, after a message that names the brace. As fast as the
  // bytes come.
  bool skipBlock();
  // Goes on reading at a token that was read before, which is then the current one.
  bool seek(const StilPlace& place);

  // Tells what is wrong at the current token, or at a place whose line is no longer at
  // hand; always false. `fail` stops the scanner, `warn` doesn't.
  bool fail(MessageCode code, std::string text);
  bool failAt(const StilPlace& place, MessageCode code, std::string text);
  void warnAt(const StilPlace& place, MessageCode code, std::string text);
  bool failed() const { return failed_; }

  const ByteSource& source() const { return *source_; }
  const std::string& name() const { return source_->name(); }

 private:
  std::unique_ptr<ByteSource> source_;
  MessageSink sink_;
  StilToken token_;
  bool failed_ = false;
};
