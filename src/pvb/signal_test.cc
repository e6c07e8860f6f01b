#include "pvb/signal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "base/errors.h"
#include "pvb/database.h"
#include "support/signal_database.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StrEq;
using testing::UnorderedElementsAre;

class Signals : public SignalDatabase {
 protected:
  std::vector<std::string> namesOf(const PVBidList& ids) const {
    std::vector<std::string> names;
    for (const PVBid id : ids) names.push_back(PVBobjectInqByID(db, id)->name.value_or(""));
    return names;
  }
  PVBid addGroup(std::string_view name, const PVBidList& members) const {
    auto group = make(name, kNoDirection, MEM_GROUP);
    group->members = members;
    return PVBsignalAdd(db, std::move(group));
  }
  PVBid addMux(std::string_view name, const PVBidList& children) const {
    auto mux = make(name, OUTPUT, MEM_MUX);
    mux->muxChildren = children;
    return PVBsignalAdd(db, std::move(mux));
  }
};

// --- Implicit groups and inserting ---------------------------------------------------

TEST_F(Signals, NewDatabaseHasTheImplicitGroups) {
  for (const PVBid id :
       {kGroupAll, kGroupAllInput, kGroupAllOutput, kGroupAllBidir, kGroupAllMux}) {
    ASSERT_NE(PVBsignalInqByID(db, id), nullptr);
    EXPECT_EQ(PVBsignalInqByID(db, id)->type, MEM_GROUP);
    EXPECT_TRUE(PVBisImplicit(db, id));
  }
  EXPECT_EQ(PVBsignalInqByID(db, kGroupAllScan), nullptr);
  EXPECT_EQ(status(), kStatusWrongClass);
  EXPECT_EQ(named("ALLSCAN").type, kScanGroupType);
  EXPECT_THAT(namesOf(data().allGroups),
              ElementsAre("ALL", "ALLINPUT", "ALLOUTPUT", "ALLBIDIR", "ALLMUX"));
  EXPECT_FALSE(data().changed);
  EXPECT_EQ(PVBsignalDelete(db, kGroupAll), -2);
  EXPECT_EQ(status(), kStatusImplicitGroup);
}

TEST_F(Signals, AddedSignalsJoinTheGroupsOfTheirDirectionAndKind) {
  add("i", INPUT);
  add("o", OUTPUT);
  add("b", BIDIR);
  add("m", OUTPUT, MEM_MUX);
  add("free", kNoDirection);
  const PVBid group = addGroup("g", {});
  EXPECT_THAT(namesOf(membersOf(kGroupAll)), ElementsAre("i", "o", "b", "m", "free"));
  EXPECT_THAT(namesOf(membersOf(kGroupAllInput)), ElementsAre("i"));
  EXPECT_THAT(namesOf(membersOf(kGroupAllOutput)), ElementsAre("o", "m"));
  EXPECT_THAT(namesOf(membersOf(kGroupAllBidir)), ElementsAre("b"));
  EXPECT_THAT(namesOf(membersOf(kGroupAllMux)), ElementsAre("m"));
  EXPECT_EQ(data().allGroups.back(), group);
  EXPECT_TRUE(data().changed);
}

TEST_F(Signals, NamesAreTakenOnceAndNeverEmpty) {
  add("A");
  PVBsetStatus(db, kStatusNoSuchName);
  EXPECT_EQ(add("B"), 2);
  EXPECT_EQ(status(), kStatusNoSuchName);
  EXPECT_EQ(PVBsignalInsert(db, make("A")), UNDEF);
  EXPECT_EQ(status(), kStatusNameTaken);
  EXPECT_THAT(PBerrorFind("PVBsignalInsert", 129, true).value_or(""), HasSubstr("A"));
  EXPECT_EQ(PVBsignalInsert(db, make("")), UNDEF);
  EXPECT_EQ(status(), kStatusEmptyName);
  EXPECT_EQ(PVBsignalInsert(db, nullptr), UNDEF);
  EXPECT_EQ(status(), kStatusNullPointer);
  EXPECT_THAT(namesOf(membersOf(kGroupAll)), ElementsAre("A", "B"));
}

TEST_F(Signals, NewIdsWrapAndSkipThoseInUse) {
  EXPECT_EQ(add("one"), 1);
  data().nextID = kMaxIdIndex;
  EXPECT_EQ(add("last"), kMaxIdIndex);
  EXPECT_EQ(add("two"), 2);
  data().nextID = kGroupAll;
  EXPECT_EQ(add("behind"), kGroupAllMux + 1);
  data().nextID = -7;
  EXPECT_EQ(add("three"), 3);
}

