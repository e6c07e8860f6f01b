#include "pvb/message_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "base/errors.h"
#include "support/database.h"
#include "support/fault_platform.h"

namespace {

constexpr std::uint32_t kSections = kSectionMessages;

using Headings = std::vector<PVBmessageHeading>;

bool same(const PVBmessageItem& a, const PVBmessageItem& b) {
  return a.kind == b.kind && a.number == b.number && a.text == b.text;
}

bool same(const PVBmessageHeading& a, const PVBmessageHeading& b) {
  return a.number == b.number && a.shortName == b.shortName && a.text == b.text &&
         a.itemCount == b.itemCount && a.limit == b.limit &&
         std::equal(a.findings.begin(), a.findings.end(), b.findings.begin(), b.findings.end(),
                    [](const auto& x, const auto& y) {
                      return std::equal(x.begin(), x.end(), y.begin(), y.end(),
                                        [](const auto& i, const auto& j) { return same(i, j); });
                    });
}

bool same(const Headings& a, const Headings& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const auto& x, const auto& y) { return same(x, y); });
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
  EXPECT_TRUE(same(PVBmessages(database.handle()), before));
  PVBmessagesClear(database.handle());
  database.reopen();
  EXPECT_TRUE(same(PVBmessages(database.handle()), before)) << "a change of a readable database";
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
  RC_ASSERT(same(PVBmessages(database.handle()), before));
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

TEST(MessageStore, FailedSavesLeaveOldOrNoFindings) {
  TestDatabase database(32, 16, kSections);
  addSome(database.handle());
  database.reopen();
  const Headings old = PVBmessages(database.handle());
  for (int n = 1;; ++n) {
    SCOPED_TRACE(n);
    PVBmessageAdd(database.handle(), {{n, n, "new"}});
    const Headings changed = PVBmessages(database.handle());
    int result = 0;
    {
      FaultPlatform faults;
      faults.failFileCall(n);
      result = PVBmessagesSave(database.handle(), "");
      if (!faults.failed()) break;
    }
    EXPECT_TRUE(result == 0 || PBerrorCount() > 0);
    PBdiscardErrors();
    PVBcloseUnsaved(database.handle());
    ASSERT_TRUE(database.open());
    const Headings& now = PVBmessages(database.handle());
    EXPECT_TRUE(now.empty() || same(now, changed) || (result != 0 && same(now, old)));
    PVBmessagesClear(database.handle());
    addSome(database.handle());
    EXPECT_EQ(PVBmessagesSave(database.handle(), ""), 0);
  }
}

}  // namespace
