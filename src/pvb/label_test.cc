#include "pvb/label.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "base/platform.h"
#include "pvb/pattern.h"
#include "support/database.h"

namespace {

constexpr std::uint32_t kUndefined = kNoRowNumber;

class Labels : public ::testing::Test {
 protected:
  Labels() {
    PBerrSetLogger([this](std::string_view line) { messages += line; });
  }
  ~Labels() override {
    PBerrSetLogger({});
    PBerrClear();
    PBdiscardErrors();
  }

  int id() const { return db.handle(); }
  // Inserts a row before row `number`; its id.
  PVBid insertRow(int pattern, std::uint32_t number) {
    RowHandle row(id(), PVBpatternNew(id()));
    PVBposition position;
    position.row = number;
    return static_cast<PVBid>(PVBrowInsert(id(), pattern, position, BY_ROW, *row));
  }
  void deleteRow(std::uint32_t number) {
    PVBposition position;
    position.row = number;
    EXPECT_EQ(PVBpatternDeleteRow(id(), kMainPattern, position, BY_ROW), 0);
  }
  const PVBlabel& label(std::size_t index) const { return PVBlabels(db.handle()).at(index); }
  bool lay(const std::string& text) {
    if (db.handle() >= 0) db.close();
    db.directory().write("db/pvb.lb", text);
    return db.open();
  }
  // The newest message.
  std::string message() {
    messages.clear();
    PBerrPrint(stderr);
    PBerrClear();
    return messages;
  }

