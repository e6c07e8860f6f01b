#include "base/platform.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

class Streams : public testing::Test {
 protected:
  void writeFile(const char* mode, const std::string& text) {
    StreamPtr stream = openStream(path_, mode);
    ASSERT_NE(stream, nullptr);
    std::fputs(text.c_str(), stream.get());
    EXPECT_EQ(closeStream(std::move(stream)), 0);
  }

  TempDir dir_;
  std::string path_ = dir_.path("file");
};

TEST_F(Streams, WriteAppendChangeAndReadBack) {
  writeFile("w", "longer text");
  writeFile("w", std::string(100'000, 'a'));
  writeFile("a", "end");
  StreamPtr stream = openStream(path_, "r+");
  ASSERT_EQ(std::fseek(stream.get(), -2, SEEK_END), 0);
  EXPECT_EQ(std::ftell(stream.get()), 100'001);
  EXPECT_EQ(std::fgetc(stream.get()), 'n');
  std::fseek(stream.get(), 0, SEEK_SET);
  std::fputc('b', stream.get());
  ASSERT_EQ(closeStream(std::move(stream)), 0);
  EXPECT_EQ(dir_.read("file"), "b" + std::string(99'999, 'a') + "end");
}

TEST_F(Streams, OpenFailsWithItsReason) {
  EXPECT_EQ(openStream(path_, "r"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  FaultPlatform faults;
  faults.failFileCall(1, EMFILE);
  EXPECT_EQ(openStream(path_, "w"), nullptr);
  EXPECT_EQ(errno, EMFILE);
}

TEST_F(Streams, FullDiskIsReportedAtCloseAtTheLatest) {
  for (const std::size_t size : {20U, 100'000U}) {
    FaultPlatform faults;
    faults.setDiskSpace(10);
    StreamPtr stream = openStream(path_, "w");
    const std::string text(size, 'a');
    std::fwrite(text.data(), 1, text.size(), stream.get());
    EXPECT_EQ(closeStream(std::move(stream)), -1);
    EXPECT_EQ(dir_.read("file"), std::string(10, 'a'));
  }
}

}  // namespace
