#pragma once

// A file that lives in memory, with a path that any number of readers can open.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    const auto size = static_cast<ssize_t>(content.size());
    if (descriptor_ < 0 || ::write(descriptor_, content.data(), content.size()) != size) {
      std::abort();
    }
  }
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

inline void require(bool holds) {
  if (!holds) std::abort();
}
