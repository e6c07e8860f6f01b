// The reduction of two tracks to one wave. Each road that succeeds keeps what is driven
// in every row, for these reasons:
//
//   P and simple (steps 7, 8)       The one wave is taken as it is, so its own rows stay as
//                                   they are. For each row of the other, tpPropagate has
//                                   shown that some data of the row, and the P that this
//                                   row begins with, make the wave show what it showed.
//   data and simple (9, 10)         The target is the shape of the wave with data, edge for
//                                   edge and time for time, so its rows stay. The other wave
//                                   doesn't look at data; its rows get the constant that
//                                   tpMatchPair has found for it.
//   two simple waves (11)           Neither looks at data: each side's rows get the constant
//                                   of their side.
//   rows (11)                       tpPropagate has shown it of every row of both sides.
//
// Refused otherwise: waves whose first edges differ, or whose edges were aligned although
// they lie apart (wrapping times conform); undefined spans of multiplexed signals that
// don't end alike; strobe windows that differ, or that an edge of the result would cut;
// data for a signal without a column. A constant that rows can't take as it is, because
// they hold other data, choose their track by them, or the two sides differ, is left to be
// worked out row by row (fromHistory), after tpPropagate has confirmed it.
//
// What the memo says of a track and a shape was found against another partner, with edges
// where that one had them. NOMATCH may be taken at its word, for it only refuses. MATCH of
// both sides doesn't tell that the two agree in time: unless both waves are the shape
// already, the rows are asked again.

#include <fmt/printf.h>

#include <algorithm>
#include <numeric>

#include "timeplate/ate.h"
#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_pair.h"
#include "timeplate/tp_reduce_internal.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr char kUndefinedSpan = '?';
constexpr char kStrobe = 'Q';
// Bits of a code of the row data by which a row counts as having data.
constexpr int kDataBits = 1 | 2 | 8;

// Two tracks that are reduced, and what a shape is tried on. All records are used again.
struct Tracks {
  const PVBtimePlate* first = nullptr;
  const PVBtimePlate* second = nullptr;
  int a = kNoTrack;
  int b = kNoTrack;
  const TpSignal* signal = nullptr;
  int table = kComplexShapes;
  bool cutsStrobes = false;
  TIME end;  // of a multiplexed wave

  Wave wholeA, wholeB;  // as the tracks stand
  Wave waveA, waveB;    // without spans and strobes
  Wave savedA, savedB;  // aligned
  Wave A, B;            // at work
  Wave target;
  StrobeWindows windowsA, windowsB;
  bool simpleA = false;
  bool simpleB = false;
};
Tracks tracks;

// --- What is reduced at all ----------------------------------------------------------

bool isPlain(const PVBtrack& track) {
  return track.eventTimes.size() == track.stateChars.size() &&
         std::all_of(track.stateCounts.begin(), track.stateCounts.end(),
                     [](std::int32_t count) { return count == 1; });
}

// What a wave doesn't tell is the same.
bool sameOutsideWaves(const PVBtrack& a, const PVBtrack& b) {
  return a.repeat == b.repeat && a.selector == b.selector && a.selectorLists == b.selectorLists &&
         a.cycleOffset == b.cycleOffset && a.cycleLength == b.cycleLength;
}

bool expressionsAgree(const PVBtrack& a, const PVBtrack& b) {
  if (a.eventExprs.size() != b.eventExprs.size()) return false;
  for (std::size_t i = 0; i < a.eventExprs.size(); ++i) {
    if (a.eventExprs[i] && b.eventExprs[i] && *a.eventExprs[i] != *b.eventExprs[i]) return false;
  }
  return true;
}

bool isUndefined(const Wave& wave) { return wave.edges() == 1 && wave.states[0] == kUndefinedSpan; }

