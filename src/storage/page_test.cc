#include "storage/page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "base/errors.h"
#include "base/temp_directory.h"
#include "storage/page_internal.h"
#include "storage/swapendian.h"
#include "support/big_endian.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;

// --- Builders ------------------------------------------------------------------------

// A directory, which is also the temporary one, with a block file.
class PageTest : public ::testing::Test {
 protected:
  PageTest() { PBsetTempDirectory(dir.path()); }
  ~PageTest() override {
    PBsetTempDirectory("");
    PBdiscardErrors();
  }

  int open(int maxBuffers = 4, std::uint32_t blockSize = 8) {
    return PageOpenPlain(dir.path("f"), blockSize, maxBuffers);
  }
  std::string bytes() const { return dir.read("f"); }
  void write(const std::string& content) const { dir.write("f", content); }
  // The number of files in the directory.
  std::size_t files() const {
    std::vector<std::string> names;
    platform().list(dir.path().c_str(), names);
    return names.size();
  }

  TempDir dir;
};

// The detail of the newest post of a function; all go off the stack.
std::string takePost(const char* function) {
  const std::string detail = PBerrorFind(function, 0, false).value_or("no post");
  PBdiscardErrors();
  return detail;
}

void store(void* data, std::uint32_t value) { std::memcpy(data, &value, sizeof value); }
std::uint32_t load(const void* data) {
  std::uint32_t value = 0;
  if (data != nullptr) std::memcpy(&value, data, sizeof value);
  return data != nullptr ? value : 0xBADBAD;
}

// A new block that holds a number; its own number or -1.
std::int64_t add(int file, std::uint32_t value) {
  void* data = nullptr;
  const std::int64_t block = PageNewTyped(file, data, typeInt);
  if (block < 0) return block;
  store(data, value);
  PageDirty(file, static_cast<std::uint32_t>(block));
  PageRelease(file, static_cast<std::uint32_t>(block));
  return block;
}

void addAll(int file, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) EXPECT_EQ(add(file, 100 + i), i);
}

// The number that a block holds.
std::uint32_t numberIn(int file, std::uint32_t block) {
  const void* data = PageGetTyped(file, block, typeInt);
  const std::uint32_t value = load(data);
  PageRelease(file, block);
  return value;
}

std::vector<std::string> faultsOf(int file) {
  std::vector<std::string> faults;
  const int count = PageCheck(file, [&](std::string_view text) { faults.emplace_back(text); });
  EXPECT_EQ(count, static_cast<int>(faults.size()));
  return faults;
}

// --- On disk -------------------------------------------------------------------------

TEST_F(PageTest, LaysOutHeaderBlocksAndFreeList) {
  std::uint32_t blockSize = 5;
  const int file = PageOpenPlain(dir.path("f"), blockSize, 2);
  EXPECT_EQ(blockSize, 8U);
  EXPECT_EQ(files(), 0U);  // nothing before the first write
  addAll(file, 6);
  for (const std::uint32_t block : {3U, 1U, 2U}) EXPECT_EQ(PageFree(file, block), 0);
  EXPECT_EQ(PageCount(file), 3U);
  EXPECT_EQ(PageClose(file), 0);
  EXPECT_EQ(bytes(), words({kNoBlock, 6, 3, 1, 8, 3, 0, 0}) +
                         words({100, 0, kNoBlock, 2, 1, 3, 2, kNoBlock, 104, 0, 105, 0}));

  const int again = open();
  const std::string before = bytes();
  EXPECT_THAT(faultsOf(again), ElementsAre());
  EXPECT_EQ(PageFree(again, 5), 0);
  EXPECT_EQ(PageFree(again, 4), 0);  // and with it all that was free
  EXPECT_EQ(bytes(), before);
  EXPECT_EQ(PageClose(again), 0);
  EXPECT_EQ(bytes(), words({kNoBlock, 1, 0, kNoBlock, 8, kNoBlock, 0, 0, 100, 0}));
}

