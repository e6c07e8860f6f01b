// Timeplates of several signals and directions, and what keeps timeplates apart whatever
// their waves: tracks that only one has, bidirectional signals, what is expected, families,
// equations, multiplexed signals. And shapes that the shape file asks for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "support/optimize_world.h"

namespace {

using testing::HasSubstr;
using testing::Not;

using Tracks = std::vector<TrackText>;
using Rows = std::vector<std::string>;

class OptimizeTracks : public testing::Test, protected OptimizeWorld {
 protected:
  OptimizeTracks() : OptimizeWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) { useShapes("S PS"); }

  // Two timeplates for signals "NAME DIRECTION", the rows of the first before those of the
  // second.
  static DatabaseText pairOf(const std::vector<std::pair<const char*, const char*>>& signals,
                             const Tracks& first, const Tracks& second, const Rows& firstRows,
                             const Rows& secondRows) {
    DatabaseText text;
    for (const auto& [name, direction] : signals) text.signal(name, direction);
    text.plate("t0", "20nS", first).plate("t1", "20nS", second);
    return text.rows(steps("t0", firstRows) + steps("t1", secondRows));
  }
};

TEST_F(OptimizeTracks, EqualWavesNeedNoShape) {
  for (const auto& [other, left] :
       {std::pair("D 5S 15Z", "D 5S 15Z"), {"D 5S 16Z", "D 5S 15Z | D 5S 16Z"}}) {
    build("A",
          pairOf({{"a", "input"}, {"y", "output"}}, {track("a", "D 5S 15Z"), track("y", "X 15Q")},
                 {track("a", other), track("y", "X 12Q")}, {"1-", "0-"}, {"1-", "0-"}));
    EXPECT_THAT(merge({"Trace=1"}).report,
                HasSubstr("There are 2 invalid shapes in the timeplates\n"));
    EXPECT_EQ(waves("a"), left);
  }
}

// --- Tracks that one has -------------------------------------------------------------

TEST_F(OptimizeTracks, ATrackThatOneHasIsTakenOver) {
  const Tracks both = {track("a", "S"), track("c", "S 10S")};
  const Tracks keeping = {track("a", "S"), track("c", "P 5S")};
  const Tracks one = {track("a", "S"), track("c", "")};
  const auto expectWaves = [&](const Tracks& first, const Tracks& second, const char* wanted) {
    build("A", pairOf({{"a", "input"}, {"c", "input"}}, first, second, {"11", "00"}, {"10", "01"}));
    const Outcome outcome = merge({"Trace=1"});
    EXPECT_EQ(waves("c"), wanted) << outcome.report;
    EXPECT_EQ(data(0) + data(1), "10101001");
    return outcome.report;
  };
  expectWaves(both, one, "S 10S");
  expectWaves(one, both, "S 10S");
  // What is driven then would be what a later row keeps.
  EXPECT_THAT(expectWaves(keeping, one, "P 5S | "),
              HasSubstr("t0_0pS and t1_40nS not merged: signal c, input, PS against no track: "
                        "later rows keep the state before\n"));
}

TEST_F(OptimizeTracks, BidirectionalTracks) {
  const TrackText drive = track("a", "S", "input");
  const TrackText expect = track("a", "X 15Q", "output");
  const TrackText mixed = track("a", "S 10X 15Q", "bidir");
  const Rows driving = {"1-", "0-"};
  const Rows expecting = {"-1", "-0"};
  const Rows both = {"11", "01"};
  struct Case {
    Tracks first;
    Rows firstRows;
    Tracks second;
    Rows secondRows;
    const char* apart;   // what is left without DoBidiMerge
    const char* folded;  // and with it
    const char* data;    // in both columns then
  };
  const Case table[] = {
      // Either track may come from the other timeplate, and rows choose by their data.
      {{drive}, driving, {expect}, expecting, nullptr, "S + output X 15Q", "10--/--10"},
      {{drive}, driving, {expect}, both, nullptr, "S + output X 15Q", "10--/--11"},
      // A bidirectional one is kept apart from none, and from those of one direction.
      {{drive}, driving, {mixed}, both, "S | bidir S 10X 15Q", "S + bidir S 10X 15Q", "1010/--11"},
      {{mixed}, both, {drive}, driving, "bidir S 10X 15Q | S", "bidir S 10X 15Q + S", "1010/11--"},
      {{drive, expect},
       driving,
       {mixed},
       both,
       "S + output X 15Q | bidir S 10X 15Q",
       "S + output X 15Q + bidir S 10X 15Q",
       "1010/--11"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.folded);
    build("A", pairOf({{"a", "bidir"}}, each.first, each.second, each.firstRows, each.secondRows));
    const Outcome outcome = merge({"Trace=2"});
    EXPECT_EQ(waves("a"), each.apart != nullptr ? each.apart : each.folded) << outcome.report;
    // No signal is the cause.
    EXPECT_THAT(outcome.report, Not(HasSubstr("FAILED because of")));
    EXPECT_THAT(outcome.report, HasSubstr("Frequency\n" + std::string(34, '-') + "\n---"));
    merge({"DoBidiMerge=yes"});
    EXPECT_EQ(waves("a"), each.folded);
    EXPECT_EQ(data(0) + "/" + data(1), each.data);
  }
}

