#include "tools/byte_source.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>
#include <zlib.h>

#include <random>

#include "base/temp_directory.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using testing::HasSubstr;

std::string packed(std::string_view text) {
  z_stream stream{};
  deflateInit2(&stream, 6, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// Longer than the pieces in which files are read, and hard to pack.
std::string longText() {
  std::mt19937 random(7);
  std::string text;
  while (text.size() < 300'000) text += std::to_string(random());
  return text;
}

std::string readOn(ByteSource& source, std::size_t piece = 1000) {
  std::string text;
  std::string bytes(piece, '\0');
  std::ptrdiff_t got = 0;
  while ((got = source.read(bytes.data(), piece)) > 0) {
    text.append(bytes, 0, static_cast<std::size_t>(got));
  }
  return got == 0 ? text : "failed: " + source.reason();
}

std::string readAll(const std::string& path) {
  std::string reason;
  const auto source = ByteSource::open(path, false, reason);
  return source ? readOn(*source) : "not opened: " + reason;
}

// The reading end of a pipe that holds a text, which must be short.
class Pipe {
 public:
  explicit Pipe(const std::string& text) {
    EXPECT_EQ(pipe(ends_), 0);
    EXPECT_EQ(write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(ends_[1]);
  }
  ~Pipe() { close(ends_[0]); }
  std::string path() const { return "/proc/self/fd/" + std::to_string(ends_[0]); }

 private:
  int ends_[2] = {-1, -1};
};

class StandardInput {
 public:
  explicit StandardInput(int from) : kept_(dup(STDIN_FILENO)) { dup2(from, STDIN_FILENO); }
  ~StandardInput() {
    dup2(kept_, STDIN_FILENO);
    close(kept_);
  }

 private:
  int kept_;
};

struct ByteSourceTest : testing::Test {
  ByteSourceTest() { PBsetTempDirectory(dir.path()); }
  ~ByteSourceTest() override { PBsetTempDirectory(""); }
  std::size_t filesLeft() const {
    const std::filesystem::directory_iterator begin(dir.path());
    return static_cast<std::size_t>(std::distance(begin, {}));
  }
  TempDir dir;
};

TEST_F(ByteSourceTest, PlainAndGzipFilesGiveTheirText) {
  const std::string text = longText();
  for (const std::string& one : {std::string(), std::string("a"), text}) {
    EXPECT_EQ(readAll(dir.write("plain", one)), one);
    EXPECT_EQ(readAll(dir.write("packed", packed(one))), one);
  }
  EXPECT_EQ(readAll(dir.write("two", packed(text) + packed("") + packed("end"))), text + "end");
}

TEST_F(ByteSourceTest, WrongFilesHaveAReason) {
  EXPECT_EQ(readAll(dir.path("none")), "not opened: No such file or directory");
  EXPECT_EQ(readAll(dir.path()), "not opened: Is a directory");
  const std::string good = packed("some text");
  std::string damaged = good;
  damaged[damaged.size() - 6] ^= 1;
  std::string wrongMethod = good;
  wrongMethod[2] = 1;
  EXPECT_THAT(readAll(dir.write("f", damaged)), HasSubstr("failed: the gzip data is damaged"));
  EXPECT_THAT(readAll(dir.write("f", wrongMethod)), HasSubstr("failed: the gzip data is damaged"));
  for (const char* garbage : {"x", "\x1f", "xy", "\n\n\n"}) {
    EXPECT_EQ(readAll(dir.write("f", good + garbage)),
              "failed: there is something else behind the gzip data");
  }
  for (std::size_t length = 2; length < good.size(); ++length) {
    EXPECT_EQ(readAll(dir.write("f", good.substr(0, length))), "failed: the gzip data is cut off");
    EXPECT_EQ(readAll(dir.write("f", good + good.substr(0, length))),
              length > 2 ? "failed: the gzip data is cut off"
                         : "failed: there is something else behind the gzip data");
  }
}

TEST_F(ByteSourceTest, WhatStandsInFrontOfACutComesFirst) {
  const std::string text = longText();
  const std::string whole = packed(text);
  std::string reason;
  const auto source = ByteSource::open(dir.write("f", whole.substr(0, 100'000)), true, reason);
  std::string begin(1000, '\0');
  ASSERT_EQ(source->read(begin.data(), begin.size()), 1000);
  EXPECT_EQ(begin, text.substr(0, 1000));
  readOn(*source);
  EXPECT_EQ(source->read(begin.data(), begin.size()), -1);
  EXPECT_EQ(source->reason(), "the gzip data is cut off");
  EXPECT_TRUE(source->isCut());
  ASSERT_TRUE(source->seek(0));
  ASSERT_EQ(source->read(begin.data(), begin.size()), 1000);
  EXPECT_EQ(begin, text.substr(0, 1000));
}

TEST_F(ByteSourceTest, SeeksGoToAnyByteThatWasRead) {
  const std::string text = longText();
  const std::string half = text.substr(0, text.size() / 2);
  const Pipe plainPipe(text.substr(0, 40'000));
  const Pipe packedPipe(packed(text.substr(0, 80'000)));
  for (const std::string& path :
       {dir.write("plain", text),
        dir.write("packed", packed(half) + packed(text.substr(half.size()))), plainPipe.path(),
        packedPipe.path()}) {
    std::string reason;
    const auto source = ByteSource::open(path, true, reason);
    ASSERT_TRUE(source) << reason;
    const std::string read = readOn(*source, 777);
    ASSERT_EQ(read, text.substr(0, read.size()));
    for (const std::size_t offset :
         {read.size() - 1, std::size_t{5}, std::size_t{30'000}, std::size_t{0}, read.size()}) {
      ASSERT_TRUE(source->seek(offset)) << source->reason();
      EXPECT_EQ(readOn(*source), read.substr(offset));
    }
  }
  EXPECT_EQ(filesLeft(), 2U) << "the copies of pipes have no names";
}

TEST_F(ByteSourceTest, PipesAreReadOnceUnlessTheyAreKept) {
  const Pipe pipe("a text");
  std::string reason;
  const auto source = ByteSource::open(pipe.path(), false, reason);
  ASSERT_TRUE(source) << reason;
  EXPECT_EQ(source->size(), -1);
  EXPECT_EQ(readOn(*source), "a text");
  EXPECT_FALSE(source->seek(0));
  EXPECT_EQ(source->reason(), "a pipe can't be read twice");
}

TEST_F(ByteSourceTest, StandardInputIsAFileFromWhereItStands) {
  const int descriptor = open(dir.write("f", "head\nthe rest").c_str(), O_RDONLY);
  ASSERT_EQ(lseek(descriptor, 5, SEEK_SET), 5);
  {
    const StandardInput input(descriptor);
    std::string reason;
    const auto source = ByteSource::open("-", true, reason);
    EXPECT_EQ(source->name(), "<stdin>");
    EXPECT_EQ(source->size(), 8);
    EXPECT_EQ(readOn(*source), "the rest");
    EXPECT_EQ(source->consumed(), 8);
    EXPECT_TRUE(source->seek(4));
    EXPECT_EQ(readOn(*source), "rest");
  }
  close(descriptor);
}

// The n-th call of the system fails: all comes nevertheless, or there is a reason.
TEST_F(ByteSourceTest, EachFailedCallIsSurvivedOrTold) {
  const std::string text = longText().substr(0, 20'000);
  const std::string plain = dir.write("plain", text);
  const std::string zipped = dir.write("packed", packed(text));
  for (const bool fromPipe : {false, true}) {
    for (const std::string& path : {plain, zipped}) {
      bool failed = true;
      for (int n = 1; failed; ++n) {
        const Pipe pipe(dir.read(path == plain ? "plain" : "packed"));
        FaultPlatform faults;
        faults.failFileCall(n);
        std::string reason;
        const auto source = ByteSource::open(fromPipe ? pipe.path() : path, true, reason);
        const std::string got = source ? readOn(*source, 5000) : "not opened: " + reason;
        if (got != text) {
          EXPECT_THAT(got, HasSubstr("Input/output error")) << n;
        } else if (!source->seek(10) || readOn(*source) != text.substr(10)) {
          EXPECT_THAT(source->reason(), HasSubstr("Input/output error")) << n;
        }
        failed = faults.failed();
      }
    }
  }
}

TEST_F(ByteSourceTest, AFullDiskEndsThePipeThatIsKept) {
  const Pipe pipe(longText().substr(0, 20'000));
  FaultPlatform faults;
  faults.setDiskSpace(10'000);
  std::string reason;
  const auto source = ByteSource::open(pipe.path(), true, reason);
  EXPECT_THAT(readOn(*source), HasSubstr("temporary file: No space left on device"));
}

}  // namespace
