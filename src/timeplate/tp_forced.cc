#include <string>

#include "timeplate/ate.h"
#include "timeplate/tp_merge.h"
#include "timeplate/tp_reduce.h"
#include "timeplate/tp_rewrite_internal.h"
#include "timeplate/tp_settings.h"

namespace {

// A wave on its way to the shape that the file asks for.
struct Mapping {
  Wave wave;
  Wave target;
  StrobeWindows windows;
  bool cut = false;
};

// The wave without what the shapes of the file don't speak of; false when none is for it.
bool prepare(Mapping& mapping, const TpSignal& signal, const PVBtrack& track, int direction) {
  tpTakeWave(mapping.wave, track);
  TIME end;
  if (signal.muxed) tpStripQuestion(mapping.wave, end);
  if (!tpShapeSimple(mapping.wave.states)) return false;
  const Wave* shape = ateForcedMap(mapping.wave.states, signal.id);
  if (shape == nullptr) return false;
  mapping.target = *shape;
  mapping.target.times.assign(mapping.target.states.size(), TIME_ZERO);
  mapping.cut = direction == BIDIR && tpSettings.tpoOptimizeOnly;
  if (!mapping.cut) return true;
  if (!tpSameRunStructure(mapping.wave.states, mapping.target.states)) return false;
  mapping.windows = tpCutStrobeWindows(mapping.wave);
  return true;
}

void propose(Mapping& mapping, const TpSignal& signal, int direction, bool fromHistory) {
  if (mapping.cut) tpRestoreStrobeWindows(mapping.target, mapping.windows);
  Candidate& candidate = tpPairSet(signal, direction, mapping.target);
  candidate.fromHistory = fromHistory;
  candidate.strobesCut = mapping.cut;
  tpPair.rewriteFirst = true;
  ++tpPair.reduced;
}

void mapTrack(const PVBtimePlate& plate, const TpSignal& signal, int direction) {
  static Mapping mapping;
  const std::int32_t track = tpDirectedTrack(plate, signal, direction);
  const PVBtrack* wave = tpTrack(plate, track);
  if (wave == nullptr || !prepare(mapping, signal, *wave, direction)) return;
  Wave& target = mapping.target;
  if (target.states.find('P') != std::string::npos) {
    int failSide = 0;
    const PropagateSide side = {&plate, track, &mapping.wave};
    if (tpPropagate(side, {}, target, signal, failSide)) propose(mapping, signal, direction, true);
    return;
  }
  if (!tpStaticMatch(mapping.wave, target, mapping.wave.edges(), target.edges())) return;
  tpPair.scratch[0][static_cast<std::size_t>(signal.index)] =
      static_cast<std::uint8_t>(tpMatch.tpMatchResult);
  propose(mapping, signal, direction, false);
}

void mapPlate(PVBtimePlate& plate) {
  tpPairBegin(plate.id, UNDEF);
  for (const TpSignal& signal : tpRun.signals) {
    if (!signal.plain || ateNoMapping(signal.name)) continue;
    // A wave that is only expected can't become one that drives.
    for (const int direction : {INPUT, BIDIR}) mapTrack(plate, signal, direction);
  }
  tpKeepCandidatesThatHold(plate);
  if (tpPairHasCandidate()) tpRewriteAlone(plate, true);
}

}  // namespace

void tpForcedMappings(std::span<const PVBid> ids) {
  if (ids.empty() || tpRun.signals.empty()) return;
  tpStatus("Performing Forced Mappings\n");
  for (const PVBid id : ids) {
    PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
    if (plate != nullptr && !tpIsProtected(id)) mapPlate(*plate);
  }
}
