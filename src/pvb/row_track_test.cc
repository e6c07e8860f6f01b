#include "pvb/row_track.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pvb/pattern.h"
#include "support/database.h"

namespace {

using testing::ElementsAre;

constexpr PVBid kSignal = 7;

// A plate with a slot for each pair of direction and selector, all of one signal.
PVBtimePlate plateOf(const std::vector<std::pair<int, char>>& slots) {
  PVBtimePlate plate;
  for (std::size_t t = 0; t < slots.size(); ++t) {
    const int slot = static_cast<int>(t);
    EXPECT_EQ(PVBallocAsNecessary(plate, slot), 0);
    EXPECT_EQ(PVBlistInsert(plate, slot, kSignal), 0);
    EXPECT_TRUE(PVBtrackSetDirection(plate, slot, slots[t].first));
    plate.levels[0].tracks[t].selector = slots[t].second;
  }
  PVBtimePlateRebuildMaps(plate);
  return plate;
}

std::vector<std::int32_t> found(const PVBtimePlate& plate, char selector, bool in, bool out) {
  PVBsignal signal;
  signal.id = kSignal;
  const RowTracks tracks = PVBfindTracks(signal, plate, selector, in, out);
  return {tracks.slot.begin(), tracks.slot.begin() + tracks.count};
}

TEST(RowTracks, DataChooseBetweenDirections) {
  const PVBtimePlate two = plateOf({{OUTPUT, '-'}, {INPUT, '-'}, {INPUT, '-'}});
  EXPECT_THAT(found(two, kNoSelector, true, false), ElementsAre(1));
  EXPECT_THAT(found(two, kNoSelector, false, true), ElementsAre(0));
  EXPECT_THAT(found(two, kNoSelector, true, true), ElementsAre(1, 0));
  EXPECT_THAT(found(two, kNoSelector, false, false), ElementsAre(1, 0));

  const PVBtimePlate three = plateOf({{BIDIR, '-'}, {INPUT, '-'}});
  EXPECT_THAT(found(three, kNoSelector, true, false), ElementsAre(1));
  EXPECT_THAT(found(three, kNoSelector, false, true), ElementsAre(0));
  EXPECT_THAT(found(three, kNoSelector, true, true), ElementsAre(0));

  EXPECT_THAT(found(plateOf({{kUndefinedDirection, '-'}}), kNoSelector, true, false),
              ElementsAre(0));
  EXPECT_THAT(found(plateOf({{INPUT, '-'}}), kNoSelector, false, true), ElementsAre(0));
  EXPECT_THAT(found(plateOf({}), kNoSelector, true, false), ElementsAre());
}

TEST(RowTracks, SelectorsNameSlots) {
  PVBtimePlate plate = plateOf({{INPUT, 'a'}, {INPUT, 'b'}, {OUTPUT, 'b'}, {INPUT, '-'}});
  PVBwaveSetSelector(plate.levels[0].tracks[3], 'c', 1, 2);
  EXPECT_THAT(found(plate, 'a', true, false), ElementsAre(0));
  EXPECT_THAT(found(plate, 'b', true, false), ElementsAre(1));
  EXPECT_THAT(found(plate, 'b', false, false), ElementsAre(1, 2));
  EXPECT_THAT(found(plate, 'c', false, true), ElementsAre(3));
  EXPECT_THAT(found(plate, 'z', true, false), ElementsAre(0));
}

TEST(RowTracks, RowsGiveDataAndSelector) {
  TestDatabase file;
  PVBsignal signal;
  signal.id = kSignal;
  signal.inColumn = 0;
  signal.outColumn = 1;
  const RowHandle row(file.handle(), PVBpatternNew(file.handle()));
  const PVBtimePlate plate = plateOf({{OUTPUT, '-'}, {INPUT, 'a'}, {INPUT, 'b'}});
  int direction = -1;
  setRowCode(row->states(), 1, 2);
  EXPECT_EQ(PVBrowFindTrack(file.handle(), signal, plate, *row, direction), 0);
  EXPECT_EQ(direction, OUTPUT);

  setRowCode(row->states(), 0, 1);
  signal.multiBit = 1;
  signal.bitTracks = {4, 5};
  ASSERT_EQ(PVBrowSetState(file.handle(), *row, signal, 'b'), 0);
  EXPECT_EQ(PVBrowFindTrack(file.handle(), signal, plate, *row, direction), 2);
  EXPECT_EQ(direction, INPUT);

  signal.inColumn = 60000;  // beyond the row: no data
  EXPECT_EQ(PVBrowFindTracks(file.handle(), signal, plateOf({{OUTPUT, '-'}}), *row).count, 1);
  signal.id = kSignal + 1;
  EXPECT_EQ(PVBrowFindTrack(file.handle(), signal, plate, *row, direction), kNoTrack);
  EXPECT_EQ(direction, kUndefinedDirection);
}

}  // namespace
