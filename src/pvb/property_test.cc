#include "pvb/property.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <vector>

#include "base/errors.h"
#include "support/big_endian.h"
#include "support/database.h"
#include "support/fault_platform.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint32_t kNone = 0xFFFFFFFF;

std::string record(std::uint32_t next, std::uint32_t key, std::uint32_t value, std::uint32_t length,
                   char valid = 1) {
  return bigEndian(next) + bigEndian(key) + bigEndian(value) + std::string(2, '\0') + valid + '\0' +
         bigEndian(length);
}

std::string oldRecord(std::uint32_t next, std::uint32_t key, std::uint32_t value, int length,
                      char valid = 1) {
  return bigEndian(next) + bigEndian(key) + bigEndian(value) + static_cast<char>(length >> 8) +
         static_cast<char>(length) + valid + '\0';
}

const std::string kHeader = bigEndian(0xAAFAF0AF) + bigEndian(1);

// A plain block file of lists in use with these heads.
std::string lists(const std::vector<std::uint32_t>& heads) {
  std::string bytes = bigEndian(kNone) + bigEndian(static_cast<std::uint32_t>(heads.size())) +
                      bigEndian(0) + bigEndian(kNone) + bigEndian(8) + bigEndian(kNone) +
                      bigEndian(0) + bigEndian(0);
  for (const std::uint32_t head : heads) bytes += bigEndian(head) + bigEndian(0x01000000);
  return bytes;
}

// Key and value of each live record as "7=text", newest first; "7" without a value.
std::vector<std::string> contents(int database, PVBid list) {
  std::vector<std::string> found;
  for (const PVBproperty* property = PVBpropInqFirst(database, list); property != nullptr;
       property = PVBpropInqNext(database)) {
    const std::string key = std::to_string(property->key);
    found.push_back(property->value ? key + "=" + *property->value : key);
  }
  return found;
}

class Properties : public ::testing::Test {
 protected:
  ~Properties() override { PBdiscardErrors(); }

  int id() const { return db.handle(); }
  std::vector<std::string> read(PVBid list) const { return contents(db.handle(), list); }
  std::string file(const std::string& name) const { return db.directory().read("db/" + name); }
  // Opens with these two files.
  bool lay(const std::string& listFile, const std::string& values, bool writable = true) {
    db.close();
    db.directory().write("db/pvb.l", listFile);
    db.directory().write("db/pvb.v", values);
    return db.open(writable);
  }
  PVBid listOf(const std::vector<PVBproperty>& properties) {
    const PVBid list = PVBpropListNew(id());
    for (const PVBproperty& property : properties) EXPECT_EQ(PVBputProp(id(), list, property), 0);
    return list;
  }

  TestDatabase db{32, 4, kSectionProperties};
};

// --- Bytes ---------------------------------------------------------------------------

TEST_F(Properties, StandOnDiskAsDescribedAndReverseAtTheRewrite) {
  ASSERT_TRUE(lay(lists({}), kHeader));
  EXPECT_EQ(listOf({{7, "ab"}, {-2, std::nullopt}}), 0);
  ASSERT_EQ(PVBpropertySave(id(), ""), 0);
  EXPECT_EQ(file("pvb.l"), lists({31}));
  EXPECT_EQ(file("pvb.v"), kHeader + std::string("ab\0", 3) + record(kNone, 7, 8, 3) +
                               record(11, 0xFFFFFFFE, kNone, 0));
  db.close();
  EXPECT_EQ(file("pvb.l"), lists({31}));
  EXPECT_EQ(file("pvb.v"), kHeader + record(kNone, 0xFFFFFFFE, kNone, 0) + std::string("ab\0", 3) +
                               record(8, 7, 28, 3));
}

TEST_F(Properties, OldFilesAreConvertedAtOpening) {
  const std::string longValue(40000, 'x');
  // The second list's length had no room: its value ends at the zero byte.
  std::string old = std::string("a\0", 2) + oldRecord(kNone, 1, 0, 2) + std::string("b\0", 2) +
                    oldRecord(2, 2, 18, 2) + oldRecord(20, 3, kNone, 0, 0) +
                    oldRecord(36, 4, kNone, 0);
  const auto longAt = static_cast<std::uint32_t>(old.size());
  old += longValue + '\0' + oldRecord(longAt + 40001, 5, longAt, 40001);
  for (const bool writable : {true, false}) {
    const std::string heads = lists({52, longAt + 40001});
    ASSERT_TRUE(lay(heads, old, writable));
    EXPECT_THAT(read(0), ElementsAre("1=a", "2=b", "4"));
    EXPECT_EQ(PVBpropGet(id(), 1, 5), longValue);
    EXPECT_EQ(file("pvb.v") == old && file("pvb.l") == heads, !writable);
    EXPECT_EQ(db.temporaryFiles(), writable ? 0U : 2U);
  }
}