bool takeTracks(const PVBtrack& a, const PVBtrack& b) {
  if (!isPlain(a) || !isPlain(b) || !sameOutsideWaves(a, b)) {
    return tpRefuse("tracks differ beside their waves");
  }
  tpTakeWave(tracks.wholeA, a);
  tpTakeWave(tracks.wholeB, b);
  if (tpTraces(2)) {
    tpTrace(2, fmt::sprintf("tkFirst:\n%s\ntkSecond:\n%s\n", tracks.wholeA.states,
                            tracks.wholeB.states));
  }
  if (isUndefined(tracks.wholeA) || isUndefined(tracks.wholeB)) {
    return tpRefuse("One contains ?, cannot reduce", "One contains ?, cannot reduce\n");
  }
  if (tpSettings.tpoCheckEquations && !expressionsAgree(a, b)) {
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
  const auto sameSecond = [&] { return tpSameTime(a.times[1], b.times[1]); };
  const auto sameLast = [&] { return tpSameTime(a.times.back(), b.times.back()); };
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

bool restoreStrobes() {
  if (!tracks.cutsStrobes || tracks.windowsA.positions.empty()) return true;
  tpRestoreStrobeWindows(tracks.target, tracks.windowsA);
  return (tpIsSound(tracks.target) && sameStrobes(tracks.wholeA, tracks.target) &&
          sameStrobes(tracks.wholeB, tracks.target)) ||
         tpRefuse("strobe windows differ");
}

// --- Working copies ------------------------------------------------------------------

// Steps 9 and 11 begin with waves that have an edge wherever either has one.
bool alignWaves() {
  tracks.savedA = tracks.waveA;
  tracks.savedB = tracks.waveB;
  tpAlignWaves(tracks.savedA, tracks.savedB);
  return (tpShowsSame(tracks.waveA, tracks.savedA.states, tracks.savedA.times) &&
          tpShowsSame(tracks.waveB, tracks.savedB.states, tracks.savedB.times)) ||
         tpRefuse("times not conformal, cannot match");
}

void restoreWaves() {
  tracks.A = tracks.savedA;
  tracks.B = tracks.savedB;
}

void stretch(Wave& wave) {
  tpStretchWave(wave, tracks.target.edges(), tracks.first->period, tracks.signal->muxed,
                tracks.end);
}

void takeTarget(const Wave& shape) {
  tracks.target.states = shape.states;
  tracks.target.times.assign(shape.states.size(), TIME_ZERO);
}

// Edges that are left without a time will be spread between their neighbours in single
// precision; there has to be more room than its error.
bool leavesRoom(const Wave& target) {
  constexpr std::int64_t kPrecision = std::int64_t{1} << 22;
  for (std::size_t k = 1; k < target.times.size();) {
    std::size_t next = k;
    while (next < target.times.size() && target.times[next] == TIME_ZERO) ++next;
    const TIME after = next < target.times.size() ? target.times[next] : tracks.first->period;
    const std::int64_t end = PBtimeToLong(after);
    const std::int64_t span = end - PBtimeToLong(target.times[k - 1]);
    const auto edges = static_cast<std::int64_t>(next - k);
    if (edges > 0 && span / (edges + 1) <= end / kPrecision) return false;
    k = next + 1;
  }
  return true;
}

// --- The memo ------------------------------------------------------------------------

void remember(int shapeId, Memo ofFirst, Memo ofSecond) {
  if (shapeId < 0) return;
  if (ofFirst != NOTSET) tpMemoSet(tracks.first->id, tracks.a, shapeId, ofFirst);
  if (ofSecond != NOTSET) tpMemoSet(tracks.second->id, tracks.b, shapeId, ofSecond);
}

// --- Success -------------------------------------------------------------------------

constexpr int kFirstRows = 1;
constexpr int kSecondRows = 2;

// The target becomes the result. Without strobes put back it is none, and other shapes
// have to be tried.
const Wave* succeed(int rows, int resultFirst, int resultSecond) {
  if (!restoreStrobes()) return nullptr;
  tpPair.rewriteFirst |= (rows & kFirstRows) != 0;
  tpPair.rewriteSecond |= (rows & kSecondRows) != 0;
  const auto at = static_cast<std::size_t>(tracks.signal->index);
  const int results[] = {resultFirst, resultSecond};
  for (std::size_t side = 0; side < 2; ++side) {
    if (at < tpPair.scratch[side].size()) {
      tpPair.scratch[side][at] = static_cast<std::uint8_t>(results[side]);
    }
  }
  return &tracks.target;
}

Reduction fromRows(const Wave* wave) { return {wave, true, tpReason.c_str()}; }

// --- Steps 7 and 8: a wave with P against the rows of the other ----------------------

PropagateSide sideFirst(Wave& working) { return {tracks.first, tracks.a, &working}; }
PropagateSide sideSecond(Wave& working) { return {tracks.second, tracks.b, &working}; }

bool hasP(const Wave& wave) { return wave.states.find('P') != std::string::npos; }

const Wave* firstStays() {
  tpTrace(2, "first contains P, second is simple\n");
  tracks.target = tracks.waveA;
  const int id = ateShapeId(tracks.table, tracks.waveA.states);
  int failSide = 0;
  if (!tpPropagate({}, sideSecond(tracks.waveB), tracks.target, *tracks.signal, failSide)) {
    remember(id, NOTSET, NOMATCH);
    return nullptr;
  }
  remember(id, MATCH, MATCH);
  return succeed(kSecondRows, 0, 0);
}

const Wave* secondStays() {
  tpTrace(2, "second contains P, first is simple\n");
  tracks.target = tracks.waveB;
  const int id = ateShapeId(tracks.table, tracks.waveB.states);
  int failSide = 0;
  if (!tpPropagate(sideFirst(tracks.waveA), {}, tracks.target, *tracks.signal, failSide)) {
    remember(id, NOMATCH, NOTSET);
    return nullptr;
  }
  remember(id, MATCH, MATCH);
  return succeed(kFirstRows, 0, 0);
}

// --- Steps 9 and 10: a wave with data against a constant -----------------------------

// Whether the data of a side's rows decide about the track that they use.
bool standsAlone(const PVBtimePlate& plate) {
  int others = 0;
  for (int d = 0; d < 3; ++d) {
    others += tpTrackOf(plate, *tracks.signal, d) == kNoTrack ? 0 : 1;
  }
  return others == 1;
}

bool confirmedByRows(const PropagateSide& first, const PropagateSide& second) {
  static Wave proven;
  int failSide = 0;
  proven = tracks.target;
  return tpPropagate(first, second, proven, *tracks.signal, failSide);
}

// The table's shape of the wave with data: that wave itself, in the end.
bool takeOwnShape(const Wave& withData, int& id) {
  const Wave* shape = ateShapeLookup(tracks.table, withData.states, id);
  if (shape == nullptr) return false;
  takeTarget(*shape);
  return true;
}

bool isItself(const Wave& target, const Wave& wave) {
  return target.states == wave.states && target.times == wave.times;
}

const Wave* firstTakesConstant() {
  int id = -1;
  if (!takeOwnShape(tracks.waveA, id)) return nullptr;
  tpTrace(2, "first contains S or C, second is simple\n");
  restoreWaves();
  stretch(tracks.B);
  const int n = tracks.A.edges();
  if (!tpMatchPair(tracks.A, tracks.B, tracks.target, n, n).matched ||
      !isItself(tracks.target, tracks.waveA)) {
    remember(id, NOTSET, NOMATCH);
    return nullptr;
  }
  if (!standsAlone(*tracks.second) && !confirmedByRows({}, sideSecond(tracks.savedB))) {
    return nullptr;
  }
  remember(id, MATCH, MATCH);
  return succeed(kSecondRows, 0, 0);
}

const Wave* secondTakesConstant() {
  int id = -1;
  if (!takeOwnShape(tracks.waveB, id)) return nullptr;
  tpTrace(2, "second contains S or C, first is simple\n");
  restoreWaves();
  stretch(tracks.A);
  const int n = tracks.B.edges();
  if (!tpMatchPair(tracks.B, tracks.A, tracks.target, n, n).matched ||
      !tpShowsSame(tracks.waveB, tracks.target.states, tracks.target.times)) {
    remember(id, NOMATCH, NOTSET);
    return nullptr;
  }
  if (!standsAlone(*tracks.first) && !confirmedByRows(sideFirst(tracks.savedA), {})) {
    return nullptr;
  }
  remember(id, MATCH, MATCH);
  return succeed(kFirstRows, 0, 0);
}

// --- Step 11: the shapes of the tester -----------------------------------------------

// Whether all rows of a timeplate have no data or these.
bool rowsTake(const PVBtimePlate& plate, int code) {
  for (const std::int32_t row : tpRowList(plate.id)) {
    const TpRow* record = tpRowGet(row);
    if (record == nullptr) return false;
    const int has = tpRowCode(*record, tracks.signal->inColumn);
    if ((has & kDataBits) != 0 && has != code) return false;
  }
  return true;
}

// Whether one constant may be put into all rows of both timeplates.
bool isOneConstant(const PairMatch& match) {
  return match.resultA == match.resultB && standsAlone(*tracks.first) &&
         standsAlone(*tracks.second) && rowsTake(*tracks.first, match.resultA) &&
         rowsTake(*tracks.second, match.resultB);
}

Reduction tryConstants(int id) {
  stretch(tracks.A);
  stretch(tracks.B);
  const int n = tracks.A.edges();
  const PairMatch match = tpMatchPair(tracks.A, tracks.B, tracks.target, n, n);
  if (!match.matched) {
    restoreWaves();
    remember(id, match.failSide == 0 ? NOMATCH : MATCH, match.failSide == 0 ? NOTSET : NOMATCH);
    return {};
  }
  const bool constant = isOneConstant(match);
  if (!leavesRoom(tracks.target) ||
      (!constant && !confirmedByRows(sideFirst(tracks.savedA), sideSecond(tracks.savedB)))) {
    restoreWaves();
    return {};
  }
  remember(id, MATCH, MATCH);
  return {succeed(kFirstRows | kSecondRows, match.resultA, match.resultB), !constant, ""};
}

// Both tracks have become this shape before; here they do so only at the same times.
bool bothKnown() {
  stretch(tracks.A);
  stretch(tracks.B);
  if (tracks.A.states == tracks.target.states && tracks.B == tracks.A) {
    tracks.target.times = tracks.A.times;
    return true;
  }
  restoreWaves();
  int failSide = 0;
  return tpPropagate(sideFirst(tracks.A), sideSecond(tracks.B), tracks.target, *tracks.signal,
                     failSide);
}

Reduction tryRows(int id, bool known) {
  const bool failedP = tpRun.firstFailedP || tpRun.secondFailedP;
  if (tracks.target.states.front() == 'P' && failedP) return {};
  if (tpTraces(2)) tpTrace(2, fmt::sprintf("\n\tchecking shape: %s\n", tracks.target.states));
  if (known) {
    return bothKnown() ? fromRows(succeed(kFirstRows | kSecondRows, 0, 0)) : Reduction{};
  }
  int failSide = 0;
  if (tpPropagate(sideFirst(tracks.A), sideSecond(tracks.B), tracks.target, *tracks.signal,
                  failSide)) {
    remember(id, MATCH, MATCH);
    return fromRows(succeed(kFirstRows | kSecondRows, 0, 0));
  }
  if (failSide >= 0) {
    remember(id, failSide == 0 ? NOMATCH : NOTSET, failSide == 1 ? NOMATCH : NOTSET);
  }
  return {};
}

Reduction tryShape(const Wave& shape) {
  const int id = ateShapeId(tracks.table, shape.states);
  const Memo memoA = tpMemoGet(tracks.first->id, tracks.a, id);
  const Memo memoB = tpMemoGet(tracks.second->id, tracks.b, id);
  if (memoA == NOMATCH || memoB == NOMATCH) {
    tpRefuse("both NOMATCH for shape", "both NOMATCH for shape:\n");
    return {};
  }
  if (shape.edges() < tracks.savedA.edges()) {
    tpRefuse("shape too short", "shape too short:\n");
    return {};
  }
  if (tpXPosition(shape.states) != tpXPosition(tracks.savedA.states)) return {};
  const bool hasData = tpShapeHasData(shape.states);
  if (hasData && tracks.signal->inColumn < 0) return {};
  takeTarget(shape);
  restoreWaves();
  if (hasData && tracks.simpleA && tracks.simpleB) return tryConstants(id);
  return tryRows(id, memoA == MATCH && memoB == MATCH);
}

Reduction tryShapes() {
  ShapeWalk walk;
  for (const Wave* shape = ateFirstShape(walk, tracks.table, tracks.signal->id); shape != nullptr;
       shape = ateNextShape(walk)) {
    if (shape->edges() == 0) continue;
    const Reduction reduction = tryShape(*shape);
    if (reduction.wave != nullptr) return reduction;
  }
  return {};
}

// --- The steps -----------------------------------------------------------------------

// Steps 1 to 6.
bool beginReduction(const PVBtimePlate& first, const PVBtimePlate& second, int a, int b,
                    const TpSignal& signal, int direction) {
  tpReason = "no shape";
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

bool hasWritableData(const Wave& wave) {
  return tpShapeHasData(wave.states) && tracks.signal->inColumn >= 0;
}

Reduction refusal() { return {nullptr, false, tpReason.c_str()}; }

}  // namespace

Reduction tpReduceTracks(const PVBtimePlate& first, const PVBtimePlate& second, int a, int b,
                         const TpSignal& signal, int direction) {
  if (!beginReduction(first, second, a, b, signal, direction)) return refusal();
  if (hasP(tracks.waveA) && tracks.simpleB) {
    if (const Wave* wave = firstStays()) return fromRows(wave);
  }
  if (hasP(tracks.waveB) && tracks.simpleA) {
    if (const Wave* wave = secondStays()) return fromRows(wave);
  }
  if (!alignWaves()) return refusal();
  if (hasWritableData(tracks.waveA) && tracks.simpleB) {
    if (const Wave* wave = firstTakesConstant()) return fromRows(wave);
  }
  if (hasWritableData(tracks.waveB) && tracks.simpleA) {
    if (const Wave* wave = secondTakesConstant()) return fromRows(wave);
  }
  const Reduction reduction = tryShapes();
  return reduction.wave != nullptr ? reduction : refusal();
}

// The first timeplate's wave stays, or there is none.
Reduction tpReduceTracksConservative(const PVBtimePlate& first, const PVBtimePlate& second, int a,
                                     int b, const TpSignal& signal, int direction) {
  if (!beginReduction(first, second, a, b, signal, direction)) return refusal();
  if (hasP(tracks.waveA) && tracks.simpleB) {
    if (const Wave* wave = firstStays()) return fromRows(wave);
  }
  if (hasWritableData(tracks.waveA) && tracks.simpleB && alignWaves()) {
    if (const Wave* wave = firstTakesConstant()) return fromRows(wave);
  }
  return refusal();
}
