#pragma once

// A temporary file of records of one size, for the stores of the optimizer: it grows by
// appending, any record can be read or written again. Records written one after the other
// go to the file in one piece.
//
// A file that can't be made, read or written ends the program through the assertion hook,
// after a notice with its name: what stands in it stands nowhere else.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/file_copy.h"

class RecordFile {
 public:
  RecordFile() = default;
  ~RecordFile() { drop(); }
  RecordFile(const RecordFile&) = delete;
  RecordFile& operator=(const RecordFile&) = delete;

  // Makes the file; `fileName` null makes a temporary one, which is removed by close(). One
  // under a name stays.
  void open(std::size_t recordSize, const char* fileName);
  void close();
  bool isOpen() const { return descriptor_ >= 0; }
  std::size_t recordSize() const { return recordSize_; }
  std::int64_t count() const { return count_; }

  // `record` is one record long, `index` not above count().
  void write(std::int64_t index, std::span<const std::uint8_t> record);
  // False past the end.
  bool read(std::int64_t index, std::span<std::uint8_t> record);

 private:
  // What is still held back goes to the file.
  void flush();
  // Without that: a program that ends for a failed write can't write again.
  void drop();
  off_t offsetOf(std::int64_t index) const;
  std::int64_t pendingCount() const;

  int descriptor_ = -1;
  std::string path_;
  TempFile temporary_;
  std::size_t recordSize_ = 0;
  std::int64_t count_ = 0;
  // Records from firstPending_ on that aren't in the file yet.
  std::vector<std::uint8_t> pending_;
  std::int64_t firstPending_ = 0;
};
