// Copies of damaged databases and copies that fail half-way; what is removed from disk.

#include "conditioner/copy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "base/errors.h"
#include "base/platform.h"
#include "base/progress.h"
#include "base/temp_directory.h"
#include "conditioner/concat.h"
#include "conditioner/run.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"
#include "support/untouched.h"

namespace {

using testing::HasSubstr;

// A check that failed ends the run; here it ends the operation.
struct RunEnded {};

class CopyDatabase : public testing::Test {
 protected:
  CopyDatabase() {
    std::filesystem::create_directory(dir_.path("tmp"));
    PBsetTempDirectory(dir_.path("tmp"));
    run.reportFile = openStream(dir_.path("report"), "w");
    run.reportStream = run.reportFile.get();
    PBprogressEnable(false);
    hook_ = std::exchange(PBassertFail, [](const char*, int) { throw RunEnded(); });
    PVBregionInit(src_, "src", dir_.path("src"), TIME_ZERO, TIME_MAX);
    PVBregionInit(dest_, "dest", dir_.path("dest"), TIME_ZERO, TIME_MAX);
    buildSource();
  }
  ~CopyDatabase() override {
    PBassertFail = hook_;
    PBprogressEnable(true);
    run.reportStream = nullptr;
    run.reportFile.reset();
    PBsetTempDirectory("");
    PBdiscardErrors();
    PBerrClear();
  }

  // A row; a loop around one; a call of a subroutine with a row.
  void buildSource() {
    const int db = PVBopenAny(src_.pvbName, true, 0, 8, kAllSections, false);
    auto signal = PVBsignalNew();
    signal->name = "s";
    signal->direction = INPUT;
    const PVBid s = PVBsignalAdd(db, std::move(signal));
    auto plate = PVBtimePlateNew();
    plate->name = "tp";
    plate->period = {10, 0};
    PVBallocAsNecessary(*plate, 0);
    PVBlistInsert(*plate, 0, s);
    PVBallocLevelAsNecessary(*plate, 0, 0, -1, TIME_ZERO, 'S', 1);
    PVBtrackSetDirection(*plate, 0, INPUT);
    PVBtimePlateInsert(db, std::move(plate));
    const int subroutine = PVBsubroutineNew(db, "init");
    addRow(db, kMainPattern, 0, ROW_LITERAL);
    addRow(db, kMainPattern, 1, ROW_LOOP);
    addRow(db, kMainPattern, 2, ROW_LITERAL);
    addRow(db, kMainPattern, 4, ROW_SUBR_CALL, static_cast<std::uint32_t>(subroutine));
    addRow(db, subroutine, 0, ROW_LITERAL);
    ASSERT_EQ(PVBsave(db), 0);
    ASSERT_EQ(PVBclose(db), 0);
  }
  static void addRow(int db, int pattern, std::uint32_t number, RowType type,
                     std::uint32_t link = kNoLink) {
    const RowHandle row(db, PVBpatternNew(db));
    row->type = type;
    row->link = link;
    if (type == ROW_LITERAL) row->timeplate = 0;
    PVBposition position;
    position.row = number;
    ASSERT_GE(PVBrowInsert(db, pattern, position, BY_ROW, *row), 0);
  }

  // Changes the block of a row of the source and nothing else.
  void damage(int pattern, std::uint32_t number, const std::function<void(PVBrow&)>& change) {
    const int db = PVBopenAny(src_.pvbName, true, 0, 8, kAllSections, false);
    PVBposition position;
    position.row = number;
    RowHandle row(db, PVBpatternInqRow(db, pattern, position, BY_ROW));
    ASSERT_TRUE(row);
    change(*row);
    PVBrowDirty(db, *row);
    row.reset();
    ASSERT_EQ(PVBclose(db), 0);
  }

  // The operation's result, -1 when it ended the run; all is closed as the run's end does.
  int result(const std::function<int()>& operation) {
    int result = -1;
    try {
      result = operation();
    } catch (const RunEnded&) {
    }
    for (int db = 0; db < MAXPVB; ++db) {
      if (PVBget(db) != nullptr) PVBcloseUnsaved(db);
    }
    src_.sigIDMap.clear();
    src_.sheets.reset();
    dest_.sigIDMap.clear();
    return result;
  }
  std::string errors() const {
    const StreamPtr stream = openStream(dir_.path("errors"), "w");
    PBerrPrint(stream.get());
    std::fflush(stream.get());
    return dir_.read("errors");
  }
  // Walks what can be walked of the destination, whatever its state.
  void readDestination() const {
    if (!PVBexists(dest_.pvbName)) return;
    const int db = PVBopenAny(dest_.pvbName, false, 0, 8, kAllSections, false);
    if (db < 0) return;
    PatternWalk walk(db, kMainPattern);
    while (walk.next()) RowHandle(db, PVBrowGet(db, walk.entry().child));
    PVBcloseUnsaved(db);
  }
  std::size_t temporaryFiles() const {
    const std::filesystem::directory_iterator files(dir_.path("tmp"));
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }

