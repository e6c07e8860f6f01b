#include "timeplate/tp_merge.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "pvb/database.h"
#include "pvb/signal.h"
#include "support/database.h"
#include "support/optimizer_report.h"
#include "support/plate_database.h"
#include "timeplate/tp_merge_internal.h"
#include "timeplate/tp_pair.h"
#include "timeplate/tp_settings.h"
#include "timeplate/tp_successor.h"

namespace {

// --- Working order -------------------------------------------------------------------

// Entries "a1 b0* c2": a letter as the id, the merges, protected.
std::vector<OrderEntry> entries(std::string_view text) {
  std::vector<OrderEntry> order;
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] == ' ') continue;
    order.push_back({text[i], text[i + 1] - '0', text.substr(i + 2, 1) == "*"});
    i += order.back().isProtected ? 2 : 1;
  }
  return order;
}

std::string sorted(std::string_view text) {
  std::vector<OrderEntry> order = entries(text);
  tpSortOrder(order);
  std::string ids;
  for (const OrderEntry& entry : order) ids += static_cast<char>(entry.id);
  return ids;
}

TEST(TpSortOrder, MostMergesComeFirstAndEqualOnesMove) {
  EXPECT_EQ(sorted(""), "");
  EXPECT_EQ(sorted("a0"), "a");
  EXPECT_EQ(sorted("a0 b1"), "ba");
  EXPECT_EQ(sorted("a0 b0 c0 d0 e0"), "abcde");
  // By gaps of 2 and 1: what stood in the way of f went where f was.
  EXPECT_EQ(sorted("a0 b0 c0 d0 e0 f1"), "facbed");
  EXPECT_EQ(sorted("a1 b2 c1 d3 e1 f2"), "dbface");
}

TEST(TpSortOrder, ProtectedOnesStayInFront) {
  EXPECT_EQ(sorted("a0* b3 c2"), "abc");
  EXPECT_EQ(sorted("a0* b1* c9"), "bac");
  EXPECT_EQ(sorted("a1 b3*"), "ba");
}

RC_GTEST_PROP(TpSortOrder, SortsByMerges, (const std::vector<unsigned char>& counts)) {
  std::vector<OrderEntry> order;
  for (const unsigned char count : counts) {
    order.push_back({static_cast<PVBid>(order.size()), count % 8, false});
  }
  tpSortOrder(order);
  RC_ASSERT(std::ranges::is_sorted(order, std::greater(), &OrderEntry::mergeCount));
  std::vector<PVBid> ids;
  for (const OrderEntry& entry : order) ids.push_back(entry.id);
  std::ranges::sort(ids);
  for (std::size_t i = 0; i < ids.size(); ++i) RC_ASSERT(ids[i] == static_cast<PVBid>(i));
}

// --- Candidates ----------------------------------------------------------------------

TIME ns(int count) { return PBintToTIME(1000000 * count); }

// Inputs a, b and c, and timeplates made by hand.
class TpCandidates : public testing::Test {
 protected:
  TpCandidates() {
    for (const char* name : {"a", "b", "c"}) {
      std::unique_ptr<PVBsignal> signal = PVBsignalNew();
      signal->name = name;
      signal->direction = INPUT;
      EXPECT_GT(PVBsignalAdd(database_.handle(), std::move(signal)), 0);
    }
    EXPECT_EQ(tpRunBegin(database_.handle()), 0);
    plate_.period = ns(20);
    tpPairBegin(UNDEF, UNDEF);
  }
  ~TpCandidates() override {
    tpMergeReset();
    tpRunEnd();
  }

