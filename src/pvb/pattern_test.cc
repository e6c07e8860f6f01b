#include "pvb/pattern.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "base/errors.h"
#include "base/time_internal.h"
#include "pvb/pattern_internal.h"
#include "pvb/property.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "support/database.h"
#include "support/fault_platform.h"

namespace {

constexpr std::uint32_t kSections = kSectionProperties | kSectionPatterns | kSectionTimePlates;

class PatternTest : public testing::Test {
 protected:
  PatternTest() : database(32, 16, kSections) {
    auto plate = PVBtimePlateNew();
    plate->name = "tp";
    plate->period = {0, 10000000};
    PVBtimePlateInsert(db(), std::move(plate));
  }
  ~PatternTest() override { PBdiscardErrors(); }

  int db() const { return database.handle(); }
  PVBpatternData& data() { return *database.slot().patterns; }

  RowHandle newRow(std::uint32_t type = ROW_LITERAL, std::uint32_t count = 1) {
    RowHandle row(db(), PVBpatternNew(db()));
    EXPECT_TRUE(row);
    row->type = type;
    row->count = count;
    if (type == ROW_LITERAL) row->timeplate = 0;
    return row;
  }
  static PVBposition at(std::uint32_t row) {
    PVBposition position;
    position.row = row;
    return position;
  }
  std::int64_t insert(PVBrow& row, std::uint32_t rowNumber, int pattern = kMainPattern) {
    PVBposition position = at(rowNumber);
    return PVBrowInsert(db(), pattern, position, BY_ROW, row);
  }
  void append(int count, int pattern = kMainPattern) {
    for (int i = 0; i < count; ++i) {
      ASSERT_GE(insert(*newRow(), 0xFFFFFFFF, pattern), 0);
    }
  }
  std::int64_t appendCall(int pattern, int callee) {
    const RowHandle call = newRow(ROW_SUBR_CALL);
    call->link = static_cast<std::uint32_t>(callee);
    return insert(*call, 0xFFFFFFFF, pattern);
  }
  PVBposition sizeOf(int pattern = kMainPattern) {
    PVBposition sums;
    EXPECT_EQ(PVBpatternInqSize(db(), pattern, sums), 0);
    return sums;
  }
  std::string file(const std::string& name) { return database.directory().read("db/" + name); }

