#pragma once

// The one place through which the program reaches the operating system for
// files and raw memory. Every module opens, reads, writes, renames and removes
// through platform(), so that a test can put a Platform of its own in place and
// fail the n-th call, cut a write short or fill the disk.
//
// The calls keep the system's own conventions: -1 (or false, or null) for
// failure with the reason in errno. They take no locks: one thread.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

class Platform {
 public:
  virtual ~Platform() = default;

  // Files. `flags` and `mode` as for open(2); all sizes in bytes.
  virtual int open(const char* path, int flags, mode_t mode);
  virtual ssize_t read(int fd, void* buffer, std::size_t size);
  virtual ssize_t write(int fd, const void* buffer, std::size_t size);
  // At a place of the file, which the descriptor's own place has no part in.
  virtual ssize_t readAt(int fd, void* buffer, std::size_t size, off_t offset);
  virtual ssize_t writeAt(int fd, const void* buffer, std::size_t size, off_t offset);
  virtual off_t seek(int fd, off_t offset, int whence);
  virtual int truncate(int fd, off_t size);
  virtual int sync(int fd);
  // Makes the empty file `to` share the blocks of `from`, where the file system
  // can; -1 where it can't.
  virtual int shareBlocks(int from, int to);
  // Copies at most `size` bytes between the places where both descriptors stand
  // and moves these on: the bytes copied, 0 at the end of `from`.
  virtual ssize_t copyRange(int from, int to, std::size_t size);
  virtual int close(int fd);

  // Names and directories.
  virtual int status(const char* path, struct stat& out);
  virtual int rename(const char* from, const char* to);
  // Swaps what two names stand for in one step; EINVAL or ENOSYS where the file system
  // can't.
  virtual int exchange(const char* a, const char* b);
  // A second name for a file; a symbolic link isn't followed.
  virtual int link(const char* from, const char* to);
  // The same place as an absolute path without links. false on failure.
  virtual bool realPath(const char* path, std::string& out);
  virtual int remove(const char* path);
  virtual int makeDirectory(const char* path, mode_t mode);
  virtual int setRights(const char* path, mode_t mode);
  virtual int removeDirectory(const char* path);
  // The names in a directory without "." and "..", sorted. false on failure.
  virtual bool list(const char* path, std::vector<std::string>& names);
  // Bytes that files of this user can still take where `path` is. false when the system
  // can't tell.
  virtual bool freeSpace(const char* path, std::uint64_t& bytes);

  // Raw memory, as malloc, realloc and free; null when there is none.
  virtual void* allocate(std::size_t size);
  virtual void* reallocate(void* block, std::size_t size);
  virtual void release(void* block);

  virtual void sleepOneSecond();
};

// The platform in force; the operating system itself unless replaced.
Platform& platform();

// Puts `replacement` in force (null: the operating system again) and returns
// what was in force before. The caller keeps ownership and must outlive its use.
Platform* replacePlatform(Platform* replacement);

struct StreamCloser {
  void operator()(FILE* stream) const;
};
// An open stream; closing by the destructor drops the result, so a writer calls
// closeStream and looks at it.
using StreamPtr = std::unique_ptr<FILE, StreamCloser>;

// fopen over platform(): `mode` is one of "r", "w", "a", "r+", "w+". Null with
// errno set on failure. A stream goes in one direction: one that both writes and
// reads loses its place. The stream's reads and writes go through the platform in
// force at the time of each call.
StreamPtr openStream(const std::string& path, const char* mode);

// Flushes and closes; 0, or -1 with errno set when any write was lost.
int closeStream(StreamPtr stream);

// Whether there is something under a path. What can't be looked at must not be
// taken for missing, or it would be written over.
enum class Presence { absent, present, unknown };
// errno holds the reason of `unknown` and is left alone otherwise.
Presence presenceOf(const std::string& path);
// The same for who has no use for the reason: unknown counts as absent.
bool fileExists(const std::string& path);
bool directoryExists(const std::string& path);
// Whether both paths lead to one and the same thing; false when one leads to nothing.
bool sameDirectory(const std::string& a, const std::string& b);
