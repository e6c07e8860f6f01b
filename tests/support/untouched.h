#pragma once

// Sees to it that a directory is the same at the end of a scope as at its
// beginning, name by name and byte by byte: what was opened for reading only must
// not change.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>

// Name and content of every file of a directory.
inline std::map<std::string, std::string> directoryContent(const std::string& path) {
  std::map<std::string, std::string> content;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(path, missing)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    content[entry.path().filename().string()] =
        std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return content;
}

class Untouched {
 public:
  explicit Untouched(std::string path) : path_(std::move(path)), before_(directoryContent(path_)) {}
  ~Untouched() { EXPECT_TRUE(directoryContent(path_) == before_) << path_ << " was changed"; }
  Untouched(const Untouched&) = delete;
  Untouched& operator=(const Untouched&) = delete;

 private:
  std::string path_;
  std::map<std::string, std::string> before_;
};
