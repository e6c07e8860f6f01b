// One pair of timeplates, signal by signal. The signals that kept pairs apart most often
// come first, so that most pairs are rejected at the first signals tried.

#include <fmt/printf.h>

#include <algorithm>

#include "timeplate/tp_merge_internal.h"
#include "timeplate/tp_pair.h"
#include "timeplate/tp_reduce.h"
#include "timeplate/tp_rewrite.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr char kStrobe = 'Q';
constexpr char kPrevious = 'P';

// What keeps two timeplates apart, or that nothing does.
enum class Verdict { kOn, kApart, kNotReduced };

// The tracks of a signal in one direction.
struct TrackPair {
  PlateView& first;
  PlateView& second;
  const TpSignal& signal;
  int direction;
  int a;
  int b;

  const PVBtrack& waveA() const { return *tpTrack(*first.plate, a); }
  const PVBtrack& waveB() const { return *tpTrack(*second.plate, b); }
};

int trackIn(const PlateView& view, const TpSignal& signal, int direction) {
  return view.tracks[static_cast<std::size_t>(signal.index)][static_cast<std::size_t>(direction)];
}

bool isTrack(int track) { return track != kNoTrack && track != kSeveralTracks; }

// --- Equal tracks --------------------------------------------------------------------

// What the copy of a wave would hold: a track may have fewer times than states.
TIME timeOf(const PVBtrack& track, std::size_t edge) {
  return edge < track.eventTimes.size() ? track.eventTimes[edge] : TIME_ZERO;
}

bool equalTracks(const PVBtrack& a, const PVBtrack& b) {
  if (a.stateChars != b.stateChars) return false;
  if (a.eventTimes == b.eventTimes) return true;
  for (std::size_t edge = 0; edge < a.stateChars.size(); ++edge) {
    if (!tpTimesEqual(timeOf(a, edge), timeOf(b, edge))) return false;
  }
  return true;
}

bool unselected(const PVBtrack& track) { return tpSameOutsideWaves(track, PVBtrack()); }

// Of the directions in which both have a track.
bool identicalTracks(const PlateView& first, const PlateView& second, const TpSignal& signal) {
  for (int d = 0; d < 3; ++d) {
    const PVBtrack* a = tpTrack(*first.plate, trackIn(first, signal, d));
    const PVBtrack* b = tpTrack(*second.plate, trackIn(second, signal, d));
    if (a == nullptr || b == nullptr) continue;
    if (a->stateChars != b->stateChars || a->eventTimes != b->eventTimes) return false;
  }
  return true;
}

// --- The report ----------------------------------------------------------------------

const char* directionText(int direction) {
  static const char* const kTexts[] = {"input", "output", "bidirectional"};
  return kTexts[direction];
}

std::string shapeOf(const PlateView& view, int track) {
  if (track == kSeveralTracks) return "several tracks";
  const PVBtrack* wave = tpTrack(*view.plate, track);
  return wave != nullptr ? wave->stateChars : "no track";
}

Verdict apart(const TrackPair& pair, const char* reason) {
  if (tpTraces(1)) {
    tpReport(fmt::sprintf("\n%s and %s not merged: signal %s, %s, %s against %s: %s\n",
                          pair.first.plate->name.value_or(""), pair.second.plate->name.value_or(""),
                          pair.signal.name, directionText(pair.direction),
                          shapeOf(pair.first, pair.a), shapeOf(pair.second, pair.b), reason));
  }
  return Verdict::kApart;
}

// Counts the failure and moves the signal up, behind the last that failed as often: its
// place from now on.
std::size_t promote(std::size_t position) {
  std::vector<int>& order = tpRun.tpoSignals;
  const auto failures = [&](std::size_t at) {
    return tpRun.signals[static_cast<std::size_t>(order[at])].failCount;
  };
  ++tpRun.signals[static_cast<std::size_t>(order[position])].failCount;
  std::size_t to = position;
  while (to > 0 && failures(to - 1) < failures(position)) --to;
  const auto at = [&](std::size_t place) {
    return order.begin() + static_cast<std::ptrdiff_t>(place);
  };
  std::rotate(at(to), at(position), at(position + 1));
  return to;
}

// --- Taking over ---------------------------------------------------------------------

const PVBtrack* bidirectionalTrack(const PlateView& view, const TpSignal& signal) {
  return tpTrack(*view.plate, trackIn(view, signal, 2));
}

bool saysNothing(const PlateView& view, const TpSignal& signal) {
  const auto& tracks = view.tracks[static_cast<std::size_t>(signal.index)];
  return std::all_of(tracks.begin(), tracks.end(), [](int track) { return track == kNoTrack; });
}

