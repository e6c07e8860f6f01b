#include "conditioner/timeplate_transfer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <span>
#include <tuple>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "conditioner/run.h"
#include "pvb/timeplate_match.h"

namespace {

bool isCompound(const PVBsignal& signal) {
  return signal.type == MEM_BUS || signal.type == MEM_GROUP || signal.type == MEM_MUX_BUS;
}

// The buses and groups of a database as a set of ids.
std::vector<bool> compoundSignals(int database) {
  std::vector<bool> compound;
  for (const PVBid id : PVBsignalInqAll(database)) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (id < 0 || signal == nullptr || !isCompound(*signal)) continue;
    const auto place = static_cast<std::size_t>(id);
    if (place >= compound.size()) compound.resize(place + 1);
    compound[place] = true;
  }
  return compound;
}

// Whether a slot of the plate had a list to be taken apart.
bool expandSlots(int database, PVBtimePlate& plate, const std::vector<bool>& compound) {
  const auto isIn = [&compound](PVBid id) {
    return id >= 0 && static_cast<std::size_t>(id) < compound.size() &&
           compound[static_cast<std::size_t>(id)];
  };
  bool expanded = false;
  for (int slot = 0; slot < PVBslotCount(plate); ++slot) {
    const PVBidList& signals = PVBtrackSignals(plate, slot);
    if (std::none_of(signals.begin(), signals.end(), isIn)) continue;
    PVBtrackSetSignals(plate, slot, PVBsignalListToScalars(database, signals));
    expanded = true;
  }
  return expanded;
}

}  // namespace

void expandTimePlates(int database) {
  const std::vector<bool> compound = compoundSignals(database);
  for (const PVBid id : PVBtimePlateInqAll(database)) {
    PVBtimePlate& plate = *PVBtimePlateInqByID(database, id);
    if (expandSlots(database, plate, compound)) PVBtimePlateRebuildMaps(plate);
  }
}

std::unique_ptr<PVBtimePlate> baseTimePlate(int database) {
  auto plate = PVBtimePlateNew();
  plate->levels.resize(1);
  const PVBsignal* all = PVBsignalInqByID(database, kGroupAll);
  if (all == nullptr) return plate;
  for (const PVBid id : all->members) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal == nullptr) continue;
    const bool known = signal->direction >= INPUT && signal->direction <= BIDIR;
    plate->selectorLists.push_back(
        {known ? signal->direction : kUndefinedDirection, PVBidList{id}});
    plate->levels.front().tracks.emplace_back().signals = {id};
  }
  PVBtimePlateRebuildMaps(*plate);
  return plate;
}

// --- Mapping tracks ------------------------------------------------------------------

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

// What a slot of the destination gets.
struct SlotPlan {
  struct Wave {
    std::int32_t direction;
    std::int32_t slot;  // of the source
  };
  PVBid signal = UNDEF;  // of the destination
  std::vector<Wave> waves;
};

PVBid mappedId(const PVBregion& region, PVBid id) {
  const bool inside = id >= 0 && static_cast<std::size_t>(id) < region.sigIDMap.size();
  return inside ? region.sigIDMap[static_cast<std::size_t>(id)] : UNDEF;
}

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
  for (const std::size_t d : {BIDIR, INPUT, OUTPUT}) {
    if (tracks->track[d] >= 0) return tracks->track[d];
  }
  return kNoTrack;
}

// The waves of a signal. One that is only input or only output takes those of its
// direction.
std::vector<SlotPlan::Wave> plannedWaves(std::span<const SourceSlot> slots, int direction) {
  const bool oneWay = direction == INPUT || direction == OUTPUT;
  std::vector<SlotPlan::Wave> waves;
  for (const SourceSlot& slot : slots) {
    if (!oneWay) {
      waves.push_back({slot.direction, slot.slot});
    } else if (slot.undefined || slot.direction == direction) {
      waves.push_back({direction, slot.slot});
    }
  }
  return waves;
}

