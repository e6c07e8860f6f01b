// A target against all rows of one or two timeplates.

#include <fmt/printf.h>

#include <algorithm>
#include <array>
#include <utility>

#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_reduce_internal.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr char kStrobe = 'Q';
constexpr char kUndefinedSpan = '?';
// Codes of the row data that have a letter, or say that there is none to know.
constexpr int kLastKnownCode = 4;

constexpr std::size_t kLetters = 10;  // none, and those of the P state store
constexpr std::size_t kValues = 4;    // D, U, Z, N

// What a row shows depends on these only: rows that are alike are matched once. The times
// that a target has got by then may change between two of them only where they were
// unset, and a match has held for every time that an unset edge may get.
class RowKinds {
 public:
  void clear() { seen_.fill(false); }
  // Whether it is new; always for letters that have no code.
  bool insert(char value, RowStart start) {
    const int pstate = tpStoredCode(start.pstate);
    const int previous = tpStoredCode(start.previous);
    if (pstate == 0 || previous == 0) return true;
    const auto letter = static_cast<std::size_t>(tpStoredCode(value) - 1) % kValues;
    const std::size_t at = (letter * kLetters + static_cast<std::size_t>(pstate)) * kLetters +
                           static_cast<std::size_t>(previous);
    return !std::exchange(seen_[at], true);
  }

 private:
  std::array<bool, kValues * kLetters * kLetters> seen_{};
};

// What is the same for all rows of a side.
struct Side {
  const PVBtimePlate* plate = nullptr;
  Wave* working = nullptr;
  int index = 0;
  Wave source;
  bool hasData = false;
  bool hasP = false;
  bool cutsStrobes = false;
  bool severalDirections = false;
};

// Records of the row loop, used again for every row.
struct Room {
  Side side;
  Wave flat;      // as it is matched
  Wave original;  // as the row shows it
  Wave working;
  std::string shown;
  RowKinds kinds;
};
Room room;

bool hasState(const Wave& wave, char state) { return wave.states.find(state) != std::string::npos; }

// A signal with one column has its data there.
std::int32_t dataColumn(const TpSignal& signal) {
  return signal.inColumn >= 0 ? signal.inColumn : signal.outColumn;
}

int directionsOf(const PVBtimePlate& plate, const TpSignal& signal) {
  int directions = 0;
  for (int d = 0; d < 3; ++d) directions += tpTrackOf(plate, signal, d) == kNoTrack ? 0 : 1;
  return directions;
}

// A target that is tested against rows.
class Propagation {
 public:
  Propagation(Wave& target, const TpSignal& signal)
      : target_(target),
        signal_(signal),
        targetHasP_(hasState(target, 'P')),
        targetHasData_(tpShapeHasData(target.states)) {}

  bool walkRows(const PropagateSide& given, int index);

 private:
  bool begin(const PropagateSide& given, int index);
  bool walkRow(std::int32_t row);
  bool rowAllows(int code, bool outData) const;
  void flatten(std::int32_t row, char value, RowStart start);
  bool matchStatic(char value, RowStart start);
  bool matchPrevious(char value, RowStart start);
  bool walkPrevious(char value, RowStart start, std::size_t& failedAt);
  bool checkTime(std::size_t i, std::size_t k, bool isTail);
  char shownData(bool& found) const;
  bool showsRow(char value, RowStart start);

  Wave& target_;
  const TpSignal& signal_;
  bool targetHasP_;
  bool targetHasData_;
};

bool Propagation::begin(const PropagateSide& given, int index) {
  Side& side = room.side;
  const PVBtrack* track = tpTrack(*given.plate, given.track);
  if (track == nullptr || given.working == nullptr) return tpRefuse("no track");
  side.plate = given.plate;
  side.working = given.working;
  side.index = index;
  tpTakeWave(side.source, *track);
  side.hasData = tpShapeHasData(side.source.states);
  side.hasP = hasState(side.source, 'P');
  side.cutsStrobes = hasState(side.source, kStrobe) && !hasState(*side.working, kStrobe);
  side.severalDirections = directionsOf(*given.plate, signal_) > 1;
  room.kinds.clear();
  if (targetHasData_ && signal_.inColumn < 0) return tpRefuse("data cannot be written");
  const bool loses = side.cutsStrobes || (signal_.muxed && hasState(side.source, kUndefinedSpan));
  // What is taken out is put back later, and would then decide what P is.
  if (loses && targetHasP_ && tpEveryStateCounts()) return tpRefuse("pmatch - fail");
  return tpIsSound(side.source) || tpRefuse("times not ascending");
}

