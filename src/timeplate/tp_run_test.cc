#include "timeplate/tp_run.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "pvb/database.h"
#include "pvb/row_track.h"
#include "support/plate_database.h"

namespace {

TEST(TpRunTest, ListsTheSignalsInOrderWithTheirColumns) {
  const PlateDatabase world({INPUT, OUTPUT, BIDIR});
  world.begin();
  ASSERT_EQ(tpRun.signals.size(), 3U);
  for (int i = 0; i < 3; ++i) {
    const TpSignal& signal = tpRun.signals[static_cast<std::size_t>(i)];
    EXPECT_EQ(signal.id, world.id(i));
    EXPECT_EQ(signal.index, i);
    EXPECT_TRUE(signal.plain && !signal.muxed);
  }
  EXPECT_EQ(tpRun.signals[0].outColumn, -1);
  EXPECT_EQ(tpRun.signals[1].inColumn, -1);
  EXPECT_EQ(tpRun.signals[2].outColumn, tpRun.signals[2].inColumn + 1);
  EXPECT_EQ(tpRunBegin(-1), -2);
}

TEST(TpRunTest, TheChildrenOfAMultiplexedSignalFollowItWithItsColumns) {
  const PlateDatabase world({INPUT});
  auto child = PVBsignalNew();
  child->direction = INPUT;
  const PVBid part = PVBsignalInsert(world.handle(), std::move(child));
  auto parent = PVBsignalNew();
  parent->name = "mux";
  parent->type = MEM_MUX;
  parent->direction = INPUT;
  parent->muxChildren = {part, 12345};
  ASSERT_GT(PVBsignalAdd(world.handle(), std::move(parent)), 0);
  world.begin();
  ASSERT_EQ(tpRun.signals.size(), 3U);
  EXPECT_FALSE(tpRun.signals[1].plain);
  EXPECT_EQ(tpRun.signals[2].id, part);
  EXPECT_TRUE(tpRun.signals[2].muxed && tpRun.signals[2].plain);
  EXPECT_EQ(tpRun.signals[2].name, "mux");
}

// Tracks of any directions, several for a signal among them.
RC_GTEST_PROP(TpRunProperty, ATrackIsChosenAsByTheRowItself, ()) {
  PlateDatabase world({INPUT, OUTPUT, BIDIR, BIDIR});
  const auto count = *rc::gen::inRange(0, 6);
  std::vector<PlateTrack> tracks;
  for (int t = 0; t < count; ++t) {
    tracks.push_back({*rc::gen::inRange(0, 4), *rc::gen::inRange(0, 3),
                      *rc::gen::element<std::string>("D", "H", "DH")});
  }
  const PVBid id = world.plate(tracks);
  world.begin();
  const auto codes = *rc::gen::container<std::vector<int>>(6, rc::gen::inRange(0, 3));
  world.row(id, codes);
  PVBposition position;
  const RowHandle row(world.handle(),
                      PVBpatternInqRow(world.handle(), kMainPattern, position, BY_ROW));
  RC_ASSERT(row.get() != nullptr);
  TpRow held;
  held.data.assign(row->states(), row->states() + PVBrowDataSize(world.handle()));
  const PVBtimePlate& plate = *PVBtimePlateInqByID(world.handle(), id);
  for (const TpSignal& signal : tpRun.signals) {
    int expected = 0;
    int got = 0;
    const std::int32_t slot = PVBrowFindTrack(
        world.handle(), *PVBsignalInqByID(world.handle(), signal.id), plate, *row, expected);
    RC_ASSERT(tpRowTrack(signal, plate, held, got) == slot);
    RC_ASSERT(got == expected);
  }
}

}  // namespace