TEST_F(PageTest, WritesTheHeaderOfAnUnusedFileAndLeavesAnUnchangedOne) {
  EXPECT_EQ(PageClose(open()), 0);
  EXPECT_EQ(bytes(), words({kNoBlock, 0, 0, kNoBlock, 8, kNoBlock, 0, 0}));
  // What follows the blocks and the reserved words stays too.
  const std::string content = words({kNoBlock, 1, 0, kNoBlock, 8, kNoBlock, 7, 7, 5, 5, 9});
  write(content);
  const int file = open();
  EXPECT_EQ(numberIn(file, 0), 5U);
  EXPECT_EQ(PageClose(file), 0);
  EXPECT_EQ(bytes(), content);
}

TEST_F(PageTest, ConvertsTheOldFormat) {
  const auto reopened = [&] {
    std::uint32_t size = 99;
    const int file = PageOpenPlain(dir.path("f"), size, 2);
    EXPECT_THAT(faultsOf(file), ElementsAre());
    EXPECT_EQ(PageClose(file), 0);
    return size;
  };
  // The free blocks, 2 and 0, stay in the file out of use.
  const std::string old = words({12, 3, 2, 2}) + words({kNoBlock, 1, 2, 3, 4, 5, 0, 7, 8});
  write(old);
  std::uint32_t blockSize = 99;
  const int reader = PageOpenPrivate(dir.path("f"), blockSize, 2);
  EXPECT_EQ(numberIn(reader, 1), 3U);
  EXPECT_EQ(PageClose(reader), 0);
  EXPECT_EQ(blockSize, 12U);
  EXPECT_EQ(bytes(), old);
  EXPECT_EQ(files(), 1U);
  EXPECT_EQ(reopened(), 12U);
  EXPECT_EQ(bytes(), words({kNoBlock, 3, 0, kNoBlock, 12, kNoBlock, 0, 0}) +
                         words({kNoBlock, 1, 2, 3, 4, 5, 0, 7, 8}));

  write(words({4, 3, 1, 1, 11, kNoBlock, 13}));
  EXPECT_EQ(reopened(), 8U);
  EXPECT_EQ(bytes(), words({kNoBlock, 3, 0, kNoBlock, 8, kNoBlock, 0, 0}) +
                         words({11, 0, kNoBlock, 0, 13, 0}));

  std::string blocks;  // more than is moved in one piece
  std::string expected = words({kNoBlock, 5000, 0, kNoBlock, 8, kNoBlock, 0, 0});
  for (std::uint32_t i = 0; i < 5000; ++i) {
    blocks += words({i}).substr(1);
    expected += words({i << 8, 0});
  }
  write(words({3, 5000, 0, kNoBlock}) + blocks);
  EXPECT_EQ(reopened(), 8U);
  EXPECT_EQ(bytes(), expected);
}

TEST_F(PageTest, ConversionOnAFullDiskLeavesTheOldFile) {
  const std::string old = words({4, 3, 1, 1, 11, kNoBlock, 13});
  write(old);
  FaultPlatform faults;
  faults.setDiskSpace(3);
  EXPECT_EQ(open(), -1);
  EXPECT_EQ(takePost("PageOpen"), "Can't convert old format");
  EXPECT_EQ(bytes().substr(0, old.size()), old);
  faults.freeDiskSpace();
  const int file = open();
  EXPECT_EQ(numberIn(file, 2), 13U);
  EXPECT_EQ(PageClose(file), 0);
}

