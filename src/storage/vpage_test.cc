#include "storage/vpage.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <map>
#include <optional>

#include "base/platform.h"
#include "storage/swapendian.h"
#include "support/big_endian.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

// --- Building ------------------------------------------------------------------------

constexpr std::uint64_t kNone = ~std::uint64_t{0};
constexpr std::uint32_t kDead = 0xFFFFFFFF;

std::string header(std::uint64_t index, std::uint64_t free, std::uint64_t used,
                   std::uint64_t next) {
  const std::string guard = bigEndian(0xDEC0DE640FF1CE32, 8);
  return "\x0B" + bigEndian(0xF00FDADA, 8) + guard + bigEndian(index, 8) + bigEndian(free, 8) +
         bigEndian(used, 8) + bigEndian(next, 8) + guard;
}
std::string record(std::uint32_t id, const std::string& data) {
  return bigEndian(id, 4) + bigEndian(data.size(), 4) + data;
}
std::string longWords(std::initializer_list<std::uint64_t> values) {
  std::string bytes;
  for (const std::uint64_t value : values) bytes += bigEndian(value, 8);
  return bytes;
}

std::int64_t addPage(VPageFile& file, const std::string& text) {
  void* data = nullptr;
  const std::int64_t id = VPageNew(file, text.size(), data);
  if (id < 0) return id;
  std::memcpy(data, text.data(), text.size());
  VPageRelease(file, static_cast<std::uint32_t>(id));
  return id;
}

std::optional<std::string> pageText(VPageFile& file, std::uint32_t id) {
  const void* data = VPageGet(file, id);
  if (data == nullptr) return std::nullopt;
  std::string text(static_cast<const char*>(data), static_cast<std::size_t>(VPageSize(file, id)));
  VPageRelease(file, id);
  return text;
}

bool changePage(VPageFile& file, std::uint32_t id, const std::string& text) {
  void* data = VPageResize(file, id, text.size());
  if (data == nullptr) return false;
  std::memcpy(data, text.data(), text.size());
  const bool good = VPageDirty(file, id, false) == 0;
  VPageRelease(file, id);
  return good;
}

using Pages = std::map<std::uint32_t, std::string>;

constexpr const char* kUnreadable = "unreadable";

Pages allPages(VPageFile& file) {
  Pages pages;
  for (std::int64_t id = VPageNext(file, -1); id >= 0; id = VPageNext(file, id)) {
    const auto page = static_cast<std::uint32_t>(id);
    pages[page] = pageText(file, page).value_or(kUnreadable);
  }
  return pages;
}

std::vector<std::string> findings(const std::string& path) {
  std::vector<std::string> lines;
  const int faults = VPageCheck(path, [&](std::string_view line) { lines.emplace_back(line); });
  lines.push_back(std::to_string(faults));
  return lines;
}
using Lines = std::vector<std::string>;

// --- Bytes ---------------------------------------------------------------------------

TEST(VPage, WritesPagesAndIndex) {
  const TempDir directory;
  const std::string path = directory.path("f");
  VPageFilePtr file = VPageOpen(path, 2);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(addPage(*file, "zero"), 0);
  EXPECT_EQ(addPage(*file, "first"), 1);
  EXPECT_EQ(addPage(*file, "2"), 2);
  EXPECT_EQ(VPageDelete(*file, 1), 0);
  EXPECT_EQ(addPage(*file, "three"), 3);
  EXPECT_EQ(VPageClose(std::move(file)), 0);
  // Page 1 never reached the disk; the page used last was written first.
  const std::string records = record(0, "zero") + record(3, "three") + record(2, "2");
  EXPECT_EQ(directory.read("f"),
            header(57 + records.size(), 0, 10, 4) + records +
                record(kDead, longWords({0, 57, kNone, 2, 82, 69, kNone, kNone})));

  file = VPageOpen(path, 1);
  EXPECT_EQ(allPages(*file), (Pages{{0, "zero"}, {2, "2"}, {3, "three"}}));
  EXPECT_TRUE(changePage(*file, 0, "ZERO"));
  EXPECT_EQ(VPageClose(std::move(file)), 0);
  EXPECT_EQ(directory.read("f").substr(57, 12), record(0, "ZERO"));
  EXPECT_EQ(findings(path), (Lines{"INDEX OK", "0"}));

  EXPECT_EQ(VPageClose(VPageOpen(directory.path("new"), 0)), 0);
  EXPECT_EQ(directory.read("new"), header(57, 0, 0, 0) + record(kDead, longWords({kNone, kNone})));
}

