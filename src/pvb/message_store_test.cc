#include "pvb/message_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <sstream>

#include "base/errors.h"
#include "support/database.h"

namespace {

constexpr std::uint32_t kSections = kSectionMessages;

using Headings = std::vector<PVBmessageHeading>;

// All that they hold.
std::string shown(const Headings& headings) {
  std::ostringstream out;
  for (const PVBmessageHeading& heading : headings) {
    out << heading.number << ',' << heading.shortName << ',' << heading.text << ','
        << heading.itemCount << ',' << heading.limit << '\n';
    for (const auto& finding : heading.findings) {
      out << "finding\n";
      for (const PVBmessageItem& item : finding) {
        out << item.kind << ',' << item.number << ',' << item.text.value_or("none") << '\n';
      }
    }
  }
  return out.str();
}

// Two headings, one without a finding, with every kind of item.
void addSome(int database) {
  EXPECT_EQ(PVBmessageHeadingAdd(database, 33, "mixed direction bus", "direction of @1", 2, 2), 0);
  EXPECT_EQ(PVBmessageHeadingAdd(database, 21, "no timeplates", "", 0, 0x7FFFFFFF), 0);
  EXPECT_EQ(PVBmessageAddTo(database, 33, {{8, -1, "b\n5\ns"}, {3, 1LL << 40, {}}}), 0);
  EXPECT_EQ(PVBmessageAddTo(database, 33, {{8, 0, ""}}), 0);
  EXPECT_EQ(PVBmessageAddTo(database, 33, {{8, 0, "beyond the limit"}}), 0);
}

TEST(MessageStore, KeepsFindingsInOrderUpToTheLimit) {
  TestDatabase database(32, 16, kSections);
  EXPECT_EQ(PVBmessageAdd(database.handle(), {}), -2) << "no heading yet";
  addSome(database.handle());
  EXPECT_EQ(PVBmessageAdd(database.handle(), {}), 0);
  EXPECT_EQ(PVBmessageAddTo(database.handle(), 5, {}), -2);
  const Headings before = PVBmessages(database.handle());
  ASSERT_EQ(before.size(), 2U);
  EXPECT_EQ(before[0].findings.size(), 2U);
  EXPECT_EQ(before[1].findings.size(), 1U);

  database.reopen(false);
  EXPECT_EQ(shown(PVBmessages(database.handle())), shown(before));
  PVBmessagesClear(database.handle());
  database.reopen();
  EXPECT_EQ(shown(PVBmessages(database.handle())), shown(before))
      << "a change of a readable database";
  PVBmessagesClear(database.handle());
  database.reopen();
  EXPECT_TRUE(PVBmessages(database.handle()).empty());
}

RC_GTEST_PROP(MessageStore, AnyTextSurvives, ()) {
  TestDatabase database(32, 16, kSections);
  const int handle = database.handle();
  const auto anyText = rc::gen::arbitrary<std::string>();
  const int headings = *rc::gen::inRange(0, 4);
  for (int i = 0; i < headings; ++i) {
    RC_ASSERT(PVBmessageHeadingAdd(handle, *rc::gen::arbitrary<std::int32_t>(), *anyText, *anyText,
                                   *rc::gen::arbitrary<std::int32_t>(), 0x7FFFFFFF) == 0);
    std::vector<PVBmessageItem> items(*rc::gen::inRange<std::size_t>(0, 4));
    for (PVBmessageItem& item : items) {
      item = {*rc::gen::arbitrary<std::int32_t>(), *rc::gen::arbitrary<std::int64_t>(), {}};
      if (*rc::gen::arbitrary<bool>()) item.text = *anyText;
    }
    RC_ASSERT(PVBmessageAdd(handle, std::move(items)) == 0);
  }
  const Headings before = PVBmessages(handle);
  database.reopen();
  RC_ASSERT(shown(PVBmessages(database.handle())) == shown(before));
}

TEST(MessageStore, RefusesDamagedFiles) {
  TestDatabase database(32, 16, kSections);
  addSome(database.handle());
  database.close();
  for (const std::string name : {"db/pvb.m", "db/pvb.mt"}) {
    const std::string whole = database.directory().read(name);
    // The last byte is a line end, without which all is still there.
    for (std::size_t size = 0; size + 1 < whole.size(); ++size) {
      database.directory().write(name, whole.substr(0, size));
      if (database.open()) {
        EXPECT_TRUE(PVBmessages(database.handle()).empty()) << name << " cut at " << size;
        PVBcloseUnsaved(database.handle());
      } else {
        EXPECT_TRUE(PBerrorHas("PVBmessagesOpen", 87)) << name << " cut at " << size;
      }
      PBdiscardErrors();
    }
    database.directory().write(name, whole);
  }
  ASSERT_TRUE(database.open());
  EXPECT_EQ(PVBmessages(database.handle()).size(), 2U);
}

TEST(MessageStore, FilesOfTwoSavesHoldNothing) {
  TestDatabase database(32, 16, kSections);
  addSome(database.handle());
  database.close();
  const std::string items = database.directory().read("db/pvb.mt");
  ASSERT_TRUE(database.open());
  EXPECT_EQ(PVBmessageAdd(database.handle(), {{1, 2, "three"}}), 0);
  database.close();
  database.directory().write("db/pvb.mt", items);
  ASSERT_TRUE(database.open());
  EXPECT_TRUE(PVBmessages(database.handle()).empty());
}

}  // namespace
