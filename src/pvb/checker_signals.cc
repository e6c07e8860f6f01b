// Signals, groups and pins.

#include <algorithm>
#include <array>
#include <string_view>
#include <tuple>
#include <unordered_set>

#include "pvb/checker_internal.h"
#include "pvb/pin.h"

namespace {

struct DirectionGroup {
  std::int32_t direction;
  PVBid group;
  Problem missing;
};
constexpr std::array<DirectionGroup, 3> kDirectionGroups = {{
    {BIDIR, kGroupAllBidir, kNotInAllBidir},
    {INPUT, kGroupAllInput, kNotInAllInput},
    {OUTPUT, kGroupAllOutput, kNotInAllOutput},
}};

bool isScalar(const PVBsignal& signal) {
  return signal.type == MEM_SIGNAL || signal.type == MEM_MUX;
}
bool isBus(const PVBsignal& signal) { return signal.type == MEM_BUS || signal.type == MEM_MUX_BUS; }
bool isGroup(const PVBsignal& signal) { return signal.type == MEM_GROUP; }

std::unordered_set<PVBid> scalarsOf(const Check& check, PVBid group) {
  const PVBsignal* record = PVBsignalInqByID(check.database, group);
  if (record == nullptr) return {};
  const PVBidList members = record->members;
  const PVBidList& scalars = PVBsignalListToScalars(check.database, members);
  return {scalars.begin(), scalars.end()};
}

// The parts of multiplexed signals, which stand in no group.
std::unordered_set<PVBid> muxParts(const Check& check, const PVBidList& ids) {
  std::unordered_set<PVBid> parts;
  for (const PVBid id : ids) {
    const PVBsignal* signal = PVBsignalInqByID(check.database, id);
    if (signal != nullptr) parts.insert(signal->muxChildren.begin(), signal->muxChildren.end());
  }
  return parts;
}

// --- Members -------------------------------------------------------------------------

bool isScanClass(PVBid id) {
  const int idClass = PVBidClass(id);
  return idClass == kClassScanCell || idClass == kClassScanRegister || idClass == kClassScanGroup ||
         idClass == kClassScanChain;
}

// Groups and buses hold signals, scan objects hold scan objects; a bus holds scalars, and
// only groups hold groups.
bool fitsContainer(const PVBsignal& container, const PVBsignal& member) {
  if (isScanClass(container.id) != isScanClass(member.id)) return false;
  if (isScanClass(container.id) || isGroup(container)) return true;
  return isScalar(member);
}

// A member that the implicit group isn't for; its direction must be that of the group.
bool belongs(PVBid group, const PVBsignal& member) {
  for (const DirectionGroup& row : kDirectionGroups) {
    if (row.group == group) return isGroup(member) || member.direction == row.direction;
  }
  if (group != kGroupAllMux) return true;
  return member.type == MEM_MUX || member.type == MEM_MUX_BUS || isGroup(member);
}

bool checkMember(Check& check, const PVBsignal& container, PVBid id) {
  const PVBsignal* member = PVBobjectInqByID(check.database, id);
  if (member == nullptr) {
    const std::string owner = container.name.value_or("");
    return prob2(check, kUnknownId, item("member of " + owner + ": "), item(pvbIdItem, id));
  }
  if (!fitsContainer(container, *member)) {
    return prob2(check, kMemberClass, item(sigItem, container.id), item(sigItem, id));
  }
  if (!belongs(container.id, *member)) {
    return prob2(check, kWrongGroup, item(sigItem, container.id), item(sigItem, id));
  }
  const bool mixed = isBus(container) && member->direction != container.direction;
  return mixed && prob2(check, kMixedBus, item(sigItem, container.id), item(sigItem, id));
}

// --- Tester names --------------------------------------------------------------------

// A tester channel's name and a signal that it stands for.
struct AteName {
  std::string_view name;
  PVBid signal;
  bool operator<(const AteName& other) const {
    return std::tie(name, signal) < std::tie(other.name, other.signal);
  }
  bool operator==(const AteName& other) const = default;
};

// The cross references of pins and signals, from both of their ends.
std::vector<AteName> ateNames(const Check& check) {
  std::vector<AteName> names;
  for (PVBpin* pin = PVBatePinFirst(check.database); pin != nullptr;
       pin = PVBatePinNext(check.database)) {
    if (!pin->name || pin->name->empty()) continue;
    for (const PVBid signal : pin->signals) {
      if (check.places.contains(signal)) names.push_back({*pin->name, signal});
    }
  }
  for (const CheckedSignal& signal : check.signals) {
    for (const PVBid id : signal.record->lists3) {
      const PVBpin* pin = PVBatePinInqByID(check.database, id);
      if (pin == nullptr || !pin->name || pin->name->empty()) continue;
      names.push_back({*pin->name, signal.id});
    }
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

}  // namespace

bool signalsNotInGroupAll(Check& check) {
  const PVBidList ids = PVBsignalInqAll(check.database);
  const std::unordered_set<PVBid> parts = muxParts(check, ids);
  std::array<std::unordered_set<PVBid>, kDirectionGroups.size()> groups;
  for (std::size_t g = 0; g < groups.size(); ++g) {
    groups[g] = scalarsOf(check, kDirectionGroups[g].group);
  }
  for (const PVBid id : ids) {
    const PVBsignal* signal = PVBsignalInqByID(check.database, id);
    if (signal == nullptr || !isScalar(*signal) || parts.contains(id)) continue;
    if (!check.places.contains(id) && prob1(check, kNotInAll, item(sigItem, id))) return true;
    for (std::size_t g = 0; g < groups.size(); ++g) {
      if (kDirectionGroups[g].direction != signal->direction || groups[g].contains(id)) continue;
      if (prob1(check, kDirectionGroups[g].missing, item(sigItem, id))) return true;
    }
  }
  return false;
}

bool checkPinUniqueness(Check& check) {
  const std::vector<AteName> names = ateNames(check);
  std::size_t first = 0;  // of this name
  for (std::size_t i = 1; i < names.size(); ++i) {
    if (names[i].name != names[first].name) {
      first = i;
    } else if (prob2(check, kDuplicateAteName, item(sigItem, names[first].signal),
                     item(sigItem, names[i].signal))) {
      return true;
    }
  }
  return false;
}

bool groupContentsValid(Check& check) {
  const PVBidList ids = PVBobjectInqAll(check.database);
  for (const PVBid id : ids) {
    const PVBsignal* container = PVBobjectInqByID(check.database, id);
    if (container == nullptr) continue;
    // The list of a multiplexed signal holds its parts, which have no groups of their own.
    if (!isGroup(*container) && !isBus(*container) && !isScanClass(id)) continue;
    for (const PVBid member : container->members) {
      if (checkMember(check, *container, member)) return true;
    }
  }
  return false;
}
