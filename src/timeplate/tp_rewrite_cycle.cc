#include <algorithm>
#include <limits>
#include <string_view>

#include "pvb/row.h"
#include "timeplate/pstate_store.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_reduce_internal.h"
#include "timeplate/tp_rewrite_internal.h"
#include "timeplate/tp_rows.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr char kNothing = '\0';  // no state
constexpr TIME kNever = {std::numeric_limits<std::int32_t>::max(), 0};

enum Code : int { kCodeLow = 1, kCodeHighZ = 3 };

// States that the data stand for: of codes 1, 2, 3 and all others.
struct SampleRule {
  char state;
  bool output;
  std::string_view byCode;
};
constexpr SampleRule kSampleRules[] = {
    {'S', false, "DUZN"}, {'C', false, "UDZN"}, {'Q', true, "LHTX"}, {'R', true, "HLTX"},
    {'s', true, "duzn"},  {'c', true, "udzn"},  {'q', true, "lhtx"}, {'r', true, "hltx"},
};

char withData(char state, RowCodes codes) {
  for (const SampleRule& rule : kSampleRules) {
    if (rule.state != state) continue;
    const int code = rule.output ? codes.out : codes.in;
    const bool plain = code >= kCodeLow && code <= kCodeHighZ;
    return rule.byCode[plain ? static_cast<std::size_t>(code - kCodeLow) : 3];
  }
  return state;
}

// Whether a state counts as what went before within a cycle.
bool countsWithin(char state) {
  constexpr std::string_view kForced = "DUNZ";
  constexpr std::string_view kDriven = "DU";
  if (tpRun.pmode == LAST_FORCE) return kForced.find(state) != std::string_view::npos;
  if (tpRun.pmode == LAST_DRIVE) return kDriven.find(state) != std::string_view::npos;
  return state != '?' && state != 'P';
}

// A row's cycle of a signal: what of it the states depend on.
struct Settling {
  const TpSignal& signal;
  const TpRow& row;
  RowCodes codes;
  char value;  // the letter of the data
  // The output track in force beside the one that drives; null for none.
  const PVBtrack* beside;
  char incoming;  // what a P at the beginning stands for; P while that isn't known
  char previous;  // the last state of the cycle that counts; 0 before it
  TIME previousTime = TIME_ZERO;
};

void findIncoming(Settling& at) {
  if (tpRun.pmode < LAST_FORCE || tpRun.pmode > IMS) {
    at.incoming = 'N';
    return;
  }
  const RowStart start = tpRowStart(at.signal, at.row.row);
  const char letter = tpPState(at.value, start.pstate, start.previous);
  at.incoming = letter == 'N' ? 'P' : letter;
}

// Whether a state that is expected stands between the last one driven and `time`. Whether
// it then decides what a P stands for is seen in different ways.
bool isBehindExpected(const Settling& at, TIME time) {
  if (tpRun.pmode < FORCE_OR_Z || tpRun.pmode > IMS || at.beside == nullptr) return false;
  const std::vector<TIME>& times = at.beside->eventTimes;
  const auto next = std::ranges::lower_bound(times, time);
  return next != times.begin() && (at.previous == kNothing || *(next - 1) >= at.previousTime);
}

// The states of a track, repeats left out.
void settle(const PVBtrack& track, Settling& at, Wave& wave) {
  wave.states.clear();
  wave.times.clear();
  at.previous = kNothing;
  const std::size_t edges = std::min(track.stateChars.size(), track.eventTimes.size());
  for (std::size_t i = 0; i < edges; ++i) {
    char state = withData(track.stateChars[i], at.codes);
    if (state == 'P' && !isBehindExpected(at, track.eventTimes[i])) {
      state = at.previous == kNothing ? at.incoming : tpPState(at.value, 'N', at.previous);
    }
    if (countsWithin(state)) {
      at.previous = state;
      at.previousTime = track.eventTimes[i];
    }
    if (!wave.states.empty() && wave.states.back() == state) continue;
    wave.states += state;
    wave.times.push_back(track.eventTimes[i]);
  }
}

