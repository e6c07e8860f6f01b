// Random patterns with loops, calls, repeats and spacers, against a model that
// knows nothing of trees: it writes every cycle out.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "base/errors.h"
#include "base/time_internal.h"
#include "pvb/pattern_internal.h"
#include "pvb/timeplate.h"
#include "support/database.h"

namespace {

constexpr std::array<std::int64_t, 3> kPeriods = {10000000, 25000000, 1700000000};
constexpr std::uint32_t kNoRow = 0xFFFFFFFF;  // behind the last one
constexpr int kPatterns = 4;                  // the main one and three subroutines

struct Row {
  std::uint32_t type = ROW_LITERAL;
  std::uint32_t id = 0;
  std::uint32_t count = 1;
  std::uint32_t plate = 0;
  std::uint32_t addresses = 0;  // of a spacer
  int callee = 0;
  std::vector<Row> body;  // the end row is its last
};
using Rows = std::vector<Row>;

Row endOf(const PVBrow& block) {
  Row row;
  row.type = ROW_END_LOOP;
  row.id = block.id;
  return row;
}

// A piece of time in which one row is in force, and its beginning as a look-up
// tells it.
struct Piece {
  std::int64_t start = 0;
  std::int64_t end = 0;
  std::uint32_t cycle = 0;
  std::uint32_t row = 0;
  std::uint32_t address = 0;
  std::uint32_t addresses = 0;
  std::uint32_t id = 0;
  bool inCall = false;
};

struct Expansion {
  std::int64_t time = 0;
  std::uint32_t cycle = 0;
  std::uint32_t row = 0;
  std::uint32_t address = 0;
  std::vector<Piece> pieces;  // every cycle
  std::vector<Piece> rows;    // every row number
  bool inCall = false;
  bool repeated = false;  // in a later pass of a loop
};

class Model {
 public:
  Rows& rows(int pattern) { return patterns_[static_cast<std::size_t>(pattern + 1)]; }

  Expansion expand(int pattern) {
    Expansion all;
    expandRows(rows(pattern), all);
    return all;
  }
  // The list that holds a row, and its index there.
  static bool locate(Rows& rows, std::uint32_t id, Rows*& list, std::size_t& index) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (rows[i].id == id) {
        list = &rows;
        index = i;
        return true;
      }
      if (locate(rows[i].body, id, list, index)) return true;
    }
    return false;
  }

 private:
  void expandRows(const Rows& rows, Expansion& all) {
    for (const Row& row : rows) expandRow(row, all);
  }
  static void nextRow(Expansion& all, std::uint32_t addresses) {
    if (all.inCall) return;
    ++all.row;
    all.address += addresses;
  }
  static Piece piece(const Row& row, const Expansion& all, std::int64_t length,
                     std::uint32_t addresses) {
    return {all.time,    all.time + length, all.cycle, all.row,
            all.address, addresses,         row.id,    all.inCall};
  }
  void expandRow(const Row& row, Expansion& all) {
    if (!all.inCall && !all.repeated) {
      const bool addressed = row.type == ROW_LITERAL || row.type == ROW_SPACER;
      const std::uint32_t addresses = row.type == ROW_LITERAL ? 1 : row.addresses;
      all.rows.push_back(piece(row, all, 0, addressed ? addresses : 0));
    }
    if (row.type == ROW_LITERAL) {
      for (std::uint32_t i = 0; i < row.count; ++i) addPiece(row, all, kPeriods[row.plate], 1);
      nextRow(all, 1);
    } else if (row.type == ROW_SPACER) {
      addPiece(row, all, kPeriods[row.plate], row.addresses);
      nextRow(all, row.addresses);
    } else if (row.type == ROW_LOOP) {
      nextRow(all, 0);
      repeat(row.count, all, [&] { expandRows(row.body, all); });
    } else if (row.type == ROW_SUBR_CALL) {
      expandCall(row, all);
    } else {
      nextRow(all, 0);
    }
  }
  static void addPiece(const Row& row, Expansion& all, std::int64_t length,
                       std::uint32_t addresses) {
    all.pieces.push_back(piece(row, all, length, addresses));
    all.time += length;
    ++all.cycle;
  }
  template <typename Action>
  static void repeat(std::uint32_t count, Expansion& all, Action action) {
    const bool repeated = all.repeated;
    const std::uint32_t row = all.row;
    const std::uint32_t address = all.address;
    for (std::uint32_t i = 0; i < count; ++i) {
      all.row = row;
      all.address = address;
      all.repeated = repeated || i > 0;
      action();
    }
    all.repeated = repeated;
  }
  void expandCall(const Row& row, Expansion& all) {
    const bool inCall = all.inCall;
    all.inCall = true;
    for (std::uint32_t i = 0; i < row.count; ++i) expandRows(rows(row.callee), all);
    all.inCall = inCall;
    nextRow(all, 0);
  }

  std::array<Rows, kPatterns> patterns_;
};

