// Tracks and slots of a plate: building, deleting, comparing, and the maps from
// signals to tracks.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <tuple>

#include "base/errors.h"
#include "pvb/signal.h"
#include "pvb/timeplate_internal.h"

namespace {

constexpr char kUnknownState = '?';
constexpr int kMaxLevelTracks = 0xFFFFFF;

const PVBidList kNoSignals;

int refuse(std::string_view function, std::string_view reason) {
  errno = 0;
  PBpostError(function, 0, reason);
  return -2;
}

const std::vector<PVBtrack>* firstLevel(const PVBtimePlate& plate) {
  return plate.levels.empty() ? nullptr : &plate.levels.front().tracks;
}

const PVBtrack* firstTrack(const PVBtimePlate& plate, int index) {
  const std::vector<PVBtrack>* tracks = firstLevel(plate);
  if (tracks == nullptr || index < 0 || static_cast<std::size_t>(index) >= tracks->size()) {
    return nullptr;
  }
  return &(*tracks)[static_cast<std::size_t>(index)];
}

// The slot's entry, where it counts.
const std::pair<std::int32_t, PVBidList>* slotEntry(const PVBtimePlate& plate, int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= plate.selectorLists.size()) return nullptr;
  const auto& entry = plate.selectorLists[static_cast<std::size_t>(index)];
  if (!entry.second.empty()) return &entry;
  const PVBtrack* track = firstTrack(plate, index);
  return track == nullptr || track->signals.empty() ? &entry : nullptr;
}

std::size_t slotCount(const PVBtimePlate& plate) {
  std::size_t count = plate.selectorLists.size();
  for (const PVBlevel& level : plate.levels) count = std::max(count, level.tracks.size());
  return count;
}

int workedOutDirection(const PVBtrack& track) {
  bool driven = false;
  bool expected = false;
  for (const char state : track.stateChars) {
    const int direction = PVBstateDirection(state);
    driven = driven || direction == 0;
    expected = expected || direction == 1;
  }
  if (driven && expected) return BIDIR;
  if (driven) return INPUT;
  return expected ? OUTPUT : kUndefinedDirection;
}

template <typename Value>
void eraseAll(std::vector<Value>& values, const std::vector<bool>& gone) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i < gone.size() && gone[i]) continue;
    if (kept != i) values[kept] = std::move(values[i]);
    ++kept;
  }
  values.erase(values.begin() + static_cast<std::ptrdiff_t>(kept), values.end());
}

}  // namespace

// --- Building ------------------------------------------------------------------------

void PVBtimePlateExpandLevel(PVBlevel& level, int n) {
  if (n > static_cast<int>(level.tracks.size())) level.tracks.resize(static_cast<std::size_t>(n));
}

int PVBtrackInsert(PVBtrack& track, int position, TIME time, char state, std::int32_t count) {
  const std::size_t events = track.eventTimes.size();
  const std::size_t at = position < 0 ? events : static_cast<std::size_t>(position);
  if (at > events) return refuse("PVBtrackInsert", "position beyond the last event");
  if (!PVBstateValid(state)) return refuse("PVBtrackInsert", PVBstateText(state));
  const auto offset = static_cast<std::ptrdiff_t>(at);
  track.eventTimes.insert(track.eventTimes.begin() + offset, time);
  track.eventExprs.resize(events);
  track.eventExprs.emplace(track.eventExprs.begin() + offset);
  // States may be fewer than events, or more.
  track.stateChars.resize(std::max(track.stateChars.size(), at), kUnknownState);
  track.stateChars.insert(track.stateChars.begin() + offset, state);
  track.stateCounts.resize(track.stateChars.size() - 1, 1);
  track.stateCounts.insert(track.stateCounts.begin() + offset, std::max(count, 1));
  return 0;
}

namespace {

// The track of an event, grown to if need be.
PVBtrack* growTo(PVBtimePlate& plate, int level, int track) {
  if (level < 0 || level >= kMaxLevels || track < 0 || track >= kMaxLevelTracks) {
    refuse("PVBallocLevelAsNecessary", "level or track out of range");
    return nullptr;
  }
  const auto place = static_cast<std::size_t>(level);
  if (place >= plate.levels.size()) plate.levels.resize(place + 1);
  PVBtimePlateExpandLevel(plate.levels[place], track + 1);
  return &plate.levels[place].tracks[static_cast<std::size_t>(track)];
}

}  // namespace

