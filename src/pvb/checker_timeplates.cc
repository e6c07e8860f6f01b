// Timeplates: times from equations, slots with their signals, states and times.

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "base/debug_token.h"

#include "pvb/checker_internal.h"
#include "pvb/row_track.h"

namespace {

constexpr std::string_view kDrivenData = "SC";
constexpr std::string_view kExpectedData = "QRscqr";
constexpr std::string_view kPreviousStates = "P";
// What the slots of a plate may come to when all buses in them are opened, so that a
// plate that names one bus in each slot doesn't take more than its share.
constexpr std::size_t kMostSlotSignals = std::size_t{1} << 22;

// The first level says what the plate means; null beyond its tracks.
const PVBtrack* trackOf(const PVBtimePlate& plate, int slot) {
  if (plate.levels.empty()) return nullptr;
  const std::vector<PVBtrack>& tracks = plate.levels.front().tracks;
  const auto index = static_cast<std::size_t>(slot);
  return index < tracks.size() ? &tracks[index] : nullptr;
}

PVBmessageItem plateItem(const PVBtimePlate& plate) { return item(tpItem, plate.id); }
PVBmessageItem slotNumber(int slot) { return item(slotItem, std::int64_t{slot} + 1); }

PVBmessageItem firstSignal(const PVBtimePlate& plate, int slot) {
  const PVBidList& signals = PVBtrackSignals(plate, slot);
  return signals.empty() ? item("none") : item(sigItem, signals.front());
}

bool slotProblem(Check& check, Problem problem, const PVBtimePlate& plate, int slot) {
  return prob4(check, problem, plateItem(plate), slotNumber(slot), firstSignal(plate, slot),
               item(directionWord(PVBtrackDirection(plate, slot))));
}

// --- Equations -----------------------------------------------------------------------

bool timeFault(Check& check, const PVBtimeFault& fault) {
  const bool negative = fault.kind == PVBtimeFault::Kind::negative;
  if (fault.period) {
    return prob1(check, negative ? kPeriodNotPositive : kPeriodUndefined,
                 item(tpItem, fault.timeplate));
  }
  return prob3(check, negative ? kEventNegative : kEventUndefined,
               item(eventItem, std::int64_t{fault.event} + 1),
               item(trackItem, std::int64_t{fault.track} + 1), item(tpItem, fault.timeplate));
}

// Brings all plates up to date at once; what failed is told for each of them.
bool updateTimes(Check& check) {
  if (!timeUpdate()) return false;
  bool stop = false;
  const bool done = timeUpdate()(
      check.database, [&](const PVBtimeFault& fault) { stop = stop || timeFault(check, fault); });
  return stop || !done;
}

bool hasExpression(const PVBtrack& track, std::size_t event) {
  return event < track.eventExprs.size() && track.eventExprs[event].has_value();
}

bool checkEquations(Check& check, const PVBtimePlate& plate) {
  const int slots = PVBslotCount(plate);
  for (int slot = 0; slot < slots; ++slot) {
    const PVBtrack* track = trackOf(plate, slot);
    if (track == nullptr) break;
    for (std::size_t i = 1; i < track->eventTimes.size(); ++i) {
      if (!hasExpression(*track, i) || track->eventTimes[i - 1] < track->eventTimes[i]) continue;
      if (prob3(check, kEventNotIncreasing, item(eventItem, static_cast<std::int64_t>(i) + 1),
                item(trackItem, std::int64_t{slot} + 1), plateItem(plate))) {
        return true;
      }
    }
  }
  return false;
}

// --- Directions ----------------------------------------------------------------------

bool slotServes(int slotDirection, std::int32_t direction) {
  return slotDirection == kUndefinedDirection || direction == kNoDirection || direction == BIDIR ||
         slotDirection == direction;
}

bool checkSlotDirection(Check& check, const PVBtimePlate& plate, int slot) {
  const int direction = PVBtrackDirection(plate, slot);
  for (const PVBid id : PVBtrackSignals(plate, slot)) {
    const PVBsignal* signal = PVBsignalInqByID(check.database, id);
    if (signal == nullptr || slotServes(direction, signal->direction)) continue;
    // A group has no direction of its own unless it was given one.
    if (prob5(check, kWrongSlot, plateItem(plate), slotNumber(slot), item(sigItem, id),
              firstSignal(plate, slot), item(directionWord(direction)))) {
      return true;
    }
  }
  return false;
}

// What a signal lacks that stands on these slots.
std::optional<Problem> neededSlot(const PVBsignal& signal, std::span<const DirectedSlot> slots) {
  const auto serves = [&](int direction) {
    return std::any_of(slots.begin(), slots.end(), [&](const DirectedSlot& slot) {
      return slot.direction == direction || slot.direction == BIDIR ||
             slot.direction == kUndefinedDirection;
    });
  };
  if (signal.direction == INPUT && !serves(INPUT)) return kNeedsInputSlot;
  if (signal.direction == OUTPUT && !serves(OUTPUT)) return kNeedsOutputSlot;
  if (!slots.empty()) return std::nullopt;
  return signal.direction == BIDIR ? kBidirNeedsSlot : kNeedsSlot;
}

bool checkDirections(Check& check, const PVBtimePlate& plate, const SignalSlots& slots) {
  const int count = PVBslotCount(plate);
  for (int slot = 0; slot < count; ++slot) {
    if (checkSlotDirection(check, plate, slot)) return true;
  }
  for (std::size_t s = 0; s < check.signals.size(); ++s) {
    const CheckedSignal& signal = check.signals[s];
    const std::optional<Problem> needed = neededSlot(*signal.record, slots.of(s));
    if (!needed) continue;
    if (prob2(check, *needed, plateItem(plate), item(sigItem, signal.id))) return true;
  }
  return false;
}

// --- Track selectors -----------------------------------------------------------------

// The characters that choose a track; none for a track that has no selector.
std::string selectorsOf(const PVBtrack* track) {
  if (track == nullptr) return {};
  std::string all = PVBwaveSelectors(*track);
  if (track->selector != '-' && all.find(track->selector) == std::string::npos) {
    all += track->selector;
  }
  return all;
}

// How often each character chooses a slot of each side, for one signal. A slot of both
// directions stands on both sides.
class SelectorUse {
 public:
  bool add(char selector, int direction) {
    const auto character = static_cast<unsigned char>(selector);
    const unsigned sides = direction == INPUT ? 1U : direction == OUTPUT ? 2U : 3U;
    const bool twice = (sides_[character] & sides) != 0;
    sides_[character] |= static_cast<std::uint8_t>(sides);
    return twice;
  }