TEST_F(PageTest, RefusesBadHeaders) {
  const std::vector<std::vector<std::uint32_t>> headers = {
      {0, 0, 0, kNoBlock, 8, kNoBlock, 0, 0},                  // neither old nor new
      {kNoBlock, 0, 0, kNoBlock, 7, kNoBlock, 0, 0},           // block size
      {kNoBlock, 0, 0, kNoBlock, 0x40000000, kNoBlock, 0, 0},  //
      {kNoBlock, 2, 0, kNoBlock, 8, kNoBlock, 0, 0, 1, 1, 1},  // more blocks than there are
      {kNoBlock, 0xFFFFFFFF, 0, kNoBlock, 8, kNoBlock, 0, 0},  //
      {kNoBlock, 1, 1, kNoBlock, 8, kNoBlock, 0, 0, 1, 1},     // free blocks without a list
      {kNoBlock, 1, 0, 0, 8, 0, 0, 0, 1, 1},                   // and the other way round
      {kNoBlock, 1, 1, 1, 8, 1, 0, 0, 1, 1},                   // list past the end
      {kNoBlock, 3, 3, 0, 8, 1, 0, 0, 1, 1, 1, 1, 1, 1},       // more than between the ends
      {kNoBlock, 3, 2, 1, 8, 0, 0, 0, 1, 1, 1, 1, 1, 1},       // ends exchanged
      {0x40000000, 0, 0, kNoBlock},                            // old: block size
      {12, 0x10000000, 0, kNoBlock, 1, 2, 3},                  // old: more than there are
  };
  for (const auto& header : headers) {
    write(words(header));
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(takePost("pOpen"), "some kind of bad header information");
    EXPECT_EQ(bytes(), words(header));
  }
  for (const std::size_t size : {0U, 15U, 31U}) {
    write(words({kNoBlock, 0, 0, kNoBlock, 8, kNoBlock, 0, 0}).substr(0, size));
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(takePost("pOpen"), "can't read header of cpage file " + dir.path("f"));
  }
}

// --- Files ---------------------------------------------------------------------------

TEST_F(PageTest, OpensAPathOnceAndReusesHandles) {
  const int first = open();
  EXPECT_EQ(open(), -1);
  EXPECT_EQ(takePost("pOpen"), "cpage file " + dir.path("f") + " already opened");
  std::uint32_t blockSize = 100;
  const int second = PageOpen(dir.path("g"), blockSize, 0);
  EXPECT_NE(second, first);
  EXPECT_EQ(PageBlockSize(second), 100U);
  EXPECT_EQ(PagePath(second), dir.path("g"));
  EXPECT_EQ(PageClose(first), 0);
  EXPECT_EQ(open(), first);
  addAll(first, 2);
  EXPECT_EQ(PageFlush(first), 0);
  EXPECT_EQ(PageDiscard(first), 0);
  EXPECT_EQ(PageDiscard(second), 0);
  EXPECT_EQ(files(), 0U);
  EXPECT_EQ(PageClose(second), -2);
  EXPECT_EQ(PageGet(-1, 0), nullptr);
}

// Sees to it that a file is only ever opened for reading. Removing always works, so that
// what is left was forgotten.
class GuardedSource : public FaultPlatform {
 public:
  explicit GuardedSource(std::string path) : path_(std::move(path)) {}
  int open(const char* path, int flags, mode_t mode) override {
    EXPECT_TRUE(path != path_ || flags == O_RDONLY) << flags;
    return FaultPlatform::open(path, flags, mode);
  }
  int rename(const char* from, const char* to) override {
    EXPECT_TRUE(from != path_ && to != path_);
    return FaultPlatform::rename(from, to);
  }
  int remove(const char* path) override {
    EXPECT_NE(path, path_);
    return Platform::remove(path);
  }

 private:
  std::string path_;
};

// What may be done to a block file of ten blocks, 100 to 109; the last value of the
// first block then.
struct Change {
  const char* name;
  std::function<bool(int)> make;
  std::uint32_t first = 100;
};

bool changeFirst(int file) {
  void* data = PageGetTyped(file, 0, typeInt);
  if (data == nullptr) return false;
  store(data, 7);
  PageDirty(file, 0);
  PageRelease(file, 0);
  return true;
}

const std::vector<Change> kChanges = {
    {"nothing", [](int) { return true; }},
    {"a new block", [](int file) { return add(file, 1) == 10 && PageFlush(file) == 0; }},
    {"an evicted block", [](int file) { return changeFirst(file) && numberIn(file, 5) == 105; }, 7},
    {"a change unwritten", changeFirst, 7},
    {"freed blocks", [](int f) { return PageFree(f, 9) + PageFree(f, 4) + PageFlush(f) == 0; }},
    {"another size",
     [](int file) { return PageResizeTyped(file, 16, typeInt) == 0 && changeFirst(file); }, 7},
    {"changed, then another size",
     [](int file) { return changeFirst(file) && PageResizeTyped(file, 16, typeInt) == 0; }, 7},
};

