// Matching of states, and the proof behind it.

#include <fmt/printf.h>

#include <algorithm>
#include <limits>

#include "timeplate/tp_reduce_internal.h"
#include "timeplate/tp_settings.h"

MatchState tpMatch;
std::string tpReason;

// --- Refusals ------------------------------------------------------------------------

bool tpRefuse(std::string_view reason, std::string_view text) {
  tpReason = reason;
  tpTrace(2, text);
  return false;
}

bool tpRefuse(std::string_view reason) {
  tpReason = reason;
  if (tpTraces(2)) tpTrace(2, fmt::sprintf("\t%s\n", reason));
  return false;
}

bool tpRefuseStates(char target, char flat) {
  tpReason = "no match shape ";
  tpReason += target;
  tpReason += " and ";
  tpReason += flat;
  if (tpTraces(2)) tpTrace(2, fmt::sprintf("\t%s\n", tpReason));
  return false;
}

// --- States --------------------------------------------------------------------------

namespace {

constexpr char kMask = 'X';

bool isData(char state) { return state == 'S' || state == 'C'; }

// A state of data as it stands for the row's data, and back.
char throughData(char target, char state) { return target == 'S' ? state : tpComplement(state); }

int resultOf(char bound) {
  switch (bound) {
    case 'D':
      return 1;
    case 'U':
      return 2;
    case 'Z':
      return 3;
    default:
      return 4;
  }
}

void bindData(char letter) {
  tpMatch.tpBoundData = letter;
  tpMatch.tpMatchResult = resultOf(letter);
}

}  // namespace

void tpMatchReset() { tpMatch = {}; }

bool tpMatchState(char target, char flat) {
  if (!isData(target)) return flat == target || flat == 'N' || target == 'N';
  if (tpMatch.tpBoundData != 'N') {
    return flat == 'N' || flat == throughData(target, tpMatch.tpBoundData);
  }
  if (!tpIsDrive(flat)) return false;
  bindData(throughData(target, flat));
  return true;
}

bool tpFillTime(const Wave& flat, std::size_t i, Wave& target, std::size_t k) {
  if (target.times[k] == TIME_ZERO) target.times[k] = flat.times[i];
  return tpTimesConform(target.times[k], flat.times[i]);
}

bool tpMayRepeat(const Wave& flat, std::size_t i, const Wave& target, std::size_t k) {
  return i > 0 && target.states.size() > flat.states.size() && k + 1 < target.states.size() &&
         target.states.find(kMask) != std::string::npos;
}

// --- Time by time --------------------------------------------------------------------

bool tpSameTime(TIME t1, TIME t2) {
  const std::int64_t difference = PBtimeToLong(t1) - PBtimeToLong(t2);
  return std::abs(difference) <= PBtimeToLong(tpSettings.tpoTolerance);
}

bool tpIsSound(const Wave& wave) {
  return wave.edges() > 0 && std::adjacent_find(wave.times.begin(), wave.times.end(),
                                                std::greater_equal<>()) == wave.times.end();
}

bool tpTimesAscend(const Wave& wave) {
  TIME last = wave.times.empty() ? TIME_ZERO : wave.times.front();
  for (std::size_t k = 1; k < wave.times.size(); ++k) {
    if (wave.times[k] == TIME_ZERO) continue;
    if (wave.times[k] <= last) return false;
    last = wave.times[k];
  }
  return true;
}

namespace {

constexpr std::int64_t kForever = std::numeric_limits<std::int64_t>::max();

// The edges of a flat wave as they are passed, in rising time.
class FlatWalk {
 public:
  explicit FlatWalk(const Wave& flat) : flat_(flat) {}

  // `time`, or that of the flat edge which is nearest to it within the tolerance, if it
  // lies behind `after`.
  std::int64_t snap(std::int64_t time, std::int64_t after) {
    while (near_ + 1 < flat_.times.size() &&
           std::abs(edge(near_ + 1) - time) <= std::abs(edge(near_) - time)) {
      ++near_;
    }
    const std::int64_t nearest = edge(near_);
    const bool same = std::abs(nearest - time) <= PBtimeToLong(tpSettings.tpoTolerance);
    return same && nearest > after ? nearest : time;
  }

  // Whether `states` could each stand for the flat wave from `begin` to `end`, which lies
  // behind all asked before.
  bool shows(std::string_view states, std::int64_t begin, std::int64_t end) {
    while (at_ + 1 < flat_.times.size() && edge(at_ + 1) <= begin) ++at_;
    for (std::size_t i = at_; i < flat_.times.size() && edge(i) < end; ++i) {
      const char state = flat_.states[i];
      if (state != 'N' && states.find_first_not_of(state) != std::string_view::npos) return false;
    }
    return true;
  }

 private:
  std::int64_t edge(std::size_t i) const { return PBtimeToLong(flat_.times[i]); }

  const Wave& flat_;
  std::size_t near_ = 0;
  std::size_t at_ = 0;
};

}  // namespace

