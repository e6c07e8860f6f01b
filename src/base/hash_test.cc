#include "base/hash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <deque>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "support/fault_platform.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Member {
  int id;
};

int compareIds(const void* probe, const void* member) {
  return static_cast<const Member*>(probe)->id == static_cast<const Member*>(member)->id ? 0 : 1;
}
int hashId(const void* member) { return static_cast<const Member*>(member)->id; }

using Table = HashTable<Member>;
Table makeTable(int bucketCount = 8) { return {bucketCount, compareIds, hashId}; }

std::vector<Member*> order(const Table& table) {
  std::vector<Member*> members;
  table.forEach([&](Member& member) { members.push_back(&member); });
  return members;
}

std::vector<int> ids(const Table& table) {
  std::vector<int> result;
  table.forEach([&](const Member& member) { result.push_back(member.id); });
  return result;
}

// The table as plain lists of members, heads in front.
class Model {
 public:
  void insert(Member* member) {
    if (count() >= chains_.size()) grow();
    put(member);
  }
  Member* find(int id) const {
    for (Member* member : chains_[bucketOf(id)]) {
      if (member->id == id) return member;
    }
    return nullptr;
  }
  void remove(const Member* member) { std::erase(chains_[bucketOf(member->id)], member); }
  std::vector<Member*> order() const {
    std::vector<Member*> members;
    for (const auto& chain : chains_) members.insert(members.end(), chain.begin(), chain.end());
    return members;
  }
  std::size_t count() const { return order().size(); }

 private:
  std::size_t bucketOf(int id) const { return static_cast<std::uint32_t>(id) % chains_.size(); }
  void put(Member* member) { chains_[bucketOf(member->id)].push_front(member); }
  void grow() {
    const std::vector<Member*> members = order();
    chains_.assign(chains_.size() * 2, {});
    for (Member* member : members) put(member);
  }

  std::vector<std::deque<Member*>> chains_ = std::vector<std::deque<Member*>>(8);
};

// Removes a part of the members while walking over all of them.
void thinOut(Table& table, Model& model, int part) {
  std::vector<Member*> seen;
  const std::vector<Member*> before = model.order();
  table.forEach([&](Member& member) {
    seen.push_back(&member);
    if (member.id % 3 != part) return;
    RC_ASSERT(table.remove(&member));
    model.remove(&member);
  });
  RC_ASSERT(seen == before);
}

RC_GTEST_PROP(Hash, BehavesAsPlainChains, ()) {
  using Step = std::pair<int, int>;  // what to do, with which id
  const auto steps = *rc::gen::container<std::vector<Step>>(
      rc::gen::pair(rc::gen::inRange(0, 10), rc::gen::inRange(-40, 40)));
  std::deque<Member> members;
  Table table = makeTable();
  Model model;
  for (const auto& [action, id] : steps) {
    Member* found = model.find(id);
    RC_ASSERT(table.find({id}) == found);
    if (action < 7) {
      Member* member = &members.emplace_back(id);
      RC_ASSERT(table.insert(member) == 0);
      model.insert(member);
    } else if (action < 9 && found != nullptr) {
      RC_ASSERT(table.remove(found));
      RC_ASSERT(!table.remove(found));
      model.remove(found);
    } else if (action == 9) {
      thinOut(table, model, id % 3);
    }
    RC_ASSERT(order(table) == model.order());
    RC_ASSERT(table.count() == static_cast<int>(model.count()));
  }
}

TEST(Hash, HandlesAreReusedLowestFirst) {
  std::vector<Table> tables;
  for (int i = 0; i < 40; ++i) tables.push_back(makeTable());
  const int low = tables[3].handle();
  const int high = tables[30].handle();
  EXPECT_GE(tables[0].handle(), 1);
  PBhashDestroy(high);
  PBhashDestroy(low);
  EXPECT_EQ(PBhashNew(8, compareIds, hashId), low);
  EXPECT_EQ(PBhashNew(8, compareIds, hashId), high);
}

