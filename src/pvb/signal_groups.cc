#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <unordered_set>

#include <fmt/printf.h>

#include "base/errors.h"
#include "pvb/signal.h"
#include "pvb/signal_internal.h"

namespace {

struct ImplicitGroup {
  const char* name;
  PVBid id;
  std::int32_t type;
};
constexpr std::array<ImplicitGroup, 6> kImplicitGroups = {{
    {"ALL", kGroupAll, MEM_GROUP},
    {"ALLINPUT", kGroupAllInput, MEM_GROUP},
    {"ALLOUTPUT", kGroupAllOutput, MEM_GROUP},
    {"ALLBIDIR", kGroupAllBidir, MEM_GROUP},
    {"ALLMUX", kGroupAllMux, MEM_GROUP},
    {"ALLSCAN", kGroupAllScan, kScanGroupType},
}};

// Groups that keep the order of a pin file; hidden like the implicit ones.
constexpr std::array<std::string_view, 2> kPinFileOrders = {"TL_PinFileOrder",
                                                            "TL_PinFileOrderFlat"};

void append(const PVBsignalData& data, PVBid group, PVBid id) {
  PVBsignal* found = findById(data, group);
  if (found != nullptr) found->members.push_back(id);
}

// UNDEF for a direction without a group.
PVBid directionGroup(std::int32_t direction) {
  constexpr std::array<PVBid, 3> kGroups = {kGroupAllInput, kGroupAllOutput, kGroupAllBidir};
  return direction >= INPUT && direction <= BIDIR ? kGroups[static_cast<std::size_t>(direction)]
                                                  : UNDEF;
}

void postFailure(std::string_view function, std::string_view text) {
  errno = 0;
  PBpostError(function, 0, text);
}

// --- Walking lists -------------------------------------------------------------------

// Walks a list of ids in order and down into buses and groups, each of them once, so
// that groups that hold one another end too. By hand, since groups may be nested
// deeper than calls.
class ListWalk {
 public:
  ListWalk(const PVBsignalData& data, const PVBidList& list) : data_(data) {
    levels_.push_back({&list, 0});
  }

  // The next id, UNDEF at the end; `signal` is null for one that names no signal.
  bool next(PVBid& id, PVBsignal*& signal) {
    while (!levels_.empty() && levels_.back().next == levels_.back().list->size()) {
      levels_.pop_back();
    }
    if (levels_.empty()) return false;
    Level& level = levels_.back();
    id = (*level.list)[level.next++];
    signal = isSignalId(id) ? findById(data_, id) : nullptr;
    if (signal != nullptr && isCompound(*signal) && entered_.insert(signal).second) {
      levels_.push_back({&signal->members, 0});
    }
    return true;
  }

 private:
  struct Level {
    const PVBidList* list;
    std::size_t next;
  };
  const PVBsignalData& data_;
  std::vector<Level> levels_;
  std::unordered_set<const PVBsignal*> entered_;
};

const PVBidList kNoScalars;

// --- Buses ---------------------------------------------------------------------------

bool hasBounds(const PVBsignal& bus) {
  return bus.leftIndex != kNoBound && bus.rightIndex != kNoBound;
}

std::unique_ptr<PVBsignal> makeChild(const PVBsignal& bus, int index) {
  std::unique_ptr<PVBsignal> child = PVBsignalNew();
  child->name = fmt::sprintf("%s[%d]", bus.name.value_or(""), index);
  child->type = bus.type == MEM_BUS ? MEM_SIGNAL : MEM_MUX;
  child->direction = bus.direction;
  child->leftIndex = child->rightIndex = static_cast<std::uint16_t>(index);
  return child;
}

// Inserts a child for each index and lists it in `children`: 0, or -2 at the first
// that fails.
int makeChildren(int database, const PVBsignal& bus, PVBidList& children) {
  const int step = bus.leftIndex <= bus.rightIndex ? 1 : -1;
  for (int index = bus.leftIndex; index != bus.rightIndex + step; index += step) {
    const PVBid child = PVBsignalInsert(database, makeChild(bus, index));
    if (child == UNDEF) return -2;
    children.push_back(child);
  }
  return 0;
}

// Room for all children at once, so that the rows are widened once.
int reserveChildren(int database, const PVBsignalData& data, const PVBsignal& bus) {
  if (bus.type != MEM_BUS) return 0;
  const int children = std::abs(bus.leftIndex - bus.rightIndex) + 1;
  return reserveColumns(database, data, children * columnsOfDirection(bus.direction));
}

}  // namespace

// --- Implicit groups -----------------------------------------------------------------

