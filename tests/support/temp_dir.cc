#include "support/temp_dir.h"

#include <stdlib.h>

#include <stdexcept>

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "pvbtest-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
  root_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

std::string TempDir::path(std::string_view name) const {
  return name.empty() ? root_.string() : (root_ / name).string();
}

std::string TempDir::write(std::string_view name, std::string_view content) const {
  std::ofstream file(root_ / name, std::ios::binary);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path(name));
  return path(name);
}

std::string TempDir::read(std::string_view name) const {
  std::ifstream file(root_ / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
