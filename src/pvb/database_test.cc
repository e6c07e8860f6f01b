#include "pvb/database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "base/errors.h"
#include "pvb/label.h"
#include "pvb/message_store.h"
#include "pvb/pattern.h"
#include "pvb/pin.h"
#include "pvb/property.h"
#include "pvb/signal.h"
#include "pvb/state_vector.h"
#include "pvb/timeplate.h"
#include "support/big_endian.h"
#include "support/database.h"
#include "support/fault_platform.h"

namespace {

using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

constexpr std::uint32_t kNone = 0xFFFFFFFF;

std::string goodHeader(std::uint32_t version, std::uint32_t host = 11) {
  return words({version, host, kNone, 64, 1, 2, 3, 4, kNone});
}

// The newest post, formatted.
std::string lastPost() {
  const std::string line = PBformatError(PBerrorCount() - 1, 500);
  PBdiscardErrors();
  return line;
}

class DatabaseFiles : public ::testing::Test {
 protected:
  void write(const std::string& name, const std::string& content) {
    std::filesystem::create_directories(dir.path("db"));
    dir.write("db/" + name, content);
  }
  std::string path() const { return dir.path("db"); }

  TempDir dir;
};

// --- Header --------------------------------------------------------------------------

TEST(Database, WritesItsHeaderAtClose) {
  TestDatabase database(40);
  database.slot().header.counts = {0, 1, 2, 3};
  const auto root = static_cast<std::uint32_t>(database.slot().header.mainRoot);
  EXPECT_EQ(root, 0U);
  database.close();
  EXPECT_EQ(database.files()["pvb.h"], words({501, 11, root, 40, 0, 1, 2, 3, kNone}));
}

TEST_F(DatabaseFiles, HeadersAreJudgedByVersionAndHost) {
  const struct {
    std::string bytes;
    int result;        // of PVBopen with nothing loaded: 0 opens
    std::string post;  // of a refusal
  } cases[] = {
      {goodHeader(501), 0, ""},
      {goodHeader(501).substr(0, 20), 0, ""},  // counts missing: unchecked
      {goodHeader(1501), -1, "The data model in this database is not supported."},
      {goodHeader(502), -1, "created by a more recent software version and cannot be read."},
      {goodHeader(500), -1, "The version of the PVB is no longer supported. Please recreate it."},
      {goodHeader(501, 7), -1, "Incompatible host type"},
      {goodHeader(501).substr(0, 15), -1, "pvb.h"},
      {words({501, 11, kNone, 0x7FFFFFFF, 0, 0, 0, 0, kNone}), -1, "pvb.h"},
  };
  for (const auto& row : cases) {
    write("pvb.h", row.bytes);
    const Untouched untouched(path());
    const int database = PVBopen(path(), false, 0, 4, 0);
    EXPECT_EQ(database, row.result) << row.post;
    EXPECT_THAT(lastPost(), HasSubstr(row.post));
    if (database >= 0) PVBcloseUnsaved(database);
  }
  write("pvb.h", goodHeader(1200));
  EXPECT_EQ(PVBopenAny(path(), false, 0, 4, 0, false), -1);
  EXPECT_THAT(lastPost(), HasSubstr("The version of the SDB is no longer supported."));
  write("pvb.h", goodHeader(1501));
  const int extended = PVBopenAny(path(), false, 0, 4, 0, false);
  ASSERT_GE(extended, 0);
  EXPECT_TRUE(PVBmodelExtended(extended, true));
  PVBcloseUnsaved(extended);

  // And without opening.
  write("pvb.h", goodHeader(1501, 9));
  bool isExtended = false;
  std::int32_t host = 0;
  EXPECT_EQ(PVBcheckHeaderModel(path(), isExtended, host), 0);
  EXPECT_TRUE(isExtended);
  EXPECT_EQ(host, 9);
  EXPECT_EQ(PVBversionOf(path()), 1501);
  EXPECT_EQ(PVBversionOf(dir.path("none")), -2);
  write("pvb.h", "abc");
  EXPECT_EQ(PVBversionOf(path()), -1);
  PBdiscardErrors();
}

// --- Slots ---------------------------------------------------------------------------

TEST_F(DatabaseFiles, SixteenSlotsAreSharedByPath) {
  std::vector<int> open;
  for (int i = 0; i < MAXPVB; ++i) {
    open.push_back(PVBopen(dir.path(std::to_string(i)), true, 0, 4, 0));
    EXPECT_EQ(open.back(), i);
  }
  EXPECT_EQ(PVBopen(dir.path("3"), true, 0, 4, 0), 3);
  EXPECT_EQ(PVBopen(dir.path("one more"), true, 0, 4, 0), -1);
  EXPECT_THAT(lastPost(), HasSubstr("Maximum number of open PVBs (MAXPVB) exceeded."));
  EXPECT_EQ(PVBclose(16), -2);
  EXPECT_EQ(PVBclose(-1), -2);
  EXPECT_EQ(PVBclose(3), 0);
  EXPECT_EQ(PVBopen(dir.path("one more"), true, 0, 4, 0), 3);
  EXPECT_EQ(PVBcloseAll(), 0);
  EXPECT_EQ(PVBclose(0), -2);
}

TEST(Database, KeepsTheStatusOfItsLastFailureAndSummarisesItsCheck) {
  TestDatabase database;
  const char* text = nullptr;
  PVBsetStatus(database.handle(), kStatusNameTaken);
  EXPECT_EQ(PVBinqStatus(database.handle(), text), 7);
  EXPECT_STREQ(text, "Name is not unique within the name space");
  PVBsetStatus(database.handle(), 77);
  EXPECT_EQ(PVBinqStatus(database.handle(), text), 21);
  EXPECT_STREQ(text, "INTERNAL ERROR: Error table out of date");
  EXPECT_STREQ(PVBcheckSummary(database.handle()), "PVBCHECKER utility has not been run\n");
  PVBstatus& counts = *PVBcheckCounts(database.handle());
  counts = {0, 0, 0, 0};
  EXPECT_STREQ(PVBcheckSummary(database.handle()), "no errors or warnings");
  counts = {-1, 1, 0, 0};
  EXPECT_STREQ(PVBcheckSummary(database.handle()),
               "1 error in timing\nno warnings in timing\npatterns have not been checked\n");
  counts = {2, 0, -3, 1};
  EXPECT_STREQ(PVBcheckSummary(database.handle()),
               "no errors in timing\n1 warning in timing\n2 errors in patterns\n"
               "unknown number of warnings in patterns\n");
}

// --- Content -------------------------------------------------------------------------

// Something in every section: rows with a property, a signal, a pin and so on.
void fill(int database, int rows, const std::string& name = "CLK") {
  auto signal = PVBsignalNew();
  signal->name = name;
  signal->direction = INPUT;
  ASSERT_GT(PVBsignalAdd(database, std::move(signal)), 0);
  auto plate = PVBtimePlateNew();
  plate->name = "tp " + name;
  plate->period = PBlongToTIME(1000000);
  ASSERT_GE(PVBtimePlateInsert(database, std::move(plate)), 0);
  for (int i = 0; i < rows; ++i) {
    RowHandle row(database, PVBpatternNew(database));
    ASSERT_TRUE(row);
    row->timeplate = 0;
    if (i == 0) {
      row->tag = PVBpropListNew(database);
      ASSERT_EQ(PVBputProp(database, row->tag, {7, "comment"}), 0);
    }
    PVBposition end;
    end.row = static_cast<std::uint32_t>(i);
    ASSERT_GE(PVBrowInsert(database, kMainPattern, end, BY_ROW, *row), 0);
  }
  auto pin = PVBpinNew();
  pin->name = name;
  ASSERT_GT(PVBatePinInsert(database, std::move(pin)), 0);
  ASSERT_NE(PVBstateVectorNew(database, name), UNDEF);
  ASSERT_EQ(PVBmessageHeadingAdd(database, 7, name, name, 2, 2), 0);
  ASSERT_EQ(PVBmessageAdd(database, {{8, 5, name}}), 0);
  ASSERT_EQ(PVBlabelAdd(database, -1, "start", kLabelPlain, 0), 0);
}

// Whether all is there that was filled in; rows are read when they are asked for.
bool filled(int database, const std::string& name = "CLK") {
  return PVBsignalInqByName(database, name) != nullptr &&
         PVBtimePlateInqByName(database, "tp " + name) != nullptr &&
         PVBatePinInqByName(database, name) != nullptr &&
         PVBstateVectorByName(database, name) != UNDEF && PVBmessages(database).size() == 1 &&
         PVBlabels(database).size() == 1;
}

std::uint32_t rowCount(int database) {
  PVBposition sums;
  EXPECT_EQ(PVBpatternInqSize(database, kMainPattern, sums), 0);
  return sums.row;
}

TEST(Database, AFreshOneHasAllFilesAfterASave) {
  TestDatabase database;
  EXPECT_EQ(PVBsave(database.handle()), 0);
  std::vector<std::string> names;
  for (const auto& [name, content] : database.files()) names.push_back(name);
  EXPECT_THAT(names, UnorderedElementsAre("pvb.h", "pvb.l", "pvb.v", "pvb.p", "pvb.s", "pvb.tp",
                                          "pvb.rd", "pvb.ps", "pvb.pk", "pvb.pd", "pvb.m", "pvb.mt",
                                          "pvb.st", "pvb.lb"));
  EXPECT_EQ(database.files()["pvb.lb"], "LABEL 2 0\n");
  EXPECT_EQ(database.files()["pvb.rd"].size(), 32U);
}

TEST(Database, ClosingWritesAndReadingChangesNoFile) {
  TestDatabase database;
  fill(database.handle(), 120);
  database.close();
  const auto before = database.files();
  ASSERT_TRUE(database.open(false));
  EXPECT_EQ(rowCount(database.handle()), 120U);
  EXPECT_TRUE(filled(database.handle()));
  EXPECT_EQ(database.temporaryFiles(), 0U);
  // What a run does with a source, changes of its private copies included.
  fill(database.handle(), 3, "more");
  EXPECT_EQ(PVBpatternWidenRows(database.handle(), 64), 0);
  PVBposition first;
  EXPECT_EQ(PVBpatternDeleteRow(database.handle(), kMainPattern, first, BY_ROW), 0);
  EXPECT_EQ(PVBsave(database.handle()), -2);
  database.close();
  EXPECT_TRUE(database.files() == before);
  EXPECT_EQ(database.temporaryFiles(), 0U);
  PBdiscardErrors();
}

TEST(Database, WhereAChangeOfASourceFailsTheSourceStays) {
  TestDatabase database;
  fill(database.handle(), 40);
  database.close();
  const Untouched untouched(database.path());
  failEachFileCall([&](FaultPlatform& faults) {
    testing::internal::CaptureStderr();
    const int source = PVBopenAny(database.path(), false, 32, 4, kAllSections, false);
    PBflushErrors();
    PBerrPrint(stderr);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(source >= 0 ? filled(source) : !said.empty());
    PVBposition first;
    const bool changed = source >= 0 &&
                         PVBputProp(source, PVBpropListNew(source), {7, "more"}) == 0 &&
                         PVBpatternDeleteRow(source, kMainPattern, first, BY_ROW) == 0 &&
                         PVBpatternWidenRows(source, 900) == 0;
    const bool failed = faults.stop();
    EXPECT_TRUE(failed || (changed && rowCount(source) == 39U));
    if (source >= 0) PVBcloseUnsaved(source);
    PBdiscardErrors();
    PBerrClear();
  });
  EXPECT_EQ(database.open(false), true);
  EXPECT_EQ(rowCount(database.handle()), 40U);
}

TEST(Database, IsSavedUnderAnotherPath) {
  TestDatabase database;
  fill(database.handle(), 60);
  std::ofstream(database.path() + "/pvb.sdb") << "equations";
  const std::string other = database.directory().path("other");
  EXPECT_EQ(PVBsaveAs(database.handle(), other), 0);
  EXPECT_EQ(database.directory().read("other/pvb.sdb"), "equations");
  const Untouched untouched(other);
  const int copy = PVBopen(other, false, 0, 8, kAllSections);
  ASSERT_GE(copy, 0);
  EXPECT_EQ(rowCount(copy), 60U);
  EXPECT_TRUE(filled(copy));
  PVBclose(copy);
}

TEST(Database, ReloadingForgetsUnsavedTextAndDemotingLeavesItAsItIs) {
  TestDatabase database;
  fill(database.handle(), 10);
  EXPECT_EQ(PVBsave(database.handle()), 0);
  PVBsignalDelete(database.handle(), PVBsignalInqByName(database.handle(), "CLK")->id);
  EXPECT_EQ(PVBreload(database.handle()), 0);
  EXPECT_TRUE(filled(database.handle()));
  EXPECT_EQ(rowCount(database.handle()), 10U);
  const int copy = PVBdemote(database.handle());
  ASSERT_GE(copy, 0);
  EXPECT_NE(PVBsignalInqByName(copy, "CLK"), nullptr);
  EXPECT_EQ(rowCount(database.handle()), 10U);
  EXPECT_EQ(PVBdiscard(copy), 0);
}

// --- Directories ---------------------------------------------------------------------

TEST_F(DatabaseFiles, CopyTakesAllButTheLock) {
  for (const char* name : {"pvb.h", "pvb.s", "pvb.lock", "pvb.pmp", "hist.srf", "other.txt"}) {
    write(name, name);
  }
  EXPECT_EQ(PVBcopy(dir.path("copy"), path()), 0);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path("copy"))) {
    names.push_back(entry.path().filename().string());
  }
  EXPECT_THAT(names, UnorderedElementsAre("pvb.h", "pvb.s", "pvb.pmp", "hist.srf"));
}

