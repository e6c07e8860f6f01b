#include "timeplate/tp_pair.h"

#include <algorithm>
#include <optional>
#include <span>
#include <string>

#include "timeplate/row_lists.h"
#include "timeplate/tp_merge_internal.h"

TpPair tpPair;

namespace {

constexpr char kUndefinedSpan = '?';

Candidate& candidateAt(int signal, int direction) {
  return tpPair
      .tpoCandidates[static_cast<std::size_t>(signal)][static_cast<std::size_t>(direction)];
}

void forget(Candidate& candidate) {
  candidate.set = false;
  candidate.fromSecond = false;
  candidate.fromHistory = false;
  candidate.strobesCut = false;
  candidate.source = nullptr;
}

}  // namespace

// --- The record ----------------------------------------------------------------------

void tpPairBegin(PVBid first, PVBid second) {
  for (const auto& [signal, direction] : tpPair.used) forget(candidateAt(signal, direction));
  tpPair.used.clear();
  const std::size_t signals = tpRun.signals.size();
  if (tpPair.tpoCandidates.size() != signals) tpPair.tpoCandidates.resize(signals);
  for (ScratchRow& row : tpPair.scratch) row.assign(signals, 0);
  tpPair.first = first;
  tpPair.second = second;
  tpPair.rewriteFirst = false;
  tpPair.rewriteSecond = false;
  tpPair.reduced = 0;
  tpPair.identical = 0;
}

Candidate& tpPairSet(const TpSignal& signal, int direction, const Wave& wave) {
  Candidate& candidate = candidateAt(signal.index, direction);
  if (!candidate.set) tpPair.used.emplace_back(signal.index, direction);
  forget(candidate);
  candidate.set = true;
  candidate.wave = wave;
  return candidate;
}

const Candidate& tpPairCandidate(const TpSignal& signal, int direction) {
  return candidateAt(signal.index, direction);
}

bool tpPairHasCandidate() { return !tpPair.used.empty(); }

// --- Tracks --------------------------------------------------------------------------

namespace {

PVBtrack& firstLevelTrack(PVBtimePlate& plate, int track) {
  return plate.levels.front().tracks[static_cast<std::size_t>(track)];
}

// A blank track of the signal behind all others.
int addTrack(PVBtimePlate& plate, PVBid signal, int direction) {
  const int index = PVBslotCount(plate);
  if (PVBallocAsNecessary(plate, index) != 0) return kNoTrack;
  PVBtrackSetSignals(plate, index, {signal});
  PVBtrackSetDirection(plate, index, direction);
  return index;
}

// Gives a signal a track of its own with the wave of the one it stood on.
int detach(PVBtimePlate& plate, int track, const TpSignal& signal, int direction) {
  const int own = addTrack(plate, signal.id, direction);
  if (own == kNoTrack) return kNoTrack;
  PVBtrack& copy = firstLevelTrack(plate, own);
  copy = firstLevelTrack(plate, track);
  copy.propList = UNDEF;
  copy.signals = {signal.id};
  return own;
}

// --- Waves ---------------------------------------------------------------------------

float femtoseconds(TIME time) {
  return static_cast<float>(time.major) * static_cast<float>(kFemtosecondsPerMajor) +
         static_cast<float>(time.minor);
}

// Spreads edges without a time evenly between their neighbours. The first edge is at the
// cycle's beginning when it has none.
void fillTimes(std::vector<TIME>& times, TIME period) {
  for (std::size_t i = 1; i < times.size(); ++i) {
    if (times[i] != TIME_ZERO) continue;
    std::size_t end = i;
    while (end < times.size() && times[end] == TIME_ZERO) ++end;
    const TIME before = times[i - 1];
    const TIME after = end < times.size() ? times[end] : period;
    const float step =
        (femtoseconds(after) - femtoseconds(before)) / static_cast<float>(end - i + 1);
    for (std::size_t k = i; k < end; ++k) {
      times[k] = PBaddTIME(before, PBdoubleToTIME(step * static_cast<float>(k - i + 1)));
    }
    i = end;
  }
}

bool isQuestion(const std::string& states, std::size_t at) {
  return at < states.size() && states[at] == kUndefinedSpan;
}

// A multiplexed signal's part of the cycle is bounded by the undefined spans of its wave.
void keepQuestions(Wave& wave, const PVBtrack& old) {
  if (wave.states.empty() || isQuestion(wave.states, 0) ||
      isQuestion(wave.states, wave.states.size() - 1)) {
    return;
  }
  if (isQuestion(old.stateChars, 0)) {
    wave.states.insert(wave.states.begin(), kUndefinedSpan);
    wave.times.insert(wave.times.begin(), TIME_ZERO);
  }
  if (old.stateChars.size() > 1 && isQuestion(old.stateChars, old.stateChars.size() - 1)) {
    wave.states.push_back(kUndefinedSpan);
    wave.times.push_back(old.eventTimes.empty() ? TIME_ZERO : old.eventTimes.back());
  }
}

// An expression belongs to the time that it gives.
std::vector<std::optional<std::string>> keptExpressions(const PVBtrack& old,
                                                        const std::vector<TIME>& times) {
  std::vector<std::optional<std::string>> kept(times.size());
  std::size_t from = 0;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const auto found = std::find(old.eventTimes.begin() + static_cast<std::ptrdiff_t>(from),
                                 old.eventTimes.end(), times[i]);
    if (found == old.eventTimes.end()) continue;
    const auto at = static_cast<std::size_t>(found - old.eventTimes.begin());
    if (at < old.eventExprs.size()) kept[i] = old.eventExprs[at];
    from = at + 1;
  }
  return kept;
}

