#include "pvb/bus.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "pvb/timeplate.h"
#include "support/database.h"
#include "support/signal_database.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class BusTest : public SignalDatabase {
 protected:
  // What busify tells of these inputs.
  std::string busify(const std::vector<std::string>& names, int order = kBusHighFirst) {
    restart(kClassicVersion);
    for (const std::string& name : names) add(name);
    return busifyGroup(kGroupAll, order);
  }
  std::string busifyGroup(PVBid group, int order) const {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* stream = open_memstream(&text, &size);
    EXPECT_EQ(PVBbusifyGroup(db, group, order, stream), 0);
    std::fclose(stream);
    std::string told(text, size);
    std::free(text);
    return told;
  }
  // "d 1..0: d[0] d[1]"
  std::string form(std::string_view bus) const {
    const PVBsignal& signal = named(bus);
    std::string text = std::string(bus) + " " + std::to_string(signal.leftIndex) + ".." +
                       std::to_string(signal.rightIndex) + ":";
    for (const PVBid id : signal.members) text += " " + *PVBsignalInqByID(db, id)->name;
    return text;
  }
};

}  // namespace

TEST_F(BusTest, BoundsAndMembersRunByOrder) {
  EXPECT_EQ(busify({"d[1]", "d[0]", "d[2]"}, kBusHighFirst), "");
  EXPECT_EQ(form("d"), "d 2..0: d[0] d[1] d[2]");
  EXPECT_EQ(named("d").direction, INPUT);
  busify({"d[1]", "d[0]", "d[2]"}, kBusLowFirst);
  EXPECT_EQ(form("d"), "d 0..2: d[2] d[1] d[0]");
  busify({"d[1]", "d[0]", "d[2]"}, kBusAsSeen);
  EXPECT_EQ(form("d"), "d 2..0: d[0] d[1] d[2]");
  busify({"d[2]", "d[0]", "d[1]"}, kBusAsSeen);
  EXPECT_EQ(form("d"), "d 0..2: d[2] d[1] d[0]");
}

