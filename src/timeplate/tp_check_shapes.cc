#include <fmt/printf.h>

#include <string>

#include "base/errors.h"
#include "timeplate/ate.h"
#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_reduce.h"
#include "timeplate/tp_rewrite_internal.h"
#include "timeplate/tp_rows.h"
#include "timeplate/tp_settings.h"

namespace {

// The code of a column that says neither what to drive nor what to expect.
constexpr int kMaskCode = 4;

// --- Rows of bidirectional signals ---------------------------------------------------

bool drivesBehindResponse(const PVBtrack& track) {
  bool expects = false;
  for (const char state : track.stateChars) {
    if (tpStateClass(state) == kResponseClass) expects = true;
    if (expects && tpIsDrive(state)) return true;
  }
  return false;
}

// A bidirectional signal whose rows get data by the shape of its input track.
struct Unset {
  const TpSignal* signal;
  RowCodes codes;
};

std::vector<Unset> bidirectionalsOf(const PVBtimePlate& plate) {
  std::vector<Unset> signals;
  for (const TpSignal& signal : tpRun.signals) {
    if (!signal.plain || signal.direction != BIDIR) continue;
    const PVBtrack* track = tpTrack(plate, tpTrackOf(plate, signal, INPUT));
    if (track == nullptr) continue;
    signals.push_back({&signal, {drivesBehindResponse(*track) ? kMaskCode : 0, kMaskCode}});
  }
  return signals;
}

// The data choose between tracks as well: they are set only where that changes nothing.
bool setUp(const PVBtimePlate& plate, const Unset& unset, TpRow& row) {
  static Cycle before;
  static Cycle after;
  const TpSignal& signal = *unset.signal;
  if (tpRowCodes(signal, row) != RowCodes{}) return false;
  tpCycleOf(plate, signal, row, before);
  tpSetRowCodes(signal, row, unset.codes);
  tpCycleOf(plate, signal, row, after);
  if (tpSameCycle(before, after, true)) return true;
  tpSetRowCodes(signal, row, {});
  return false;
}

void normaliseRows(const PVBtimePlate& plate) {
  static TpRow copy;
  const std::vector<Unset> signals = bidirectionalsOf(plate);
  if (signals.empty()) return;
  for (const std::int32_t number : tpRowList(plate.id)) {
    const TpRow* row = tpRowGet(number);
    if (row == nullptr || row->timeplate != plate.id || tpRowScans(number)) continue;
    copy = *row;
    bool changed = false;
    for (const Unset& unset : signals) changed = setUp(plate, unset, copy) || changed;
    if (changed) tpRowPut(number, copy);
  }
}

// --- Shapes --------------------------------------------------------------------------

struct InvalidTrack {
  const TpSignal* signal;
  int direction;
};

int shapeTable(const TpSignal& signal) {
  return signal.muxed && ateUseMux() ? kMuxShapes : kComplexShapes;
}

bool isValid(const TpSignal& signal, const PVBtrack& track) {
  static Wave wave;
  if (tpShapeSimple(track.stateChars) || ateShapeId(kComplexShapes, track.stateChars) >= 0) {
    return true;
  }
  if (!signal.muxed) return false;
  tpTakeWave(wave, track);
  TIME end;
  tpStripQuestion(wave, end);
  return ateShapeId(shapeTable(signal), wave.states) >= 0;
}

// Makes the first shape that can do what all rows of the timeplate do a candidate.
void tryShapes(const PVBtimePlate& plate, const InvalidTrack& invalid) {
  static Wave wave;
  static Wave working;
  static Wave target;
  const TpSignal& signal = *invalid.signal;
  const std::int32_t track = tpDirectedTrack(plate, signal, invalid.direction);
  tpTakeWave(wave, *tpTrack(plate, track));
  TIME end;
  if (signal.muxed) tpStripQuestion(wave, end);
  tpRun.firstFailedP = false;
  tpRun.secondFailedP = false;
  ShapeWalk walk;
  for (const Wave* shape = ateFirstShape(walk, shapeTable(signal), signal.id); shape != nullptr;
       shape = ateNextShape(walk)) {
    if (shape->edges() < wave.edges()) continue;
    if (tpXPosition(shape->states) != tpXPosition(wave.states)) continue;
    if (shape->states.starts_with('P') && tpRun.firstFailedP) continue;
    target = *shape;
    target.times.assign(target.states.size(), TIME_ZERO);
    working = wave;
    int failSide = 0;
    if (!tpPropagate({&plate, track, &working}, {}, target, signal, failSide)) continue;
    tpPairSet(signal, invalid.direction, target).fromHistory = true;
    tpPair.rewriteFirst = true;
    ++tpPair.reduced;
    return;
  }
}

std::vector<InvalidTrack> invalidTracks(const PVBtimePlate& plate) {
  std::vector<InvalidTrack> invalid;
  for (const TpSignal& signal : tpRun.signals) {
    if (!signal.plain) continue;
    for (const int direction : {INPUT, BIDIR}) {
      const PVBtrack* track = tpTrack(plate, tpDirectedTrack(plate, signal, direction));
      if (track != nullptr && !isValid(signal, *track)) invalid.push_back({&signal, direction});
    }
  }
  return invalid;
}

// The number of tracks that are mended.
int report(const std::vector<InvalidTrack>& invalid) {
  int fixed = 0;
  for (const InvalidTrack& track : invalid) {
    tpReport(fmt::sprintf("\t%s track for Signal %s is not valid.\n",
                          track.direction == BIDIR ? "BIDIR" : "INPUT", track.signal->name));
    if (!tpPairCandidate(*track.signal, track.direction).set) continue;
    tpReport("\t\tfixed\n");
    ++fixed;
  }
  return fixed;
}

// The number of tracks that stay invalid.
int checkPlate(PVBtimePlate& plate) {
  const std::string name = plate.name.value_or("");
  tpReport(fmt::sprintf("Checking TimePlate %s\n", name));
  const std::vector<InvalidTrack> invalid = invalidTracks(plate);
  if (invalid.empty()) {
    tpReport(fmt::sprintf("\tTimePlate %s is valid.\n", name));
    return 0;
  }
  tpPairBegin(plate.id, UNDEF);
  for (const InvalidTrack& track : invalid) tryShapes(plate, track);
  tpKeepCandidatesThatHold(plate);
  const int fixed = report(invalid);
  if (tpPairHasCandidate()) tpRewriteAlone(plate, false);
  const int count = static_cast<int>(invalid.size());
  tpReport(fmt::sprintf("\tTimePlate %s has %d fixed of %d invalid tracks.\n", name, fixed, count));
  return count - fixed;
}

}  // namespace

bool tpCheckShapes() {
  const PVBidList ids = PVBtimePlateInqAll(tpRun.database);
  tpStatus("Checking for valid shapes.\n");
  tpReport("\nChecking for valid shapes:\n");
  if (tpPrepareRows(ids, false) != 0) return false;
  int unfixed = 0;
  for (const PVBid id : ids) {
    PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
    if (plate == nullptr) continue;
    normaliseRows(*plate);
    unfixed += checkPlate(*plate);
  }
  if (unfixed > 0) {
    tpNotice(0, fmt::sprintf("There are %d invalid shapes in the timeplates", unfixed));
  }
  return true;
}