int addImplicitGroups(int database) {
  PVBsignalData& data = *PVBget(database)->signals;
  for (const ImplicitGroup& row : kImplicitGroups) {
    if (findById(data, row.id) != nullptr) continue;
    if (findByName(data, row.name) != nullptr) return failWith(database, kStatusCorrupt, -2);
    std::unique_ptr<PVBsignal> group = PVBsignalNew();
    group->id = row.id;
    group->name = row.name;
    group->type = row.type;
    if (enterSignal(data, std::move(group)) == nullptr) {
      return failWith(database, kStatusNoMemory, -2);
    }
    if (row.type == MEM_GROUP && !PVBidListContains(data.allGroups, row.id)) {
      data.allGroups.push_back(row.id);
    }
  }
  return 0;
}

bool PVBisImplicit(int database, PVBid id) {
  const bool isOne = std::any_of(kImplicitGroups.begin(), kImplicitGroups.end(),
                                 [id](const ImplicitGroup& row) { return row.id == id; });
  if (isOne) return true;
  const PVBsignalData* data = signalData(database);
  const PVBsignal* signal = data != nullptr ? findById(*data, id) : nullptr;
  return signal != nullptr && signal->name &&
         std::find(kPinFileOrders.begin(), kPinFileOrders.end(), *signal->name) !=
             kPinFileOrders.end();
}

void joinImplicitGroups(PVBsignalData& data, const PVBsignal& signal) {
  if (signal.type != MEM_SIGNAL && signal.type != MEM_MUX) return;
  append(data, kGroupAll, signal.id);
  append(data, directionGroup(signal.direction), signal.id);
  if (signal.type == MEM_MUX) append(data, kGroupAllMux, signal.id);
}

void joinScanGroup(PVBsignalData& data, PVBid object) { append(data, kGroupAllScan, object); }

PVBid PVBsignalAdd(int database, std::unique_ptr<PVBsignal> signal) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return UNDEF;
  const PVBid id = PVBsignalInsert(database, std::move(signal));
  if (id == UNDEF) return UNDEF;
  PVBsignal& added = *findById(*data, id);
  joinImplicitGroups(*data, added);
  if (!isBus(added) || !added.members.empty()) return id;
  if (PVBsignalExpand(database, added) != 0) {
    takeOut(*data, added);
    return UNDEF;
  }
  for (const PVBid child : added.members) joinImplicitGroups(*data, *findById(*data, child));
  return id;
}

int PVBmoveToDirectionGroup(int database, PVBsignal& signal, std::int32_t oldDirection) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return -2;
  PVBsignal* from = findById(*data, directionGroup(oldDirection));
  if (from == nullptr || from->members.empty() || from->members.back() != signal.id) return 0;
  from->members.pop_back();
  append(*data, directionGroup(signal.direction), signal.id);
  noteChange(*data);
  return 0;
}

// --- Buses ---------------------------------------------------------------------------

int PVBsignalExpand(int database, PVBsignal& bus) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return -2;
  if (!isBus(bus)) return failWith(database, kStatusBadType, -2);
  if (!hasBounds(bus)) return failWith(database, kStatusOutOfBounds, -2);
  if (reserveChildren(database, *data, bus) != 0) return -2;
  const std::int32_t firstColumn = data->nextColumn;
  PVBidList children;
  if (makeChildren(database, bus, children) != 0) {
    for (const PVBid child : children) takeOut(*data, *findById(*data, child));
    data->nextColumn = firstColumn;
    return -2;
  }
  bus.members.insert(bus.members.end(), children.begin(), children.end());
  return 0;
}

int PVBsetVariety(int database, PVBid id, std::int32_t variety) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return -2;
  const PVBsignal* signal = PVBsignalInqByID(database, id);
  if (signal == nullptr) {
    postFailure("PVBsetVariety", "Failed to find a signal.\n");
    return -2;
  }
  for (const PVBid member : signal->members) {
    PVBsignal* part = PVBsignalInqByID(database, member);
    if (part == nullptr) {
      postFailure("PVBsetVariety", "Failed to find a member of a bus/group.\n");
      return -2;
    }
    part->variety = variety;
  }
  noteChange(*data);
  return signal->members.empty() ? -2 : 0;
}

// --- Lists ---------------------------------------------------------------------------

bool PVBsignalListContains(int database, const PVBidList& list, PVBid id) {
  const PVBsignalData* data = signalData(database);
  if (data == nullptr) return false;
  ListWalk walk(*data, list);
  PVBid member = UNDEF;
  PVBsignal* signal = nullptr;
  while (walk.next(member, signal)) {
    if (member == id) return true;
    if (signal != nullptr) continue;
    PVBsetStatus(database, kStatusNotInUse);
    postFailure("PVBsignalListContains", "PVBsignalInqByID failed.\n");
  }
  return false;
}

const PVBidList& PVBsignalListToScalars(int database, const PVBidList& list) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return kNoScalars;
  PVBidList scalars;  // apart, since `list` may be the last result
  ListWalk walk(*data, list);
  PVBid member = UNDEF;
  PVBsignal* signal = nullptr;
  while (walk.next(member, signal)) {
    if (signal != nullptr && !isCompound(*signal)) scalars.push_back(member);
  }
  data->scalars.swap(scalars);
  return data->scalars;
}