  TempDir dir_;
  PVBregion src_;
  PVBregion dest_;
  AssertHook hook_;
};

TEST_F(CopyDatabase, RowsThatReferToNothingAreToldByNumber) {
  struct Case {
    int pattern;
    std::uint32_t row;
    std::function<void(PVBrow&)> change;
    const char* message;
  };
  const Case cases[] = {
      {kMainPattern, 2, [](PVBrow& row) { row.timeplate = 77; },
       "row 2: it has a timeplate that isn't there"},
      {0, 0, [](PVBrow& row) { row.timeplate = 77; }, "row 0: it has a timeplate that isn't there"},
      {kMainPattern, 4, [](PVBrow& row) { row.link = 55; }, "subroutine '55' not found"},
      {kMainPattern, 3, [](PVBrow& row) { row.type = ROW_LITERAL; },
       "row 3: a loop and its end row don't match"},
      {kMainPattern, 2, [](PVBrow& row) { row.type = ROW_END_LOOP; },
       "row 2: a loop and its end row don't match"},
      {0, 0, [](PVBrow& row) { row.type = ROW_LOOP; }, "row 0: it can't be read"},
  };
  for (const Case& damaged : cases) {
    SCOPED_TRACE(damaged.message);
    std::filesystem::remove_all(src_.pvbName);
    buildSource();
    damage(damaged.pattern, damaged.row, damaged.change);
    const Untouched untouched(src_.pvbName);
    EXPECT_EQ(result([&] { return copy(dest_, src_, true); }), -2);
    EXPECT_THAT(errors(), HasSubstr("concatRow: concat of PVB (" + src_.pvbName + ") failed -- " +
                                    damaged.message));
    EXPECT_FALSE(structuresAllowed);
    PBerrClear();
  }
}

// A source whose subroutine calls itself ends, and so does its copy.
TEST_F(CopyDatabase, ASubroutineThatCallsItselfIsCopiedOnce) {
  const int db = PVBopenAny(src_.pvbName, true, 0, 8, kAllSections, false);
  addRow(db, 0, 0, ROW_SUBR_CALL, 0);
  ASSERT_EQ(PVBclose(db), 0);
  EXPECT_EQ(result([&] { return copy(dest_, src_, true); }), 0);
  const int copied = PVBopenAny(dest_.pvbName, false, 0, 8, kAllSections, false);
  PVBposition sums;
  EXPECT_EQ(PVBpatternInqSize(copied, 0, sums), 0);
  EXPECT_EQ(sums.row, 2U);
  EXPECT_EQ(PVBsubroutineInq(copied, 1), nullptr);
  PVBcloseUnsaved(copied);
}

TEST_F(CopyDatabase, AFailureAnywhereLeavesTheSourceAndNothingOpen) {
  // Concatenating makes most calls of a copy again: samples of it will do.
  struct Case {
    std::function<int()> operation;
    int stride;
  };
  const Case cases[] = {
      {[&] { return copy(dest_, src_, true); }, 1},
      {[&] { return concat(dest_, src_, src_, kAppend); }, 13},
      {[&] { return concat(dest_, src_, src_, kPrepend); }, 13},
  };
  for (const Case& tried : cases) {
    bool failed = true;
    for (int n = 1; failed; n += tried.stride) {
      SCOPED_TRACE(n);
      const Untouched untouched(src_.pvbName);
      std::filesystem::remove_all(dest_.pvbName);
      {
        FaultPlatform faults;
        faults.failFileCall(n);
        const int outcome = result(tried.operation);
        failed = faults.failed();
        EXPECT_TRUE(failed || outcome == 0);
      }
      PBerrClear();
      PBdiscardErrors();
      readDestination();
      PBerrClear();
      PBdiscardErrors();
      ASSERT_FALSE(structuresAllowed);
    }
    EXPECT_TRUE(PVBexists(dest_.pvbName));
  }
}

TEST_F(CopyDatabase, WhatAFailedRunLeftIsNoPartOfTheNext) {
  ASSERT_EQ(result([&] { return copy(dest_, src_, true); }), 0);
  const std::string whole = dir_.read("dest/pvb.pd");
  std::filesystem::remove(dir_.path("dest/pvb.h"));
  ASSERT_EQ(result([&] { return copy(dest_, src_, true); }), 0);
  EXPECT_EQ(dir_.read("dest/pvb.pd"), whole);
  EXPECT_EQ(temporaryFiles(), 0U);
}

TEST_F(CopyDatabase, DeletingFollowsNoLinks) {
  namespace fs = std::filesystem;
  fs::create_directories(dir_.path("src/deep/deeper"));
  fs::create_directory(dir_.path("outside"));
  dir_.write("outside/kept", "kept");
  dir_.write("src/deep/deeper/file", "gone");
  fs::create_directory_symlink(dir_.path("outside"), dir_.path("src/deep/link"));
  EXPECT_EQ(deleteObject(src_), 0);
  EXPECT_FALSE(fs::exists(src_.pvbName));
  EXPECT_EQ(dir_.read("outside/kept"), "kept");
  EXPECT_EQ(deleteObject(src_), 0);  // what isn't there is no failure
}

TEST_F(CopyDatabase, ADeletionThatFailsIsTold) {
  FaultPlatform faults;
  faults.failFileCall(3, EACCES);
  EXPECT_EQ(deleteObject(src_), -2);
  EXPECT_EQ(PBerrCount(), 1);
}

}  // namespace
