#include "timeplate/wave.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "timeplate/tp_settings.h"

namespace {

constexpr char kUndefinedSpan = '?';
constexpr char kMask = 'X';
constexpr char kStrobe = 'Q';

struct StateClass {
  std::string_view states;
  int code;
};
constexpr std::array<StateClass, 5> kStateClasses = {{
    {"DUNZSCP.", kDriveClass},
    {"HLXTQR,", kResponseClass},
    {"01?F", kOtherClass},
    {"dunzscp", kLowerDriveClass},
    {"hlxtqr", kLowerResponseClass},
}};

constexpr std::array<int, 256> kClassOfState = [] {
  std::array<int, 256> codes{};
  for (const StateClass& entry : kStateClasses) {
    for (const char state : entry.states) codes[static_cast<unsigned char>(state)] = entry.code;
  }
  return codes;
}();

constexpr std::string_view kDataLetters = "DUZ";          // from code 1 on
constexpr std::string_view kStoredLetters = "DUNZHLXT?";  // from code 1 on

char letterOf(std::string_view letters, int code) {
  return code >= 1 && static_cast<std::size_t>(code) <= letters.size()
             ? letters[static_cast<std::size_t>(code - 1)]
             : 'N';
}

}  // namespace

// --- States --------------------------------------------------------------------------

int tpStateClass(char state) { return kClassOfState[static_cast<unsigned char>(state)]; }

char tpComplement(char state) {
  switch (state) {
    case 'C':
      return 'S';
    case 'S':
      return 'C';
    case 'D':
      return 'U';
    case 'U':
      return 'D';
    default:
      return state;
  }
}

char tpDataLetter(int code) { return letterOf(kDataLetters, code); }

char tpStoredLetter(int code) { return letterOf(kStoredLetters, code); }

int tpStoredCode(char letter) {
  const std::size_t at = kStoredLetters.find(letter);
  return at == std::string_view::npos ? 0 : static_cast<int>(at) + 1;
}

// --- Shapes --------------------------------------------------------------------------

bool tpShapeSimple(std::string_view states) {
  return states.find_first_of("CPS") == std::string_view::npos;
}

bool tpShapeHasData(std::string_view states) {
  return states.find_first_of("CS") != std::string_view::npos;
}

int tpXPosition(std::string_view states) {
  const std::size_t at = states.find(kMask);
  if (at == std::string_view::npos) return 0;
  if (at == 0) return 1;
  return at + 1 == states.size() ? 3 : 2;
}

int tpMuxClass(std::string_view states) {
  if (states.size() < 3) return 3;
  const bool atStart = states.front() == kUndefinedSpan;
  const bool atEnd = states.back() == kUndefinedSpan;
  if (atStart) return atEnd ? 0 : 1;
  return atEnd ? 2 : 3;
}

int tpClassifyDirection(std::string_view states) {
  bool driven = false;
  bool expected = false;
  for (const char state : states) {
    if (state == kUndefinedSpan) continue;
    (tpStateClass(state) == kResponseClass ? expected : driven) = true;
  }
  if (driven && expected) return 2;
  return expected ? 1 : 0;
}

// --- Waves ---------------------------------------------------------------------------

bool tpIsPlainTrack(const PVBtrack& track) {
  return track.eventTimes.size() == track.stateChars.size() &&
         std::all_of(track.stateCounts.begin(), track.stateCounts.end(),
                     [](std::int32_t count) { return count == 1; });
}

bool tpSameOutsideWaves(const PVBtrack& a, const PVBtrack& b) {
  return a.repeat == b.repeat && a.selector == b.selector && a.selectorLists == b.selectorLists &&
         a.cycleOffset == b.cycleOffset && a.cycleLength == b.cycleLength;
}

bool tpExpressionsAgree(const PVBtrack& a, const PVBtrack& b) {
  const std::size_t edges = std::min(a.eventExprs.size(), b.eventExprs.size());
  for (std::size_t edge = 0; edge < edges; ++edge) {
    if (a.eventExprs[edge] && b.eventExprs[edge] && a.eventExprs[edge] != b.eventExprs[edge]) {
      return false;
    }
  }
  return true;
}

