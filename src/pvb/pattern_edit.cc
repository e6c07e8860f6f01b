#include <utility>

#include "pvb/pattern_internal.h"
#include "pvb/property.h"
#include "pvb/scan_run.h"
#include "pvb/timeplate.h"

TIME timesCount(TIME time, std::uint32_t count) {
  if (count == 1) return time;
  constexpr std::uint32_t kUnit = 1000000000;
  return PBmulTIME(
      time, {static_cast<std::int32_t>(count / kUnit), static_cast<std::int32_t>(count % kUnit)});
}

// --- Entries -------------------------------------------------------------------------

namespace {

void describeLoop(const PVBpatternData& data, const PVBrow& row, PVBnodeEntry& entry) {
  PVBposition body;
  entry.index = row.link;
  if (row.link == kNoLink || PVBtreeSums(data.nodes, row.link, body) != 0) return;
  entry.rows = 1 + body.row;
  entry.cycles = body.cycle * row.count;
  entry.time = timesCount(body.time, row.count);
  entry.addresses = body.address;
}

void describeCall(const PVBpatternData& data, const PVBrow& row, PVBnodeEntry& entry) {
  entry.index = row.link;
  const PVBsubroutine* subroutine = findSubroutine(data, row.link);
  if (subroutine == nullptr || subroutine->recursive) return;
  entry.cycles = subroutine->sums.cycle * row.count;
  entry.time = timesCount(subroutine->sums.time, row.count);
}

void describeCycles(int database, const PVBrow& row, PVBnodeEntry& entry) {
  entry.index = row.timeplate;
  if (row.repeat16 > 0) entry.address16 = row.repeat16;
  entry.cycles = row.count;
  entry.addresses = 1;
  if (row.timeplate == kNoTimePlate) return;
  entry.time = timesCount(PVBtimePlatePeriod(database, row.timeplate), row.count);
}

}  // namespace

PVBnodeEntry PVBrowToEntry(int database, const PVBrow& row) {
  PVBnodeEntry entry = {};
  entry.rows = 1;
  entry.child = row.id;
  entry.count = static_cast<std::uint16_t>(row.count);
  entry.index = kNoLink;
  entry.type = static_cast<std::uint8_t>(row.type);
  entry.address16 = kNoRepeat16;
  const PVBpatternData* data = patternData(database);
  if (data == nullptr) return entry;
  if (row.type == ROW_LOOP) {
    describeLoop(*data, row, entry);
  } else if (row.type == ROW_SUBR_CALL) {
    describeCall(*data, row, entry);
  } else if (hasTimePlate(row.type)) {
    describeCycles(database, row, entry);
  } else if (row.type == ROW_SPACER) {
    entry.cycles = 1;
    entry.time = row.spacerTime;
    entry.addresses = row.spacerAddresses;
  }
  return entry;
}

// --- What follows a change -----------------------------------------------------------

namespace {

// The entry of a loop row after its body has changed.
int refreshLoop(int database, PVBpatternData& data, const LoopLevel& level) {
  TreePath path(data.nodes, TreePath::Hold::yes);
  if (path.descend(level.root, {BY_ROW, level.row}) != Seek::found) return -2;
  const RowHandle loop(database, PVBrowGet(database, path.entry().child));
  if (!loop) return -2;
  path.replace(PVBrowToEntry(database, *loop));
  return 0;
}

}  // namespace

int propagateChange(int database, PVBpatternData& data, int pattern,
                    const std::vector<LoopLevel>& loops) {
  data.changed = true;
  int result = 0;
  for (auto level = loops.rbegin(); level != loops.rend(); ++level) {
    if (refreshLoop(database, data, *level) != 0) result = -2;
  }
  return noteChange(database, data, pattern) == 0 ? result : -2;
}

void markTimePlate(int database, const PVBrow& row) {
  if (!hasTimePlate(row.type) || row.timeplate == kNoTimePlate) return;
  const PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || slot->timePlates == nullptr) return;
  PVBtimePlate* plate = PVBtimePlateInqByID(database, row.timeplate);
  if (plate != nullptr) plate->used = true;
}

