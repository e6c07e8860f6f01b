// Mapping the tracks of a source's plate to the slots of a destination's. The plan says
// which waves each slot gets; slots are then inserted where there are several.

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "base/errors.h"
#include "conditioner/timeplate_transfer.h"
#include "conditioner/timeplate_transfer_internal.h"

PVBid mappedId(const PVBregion& region, PVBid id) {
  const bool inside = id >= 0 && static_cast<std::size_t>(id) < region.sigIDMap.size();
  return inside ? region.sigIDMap[static_cast<std::size_t>(id)] : UNDEF;
}

namespace {

// A slot of the source on which a signal stands. A slot that wasn't given a direction
// counts as one of both.
struct SourceSlot {
  PVBid signal;
  std::int32_t direction;
  std::int32_t slot;
  bool undefined;

  bool operator<(const SourceSlot& other) const {
    return std::tie(signal, direction, slot) < std::tie(other.signal, other.direction, other.slot);
  }
  bool operator==(const SourceSlot& other) const {
    return signal == other.signal && slot == other.slot;
  }
};

// All slots of a plate that have a wave on the first level, by signal; those of a signal
// in the order input, output, bidirectional.
class SourceSlots {
 public:
  explicit SourceSlots(const PVBtimePlate& plate) {
    const std::size_t tracks = plate.levels.empty() ? 0 : plate.levels.front().tracks.size();
    for (std::int32_t slot = 0; slot < static_cast<std::int32_t>(tracks); ++slot) {
      const int direction = PVBtrackDirection(plate, slot);
      const bool undefined = direction == kUndefinedDirection;
      for (const PVBid signal : PVBtrackSignals(plate, slot)) {
        slots_.push_back({signal, undefined ? BIDIR : direction, slot, undefined});
      }
    }
    std::sort(slots_.begin(), slots_.end());
    slots_.erase(std::unique(slots_.begin(), slots_.end()), slots_.end());
  }

  std::span<const SourceSlot> of(PVBid signal) const {
    const auto first = std::partition_point(
        slots_.begin(), slots_.end(), [signal](const SourceSlot& s) { return s.signal < signal; });
    const auto last = std::find_if(first, slots_.end(),
                                   [signal](const SourceSlot& s) { return s.signal != signal; });
    return {first, last};
  }

