// The timeplate optimizer as a user sees it: merges whose timeplates are folded where one
// can serve the rows of two, and databases that are optimized as they are. What is driven
// stays the same.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "support/operation_world.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kAllShapes = "S PS DSD SD SU C CS SC PSC D U P DU UD";

std::string shapeFile(const std::string& shapes, const std::string& more = "") {
  std::string text = "#% shape\n" + shapes + "\n";
  std::ranges::replace(text.begin() + 9, text.end(), ' ', '\n');
  return text + more;
}

// What one of two timeplates says of the signal "a", and its rows there.
struct Half {
  std::string events;               // of its input track, of the only track otherwise
  std::vector<std::string> states;  // of the rows, in the order of the columns
};

class OptimizeTest : public testing::Test, protected OperationWorld {
 protected:
  OptimizeTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {
    build("B", DatabaseText()
                   .signal("b", "input")
                   .plate("tb", "20nS", {{"b", "0pS S", ""}})
                   .rows(std::string(repeatedB(64))));
    useShapes(kAllShapes);
  }

  void useShapes(const std::string& shapes, const std::string& more = "") {
    directory().write("tester.shp", shapeFile(shapes, more));
  }

  // A and B are merged as they are into "destPlain" and with the optimizer into "dest".
  Outcome optimize(std::vector<std::string> parameters) {
    expectDone(runOperations("merge A B destPlain"));
    for (const char* each : {"OptimizeTimePlates=yes", "ATEFamily=other", "ShapeFile=tester.shp",
                             "Pmode=last_force"}) {
      parameters.insert(parameters.begin(), each);
    }
    return runOperations("merge A B dest", std::move(parameters));
  }
  Outcome merge(std::vector<std::string> parameters = {}) {
    Outcome outcome = optimize(std::move(parameters));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err << outcome.report;
    return outcome;
  }
  // Of what is driven on the inputs.
  void expectSameDriven(const std::string& signals = "a,b") const {
    expectSame("destPlain", "dest", {"--ignore-cycles", "--signals", signals});
  }
  std::ptrdiff_t timeplates(const std::string& name = "dest") const {
    return std::ranges::count(linesOf(name, "timeplate "), '\n');
  }
  std::string states(const std::string& name = "dest") const {
    std::string all;
    const std::string rows = linesOf(name, "  row ");
    for (std::size_t at = rows.find('|'); at != std::string::npos; at = rows.find('|', at + 1)) {
      all += (all.empty() ? "" : " ") + rows.substr(at + 1, rows.find('\n', at) - at - 1);
    }
    return all;
  }

  // "a" on two timeplates, whose rows take turns.
  void buildTwo(const Half& first, const Half& second, int mode = 1) {
    DatabaseText text;
    text.mode(mode).signal("a", "input");
    text.plate("t0", "20nS", {{"a", first.events, ""}});
    text.plate("t1", "20nS", {{"a", second.events, ""}});
    for (std::size_t i = 0; i < std::max(first.states.size(), second.states.size()); ++i) {
      if (i < first.states.size()) text.rows(steps("t0", {first.states[i]}));
      if (i < second.states.size()) text.rows(steps("t1", {second.states[i]}));
    }
    build("A", text);
  }

 private:
  static std::string repeatedB(int rows) {
    std::string text;
    for (int i = 0; i < rows; ++i) text += i % 3 == 0 ? "  row \"tb\" |1\n" : "  row \"tb\" |0\n";
    return text;
  }
};

// --- What folds, and what doesn't ----------------------------------------------------

struct PairCase {
  const char* what;
  const char* shapes;
  Half first;
  Half second;
  int mode;
  int left;  // timeplates
};