  const TpSignal& signal(std::string_view name) const {
    return *std::ranges::find(tpRun.signals, name, &TpSignal::name);
  }
  void track(std::string_view names, const Wave& wave) {
    const int index = PVBslotCount(plate_);
    PVBallocAsNecessary(plate_, index);
    PVBidList signals;
    for (const char name : names) signals.push_back(signal(std::string(1, name)).id);
    PVBtrackSetSignals(plate_, index, signals);
    PVBtrackSetDirection(plate_, index, INPUT);
    for (std::size_t i = 0; i < wave.states.size(); ++i) {
      PVBallocLevelAsNecessary(plate_, 0, index, -1, wave.times[i], wave.states[i], 1);
    }
    PVBtimePlateRebuildMaps(plate_);
  }
  // The tracks as "ab:D0,S10".
  std::string tracks() const {
    std::string text;
    for (int slot = 0; slot < PVBslotCount(plate_); ++slot) {
      text += text.empty() ? "" : " ";
      for (const TpSignal& each : tpRun.signals) {
        if (std::ranges::count(PVBtrackSignals(plate_, slot), each.id) != 0) text += each.name;
      }
      text += ":";
      const PVBtrack& wave = *tpTrack(plate_, slot);
      for (std::size_t i = 0; i < wave.stateChars.size(); ++i) {
        text += wave.stateChars[i] + std::to_string(PBtimeToLong(wave.eventTimes[i]) / 1000000);
      }
    }
    return text;
  }

  TestDatabase database_;
  PVBtimePlate plate_;
};

TEST_F(TpCandidates, ReplaceWavesAndAddTracks) {
  track("a", {"DU", {ns(0), ns(5)}});
  tpPairSet(signal("a"), INPUT, {"DS", {ns(0), ns(6)}});
  tpPairSet(signal("b"), INPUT, {"S", {ns(0)}});
  tpApplyCandidates(plate_);
  EXPECT_EQ(tracks(), "a:D0S6 b:S0");
  EXPECT_EQ(tpTrackOf(plate_, signal("b"), INPUT), 1);
  EXPECT_EQ(tpTrackOf(plate_, signal("b"), OUTPUT), kNoTrack);
}

TEST_F(TpCandidates, SharedTracksChangeTogetherOrPart) {
  track("abc", {"DU", {ns(0), ns(5)}});
  for (const char* name : {"a", "b", "c"}) {
    tpPairSet(signal(name), INPUT, {"DS", {ns(0), ns(5)}});
  }
  tpApplyCandidates(plate_);
  EXPECT_EQ(tracks(), "abc:D0S5");
  tpPairBegin(UNDEF, UNDEF);
  tpPairSet(signal("b"), INPUT, {"DC", {ns(0), ns(5)}});
  tpApplyCandidates(plate_);
  EXPECT_EQ(tracks(), "ac:D0S5 b:D0C5");
  tpPairBegin(UNDEF, UNDEF);
  tpPairSet(signal("a"), INPUT, {"U", {ns(0)}});
  tpPairSet(signal("c"), INPUT, {"D", {ns(0)}});
  tpApplyCandidates(plate_);
  EXPECT_EQ(tracks(), "a:U0 b:D0C5 c:D0");
}

TEST_F(TpCandidates, EdgesWithoutATimeAreSpread) {
  track("a", {"D", {ns(0)}});
  tpPairSet(signal("a"), INPUT, {"DSDSD", {ns(0), ns(0), ns(10), ns(0), ns(0)}});
  tpApplyCandidates(plate_);
  EXPECT_EQ(tracks(), "a:D0S5D10S13D16");
}

TEST_F(TpCandidates, ExpressionsStayWithTheirTimes) {
  track("a", {"DUD", {ns(0), ns(5), ns(10)}});
  PVBtrack& wave = plate_.levels.front().tracks.front();
  wave.eventExprs = {std::nullopt, "t1", "t2"};
  tpPairSet(signal("a"), INPUT, {"DSDS", {ns(0), ns(4), ns(5), ns(10)}});
  tpApplyCandidates(plate_);
  EXPECT_EQ(wave.eventExprs,
            (std::vector<std::optional<std::string>>{std::nullopt, std::nullopt, "t1", "t2"}));
}

// --- Pairs ---------------------------------------------------------------------------

class TpPairs : public testing::Test {
 protected:
  ~TpPairs() override {
    tpSettings = {};
    tpMergeReset();
  }

  std::size_t left() {
    for (const PVBid id : PVBtimePlateInqAll(world_.handle())) world_.row(id, {1, 1});
    world_.begin();
    bool failed = false;
    const std::size_t count = tpMergeAll(PVBtimePlateInqAll(world_.handle()), true, failed).size();
    EXPECT_FALSE(failed);
    return count;
  }
  PVBtrack& track(PVBid plate, std::size_t index) {
    return PVBtimePlateInqByID(world_.handle(), plate)->levels[0].tracks[index];
  }

  OptimizerReport report_;
  PlateDatabase world_{{INPUT, INPUT}};
};

