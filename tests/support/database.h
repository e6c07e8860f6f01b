#pragma once

// A database in a directory of its own, open from construction to destruction.
// While it is open for reading only, its files are watched: they must not change.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "base/temp_directory.h"
#include "pvb/database.h"
#include "support/temp_dir.h"
#include "support/untouched.h"

class TestDatabase {
 public:
  explicit TestDatabase(int rowWidth = 32, int numBuffers = 16,
                        std::uint32_t sections = kAllSections)
      : rowWidth_(rowWidth), numBuffers_(numBuffers), sections_(sections) {
    std::filesystem::create_directory(dir_.path("tmp"));
    PBsetTempDirectory(dir_.path("tmp"));
    open();
  }
  ~TestDatabase() {
    if (handle_ >= 0 && PVBget(handle_) != nullptr) PVBcloseUnsaved(handle_);
    untouched_.reset();
    PBsetTempDirectory("");
  }

  int handle() const { return handle_; }
  std::string path() const { return dir_.path("db"); }
  const TempDir& directory() const { return dir_; }
  PVBdatabase& slot() const { return *PVBget(handle_); }

  // False when the database couldn't be opened; handle() is then -1.
  bool open(bool writable = true) {
    if (!writable) untouched_ = std::make_unique<Untouched>(path());
    handle_ = PVBopenAny(path(), writable, rowWidth_, numBuffers_, sections_, false);
    return handle_ >= 0;
  }
  void close() {
    EXPECT_EQ(PVBclose(handle_), 0);
    untouched_.reset();
    handle_ = -1;
  }
  void reopen(bool writable = true) {
    close();
    EXPECT_TRUE(open(writable));
  }

  // Name and content of every file of the database directory.
  std::map<std::string, std::string> files() const { return directoryContent(path()); }
  // Files left in the temporary directory.
  std::size_t temporaryFiles() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator(dir_.path("tmp"))) {
      ++count;
    }
    return count;
  }

 private:
  TempDir dir_;
  int rowWidth_;
  int numBuffers_;
  std::uint32_t sections_;
  int handle_ = -1;
  std::unique_ptr<Untouched> untouched_;
};
