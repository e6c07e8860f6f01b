#include "conditioner/region.h"

#include <fmt/printf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "base/platform.h"
#include "conditioner/signal_transfer.h"
#include "pvb/signal.h"
#include "support/database.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;
using Lines = std::vector<std::string>;

TIME ns(int n) { return {n / 1000, n % 1000 * 1000000}; }

// A database with a signal, and a timeplate "tp" of 10 ns that drives it.
struct World {
  World() {
    auto signal = PVBsignalNew();
    signal->name = "s";
    signal->direction = INPUT;
    s = PVBsignalAdd(db(), std::move(signal));
    addPlate("tp", 10, "DU");
  }
  ~World() { PBdiscardErrors(); }

  int db() const { return database.handle(); }
  // The plate of the rows added from here on, with events 5 ns apart.
  void addPlate(const std::string& name, int period, std::string_view events) {
    auto made = PVBtimePlateNew();
    made->name = name;
    made->period = ns(period);
    PVBallocAsNecessary(*made, 0);
    if (!events.empty()) PVBlistInsert(*made, 0, s);
    int time = 0;
    for (const char event : events) {
      PVBtrackInsert(made->levels[0].tracks[0], -1, ns(5 * time++), event, 1);
    }
    plate = static_cast<std::uint16_t>(PVBtimePlateInsert(db(), std::move(made)));
  }
  // Inserts a row before row number `place`, at the end by default.
  void add(std::uint32_t type, std::uint32_t count = 1, std::uint32_t place = 0xFFFFFFFF) {
    const RowHandle row(db(), PVBpatternNew(db()));
    row->type = type;
    row->count = count;
    if (type >= ROW_LITERAL && type != ROW_SPACER) row->timeplate = plate;
    if (type == ROW_SPACER) row->spacerTime = ns(5);
    if (type == ROW_SUBR_CALL) row->link = addSubroutine();
    PVBrowSetState(db(), *row, *PVBsignalInqByID(db(), s), state);
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
  PVBid s;
  int pattern = kMainPattern;
  int state = 1;
  std::uint16_t plate = 0;
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

TEST(RegionWalk, BoundsTakeWholeRowsAndCutSingleCycles) {
  World world;
  for (int i = 0; i < 3; ++i) world.add(ROW_LITERAL);
  EXPECT_THAT(world.walk(), ElementsAre("0:LITERALx1 tp", "1:LITERALx1 tp", "2:LITERALx1 tp"));
  EXPECT_THAT(world.walk(ns(10), ns(20)), ElementsAre("1:LITERALx1 tp"));
  EXPECT_THAT(world.walk(ns(10), ns(10)), ElementsAre("1:LITERALx1 tp"));
  EXPECT_THAT(world.walk(ns(4), ns(26)),
              ElementsAre("0:LITERALx1 tp_4nS", "1:LITERALx1 tp", "2:LITERALx1 tp_0pS"));
  // The first row doesn't look at the stop.
  EXPECT_THAT(world.walk(ns(14), ns(16)), ElementsAre("1:LITERALx1 tp_4nS"));
  EXPECT_THAT(world.walk(ns(30)), ElementsAre());
}

TEST(RegionWalk, RefusesStructuresUnlessTheyAreAllowed) {
  const struct {
    std::uint32_t type;
    std::uint32_t count;
    const char* text;
    bool everRefused;
  } cases[] = {
      {ROW_LOOP, 1, "Loop structure found on row %d, cycle %d. ", false},
      {ROW_LOOP, 3, "Loop structure with 3 repeats found on row %d, cycle %d. ", false},
      {ROW_SUBR_CALL, 1, "Subroutine structure found on row %d. ", false},
      {ROW_LITERAL, 2, "2 repeats found on row %d, cycle %d. ", false},
      {ROW_SPACER, 1, "Skip structure found on row %d, duration 5nS. ", true},
      {ROW_MATCH, 1, "Unsupported structure found on row %d. ", true},
  };
  for (const auto& c : cases) {
    for (const std::uint32_t place : {0U, 1U}) {
      World world;
      if (place == 1) world.add(ROW_LITERAL);
      world.add(c.type, c.count);
      if (c.type == ROW_LOOP) world.add(ROW_LITERAL, 1, place + 1);
      const std::string error =
          refusal(place == 0 ? "First" : "Next", fmt::sprintf(c.text, place, place));
      EXPECT_EQ(world.walk().back(), error);
      const StructuresAllowed allowed;
      const std::string row = fmt::sprintf("%d:%sx%d", place, PVBrowTypeName(c.type) + 4, c.count);
      EXPECT_THAT(world.walk().at(place), StartsWith(c.everRefused ? error : row));
    }
  }
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

TEST(RegionWalk, KeepsCyclesWithEquationsWhole) {
  World world;
  world.add(ROW_LITERAL);
  world.add(ROW_LITERAL);
  world.add(ROW_LITERAL, 2);
  world.database.directory().write("db/pvb.sdb",
                                   "SDB 1\nsheet \"S\"\n  variable \"v\" time \"1nS\"\n"
                                   "  set \"Set1\" selected\nend\n");
  const StructuresAllowed allowed;
  EXPECT_THAT(world.walk(ns(4)),
              ElementsAre("PVBregionPatternInqFirst: Start time (4nS) of equation containing PVB "
                          "region (r) does not align with cycle boundary."));
  EXPECT_THAT(world.walk(TIME_ZERO, ns(14)), ElementsAre("0:LITERALx1 tp", stopRefusal("14nS")));
  // But a repeated row is cut.
  EXPECT_THAT(world.walk(ns(24)), ElementsAre("2:LITERALx1 tp_4nS", "2:LITERALx1 tp"));
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

// Compares a row of 10 ns with another one, on a common signal or none.
bool compatible(bool common, int period, const char* events, int state = 1,
                std::uint32_t type = ROW_LITERAL) {
  World world1;
  World world2;
  world1.add(ROW_LITERAL);
  world2.state = state;
  world2.addPlate("other", period, events);
  world2.add(type);
  world2.add(ROW_LITERAL);  // beyond the end of the first
  SigCategories categories;
  PVBsignal& signal = *PVBsignalInqByName(world1.db(), "s");
  if (common) categories.tables[OVERLAP_SCALARS].insert(signal);
  PVBregion region1 = world1.regionOf();
  PVBregion region2 = world2.regionOf();
  return PVBregionCompatible(region1, region2, 0, categories);
}

TEST(RegionCompatibility, ComparesTheRowsThatBothHave) {
  EXPECT_TRUE(compatible(true, 10, "DU"));
  EXPECT_FALSE(compatible(true, 20, "DU"));
  EXPECT_FALSE(compatible(true, 10, "DZ"));
  EXPECT_FALSE(compatible(true, 10, "D"));
  EXPECT_FALSE(compatible(true, 10, ""));
  EXPECT_FALSE(compatible(true, 10, "DU", 2));
  EXPECT_TRUE(compatible(false, 20, "D", 2));
  EXPECT_FALSE(compatible(false, 10, "DU", 1, ROW_SCAN));
}

}  // namespace
