#include "conditioner/timeplate_transfer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/errors.h"
#include "pvb/timeplate_expand.h"
#include "pvb/timeplate_match.h"
#include "support/database.h"

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;

constexpr TIME kPeriod = {0, 100000000};

struct Slot {
  std::int32_t direction;
  PVBidList signals;
  std::string states;
  bool operator==(const Slot&) const = default;
};

void PrintTo(const Slot& slot, std::ostream* out) {
  *out << slot.direction << testing::PrintToString(slot.signals) << slot.states;
}

std::vector<Slot> slotsOf(const PVBtimePlate& plate) {
  std::vector<Slot> slots;
  for (int i = 0; i < PVBslotCount(plate); ++i) {
    const auto& tracks = plate.levels.front().tracks;
    slots.push_back({PVBtrackDirection(plate, i), PVBtrackSignals(plate, i),
                     tracks[static_cast<std::size_t>(i)].stateChars});
  }
  return slots;
}

std::unique_ptr<PVBtimePlate> plateOf(const std::vector<Slot>& slots, const char* name = "tp") {
  auto plate = PVBtimePlateNew();
  plate->name = name;
  plate->period = kPeriod;
  for (const Slot& slot : slots) {
    const int track = static_cast<int>(plate->selectorLists.size());
    plate->selectorLists.emplace_back(slot.direction, slot.signals);
    for (const char state : slot.states) {
      PVBallocLevelAsNecessary(*plate, 0, track, -1, TIME_ZERO, state, 1);
    }
  }
  PVBtimePlateRebuildMaps(*plate);
  return plate;
}

// A source with the signals in (1), out (2), io (3), and a destination that has them in
// the order io (1), in (2), out (3).
class TimePlateTransfer : public testing::Test {
 protected:
  TimePlateTransfer() {
    src_.pvbHandle = source_.handle();
    src_.sigIDMap = {UNDEF, 2, 3, 1};
    for (const auto& [name, direction] :
         {std::pair{"in", INPUT}, std::pair{"out", OUTPUT}, std::pair{"io", BIDIR}}) {
      table_.insert(*PVBsignalInqByID(source_.handle(), add(source_, name, direction)));
    }
    add(dest_, "io", BIDIR);
    add(dest_, "in", INPUT);
    add(dest_, "out", OUTPUT);
    matchTimePlateClear();
  }
  ~TimePlateTransfer() override {
    matchTimePlateEnd();
    PBerrClear();
    PBdiscardErrors();
  }

  static PVBid add(TestDatabase& database, const char* name, std::int32_t direction) {
    auto signal = PVBsignalNew();
    signal->name = name;
    signal->direction = direction;
    return PVBsignalAdd(database.handle(), std::move(signal));
  }
  std::vector<Slot> mapped(const std::vector<Slot>& slots) {
    auto plate = baseTimePlate(dest_.handle());
    EXPECT_EQ(mapTimePlateTracks(*plate, *plateOf(slots), src_, table_), 0);
    return slotsOf(*plate);
  }
  PVBtimePlate* store(const std::vector<Slot>& slots, const char* name) {
    return matchOrInsertTimePlate(dest_.handle(), plateOf(slots, name));
  }

  TestDatabase source_;
  TestDatabase dest_;
  PVBregion src_;
  SignalTable table_;
};

TEST_F(TimePlateTransfer, ExpandsBusesAndGroupsInMemoryOnly) {
  auto bus = PVBsignalNew();
  bus->name = "d";
  bus->type = MEM_BUS;
  bus->direction = INPUT;
  bus->leftIndex = 1;
  bus->rightIndex = 0;
  const PVBid id = PVBsignalAdd(source_.handle(), std::move(bus));
  const PVBidList bits = PVBsignalInqByID(source_.handle(), id)->members;
  PVBtimePlateInsert(source_.handle(), plateOf({{INPUT, {1}, "S"}, {INPUT, {id}, "P"}}));
  source_.slot().timePlates->changed = false;
  ASSERT_TRUE(expandTimePlates(source_.handle()));
  const PVBtimePlate& plate = *PVBtimePlateInqByID(source_.handle(), 0);
  EXPECT_THAT(slotsOf(plate), ElementsAre(Slot{INPUT, {1}, "S"}, Slot{INPUT, bits, "P"}));
  EXPECT_NE(PVBsignalTracks(plate, bits[0]), nullptr);
  EXPECT_FALSE(source_.slot().timePlates->changed);
}