// Data that no letter stands for can't be kept. And a row without any data takes another
// track of the signal once it has some.
bool Propagation::rowAllows(int code, bool outData) const {
  const Side& side = room.side;
  if (code > kLastKnownCode && (side.hasData || side.hasP || targetHasP_)) return false;
  return !(targetHasData_ && side.severalDirections && code == 0 && !outData);
}

void Propagation::flatten(std::int32_t row, char value, RowStart start) {
  const Side& side = room.side;
  TIME end;
  tpResolve(side.source.states, value, start, room.flat.states);
  room.flat.times = side.source.times;
  if (signal_.muxed) tpStripQuestion(room.flat, end);
  if (side.cutsStrobes) tpCutStrobeWindows(room.flat);
  room.original = room.flat;
  room.working = *side.working;
  tpAlignWaves(room.working, room.flat);
  tpStretchWave(room.flat, target_.edges(), side.plate->period, signal_.muxed, end);
  if (tpTraces(2)) {
    tpTrace(2,
            fmt::sprintf("\n\tmatching against flattened at row %4d: %-5s", row, room.flat.states));
  }
}

bool Propagation::walkRow(std::int32_t row) {
  const Side& side = room.side;
  const TpRow* record = tpRowGet(row);
  if (record == nullptr) return tpRefuse("no row");
  int direction = 0;
  tpRowTrack(signal_, *side.plate, *record, direction);
  if (direction == OUTPUT) return true;
  const int code = tpRowCode(*record, dataColumn(signal_));
  if (!rowAllows(code, tpRowCode(*record, signal_.outColumn) != 0)) {
    return tpRefuse("data cannot be written");
  }
  const char value = tpDataLetter(code);
  // The record isn't good any more behind this.
  const RowStart start = targetHasP_ || side.hasP ? tpRowStart(signal_, row) : RowStart{};
  if (!room.kinds.insert(value, start) && !tpTraces(2)) return true;
  flatten(row, value, start);
  if (room.flat.edges() == 0) return tpRefuse("no match shape");
  return targetHasP_ ? matchPrevious(value, start) : matchStatic(value, start);
}

bool Propagation::walkRows(const PropagateSide& given, int index) {
  const std::span<const std::int32_t> rows = tpRowList(given.plate->id);
  if (rows.empty()) return true;
  if (!begin(given, index)) return false;
  for (const std::int32_t row : rows) {
    if (!walkRow(row)) return false;
  }
  return true;
}

// With the data that the row is to have, the target shows what the row shows now.
bool Propagation::showsRow(char value, RowStart start) {
  if (!tpDataWritable(target_.states)) return tpRefuse("data cannot be written");
  const char data = targetHasData_ ? tpMatch.tpBoundData : value;
  tpResolve(target_.states, data, start, room.shown);
  return tpShowsSame(room.original, room.shown, target_.times) ||
         tpRefuse("states differ in time, cannot match");
}

bool Propagation::matchStatic(char value, RowStart start) {
  tpTrace(2, room.side.index == 0 ? "history first\n" : "history second\n");
  if (!tpStaticMatch(room.flat, target_, room.flat.edges(), target_.edges()) ||
      !showsRow(value, start)) {
    tpTrace(2, "\t--- does not static reduce\n");
    return false;
  }
  tpTrace(2, "\t--- static reduces\n");
  return true;
}