TEST_F(PageTest, AFileOpenedPrivatelyStaysAsItIs) {
  for (const auto& create : {PageOpen, PageOpenPlain}) {
    std::uint32_t blockSize = 8;
    const int source = create(dir.path("f"), blockSize, 4);
    addAll(source, 10);
    ASSERT_EQ(PageClose(source), 0);
    const std::string before = bytes();
    for (const Change& change : kChanges) {
      for (const auto& close : {PageClose, PageDiscard}) {
        SCOPED_TRACE(change.name);
        bool failed = true;
        for (int n = 1; failed; ++n) {
          GuardedSource platform(dir.path("f"));
          platform.failFileCall(n);
          const int file = PageOpenPrivate(dir.path("f"), blockSize, 1);
          const bool changed = file >= 0 && change.make(file);
          const std::uint32_t first = changed ? numberIn(file, 0) : 0;
          failed = platform.failed();
          EXPECT_TRUE(failed || first == change.first);
          if (file >= 0) close(file);
          ASSERT_EQ(bytes(), before) << n;
          ASSERT_EQ(files(), 1U) << n;
          PBdiscardErrors();
        }
      }
    }
    std::filesystem::remove(dir.path("f"));
  }
}

TEST_F(PageTest, PrivateReadersAreApartFromEachOtherAndFromAWriter) {
  std::uint32_t blockSize = 8;
  int file = open();
  addAll(file, 10);
  ASSERT_EQ(PageClose(file), 0);
  const int reader = PageOpenPrivate(dir.path("f"), blockSize, 1);
  const int changer = PageOpenPrivate(dir.path("f"), blockSize, 1);
  ASSERT_TRUE(reader >= 0 && changer >= 0);
  EXPECT_TRUE(changeFirst(changer));
  EXPECT_EQ(PageSaveAs(changer, dir.path("g")), 0);
  EXPECT_EQ(numberIn(reader, 0), 100U);
  EXPECT_EQ(PageSaveAs(reader, dir.path("h")), 0);
  EXPECT_EQ(dir.read("h"), bytes());
  file = open();
  EXPECT_TRUE(changeFirst(file));
  EXPECT_EQ(PageClose(file), 0);
  EXPECT_EQ(bytes(), dir.read("g"));
  EXPECT_EQ(numberIn(reader, 0), 100U);
  EXPECT_EQ(PageDiscard(reader), 0);
  EXPECT_EQ(PageDiscard(changer), 0);
  EXPECT_EQ(files(), 3U);
  EXPECT_EQ(PageOpenPrivate(dir.path("none"), blockSize, 1), -1);
}

TEST_F(PageTest, SavesACopyAndGoesOnWithTheFirstFile) {
  const int file = open();
  addAll(file, 4);
  EXPECT_EQ(PageFree(file, 3), 0);
  EXPECT_EQ(PageSaveAs(file, dir.path("copy")), 0);
  EXPECT_EQ(dir.read("copy"), bytes());
  EXPECT_EQ(bytes().size(), kPageHeaderSize + 3 * 8);
  EXPECT_EQ(add(file, 200), 3);
  EXPECT_EQ(numberIn(file, 1), 101U);
  EXPECT_EQ(PageSaveAs(file, dir.path("f")), 0);
  EXPECT_EQ(PageClose(file), 0);
  EXPECT_EQ(bytes(), dir.read("copy").replace(4, 4, words({4})) + words({200, 0}));
}

// --- Cache ---------------------------------------------------------------------------

TEST_F(PageTest, GivesNothingPastTheEnd) {
  const int file = open();
  addAll(file, 2);
  EXPECT_EQ(PageGet(file, 2), nullptr);
  EXPECT_EQ(PageGetTyped(file, kNoBlock, typeInt), nullptr);
  EXPECT_EQ(PBerrorCount(), 0);
  EXPECT_EQ(PageClose(file), 0);
}

