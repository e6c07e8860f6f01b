#include "storage/cfile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <random>

#include "base/errors.h"
#include "storage/cio.h"
#include "support/big_endian.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

constexpr std::int64_t kBlock = 65536;

int faultsOf(const std::string& path) {
  return PBcfCheck(path, [](std::string_view) {});
}

std::string contentOf(const std::string& path) {
  const std::unique_ptr<CompressedFile> file = CompressedFile::open(path, false);
  if (file == nullptr) return "can't be opened";
  std::string bytes(static_cast<std::size_t>(file->size()), '?');
  const std::int64_t count = file->read(bytes.data(), bytes.size());
  return count == file->size() ? bytes : "can't be read";
}

bool writeAt(CompressedFile& file, std::size_t at, const std::string& data) {
  return file.seek(static_cast<std::int64_t>(at), SEEK_SET) == 0 &&
         file.write(data.data(), data.size()) == static_cast<std::int64_t>(data.size());
}

// --- Bytes ---------------------------------------------------------------------------

TEST(CompressedFile, HasAHeaderPageAndAPageForEachBlock) {
  const TempDir directory;
  const std::string path = directory.path("f");
  std::unique_ptr<CompressedFile> file = CompressedFile::create(path);
  EXPECT_TRUE(writeAt(*file, kBlock * 2, "abcd"));
  EXPECT_EQ(file->close(), 0);
  const VPageFilePtr store = VPageOpenRead(path, 1);
  const std::string header(static_cast<const char*>(VPageGet(*store, 0)), 16 + 4 * 32);
  EXPECT_EQ(VPageSize(*store, 0), 16 + 4 * 32);
  const std::string none = bigEndian(0xFFFFFFFF);
  std::string expected =
      none + bigEndian(32) + bigEndian(0) + bigEndian(kBlock * 2 + 4) + none + none + bigEndian(1);
  while (expected.size() < header.size()) expected += none;
  EXPECT_EQ(header, expected);
  VPageRelease(*store, 0);
  const auto* packed = static_cast<const char*>(VPageGet(*store, 1));
  EXPECT_EQ(std::string(packed, static_cast<std::size_t>(VPageSize(*store, 1))),
            std::string("\0\x20"
                        "abcd\0\0\4\x83\xFF\x7B",
                        12));
  EXPECT_EQ(contentOf(path), std::string(kBlock * 2, '\0') + "abcd");
}

TEST(CompressedFile, RefusesWhatIsNoHeader) {
  const TempDir directory;
  const std::string none = bigEndian(0xFFFFFFFF);
  const struct {
    const char* what;
    std::string header;
    int code;
  } cases[] = {
      {"other marker", bigEndian(1) + bigEndian(0) + bigEndian(0) + bigEndian(0), 106},
      {"half a header", none + bigEndian(0), 87},
      {"table larger than its page", none + bigEndian(2) + bigEndian(0) + bigEndian(0) + none, 87},
      {"negative length", none + bigEndian(1) + none + none + none, 87},
      {"length past the table", none + bigEndian(1) + bigEndian(0) + bigEndian(kBlock + 1) + none,
       87},
      {"a page that isn't there", none + bigEndian(1) + bigEndian(0) + bigEndian(1) + bigEndian(2),
       87},
      {"the header as a block", none + bigEndian(1) + bigEndian(0) + bigEndian(1) + bigEndian(0),
       87},
      {"a page twice",
       none + bigEndian(2) + bigEndian(0) + bigEndian(2 * kBlock) + bigEndian(1) + bigEndian(1),
       87},
  };
  const std::string path = directory.path("f");
  for (const auto& row : cases) {
    VPageFilePtr store = VPageCreate(path, 1);
    for (const std::string& page : {row.header, std::string("page 1")}) {
      void* data = nullptr;
      const std::int64_t id = VPageNew(*store, page.size(), data);
      std::copy(page.begin(), page.end(), static_cast<char*>(data));
      VPageRelease(*store, static_cast<std::uint32_t>(id));
    }
    EXPECT_EQ(VPageClose(std::move(store)), 0);
    const std::string before = directory.read("f");
    EXPECT_EQ(PBcfopen(path, kCfUpdate), -2) << row.what;
    EXPECT_TRUE(PBerrorHas("cfile", row.code)) << row.what;
    PBdiscardErrors();
    EXPECT_EQ(faultsOf(path), 1) << row.what;
    EXPECT_EQ(directory.read("f"), before);
    EXPECT_EQ(PBerrorCount(), 0);
  }
}

TEST(CompressedFile, TellsABlockThatCannotBeUnpacked) {
  const TempDir directory;
  const std::string path = directory.path("f");
  for (const std::string& packed : {std::string("\1"), std::string("\0\0short", 7)}) {
    std::unique_ptr<CompressedFile> file = CompressedFile::create(path);
    EXPECT_TRUE(writeAt(*file, 0, std::string(kZipBlockSize, 'd')));
    EXPECT_EQ(file->close(), 0);
    VPageFilePtr store = VPageOpen(path, 1);
    std::copy(packed.begin(), packed.end(),
              static_cast<char*>(VPageResize(*store, 1, packed.size())));
    EXPECT_EQ(VPageClose(std::move(store)), 0);
    EXPECT_EQ(contentOf(path), "can't be read");
    EXPECT_TRUE(PBerrorHas("unzip", 0));
    PBdiscardErrors();
    EXPECT_EQ(faultsOf(path), 1);
  }
}

