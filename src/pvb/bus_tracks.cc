#include <fmt/printf.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>

#include "base/errors.h"
#include "base/messages.h"
#include "pvb/bus_internal.h"
#include "pvb/database.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"

namespace {

// Rows of busOptimizeError.
constexpr std::size_t kTableFailed = 0;
constexpr std::size_t kOptimizing = 1;
constexpr std::size_t kCombining = 2;
constexpr std::size_t kNotBusified = 3;
constexpr std::size_t kTooManyEvents = 4;

constexpr std::size_t kMostEvents = 16;
constexpr std::array<const char*, 3> kKinds = {"input", "output", "bidirectional"};

template <typename... Args>
void tell(FILE* stream, std::size_t row, const Args&... args) {
  if (stream == nullptr) return;
  fmt::fprintf(stream, "%s\n", fmt::sprintf(busOptimizeError[row], args...));
}

// Where one member of a bus stands in a plate: a slot, or kSeveralTracks.
struct Stand {
  std::size_t bus;
  std::size_t direction;
  std::size_t position;  // in the bus
  PVBid signal;
  std::int32_t slot;
};

struct Move {
  std::int32_t from;
  PVBid signal;
  std::int32_t to;
};

using Place = std::pair<std::int32_t, PVBid>;  // a slot and a signal of it

class PlateCombiner {
 public:
  PlateCombiner(int database, const BusTable& table, PVBtimePlate& plate, FILE* stream)
      : database_(database), table_(table), plate_(plate), stream_(stream) {}

  // Whether the plate was changed.
  bool combine() {
    const std::vector<Stand> stands = collectStands();
    const auto sameTracks = [](const Stand& a, const Stand& b) {
      return std::tie(a.bus, a.direction) == std::tie(b.bus, b.direction);
    };
    for (auto first = stands.begin(); first != stands.end();) {
      const auto end = std::find_if(first, stands.end(),
                                    [&](const Stand& stand) { return !sameTracks(*first, stand); });
      combineTracks({first, end});
      first = end;
    }
    if (moves_.empty()) return false;
    deleteSlots(moveSignals());
    PVBtimePlateRebuildMaps(plate_);
    return true;
  }

 private:
  // Every place of every bus member, those of one bus and direction together and in the
  // order of the bus. Slots without a direction stay as they are.
  std::vector<Stand> collectStands() const {
    std::vector<Stand> stands;
    for (const auto& [signal, tracks] : plate_.signalToTrack) {
      const auto member = table_.members.find(signal);
      if (member == table_.members.end()) continue;
      const auto& [bus, position] = member->second;
      for (std::size_t d = 0; d < kKinds.size(); ++d) {
        const std::int32_t slot = tracks.track[d];
        if (slot == kNoTrack) continue;
        if (slot >= 0 && PVBtrackDirection(plate_, slot) == kUndefinedDirection) continue;
        stands.push_back({bus, d, position, signal, slot});
      }
    }
    std::sort(stands.begin(), stands.end(), [](const Stand& a, const Stand& b) {
      return std::tie(a.bus, a.direction, a.position) < std::tie(b.bus, b.direction, b.position);
    });
    return stands;
  }

  // The members that stand alone and whose wave is that of the first of these go to its
  // slot.
  void combineTracks(std::span<const Stand> stands) {
    const auto apart = [&](const Stand& stand) { return stand.slot != stands.front().slot; };
    if (std::none_of(stands.begin(), stands.end(), apart) || refuseLong(stands)) return;
    const Stand* target = nullptr;
    std::vector<const Stand*> left;
    const std::size_t movesBefore = moves_.size();
    for (const Stand& stand : stands) {
      if (stand.slot < 0) {
        left.push_back(&stand);
      } else if (target == nullptr) {
        target = &stand;
      } else if (stand.slot != target->slot) {
        if (sameWave(stand.slot, target->slot)) {
          moves_.push_back({stand.slot, stand.signal, target->slot});
        } else {
          left.push_back(&stand);
        }
      }
    }
    if (moves_.size() > movesBefore) {
      tell(stream_, kCombining, table_.names[stands.front().bus], kindOf(stands.front()),
           plateName());
    }
    for (const Stand* stand : left) {
      tell(stream_, kNotBusified, nameOf(*stand), kindOf(*stand), plateName());
    }
  }

  // True, after a line, when a wave is longer than what is compared; the bus keeps its
  // tracks in this plate.
  bool refuseLong(std::span<const Stand> stands) const {
    for (const Stand& stand : stands) {
      const bool isLong =
          std::any_of(plate_.levels.begin(), plate_.levels.end(), [&](const PVBlevel& level) {
            return wave(level, stand.slot).eventTimes.size() > kMostEvents;
          });
      if (!isLong) continue;
      tell(stream_, kTooManyEvents, nameOf(stand), plateName());
      return true;
    }
    return false;
  }