TEST_F(PageTest, SaysWhenAllBuffersAreReserved) {
  const int file = open(1);
  addAll(file, 2);
  void* held = PageGetTyped(file, 0, typeInt);
  EXPECT_EQ(load(held), 100U);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(PageGet(file, 1), nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Page: No more buffers\n");
  EXPECT_EQ(PageGetTyped(file, 0, typeInt), held);
  PageRelease(file, 0);  // held twice, but one holder a block
  EXPECT_EQ(numberIn(file, 1), 101U);
  EXPECT_EQ(PageClose(file), 0);
}

TEST_F(PageTest, EvictsWhatWasReleasedFirstOrAsOld) {
  const int file = open(3);
  addAll(file, 4);
  EXPECT_EQ(PageFlush(file), 0);
  const auto cachedBlocks = [&] {
    std::vector<std::uint32_t> blocks;
    for (std::uint32_t block = 0; block < 4; ++block) {
      if (findBuf(*findPageFile(file), block) != nullptr) blocks.push_back(block);
    }
    return blocks;
  };
  EXPECT_THAT(cachedBlocks(), ElementsAre(1, 2, 3));
  numberIn(file, 1);
  numberIn(file, 0);
  EXPECT_THAT(cachedBlocks(), ElementsAre(0, 1, 3));
  PageGet(file, 0);
  PageReleaseOld(file, 0);
  numberIn(file, 2);
  EXPECT_THAT(cachedBlocks(), ElementsAre(1, 2, 3));
  EXPECT_EQ(PageClose(file), 0);
}

// The tag of the owner decides the order on disk. A clean block is what its bytes
// on disk are by the tag; a changed one stays as it stands.
TEST_F(PageTest, ABlockReachesTheDiskByItsLatestTag) {
  const int file = open();
  void* data = nullptr;
  EXPECT_EQ(PageNew(file, data), 0);
  store(data, 0x01020304);
  PageDirty(file, 0);
  PageRelease(file, 0);
  EXPECT_EQ(load(PageGetTyped(file, 0, typePropList)), 0x01020304U);
  PageRelease(file, 0);
  EXPECT_EQ(PageFlush(file), 0);
  EXPECT_EQ(bytes().substr(kPageHeaderSize), words({0x01020304, 0}));
  EXPECT_EQ(load(PageGetTyped(file, 0, typeNoStruct)), 0x04030201U);
  PageRelease(file, 0);
  EXPECT_EQ(numberIn(file, 0), 0x01020304U);
  EXPECT_EQ(PageClose(file), 0);
}

TEST_F(PageTest, ABlockPastAllOffsetsEndsTheProcess) {
  EXPECT_EQ(blockOffset(8, kNoBlock, "read"), 32 + 8 * std::int64_t{kNoBlock});
  EXPECT_EXIT(blockOffset(0xFFFFFFF0, 0x80000010, "write"), ExitedWithCode(1),
              "Page File Access.*\\[write\\] capacity exceeded \\(-2147483640\\)\n"
              "   Try smaller amounts of data, such as fewer pattern vectors");
}

// --- Against models ------------------------------------------------------------------

// The blocks in use with what they hold, and the free ones.
struct FreeListModel {
  std::map<std::uint32_t, std::uint32_t> used;
  std::set<std::uint32_t> free;

  std::uint32_t numBlocks() const { return used.empty() ? 0 : used.rbegin()->first + 1; }
  std::uint32_t allocate(std::uint32_t value) {
    const std::uint32_t block = free.empty() ? numBlocks() : *free.begin();
    free.erase(block);
    used[block] = value;
    return block;
  }
  void release(std::uint32_t block) {
    used.erase(block);
    free.insert(block);
    while (!free.empty() && *free.rbegin() >= numBlocks()) free.erase(*free.rbegin());
  }
};

TEST_F(PageTest, FreesAndAllocatesAsASortedSetWould) {
  std::mt19937 random(7);
  int file = open(5);
  FreeListModel model;
  for (std::uint32_t step = 0; step < 20000; ++step) {
    const bool grow = (step / 2000) % 2 == 0;
    if (model.used.empty() || random() % 5 < (grow ? 3U : 2U)) {
      void* data = nullptr;
      const std::int64_t block = PageNewTyped(file, data, typeInt);
      ASSERT_EQ(block, model.allocate(step));
      ASSERT_EQ(load(data), 0U);
      store(data, step);
      PageDirty(file, static_cast<std::uint32_t>(block));
      PageRelease(file, static_cast<std::uint32_t>(block));
    } else {
      auto victim =
          model.used.lower_bound(static_cast<std::uint32_t>(random() % model.numBlocks()));
      const std::uint32_t block = victim->first;
      ASSERT_EQ(numberIn(file, block), victim->second);
      ASSERT_EQ(PageFree(file, block), 0);
      ASSERT_EQ(PageFree(file, block), -2);  // twice, or past the end
      PBdiscardErrors();
      model.release(block);
    }
    ASSERT_EQ(PageCount(file), model.used.size());
    const std::int64_t hint = findPageFile(file)->freeHint;
    ASSERT_TRUE(hint == kNoHint || model.free.count(static_cast<std::uint32_t>(hint)) == 1);
    if (random() % 500 == 0) {
      ASSERT_THAT(faultsOf(file), ElementsAre());
      ASSERT_EQ(PageClose(file), 0);
      ASSERT_EQ(bytes().size(), kPageHeaderSize + model.numBlocks() * 8);
      file = open(static_cast<int>(1 + random() % 5));
    }
    if (!model.used.empty() && random() % 2 == 0) {
      auto& [block, value] = *model.used.begin();
      void* data = PageGetTyped(file, block, typeInt);
      ASSERT_EQ(load(data), value);
      store(data, value = step);
      PageDirty(file, block);
      random() % 2 == 0 ? PageReleaseOld(file, block) : PageRelease(file, block);
    }
  }
  for (const auto& [block, value] : model.used) ASSERT_EQ(numberIn(file, block), value);
  EXPECT_EQ(PageClose(file), 0);
}

// --- Free list -----------------------------------------------------------------------

// Blocks 1, 3 and 5 of 7 are free; each case breaks one word of the file.
TEST_F(PageTest, RefusesToWorkWithABrokenFreeList) {
  const struct {
    std::uint32_t block, end;  // 0: the one before, 1: the one behind
    std::uint32_t value;
    bool newFails;
    std::uint32_t freed;  // a block whose freeing meets the fault
    const char* fault;
  } cases[] = {
      {1, 1, 0xFFFFFF00, true, 2, "free list: block 1 is followed by 4294967040"},
      {1, 1, 1, true, 2, "free list: block 1 is followed by 1"},
      {1, 1, 2, true, 2, "free list: block 2 names 102 as the one before, not 1"},
      {1, 1, kNoBlock, true, 2, "free list: ends at block 1 after 1 blocks, not at 5 after 3"},
      {3, 0, 2, true, 2, "free list: block 3 names 2 as the one before, not 1"},
      {5, 0, 5, false, 4, "free list: block 5 names 5 as the one before, not 3"},
      {5, 0, 5, false, 6, "free list: block 5 names 5 as the one before, not 3"},
      {5, 1, 1, false, 4, "free list: block 5 is followed by 1"},
  };
  int file = open();
  addAll(file, 7);
  for (const std::uint32_t block : {1U, 3U, 5U}) EXPECT_EQ(PageFree(file, block), 0);
  EXPECT_EQ(PageClose(file), 0);
  const std::string sound = bytes();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    const std::string broken =
        std::string(sound).replace(kPageHeaderSize + c.block * 8 + c.end * 4, 4, words({c.value}));
    write(broken);
    file = open(2);
    EXPECT_EQ(faultsOf(file).front(), c.fault);
    EXPECT_EQ(PageFree(file, c.freed), -2);
    EXPECT_THAT(takePost("PageFree"), AnyOf("the free list is broken", "block 2 is free already"));
    if (c.newFails) {
      EXPECT_EQ(add(file, 1), -1);
      EXPECT_EQ(takePost("PageNew"), "the free list is broken");
    }
    EXPECT_EQ(PageClose(file), 0);
    EXPECT_EQ(bytes(), broken);
  }
}

