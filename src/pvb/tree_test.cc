#include "pvb/tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "base/errors.h"
#include "base/time.h"
#include "pvb/tree_internal.h"
#include "storage/page.h"
#include "storage/swapendian.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using Entries = std::vector<PVBnodeEntry>;

class TreeTest : public testing::Test {
 protected:
  TreeTest() {
    std::uint32_t size = kNodeBlockSize;
    file = PageOpenPlain(dir.path("nodes"), size, kNodeBuffers);
    root = static_cast<std::uint32_t>(PVBtreeNew(file));
  }
  ~TreeTest() override {
    PageClose(file);
    PBdiscardErrors();
  }

  int insertAtRow(std::uint32_t row, const PVBnodeEntry& entry) {
    PVBposition position;
    position.row = row;
    return PVBtreeInsert(file, root, position, BY_ROW, entry);
  }
  void append(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      ASSERT_EQ(insertAtRow(0xFFFFFFFF, makeEntry(i)), 0);
    }
  }
  static PVBnodeEntry makeEntry(std::uint32_t id) {
    PVBnodeEntry entry = {};
    entry.time = {0, 10};
    entry.rows = entry.cycles = entry.addresses = 1;
    entry.child = id;
    return entry;
  }
  std::vector<std::uint32_t> ids() {
    std::vector<std::uint32_t> result;
    EXPECT_EQ(PVBtreeCheck(
                  file, root, [](std::uint32_t, const char* what) { ADD_FAILURE() << what; },
                  [&](const PVBnodeEntry& entry) { result.push_back(entry.child); }),
              0);
    return result;
  }
  PVBnode node(std::uint32_t block) {
    const NodeHandle handle = getNode(file, block);
    return handle ? *handle : PVBnode{};
  }
  std::vector<std::uint32_t> counts(std::uint32_t block) {
    const PVBnode inner = node(block);
    std::vector<std::uint32_t> result;
    for (std::uint32_t i = 0; i < inner.count; ++i) {
      result.push_back(node(inner.entries[i].child).count);
    }
    return result;
  }

  TempDir dir;
  int file = -1;
  std::uint32_t root = 0;
};

TEST_F(TreeTest, NamesItsKeyKinds) {
  EXPECT_STREQ(PVBkeyKindName(BY_ADDRESS), "BY_ADDRESS");
  EXPECT_STREQ(PVBkeyKindName(5), "BY_UNDEF");
  EXPECT_STREQ(PVBkeyKindName(-1), "BY_UNDEF");
}

TEST_F(TreeTest, NewTreeIsAnEmptyLeaf) {
  EXPECT_EQ(node(root).leaf, 1);
  PVBposition position;
  PVBnodeEntry found;
  EXPECT_EQ(PVBtreeFind(file, root, position, BY_ROW, found), -2);
  EXPECT_EQ(PVBtreeFind(file, 7, position, BY_ROW, found), -2);
  EXPECT_EQ(PVBtreeFind(file, root, position, BY_ID, found), -2);
}

TEST_F(TreeTest, RootKeepsItsNumberAndAppendingLeavesFullNodes) {
  append(50);
  EXPECT_EQ(node(root).leaf, 1);
  append(1);
  EXPECT_EQ(node(root).leaf, 0);
  EXPECT_EQ(counts(root), (std::vector<std::uint32_t>{50, 1}));
  PVBposition sums;
  EXPECT_EQ(PVBtreeSums(file, root, sums), 0);
  EXPECT_EQ(sums.row, 51U);
  append(2450);
  EXPECT_EQ(counts(root), (std::vector<std::uint32_t>{50, 1}));  // a level higher
  EXPECT_EQ(ids().size(), 2501U);
}

TEST_F(TreeTest, FullLeafIsSplitAtTheInsertion) {
  append(51);
  ASSERT_EQ(insertAtRow(20, makeEntry(900)), 0);
  EXPECT_EQ(counts(root), (std::vector<std::uint32_t>{21, 30, 1}));
  // At a boundary the row goes to the front of the later leaf.
  ASSERT_EQ(insertAtRow(51, makeEntry(901)), 0);
  EXPECT_EQ(counts(root), (std::vector<std::uint32_t>{21, 30, 2}));
  const auto order = ids();
  EXPECT_EQ(order[20], 900U);
  EXPECT_EQ(order[51], 901U);
  EXPECT_EQ(order[52], 50U);
}

