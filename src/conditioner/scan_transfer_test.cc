#include "conditioner/scan_transfer.h"

#include <gmock/gmock.h>

#include "base/errors.h"
#include "pvb/scan_run.h"
#include "pvb/state_vector.h"
#include "support/region_database.h"

namespace {

constexpr int kZero = 1;
constexpr int kOne = 2;

// A database with signals in and out, and scan objects.
struct ScanDatabase : RegionDatabase {
  explicit ScanDatabase(std::string_view regionName) : RegionDatabase(regionName) {
    add("in", INPUT);
    add("out", OUTPUT);
  }
  PVBid object(const char* name, std::int32_t type, PVBidList members = {}) const {
    std::unique_ptr<PVBsignal> made = PVBsignalNew();
    if (name != nullptr) made->name = name;
    made->type = type;
    made->members = std::move(members);
    if (type == kScanChainType) made->lists3 = {named("in").id, named("out").id};
    return PVBscanObjectInsert(handle(), std::move(made));
  }
  PVBid cell(const char* name) const { return object(name, kScanCellType); }
  std::string members(std::string_view owner) const {
    std::string text;
    for (const PVBid id : named(owner).members) {
      text += PVBobjectInqByID(handle(), id)->name.value_or("-") + " ";
    }
    return text;
  }
  // A scan row with one run through the chain.
  RowHandle scanRow(std::string_view chain, PVBid vector) const {
    RowHandle row(handle(), PVBpatternNew(handle()));
    row->type = ROW_SCAN;
    EXPECT_NE(PVBscanRunInsert(handle(), row.get(), RUN_FEEDBACK, named(chain).id, vector), -1);
    return row;
  }
  RowHandle copyOf(const PVBrow& row, ScanDatabase& source) const {
    RowHandle copy(handle(), PVBpatternNew(handle()));
    copy->type = ROW_SCAN;
    copy->count = 5;
    EXPECT_EQ(copyScanRuns(*copy, row, region, source.region), 0);
    EXPECT_EQ(copy->count, 5U);
    return copy;
  }
  PVBscanRun firstRun(const PVBrow& row) const {
    PVBscanRun run = {};
    EXPECT_TRUE(PVBscanRunInq(handle(), static_cast<PVBid>(row.link), run));
    return run;
  }
  int code(PVBid vector, std::string_view cellName) const {
    const auto place = static_cast<std::uint32_t>(PVBidIndex(named(cellName).id));
    return PVBstateVectorGet(handle(), vector, place);
  }
  void set(PVBid vector, std::string_view cellName, int value) const {
    const auto place = static_cast<std::uint32_t>(PVBidIndex(named(cellName).id));
    EXPECT_EQ(PVBstateVectorSet(handle(), vector, place, value), 0);
  }
};

class ScanTransfer : public testing::Test {
 protected:
  ~ScanTransfer() override { PBdiscardErrors(); }
  void carry(ScanDatabase& from, bool skipExisting) {
    copyScanChains(from.region, dest.region, signalTableOf(from.region), skipExisting);
  }

  ScanDatabase src{"src"};
  ScanDatabase dest{"dest"};
};

}  // namespace

