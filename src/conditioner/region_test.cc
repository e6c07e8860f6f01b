#include "conditioner/region.h"

#include <fmt/printf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "base/platform.h"
#include "pvb/timeplate.h"
#include "support/database.h"

namespace {

using testing::ElementsAre;
using Lines = std::vector<std::string>;

TIME ns(int n) { return {n / 1000, n % 1000 * 1000000}; }

// A database with a timeplate "tp" of 10 ns.
struct World {
  World() {
    auto plate = PVBtimePlateNew();
    plate->name = "tp";
    plate->period = ns(10);
    PVBtimePlateInsert(db(), std::move(plate));
  }
  ~World() { PBdiscardErrors(); }

  int db() const { return database.handle(); }
  // Inserts a row before row number `place`, at the end by default.
  void add(std::uint32_t type, std::uint32_t count = 1, std::uint32_t place = 0xFFFFFFFF) {
    const RowHandle row(db(), PVBpatternNew(db()));
    row->type = type;
    row->count = count;
    if (type >= ROW_LITERAL) row->timeplate = 0;
    if (type == ROW_SUBR_CALL) row->link = addSubroutine();
    PVBposition position;
    position.row = place;
    ASSERT_GE(PVBrowInsert(db(), pattern, position, BY_ROW, *row), 0);
  }
  // One of two cycles.
  std::uint32_t addSubroutine() {
    pattern = PVBsubroutineNew(db(), "sub");
    add(ROW_LITERAL, 2);
    return static_cast<std::uint32_t>(std::exchange(pattern, kMainPattern));
  }
  PVBregion regionOf(TIME start = TIME_ZERO, TIME stop = TIME_MAX) const {
    PVBregion region;
    PVBregionInit(region, "r", database.path(), start, stop);
    region.pvbHandle = db();
    return region;
  }
  // The rows of a walk as "number:TYPExcount plate", then its message.
  Lines walk(TIME start = TIME_ZERO, TIME stop = TIME_MAX, int step = kStepRow) const {
    PVBregion region = regionOf(start, stop);
    Lines lines;
    RegionRow row;
    for (int found = PVBregionPatternInqFirst(region, row); found == 0;
         found = PVBregionPatternInqNext(region, step, row)) {
      lines.push_back(fmt::sprintf("%d:%sx%d%s", region.cursor.row,
                                   PVBrowTypeName(row.row->type) + 4, row.count,
                                   row.plate != nullptr ? " " + *row.plate->name : ""));
    }
    PBerrSetLogger([&lines](std::string_view line) { lines.emplace_back(line); });
    PBerrPrint(stderr);
    PBerrSetLogger({});
    PBerrClear();
    return lines;
  }