// Only `owner` has a track in this direction.
Verdict takeOver(const TrackPair& pair, const PlateView& owner, const PlateView& other, int track) {
  if (!tpSettings.tpoBidiMerge &&
      (pair.direction == 2 || bidirectionalTrack(other, pair.signal) != nullptr)) {
    return apart(pair, "bidirectional tracks are kept");
  }
  if (pair.signal.muxed && !identicalTracks(pair.first, pair.second, pair.signal)) {
    return apart(pair, "multiplexed");
  }
  const PVBtrack* source = tpTrack(*owner.plate, track);
  if (source == nullptr || !unselected(*source)) return apart(pair, "selected by rows");
  const auto index = static_cast<std::size_t>(pair.signal.index);
  if (saysNothing(other, pair.signal) && tpMergeState.previousUsed[index]) {
    return apart(pair, "later rows keep the state before");
  }
  // Nothing is given up on the track pass, so that nothing has to be taken over.
  if (tpRun.trackPass) return Verdict::kOn;
  static Wave wave;
  tpTakeWave(wave, *source);
  Candidate& candidate = tpPairSet(pair.signal, pair.direction, wave);
  candidate.fromSecond = true;
  candidate.source = source;
  // Rows may choose other tracks now, and need other data for it.
  tpPair.rewriteFirst = true;
  tpPair.rewriteSecond = true;
  return Verdict::kOn;
}

// --- Outputs of an existing database -------------------------------------------------

bool isMask(std::string_view states) {
  return std::all_of(states.begin(), states.end(),
                     [](char state) { return state == 'X' || state == '?' || state == kStrobe; });
}

// The tracks compare differently: only one that compares nothing may give way, and only
// where rows can be made to expect nothing.
Verdict chooseStrobes(const TrackPair& pair) {
  const PVBtrack& a = pair.waveA();
  const PVBtrack& b = pair.waveB();
  const bool strobesA = a.stateChars.find(kStrobe) != std::string::npos;
  const bool strobesB = b.stateChars.find(kStrobe) != std::string::npos;
  if (strobesA && strobesB) return apart(pair, "other strobe windows");
  const PVBtrack& chosen = strobesB ? b : a;
  if (pair.signal.inColumn >= 0 || !isMask(a.stateChars) || !isMask(b.stateChars)) {
    return apart(pair, "compares at other times");
  }
  static Wave wave;
  tpTakeWave(wave, chosen);
  tpPairSet(pair.signal, pair.direction, wave);
  // Rows of the track that gives way expect nothing from now on.
  if (strobesB) tpPair.rewriteFirst = true;
  if (strobesA) tpPair.rewriteSecond = true;
  return Verdict::kOn;
}

bool drives(const PVBtrack& track) {
  return std::any_of(track.stateChars.begin(), track.stateChars.end(), [](char state) {
    const int code = tpStateClass(state);
    return code == kDriveClass || code == kLowerDriveClass;
  });
}

Verdict compareOutputs(const TrackPair& pair) {
  const PVBtrack& a = pair.waveA();
  const PVBtrack& b = pair.waveB();
  if (equalTracks(a, b) && a.stateCounts == b.stateCounts) return Verdict::kOn;
  if (tpSettings.tpoOptimizeOnly) return chooseStrobes(pair);
  if (drives(a) || drives(b)) return apart(pair, "an output that drives");
  return Verdict::kOn;
}

// --- Both tracks ---------------------------------------------------------------------

bool isIdentical(const TrackPair& pair) {
  const PVBtrack& a = pair.waveA();
  if (tpRun.trackPass && tpShapeSimple(a.stateChars)) return false;
  return equalTracks(a, pair.waveB()) && a.stateCounts == pair.waveB().stateCounts &&
         (!tpSettings.tpoCheckEquations || tpExpressionsAgree(a, pair.waveB()));
}

Verdict reduce(const TrackPair& pair) {
  if (!tpIsPlainTrack(pair.waveA()) || !tpIsPlainTrack(pair.waveB())) {
    apart(pair, "states of several cycles");
    return Verdict::kNotReduced;
  }
  if (tpTraces(2)) tpReport(fmt::sprintf(" signal %s\n", pair.signal.name));
  const auto reduceTracks = pair.first.isProtected ? tpReduceTracksConservative : tpReduceTracks;
  const Reduction reduction = reduceTracks(*pair.first.plate, *pair.second.plate, pair.a, pair.b,
                                           pair.signal, pair.direction);
  const bool holdsPrevious =
      reduction.wave != nullptr && reduction.wave->states.find(kPrevious) != std::string::npos;
  const bool unknown =
      holdsPrevious && tpMergeState.unsettled[static_cast<std::size_t>(pair.signal.index)];
  if (reduction.wave == nullptr || unknown) {
    apart(pair, unknown ? "the state before isn't known" : reduction.reason);
    return Verdict::kNotReduced;
  }
  tpPairSet(pair.signal, pair.direction, *reduction.wave).fromHistory = reduction.fromHistory;
  ++tpPair.reduced;
  return Verdict::kOn;
}

