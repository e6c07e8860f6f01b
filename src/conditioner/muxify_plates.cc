// Combined timeplates: those of a group's cycles laid end to end. Child i of a signal has
// the signal's tracks of the i-th timeplate, moved to where that begins, and is unknown
// before and behind them.

#include <fmt/printf.h>

#include <algorithm>
#include <span>

#include "conditioner/muxify_internal.h"

namespace {

constexpr std::string_view kFunction = "combineTimeplates()";
constexpr char kUnknown = '?';
constexpr char kPrevious = 'P';

// --- Tracks of signals ---------------------------------------------------------------

TrackIndex indexTracks(const PVBtimePlate& plate) {
  TrackIndex index;
  const std::size_t tracks = plate.levels.empty() ? 0 : plate.levels.front().tracks.size();
  for (int track = 0; track < static_cast<int>(tracks); ++track) {
    for (const PVBid signal : PVBtrackSignals(plate, track)) index.emplace_back(signal, track);
  }
  std::sort(index.begin(), index.end());
  index.erase(std::unique(index.begin(), index.end()), index.end());
  return index;
}

// The tracks of a source timeplate that hold the signal, in their order.
std::span<const SignalOnTrack> tracksOf(Muxify& mux, const PVBtimePlate& plate, PVBid signal) {
  const auto [entry, isNew] = mux.trackIndex.try_emplace(plate.id);
  TrackIndex& index = entry->second;
  if (isNew) index = indexTracks(plate);
  const auto begin = std::lower_bound(index.begin(), index.end(), SignalOnTrack{signal, 0});
  const auto end = std::find_if(
      begin, index.end(), [signal](const SignalOnTrack& place) { return place.first != signal; });
  return {begin, end};
}

char stateOf(const PVBtrack& track, std::size_t event) {
  return event < track.stateChars.size() ? track.stateChars[event] : kUnknown;
}

bool isOnlyPrevious(const PVBtrack& track) {
  return track.eventTimes.size() == 1 && stateOf(track, 0) == kPrevious;
}

// --- Building ------------------------------------------------------------------------

// A cycle of the group, as one signal sees it.
struct Cycle {
  const PVBtimePlate& plate;
  const PVBsignal& signal;
  PVBid child;
  TIME offset;  // of the cycle in the combined one
  bool isFirst;
  bool isLast;
};

bool trackInsertEvent(PVBtrack& track, int position, TIME time, char state,
                      const std::optional<std::string>& label) {
  if (time > TIME_MAX || PVBtrackInsert(track, position, time, state, 1) != 0) {
    return muxifyFails("trackInsertEvent()", "PVBtrackInsert() failed.");
  }
  const std::size_t at =
      position < 0 ? track.eventTimes.size() - 1 : static_cast<std::size_t>(position);
  track.eventExprs[at] = label;
  return true;
}

bool appendEvent(PVBtrack& track, TIME time, char state,
                 const std::optional<std::string>& label = {}) {
  return trackInsertEvent(track, -1, time, state, label);
}

// Ends the track before at another time than that of its cycle's end.
void moveEndOfTrackBefore(std::vector<PVBtrack>& tracks, std::size_t track, TIME time) {
  if (track == 0 || tracks[track - 1].eventTimes.empty()) return;
  tracks[track - 1].eventTimes.back() = time;
}

bool writeEvents(std::vector<PVBtrack>& tracks, std::size_t place, const Cycle& cycle,
                 const PVBtrack& source) {
  PVBtrack& track = tracks[place];
  for (std::size_t e = 0; e < source.eventTimes.size(); ++e) {
    const TIME time = PBaddTIME(cycle.offset, source.eventTimes[e]);
    const char state = stateOf(source, e);
    if (e == 0 && !cycle.isFirst) {
      if (!appendEvent(track, TIME_ZERO, kUnknown)) return false;
      if (state == kPrevious) {
        // The state goes on from the cycle before: its child stays in force until then,
        // whichever signal the track before is of.
        moveEndOfTrackBefore(tracks, place, time);
        continue;
      }
    }
    const bool labelled = e < source.eventExprs.size();
    if (!appendEvent(track, time, state, labelled ? source.eventExprs[e] : std::nullopt)) {
      return false;
    }
  }
  return cycle.isLast || appendEvent(track, PBaddTIME(cycle.offset, cycle.plate.period), kUnknown);
}

bool addTrack(PVBtimePlate& combined, const Cycle& cycle, int sourceTrack) {
  const auto place = combined.levels.empty() ? 0 : combined.levels.front().tracks.size();
  const int track = static_cast<int>(place);
  const PVBtrack& source = cycle.plate.levels.front().tracks[static_cast<std::size_t>(sourceTrack)];
  if (PVBallocAsNecessary(combined, track) != 0) {
    return muxifyFails(kFunction, "PVBallocAsNecessary() failed.");
  }
  if (PVBlistInsert(combined, track, cycle.child) != 0) {
    return muxifyFails(kFunction, "PVBlistInsert() failed.");
  }
  PVBtrackSetDirection(combined, track, PVBtrackDirection(cycle.plate, sourceTrack));
  std::vector<PVBtrack>& tracks = combined.levels.front().tracks;
  tracks[place].selector = source.selector;
  return writeEvents(tracks, place, cycle, source);
}

bool mayBeFolded(const Cycle& cycle, int track) {
  const std::string plate = cycle.plate.name.value_or("");
  if (PVBtrackDirection(cycle.plate, track) == BIDIR) {
    return muxifyRefuses(fmt::sprintf("Bidir track found in timeplate %s.  Not supported.", plate));
  }
  if (!isOnlyPrevious(cycle.plate.levels.front().tracks[static_cast<std::size_t>(track)])) {
    return true;
  }
  return muxifyRefuses(
      fmt::sprintf("'P'-only track found for signal %s in timeplate %s.  Not supported.",
                   cycle.signal.name.value_or(""), plate));
}

bool addCycle(Muxify& mux, PVBtimePlate& combined, const Cycle& cycle) {
  const std::span tracks = tracksOf(mux, cycle.plate, cycle.signal.id);
  for (const auto& [signal, track] : tracks) {
    if (!mayBeFolded(cycle, track)) return false;
  }
  for (const auto& [signal, track] : tracks) {
    if (!addTrack(combined, cycle, track)) return false;
  }
  return true;
}

using SourcePlates = std::span<const PVBtimePlate* const>;

bool addSignal(Muxify& mux, PVBtimePlate& combined, const PVBsignal& signal, SourcePlates sources) {
  const std::vector<PVBid>* children = getMuxedChildList(mux, signal);
  if (children == nullptr) return false;
  TIME offset = TIME_ZERO;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const Cycle cycle = {*sources[i], signal, (*children)[i],
                         offset,      i == 0, i + 1 == sources.size()};
    if (!addCycle(mux, combined, cycle)) return false;
    offset = PBaddTIME(offset, sources[i]->period);
  }
  return true;
}