  std::string messages;
  TestDatabase db{32, 16, kSectionProperties | kSectionSignals | kSectionPatterns | kSectionLabels};
};

TEST_F(Labels, FollowTheirRowsThroughInsertionAndDeletion) {
  std::vector<PVBid> rows;
  for (std::uint32_t row = 0; row < 5; ++row) rows.push_back(insertRow(kMainPattern, row));
  for (const std::uint32_t row : {0U, 2U, 4U, 9U, 2U}) {
    ASSERT_EQ(PVBlabelAdd(id(), -1, "L", kLabelPlain, row), 0);
  }
  EXPECT_EQ(label(1).rowId, rows[2]);
  EXPECT_EQ(label(3).rowId, UNDEF);

  const PVBid first = insertRow(kMainPattern, 0);
  deleteRow(5);  // the one labelled 4 at first
  EXPECT_EQ(PVBlabelRecompute(id()), 0);
  EXPECT_EQ(label(0).rowNumber, 0U);
  EXPECT_EQ(label(0).rowId, first);
  EXPECT_EQ(label(1).rowNumber, 3U);
  EXPECT_EQ(label(4).rowNumber, 3U);
  EXPECT_EQ(label(2).rowNumber, kUndefined);
  EXPECT_EQ(label(2).rowId, rows[4]);
  EXPECT_EQ(label(3).rowNumber, kUndefined);

  db.reopen();
  EXPECT_EQ(label(1).rowNumber, 3U);
  EXPECT_EQ(label(2).rowNumber, kUndefined);
}

TEST_F(Labels, FindRowsInBodiesAndSubroutines) {
  for (std::uint32_t row = 0; row < 4; ++row) insertRow(kMainPattern, row);
  const int subroutine = PVBsubroutineNew(id(), "sub");
  ASSERT_GE(subroutine, 0);
  insertRow(subroutine, 0);
  const PVBid inside = insertRow(subroutine, 1);
  ASSERT_EQ(PVBlabelAdd(id(), -1, "body", kLabelPlain, 2), 0);
  ASSERT_EQ(PVBlabelAdd(id(), -1, "call", kLabelPlain, 3), 0);
  PVBlabelSetRowId(id(), inside);  // a row of the subroutine, though the number says main
  ASSERT_GE(PVBloopMake(id(), kMainPattern, 1, 2, 5), 0);
  EXPECT_EQ(PVBlabelRecompute(id()), 0);
  EXPECT_EQ(label(0).rowNumber, 3U);  // behind the loop row
  EXPECT_EQ(label(0).subroutine, -1);
  EXPECT_EQ(label(1).rowNumber, 1U);
  EXPECT_EQ(label(1).subroutine, subroutine);
}

TEST_F(Labels, FileHoldsEveryField) {
  const std::string text = "LABEL 2 2\n3\na b\n-1\n1\n-1\n-1\n4\ntext\n0\n-1\n5\n-1\n-1\n0\n";
  ASSERT_TRUE(lay(text));
  EXPECT_EQ(label(0).name, "a b");
  EXPECT_EQ(label(0).text, "text");
  EXPECT_EQ(label(1).kind, 5);
  EXPECT_EQ(label(1).text, std::nullopt);
  EXPECT_EQ(PVBlabelsSave(id(), ""), 0);
  EXPECT_EQ(db.directory().read("db/pvb.lb"), text);
  ASSERT_TRUE(lay("LABEL 1 1\n1\nx\n-1\n0\n-1\n-1\n"));
  EXPECT_EQ(label(0).text, std::nullopt);
}

TEST_F(Labels, BadFilesAreRefused) {
  const std::string good = "LABEL 2 1\n1\nx\n-1\n0\n-1\n-1\n1\nt\n";
  std::vector<std::string> bad = {"LABELS 2 0\n", "LABEL 3 0\n",        "LABEL 0 0\n",
                                  "LABEL 2 -1\n", "LABEL 2 99999999\n", good + " ",
                                  good + "\n"};
  for (std::size_t size = 0; size < good.size(); ++size) bad.push_back(good.substr(0, size));
  for (const std::string& text : bad) {
    EXPECT_FALSE(lay(text)) << text;
    EXPECT_EQ(message(), "Error: Cannot read PVB labels (Label Manager).") << text;
  }
  ASSERT_TRUE(lay(good));
}

TEST_F(Labels, BadCallsAreTold) {
  EXPECT_EQ(PVBlabelAdd(-1, -1, "x", 0, 0), -2);
  EXPECT_EQ(message(), "Error: Invalid PVB handle (Label Manager).");
  EXPECT_EQ(PVBlabelAdd(MAXPVB - 1, -1, "x", 0, 0), -2);
  EXPECT_EQ(message(), "Error: PVB not open (Label Manager).");
  EXPECT_EQ(PVBlabelAdd(id(), -1, nullptr, 0, 0), -2);
  EXPECT_EQ(message(), "Error: Label name is nil (Label Manager).");
  EXPECT_EQ(PVBlabelAdd(id(), -1, "x", 5, 0), -2);
  EXPECT_EQ(message(), "Error: Invalid label type (Label Manager).");
  EXPECT_EQ(PVBlabelAdd(id(), 12345, "x", 4, 0), 0);
  PVBlabelClear(id());
  PVBlabelSetText(id(), "no label");
  EXPECT_TRUE(PVBlabels(id()).empty());
}

TEST_F(Labels, ListingShowsKindAndPlace) {
  ASSERT_EQ(PVBlabelAdd(id(), -1, "begin", kLabelBlockBegin, kUndefined), 0);
  PVBlabelSetText(id(), "note");
  ASSERT_EQ(PVBlabelAdd(id(), 3, "odd", 4, 7), 0);
  const std::string path = db.directory().path("listing");
  StreamPtr stream = openStream(path, "w");
  PVBlabelDump(id(), stream.get());
  ASSERT_EQ(closeStream(std::move(stream)), 0);
  EXPECT_EQ(db.directory().read("listing"),
            "\n=== PVB Label Objects (2)===\nbegin BB  #  -1 id -1 note\n"
            "odd ?   #  7 id -1 subr 3\n");
}

TEST(LabelsWithoutPatterns, AreReadAsTheyStand) {
  TestDatabase db(32, 16, kSectionLabels);
  db.close();
  db.directory().write("db/pvb.lb", "LABEL 2 1\n1\nx\n-1\n0\n5\n8\n0\n");
  ASSERT_TRUE(db.open());
  EXPECT_EQ(PVBlabels(db.handle()).at(0).rowNumber, 8U);
}

// Every row is labelled and every number is wrong: seconds if each label met each row.
TEST_F(Labels, ManyLabelsAreFoundInOneWalk) {
  constexpr std::uint32_t kRows = 5000;
  for (std::uint32_t row = 0; row < kRows; ++row) {
    insertRow(kMainPattern, row);
    ASSERT_EQ(PVBlabelAdd(id(), -1, "L", kLabelPlain, row), 0);
  }
  insertRow(kMainPattern, 1);
  EXPECT_EQ(PVBlabelRecompute(id()), 0);
  EXPECT_EQ(label(0).rowNumber, 0U);
  for (std::uint32_t row = 1; row < kRows; ++row) ASSERT_EQ(label(row).rowNumber, row + 1);
}

}  // namespace