TEST_F(DatabaseFiles, DeleteSparesOpenOnesAndStrangersFiles) {
  write("pvb.h", goodHeader(501));
  write("pvb.SEini", "editor");
  const int database = PVBopen(path(), false, 0, 4, 0);
  EXPECT_EQ(PVBdelete(path(), true), -2);
  EXPECT_TRUE(PVBexists(path()));
  PVBcloseUnsaved(database);
  EXPECT_EQ(PVBdelete(path(), false), 0);
  EXPECT_FALSE(PVBexists(path()));
  EXPECT_EQ(dir.read("db/pvb.SEini"), "editor");
  EXPECT_EQ(PVBdeleteAll(path()), 0);
  EXPECT_FALSE(std::filesystem::exists(path()));
  EXPECT_EQ(PVBdeleteAll(path()), 0);
}

TEST_F(DatabaseFiles, RenameMovesWhatBeginsWithPvb) {
  write("pvb.h", goodHeader(501));
  write("pvbate.a", "tester data");
  EXPECT_EQ(PVBlargestFile(path(), false), 36);
  EXPECT_EQ(PVBrename(path(), dir.path("new")), 0);
  EXPECT_EQ(dir.read("new/pvbate.a"), "tester data");
  EXPECT_FALSE(std::filesystem::exists(path()));
}