  TestDatabase database;
  int pattern = kMainPattern;
};

std::string refusal(const char* function, const std::string& structure) {
  return fmt::sprintf(
      "PVBregionPatternInq%s: Use of compression was detected but is not supported: (%s)", function,
      structure);
}
std::string stopRefusal(const char* stop) {
  return fmt::sprintf(
      "PVBregionPatternInqNext: Stop time (%s) of equation containing PVB region (r) does not "
      "align with cycle boundary.",
      stop);
}

TEST(RegionWalk, TakesLoopsAndCallsFromTheirBeginningOnly) {
  World world;
  world.add(ROW_LOOP, 3);
  world.add(ROW_LOOP, 2, 1);
  world.add(ROW_LITERAL, 1, 2);
  world.add(ROW_SUBR_CALL, 2);
  const StructuresAllowed allowed;
  EXPECT_THAT(world.walk(), ElementsAre("0:LOOPx3", "1:LOOPx2", "2:LITERALx1 tp", "3:END_LOOPx2",
                                        "4:END_LOOPx3", "5:SUBR_CALLx2"));
  const std::string loop = "Loop structure with 3 repeats found on row 0, cycle 0. ";
  const std::string call = "Subroutine structure found on row 5. ";
  EXPECT_THAT(world.walk(ns(20)), ElementsAre(refusal("First", loop)));
  EXPECT_THAT(world.walk(ns(60), ns(100)), ElementsAre("5:SUBR_CALLx2"));
  EXPECT_THAT(world.walk(ns(80)), ElementsAre(refusal("First", call)));
  EXPECT_EQ(world.walk(TIME_ZERO, ns(90)).back(), stopRefusal("90nS"));
}

TEST(RegionWalk, BeginsARepeatedRowWithTheCyclesLeft) {
  World world;
  world.add(ROW_LITERAL);
  world.add(ROW_LITERAL, 4);
  world.add(ROW_LITERAL);
  const StructuresAllowed allowed;
  const std::string cut = "1:LITERALx1 tp_5nS";
  const std::string end = "2:LITERALx1 tp";
  EXPECT_THAT(world.walk(ns(20)), ElementsAre("1:LITERALx3 tp", end));
  EXPECT_THAT(world.walk(ns(25)), ElementsAre(cut, "1:LITERALx2 tp", end));
  EXPECT_THAT(world.walk(ns(45)), ElementsAre(cut, end));
  EXPECT_THAT(world.walk(ns(25), ns(50)), ElementsAre(cut, "1:LITERALx2 tp"));
  EXPECT_THAT(world.walk(ns(25), ns(30)), ElementsAre(cut));
  EXPECT_THAT(world.walk(ns(25), ns(40)), ElementsAre(cut, stopRefusal("40nS")));
}

TEST(RegionWalk, TakesScanRowsWithoutATestForTheEnd) {
  World world;
  world.add(ROW_LITERAL);
  world.add(ROW_SCAN, 2);
  EXPECT_THAT(world.walk(TIME_ZERO, ns(25)), ElementsAre("0:LITERALx1 tp", "1:SCANx2 tp"));
  EXPECT_THAT(world.walk(TIME_ZERO, TIME_MAX, kStepCycle),
              ElementsAre("0:LITERALx1 tp", "1:SCANx1 tp", "1:SCANx1 tp"));
  EXPECT_THAT(world.walk(ns(10)),
              ElementsAre(refusal("First", "2 repeats found on row 1, cycle 1. ")));
  const StructuresAllowed allowed;
  EXPECT_EQ(world.walk(TIME_ZERO, ns(25)).back(), stopRefusal("25nS"));
}

TEST(RegionWalk, EndsWhereTheSumsOfThePatternLie) {
  World world;
  for (int i = 0; i < 3; ++i) world.add(ROW_LITERAL);
  PatternWalk rows(world.db(), kMainPattern);
  ASSERT_TRUE(rows.next());
  PVBnodeEntry entry = rows.entry();
  entry.rows = 5;
  PVBposition position;
  const auto root = static_cast<std::uint32_t>(PVBpatternRoot(world.db(), kMainPattern));
  const int nodes = world.database.slot().patterns->nodes;
  ASSERT_EQ(PVBtreeReplace(nodes, root, position, BY_ROW, entry), 0);
  EXPECT_THAT(world.walk(), ElementsAre("0:LITERALx1 tp"));
  EXPECT_TRUE(PBerrorHas("PVBregionPatternInqNext", 87));
}

TEST(RegionRecord, IsReadyForTheNextOperationAfterClosing) {
  World world;
  world.add(ROW_LITERAL);
  PVBregion region = world.regionOf(ns(1), ns(9));
  PVBregion other = world.regionOf();
  EXPECT_TRUE(sameDirectory(region.pvbName, region.pvbName + "/."));
  EXPECT_FALSE(PVBregionEqual(region, other));
  EXPECT_EQ(PVBregionRowCount(region), 0);
  EXPECT_EQ(PVBregionRowCount(other), 1);
  EXPECT_EQ(PVBregionClose(&region), 0);

  // The slot now belongs to another database, which the second region leaves alone.
  const std::string path = world.database.directory().path("another");
  const int another = PVBopenAny(path, true, 0, 8, kAllSections, false);
  ASSERT_EQ(another, other.pvbHandle);
  EXPECT_EQ(PVBregionClose(&other), 0);
  EXPECT_EQ(PVBclose(another), 0);
  ASSERT_TRUE(world.database.open(false));
  EXPECT_THAT(world.walk(region.start, region.stop), ElementsAre("0:LITERALx1 tp_1nS"));
}

}  // namespace