// --- Failure -------------------------------------------------------------------------

// What a run leaves on disk when nothing fails.
void fillAndFree(int file) {
  addAll(file, 40);
  for (std::uint32_t block = 3; block < 39; block += 5) EXPECT_EQ(PageFree(file, block), 0);
}

TEST_F(PageTest, AFlushThatFailedMayBeRepeated) {
  for (const std::uint32_t blockSize : {8U, 500U, 10000U}) {
    int file = open(50, blockSize);
    fillAndFree(file);
    EXPECT_EQ(PageClose(file), 0);
    const std::string expected = bytes();
    // Whether a flush with this fault works; the next one does.
    const auto flushes = [&](const std::function<void(FaultPlatform&)>& arm) {
      platform().remove(dir.path("f").c_str());
      file = open(50, blockSize);
      fillAndFree(file);
      int result = 0;
      {
        FaultPlatform faults;
        arm(faults);
        result = PageFlush(file);
        EXPECT_EQ(result != 0, faults.failed());
      }
      EXPECT_EQ(result != 0, PBerrorCount() > 0);
      PBdiscardErrors();
      EXPECT_EQ(PageFlush(file), 0);
      EXPECT_EQ(bytes(), expected);
      EXPECT_EQ(PageDiscard(file), 0);
      return result == 0;
    };
    for (int n = 1; !flushes([n](FaultPlatform& faults) { faults.failFileCall(n); });) ++n;
    for (std::int64_t space = 0;
         !flushes([space](FaultPlatform& faults) { faults.setDiskSpace(space); });) {
      space += 1 + space / 2;
    }
  }
}

