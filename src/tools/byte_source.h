#pragma once

// Bytes of an input of any size, in pieces: a plain file, a gzip file (known by its
// first bytes, whatever its name), or standard input ("-"). Memory is a fixed buffer.
// An input that can't be read twice (a pipe) is kept in a temporary file while it is
// read the first time, when it is opened as `rewindable`.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

class ByteSource {
 public:
  // Null with the reason: not there, no right to read, a directory.
  static std::unique_ptr<ByteSource> open(const std::string& path, bool rewindable,
                                          std::string& reason);
  virtual ~ByteSource() = default;

  // The next bytes, at least one: how many; 0 at the end; -1 for a failure (reading,
  // damaged or cut gzip data), which reason() tells and which stays.
  virtual std::ptrdiff_t read(char* to, std::size_t size) = 0;
  // Back to the byte at `offset` of the text (unpacked): false with reason().
  virtual bool seek(std::uint64_t offset) = 0;
  const std::string& reason() const { return reason_; }
  // Whether the failure is packed data that end too soon: what came before is good, and
  // seek() goes back to it.
  bool isCut() const { return cut_; }
  // As messages show it: the path, "<stdin>".
  const std::string& name() const { return name_; }
  // Bytes on disk, and how many of them were read since the last seek to 0: for telling
  // how far a pass is. -1 where that isn't known.
  virtual std::int64_t size() const = 0;
  virtual std::int64_t consumed() const = 0;

 protected:
  std::string name_;
  std::string reason_;
  bool cut_ = false;
};

// The same over a text in memory, which must outlive it; for tests and fuzzing.
std::unique_ptr<ByteSource> openByteText(std::string_view text, std::string name);
