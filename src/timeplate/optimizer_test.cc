#include "timeplate/optimizer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "pvb/database.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "support/database.h"
#include "support/fault_platform.h"
#include "support/optimizer_report.h"
#include "support/shipped.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

class Optimizer : public testing::Test {
 protected:
  ~Optimizer() override { PBprogramName.clear(); }

  bool start(std::vector<std::string> more) {
    more.insert(more.begin(), {"TmpPrefix=" + dir_.path(), "ATEFamily=other", "Pmode=ims",
                               "ShapeFile=" + shippedFile("data/ate/ims/ims.shp")});
    return tpOptInit(report_.stream(), Arguments(std::move(more)));
  }

  TempDir dir_;
  OptimizerReport report_;
};

TEST_F(Optimizer, TellsWhatItCanNotDo) {
  EXPECT_TRUE(start({}));
  EXPECT_EQ(report_.text(), "");
  EXPECT_TRUE(start({"WaveSource=w", "UseMuxTiming=yes"}));
  EXPECT_EQ(report_.text(),
            "WaveSource: generating timeplates from a wave source is not available.\n"
            "UseMuxTiming: applying multiplex timing is not available; multiplexed signals keep "
            "the timing that they have.\n");
  EXPECT_TRUE(start({"WaveSource=w", "Optimize=2"}));
  EXPECT_THAT(report_.text(),
              EndsWith("WaveSource: nothing is optimized by itself without DestinationPVB.\n"));
  EXPECT_FALSE(start({"DestinationPVB=d", "Optimize=2"}));
  EXPECT_THAT(report_.text(), EndsWith("missing parameter: WaveSource\n"));
  EXPECT_FALSE(start({"DestinationPVB=d", "Optimize=2", "WaveSource=none"}));
  EXPECT_THAT(report_.text(), EndsWith("Cannot open PVB file none for timeplate optimization.\n"));
}

// What became of a run in a process of its own.
enum Ending { kDone = 0, kEndedByCheck = 1, kRefused = 2, kTolerated = 3 };

class OptimizerDatabase : public Optimizer {
 protected:
  OptimizerDatabase() {
    auto plate = PVBtimePlateNew();
    plate->name = "tp";
    EXPECT_GE(PVBtimePlateInsert(database_.handle(), std::move(plate)), 0);
    database_.close();
  }

  // With the n-th file call failing.
  int runInChild(int n) {
    const pid_t child = fork();
    if (child == 0) {
      if (std::freopen("/dev/null", "w", stderr) == nullptr) ::_exit(kEndedByCheck);
      FaultPlatform platform;
      platform.failFileCall(n);
      const bool done =
          start({"Optimize=2", "DestinationPVB=unused", "WaveSource=" + database_.path()});
      ::_exit(!done ? kRefused : platform.failed() ? kTolerated : kDone);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  TestDatabase database_;
};

// Whatever fails, the database is as it was or optimized, and opens.
TEST_F(OptimizerDatabase, IsExchangedWhole) {
  for (int n = 1, ending = -1; ending != kDone; ++n) {
    ending = runInChild(n);
    EXPECT_GE(ending, 0);
    ASSERT_TRUE(database_.open()) << n;
    EXPECT_NE(PVBtimePlateInqByName(database_.handle(), "tp"), nullptr) << n;
    PVBcloseUnsaved(database_.handle());
  }
  EXPECT_FALSE(std::filesystem::exists(database_.path() + "_"));
  EXPECT_FALSE(std::filesystem::exists("unused"));
}

// What a bus does is what its signals do.
TEST_F(Optimizer, TakesBusesOnTracksApart) {
  TestDatabase database;
  auto bus = PVBsignalNew();
  bus->name = "bus";
  bus->type = MEM_BUS;
  bus->direction = INPUT;
  bus->leftIndex = 1;
  bus->rightIndex = 0;
  const PVBid id = PVBsignalAdd(database.handle(), std::move(bus));
  for (const char state : {'D', 'Z', 'D'}) {
    auto plate = PVBtimePlateNew();
    PVBallocAsNecessary(*plate, 0);
    PVBallocLevelAsNecessary(*plate, 0, 0, -1, TIME_ZERO, state, 1);
    PVBtrackSetSignals(*plate, 0, {id});
    ASSERT_GE(PVBtimePlateInsert(database.handle(), std::move(plate)), 0);
  }
  database.close();
  dir_.write("own.shp", "#% shape\nPS\n");
  EXPECT_TRUE(start({"ShapeFile=" + dir_.path("own.shp"), "Optimize=2", "DestinationPVB=unused",
                     "WaveSource=" + database.path()}));
  ASSERT_TRUE(database.open());
  EXPECT_EQ(PVBtimePlateCount(database.handle()), 2);
}

}  // namespace