// Evictions, reads and links that fail: the operation fails and can be repeated.
TEST_F(PageTest, AllocatingAndFreeingMayBeRepeated) {
  bool failed = true;
  for (int n = 1; failed; ++n) {
    int file = open(3, 3000);
    {
      FaultPlatform faults;
      faults.failFileCall(n);
      for (std::uint32_t i = 0; i < 40;) {
        if (add(file, 100 + i) == i) ++i;
      }
      for (std::uint32_t block = 3; block < 39;) {
        if (PageFree(file, block) == 0) block += 5;
      }
      failed = faults.failed();
    }
    PBdiscardErrors();
    EXPECT_THAT(faultsOf(file), ElementsAre());
    EXPECT_EQ(PageClose(file), 0);
    file = open();
    ASSERT_EQ(PageCount(file), 32U);
    for (std::uint32_t block = 0; block < 40; ++block) {
      if (block % 5 != 3) {
        ASSERT_EQ(numberIn(file, block), 100 + block) << n;
      }
    }
    EXPECT_EQ(PageDiscard(file), 0);
  }
}

TEST_F(PageTest, RefusesOrSurvivesEveryDamage) {
  int file = open();
  addAll(file, 7);
  for (const std::uint32_t block : {1U, 3U, 5U}) EXPECT_EQ(PageFree(file, block), 0);
  EXPECT_EQ(PageClose(file), 0);
  const std::string sound = bytes();
  for (std::size_t length = 0; length < sound.size(); ++length) {
    write(sound.substr(0, length));
    ASSERT_EQ(open(), -1) << length;
    PBdiscardErrors();
  }
  for (std::size_t bit = 0; bit < sound.size() * 8; ++bit) {
    std::string flipped = sound;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
    write(flipped);
    file = open(2);
    if (file < 0) continue;
    const bool clean = faultsOf(file).empty();
    for (std::uint32_t block = 0; block < 8; ++block) {
      const bool freed = PageFree(file, block) == 0;
      const bool added = add(file, block) >= 0;
      if (clean) {
        ASSERT_TRUE(added) << bit;
        ASSERT_EQ(faultsOf(file).size(), 0U) << bit << " " << freed;
      }
    }
    PageClose(file);
    PBdiscardErrors();
  }
}