// Name and period; false when together the cycles are longer than a time can be.
bool describe(PVBtimePlate& combined, SourcePlates sources) {
  std::string name;
  for (const PVBtimePlate* source : sources) {
    if (source != sources.front() || !name.empty()) name += '_';
    name += source->name.value_or("");
    combined.period = PBaddTIME(combined.period, source->period);
    if (combined.period > TIME_MAX) {
      return muxifyFails(kFunction, "Combined period is out of range.");
    }
  }
  combined.name = std::move(name);
  return true;
}

}  // namespace

std::size_t PlateGroupHash::operator()(const PlateGroup& group) const {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
  std::uint64_t hash = 0;
  for (const PVBid id : group) {
    hash = (hash ^ static_cast<std::uint64_t>(id)) * kFactor;
    hash ^= hash >> 32;
  }
  return static_cast<std::size_t>(hash);
}

std::unique_ptr<PVBtimePlate> combineTimeplates(Muxify& mux, const PlateGroup& sources) {
  std::array<const PVBtimePlate*, kMaxMuxDegree> plates{};
  const auto degree = static_cast<std::size_t>(mux.degree);
  for (std::size_t i = 0; i < degree; ++i) {
    plates[i] = PVBtimePlateInqByID(mux.src, sources[i]);
  }
  const SourcePlates inOrder(plates.data(), degree);
  auto combined = PVBtimePlateNew();
  if (!describe(*combined, inOrder)) return nullptr;
  for (const PVBsignal* signal : mux.srcSignals) {
    if (!addSignal(mux, *combined, *signal, inOrder)) return nullptr;
  }
  return combined;
}

bool insertMuxedTimeplate(Muxify& mux, std::unique_ptr<PVBtimePlate> plate,
                          const PlateGroup& sources) {
  const PVBid id = PVBtimePlateInsert(mux.dest, std::move(plate));
  if (id == UNDEF) {
    return muxifyFails("insertMuxedTimeplate()", "PVBtimePlateInsert() failed.");
  }
  mux.muxedPlates.emplace(sources, id);
  return true;
}

PVBid muxedTimeplate(Muxify& mux, const PlateGroup& sources) {
  if (const auto found = mux.muxedPlates.find(sources); found != mux.muxedPlates.end()) {
    return found->second;
  }
  std::unique_ptr<PVBtimePlate> combined = combineTimeplates(mux, sources);
  if (combined == nullptr || !insertMuxedTimeplate(mux, std::move(combined), sources)) return UNDEF;
  return mux.muxedPlates.at(sources);
}
