#include "pvb/scan_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "base/errors.h"
#include "pvb/pattern.h"
#include "pvb/signal.h"
#include "pvb/state_vector.h"
#include "storage/page.h"
#include "storage/swapendian.h"
#include "support/database.h"
#include "support/fault_platform.h"

namespace {

using ::testing::ElementsAre;

// A database with a chain of three cells from "in" to "out", one of two cells
// without an output, a vector and a scan row.
class ScanRun : public ::testing::Test {
 protected:
  void SetUp() override {
    in = addSignal("in", INPUT);
    out = addSignal("out", OUTPUT);
    chain = addChain("chain", in, out, 3);
    half = addChain("half", in, UNDEF, 2);
    vector = PVBstateVectorNew(handle, "v");
    row = newRow();
  }

  PVBid addSignal(const char* name, SignalDirection direction) const {
    auto signal = PVBsignalNew();
    signal->name = name;
    signal->direction = direction;
    return PVBsignalAdd(handle, std::move(signal));
  }
  PVBid addChain(const char* name, PVBid input, PVBid output, int length) const {
    auto object = PVBsignalNew();
    object->name = name;
    object->type = kScanChainType;
    object->lists3 = {input, output};
    for (int i = 0; i < length; ++i) {
      auto cell = PVBsignalNew();
      cell->name = std::string(name) + std::to_string(i);
      cell->type = kScanCellType;
      object->members.push_back(PVBscanObjectInsert(handle, std::move(cell)));
    }
    return PVBscanObjectInsert(handle, std::move(object));
  }
  RowHandle newRow() const {
    RowHandle made(handle, PVBpatternNew(handle));
    made->type = ROW_SCAN;
    return made;
  }
  PVBid insert(std::uint32_t type, PVBid through) const {
    return PVBscanRunInsert(handle, row.get(), type, through, vector);
  }
  PVBidList runs() const { return PVBcreateScanRunIterator(handle, *row).runs; }
  std::int32_t takeStatus() const {
    const char* text = nullptr;
    const std::int32_t status = PVBinqStatus(handle, text);
    PVBclearStatus(handle);
    return status;
  }
  std::uint32_t runBlocks() const { return PageCount(database.slot().patterns->runs); }
  void setNext(PVBid run, PVBid next) const {
    auto block =
        BlockHandle<PVBscanRun>::get(database.slot().patterns->runs,
                                     static_cast<std::uint32_t>(PVBidIndex(run)), typePVBscanRun);
    block->next = next;
    block.markDirty();
  }

