#include "storage/plain_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include "base/platform.h"

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

bool PlainFile::place(std::int64_t offset) {
  if (fdPosition_ == offset) return true;
  fdPosition_ = platform().seek(fd_, offset, SEEK_SET);
  return fdPosition_ == offset;
}

// What one call of the system gives; 0 at the end.
std::int64_t PlainFile::readAt(std::int64_t offset, char* data, std::size_t size) {
  if (!place(offset)) return -2;
  const ssize_t count = platform().read(fd_, data, size);
  fdPosition_ = count >= 0 ? offset + count : -1;
  return count >= 0 ? count : -2;
}

// All of it, in as many calls as the system takes.
bool PlainFile::writeAt(std::int64_t offset, const char* data, std::size_t size) {
  bool good = place(offset);
  while (good && size > 0) {
    const ssize_t count = platform().write(fd_, data, size);
    if (count == 0) errno = EIO;
    good = count > 0;
    if (!good) break;
    data += count;
    size -= static_cast<std::size_t>(count);
    fdPosition_ += count;
  }
  if (good) return true;
  fdPosition_ = -1;
  return false;
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

// Brings bytes from the position on into the buffer; how many.
std::int64_t PlainFile::fill() {
  const std::int64_t count = readAt(position_, buffer_.data(), buffer_.size());
  bufferStart_ = position_;
  used_ = static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
  return count;
}

// Pieces of a buffer's size and above go around the buffer.
std::int64_t PlainFile::read(char* data, std::size_t size) {
  if (dirty_ && !writeBuffer()) return -2;
  std::size_t done = take(data, size);
  while (done < size) {
    const bool direct = size - done >= buffer_.size();
    const std::int64_t count = direct ? readAt(position_, data + done, size - done) : fill();
    if (count < 0) return count;
    if (count == 0) break;
    if (direct) {
      position_ += count;
      done += static_cast<std::size_t>(count);
    } else {
      done += take(data + done, size - done);
    }
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t PlainFile::write(const char* data, std::size_t size) {
  const auto room = static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max() - position_);
  if (!writable_ || size > room) {
    errno = writable_ ? EFBIG : EBADF;
    return -2;
  }
  const bool follows = dirty_ && position_ == bufferStart_ + static_cast<std::int64_t>(used_);
  if (!follows || size > buffer_.size() - used_) {
    if (!writeBuffer()) return -2;
    bufferStart_ = position_;
    used_ = 0;
  }
  if (size >= buffer_.size()) {
    if (!writeAt(position_, data, size)) return -2;
  } else if (size > 0) {
    std::memcpy(buffer_.data() + used_, data, size);
    used_ += size;
    dirty_ = true;
  }
  position_ += static_cast<std::int64_t>(size);
  return static_cast<std::int64_t>(size);
}

int PlainFile::seek(std::int64_t offset, int whence) {
  std::int64_t base = whence == SEEK_CUR ? position_ : 0;
  if (whence == SEEK_END) base = size();
  if (base < 0) return -2;
  std::int64_t target = 0;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) {
    errno = EINVAL;
    return -2;
  }
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
  fdPosition_ = platform().seek(fd_, 0, SEEK_END);
  if (fdPosition_ < 0) return -2;
  const std::int64_t bufferEnd = bufferStart_ + static_cast<std::int64_t>(used_);
  return dirty_ ? std::max(fdPosition_, bufferEnd) : fdPosition_;
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
