#include "timeplate/wave.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "timeplate/tp_settings.h"

namespace {

TIME at(std::int64_t femtoseconds) {
  return {static_cast<std::int32_t>(femtoseconds / kFemtosecondsPerMajor),
          static_cast<std::int32_t>(femtoseconds % kFemtosecondsPerMajor)};
}

Wave wave(std::string states, const std::vector<std::int64_t>& times) {
  Wave made{std::move(states), {}};
  for (const std::int64_t time : times) made.times.push_back(at(time));
  return made;
}

class WaveTest : public testing::Test {
 protected:
  ~WaveTest() override { tpSettings = {}; }
};

TEST_F(WaveTest, StatesAndShapesAreClassified) {
  for (const char state : std::string_view("DUNZSCP.")) EXPECT_EQ(tpStateClass(state), 16);
  for (const char state : std::string_view("HLXTQR,")) EXPECT_EQ(tpStateClass(state), 8);
  EXPECT_EQ(tpDataLetter(3), 'Z');
  EXPECT_EQ(tpDataLetter(4), 'N');
  for (int code = 1; code <= 9; ++code) EXPECT_EQ(tpStoredCode(tpStoredLetter(code)), code);
  EXPECT_EQ(tpStoredCode('S'), 0);

  struct ShapeCase {
    const char* states;
    int xPosition;
    int muxClass;
    int direction;
  };
  const ShapeCase table[] = {
      {"", 0, 3, 0},    {"X", 1, 3, 1},    {"XD", 1, 3, 2},  {"DX", 3, 3, 2}, {"DXDX", 2, 3, 2},
      {"?D?", 0, 0, 0}, {"?DU", 0, 1, 0},  {"DU?", 0, 2, 0}, {"?D", 0, 3, 0}, {"?", 0, 3, 0},
      {"HL", 0, 3, 1},  {"?QX?", 2, 0, 1}, {"Sh", 0, 3, 0},
  };
  for (const ShapeCase& each : table) {
    SCOPED_TRACE(each.states);
    EXPECT_EQ(tpXPosition(each.states), each.xPosition);
    EXPECT_EQ(tpMuxClass(each.states), each.muxClass);
    EXPECT_EQ(tpClassifyDirection(each.states), each.direction);
  }
}

TEST_F(WaveTest, TimesConformExactlyOrWithinTheTolerance) {
  EXPECT_TRUE(tpTimesConform(at(0), at(7)));
  EXPECT_FALSE(tpTimesConform(at(1000), at(2000)));
  EXPECT_TRUE(tpTimesConform(at(5), at(5 + (std::int64_t{1} << 32))));  // wraps
  tpSettings.tpoTolerance = at(1000);
  EXPECT_TRUE(tpTimesConform(at(1000), at(2000)));
  EXPECT_FALSE(tpTimesConform(at(1000), at(2001)));
  EXPECT_TRUE(tpWavesEqual(wave("DU", {0, 5000}), wave("DU", {0, 5500})));
  EXPECT_FALSE(tpWavesEqual(wave("DU", {0, 5000}), wave("DD", {0, 5000})));
}

TEST_F(WaveTest, AlignedWavesHaveTheEdgesOfBoth) {
  Wave a = wave("DUD", {0, 10, 30});
  Wave b = wave("ZS", {5, 20});
  tpAlignWaves(a, b);
  EXPECT_EQ(a, wave("DUUD", {0, 10, 20, 30}));
  EXPECT_EQ(b, wave("ZZSS", {5, 10, 20, 30}));
  a = wave("D", {0});
  b = wave("U", {5});
  tpAlignWaves(a, b);
  EXPECT_EQ(b, wave("U", {5}));
  tpSettings.tpoTolerance = at(2);
  a = wave("DU", {0, 10});
  b = wave("DU", {0, 12});
  tpAlignWaves(a, b);
  EXPECT_EQ(b, a);
}

TEST_F(WaveTest, AWaveIsStretchedWhereThereIsRoom) {
  Wave stretched = wave("DU", {0, 10});
  tpStretchWave(stretched, 4, at(40), false, TIME_ZERO);
  EXPECT_EQ(stretched, wave("DUUU", {0, 10, 20, 30}));
  Wave muxed = wave("DU", {0, 10});
  tpStretchWave(muxed, 3, at(40), true, at(20));
  EXPECT_EQ(muxed, wave("DUU", {0, 10, 15}));
  tpSettings.edgeToEdgeDelta = at(10);
  Wave tight = wave("DU", {0, 10});
  tpStretchWave(tight, 4, at(40), false, TIME_ZERO);
  EXPECT_EQ(tight.edges(), 2);
  tpSettings.edgeToEdgeDelta = TIME_ZERO;
  tpSettings.endOfCycleDelta = at(30);
  tpStretchWave(tight, 4, at(40), false, TIME_ZERO);
  EXPECT_EQ(tight.edges(), 2);

  TIME end;
  Wave questions = wave("?DU?", {0, 5, 10, 15});
  tpStripQuestion(questions, end);
  EXPECT_EQ(questions, wave("DU", {5, 10}));
  EXPECT_EQ(end, at(15));
}

TEST_F(WaveTest, RunsOfDrivenAndExpectedStatesAreCompared) {
  EXPECT_TRUE(tpSameRunStructure("DUXQX", "SH"));
  EXPECT_TRUE(tpSameRunStructure("?DX", "DL?"));
  EXPECT_FALSE(tpSameRunStructure("DX", "XD"));
  EXPECT_FALSE(tpSameRunStructure("DXD", "DX"));
}

RC_GTEST_FIXTURE_PROP(WaveTest, CutStrobesComeBackAsTheyWere, ()) {
  const auto states = *rc::gen::container<std::string>(rc::gen::element('D', 'X', 'Q', 'S', 'U'));
  Wave whole{states, {}};
  std::int64_t time = 0;
  for (std::size_t i = 0; i < states.size(); ++i) {
    whole.times.push_back(at(time));
    time += *rc::gen::inRange<std::int64_t>(1, 9);
  }
  Wave work = whole;
  const StrobeWindows windows = tpCutStrobeWindows(work);
  RC_ASSERT(work.states.find('Q') == std::string::npos);
  tpRestoreStrobeWindows(work, windows);
  RC_ASSERT(work == whole);
}

}  // namespace
