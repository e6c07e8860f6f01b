#include "timeplate/row_store.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <map>

#include "base/errors.h"
#include "support/fault_platform.h"
#include "support/plate_database.h"
#include "timeplate/row_store_internal.h"
#include "timeplate/tp_settings.h"

namespace {

TpRow record(int timeplate, std::vector<std::uint8_t> data) {
  return {-1, static_cast<std::uint16_t>(timeplate), std::move(data)};
}

// The length of the queue while it lives.
class Queue {
 public:
  explicit Queue(const char* limit) { ::setenv("TPFORCE_QUEUE", limit, 1); }
  ~Queue() { ::unsetenv("TPFORCE_QUEUE"); }
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;
};

// What the store reports while it is closed.
std::string closingReport() {
  char* text = nullptr;
  std::size_t size = 0;
  FILE* stream = ::open_memstream(&text, &size);
  tpNoticeSettings.stream = stream;
  tpSettings.tpoTrace = 1;
  EXPECT_EQ(tpRowStoreClose(), 0);
  tpSettings.tpoTrace = 0;
  tpNoticeSettings.stream = nullptr;
  std::fclose(stream);
  const std::string report(text, size);
  std::free(text);
  return report;
}

// --- The cache -----------------------------------------------------------------------

RC_GTEST_PROP(RowCacheProperty, AnyQueueGivesWhatAPlainTableGives, ()) {
  const TempDir place;
  const auto size = *rc::gen::inRange<std::size_t>(0, 4);
  RowCache cache;
  cache.open(size, *rc::gen::inRange(1, 9), place.path("rows").c_str());
  std::map<std::int32_t, TpRow> model;
  const auto steps = *rc::gen::inRange(0, 200);
  for (int i = 0; i < steps; ++i) {
    const auto row = *rc::gen::inRange(-1, 24);
    const auto value = *rc::gen::arbitrary<std::uint8_t>();
    TpRow* got = cache.get(row);
    RC_ASSERT((got != nullptr) == model.contains(row));
    if (got != nullptr) {
      RC_ASSERT(got->row == row);
      RC_ASSERT(got->timeplate == model[row].timeplate);
      RC_ASSERT(got->data == model[row].data);
    }
    switch (*rc::gen::inRange(0, 3)) {
      case 0:
        cache.put(row, record(value, std::vector<std::uint8_t>(size, value)));
        if (row >= 0) model[row] = record(value, std::vector<std::uint8_t>(size, value));
        break;
      case 1:
        if (got == nullptr) break;
        got->timeplate = model[row].timeplate = kNoTimePlate;
        cache.touch(row);
        break;
      default:
        break;
    }
  }
}

TEST(RowCacheTest, RowsLeftOutAreFilledAndAnUnchangedRowIsNotWrittenAgain) {
  const TempDir place;
  RowCache cache;
  cache.open(2, 1, place.path("rows").c_str());
  cache.put(2, record(7, {0xAB, 0xCD}));
  EXPECT_EQ(cache.get(0), nullptr);
  cache.put(0, record(5, {1, 2}));  // row 2 leaves
  EXPECT_EQ(cache.get(1), nullptr);
  ASSERT_NE(cache.get(2), nullptr);  // row 0 leaves
  cache.put(0, record(6, {3, 4}));   // row 2 leaves as it came
  EXPECT_EQ(cache.counts().misses, 3);
  cache.close();
  const std::string filler = "\xFF\xFF\xFF\xFF\xAB\xCD";
  EXPECT_EQ(place.read("rows"),
            std::string("\5\0\0\0\1\2", 6) + filler + std::string("\7\0\0\0\xAB\xCD", 6));
}

// --- The store -----------------------------------------------------------------------

TEST(RowStoreTest, TheQueueIsAsLongAsTheEnvironmentSaysAboveALeast) {
  for (const auto& [limit, report] : {std::pair("400", "LRU Queue: 0 hits, 0 misses\n"),
                                      std::pair("501", "LRU Queue: 0 hits, 1 misses\n")}) {
    PlateDatabase world({INPUT});
    const Queue queue(limit);
    ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
    for (int i = 0; i < 502; ++i) tpRowPut(i, record(0, {}));
    EXPECT_EQ(closingReport(), report);
    EXPECT_EQ(world.database.temporaryFiles(), 0U);
  }
}

// Two rows, a loop over three, a call, a spacer, a row that is there 5 times, a scan row
// and one behind it; two rows of the subroutine.
void fillStructure(PlateDatabase& world) {
  const PVBid plate = world.plate({{0, INPUT, "S"}});
  world.plate({{0, INPUT, "DS"}});
  const int subroutine = PVBsubroutineNew(world.handle(), "init");
  for (int i = 0; i < 5; ++i) world.row(plate, {1});
  ASSERT_GE(PVBloopMake(world.handle(), kMainPattern, 2, 3, 4), 0);
  for (int i = 0; i < 2; ++i) world.row(plate, {2}, ROW_LITERAL, 1, kNoLink, subroutine);
  world.row(-1, {}, ROW_SUBR_CALL, 1, static_cast<std::uint32_t>(subroutine));
  world.row(-1, {}, ROW_SPACER);
  world.row(plate, {1}, ROW_LITERAL, 5);
  world.row(plate, {1}, ROW_SCAN);
  world.row(plate, {1});
}

TEST(RowStoreTest, RowsAreNumberedThroughAllPatternsAndKnowHowTheyAreEntered) {
  PlateDatabase world({INPUT});
  fillStructure(world);
  ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
  ASSERT_EQ(tpRowStoreCount(), 14);
  std::string flags;
  for (int i = 0; i < 14; ++i) {
    flags += tpRowScans(i) ? 'S' : tpRowRepeats(i) ? 'R' : tpRowEntered(i) ? 'E' : '-';
  }
  //               rows, loop, body, end, call, spacer, repeated, scan, behind it, subroutine
  EXPECT_EQ(flags,
            "E-"
            "-"
            "E--"
            "-"
            "E"
            "E"
            "R"
            "S"
            "E"
            "E-");
  EXPECT_TRUE(tpRowEntered(10));
  EXPECT_FALSE(tpRowEntered(9));
  EXPECT_EQ(tpRowGet(2)->timeplate, kNoTimePlate);
  EXPECT_EQ(tpRowGet(13)->data[0], 2);
  EXPECT_EQ(tpRowGet(14), nullptr);
}

TEST(RowStoreTest, WritingBackChangesWhatWasRewrittenAndNothingElse) {
  PlateDatabase world({INPUT});
  fillStructure(world);
  ASSERT_EQ(PVBsave(world.handle()), 0);
  world.database.reopen();
  ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
  ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
  for (const int row : {2, 4, 13}) {
    TpRow* held = tpRowGet(row);
    held->timeplate = 1;
    held->data[0] = 3;
    tpRowTouch(*held);
  }
  ASSERT_EQ(tpRowStoreClose(), 0);
  EXPECT_EQ(world.database.temporaryFiles(), 0U);
  ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
  for (int i = 0; i < 14; ++i) {
    const bool rewritten = i == 4 || i == 13;
    EXPECT_EQ(tpRowGet(i)->timeplate == 1, rewritten) << i;
    EXPECT_EQ(tpRowGet(i)->data[0] == 3, rewritten) << i;
  }
}

TEST(RowStoreTest, RowsThatComeLaterAreTakenInAndRewrittenOnesStay) {
  const Queue queue("501");
  PlateDatabase world({INPUT});
  const PVBid plate = world.plate({{0, INPUT, "S"}});
  for (int i = 0; i < 1200; ++i) world.row(plate, {1});
  ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
  for (int i = 0; i < 1200; i += 2) tpRowPut(i, record(plate, {2}));
  world.row(plate, {3}, ROW_LITERAL, 2);
  ASSERT_EQ(tpRowStoreRefresh(), RowsTaken::appended);
  EXPECT_EQ(tpRowGet(1200)->data[0], 3);
  EXPECT_TRUE(tpRowRepeats(1200));
  // A subroutine stands behind the main pattern, whose next row then has its number.
  const int subroutine = PVBsubroutineNew(world.handle(), "init");
  world.row(plate, {4}, ROW_LITERAL, 1, kNoLink, subroutine);
  ASSERT_EQ(tpRowStoreRefresh(), RowsTaken::renewed);
  world.row(plate, {5});
  ASSERT_EQ(tpRowStoreRefresh(), RowsTaken::renewed);
  ASSERT_EQ(tpRowStoreCount(), 1203);
  for (int i = 0; i < 1200; ++i) ASSERT_EQ(tpRowGet(i)->data[0], i % 2 == 0 ? 2 : 1) << i;
  EXPECT_EQ(tpRowGet(1201)->data[0], 5);
  EXPECT_EQ(tpRowGet(1202)->data[0], 4);
}

// --- Failure -------------------------------------------------------------------------

TEST(RowStoreTest, AFileThatFailsEndsTheProgramAndIsRemoved) {
  const Queue queue("501");
  PlateDatabase world({INPUT}, 2000);
  const auto work = [&](int n) {
    FaultPlatform faults;
    ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
    faults.failFileCall(n);
    for (int i = 0; i < 700; ++i) tpRowPut(i, record(0, {}));
    for (int i = 0; i < 700; ++i) tpRowGet(i);
    std::exit(faults.failed() ? 2 : 0);
  };
  EXPECT_EXIT(work(1), testing::ExitedWithCode(1), "failed to write: .*TPFRC");
  EXPECT_EXIT(work(100), testing::ExitedWithCode(1), "failed to read: .*TPFRC");
  const auto make = [&] {
    FaultPlatform faults;
    faults.failFileCall(1);
    tpRowStoreOpen(world.handle(), nullptr);
  };
  EXPECT_EXIT(make(), testing::ExitedWithCode(1), "failed to open: .*TPFRC");
  EXPECT_EQ(world.database.temporaryFiles(), 0U);
}

TEST(RowStoreTest, RowsThatCannotBeReadOrWrittenBackAreAFailure) {
  constexpr int kRows = 600;
  bool failed = true;
  int failures = 0;
  PlateDatabase world({INPUT}, 2000, 4);
  const PVBid plate = world.plate({{0, INPUT, "S"}});
  for (int i = 0; i < kRows; ++i) world.row(plate, {1});
  ASSERT_EQ(PVBsave(world.handle()), 0);
  for (int n = 1; failed; n += 1 + n / 4) {
    SCOPED_TRACE(n);
    const std::size_t before = world.database.temporaryFiles();
    FaultPlatform faults;
    ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
    for (int i = 0; i < kRows; ++i) tpRowPut(i, record(plate, {static_cast<std::uint8_t>(n)}));
    faults.failFileCall(n);
    const int result = tpRowStoreClose();
    failed = faults.failed();
    failures += result != 0 ? 1 : 0;
    EXPECT_TRUE(result == 0 || (result == -2 && failed && PBerrorCount() > 0)) << result;
    EXPECT_FALSE(tpRowStoreIsOpen());
    EXPECT_LE(world.database.temporaryFiles(), before + (failed ? 1 : 0));
    PBdiscardErrors();
    ASSERT_TRUE(tpRowStoreOpen(world.handle(), nullptr));
    for (int i = 0; i < kRows && result == 0; ++i) ASSERT_EQ(tpRowGet(i)->data[0], n) << i;
    tpRowStoreDrop();
  }
  EXPECT_GT(failures, 0);
}

}  // namespace
