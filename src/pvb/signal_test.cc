#include "pvb/signal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/errors.h"
#include "pvb/database.h"
#include "support/signal_database.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

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

  EXPECT_EQ(PVBsignalRename(db, 1, "A"), 0);
  EXPECT_EQ(PVBsignalRename(db, 1, "B"), -2);
  EXPECT_EQ(status(), kStatusNameTaken);
  EXPECT_EQ(PVBsignalRename(db, 1, ""), -2);
  EXPECT_EQ(status(), kStatusEmptyName);
  EXPECT_EQ(PVBsignalRename(db, kGroupAll, "C"), -2);
  EXPECT_EQ(status(), kStatusImplicitGroup);
  EXPECT_EQ(PVBsignalDelete(db, kGroupAll), -2);
  EXPECT_EQ(status(), kStatusImplicitGroup);
  EXPECT_EQ(PVBsignalRename(db, 1, "C"), 0);
  EXPECT_EQ(PVBsignalInqByName(db, "A"), nullptr);
  EXPECT_EQ(named("C").id, 1);
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
  EXPECT_EQ(named("A[2]").inColumn, 2);
  EXPECT_EQ(named("A[2]").outColumn, 3);
  EXPECT_EQ(named("B[0]").inColumn, 8);
  EXPECT_EQ(PVBsignalColumns(named("M[5]")), 0);
  EXPECT_EQ(data().nextColumn, 11);

  const PVBid bus = named("B").id;
  EXPECT_EQ(PVBsetVariety(db, bus, 3), 0);
  EXPECT_EQ(named("B[2]").variety, 3);
  EXPECT_EQ(PVBsetVariety(db, named("B[1]").id, 3), -2);
  EXPECT_EQ(PBerrorCount(), 0);
  EXPECT_EQ(PVBsetVariety(db, 999, 3), -2);
  EXPECT_TRUE(PBerrorHas("PVBsetVariety", 0));
  EXPECT_EQ(PVBsetVariety(db, addGroup("g", {999}), 3), -2);
  EXPECT_EQ(PBerrorFind("PVBsetVariety", 0, false), "Failed to find a member of a bus/group.\n");

  restart(kClassicVersion);
  const PVBidList members = {add("d[0]"), add("d[1]")};
  auto over = makeBus("d", 0, 1);  // existing signals: nothing to expand
  over->members = members;
  EXPECT_EQ(membersOf(PVBsignalAdd(db, std::move(over))), members);
  EXPECT_EQ(membersOf(kGroupAll), members);
}

TEST_F(Signals, BusThatCantBeExpandedLeavesNothingBehind) {
  add("A[1]");
  const PVBidList before = PVBobjectInqAll(db);
  const std::int32_t nextColumn = data().nextColumn;
  for (const auto& [left, right] : {std::pair{3, 0}, {kNoBound, 0}, {0, kNoBound}, {65534, 0}}) {
    EXPECT_EQ(PVBsignalAdd(db, makeBus("A", left, right)), UNDEF);
    EXPECT_EQ(status(), left == 3 ? kStatusNameTaken : kStatusOutOfBounds);
    EXPECT_THAT(PVBobjectInqAll(db), UnorderedElementsAreArray(before));
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

// --- Columns and directions ----------------------------------------------------------

TEST_F(Signals, ColumnOfTrackFollowsDirection) {
  const struct {
    std::int32_t direction;
    int columns;
    std::vector<std::int32_t> ofTrack;  // 0, 1, 2
  } cases[] = {{INPUT, 1, {-1, 0, 0}},
               {OUTPUT, 1, {-1, 1, 1}},
               {BIDIR, 2, {-1, 2, 3}},
               {kNoDirection, 0, {-1, -1, -1}}};
  for (const auto& c : cases) {
    add(std::to_string(c.direction), c.direction);
    const PVBsignal& signal = named(std::to_string(c.direction));
    EXPECT_EQ(PVBsignalColumns(signal), c.columns);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(PVBsignalColumn(signal, static_cast<int>(i)), c.ofTrack[i]);
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
  EXPECT_EQ(PVBsignalAllocBits(db, signal, 2), 0);
  EXPECT_EQ(signal.bitIn, 4);
  EXPECT_EQ(signal.bitOut, 5);
  EXPECT_EQ(PVBsignalAllocBits(db, signal, 3), 0);
  EXPECT_EQ(signal.multiBit, 1);
  EXPECT_THAT(signal.bitTracks, ElementsAre(4, 5, 6));
  EXPECT_EQ(signal.bitIn, -1);

  auto multi = make("B");
  multi->multiTrack = 1;
  EXPECT_NE(PVBsignalInsert(db, PVBsignalCopy(*multi)), UNDEF);
  EXPECT_THAT(named("B").tracks, ElementsAre(7));
  restart(kClassicVersion);
  EXPECT_EQ(PVBsignalInsert(db, std::move(multi)), UNDEF);
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

}  // namespace