TEST_F(Signals, InsertAsKeepsIdAndColumns) {
  auto signal = make("A", BIDIR);
  signal->id = 77;
  signal->inColumn = 9;
  EXPECT_EQ(PVBsignalInsertAs(db, PVBsignalCopy(*signal)), UNDEF);
  EXPECT_EQ(status(), kStatusWrongClass);
  EXPECT_EQ(PVBsignalInsertAs(db, std::make_unique<PVBsignal>(*signal)), 77);
  EXPECT_EQ(PVBsignalColumns(named("A")), 1);
  signal->name = "B";
  EXPECT_EQ(PVBsignalInsertAs(db, std::move(signal)), UNDEF);
  add("C");
  EXPECT_EQ(named("C").inColumn, 10);
}

TEST_F(Signals, EveryCallChecksItsIdAndItsDatabase) {
  EXPECT_EQ(PVBsignalInqByID(db, 5), nullptr);
  EXPECT_EQ(status(), kStatusNotInUse);
  for (const PVBid id : {PVBid{0x05000001}, PVBid{0x09000001}, PVBid{-5}}) {
    EXPECT_EQ(PVBsignalDelete(db, id), -2);
    EXPECT_EQ(status(), kStatusWrongClass);
  }
  EXPECT_EQ(PVBsignalInqByName(db, "none"), nullptr);
  EXPECT_EQ(status(), kStatusNoSuchName);
  EXPECT_EQ(PVBsignalInqByName(db, ""), nullptr);
  EXPECT_EQ(status(), kStatusEmptyName);
  for (const int bad : {-1, 3, MAXPVB}) {
    EXPECT_EQ(PVBsignalAdd(bad, make("A")), UNDEF);
    EXPECT_EQ(PVBsignalInqByName(bad, "A"), nullptr);
    EXPECT_THAT(PVBsignalInqAll(bad), IsEmpty());
    EXPECT_THAT(PVBsignalListToScalars(bad, {1}), IsEmpty());
    EXPECT_EQ(SignalDataWrite(bad, ""), -2);
  }
  SignalDataClose(db);
  EXPECT_EQ(PVBobjectInqByID(db, 1), nullptr);
  EXPECT_EQ(status(), kStatusNotOpen);
  EXPECT_EQ(SignalDataClose(db), 0);
}

// --- Deleting and renaming -----------------------------------------------------------

TEST_F(Signals, DeletedSignalLeavesEveryList) {
  const PVBid bus = PVBsignalAdd(db, makeBus("A", 1, 0));
  const PVBid gone = named("A[1]").id;
  const PVBid kept = named("A[0]").id;
  addGroup("g", {gone, kept, gone});
  addMux("m", {gone, kept});
  EXPECT_EQ(PVBsignalDelete(db, gone), 0);
  EXPECT_EQ(PVBsignalInqByName(db, "A[1]"), nullptr);
  EXPECT_EQ(PVBsignalInqByID(db, gone), nullptr);
  EXPECT_THAT(membersOf(bus), ElementsAre(kept));
  EXPECT_THAT(named("g").members, ElementsAre(kept));
  EXPECT_THAT(named("m").muxChildren, ElementsAre(kept));
  EXPECT_FALSE(PVBidListContains(membersOf(kGroupAllInput), gone));

  const PVBid group = named("g").id;
  EXPECT_EQ(PVBsignalDelete(db, group), 0);
  EXPECT_FALSE(PVBidListContains(data().allGroups, group));
  EXPECT_NE(PVBsignalInqByID(db, kept), nullptr);
}

TEST_F(Signals, RenamedSignalIsFoundByItsNewName) {
  const PVBid id = add("A");
  add("B");
  EXPECT_EQ(PVBsignalRename(db, id, "A"), 0);
  EXPECT_EQ(PVBsignalRename(db, id, "B"), -2);
  EXPECT_EQ(status(), kStatusNameTaken);
  EXPECT_EQ(PVBsignalRename(db, id, ""), -2);
  EXPECT_EQ(status(), kStatusEmptyName);
  EXPECT_EQ(PVBsignalRename(db, kGroupAll, "C"), -2);
  EXPECT_EQ(status(), kStatusImplicitGroup);
  EXPECT_EQ(PVBsignalRename(db, id, "C"), 0);
  EXPECT_EQ(PVBsignalInqByName(db, "A"), nullptr);
  EXPECT_EQ(named("C").id, id);
}