TEST_F(OptimizeTracks, BidirectionalWavesAreReducedAsOthers) {
  useShapes("S SX");
  for (const auto& [other, left] :
       {std::pair("D 10X", "bidir S 10X"), std::pair("D 11X", "bidir S 10X | bidir D 11X")}) {
    build("A", pairOf({{"a", "bidir"}}, {track("a", "S 10X", "bidir")},
                      {track("a", other, "bidir")}, {"11", "01"}, {"11", "01"}));
    merge();
    EXPECT_EQ(waves("a"), left);
    EXPECT_EQ(data(), timeplates() == 1 ? "1000" : "1010");
  }
  // In a database as it is what is compared in between stays.
  for (const auto& [other, left] : {std::pair("D 10X 15Q", "bidir S 10X 15Q"),
                                    std::pair("D 10X 16Q", "bidir S 10X 15Q | bidir D 10X 16Q"),
                                    std::pair("D 10X", "bidir S 10X 15Q | bidir D 10X")}) {
    optimizeAlone(pairOf({{"a", "bidir"}}, {track("a", "S 10X 15Q", "bidir")},
                         {track("a", other, "bidir")}, {"11", "01"}, {"11", "01"})
                      .text());
    EXPECT_EQ(waves("a"), left);
    EXPECT_EQ(data(), timeplates() == 1 ? "1000" : "1010");
  }
}

// --- What is expected ----------------------------------------------------------------