TEST_F(OptimizeTest, EachRuleDecides) {
  const PairCase table[] = {
      {"data against a flat wave",
       "DSD",
       {"0pS D 5nS S 15nS D", {"1", "0"}},
       {"0pS D 5nS U 15nS D", {"0", "1"}},
       1,
       1},
      {"the flat wave first",
       "DSD",
       {"0pS D 5nS U 15nS D", {"0", "0"}},
       {"0pS D 5nS S 15nS D", {"1", "0"}},
       1,
       1},
      {"no shape of the tester",
       "USU",
       {"0pS D 5nS U 15nS D", {"1", "0"}},
       {"0pS D 5nS D 15nS D", {"0", "1"}},
       1,
       2},
      {"two flat waves", "S", {"0pS D", {"1", "0"}}, {"0pS U", {"0", "1"}}, 1, 1},
      {"two flat waves, no shape for both",
       "D U",
       {"0pS D", {"1", "0"}},
       {"0pS U", {"0", "1"}},
       1,
       2},
      {"the complement", "CS", {"0pS C 10nS S", {"1", "0"}}, {"0pS D 10nS U", {"0", "1"}}, 1, 1},
      {"no complement", "CS", {"0pS C 10nS S", {"1", "0"}}, {"0pS D 10nS D", {"0", "1"}}, 1, 2},
      {"another time",
       "DSD",
       {"0pS D 5nS S 15nS D", {"1", "0"}},
       {"0pS D 6nS U 15nS D", {"0", "1"}},
       1,
       2},
      {"data at different times",
       "DSD",
       {"0pS D 5nS S 15nS D", {"1", "0"}},
       {"0pS D 5nS S 14nS D", {"0", "1"}},
       1,
       2},
      {"high impedance", "S", {"0pS S", {"1", "0"}}, {"0pS Z", {"0", "1"}}, 1, 1},
      {"undefined alone", "S", {"0pS S", {"1", "0"}}, {"0pS ?", {"0", "1"}}, 1, 2},
      {"nothing said matches all",
       "DSD",
       {"0pS D 5nS S 15nS D", {"1", "0"}},
       {"0pS N 5nS U 15nS D", {"0", "1"}},
       1,
       1},
      // The state before is that of the row before, which is known from the second row on.
      {"the state before, forced",
       "PS",
       {"0pS P 5nS S", {"1", "0", "1"}},
       {"0pS D 5nS U", {"1", "1", "1"}},
       3,
       2},
      {"the state before is what is driven",
       "PS",
       {"0pS P 5nS S", {"1", "1", "1"}},
       {"0pS U 5nS D", {"1", "1", "1"}},
       3,
       1},
      {"no state before in this mode",
       "PS",
       {"0pS P 5nS S", {"1", "1", "1"}},
       {"0pS D 5nS D", {"1", "1", "1"}},
       0,
       2},
  };
  for (const PairCase& each : table) {
    SCOPED_TRACE(each.what);
    useShapes(each.shapes);
    buildTwo(each.first, each.second, each.mode);
    const Outcome outcome = merge({"Trace=2"});
    EXPECT_EQ(timeplates(), each.left) << outcome.report;
    // Where nothing was said something may be.
    if (each.second.events.find('N') == std::string::npos) expectSameDriven();
    EXPECT_EQ(outcome.report.find("not merged: signal a, input, ") == std::string::npos,
              each.left == 1)
        << outcome.report;
  }
}

TEST_F(OptimizeTest, EveryModeKeepsTheStateBefore) {
  useShapes(kAllShapes);
  for (int mode = 0; mode <= 5; ++mode) {
    SCOPED_TRACE(mode);
    for (const char* second : {"0pS D 5nS U", "0pS U 5nS D", "0pS Z 5nS U", "0pS P 5nS D"}) {
      buildTwo({"0pS P 5nS S", {"1", "0", "0", "1", "Z", "1"}},
               {second, {"1", "1", "0", "1", "0", "1"}}, mode);
      merge();
      EXPECT_LE(timeplates(), 2);
      expectSameDriven();
    }
  }
}