TEST_F(TimePlateTransfer, BidirectionalSignalsGetASlotForEachOfTheSource) {
  const Slot in = {INPUT, {1}, "D"};
  const Slot out = {OUTPUT, {2}, "X"};
  const Slot destIn = {INPUT, {2}, "D"};
  const Slot destOut = {OUTPUT, {3}, "X"};
  EXPECT_THAT(mapped({out, {OUTPUT, {3}, "Q"}, {INPUT, {3}, "S"}, in}),
              ElementsAre(Slot{INPUT, {1}, "S"}, Slot{OUTPUT, {1}, "Q"}, destIn, destOut));
  EXPECT_THAT(mapped({in, out, {OUTPUT, {3}, "Q"}}),
              ElementsAre(Slot{OUTPUT, {1}, "Q"}, destIn, destOut));
  EXPECT_THAT(mapped({in, out, {BIDIR, {3}, "?"}, {OUTPUT, {3}, "Q"}, {INPUT, {3}, "S"}}),
              ElementsAre(Slot{INPUT, {1}, "S"}, Slot{OUTPUT, {1}, "Q"}, Slot{BIDIR, {1}, "?"},
                          destIn, destOut));
  // A slot that says no direction stands for all of them.
  EXPECT_THAT(mapped({in, out, {kUndefinedDirection, {3}, "?"}}),
              ElementsAre(Slot{BIDIR, {1}, "?"}, destIn, destOut));
  // Beside one that does, rows tell the two apart by it.
  EXPECT_THAT(
      mapped({in, {kUndefinedDirection, {1}, "N"}, out, {BIDIR, {3}, "?"}}),
      ElementsAre(Slot{BIDIR, {1}, "?"}, destIn, Slot{kUndefinedDirection, {2}, "N"}, destOut));
}

TEST_F(TimePlateTransfer, SlotsOfOneDirectionKeepTheSelectorsThatChooseAmongThem) {
  auto source =
      plateOf({{INPUT, {1}, "D"}, {OUTPUT, {2}, "X"}, {BIDIR, {3}, "?"}, {INPUT, {1}, "S"}});
  source->levels[0].tracks[0].selector = 'a';
  source->levels[0].tracks[3].selector = 'b';
  auto plate = baseTimePlate(dest_.handle());
  ASSERT_EQ(mapTimePlateTracks(*plate, *source, src_, table_), 0);
  EXPECT_THAT(slotsOf(*plate), ElementsAre(Slot{BIDIR, {1}, "?"}, Slot{INPUT, {2}, "D"},
                                           Slot{INPUT, {2}, "S"}, Slot{OUTPUT, {3}, "X"}));
  EXPECT_EQ(plate->levels[0].tracks[1].selector, 'a');
  EXPECT_EQ(plate->levels[0].tracks[2].selector, 'b');
}

TEST_F(TimePlateTransfer, SignalsWithoutAWaveEndTheRun) {
  EXPECT_EXIT(mapped({{INPUT, {1}, "D"}, {OUTPUT, {2}, "X"}}), ExitedWithCode(1),
              "FATAL: validateSignalToTrackMapEntry \\(tp, io\\) failed");
  EXPECT_EXIT(mapped({{OUTPUT, {1}, "D"}, {OUTPUT, {2}, "X"}, {BIDIR, {3}, "?"}}),
              ExitedWithCode(1),
              "FAILED: TRACKofSIGNAL \\(tp = , sig = in \\(sigId = 1\\), dir = INPUT, "
              "destSigID = 2\\)\n    srcRgn->sigIDMap\\[00\\] =      -1\n");
  src_.sigIDMap.resize(2);
  EXPECT_EXIT(mapped({{INPUT, {1}, "D"}, {OUTPUT, {2}, "X"}, {BIDIR, {3}, "?"}}), ExitedWithCode(1),
              "sig = out .*destSigID = -1");
}

TEST_F(TimePlateTransfer, TranslatesByTheDataModel) {
  auto plate = plateOf({{INPUT, {1, 3}, "D"}, {OUTPUT, {2, 9}, "X"}}, "tp1");
  plate->family = "ims";
  plate->firstRow = 7;
  plate->levels[0].tracks[0].propList = 8;
  const auto base = baseTimePlate(dest_.handle());
  const auto classic = translateTimePlate(*plate, *base, src_, table_, false);
  EXPECT_THAT(slotsOf(*classic),
              ElementsAre(Slot{INPUT, {1}, "D"}, Slot{INPUT, {2}, "D"}, Slot{OUTPUT, {3}, "X"}));
  const auto extended = translateTimePlate(*plate, *base, src_, table_, true);
  EXPECT_THAT(slotsOf(*extended), ElementsAre(Slot{INPUT, {2, 1}, "D"}, Slot{OUTPUT, {3}, "X"}));
  for (const PVBtimePlate* made : {classic.get(), extended.get()}) {
    EXPECT_EQ(made->name, "tp1");
    EXPECT_EQ(made->period, kPeriod);
    EXPECT_EQ(made->family, "ims");
    EXPECT_EQ(made->firstRow, UNDEF);
    EXPECT_EQ(made->levels[0].tracks[0].propList, UNDEF);
  }
}

TEST_F(TimePlateTransfer, StoresEqualPlatesOnceAndNumbersEqualNames) {
  const PVBtimePlate* first = store({{INPUT, {2}, "D"}}, "tp");
  EXPECT_EQ(store({{INPUT, {2}, "D"}}, "other"), first);
  EXPECT_EQ(store({{INPUT, {2}, "U"}}, "tp_2")->name, "tp_2");
  EXPECT_EQ(store({{INPUT, {2}, "S"}}, "tp")->name, "tp_1");
  EXPECT_EQ(store({{INPUT, {2}, "P"}}, "tp")->name, "tp_3");
  // A name that is given back is the lowest again.
  PVBtimePlateDelete(dest_.handle(), PVBtimePlateInqByName(dest_.handle(), "tp_1")->id);
  EXPECT_EQ(store({{INPUT, {2}, "N"}}, "tp")->name, "tp_1");
}

}  // namespace