class PatternModelTest : public testing::Test {
 protected:
  PatternModelTest() : database(32, 16, kSectionPatterns | kSectionTimePlates) {
    for (std::size_t i = 0; i < kPeriods.size(); ++i) {
      auto plate = PVBtimePlateNew();
      plate->name = "tp" + std::to_string(i);
      plate->period = fromFemtoseconds(kPeriods[i]);
      PVBtimePlateInsert(database.handle(), std::move(plate));
    }
    for (int i = 0; i < kPatterns - 1; ++i) {
      EXPECT_EQ(PVBsubroutineNew(database.handle(), "sub" + std::to_string(i)), i);
    }
    PVBpatternData& data = *database.slot().patterns;
    data.addressBase = 100;
    data.subroutines[0].addressBase = 7;
  }
  ~PatternModelTest() override { PBdiscardErrors(); }

  std::uint32_t pick(std::uint32_t low, std::uint32_t high) {
    return std::uniform_int_distribution<std::uint32_t>(low, high)(random);
  }
  int db() const { return database.handle(); }
  std::uint32_t base(int pattern) {
    return static_cast<std::uint32_t>(addressBaseOf(*database.slot().patterns, pattern));
  }

  // --- Changes -----------------------------------------------------------------------

  Row randomRow(int pattern, bool small) {
    Row row;
    const std::uint32_t dice = pick(0, 19);
    row.count = pick(0, 2) == 0 ? pick(1, 4) : 1;
    row.plate = pick(0, 2);
    if (dice < 2 && small) {
      row.type = ROW_LOOP;
      row.count = pick(1, 3);
    } else if (dice < 4 && small && pattern < kPatterns - 2) {
      row.type = ROW_SUBR_CALL;
      row.count = pick(1, 2);
      row.callee = static_cast<int>(pick(static_cast<std::uint32_t>(pattern + 1), kPatterns - 2));
    } else if (dice == 4) {
      row.type = ROW_SPACER;
      row.addresses = pick(0, 3);
    }
    return row;
  }
  void put(const Row& row, PVBrow& block) {
    block.type = row.type;
    block.count = row.count;
    if (row.type == ROW_LITERAL) block.timeplate = static_cast<std::uint16_t>(row.plate);
    if (row.type == ROW_SUBR_CALL) block.link = static_cast<std::uint32_t>(row.callee);
    if (row.type != ROW_SPACER) return;
    block.spacerTime = fromFemtoseconds(kPeriods[row.plate]);
    block.spacerAddresses = row.addresses;
  }
  // A place and the key that names it; the row found there is `id`.
  struct Target {
    PVBposition position;
    int kind = BY_ROW;
    std::uint32_t id = kNoRow;
  };
  Target pickTarget(int pattern) {
    const Expansion all = model.expand(pattern);
    Target target;
    const std::array<int, 4> kinds = {BY_ROW, BY_ADDRESS, BY_CYCLE, BY_TIME};
    target.kind = kinds[pick(0, batch ? 1 : 3)];
    const bool byPiece = target.kind == BY_CYCLE || target.kind == BY_TIME;
    const auto& places = byPiece ? all.pieces : all.rows;
    Piece place = {all.time, all.time, all.cycle, all.row, all.address, 1, kNoRow, false};
    const auto chosen = pick(0, static_cast<std::uint32_t>(places.size()));
    if (chosen < places.size()) place = places[chosen];
    const bool repeat =
        byPiece && chosen > 0 && chosen < places.size() && places[chosen - 1].id == place.id;
    if (place.inCall || repeat || (target.kind == BY_ADDRESS && place.addresses == 0)) {
      return pickTarget(pattern);
    }
    target.id = place.id;
    target.position.row = place.row;
    target.position.cycle = place.cycle;
    target.position.time = fromFemtoseconds(place.start);
    target.position.address = place.address + base(pattern);
    return target;
  }
  void insert(int pattern) {
    const Expansion all = model.expand(pattern);
    Target target = pickTarget(pattern);
    Row row = randomRow(pattern, all.pieces.size() < 600);
    RowHandle block(db(), PVBpatternNew(db()));
    ASSERT_TRUE(block);
    put(row, *block);
    row.id = block->id;
    ASSERT_EQ(PVBrowInsert(db(), pattern, target.position, target.kind, *block), row.id);
    if (row.type == ROW_LOOP) {
      PVBposition end;
      end.row = target.position.row + 1;
      const RowHandle endRow(db(), PVBpatternInqRow(db(), pattern, end, BY_ROW));
      ASSERT_TRUE(endRow);
      row.body.push_back(endOf(*endRow));
    }
    Rows* list = &model.rows(pattern);
    std::size_t index = list->size();
    if (target.id != kNoRow) {
      ASSERT_TRUE(Model::locate(model.rows(pattern), target.id, list, index));
    }
    list->insert(list->begin() + static_cast<std::ptrdiff_t>(index), row);
  }
  void remove(int pattern) {
    Target target = pickTarget(pattern);
    Rows* list = nullptr;
    std::size_t index = 0;
    const bool there = Model::locate(model.rows(pattern), target.id, list, index);
    const bool removable = there && (*list)[index].type != ROW_END_LOOP;
    ASSERT_EQ(PVBpatternDeleteRow(db(), pattern, target.position, target.kind), removable ? 0 : -2);
    if (removable) list->erase(list->begin() + static_cast<std::ptrdiff_t>(index));
  }
  void update(int pattern) {
    Target target = pickTarget(pattern);
    Rows* list = nullptr;
    std::size_t index = 0;
    if (!Model::locate(model.rows(pattern), target.id, list, index)) return;
    Row& row = (*list)[index];
    if (row.type == ROW_END_LOOP) return;
    RowHandle block(db(), PVBrowGet(db(), row.id));
    ASSERT_TRUE(block);
    row.count = pick(1, row.type == ROW_LITERAL ? 4 : 2);
    row.plate = pick(0, 2);
    put(row, *block);
    ASSERT_TRUE(row.type != ROW_LOOP || block->link != kNoLink);
    ASSERT_EQ(PVBrowUpdate(db(), pattern, target.position, target.kind, *block), 0);
  }
  void makeOrUnmakeLoop(int pattern) {
    const Expansion all = model.expand(pattern);
    if (all.rows.empty() || all.pieces.size() > 600) return;
    const Piece first = all.rows[pick(0, static_cast<std::uint32_t>(all.rows.size()) - 1)];
    Rows* list = nullptr;
    std::size_t index = 0;
    ASSERT_TRUE(Model::locate(model.rows(pattern), first.id, list, index));
    const auto from = list->begin() + static_cast<std::ptrdiff_t>(index);
    if (from->type == ROW_LOOP && pick(0, 1) == 0) {
      ASSERT_EQ(PVBloopUnmake(db(), pattern, first.row), 0);
      Rows body(from->body.begin(), from->body.end() - 1);
      list->insert(list->erase(from), body.begin(), body.end());
      return;
    }
    std::size_t entries = 0;
    std::uint32_t rows = 0;
    const std::size_t wanted = pick(1, 5);
    for (; entries < wanted && index + entries < list->size(); ++entries) {
      const Row& row = (*list)[index + entries];
      if (row.type == ROW_END_LOOP) break;
      rows += countRows(row);
    }
    const std::int64_t id = PVBloopMake(db(), pattern, first.row, rows, 2);
    ASSERT_EQ(id >= 0, entries > 0);
    if (entries == 0) return;
    PVBposition end;
    end.row = first.row + rows + 1;
    const RowHandle endRow(db(), PVBpatternInqRow(db(), pattern, end, BY_ROW));
    ASSERT_TRUE(endRow && endRow->type == ROW_END_LOOP && endRow->count == 2);
    const auto to = from + static_cast<std::ptrdiff_t>(entries);
    Row loop = {ROW_LOOP, static_cast<std::uint32_t>(id), 2, 0, 0, 0, Rows(from, to)};
    loop.body.push_back(endOf(*endRow));
    list->insert(list->erase(from, to), loop);
  }
  static std::uint32_t countRows(const Row& row) {
    std::uint32_t rows = 1;
    for (const Row& inner : row.body) rows += countRows(inner);
    return rows;
  }

