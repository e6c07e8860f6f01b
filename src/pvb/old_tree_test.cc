// Every old form of a tree, laid by hand: an inner root over two leaves, with a
// loop whose body is a tree of its own.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/time_internal.h"
#include "pvb/pattern_internal.h"
#include "pvb/timeplate.h"
#include "support/big_endian.h"
#include "support/database.h"

namespace {

struct Form {
  int version;
  std::uint32_t entrySize;
  std::uint32_t childOffset;
  std::uint32_t blockSize;
};

constexpr Form kForms[] = {{0, 20, 16, 1032}, {2, 20, 16, 1032}, {3, 24, 16, 1236},
                           {4, 28, 16, 1440}, {6, 28, 16, 1440}, {7, 32, 20, 1644}};

struct OldEntry {
  std::uint32_t minor;
  std::uint32_t rows;
  std::uint32_t cycles;
  std::uint32_t child;
};

void putWord(std::string& bytes, std::size_t offset, std::uint32_t word) {
  bytes.replace(offset, 4, bigEndian(word));
}

std::string layNode(const Form& form, std::uint32_t self, bool leaf,
                    const std::vector<OldEntry>& entries) {
  std::string bytes(form.blockSize, '\0');
  std::size_t at = 0;
  for (const OldEntry& entry : entries) {
    putWord(bytes, at + 4, entry.minor);
    putWord(bytes, at + 8, entry.rows);
    putWord(bytes, at + 12, entry.cycles);
    putWord(bytes, at + form.childOffset, entry.child);
    at += form.entrySize;
  }
  const std::size_t end = std::size_t{51} * form.entrySize;
  putWord(bytes, end, self);
  putWord(bytes, end + 4, static_cast<std::uint32_t>(entries.size()));
  bytes[end + 8] = leaf ? 1 : 0;
  return bytes;
}

std::string layFile(const Form& form, const std::vector<std::string>& nodes) {
  constexpr std::uint32_t kNone = 0xFFFFFFFF;
  std::string bytes = words(
      {kNone, static_cast<std::uint32_t>(nodes.size()), 0, kNone, form.blockSize, kNone, 0, 0});
  for (const std::string& node : nodes) bytes += node;
  return bytes;
}

class OldTree : public testing::TestWithParam<Form> {
 protected:
  OldTree() : database(32, 16, kSectionPatterns | kSectionTimePlates) {
    auto plate = PVBtimePlateNew();
    plate->name = "tp";
    plate->period = {0, 10};
    PVBtimePlateInsert(db(), std::move(plate));
    for (const std::uint32_t type :
         {ROW_LITERAL, ROW_LITERAL, ROW_LOOP, ROW_LITERAL, ROW_END_LOOP}) {
      const RowHandle row(db(), PVBpatternNew(db()));
      row->type = type;
      if (type == ROW_LITERAL) row->timeplate = 0;
      if (type == ROW_LOOP) row->count = 3;
      if (type == ROW_LOOP) row->link = 3;
      if (row->id == 1) row->repeat16 = 9;
    }
    database.slot().header.mainRoot = 0;
    database.close();
  }
  ~OldTree() override { PBdiscardErrors(); }

  int db() const { return database.handle(); }
  // Nodes 0 to 3: root, its leaves, the body.
  std::vector<std::string> layNodes() const {
    const Form& form = GetParam();
    return {layNode(form, 0, false, {{20, 2, 2, 1}, {30, 3, 3, 2}}),
            layNode(form, 1, true, {{10, 1, 1, 0}, {10, 1, 1, 1}}),
            layNode(form, 2, true, {{30, 3, 3, 2}}),
            layNode(form, 3, true, {{10, 1, 1, 3}, {0, 1, 0, 4}})};
  }
  void writeNodes(const std::vector<std::string>& nodes) {
    std::ofstream(nodePath(), std::ios::binary) << layFile(GetParam(), nodes);
  }
  std::string nodePath() const { return database.path() + "/pvb.pk"; }
  // Opens with the version that the old nodes belong to.
  int openOld() {
    EXPECT_TRUE(PVBopenTimeplates(database.path(), true, 32, 16) >= 0);
    handle = PVBinqByPath(database.path());
    PVBget(handle)->version = GetParam().version;
    return PVBpatternOpen(handle, 32, 16);
  }

  TestDatabase database;
  int handle = -1;
};

TEST_P(OldTree, IsConvertedAtOpening) {
  writeNodes(layNodes());
  ASSERT_EQ(openOld(), 0);
  std::vector<PVBnodeEntry> rows;
  PatternWalk walk(handle, kMainPattern);
  while (walk.next()) rows.push_back(walk.entry());
  EXPECT_FALSE(walk.failed());
  ASSERT_EQ(rows.size(), 5U);
  EXPECT_EQ(rows[1].child, 1U);
  EXPECT_EQ(rows[1].index, 0U);
  EXPECT_EQ(rows[1].address16, 9);
  EXPECT_EQ(rows[0].address16, 65535);
  EXPECT_EQ(rows[0].addresses, 1U);
  EXPECT_EQ(rows[2].type, ROW_LOOP);
  EXPECT_EQ(rows[2].rows, 3U);
  PVBposition sums;
  EXPECT_EQ(PVBpatternInqSize(handle, kMainPattern, sums), 0);
  EXPECT_EQ(sums.row, 5U);
  EXPECT_EQ(sums.cycle, 5U);
  EXPECT_EQ(sums.time, (TIME{0, 50}));
  EXPECT_EQ(PVBclose(handle), 0);
  ASSERT_TRUE(database.open());
  EXPECT_EQ(PVBpatternInqSize(db(), kMainPattern, sums), 0);
  EXPECT_EQ(sums.row, 5U);
  EXPECT_EQ(database.temporaryFiles(), 0U);
}

TEST_P(OldTree, DamageIsRefusedAndTheFileStays) {
  const Form& form = GetParam();
  const std::size_t end = std::size_t{51} * form.entrySize;
  const struct {
    std::size_t node, offset;
    std::uint32_t word;
  } damages[] = {{0, form.childOffset, 0},  {0, form.childOffset, 90}, {1, end + 4, 52},
                 {1, form.childOffset, 77}, {3, form.childOffset, 2},  {2, end + 4, 0xFFFFFFFF}};
  for (const auto& damage : damages) {
    std::vector<std::string> nodes = layNodes();
    putWord(nodes[damage.node], damage.offset, damage.word);
    writeNodes(nodes);
    const auto before = database.files();
    EXPECT_EQ(openOld(), -2) << damage.node << " " << damage.offset;
    EXPECT_TRUE(PBerrorHas("PVBpatternOpen", 87));
    PVBcloseUnsaved(handle);
    EXPECT_TRUE(database.files() == before) << damage.node << " " << damage.offset;
    PBdiscardErrors();
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, OldTree, testing::ValuesIn(kForms), [](const auto& test) {
  return "Version" + std::to_string(test.param.version);
});

}  // namespace