// By slot of the destination.
std::vector<SlotPlan> planSlots(const PVBtimePlate& dest, const PVBtimePlate& source,
                                const PVBregion& src, const SignalTable& table) {
  const SourceSlots sourceSlots(source);
  std::vector<SlotPlan> plans(static_cast<std::size_t>(PVBslotCount(dest)));
  for (const PVBsignal* signal : table.signals()) {
    const std::span<const SourceSlot> slots = sourceSlots.of(signal->id);
    if (slots.empty()) failWithoutEntry(source, *signal);
    const PVBid id = mappedId(src, signal->id);
    const std::int32_t slot = destinationSlot(dest, id, signal->direction);
    SlotPlan plan = {id, plannedWaves(slots, signal->direction)};
    if (slot < 0 || plan.waves.empty()) failWithoutTrack(dest, *signal, src);
    plans[static_cast<std::size_t>(slot)] = std::move(plan);
  }
  return plans;
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
    const std::size_t count = std::max<std::size_t>(plans[slot].waves.size(), 1);
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

void fillSlots(PVBtimePlate& dest, const PVBtimePlate& source, const std::vector<SlotPlan>& plans) {
  std::size_t slot = 0;
  for (const SlotPlan& plan : plans) {
    for (const SlotPlan::Wave& wave : plan.waves) {
      dest.selectorLists[slot] = {wave.direction, {plan.signal}};
      for (std::size_t level = 0; level < source.levels.size(); ++level) {
        const std::vector<PVBtrack>& tracks = source.levels[level].tracks;
        const auto from = static_cast<std::size_t>(wave.slot);
        if (from < tracks.size()) copyWave(dest.levels[level].tracks[slot], tracks[from]);
      }
      ++slot;
    }
    if (plan.waves.empty()) ++slot;
  }
}

}  // namespace

int mapTimePlateTracks(PVBtimePlate& destPlate, const PVBtimePlate& srcPlate, const PVBregion& src,
                       const SignalTable& table) {
  const std::vector<SlotPlan> plans = planSlots(destPlate, srcPlate, src, table);
  growLevels(destPlate, srcPlate);
  destPlate.selectorLists.resize(plans.size(), {kUndefinedDirection, {}});
  const bool severalWaves = std::any_of(plans.begin(), plans.end(),
                                        [](const SlotPlan& plan) { return plan.waves.size() > 1; });
  if (severalWaves) insertSlots(destPlate, plans);
  fillSlots(destPlate, srcPlate, plans);
  PVBtimePlateRebuildMaps(destPlate);
  return 0;
}

// --- Translating ---------------------------------------------------------------------

namespace {

std::unique_ptr<PVBtimePlate> cloneTimePlate(const PVBtimePlate& srcPlate, const PVBregion& src) {
  auto plate = PVBtimePlateCopy(srcPlate);
  plate->firstRow = UNDEF;
  plate->lastRow = UNDEF;
  for (PVBlevel& level : plate->levels) {
    for (PVBtrack& track : level.tracks) track.propList = UNDEF;
  }
  for (int slot = 0; slot < PVBslotCount(*plate); ++slot) {
    PVBidList signals;
    for (const PVBid id : PVBsignalListToScalars(src.pvbHandle, PVBtrackSignals(*plate, slot))) {
      const PVBid mapped = mappedId(src, id);
      if (mapped != UNDEF) signals.push_back(mapped);
    }
    PVBtrackSetSignals(*plate, slot, signals);
  }
  PVBtimePlateRebuildMaps(*plate);
  return plate;
}

}  // namespace

std::unique_ptr<PVBtimePlate> translateTimePlate(const PVBtimePlate& srcPlate,
                                                 const PVBtimePlate& base, const PVBregion& src,
                                                 const SignalTable& table, bool extended) {
  if (extended) return cloneTimePlate(srcPlate, src);
  auto plate = PVBtimePlateCopy(base);
  plate->name = srcPlate.name;
  plate->period = srcPlate.period;
  plate->family = srcPlate.family;
  if (mapTimePlateTracks(*plate, srcPlate, src, table) != 0) return nullptr;
  return plate;
}

// --- Storing -------------------------------------------------------------------------

PVBtimePlate* insertTimePlate(int database, std::unique_ptr<PVBtimePlate> plate) {
  const int count = PVBtimePlateCount(database);
  if (run.tpGenLimit >= 0 && run.tpGenLimit <= count) {
    errno = 0;
    PBerrPush(PBconditionerError, kTooManyTimePlates, "insertTimePlate", std::to_string(count + 1),
              std::to_string(run.tpGenLimit));
    return nullptr;
  }
  if (plate->name) plate->name = PVBtimePlateFreeName(database, *plate->name);
  const PVBid id = PVBtimePlateInsert(database, std::move(plate));
  if (id < 0) assertFail(__FILE__, __LINE__);
  return PVBtimePlateInqByID(database, id);
}

PVBtimePlate* matchOrInsertTimePlate(int database, std::unique_ptr<PVBtimePlate> plate) {
  PVBtimePlate* existing = nullptr;
  if (matchTimePlate(plate.get(), existing) == 0) return existing;
  PVBtimePlate* stored = insertTimePlate(database, std::move(plate));
  if (stored == nullptr) matchTimePlateForget();
  return stored;
}