  TestDatabase database{32, 16, kSectionSignals | kSectionScan | kSectionPatterns};
  int handle = database.handle();
  PVBid in, out, chain, half, vector;
  RowHandle row;
};

TEST_F(ScanRun, RunsAreAppendedAndTheRowGrowsToTheLongestChain) {
  const PVBid first = insert(RUN_INPUT, half);
  EXPECT_EQ(first, PVBidMake(kClassScanRun, 0));
  EXPECT_EQ(row->count, 2U);
  const PVBid second = insert(RUN_FEEDBACK, chain);
  EXPECT_EQ(row->count, 3U);
  const PVBid third = insert(RUN_INPUT, half);
  EXPECT_EQ(row->count, 3U);
  EXPECT_THAT(runs(), ElementsAre(first, second, third));
  EXPECT_EQ(static_cast<PVBid>(row->link), first);

  PVBscanRun fields;
  ASSERT_TRUE(PVBscanRunInq(handle, second, fields));
  EXPECT_EQ(fields.type, RUN_FEEDBACK);
  EXPECT_EQ(PVBinqChain(handle, second), chain);
  EXPECT_EQ(PVBinqStateVector(handle, second), vector);
  EXPECT_EQ(PVBscanRunNext(handle, second), third);
  EXPECT_EQ(PVBscanRunNext(handle, third), UNDEF);

  auto iterator = PVBcreateScanRunIterator(handle, *row);
  EXPECT_EQ(PVBscanRunIterCount(iterator), 3);
  EXPECT_EQ(PVBscanRunIterPosition(iterator), -1);
  EXPECT_EQ(PVBscanRunIterFirst(iterator), first);
  EXPECT_EQ(PVBscanRunIterNext(iterator), second);
  EXPECT_EQ(PVBscanRunIterPosition(iterator), 1);
  EXPECT_EQ(PVBscanRunIterNext(iterator), third);
  EXPECT_EQ(PVBscanRunIterNext(iterator), UNDEF);
  EXPECT_EQ(PVBscanRunIterNext(iterator), UNDEF);
}

TEST_F(ScanRun, InsertingChecksItsArguments) {
  const struct {
    std::uint32_t type;
    PVBid chain, state;
    std::int32_t status;
  } cases[] = {
      {RUN_INPUT, UNDEF, vector, kStatusNotInUse},
      {RUN_INPUT, chain, UNDEF, kStatusNotInUse},
      {RUN_INPUT, in, vector, kStatusWrongClass},
      {RUN_INPUT, PVBidMake(kClassScanChain, 99), vector, kStatusNotInUse},
      {RUN_FEEDBACK, half, vector, kStatusBadType},
      {3, chain, vector, kStatusBadType},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PVBscanRunInsert(handle, row.get(), c.type, c.chain, c.state), -1);
    EXPECT_EQ(takeStatus(), c.status);
  }
  EXPECT_EQ(PVBscanRunInsert(handle, nullptr, RUN_INPUT, chain, vector), -1);
  EXPECT_EQ(takeStatus(), kStatusNullPointer);
  row->type = ROW_LOOP;
  EXPECT_EQ(insert(RUN_INPUT, chain), -1);
  EXPECT_EQ(takeStatus(), kStatusBadType);
  EXPECT_EQ(runBlocks(), 0U);
}

TEST_F(ScanRun, ChangesAreCheckedLikeInsertions) {
  const PVBid run = insert(RUN_OUTPUT, chain);
  EXPECT_EQ(PVBscanRunSetChain(handle, run, half), -2);
  EXPECT_EQ(takeStatus(), kStatusBadType);
  EXPECT_EQ(PVBscanRunSetType(handle, run, RUN_INPUT), 0);
  EXPECT_EQ(PVBscanRunSetChain(handle, run, half), 0);
  EXPECT_EQ(PVBscanRunSetType(handle, run, RUN_OUTPUT), -2);
  EXPECT_EQ(PVBscanRunType(handle, run), RUN_INPUT);
  EXPECT_EQ(PVBscanRunChain(handle, run), half);
  EXPECT_EQ(PVBscanRunSetState(handle, run, chain), -2);
  EXPECT_EQ(takeStatus(), kStatusWrongClass);
  EXPECT_EQ(PVBscanRunType(handle, PVBidMake(kClassScanRun, 7)), -1);
  EXPECT_EQ(takeStatus(), kStatusNotInUse);
  EXPECT_EQ(PVBscanRunState(handle, vector), UNDEF);
  EXPECT_EQ(takeStatus(), kStatusWrongClass);
}

TEST_F(ScanRun, DeletingUnlinksAndFrees) {
  std::array<PVBid, 4> made{};
  for (PVBid& run : made) run = insert(RUN_INPUT, chain);
  RowHandle other = newRow();
  EXPECT_EQ(PVBscanRunDelete(handle, *other, made[0]), -2);
  EXPECT_EQ(takeStatus(), kStatusNotInUse);
  EXPECT_EQ(PVBscanRunDelete(handle, *row, made[1]), 0);
  EXPECT_THAT(runs(), ElementsAre(made[0], made[2], made[3]));
  EXPECT_EQ(PVBscanRunChain(handle, made[1]), UNDEF) << "a free block is no run";
  EXPECT_EQ(PVBscanRunDelete(handle, *row, made[0]), 0);
  EXPECT_EQ(PVBscanRunDelete(handle, *row, made[3]), 0);
  EXPECT_THAT(runs(), ElementsAre(made[2]));
  EXPECT_EQ(runBlocks(), 1U);

  EXPECT_EQ(PVBscanRunsCopy(handle, *other, *row), 0);
  EXPECT_EQ(PVBscanRunsCopy(handle, *other, *row), -2) << "it has runs now";
  EXPECT_EQ(PVBscanRunsFree(handle, *row), 0);
  EXPECT_EQ(row->link, kNoLink);
  EXPECT_EQ(runBlocks(), 1U) << "the copy has blocks of its own";
  EXPECT_EQ(PVBscanRunsFree(handle, *other), 0);
  EXPECT_EQ(runBlocks(), 0U);
}