  static const PVBtrack& wave(const PVBlevel& level, std::int32_t slot) {
    static const PVBtrack kEmpty;
    const auto place = static_cast<std::size_t>(slot);
    return slot >= 0 && place < level.tracks.size() ? level.tracks[place] : kEmpty;
  }

  // What else hangs on a track must be the same too, since only one of them stays.
  bool sameWave(std::int32_t a, std::int32_t b) const {
    const auto hangsOn = [](const PVBtrack& track) {
      return std::tie(track.propList, track.slotIn, track.slotOut, track.slotBoth);
    };
    return std::all_of(plate_.levels.begin(), plate_.levels.end(), [&](const PVBlevel& level) {
      const PVBtrack& one = wave(level, a);
      const PVBtrack& other = wave(level, b);
      return PVBtrackEqual(one, other, TIME_ZERO) && hangsOn(one) == hangsOn(other);
    });
  }

  // Carries out the moves: the slots that nobody is left on, in rising order.
  std::vector<std::int32_t> moveSignals() {
    std::vector<Place> leaving;
    for (const Move& move : moves_) leaving.emplace_back(move.from, move.signal);
    std::sort(leaving.begin(), leaving.end());
    std::unordered_map<std::int32_t, PVBidList> lists;
    for (const Move& move : moves_) {
      for (const std::int32_t slot : {move.from, move.to}) {
        if (lists.find(slot) == lists.end()) lists.emplace(slot, stayingOn(slot, leaving));
      }
    }
    for (const Move& move : moves_) lists[move.to].push_back(move.signal);
    std::vector<std::int32_t> empty;
    for (const auto& [slot, signals] : lists) {
      PVBtrackSetSignals(plate_, slot, signals);
      if (signals.empty()) empty.push_back(slot);
    }
    std::sort(empty.begin(), empty.end());
    return empty;
  }

  PVBidList stayingOn(std::int32_t slot, const std::vector<Place>& leaving) const {
    PVBidList staying = PVBtrackSignals(plate_, slot);
    std::erase_if(staying, [&](PVBid signal) {
      return std::binary_search(leaving.begin(), leaving.end(), Place(slot, signal));
    });
    return staying;
  }

  void deleteSlots(const std::vector<std::int32_t>& slots) {
    const auto erase = [&slots](auto& values) {
      auto next = slots.begin();
      std::size_t kept = 0;
      for (std::size_t i = 0; i < values.size(); ++i) {
        if (next != slots.end() && static_cast<std::size_t>(*next) == i) {
          ++next;
          continue;
        }
        if (kept != i) values[kept] = std::move(values[i]);
        ++kept;
      }
      values.resize(kept);
    };
    erase(plate_.selectorLists);
    erase(plate_.selectorTables);
    for (PVBlevel& level : plate_.levels) erase(level.tracks);
  }

  static const char* kindOf(const Stand& stand) { return kKinds[stand.direction]; }
  std::string plateName() const { return plate_.name.value_or(""); }
  std::string nameOf(const Stand& stand) const {
    const PVBsignal* signal = PVBsignalInqByID(database_, stand.signal);
    return signal != nullptr ? signal->name.value_or("") : "";
  }

  int database_;
  const BusTable& table_;
  PVBtimePlate& plate_;
  FILE* stream_;
  std::vector<Move> moves_;
};

}  // namespace

bool GenerateSignalTable(int database, BusTable& table) {
  if (PVBgetSection(database, kSectionSignals) == nullptr) {
    errno = 0;
    PBpostError("GenerateSignalTable", 0, busOptimizeError[kTableFailed]);
    return false;
  }
  PVBidList ids = PVBsignalInqAll(database);
  std::sort(ids.begin(), ids.end());
  for (const PVBid id : ids) {
    const PVBsignal* bus = PVBsignalInqByID(database, id);
    if (bus == nullptr || bus->type != MEM_BUS) continue;
    for (std::size_t i = 0; i < bus->members.size(); ++i) {
      table.members.try_emplace(bus->members[i], BusTable::Member{table.names.size(), i});
    }
    table.names.push_back(bus->name.value_or(""));
  }
  return true;
}

bool CombineBusTracks(int database, const BusTable& table, FILE* stream) {
  PVBdatabase* slot = PVBgetSection(database, kSectionTimePlates);
  if (slot == nullptr) {
    errno = 0;
    PBpostError("CombineBusTracks", 0, "no timeplates");
    return false;
  }
  if (table.names.empty()) return true;
  tell(stream, kOptimizing);
  for (const auto& plate : slot->timePlates->plates) {
    if (!plate) continue;
    if (PlateCombiner(database, table, *plate, stream).combine()) slot->timePlates->changed = true;
  }
  return true;
}