 private:
  std::vector<SourceSlot> slots_;
};

struct Wave {
  std::int32_t direction;
  std::int32_t slot;  // of the source
};

// What a slot of the destination gets: a range of the waves.
struct SlotPlan {
  PVBid signal = UNDEF;  // of the destination
  std::size_t first = 0;
  std::size_t count = 0;
};

struct MapPlan {
  std::vector<SlotPlan> slots;  // by slot of the destination
  std::vector<Wave> waves;
  bool severalWaves = false;  // for one slot
};

const char* text(const std::optional<std::string>& value) { return value ? value->c_str() : ""; }

[[noreturn]] void failWithoutEntry(const PVBtimePlate& plate, const PVBsignal& signal) {
  std::fprintf(stderr, "\nFATAL: validateSignalToTrackMapEntry (%s, %s) failed\n", text(plate.name),
               text(signal.name));
  assertFail(__FILE__, __LINE__);
}

[[noreturn]] void failWithoutTrack(const PVBtimePlate& plate, const PVBsignal& signal,
                                   const PVBregion& src) {
  constexpr std::array<const char*, 3> kNames = {"INPUT", "OUTPUT", "BIDIR"};
  const bool known = signal.direction >= INPUT && signal.direction <= BIDIR;
  std::fprintf(stderr,
               "FAILED: TRACKofSIGNAL (tp = %s, sig = %s (sigId = %ld), dir = %s, "
               "destSigID = %ld)\n",
               text(plate.name), text(signal.name), static_cast<long>(signal.id),
               known ? kNames[static_cast<std::size_t>(signal.direction)] : "UNKNOWN",
               static_cast<long>(mappedId(src, signal.id)));
  for (std::size_t i = 0; i < src.sigIDMap.size(); ++i) {
    std::fprintf(stderr, "    srcRgn->sigIDMap[%02d] = %7ld\n", static_cast<int>(i),
                 static_cast<long>(src.sigIDMap[i]));
  }
  assertFail(__FILE__, __LINE__);
}

// The slot of a signal in the destination, negative for none: that of its direction, for
// a bidirectional one the first there is.
std::int32_t destinationSlot(const PVBtimePlate& plate, PVBid signal, int direction) {
  const SignalTracks* tracks = PVBsignalTracks(plate, signal);
  if (tracks == nullptr) return kNoTrack;
  if (direction == INPUT || direction == OUTPUT) {
    return tracks->track[static_cast<std::size_t>(direction)];
  }
  for (const std::size_t d : {std::size_t{BIDIR}, std::size_t{INPUT}, std::size_t{OUTPUT}}) {
    if (tracks->track[d] >= 0) return tracks->track[d];
  }
  return kNoTrack;
}

// Adds the waves of a signal. One that is only input or only output takes those of its
// direction; beside others a slot without a direction stays so, because rows choose among
// several slots by their directions.
void addWaves(std::vector<Wave>& waves, std::span<const SourceSlot> slots, int direction) {
  const bool oneWay = direction == INPUT || direction == OUTPUT;
  const auto isTaken = [&](const SourceSlot& slot) {
    return !oneWay || slot.undefined || slot.direction == direction;
  };
  const bool several = std::ranges::count_if(slots, isTaken) > 1;
  for (const SourceSlot& slot : slots) {
    if (!isTaken(slot)) continue;
    const int undefined = several ? kUndefinedDirection : direction;
    waves.push_back({oneWay && slot.undefined ? undefined : slot.direction, slot.slot});
  }
}

MapPlan planSlots(const PVBtimePlate& dest, const PVBtimePlate& source, const PVBregion& src,
                  const SignalTable& table) {
  const SourceSlots sourceSlots(source);
  MapPlan plan;
  plan.slots.resize(static_cast<std::size_t>(PVBslotCount(dest)));
  for (const PVBsignal* signal : table.signals()) {
    const std::span<const SourceSlot> slots = sourceSlots.of(signal->id);
    if (slots.empty()) failWithoutEntry(source, *signal);
    const PVBid id = mappedId(src, signal->id);
    const std::int32_t slot = destinationSlot(dest, id, signal->direction);
    const std::size_t first = plan.waves.size();
    addWaves(plan.waves, slots, signal->direction);
    const std::size_t count = plan.waves.size() - first;
    if (slot < 0 || count == 0) failWithoutTrack(dest, *signal, src);
    plan.slots[static_cast<std::size_t>(slot)] = {id, first, count};
    plan.severalWaves = plan.severalWaves || count > 1;
  }
  return plan;
}

// Events, states and what selects them; the signals are those of the slot.
void copyWave(PVBtrack& to, const PVBtrack& from) {
  to.eventTimes = from.eventTimes;
  to.eventExprs = from.eventExprs;
  to.stateChars = from.stateChars;
  to.stateCounts = from.stateCounts;
  to.repeat = from.repeat;
  to.selector = from.selector;
  to.selectorLists = from.selectorLists;
  to.cycleOffset = from.cycleOffset;
  to.cycleLength = from.cycleLength;
}

// Gives the destination the levels of the source, and each level all tracks.
void growLevels(PVBtimePlate& dest, const PVBtimePlate& source) {
  const int slots = PVBslotCount(dest);
  for (std::size_t level = dest.levels.size(); level < source.levels.size(); ++level) {
    dest.levels.emplace_back().time = source.levels[level].time;
  }
  for (PVBlevel& level : dest.levels) {
    const std::size_t before = level.tracks.size();
    PVBtimePlateExpandLevel(level, slots);
    for (std::size_t slot = before; slot < level.tracks.size(); ++slot) {
      level.tracks[slot].signals = PVBtrackSignals(dest, static_cast<int>(slot));
    }
  }
}

// Puts further slots behind those that get several waves; the plans then stand for the
// first of each. Slots of a plan differ in their waves only.
void insertSlots(PVBtimePlate& dest, const std::vector<SlotPlan>& plans) {
  std::vector<std::pair<std::int32_t, PVBidList>> entries;
  std::vector<std::vector<PVBtrack>> tracks(dest.levels.size());
  for (std::size_t slot = 0; slot < plans.size(); ++slot) {
    const std::size_t count = std::max<std::size_t>(plans[slot].count, 1);
    entries.insert(entries.end(), count, dest.selectorLists[slot]);
    for (std::size_t level = 0; level < tracks.size(); ++level) {
      tracks[level].insert(tracks[level].end(), count, dest.levels[level].tracks[slot]);
    }
  }
  dest.selectorLists = std::move(entries);
  for (std::size_t level = 0; level < tracks.size(); ++level) {
    dest.levels[level].tracks = std::move(tracks[level]);
  }
}

void fillSlot(PVBtimePlate& dest, std::size_t slot, PVBid signal, const PVBtimePlate& source,
              const Wave& wave) {
  dest.selectorLists[slot] = {wave.direction, {signal}};
  const auto from = static_cast<std::size_t>(wave.slot);
  for (std::size_t level = 0; level < source.levels.size(); ++level) {
    const std::vector<PVBtrack>& tracks = source.levels[level].tracks;
    if (from < tracks.size()) copyWave(dest.levels[level].tracks[slot], tracks[from]);
  }
}

void fillSlots(PVBtimePlate& dest, const PVBtimePlate& source, const MapPlan& plan) {
  std::size_t slot = 0;
  for (const SlotPlan& planned : plan.slots) {
    for (std::size_t i = 0; i < planned.count; ++i) {
      fillSlot(dest, slot + i, planned.signal, source, plan.waves[planned.first + i]);
    }
    slot += std::max<std::size_t>(planned.count, 1);
  }
}

}  // namespace

int mapTimePlateTracks(PVBtimePlate& destPlate, const PVBtimePlate& srcPlate, const PVBregion& src,
                       const SignalTable& table) {
  const MapPlan plan = planSlots(destPlate, srcPlate, src, table);
  growLevels(destPlate, srcPlate);
  destPlate.selectorLists.resize(plan.slots.size(), {kUndefinedDirection, {}});
  if (plan.severalWaves) insertSlots(destPlate, plan.slots);
  fillSlots(destPlate, srcPlate, plan);
  PVBtimePlateRebuildMaps(destPlate);
  return 0;
}