TEST_F(TpPairs, CheckedExpressionsAgreeOrAreTakenOver) {
  tpSettings.tpoCheckEquations = true;
  const PVBid first = world_.plate({{0, INPUT, "DUD"}});
  const PVBid second = world_.plate({{0, INPUT, "DUD"}});
  const PVBid other = world_.plate({{0, INPUT, "DUD"}});
  track(first, 0).eventExprs = {std::nullopt, "t1", std::nullopt};
  track(second, 0).eventExprs = {std::nullopt, "t1", "t2"};
  track(other, 0).eventExprs = {std::nullopt, "t3", std::nullopt};
  PVBtimePlateInqByID(world_.handle(), second)->family = "one";
  EXPECT_EQ(left(), 2U);
  EXPECT_EQ(track(first, 0).eventExprs,
            (std::vector<std::optional<std::string>>{std::nullopt, "t1", "t2"}));
  EXPECT_EQ(PVBtimePlateInqByID(world_.handle(), first)->family, "one");
}

TEST_F(TpPairs, PartsOfAMultiplexedSignalAreTakenOverBesideEqualOnes) {
  auto whole = PVBsignalNew();
  whole->name = "mux";
  whole->type = MEM_MUX;
  whole->muxChildren = {world_.id(0)};
  ASSERT_GT(PVBsignalAdd(world_.handle(), std::move(whole)), 0);
  world_.plate({{0, INPUT, "DS?"}, {1, INPUT, "S"}});
  world_.plate({{1, INPUT, "S"}});
  // Where it is expected otherwise, it isn't driven as there.
  const PVBid expects = world_.plate({{0, INPUT, "DS?"}, {0, OUTPUT, "XQ?"}, {1, INPUT, "S"}});
  const PVBid other = world_.plate({{0, OUTPUT, "QX?"}, {1, INPUT, "S"}});
  EXPECT_EQ(left(), 2U);
  EXPECT_EQ(track(0, 0).stateChars, "DS?");
  EXPECT_EQ(PVBtimePlateInqByID(world_.handle(), expects), nullptr);
  EXPECT_NE(PVBtimePlateInqByID(world_.handle(), other), nullptr);
}

TEST_F(TpPairs, NoTwoProtectedTimeplatesAreFolded) {
  const PVBid first = world_.plate({{0, INPUT, "S"}});
  const PVBid second = world_.plate({{0, INPUT, "S"}});
  const PVBid third = world_.plate({{0, INPUT, "S"}});
  tpProtect(std::vector<PVBid>{first, second});
  EXPECT_EQ(left(), 2U);
  EXPECT_EQ(PVBtimePlateInqByID(world_.handle(), third), nullptr);
  EXPECT_FALSE(tpIsProtected(first));
}

TEST_F(TpPairs, SignalsThatAreNotLookedAtKeepDifferentTracksApart) {
  auto whole = PVBsignalNew();
  whole->name = "mux";
  whole->type = MEM_MUX;
  const PVBid mux = PVBsignalAdd(world_.handle(), std::move(whole));
  for (const char* states : {"DU", "DU", "UD"}) {
    const PVBid id = world_.plate({{0, INPUT, states}, {1, INPUT, "S"}});
    PVBtrackSetSignals(*PVBtimePlateInqByID(world_.handle(), id), 0, {mux});
  }
  EXPECT_EQ(left(), 2U);
}

// --- What became of timeplates -------------------------------------------------------

TEST(TpSuccessors, LeadToWhatStandsForATimeplate) {
  const auto successor = [](PVBid plate) {
    const TpSuccessor next = tpOptimizerSuccessor(plate);
    return std::pair(next.plate, next.alike);
  };
  tpOptimizerForgetChanges();
  EXPECT_EQ(successor(3), std::pair(3, true));
  tpNoteAbsorbed(3, 2, true);
  tpNoteAbsorbed(2, 1, true);
  EXPECT_EQ(successor(3), std::pair(1, true));
  tpNoteAbsorbed(4, 1, false);
  EXPECT_EQ(successor(4), std::pair(1, false));
  tpNoteChanged(1);
  EXPECT_EQ(successor(2), std::pair(1, false));
  tpOptimizerForgetChanges();
  EXPECT_EQ(successor(4), std::pair(4, true));
}

}  // namespace