TEST_F(OptimizeTest, RowsGetTheDataThatTheWaveShowed) {
  useShapes("DSD");
  buildTwo({"0pS D 5nS S 15nS D", {"1", "0"}}, {"0pS D 5nS U 15nS D", {"0", "0"}});
  const Outcome outcome = merge({"Trace=1"});
  EXPECT_EQ(states("destPlain"), "11 00 00 01");
  EXPECT_EQ(states(), "11 10 00 11");
  EXPECT_THAT(outcome.report,
              AllOf(HasSubstr("\nMergable checking t0_0pS and t1_20nS merge t0_0pS and t1_20nS, "
                              "delete the latter\n"),
                    HasSubstr("\nMerged 2 timeplates into 1 timeplates.\n"),
                    HasSubstr("\nSignal List - Fail Frequency\n" + std::string(34, '-') + "\n" +
                              std::string(34, '-') + "\n"),
                    HasSubstr("Checking for valid shapes"), HasSubstr("Shape Family Summary"),
                    HasSubstr("\nTimeplate Frequency\n"),
                    HasSubstr("Total entries examined = 1, Total rows = 4\n")));
}

TEST_F(OptimizeTest, FailuresAreCountedAndTold) {
  useShapes("USU");
  DatabaseText text;
  text.signal("same", "input").signal("a", "input");
  for (const char* plate : {"t0", "t1", "t2"}) {
    const std::string time = std::string(1, plate[1]);
    text.plate(plate, "20nS", {{"same", "0pS S", ""}, {"a", "0pS S 1" + time + "nS D", ""}});
    text.rows(steps(plate, {"11", "00"}));
  }
  build("A", text);
  const Outcome outcome = merge({"Trace=1"});
  EXPECT_EQ(timeplates(), 3);
  EXPECT_THAT(outcome.report,
              AllOf(HasSubstr("t0_0pS and t1_40nS not merged: signal a, input, SD against SD: "),
                    HasSubstr("\nMerged 3 timeplates into 3 timeplates.\n"),
                    HasSubstr(std::string(19, ' ') + "a " + std::string(8, ' ') + "3\n"),
                    Not(HasSubstr("FAILED because of"))));
  EXPECT_THAT(merge({"Trace=2"}).report,
              HasSubstr("\nt0_0pS and t1_40nS FAILED because of signal a\n"));
  // One timeplate has nothing to be compared with.
  buildTwo({"0pS S", {"1"}}, {"0pS S", {"0"}});
  EXPECT_THAT(merge().report,
              AllOf(Not(HasSubstr("\nMerged ")), HasSubstr("\nTimeplate Frequency\n")));
}

TEST_F(OptimizeTest, TimesWithinTheToleranceAreEqual) {
  useShapes("USU");
  buildTwo({"0pS D 10nS S", {"1", "0"}}, {"0pS D 10.1nS S", {"0", "1"}});
  merge({"TimeTolerance=50ps"});
  EXPECT_EQ(timeplates(), 2);
  merge({"TimeTolerance=200ps"});
  EXPECT_EQ(timeplates(), 1);
}

TEST_F(OptimizeTest, OutputsAreNotComparedAndTracksAreTakenOver) {
  useShapes("S");
  DatabaseText text;
  text.signal("a", "input").signal("y", "output");
  text.plate("t0", "20nS", {{"a", "0pS S", ""}, {"y", "0pS X 15nS Q", ""}});
  text.plate("t1", "20nS", {{"a", "0pS S", ""}, {"y", "0pS X 12nS Q", ""}});
  text.plate("t2", "20nS", {{"a", "0pS S", ""}, {"y", "", ""}});
  text.plate("t3", "20nS", {{"a", "", ""}, {"y", "0pS X 12nS Q", ""}});
  for (const char* plate : {"t0", "t1", "t2", "t3"}) text.rows(steps(plate, {"-0", "--"}));
  build("A", text);
  merge();
  EXPECT_EQ(linesOf("dest", "timeplate "), "timeplate 0 \"t0_0pS\" period=20nS\n");
  EXPECT_THAT(sectionOf("dest", "timeplate 0"), HasSubstr("event 15nS Q"));
  expectSameDriven();
}

