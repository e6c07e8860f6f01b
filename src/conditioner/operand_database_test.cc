// Passes over a database in place that are killed, or fail, at any file call: the database is
// the old or the new one, and what is left doesn't stop the next run.

#include "conditioner/operand_database.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <vector>

#include "base/errors.h"
#include "conditioner/add_compression.h"
#include "conditioner/annotate.h"
#include "conditioner/flatten.h"
#include "conditioner/run.h"
#include "pvb/annotate.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/property.h"
#include "pvb/timeplate.h"
#include "support/in_place.h"
#include "timeplate/rename_settings.h"
#include "timeplate/timeplate_rename.h"

namespace {

// What `content` says: name of the timeplate, count and comments of each row.
constexpr const char* kBefore = "tp 2:1 2:1 ";

class PassInPlace : public InPlaceTest {
 protected:
  PassInPlace() {
    tpRenameSettings.tpRenamePrefix = "new";
    build(dir_.path("whole"));
  }
  ~PassInPlace() override { tpRenameSettings = {}; }

  PVBregion source() const {
    PVBregion region;
    PVBregionInit(region, "A", path(), TIME_ZERO, TIME_MAX);
    return region;
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

  std::string content(const std::string& database) const override {
    const int db = PVBopenAny(database, false, 0, 8, kAllSections, false);
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

  const std::vector<InPlaceOperation> passes_ = {
      {[this] { return flatten(source(), nullptr); }, "tp 1:1 1:1 1:1 1:1 "},
      {[this] { return AddCompression(nullptr, source(), 1, "RPT", "LOOP"); }, "tp 4:1 4:1 "},
      {[this] {
         const PVBregion region = source();
         return annotateVectors(&region, nullptr);
       },
       "tp 2:2 2:2 ", false},
      {[this] { return timeplateRename(path(), std::nullopt, run.reportStream); }, "new0 2:1 2:1 ",
       false},
  };
};

TEST_F(PassInPlace, KilledAnywhereTheDatabaseIsOldOrNew) {
  for (const InPlaceOperation& pass : passes_) expectOldOrNewAtEveryCall(pass);
}

TEST_F(PassInPlace, KilledOrFailingTheNextRunSucceeds) {
  for (const InPlaceOperation& pass : passes_) {
    seen_.clear();
    atFileCalls(3, [&](int n) { return endsAt(pass, n, n % 2 != 0); });
    EXPECT_THAT(seen_, testing::UnorderedElementsAre(pass.result, kBefore));
  }
}

TEST_F(PassInPlace, WhatIsWrongIsToldOfTheDatabaseItself) {
  restore();
  std::filesystem::resize_file(dir_.path("A/pvb.tp"), 9);
  EXPECT_EQ(flatten(source(), nullptr), -2);
  ASSERT_GT(PBerrorCount(), 0);
  std::string posted;
  for (int i = 0; i < PBerrorCount(); ++i) posted += PBformatError(i, 1000) + "\n";
  EXPECT_THAT(posted, testing::HasSubstr(dir_.path("A/pvb.tp")));
  EXPECT_THAT(posted, testing::Not(testing::HasSubstr(".working")));
  EXPECT_FALSE(std::filesystem::exists(dir_.path("A.working")));
}

}  // namespace
