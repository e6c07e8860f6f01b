#pragma once

// A file that lives in memory, with a path that any number of readers can open.

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "require.h"

class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    const auto size = static_cast<ssize_t>(content.size());
    require(descriptor_ >= 0 && ::write(descriptor_, content.data(), content.size()) == size);
  }
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};