// --- Failure -------------------------------------------------------------------------

// The files that a save writes in one piece.
std::map<std::string, std::string> wholeFiles(const TestDatabase& database) {
  std::map<std::string, std::string> files;
  for (const char* name :
       {"pvb.h", "pvb.s", "pvb.tp", "pvb.p", "pvb.ps", "pvb.lb", "pvb.m", "pvb.mt", "pvb.st"}) {
    files[name] = database.directory().read(std::string("db/") + name);
  }
  return files;
}

// Whichever call of a save fails, the save says so or all is there, no file is half a
// one, and a repeated save makes the database whole.
TEST(Database, AFailedSaveMayBeRepeated) {
  std::map<std::string, std::string> after;
  bool failed = true;
  for (int n = 0; failed; ++n) {  // in the first round nothing fails
    SCOPED_TRACE(n);
    TestDatabase database;
    fill(database.handle(), 60);
    ASSERT_EQ(PVBsave(database.handle()), 0);
    const auto before = wholeFiles(database);
    fill(database.handle(), 0, "more");
    int result = 0;
    {
      FaultPlatform faults;
      faults.failFileCall(n, n % 2 == 0 ? ENOSPC : EIO);
      result = PVBsave(database.handle());
      failed = faults.stop() || n == 0;
      EXPECT_TRUE(result == 0 || PBerrorCount() + PBerrCount() > 0);
    }
    const auto now = wholeFiles(database);
    if (n == 0) after = now;
    EXPECT_TRUE(result != 0 || now == after);
    for (const auto& [name, content] : now) {
      EXPECT_TRUE(content == after[name] || content == before.at(name)) << name;
    }
    EXPECT_EQ(database.files().size(), 14U);
    PBdiscardErrors();
    PBerrClear();
    ASSERT_EQ(PVBsave(database.handle()), 0);
    EXPECT_EQ(wholeFiles(database), after);
    database.reopen(false);
    ASSERT_EQ(rowCount(database.handle()), 60U);
  }
}

TEST(Database, AFullDiskIsToldAndGotOver) {
  for (const std::int64_t space : {0, 10, 100, 1000, 2000}) {
    TestDatabase database;
    fill(database.handle(), 60);
    {
      FaultPlatform full;
      full.setDiskSpace(space);
      EXPECT_EQ(PVBsave(database.handle()), -2) << space;
      EXPECT_GT(PBerrorCount() + PBerrCount(), 0) << space;
    }
    PBdiscardErrors();
    PBerrClear();
    ASSERT_EQ(PVBsave(database.handle()), 0) << space;
    database.reopen(false);
    EXPECT_EQ(rowCount(database.handle()), 60U) << space;
  }
}

}  // namespace
