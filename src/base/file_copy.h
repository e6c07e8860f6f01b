#pragma once

// Whole files copied and moved. A copy shares the blocks of its source where the
// file system can, so that a private copy of a large database costs next to
// nothing; else the system copies, else this program does in pieces.
//
// Both arrive under the final name only when they are whole: a copy that fails
// leaves `to` as it was. They return 0, or -2 with errno set; nothing is posted.

#include <string>
#include <utility>

// `from` stays untouched; `to` is replaced and gets the access rights of `from`.
int PBcopyFile(const std::string& from, const std::string& to);
// A rename, or a copy and a removal between file systems.
int PBmoveFile(const std::string& from, const std::string& to);

// A file that is removed with its owner: a private copy, a temporary file. Empty
// when it has no path.
class TempFile {
 public:
  TempFile() = default;
  explicit TempFile(std::string path) : path_(std::move(path)) {}
  ~TempFile() { remove(); }
  TempFile(TempFile&& other) noexcept : path_(std::exchange(other.path_, {})) {}
  TempFile& operator=(TempFile&& other) noexcept {
    std::swap(path_, other.path_);
    return *this;
  }

  const std::string& path() const { return path_; }
  // Removes the file, if there is one; errno stays as it was.
  void remove();
  // Gives the file up: it stays on disk.
  std::string release() { return std::exchange(path_, {}); }

 private:
  std::string path_;
};

// A copy of `from` under a new name in the temporary directory; empty with errno
// set on failure.
TempFile PBprivateCopy(const std::string& from);