TEST_F(TreeTest, OnlyBeginningsOfEntriesTakeInsertions) {
  PVBnodeEntry wide = makeEntry(1);
  wide.cycles = 10;
  ASSERT_EQ(insertAtRow(0, wide), 0);
  PVBposition position;
  position.cycle = 5;
  EXPECT_EQ(PVBtreeInsert(file, root, position, BY_CYCLE, makeEntry(2)), -2);
  EXPECT_EQ(position.cycle, 0U);
  position.cycle = 11;
  EXPECT_EQ(PVBtreeInsert(file, root, position, BY_CYCLE, makeEntry(2)), 0);
  EXPECT_EQ(position.cycle, 10U);
  position.time = {-1, 0};
  EXPECT_EQ(PVBtreeInsert(file, root, position, BY_TIME, makeEntry(3)), -2);
}

TEST_F(TreeTest, MinorTimeWraps) {
  PVBnodeEntry entry = makeEntry(0);
  entry.time = {0, 600000000};
  ASSERT_EQ(insertAtRow(0, entry), 0);
  ASSERT_EQ(insertAtRow(1, entry), 0);
  PVBposition sums;
  EXPECT_EQ(PVBtreeSums(file, root, sums), 0);
  EXPECT_EQ(sums.time, (TIME{1, 200000000}));
}

TEST_F(TreeTest, EmptyNodesGoAndTheRootStays) {
  append(120);
  for (int i = 0; i < 120; ++i) {
    PVBposition position;
    PVBnodeEntry removed;
    ASSERT_EQ(PVBtreeDelete(file, root, position, BY_ROW, removed), 0);
    ASSERT_EQ(removed.child, static_cast<std::uint32_t>(i));
  }
  EXPECT_EQ(node(root).leaf, 1);
  EXPECT_EQ(PageCount(file), 1U);
  append(3);
  EXPECT_EQ(ids(), (std::vector<std::uint32_t>{0, 1, 2}));
}

TEST_F(TreeTest, NodesLieOnDiskMostSignificantByteFirst) {
  PVBnodeEntry entry = makeEntry(0x01020304);
  entry.time = {0x11, 0x22};
  entry.rows = 0x33;
  entry.cycles = 0x44;
  entry.addresses = 0x55;
  entry.count = 0x6677;
  entry.index = 0x8899AABB;
  entry.type = 5;
  entry.address16 = 0xCCDD;
  ASSERT_EQ(insertAtRow(0, entry), 0);
  ASSERT_EQ(PageFlush(file), 0);
  const std::string bytes = dir.read("nodes").substr(kPageHeaderSize);
  const std::string expected(
      "\0\0\0\x11\0\0\0\x22\0\0\0\x33\0\0\0\x44\0\0\0\x55\1\2\3\4\x66\x77\0\0\x88\x99\xAA\xBB\5\0"
      "\xCC\xDD",
      36);
  EXPECT_EQ(bytes.substr(0, 36), expected);
  EXPECT_EQ(bytes.substr(36, 1800), std::string(1800, '\0'));
  EXPECT_EQ(bytes.substr(1836), std::string("\0\0\0\0\0\0\0\1\1\0\0\0", 12));
}

// --- Against a model -----------------------------------------------------------------

TreeSums widthsBefore(const Entries& model, std::size_t index) {
  TreeSums sums;
  for (std::size_t i = 0; i < index; ++i) sums.add(sumsOf(model[i]));
  return sums;
}

// The entry that holds the key, or the size.
std::size_t findInModel(const Entries& model, int kind, std::uint64_t key) {
  std::uint64_t end = 0;
  std::size_t i = 0;
  while (i < model.size() && (end += valueOf(sumsOf(model[i]), kind)) <= key) ++i;
  return i;
}

PVBposition positionAt(int kind, std::uint64_t key) {
  PVBposition position;
  position.row = position.cycle = position.address = static_cast<std::uint32_t>(key);
  if (kind == BY_TIME) position.time = fromTreeTime(key);
  return position;
}

