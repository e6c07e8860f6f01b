// The reduction of two tracks to one wave. Each road that succeeds keeps what is driven
// in every row, for these reasons:
//
//   P and simple (steps 7, 8)   The one wave is taken as it is, so its own rows stay as they
//                               are. For each row of the other, tpPropagate has shown that
//                               with some data, and the P that this row begins with, the
//                               wave shows what the row showed.
//   data and simple (9, 10)     The target is the shape of the wave with data, edge for edge
//                               and time for time, so its rows stay. The other wave doesn't
//                               look at data; its rows get the constant that tpMatchPair has
//                               found for it.
//   two simple waves (11)       Neither looks at data: each side's rows get the constant of
//                               their side.
//   rows (11)                   tpPropagate has shown it of every row of both sides.
//
// Refused otherwise: waves whose first edges differ, or whose edges were aligned although
// they lie apart (wrapping times conform); undefined spans of multiplexed signals that
// don't end alike; strobe windows that differ, or that an edge of the result would cut;
// data for a signal without a column; edges without a time where there is no room for them.
// That a row gets its data, and uses the same track with them, is seen to where rows are
// rewritten.
//
// What the memo says of a track and a shape was found against another partner, with edges
// where that one had them. NOMATCH may be taken at its word, for it only refuses. MATCH of
// both sides doesn't tell that the two agree in time: unless both waves are the shape
// already, the rows are asked again.

#include <fmt/printf.h>

#include "timeplate/row_lists.h"
#include "timeplate/tp_pair.h"
#include "timeplate/tp_reduce_internal.h"
#include "timeplate/tp_settings.h"