TEST(Hash, HandleNotInUseIsRefused) {
  Member member{1};
  Table table = makeTable();
  const int destroyed = table.handle();
  PBhashDestroy(destroyed);
  for (const int handle : {-1, 0, destroyed, 1 << 30}) {
    EXPECT_EQ(PBhashInsert(handle, &member), -2);
    EXPECT_EQ(PBhashFind(handle, &member), nullptr);
    EXPECT_FALSE(PBhashRemove(handle, &member));
    EXPECT_EQ(PBhashFirst(handle), nullptr);
    EXPECT_EQ(PBhashNext(handle), nullptr);
    EXPECT_EQ(PBhashCount(handle), -2);
    PBhashDestroy(handle);
  }
}

TEST(Hash, MemberWhoseKeyChangedIsStillRemoved) {
  Member members[] = {{1}, {2}, {6}};
  Table table = makeTable();
  for (Member& member : members) ASSERT_EQ(table.insert(&member), 0);
  members[1].id = 5;
  EXPECT_EQ(table.find({5}), nullptr);
  EXPECT_TRUE(table.remove(&members[1]));
  EXPECT_THAT(ids(table), ElementsAre(1, 6));
}

TEST(Hash, IterationStaysAtItsEndUntilTheNextFirst) {
  Member members[] = {{7}, {3}};
  Table table = makeTable();
  for (Member& member : members) ASSERT_EQ(table.insert(&member), 0);
  const int handle = table.handle();
  EXPECT_EQ(PBhashNext(handle), &members[1]);
  EXPECT_EQ(PBhashNext(handle), &members[0]);
  EXPECT_EQ(PBhashNext(handle), nullptr);
  EXPECT_EQ(PBhashNext(handle), nullptr);
  EXPECT_EQ(PBhashFirst(handle), &members[1]);
}

TEST(Hash, InsertingDuringAnIterationIsSafe) {
  std::deque<Member> members;
  Table table = makeTable();
  for (int id = 0; id < 8; ++id) ASSERT_EQ(table.insert(&members.emplace_back(id)), 0);
  table.forEach([&](const Member& member) {
    if (members.size() == 100) return;
    ASSERT_EQ(table.insert(&members.emplace_back(member.id + 16)), 0);
  });
  EXPECT_EQ(table.count(), static_cast<int>(members.size()));
  EXPECT_EQ(order(table).size(), members.size());
}

TEST(Hash, FailedInsertLeavesTheTableAsItWas) {
  FaultPlatform faults;
  std::deque<Member> members;
  Table table = makeTable();
  int failures = 0;
  for (int id = 0; id < 300; ++id) {
    Member* member = &members.emplace_back(id);
    faults.failAllocations(1);
    if (table.insert(member) != 0) {
      ++failures;
      EXPECT_TRUE(PBerrorHas("HashInsert", 82));
      EXPECT_EQ(table.count(), id);
      PBdiscardErrors();
      ASSERT_EQ(table.insert(member), 0);
    }
    faults.failAllocations(0);
  }
  EXPECT_GE(failures, 5);  // each doubling of the buckets at the least
  for (Member& member : members) EXPECT_EQ(table.find(member), &member);
}

TEST(Hash, StatisticsShowTheChains) {
  Member members[] = {{0}, {1}, {9}, {17}, {2}};
  Table table = makeTable(3);
  for (Member& member : members) ASSERT_EQ(table.insert(&member), 0);
  std::string text;
  std::vector<int> dumped;
  PBhashStats(
      table.handle(), [&](std::string_view line) { text += line; },
      [&](const void* member) { dumped.push_back(hashId(member)); });
  EXPECT_EQ(text,
            "new maximum chain:  Table Entry[0]; chain length = 1\n"
            "new maximum chain:  Table Entry[1]; chain length = 3\n"
            "\nAverage Chain = 1, Max Chain = 3, Used Entries 3 of 8; NumMembers=5\n\n");
  EXPECT_THAT(dumped, ElementsAre(0, 17, 9, 1));
}

TEST(HashTable, MovesItsTable) {
  Member member{1};
  Table table = makeTable();
  ASSERT_EQ(table.insert(&member), 0);
  Table moved = std::move(table);
  EXPECT_THAT(ids(moved), ElementsAre(1));
  moved = makeTable();
  EXPECT_THAT(ids(moved), IsEmpty());
}

}  // namespace
