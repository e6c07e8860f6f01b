// Building, deleting and comparing tracks; the maps from signals to tracks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <set>

#include "base/errors.h"
#include "pvb/timeplate.h"

namespace {

using testing::ElementsAre;

PVBtrack wave(std::string_view states) {
  PVBtrack track;
  for (std::size_t i = 0; i < states.size(); ++i) {
    EXPECT_EQ(PVBtrackInsert(track, -1, {0, static_cast<int>(i) * 10}, states[i], 1), 0);
  }
  return track;
}

// A plate with a slot for each wave, its signals in the tracks alone.
PVBtimePlate plateOf(const std::vector<std::pair<std::string, PVBidList>>& slots) {
  PVBtimePlate plate;
  plate.levels.resize(1);
  for (const auto& [states, signals] : slots) {
    plate.levels[0].tracks.push_back(wave(states));
    plate.levels[0].tracks.back().signals = signals;
  }
  return plate;
}

// --- Building ------------------------------------------------------------------------

TEST(Tracks, InsertsEventsInTheirPlaces) {
  PVBtrack track = wave("DU");
  EXPECT_EQ(PVBtrackInsert(track, 1, {0, 5}, 'Z', -3), 0);
  EXPECT_EQ(PVBtrackInsert(track, 0, {0, 1}, 'P', 7), 0);
  EXPECT_EQ(track.stateChars, "PDZU");
  EXPECT_THAT(track.stateCounts, ElementsAre(7, 1, 1, 1));
  EXPECT_THAT(track.eventTimes, ElementsAre(TIME{0, 1}, TIME{0, 0}, TIME{0, 5}, TIME{0, 10}));
  EXPECT_EQ(track.eventExprs.size(), 4u);
}

TEST(Tracks, StatesAndEventsMayDifferInNumber) {
  PVBtrack fewer = wave("DUDU");
  fewer.stateChars = "D";
  fewer.stateCounts = {1};
  EXPECT_EQ(PVBtrackInsert(fewer, 3, {0, 25}, 'Z', 1), 0);
  EXPECT_EQ(fewer.stateChars, "D??Z");
  EXPECT_EQ(fewer.stateCounts.size(), 4u);
  EXPECT_EQ(fewer.eventTimes.size(), 5u);

  PVBtrack more = wave("D");
  more.stateChars = "DUN";
  more.stateCounts = {1, 2, 3};
  EXPECT_EQ(PVBtrackInsert(more, -1, {0, 25}, 'Z', 9), 0);
  EXPECT_EQ(more.stateChars, "DZUN");
  EXPECT_THAT(more.stateCounts, ElementsAre(1, 9, 2, 3));
}

TEST(Tracks, RefusesWhatCannotBeBuilt) {
  PVBtrack track = wave("D");
  PVBtimePlate plate;
  EXPECT_EQ(PVBtrackInsert(track, 2, {}, 'D', 1), -2);
  EXPECT_EQ(PVBtrackInsert(track, 0, {}, 'E', 1), -2);
  EXPECT_EQ(track.stateChars, "D");
  EXPECT_EQ(PVBallocLevelAsNecessary(plate, -1, 0, -1, {}, 'D', 1), -2);
  EXPECT_EQ(PVBallocLevelAsNecessary(plate, 0, -1, -1, {}, "x", 'D', 1), -2);
  EXPECT_EQ(PVBallocAsNecessary(plate, -1), -2);
  EXPECT_EQ(PVBlistInsert(plate, 0, 1), -2);
  EXPECT_TRUE(plate.levels.empty());
  EXPECT_EQ(PBerrorCount(), 6);
  PBdiscardErrors();
}

TEST(Tracks, PlatesGrowToTheTrackAskedFor) {
  PVBtimePlate plate;
  EXPECT_EQ(PVBallocLevelAsNecessary(plate, 1, 2, -1, {0, 3}, "t0 + 1", 'D', 1), 0);
  ASSERT_EQ(plate.levels.size(), 2u);
  EXPECT_EQ(plate.levels[0].tracks.size(), 0u);
  ASSERT_EQ(plate.levels[1].tracks.size(), 3u);
  EXPECT_EQ(plate.levels[1].tracks[2].eventExprs.at(0), "t0 + 1");
  EXPECT_EQ(PVBallocAsNecessary(plate, 1), 0);
  EXPECT_EQ(PVBlistInsert(plate, 1, 42), 0);
  EXPECT_TRUE(PVBtrackSetDirection(plate, 1, 1));
  EXPECT_FALSE(PVBtrackSetDirection(plate, 9, 1));
  EXPECT_THAT(PVBtrackSignals(plate, 1), ElementsAre(42));
  EXPECT_THAT(plate.levels[1].tracks[1].signals, ElementsAre(42));
  EXPECT_EQ(PVBtrackDirection(plate, 1), 1);
  EXPECT_EQ(plate.levels[0].tracks.size(), 2u);
}

// --- Slots ---------------------------------------------------------------------------

TEST(Slots, DirectionComesFromTheEntryElseFromTheStates) {
  PVBtimePlate plate =
      plateOf({{"DU", {1}}, {"XHL", {2}}, {"DX", {3}}, {"?", {4}}, {"DU", {5}}, {"D", {}}});
  plate.selectorLists = {{1, {}}, {0, {7}}, {9, {8}}};
  EXPECT_EQ(PVBtrackDirection(plate, 0), 0);  // an empty entry doesn't hide the track's list
  EXPECT_THAT(PVBtrackSignals(plate, 0), ElementsAre(1));
  EXPECT_EQ(PVBtrackDirection(plate, 1), 0);
  EXPECT_THAT(PVBtrackSignals(plate, 1), ElementsAre(7));
  EXPECT_EQ(PVBtrackDirection(plate, 2), kUndefinedDirection);
  EXPECT_EQ(PVBtrackDirection(plate, 3), kUndefinedDirection);
  plate.selectorLists.clear();
  EXPECT_EQ(PVBtrackDirection(plate, 1), 1);
  EXPECT_EQ(PVBtrackDirection(plate, 2), 2);
  // Adding a signal to a slot without an entry keeps what it meant.
  EXPECT_EQ(PVBlistInsert(plate, 4, 6), 0);
  EXPECT_THAT(PVBtrackSignals(plate, 4), ElementsAre(5, 6));
  EXPECT_EQ(PVBtrackDirection(plate, 4), 0);
  EXPECT_TRUE(PVBtrackSetSignals(plate, 4, {}));
  EXPECT_TRUE(PVBtrackSignals(plate, 4).empty());
  for (const int index : {-1, 6}) {
    EXPECT_EQ(PVBtrackDirection(plate, index), kUndefinedDirection);
    EXPECT_TRUE(PVBtrackSignals(plate, index).empty());
    EXPECT_FALSE(PVBtrackSetSignals(plate, index, {1}));
  }
}

TEST(Slots, DeletingMovesThoseAboveDown) {
  PVBtimePlate plate = plateOf({{"D", {1}}, {"U", {2}}, {"Z", {3}}});
  plate.selectorLists = {{0, {1}}, {0, {2}}};
  plate.selectorTables.resize(3);
  plate.selectorTables[2].emplace();
  plate.levels.push_back(plate.levels[0]);
  EXPECT_TRUE(PVBtimePlateDeleteTrack(plate, 0));
  EXPECT_FALSE(PVBtimePlateDeleteTrack(plate, 2));
  EXPECT_FALSE(PVBtimePlateDeleteTrack(plate, -1));
  EXPECT_EQ(plate.selectorLists.size(), 1u);
  EXPECT_TRUE(plate.selectorTables.at(1).has_value());
  EXPECT_EQ(plate.levels[1].tracks.at(0).stateChars, "U");
  EXPECT_EQ(PVBsignalTracks(plate, 1), nullptr);
  EXPECT_EQ(PVBsignalTracks(plate, 3)->track[0], 1);
}

// --- Maps ----------------------------------------------------------------------------

RC_GTEST_PROP(SignalMaps, AgreeWithASearchOfTheSlots, ()) {
  PVBtimePlate plate;
  const auto slots = *rc::gen::container<std::vector<std::pair<int, PVBidList>>>(rc::gen::pair(
      rc::gen::inRange(0, 3), rc::gen::container<PVBidList>(rc::gen::inRange(0, 12))));
  for (std::size_t t = 0; t < slots.size(); ++t) {
    PVBallocAsNecessary(plate, static_cast<int>(t));
    plate.selectorLists[t] = slots[t];
  }
  PVBtimePlateRebuildMaps(plate);
  for (PVBid signal = 0; signal < 12; ++signal) {
    SignalTracks expected;
    bool found = false;
    for (std::size_t t = 0; t < slots.size(); ++t) {
      if (!PVBidListContains(slots[t].second, signal)) continue;
      found = true;
      auto& place = expected.track[static_cast<std::size_t>(slots[t].first)];
      place = place == kNoTrack ? static_cast<int>(t) : kSeveralTracks;
    }
    const SignalTracks* tracks = PVBsignalTracks(plate, signal);
    RC_ASSERT((tracks != nullptr) == found);
    if (found) RC_ASSERT(tracks->track == expected.track);
  }
}

// --- Comparing -----------------------------------------------------------------------

TEST(TrackEquality, LooksAtAllThatAWaveDoes) {
  const PVBtrack base = wave("DUD");
  const std::vector<void (*)(PVBtrack&)> edits = {
      [](PVBtrack& t) { t.stateChars[1] = 'Z'; },
      [](PVBtrack& t) { t.stateCounts[0] = 2; },
      [](PVBtrack& t) { t.eventTimes[2].minor += 1; },
      [](PVBtrack& t) { t.eventTimes.pop_back(); },
      [](PVBtrack& t) { t.eventExprs[0] = "x"; },
      [](PVBtrack& t) { t.selector = 'a'; },
      [](PVBtrack& t) { t.repeat = 2; },
      [](PVBtrack& t) { PVBwaveSetSelector(t, 'a', 1, 1); },
  };
  for (std::size_t i = 0; i < edits.size(); ++i) {
    PVBtrack other = base;
    EXPECT_TRUE(PVBtrackEqual(base, other, TIME_ZERO));
    edits[i](other);
    EXPECT_FALSE(PVBtrackEqual(base, other, TIME_ZERO)) << i;
  }
  PVBtrack other = base;
  other.signals = {3};
  other.propList = 5;
  EXPECT_TRUE(PVBtrackEqual(base, other, TIME_ZERO));
  other.eventTimes[2].minor += 4;
  EXPECT_FALSE(PVBtrackEqual(base, other, {0, 3}));
  EXPECT_TRUE(PVBtrackEqual(base, other, {0, 5}));
}

TEST(TrackEquality, SlotsAlsoNeedTheSameSignalsAndDirection) {
  const PVBtimePlate a = plateOf({{"D", {1}}, {"D", {2}}, {"?", {3}}});
  PVBtimePlate b = plateOf({{"D", {1}}, {"D", {1}}, {"?", {3}}});
  EXPECT_TRUE(PVBslotEqual(a, b, 0, TIME_ZERO));
  EXPECT_FALSE(PVBslotEqual(a, b, 1, TIME_ZERO));
  EXPECT_TRUE(PVBslotEqual(a, b, 2, TIME_ZERO));
  PVBtrackSetDirection(b, 2, 1);
  EXPECT_FALSE(PVBslotEqual(a, b, 2, TIME_ZERO));
  b.levels.push_back(b.levels[0]);
  EXPECT_FALSE(PVBslotEqual(a, b, 0, TIME_ZERO));
}

}  // namespace