TEST(VPage, PagesThatGoOrGrowLeaveDeadSpace) {
  const TempDir directory;
  const std::string path = directory.path("f");
  VPageFilePtr file = VPageOpen(path, 1);
  for (const char* text : {"aaaa", "bb", "c"}) addPage(*file, text);
  EXPECT_EQ(VPageFlush(*file), 0);
  const std::size_t indexSize = 8 * 6;
  EXPECT_TRUE(changePage(*file, 1, "BBBB"));
  EXPECT_EQ(VPageDelete(*file, 2), 0);
  EXPECT_EQ(VPageGet(*file, 2), nullptr);
  EXPECT_EQ(VPageError, kVPageNoPage);
  EXPECT_EQ(VPageSize(*file, 2), -1);
  EXPECT_EQ(VPageNext(*file, 1), -1);
  EXPECT_EQ(VPageClose(std::move(file)), 0);
  const std::string records = record(0, "aaaa") + record(kDead, "bb") + record(kDead, "c") +
                              record(kDead, longWords({0, 57, 69, 79, kNone, kNone})) +
                              record(1, "BBBB");
  EXPECT_EQ(directory.read("f"),
            header(57 + records.size(), 3 + indexSize, 8, 3) + records +
                record(kDead, longWords({0, 57, 57 + records.size() - 12, kNone, kNone})));
}

TEST(VPage, NumbersStandMostSignificantByteFirst) {
  const TempDir directory;
  VPageFilePtr file = VPageOpen(directory.path("f"), 1);
  void* data = nullptr;
  EXPECT_EQ(VPageNewTyped(*file, 4, data, typeInt), 0);
  const std::uint32_t value = 0x01020304;
  std::memcpy(data, &value, 4);
  VPageRelease(*file, 0);
  EXPECT_EQ(pageText(*file, 0), "\x01\x02\x03\x04");  // with another tag: as on disk
  EXPECT_EQ(std::memcmp(VPageGetTyped(*file, 0, typeInt), &value, 4), 0);
  EXPECT_EQ(VPageFlush(*file), 0);
  EXPECT_EQ(directory.read("f").substr(57, 12), record(0, "\x01\x02\x03\x04"));
  EXPECT_EQ(std::memcmp(VPageGetTyped(*file, 0, typeInt), &value, 4), 0);
  EXPECT_EQ(VPageDiscard(std::move(file)), 0);
  EXPECT_FALSE(fileExists(directory.path("f")));
}

// --- Files found ---------------------------------------------------------------------

TEST(VPage, AFileWithoutIndexIsScanned) {
  const TempDir directory;
  const std::string bytes = header(kNone, 77, 77, 1) + record(1, "old") + record(0, "zero") +
                            record(kDead, "dead") + record(1, "later") + record(7, "seven") +
                            record(kDead, "x");
  for (const std::string& tail : {std::string(), record(9, "cut off").substr(0, 12)}) {
    const std::string path = directory.write("f", bytes + tail);
    const Pages pages = {{0, "zero"}, {1, "later"}, {7, "seven"}};
    EXPECT_EQ(allPages(*VPageOpenRead(path, 1)), pages);
    EXPECT_EQ(findings(path).front(), "INDEX MISSING");
    EXPECT_EQ(findings(path).back(), tail.empty() ? "0" : "1");
    VPageFilePtr file = VPageOpen(path, 1);
    EXPECT_EQ(directory.read("f"), bytes + tail);
    EXPECT_FALSE(VPageChanged(*file));
    EXPECT_EQ(VPageClose(std::move(file)), 0);
    EXPECT_EQ(directory.read("f").substr(0, 57), header(bytes.size(), 8, 14, 8));
    EXPECT_EQ(directory.read("f").substr(57, 11), record(kDead, "old"));
    EXPECT_EQ(allPages(*VPageOpenRead(path, 1)), pages);
    EXPECT_EQ(findings(path), (Lines{"INDEX OK", "0"}));
  }
}