TEST_F(PageTest, AFileThatCanNotBeLookedAtIsNotReplaced) {
  addAll(open(), 3);
  EXPECT_EQ(PageClose(0), 0);
  const std::string before = bytes();
  failEachFileCall([&](FaultPlatform& faults) {
    const int file = open();
    if (file >= 0) PageClose(file);
    EXPECT_EQ(PBerrorCount() > 0, faults.stop());
    PBdiscardErrors();
    EXPECT_EQ(bytes(), before);
  });
}

// --- Resizing and copying ------------------------------------------------------------

TEST_F(PageTest, ResizesAndKeepsNumbersAndFreeList) {
  for (const int maxBuffers : {1, 3, 20}) {
    for (const bool typed : {true, false}) {
      int file = open(maxBuffers, 12);
      addAll(file, 7);
      for (const std::uint32_t block : {1U, 3U, 2U}) EXPECT_EQ(PageFree(file, block), 0);
      const auto resize = [&](std::uint32_t size) {
        return typed ? PageResizeTyped(file, size, typeInt) : PageResize(file, size);
      };
      EXPECT_EQ(resize(20), 0);
      EXPECT_EQ(resize(8), 0);
      EXPECT_EQ(PageBlockSize(file), 8U);
      EXPECT_EQ(numberIn(file, 4), 104U);
      EXPECT_THAT(faultsOf(file), ElementsAre());
      EXPECT_EQ(PageClose(file), 0);
      EXPECT_EQ(bytes(), words({kNoBlock, 7, 3, 1, 8, 3, 0, 0}) +
                             words({100, 0, kNoBlock, 2, 1, 3, 2, kNoBlock}) +
                             words({104, 0, 105, 0, 106, 0}));
      EXPECT_EQ(files(), 1U);
      platform().remove(dir.path("f").c_str());
    }
  }
}

TEST_F(PageTest, AResizeThatFailsLeavesTheOldFileInForce) {
  int file = open(3, 3000);
  fillAndFree(file);
  EXPECT_EQ(PageClose(file), 0);
  const std::string old = bytes();
  int result = -2;
  for (int n = 1; result != 0; ++n) {
    write(old);
    file = open(3);
    FaultPlatform faults;
    faults.failFileCall(n);
    result = PageResize(file, 4000);
    EXPECT_EQ(result == 0, PBerrorCount() == 0);
    PBdiscardErrors();
    ASSERT_EQ(PageBlockSize(file), result == 0 ? 4000U : 3000U);
    if (result != 0) {
      ASSERT_EQ(bytes(), old) << n;
    }
    ASSERT_EQ(numberIn(file, 39), 139U) << n;
    EXPECT_EQ(add(file, 1), 3);
    EXPECT_EQ(PageClose(file), 0);
    if (result != 0) {
      ASSERT_EQ(bytes().size(), old.size());
    }
    platform().remove(dir.path("f").c_str());
    EXPECT_LE(files(), 1U);  // a draft that could not be removed
  }
}

TEST_F(PageTest, CopiesBlocksBetweenFiles) {
  const int from = open(4, 12);
  addAll(from, 3);
  std::uint32_t blockSize = 8;
  const int to = PageOpenPlain(dir.path("g"), blockSize, 1);
  EXPECT_EQ(PageCopyBlock(from, to, 2), 0);
  EXPECT_EQ(PageCopyBlockTyped(from, to, 1, typeInt), 1);
  EXPECT_EQ(PageCopyBlock(from, to, 3), -1);
  EXPECT_EQ(PageCount(to), 2U);
  EXPECT_EQ(PageClose(to), 0);
  EXPECT_EQ(dir.read("g").substr(kPageHeaderSize), words({102, 0, 101, 0}));
  EXPECT_EQ(PageClose(from), 0);
}

}  // namespace