TEST_F(ScanRun, DamagedLinksEnd) {
  const PVBid first = insert(RUN_INPUT, chain);
  const PVBid second = insert(RUN_INPUT, chain);
  row->count = 3;
  for (const PVBid next : {first, second, PVBidMake(kClassScanRun, 500)}) {
    setNext(second, next);
    PVBclearStatus(handle);
    EXPECT_THAT(runs(), ElementsAre(first, second));
    EXPECT_NE(takeStatus(), kStatusOk);
    EXPECT_EQ(insert(RUN_INPUT, chain), -1);
    EXPECT_EQ(PVBscanFillStates(handle, *row, 0), -2);
    RowHandle other = newRow();
    EXPECT_EQ(PVBscanRunsCopy(handle, *other, *row), -2);
    EXPECT_EQ(other->link, kNoLink);
    EXPECT_EQ(runBlocks(), 2U);
  }
  EXPECT_EQ(PVBscanRunsFree(handle, *row), -2);
  EXPECT_EQ(runBlocks(), 0U);
  PBdiscardErrors();
}

TEST_F(ScanRun, StatesAreFilledFromTheLastCellOn) {
  const auto inColumn = PVBobjectInqByID(handle, in)->inColumn;
  const auto outColumn = PVBobjectInqByID(handle, out)->outColumn;
  const PVBidList cells = PVBobjectInqByID(handle, chain)->members;
  const int codes[] = {1, 2, 3};  // from the chain's input to its output
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(PVBstateVectorSet(handle, vector, static_cast<std::uint32_t>(PVBidIndex(cells[i])),
                                codes[i]),
              0);
  }
  const auto filled = [&](std::uint32_t cycle) {
    setRowCode(row->states(), inColumn, 4);
    setRowCode(row->states(), outColumn, 4);
    EXPECT_EQ(PVBscanFillStates(handle, *row, cycle), 0);
    return std::pair(rowCode(row->states(), inColumn), rowCode(row->states(), outColumn));
  };
  const PVBid run = insert(RUN_FEEDBACK, chain);
  row->count = 4;
  EXPECT_EQ(filled(0), std::pair(3, 3));
  EXPECT_EQ(filled(2), std::pair(1, 1));
  EXPECT_EQ(filled(3), std::pair(4, 4)) << "behind the chain's end";
  EXPECT_EQ(PVBscanFillStates(handle, *row, 4), -2);
  EXPECT_EQ(takeStatus(), kStatusScanCycle);
  PVBscanRunSetType(handle, run, RUN_INPUT);
  EXPECT_EQ(filled(1), std::pair(2, 4));
  PVBscanRunSetType(handle, run, RUN_OUTPUT);
  EXPECT_EQ(filled(1), std::pair(4, 2));
  PVBscanClearStates(handle, *row);
  EXPECT_EQ(rowCode(row->states(), inColumn), 4);
  EXPECT_EQ(rowCode(row->states(), outColumn), 0);
  PVBstateVectorDelete(handle, vector);
  EXPECT_EQ(PVBscanFillStates(handle, *row, 0), -2);
  EXPECT_EQ(takeStatus(), kStatusNotInUse);
}

}  // namespace