TEST_F(OptimizeTracks, OutputsCountInADatabaseAsItIs) {
  struct Case {
    const char* first;
    const char* second;
    const char* merged;   // what a merge leaves, which doesn't look at it
    const char* alone;    // and what is left of the database as it is
    const char* expects;  // its rows
  };
  const Case table[] = {
      {"X 15Q", "X 15Q", "output X 15Q", "output X 15Q", "1010"},
      {"X 15Q", "X 12Q", "output X 15Q", "output X 15Q | output X 12Q", "1010"},
      {"X 15Q", "X", "output X 15Q", "output X 15Q", "10XX"},
      {"X", "X 15Q", "output X", "output X 15Q", "XX10"},
      {"X 15Q", "X 15L", "output X 15Q", "output X 15Q | output X 15L", "1010"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(std::string(each.first) + " and " + each.second);
    const DatabaseText text =
        pairOf({{"a", "input"}, {"y", "output"}}, {track("a", "S"), track("y", each.first)},
               {track("a", "U"), track("y", each.second)}, {"11", "00"}, {"11", "00"});
    build("A", text);
    merge();
    EXPECT_EQ(waves("y"), each.merged);
    EXPECT_EQ(data(0) + data(1), "10111010");
    optimizeAlone(text.text());
    EXPECT_EQ(waves("y"), each.alone);
    EXPECT_EQ(data(1), each.expects);
  }
}

TEST_F(OptimizeTracks, WhatWasExpectedBeforeIsntEndedByATrackThatComes) {
  const Tracks drives = {track("a", "S", "input")};
  const Tracks both = {track("a", "S", "input"), track("a", "X 15Q", "output")};
  optimizeAlone(pairOf({{"a", "bidir"}}, both, drives, {"11", "1-"}, {"01", "10", "-1"}).text());
  EXPECT_EQ(waves("a"), "S + output X 15Q");
  EXPECT_EQ(data(0) + "/" + data(1), "1101X/1----");
}

// Where any state counts as the one before, a P may follow what is expected.
TEST_F(OptimizeTracks, WhatIsExpectedMayComeBetween) {
  useShapes("S UP");
  const TrackText expect = track("a", "X 15Q", "output");
  const DatabaseText text = pairOf({{"a", "bidir"}}, {track("a", "U", "input"), expect},
                                   {track("a", "U 10P", "input"), expect}, {"11", "10"}, {"1-"});
  for (const auto& [mode, left] : {std::pair(1, "U 10P + output X 15Q"),
                                   {2, "U 10P + output X 15Q"},
                                   {3, "U + output X 15Q | U 10P + output X 15Q"},
                                   {5, "U + output X 15Q | U 10P + output X 15Q"}}) {
    build("A", DatabaseText(text).mode(mode));
    merge();
    EXPECT_EQ(waves("a"), left) << mode;
  }
}

// --- What keeps apart timeplates as such ---------------------------------------------

// A merge gives its timeplates no families, so this is for databases as they are.
TEST_F(OptimizeTracks, FamiliesKeepApartWhereEquationsCount) {
  const std::string one = " family=\"one\"";
  const std::string two = " family=\"two\"";
  struct Case {
    std::string first;
    std::string second;
    const char* parameter;
    std::string left;  // behind the periods
  };
  const Case table[] = {
      {one, one, "CheckEquations=yes", one + "\n"},
      {one, two, "CheckEquations=yes", one + "\n" + two + "\n"},
      {one, "", "CheckEquations=yes", one + "\n"},
      {"", two, "CheckEquations=yes", two + "\n"},
      {"", "", "CheckEquations=yes", "\n"},
      {one, two, "CheckEquations=no", one + "\n"},
      {"", two, "CheckEquations=no", "\n"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.first + " and " + each.second + " " + each.parameter);
    DatabaseText text;
    text.signal("a", "input").plate("t0", "20nS" + each.first, {track("a", "S")});
    text.plate("t1", "20nS" + each.second, {track("a", "U")});
    optimizeAlone(text.rows(steps("t0", {"1", "0"}) + steps("t1", {"0", "0"})).text(),
                  {each.parameter});
    EXPECT_EQ(std::regex_replace(linesOf("dest", "timeplate "), std::regex("timeplate.*20nS"), ""),
              each.left);
    EXPECT_EQ(data(), timeplates() == 1 ? "1011" : "1000");
  }
}

TEST_F(OptimizeTracks, ExpressionsOfEdges) {
  useShapes("S DS");
  struct Case {
    const char* what;
    const char* first;
    const char* second;
    const char* unchecked;  // what is left
    const char* checked;
  };
  const Case table[] = {
      {"equal", "D 5S=t", "D 5S=t", "D 5S=t", "D 5S=t"},
      {"different", "D 5S=t", "D 5S=u", "D 5S=t", "D 5S=t | D 5S=u"},
      {"of the first only", "D 5S=t", "D 5S", "D 5S=t", "D 5S=t"},
      {"of the second only", "D 5S", "D 5S=u", "D 5S", "D 5S=u"},
      {"different, of no shape", "S=t 5Z", "S=u 5Z", "S=t 5Z", "S=t 5Z | S=u 5Z"},
      {"reduced, equal", "D 5S=t", "D 5U=t", "D 5S=t", "D 5S=t"},
      {"reduced, different", "D 5S=t", "D 5U=u", "D 5S=t", "D 5S=t | D 5U=u"},
      {"reduced, of the second only", "D 5S", "D 5U=u", "D 5S", "D 5S | D 5U=u"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.what);
    // The strobes keep timeplates two that are equal otherwise.
    build("A", withExpressions(pairOf(
                   {{"a", "input"}, {"y", "output"}}, {track("a", each.first), track("y", "X 15Q")},
                   {track("a", each.second), track("y", "X 12Q")}, {"1-", "0-"}, {"1-", "0-"})));
    merge({"CheckEquations=no"});
    EXPECT_EQ(waves("a"), each.unchecked);
    merge({"CheckEquations=yes"});
    EXPECT_EQ(waves("a"), each.checked);
  }
}

// --- Multiplexed signals -------------------------------------------------------------

TEST_F(OptimizeTracks, PartsOfMultiplexedSignalsHaveShapesOfTheirOwn) {
  struct Case {
    const char* what;
    const char* shapes;
    const char* muxShapes;
    const char* period;  // of the second timeplate
    Rows order;          // "t0 1"
    const char* left;    // of the first part
    const char* data;    // of both parts
  };
  const Rows pairs = {"t0 1", "t0 0", "t1 1", "t1 0"};
  const char* const apart = "D 20? | U 20?";
  const Case table[] = {
      {"those of all signals", "S", "", "20nS", pairs, "S 20?", "01/01"},
      {"none that fits", "DS", "", "20nS", pairs, apart, "11/00"},
      {"their own list", "S", "DS", "20nS", pairs, apart, "11/00"},
      {"one that fits in their list", "DS", "S", "20nS", pairs, "S 20?", "01/01"},
      {"other spans", "S", "", "30nS", {"t0 1", "t1 0", "t1 1", "t0 0"}, "D 20? | U 30?", "11/00"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.what);
    const std::string list = each.muxShapes;
    useShapes(each.shapes, list.empty() ? "" : "#% muxShape\n" + list + "\n");
    DatabaseText text;
    text.signal("a", "input").plate("t0", "20nS", {track("a", "D")});
    text.plate("t1", each.period, {track("a", "U")});
    for (const std::string& row : each.order) text.rows(steps(row.substr(0, 2), {row.substr(3)}));
    build("whole", text);
    expectDone(runParameters(
        {"Operation=muxify", "SourcePVB1=whole", "DestinationPVB=dest", "MuxDegree=2"}));
    optimizeAlone(dump("dest"));
    EXPECT_EQ(waves("a_1"), each.left);
    EXPECT_EQ(data(0) + "/" + data(1), each.data);
  }
}

// --- Forced maps ---------------------------------------------------------------------

TEST_F(OptimizeTracks, ShapesAreForcedButForSomeSignals) {
  const char* const clock = "D 5U 15D";
  const char* const pulse = "D 5S 15D";
  const std::string map = "#% simpleShape forceMap\nDUD DSD\n";
  const std::string inverse =
      map + "DUD DCD\n#% familyShape shapeFamily\nDCD inv\n#% signal family\na inv\n";
  struct Case {
    const char* what;
    std::string tables;
    const char* wave;  // of both signals
    const char* a;     // what is left
    const char* c;
    const char* data;  // of both
    std::vector<std::string> parameters = {};
  };
  const Case table[] = {
      {"both", map, clock, pulse, pulse, "11/11"},
      {"not c", map + "#% noMapping\nc\n", clock, pulse, clock, "11/10"},
      {"no map", "", clock, clock, clock, "10/10"},
      {"another wave", map, "D 5Z 15D", "D 5Z 15D", "D 5Z 15D", "10/10"},
      {"of its family", inverse, clock, "D 5C 15D", pulse, "00/11"},
      {"whatever the family", inverse, clock, pulse, pulse, "11/11", {"UseShapeFamilies=no"}},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.what);
    useShapes("S DSD DUD DCD", each.tables);
    DatabaseText text;
    text.signal("a", "input").signal("c", "input");
    text.plate("t0", "20nS", {track("a", each.wave), track("c", each.wave)});
    build("A", text.rows(steps("t0", {"11", "00"})));
    merge(each.parameters, "a,c");
    EXPECT_EQ(waves("a"), each.a);
    EXPECT_EQ(waves("c"), each.c);
    EXPECT_EQ(data(0) + "/" + data(1), each.data);
  }
}

// A shape with what was before can be forced where all rows know it, and it is that.
TEST_F(OptimizeTracks, WhatWasBeforeIsForcedWhereRowsShowIt) {
  useShapes("S PUD DUD", "#% simpleShape forceMap\nDUD PUD\n");
  for (const auto& [before, left] :
       {std::pair("D 5S 15D", "P 5U 15D"), std::pair("D 5S 15Z", "D 5U 15D")}) {
    build("A", pairOf({{"a", "input"}}, {track("a", before)}, {track("a", "D 5U 15D")}, {"1"},
                      {"1", "0"}));
    merge();
    EXPECT_EQ(waves("a"), std::string(before) + " | " + left);
  }
}

}  // namespace
