#include "base/hash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "support/fault_platform.h"

namespace {

using testing::ElementsAre;

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
      Member* member = &members.emplace_back(Member{id});
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

TEST(Hash, HandlesAreReusedLowestFirstAndRefusedWhenNotInUse) {
  std::vector<Table> tables;
  for (int i = 0; i < 40; ++i) tables.push_back(makeTable());
  const int low = tables[3].handle();
  const int destroyed = tables[30].handle();
  EXPECT_GE(tables[0].handle(), 1);
  PBhashDestroy(destroyed);
  PBhashDestroy(low);
  EXPECT_EQ(PBhashNew(8, compareIds, hashId), low);
  Member member{1};
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

TEST(Hash, IterationStaysAtItsEndAndAMemberWhoseKeyChangedIsStillRemoved) {
  Member members[] = {{1}, {2}, {6}};
  Table table = makeTable();
  for (Member& member : members) ASSERT_EQ(table.insert(&member), 0);
  const int handle = table.handle();
  for (Member& member : members) EXPECT_EQ(PBhashNext(handle), &member);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(PBhashNext(handle), nullptr);
  EXPECT_EQ(PBhashFirst(handle), &members[0]);
  members[1].id = 5;
  EXPECT_EQ(table.find({5}), nullptr);
  EXPECT_TRUE(table.remove(&members[1]));
  EXPECT_THAT(order(table), ElementsAre(&members[0], &members[2]));
}

TEST(Hash, InsertingDuringAnIterationIsSafe) {
  std::deque<Member> members;
  Table table = makeTable();
  for (int id = 0; id < 8; ++id) ASSERT_EQ(table.insert(&members.emplace_back(Member{id})), 0);
  table.forEach([&](const Member& member) {
    if (members.size() == 100) return;
    ASSERT_EQ(table.insert(&members.emplace_back(Member{member.id + 16})), 0);
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
    Member* member = &members.emplace_back(Member{id});
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

}  // namespace
