#pragma once

// Text files of a database: lines of numbers, counted texts and id lists. The
// reader goes over a descriptor of storage/cio, so a file may be stored plain or
// compressed; the writer makes a new file beside the old one and puts it in place
// when it is whole, so a failed save leaves the old file.
//
// Reading is as lenient between numbers as scanf: white space before a number is
// skipped. Every count is bounded by what the file can hold. Neither posts: who
// reads or writes knows under which name.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/file_copy.h"
#include "base/time.h"
#include "pvb/id.h"

enum class SectionOpen { opened, missing, failed };

class SectionReader {
 public:
  SectionReader() = default;
  ~SectionReader();
  SectionReader(const SectionReader&) = delete;
  SectionReader& operator=(const SectionReader&) = delete;

  // `failed` leaves a post under "cfio" and the reason in errno.
  SectionOpen open(const std::string& path);
  // False when closing failed.
  bool close();

  // All give false at the first thing that doesn't fit and from then on.
  bool word(std::string& out);              // up to white space
  bool keyword(std::string_view expected);  // a word that must be this one
  bool number(std::int64_t& out);           // decimal, any sign
  bool number(std::int32_t& out);           // must fit as signed or unsigned 32 bits
  bool number(std::uint32_t& out);          // the same
  bool number(std::int16_t& out);           // fits as signed or unsigned 16 bits
  bool number(std::uint16_t& out);          // the same
  bool character(char& out);                // the next one that isn't white space
  bool lineEnd();                           // blanks, then a new line, which must be there
  bool time(TIME& out);                     // a word that is a time
  // "%d\n", then so many characters and a new line; none for length 0.
  bool countedText(std::optional<std::string>& out);
  // So many characters as they stand.
  bool characters(std::string& out, std::size_t count);
  bool idList(PVBidList& out);  // "%d\n" count, "%ld\n" each
  bool intList(PVBintList& out);
  // A count of things of which each takes at least `bytesEach` bytes of the file.
  bool count(std::int32_t& out, std::size_t bytesEach);

  // Whether only white space is left.
  bool atEnd();
  // Whether nothing at all is left.
  bool atExactEnd();

 private:
  int get();  // -1 at the end and after a failure
  int peek();
  bool fail();
  bool refill();
  bool skipSpace();
  std::int64_t bytesLeft() const;

  int descriptor_ = -1;
  std::int64_t size_ = 0;   // of the file, in bytes
  std::int64_t taken_ = 0;  // bytes of it given out so far
  std::size_t next_ = 0;
  std::size_t filled_ = 0;
  bool good_ = true;
  std::array<char, 8192> buffer_;
};

class SectionWriter {
 public:
  SectionWriter() = default;
  ~SectionWriter();
  SectionWriter(const SectionWriter&) = delete;
  SectionWriter& operator=(const SectionWriter&) = delete;

  enum class Storage { plain, compressed };
  // False with errno set when the new file can't be made.
  bool open(const std::string& path, Storage storage);

  void text(std::string_view text);
  void number(std::int64_t value);  // "%ld"
  void line(std::int64_t value);    // "%ld\n"
  void countedText(const std::optional<std::string>& text);
  void idList(const PVBidList& list);
  void intList(const PVBintList& list);

  // Writes the rest and puts the file in place: false when anything was lost, and
  // the old file stands. The reason is in errno.
  bool commit();

 private:
  void drain();

  int descriptor_ = -1;
  std::string path_;
  TempFile file_;
  bool good_ = true;
  int error_ = 0;
  std::string pending_;
};