// Whether an expected state comes last.
bool settleCycle(const PVBtrack* track, const PVBtrack* beside, const TpSignal& signal,
                 const TpRow& row, RowCodes codes, Wave& wave) {
  wave.states.clear();
  wave.times.clear();
  if (track == nullptr) return false;
  Settling at = {signal, row, codes, tpDataLetter(codes.in), beside, 'P', kNothing};
  if (track->stateChars.find('P') != std::string::npos) findIncoming(at);
  settle(*track, at, wave);
  // A row that follows itself begins with what it ends with, too.
  const bool follows = at.incoming != 'P' && at.previous != kNothing && tpRowRepeats(row.row);
  if (follows && tpPState(at.value, 'N', at.previous) != at.incoming) {
    at.incoming = 'P';
    settle(*track, at, wave);
  }
  return isBehindExpected(at, kNever);
}

// The output track that is in force beside an input track.
std::int32_t expectedBeside(const PVBtimePlate& plate, const TpSignal& signal, RowCodes codes) {
  const bool both = (codes.in != 0) == (codes.out != 0);
  return both ? tpDirectedTrack(plate, signal, OUTPUT) : kNoTrack;
}

// Walks two waves side by side: hands out each stretch of time in which neither changes.
class Stretches {
 public:
  Stretches(const Wave& a, const Wave& b) : a_(a), b_(b) {}

  bool next() {
    if (started_ && end_ == INT64_MAX) return false;
    begin_ = started_ ? end_ : INT64_MIN;
    started_ = true;
    while (i_ < a_.times.size() && timeOf(a_, i_) <= begin_) ++i_;
    while (j_ < b_.times.size() && timeOf(b_, j_) <= begin_) ++j_;
    end_ = std::min(i_ < a_.times.size() ? timeOf(a_, i_) : INT64_MAX,
                    j_ < b_.times.size() ? timeOf(b_, j_) : INT64_MAX);
    return true;
  }
  // State of each, `none` before the first edge.
  char stateA(char none) const { return i_ == 0 ? none : a_.states[i_ - 1]; }
  char stateB(char none) const { return j_ == 0 ? none : b_.states[j_ - 1]; }
  bool longerThan(std::int64_t femtoseconds) const {
    return begin_ == INT64_MIN || end_ == INT64_MAX || end_ - begin_ > femtoseconds;
  }

 private:
  static std::int64_t timeOf(const Wave& wave, std::size_t edge) {
    return PBtimeToLong(wave.times[edge]);
  }

  const Wave& a_;
  const Wave& b_;
  std::size_t i_ = 0;
  std::size_t j_ = 0;
  std::int64_t begin_ = 0;
  std::int64_t end_ = 0;
  bool started_ = false;
};

// Of waves that don't run backwards.
template <typename Agree>
bool agreeThroughout(const Wave& before, const Wave& after, char none, Agree agree) {
  const auto descends = [](TIME a, TIME b) { return PBtimeToLong(a) > PBtimeToLong(b); };
  for (const Wave* wave : {&before, &after}) {
    if (std::ranges::adjacent_find(wave->times, descends) != wave->times.end()) return false;
  }
  const std::int64_t tolerance = PBtimeToLong(tpSettings.tpoTolerance);
  Stretches stretches(before, after);
  while (stretches.next()) {
    if (!agree(stretches.stateA(none), stretches.stateB(none)) && stretches.longerThan(tolerance)) {
      return false;
    }
  }
  return true;
}

// An unknown level is driven, too, and in some P modes the state before for later rows.
bool drivesNothing(const Wave& wave) {
  return wave.states.find_first_not_of('?') == std::string::npos;
}

// The level that later rows keep with a P in mode 2, which an unknown one leaves as it was.
bool sameLastDrive(const Wave& before, const Wave& after) {
  const auto lastDrive = [](const Wave& wave) {
    const std::size_t at = wave.states.find_last_of("DU");
    return at == std::string::npos ? kNothing : wave.states[at];
  };
  return lastDrive(before) == lastDrive(after);
}