class TreeModelTest : public TreeTest {
 protected:
  PVBnodeEntry randomEntry() {
    PVBnodeEntry entry = makeEntry(nextId++);
    entry.rows = pick(1, 3);
    entry.cycles = pick(0, 4);
    entry.addresses = pick(0, 1);
    entry.time = fromTreeTime(std::uint64_t{pick(0, 3)} * 700000000);
    return entry;
  }
  std::uint32_t pick(std::uint32_t low, std::uint32_t high) {
    return std::uniform_int_distribution<std::uint32_t>(low, high)(random);
  }
  int pickKind() { return std::array<int, 4>{BY_ROW, BY_CYCLE, BY_TIME, BY_ADDRESS}[pick(0, 3)]; }

  void insert() {
    const int kind = pickKind();
    const std::size_t wanted = pick(0, static_cast<std::uint32_t>(model.size()));
    const std::uint64_t key = valueOf(widthsBefore(model, wanted), kind);
    const std::size_t index = findInModel(model, kind, key);
    const PVBnodeEntry entry = randomEntry();
    PVBposition position = positionAt(kind, key);
    ASSERT_EQ(PVBtreeInsert(file, root, position, kind, entry), 0);
    model.insert(model.begin() + static_cast<std::ptrdiff_t>(index), entry);
  }
  void removeOrReplace(bool removing) {
    const int kind = pickKind();
    const std::uint64_t total = valueOf(widthsBefore(model, model.size()), kind);
    const std::uint64_t key = total * pick(0, 1000) / 1000;
    const std::size_t index = findInModel(model, kind, key);
    PVBposition position = positionAt(kind, key);
    PVBnodeEntry entry = randomEntry();
    const int result = removing ? PVBtreeDelete(file, root, position, kind, entry)
                                : PVBtreeReplace(file, root, position, kind, entry);
    ASSERT_EQ(result, index < model.size() ? 0 : -2);
    if (result != 0) return;
    const auto place = model.begin() + static_cast<std::ptrdiff_t>(index);
    if (removing) {
      ASSERT_EQ(entry.child, place->child);
      model.erase(place);
    } else {
      entry.child = place->child;
      *place = entry;
    }
  }
  void lookUp() {
    const int kind = pickKind();
    const TreeSums total = widthsBefore(model, model.size());
    const std::uint64_t key = (valueOf(total, kind) + 2) * pick(0, 1000) / 1000;
    const std::size_t index = findInModel(model, kind, key);
    PVBposition position = positionAt(kind, key);
    PVBnodeEntry found = {};
    const int result = PVBtreeFind(file, root, position, kind, found);
    ASSERT_EQ(result, index < model.size() ? 0 : -2);
    const TreeSums before = widthsBefore(model, index);
    ASSERT_EQ(position.time, fromTreeTime(before.time));
    ASSERT_EQ(position.row, before.rows);
    ASSERT_EQ(position.cycle, before.cycles);
    ASSERT_EQ(position.address, before.addresses);
    if (result == 0) {
      ASSERT_EQ(std::memcmp(&found, &model[index], sizeof found), 0);
    }
  }
  void verify() {
    Entries walked;
    ASSERT_EQ(PVBtreeCheck(file, root, nullptr,
                           [&](const PVBnodeEntry& entry) { walked.push_back(entry); }),
              0);
    ASSERT_EQ(walked.size(), model.size());
    ASSERT_TRUE(walked.empty() || std::memcmp(walked.data(), model.data(),
                                              walked.size() * sizeof(PVBnodeEntry)) == 0);
    TreeCursor cursor(file, root);
    PVBnodeEntry entry;
    for (const PVBnodeEntry& expected : model) {
      ASSERT_TRUE(cursor.next(entry));
      ASSERT_EQ(entry.child, expected.child);
    }
    ASSERT_FALSE(cursor.next(entry) || cursor.failed());
  }

  std::mt19937 random{20};
  Entries model;
  std::uint32_t nextId = 1;
};

