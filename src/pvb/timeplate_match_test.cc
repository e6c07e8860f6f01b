#include "pvb/timeplate_match.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr TIME kNano = {0, 1000000};
TIME ns(int n) { return PBmulTIME(kNano, PBlongToTIME(n)); }

class TimePlateMatch : public testing::Test {
 protected:
  TimePlateMatch() { matchTimePlateClear(); }
  ~TimePlateMatch() override { matchTimePlateEnd(); }

  // Signal 1 is driven, 2 and 3 are compared.
  PVBtimePlate& plate() {
    plates_.push_back(PVBtimePlateNew());
    PVBtimePlate& made = *plates_.back();
    made.name = "tp" + std::to_string(plates_.size());
    made.period = ns(100);
    made.selectorLists = {{0, {1}}, {1, {2, 3}}};
    PVBallocLevelAsNecessary(made, 0, 0, -1, ns(0), 'D', 1);
    PVBallocLevelAsNecessary(made, 0, 0, -1, ns(10), 'S', 1);
    PVBallocLevelAsNecessary(made, 0, 1, -1, ns(90), 'Q', 1);
    return made;
  }
  // The equal plate, or null when `plate` was entered.
  static const PVBtimePlate* match(PVBtimePlate& plate) {
    PVBtimePlate* existing = nullptr;
    return matchTimePlate(&plate, existing) == 0 ? existing : nullptr;
  }

  std::vector<std::unique_ptr<PVBtimePlate>> plates_;
};

TEST_F(TimePlateMatch, FindsEqualContentWhateverTheName) {
  PVBtimePlate& first = plate();
  EXPECT_EQ(match(first), nullptr);
  PVBtimePlate& second = plate();
  second.family = "ims";
  EXPECT_EQ(match(second), &first);
  PVBtimePlate* none = nullptr;
  EXPECT_EQ(matchTimePlate(nullptr, none), 1);
  matchTimePlateClear();
  EXPECT_EQ(match(second), nullptr);
}

TEST_F(TimePlateMatch, TellsWhateverARowWouldMeanOtherwise) {
  const std::vector<std::function<void(PVBtimePlate&)>> changes = {
      [](auto& p) { p.period = ns(99); },
      [](auto& p) { p.levels[0].tracks[0].eventTimes[1] = ns(11); },
      [](auto& p) { p.levels[0].tracks[0].stateChars[1] = 'C'; },
      [](auto& p) { p.levels[0].tracks[0].eventExprs[1] = "t1"; },
      [](auto& p) { p.levels[0].tracks[0].selector = 'a'; },
      [](auto& p) {
        p.selectorLists[1].second = {2, 4};
      },
      [](auto& p) { p.selectorLists[1].first = 2; },
      // The sum over states and signals is the same.
      [](auto& p) {
        p.selectorLists = {{0, {2}}, {1, {1, 3}}};
      },
      [](auto& p) { PVBallocLevelAsNecessary(p, 0, 2, -1, ns(0), 'D', 1); },
      [](auto& p) { PVBallocLevelAsNecessary(p, 1, 0, -1, ns(0), 'D', 1); },
  };
  ASSERT_EQ(match(plate()), nullptr);
  for (std::size_t i = 0; i < changes.size(); ++i) {
    PVBtimePlate& changed = plate();
    changes[i](changed);
    EXPECT_EQ(match(changed), nullptr) << i;
    EXPECT_EQ(match(changed), &changed) << i;
  }
}

TEST_F(TimePlateMatch, ToleranceHoldsForPlatesEnteredBeforeIt) {
  PVBtimePlate& early = plate();
  PVBtimePlate& late = plate();
  late.levels[0].tracks[0].eventTimes[1] = ns(14);
  PVBtimePlate& between = plate();
  between.levels[0].tracks[0].eventTimes[1] = ns(12);
  EXPECT_EQ(match(early), nullptr);
  EXPECT_EQ(match(late), nullptr);
  matchTimePlateSetTolerance(ns(3));
  EXPECT_EQ(match(between), &early);
  matchTimePlateClear();
  EXPECT_EQ(match(late), nullptr);
  EXPECT_EQ(match(between), nullptr);
}

TEST_F(TimePlateMatch, ForgetsAPlateThatCouldNotBeStored) {
  PVBtimePlate& kept = plate();
  EXPECT_EQ(match(kept), nullptr);
  plate().period = ns(50);
  EXPECT_EQ(match(*plates_.back()), nullptr);
  plates_.pop_back();
  matchTimePlateForget();
  PVBtimePlate& again = plate();
  again.period = ns(50);
  EXPECT_EQ(match(again), nullptr);
  EXPECT_EQ(match(plate()), &kept);
}

}  // namespace
