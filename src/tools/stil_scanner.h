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
// token wherever it stands (behind the word Ann). A line ends at its LF; the CR in front
// of it is white space. A UTF-8 mark in front of the text is passed over. Control
// characters may stand in comments and annotations, a zero byte nowhere.
//
// The first failure (a string, comment or annotation without end, a token longer than
// kLongestToken, a control character, a read failure) is told to the sink; from then on
// each token is `end` and failed() holds.
//
// Memory is a piece of the text, and a few times the longest token.

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
  // Stands right behind the token before it: tells "sig"[0..3] from "sig" [0..3]. False
  // for the first token, and where a seek or a skip ended.
  bool joined = false;
};

class StilScanner {
 public:
  static constexpr std::size_t kLongestToken = std::size_t{64} << 20;

  static constexpr std::size_t kPieceSize = std::size_t{256} << 10;

  // Reads at most `pieceSize` bytes at a time.
  StilScanner(std::unique_ptr<ByteSource> source, MessageSink sink,
              std::size_t pieceSize = kPieceSize);

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
  // Goes on reading at a token that was read before, which is then the current one. Asks
  // nothing of the source when the place is still at hand.
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
  std::uint64_t offset() const { return bufferOffset_ + at_; }
  char byte() const { return buffer_[at_]; }
  StilPlace here() const;
  std::string sourceLine(const StilPlace& place, std::size_t& begin) const;
  void tell(Severity severity, const StilPlace& place, MessageCode code, std::string text) const;
  bool failUnended(const StilPlace& begin, std::string_view what);
  bool failLong();
  bool failByte();

  bool fill();
  void makeRoom();
  void passMark();
  bool secondIs(char second);

  void newLine();
  template <std::uint8_t kStops>
  void passUntil();
  bool passOdd(bool keep, const StilPlace& begin, std::string_view what);
  bool passSpace();
  bool passLineComment();
  bool passBlockComment();
  bool passWord();
  template <std::uint8_t kStops>
  bool passQuoted(bool keep, std::string_view what);
  bool passToStar(char end, bool keep, std::string_view what);
  bool passInBlock(std::uint64_t& depth);

  void take(StilTokenKind kind, bool good, std::size_t before, std::size_t behind);

  std::unique_ptr<ByteSource> source_;
  MessageSink sink_;
  std::size_t pieceSize_;
  StilToken token_;
  bool failed_ = false;

  // The text from bufferOffset_ on stands in buffer_ up to end_, where a zero byte stands
  // that ends every search. start_ <= at_ <= end_: what is kept when bytes are read, and
  // the next one to be looked at.
  std::vector<char> buffer_;
  std::uint64_t bufferOffset_ = 0;
  std::size_t start_ = 0;
  std::size_t at_ = 0;
  std::size_t end_ = 0;
  bool ended_ = false;  // the source has no more
  std::uint32_t line_ = 1;
  std::uint64_t lineStart_ = 0;  // where the line begins in the text
};