int PVBallocLevelAsNecessary(PVBtimePlate& plate, int level, int track, int position, TIME time,
                             char state, std::int32_t count) {
  PVBtrack* wave = growTo(plate, level, track);
  return wave != nullptr ? PVBtrackInsert(*wave, position, time, state, count) : -2;
}

int PVBallocLevelAsNecessary(PVBtimePlate& plate, int level, int track, int position, TIME time,
                             std::string_view expression, char state, std::int32_t count) {
  PVBtrack* wave = growTo(plate, level, track);
  if (wave == nullptr) return -2;
  const std::size_t at =
      position < 0 ? wave->eventTimes.size() : static_cast<std::size_t>(position);
  if (PVBtrackInsert(*wave, position, time, state, count) != 0) return -2;
  wave->eventExprs[at] = expression;
  return 0;
}

int PVBallocAsNecessary(PVBtimePlate& plate, int track) {
  if (track < 0 || track >= kMaxLevelTracks) {
    return refuse("PVBallocAsNecessary", "track out of range");
  }
  if (plate.levels.empty()) plate.levels.resize(1);
  PVBtimePlateExpandLevel(plate.levels.front(), track + 1);
  const auto slots = static_cast<std::size_t>(track) + 1;
  if (slots > plate.selectorLists.size()) {
    // An empty entry doesn't hide the signals of a track that has its own.
    plate.selectorLists.resize(slots, {kUndefinedDirection, {}});
  }
  return 0;
}

namespace {

// The slot's entry, with what counted for the slot before.
std::pair<std::int32_t, PVBidList>& makeEntry(PVBtimePlate& plate, int index) {
  const auto place = static_cast<std::size_t>(index);
  if (place >= plate.selectorLists.size()) {
    plate.selectorLists.resize(place + 1, {kUndefinedDirection, {}});
  }
  auto& entry = plate.selectorLists[place];
  if (slotEntry(plate, index) == nullptr) {
    entry = {PVBtrackDirection(plate, index), PVBtrackSignals(plate, index)};
  }
  return entry;
}

}  // namespace

bool PVBtrackSetSignals(PVBtimePlate& plate, int index, const PVBidList& signals) {
  if (index < 0 || static_cast<std::size_t>(index) >= slotCount(plate)) return false;
  makeEntry(plate, index).second = signals;
  const auto place = static_cast<std::size_t>(index);
  for (PVBlevel& level : plate.levels) {
    if (place < level.tracks.size()) level.tracks[place].signals = signals;
  }
  return true;
}

bool PVBtrackSetDirection(PVBtimePlate& plate, int index, int direction) {
  if (index < 0 || static_cast<std::size_t>(index) >= slotCount(plate)) return false;
  makeEntry(plate, index).first = direction;
  return true;
}

int PVBlistInsert(PVBtimePlate& plate, int track, PVBid signal) {
  if (track < 0 || static_cast<std::size_t>(track) >= slotCount(plate)) {
    return refuse("PVBlistInsert", "track out of range");
  }
  makeEntry(plate, track).second.push_back(signal);
  const auto place = static_cast<std::size_t>(track);
  for (PVBlevel& level : plate.levels) {
    if (place < level.tracks.size()) level.tracks[place].signals.push_back(signal);
  }
  return 0;
}

bool PVBtimePlateDeleteTrack(PVBtimePlate& plate, int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= slotCount(plate)) return false;
  std::vector<bool> gone(static_cast<std::size_t>(index) + 1);
  gone.back() = true;
  PVBtimePlateDeleteTracks(plate, gone);
  return true;
}

void PVBtimePlateDeleteTracks(PVBtimePlate& plate, const std::vector<bool>& gone) {
  eraseAll(plate.selectorLists, gone);
  eraseAll(plate.selectorTables, gone);
  for (PVBlevel& level : plate.levels) eraseAll(level.tracks, gone);
  PVBtimePlateRebuildMaps(plate);
}

int PVBslotCount(const PVBtimePlate& plate) { return static_cast<int>(slotCount(plate)); }

int PVBtrackDirection(const PVBtimePlate& plate, int index) {
  if (const auto* entry = slotEntry(plate, index)) {
    return entry->first >= INPUT && entry->first <= BIDIR ? entry->first : kUndefinedDirection;
  }
  const PVBtrack* track = firstTrack(plate, index);
  return track != nullptr ? workedOutDirection(*track) : kUndefinedDirection;
}