void tpTakeWave(Wave& wave, const PVBtrack& track) {
  wave.states = track.stateChars;
  wave.times = track.eventTimes;
  wave.times.resize(wave.states.size());
}

bool tpTimesEqual(TIME a, TIME b) {
  if (tpSettings.tpoTolerance == TIME_ZERO) return a == b;
  return std::fabs(PBtimeToSeconds(a) - PBtimeToSeconds(b)) <=
         PBtimeToSeconds(tpSettings.tpoTolerance);
}

bool tpWavesEqual(const Wave& a, const Wave& b) {
  return a.states == b.states &&
         std::equal(a.times.begin(), a.times.end(), b.times.begin(), b.times.end(), tpTimesEqual);
}

namespace {

// The low 32 bits of the femtoseconds as a signed number; they wrap, kept on purpose.
std::int32_t wrappedFemtoseconds(TIME time) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(
      static_cast<std::uint64_t>(time.major) * std::uint64_t{kFemtosecondsPerMajor} +
      static_cast<std::uint64_t>(time.minor)));
}

// Conformance of two times that are both set, be they zero.
bool setTimesConform(TIME t1, TIME t2) {
  const double difference =
      static_cast<double>(wrappedFemtoseconds(t1)) - static_cast<double>(wrappedFemtoseconds(t2));
  return std::fabs(difference) <= PBtimeToDouble(tpSettings.tpoTolerance);
}

void removeEdge(Wave& wave, std::size_t at) {
  wave.states.erase(at, 1);
  wave.times.erase(wave.times.begin() + static_cast<std::ptrdiff_t>(at));
}

void append(Wave& wave, char state, TIME time) {
  wave.states.push_back(state);
  wave.times.push_back(time);
}

void clear(Wave& wave) {
  wave.states.clear();
  wave.times.clear();
}

}  // namespace

bool tpTimesConform(TIME t1, TIME t2) {
  return t1 == TIME_ZERO || t2 == TIME_ZERO || setTimesConform(t1, t2);
}

void tpStripQuestion(Wave& wave, TIME& end) {
  if (wave.edges() > 1 && wave.states.back() == kUndefinedSpan) {
    end = wave.times.back();
    wave.states.pop_back();
    wave.times.pop_back();
  }
  if (wave.edges() > 1 && wave.states.front() == kUndefinedSpan) removeEdge(wave, 0);
}

namespace {

// One of two waves that are aligned: what it had, and what it gets.
struct Aligned {
  Wave result;  // room that is used again
  const Wave* source = nullptr;
  std::size_t next = 0;

  void begin(const Wave& wave) {
    source = &wave;
    clear(result);
    append(result, wave.states[0], wave.times[0]);
    next = 1;
  }
  bool more() const { return next < source->states.size(); }
  TIME time() const { return source->times[next]; }
  void take(TIME time) { append(result, source->states[next++], time); }
  void repeat(TIME time) { append(result, result.states.back(), time); }
};

void alignNext(Aligned& a, Aligned& b) {
  if (!b.more() || !a.more()) {
    Aligned& longer = a.more() ? a : b;
    Aligned& shorter = a.more() ? b : a;
    shorter.repeat(longer.time());
    longer.take(longer.time());
  } else if (a.time() == b.time() || setTimesConform(a.time(), b.time())) {
    b.take(a.time());
    a.take(a.time());
  } else {
    Aligned& earlier = a.time() < b.time() ? a : b;
    Aligned& later = a.time() < b.time() ? b : a;
    later.repeat(earlier.time());
    earlier.take(earlier.time());
  }
}

}  // namespace

// Both waves are built anew side by side rather than edited, so that waves of many edges
// take time by their length only.
void tpAlignWaves(Wave& a, Wave& b) {
  if (a.edges() == 0 || b.edges() == 0) return;
  if (a.edges() < 2 && b.edges() < 2) return;
  static Aligned first;
  static Aligned second;
  first.begin(a);
  second.begin(b);
  while (first.more() || second.more()) alignNext(first, second);
  std::swap(a, first.result);
  std::swap(b, second.result);
}

