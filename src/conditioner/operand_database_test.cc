// Passes over a database in place that are killed, or fail, at any file call: the database is
// the old or the new one, and what is left doesn't stop the next run.

#include "conditioner/operand_database.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "base/errors.h"
#include "base/platform.h"
#include "base/progress.h"
#include "base/temp_directory.h"
#include "conditioner/add_compression.h"
#include "conditioner/annotate.h"
#include "conditioner/flatten.h"
#include "conditioner/run.h"
#include "pvb/annotate.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/property.h"
#include "pvb/timeplate.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"
#include "timeplate/rename_settings.h"
#include "timeplate/timeplate_rename.h"

namespace {

namespace fs = std::filesystem;

struct Pass {
  int (*run)(const PVBregion& source);
  const char* result;
};
// What `content` says: name of the timeplate, count and comments of each row.
constexpr const char* kBefore = "tp 2:1 2:1 ";
constexpr Pass kPasses[] = {
    {[](const PVBregion& source) { return flatten(source, nullptr); }, "tp 1:1 1:1 1:1 1:1 "},
    {[](const PVBregion& source) { return AddCompression(nullptr, source, 1, "RPT", "LOOP"); },
     "tp 4:1 4:1 "},
    {[](const PVBregion& source) { return annotateVectors(&source, nullptr); }, "tp 2:2 2:2 "},
    {[](const PVBregion& source) {
       return timeplateRename(source.pvbName, std::nullopt, run.reportStream);
     },
     "new0 2:1 2:1 "},
};

// Exit codes of a pass.
constexpr int kFailed = 2;
constexpr int kTolerated = 3;  // done, though a call failed
constexpr int kCrashed = 255;

class PassInPlace : public testing::Test {
 protected:
  PassInPlace() {
    fs::create_directory(dir_.path("tmp"));
    PBsetTempDirectory(dir_.path("tmp"));
    PBprogressEnable(false);
    run.reportFile = openStream("/dev/null", "w");
    run.reportStream = run.reportFile.get();
    tpRenameSettings.tpRenamePrefix = "new";
    build(dir_.path("whole"));
    dir_.write("whole/notes.txt", "mine");
  }
  ~PassInPlace() override {
    tpRenameSettings = {};
    run.reportStream = nullptr;
    run.reportFile.reset();
    PBprogressEnable(true);
    PBsetTempDirectory("");
    PBdiscardErrors();
    PBerrClear();
  }

  static void build(const std::string& path) {
    const int db = PVBopenAny(path, true, 0, 8, kAllSections, false);
    auto plate = PVBtimePlateNew();
    plate->name = "tp";
    plate->period = {10, 0};
    PVBtimePlateInsert(db, std::move(plate));
    for (std::uint32_t i = 0; i < 2; ++i) {
      RowHandle row(db, PVBpatternNew(db));
      row->timeplate = 0;
      row->count = 2;
      row->tag = PVBpropListNew(db);
      ASSERT_EQ(PVBputProp(db, row->tag, {kCommentProperty, "RPT 4"}), 0);
      PVBposition position;
      position.row = i;
      ASSERT_GE(PVBrowInsert(db, kMainPattern, position, BY_ROW, *row), 0);
    }
    ASSERT_EQ(PVBsave(db), 0);
    ASSERT_EQ(PVBclose(db), 0);
  }

  void restore() const {
    for (const char* name : {"A", "A.working", "A_old"}) fs::remove_all(dir_.path(name));
    fs::copy(dir_.path("whole"), dir_.path("A"), fs::copy_options::recursive);
  }

