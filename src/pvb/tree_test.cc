#include "pvb/tree.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "base/errors.h"
#include "base/time.h"
#include "pvb/tree_internal.h"
#include "storage/page.h"
#include "storage/swapendian.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

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
  PVBnodeEntry found;
  EXPECT_EQ(PVBtreeFind(file, 7, position, BY_ROW, found), -2);
  EXPECT_EQ(PVBtreeFind(file, root, position, BY_ID, found), -2);
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

PVBposition positionAt(int kind, std::uint64_t key) {
  PVBposition position;
  position.row = position.cycle = position.address = static_cast<std::uint32_t>(key);
  if (kind == BY_TIME) position.time = fromTreeTime(key);
  return position;
}

// --- Damage --------------------------------------------------------------------------

TEST_F(TreeTest, DamagedNodesFailWithoutHarm) {
  const struct {
    const char* name;
    void (*apply)(PVBnode& root);
  } damages[] = {
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
  for (const auto& damage : damages) {
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
  bool failed = true;
  for (int n = 1; failed; ++n) {
    SCOPED_TRACE(n);
    dir.write("work", dir.read("nodes"));
    std::uint32_t size = kNodeBlockSize;
    file = PageOpenPlain(dir.path("work"), size, 8);
    std::size_t expected = 2600;
    {
      FaultPlatform faults;
      faults.failFileCall(n);
      for (int i = 0; i < 6; ++i) {
        if (insertAtRow(static_cast<std::uint32_t>(i * 400 + 7), makeEntry(5000)) == 0) ++expected;
      }
      for (int i = 0; i < 4; ++i) {
        PVBposition position;
        position.row = static_cast<std::uint32_t>(i * 600);
        PVBnodeEntry removed;
        if (PVBtreeDelete(file, root, position, BY_ROW, removed) == 0) --expected;
      }
      failed = faults.failed();
    }
    EXPECT_EQ(ids().size(), expected);
    PageClose(file);
    PBdiscardErrors();
  }
  std::uint32_t size = kNodeBlockSize;
  file = PageOpenPlain(dir.path("nodes"), size, kNodeBuffers);
}

}  // namespace
