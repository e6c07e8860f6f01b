#include "pvb/bus.h"

#include <fmt/printf.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "pvb/bus_internal.h"
#include "pvb/signal.h"
#include "pvb/signal_internal.h"

namespace {

constexpr int kNoMemory = 82;
// How far the indices of a bus may lie below, and above, the one seen first.
constexpr std::int64_t kMostBelow = 16384;
constexpr std::int64_t kMostAbove = 16383;
constexpr std::int64_t kMostIndex = 0x7FFFFFFF;  // what is read of longer digits
constexpr std::int64_t kMostBound = kNoBound - 1;

// --- Names ---------------------------------------------------------------------------

struct IndexedName {
  std::string_view base;
  std::int64_t index;
};

// The number of digits with an optional sign before; none for any other text.
std::optional<std::int64_t> readIndex(std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  if (text.empty()) return std::nullopt;
  std::int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = std::min(value * 10 + (c - '0'), kMostIndex);
  }
  return negative ? -value : value;
}

// The parts of a name such as "d[3]".
std::optional<IndexedName> splitName(std::string_view name) {
  if (!name.ends_with(']')) return std::nullopt;
  const std::size_t bracket = name.rfind('[');
  if (bracket == std::string_view::npos || bracket == 0) return std::nullopt;
  const auto index = readIndex(name.substr(bracket + 1, name.size() - bracket - 2));
  if (!index) return std::nullopt;
  return IndexedName{name.substr(0, bracket), *index};
}

// --- Candidates ----------------------------------------------------------------------

struct Candidate {
  std::string name;
  bool rejected = false;
  std::vector<std::pair<std::int64_t, PVBid>> members;  // by index, once all are seen
  std::unordered_set<std::int64_t> taken;               // the indices of `members`
  std::int64_t firstIndex = 0;
  std::int32_t direction = kNoDirection;

  std::int64_t lowest() const { return members.front().first; }
  std::int64_t highest() const { return members.back().first; }
};

// The buses that a group's scalars may form, in the order in which they were first seen.
class Candidates {
 public:
  Candidates(int database, bool ofAll, FILE* stream)
      : database_(database), ofAll_(ofAll), stream_(stream) {}

  void see(const PVBsignal& signal) {
    if (signal.type != MEM_SIGNAL || !signal.name) return;
    const std::optional<IndexedName> name = splitName(*signal.name);
    if (!name) return;
    Candidate& candidate = candidateFor(*name, signal);
    if (!candidate.rejected) add(candidate, name->index, signal);
  }

  // Those of which a bus can be made, the newest first; the rest is rejected.
  std::vector<Candidate*> finish() {
    std::vector<Candidate*> good;
    for (std::size_t i = candidates_.size(); i-- > 0;) {
      Candidate& candidate = *candidates_[i];
      if (candidate.rejected) continue;
      std::sort(candidate.members.begin(), candidate.members.end());
      checkIndices(candidate);
      if (!candidate.rejected) good.push_back(&candidate);
    }
    return good;
  }

 private:
  Candidate& candidateFor(const IndexedName& name, const PVBsignal& signal) {
    const auto known = byName_.find(name.base);
    if (known != byName_.end()) return *known->second;
    candidates_.push_back(std::make_unique<Candidate>());
    Candidate& made = *candidates_.back();
    made.name = name.base;
    made.firstIndex = name.index;
    made.direction = signal.direction;
    byName_.emplace(made.name, &made);
    if (ofAll_ && PVBsignalInqByName(database_, made.name) != nullptr) {
      reject(made, "the name already exists");
    }
    return made;
  }

  void add(Candidate& candidate, std::int64_t index, const PVBsignal& signal) {
    if (signal.direction != candidate.direction) {
      reject(candidate, "not all bus elements have the same direction");
    } else if (index < candidate.firstIndex - kMostBelow ||
               index > candidate.firstIndex + kMostAbove) {
      reject(candidate, "the element index values are not contiguous");
    } else if (!candidate.taken.insert(index).second) {
      reject(candidate, fmt::sprintf("index value %d is duplicated", index));
    } else {
      candidate.members.emplace_back(index, signal.id);
    }
  }

  void checkIndices(Candidate& candidate) {
    const std::int64_t lowest = candidate.lowest();
    if (candidate.members.size() == 1) {
      reject(candidate, fmt::sprintf("it has only a single element [%d]", lowest));
      return;
    }
    for (std::size_t i = 0; i < candidate.members.size(); ++i) {
      const std::int64_t expected = lowest + static_cast<std::int64_t>(i);
      if (candidate.members[i].first == expected) continue;
      reject(candidate, fmt::sprintf("index value %d is missing", expected));
      return;
    }
    // Bounds are stored in 16 bits without a sign.
    const std::int64_t outside = lowest < 0 ? lowest : candidate.highest();
    if (outside >= 0 && outside <= kMostBound) return;
    reject(candidate, fmt::sprintf("index value %d is out of range", outside));
  }

