#include "timeplate/clock_shapes.h"

#include <fmt/printf.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "timeplate/clock_shapes_internal.h"

namespace {

constexpr std::string_view kFunction = "tpSimplifyClockShapes";
constexpr std::size_t kMostPlaces = std::size_t{1} << 25;  // of signals on tracks
constexpr std::int32_t kRowEntry = 1;  // type of the selector entries that a row state has

template <typename... Args>
void inform(const TpClockPass& pass, const char* format, const Args&... args) {
  const std::string line = fmt::sprintf(format, args...);
  std::fputs(line.c_str(), stderr);
  std::fputs(line.c_str(), pass.report);
}

// --- Gathering -----------------------------------------------------------------------

// Scalars, multiplexed signals taken apart as well.
PVBidList leavesOf(int database, const PVBidList& signals) {
  PVBidList leaves;
  for (const PVBid id : PVBsignalListToScalars(database, signals)) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal == nullptr || signal->type != MEM_MUX || signal->muxChildren.empty()) {
      leaves.push_back(id);
    } else {
      leaves.insert(leaves.end(), signal->muxChildren.begin(), signal->muxChildren.end());
    }
  }
  return leaves;
}

TpSlotRecord slotOf(PVBtimePlate& plate, int track, const TpTrackStates& states) {
  TpSlotRecord slot;
  slot.timeplate = &plate;
  slot.track = track;
  slot.direction = PVBtrackDirection(plate, track);
  slot.statesSeen = states.of(plate.id, track);
  if (tpFirstWave(plate, track) == nullptr) return slot;
  slot.wave = &plate.levels.front().tracks[static_cast<std::size_t>(track)];
  slot.shape = slot.wave->stateChars.substr(0, tpEdgeCount(*slot.wave));
  return slot;
}

// False when the plates name buses and groups so often that it can only be damage.
bool gatherPlate(TpClockPass& pass, PVBtimePlate& plate, const TpTrackStates& states) {
  for (int track = 0; track < PVBslotCount(plate); ++track) {
    const auto index = static_cast<std::uint32_t>(pass.slots.size());
    pass.slots.push_back(slotOf(plate, track, states));
    const PVBidList leaves = leavesOf(pass.database, PVBtrackSignals(plate, track));
    pass.places += leaves.size();
    if (pass.places > kMostPlaces) return false;
    for (const PVBid id : leaves) pass.tpSignalSlots[id].push_back(index);
  }
  return true;
}

bool failGathering(std::string_view reason) {
  errno = 0;
  PBerrPush(PBconditionerError, kFunctionAndText, kFunction, reason);
  return false;
}

bool gather(TpClockPass& pass, const TpTrackStates& states) {
  const PVBidList ids = PVBtimePlateInqAll(pass.database);
  for (const PVBid id : ids) {
    PVBtimePlate* plate = PVBtimePlateInqByID(pass.database, id);
    if (plate == nullptr) return failGathering("PVBtimePlateInqByID() failed");
    if (!gatherPlate(pass, *plate, states)) return failGathering("Too many signals on tracks");
  }
  return true;
}

// --- Merging -------------------------------------------------------------------------

// A track goes for the whole timeplate as soon as one of its signals is merged away: kept
// on purpose.
void merge(TpClockPass& pass, TpSlotSpan slots, const TpSlotRecord& clock) {
  const std::string name = tpName(*clock.timeplate);
  for (const TpSlotRecord* slot : slots) {
    if (slot->track == clock.track) continue;
    inform(pass, "INFORMATIVE: Timeplate '%s': Merging track %d (%s) into track %d (%s).\n", name,
           slot->track + 1, slot->shape, clock.track + 1, clock.shape);
    inform(pass, "INFORMATIVE: Timeplate '%s': Deleting track %d (%s).\n", name, slot->track + 1,
           slot->shape);
    pass.tpTracksToDelete[clock.timeplate->id].insert(slot->track);
  }
}