TEST_F(ScanTransfer, ChainsComeWithTheirMembersUnderTheSameIds) {
  src.cell("gone");
  const PVBid c1 = src.cell("c1");
  const PVBid c2 = src.cell("c2");
  const PVBid reg = src.object("reg", kScanRegisterType, {c1, c2});
  src.named("reg").leftIndex = 7;
  const PVBid group = src.object("group", kScanGroupType, {c2});
  src.named("group").members.push_back(group);  // round in a circle
  PVBid deep = group;
  for (int i = 0; i < 20000; ++i) deep = src.object(nullptr, kScanGroupType, {deep});
  src.object("chain", kScanChainType, {reg, deep, c1, src.named("in").id});
  src.object("empty", kScanChainType);
  src.object("elsewhere", kScanChainType, {c1});
  src.named("elsewhere").lists3 = {UNDEF, src.add("spare")};

  const SignalTable all = signalTableOf(src.region);
  SignalTable table;
  for (const char* name : {"in", "out"}) table.insert(*all.find(name));
  copyScanChains(src.region, dest.region, table, false);
  EXPECT_EQ(dest.members("chain"), "reg - c1 ");
  EXPECT_EQ(dest.members("reg"), "c1 c2 ");
  EXPECT_EQ(dest.members("group"), "c2 group ");
  EXPECT_EQ(dest.named("reg").leftIndex, 7);
  EXPECT_EQ(dest.named("c2").id, c2);
  EXPECT_EQ(PVBinqOutSignal(dest.handle(), dest.named("chain").id), dest.named("out").id);
  EXPECT_EQ(src.region.scanIDMap.size(), 3U);
  for (const char* name : {"gone", "empty", "elsewhere"}) {
    EXPECT_EQ(PVBsignalInqByName(dest.handle(), name), nullptr);
  }
  // A second time nothing changes.
  carry(src, true);
  carry(src, false);
  EXPECT_EQ(dest.members("chain"), "reg - c1 ");
}

TEST_F(ScanTransfer, VectorsFollowTheCellsToTheirNewPlaces) {
  for (const char* name : {"other1", "other2", "other3"}) dest.cell(name);
  const PVBid x = src.cell("x");
  const PVBid y = src.cell("y");
  src.object("chain", kScanChainType, {x, y});
  const PVBid vector = PVBstateVectorNew(src.handle(), "v");
  src.set(vector, "x", kZero);
  src.set(vector, "y", kOne);
  PVBstateVectorSetValue(src.handle(), vector, 99);
  carry(src, false);
  const RowHandle row = src.scanRow("chain", vector);
  const RowHandle copy = dest.copyOf(*row, src);
  const PVBscanRun run = dest.firstRun(*copy);
  EXPECT_EQ(run.type, RUN_FEEDBACK);
  EXPECT_EQ(run.chain, dest.named("chain").id);
  EXPECT_EQ(PVBstateVectorName(dest.handle(), run.state), "v");
  EXPECT_NE(dest.named("x").id, x);
  EXPECT_EQ(dest.code(run.state, "x"), kZero);
  EXPECT_EQ(dest.code(run.state, "y"), kOne);
  EXPECT_EQ(PVBstateVectorValue(dest.handle(), run.state), 99U);
}

TEST_F(ScanTransfer, ASecondSourceOfTheSameChainsKeepsItsStates) {
  ScanDatabase second("second");
  for (ScanDatabase* in : {&src, &second}) {
    const PVBid first = in->cell(in == &src ? "x" : "y");
    const PVBid next = in->cell(in == &src ? "y" : "x");
    in->object("chain", kScanChainType,
               in == &src ? PVBidList{first, next} : PVBidList{next, first});
  }
  const PVBid nameless = PVBstateVectorNew(second.handle(), "");
  second.set(nameless, "x", kZero);
  second.set(nameless, "y", kOne);
  carry(src, false);
  carry(second, true);
  EXPECT_EQ(dest.members("chain"), "x y ");
  const RowHandle row = second.scanRow("chain", nameless);
  const RowHandle copy = dest.copyOf(*row, second);
  const PVBid vector = dest.firstRun(*copy).state;
  EXPECT_EQ(dest.code(vector, "x"), kZero);
  EXPECT_EQ(dest.code(vector, "y"), kOne);
  EXPECT_EQ(dest.firstRun(*dest.copyOf(*row, second)).state, vector);
}

TEST_F(ScanTransfer, RunsOfUnknownChainsAreLeftOutAndDamageIsTold) {
  src.object("chain", kScanChainType, {src.cell("x")});
  const RowHandle row = src.scanRow("chain", PVBstateVectorNew(src.handle(), "v"));
  const RowHandle copy = dest.copyOf(*row, src);
  EXPECT_EQ(copy->link, kNoLink);
  row->link = static_cast<std::uint32_t>(PVBidMake(kClassScanRun, 4711));
  EXPECT_EQ(copyScanRuns(*copy, *row, dest.region, src.region), -2);
  EXPECT_TRUE(PBerrorHas("copyScanRuns", 0));
  row->link = kNoLink;
}