bool sameDriven(const Wave& before, const Wave& after, bool strictly) {
  if (before.states.empty()) return drivesNothing(after);
  if (tpRun.pmode == LAST_DRIVE && !sameLastDrive(before, after)) return false;
  return agreeThroughout(before, after, kNothing, [&](char a, char b) {
    return a == b || (a == 'N' && !strictly && b != kNothing);
  });
}

// Without the optimizer's claim on outputs only what comes and goes as a whole counts. With
// it a mask ends what was expected before, where no track leaves that as it is.
bool sameExpected(const Wave& before, const Wave& after, bool strictly) {
  const bool bothOrNone = before.states.empty() == after.states.empty();
  if (!tpSettings.tpoOptimizeOnly && bothOrNone) return true;
  if (tpSettings.tpoOptimizeOnly && strictly && !bothOrNone) return false;
  return agreeThroughout(before, after, 'X', [](char a, char b) { return a == b; });
}

}  // namespace

std::int32_t tpDirectedTrack(const PVBtimePlate& plate, const TpSignal& signal, int direction) {
  const std::int32_t track = tpTrackOf(plate, signal, direction);
  const PVBtrack* wave = tpTrack(plate, track);
  if (wave == nullptr) return track;
  const SignalTracks* tracks = PVBsignalTracks(plate, signal.id);
  const bool directed = tracks == nullptr || tracks->track[INPUT] != tracks->track[OUTPUT] ||
                        tracks->track[INPUT] != tracks->track[BIDIR];
  return directed || tpClassifyDirection(wave->stateChars) == direction ? track : kNoTrack;
}

RowCodes tpRowCodes(const TpSignal& signal, const TpRow& row) {
  return {tpRowCode(row, signal.inColumn), tpRowCode(row, signal.outColumn)};
}

void tpSetRowCodes(const TpSignal& signal, TpRow& row, RowCodes codes) {
  const auto set = [&](std::int32_t column, int code) {
    if (column < 0 || static_cast<std::size_t>(column / 2) >= row.data.size()) return;
    setRowCode(row.data.data(), static_cast<std::uint32_t>(column), code);
  };
  set(signal.inColumn, codes.in);
  set(signal.outColumn, codes.out);
}

void tpCycleOf(const PVBtimePlate& plate, const TpSignal& signal, const TpRow& row, Cycle& cycle) {
  int direction = kUndefinedDirection;
  const std::int32_t track = tpRowTrack(signal, plate, row, direction);
  const RowCodes own = tpRowCodes(signal, row);
  // A signal with one column has its data there for both.
  const RowCodes codes = {signal.inColumn < 0 ? own.out : own.in,
                          signal.outColumn < 0 ? own.in : own.out};
  const std::int32_t expected = direction == OUTPUT  ? track
                                : direction == INPUT ? expectedBeside(plate, signal, own)
                                                     : kNoTrack;
  cycle.unsaid = PVBsignalTracks(plate, signal.id) == nullptr;
  const PVBtrack* beside = tpTrack(plate, expected);
  cycle.expectsLast = settleCycle(direction == OUTPUT ? nullptr : tpTrack(plate, track), beside,
                                  signal, row, codes, cycle.driven);
  settleCycle(beside, nullptr, signal, row, codes, cycle.expected);
}

bool tpSameCycle(const Cycle& before, const Cycle& after, bool strictly) {
  // A timeplate that has no track of the signal takes that of another as it is.
  const bool anyDriven = before.unsaid && !strictly;
  const bool anyExpected = anyDriven && !tpSettings.tpoOptimizeOnly;
  // In mode 4 only what is driven counts behind a row.
  const bool keepsLast = tpRun.pmode == ADVANTEST || before.expectsLast == after.expectsLast;
  if (!anyDriven && !keepsLast) return false;
  return (anyDriven || sameDriven(before.driven, after.driven, strictly)) &&
         (anyExpected || sameExpected(before.expected, after.expected, strictly));
}
