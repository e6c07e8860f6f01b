#include "timeplate/split.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

namespace {

TIME ns(std::int64_t n) {
  return {static_cast<std::int32_t>(n / 1000), static_cast<std::int32_t>(n % 1000 * 1000000)};
}

using Events = std::vector<std::pair<std::int64_t, char>>;  // nanoseconds and state

std::shared_ptr<PVBtimePlate> plateOf(int period, const Events& events) {
  std::shared_ptr<PVBtimePlate> plate = PVBtimePlateNew();
  plate->id = 3;
  plate->name = "tp1";
  plate->period = ns(period);
  PVBallocAsNecessary(*plate, 0);
  PVBlistInsert(*plate, 0, 0);
  for (const auto& [time, state] : events) {
    PVBtrackInsert(plate->levels[0].tracks[0], -1, ns(time), state, 1);
  }
  PVBtimePlateRebuildMaps(*plate);
  return plate;
}

Events eventsOf(const PVBtimePlate& plate, std::size_t level = 0) {
  const PVBtrack& track = plate.levels[level].tracks[0];
  EXPECT_EQ(track.eventTimes.size(), track.stateChars.size());
  Events events;
  for (std::size_t i = 0; i < track.eventTimes.size(); ++i) {
    events.emplace_back(PBtimeToLong(track.eventTimes[i]) / 1000000, track.stateChars[i]);
  }
  return events;
}

TEST(SplitTimePlate, PiecesAreUnsavedCopiesWithoutWhatHoldsForTheWholeCycleOnly) {
  const auto plate = plateOf(40, {{0, 'U'}, {10, 'L'}});
  EXPECT_EQ(splitTimePlate(plate, TIME_ZERO).first, nullptr);
  EXPECT_EQ(splitTimePlate(plate, TIME_ZERO).rest, plate);
  EXPECT_EQ(splitTimePlate(plate, ns(40)).first, plate);
  EXPECT_EQ(splitTimePlate(plate, ns(40)).rest, nullptr);
  plate->firstRow = 7;
  plate->levels.push_back(plate->levels[0]);
  PVBtrack& track = plate->levels[0].tracks[0];
  track.propList = 8;
  track.selector = 'a';
  track.eventExprs[1] = "t0";
  track.stateCounts[1] = 4;
  const PlatePieces pieces = splitTimePlate(plate, ns(25));
  EXPECT_EQ(pieces.first->name, "tp1_0pS");
  EXPECT_EQ(pieces.rest->name, "tp1_25nS");
  EXPECT_EQ(pieces.first->period, ns(25));
  EXPECT_EQ(pieces.rest->period, ns(15));
  // The second piece only expects; its slot still has both directions.
  EXPECT_EQ(PVBsignalTracks(*pieces.rest, 0)->track, PVBsignalTracks(*plate, 0)->track);
  for (const PlatePtr& piece : {pieces.first, pieces.rest}) {
    EXPECT_TRUE(isPiece(*piece));
    EXPECT_EQ(piece->firstRow, UNDEF);
    EXPECT_EQ(eventsOf(*piece, 1), eventsOf(*piece));
    const PVBtrack& cut = piece->levels[0].tracks[0];
    EXPECT_EQ(cut.selector, 'a');
    EXPECT_EQ(cut.propList, UNDEF);
    EXPECT_FALSE(cut.eventExprs.back());
    EXPECT_EQ(cut.stateCounts.back(), 4);
  }
}

char stateAt(const Events& events, std::int64_t time) {
  char state = events.front().second;
  for (const auto& [begin, after] : events) {
    if (begin <= time) state = after;
  }
  return state;
}

RC_GTEST_PROP(SplitTimePlate, PiecesOneAfterTheOtherSayWhatThePlateSays, ()) {
  const int period = *rc::gen::inRange(2, 30);
  const int cut = *rc::gen::inRange(1, period);
  auto times =
      *rc::gen::nonEmpty(rc::gen::container<std::vector<int>>(rc::gen::inRange(0, period)));
  std::ranges::sort(times);
  Events events;
  for (const int time : times)
    events.emplace_back(time, *rc::gen::elementOf(std::string("DUZLHX")));
  const PlatePieces pieces = splitTimePlate(plateOf(period, events), ns(cut));
  // A first event later than zero goes to zero: before it, the pieces say more.
  events.front().first = 0;
  for (int time = 0; time < period; ++time) {
    const char state = time < cut ? stateAt(eventsOf(*pieces.first), time)
                                  : stateAt(eventsOf(*pieces.rest), time - cut);
    RC_ASSERT(state == stateAt(events, time));
  }
}

}  // namespace
