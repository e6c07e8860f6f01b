// Times of timeplates that come from expressions.

#include "equations/time_update.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "pvb/pattern.h"
#include "support/database.h"

namespace {

using testing::ElementsAre;
using Kind = TimeVariableFault::Kind;

constexpr TIME nanoseconds(int n) { return {n / 1000, n % 1000 * 1000000}; }

class TimeUpdateTest : public testing::Test {
 protected:
  ~TimeUpdateTest() override { PBdiscardErrors(); }

  void equations(const std::string& lines) {
    std::ofstream(database_.path() + "/pvb.sdb") << "SDB 1\n" << lines << "end\n";
  }
  // A plate of 100nS; each event stands at 1nS until its expression is evaluated.
  PVBid plate(const std::string& name, const std::vector<std::string>& expressions) {
    auto plate = PVBtimePlateNew();
    plate->name = name;
    plate->period = nanoseconds(100);
    for (const std::string& text : expressions) {
      EXPECT_EQ(PVBallocLevelAsNecessary(*plate, 0, 1, -1, nanoseconds(1), text, 'D', 1), 0);
    }
    return PVBtimePlateInsert(handle(), std::move(plate));
  }
  const PVBtimePlate& at(PVBid id) const { return *PVBtimePlateInqByID(handle(), id); }
  const std::vector<TIME>& times(PVBid id) const { return at(id).levels[0].tracks[1].eventTimes; }
  bool& changed() const { return database_.slot().timePlates->changed; }
  int handle() const { return database_.handle(); }

  TestDatabase database_;
};

TEST_F(TimeUpdateTest, StoresTimesOfTheSelectedSet) {
  equations(
      "sheet \"s\"\n  variable \"tck\" time \"10nS\"\n  variable \"tp1.period\" time \"4*tck\"\n"
      "  set \"slow\"\n  set \"fast\" selected\n    value \"tck\" expr=\"8nS\"\n");
  const PVBid first = plate("tp1", {"tck/4", "period/2", "0"});
  const PVBid second = plate("tp2", {"period/4", "25nS"});
  changed() = false;
  EXPECT_EQ(PVBtimeVariableUpdate(handle()), 0);
  EXPECT_EQ(at(first).period, nanoseconds(32));
  EXPECT_THAT(times(first), ElementsAre(nanoseconds(2), nanoseconds(16), TIME_ZERO));
  EXPECT_EQ(at(second).period, nanoseconds(100));
  EXPECT_THAT(times(second), ElementsAre(nanoseconds(25), nanoseconds(25)));
  EXPECT_TRUE(changed());
  changed() = false;
  EXPECT_EQ(PVBtimeVariableUpdate(handle()), 0);
  EXPECT_FALSE(changed());
}

TEST_F(TimeUpdateTest, SumsTheRowsAgainAfterANewPeriod) {
  const PVBid id = plate("tp1", {});
  {
    const RowHandle row(handle(), PVBpatternNew(handle()));
    ASSERT_TRUE(row);
    row->timeplate = static_cast<std::uint16_t>(id);
    row->count = 3;
    PVBposition position;
    ASSERT_GE(PVBrowInsert(handle(), kMainPattern, position, BY_ROW, *row), 0);
  }
  equations("sheet \"s\"\n  variable \"tp1.period\" any \"50nS\"\n");
  EXPECT_EQ(PVBtimeVariableUpdate(handle()), 0);
  PVBposition sums;
  PVBpatternInqSize(handle(), kMainPattern, sums);
  EXPECT_EQ(sums.time, nanoseconds(150));
}

TEST_F(TimeUpdateTest, TellsEachFailureAndLeavesItsTime) {
  equations(
      "sheet \"s\"\n  variable \"tp1.period\" any \"0\"\n  variable \"volts\" any \"3V\"\n"
      "  variable \"tp2.period\" any \"period\"\n");
  const PVBid first = plate("tp1", {"2nS", "lost + 1nS", "-1nS", "volts"});
  plate("tp2", {});
  std::vector<std::pair<Kind, std::string>> faults;
  EXPECT_EQ(PVBtimeVariableUpdate(handle(),
                                  [&](const TimeVariableFault& fault) {
                                    faults.emplace_back(fault.kind,
                                                        timeVariableFaultText(handle(), fault));
                                  }),
            -2);
  EXPECT_THAT(
      faults,
      ElementsAre(
          std::pair(Kind::notPositive, "timeplate \"tp1\", period: the period is zero"),
          std::pair(Kind::undefined,
                    "timeplate \"tp1\", track 2, event 2: column 1: there is no "
                    "variable \"lost\""),
          std::pair(Kind::notPositive,
                    "timeplate \"tp1\", track 2, event 3: the time is below zero"),
          std::pair(Kind::undefined, "timeplate \"tp1\", track 2, event 4: a voltage isn't a time"),
          std::pair(Kind::undefined,
                    "timeplate \"tp2\", period: variable \"tp2.period\", column "
                    "1: there is no variable \"period\"")));
  EXPECT_EQ(at(first).period, nanoseconds(100));
  EXPECT_THAT(times(first),
              ElementsAre(nanoseconds(2), nanoseconds(1), nanoseconds(1), nanoseconds(1)));
  EXPECT_EQ(PVBtimeVariableUpdate(handle()), -2);
  EXPECT_EQ(PBerrorCount(), 5);
  equations("nonsense\n");
  EXPECT_EQ(PVBtimeVariableUpdate(handle()), -2);
  EXPECT_TRUE(PBerrorHas("ssOpen", 87));
}

}  // namespace
