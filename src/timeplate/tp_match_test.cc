#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "timeplate/tp_reduce_internal.h"
#include "timeplate/tp_settings.h"

namespace {

TIME at(std::int64_t femtoseconds) { return PBlongToTIME(static_cast<std::int32_t>(femtoseconds)); }

Wave wave(std::string states, const std::vector<std::int64_t>& times) {
  Wave made{std::move(states), {}};
  made.times.resize(made.states.size());
  for (std::size_t i = 0; i < times.size(); ++i) made.times[i] = at(times[i]);
  return made;
}

bool matches(const Wave& flat, Wave& target) {
  return tpStaticMatch(flat, target, flat.edges(), target.edges());
}

class MatchTest : public testing::Test {
 protected:
  MatchTest() { tpSettings = {}; }
  ~MatchTest() override { tpSettings = {}; }
};

struct MatchCase {
  const char* what;
  const char* flat;
  const char* target;
  bool matches;
  int result;
};

TEST_F(MatchTest, StatesBindTheData) {
  const MatchCase table[] = {
      {"high", "UU", "SU", true, 2},
      {"low", "DU", "SU", true, 1},
      {"the complement is bound through the data", "DU", "CS", true, 2},
      {"and holds", "DD", "CS", false, 2},
      {"both must be the same", "DU", "SS", false, 1},
      {"high impedance is its own complement", "ZZ", "SC", true, 3},
      {"nothing said matches", "DN", "DU", true, 0},
      {"nothing said is data that say nothing", "DN", "DS", true, 4},
      {"or are told by a later state", "NU", "SS", true, 2},
      {"expected isn't data", "X", "S", false, 0},
      {"the state before isn't data", ".", "S", false, 4},
      {"a target that drives nothing known", "D", "N", false, 0},
      {"the last state goes on", "DU", "DUU", true, 0},
      {"into a tail of the same", "DU", "DUD", false, 0},
      {"more states than the target", "DUD", "DU", false, 0},
      {"a state that is shown twice", "DUX", "DDUX", true, 0},
      {"without a mask it isn't", "DU", "DDU", false, 0},
  };
  for (const MatchCase& each : table) {
    SCOPED_TRACE(each.what);
    Wave flat = wave(each.flat, {});
    for (std::size_t i = 0; i < flat.times.size(); ++i) {
      flat.times[i] = at(static_cast<std::int64_t>(i) * 1000);
    }
    Wave target = wave(each.target, {});
    EXPECT_EQ(matches(flat, target), each.matches) << tpReason;
    EXPECT_EQ(tpMatch.tpMatchResult, each.result);
  }
}

TEST_F(MatchTest, TimesAreFilledAndCompared) {
  Wave target = wave("DSD", {});
  EXPECT_TRUE(matches(wave("DUD", {0, 5000, 9000}), target));
  EXPECT_EQ(target.times, wave("DSD", {0, 5000, 9000}).times);
  EXPECT_TRUE(matches(wave("DDD", {0, 5000, 9000}), target));
  EXPECT_FALSE(matches(wave("DUD", {0, 5000, 10000}), target));
  EXPECT_EQ(tpReason, "times not conformal, cannot match");
  tpSettings.tpoTolerance = at(1000);
  EXPECT_TRUE(matches(wave("DUD", {0, 5000, 10000}), target));
  EXPECT_FALSE(matches(wave("DUD", {0, 5000, 10001}), target));
}

// --- The law ---------------------------------------------------------------------------

// What a wave drives at a time; ' ' before its first edge.
char drivenAt(const Wave& wave, std::int64_t time) {
  char state = ' ';
  for (std::size_t i = 0; i < wave.states.size(); ++i) {
    if (PBtimeToLong(wave.times[i]) <= time) state = wave.states[i];
  }
  return state;
}

Wave withData(const Wave& target, char data) {
  Wave shown = target;
  for (char& state : shown.states) {
    if (state == 'S') state = data;
    if (state == 'C') state = data == 'D' ? 'U' : data == 'U' ? 'D' : data;
  }
  return shown;
}

// Spread evenly, as tracks get them.
void spreadTimes(Wave& wave, std::int64_t period) {
  for (std::size_t i = 1; i < wave.times.size(); ++i) {
    if (wave.times[i] != TIME_ZERO) continue;
    std::size_t end = i;
    while (end < wave.times.size() && wave.times[end] == TIME_ZERO) ++end;
    const std::int64_t before = PBtimeToLong(wave.times[i - 1]);
    const std::int64_t after = end < wave.times.size() ? PBtimeToLong(wave.times[end]) : period;
    wave.times[i] = at(before + (after - before) / static_cast<std::int64_t>(end - i + 1));
  }
}

Wave anyFlat() {
  Wave flat;
  std::int64_t time = *rc::gen::element(0, 0, 0, 1);
  for (int edges = *rc::gen::inRange(1, 4); edges > 0; --edges) {
    flat.states += *rc::gen::element('D', 'U', 'D', 'U', 'Z', 'N', 'X');
    flat.times.push_back(at(time));
    time += *rc::gen::inRange(1, 4) * 10;
  }
  return flat;
}

constexpr std::int64_t kPeriod = 200;

// The target is made after the wave, so that it matches often: with data, other states and
// edges here and there.
RC_GTEST_FIXTURE_PROP(MatchTest, AMatchDrivesTheSame, ()) {
  const Wave flat = anyFlat();
  std::string states;
  for (const char state : flat.states) {
    const int kind = *rc::gen::inRange(0, 10);
    if (kind == 0) states += *rc::gen::element('D', 'U', 'S', 'X', 'N');
    states += kind < 4   ? 'S'
              : kind < 6 ? 'C'
              : kind < 7 ? *rc::gen::element('D', 'U', 'N', 'Z', 'P')
                         : state;
  }
  if (*rc::gen::inRange(0, 3) == 0) states += *rc::gen::element('S', 'D', 'U', 'C', 'X');
  Wave target = wave(states, {});
  const bool matched = matches(flat, target);
  RC_CLASSIFY(matched, "matched");
  if (!matched || !tpTimesAscend(target)) return;
  spreadTimes(target, kPeriod);
  const Wave shown = withData(target, tpDataLetter(tpMatch.tpMatchResult));
  for (std::int64_t time = 0; time < kPeriod; ++time) {
    const char wanted = drivenAt(flat, time);
    RC_ASSERT(wanted == 'N' || drivenAt(shown, time) == wanted);
  }
}

}  // namespace
