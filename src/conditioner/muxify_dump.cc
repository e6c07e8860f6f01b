// The timeplates of a database as text, for whoever looks into what muxify combines.

#include <cstdio>

#include "conditioner/muxify_internal.h"
#include "conditioner/run.h"

namespace {

const char* directionName(int direction) {
  constexpr std::array<const char*, 4> kNames = {"input", "output", "bidir", "undefined"};
  return kNames[static_cast<std::size_t>(direction)];
}

void dumpSignalsOf(int database, const PVBtimePlate& plate, int track) {
  for (const PVBid id : PVBtrackSignals(plate, track)) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    const bool named = signal != nullptr && signal->name;
    std::fprintf(run.debugStream, " %s", named ? signal->name->c_str() : "?");
  }
}

void dumpTrack(int database, const PVBtimePlate& plate, int index) {
  const PVBtrack& track = plate.levels.front().tracks[static_cast<std::size_t>(index)];
  std::fprintf(run.debugStream, "  track %d %s:", index,
               directionName(PVBtrackDirection(plate, index)));
  dumpSignalsOf(database, plate, index);
  std::fputs(" |", run.debugStream);
  for (std::size_t e = 0; e < track.eventTimes.size(); ++e) {
    const char state = e < track.stateChars.size() ? track.stateChars[e] : '?';
    std::fprintf(run.debugStream, " %s %c", PBformatTIME(track.eventTimes[e]).c_str(), state);
  }
  std::fputs("\n", run.debugStream);
}

}  // namespace

void dumpTimeplates(int database) {
  if (run.debugStream == nullptr) return;
  for (const PVBid id : PVBtimePlateInqAll(database)) {
    const PVBtimePlate& plate = *PVBtimePlateInqByID(database, id);
    std::fprintf(run.debugStream, "timeplate %d %s period %s\n", id,
                 plate.name.value_or("").c_str(), PBformatTIME(plate.period).c_str());
    const std::size_t tracks = plate.levels.empty() ? 0 : plate.levels.front().tracks.size();
    for (std::size_t i = 0; i < tracks; ++i) dumpTrack(database, plate, static_cast<int>(i));
  }
}
