#pragma once

// A new directory of its own for a test, removed with all it holds at the end.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string path(std::string_view name = "") const;
  // Writes a file of the directory and returns its path.
  std::string write(std::string_view name, std::string_view content) const;
  std::string read(std::string_view name) const;

 private:
  std::filesystem::path root_;
};