// --- Lists ---------------------------------------------------------------------------

TEST_F(Properties, NoneEmptyAndEqualKeysAreTold) {
  const PVBid list = listOf({{1, "old"}, {2, std::nullopt}, {1, ""}, {1, "new"}});
  EXPECT_THAT(read(list), ElementsAre("1=new", "1=", "2", "1=old"));
  EXPECT_EQ(PVBpropGet(id(), list, 1), "new");
  EXPECT_EQ(PVBpropGet(id(), list, 2), std::nullopt);
  const PVBproperty* second = PVBpropInqFirstKey(id(), list, 2);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->value, std::nullopt);
  EXPECT_EQ(PVBpropInqNextKey(id(), 2), nullptr);
  ASSERT_NE(PVBpropInqFirst(id(), list), nullptr);
  db.reopen();
  EXPECT_EQ(PVBpropInqNext(id()), nullptr);  // a walk ends with its database
}

TEST_F(Properties, DeletionGoesByKeyAndByValueWhenThereIsOne) {
  const std::string longText = std::string(1024, 'x') + "1";
  const PVBid list =
      listOf({{1, longText}, {1, std::string(1024, 'x') + "2"}, {1, std::nullopt}, {2, "b"}});
  EXPECT_EQ(PVBdelProp(id(), list, {1, longText}), 0);
  EXPECT_EQ(read(list).size(), 3U);
  EXPECT_EQ(PVBdelProp(id(), list, {1, std::nullopt}), 0);
  EXPECT_THAT(read(list), ElementsAre("2=b"));
}

TEST_F(Properties, FreedListsAreTakenAgainLowestFirstAndTrimmedAtTheEnd) {
  for (PVBid list = 0; list < 6; ++list) EXPECT_EQ(PVBpropListNew(id()), list);
  for (const PVBid list : {4, 1, 5}) PVBpropListFree(id(), list);
  EXPECT_EQ(PVBpropListNew(id()), 1);
  EXPECT_FALSE(PVBpropListExists(id(), 4));
  EXPECT_EQ(PVBputProp(id(), 4, {1, "lost"}), -2);
  db.reopen();
  EXPECT_EQ(PVBpropListNew(id()), 4);
  EXPECT_EQ(PVBpropListNew(id()), 5);
  for (const PVBid bad : {-1, 6, 0x7FFFFFFF}) {
    EXPECT_THAT(read(bad), IsEmpty());
    EXPECT_EQ(PVBputProp(id(), bad, {1, "x"}), -2);
    EXPECT_EQ(PVBpropListDup(id(), bad), UNDEF);
  }
}

// --- Read-only and copies ------------------------------------------------------------

TEST_F(Properties, AReadOnlyDatabaseWithoutTheFilesGetsNone) {
  db.close();
  for (const auto* name : {"pvb.l", "pvb.v"}) std::filesystem::remove(db.path() + "/" + name);
  const auto before = db.files();
  ASSERT_TRUE(db.open(false));
  EXPECT_THAT(read(listOf({{1, "a"}})), ElementsAre("1=a"));
  db.close();
  EXPECT_EQ(db.files(), before);
  EXPECT_EQ(db.temporaryFiles(), 0U);
}

TEST_F(Properties, ASaveElsewhereLeavesTheDeadBehind) {
  ASSERT_TRUE(lay(lists({}), kHeader));
  const PVBid list = listOf({{1, "a"}, {2, "gone"}, {3, "c"}});
  PVBdelProp(id(), list, {2, std::nullopt});
  const std::string copy = db.directory().path("copy");
  std::filesystem::create_directory(copy);
  EXPECT_EQ(PVBpropertySave(id(), copy), 0);
  EXPECT_EQ(db.directory().read("copy/pvb.v"), kHeader + std::string("c\0", 2) +
                                                   record(kNone, 3, 8, 2) + std::string("a\0", 2) +
                                                   record(10, 1, 30, 2));
  EXPECT_THAT(read(list), ElementsAre("3=c", "1=a"));
  EXPECT_THAT(file("pvb.v"), HasSubstr("gone"));
}

// --- Damage --------------------------------------------------------------------------