  // --- Checks ------------------------------------------------------------------------

  void expectFound(int pattern, PVBposition position, int kind, const Piece& piece) {
    const RowHandle row(db(), PVBpatternInqRow(db(), pattern, position, kind));
    ASSERT_TRUE(row) << PVBkeyKindName(kind);
    ASSERT_EQ(row->id, piece.id) << PVBkeyKindName(kind);
    ASSERT_EQ(position.rowID, piece.id);
    ASSERT_EQ(position.time, fromFemtoseconds(piece.start));
    ASSERT_EQ(position.cycle, piece.cycle);
    ASSERT_EQ(position.row, piece.row) << PVBkeyKindName(kind);
    ASSERT_EQ(position.address, piece.address + base(pattern));
  }
  void verify(int pattern, std::size_t step) {
    const Expansion all = model.expand(pattern);
    PVBposition sums;
    ASSERT_EQ(PVBpatternInqSize(db(), pattern, sums), 0);
    ASSERT_EQ(sums.row, all.row);
    ASSERT_EQ(sums.cycle, all.cycle);
    ASSERT_EQ(sums.time, fromFemtoseconds(all.time));
    ASSERT_EQ(sums.address, all.address);
    for (std::size_t i = 0; i < all.rows.size(); i += step) verifyRow(pattern, all.rows[i]);
    for (std::size_t i = 0; i < all.pieces.size(); i += step) verifyPiece(pattern, all.pieces[i]);
    for (const int kind : {BY_ROW, BY_CYCLE, BY_TIME, BY_ADDRESS}) {
      PVBposition end = sums;
      end.address += base(pattern);
      ASSERT_EQ(PVBpatternInqRow(db(), pattern, end, kind), nullptr);
    }
    PatternWalk walk(db(), pattern);
    for (const Piece& row : all.rows) {
      ASSERT_TRUE(walk.next());
      ASSERT_EQ(walk.entry().child, row.id);
      ASSERT_EQ(walk.rowNumber(), row.row);
    }
    ASSERT_FALSE(walk.next() || walk.failed());
  }
  void verifyRow(int pattern, const Piece& row) {
    PVBposition position;
    position.row = row.row;
    expectFound(pattern, position, BY_ROW, row);
    for (std::uint32_t i = 0; i < row.addresses; ++i) {
      position = {};
      position.address = row.address + i + base(pattern);
      expectFound(pattern, position, BY_ADDRESS, row);
    }
  }
  void verifyPiece(int pattern, const Piece& piece) {
    PVBposition position;
    position.cycle = piece.cycle;
    expectFound(pattern, position, BY_CYCLE, piece);
    for (const std::int64_t time : {piece.start, (piece.start + piece.end) / 2, piece.end - 1}) {
      position = {};
      position.time = fromFemtoseconds(time);
      expectFound(pattern, position, BY_TIME, piece);
    }
  }
  // Every tree and every body: structure, and each entry against its row.
  void verifyTrees() {
    const PVBpatternData& data = *database.slot().patterns;
    std::vector<std::uint32_t> roots;
    for (int pattern = -1; pattern < kPatterns - 1; ++pattern) {
      roots.push_back(rootOf(db(), data, pattern));
    }
    while (!roots.empty()) {
      const std::uint32_t root = roots.back();
      roots.pop_back();
      const auto onRow = [&](const PVBnodeEntry& entry) {
        const RowHandle row(db(), PVBrowGet(db(), entry.child));
        ASSERT_TRUE(row);
        const PVBnodeEntry expected = PVBrowToEntry(db(), *row);
        ASSERT_EQ(std::memcmp(&expected, &entry, sizeof entry), 0) << PVBrowTypeName(row->type);
        if (entry.type == ROW_LOOP) roots.push_back(entry.index);
      };
      ASSERT_EQ(PVBtreeCheck(data.nodes, root, nullptr, onRow), 0);
    }
    ASSERT_TRUE(data.heldRows.empty());
  }
  void verifyAll(std::size_t step) {
    for (int pattern = -1; pattern < kPatterns - 1; ++pattern) {
      verify(pattern, step);
      if (HasFatalFailure()) return;
    }
    verifyTrees();
  }
  std::size_t countBlocks() {
    std::size_t rows = 0;
    for (int pattern = -1; pattern < kPatterns - 1; ++pattern) {
      rows += model.expand(pattern).rows.size();
    }
    return rows;
  }
  void change() {
    const int pattern = static_cast<int>(pick(0, kPatterns - 1)) - 1;
    const std::uint32_t dice = pick(0, 9);
    if (dice < 5) {
      insert(pattern);
    } else if (dice < 7) {
      remove(pattern);
    } else if (dice < 9) {
      update(pattern);
    } else {
      makeOrUnmakeLoop(pattern);
    }
  }

  TestDatabase database;
  Model model;
  std::mt19937 random{5};
  bool batch = false;
};

TEST_F(PatternModelTest, AgreesUnderRandomChanges) {
  for (int round = 0; round < 64; ++round) {
    // Every other round is a batch, in which the times of callers lag behind.
    batch = round % 2 == 1;
    if (batch) PVBfixBegin(db());
    for (int i = 0; i < 60; ++i) {
      change();
      if (HasFatalFailure()) return;
    }
    if (batch) {
      ASSERT_EQ(PVBfixEnd(db()), 0);
    }
    verifyAll(13);
    if (HasFatalFailure()) return;
    if (round % 16 == 15) database.reopen();
  }
  verifyAll(2);
  EXPECT_EQ(PageCount(database.slot().patterns->rows), countBlocks());
}

}  // namespace
