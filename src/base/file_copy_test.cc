#include "base/file_copy.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "base/platform.h"
#include "base/temp_directory.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

// A file system that can't copy by itself, so that every byte comes by here.
class PlainPlatform : public FaultPlatform {
 public:
  int shareBlocks(int, int) override { return -1; }
  ssize_t copyRange(int, int, std::size_t) override { return -1; }
  int rename(const char* from, const char* to) override {
    if (!otherFileSystem) return FaultPlatform::rename(from, to);
    otherFileSystem = false;
    errno = EXDEV;
    return -1;
  }
  bool otherFileSystem = false;
};

const std::string kContent = std::string(200000, 'x') + "end";

TEST(FileCopy, CopiesWholeFilesOverOldOnes) {
  TempDir dir;
  const std::string from = dir.write("from", kContent);
  const std::string to = dir.write("to", "old and longer than nothing");
  EXPECT_EQ(PBcopyFile(from, to), 0);
  EXPECT_EQ(dir.read("to"), kContent);
  PlainPlatform plain;
  EXPECT_EQ(PBcopyFile(from, dir.path("again")), 0);
  EXPECT_EQ(dir.read("again"), kContent);
}

TEST(FileCopy, LeavesTheTargetAsItWasWhenAnyCallFails) {
  TempDir dir;
  const std::string from = dir.write("from", kContent);
  for (int n = 1;; ++n) {
    const std::string to = dir.write("to", "old");
    PlainPlatform faults;
    faults.failFileCall(n);
    const int result = PBcopyFile(from, to);
    if (!faults.failed()) break;
    EXPECT_EQ(dir.read("to"), result == 0 ? kContent : "old") << "call " << n;
    EXPECT_FALSE(fileExists(to + ".new"));
    EXPECT_EQ(dir.read("from"), kContent);
  }
  const std::string to = dir.write("to", "old");
  FaultPlatform full;
  full.setDiskSpace(1000);
  EXPECT_EQ(PBcopyFile(from, to), -2);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(dir.read("to"), "old");
}

TEST(FileCopy, MovesBetweenFileSystems) {
  TempDir dir;
  const std::string from = dir.write("from", kContent);
  PlainPlatform plain;
  plain.otherFileSystem = true;
  EXPECT_EQ(PBmoveFile(from, dir.path("to")), 0);
  EXPECT_EQ(dir.read("to"), kContent);
  EXPECT_FALSE(fileExists(from));
}

TEST(FileCopy, PrivateCopiesGoWithTheirOwner) {
  TempDir dir;
  PBsetTempDirectory(dir.path());
  const std::string from = dir.write("from", kContent);
  std::string path;
  {
    const TempFile copy = PBprivateCopy(from);
    path = copy.path();
    EXPECT_NE(path, from);
    EXPECT_TRUE(fileExists(path));
  }
  EXPECT_FALSE(fileExists(path));
  EXPECT_TRUE(PBprivateCopy(dir.path("missing")).path().empty());
  PBsetTempDirectory("");
}

}  // namespace
