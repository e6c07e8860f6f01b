#include "timeplate/split.h"

#include <algorithm>
#include <utility>

#include "base/errors.h"

PlatePtr borrowPlate(PVBtimePlate* plate) {
  // An alias of nothing: no count is kept and nothing is freed.
  return plate != nullptr ? PlatePtr(PlatePtr(), plate) : PlatePtr();
}

bool isPiece(const PVBtimePlate& plate) { return plate.id == UNDEF; }

namespace {

constexpr char kMissingState = '?';

// Appends the state of event `event` of `source` at `time`.
void append(PVBtrack& track, TIME time, const PVBtrack& source, std::size_t event) {
  const char state = event < source.stateChars.size() ? source.stateChars[event] : kMissingState;
  const std::int32_t count = event < source.stateCounts.size() ? source.stateCounts[event] : 1;
  if (PVBtrackInsert(track, -1, time, state, count) != 0) assertFail(__FILE__, __LINE__);
}

// The events of `source` to both sides of the cut. The piece behind it begins with the
// state that is in force there.
void splitTrack(const PVBtrack& source, TIME offset, PVBtrack& first, PVBtrack& rest) {
  const std::vector<TIME>& times = source.eventTimes;
  if (times.empty()) return;
  append(first, TIME_ZERO, source, 0);
  std::size_t event = 1;
  for (; event < times.size() && PBcmpTIME(times[event], offset) < 0; ++event) {
    append(first, times[event], source, event);
  }
  const bool eventAtCut = event < times.size() && PBeqTIME(times[event], offset);
  if (!eventAtCut) append(rest, TIME_ZERO, source, event - 1);
  for (; event < times.size(); ++event) {
    // Events out of order, as a file may hold them, don't go before the cut.
    append(rest, std::max(PBsubTIME(times[event], offset), TIME_ZERO), source, event);
  }
}

std::string pieceName(const PVBtimePlate& plate, TIME begin) {
  return plate.name.value_or("") + '_' + PBformatTIME(begin);
}

void clearTrack(PVBtrack& track) {
  track.eventTimes.clear();
  track.eventExprs.clear();
  track.stateChars.clear();
  track.stateCounts.clear();
  track.propList = UNDEF;
}

// The plate without events and properties, for the stretch of `period` from `begin` on.
// A slot keeps the direction that it has in the whole plate: worked out from what is
// left of its events it could be another.
std::shared_ptr<PVBtimePlate> makePiece(const PVBtimePlate& plate, TIME begin, TIME period) {
  std::shared_ptr<PVBtimePlate> piece = PVBtimePlateCopy(plate);
  piece->name = pieceName(plate, begin);
  piece->period = period;
  piece->firstRow = piece->lastRow = UNDEF;
  const std::size_t slots = plate.levels.empty() ? 0 : plate.levels.front().tracks.size();
  for (int slot = 0; slot < static_cast<int>(slots); ++slot) {
    PVBtrackSetDirection(*piece, slot, PVBtrackDirection(plate, slot));
  }
  for (PVBlevel& level : piece->levels) std::ranges::for_each(level.tracks, clearTrack);
  PVBtimePlateRebuildMaps(*piece);
  return piece;
}

}  // namespace

PlatePieces splitTimePlate(const PlatePtr& plate, TIME offset) {
  if (plate == nullptr) assertFail(__FILE__, __LINE__);
  if (PBeqTIME(offset, TIME_ZERO)) return {nullptr, plate};
  if (PBeqTIME(offset, plate->period)) return {plate, nullptr};
  if (PBcmpTIME(offset, TIME_ZERO) < 0 || PBcmpTIME(offset, plate->period) > 0) {
    assertFail(__FILE__, __LINE__);
  }
  PlatePieces pieces = {makePiece(*plate, TIME_ZERO, offset),
                        makePiece(*plate, offset, PBsubTIME(plate->period, offset))};
  for (std::size_t level = 0; level < plate->levels.size(); ++level) {
    const std::vector<PVBtrack>& tracks = plate->levels[level].tracks;
    for (std::size_t track = 0; track < tracks.size(); ++track) {
      splitTrack(tracks[track], offset, pieces.first->levels[level].tracks[track],
                 pieces.rest->levels[level].tracks[track]);
    }
  }
  return pieces;
}
