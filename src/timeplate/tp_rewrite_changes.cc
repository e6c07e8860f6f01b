#include <algorithm>

#include "timeplate/pstate_store.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_reduce.h"
#include "timeplate/tp_rewrite_internal.h"
#include "timeplate/tp_rows.h"
#include "timeplate/tp_settings.h"

namespace {

// Answers of a change; others are codes, `in` in the low half, and how they were shown.
constexpr std::int16_t kForbidden = -1;
constexpr std::int16_t kNotAsked = -2;
constexpr int kWavesBit = 256;
constexpr std::size_t kMostAnswers = 64;

// Bits of a code that say that a row has data: those of 0, 1 and Z.
constexpr int kDataBits = 1 | 2 | 8;
// The code of a column that says neither what to drive nor what to expect.
constexpr int kMaskCode = 4;
constexpr int kLastCode = 4;

constexpr std::array<int, 3> kDirections = {INPUT, OUTPUT, BIDIR};

bool holdsWindow(const PVBtrack* track) {
  return track != nullptr && track->stateChars.find('Q') != std::string::npos;
}

// Whether both have a track here and its wave is the same, or neither has one.
bool sameTrack(const PVBtrack* a, const PVBtrack* b) {
  if (a == nullptr || b == nullptr) return a == b;
  static Wave waveA;
  static Wave waveB;
  tpTakeWave(waveA, *a);
  tpTakeWave(waveB, *b);
  return tpWavesEqual(waveA, waveB);
}

bool holdsPrevious(const PVBtrack* track) {
  return track != nullptr && track->stateChars.find('P') != std::string::npos;
}

bool fromRowsOnly(const Candidate& candidate) {
  return candidate.fromHistory || candidate.wave.states.find('P') != std::string::npos;
}

bool isDirected(int direction) { return direction >= INPUT && direction <= BIDIR; }

bool isShownByWaves(const Candidate& candidate, int direction) {
  return candidate.set && !candidate.fromSecond && direction != OUTPUT && !fromRowsOnly(candidate);
}

// How the candidate that a row uses for the signal was shown to hold.
ShownBy wayOf(const PVBtimePlate& owner, const TpSignal& signal, const TpRow& row) {
  int direction = kUndefinedDirection;
  tpRowTrack(signal, owner, row, direction);
  const bool byWaves =
      isDirected(direction) && isShownByWaves(tpPairCandidate(signal, direction), direction);
  return byWaves ? ShownBy::waves : ShownBy::rows;
}

// Children of a multiplexed signal may have the data of the whole.
bool sharesColumns(const PVBtimePlate& plate, const TpSignal& signal) {
  if (!signal.muxed) return false;
  return std::ranges::any_of(tpRun.signals, [&](const TpSignal& other) {
    const bool same = (signal.inColumn >= 0 && other.inColumn == signal.inColumn) ||
                      (signal.outColumn >= 0 && other.outColumn == signal.outColumn);
    return same && other.index != signal.index && PVBsignalTracks(plate, other.id) != nullptr;
  });
}

// What of a row and the state before it a cycle of the signal depends on; a row that holds
// selectors has more.
std::uint32_t keyOf(const TpSignal& signal, const TpRow& row, bool usesPrevious) {
  const RowCodes codes = tpRowCodes(signal, row);
  const auto own = static_cast<std::uint32_t>(codes.in | codes.out << 4);
  if (!usesPrevious) return own;
  const auto pstate = static_cast<unsigned char>(tpPStateLetter(row.row, signal.index));
  const auto previous = static_cast<unsigned char>(loadPrevious(row.row, signal));
  return own | std::uint32_t{pstate} << 8 | std::uint32_t{previous} << 16 |
         (tpRowRepeats(row.row) ? std::uint32_t{1} << 24 : 0);
}

}  // namespace

std::unique_ptr<PVBtimePlate> tpWithCandidates(const PVBtimePlate& plate) {
  std::unique_ptr<PVBtimePlate> copy = PVBtimePlateCopy(plate);
  PVBtimePlateRebuildMaps(*copy);
  tpApplyCandidates(*copy);
  return copy;
}

