#pragma once

// A directory in memory for the databases of a fuzz run, emptied before each input.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string base = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
    path_ = base + "/pvbfuzz" + std::to_string(getpid());
    clear();
  }
  ~ScratchDirectory() { std::filesystem::remove_all(path_); }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  void clear() {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_ + "/tmp");
  }
  std::string path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};
