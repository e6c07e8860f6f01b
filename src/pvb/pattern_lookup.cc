#include <algorithm>

#include "pvb/pattern_internal.h"
#include "pvb/scan_run.h"
#include "pvb/timeplate.h"

int PVBpatternBadIndex = kMainPattern;

// --- Patterns ------------------------------------------------------------------------

PVBpatternData::PVBpatternData() : hints(std::make_unique<TreeHints>()) {}
PVBpatternData::~PVBpatternData() = default;

const PVBsubroutine* findSubroutine(const PVBpatternData& data, std::uint32_t index) {
  if (index >= data.subroutines.size()) return nullptr;
  const PVBsubroutine& subroutine = data.subroutines[index];
  return subroutine.root != kNoNode ? &subroutine : nullptr;
}

std::uint32_t rootOf(int database, const PVBpatternData& data, int pattern) {
  if (pattern < kMainPattern || pattern >= static_cast<int>(data.subroutines.size())) {
    PVBpatternBadIndex = pattern;
    return kNoNode;
  }
  if (pattern == kMainPattern) {
    return static_cast<std::uint32_t>(PVBget(database)->header.mainRoot);
  }
  return data.subroutines[static_cast<std::size_t>(pattern)].root;
}

std::int32_t addressBaseOf(const PVBpatternData& data, int pattern) {
  if (pattern == kMainPattern) return data.addressBase;
  return data.subroutines[static_cast<std::size_t>(pattern)].addressBase;
}

std::int64_t PVBpatternRoot(int database, int pattern) {
  const PVBpatternData* data = patternData(database);
  const std::uint32_t root = data != nullptr ? rootOf(database, *data, pattern) : kNoNode;
  return root != kNoNode ? std::int64_t{root} : -1;
}

int PVBpatternInqSize(int database, int pattern, PVBposition& sums) {
  const PVBpatternData* data = patternData(database);
  if (data == nullptr) return -2;
  const std::uint32_t root = rootOf(database, *data, pattern);
  return root != kNoNode ? PVBtreeSums(data->nodes, root, sums) : -2;
}

// --- Search --------------------------------------------------------------------------

namespace {

// One process, one search at a time: the room for the loops around a row is kept.
std::vector<LoopLevel> loopRoom;

TreePath::Hold holdFor(RowSearch::Goal goal) {
  return goal == RowSearch::Goal::edit ? TreePath::Hold::yes : TreePath::Hold::no;
}

}  // namespace

RowSearch::RowSearch(int database, PVBpatternData& data, Goal goal)
    : database_(database),
      data_(data),
      goal_(goal),
      path_(data.nodes, holdFor(goal), data.hints.get()),
      loops_(loopRoom) {
  loops_.clear();
}

Seek RowSearch::run(int pattern, const PVBposition& position, int kind) {
  root_ = rootOf(database_, data_, pattern);
  if (root_ == kNoNode || !makeKey(position, kind, key_)) return Seek::bad;
  addressBase_ = addressBaseOf(data_, pattern);
  if (kind == BY_ADDRESS) {
    const std::int64_t address = std::int64_t{position.address} - addressBase_;
    if (address < 0) return Seek::bad;
    key_.value = static_cast<std::uint64_t>(address);
  }
  // Every tree on the way has a root of its own, so more of them than nodes is a circle.
  for (levels_ = 0; levels_ == 0 || levels_ <= countNodes(data_.nodes); ++levels_) {
    const Seek seek = path_.descend(root_, key_);
    if (seek == Seek::bad) return seek;
    count(path_.before());
    if (seek == Seek::end) return levels_ == 0 ? seek : Seek::bad;
    key_.value -= valueOf(path_.before(), kind);
    const bool atRow = kind == BY_ROW && key_.value == 0;
    const bool entersCalls = goal_ == Goal::lookUp && kind != BY_ROW;
    if (entry().type == ROW_LOOP && !atRow) {
      if (!enterLoop()) return Seek::bad;
    } else if (entry().type == ROW_SUBR_CALL && entersCalls) {
      if (!enterCall()) return Seek::bad;
    } else {
      skipRowPasses();
      return Seek::found;
    }
  }
  return Seek::bad;
}

void RowSearch::count(const TreeSums& sums) {
  TreeSums counted = sums;
  if (calls_ > 0) counted.rows = counted.addresses = 0;
  total_.add(counted);
}

// Takes the passes before the one that holds the key off the key.
void RowSearch::skipPasses(const TreeSums& once) {
  const bool byTime = key_.kind == BY_TIME;
  if (!byTime && key_.kind != BY_CYCLE) return;
  const std::uint64_t length = valueOf(once, key_.kind);
  if (length == 0 || key_.value < length) return;
  const std::uint64_t passes = key_.value / length;
  key_.value -= passes * length;
  pass_ = static_cast<std::uint32_t>(passes);
  total_.time += passes * once.time;
  total_.cycles += static_cast<std::uint32_t>(passes) * once.cycles;
}

bool RowSearch::enterLoop() {
  PVBposition sums;
  if (PVBtreeSums(data_.nodes, entry().index, sums) != 0) return false;
  if (key_.kind == BY_ROW) --key_.value;
  loops_.push_back({root_, path_.before().rows});
  count({0, 1, 0, 0});
  skipPasses({toTreeTime(sums.time), 0, sums.cycle, 0});
  root_ = entry().index;
  return true;
}

bool RowSearch::enterCall() {
  const PVBsubroutine* subroutine = findSubroutine(data_, entry().index);
  if (subroutine == nullptr || subroutine->recursive) return false;
  if (++calls_ > data_.subroutines.size()) return false;
  skipPasses({toTreeTime(subroutine->sums.time), 0, subroutine->sums.cycle, 0});
  root_ = subroutine->root;
  return true;
}

void RowSearch::skipRowPasses() {
  pass_ = 0;
  if (hasTimePlate(entry().type) && entry().cycles > 1) {
    const TIME period = PVBtimePlatePeriod(database_, static_cast<PVBid>(entry().index));
    skipPasses({toTreeTime(period), 0, 1, 0});
  } else if (entry().type == ROW_SPACER) {
    skipPasses(sumsOf(entry()));
  }
}

void RowSearch::fill(PVBposition& position) const {
  setPosition(position, total_);
  position.address += static_cast<std::uint32_t>(addressBase_);
}

// --- Look-up -------------------------------------------------------------------------

namespace {

void fillFromEntry(PVBposition& position, const PVBnodeEntry& entry) {
  position.rowID = entry.child;
  position.count = entry.count;
  position.index = entry.index;
  position.type = entry.type;
  position.address16 = entry.address16;
}

// The place of the row in its tree isn't known: only what the row says is filled in.
PVBrow* inquireById(int database, PVBposition& position) {
  PVBrow* row = PVBrowGet(database, position.rowID);
  if (row != nullptr) fillFromEntry(position, PVBrowToEntry(database, *row));
  return row;
}

}  // namespace

PVBrow* PVBpatternInqRow(int database, int pattern, PVBposition& position, int kind) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return nullptr;
  if (kind == BY_ID) return inquireById(database, position);
  RowSearch search(database, *data, RowSearch::Goal::lookUp);
  if (search.run(pattern, position, kind) != Seek::found) return nullptr;
  RowHandle row(database, PVBrowGet(database, search.entry().child));
  if (!row) return nullptr;
  if (row->type == ROW_SCAN && kind != BY_ROW &&
      PVBscanFillStates(database, *row, search.pass()) != 0) {
    return nullptr;
  }
  search.fill(position);
  fillFromEntry(position, search.entry());
  return row.detach();
}