// --- Buses ---------------------------------------------------------------------------

TEST_F(Signals, BusIsExpandedFromLeftToRight) {
  PVBsignalAdd(db, makeBus("A", 3, 0, BIDIR));
  PVBsignalAdd(db, makeBus("B", 0, 2));
  PVBsignalAdd(db, makeBus("M", 5, 5, OUTPUT, MEM_MUX_BUS));
  EXPECT_THAT(namesOf(named("A").members), ElementsAre("A[3]", "A[2]", "A[1]", "A[0]"));
  EXPECT_THAT(namesOf(named("B").members), ElementsAre("B[0]", "B[1]", "B[2]"));
  EXPECT_THAT(namesOf(membersOf(kGroupAll)),
              ElementsAre("A[3]", "A[2]", "A[1]", "A[0]", "B[0]", "B[1]", "B[2]", "M[5]"));
  EXPECT_THAT(namesOf(membersOf(kGroupAllMux)), ElementsAre("M[5]"));
  EXPECT_EQ(named("A[2]").leftIndex, 2);
  EXPECT_EQ(named("A[2]").rightIndex, 2);
  EXPECT_EQ(named("A[2]").inColumn, 2);
  EXPECT_EQ(named("A[2]").outColumn, 3);
  EXPECT_EQ(named("B[0]").inColumn, 8);
  EXPECT_EQ(PVBsignalColumns(named("M[5]")), 0);
  EXPECT_EQ(data().nextColumn, 11);
}

TEST_F(Signals, BusOverExistingSignalsIsntExpanded) {
  const PVBidList members = {add("d[0]"), add("d[1]")};
  auto bus = makeBus("d", 0, 1);
  bus->members = members;
  const PVBid id = PVBsignalAdd(db, std::move(bus));
  EXPECT_EQ(membersOf(id), members);
  EXPECT_EQ(membersOf(kGroupAll), members);
}

TEST_F(Signals, BusThatCantBeExpandedLeavesNothingBehind) {
  add("A[1]");
  const PVBidList before = PVBobjectInqAll(db);
  const std::int32_t nextColumn = data().nextColumn;
  struct Case {
    int left, right;
    std::int32_t status;
  };
  for (const Case& c :
       {Case{3, 0, kStatusNameTaken}, Case{kNoBound, 0, kStatusOutOfBounds},
        Case{0, kNoBound, kStatusOutOfBounds}, Case{65534, 0, kStatusOutOfBounds}}) {
    EXPECT_EQ(PVBsignalAdd(db, makeBus("A", c.left, c.right)), UNDEF);
    EXPECT_EQ(status(), c.status);
    EXPECT_THAT(PVBobjectInqAll(db), testing::UnorderedElementsAreArray(before));
    EXPECT_EQ(data().nextColumn, nextColumn);
    EXPECT_THAT(namesOf(membersOf(kGroupAll)), ElementsAre("A[1]"));
  }
  EXPECT_EQ(PVBsignalExpand(db, named("A[1]")), -2);
  EXPECT_EQ(status(), kStatusBadType);
}

TEST_F(Signals, ColumnsRunOutAt65535) {
  EXPECT_NE(PVBsignalAdd(db, makeBus("A", 65533, 0)), UNDEF);
  EXPECT_EQ(add("two", BIDIR), UNDEF);
  EXPECT_EQ(status(), kStatusOutOfBounds);
  EXPECT_EQ(PVBsignalInqByName(db, "two"), nullptr);
  add("last", OUTPUT);
  EXPECT_EQ(named("last").outColumn, 65534);
  EXPECT_EQ(add("more"), UNDEF);
}

TEST_F(Signals, VarietyIsSetOnEveryMember) {
  const PVBid bus = PVBsignalAdd(db, makeBus("A", 1, 0));
  EXPECT_EQ(PVBsetVariety(db, bus, 3), 0);
  EXPECT_EQ(named("A[0]").variety, 3);
  EXPECT_EQ(named("A[1]").variety, 3);
  EXPECT_EQ(PVBsetVariety(db, named("A[1]").id, 3), -2);
  EXPECT_EQ(PBerrorCount(), 0);
  EXPECT_EQ(PVBsetVariety(db, 999, 3), -2);
  EXPECT_TRUE(PBerrorHas("PVBsetVariety", 0));
  EXPECT_EQ(PVBsetVariety(db, addGroup("g", {999}), 3), -2);
  EXPECT_EQ(PBerrorFind("PVBsetVariety", 0, false), "Failed to find a member of a bus/group.\n");
}

