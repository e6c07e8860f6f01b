#include "base/file_copy.h"

#include <fcntl.h>

#include <array>
#include <cerrno>

#include "base/platform.h"
#include "base/temp_directory.h"

namespace {

constexpr std::size_t kPieceSize = std::size_t{1} << 16;
constexpr std::size_t kRangeSize = std::size_t{1} << 30;  // of one call of the system

// A descriptor that closes itself; close() tells the result.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    const int error = errno;
    close();
    errno = error;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  int close() {
    const int fd = std::exchange(fd_, -1);
    return fd >= 0 ? platform().close(fd) : 0;
  }

 private:
  int fd_;
};

bool writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = platform().write(fd, data, size);
    if (written <= 0) return false;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

bool copyPieces(int from, int to) {
  std::array<char, kPieceSize> piece;
  while (true) {
    const ssize_t size = platform().read(from, piece.data(), piece.size());
    if (size <= 0) return size == 0;
    if (!writeAll(to, piece.data(), static_cast<std::size_t>(size))) return false;
  }
}

// Where the system's own copying stops, for whatever reason, the pieces go on
// from: both descriptors have moved together.
bool copyContent(int from, int to) {
  if (platform().shareBlocks(from, to) == 0) return true;
  ssize_t size = 1;
  while (size > 0) size = platform().copyRange(from, to, kRangeSize);
  return copyPieces(from, to);
}

}  // namespace

int PBcopyFile(const std::string& from, const std::string& to) {
  Descriptor source(platform().open(from.c_str(), O_RDONLY, 0));
  struct stat status;
  if (source.get() < 0 || platform().status(from.c_str(), status) != 0) return -2;
  TempFile target(to + ".new");
  const mode_t rights = (status.st_mode & 0777) | S_IWUSR;
  // What an interrupted run has left makes way; never write through a link that
  // someone else has put there.
  platform().remove(target.path().c_str());
  Descriptor copy(platform().open(target.path().c_str(), O_RDWR | O_CREAT | O_EXCL, rights));
  if (copy.get() < 0) {
    target.release();
    return -2;
  }
  if (!copyContent(source.get(), copy.get()) || copy.close() != 0) return -2;
  if (platform().rename(target.path().c_str(), to.c_str()) != 0) return -2;
  target.release();
  errno = 0;
  return 0;
}

int PBmoveFile(const std::string& from, const std::string& to) {
  if (platform().rename(from.c_str(), to.c_str()) == 0) return 0;
  if (errno != EXDEV) return -2;
  if (PBcopyFile(from, to) != 0) return -2;
  return platform().remove(from.c_str()) == 0 ? 0 : -2;
}

void TempFile::remove() {
  if (path_.empty()) return;
  const int error = errno;
  platform().remove(std::exchange(path_, {}).c_str());
  errno = error;
}

TempFile PBprivateCopy(const std::string& from) {
  std::string path;
  Descriptor reserved(PBcreateTempFile("mvk", path));
  if (reserved.get() < 0) return {};
  TempFile copy(std::move(path));
  if (PBcopyFile(from, copy.path()) != 0) return {};
  return copy;
}
