#include "storage/plain_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include "base/platform.h"

std::int64_t seekTarget(std::int64_t base, std::int64_t offset) {
  std::int64_t target = 0;
  if (!__builtin_add_overflow(base, offset, &target) && target >= 0) return target;
  errno = EINVAL;
  return -2;
}

std::unique_ptr<PlainFile> PlainFile::open(const std::string& path, int flags) {
  const int fd = platform().open(path.c_str(), flags, 0666);
  if (fd < 0) return nullptr;
  return std::make_unique<PlainFile>(fd, (flags & O_ACCMODE) != O_RDONLY);
}

PlainFile::~PlainFile() { close(); }

// Bytes of the buffer from the position on.
std::size_t PlainFile::buffered() const {
  const std::int64_t offset = position_ - bufferStart_;
  if (offset < 0 || offset >= static_cast<std::int64_t>(used_)) return 0;
  return used_ - static_cast<std::size_t>(offset);
}

// All of it, in as many calls as the system takes.
bool PlainFile::writeAt(std::int64_t offset, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t count = platform().writeAt(fd_, data, size, offset);
    if (count == 0) errno = EIO;
    if (count <= 0) return false;
    data += count;
    size -= static_cast<std::size_t>(count);
    offset += count;
  }
  return true;
}

// The buffer then stands for bytes that were read; on failure it stays as it was.
bool PlainFile::writeBuffer() {
  if (dirty_ && !writeAt(bufferStart_, buffer_.data(), used_)) return false;
  dirty_ = false;
  return true;
}

// Copies what the buffer has at the position; the bytes copied.
std::size_t PlainFile::take(char* data, std::size_t size) {
  const std::size_t count = std::min(buffered(), size);
  if (count > 0) std::memcpy(data, buffer_.data() + (position_ - bufferStart_), count);
  position_ += static_cast<std::int64_t>(count);
  return count;
}

// Brings bytes from the position on into the buffer, more of them when reads
// follow each other; how many.
std::int64_t PlainFile::fill() {
  constexpr std::size_t kFirstFill = 8192;
  const std::size_t size = position_ == readEnd_ ? buffer_.size() : kFirstFill;
  const ssize_t count = platform().readAt(fd_, buffer_.data(), size, position_);
  bufferStart_ = position_;
  used_ = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  return count >= 0 ? count : -2;
}

// Whether a read has nothing to do with the one before it or with the buffer.
bool PlainFile::readsAlone(std::size_t size) const {
  constexpr std::size_t kSmall = 64;  // so little that more of the kind will follow
  const std::int64_t bufferEnd = bufferStart_ + static_cast<std::int64_t>(used_);
  const bool apart =
      position_ >= bufferEnd || position_ + static_cast<std::int64_t>(size) <= bufferStart_;
  return size >= kSmall && (apart || used_ == 0) && position_ != readEnd_;
}

// All of it that is there, past the buffer.
std::int64_t PlainFile::readDirect(char* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = platform().readAt(fd_, data + done, size - done, position_);
    if (count < 0) return -2;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
    position_ += count;
  }
  return static_cast<std::int64_t>(done);
}

// Through the buffer; pieces of its size and above go around it.
std::int64_t PlainFile::readBuffered(char* data, std::size_t size) {
  if (dirty_ && !writeBuffer()) return -2;
  std::size_t done = take(data, size);
  while (done < size && size - done < buffer_.size()) {
    const std::int64_t count = fill();
    if (count < 0) return count;
    if (count == 0) return static_cast<std::int64_t>(done);
    done += take(data + done, size - done);
    readEnd_ = position_;
  }
  if (done == size) return static_cast<std::int64_t>(done);
  const std::int64_t rest = readDirect(data + done, size - done);
  return rest < 0 ? rest : static_cast<std::int64_t>(done) + rest;
}

std::int64_t PlainFile::read(char* data, std::size_t size) {
  std::int64_t done = readsAlone(size) ? readDirect(data, size) : 0;
  // Where the file on disk ends there may be more in the buffer.
  if (done >= 0 && done < static_cast<std::int64_t>(size)) {
    const auto taken = static_cast<std::size_t>(done);
    const std::int64_t rest = readBuffered(data + taken, size - taken);
    done = rest < 0 ? rest : done + rest;
  }
  readEnd_ = position_;
  return done;
}

// Whether the bytes to be written go on from those in the buffer or change them.
bool PlainFile::fitsBuffer(std::size_t size) const {
  const std::int64_t offset = position_ - bufferStart_;
  return dirty_ && offset >= 0 && offset <= static_cast<std::int64_t>(used_) &&
         size <= buffer_.size() - static_cast<std::size_t>(offset);
}

std::int64_t PlainFile::write(const char* data, std::size_t size) {
  const auto room = static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max() - position_);
  if (!writable_ || size > room) {
    errno = writable_ ? EFBIG : EBADF;
    return -2;
  }
  if (!fitsBuffer(size)) {
    if (!writeBuffer()) return -2;
    bufferStart_ = position_;
    used_ = 0;
  }
  if (size >= buffer_.size()) {
    if (!writeAt(position_, data, size)) return -2;
  } else if (size > 0) {
    const auto offset = static_cast<std::size_t>(position_ - bufferStart_);
    std::memcpy(buffer_.data() + offset, data, size);
    used_ = std::max(used_, offset + size);
    dirty_ = true;
  }
  position_ += static_cast<std::int64_t>(size);
  return static_cast<std::int64_t>(size);
}

int PlainFile::seek(std::int64_t offset, int whence) {
  std::int64_t base = whence == SEEK_CUR ? position_ : 0;
  if (whence == SEEK_END) base = size();
  if (base < 0) return -2;
  const std::int64_t target = seekTarget(base, offset);
  if (target < 0) return -2;
  position_ = target;
  return 0;
}

int PlainFile::getc() {
  if (!dirty_ && buffered() > 0) {
    return static_cast<unsigned char>(
        buffer_[static_cast<std::size_t>(position_++ - bufferStart_)]);
  }
  char byte = 0;
  const std::int64_t count = read(&byte, 1);
  return count == 1 ? static_cast<unsigned char>(byte) : count == 0 ? -1 : -2;
}

int PlainFile::flush() { return writeBuffer() ? 0 : -2; }

std::int64_t PlainFile::size() {
  const std::int64_t onDisk = platform().seek(fd_, 0, SEEK_END);
  if (onDisk < 0) return -2;
  const std::int64_t bufferEnd = bufferStart_ + static_cast<std::int64_t>(used_);
  return dirty_ ? std::max(onDisk, bufferEnd) : onDisk;
}

// What the buffer has past the new end goes only after the system has cut the file.
int PlainFile::truncate(std::int64_t size) {
  const std::int64_t before = writable_ && size >= 0 ? this->size() : -2;
  if (!writable_ || size < 0) errno = writable_ ? EINVAL : EBADF;
  if (before < 0) return -2;
  if (size >= before) return 0;
  if (platform().truncate(fd_, size) != 0) return -2;
  const std::int64_t room = std::max<std::int64_t>(size - bufferStart_, 0);
  used_ = std::min(used_, static_cast<std::size_t>(room));
  dirty_ = dirty_ && used_ > 0;
  return 0;
}

int PlainFile::discard() {
  dirty_ = false;
  return close();
}

int PlainFile::close() {
  if (fd_ < 0) return 0;
  const bool written = writeBuffer();
  const int writeError = errno;
  const bool closed = platform().close(fd_) == 0;
  fd_ = -1;
  if (!written) errno = writeError;
  return written && closed ? 0 : -2;
}