// --- Columns and directions ----------------------------------------------------------

TEST_F(Signals, ColumnOfTrackFollowsDirection) {
  struct Case {
    std::int32_t direction;
    int columns;
    std::vector<std::int32_t> ofTrack;  // 0, 1, 2
  };
  const std::vector<Case> cases = {{INPUT, 1, {-1, 0, 0}},
                                   {OUTPUT, 1, {-1, 1, 1}},
                                   {BIDIR, 2, {-1, 2, 3}},
                                   {kNoDirection, 0, {-1, -1, -1}}};
  for (const Case& c : cases) {
    const PVBid id = add("s" + std::to_string(c.direction), c.direction);
    const PVBsignal& signal = *PVBsignalInqByID(db, id);
    EXPECT_EQ(PVBsignalColumns(signal), c.columns);
    for (int track = 0; track < 3; ++track) {
      EXPECT_EQ(PVBsignalColumn(signal, track), c.ofTrack[static_cast<std::size_t>(track)]);
    }
  }
  PVBsignal multi;
  multi.multiTrack = 1;
  multi.tracks = {7};
  multi.direction = OUTPUT;
  EXPECT_EQ(PVBsignalColumn(multi, 2), 7);
  EXPECT_EQ(PVBsignalColumn(multi, 3), -1);
  multi.direction = INPUT;
  EXPECT_EQ(PVBsignalColumn(multi, 2), -1);
  multi.tracks = {-9, 70000};
  EXPECT_EQ(PVBsignalColumn(multi, 1), -1);
  EXPECT_EQ(PVBsignalColumn(multi, 2), -1);
  EXPECT_EQ(PVBsignalColumn(multi, -1), -1);
}

