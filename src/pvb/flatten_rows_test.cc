#include "pvb/flatten_rows.h"

#include <gtest/gtest.h>

#include "base/errors.h"
#include "pvb/pattern.h"
#include "support/database.h"
#include "support/fault_platform.h"

namespace {

constexpr std::uint32_t kRows = 40;
constexpr std::uint32_t kCount = 20;

// Few buffers, so that rows are read and written on the way.
class FlattenRows : public testing::Test {
 protected:
  FlattenRows() : database_(32, 4, kSectionProperties | kSectionPatterns | kSectionTimePlates) {
    PVBposition end;
    for (end.row = 0; end.row < kRows; ++end.row) {
      PVBposition place = end;
      const RowHandle row(db(), PVBpatternNew(db()));
      row->count = kCount;
      EXPECT_GE(PVBrowInsert(db(), kMainPattern, place, BY_ROW, *row), 0);
    }
  }
  ~FlattenRows() override { PBdiscardErrors(); }

  int db() const { return database_.handle(); }
  // How many there are; 0 when one of them can't be read.
  std::uint32_t readRows() const {
    std::uint32_t rows = 0;
    PatternWalk walk(db(), kMainPattern);
    for (; walk.next(); ++rows) {
      if (!RowHandle(db(), PVBrowGet(db(), walk.entry().child))) return 0;
    }
    return walk.failed() ? 0 : rows;
  }

  TestDatabase database_;
};

TEST_F(FlattenRows, WhatHasNoRoomOnTheDiskIsNotBegun) {
  FaultPlatform disk;
  disk.setDiskSpace(20000);
  EXPECT_EQ(flattenRows(db(), kMainPattern), -2);
  EXPECT_EQ(readRows(), kRows);
  disk.freeDiskSpace();
  EXPECT_EQ(flattenRows(db(), kMainPattern), 0);
  EXPECT_EQ(readRows(), kRows * kCount);
}

TEST_F(FlattenRows, AFailureLeavesThePatternAsItWas) {
  for (int n = 1;; ++n) {
    SCOPED_TRACE(n);
    FaultPlatform faults;
    faults.failFileCall(n);
    const int result = flattenRows(db(), kMainPattern);
    const bool failed = faults.failed();
    faults.failFileCall(0);
    EXPECT_EQ(readRows(), result == 0 ? kRows * kCount : kRows);
    EXPECT_TRUE(result == 0 || failed);
    PBdiscardErrors();
    if (result == 0) break;
  }
}

}  // namespace