TEST(VPage, RefusesWhatIsNoSuchFile) {
  const TempDir directory;
  const std::string good = header(kNone, 0, 0, 1);
  const auto changed = [&](std::size_t at, char byte) {
    std::string bytes = good;
    bytes[at] = byte;
    return bytes;
  };
  const auto indexed = [&](const std::string& index) {
    return header(57 + 9, 0, 1, 1) + record(0, "x") + record(kDead, index);
  };
  const struct {
    const char* what;
    std::string bytes;
    int error;
  } cases[] = {
      {"empty", "", kVPageBadFile},
      {"another host", changed(0, 12), kVPageBadHost},
      {"no zeros in front of the cookie", changed(1, 1), kVPageBadFile},
      {"cookie", changed(8, 0), kVPageBadFile},
      {"second guard", changed(56, 0), kVPageBadFile},
      {"page number above the limit", header(kNone, 0, 0, 0x80000000), kVPageBadFile},
      {"half a header", good.substr(0, 30), kVPageCantRead},
      {"index past the end", header(1000, 0, 0, 1), kVPageBadFile},
      {"index in the header", header(3, 0, 0, 1), kVPageBadFile},
      {"index is a page", header(57, 0, 0, 1) + record(0, longWords({kNone})), kVPageBadFile},
      {"index larger than the file", indexed(longWords({kNone})).substr(0, 80), kVPageBadFile},
      {"index without an end", indexed(longWords({0, 57, kNone})), kVPageBadFile},
      {"page past the end", indexed(longWords({0, 200, kNone, kNone})), kVPageBadFile},
      {"page in the header", indexed(longWords({0, 5, kNone, kNone})), kVPageBadFile},
      {"scanned id too large", good + record(0x7FFFFFFF, "x"), kVPageBadFile},
      {"a page twice", indexed(longWords({4, 57, kNone, 4, 57, kNone, kNone})), kVPageBadFile},
      {"page id too large", indexed(longWords({0x7FFFFFFF, 57, kNone, kNone})), kVPageBadFile},
  };
  for (const auto& row : cases) {
    const std::string path = directory.write("f", row.bytes);
    EXPECT_EQ(VPageOpen(path, 1), nullptr) << row.what;
    EXPECT_EQ(VPageError, row.error) << row.what;
    EXPECT_EQ(VPageOpenRead(path, 1), nullptr) << row.what;
    EXPECT_EQ(VPageCheck(path, [](std::string_view) {}), -1);
    EXPECT_EQ(directory.read("f"), row.bytes);
  }
  EXPECT_EQ(VPageOpen(directory.path("no/f"), 1), nullptr);
  EXPECT_EQ(VPageError, kVPageCantOpen);
  EXPECT_EQ(VPageOpenRead(directory.path("none"), 1), nullptr);
  EXPECT_FALSE(fileExists(directory.path("none")));
}