Verdict compareBoth(const TrackPair& pair) {
  if (!tpSameOutsideWaves(pair.waveA(), pair.waveB())) return apart(pair, "selected differently");
  if (pair.direction == 1) return compareOutputs(pair);
  if (isIdentical(pair)) {
    ++tpPair.identical;
    return Verdict::kOn;
  }
  return reduce(pair);
}

Verdict compareDirection(const TrackPair& pair) {
  if (pair.a == kSeveralTracks || pair.b == kSeveralTracks) {
    return apart(pair, "several tracks of one direction");
  }
  if (!isTrack(pair.a) && !isTrack(pair.b)) return Verdict::kOn;
  if (!isTrack(pair.a)) return takeOver(pair, pair.second, pair.first, pair.b);
  if (!isTrack(pair.b)) return takeOver(pair, pair.first, pair.second, pair.a);
  return compareBoth(pair);
}

// What the rows of a signal that isn't plain do is known from equal tracks only.
Verdict compareWhole(const TrackPair& pair) {
  if (tpRun.trackPass || (pair.a == kNoTrack && pair.b == kNoTrack)) return Verdict::kOn;
  const bool same = isTrack(pair.a) && isTrack(pair.b) && equalTracks(pair.waveA(), pair.waveB()) &&
                    pair.waveA().stateCounts == pair.waveB().stateCounts &&
                    tpSameOutsideWaves(pair.waveA(), pair.waveB());
  return same ? Verdict::kOn : apart(pair, "multiplexed as a whole");
}

// False when the signal keeps the pair apart.
bool compareSignal(PlateView& first, PlateView& second, std::size_t position) {
  const auto index = static_cast<std::size_t>(tpRun.tpoSignals[position]);
  const TpSignal& signal = tpRun.signals[index];
  for (int d = 0; d < 3; ++d) {
    const TrackPair pair = {
        first, second, signal, d, trackIn(first, signal, d), trackIn(second, signal, d)};
    const Verdict verdict = signal.plain ? compareDirection(pair) : compareWhole(pair);
    if (verdict == Verdict::kOn) continue;
    if (verdict == Verdict::kApart) return false;
    if (tpTraces(2)) {
      tpReport(fmt::sprintf("\n%s and %s FAILED because of signal %s\n",
                            first.plate->name.value_or(""), second.plate->name.value_or(""),
                            signal.name));
    }
    position = promote(position);
    if (!tpRun.trackPass) return false;
  }
  return true;
}

// The last word is the rows': with the candidates every one must do what it did.
bool rowsAllow(PlateView& first, PlateView& second) {
  if (tpPair.used.empty()) return true;
  const TpSignal* signal = tpRowsForbid(*first.plate, second.plate, tpRun.trackPass);
  if (signal == nullptr) return true;
  const auto direction =
      std::find_if(tpPair.used.begin(), tpPair.used.end(),
                   [&](const auto& used) { return used.first == signal->index; });
  const int d = direction != tpPair.used.end() ? direction->second : 0;
  apart({first, second, *signal, d, trackIn(first, *signal, d), trackIn(second, *signal, d)},
        "a row would do something else");
  return false;
}

}  // namespace

// --- Views ---------------------------------------------------------------------------

void tpNormaliseDirections(PVBtimePlate& plate) {
  for (auto& [signal, tracks] : plate.signalToTrack) {
    auto& [in, out, both] = tracks.track;
    if (in != out || in != both) continue;
    const PVBtrack* wave = tpTrack(plate, in);
    if (wave == nullptr) continue;
    const auto kept = static_cast<std::size_t>(tpClassifyDirection(wave->stateChars));
    for (std::size_t d = 0; d < 3; ++d) {
      if (d != kept) tracks.track[d] = kNoTrack;
    }
  }
}

void tpViewTracks(PlateView& view) {
  tpNormaliseDirections(*view.plate);
  view.tracks.assign(tpRun.signals.size(), {kNoTrack, kNoTrack, kNoTrack});
  tpMergeState.previousUsed.resize(tpRun.signals.size());
  tpMergeState.unsettled.resize(tpRun.signals.size());
  for (const TpSignal& signal : tpRun.signals) {
    const SignalTracks* tracks = PVBsignalTracks(*view.plate, signal.id);
    if (tracks == nullptr) continue;
    const auto index = static_cast<std::size_t>(signal.index);
    view.tracks[index] = tracks->track;
    for (const std::int32_t track : tracks->track) {
      const PVBtrack* wave = tpTrack(*view.plate, track);
      if (wave != nullptr && wave->stateChars.find(kPrevious) != std::string::npos) {
        tpMergeState.previousUsed[index] = true;
      }
    }
  }
}

bool tpComparePair(PlateView& first, PlateView& second) {
  tpPairBegin(first.plate->id, second.plate->id);
  for (std::size_t position = 0; position < tpRun.tpoSignals.size(); ++position) {
    if (!compareSignal(first, second, position)) return false;
  }
  return rowsAllow(first, second);
}