namespace {

ReducedTracks& tracks = tpReduced;

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
  const TIME cycleEnd =
      tracks.signal->muxed && tracks.end != TIME_ZERO ? tracks.end : tracks.first->period;
  for (std::size_t k = 1; k < target.times.size();) {
    std::size_t next = k;
    while (next < target.times.size() && target.times[next] == TIME_ZERO) ++next;
    const TIME after = next < target.times.size() ? target.times[next] : cycleEnd;
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

Memo recall(const PVBtimePlate& plate, int track, int shapeId) {
  return shapeId < 0 ? NOTSET : tpMemoGet(plate.id, track, shapeId);
}

// --- Success -------------------------------------------------------------------------

constexpr int kFirstRows = 1;
constexpr int kSecondRows = 2;

// The target becomes the result. Without strobes put back it is none, and other shapes
// have to be tried.
const Wave* succeed(int rows, int resultFirst, int resultSecond) {
  if (!tpRestoreStrobes()) return nullptr;
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

Reduction byRows(const Wave* wave) { return {wave, true, ""}; }
Reduction byWaves(const Wave* wave) { return {wave, false, ""}; }

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

// The table's shape of the wave with data: that wave itself, in the end.
bool takeOwnShape(const Wave& withData, int& id) {
  const Wave* shape = ateShapeLookup(tracks.table, withData.states, id);
  if (shape == nullptr) return false;
  takeTarget(*shape);
  return true;
}

const Wave* firstTakesConstant() {
  int id = -1;
  if (!takeOwnShape(tracks.waveA, id)) return nullptr;
  tpTrace(2, "first contains S or C, second is simple\n");
  restoreWaves();
  stretch(tracks.B);
  const int n = tracks.A.edges();
  const PairMatch match = tpMatchPair(tracks.A, tracks.B, tracks.target, n, n);
  if (!match.matched || tracks.target != tracks.waveA) {
    remember(id, NOTSET, NOMATCH);
    return nullptr;
  }
  remember(id, MATCH, MATCH);
  return succeed(kSecondRows, match.resultA, match.resultB);
}

const Wave* secondTakesConstant() {
  int id = -1;
  if (!takeOwnShape(tracks.waveB, id)) return nullptr;
  tpTrace(2, "second contains S or C, first is simple\n");
  restoreWaves();
  stretch(tracks.A);
  const int n = tracks.B.edges();
  const PairMatch match = tpMatchPair(tracks.B, tracks.A, tracks.target, n, n);
  if (!match.matched || !tpShowsSame(tracks.waveB, tracks.target.states, tracks.target.times)) {
    remember(id, NOMATCH, NOTSET);
    return nullptr;
  }
  remember(id, MATCH, MATCH);
  return succeed(kFirstRows, match.resultB, match.resultA);
}

// --- Step 11: the shapes of the tester -----------------------------------------------

// Edges of the shape beyond those of the waves say the last state again, and get their times
// when the shape is put into a track; strobes can't be put back without them.
Reduction tryConstants(int id) {
  stretch(tracks.A);
  stretch(tracks.B);
  const int n = tracks.cutsStrobes ? tracks.A.edges() : tracks.savedA.edges();
  const PairMatch match = tpMatchPair(tracks.A, tracks.B, tracks.target, n, n);
  if (!match.matched) {
    restoreWaves();
    remember(id, match.failSide == 0 ? NOMATCH : MATCH, match.failSide == 0 ? NOTSET : NOMATCH);
    return {};
  }
  if (!leavesRoom(tracks.target)) {
    restoreWaves();
    return {};
  }
  remember(id, MATCH, MATCH);
  return byWaves(succeed(kFirstRows | kSecondRows, match.resultA, match.resultB));
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
    return bothKnown() ? byRows(succeed(kFirstRows | kSecondRows, 0, 0)) : Reduction{};
  }
  int failSide = 0;
  if (tpPropagate(sideFirst(tracks.A), sideSecond(tracks.B), tracks.target, *tracks.signal,
                  failSide)) {
    remember(id, MATCH, MATCH);
    return byRows(succeed(kFirstRows | kSecondRows, 0, 0));
  }
  if (failSide >= 0) {
    remember(id, failSide == 0 ? NOMATCH : NOTSET, failSide == 1 ? NOMATCH : NOTSET);
  }
  return {};
}

Reduction tryShape(const Wave& shape) {
  const int id = ateShapeId(tracks.table, shape.states);
  const Memo memoA = recall(*tracks.first, tracks.a, id);
  const Memo memoB = recall(*tracks.second, tracks.b, id);
  if (memoA == NOMATCH || memoB == NOMATCH) {
    // A test of this reduction tells more.
    if (tpReason == kNoShape) tpReason = "both NOMATCH for shape";
    tpTrace(2, "both NOMATCH for shape:\n");
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

bool hasWritableData(const Wave& wave) {
  return tpShapeHasData(wave.states) && tracks.signal->inColumn >= 0;
}

Reduction refusal() { return {nullptr, false, tpReason.c_str()}; }

}  // namespace

Reduction tpReduceTracks(const PVBtimePlate& first, const PVBtimePlate& second, int a, int b,
                         const TpSignal& signal, int direction) {
  if (!tpBeginReduction(first, second, a, b, signal, direction)) return refusal();
  if (hasP(tracks.waveA) && tracks.simpleB) {
    if (const Wave* wave = firstStays()) return byRows(wave);
  }
  if (hasP(tracks.waveB) && tracks.simpleA) {
    if (const Wave* wave = secondStays()) return byRows(wave);
  }
  if (!alignWaves()) return refusal();
  if (hasWritableData(tracks.waveA) && tracks.simpleB) {
    if (const Wave* wave = firstTakesConstant()) return byWaves(wave);
  }
  if (hasWritableData(tracks.waveB) && tracks.simpleA) {
    if (const Wave* wave = secondTakesConstant()) return byWaves(wave);
  }
  const Reduction reduction = tryShapes();
  return reduction.wave != nullptr ? reduction : refusal();
}

// The first timeplate's wave stays, or there is none.
Reduction tpReduceTracksConservative(const PVBtimePlate& first, const PVBtimePlate& second, int a,
                                     int b, const TpSignal& signal, int direction) {
  if (!tpBeginReduction(first, second, a, b, signal, direction)) return refusal();
  if (hasP(tracks.waveA) && tracks.simpleB) {
    if (const Wave* wave = firstStays()) return byRows(wave);
  }
  if (hasWritableData(tracks.waveA) && tracks.simpleB && alignWaves()) {
    if (const Wave* wave = firstTakesConstant()) return byWaves(wave);
  }
  return refusal();
}
