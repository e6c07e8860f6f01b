#include <algorithm>
#include <cerrno>
#include <string>

#include "base/errors.h"
#include "base/text.h"
#include "conditioner/add_internal.h"
#include "conditioner/add_shape.h"
#include "conditioner/messages.h"
#include "conditioner/run.h"
#include "pvb/timeplate.h"

namespace {

constexpr int kFirstLevel = 0;
constexpr int kAppend = -1;
constexpr int kNoBit = -1;
constexpr int kNoState = -1;

// How a signal of a direction is added.
struct SlotKind {
  std::string_view text;      // of a bidirectional signal
  int direction;              // of the slot
  std::string_view defaults;  // events without a track: at zero, at half the period
  int inBit;                  // places in the pattern bits, kNoBit for none
  int outBit;
  bool byEvents;  // a state is set when an event drives or compares, else always
};
constexpr SlotKind kInputKind = {"", INPUT, "N", 0, kNoBit, false};
constexpr SlotKind kOutputKind = {"", OUTPUT, "X", kNoBit, 0, false};
constexpr SlotKind kBidirKinds[] = {
    {"bi", INPUT, "N", 0, kNoBit, false},
    {"bo", OUTPUT, "X", kNoBit, 0, false},
    {"bio", BIDIR, "NX", 0, 1, true},
    {"boi", BIDIR, "XN", 1, 0, true},
};

// Null for a bidirectional signal of none of the four kinds.
const SlotKind* kindOf(const PVBsignal& signal, std::string_view direction) {
  if (signal.direction == INPUT) return &kInputKind;
  if (signal.direction == OUTPUT) return &kOutputKind;
  const std::string text = PBlowerText(direction);
  for (const SlotKind& kind : kBidirKinds) {
    if (kind.text == text) return &kind;
  }
  return nullptr;
}

template <typename... Args>
int fail(int message, const Args&... args) {
  errno = 0;
  PBerrPush(PBconditionerError, message, args...);
  return -2;
}

// --- States of rows ------------------------------------------------------------------

// The state of a pattern bit's character.
int stateOf(char character) {
  switch (character) {
    case '0':
      return 1;
    case '1':
      return 2;
    case 'Z':
    case 'z':
      return 3;
    case 'X':
    case 'x':
      return 4;
    default:
      return kNoState;
  }
}

int getPatternState(std::string_view character, std::string_view signalName) {
  const int state = character.empty() ? kNoState : stateOf(character.front());
  if (state == kNoState) fail(kInvalidPatternBit, "getPatternState", character, signalName);
  return state;
}

int setPatternRow(AddRun& add, std::uint16_t column, int state) {
  if (state == kNoState) return -2;
  const ColumnState set = {column, state};
  const bool same = !add.states.empty() && add.states.back().column == set.column &&
                    add.states.back().state == set.state;
  if (!same) add.states.push_back(set);
  return 0;
}

// --- One slot ------------------------------------------------------------------------

struct NewSlot {
  AddRun& add;
  PVBtimePlate& plate;
  int index;
  const PVBsignal& signal;
  const SlotKind& kind;
  std::string_view track;
  std::string_view patBit;
};

int insertEvent(const NewSlot& slot, std::string_view function, TIME time, char state) {
  if (PVBallocLevelAsNecessary(slot.plate, kFirstLevel, slot.index, kAppend, time, state, 1) == 0) {
    return 0;
  }
  return fail(kEventInsertFailed, function, slot.plate.name, std::string_view(&state, 1));
}

TIME halfOf(TIME time) {
  const std::int64_t half = (time.major * kFemtosecondsPerMajor + time.minor) / 2;
  return {static_cast<std::int32_t>(half / kFemtosecondsPerMajor),
          static_cast<std::int32_t>(half % kFemtosecondsPerMajor)};
}

int insertDefaults(const NewSlot& slot) {
  TIME time = TIME_ZERO;
  for (const char state : slot.kind.defaults) {
    if (insertEvent(slot, "addSlot", time, state) != 0) return -2;
    time = halfOf(slot.plate.period);
  }
  return 0;
}

int setState(const NewSlot& slot, std::uint16_t column, int bit) {
  if (bit == kNoBit) return 0;
  const std::string_view bits = slot.patBit;
  const std::string_view character =
      bits.substr(std::min(static_cast<std::size_t>(bit), bits.size()), 1);
  return setPatternRow(slot.add, column, getPatternState(character, *slot.signal.name));
}

int setStatesOf(const NewSlot& slot, bool drives, bool compares) {
  if (drives && setState(slot, slot.signal.inColumn, slot.kind.inBit) != 0) return -2;
  return compares ? setState(slot, slot.signal.outColumn, slot.kind.outBit) : 0;
}

int takeEvent(const NewSlot& slot, TIME time, char state) {
  if (insertEvent(slot, "parseShape", time, state) != 0) return -2;
  if (!slot.kind.byEvents) return 0;
  const bool sawDrive = state == 'C' || state == 'S';
  const bool sawCompare = state == 'Q' || state == 'R';
  return setStatesOf(slot, sawDrive, sawCompare);
}

int parseShape(const NewSlot& slot) {
  constexpr std::string_view kFunction = "parseShape";
  const std::string* shape = shapeOfTrack(slot.track);
  if (shape == nullptr) return -2;
  std::string_view token;
  const auto onEvent = [&](TIME time, char state) { return takeEvent(slot, time, state) == 0; };
  switch (readShape(*shape, onEvent, token)) {
    case ShapeResult::ok:
      return slot.kind.byEvents ? 0 : setStatesOf(slot, true, true);
    case ShapeResult::badUnit:
      return fail(kUnknownTimeUnit, kFunction, token, slot.track);
    case ShapeResult::badLetter:
      // The letter isn't named: kept on purpose.
      return fail(kUnknownShape, kFunction, "", slot.track);
    case ShapeResult::stopped:
      break;
  }
  return -2;
}

int fillSlot(const NewSlot& slot) {
  if (slot.add.noTrackSpec) {
    slot.add.noTrackSpec = false;
    if (insertDefaults(slot) != 0) return -2;
  } else if (parseShape(slot) != 0) {
    return -2;
  }
  return PVBtrackSetDirection(slot.plate, slot.index, slot.kind.direction) ? 0 : -2;
}

// The new slot's index, or -2 after a push.
int insertSlot(PVBtimePlate& plate, const PVBsignal& signal) {
  const int index = PVBslotCount(plate);
  if (PVBallocAsNecessary(plate, index) == 0 && PVBlistInsert(plate, index, signal.id) == 0) {
    return index;
  }
  return fail(kListInsertFailed, "addSlot", plate.name, signal.name);
}

}  // namespace