void tpStretchWave(Wave& wave, int targetEdges, TIME period, bool muxed, TIME end) {
  const int missing = targetEdges - wave.edges();
  if (missing <= 0 || wave.edges() == 0) return;
  const TIME cycleEnd = muxed && end != TIME_ZERO ? end : period;
  const TIME span = PBsubTIME(cycleEnd, wave.times.back());
  if (span <= tpSettings.endOfCycleDelta) return;
  const std::int64_t step = PBtimeToLong(span) / (std::int64_t{missing} + 1);
  if (step <= PBtimeToLong(tpSettings.edgeToEdgeDelta)) return;
  const std::int64_t last = PBtimeToLong(wave.times.back());
  for (int i = 1; i <= missing; ++i) {
    const std::int64_t time = last + i * step;
    append(wave, wave.states.back(),
           {static_cast<std::int32_t>(time / kFemtosecondsPerMajor),
            static_cast<std::int32_t>(time % kFemtosecondsPerMajor)});
  }
}

// --- Strobe windows ------------------------------------------------------------------

namespace {

enum class Run { none, driven, expected };

Run runOf(char state) {
  switch (tpStateClass(state)) {
    case kDriveClass:
    case kLowerDriveClass:
      return Run::driven;
    case kResponseClass:
    case kLowerResponseClass:
      return Run::expected;
    default:
      return Run::none;
  }
}

// The run that begins behind `from`, which is moved there; none at the end.
Run nextRun(std::string_view states, std::size_t& from, Run present) {
  for (; from < states.size(); ++from) {
    const Run run = runOf(states[from]);
    if (run != Run::none && run != present) return run;
  }
  return Run::none;
}

}  // namespace

bool tpSameRunStructure(std::string_view a, std::string_view b) {
  std::size_t atA = 0;
  std::size_t atB = 0;
  Run present = Run::none;
  while (true) {
    const Run next = nextRun(a, atA, present);
    if (next != nextRun(b, atB, present)) return false;
    if (next == Run::none) return true;
    present = next;
  }
}

// A window is a run of strobes and, where the wave then goes back to the state that it
// had before, the edge that does so: what is left shows the same outside the window.
StrobeWindows tpCutStrobeWindows(Wave& wave) {
  StrobeWindows windows;
  Wave kept;
  for (std::size_t i = 0; i < wave.states.size(); ++i) {
    const char state = wave.states[i];
    const bool closes = state != kStrobe && i > 0 && wave.states[i - 1] == kStrobe &&
                        !kept.states.empty() && kept.states.back() == state;
    if (state == kStrobe || closes) {
      append(windows.cut, state, wave.times[i]);
      windows.positions.push_back(static_cast<int>(i));
    } else {
      append(kept, state, wave.times[i]);
    }
  }
  if (!windows.positions.empty()) std::swap(wave, kept);
  return windows;
}

// The wave may be another one by now: windows go in by their times, and the edge that
// closes one gives back what the wave has there now.
void tpRestoreStrobeWindows(Wave& wave, const StrobeWindows& windows) {
  Wave whole;
  char before = kStrobe;
  std::size_t at = 0;
  const auto takeUntil = [&](std::size_t end) {
    for (; at < end; ++at) append(whole, wave.states[at], wave.times[at]);
  };
  for (std::size_t i = 0; i < windows.cut.states.size(); ++i) {
    const TIME time = windows.cut.times[i];
    std::size_t end = at;
    while (end < wave.states.size() && wave.times[end] < time) ++end;
    takeUntil(end);
    const bool strobe = windows.cut.states[i] == kStrobe;
    if (strobe && !whole.states.empty() && whole.states.back() != kStrobe) {
      before = whole.states.back();
    }
    append(whole, strobe ? kStrobe : before, time);
  }
  takeUntil(wave.states.size());
  std::swap(wave, whole);
}
