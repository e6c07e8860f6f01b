#include "conditioner/signal_transfer.h"

#include <gmock/gmock.h>

#include "base/errors.h"
#include "pvb/pin.h"
#include "pvb/property.h"
#include "support/region_database.h"

using testing::ElementsAre;

namespace {

class SignalTransfer : public testing::Test {
 protected:
  ~SignalTransfer() override { PBdiscardErrors(); }

  RegionDatabase a{"first"};
  RegionDatabase b{"second"};
  RegionDatabase dest{"dest"};
};

}  // namespace

TEST_F(SignalTransfer, PinsAndColumnsComeOnceAndKnowEachOther) {
  const int from = a.handle();
  for (const char* name : {"x", "y"}) a.add(name);
  a.named("x").description = "clock";
  auto ate = PVBpinNew();
  ate->name = "channel";
  ate->propList = PVBpropListNew(from);
  PVBputProp(from, ate->propList, {7, "kept"});
  ate->linkedPins = {1, 999};
  PVBputProp(from, ate->propList, {8, "newer"});
  auto dut = PVBpinNew();
  dut->name = "ball";
  auto column = PVBcolumnNew();
  column->number = 12;
  const PVBid ateId = PVBatePinInsert(from, std::move(ate));
  const PVBid dutId = PVBdutPinInsert(from, std::move(dut));
  const PVBid columnId = PVBcolumnInsert(from, std::move(column));
  PVBatePinInqByID(from, ateId)->linkedPins[0] = dutId;
  PVBdutPinInqByID(from, dutId)->linkedPins = {ateId};
  PVBcolumnInqByID(from, columnId)->atePins = {ateId};
  for (const char* name : {"x", "y"}) a.named(name).lists3 = {ateId, 555};
  a.named("x").lists4 = {dutId};
  a.named("y").lists5 = {columnId};

  copySignals(dest.region, a.region, signalTableOf(a.region));
  const PVBpin& pin = *PVBatePinInqByName(dest.handle(), "channel");
  EXPECT_EQ(dest.named("x").description, "clock");
  const PVBid x = dest.named("x").id;
  const PVBid y = dest.named("y").id;
  EXPECT_THAT(pin.signals, ElementsAre(x, y));
  EXPECT_THAT(dest.named("y").lists3, ElementsAre(pin.id));
  EXPECT_THAT(pin.linkedPins, ElementsAre(PVBdutPinInqByName(dest.handle(), "ball")->id));
  EXPECT_THAT(PVBdutPinInqByName(dest.handle(), "ball")->linkedPins, ElementsAre(pin.id));
  EXPECT_THAT(PVBcolumnInqByNumber(dest.handle(), 12)->atePins, ElementsAre(pin.id));
  EXPECT_THAT(PVBcolumnInqByNumber(dest.handle(), 12)->signals, ElementsAre(y));
  EXPECT_EQ(PVBpropInqFirst(dest.handle(), pin.propList)->value, "newer");
  EXPECT_EQ(PVBpropGet(dest.handle(), pin.propList, 7), "kept");
}

TEST_F(SignalTransfer, FurtherTracksRaiseAClassicDestination) {
  PVBraiseVersion(b.handle(), true);
  a.add("s", BIDIR);
  b.add("s", BIDIR);
  ASSERT_EQ(PVBsignalAllocTracks(b.handle(), b.named("s"), 5), 0);
  ASSERT_EQ(PVBsignalAllocBits(b.handle(), b.named("s"), 3), 0);
  SigCategories categories;
  ASSERT_EQ(categorizeSignals(a.region, b.region, categories), 0);
  copyOverlapSignals(dest.region, a.region, b.region, categories[OVERLAP_SCALARS]);
  EXPECT_TRUE(PVBmodelExtended(dest.handle(), true));
  EXPECT_EQ(PVBsignalColumns(dest.named("s")), 5);
  EXPECT_EQ(dest.named("s").bitTracks.size(), 3U);

  mapSignalsByName(b.region, a.region);
  EXPECT_EQ(PVBsignalColumns(a.named("s")), 5);
  EXPECT_THAT(a.named("s").tracks, testing::Contains(0));
  EXPECT_EQ(a.region.sigIDMap[1], 1);
}