TEST_F(OptimizeTest, BidirectionalTracks) {
  useShapes("S DSD");
  const auto both = [](const std::vector<TrackText>& first, const std::vector<TrackText>& second) {
    DatabaseText text;
    text.signal("a", "bidir");
    text.plate("t0", "20nS", first).plate("t1", "20nS", second);
    return text.rows(steps("t0", {"1-", "0-"}) + steps("t1", {"-1", "-0"}));
  };
  const TrackText drive = {"a", "0pS S", "input"};
  const TrackText expect = {"a", "0pS X 15nS Q", "output"};
  const TrackText mixed = {"a", "0pS S 10nS X 15nS Q", "bidir"};
  // Rows choose by their data: either track may come from the other timeplate.
  build("A", both({drive}, {expect}));
  merge();
  EXPECT_EQ(timeplates(), 1);
  expectSameDriven();
  // A bidirectional track against none.
  build("A", both({drive, expect}, {mixed}));
  EXPECT_THAT(merge({"Trace=2"}).report, Not(HasSubstr("FAILED because of")));
  EXPECT_EQ(timeplates(), 2);
  merge({"DoBidiMerge=yes"});
  expectSameDriven();
}

TEST_F(OptimizeTest, PeriodsFamiliesAndEquationsKeepApart) {
  useShapes("S");
  const auto replaced = [](std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
  };
  buildTwo({"0pS D", {"1", "0"}}, {"0pS U", {"0", "1"}});
  const std::string text = DatabaseText()
                               .signal("a", "input")
                               .plate("t0", "20nS", {{"a", "0pS S", ""}})
                               .plate("t1", "20nS", {{"a", "0pS S 10nS S", ""}})
                               .rows(steps("t0", {"1", "0"}) + steps("t1", {"1", "0"}))
                               .text();
  useShapes("S SS");
  for (const bool check : {false, true}) {
    const std::string checked = check ? "CheckEquations=yes" : "CheckEquations=no";
    const std::string families =
        replaced(replaced(text, "\"t0\" period=20nS", "\"t0\" period=20nS family=\"one\""),
                 "\"t1\" period=20nS", "\"t1\" period=20nS family=\"two\"");
    build("A", families);
    merge({checked});
    expectSameDriven();
    EXPECT_LE(timeplates(), 2);
  }
  // Cycles of 20 and of 10 nanoseconds.
  DatabaseText longer;
  longer.signal("a", "input").plate("t0", "20nS", {{"a", "0pS D", ""}});
  longer.plate("t1", "10nS", {{"a", "0pS U", ""}});
  build("A", longer.rows(steps("t0", {"1", "0"}) + steps("t1", {"1", "0"})));
  merge();
  EXPECT_EQ(timeplates(), 2);
  expectSameDriven();
}

TEST_F(OptimizeTest, ShapesAreForcedButForSomeSignals) {
  DatabaseText text;
  text.signal("a", "input").signal("c", "input");
  text.plate("t0", "20nS", {{"a", "0pS D 5nS U 15nS D", ""}, {"c", "0pS D 5nS U 15nS D", ""}});
  build("A", text.rows(steps("t0", {"11", "00"})));
  const char kMaps[] = "#% simpleShape forceMap\nDUD DSD\n#% noMapping\nc\n";
  useShapes("DSD DUD", kMaps);
  merge();
  EXPECT_THAT(sectionOf("dest", "timeplate 0"),
              AllOf(HasSubstr("event 5nS S\n    event 15nS D\n    on 1\n"),
                    HasSubstr("event 5nS U\n    event 15nS D\n    on 2\n")));
  EXPECT_EQ(states(), "111 100");
  expectSameDriven("a,b,c");
}

// --- Passes --------------------------------------------------------------------------