namespace {

// --- Rows of loops -------------------------------------------------------------------

PVBrow* newEndRow(int database, const PVBrow& loop) {
  PVBrow* end = PVBpatternNew(database);
  if (end == nullptr) return nullptr;
  end->type = ROW_END_LOOP;
  end->count = loop.count;
  PVBrowCopyStates(database, *end, loop);
  return end;
}

// The end row follows its loop's count and comment.
void updateEndRow(int database, PVBpatternData& data, const PVBrow& loop) {
  PVBposition body;
  PVBnodeEntry last = {};
  if (PVBtreeSums(data.nodes, loop.link, body) != 0 || body.row == 0) return;
  --body.row;
  if (PVBtreeFind(data.nodes, loop.link, body, BY_ROW, last) != 0) return;
  const RowHandle end(database, PVBrowGet(database, last.child));
  if (!end || end->type != ROW_END_LOOP) return;
  end->count = loop.count;
  PVBrowCopyStates(database, *end, loop);
  PVBrowDirty(database, *end);
  PVBtreeReplace(data.nodes, loop.link, body, BY_ROW, PVBrowToEntry(database, *end));
}

}  // namespace

std::int64_t makeBody(int database, PVBpatternData& data, const PVBrow& loop) {
  const std::int64_t root = PVBtreeNew(data.nodes);
  if (root < 0) return -1;
  const auto node = static_cast<std::uint32_t>(root);
  const RowHandle end(database, newEndRow(database, loop));
  PVBposition first;
  if (end && PVBtreeInsert(data.nodes, node, first, BY_ROW, PVBrowToEntry(database, *end)) == 0) {
    return root;
  }
  if (end) freeRowBlock(data, end->id);
  PVBtreeFree(data.nodes, node, nullptr);
  return -1;
}

// --- Inserting -----------------------------------------------------------------------

namespace {

int refuse(int database, std::int32_t status) {
  PVBsetStatus(database, status);
  return -2;
}

// Whether the search found a place that is just the one asked for.
bool isExact(const RowSearch& search, Seek seek) {
  return seek == Seek::end || (seek == Seek::found && search.offset() == 0);
}

int insertRow(int database, PVBpatternData& data, int pattern, PVBposition& position, int kind,
              PVBrow& row) {
  const PVBnodeEntry entry = PVBrowToEntry(database, row);
  RowSearch search(database, data, RowSearch::Goal::edit);
  const Seek seek = search.run(pattern, position, kind);
  if (seek == Seek::bad) return -2;
  if (!isExact(search, seek)) return refuse(database, kStatusBadPosition);
  if (search.path().insert(entry) != 0) return -2;
  search.fill(position);
  position.rowID = row.id;
  PVBrowDirty(database, row);
  markTimePlate(database, row);
  if (row.type == ROW_SUBR_CALL) noteCall(database, data, pattern, row.link, 1);
  propagateChange(database, data, pattern, search.loops());
  return 0;
}

int insertLoop(int database, PVBpatternData& data, int pattern, PVBposition& position, int kind,
               PVBrow& row) {
  if (row.link != kNoLink) return refuse(database, kStatusBadType);
  const std::int64_t body = makeBody(database, data, row);
  if (body < 0) return -2;
  row.link = static_cast<std::uint32_t>(body);
  if (insertRow(database, data, pattern, position, kind, row) == 0) return 0;
  freeTreeDeep(database, data, pattern, std::exchange(row.link, kNoLink));
  return -2;
}

}  // namespace

std::int64_t PVBrowInsert(int database, int pattern, PVBposition& position, int kind, PVBrow& row) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr || row.type == ROW_END_LOOP) return -1;
  if (kind < BY_ROW || kind > BY_ADDRESS || kind == BY_ID) {
    PVBsetStatus(database, kStatusBadKeyField);
    return -1;
  }
  if (row.type == ROW_SUBR_CALL && findSubroutine(*data, row.link) == nullptr) {
    PVBsetStatus(database, kStatusOutOfBounds);
    return -1;
  }
  if (row.type == ROW_SUBR_CALL) callGraph(database, *data);
  const auto insert = row.type == ROW_LOOP ? insertLoop : insertRow;
  return insert(database, *data, pattern, position, kind, row) == 0 ? std::int64_t{row.id} : -1;
}

// --- Deleting ------------------------------------------------------------------------