bool tpShowsSame(const Wave& flat, std::string_view shown, std::span<const TIME> times) {
  if (!tpIsSound(flat) || shown.empty() || !tpSameTime(flat.times[0], times[0])) return false;
  FlatWalk walk(flat);
  std::int64_t begin = PBtimeToLong(flat.times[0]);
  for (std::size_t k = 0; k < shown.size();) {
    std::size_t next = k + 1;
    while (next < shown.size() && times[next] == TIME_ZERO) ++next;
    const std::int64_t end =
        next < shown.size() ? walk.snap(PBtimeToLong(times[next]), begin) : kForever;
    if (end <= begin || !walk.shows(shown.substr(k, next - k), begin, end)) return false;
    begin = end;
    k = next;
  }
  return true;
}

bool tpDataWritable(std::string_view target) {
  if (!tpShapeHasData(target)) return true;
  constexpr std::string_view kLetters = "DUZNS";  // S: that of the wave itself
  return kLetters.find(tpMatch.tpBoundData) != std::string_view::npos;
}

void tpPutData(std::string_view target, char data, std::string& shown) {
  shown.assign(target);
  for (char& state : shown) {
    if (isData(state)) state = throughData(state, data);
  }
}

// --- Static matches ------------------------------------------------------------------

namespace {

constexpr std::string_view kTimesNotConformal = "times not conformal, cannot match";

// Edge by edge, both to their ends; fills the target's times.
bool walkStates(const Wave& flat, Wave& target) {
  const std::size_t flatCount = flat.states.size();
  const std::size_t targetCount = target.states.size();
  std::size_t i = 0;
  std::size_t k = 0;
  while (i < flatCount && k < targetCount) {
    std::size_t shown = i;
    if (tpMatchState(target.states[k], flat.states[i])) {
      ++i;
    } else if (tpMayRepeat(flat, i, target, k) &&
               tpMatchState(target.states[k], flat.states[i - 1])) {
      shown = i - 1;
    } else {
      return tpRefuseStates(target.states[k], flat.states[i]);
    }
    if (!tpFillTime(flat, shown, target, k)) return tpRefuse(kTimesNotConformal);
    ++k;
  }
  if (i < flatCount) {
    return tpRefuse("Index not at end of shape", "Index not at end of shape.\n");
  }
  for (; k < targetCount; ++k) {
    if (!tpMatchState(target.states[k], flat.states[flatCount - 1])) {
      return tpRefuse("Cannot match at tail", "\tCannot match at tail.\n");
    }
  }
  return true;
}

// Only the first edges of a wave; whole waves, the usual case, as they are.
const Wave& firstEdges(const Wave& wave, int count, Wave& room) {
  if (count == wave.edges()) return wave;
  room = wave;
  const auto edges = static_cast<std::size_t>(std::clamp(count, 0, wave.edges()));
  room.states.resize(edges);
  room.times.resize(edges);
  return room;
}

// The walk, and the proof of what it has found.
bool matchWhole(const Wave& flat, Wave& target) {
  static std::string shown;
  if (flat.edges() == 0 || target.edges() == 0) return tpRefuse("Shape to short cannot match");
  if (!walkStates(flat, target)) return false;
  if (!tpDataWritable(target.states)) return tpRefuse("data cannot be written");
  tpPutData(target.states, tpMatch.tpBoundData, shown);
  return tpShowsSame(flat, shown, target.times) || tpRefuse("states differ in time, cannot match");
}

}  // namespace

bool tpStaticMatch(const Wave& flat, Wave& target, int flatCount, int targetCount) {
  static Wave flatRoom;
  static Wave targetRoom;
  tpMatchReset();
  const Wave& shownFlat = firstEdges(flat, flatCount, flatRoom);
  if (targetCount == target.edges()) return matchWhole(shownFlat, target);
  firstEdges(target, targetCount, targetRoom);
  const bool matched = matchWhole(shownFlat, targetRoom);
  std::copy(targetRoom.times.begin(), targetRoom.times.end(), target.times.begin());
  return matched;
}

PairMatch tpMatchPair(const Wave& waveA, const Wave& waveB, Wave& target, int countA, int countB) {
  PairMatch match;
  const auto fail = [&](int side) {
    match.failSide = side;
    return match;
  };
  if (target.edges() < countA) {
    tpRefuse("Shape to short cannot match");
    return fail(0);
  }
  target.times.assign(target.states.size(), TIME_ZERO);
  if (tpTraces(2)) {
    tpTrace(2, fmt::sprintf("\tmatching shape:\n\t%s\n", target.states));
    tpTrace(2, "first\n");
  }
  if (!tpStaticMatch(waveA, target, countA, target.edges())) return fail(0);
  match.resultA = tpMatch.tpMatchResult;
  const TIME firstTime = target.times[0];
  tpTrace(2, "second\n");
  if (!tpStaticMatch(waveB, target, countB, target.edges())) return fail(1);
  match.resultB = tpMatch.tpMatchResult;
  // A zero of A at the start is a time, not one that B may set.
  if (target.times[0] != firstTime || !tpTimesAscend(target)) {
    tpRefuse(kTimesNotConformal);
    return fail(1);
  }
  match.matched = true;
  tpTrace(2, "\t*** matched shape, reduced ***\n");
  return match;
}
