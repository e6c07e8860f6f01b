#pragma once

// Reads the text of a dump by lines and words, with the exact place of everything
// for messages. A line is a record: its keyword, fixed fields, attributes
// (NAME=VALUE), and for rows the states behind a bar. Blank lines and lines that
// begin with "#" are passed over; indentation means nothing.
//
//   TEXT    between double quotes (base/quote.h)      ID     number, CLASS:NUMBER, none
//   TIME    10nS, or MAJOR:MINOR as stored       STATES |01-ZX up to the line's end
//
// The first failure is told to the sink with file, line and column; from then on
// every call fails.

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/text_file.h"
#include "base/time.h"
#include "pvb/id.h"
#include "tools/message.h"

// Characters of the sixteen codes of a column.
inline constexpr std::string_view kStateCharacters = "-01ZX?!*.ABCDEFG";

class DumpScanner {
 public:
  // `shownName` stands in messages.
  DumpScanner(TextFilePtr file, std::string shownName, MessageSink sink)
      : file_(std::move(file)), name_(std::move(shownName)), sink_(std::move(sink)) {}

  // The next line with content; false at the end and after a failure.
  bool nextLine();
  // Its first word.
  std::string_view keyword() const { return keyword_; }
  // All of it, for a reader of its own.
  std::string_view line() const { return line_; }
  std::int64_t lineNumber() const { return PBgetTextLineNumber(file_.get()); }
  bool failed() const { return failed_; }

  // Tell what is wrong with the word read last, with the whole line, at a column of it,
  // or with the text as a whole. Always false.
  bool fail(MessageCode code, std::string_view text);
  bool failLine(MessageCode code, std::string_view text);
  bool failColumn(MessageCode code, std::string_view text, std::size_t column);
  bool failText(MessageCode code, std::string_view text);

  // Whether nothing is left on the line.
  bool atEnd();
  // The next character that isn't a blank; 0 at the end of the line.
  char peek();
  // Takes one character, which peek() gave.
  void skip() { ++position_; }

  // All post at the word when it isn't what it should be.
  bool finish();
  bool word(std::string_view& out);
  bool quoted(std::string& out);
  bool optionalText(std::optional<std::string>& out);  // quoted, or `none`
  bool quotedCharacter(char& out);
  bool id(PVBid& out);
  bool idList(PVBidList& out);  // appends all that the line still holds
  bool intList(PVBintList& out);
  bool time(TIME& out);
  template <typename T>
  bool number(T& out);
  // The states up to the end of the line; without a bar none.
  bool states(std::string_view& out);
  // The next word, whatever its characters, as the last of the line.
  bool bytes(std::string_view& out);
  // The name of the next attribute, its "=" taken; false when what follows is none.
  bool attribute(std::string_view& name);
  // Tells that the attribute read last isn't one of `known`.
  bool unknownAttribute(std::string_view name, std::span<const std::string_view> known);

 private:
  bool report(MessageCode code, std::string_view text, std::size_t column, bool showLine);
  void beginToken();
  std::string_view tokenUpTo(std::string_view stops);

  TextFilePtr file_;
  std::string name_;
  MessageSink sink_;
  std::string_view line_;
  std::string_view keyword_;
  std::size_t position_ = 0;
  std::size_t token_ = 0;  // where the word read last begins
  bool failed_ = false;
};

template <typename T>
bool DumpScanner::number(T& out) {
  static_assert(std::is_integral_v<T>);
  beginToken();
  const char* begin = line_.data() + position_;
  const char* end = line_.data() + line_.size();
  const auto [stop, error] = std::from_chars(begin, end, out);
  if (error == std::errc::result_out_of_range) return fail(kOutOfRange, "the number doesn't fit");
  if (error != std::errc()) return fail(kExpected, "a number is expected");
  position_ += static_cast<std::size_t>(stop - begin);
  return true;
}
