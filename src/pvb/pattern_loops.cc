// Loops over rows that are there already. The rows' blocks stay where they are;
// only entries move. They arrive in the new place before they leave the old one,
// so that a full disk costs no row.

#include "pvb/pattern_internal.h"

namespace {

struct Place {
  std::uint32_t root;
  std::uint32_t row;  // in this tree
};

PVBposition atRow(std::uint32_t row) {
  PVBposition position;
  position.row = row;
  return position;
}

int insertAt(const PVBpatternData& data, const Place& place, const PVBnodeEntry& entry) {
  PVBposition position = atRow(place.row);
  return PVBtreeInsert(data.nodes, place.root, position, BY_ROW, entry);
}

// Removes entries from a place on until `rows` rows are gone.
int removeRows(const PVBpatternData& data, const Place& place, std::uint32_t rows) {
  std::uint32_t removed = 0;
  while (removed < rows) {
    PVBposition position = atRow(place.row);
    PVBnodeEntry entry;
    if (PVBtreeDelete(data.nodes, place.root, position, BY_ROW, entry) != 0) return -2;
    if (entry.rows == 0) return -2;
    removed += entry.rows;
  }
  return removed == rows ? 0 : -2;
}

// Copies whole entries until they stand for `rows` rows; in front of the end row
// of `body`. -2 when they don't come out even or run over the end of a loop.
int copyIntoBody(const PVBpatternData& data, const Place& from, std::uint32_t rows,
                 std::uint32_t body) {
  std::uint32_t copied = 0;
  while (copied < rows) {
    PVBposition position = atRow(from.row + copied);
    PVBnodeEntry entry;
    if (PVBtreeFind(data.nodes, from.root, position, BY_ROW, entry) != 0) return -2;
    if (position.row != from.row + copied || entry.rows == 0) return -2;
    if (entry.type == ROW_END_LOOP || entry.rows > rows - copied) return -2;
    if (insertAt(data, {body, copied}, entry) != 0) return -2;
    copied += entry.rows;
  }
  return 0;
}

int freeEndRow(PVBpatternData& data, const PVBnodeEntry& entry) {
  if (entry.type == ROW_END_LOOP) freeRowBlock(data, entry.child);
  return 0;
}

// The nodes of a body and its end row; the other rows live on elsewhere.
int freeBodyOnly(PVBpatternData& data, std::uint32_t body) {
  return PVBtreeFree(data.nodes, body,
                     [&](const PVBnodeEntry& entry) { return freeEndRow(data, entry); });
}

int fillLoop(int database, PVBpatternData& data, const Place& place, std::uint32_t rows,
             PVBrow& loop) {
  const std::int64_t body = makeBody(database, data, loop);
  if (body < 0) return -2;
  loop.link = static_cast<std::uint32_t>(body);
  if (copyIntoBody(data, place, rows, loop.link) == 0) {
    const PVBnodeEntry entry = PVBrowToEntry(database, loop);
    if (insertAt(data, place, entry) == 0) {
      return removeRows(data, {place.root, place.row + entry.rows}, rows);
    }
  }
  freeBodyOnly(data, loop.link);
  return -2;
}

// Copies the entries of a body in front of its loop; how many rows they stand for.
int copyOutOfBody(const PVBpatternData& data, std::uint32_t body, const Place& place,
                  std::uint32_t& rows) {
  TreeCursor cursor(data.nodes, body);
  PVBnodeEntry entry;
  std::uint32_t entriesLeft = PageCount(data.rows);
  while (cursor.next(entry)) {
    if (entry.type == ROW_END_LOOP) continue;
    if (entriesLeft-- == 0 || entry.rows == 0) return -2;
    if (insertAt(data, {place.root, place.row + rows}, entry) != 0) return -2;
    rows += entry.rows;
  }
  return cursor.failed() ? -2 : 0;
}

}  // namespace

std::int64_t PVBloopMake(int database, int pattern, std::uint32_t firstRow, std::uint32_t rowCount,
                         std::uint32_t count) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr || rowCount == 0 || count == 0) return -1;
  RowSearch search(database, *data, RowSearch::Goal::edit);
  if (search.run(pattern, atRow(firstRow), BY_ROW) != Seek::found) return -1;
  const Place place = {search.root(), search.rowInTree()};
  search.path().release();

  const RowHandle loop(database, PVBpatternNew(database));
  if (!loop) return -1;
  loop->type = ROW_LOOP;
  loop->count = count;
  if (fillLoop(database, *data, place, rowCount, *loop) != 0) {
    freeRowBlock(*data, loop->id);
    PVBsetStatus(database, kStatusBadPosition);
    return -1;
  }
  propagateChange(database, *data, pattern, search.loops());
  return loop->id;
}

int PVBloopUnmake(int database, int pattern, std::uint32_t loopRow) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return -2;
  RowSearch search(database, *data, RowSearch::Goal::edit);
  if (search.run(pattern, atRow(loopRow), BY_ROW) != Seek::found) return -2;
  const Place place = {search.root(), search.rowInTree()};
  const PVBnodeEntry loop = search.entry();
  search.path().release();
  if (loop.type != ROW_LOOP || loop.index == place.root) return -2;

  std::uint32_t rows = 0;
  if (copyOutOfBody(*data, loop.index, place, rows) != 0) {
    removeRows(*data, place, rows);
    return -2;
  }
  PVBposition atLoop = atRow(place.row + rows);
  PVBnodeEntry removed;
  if (PVBtreeDelete(data->nodes, place.root, atLoop, BY_ROW, removed) != 0) return -2;
  int result = freeBodyOnly(*data, loop.index);
  const RowHandle row(database, PVBrowGet(database, loop.child));
  if (row) row->link = kNoLink;
  if (freeRowDeep(database, *data, pattern, loop.child) != 0) result = -2;
  return propagateChange(database, *data, pattern, search.loops()) == 0 ? result : -2;
}