  TestDatabase database;
};

// --- Opening -------------------------------------------------------------------------

TEST_F(PatternTest, FreshDatabaseHasAnEmptyMainPattern) {
  EXPECT_EQ(PVBpatternRoot(db(), kMainPattern), 0);
  PVBposition position;
  EXPECT_EQ(PVBpatternInqRow(db(), kMainPattern, position, BY_ROW), nullptr);
  EXPECT_EQ(PVBpatternInqRow(db(), -2, position, BY_ROW), nullptr);
  EXPECT_EQ(PVBpatternBadIndex, -2);
  EXPECT_EQ(PVBpatternRoot(99, kMainPattern), -1);
  database.reopen();
  EXPECT_EQ(PVBpatternRoot(db(), kMainPattern), 0);
  EXPECT_EQ(file("pvb.ps"), "SUBROUTINES 1 0 0\n0\n");
  PVBsubroutineNew(db(), "one");
  append(2, 0);
  database.close();
  EXPECT_EQ(file("pvb.ps"), "SUBROUTINES 1 1 8\n0\n0 1 2 2 20nS 2 0 3\none\n");
}

TEST(PatternWidth, BlocksHaveRoomForTheWidth) {
  const struct {
    int width;
    std::uint32_t blockSize;
    int inForce;
  } cases[] = {{0, 104, 32}, {32, 104, 32}, {33, 105, 34}, {34, 105, 34}, {512, 344, 512}};
  for (const auto& test : cases) {
    TestDatabase database(test.width, 4, kSectionPatterns);
    EXPECT_EQ(PageBlockSize(database.slot().patterns->rows), test.blockSize);
    EXPECT_EQ(database.slot().rowWidth, test.inForce);
    database.reopen();
    EXPECT_EQ(database.slot().rowWidth, test.inForce);
  }
}

TEST_F(PatternTest, WideningKeepsRowsAndReachesTheHeader) {
  {
    const RowHandle row = newRow();
    setRowCode(row->states(), 31, 3);
    insert(*row, 0);
    EXPECT_EQ(PVBpatternWidenRows(db(), 40), -2);  // while a row is held
  }
  EXPECT_EQ(PVBpatternWidenRows(db(), 20), 0);
  EXPECT_EQ(database.slot().rowWidth, 32);
  EXPECT_EQ(PVBpatternWidenRows(db(), 70000), -2);
  EXPECT_EQ(PVBpatternWidenRows(db(), 41), 0);
  EXPECT_EQ(database.slot().rowWidth, 42);
  database.reopen();
  EXPECT_EQ(database.slot().header.rowWidth, 42);
  const RowHandle row(db(), PVBrowGet(db(), 0));
  ASSERT_TRUE(row);
  EXPECT_EQ(rowCode(row->states(), 31), 3);
  EXPECT_EQ(rowCode(row->states(), 41), 0);
}

TEST_F(PatternTest, HeaderWiderThanTheRowsWidensThem) {
  append(3);
  database.slot().header.rowWidth = 64;
  database.reopen();
  EXPECT_EQ(database.slot().rowWidth, 64);
  EXPECT_EQ(sizeOf().row, 3U);
}

TEST_F(PatternTest, FilesOfOtherBlockSizesAreRefused) {
  append(3);
  database.close();
  for (const char* name : {"pvb.pd", "pvb.pk", "pvb.rd"}) {
    const std::string path = database.path() + "/" + name;
    const std::string kept = file(name);
    std::filesystem::remove(path);
    std::uint32_t size = 52;
    ASSERT_EQ(PageClose(PageOpenPlain(path, size, 2)), 0);
    EXPECT_FALSE(database.open()) << name;
    EXPECT_TRUE(PBerrorHas("PVBpatternOpen", 87)) << name;
    PBdiscardErrors();
    std::ofstream(path, std::ios::binary) << kept;
  }
  EXPECT_TRUE(database.open());
}

TEST_F(PatternTest, FailedOpeningAndSavingEndInAKnownError) {
  append(60);
  ASSERT_GE(PVBsubroutineNew(db(), "sub"), 0);
  database.close();
  failEachFileCall([&](FaultPlatform& faults) {
    const bool good = database.open();
    if (good) {
      const RowHandle row(db(), PVBpatternNew(db()));
      if (row) insert(*row, 7);
    }
    const int closed = good ? PVBpatternClose(db()) : -2;
    EXPECT_TRUE(!faults.stop() || closed == 0 || PBerrorCount() > 0);
    if (good) PVBcloseUnsaved(db());
    PBdiscardErrors();
    ASSERT_TRUE(database.open());
    EXPECT_GE(sizeOf().row, 60U);
    EXPECT_EQ(PVBtreeCheck(data().nodes, 0, nullptr, nullptr), 0);
    EXPECT_EQ(PVBsubroutineByName(db(), "sub"), 0);
    database.close();
  });
}

// --- Rows ----------------------------------------------------------------------------

TEST_F(PatternTest, RowBlockOnDisk) {
  {
    const RowHandle row = newRow(ROW_SPACER, 0x0102);
    row->repeat16 = 0x0304;
    row->timeplate = 0x0506;
    row->link = 0x0708090A;
    row->spacerAddresses = 0x0B0C0D0E;
    row->spacerTime = {0x0F10, 0x1112};
    setRowCode(row->states(), 0, 1);
    setRowCode(row->states(), 3, 4);
  }
  const std::string path = database.directory().path("rows");
  std::uint32_t size = 104;
  const int plain = PageOpenPlain(path, size, 2);
  ASSERT_EQ(PageCopyBlockTyped(data().rows, plain, 0, 6), 0);
  ASSERT_EQ(PageClose(plain), 0);
  const std::string bytes = database.directory().read("rows").substr(kPageHeaderSize);
  const std::string numbers(
      "\0\0\0\6\0\0\0\0\3\4\5\6\7\x08\x09\x0A\0\0\0\0\0\0\0\0\0\0\1\2\x0B\x0C\x0D\x0E"
      "\xFF\xFF\xFF\xFF\0\0\0\0\0\0\0\0\0\0\x0F\x10\0\0\x11\x12",
      52);
  EXPECT_EQ(bytes.substr(0, 52), numbers);
  EXPECT_EQ(bytes.substr(52),
            std::string(36, '\0') + std::string("\1\x40", 2) + std::string(14, '\0'));
}

TEST_F(PatternTest, StatesOfSignalsStandInTheirColumns) {
  const RowHandle row = newRow();
  PVBsignal scalar;
  EXPECT_EQ(PVBrowGetState(db(), *row, scalar), '-');
  scalar.inColumn = 4;
  scalar.outColumn = 5;
  EXPECT_EQ(PVBrowSetState(db(), *row, scalar, 0x21), 0);
  EXPECT_EQ(row->states()[2], 0x21);
  EXPECT_EQ(PVBrowGetState(db(), *row, scalar), 0x21);
  EXPECT_EQ(PVBrowSetState(db(), *row, scalar, 256), -2);
  EXPECT_EQ(database.slot().status, kStatusOutOfBounds);
  scalar.inColumn = 32;  // past the row
  scalar.outColumn = kNoColumn;
  EXPECT_EQ(PVBrowGetState(db(), *row, scalar), '-');

  PVBsignal wide;
  wide.multiBit = 1;
  wide.bitTracks = {8, 9, 12};
  EXPECT_EQ(PVBrowSetState(db(), *row, wide, 0xABC), 0);
  EXPECT_EQ(rowCode(row->states(), 8), 0xC);
  EXPECT_EQ(rowCode(row->states(), 12), 0xA);
  EXPECT_EQ(PVBrowGetState(db(), *row, wide), 0xABC);
  EXPECT_EQ(PVBrowSetState(db(), *row, wide, 0x1000), -2);
  wide.bitTracks = {0, 1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(PVBrowSetState(db(), *row, wide, -2), 0);
  EXPECT_EQ(PVBrowGetState(db(), *row, wide), -2);
  wide.bitTracks[2] = 4000;
  EXPECT_EQ(PVBrowSetState(db(), *row, wide, 1), -2);
}

TEST_F(PatternTest, CommentsAreCutToTheRow) {
  const RowHandle loop = newRow(ROW_LOOP, 2);
  PVBrowSetComment(db(), *loop, "0123456789abcdefgh");
  EXPECT_EQ(PVBrowComment(db(), *loop), "0123456789abcde");
  PVBrowSetComment(db(), *loop, "short");
  EXPECT_EQ(PVBrowComment(db(), *loop), "short");
  ASSERT_GE(insert(*loop, 0), 0);
  PVBposition position = at(1);
  const RowHandle end(db(), PVBpatternInqRow(db(), kMainPattern, position, BY_ROW));
  ASSERT_TRUE(end);
  EXPECT_EQ(PVBrowComment(db(), *end), "short");
  EXPECT_EQ(PVBrowComment(db(), *newRow()), "");
}

TEST_F(PatternTest, HoldsAreCounted) {
  append(2);
  PVBrow* first = PVBrowGet(db(), 0);
  ASSERT_EQ(PVBrowGet(db(), 0), first);
  PVBrowFree(db(), first);
  PVBposition position;
  // Deleted while it is held, a row stays until it is given back.
  ASSERT_EQ(PVBpatternDeleteRow(db(), kMainPattern, position, BY_ROW), 0);
  EXPECT_EQ(first->id, 0U);
  EXPECT_EQ(PageCount(data().rows), 2U);
  PVBrowFree(db(), first);
  EXPECT_EQ(PageCount(data().rows), 1U);
  PVBrowFree(db(), first);
  PVBrowFree(db(), nullptr);
}

TEST_F(PatternTest, CopiesShareNothing) {
  const RowHandle row = newRow();
  row->tag = PVBpropListNew(db());
  setRowCode(row->states(), 7, 2);
  const RowHandle copy(db(), PVBpatternRowCopy(db(), *row));
  ASSERT_TRUE(copy);
  EXPECT_NE(copy->id, row->id);
  EXPECT_EQ(copy->timeplate, row->timeplate);
  EXPECT_EQ(rowCode(copy->states(), 7), 2);
  EXPECT_NE(copy->tag, row->tag);
  EXPECT_TRUE(PVBpropListExists(db(), copy->tag));

  const RowHandle loop = newRow(ROW_LOOP);
  ASSERT_GE(insert(*loop, 0), 0);
  const RowHandle loopCopy(db(), PVBpatternRowCopy(db(), *loop));
  EXPECT_EQ(loopCopy->link, kNoLink);
}

TEST_F(PatternTest, DeletingFreesAllThatHangsOnARow) {
  append(1);
  const std::uint32_t rowsBefore = PageCount(data().rows);
  const std::uint32_t nodesBefore = PageCount(data().nodes);
  PVBid list = UNDEF;
  for (std::uint32_t depth = 0; depth < 200; ++depth) {
    ASSERT_GE(insert(*newRow(ROW_LOOP, 2), depth), 0);
  }
  {
    const RowHandle row = newRow();
    list = row->tag = PVBpropListNew(db());
    ASSERT_GE(insert(*row, 200), 0);
  }
  EXPECT_EQ(sizeOf().row, 402U);
  PVBposition position;
  EXPECT_EQ(PVBpatternDeleteRow(db(), kMainPattern, position, BY_ROW), 0);
  EXPECT_EQ(sizeOf().row, 1U);
  EXPECT_EQ(PageCount(data().rows), rowsBefore);
  EXPECT_EQ(PageCount(data().nodes), nodesBefore);
  EXPECT_FALSE(PVBpropListExists(db(), list));
}

// --- Changes -------------------------------------------------------------------------

TEST_F(PatternTest, RefusedChanges) {
  append(2);
  ASSERT_GE(insert(*newRow(ROW_LOOP, 3), 0), 0);
  const RowHandle row = newRow();
  const RowHandle end = newRow(ROW_END_LOOP);
  const RowHandle call = newRow(ROW_SUBR_CALL);
  call->link = 4;
  EXPECT_EQ(insert(*end, 0), -1);
  EXPECT_EQ(insert(*call, 0), -1);
  PVBposition position;
  position.rowID = 0;
  EXPECT_EQ(PVBrowInsert(db(), kMainPattern, position, BY_ID, *row), -1);
  EXPECT_EQ(PVBrowInsert(db(), 2, position, BY_ROW, *row), -1);
  EXPECT_EQ(PVBpatternDeleteRow(db(), kMainPattern, position, BY_ID), -2);
  EXPECT_EQ(PVBrowUpdate(db(), kMainPattern, position, BY_ID, *row), -2);
  EXPECT_EQ(database.slot().status, kStatusBadKeyField);
  position = at(1);
  EXPECT_EQ(PVBpatternDeleteRow(db(), kMainPattern, position, BY_ROW), -2);  // the end row
  data().addressBase = 10;
  position.address = 9;
  EXPECT_EQ(PVBrowInsert(db(), kMainPattern, position, BY_ADDRESS, *row), -1);
  position = {};
  EXPECT_EQ(PVBrowUpdate(db(), kMainPattern, position, BY_ROW, *row), -2);  // another row
  const RowHandle loop(db(), PVBpatternInqRow(db(), kMainPattern, position, BY_ROW));
  loop->type = ROW_LITERAL;
  EXPECT_EQ(PVBrowUpdate(db(), kMainPattern, position, BY_ROW, *loop), -2);
  loop->type = ROW_LOOP;
  EXPECT_EQ(PVBloopMake(db(), kMainPattern, 1, 1, 2), -1);  // over an end row
  EXPECT_EQ(PVBloopMake(db(), kMainPattern, 0, 1, 2), -1);  // half a loop
  EXPECT_EQ(PVBloopMake(db(), kMainPattern, 2, 3, 2), -1);  // past the end
  EXPECT_EQ(PVBloopUnmake(db(), kMainPattern, 2), -2);
  EXPECT_EQ(sizeOf().row, 4U);
}

TEST_F(PatternTest, RepeatsBeyondSixteenBits) {
  ASSERT_GE(insert(*newRow(ROW_LOOP, 70000), 0), 0);
  ASSERT_GE(insert(*newRow(ROW_LITERAL, 100000), 1), 0);
  EXPECT_EQ(sizeOf().cycle, 70000U * 100000U);  // modulo 2^32
  PVBposition position;
  position.time = fromFemtoseconds(10000000LL * (100000LL * 3 + 99999));
  const RowHandle row(db(), PVBpatternInqRow(db(), kMainPattern, position, BY_TIME));
  ASSERT_TRUE(row);
  EXPECT_EQ(position.cycle, 399999U);
  EXPECT_EQ(position.count, 100000 & 0xFFFF);
}

TEST_F(PatternTest, ChangedPeriodsReachEveryTree) {
  const int sub = PVBsubroutineNew(db(), "sub");
  append(60, sub);
  ASSERT_GE(insert(*newRow(ROW_LOOP, 2), 0), 0);
  const RowHandle call = newRow(ROW_SUBR_CALL, 3);
  call->link = 0;
  ASSERT_GE(insert(*call, 1), 0);
  append(1);
  EXPECT_EQ(sizeOf().time, fromFemtoseconds(361 * 10000000LL));
  PVBtimePlateInqByID(db(), 0)->period = {0, 20000000};
  EXPECT_EQ(PVBpatternFixTimes(db()), 0);
  EXPECT_EQ(sizeOf().time, fromFemtoseconds(361 * 20000000LL));
  EXPECT_EQ(PVBsubroutineInq(db(), sub)->sums.time, fromFemtoseconds(60 * 20000000LL));
}

// --- Subroutines ---------------------------------------------------------------------

TEST_F(PatternTest, SubroutineTable) {
  EXPECT_EQ(PVBsubroutineFirst(db()), -1);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(PVBsubroutineNew(db(), "Sub" + std::to_string(i)), i);
  EXPECT_EQ(data().subroutines.size(), 16U);
  EXPECT_EQ(PVBsubroutineNew(db(), "Sub3"), -1);
  EXPECT_EQ(PVBsubroutineNew(db(), ""), -1);
  EXPECT_EQ(PVBsubroutineByName(db(), "sub3"), -1);
  EXPECT_EQ(PVBsubroutineByNameNoCase(db(), "sUB3"), 3);
  EXPECT_EQ(PVBsubroutineDelete(db(), 3), 0);
  EXPECT_EQ(PVBsubroutineDelete(db(), 3), -2);
  int count = 0;
  for (int i = PVBsubroutineFirst(db()); i >= 0; i = PVBsubroutineNext(db())) ++count;
  EXPECT_EQ(count, 8);
  EXPECT_EQ(PVBsubroutineNew(db(), "again"), 3);
  append(2, 3);
  data().subroutines[3].addressBase = -4;
  data().addressBase = 12;
  database.reopen();
  EXPECT_EQ(data().subroutines.size(), 16U);
  EXPECT_EQ(PVBsubroutineName(db(), 3), "again");
  EXPECT_EQ(data().addressBase, 12);
  EXPECT_EQ(data().subroutines[3].addressBase, -4);
  EXPECT_EQ(data().subroutines[3].sums.cycle, 2U);
}

TEST_F(PatternTest, BadSubroutineFilesAreRefused) {
  database.close();
  const struct {
    const char* text;
    bool good;
  } cases[] = {
      {"SUBROUTINES 1 0 0\n0\n", true},
      {"SUBROUTINES 0 1 8\n0 0 2 2 20nS 3\none\n", true},
      {"SUBROUTINES 1 1 8\n0\n5 0 2 2 20ns 2 -7 3\none\n", true},
      {"", false},
      {"SUBROUTINES 2 0 0\n0\n", false},
      {"SUBROUTINES 1 -1 0\n0\n", false},
      {"SUBROUTINES 1 0 -8\n0\n", false},
      {"SUBROUTINES 1 9 8\n0\n", false},
      {"SUBROUTINES 1 1 8\n0\n", false},
      {"SUBROUTINES 1 0 0\n0\nmore\n", false},
      {"SUBROUTINES 1 1 8\n0\n8 0 2 2 20nS 2 0 3\none\n", false},  // index
      {"SUBROUTINES 1 1 8\n0\n0 1 2 2 20nS 2 0 3\none\n", false},  // no such node
      {"SUBROUTINES 1 1 8\n0\n0 0 2 2 20x 2 0 3\none\n", false},   // time
      {"SUBROUTINES 1 1 8\n0\n0 0 2 2 20nS 2 0 4\none\n", false},  // name
      {"SUBROUTINES 1 2 8\n0\n0 0 2 2 20nS 2 0 3\none\n0 0 2 2 20nS 2 0 3\ntwo\n", false},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.text);
    std::ofstream(database.path() + "/pvb.ps") << test.text;
    EXPECT_EQ(database.open(), test.good);
    if (test.good) PVBcloseUnsaved(db());
    EXPECT_EQ(PBerrorHas("PVBpatternOpen", 87), !test.good);
    PBdiscardErrors();
  }
}

TEST_F(PatternTest, CallersFollowAtOnceOrAtTheEndOfTheBatch) {
  const int outer = PVBsubroutineNew(db(), "outer");
  const int inner = PVBsubroutineNew(db(), "inner");
  ASSERT_GE(appendCall(kMainPattern, outer), 0);
  ASSERT_GE(appendCall(outer, inner), 0);
  append(2, inner);
  EXPECT_EQ(sizeOf().cycle, 2U);
  {
    FixBatch batch(db());
    append(3, inner);
    append(1, outer);
    EXPECT_EQ(sizeOf(inner).cycle, 5U);
    EXPECT_EQ(sizeOf().cycle, 2U);
    EXPECT_EQ(batch.end(), 0);
  }
  EXPECT_EQ(sizeOf().cycle, 6U);
  PVBfixBegin(db());
  append(1, inner);
  EXPECT_EQ(PVBpatternSave(db(), {}), 0);  // a save doesn't wait for the end
  EXPECT_EQ(sizeOf().cycle, 7U);
  EXPECT_EQ(PVBfixEnd(db()), 0);
  EXPECT_EQ(PVBfixEnd(db()), -2);
  EXPECT_EQ(PVBsubroutineDelete(db(), inner), 0);
  EXPECT_EQ(sizeOf().cycle, 1U);
}

TEST_F(PatternTest, RecursiveCallsStandForNothing) {
  const int a = PVBsubroutineNew(db(), "a");
  const int b = PVBsubroutineNew(db(), "b");
  append(1, a);
  append(1, b);
  ASSERT_GE(appendCall(kMainPattern, a), 0);
  ASSERT_GE(appendCall(a, b), 0);
  EXPECT_EQ(sizeOf().cycle, 2U);
  ASSERT_GE(appendCall(b, a), 0);
  EXPECT_TRUE(PVBsubroutineInq(db(), a)->recursive && PVBsubroutineInq(db(), b)->recursive);
  EXPECT_EQ(sizeOf().cycle, 0U);
  EXPECT_EQ(sizeOf(a).cycle, 1U);
  PVBposition position;
  EXPECT_EQ(PVBpatternInqRow(db(), kMainPattern, position, BY_CYCLE), nullptr);
  position = at(1);
  EXPECT_EQ(PVBpatternDeleteRow(db(), b, position, BY_ROW), 0);
  EXPECT_FALSE(PVBsubroutineInq(db(), a)->recursive);
  EXPECT_EQ(sizeOf().cycle, 2U);
  ASSERT_GE(appendCall(a, a), 0);
  EXPECT_TRUE(PVBsubroutineInq(db(), a)->recursive);
  EXPECT_EQ(PVBsubroutineDelete(db(), a), 0);
  EXPECT_EQ(sizeOf().row, 1U);
}

// --- Damage --------------------------------------------------------------------------

TEST_F(PatternTest, BodiesThatLeadBackEnd) {
  ASSERT_GE(insert(*newRow(ROW_LOOP, 2), 0), 0);
  ASSERT_GE(insert(*newRow(), 1), 0);
  append(3);
  {
    // The body of the loop is the main pattern itself.
    NodeHandle node = getNode(data().nodes, 0);
    node->entries[0].index = 0;
    node.markDirty();
    const RowHandle loop(db(), PVBrowGet(db(), node->entries[0].child));
    loop->link = 0;
    PVBrowDirty(db(), *loop);
  }
  for (const int kind : {BY_ROW, BY_CYCLE, BY_TIME, BY_ADDRESS}) {
    for (const std::uint32_t key : {0U, 1U, 2U, 5U, 1000000U}) {
      PVBposition position = at(key);
      position.cycle = position.address = key;
      position.time = fromFemtoseconds(key * 10000000LL);
      RowHandle(db(), PVBpatternInqRow(db(), kMainPattern, position, kind)).reset();
    }
  }
  PatternWalk walk(db(), kMainPattern);
  int steps = 0;
  while (walk.next()) ++steps;
  EXPECT_TRUE(walk.failed());
  EXPECT_LE(steps, 20);
  EXPECT_EQ(PVBpatternFixTimes(db()), -2);
  PVBloopUnmake(db(), kMainPattern, 0);
  insert(*newRow(), 2);
  PVBposition position;
  PVBpatternDeleteRow(db(), kMainPattern, position, BY_ROW);
  PVBcloseUnsaved(db());
}

}  // namespace