TEST(VPage, TellsPagesThatDisagreeWithTheirIndex) {
  const TempDir directory;
  const std::string records = record(0, "a") + record(1, "b") + record(2, "");
  const std::string path =
      directory.write("f", header(57 + records.size(), 0, 2, 9) + records +
                               record(kDead, longWords({0, 66, kNone, 2, 75, 57, kNone, kNone})));
  VPageFilePtr file = VPageOpen(path, 1);
  for (const std::uint32_t id : {0U, 2U, 3U}) {
    EXPECT_EQ(VPageGet(*file, id), nullptr);
    EXPECT_EQ(VPageError, kVPageBadFile);
    EXPECT_EQ(VPageSize(*file, id), -1);
    EXPECT_EQ(VPageDelete(*file, id), -2);
  }
  EXPECT_EQ(VPageRepack(*file, true), -2);
  file.reset();
  directory.write("f", header(57 + records.size(), 0, 2, 9) + records +
                           record(kDead, longWords({0, 66, kNone, 2, 75, 57, kNone, kNone})));
  EXPECT_EQ(
      findings(path),
      (Lines{"INDEX CORRUPT ENTRY: page: 0  expected offset: 0000000000000039 ; found "
             "0000000000000042",
             "INDEX MISSING ENTRY for page: 1  offset: 0000000000000042",
             "INDEX EXTRA ENTRY: page: 3  offset: 0000000000000039  (page not in file)", "3"}));
}

TEST(VPage, AFileCutAnywhereKeepsItsWholePages) {
  const TempDir directory;
  const std::string bytes =
      header(kNone, 0, 0, 0) + record(0, "zero") + record(1, "one") + record(2, "two");
  for (std::size_t size = 57; size <= bytes.size(); ++size) {
    const std::string path = directory.write("f", bytes.substr(0, size));
    VPageFilePtr file = VPageOpen(path, 1);
    Pages pages = allPages(*file);
    EXPECT_EQ(pages.size(), size < 69 ? 0 : size < 80 ? 1 : size < 91 ? 2 : 3);
    const std::int64_t id = addPage(*file, "new");
    pages[static_cast<std::uint32_t>(id)] = "new";
    EXPECT_EQ(VPageClose(std::move(file)), 0);
    EXPECT_EQ(allPages(*VPageOpenRead(path, 1)), pages);
    EXPECT_EQ(findings(path), (Lines{"INDEX OK", "0"}));
  }
}

// --- Buffers and repacking -----------------------------------------------------------

TEST(VPage, ReservedPagesStayWhereTheyAre) {
  const TempDir directory;
  VPageFilePtr file = VPageOpen(directory.path("f"), 2);
  void* first = nullptr;
  void* second = nullptr;
  VPageNew(*file, 10, first);
  VPageNew(*file, 10, second);
  void* third = nullptr;
  EXPECT_EQ(VPageNew(*file, 10, third), -1);
  EXPECT_EQ(VPageError, kVPageNoBuffer);
  VPageReleaseOld(*file, 1);
  EXPECT_EQ(VPageNew(*file, 10, third), 2);
  EXPECT_EQ(VPageGet(*file, 0), first);
  EXPECT_EQ(VPageNew(*file, 0, third), -1);
  EXPECT_EQ(VPageResize(*file, 0, 0), nullptr);
  EXPECT_EQ(VPageDiscard(std::move(file)), 0);
}

TEST(VPage, RepacksWhenMoreThanHalfAsMuchIsFreeAsUsed) {
  const TempDir directory;
  const std::string path =
      directory.write("f", header(kNone, 0, 0, 0) + record(0, "1234") + record(kDead, "12") +
                               record(1, "1234") + record(kDead, "12"));
  VPageFilePtr file = VPageOpen(path, 1);
  EXPECT_EQ(VPageRepack(*file, false), 0);
  EXPECT_EQ(VPageClose(std::move(file)), 0);
  EXPECT_EQ(directory.read("f").substr(57, 12 + 10), record(0, "1234") + record(kDead, "12"));
  file = VPageOpen(path, 1);
  EXPECT_EQ(addPage(*file, "x"), 2);  // drops the index, whose bytes are then free
  EXPECT_EQ(VPageRepack(*file, false), 0);
  EXPECT_EQ(VPageSaveAs(*file, directory.path("copy")), 0);
  EXPECT_EQ(VPageClose(std::move(file)), 0);
  const std::string records = record(0, "1234") + record(1, "1234") + record(2, "x");
  EXPECT_EQ(directory.read("f"), header(57 + records.size(), 0, 9, 3) + records +
                                     record(kDead, longWords({0, 57, 69, 81, kNone, kNone})));
  EXPECT_EQ(directory.read("copy"), directory.read("f"));
  EXPECT_FALSE(fileExists(path + ".tmp"));
}