TEST_F(Properties, DamagedListsEndAndAreLeftAlone) {
  const std::string good = std::string("ab\0", 3) + record(kNone, 1, 8, 3);  // record at 11
  const struct {
    const char* fault;
    std::vector<std::uint32_t> heads;
    std::string behind;  // the good record, from 31 on
    std::size_t found;   // records of list 0
  } cases[] = {
      {"head behind the file", {1000}, "", 0},
      {"head in the header", {4}, "", 0},
      {"record cut off", {31}, record(11, 2, kNone, 0).substr(0, 19), 0},
      {"two records in a circle", {31}, record(51, 2, kNone, 0) + record(31, 3, kNone, 0), 3},
      {"value behind the file", {31}, record(11, 2, 49, 3), 0},
      {"length past the file", {31}, record(11, 2, 8, 0xFFFFFFFF), 0},
      {"no length", {31}, record(11, 2, 8, 0), 0},
      {"lists that share their records", {11, 11, 11}, "", 1},
      {"values that share their bytes",
       {71},
       record(kNone, 2, 8, 43) + record(31, 2, 8, 43) + record(51, 2, 8, 43),
       3},
  };
  for (const auto& damaged : cases) {
    SCOPED_TRACE(damaged.fault);
    const std::string values = kHeader + good + damaged.behind;
    const std::string listFile = lists(damaged.heads);
    ASSERT_TRUE(lay(listFile, values));
    testing::internal::CaptureStderr();
    EXPECT_EQ(read(0).size(), damaged.found);
    EXPECT_EQ(stripGarbage(db.path(), db.path() + "/new"), -2);
    PBflushErrors();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("pvb."));
    EXPECT_EQ(db.files().size(), 3U);
    EXPECT_EQ(file("pvb.v"), values);
    EXPECT_EQ(file("pvb.l"), listFile);
  }
  ASSERT_TRUE(lay(lists({8}), kHeader + record(8, 1, kNone, 0)));
  EXPECT_THAT(read(0), ElementsAre("1"));  // a record that names itself is the last
  EXPECT_EQ(PBerrorCount(), 0);
}

TEST_F(Properties, FilesCutAnywhereAreOpenedOrRefused) {
  ASSERT_TRUE(lay(lists({}), kHeader));
  listOf({{1, "first"}, {2, "second"}});
  listOf({{3, "third"}});
  db.close();
  const auto whole = db.files();
  testing::internal::CaptureStderr();
  for (const char* name : {"pvb.l", "pvb.v"}) {
    for (std::size_t size = 0; size < whole.at(name).size(); ++size) {
      for (const auto& [other, bytes] : whole) db.directory().write("db/" + other, bytes);
      db.directory().write("db/" + std::string(name), whole.at(name).substr(0, size));
      if (db.open()) {
        EXPECT_LE(read(0).size() + read(1).size(), 3U);
        PVBputProp(id(), 0, {4, "fourth"});
        PVBcloseUnsaved(id());
      }
    }
  }
  testing::internal::GetCapturedStderr();
  for (const auto& [name, bytes] : whole) db.directory().write("db/" + name, bytes);
  ASSERT_TRUE(db.open());
}

// --- Failing calls -------------------------------------------------------------------

