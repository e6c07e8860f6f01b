#pragma once

// Files that verbs write: they come under their name only when they are whole, never over
// what is there unless that is wanted, and never into the database that is read.

#include <cstdio>
#include <string>

#include "base/file_copy.h"
#include "base/platform.h"

// Whether a file may be written at `path` from what stands in the directory `database`;
// else a message was told. With `force` a file may be there already.
bool mayWriteFile(const std::string& path, bool force, const std::string& database);

// A new file, under a temporary name beside `path` until it is committed. A device or a
// pipe has no such name: it is written where it is.
class OutputFile {
 public:
  // False with errno set when it can't be made.
  bool open(const std::string& path);
  FILE* stream() const { return stream_.get(); }
  // Writes the rest and puts the file in place; false with errno set when anything
  // was lost, and `path` is as it was.
  bool commit();

 private:
  std::string path_;
  TempFile file_;  // none for a device
  StreamPtr stream_;
};