TEST(VPage, OpenedForReadingNothingIsWritten) {
  const TempDir directory;
  const std::string bytes = header(kNone, 0, 0, 0) + record(0, "1234") + record(0, "5678");
  VPageFilePtr file = VPageOpenRead(directory.write("f", bytes), 1);
  EXPECT_EQ(pageText(*file, 0), "5678") << VPageError;
  void* data = nullptr;
  VPageGet(*file, 0);
  EXPECT_EQ(VPageDirty(*file, 0, false), -2);
  EXPECT_EQ(VPageNew(*file, 3, data), -1);
  EXPECT_EQ(VPageResize(*file, 0, 3), nullptr);
  EXPECT_EQ(VPageDelete(*file, 0), -2);
  EXPECT_EQ(VPageRepack(*file, true), -2);
  EXPECT_EQ(VPageError, kVPageCantWrite);
  EXPECT_EQ(VPageFlush(*file), 0);
  EXPECT_EQ(VPageClose(std::move(file)), 0);
  EXPECT_EQ(directory.read("f"), bytes);
}

TEST(VPage, DumpsWhatItHas) {
  const TempDir directory;
  VPageFilePtr file = VPageOpen(directory.path("f"), 1);
  addPage(*file, "zero");
  EXPECT_EQ(VPageFlush(*file), 0);
  const StreamPtr stream = openStream(directory.path("dump"), "w");
  VPageDump(*file, stream.get());
  std::fflush(stream.get());
  EXPECT_EQ(directory.read("dump"), "VPage File: " + directory.path("f") +
                                        "\nIndex Offset: 0000000000000045\nBytes Free: 0\n"
                                        "Bytes Used: 4\nNext Page: 1\n\nBuffers: \n  0  4\n"
                                        "\nIndex: \n  ID   Offset\n  0  57\n");
}

// --- Laws ----------------------------------------------------------------------------

std::string someText() {
  return std::string(*rc::gen::inRange<std::size_t>(1, 60), *rc::gen::inRange('a', 'z'));
}

void step(VPageFilePtr& file, Pages& model, const std::string& path) {
  const auto id = *rc::gen::inRange<std::uint32_t>(0, 12);
  const bool there = model.count(id) != 0;
  const std::string text = someText();
  switch (*rc::gen::inRange(0, 8)) {
    case 0:
    case 1:
      model[static_cast<std::uint32_t>(addPage(*file, text))] = text;
      return;
    case 2:
      RC_ASSERT(changePage(*file, id, text) == there);
      if (there) model[id] = text;
      return;
    case 3:
      RC_ASSERT((VPageDelete(*file, id) == 0) == there);
      model.erase(id);
      return;
    case 4:
      RC_ASSERT(VPageFlush(*file) == 0);
      RC_ASSERT(findings(path) == (Lines{"INDEX OK", "0"}));
      return;
    case 5:
      RC_ASSERT(VPageRepack(*file, *rc::gen::arbitrary<bool>()) == 0);
      return;
    case 6:
      RC_ASSERT(VPageClose(std::move(file)) == 0);
      file = VPageOpen(path, *rc::gen::inRange(1, 5));
      RC_ASSERT(static_cast<bool>(file));
      return;
    default:
      RC_ASSERT(pageText(*file, id) == (there ? std::optional(model[id]) : std::nullopt));
  }
}