  void reject(Candidate& candidate, std::string_view reason) {
    candidate.rejected = true;
    if (stream_ == nullptr) return;
    fmt::fprintf(stream_, "Bus %s is not being formed because %s.\n", candidate.name, reason);
  }

  int database_;
  bool ofAll_;
  FILE* stream_;
  std::vector<std::unique_ptr<Candidate>> candidates_;
  std::unordered_map<std::string_view, Candidate*> byName_;
};

// --- Buses ---------------------------------------------------------------------------

// How a candidate stands as a bus.
struct BusForm {
  std::uint16_t left;
  std::uint16_t right;
  PVBidList members;
};

BusForm formOf(const Candidate& candidate, int order) {
  BusForm form;
  form.left = static_cast<std::uint16_t>(candidate.highest());
  form.right = static_cast<std::uint16_t>(candidate.lowest());
  for (const auto& [index, id] : candidate.members) form.members.push_back(id);
  const bool lowFirst =
      order == kBusLowFirst || (order == kBusAsSeen && candidate.firstIndex == candidate.highest());
  if (!lowFirst) return form;
  std::swap(form.left, form.right);
  std::reverse(form.members.begin(), form.members.end());
  return form;
}

int addBus(int database, const Candidate& candidate, int order) {
  BusForm form = formOf(candidate, order);
  std::unique_ptr<PVBsignal> bus = PVBsignalNew();
  bus->name = candidate.name;
  bus->type = MEM_BUS;
  bus->direction = candidate.direction;
  bus->leftIndex = form.left;
  bus->rightIndex = form.right;
  bus->members = std::move(form.members);
  if (PVBsignalAdd(database, std::move(bus)) != UNDEF) return 0;
  errno = 0;
  PBpostError("PVBbusify", 0, "problem adding bus");
  return -2;
}

// The bus of the candidate's name and bounds, when it consists of the same signals.
const PVBsignal* busOf(int database, const Candidate& candidate, int order) {
  const PVBsignal* bus = PVBsignalInqByName(database, candidate.name);
  if (bus == nullptr || bus->type != MEM_BUS) return nullptr;
  BusForm form = formOf(candidate, order);
  if (bus->leftIndex != form.left || bus->rightIndex != form.right) return nullptr;
  PVBidList members = bus->members;
  std::sort(members.begin(), members.end());
  std::sort(form.members.begin(), form.members.end());
  return members == form.members ? bus : nullptr;
}

// Puts each bus in the place of the first of its members.
void replaceMembers(PVBsignal& group, const std::unordered_map<PVBid, PVBid>& busOfMember) {
  std::unordered_set<PVBid> listed;
  PVBidList members;
  for (const PVBid id : group.members) {
    const auto bus = busOfMember.find(id);
    if (bus == busOfMember.end()) {
      members.push_back(id);
    } else if (listed.insert(bus->second).second) {
      members.push_back(bus->second);
    }
  }
  group.members = std::move(members);
}

void replaceByBuses(int database, PVBsignal& group, const std::vector<Candidate*>& candidates,
                    int order) {
  std::unordered_map<PVBid, PVBid> busOfMember;
  for (const Candidate* candidate : candidates) {
    const PVBsignal* bus = busOf(database, *candidate, order);
    if (bus == nullptr) continue;
    for (const auto& [index, id] : candidate->members) busOfMember.emplace(id, bus->id);
  }
  if (busOfMember.empty()) return;
  replaceMembers(group, busOfMember);
  noteChange(*signalData(database));
}

}  // namespace

int PVBbusify(int database, int order, FILE* stream) {
  return PVBbusifyGroup(database, kGroupAll, order, stream);
}

int PVBbusifyGroup(int database, PVBid group, int order, FILE* stream) {
  PVBsignal* listed = PVBsignalInqByID(database, group);
  if (listed == nullptr) {
    errno = 0;
    PBpostError("PVBbusify", kNoMemory);
    return -2;
  }
  const bool ofAll = group == kGroupAll;
  Candidates candidates(database, ofAll, stream);
  for (const PVBid id : listed->members) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal != nullptr) candidates.see(*signal);
  }
  const std::vector<Candidate*> good = candidates.finish();
  if (!ofAll) {
    replaceByBuses(database, *listed, good, order);
    return 0;
  }
  for (const Candidate* candidate : good) {
    if (addBus(database, *candidate, order) != 0) return -2;
  }
  return 0;
}

bool busifyPVB(int database) {
  const char* failed = nullptr;
  BusTable table;
  if (PVBbusify(database, kBusAsSeen, stdout) != 0) {
    failed = "PVBbusify";
  } else if (!GenerateSignalTable(database, table)) {
    failed = "GenerateSignalTable";
  } else if (!CombineBusTracks(database, table, stdout)) {
    failed = "CombineBusTracks";
  }
  if (failed == nullptr) return true;
  fmt::fprintf(stderr, "addOverlapSignals(): %s() failed\n", failed);
  return false;
}