// Whether the track is another one now.
bool replaceWave(PVBtrack& track, const Wave& candidate, const TpSignal& signal, bool isNew,
                 TIME period) {
  Wave wave = candidate;
  if (signal.muxed && isNew) {
    TIME end;
    tpStripQuestion(wave, end);
  } else if (signal.muxed) {
    keepQuestions(wave, track);
  }
  fillTimes(wave.times, period);
  if (track.stateChars == wave.states && track.eventTimes == wave.times) return false;
  track.eventExprs = keptExpressions(track, wave.times);
  track.stateChars = wave.states;
  track.eventTimes = wave.times;
  track.stateCounts.assign(wave.states.size(), 1);
  return true;
}

// The whole track: spans that are left open belong to what is driven.
void takeOver(PVBtimePlate& plate, const TpSignal& signal, int direction,
              const Candidate& candidate) {
  const int track = addTrack(plate, signal.id, direction);
  if (track == kNoTrack) return;
  PVBtrack& taken = firstLevelTrack(plate, track);
  taken = *candidate.source;
  taken.propList = UNDEF;
  taken.signals = {signal.id};
}

// A candidate for a track that the plate has.
struct Change {
  int track;
  const TpSignal* signal;
  int direction;
  const Wave* wave;
};

void changeTrack(PVBtimePlate& plate, int track, const Change& change, bool isNew) {
  if (track == kNoTrack || tpTrack(plate, track) == nullptr) return;
  PVBtrack& wave = firstLevelTrack(plate, track);
  if (!replaceWave(wave, *change.wave, *change.signal, isNew, plate.period)) return;
  // A copy on trial has no rows.
  if (plate.id == UNDEF) return;
  tpMemoForget(plate.id, track);
  tpNoteChanged(plate.id);
}

// The changes of one track. Signals on it that don't change as the first one keep it as it
// is, unless there are none.
void changeShared(PVBtimePlate& plate, std::span<const Change> changes) {
  const int track = changes.front().track;
  PVBidList signals = PVBtrackSignals(plate, track);
  const bool all = signals.size() == changes.size();
  const auto stays = [&](const Change& change) {
    return all && *change.wave == *changes.front().wave;
  };
  PVBidList gone;
  for (const Change& change : changes) {
    if (stays(change)) continue;
    gone.push_back(change.signal->id);
    changeTrack(plate, detach(plate, track, *change.signal, change.direction), change, false);
  }
  if (all) changeTrack(plate, track, changes.front(), false);
  if (gone.empty()) return;
  std::sort(gone.begin(), gone.end());
  std::erase_if(signals,
                [&](PVBid id) { return std::binary_search(gone.begin(), gone.end(), id); });
  PVBtrackSetSignals(plate, track, signals);
}

// Puts candidates for tracks that the plate hasn't got on new ones, and lists the others
// track by track.
std::vector<Change> addMissing(PVBtimePlate& plate) {
  std::vector<Change> changes;
  for (const auto& [index, direction] : tpPair.used) {
    const TpSignal& signal = tpRun.signals[static_cast<std::size_t>(index)];
    const Candidate& candidate = candidateAt(index, direction);
    const int present = tpTrackOf(plate, signal, direction);
    const Change change = {present, &signal, direction, &candidate.wave};
    if (candidate.fromSecond) {
      if (present == kNoTrack) takeOver(plate, signal, direction, candidate);
    } else if (present == kNoTrack) {
      changeTrack(plate, addTrack(plate, signal.id, direction), change, true);
    } else {
      changes.push_back(change);
    }
  }
  std::stable_sort(changes.begin(), changes.end(),
                   [](const Change& a, const Change& b) { return a.track < b.track; });
  return changes;
}

}  // namespace

void tpApplyCandidates(PVBtimePlate& plate) {
  if (tpPair.used.empty()) return;
  if (plate.id != UNDEF) tpNoteOriginal(plate);
  std::sort(tpPair.used.begin(), tpPair.used.end());
  const std::vector<Change> changes = addMissing(plate);
  for (std::size_t begin = 0; begin < changes.size();) {
    std::size_t end = begin + 1;
    while (end < changes.size() && changes[end].track == changes[begin].track) ++end;
    changeShared(plate, std::span(changes).subspan(begin, end - begin));
    begin = end;
  }
  PVBtimePlateRebuildMaps(plate);
  tpNormaliseDirections(plate);
}