TEST_F(OptimizeTest, MakesRoomWhenTheLimitIsReached) {
  useShapes("S DSD USU ZSZ");
  DatabaseText text;
  text.signal("a", "input").signal("y", "output");
  std::string rows;
  // Flat waves that fold in pairs; the rows come back to each.
  const std::string waves[] = {"0pS D 5nS U 15nS D", "0pS D 5nS D 15nS D", "0pS U 6nS U 15nS U",
                               "0pS U 6nS D 15nS U", "0pS Z 7nS U 15nS Z", "0pS Z 7nS D 15nS Z"};
  for (std::size_t i = 0; i < std::size(waves); ++i) {
    const std::string name = "t" + std::to_string(i);
    text.plate(name, "20nS", {{"a", waves[i], ""}, {"y", "0pS X 15nS Q", ""}});
    rows += steps(name, {"10", "01"});
  }
  build("A", text.rows(rows + rows + rows));
  merge();
  EXPECT_EQ(timeplates("destPlain"), 6);
  EXPECT_EQ(timeplates(), 3);
  expectSameDriven();
  for (const char* limit : {"TPGenLimit=4", "TPGenLimit=5", "TPGenLimit=6"}) {
    SCOPED_TRACE(limit);
    const Outcome outcome = merge({limit});
    EXPECT_EQ(timeplates(), 3) << outcome.report;
    expectSameDriven("a,b,y");
  }
}

TEST_F(OptimizeTest, RefusesWhatStillExceedsTheLimit) {
  useShapes("S");
  buildTwo({"0pS D 5nS U 15nS D", {"1", "0"}}, {"0pS D 6nS U 15nS D", {"0", "1"}});
  for (const char* shapes : {"S", "USU"}) {
    useShapes(shapes);
    const Outcome outcome = runOperations(
        "merge A B dest", {"OptimizeTimePlates=yes", "ATEFamily=other", "ShapeFile=tester.shp",
                           "Pmode=P_LAST_FORCE", "TPGenLimit=1"});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err + outcome.report,
                HasSubstr("Number of generated timeplates (2) exceeds limit (1)"));
  }
}

TEST_F(OptimizeTest, ASecondPassShrinksTracks) {
  useShapes("S DSD PS");
  buildTwo({"0pS D 5nS U 15nS D", {"1", "0"}}, {"0pS D 6nS U 15nS D", {"0", "1"}});
  const Outcome outcome = merge({"DoTrackOptimize=yes"});
  EXPECT_THAT(outcome.report, AllOf(HasSubstr("...Performing Track Reduction Pass\n"),
                                    HasSubstr("\nMerged 2 timeplates into 2 timeplates.\n")));
  expectSameDriven();
}

TEST_F(OptimizeTest, MergesOfOneRunFollowEachOther) {
  useShapes("S");
  buildTwo({"0pS D", {"1", "0"}}, {"0pS U", {"0", "1"}});
  const std::vector<std::string> parameters = {"OptimizeTimePlates=yes", "ATEFamily=other",
                                               "ShapeFile=tester.shp", "Pmode=last_force"};
  expectDone(runOperations("merge A B destPlain"));
  const Outcome outcome =
      runOperations("merge A B dest1\n merge A B dest2\n concat dest1 dest2 dest", parameters);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(timeplates("dest1"), 1);
  EXPECT_EQ(dump("dest1"), dump("dest2"));
  expectSame("destPlain", "dest1", {"--ignore-cycles"});
}

// --- Laws ----------------------------------------------------------------------------

