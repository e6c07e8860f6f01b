#include "base/platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;

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

TEST_F(Streams, EachFailingCallOfAWriterIsSeen) {
  bool failed = true;
  for (int n = 1; failed; ++n) {
    FaultPlatform faults;
    faults.failFileCall(n);
    StreamPtr stream = openStream(path_, "w");
    if (stream) std::fputs("text", stream.get());
    const bool good = stream && closeStream(std::move(stream)) == 0;
    failed = faults.failed();
    EXPECT_NE(good, failed) << "call " << n;
  }
  EXPECT_EQ(dir_.read("file"), "text");
}

TEST_F(Streams, FilesAndDirectoriesAreToldApart) {
  dir_.write("b", "");
  ASSERT_EQ(platform().makeDirectory(dir_.path("a").c_str(), 0777), 0);
  EXPECT_TRUE(fileExists(dir_.path("b")));
  EXPECT_FALSE(fileExists(dir_.path("c")));
  EXPECT_TRUE(directoryExists(dir_.path("a")));
  EXPECT_FALSE(directoryExists(dir_.path("b")));
  std::vector<std::string> names;
  ASSERT_TRUE(platform().list(dir_.path().c_str(), names));
  EXPECT_THAT(names, ElementsAre("a", "b"));
  EXPECT_FALSE(platform().list(dir_.path("c").c_str(), names));
}

}  // namespace