TEST_F(BusTest, EachReasonIsTold) {
  struct Case {
    std::vector<std::string> names;
    const char* reason;
  };
  const Case cases[] = {
      {{"d[0]", "d[1]", "d[3]"}, "index value 2 is missing"},
      {{"d[5]"}, "it has only a single element [5]"},
      {{"d", "d[0]", "d[1]"}, "the name already exists"},
      {{"d[0]", "d[1]", "d[00]"}, "index value 0 is duplicated"},
      {{"d[0]", "d[16384]"}, "the element index values are not contiguous"},
      {{"d[16384]", "d[0]"}, "index value 1 is missing"},
      {{"d[0]", "d[-1]"}, "index value -1 is out of range"},
      {{"d[65535]", "d[65534]"}, "index value 65535 is out of range"},
      {{"d[99999999999999999999]"}, "it has only a single element [2147483647]"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(busify(c.names),
              std::string("Bus d is not being formed because ") + c.reason + ".\n");
  }
  restart(kClassicVersion);
  add("d[0]", INPUT);
  add("d[1]", OUTPUT);
  EXPECT_THAT(busifyGroup(kGroupAll, kBusHighFirst), HasSubstr("have the same direction."));
}

TEST_F(BusTest, OnlyNamesWithAnIndexCountTheNewestFirst) {
  EXPECT_EQ(busify({"[0]", "a[]", "b[-]", "c[1x]", "e[ 1]", "f1]", "g[1", "h[+1]"}), "");
  EXPECT_EQ(busify({"m[0][1]", "m[0][0]"}), "");
  EXPECT_EQ(form("m[0]"), "m[0] 1..0: m[0][0] m[0][1]");
  const std::string told = busify({"a[0]", "b[0]", "c[0]", "c[1]", "e[0]", "e[1]"});
  EXPECT_LT(told.find("Bus b"), told.find("Bus a"));
  EXPECT_LT(named("e").id, named("c").id);
}

TEST_F(BusTest, AGroupGetsTheBusForItsMembers) {
  busify({"d[0]", "d[1]", "x", "e[0]", "e[1]"});
  std::unique_ptr<PVBsignal> group = make("mine", kNoDirection, MEM_GROUP);
  group->members = {named("x").id, named("d[1]").id, named("e[0]").id, named("d[0]").id};
  const PVBid id = PVBsignalAdd(db, std::move(group));
  EXPECT_THAT(busifyGroup(id, kBusHighFirst), HasSubstr("Bus e is not"));
  EXPECT_THAT(membersOf(id), ElementsAre(named("x").id, named("d").id, named("e[0]").id));
  EXPECT_EQ(PVBbusifyGroup(db, 77777, kBusHighFirst, nullptr), -2);
}

// --- Tracks --------------------------------------------------------------------------

namespace {

// Signals d[0] to d[3] and x, each on a slot of its own in one plate.
class BusTracksTest : public testing::Test {
 protected:
  BusTracksTest() {
    for (const char* name : {"d[0]", "d[1]", "d[2]", "d[3]", "x"}) {
      std::unique_ptr<PVBsignal> signal = PVBsignalNew();
      signal->name = name;
      signal->direction = INPUT;
      ids.push_back(PVBsignalAdd(database.handle(), std::move(signal)));
    }
    auto made = PVBtimePlateNew();
    made->name = "tp";
    for (int t = 0; t < 5; ++t) {
      PVBallocAsNecessary(*made, t);
      PVBtrackSetSignals(*made, t, {ids[static_cast<std::size_t>(t)]});
      PVBtrackSetDirection(*made, t, INPUT);
      addEvent(*made, t, 10);
    }
    plateId = PVBtimePlateInsert(database.handle(), std::move(made));
  }
  static void addEvent(PVBtimePlate& plate, int track, int femtoseconds) {
    PVBtrackInsert(plate.levels[0].tracks[static_cast<std::size_t>(track)], -1,
                   PBintToTIME(femtoseconds), 'D', 1);
  }
  PVBtimePlate& plate() const { return *PVBtimePlateInqByID(database.handle(), plateId); }
  std::string busify() const {
    testing::internal::CaptureStdout();
    EXPECT_TRUE(busifyPVB(database.handle()));
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
  }
  std::vector<PVBidList> slots() const {
    std::vector<PVBidList> lists;
    for (std::size_t t = 0; t < plate().levels[0].tracks.size(); ++t) {
      lists.push_back(PVBtrackSignals(plate(), static_cast<int>(t)));
    }
    return lists;
  }

  TestDatabase database;
  PVBidList ids;
  PVBid plateId = UNDEF;
};

}  // namespace

TEST_F(BusTracksTest, MembersWithEqualWavesShareASlot) {
  addEvent(plate(), 2, 20);
  EXPECT_EQ(busify(),
            "...Optimizing bus member timeplate tracks...\n"
            "......combining bus \"d\" input tracks in timeplate \"tp\"\n"
            "...WARNING: signal \"d[2]\" input-tracks in timeplate \"tp\" cannot be busified\n");
  EXPECT_THAT(slots(),
              ElementsAre(PVBidList{ids[0], ids[1], ids[3]}, PVBidList{ids[2]}, PVBidList{ids[4]}));
  EXPECT_EQ(PVBsignalTracks(plate(), ids[3])->track[INPUT], 0);
  EXPECT_EQ(PVBsignalTracks(plate(), ids[4])->track[INPUT], 2);
  EXPECT_EQ(PVBtrackDirection(plate(), 2), INPUT);
  EXPECT_EQ(plate().levels[0].tracks[1].eventTimes.size(), 2U);
  // What is combined stays so.
  EXPECT_THAT(busify(), Not(HasSubstr("combining")));
}

TEST_F(BusTracksTest, ASharedSlotStaysForTheOthersOnIt) {
  PVBtrackSetSignals(plate(), 3, {ids[4], ids[3]});
  PVBtimePlateDeleteTrack(plate(), 4);
  busify();
  EXPECT_THAT(slots(), ElementsAre(PVBidList{ids[0], ids[1], ids[2], ids[3]}, PVBidList{ids[4]}));
}

TEST_F(BusTracksTest, LongWavesLeaveTheBusAlone) {
  for (int i = 0; i < 16; ++i) addEvent(plate(), 1, 20 + i);
  EXPECT_THAT(busify(),
              HasSubstr("...ERROR: Signal \"d[1]\" in tplate \"tp\" has > 16 events.  Not "
                        "supported.\n"));
  EXPECT_EQ(slots().size(), 5U);
}