  // The pass in a process of its own that dies at its n-th file call, or where that call
  // fails, 0 for never: its exit code.
  int pass(const Pass& pass, int n, bool dies = true) const {
    const pid_t child = fork();
    if (child == 0) {
      if (std::freopen("/dev/null", "w", stderr) == nullptr) ::_exit(kCrashed);
      FaultPlatform faults;
      if (n > 0 && dies) faults.dieAtFileCall(n);
      if (n > 0 && !dies) faults.failFileCall(n);
      PVBregion source;
      PVBregionInit(source, "A", dir_.path("A"), TIME_ZERO, TIME_MAX);
      const int result = pass.run(source);
      ::_exit(result != 0 ? kFailed : faults.failed() ? kTolerated : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kCrashed;
  }

  std::string content() const {
    const int db = PVBopenAny(dir_.path("A"), false, 0, 8, kAllSections, false);
    if (db < 0) return "can't be opened";
    const PVBtimePlate* plate = PVBtimePlateInqByID(db, 0);
    std::string text = (plate != nullptr ? plate->name.value_or("") : "none") + " ";
    PVBposition sums;
    PVBpatternInqSize(db, kMainPattern, sums);
    for (std::uint32_t i = 0; i < sums.row; ++i) {
      PVBposition position;
      position.row = i;
      const RowHandle row(db, PVBpatternInqRow(db, kMainPattern, position, BY_ROW));
      text += row ? fmt::format("{}:{} ", row->count, comments(db, *row)) : "damaged ";
    }
    PVBcloseUnsaved(db);
    return text;
  }
  static int comments(int db, const PVBrow& row) {
    int count = 0;
    if (row.tag == UNDEF) return count;
    const PVBproperty* comment = PVBpropInqFirstKey(db, row.tag, kCommentProperty);
    for (; comment != nullptr; comment = PVBpropInqNextKey(db, kCommentProperty)) ++count;
    return count;
  }

  int fileCalls(const Pass& each) const {
    restore();
    FaultPlatform faults;
    PVBregion source;
    PVBregionInit(source, "A", dir_.path("A"), TIME_ZERO, TIME_MAX);
    EXPECT_EQ(each.run(source), 0);
    return faults.fileCalls();
  }

  // Dies or fails at a call; whether there was none so late.
  bool endsAt(const Pass& each, int n, bool dies) {
    SCOPED_TRACE(testing::Message() << each.result << n << " dies: " << dies);
    restore();
    const int code = pass(each, n, dies);
    if (code == 0) return true;
    EXPECT_TRUE(dies ? code == FaultPlatform::kDeathCode : code != kCrashed) << code;
    const std::string now = content();
    EXPECT_TRUE(code != kTolerated || now == each.result);
    EXPECT_EQ(dir_.read("A/notes.txt"), "mine");
    seen_.insert(now);
    if (now == kBefore && n % 2 == 0) {
      EXPECT_EQ(pass(each, 0), 0);
      EXPECT_EQ(content(), each.result);
      EXPECT_EQ(dir_.read("A/notes.txt"), "mine");
      EXPECT_FALSE(fs::exists(dir_.path("A.working")));
    }
    return false;
  }

  TempDir dir_;
  std::set<std::string> seen_;  // contents
};

// The file calls before the database is touched are many, and one much like the other.
constexpr int kStride = 120;
constexpr int kLastCalls = 14;

TEST_F(PassInPlace, KilledOrFailingAnywhereTheDatabaseIsOldOrNewAndTheNextRunSucceeds) {
  for (const Pass& each : kPasses) {
    seen_.clear();
    const int last = fileCalls(each) - kLastCalls;
    for (int n = 1; n < last; n += kStride) EXPECT_FALSE(endsAt(each, n, n == 1 || n % 7 != 0));
    for (int n = last; !endsAt(each, n, true); ++n) {
    }
    EXPECT_THAT(seen_, testing::UnorderedElementsAre(each.result, kBefore));
  }
}

TEST_F(PassInPlace, WhatIsWrongIsToldOfTheDatabaseItself) {
  restore();
  fs::resize_file(dir_.path("A/pvb.tp"), 9);
  PVBregion source;
  PVBregionInit(source, "A", dir_.path("A"), TIME_ZERO, TIME_MAX);
  EXPECT_EQ(flatten(source, nullptr), -2);
  ASSERT_GT(PBerrorCount(), 0);
  std::string posted;
  for (int i = 0; i < PBerrorCount(); ++i) posted += PBformatError(i, 1000) + "\n";
  EXPECT_THAT(posted, testing::HasSubstr(dir_.path("A/pvb.tp")));
  EXPECT_THAT(posted, testing::Not(testing::HasSubstr(".working")));
  EXPECT_FALSE(fs::exists(dir_.path("A.working")));
}

}  // namespace