namespace {

// Frees one row; the root of a body is put in `bodies`.
int freeRow(int database, PVBpatternData& data, int pattern, std::uint32_t id,
            std::vector<std::uint32_t>& bodies) {
  const RowHandle row(database, PVBrowGet(database, id));
  if (!row) return -2;
  if (row->type == ROW_LOOP && row->link != kNoLink) bodies.push_back(row->link);
  if (row->type == ROW_SUBR_CALL) noteCall(database, data, pattern, row->link, -1);
  if (row->type == ROW_SCAN) PVBscanRunsFree(database, *row);
  if (row->tag != UNDEF) PVBpropListFree(database, std::exchange(row->tag, UNDEF));
  freeRowBlock(data, id);
  return 0;
}

// Bodies lie within bodies as deep as they like: what is left to free is a list.
int freeBodies(int database, PVBpatternData& data, int pattern,
               std::vector<std::uint32_t>& bodies) {
  int result = 0;
  while (!bodies.empty()) {
    const std::uint32_t root = bodies.back();
    bodies.pop_back();
    const auto onRow = [&](const PVBnodeEntry& entry) {
      return freeRow(database, data, pattern, entry.child, bodies);
    };
    if (PVBtreeFree(data.nodes, root, onRow) != 0) result = -2;
  }
  return result;
}

}  // namespace

int freeRowDeep(int database, PVBpatternData& data, int pattern, std::uint32_t id) {
  std::vector<std::uint32_t> bodies;
  const int result = freeRow(database, data, pattern, id, bodies);
  return freeBodies(database, data, pattern, bodies) == 0 ? result : -2;
}

int freeTreeDeep(int database, PVBpatternData& data, int pattern, std::uint32_t root) {
  std::vector<std::uint32_t> bodies = {root};
  return freeBodies(database, data, pattern, bodies);
}

int PVBpatternDeleteRow(int database, int pattern, PVBposition& position, int kind) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return -2;
  // An id says nothing of the row's place in its tree.
  if (kind < BY_ROW || kind > BY_ADDRESS || kind == BY_ID) {
    return refuse(database, kStatusBadKeyField);
  }
  if (hasSubroutines(*data)) callGraph(database, *data);
  RowSearch search(database, *data, RowSearch::Goal::edit);
  if (search.run(pattern, position, kind) != Seek::found) return -2;
  // An end row goes with its loop only.
  if (search.entry().type == ROW_END_LOOP) return refuse(database, kStatusBadType);
  const std::uint32_t id = search.entry().child;
  search.fill(position);
  search.path().remove();
  const int result = freeRowDeep(database, *data, pattern, id);
  return propagateChange(database, *data, pattern, search.loops()) == 0 ? result : -2;
}

// --- Updating ------------------------------------------------------------------------

namespace {

bool isStructure(std::uint32_t type) { return type == ROW_LOOP || type == ROW_END_LOOP; }

// A row can't become a loop or an end row or cease to be one, nor change its body.
bool mayBecome(const PVBnodeEntry& before, const PVBrow& row) {
  if (before.type == row.type) return row.type != ROW_LOOP || before.index == row.link;
  return !isStructure(before.type) && !isStructure(row.type);
}

bool sameEntry(const PVBnodeEntry& a, const PVBnodeEntry& b) {
  return sumsOf(a) == sumsOf(b) && a.count == b.count && a.index == b.index && a.type == b.type &&
         a.address16 == b.address16;
}

void noteCallChange(int database, PVBpatternData& data, int pattern, const PVBnodeEntry& before,
                    const PVBnodeEntry& after) {
  const bool called = before.type == ROW_SUBR_CALL;
  const bool calls = after.type == ROW_SUBR_CALL;
  if (called && calls && before.index == after.index) return;
  if (called) noteCall(database, data, pattern, before.index, -1);
  if (calls) noteCall(database, data, pattern, after.index, 1);
}

}  // namespace

int PVBrowUpdate(int database, int pattern, PVBposition& position, int kind, PVBrow& row) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return -2;
  if (kind < BY_ROW || kind > BY_ADDRESS || kind == BY_ID) {
    return refuse(database, kStatusBadKeyField);
  }
  if (row.type == ROW_SUBR_CALL && hasSubroutines(*data)) callGraph(database, *data);
  RowSearch search(database, *data, RowSearch::Goal::edit);
  if (search.run(pattern, position, kind) != Seek::found) return -2;
  const PVBnodeEntry before = search.entry();
  if (before.child != row.id) return refuse(database, kStatusBadPosition);
  if (!mayBecome(before, row)) return refuse(database, kStatusBadType);
  search.fill(position);
  PVBrowDirty(database, row);
  markTimePlate(database, row);
  const PVBnodeEntry after = PVBrowToEntry(database, row);
  const bool same = sameEntry(before, after);
  if (same) {
    search.path().release();
  } else {
    search.path().replace(after);
  }
  if (row.type == ROW_LOOP) updateEndRow(database, *data, row);
  if (same) return 0;
  noteCallChange(database, *data, pattern, before, after);
  return propagateChange(database, *data, pattern, search.loops());
}
