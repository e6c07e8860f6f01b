#include "conditioner/signal_transfer.h"

#include <gmock/gmock.h>

#include "base/errors.h"
#include "pvb/pin.h"
#include "pvb/property.h"
#include "pvb/timeplate.h"
#include "support/region_database.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class SignalTransfer : public testing::Test {
 protected:
  ~SignalTransfer() override {
    PBerrClear();
    PBdiscardErrors();
  }

  static std::vector<std::string> namesIn(const SignalTable& table) {
    std::vector<std::string> names;
    for (const PVBsignal* signal : table.signals()) names.push_back(*signal->name);
    return names;
  }
  static std::string pending() {
    std::string lines;
    PBerrSetLogger([&lines](std::string_view line) { lines.append(line).append("\n"); });
    PBerrPrint(stderr);
    PBerrSetLogger({});
    return lines;
  }

  RegionDatabase a{"first"};
  RegionDatabase b{"second"};
  RegionDatabase dest{"dest"};
};

}  // namespace

TEST_F(SignalTransfer, CategoriesKeepTheOrderOfAll) {
  for (const char* name : {"z", "both", "a"}) a.add(name);
  for (const char* name : {"n", "m", "both"}) b.add(name);
  SigCategories categories;
  ASSERT_EQ(categorizeSignals(a.region, b.region, categories), 0);
  EXPECT_THAT(namesIn(categories[SRC1_ALL_SCALARS]), ElementsAre("z", "both", "a"));
  EXPECT_THAT(namesIn(categories[SRC1_DISJOINT_SCALARS]), ElementsAre("z", "a"));
  EXPECT_THAT(namesIn(categories[SRC2_DISJOINT_SCALARS]), ElementsAre("n", "m"));
  ASSERT_THAT(namesIn(categories[OVERLAP_SCALARS]), ElementsAre("both"));
  EXPECT_EQ(categories[OVERLAP_SCALARS].find("both"), &a.named("both"));
  EXPECT_THAT(a.region.sigIDMap, ElementsAre(-1, -1, -1, -1));
}

TEST_F(SignalTransfer, MultiplexedSignalsAreRefused) {
  a.add("clk");
  b.add("m1", INPUT, MEM_MUX);
  b.add("m2", INPUT, MEM_MUX);
  SigCategories categories;
  EXPECT_EQ(categorizeSignals(a.region, b.region, categories), -2);
  EXPECT_EQ(pending(),
            "categorizeSignals: (2) multiplexed signal(s) found in PVB region (second), "
            "multiplexed signals currently not supported.\n");
  EXPECT_TRUE(categories[SRC1_ALL_SCALARS].empty());
}

TEST_F(SignalTransfer, TheListOfDisjointSignalsStopsWhenTheStackIsNearlyFull) {
  a.add("common");
  b.add("common");
  a.add("only1");
  for (int i = 0; i < 50; ++i) b.add("s" + std::to_string(i));
  SigCategories categories;
  ASSERT_EQ(categorizeSignals(a.region, b.region, categories), 0);
  listDisjointSignals(categories, a.region, b.region);
  EXPECT_EQ(PBerrCount(), 32);
  const std::string lines = pending();
  EXPECT_THAT(lines, HasSubstr(a.region.pvbName + "   only1"));
  EXPECT_THAT(lines, HasSubstr("   s27"));
  EXPECT_THAT(lines, Not(HasSubstr("   s28 ")));
  EXPECT_THAT(lines, testing::EndsWith("Correct known disjoint signals and re-run.\n"));
}

TEST_F(SignalTransfer, CopiesHaveColumnsOfTheirOwnInTheOrderOfTheTable) {
  for (const char* name : {"x", "y"}) a.add(name, OUTPUT);
  a.add("io", BIDIR);
  a.named("io").description = "both ways";
  SigCategories categories;
  b.add("io", BIDIR);
  b.add("new", INPUT);
  ASSERT_EQ(categorizeSignals(a.region, b.region, categories), 0);
  copySignals(dest.region, a.region, categories[SRC1_DISJOINT_SCALARS]);
  copyOverlapSignals(dest.region, a.region, b.region, categories[OVERLAP_SCALARS]);
  copySignals(dest.region, b.region, categories[SRC2_DISJOINT_SCALARS]);

  EXPECT_THAT(namesIn(signalTableOf(dest.region)), ElementsAre("x", "y", "io", "new"));
  const PVBsignal& io = dest.named("io");
  EXPECT_EQ(io.inColumn, 2);
  EXPECT_EQ(io.outColumn, 3);
  EXPECT_EQ(io.description, "both ways");
  EXPECT_EQ(a.region.sigIDMap[static_cast<std::size_t>(a.named("io").id)], io.id);
  EXPECT_EQ(b.region.sigIDMap[static_cast<std::size_t>(b.named("io").id)], io.id);
  EXPECT_FALSE(PVBmodelExtended(dest.handle(), true));
}

TEST_F(SignalTransfer, PinsAndColumnsComeOnceAndKnowEachOther) {
  const int from = a.handle();
  for (const char* name : {"x", "y"}) a.add(name);
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

TEST_F(SignalTransfer, PmodesMergeUnlessBothAreUsed) {
  const auto usePmode = [](const RegionDatabase& in) {
    auto plate = PVBtimePlateNew();
    PVBallocLevelAsNecessary(*plate, 1, 2, -1, TIME_ZERO, 'P', 1);
    PVBtimePlateInsert(in.handle(), std::move(plate));
  };
  PVBsetPmode(a.handle(), FORCE_OR_Z);
  PVBsetPmode(b.handle(), LAST_DRIVE);
  EXPECT_EQ(mergePmode(dest.region, a.region, b.region), 0);
  EXPECT_EQ(PVBpmode(dest.handle()), FORCE_OR_Z);
  usePmode(b);
  EXPECT_EQ(mergePmode(dest.region, a.region, b.region), 0);
  EXPECT_EQ(PVBpmode(dest.handle()), LAST_DRIVE);
  usePmode(a);
  EXPECT_EQ(mergePmode(dest.region, a.region, b.region), -2);
  EXPECT_THAT(pending(), HasSubstr("mergePmode: P modes of (" + a.region.pvbName + ") and ("));
}
