#include "base/platform.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

int Platform::open(const char* path, int flags, mode_t mode) {
  return ::open(path, flags | O_CLOEXEC, mode);
}
ssize_t Platform::read(int fd, void* buffer, std::size_t size) { return ::read(fd, buffer, size); }
ssize_t Platform::write(int fd, const void* buffer, std::size_t size) {
  return ::write(fd, buffer, size);
}
ssize_t Platform::readAt(int fd, void* buffer, std::size_t size, off_t offset) {
  return ::pread(fd, buffer, size, offset);
}
ssize_t Platform::writeAt(int fd, const void* buffer, std::size_t size, off_t offset) {
  return ::pwrite(fd, buffer, size, offset);
}
off_t Platform::seek(int fd, off_t offset, int whence) { return ::lseek(fd, offset, whence); }
int Platform::truncate(int fd, off_t size) { return ::ftruncate(fd, size); }
int Platform::sync(int fd) { return ::fsync(fd); }
int Platform::shareBlocks(int from, int to) { return ::ioctl(to, FICLONE, from); }
ssize_t Platform::copyRange(int from, int to, std::size_t size) {
  return ::copy_file_range(from, nullptr, to, nullptr, size, 0);
}
int Platform::close(int fd) { return ::close(fd); }

int Platform::status(const char* path, struct stat& out) { return ::stat(path, &out); }
int Platform::rename(const char* from, const char* to) { return std::rename(from, to); }
int Platform::exchange(const char* a, const char* b) {
  return ::renameat2(AT_FDCWD, a, AT_FDCWD, b, RENAME_EXCHANGE);
}
int Platform::link(const char* from, const char* to) { return ::link(from, to); }
bool Platform::realPath(const char* path, std::string& out) {
  const std::unique_ptr<char, decltype(&std::free)> found(::realpath(path, nullptr), std::free);
  if (found) out = found.get();
  return found != nullptr;
}
int Platform::remove(const char* path) { return ::unlink(path); }
int Platform::makeDirectory(const char* path, mode_t mode) { return ::mkdir(path, mode); }
int Platform::setRights(const char* path, mode_t mode) { return ::chmod(path, mode); }
int Platform::removeDirectory(const char* path) { return ::rmdir(path); }

bool Platform::list(const char* path, std::vector<std::string>& names) {
  names.clear();
  std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path), ::closedir);
  if (!directory) return false;
  errno = 0;
  while (const dirent* entry = ::readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  std::sort(names.begin(), names.end());
  return errno == 0;
}
bool Platform::freeSpace(const char* path, std::uint64_t& bytes) {
  struct statvfs space;
  if (::statvfs(path, &space) != 0) return false;
  bytes = std::uint64_t{space.f_bavail} * space.f_frsize;
  return true;
}

void* Platform::allocate(std::size_t size) { return std::malloc(size); }
void* Platform::reallocate(void* block, std::size_t size) { return std::realloc(block, size); }
void Platform::release(void* block) { std::free(block); }
void Platform::sleepOneSecond() { ::sleep(1); }

namespace {

// There before the first allocation and never destroyed: what closes at the very end
// still finds it.
union OperatingSystem {
  constexpr OperatingSystem() : platform() {}
  ~OperatingSystem() {}
  Platform platform;
};
constinit OperatingSystem operatingSystem;
// Set by replacePlatform, that is by tests alone; lives as long as the process.
Platform* inForce = &operatingSystem.platform;

// A stream's cookie is its descriptor, so that no memory has to be owned.
int descriptorOf(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

ssize_t streamRead(void* cookie, char* buffer, std::size_t size) {
  return platform().read(descriptorOf(cookie), buffer, size);
}

// A stream takes a short write for a failure, so the rest is tried here; it
// learns how much arrived, 0 for nothing.
ssize_t streamWrite(void* cookie, const char* buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t written = platform().write(descriptorOf(cookie), buffer + done, size - done);
    if (written <= 0) break;
    done += static_cast<std::size_t>(written);
  }
  return static_cast<ssize_t>(done);
}

int streamSeek(void* cookie, off64_t* position, int whence) {
  const off_t reached = platform().seek(descriptorOf(cookie), *position, whence);
  if (reached < 0) return -1;
  *position = reached;
  return 0;
}

int streamClose(void* cookie) { return platform().close(descriptorOf(cookie)); }

int openFlags(std::string_view mode) {
  const int access = mode.find('+') != std::string_view::npos ? O_RDWR
                     : mode.front() == 'r'                    ? O_RDONLY
                                                              : O_WRONLY;
  if (mode.front() == 'w') return access | O_CREAT | O_TRUNC;
  if (mode.front() == 'a') return access | O_CREAT | O_APPEND;
  return access;
}

// Only looking: a "no" leaves no reason behind.
bool hasType(const std::string& path, mode_t type) {
  struct stat status {};
  const int savedErrno = errno;
  const bool exists = platform().status(path.c_str(), status) == 0;
  errno = savedErrno;
  return exists && (type == 0 || (status.st_mode & S_IFMT) == type);
}

}  // namespace

Platform& platform() { return *inForce; }

Platform* replacePlatform(Platform* replacement) {
  Platform* before = inForce;
  inForce = replacement != nullptr ? replacement : &operatingSystem.platform;
  return before;
}

void StreamCloser::operator()(FILE* stream) const { std::fclose(stream); }

StreamPtr openStream(const std::string& path, const char* mode) {
  const int fd = platform().open(path.c_str(), openFlags(mode), 0666);
  if (fd < 0) return nullptr;
  const cookie_io_functions_t calls = {streamRead, streamWrite, streamSeek, streamClose};
  StreamPtr stream(
      fopencookie(reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)), mode, calls));
  if (!stream) platform().close(fd);
  return stream;
}

int closeStream(StreamPtr stream) {
  if (!stream) return 0;
  const bool lost = std::ferror(stream.get()) != 0;
  const bool flushed = std::fflush(stream.get()) == 0;
  const bool closed = std::fclose(stream.release()) == 0;
  if (!lost && flushed && closed) return 0;
  if (errno == 0) errno = EIO;  // the reason went with the write that was lost
  return -1;
}

Presence presenceOf(const std::string& path) {
  const int kept = errno;
  struct stat status;
  if (platform().status(path.c_str(), status) == 0) return Presence::present;
  if (errno != ENOENT && errno != ENOTDIR) return Presence::unknown;
  errno = kept;
  return Presence::absent;
}
bool fileExists(const std::string& path) { return hasType(path, 0); }
bool directoryExists(const std::string& path) { return hasType(path, S_IFDIR); }
bool sameDirectory(const std::string& a, const std::string& b) {
  const int kept = errno;
  struct stat statusA;
  struct stat statusB;
  const bool exist =
      platform().status(a.c_str(), statusA) == 0 && platform().status(b.c_str(), statusB) == 0;
  errno = kept;
  return exist && statusA.st_dev == statusB.st_dev && statusA.st_ino == statusB.st_ino;
}
