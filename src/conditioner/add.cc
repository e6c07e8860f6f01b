#include "conditioner/add.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_set>

#include "base/errors.h"
#include "conditioner/add_internal.h"
#include "conditioner/bus_range.h"
#include "conditioner/edit_target.h"
#include "conditioner/messages.h"
#include "conditioner/run.h"
#include "pvb/checker.h"
#include "pvb/database.h"
#include "pvb/pattern.h"

namespace {

constexpr EditWords kWords = {"adds", "add", "adding", false};
constexpr int kNoBusIndex = -1;
constexpr std::int32_t kCheckLimit = 50;  // findings of a problem that the check keeps

using AddList = ListTable<AddedSignal>::List;

template <typename... Args>
int fail(int message, const Args&... args) {
  errno = 0;
  PBerrPush(PBconditionerError, message, args...);
  return -2;
}

// --- One signal ----------------------------------------------------------------------

std::int32_t directionOf(std::string_view text) {
  switch (text.empty() ? '\0' : text.front()) {
    case 'I':
    case 'i':
      return INPUT;
    case 'O':
    case 'o':
      return OUTPUT;
    case 'B':
    case 'b':
      return BIDIR;
    default:
      return kNoDirection;
  }
}

// An index that has no room in a signal is left out.
std::uint16_t boundOf(std::int64_t busIndex) {
  return busIndex >= 0 && busIndex < kNoBound ? static_cast<std::uint16_t>(busIndex) : kNoBound;
}

int addSigNameAndDirection(AddRun& add, const std::string& name, const AddedSignal& item,
                           std::int64_t busIndex) {
  constexpr std::string_view kFunction = "addSigNameAndDirection";
  const std::int32_t direction = directionOf(item.direction);
  if (direction == kNoDirection) return fail(kAddFailed, kFunction, name, add.path);
  const PVBsignal* found = PVBsignalInqByName(add.database, name);
  if (found != nullptr && found->direction == direction) {
    return fail(kSameSignalExists, kFunction, name, add.path);
  }
  std::unique_ptr<PVBsignal> signal = PVBsignalNew();
  signal->name = name;
  signal->direction = direction;
  signal->leftIndex = signal->rightIndex = boundOf(busIndex);
  const PVBid id = PVBsignalAdd(add.database, std::move(signal));
  const PVBsignal* added = id != UNDEF ? PVBsignalInqByID(add.database, id) : nullptr;
  if (added == nullptr) return fail(kAddFailed, kFunction, name, add.path);
  return addSlot(add, *added, item.track, item.direction, item.patBit);
}

// --- The list ------------------------------------------------------------------------

bool hasTrack(const AddedSignal& item) { return !item.track.empty() || !item.patBit.empty(); }

// What becomes of the signal doesn't matter to the others.
void addScalar(AddRun& add, const std::string& name, const AddedSignal& item,
               std::int64_t busIndex) {
  if (!hasTrack(item)) {
    add.noTrackSpec = true;
  } else if (matchOpFileTrackToOpFileTrackname(name, item.track) == 0) {
    return;
  }
  addSigNameAndDirection(add, name, item, busIndex);
}

void addBus(AddRun& add, const AddedSignal& item) {
  if (!validateBus(item.name, add.listName, add.database, add.srcPath)) return;
  const BusRange range(item.name);
  for (std::int64_t i = range.low; i <= range.high; ++i) {
    const std::string name = range.member(i);
    if (PVBsignalInqByName(add.database, name) != nullptr) {
      fail(kDuplicateAdd, kWords.function, name, add.listName);
    } else {
      addScalar(add, name, item, i);
    }
  }
}

void addItems(AddRun& add, const AddList& list) {
  for (const AddedSignal& item : list) {
    if (isBusRange(item.name)) {
      addBus(add, item);
    } else {
      addScalar(add, item.name, item, kNoBusIndex);
    }
  }
}

// --- Room for the states -------------------------------------------------------------

// Counts the columns of the signals of a list that will be entered.
class ColumnCount {
 public:
  explicit ColumnCount(int database) : database_(database) {}

  void addItem(const AddedSignal& item) {
    if (hasTrack(item) && run.lists.trackListTable.find(item.track) == nullptr) return;
    direction_ = directionOf(item.direction);
    if (direction_ == kNoDirection) return;
    if (!isBusRange(item.name)) return addName(item.name);
    if (!isValidBus(item.name, database_) || names_.contains(std::string(busBase(item.name)))) {
      return;
    }
    const BusRange range(item.name);
    for (std::int64_t i = range.low; i <= range.high && count_ <= kMaxColumns; ++i) {
      addName(range.member(i));
    }
  }
  int count() const { return count_; }

 private:
  void addName(const std::string& name) {
    if (name.empty() || PVBsignalInqByName(database_, name) != nullptr) return;
    if (names_.insert(name).second) count_ += direction_ == BIDIR ? 2 : 1;
  }

  int database_;
  std::int32_t direction_ = kNoDirection;
  std::unordered_set<std::string> names_;
  int count_ = 0;
};

// Rewriting all rows for each signal that finds no room would take a time that grows with
// rows times signals. A failure here comes again with the first signal.
void widenRows(int database, const AddList& list) {
  ColumnCount columns(database);
  for (const AddedSignal& item : list) columns.addItem(item);
  const PVBdatabase& slot = *PVBget(database);
  const int width = std::min(slot.signals->nextColumn + columns.count(), kMaxColumns);
  if (columns.count() > 0 && width > slot.rowWidth) PVBpatternWidenRows(database, width);
}

// Loop, end and call rows have their comment where others have states.
bool hasStates(std::uint32_t type) {
  return type == ROW_LITERAL || type == ROW_SCAN || type == ROW_MATCH || type == ROW_PVBPOC;
}

int setStates(int database, std::uint32_t id, const std::vector<ColumnState>& states) {
  const RowHandle row(database, PVBrowGet(database, id));
  if (!row) return -2;
  for (const ColumnState& set : states) setRowCode(row->states(), set.column, set.state);
  PVBrowDirty(database, *row);
  return 0;
}

int writeStates(int database, const std::vector<ColumnState>& states) {
  if (states.empty()) return 0;
  PatternWalk walk(database, kMainPattern);
  while (walk.next()) {
    const PVBnodeEntry& entry = walk.entry();
    if (!hasStates(entry.type)) continue;
    if (setStates(database, entry.child, states) != 0) return fail(kRowNotFound, "setPatternRow");
  }
  return walk.failed() ? fail(kRowNotFound, "setPatternRow") : 0;
}

void check(int database) {
  if (PVBcheck(database, true, true, nullptr, kCheckLimit) == 0) return;
  std::fputs(checkerSummary(database), stderr);
  std::fputs("\n", stderr);
}

}  // namespace

int adds(PVBregion& dest, PVBregion& src, const PVBregion& listCarrier) {
  EditTarget target;
  if (openEditTarget(kWords, dest, src, target) != 0) return -2;
  AddRun add{target.database(), target.path(), src.pvbName, listCarrier.listName, false, {}};
  if (const AddList* list = run.lists.addListTable.find(add.listName)) {
    widenRows(add.database, *list);
    addItems(add, *list);
    writeStates(add.database, add.states);
  }
  check(add.database);
  closeEditTarget(kWords, target);
  return 0;
}