RowChanges::RowChanges(const PVBtimePlate& owner, const PVBtimePlate& after, int side,
                       bool overwrite)
    : owner_(owner), after_(after), side_(side), overwrite_(overwrite) {
  const auto hasOutput = [](const PVBtimePlate& plate, const TpSignal& signal) {
    return tpDirectedTrack(plate, signal, OUTPUT) != kNoTrack;
  };
  for (const TpSignal& signal : tpRun.signals) {
    if (!signal.plain) continue;
    bool same = hasOutput(owner, signal) == hasOutput(after, signal);
    bool usesPrevious = false;
    for (const int direction : kDirections) {
      // What is expected is left to the rows, unless it counts.
      if (direction == OUTPUT && !tpSettings.tpoOptimizeOnly) continue;
      const PVBtrack* old = tpTrack(owner, tpDirectedTrack(owner, signal, direction));
      const PVBtrack* fresh = tpTrack(after, tpDirectedTrack(after, signal, direction));
      same = same && sameTrack(old, fresh);
      usesPrevious = usesPrevious || holdsPrevious(old) || holdsPrevious(fresh);
    }
    if (!same) addChange(signal, usesPrevious);
  }
}

void RowChanges::addChange(const TpSignal& signal, bool usesPrevious) {
  Change& change = changes_.emplace_back();
  change.signal = &signal;
  change.answersOfCodes.fill(kNotAsked);
  change.byWaves = false;
  change.byRows = false;
  for (const int direction : kDirections) {
    const Candidate& candidate = tpPairCandidate(signal, direction);
    if (!candidate.set) continue;
    (isShownByWaves(candidate, direction) ? change.byWaves : change.byRows) = true;
  }
  change.usesPrevious = usesPrevious;
  change.sharesData = sharesColumns(owner_, signal);
}

bool RowChanges::concern(ShownBy way) const {
  return std::any_of(changes_.begin(), changes_.end(), [way](const Change& change) {
    return way == ShownBy::waves ? change.byWaves : change.byRows;
  });
}

// Of row_. The states that a scan row shifts stand in its scan runs, where they aren't
// rewritten.
bool RowChanges::isForbidden(Change& change) {
  return (change.signal->scans && tpRowScans(row_.row)) || !answerFor(change, row_);
}

const TpSignal* RowChanges::forbiddenIn(const TpRow& row) {
  if (row.timeplate != owner_.id || changes_.empty()) return nullptr;
  row_ = row;
  for (Change& change : changes_) {
    if (isForbidden(change)) return change.signal;
  }
  return nullptr;
}

void RowChanges::gatherForbidden(const TpRow& row, std::vector<const TpSignal*>& signals) {
  if (row.timeplate != owner_.id) return;
  row_ = row;
  for (Change& change : changes_) {
    if (change.forbidden || !isForbidden(change)) continue;
    change.forbidden = true;
    signals.push_back(change.signal);
  }
}

bool RowChanges::rewrite(TpRow& row, ShownBy way) {
  bool changed = false;
  for (Change& change : changes_) {
    const std::optional<Answer> answer = answerFor(change, row);
    if (!answer || answer->way != way) continue;
    if (answer->codes == tpRowCodes(*change.signal, row)) continue;
    tpSetRowCodes(*change.signal, row, answer->codes);
    changed = true;
  }
  return changed;
}

std::optional<RowChanges::Answer> RowChanges::answerFor(Change& change, TpRow& row) {
  const std::uint32_t key = keyOf(*change.signal, row, change.usesPrevious);
  // Rows that hold selectors differ in more than the key says.
  const std::int16_t answer =
      change.signal->selects ? workOut(change, row) : knownOrWorkedOut(change, key, row);
  if (answer == kForbidden) return std::nullopt;
  return Answer{{answer & 15, answer >> 4 & 15},
                (answer & kWavesBit) != 0 ? ShownBy::waves : ShownBy::rows};
}

std::int16_t RowChanges::knownOrWorkedOut(Change& change, std::uint32_t key, TpRow& row) {
  if (key < kRowCodePairs) {
    std::int16_t& answer = change.answersOfCodes[key];
    if (answer == kNotAsked) answer = workOut(change, row);
    return answer;
  }
  const auto known = std::find_if(change.answers.begin(), change.answers.end(),
                                  [key](const auto& answer) { return answer.first == key; });
  if (known != change.answers.end()) return known->second;
  const std::int16_t answer = workOut(change, row);
  if (change.answers.size() < kMostAnswers) change.answers.emplace_back(key, answer);
  return answer;
}

std::int16_t RowChanges::workOut(const Change& change, TpRow& row) {
  const std::optional<RowCodes> codes = search(change, row);
  if (!codes) return kForbidden;
  const int way = wayOf(owner_, *change.signal, row) == ShownBy::waves ? kWavesBit : 0;
  return static_cast<std::int16_t>(codes->in | codes->out << 4 | way);
}