 private:
  std::array<std::uint8_t, 256> sides_{};
};

bool checkSignalSelectors(Check& check, const PVBtimePlate& plate, const CheckedSignal& signal,
                          std::span<const DirectedSlot> slots) {
  SelectorUse use;
  unsigned plainSides = 0;
  bool extra = false;
  for (const auto& [slot, direction] : slots) {
    const unsigned sides = direction == INPUT ? 1U : direction == OUTPUT ? 2U : 3U;
    const std::string selectors = selectorsOf(trackOf(plate, slot));
    // A signal that can't select in its rows has one slot of a side, whatever it bears.
    if (selectors.empty() || signal.record->multiBit == 0) {
      extra = extra || (plainSides & sides) != 0;
      plainSides |= sides;
      continue;
    }
    for (const char selector : selectors) {
      if (use.add(selector, direction) &&
          prob3(check, kSelectorTwice, plateItem(plate), item(std::string(1, selector)),
                item(sigItem, signal.id))) {
        return true;
      }
    }
  }
  return extra && prob3(check, kExtraSlot, plateItem(plate), none(), item(sigItem, signal.id));
}

bool checkTrackSelectors(Check& check, const PVBtimePlate& plate, const SignalSlots& slots) {
  for (std::size_t s = 0; s < check.signals.size(); ++s) {
    const auto own = slots.of(s);
    if (own.size() < 2) continue;
    if (checkSignalSelectors(check, plate, check.signals[s], own)) return true;
  }
  return false;
}

// --- Slots ---------------------------------------------------------------------------

bool checkSlotColumns(Check& check, const PVBtimePlate& plate, int slot, const PVBtrack& track) {
  const DataNeed need = dataNeed(track);
  if (!need.in && !need.out) return false;
  for (const PVBid id : PVBtrackSignals(plate, slot)) {
    const PVBsignal* signal = PVBsignalInqByID(check.database, id);
    if (signal == nullptr || signal->type != MEM_SIGNAL) continue;
    const DataColumns columns = PVBsignalDataColumns(*signal);
    // The first column of an output is its expected one.
    const std::int64_t inPlace = signal->direction == OUTPUT ? 2 : 1;
    const std::int64_t outPlace = 3 - inPlace;
    for (const auto& [lacks, place] :
         {std::pair(need.in && columns.in < 0, inPlace), {need.out && columns.out < 0, outPlace}}) {
      if (lacks && prob4(check, kSlotColumn, plateItem(plate), slotNumber(slot),
                         item(columnItem, place), item(sigItem, id))) {
        return true;
      }
    }
  }
  return false;
}

bool checkStates(Check& check, const PVBtimePlate& plate, int slot, const PVBtrack& track) {
  const int direction = PVBtrackDirection(plate, slot);
  const int wrong = direction == INPUT ? 1 : direction == OUTPUT ? 0 : -2;
  const std::string& states = track.stateChars;
  const bool wrongState = std::any_of(
      states.begin(), states.end(), [&](char state) { return PVBstateDirection(state) == wrong; });
  if (wrongState && slotProblem(check, kWrongDirectionState, plate, slot)) return true;
  const std::size_t previous = states.find_first_of(kPreviousStates, 1);
  if (previous != std::string::npos && slotProblem(check, kPreviousNotFirst, plate, slot)) {
    return true;
  }
  return checkSlotColumns(check, plate, slot, track);
}

// Events with an expression are looked at with the equations.
bool checkTimes(Check& check, const PVBtimePlate& plate, int slot, const PVBtrack& track) {
  bool redundant = false;
  bool decreasing = false;
  for (std::size_t i = 1; i < track.eventTimes.size(); ++i) {
    if (hasExpression(track, i)) continue;
    redundant = redundant || track.eventTimes[i] == track.eventTimes[i - 1];
    decreasing = decreasing || track.eventTimes[i] < track.eventTimes[i - 1];
  }
  if (redundant && slotProblem(check, kRedundantTimes, plate, slot)) return true;
  return decreasing && slotProblem(check, kDecreasingTimes, plate, slot);
}

bool checkSlotSignals(Check& check, const PVBtimePlate& plate, int slot) {
  for (const PVBid id : PVBtrackSignals(plate, slot)) {
    if (PVBsignalInqByID(check.database, id) != nullptr) continue;
    const std::string place =
        "slot " + std::to_string(slot + 1) + " of timeplate " + plate.name.value_or("") + ": ";
    if (prob2(check, kUnknownId, item(place), item(pvbIdItem, id))) return true;
  }
  return false;
}

bool checkSlot(Check& check, const PVBtimePlate& plate, int slot) {
  const PVBtrack* track = trackOf(plate, slot);
  const bool signals = !PVBtrackSignals(plate, slot).empty();
  const bool states = track != nullptr && !track->stateChars.empty();
  if (!signals) {
    return prob2(check, states ? kSlotWithoutSignals : kEmptySlot, plateItem(plate),
                 slotNumber(slot));
  }
  if (checkSlotSignals(check, plate, slot)) return true;
  if (!states) return slotProblem(check, kSlotWithoutStates, plate, slot);
  if (!check.full) return false;
  return checkStates(check, plate, slot, *track) || checkTimes(check, plate, slot, *track);
}

bool checkSlots(Check& check, const PVBtimePlate& plate) {
  const int slots = PVBslotCount(plate);
  for (int slot = 0; slot < slots; ++slot) {
    if (checkSlot(check, plate, slot)) return true;
  }
  return false;
}

bool checkTimePlate(Check& check, const PVBtimePlate& plate) {
  if (checkEquations(check, plate)) return true;
  const SignalSlots slots = slotsOfSignals(check, plate);
  if (check.full && checkDirections(check, plate, slots)) return true;
  return checkTrackSelectors(check, plate, slots) || checkSlots(check, plate);
}

// --- Slots by signal -----------------------------------------------------------------

struct SlotSignal {
  std::int32_t signal;
  std::int32_t slot;
};

void addSignal(const Check& check, PVBid id, std::int32_t slot, std::vector<SlotSignal>& out) {
  const auto place = check.places.find(id);
  if (place != check.places.end()) out.push_back({place->second, slot});
}

void addSlot(const Check& check, const PVBtimePlate& plate, std::int32_t slot,
             std::vector<SlotSignal>& out) {
  for (const PVBid id : PVBtrackSignals(plate, slot)) {
    const PVBsignal* signal = PVBsignalInqByID(check.database, id);
    const bool composite = signal != nullptr && !signal->members.empty();
    if (!composite) {
      addSignal(check, id, slot, out);
    } else if (out.size() < kMostSlotSignals) {
      for (const PVBid part : PVBsignalListToScalars(check.database, {id})) {
        addSignal(check, part, slot, out);
      }
    }
  }
}

}  // namespace