RC_GTEST_PROP(VPage, KeepsItsPages, ()) {
  const TempDir directory;
  const std::string path = directory.path("f");
  VPageFilePtr file = VPageOpen(path, 2);
  Pages model;
  for (int steps = *rc::gen::inRange(1, 60); steps > 0; --steps) step(file, model, path);
  RC_ASSERT(allPages(*file) == model);
  RC_ASSERT(VPageClose(std::move(file)) == 0);
  RC_ASSERT(allPages(*VPageOpenRead(path, 1)) == model);
}

TEST(VPage, ManyPagesComeAndGo) {
  const TempDir directory;
  VPageFilePtr file = VPageOpen(directory.path("f"), 1);
  for (int i = 0; i < 60000; ++i) addPage(*file, "text");
  for (std::uint32_t id = 0; id < 59999; ++id) EXPECT_EQ(VPageDelete(*file, id), 0);
  EXPECT_EQ(VPageClose(std::move(file)), 0);
  EXPECT_EQ(allPages(*VPageOpen(directory.path("f"), 1)), (Pages{{59999, "text"}}));
}

// --- Failure -------------------------------------------------------------------------

// Some of everything; whether all of it worked.
bool work(VPageFile& file) {
  const std::string large(9000, 'L');
  return addPage(file, large) == 2 && changePage(file, 0, "longer") && VPageFlush(file) == 0 &&
         VPageDelete(file, 1) == 0 && addPage(file, "four") == 3 && VPageRepack(file, true) == 0 &&
         pageText(file, 0) == "longer" && VPageFlush(file) == 0;
}

TEST(VPage, AnyCallMayFail) {
  const TempDir directory;
  failEachFileCall([&](FaultPlatform& faults) {
    const std::string path =
        directory.write("f", header(57 + 23, 0, 7, 2) + record(0, "zero") + record(1, "one") +
                                 record(kDead, longWords({0, 57, 69, kNone, kNone})));
    VPageFilePtr file = VPageOpen(path, 2);
    testing::internal::CaptureStderr();
    const bool good = file != nullptr && work(*file) && VPageClose(std::move(file)) == 0;
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(said.empty() || said == "VPageRepack: Can't write temp file '" + path + ".tmp'.\n");
    const bool failed = faults.stop();
    EXPECT_TRUE(good || (failed && VPageError != kVPageOk));
    file.reset();
    EXPECT_FALSE(fileExists(path + ".tmp"));
    file = VPageOpenRead(path, 1);
    ASSERT_NE(file, nullptr);
    for (const auto& [id, text] : allPages(*file)) EXPECT_NE(text, kUnreadable);
  });
}

TEST(VPage, AFlushIsRepeatedOnceThereIsRoom) {
  const TempDir directory;
  for (std::int64_t space = 0; space < 40000; space += 371) {
    FaultPlatform faults;
    VPageFilePtr file = VPageOpen(directory.path("f" + std::to_string(space)), 3);
    const std::string large(12000, 'L');
    EXPECT_EQ(addPage(*file, "zero"), 0);
    EXPECT_EQ(VPageFlush(*file), 0);
    faults.setDiskSpace(space);
    EXPECT_EQ(addPage(*file, large), 1);
    EXPECT_EQ(addPage(*file, large), 2);
    const bool good = VPageFlush(*file) == 0;
    EXPECT_EQ(good, !faults.failed());
    faults.freeDiskSpace();
    EXPECT_EQ(VPageFlush(*file), 0);
    EXPECT_EQ(VPageClose(std::move(file)), 0);
    const std::string path = directory.path("f" + std::to_string(space));
    EXPECT_EQ(allPages(*VPageOpenRead(path, 1)), (Pages{{0, "zero"}, {1, large}, {2, large}}));
    EXPECT_EQ(findings(path), (Lines{"INDEX OK", "0"}));
  }
}

}  // namespace