// Lists 0 to 49 with two properties each, one of which is deleted in this run.
class FailingRewrite : public Properties {
 protected:
  FailingRewrite() {
    EXPECT_TRUE(lay(lists({}), kHeader));
    for (int i = 0; i < 50; ++i) listOf({{1, "kept" + std::to_string(i)}, {2, std::nullopt}});
    db.close();
    whole = db.files();
    db.open();
  }
  // Deletes a property of each list in the files as they were at first, and closes them
  // with the fault; all that stays must be there then. Whether nothing failed.
  bool closes(const std::function<void(FaultPlatform&)>& fault) {
    EXPECT_EQ(PVBpropertyClose(id()), 0);
    for (const auto& [name, bytes] : whole) db.directory().write("db/" + name, bytes);
    EXPECT_EQ(PVBpropertyOpen(id(), 64), 0);  // no list block goes to disk before the end
    for (PVBid list = 0; list < 50; ++list) PVBdelProp(id(), list, {2, std::nullopt});
    EXPECT_EQ(PVBpropertySave(id(), ""), 0);
    testing::internal::CaptureStderr();
    bool failed = true;
    {
      FaultPlatform faults;
      fault(faults);
      result = PVBpropertyClose(id());
      failed = faults.failed();
      EXPECT_TRUE(failed || result == 0);
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(PVBpropertyOpen(id(), 64), 0);
    for (PVBid list = 0; list < 50; ++list) {
      EXPECT_EQ(PVBpropGet(id(), list, 1), "kept" + std::to_string(list));
    }
    return !failed;
  }

  std::map<std::string, std::string> whole;
  int result = 0;  // of the close
};

TEST_F(FailingRewrite, AnyFailingCallLeavesAPairThatBelongsTogether) {
  bool failed = true;
  for (int n = 1; failed; ++n) {
    SCOPED_TRACE(n);
    failed = !closes([n](FaultPlatform& faults) { faults.failFileCall(n); });
  }
}

TEST_F(FailingRewrite, AFullDiskLosesNothingThatWasThere) {
  bool failed = true;
  for (std::int64_t space = 0; failed; space += 500) {
    SCOPED_TRACE(space);
    failed = !closes([&](FaultPlatform& faults) {
      faults.setDiskSpace(space);
      for (PVBid list = 0; list < 50; ++list) EXPECT_EQ(PVBputProp(id(), list, {3, "added"}), 0);
    });
    EXPECT_EQ(result == 0, !failed);
  }
}

TEST_F(Properties, AWriteThatFailsEmptiesItsListAndNoOther) {
  ASSERT_TRUE(lay(lists({}), kHeader));
  const PVBid other = listOf({{1, "other"}});
  const PVBid list = listOf({{1, "old"}});
  ASSERT_EQ(PVBpropertySave(id(), ""), 0);
  {
    FaultPlatform faults;
    faults.setDiskSpace(10);
    EXPECT_EQ(PVBputProp(id(), list, {2, std::string(100000, 'x')}), -2);
  }
  EXPECT_TRUE(PBerrorHas("PVBputProp", 85));
  EXPECT_THAT(read(list), IsEmpty());
  EXPECT_EQ(PVBputProp(id(), list, {3, "new"}), 0);
  db.reopen();
  EXPECT_THAT(read(list), ElementsAre("3=new"));
  EXPECT_THAT(read(other), ElementsAre("1=other"));
}

// --- Against a model -----------------------------------------------------------------

using Model = std::map<PVBid, std::deque<std::string>>;

PVBid anyList(const Model& model) {
  return std::next(model.begin(), *rc::gen::inRange<int>(0, static_cast<int>(model.size())))->first;
}

void eraseKey(std::deque<std::string>& list, const std::string& key) {
  std::erase_if(list, [&](const std::string& text) { return text.substr(0, 1) == key; });
}

RC_GTEST_PROP(PropertyLists, AreWhatWasPutInWhateverComesBetween, ()) {
  TestDatabase db(32, 1, kSectionProperties);
  Model model;
  bool rewrite = false;
  const int steps = *rc::gen::inRange(1, 60);
  for (int step = 0; step < steps; ++step) {
    const int action = model.empty() ? 0 : *rc::gen::inRange(0, 12);
    if (action == 0) {
      model[PVBpropListNew(db.handle())];
      rewrite = true;
      continue;
    }
    const PVBid list = anyList(model);
    const int key = *rc::gen::inRange(0, 4);
    if (action < 8) {
      const auto size = *rc::gen::element<std::size_t>(0, 1, 5, 1023, 1024, 3000);
      const std::string value(size, static_cast<char>('a' + step % 26));
      RC_ASSERT(PVBputProp(db.handle(), list, {key, value}) == 0);
      model[list].push_front(std::to_string(key) + "=" + value);
    } else if (action == 8) {
      RC_ASSERT(PVBdelProp(db.handle(), list, {key, std::nullopt}) == 0);
      const std::size_t before = model[list].size();
      eraseKey(model[list], std::to_string(key));
      rewrite = rewrite || model[list].size() != before;
    } else if (action == 9) {
      PVBpropListFree(db.handle(), list);
      model.erase(list);
      rewrite = true;
    } else if (action == 10) {
      const PVBid copy = PVBpropListDup(db.handle(), list);
      RC_ASSERT(copy >= 0 && model.count(copy) == 0);
      model[copy] = model[list];
      rewrite = true;
    } else {
      db.reopen();
      for (auto& [id, texts] : model) {
        if (rewrite) std::reverse(texts.begin(), texts.end());
      }
      rewrite = false;
    }
    for (const auto& [id, texts] : model) {
      const auto found = contents(db.handle(), id);
      RC_ASSERT(std::deque<std::string>(found.begin(), found.end()) == texts);
    }
  }
}

}  // namespace
