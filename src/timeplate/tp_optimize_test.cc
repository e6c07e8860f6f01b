#include "timeplate/tp_optimize.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "base/errors.h"
#include "pvb/pattern.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "support/database.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

constexpr TpOptimizations kEverything = {true, true, true, false, true};
constexpr int kRows = 120;

void addPlate(int database, const std::string& name, const std::string& states) {
  auto plate = PVBtimePlateNew();
  plate->name = name;
  plate->period = PBlongToTIME(10000000);
  PVBallocAsNecessary(*plate, 0);
  for (std::size_t i = 0; i < states.size(); ++i) {
    PVBallocLevelAsNecessary(*plate, 0, 0, -1, PBlongToTIME(static_cast<std::int32_t>(i) * 1000),
                             states[i], 1);
  }
  PVBtrackSetDirection(*plate, 0, INPUT);
  PVBtrackSetSignals(*plate, 0, {PVBsignalInqByName(database, "a")->id});
  ASSERT_GE(PVBtimePlateInsert(database, std::move(plate)), 0);
}

// Four timeplates, of which the second is the first again and the last has no rows.
void fill(int database, const std::string& lastName) {
  auto signal = PVBsignalNew();
  signal->name = "a";
  signal->direction = INPUT;
  ASSERT_GT(PVBsignalAdd(database, std::move(signal)), 0);
  addPlate(database, "first", "S");
  addPlate(database, "again", "S");
  addPlate(database, "clock", "DUD");
  addPlate(database, lastName, "Z");
  for (std::uint32_t i = 0; i < kRows; ++i) {
    const RowHandle row(database, PVBpatternNew(database));
    row->timeplate = static_cast<std::uint16_t>(i % 3);
    PVBposition end;
    end.row = i;
    ASSERT_GE(PVBrowInsert(database, kMainPattern, end, BY_ROW, *row), 0);
  }
}

class TpOptimizeTest : public testing::Test {
 protected:
  ~TpOptimizeTest() override {
    PBerrClear();
    PBdiscardErrors();
  }

  int optimize(const std::string& path) {
    return tpOptimize(path, std::nullopt, kEverything, report_.get());
  }
  // Rows that name a timeplate which is there.
  static int soundRows(int database) {
    int rows = 0;
    PatternWalk walk(database, kMainPattern);
    while (walk.next()) {
      const RowHandle row(database, PVBrowGet(database, walk.entry().child));
      if (row && row->timeplate == walk.entry().index &&
          PVBtimePlateInqByID(database, row->timeplate) != nullptr) {
        ++rows;
      }
    }
    return rows;
  }

  StreamPtr report_ = openStream("/dev/null", "w");
};

TEST_F(TpOptimizeTest, NoRowIsLostWhateverFileCallFails) {
  // The scan leaves its file in the current directory, which other tests share.
  const TempDir workPlace;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(workPlace.path());
  bool failed = true;
  for (int n = 1; failed; n += 1 + n / 40) {
    SCOPED_TRACE(n);
    TestDatabase database(32, 4);
    fill(database.handle(), "spare");
    ASSERT_EQ(PVBsave(database.handle()), 0);
    database.close();
    {
      FaultPlatform faults;
      faults.failFileCall(n);
      const int result = optimize(database.path());
      EXPECT_TRUE(result == 0 || (result == -2 && PBerrCount() > 0)) << result;
      failed = faults.failed();
      for (int slot = 0; slot < MAXPVB; ++slot) {
        if (PVBget(slot) != nullptr) PVBcloseUnsaved(slot);
      }
    }
    PBerrClear();
    PBdiscardErrors();
    ASSERT_TRUE(database.open());
    EXPECT_EQ(soundRows(database.handle()), kRows);
    EXPECT_TRUE(failed || PVBtimePlateCount(database.handle()) == 2);
    database.close();
  }
  EXPECT_TRUE(std::filesystem::is_empty(workPlace.path()));
  std::filesystem::current_path(before);
}

TEST_F(TpOptimizeTest, ANameThatIsNotThereEndsTheProcess) {
  TestDatabase database(32, 4);
  fill(database.handle(), "spare\nname");
  ASSERT_EQ(PVBsave(database.handle()), 0);
  database.close();
  EXPECT_EXIT(optimize(database.path()), testing::KilledBySignal(SIGABRT), "");
  ASSERT_TRUE(database.open());
  EXPECT_EQ(PVBtimePlateCount(database.handle()), 4);
  database.close();
}

}  // namespace