void noteRowClock(TpClockPass& pass, const PVBsignal& signal, TpSlotSpan slots,
                  const TpClock& clock) {
  std::vector<DirectedSlot> directed;
  for (const TpSlotRecord* slot : slots) directed.push_back({slot->track, slot->direction});
  pass.rowClocks[clock.slot->timeplate->id].push_back(
      {&signal, std::move(directed), PVBsignalColumn(signal, 1), clock.slot->track,
       clock.slot->wave->selector, clock.returnLevel, clock.convertToSample});
}

// --- Selectors -----------------------------------------------------------------------

// The selectors by which rows reach a signal on those of its slots that stay.
std::string usedSelectors(const TpClockPass& pass, TpSlotSpan slots) {
  std::string used;
  for (const TpSlotRecord* slot : slots) {
    const auto found = pass.tpTracksToDelete.find(slot->timeplate->id);
    if (found != pass.tpTracksToDelete.end() && found->second.contains(slot->track)) continue;
    if (slot->wave != nullptr) used += PVBwaveSelectors(*slot->wave);
  }
  return used;
}

// The letter behind `current` that is free; 0 when none is.
char freeLetter(std::string_view used, char current) {
  constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  constexpr std::string_view kNeverTaken = "OXZoxz";
  const std::size_t place = kLetters.find(current);
  const std::size_t start = place == std::string_view::npos ? 0 : (place + 1) % kLetters.size();
  for (std::size_t i = 0; i < kLetters.size(); ++i) {
    const char letter = kLetters[(start + i) % kLetters.size()];
    if (used.find(letter) == std::string_view::npos &&
        kNeverTaken.find(letter) == std::string_view::npos) {
      return letter;
    }
  }
  return 0;
}

// The selector for the state that the clock hasn't had in the rows so far.
char newSelector(const TpClockPass& pass, const TpSlotRecord& clock, TpSlotSpan slots, char current,
                 int returnLevel) {
  const std::string used = usedSelectors(pass, slots);
  const char wanted = returnLevel == kLowLevel ? '0' : '1';
  if (used.find(wanted) == std::string::npos) return wanted;
  const char letter = freeLetter(used, current);
  if (letter == 0) {
    fmt::printf("ERROR: %s: Can't find WFC for tp %s, slot %d\n", kFunction,
                tpName(*clock.timeplate), clock.track);
  }
  return letter;
}

// --- Converting ----------------------------------------------------------------------

// Of a wave without selectors the one that the wave itself bears is kept.
char currentSelector(const PVBtrack& wave) {
  const std::string selectors = PVBwaveSelectors(wave);
  if (selectors.size() > 1) fmt::printf("ERROR: More than one WFC: '%s'\n", selectors);
  return selectors.empty() ? wave.selector : selectors.front();
}

// A wave is converted once, for the first of its signals: a second time would take from
// the others the selectors that they have by then.
bool convertToSample(TpClockPass& pass, const TpSlotRecord& clock, TpSlotSpan slots,
                     int returnLevel) {
  PVBtrack& wave = *clock.wave;
  if (wave.stateChars[1] == 'S') return true;
  const char current = currentSelector(wave);
  const char added = newSelector(pass, clock, slots, current, returnLevel);
  if (added == 0) return false;
  const bool pulsesLow = wave.stateChars[1] == 'D';
  PVBwaveSetSelector(wave, pulsesLow ? current : added, kRowEntry, kLowLevel);
  PVBwaveSetSelector(wave, pulsesLow ? added : current, kRowEntry, kHighLevel);
  wave.stateChars[1] = 'S';
  return true;
}

std::string sampleShape(std::string shape) {
  shape[1] = 'S';
  return shape;
}