DataNeed dataNeed(const PVBtrack& track) {
  return {track.stateChars.find_first_of(kDrivenData) != std::string::npos,
          track.stateChars.find_first_of(kExpectedData) != std::string::npos};
}

SignalSlots slotsOfSignals(const Check& check, const PVBtimePlate& plate) {
  std::vector<SlotSignal> found;
  const int slots = PVBslotCount(plate);
  for (int slot = 0; slot < slots; ++slot) addSlot(check, plate, slot, found);
  std::stable_sort(found.begin(), found.end(),
                   [](const SlotSignal& a, const SlotSignal& b) { return a.signal < b.signal; });
  const auto same = [](const SlotSignal& a, const SlotSignal& b) {
    return a.signal == b.signal && a.slot == b.slot;
  };
  found.erase(std::unique(found.begin(), found.end(), same), found.end());
  SignalSlots result;
  result.first.assign(check.signals.size() + 1, 0);
  std::vector<int> directions;
  directions.reserve(static_cast<std::size_t>(slots));
  for (int slot = 0; slot < slots; ++slot) directions.push_back(PVBtrackDirection(plate, slot));
  for (const SlotSignal& entry : found) {
    ++result.first[static_cast<std::size_t>(entry.signal) + 1];
    result.slot.push_back({entry.slot, directions[static_cast<std::size_t>(entry.slot)]});
  }
  for (std::size_t s = 1; s < result.first.size(); ++s) result.first[s] += result.first[s - 1];
  return result;
}

bool checkTimePlates(Check& check) {
  const PVBidList ids = PVBtimePlateInqAll(check.database);
  if (ids.empty()) return prob0(check, kNoTimePlates);
  if (updateTimes(check)) return true;
  if (!check.full) {
    DebugPrintf("checker", "fullPVBcheck NOT specified, skipping Direction check.\n");
  }
  for (const PVBid id : ids) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(check.database, id);
    if (plate != nullptr && checkTimePlate(check, *plate)) return true;
  }
  return false;
}