TEST_F(Signals, ExtendedModelGivesMoreColumns) {
  add("classic", BIDIR);
  EXPECT_EQ(PVBsignalAllocTracks(db, named("classic"), 3), -2);
  EXPECT_EQ(status(), kStatusNoMultiTrack);
  EXPECT_EQ(PVBsignalAllocBits(db, named("classic"), 2), -2);
  EXPECT_EQ(status(), kStatusNoMultiBit);

  restart(kExtendedVersion);
  add("A", BIDIR);
  PVBsignal& signal = named("A");
  EXPECT_EQ(PVBsignalAllocTracks(db, signal, 4), 0);
  EXPECT_THAT(signal.tracks, ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(signal.inColumn, kNoColumn);
  EXPECT_EQ(PVBsignalAllocTracks(db, signal, 2), 0);
  EXPECT_EQ(PVBsignalColumns(signal), 4);
  EXPECT_EQ(PVBsignalAllocTracks(db, signal, kMaxTracks + 1), -2);
  EXPECT_EQ(status(), kStatusOutOfBounds);
  EXPECT_EQ(PVBsignalAllocTracks(db, signal, -1), -2);

  EXPECT_EQ(PVBsignalAllocBits(db, signal, 2), 0);
  EXPECT_EQ(signal.bitIn, 4);
  EXPECT_EQ(signal.bitOut, 5);
  EXPECT_EQ(PVBsignalAllocBits(db, signal, 3), 0);
  EXPECT_EQ(signal.multiBit, 1);
  EXPECT_THAT(signal.bitTracks, ElementsAre(4, 5, 6));
  EXPECT_EQ(signal.bitIn, -1);
}

TEST_F(Signals, InsertedMultiTrackSignalHasATrack) {
  auto signal = make("A");
  signal->multiTrack = 1;
  EXPECT_EQ(PVBsignalInsert(db, PVBsignalCopy(*signal)), UNDEF);
  restart(kExtendedVersion);
  EXPECT_NE(PVBsignalInsert(db, std::move(signal)), UNDEF);
  EXPECT_THAT(named("A").tracks, ElementsAre(0));
}

TEST_F(Signals, DirectionTakesTheColumnAlong) {
  const PVBid first = add("first", INPUT);
  const PVBid last = add("last", INPUT);
  PVBsignal& signal = named("last");
  PVBsetDirection(signal, OUTPUT);
  EXPECT_EQ(signal.inColumn, kNoColumn);
  EXPECT_EQ(signal.outColumn, 1);
  EXPECT_EQ(PVBmoveToDirectionGroup(db, signal, INPUT), 0);
  EXPECT_THAT(membersOf(kGroupAllInput), ElementsAre(first));
  EXPECT_THAT(membersOf(kGroupAllOutput), ElementsAre(last));

  add("behind", INPUT);
  PVBsetDirection(named("first"), BIDIR);
  EXPECT_EQ(named("first").inColumn, 0);
  EXPECT_EQ(PVBmoveToDirectionGroup(db, named("first"), INPUT), 0);
  EXPECT_EQ(membersOf(kGroupAllInput).front(), first);
  EXPECT_THAT(membersOf(kGroupAllBidir), IsEmpty());
  EXPECT_EQ(PVBmoveToDirectionGroup(db, named("first"), 99), 0);
}

// --- Multiplexed signals -------------------------------------------------------------

TEST_F(Signals, ResolvedMuxHasTheColumnsOfItsChildren) {
  restart(kExtendedVersion);
  const PVBid one = PVBsignalInsert(db, make("m_1", BIDIR));
  const PVBid two = PVBsignalInsert(db, make("m_2", OUTPUT));
  addMux("m", {one, two});
  PVBsignal& mux = named("m");
  EXPECT_EQ(PVBmuxParent(db, named("m_2")), &mux);
  EXPECT_EQ(named("m_2").muxPosition, 1);
  EXPECT_EQ(PVBmuxParent(db, mux), nullptr);
  EXPECT_EQ(PVBmuxResolve(db, mux), 0);
  EXPECT_EQ(mux.type, MEM_SIGNAL);
  EXPECT_THAT(mux.tracks, ElementsAre(0, 1, 2));
  EXPECT_THAT(mux.muxChildren, IsEmpty());
  EXPECT_THAT(membersOf(kGroupAllMux), IsEmpty());
  EXPECT_THAT(namesOf(membersOf(kGroupAll)), ElementsAre("m"));
  EXPECT_EQ(PVBmuxParent(db, named("m_2")), nullptr);
  EXPECT_EQ(PVBmuxResolve(db, mux), -2);
}

TEST_F(Signals, MuxBusIsResolvedMemberByMember) {
  restart(kExtendedVersion);
  PVBsignalAdd(db, makeBus("B", 1, 0, INPUT, MEM_MUX_BUS));
  named("B[1]").muxChildren = {PVBsignalInsert(db, make("x"))};
  EXPECT_EQ(PVBmuxResolve(db, named("B")), 0);
  EXPECT_EQ(named("B").type, MEM_BUS);
  EXPECT_EQ(named("B[1]").type, MEM_SIGNAL);
  EXPECT_THAT(named("B[1]").tracks, ElementsAre(0));
  addMux("broken", {998});
  EXPECT_EQ(PVBmuxResolve(db, named("broken")), -2);
  EXPECT_EQ(named("broken").type, MEM_MUX);
}

// --- Scan objects --------------------------------------------------------------------

TEST_F(Signals, ScanObjectsHaveIdsOfTheirClass) {
  const auto insert = [this](std::string_view name, std::int32_t type) {
    return PVBscanObjectInsert(db, make(name, kNoDirection, type));
  };
  EXPECT_EQ(insert("c1", kScanCellType), 0x05000001);
  EXPECT_EQ(insert("c2", kScanCellType), 0x05000002);
  EXPECT_EQ(insert("r", kScanRegisterType), 0x06000001);
  EXPECT_EQ(insert("g", kScanGroupType), 0x07000001);
  EXPECT_EQ(insert("chain", kScanChainType), 0x09000001);
  EXPECT_EQ(insert("s", MEM_SIGNAL), UNDEF);
  EXPECT_EQ(status(), kStatusBadType);
  EXPECT_EQ(insert("r", kScanCellType), UNDEF);
  EXPECT_EQ(PVBsignalInqByID(db, 0x05000001), nullptr);
  EXPECT_EQ(PVBobjectInqByID(db, 0x05000001), &named("c1"));
  EXPECT_EQ(membersOf(kGroupAllScan).size(), 5U);
  EXPECT_EQ(PVBobjectInqAll(db).size(), PVBsignalInqAll(db).size() + 6);

  saved();
  ASSERT_TRUE(reload());
  EXPECT_EQ(insert("c3", kScanCellType), 0x05000003);
  EXPECT_EQ(insert("g2", kScanGroupType), 0x07000002);
}

// --- Lists ---------------------------------------------------------------------------

TEST_F(Signals, ListsAreTakenApartToScalars) {
  const PVBid a = add("a");
  const PVBid bus = PVBsignalAdd(db, makeBus("B", 1, 0));
  const PVBid mux = add("m", INPUT, MEM_MUX);
  const PVBid group = addGroup("g", {bus, 999, mux});
  const PVBid outer = addGroup("outer", {group, a});
  EXPECT_THAT(namesOf(PVBsignalListToScalars(db, {outer, a})),
              ElementsAre("B[1]", "B[0]", "m", "a", "a"));
  const PVBidList& last = PVBsignalListToScalars(db, {bus});
  EXPECT_THAT(namesOf(PVBsignalListToScalars(db, last)), ElementsAre("B[1]", "B[0]"));

  EXPECT_TRUE(PVBsignalListContains(db, {a, outer}, named("B[0]").id));
  EXPECT_TRUE(PVBsignalListContains(db, {outer}, bus));
  EXPECT_EQ(PBerrorCount(), 0);
  EXPECT_FALSE(PVBsignalListContains(db, {outer}, 12345));
  EXPECT_EQ(PBerrorFind("PVBsignalListContains", 0, false), "PVBsignalInqByID failed.\n");
}

TEST_F(Signals, ListsOfGroupsThatHoldOneAnotherEnd) {
  const PVBid a = add("a");
  const PVBid self = addGroup("self", {});
  named("self").members = {self, a, self};
  EXPECT_THAT(PVBsignalListToScalars(db, {self}), ElementsAre(a));
  EXPECT_FALSE(PVBsignalListContains(db, {self}, 12345));

  // Each group holds the one before twice, deeper than calls could go.
  PVBid inner = addGroup("g", {a});
  for (int i = 0; i < 50000; ++i) {
    inner = addGroup("g" + std::to_string(i), {inner, inner});
  }
  EXPECT_THAT(PVBsignalListToScalars(db, {inner}), ElementsAre(a));
  EXPECT_TRUE(PVBsignalListContains(db, {inner}, a));
  PVBsignalRenumber(db);
}

// --- Order ---------------------------------------------------------------------------

// The id table as plain chains, heads in front.
class OrderModel {
 public:
  void insert(PVBid id) {
    const PVBidList all = ids();
    if (all.size() >= chains_.size()) {
      chains_.assign(chains_.size() * 2, {});
      for (const PVBid old : all) put(old);
    }
    put(id);
  }
  void remove(PVBid id) {
    for (auto& chain : chains_) std::erase(chain, id);
  }
  PVBidList ids() const {
    PVBidList all;
    for (const auto& chain : chains_) all.insert(all.end(), chain.begin(), chain.end());
    return all;
  }

 private:
  void put(PVBid id) { chains_[static_cast<std::uint32_t>(id) % chains_.size()].push_front(id); }

  std::vector<std::deque<PVBid>> chains_ =
      std::vector<std::deque<PVBid>>(static_cast<std::size_t>(kTestRowWidth) + 4);
};

RC_GTEST_FIXTURE_PROP(Signals, OrderIsTheIdTables, ()) {
  restart(kClassicVersion);
  OrderModel model;
  PVBidList live;
  for (const PVBid id :
       {kGroupAll, kGroupAllInput, kGroupAllOutput, kGroupAllBidir, kGroupAllMux, kGroupAllScan}) {
    model.insert(id);
  }
  const int steps = *rc::gen::inRange(0, 200);
  for (int i = 0; i < steps; ++i) {
    if (live.empty() || *rc::gen::inRange(0, 4) != 0) {
      data().nextID = *rc::gen::inRange(1, 5000);
      live.push_back(PVBsignalInsert(db, make("s" + std::to_string(i), kNoDirection)));
      model.insert(live.back());
    } else {
      const PVBid id = *rc::gen::elementOf(live);
      RC_ASSERT(PVBsignalDelete(db, id) == 0);
      std::erase(live, id);
      model.remove(id);
    }
    RC_ASSERT(PVBobjectInqAll(db) == model.ids());
  }
}

TEST_F(Signals, WordsOfReports) {
  EXPECT_THAT(PVBsignalTypeName(MEM_MUX_BUS), StrEq("MEM_MUX_BUS"));
  EXPECT_THAT(PVBsignalTypeName(kScanCellType), StrEq("UNKNOWN"));
  EXPECT_THAT(PVBradixName(3), StrEq("hexadecimal"));
  EXPECT_THAT(PVBradixName('D'), StrEq("undefined"));
}

}  // namespace
