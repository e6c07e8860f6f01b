#pragma once

// A file with one buffer, which holds either bytes that were read or bytes yet to
// be written. It lies under the descriptors of the plain kind and under the files
// of variable pages. Standard streams aren't used here: over replaceable calls
// they lose their place when writing turns into reading, and they read around
// every seek, which is what the files of pages do most.
//
// Reads that follow each other fill the buffer; one that stands alone asks the
// system for its own bytes only, and leaves what is yet to be written where it is.
//
// A call that fails gives -2 with the reason in errno. What write has taken is
// kept until it has arrived: a flush or write that failed on a full disk may be
// repeated, and a write that failed has taken nothing.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// Where `offset` bytes from `base` is; -2 with errno set for no place of a file.
std::int64_t seekTarget(std::int64_t base, std::int64_t offset);

// Results are those of the PBcf functions.
//
// Invariant: the buffer stands for the file's bytes from bufferStart_ on, `used_`
// of them; when `dirty_` the file doesn't have them yet.
class PlainFile {
 public:
  // Null with errno set on failure.
  static std::unique_ptr<PlainFile> open(const std::string& path, int flags);
  // Takes the descriptor over.
  PlainFile(int fd, bool writable) : fd_(fd), writable_(writable) {}
  // The safety net for a file that wasn't closed; the result is dropped.
  ~PlainFile();
  PlainFile(const PlainFile&) = delete;
  PlainFile& operator=(const PlainFile&) = delete;

  std::int64_t read(char* data, std::size_t size);
  std::int64_t write(const char* data, std::size_t size);
  int seek(std::int64_t offset, int whence);
  std::int64_t tell() const { return position_; }
  int getc();
  // Takes back what getc has just given.
  void ungetc() { --position_; }
  int flush();
  // Longer than the file is: it stays as it is.
  int truncate(std::int64_t size);
  // What is still buffered included.
  std::int64_t size();
  int close();
  // Closes and forgets what wasn't written.
  int discard();

 private:
  static constexpr std::size_t kBufferSize = std::size_t{1} << 16;

  std::size_t buffered() const;
  std::size_t take(char* data, std::size_t size);
  std::int64_t fill();
  bool readsAlone(std::size_t size) const;
  std::int64_t readDirect(char* data, std::size_t size);
  std::int64_t readBuffered(char* data, std::size_t size);
  bool fitsBuffer(std::size_t size) const;
  bool writeAt(std::int64_t offset, const char* data, std::size_t size);
  bool writeBuffer();

  int fd_;
  bool writable_;
  std::int64_t position_ = 0;  // where the next read or write is
  std::int64_t readEnd_ = 0;   // where the last read has ended
  std::int64_t bufferStart_ = 0;
  std::size_t used_ = 0;
  bool dirty_ = false;
  std::array<char, kBufferSize> buffer_;
};