// The codes that are wanted if the row says the same with them, else the row's own, else
// the first that do; at first such that say no more than before.
std::optional<RowCodes> RowChanges::search(const Change& change, TpRow& row) {
  const TpSignal& signal = *change.signal;
  tpCycleOf(owner_, signal, row, before_);
  const RowCodes own = tpRowCodes(signal, row);
  std::array<RowCodes, 2 + 3 * (kLastCode + 1)> tries = {own, own};
  std::size_t count = 2;
  if (!change.sharesData) tries[0] = wanted(signal, row);
  const bool writable = !change.sharesData && signal.inColumn >= 0;
  // Without data a row leaves its track to those for what it expects.
  for (int code = 0; code <= kLastCode && writable; ++code) {
    tries[count++] = {code, own.out};
    // Expecting nothing is what a row without data does. Without any for the output track it
    // isn't in force at all.
    if (tpSettings.tpoOptimizeOnly || own.out == 0) tries[count++] = {code, kMaskCode};
    if (tpSettings.tpoOptimizeOnly) tries[count++] = {code, 0};
  }
  for (const bool strictly : {true, false}) {
    for (std::size_t i = 0; i < count; ++i) {
      if (holds(signal, row, tries[i], strictly)) return tries[i];
    }
  }
  return std::nullopt;
}

bool RowChanges::holds(const TpSignal& signal, TpRow& row, RowCodes codes, bool strictly) {
  const RowCodes own = tpRowCodes(signal, row);
  tpSetRowCodes(signal, row, codes);
  tpCycleOf(after_, signal, row, trial_);
  tpSetRowCodes(signal, row, own);
  return tpSameCycle(before_, trial_, strictly);
}

RowCodes RowChanges::wanted(const TpSignal& signal, const TpRow& row) {
  RowCodes codes = tpRowCodes(signal, row);
  int direction = kUndefinedDirection;
  const std::int32_t track = tpRowTrack(signal, owner_, row, direction);
  if (!isDirected(direction)) return codes;
  // A window that comes with the candidate must not compare in these rows.
  if (tpSettings.tpoOptimizeOnly && direction != INPUT && !holdsWindow(tpTrack(owner_, track)) &&
      tpPairCandidate(signal, direction).wave.states.find('Q') != std::string::npos) {
    codes.out = kMaskCode;
  }
  const Candidate& candidate = tpPairCandidate(signal, direction);
  if (signal.inColumn < 0 || direction == OUTPUT || !candidate.set || candidate.fromSecond) {
    return codes;
  }
  const PVBtrack* wave = tpTrack(owner_, track);
  if (wave == nullptr || !tpShapeHasData(candidate.wave.states)) return codes;
  if (fromRowsOnly(candidate)) return fromRows(signal, row, track, direction, codes);
  // Data that the wave shows already stay.
  return tpShapeHasData(wave->stateChars) ? codes : fromWaves(signal, codes);
}

// What the match of the two waves showed.
RowCodes RowChanges::fromWaves(const TpSignal& signal, RowCodes own) const {
  const ScratchRow& scratch = tpPair.scratch[static_cast<std::size_t>(side_)];
  const auto index = static_cast<std::size_t>(signal.index);
  if (index >= scratch.size() || scratch[index] == 0) return own;
  if (!overwrite_ && (own.in & kDataBits) != 0) return own;
  return {scratch[index], own.out};
}

// What the row shows where the candidate has its first S or C.
RowCodes RowChanges::fromRows(const TpSignal& signal, const TpRow& row, std::int32_t track,
                              int direction, RowCodes own) {
  target_ = tpPairCandidate(signal, direction).wave;
  tpTakeWave(flat_, *tpTrack(owner_, track));
  if (tpWavesEqual(target_, flat_)) return own;
  tpFlattenForRow(owner_, track, signal, row, flat_);
  TIME end = TIME_ZERO;
  if (signal.muxed) {
    tpStripQuestion(flat_, end);
    tpStripQuestion(target_, end);
  }
  tpAlignWaves(flat_, target_);
  const std::size_t place = target_.states.find_first_of("SC");
  if (place >= flat_.states.size()) return own;
  tpMatchReset();
  tpMatchState(target_.states[place], flat_.states[place]);
  return tpMatch.tpMatchResult == 0 ? own : RowCodes{tpMatch.tpMatchResult, own.out};
}