bool convertClock(TpClockPass& pass, const TpClock& clock, TpSlotSpan slots, bool merged) {
  const TpSlotRecord& slot = *clock.slot;
  PVBtrack& wave = *slot.wave;
  const std::string name = tpName(*slot.timeplate);
  const bool isNew = wave.stateChars[1] != 'S';
  if (clock.convertToSample) {
    pass.anyClock = true;
    if (!convertToSample(pass, slot, slots, merged ? clock.returnLevel : 0)) return false;
    if (isNew) {
      inform(pass, "INFORMATIVE: Timeplate '%s', track %d: Converting to sample shape (%s).\n",
             name, slot.track + 1, sampleShape(slot.shape));
    }
  }
  if (wave.stateChars[0] == 'P') return true;
  wave.stateChars[0] = 'P';
  inform(pass, "INFORMATIVE: Timeplate '%s', track %d: Converting initial state to 'P' (%s).\n",
         name, slot.track + 1, wave.stateChars.substr(0, slot.shape.size()));
  return true;
}

// --- Deciding ------------------------------------------------------------------------

// The clock is converted also where its other tracks can't be merged and the rows stay as
// they are: kept on purpose.
bool simplifyPair(TpClockPass& pass, PVBid signal, TpSlotSpan slots) {
  std::vector<const TpSlotRecord*> inputs;
  std::ranges::copy_if(slots, std::back_inserter(inputs),
                       [](const TpSlotRecord* slot) { return slot->direction == INPUT; });
  TpClock clock;
  if (!tpFindClock(inputs, clock) || clock.slot == nullptr) return true;
  const bool merged = tpCanMerge(inputs, clock);
  if (merged) {
    merge(pass, inputs, *clock.slot);
    pass.anyClock = true;
    const PVBsignal* record = PVBsignalInqByID(pass.database, signal);
    if (record != nullptr) noteRowClock(pass, *record, slots, clock);
  }
  return convertClock(pass, clock, slots, merged);
}

// Hands the slots of one timeplate after the other to simplifyPair.
bool simplifySignal(TpClockPass& pass, PVBid signal, const std::vector<std::uint32_t>& indices) {
  std::vector<const TpSlotRecord*> slots;
  for (std::size_t i = 0; i < indices.size();) {
    slots.clear();
    const PVBtimePlate* plate = pass.slots[indices[i]].timeplate;
    for (; i < indices.size() && pass.slots[indices[i]].timeplate == plate; ++i) {
      slots.push_back(&pass.slots[indices[i]]);
    }
    if (!simplifyPair(pass, signal, slots)) return false;
  }
  return true;
}

bool simplify(TpClockPass& pass) {
  return std::ranges::all_of(pass.tpSignalSlots, [&pass](const auto& entry) {
    return simplifySignal(pass, entry.first, entry.second);
  });
}

// --- Rows and tracks -----------------------------------------------------------------

bool updateRows(const TpClockPass& pass) {
  if (!pass.anyClock) return true;
  if (!updateSlotAndState(pass, kMainPattern)) return false;
  for (int subroutine = PVBsubroutineFirst(pass.database); subroutine >= 0;
       subroutine = PVBsubroutineNext(pass.database)) {
    if (!updateSlotAndState(pass, subroutine)) return false;
  }
  return true;
}

// The highest first: the numbers of those that are still to go stay right.
void deleteTracks(const TpClockPass& pass) {
  if (pass.tpTracksToDelete.empty()) {
    std::fputs("Simplifying clock shapes...none found.\n", stderr);
    std::fputs("INFORMATIVE: No clock shape merging opportunities found.\n", pass.report);
    return;
  }
  for (const auto& [id, tracks] : pass.tpTracksToDelete) {
    PVBtimePlate& plate = *PVBtimePlateInqByID(pass.database, id);
    for (auto track = tracks.rbegin(); track != tracks.rend(); ++track) {
      if (PVBtimePlateDeleteTrack(plate, *track)) continue;
      fmt::fprintf(stderr, "ERROR: Deleting track %d of timeplate '%s' failed\n", *track + 1,
                   tpName(plate));
    }
  }
}

}  // namespace

bool tpSimplifyClockShapes(int database, const TpTrackStates& states, FILE* report) {
  TpClockPass pass;
  pass.database = database;
  pass.report = report;
  pass.tpVersionMode = PVBmodelExtended(database, true) ? 2 : 1;
  if (!gather(pass, states) || !simplify(pass) || !updateRows(pass)) return false;
  deleteTracks(pass);
  return true;
}
