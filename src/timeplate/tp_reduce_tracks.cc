// The first steps of a reduction: which tracks can be reduced at all, and what of their
// waves is left out meanwhile.

#include <fmt/printf.h>

#include <algorithm>

#include "timeplate/tp_reduce_internal.h"
#include "timeplate/tp_settings.h"

ReducedTracks tpReduced;

namespace {

ReducedTracks& tracks = tpReduced;

constexpr char kUndefinedSpan = '?';
constexpr char kStrobe = 'Q';

// --- What is reduced at all ----------------------------------------------------------

std::ptrdiff_t expressionCount(const PVBtrack& track) {
  return std::ranges::count_if(track.eventExprs, [](const auto& text) { return text.has_value(); });
}

// Where one wave has a single edge, no span may come before either.
bool isUndefined(const Wave& a, const Wave& b) {
  return (a.edges() == 1 || b.edges() == 1) &&
         (a.states.starts_with(kUndefinedSpan) || b.states.starts_with(kUndefinedSpan));
}

bool takeTracks(const PVBtrack& a, const PVBtrack& b) {
  if (!tpIsPlainTrack(a) || !tpIsPlainTrack(b) || !tpSameOutsideWaves(a, b)) {
    return tpRefuse("tracks differ beside their waves");
  }
  tpTakeWave(tracks.wholeA, a);
  tpTakeWave(tracks.wholeB, b);
  if (tpTraces(2)) {
    tpTrace(2, fmt::sprintf("tkFirst:\n%s\ntkSecond:\n%s\n", tracks.wholeA.states,
                            tracks.wholeB.states));
  }
  if (isUndefined(tracks.wholeA, tracks.wholeB)) {
    return tpRefuse("One contains ?, cannot reduce", "One contains ?, cannot reduce\n");
  }
  if (tpSettings.tpoCheckEquations &&
      (expressionCount(a) != expressionCount(b) || !tpExpressionsAgree(a, b))) {
    return tpRefuse("expressions of edges differ");
  }
  if (!tpIsSound(tracks.wholeA) || !tpIsSound(tracks.wholeB)) {
    return tpRefuse("times not ascending");
  }
  tracks.waveA = tracks.wholeA;
  tracks.waveB = tracks.wholeB;
  return true;
}

// --- Multiplexed signals and strobes -------------------------------------------------

bool edgesLineUp(const Wave& a, const Wave& b, int muxClass) {
  const auto sameSecond = [&] { return a.times[1] == b.times[1]; };
  const auto sameLast = [&] { return a.times.back() == b.times.back(); };
  switch (muxClass) {
    case 0:
      return sameLast();
    case 1:
      return sameLast() && sameSecond();
    case 2:
      return sameSecond();
    default:
      return true;
  }
}

// The spans come back as those of the first track.
bool spansAgree(const Wave& a, const Wave& b) {
  const bool endsA = a.states.back() == kUndefinedSpan;
  const bool startsA = a.states.front() == kUndefinedSpan;
  if (startsA != (b.states.front() == kUndefinedSpan)) return false;
  if (endsA != (b.states.back() == kUndefinedSpan)) return false;
  return !endsA || tpSameTime(a.times.back(), b.times.back());
}

bool stripSpans() {
  Wave& a = tracks.waveA;
  Wave& b = tracks.waveB;
  const int muxClass = tpMuxClass(a.states);
  if (muxClass != tpMuxClass(b.states) || !edgesLineUp(a, b, muxClass) || !spansAgree(a, b)) {
    return tpRefuse("multiplexed parts differ");
  }
  TIME endOfA;
  tpStripQuestion(a, endOfA);
  tpStripQuestion(b, tracks.end);
  return true;
}

bool windowsEqual(const StrobeWindows& a, const StrobeWindows& b) {
  const auto kind = [](char state) { return state == kStrobe; };
  return std::equal(a.cut.states.begin(), a.cut.states.end(), b.cut.states.begin(),
                    b.cut.states.end(), [&](char s, char t) { return kind(s) == kind(t); }) &&
         std::equal(a.cut.times.begin(), a.cut.times.end(), b.cut.times.begin(), b.cut.times.end(),
                    tpSameTime);
}

bool cutStrobes() {
  if (!tpSameRunStructure(tracks.waveA.states, tracks.waveB.states)) {
    return tpRefuse("run structure differs");
  }
  tracks.windowsA = tpCutStrobeWindows(tracks.waveA);
  tracks.windowsB = tpCutStrobeWindows(tracks.waveB);
  if (!windowsEqual(tracks.windowsA, tracks.windowsB)) return tpRefuse("strobe windows differ");
  return (tracks.waveA.edges() > 0 && tracks.waveB.edges() > 0) ||
         tpRefuse("strobe windows differ");
}

// Where strobes begin and end: {begin, end} of each run of Q, in pairs.
void strobeSpans(const Wave& wave, std::vector<TIME>& spans) {
  spans.clear();
  bool inside = false;
  for (std::size_t i = 0; i < wave.states.size(); ++i) {
    if ((wave.states[i] == kStrobe) != inside) {
      inside = !inside;
      spans.push_back(wave.times[i]);
    }
  }
}

bool sameStrobes(const Wave& a, const Wave& b) {
  static std::vector<TIME> spansA;
  static std::vector<TIME> spansB;
  strobeSpans(a, spansA);
  strobeSpans(b, spansB);
  return std::equal(spansA.begin(), spansA.end(), spansB.begin(), spansB.end(), tpSameTime);
}

}  // namespace

bool tpRestoreStrobes() {
  if (!tracks.cutsStrobes || tracks.windowsA.positions.empty()) return true;
  tpRestoreStrobeWindows(tracks.target, tracks.windowsA);
  return (tpIsSound(tracks.target) && sameStrobes(tracks.wholeA, tracks.target) &&
          sameStrobes(tracks.wholeB, tracks.target)) ||
         tpRefuse("strobe windows differ");
}

// Steps 1 to 6.
bool tpBeginReduction(const PVBtimePlate& first, const PVBtimePlate& second, int a, int b,
                      const TpSignal& signal, int direction) {
  tpReason = kNoShape;
  tpRun.firstFailedP = false;
  tpRun.secondFailedP = false;
  tracks.first = &first;
  tracks.second = &second;
  tracks.a = a;
  tracks.b = b;
  tracks.signal = &signal;
  tracks.end = TIME_ZERO;
  tracks.table = signal.muxed ? kMuxShapes : kComplexShapes;
  const PVBtrack* trackA = tpTrack(first, a);
  const PVBtrack* trackB = tpTrack(second, b);
  if (trackA == nullptr || trackB == nullptr) return tpRefuse("no track");
  if (!takeTracks(*trackA, *trackB) || (signal.muxed && !stripSpans())) return false;
  tracks.cutsStrobes = direction == 2 && tpSettings.tpoOptimizeOnly;
  if (tracks.cutsStrobes && !cutStrobes()) return false;
  if (!tpSameTime(tracks.waveA.times[0], tracks.waveB.times[0])) {
    return tpRefuse("times not conformal, cannot match");
  }
  if (tpXPosition(tracks.waveA.states) != tpXPosition(tracks.waveB.states)) {
    return tpRefuse("positions of X differ");
  }
  tracks.simpleA = tpShapeSimple(tracks.waveA.states);
  tracks.simpleB = tpShapeSimple(tracks.waveB.states);
  return true;
}
