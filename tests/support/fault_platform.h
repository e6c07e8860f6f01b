#pragma once

// A Platform for tests: fails the n-th call of the kinds it is told to count,
// cuts writes short, or behaves like a disk that is full after so many bytes.
// In force from construction to destruction, which leaves no errno behind.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <limits>
#include <utility>

#include "base/platform.h"

class FaultPlatform : public Platform {
 public:
  FaultPlatform() : before_(replacePlatform(this)) {}
  ~FaultPlatform() override {
    replacePlatform(before_);
    errno = 0;
  }
  FaultPlatform(const FaultPlatform&) = delete;
  FaultPlatform& operator=(const FaultPlatform&) = delete;

  // The n-th file call from now on fails with `error`; 1 is the next one.
  void failFileCall(int n, int error = EIO) {
    fileCallsLeft_ = n;
    error_ = error;
  }
  // No call fails from now on; whether one did.
  bool stop() {
    failFileCall(0);
    return failed_;
  }
  // At the n-th file call from now on the process ends as if it were killed.
  void dieAtFileCall(int n) {
    failFileCall(n);
    dies_ = true;
  }
  // Called before each file call from now on.
  void watchFileCalls(std::function<void()> watcher) { watcher_ = std::move(watcher); }
  // The next `count` allocations fail.
  void failAllocations(int count) { failingAllocations_ = count; }
  // Room for this many bytes of writing; then ENOSPC, after a short write.
  void setDiskSpace(std::int64_t bytes) { space_ = bytes; }
  void freeDiskSpace() { space_ = kUnlimited; }

  // The exit code of a process that died so.
  static constexpr int kDeathCode = 137;

  int fileCalls() const { return fileCalls_; }
  int secondsSlept() const { return secondsSlept_; }
  bool failed() const { return failed_; }

  int open(const char* path, int flags, mode_t mode) override {
    return fails() ? -1 : Platform::open(path, flags, mode);
  }
  ssize_t read(int fd, void* buffer, std::size_t size) override {
    return fails() ? -1 : Platform::read(fd, buffer, size);
  }
  ssize_t write(int fd, const void* buffer, std::size_t size) override {
    if (fails() || !takeSpace(size)) return -1;
    return spend(Platform::write(fd, buffer, size));
  }
  ssize_t readAt(int fd, void* buffer, std::size_t size, off_t offset) override {
    return fails() ? -1 : Platform::readAt(fd, buffer, size, offset);
  }
  ssize_t writeAt(int fd, const void* buffer, std::size_t size, off_t offset) override {
    if (fails() || !takeSpace(size)) return -1;
    return spend(Platform::writeAt(fd, buffer, size, offset));
  }
  off_t seek(int fd, off_t offset, int whence) override {
    return fails() ? -1 : Platform::seek(fd, offset, whence);
  }
  int truncate(int fd, off_t size) override { return fails() ? -1 : Platform::truncate(fd, size); }
  // No power fails in a test, so nothing waits for the disk.
  int sync(int) override { return fails() ? -1 : 0; }
  int shareBlocks(int from, int to) override {
    return fails() || space_ < kUnlimited ? -1 : Platform::shareBlocks(from, to);
  }
  ssize_t copyRange(int from, int to, std::size_t size) override {
    if (fails()) return -1;
    if (space_ < kUnlimited) {
      errno = ENOSYS;  // the bytes then come through write, which counts them
      return -1;
    }
    return Platform::copyRange(from, to, size);
  }
  // A close that fails still gives the descriptor back, as the system's does.
  int close(int fd) override {
    const bool fail = fails();
    const int error = errno;
    const int result = Platform::close(fd);
    if (!fail) return result;
    errno = error;
    return -1;
  }
  int status(const char* path, struct stat& out) override {
    return fails() ? -1 : Platform::status(path, out);
  }
  int rename(const char* from, const char* to) override {
    return fails() ? -1 : Platform::rename(from, to);
  }
  int exchange(const char* a, const char* b) override {
    return fails() ? -1 : Platform::exchange(a, b);
  }
  int link(const char* from, const char* to) override {
    return fails() ? -1 : Platform::link(from, to);
  }
  bool realPath(const char* path, std::string& out) override {
    return !fails() && Platform::realPath(path, out);
  }
  int remove(const char* path) override { return fails() ? -1 : Platform::remove(path); }
  int makeDirectory(const char* path, mode_t mode) override {
    return fails() ? -1 : Platform::makeDirectory(path, mode);
  }
  int setRights(const char* path, mode_t mode) override {
    return fails() ? -1 : Platform::setRights(path, mode);
  }
  int removeDirectory(const char* path) override {
    return fails() ? -1 : Platform::removeDirectory(path);
  }
  bool list(const char* path, std::vector<std::string>& names) override {
    return !fails() && Platform::list(path, names);
  }
  bool freeSpace(const char* path, std::uint64_t& bytes) override {
    if (fails() || !Platform::freeSpace(path, bytes)) return false;
    if (space_ < kUnlimited) bytes = static_cast<std::uint64_t>(space_);
    return true;
  }

  void* allocate(std::size_t size) override {
    return allocationFails() ? nullptr : Platform::allocate(size);
  }
  void* reallocate(void* block, std::size_t size) override {
    return allocationFails() ? nullptr : Platform::reallocate(block, size);
  }
  void sleepOneSecond() override { ++secondsSlept_; }

 private:
  bool fails() {
    ++fileCalls_;
    if (watcher_) watcher_();
    if (fileCallsLeft_ == 0 || --fileCallsLeft_ > 0) return false;
    if (dies_) ::_exit(kDeathCode);
    errno = error_;
    failed_ = true;
    return true;
  }
  // Cuts a write to the room that is left; false when there is none.
  bool takeSpace(std::size_t& size) {
    if (space_ < static_cast<std::int64_t>(size)) size = static_cast<std::size_t>(space_);
    if (size > 0) return true;
    errno = ENOSPC;
    failed_ = true;
    return false;
  }
  ssize_t spend(ssize_t written) {
    if (written > 0) space_ -= written;
    return written;
  }
  bool allocationFails() {
    if (failingAllocations_ == 0) return false;
    --failingAllocations_;
    errno = ENOMEM;
    return true;
  }

  Platform* before_;
  std::function<void()> watcher_;
  int fileCalls_ = 0;
  int fileCallsLeft_ = 0;
  int error_ = EIO;
  int failingAllocations_ = 0;
  int secondsSlept_ = 0;
  static constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();
  std::int64_t space_ = kUnlimited;
  bool failed_ = false;
  bool dies_ = false;
};

// Takes the action with the first file call failing, with the second, until none fails.
// What looks at the outcome calls stop() first.
template <typename Action>
void failEachFileCall(Action action) {
  bool failed = true;
  for (int n = 1; failed && !testing::Test::HasFatalFailure(); ++n) {
    SCOPED_TRACE(n);
    FaultPlatform faults;
    faults.failFileCall(n);
    action(faults);
    failed = faults.failed();
  }
}