TEST_F(TreeModelTest, AgreesUnderRandomChanges) {
  for (int round = 0; round < 24; ++round) {
    const bool growing = round % 4 != 3;
    for (int i = 0; i < 500; ++i) {
      const std::uint32_t dice = pick(0, 9);
      if (dice < (growing ? 5U : 1U)) {
        insert();
      } else if (dice < 7) {
        removeOrReplace(dice < (growing ? 6U : 7U));
      } else {
        lookUp();
      }
      if (HasFatalFailure()) return;
    }
    verify();
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(PVBtreeFree(file, root, nullptr), 0);
  EXPECT_EQ(PageCount(file), 0U);
}

// --- Damage --------------------------------------------------------------------------

struct Damage {
  const char* name;
  void (*apply)(PVBnode& root);
};

TEST_F(TreeTest, DamagedNodesFailWithoutHarm) {
  const Damage damages[] = {
      {"own child", [](PVBnode& n) { n.entries[0].child = n.self; }},
      {"same child twice", [](PVBnode& n) { n.entries[1].child = n.entries[0].child; }},
      {"child past the end", [](PVBnode& n) { n.entries[0].child = 4000; }},
      {"no child", [](PVBnode& n) { n.entries[0].child = kNoNode; }},
      {"count", [](PVBnode& n) { n.count = 51; }},
      {"large count", [](PVBnode& n) { n.count = 0x80000000; }},
      {"self", [](PVBnode& n) { n.self ^= 1; }},
      {"leaf", [](PVBnode& n) { n.leaf = 2; }},
      {"no entries", [](PVBnode& n) { n.count = 0; }},
      {"sums", [](PVBnode& n) { n.entries[0].rows = 90; }},
      {"negative time",
       [](PVBnode& n) {
         n.entries[0].time = {-5, -7};
       }},
      {"huge sums", [](PVBnode& n) { n.entries[0].rows = n.entries[1].rows = 0xFFFFFFF0; }},
  };
  append(120);
  const PVBnode sound = node(root);
  for (const Damage& damage : damages) {
    SCOPED_TRACE(damage.name);
    {
      NodeHandle handle = NodeHandle::get(file, root, typePVBnode);
      damage.apply(*handle);
      handle.markDirty();
    }
    EXPECT_GT(PVBtreeCheck(file, root, nullptr, nullptr), 0);
    for (const int kind : {BY_ROW, BY_CYCLE, BY_TIME, BY_ADDRESS}) {
      for (const std::uint64_t key : {0U, 49U, 50U, 119U, 120U, 1000000U}) {
        PVBposition position = positionAt(kind, key);
        PVBnodeEntry found;
        PVBtreeFind(file, root, position, kind, found);
      }
    }
    TreeCursor cursor(file, root);
    PVBnodeEntry entry;
    int steps = 0;
    while (cursor.next(entry)) ++steps;
    EXPECT_LE(steps, 200);
    NodeHandle handle = NodeHandle::get(file, root, typePVBnode);
    *handle = sound;
    handle.markDirty();
  }
  EXPECT_EQ(ids().size(), 120U);
}

TEST_F(TreeTest, FreeingADamagedTreeEnds) {
  append(2600);
  {
    NodeHandle handle = NodeHandle::get(file, root, typePVBnode);
    handle->count = 40;
    for (auto& entry : handle->entries) entry.child = handle->entries[0].child;
    handle.markDirty();
  }
  int rows = 0;
  EXPECT_EQ(PVBtreeFree(file, root, [&](const PVBnodeEntry&) { return ++rows, 0; }), -2);
  EXPECT_EQ(rows, 2500);
}

TEST_F(TreeTest, FailedCallsLeaveTheTreeSound) {
  append(2600);
  ASSERT_EQ(PageClose(file), 0);
  int passed = 0;
  for (int n = 1; passed == 0 && n < 500; ++n) {
    std::filesystem::copy(dir.path("nodes"), dir.path("work"),
                          std::filesystem::copy_options::overwrite_existing);
    std::uint32_t size = kNodeBlockSize;
    file = PageOpenPlain(dir.path("work"), size, 8);
    ASSERT_GE(file, 0);
    int result = -2;
    std::size_t expected = 2600;
    {
      FaultPlatform faults;
      faults.failFileCall(n);
      for (int i = 0; i < 6; ++i) {
        result = insertAtRow(static_cast<std::uint32_t>(i * 400 + 7), makeEntry(5000));
        if (result == 0) ++expected;
      }
      for (int i = 0; i < 4; ++i) {
        PVBposition position;
        position.row = static_cast<std::uint32_t>(i * 600);
        PVBnodeEntry removed;
        if (PVBtreeDelete(file, root, position, BY_ROW, removed) == 0) --expected;
      }
      if (!faults.failed()) ++passed;
    }
    EXPECT_EQ(ids().size(), expected);
    PageClose(file);
    PBdiscardErrors();
  }
  EXPECT_EQ(passed, 1);
  std::uint32_t size = kNodeBlockSize;
  file = PageOpenPlain(dir.path("nodes"), size, kNodeBuffers);
}

}  // namespace