// The driven state that the flat wave has where the target has its S, or next to it.
char Propagation::shownData(bool& found) const {
  found = true;
  const std::size_t at = target_.states.find('S');
  if (at == std::string::npos) return 'N';
  const std::string& flat = room.flat.states;
  found = at < flat.size();
  if (!found) return 'N';
  for (std::size_t i = at + 1; i-- > 0;) {
    if (tpIsDrive(flat[i])) return flat[i];
  }
  for (std::size_t i = at + 1; i < flat.size(); ++i) {
    if (tpIsDrive(flat[i])) return flat[i];
  }
  return 'N';
}

bool Propagation::checkTime(std::size_t i, std::size_t k, bool isTail) {
  if (tpFillTime(room.flat, i, target_, k)) return true;
  tpReason = "times not conformal";
  if (tpTraces(2)) {
    tpTrace(2, fmt::sprintf("\n\t%stimes not conformal, shape %s and waveform %s\n",
                            isTail ? "propigate - " : "", target_.states, room.flat.states));
  }
  return false;
}

// Edge by edge, as a static match, with the letter that is expected of a P kept along.
bool Propagation::walkPrevious(char value, RowStart start, std::size_t& k) {
  const Wave& flat = room.flat;
  const std::size_t flatCount = flat.states.size();
  PreviousLetter expected(value, start);
  const auto matches = [&](std::size_t i) {
    const char state = flat.states[i];
    if (target_.states[k] != 'P') return tpMatchState(target_.states[k], state);
    return state == 'N' || state == expected.letter();
  };
  std::size_t p = 0;
  for (k = 0; k < target_.states.size(); ++k) {
    const bool isPrevious = target_.states[k] == 'P';
    const bool isDirect = p < flatCount && matches(p);
    if (!isDirect) {
      const bool mayRepeat = p == flatCount || (!isPrevious && tpMayRepeat(flat, p, target_, k));
      if (!mayRepeat || !matches(p - 1)) {
        return isPrevious
                   ? tpRefuse("pmatch - fail", "\n\tpmatch - fail\n")
                   : tpRefuseStates(target_.states[k], flat.states[std::min(p, flatCount - 1)]);
      }
    }
    const std::size_t shown = isDirect ? p++ : p - 1;
    const bool hasTime = isDirect || p < flatCount;  // none is known behind the flat wave
    if (hasTime && !checkTime(shown, k, !isDirect)) return false;
    if (!isPrevious) expected.pass(flat.states[shown]);
  }
  return p == flatCount || tpRefuse("Index not at end of shape", "Index not at end of shape.\n");
}

bool Propagation::matchPrevious(char value, RowStart start) {
  if (tpTraces(2)) {
    tpTrace(2, fmt::sprintf(" pState <%c> previous <%c>\n", start.pstate, start.previous));
  }
  tpMatchReset();
  bool found = false;
  const char shown = shownData(found);
  std::size_t failedAt = 1;
  if (found && walkPrevious(targetHasData_ ? shown : value, start, failedAt) &&
      showsRow(value, start)) {
    tpTrace(2, "\t--- Preduces\n");
    return true;
  }
  if (!found) tpRefuse("Index not at end of shape");
  if (failedAt == 0 && target_.states[0] == 'P') {
    (room.side.index == 0 ? tpRun.firstFailedP : tpRun.secondFailedP) = true;
  }
  tpTrace(2, "\t--- does not Preduce\n");
  return false;
}

// A wave begins with the cycle, and its edges follow each other.
bool isFilled(const Wave& target) { return tpIsSound(target) && target.times.front() == TIME_ZERO; }

}  // namespace

bool tpPropagate(const PropagateSide& first, const PropagateSide& second, Wave& target,
                 const TpSignal& signal, int& failSide) {
  Propagation propagation(target, signal);
  failSide = 0;
  if (target.edges() == 0) return tpRefuse("Shape to short cannot match");
  if (first.plate != nullptr && !propagation.walkRows(first, 0)) return false;
  failSide = 1;
  if (second.plate != nullptr && !propagation.walkRows(second, 1)) return false;
  failSide = -1;
  if (!isFilled(target)) return tpRefuse("times not ascending");
  tpTrace(2, "*** matched ***\n");
  return true;
}