const PVBidList& PVBtrackSignals(const PVBtimePlate& plate, int index) {
  if (const auto* entry = slotEntry(plate, index)) return entry->second;
  const PVBtrack* track = firstTrack(plate, index);
  return track != nullptr ? track->signals : kNoSignals;
}

// --- Maps ----------------------------------------------------------------------------

namespace {

struct Place {
  PVBid signal;
  std::size_t direction;
  std::int32_t track;
};

std::vector<Place> collectPlaces(const PVBtimePlate& plate) {
  std::vector<Place> places;
  const std::vector<PVBtrack>* tracks = firstLevel(plate);
  const auto count = static_cast<std::int32_t>(tracks != nullptr ? tracks->size() : 0);
  for (std::int32_t t = 0; t < count; ++t) {
    const int direction = PVBtrackDirection(plate, t);
    const bool any = direction == kUndefinedDirection;
    for (const PVBid signal : PVBtrackSignals(plate, t)) {
      for (std::size_t d = 0; d < 3; ++d) {
        if (any || direction == static_cast<int>(d)) places.push_back({signal, d, t});
      }
    }
  }
  return places;
}

}  // namespace

void PVBtimePlateRebuildMaps(PVBtimePlate& plate) {
  std::vector<Place> places = collectPlaces(plate);
  std::stable_sort(places.begin(), places.end(),
                   [](const Place& a, const Place& b) { return a.signal < b.signal; });
  plate.signalToTrack.clear();
  for (const Place& place : places) {
    if (plate.signalToTrack.empty() || plate.signalToTrack.back().first != place.signal) {
      plate.signalToTrack.emplace_back(place.signal, SignalTracks{});
    }
    std::int32_t& track = plate.signalToTrack.back().second.track[place.direction];
    track = track == kNoTrack || track == place.track ? place.track : kSeveralTracks;
  }
}

const SignalTracks* PVBsignalTracks(const PVBtimePlate& plate, PVBid signal) {
  const auto found =
      std::lower_bound(plate.signalToTrack.begin(), plate.signalToTrack.end(), signal,
                       [](const auto& entry, PVBid id) { return entry.first < id; });
  return found != plate.signalToTrack.end() && found->first == signal ? &found->second : nullptr;
}

// --- Comparing -----------------------------------------------------------------------

namespace {

bool timesEqual(const PVBtrack& a, const PVBtrack& b, TIME tolerance) {
  if (tolerance == TIME_ZERO) return a.eventTimes == b.eventTimes;
  const double limit = PBtimeToSeconds(tolerance);
  return std::equal(a.eventTimes.begin(), a.eventTimes.end(), b.eventTimes.begin(),
                    b.eventTimes.end(), [limit](TIME x, TIME y) {
                      return std::abs(PBtimeToSeconds(x) - PBtimeToSeconds(y)) <= limit;
                    });
}

bool selectionEqual(const PVBtrack& a, const PVBtrack& b) {
  const auto key = [](const PVBtrack& track) {
    return std::tie(track.selector, track.repeat, track.cycleOffset, track.cycleLength,
                    track.selectorLists);
  };
  return key(a) == key(b);
}

}  // namespace

bool PVBtrackEqual(const PVBtrack& a, const PVBtrack& b, TIME tolerance) {
  return a.stateChars == b.stateChars && a.stateCounts == b.stateCounts &&
         timesEqual(a, b, tolerance) && a.eventExprs == b.eventExprs && selectionEqual(a, b);
}

bool PVBslotEqual(const PVBtimePlate& a, const PVBtimePlate& b, int index, TIME tolerance) {
  static const PVBtrack kEmpty;
  if (PVBtrackDirection(a, index) != PVBtrackDirection(b, index)) return false;
  if (PVBtrackSignals(a, index) != PVBtrackSignals(b, index)) return false;
  const auto wave = [index](const PVBtimePlate& plate, std::size_t level) -> const PVBtrack& {
    if (level >= plate.levels.size() || index < 0) return kEmpty;
    const auto& tracks = plate.levels[level].tracks;
    const auto place = static_cast<std::size_t>(index);
    return place < tracks.size() ? tracks[place] : kEmpty;
  };
  for (std::size_t level = 0; level < std::max(a.levels.size(), b.levels.size()); ++level) {
    if (!PVBtrackEqual(wave(a, level), wave(b, level), tolerance)) return false;
  }
  return true;
}