// A database of inputs with random waves of few kinds, so that some of them fold. Every row
// has data for what drives, because what isn't known may become anything; without
// DoBidiMerge rows may just expect.
rc::Gen<std::string> database(int mode, bool bidi) {
  return rc::gen::exec([mode, bidi]() {
    const std::vector<std::string> waves = {"0pS D",
                                            "0pS U",
                                            "0pS S",
                                            "0pS C",
                                            "0pS D 5nS U",
                                            "0pS P 5nS S",
                                            "0pS P",
                                            "0pS D 5nS S",
                                            "0pS S 5nS C",
                                            "0pS P 5nS U",
                                            "0pS D 5nS S 15nS D",
                                            "0pS D 5nS U 15nS D",
                                            "0pS Z",
                                            "0pS D 6nS S",
                                            "0pS Z 5nS U 15nS Z"};
    const TrackText drives = {"m", "0pS S", "input"};
    const TrackText pulls = {"m", "0pS U", "input"};
    const TrackText expects = {"m", "0pS X 15nS Q", "output"};
    const TrackText does = {"m", "0pS S 10nS X 15nS Q", "bidir"};
    const std::vector<std::vector<TrackText>> ways = {{drives, expects}, {pulls, expects}, {drives},
                                                      {expects},         {does},           {pulls}};
    std::vector<std::string> data = {"1-", "0-", "11", "01"};
    if (!bidi) data.insert(data.end(), {"-1", "-0"});
    DatabaseText text;
    text.mode(mode).signal("a", "input").signal("c", "input").signal("m", "bidir");
    const int plates = *rc::gen::inRange(2, 7);
    for (int i = 0; i < plates; ++i) {
      std::vector<TrackText> tracks = *rc::gen::elementOf(ways);
      tracks.push_back({"a", *rc::gen::elementOf(waves), ""});
      tracks.push_back({"c", *rc::gen::elementOf(waves), ""});
      text.plate("t" + std::to_string(i), "20nS", tracks);
    }
    for (int row = 0; row < 24; ++row) {
      std::string states(1, *rc::gen::elementOf(std::string("01Z")));
      states += *rc::gen::elementOf(std::string("01Z"));
      states += *rc::gen::elementOf(data);
      text.rows(steps("t" + std::to_string(*rc::gen::inRange(0, plates)), {states}));
    }
    return text.text();
  });
}

class OptimizeLaws : public OptimizeTest {
 protected:
  // A run over the result alone.
  void expectSettled() {
    expectDone(runOperations("copy dest destAgain"));
    const std::string before = dump("destAgain");
    const Outcome again = runParameters(
        {"Operation=copy", "SourcePVB1=B", "DestinationPVB=destB", "OptimizeTimePlates=yes",
         "Optimize=2", "WaveSource=destAgain", "ATEFamily=other", "ShapeFile=tester.shp"});
    EXPECT_EQ(again.exitCode, 0) << again.err << again.report;
    EXPECT_EQ(dump("destAgain"), before) << again.report;
  }
};

RC_GTEST_FIXTURE_PROP(OptimizeLaws, WhatIsDrivenStaysTheSame,
                      (bool trackPass, bool limited, bool bidi)) {
  build("A", *database(*rc::gen::inRange(1, 6), bidi));
  std::vector<std::string> parameters;
  if (bidi) parameters.emplace_back("DoBidiMerge=yes");
  if (trackPass) parameters.emplace_back("DoTrackOptimize=yes");
  if (limited) parameters.push_back("TPGenLimit=" + std::to_string(*rc::gen::inRange(2, 6)));
  const Outcome outcome = optimize(parameters);
  if (outcome.err.find("exceeds limit") != std::string::npos) return;
  RC_ASSERT(outcome.exitCode == 0);
  RC_ASSERT(timeplates() <= timeplates("destPlain"));
  const ProgramResult driven =
      runCompanion({"diff", "destPlain", "dest", "--ignore-cycles", "--signals", "a,b,c,m"});
  if (driven.exitCode != 0) {
    RC_FAIL(driven.out + driven.err + outcome.report + dump("destPlain") + dump("dest"));
  }
}

TEST_F(OptimizeLaws, ASecondRunChangesNothing) {
  buildTwo({"0pS D 5nS S 15nS D", {"1", "0"}}, {"0pS D 5nS U 15nS D", {"0", "1"}});
  merge();
  expectSettled();
}

}  // namespace