int addSlot(AddRun& add, const PVBsignal& signal, std::string_view track,
            std::string_view direction, std::string_view patBit) {
  constexpr std::string_view kFunction = "addSlot";
  if (signal.direction < INPUT || signal.direction > BIDIR) {
    return fail(kNoSignalDirection, kFunction);
  }
  const SlotKind* kind = kindOf(signal, direction);
  PVBtimePlate* plate = nullptr;
  for (const PVBid id : PVBtimePlateInqAll(add.database)) {
    plate = PVBtimePlateInqByID(add.database, id);
    if (plate == nullptr) return fail(kTimePlateNotFound, kFunction);
    const int index = insertSlot(*plate, signal);
    if (index < 0) return -2;
    if (kind == nullptr) continue;
    if (fillSlot({add, *plate, index, signal, *kind, track, patBit}) != 0) return -2;
  }
  // The others are built when the database is read again.
  if (plate != nullptr) PVBtimePlateRebuildMaps(*plate);
  return 0;
}

// --- Tracks of the operation file ----------------------------------------------------

const std::string* shapeOfTrack(std::string_view track) {
  const auto* shapes = run.lists.trackListTable.find(track);
  return shapes != nullptr && !shapes->empty() ? &shapes->back().shape : nullptr;
}

int matchOpFileTrackToOpFileTrackname(std::string_view signalName, std::string_view track) {
  if (run.lists.trackListTable.find(track) != nullptr) return 1;
  fail(kUnknownTrack, "matchOpFileTrackToOpFileTrackname", signalName, track);
  return 0;
}