// --- Use -----------------------------------------------------------------------------

TEST(CompressedFile, AppendingReadsNothingBack) {
  const TempDir directory;
  std::unique_ptr<CompressedFile> file = CompressedFile::create(directory.path("f"));
  class : public FaultPlatform {
    ssize_t read(int, void*, std::size_t) override {
      errno = EIO;
      return -1;
    }
  } noReads;
  const std::string row(344, 'r');
  for (int i = 0; i < 2000; ++i) EXPECT_EQ(file->write(row.data(), row.size()), 344);
  EXPECT_EQ(file->size(), 344 * 2000);
  EXPECT_EQ(file->flush(), 0);
}

TEST(CompressedFile, RefusesPositionsThatDoNotFit) {
  const TempDir directory;
  std::unique_ptr<CompressedFile> file = CompressedFile::create(directory.path("f"));
  EXPECT_EQ(file->seek(std::int64_t{1} << 50, SEEK_SET), 0);
  EXPECT_EQ(file->write("x", 1), -2);
  EXPECT_EQ(PBerrorFind("cfile", 0, false),
            "file offset out of range: data set is probably too large (cwrite)\n"
            "   Try smaller amounts of data, such as fewer vectors");
  char byte = 0;
  EXPECT_EQ(file->read(&byte, 1), 0);
  EXPECT_EQ(file->seek(-1, SEEK_SET), -2);
  PBdiscardErrors();
}

TEST(CompressedFile, OpensAtMost256AtOnce) {
  const TempDir directory;
  std::vector<std::unique_ptr<CompressedFile>> files;
  for (int i = 0; i < 256; ++i) {
    files.push_back(CompressedFile::create(directory.path(std::to_string(i))));
    ASSERT_NE(files.back(), nullptr) << i;
  }
  EXPECT_EQ(CompressedFile::create(directory.path("more")), nullptr);
  EXPECT_EQ(PBerrorFind("cfile", 0, false), "Too many open cfiles");
  PBdiscardErrors();
  files.pop_back();
  EXPECT_NE(CompressedFile::create(directory.path("more")), nullptr);
}

TEST(CompressedFileDeathTest, WarnsOnceOfACacheSizeThatCannotBe) {
  const TempDir directory;
  const auto openTwo = [&] {
    setenv("MVK_NUM_COMPRESS_CACHE", "1", 1);
    for (const char* name : {"a", "b"}) CompressedFile::create(directory.path(name));
    std::exit(0);
  };
  EXPECT_EXIT(openTwo(), testing::ExitedWithCode(0),
              "^Warning: ignoring MVK_NUM_COMPRESS_CACHE \\(2 < 1 < 40\\)\n$");
}

// --- Failure -------------------------------------------------------------------------

// Three blocks to begin with, one of them packing badly.
std::string someBlocks() {
  std::mt19937 random(7);
  std::string bytes(3 * kBlock, 'x');
  for (std::size_t i = 0; i < kBlock; ++i) bytes[i] = static_cast<char>(random());
  return bytes;
}

TEST(CompressedFile, AnyCallMayFail) {
  const TempDir directory;
  const std::string path = directory.path("f");
  const std::string before = someBlocks();
  std::string after = before.substr(0, 2 * kBlock + 10);
  after.replace(100, 9, "something");
  std::unique_ptr<CompressedFile> file = CompressedFile::create(path);
  EXPECT_TRUE(writeAt(*file, 0, before));
  EXPECT_EQ(file->close(), 0);
  const std::string original = directory.read("f");
  failEachFileCall([&](FaultPlatform& faults) {
    directory.write("f", original);
    file = CompressedFile::open(path, true);
    const bool opened = file != nullptr;
    bool good = opened && writeAt(*file, 100, "something") &&
                file->truncate(2 * kBlock + 10) == 0 && file->flush() == 0;
    if (opened) good = file->close() == 0 && good;
    const bool failed = faults.stop();
    EXPECT_TRUE(good || (failed && PBerrorCount() > 0));
    if (good || !opened) {
      EXPECT_TRUE(contentOf(path) == (good ? after : before)) << PBformatError(0, 300);
    }
    PBdiscardErrors();
  });
}

TEST(CompressedFile, AFullDiskLosesNothingOnceThereIsRoom) {
  const TempDir directory;
  const std::string content = someBlocks() + someBlocks();
  for (std::int64_t space = 0; space < 160000; space += 7919) {
    const std::string path = directory.path(std::to_string(space));
    std::unique_ptr<CompressedFile> file = CompressedFile::create(path);
    FaultPlatform faults;
    faults.setDiskSpace(space);
    std::size_t done = 0;
    while (done < content.size()) {
      if (writeAt(*file, done, content.substr(done, 10000))) {
        done += 10000;
      } else {
        EXPECT_GT(PBerrorCount(), 0);
        EXPECT_EQ(file->flush(), -2);
        faults.freeDiskSpace();
      }
    }
    faults.freeDiskSpace();
    EXPECT_EQ(file->flush(), 0);
    EXPECT_TRUE(contentOf(path) == content);
    EXPECT_EQ(file->close(), 0);
    EXPECT_EQ(faultsOf(path), 0);
    PBdiscardErrors();
  }
}

}  // namespace
