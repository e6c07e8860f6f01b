// Which track is the clock, and whether the others can go.

#include <algorithm>
#include <bit>
#include <cstdio>

#include "timeplate/clock_shapes.h"
#include "timeplate/clock_shapes_internal.h"

std::string_view tpClockReason;

namespace {

constexpr std::size_t kClockStates = 3;
constexpr std::string_view kFits;  // no reason to refuse

bool isOneOf(char state, std::string_view states) {
  return states.find(state) != std::string_view::npos;
}

bool isDriven(char state) { return isOneOf(state, "DU"); }

int levelOf(char driven) { return driven == 'D' ? kLowLevel : kHighLevel; }

bool accept(std::string_view reason) {
  if (reason.empty()) return true;
  tpClockReason = reason;
  return false;
}

// --- The clock -----------------------------------------------------------------------

std::string_view refusalOfClockShape(std::string_view shape) {
  if (!isOneOf(shape[0], "PDU")) return "Start state must be P/D/U.";
  if (!isOneOf(shape[1], "SDU")) return "Second state must be S/D/U.";
  if (!isDriven(shape[2])) return "Return state not D/U.";
  if (shape[0] != 'P' && shape[0] != shape[2]) return "Start & stop states do not match.";
  return kFits;
}

// Of a clock that is one already, and another shape of three states.
std::string_view refusalOfSecondClock(const TpClock& clock, const TpSlotRecord& slot) {
  if (slot.shape[2] != clock.returnState) return "Conflicting return states.";
  const auto& edges = clock.slot->wave->eventTimes;
  const bool coincident = std::equal(edges.begin(), edges.begin() + kClockStates,
                                     slot.wave->eventTimes.begin(), PBeqTIME);
  return coincident ? kFits : "Edges not coincident.";
}

std::string_view offerSlot(const TpSlotRecord& slot, TpClock& clock) {
  const std::string& shape = slot.shape;
  if (shape.find_first_not_of("PSDU") != std::string::npos) return "Contains non P/S/D/U state.";
  if (shape.size() != kClockStates) return kFits;
  if (const auto reason = refusalOfClockShape(shape); !reason.empty()) return reason;
  if (clock.slot == nullptr) {
    clock.slot = &slot;
    clock.returnState = shape[2];
    return kFits;
  }
  const std::string_view reason = refusalOfSecondClock(clock, slot);
  if (shape[0] == 'P') clock.slot = &slot;
  return reason;
}

// --- The others ----------------------------------------------------------------------

// A track that takes its level from the rows must have had the return level in all.
std::string_view refusalOfStates(std::uint32_t statesSeen, int returnLevel,
                                 std::string_view otherState) {
  if (std::popcount(statesSeen) > 1) return "Mixed state levels.";
  return statesSeen == 0 || statesSeen == 1U << returnLevel ? kFits : otherState;
}

std::string_view refusalOfOneState(const TpSlotRecord& slot, const TpClock& clock) {
  const char state = slot.shape[0];
  if (isDriven(state)) {
    return state == clock.returnState ? kFits : "Return state != clock returnState.";
  }
  if (state != 'S') return kFits;
  return refusalOfStates(slot.statesSeen, clock.returnLevel, "State seen != returnState.");
}

// A driven state followed by one that isn't data is taken whatever the return state is,
// and one followed by data never: kept on purpose.
std::string_view refusalOfTwoStates(const TpSlotRecord& slot, const TpClock& clock) {
  const char first = slot.shape[0];
  const char second = slot.shape[1];
  if (isDriven(first)) return second == 'S' ? "State 0 != returnState." : kFits;
  if (first != 'P' && first != 'S') return "Contains non P/S/D/U state.";
  if (first == 'P' && second == 'S') {
    return refusalOfStates(slot.statesSeen, clock.returnLevel, "States seen != clock returnState.");
  }
  if (!isDriven(second)) {
    return first == 'P' ? "Contains non S/D/U state." : "Returns to non D/U state.";
  }
  return second == clock.returnState ? kFits : "Return state != clock returnState.";
}

std::string_view refusalOfMerge(const TpSlotRecord& slot, const TpClock& clock) {
  switch (slot.shape.size()) {
    case 0:
      return "0-states: internal error!";
    case 1:
      return refusalOfOneState(slot, clock);
    case 2:
      return refusalOfTwoStates(slot, clock);
    case kClockStates:
      return kFits;
    default:
      return "Too many states (>3).";
  }
}

}  // namespace

bool tpFindClock(TpSlotSpan slots, TpClock& clock) {
  for (const TpSlotRecord* slot : slots) {
    if (slot->wave == nullptr) {
      std::fputs("ERROR: currSlot == NULL\n", stderr);
    } else if (!accept(offerSlot(*slot, clock))) {
      return false;
    }
  }
  if (clock.slot == nullptr) return true;
  clock.convertToSample = clock.slot->shape[1] != 'S';
  clock.returnLevel = levelOf(clock.returnState);
  return true;
}

bool tpCanMerge(TpSlotSpan slots, const TpClock& clock) {
  return std::ranges::all_of(
      slots, [&](const TpSlotRecord* slot) { return accept(refusalOfMerge(*slot, clock)); });
}
