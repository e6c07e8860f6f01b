// Timeplates of several signals and directions, and what keeps timeplates apart whatever
// their waves: tracks that only one has, bidirectional signals, what is expected, families,
// equations, multiplexed signals. And shapes that the shape file asks for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/optimize_world.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

using Tracks = std::vector<TrackText>;
using Rows = std::vector<std::string>;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error("no " + from);
  return text.replace(at, from.size(), to);
}

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

// --- Tracks that one has -------------------------------------------------------------

TEST_F(OptimizeTracks, ATrackThatOneHasIsTakenOver) {
  const Tracks both = {{"a", "0pS S", ""}, {"c", "0pS S 10nS S", ""}};
  const Tracks keeping = {{"a", "0pS S", ""}, {"c", "0pS P 5nS S", ""}};
  const Tracks one = {{"a", "0pS S", ""}, {"c", "", ""}};
  const auto expectWaves = [&](const Tracks& first, const Tracks& second, const char* wanted) {
    build("A", pairOf({{"a", "input"}, {"c", "input"}}, first, second, {"11", "00"}, {"10", "01"}));
    const Outcome outcome = merge({"Trace=1"});
    EXPECT_EQ(waves("c"), wanted) << outcome.report;
    EXPECT_EQ(data(0) + data(1), "10101001");
    return outcome.report;
  };
  expectWaves(both, one, "0pS S 10nS S");
  expectWaves(one, both, "0pS S 10nS S");
  // What is driven then would be what a later row keeps.
  EXPECT_THAT(expectWaves(keeping, one, "0pS P 5nS S | "),
              HasSubstr("t0_0pS and t1_40nS not merged: signal c, input, PS against no track: "
                        "later rows keep the state before\n"));
}

TEST_F(OptimizeTracks, BidirectionalTracks) {
  struct Case {
    Tracks first;
    Tracks second;
    Rows secondRows;
    const char* apart;   // waves left without DoBidiMerge
    const char* folded;  // and with it
    const char* data;    // in both columns, folded
  };
  const TrackText drive = {"a", "0pS S", "input"};
  const TrackText expect = {"a", "0pS X 15nS Q", "output"};
  const TrackText mixed = {"a", "0pS S 10nS X 15nS Q", "bidir"};
  const TrackText none = {"a", "", "input"};
  const Rows expecting = {"-1", "-0"};
  const Rows bothSaid = {"11", "01"};
  const Case table[] = {
      // Either track may come from the other timeplate, and rows choose by their data.
      {{drive}, {expect}, expecting, nullptr, "0pS S + output 0pS X 15nS Q", "10--/--10"},
      {{drive}, {expect}, bothSaid, nullptr, "0pS S + output 0pS X 15nS Q", "10--/--11"},
      // A bidirectional one is kept apart from none, and from those of one direction.
      {{drive},
       {mixed},
       bothSaid,
       "0pS S | bidir 0pS S 10nS X 15nS Q",
       "0pS S + bidir 0pS S 10nS X 15nS Q",
       "1010/--11"},
      {{mixed},
       {drive},
       {"1-", "0-"},
       "bidir 0pS S 10nS X 15nS Q | 0pS S",
       "bidir 0pS S 10nS X 15nS Q + 0pS S",
       "1010/11--"},
      {{drive, expect},
       {mixed},
       bothSaid,
       "0pS S + output 0pS X 15nS Q | bidir 0pS S 10nS X 15nS Q",
       "0pS S + output 0pS X 15nS Q + bidir 0pS S 10nS X 15nS Q",
       "1010/--11"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.folded);
    const bool hasMixed = each.apart != nullptr && each.first.front().direction == "bidir";
    const Rows firstRows = hasMixed ? bothSaid : Rows{"1-", "0-"};
    build("A", pairOf({{"a", "bidir"}}, each.first, each.second, firstRows, each.secondRows));
    const Outcome outcome = merge({"Trace=2"});
    EXPECT_EQ(waves("a"), each.apart != nullptr ? each.apart : each.folded) << outcome.report;
    // No signal is the cause.
    EXPECT_THAT(outcome.report,
                AllOf(Not(HasSubstr("FAILED because of")),
                      HasSubstr("Fail Frequency\n" + std::string(34, '-') + "\n---")));
    merge({"DoBidiMerge=yes"});
    EXPECT_EQ(waves("a"), each.folded);
    EXPECT_EQ(data(0) + "/" + data(1), each.data);
  }
}

TEST_F(OptimizeTracks, BidirectionalWavesAreReducedAsOthers) {
  useShapes("S SX");
  for (const auto& [other, left] :
       {std::pair("0pS D 10nS X", "bidir 0pS S 10nS X"),
        std::pair("0pS D 11nS X", "bidir 0pS S 10nS X | bidir 0pS D 11nS X")}) {
    build("A", pairOf({{"a", "bidir"}}, {{"a", "0pS S 10nS X", "bidir"}}, {{"a", other, "bidir"}},
                      {"11", "01"}, {"11", "01"}));
    merge();
    EXPECT_EQ(waves("a"), left);
    EXPECT_EQ(data(), timeplates() == 1 ? "1000" : "1010");
  }
  // In a database as it is what is compared in between stays.
  for (const auto& [other, left] :
       {std::pair("0pS D 10nS X 15nS Q", "bidir 0pS S 10nS X 15nS Q"),
        std::pair("0pS D 10nS X 16nS Q", "bidir 0pS S 10nS X 15nS Q | bidir 0pS D 10nS X 16nS Q"),
        std::pair("0pS D 10nS X", "bidir 0pS S 10nS X 15nS Q | bidir 0pS D 10nS X")}) {
    optimizeAlone(pairOf({{"a", "bidir"}}, {{"a", "0pS S 10nS X 15nS Q", "bidir"}},
                         {{"a", other, "bidir"}}, {"11", "01"}, {"11", "01"})
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
      {"0pS X 15nS Q", "0pS X 15nS Q", "output 0pS X 15nS Q", "output 0pS X 15nS Q", "1010"},
      {"0pS X 15nS Q", "0pS X 12nS Q", "output 0pS X 15nS Q",
       "output 0pS X 15nS Q | output 0pS X 12nS Q", "1010"},
      {"0pS X 15nS Q", "0pS X", "output 0pS X 15nS Q", "output 0pS X 15nS Q", "10XX"},
      {"0pS X", "0pS X 15nS Q", "output 0pS X", "output 0pS X 15nS Q", "XX10"},
      {"0pS X 15nS Q", "0pS X 15nS L", "output 0pS X 15nS Q",
       "output 0pS X 15nS Q | output 0pS X 15nS L", "1010"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(std::string(each.first) + " and " + each.second);
    const DatabaseText text =
        pairOf({{"a", "input"}, {"y", "output"}}, {{"a", "0pS S", ""}, {"y", each.first, ""}},
               {{"a", "0pS U", ""}, {"y", each.second, ""}}, {"11", "00"}, {"11", "00"});
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
  const Tracks drives = {{"a", "0pS S", "input"}};
  const Tracks both = {{"a", "0pS S", "input"}, {"a", "0pS X 15nS Q", "output"}};
  optimizeAlone(pairOf({{"a", "bidir"}}, both, drives, {"11", "1-"}, {"01", "10", "-1"}).text());
  EXPECT_EQ(waves("a"), "0pS S + output 0pS X 15nS Q");
  EXPECT_EQ(data(0) + "/" + data(1), "1101X/1----");
}

// --- What keeps apart timeplates as such ---------------------------------------------

TEST_F(OptimizeTracks, FamiliesKeepApartWhereEquationsCount) {
  const std::string text =
      pairOf({{"a", "input"}}, {{"a", "0pS S", ""}}, {{"a", "0pS U", ""}}, {"1", "0"}, {"0", "0"})
          .text();
  struct Case {
    const char* first;
    const char* second;
    bool checked;
    const char* left;  // heads of the timeplates behind their periods
  };
  const Case table[] = {
      {"one", "one", true, " family=\"one\"\n"},
      {"one", "two", true, " family=\"one\"\n family=\"two\"\n"},
      {"one", "", true, " family=\"one\"\n"},
      {"", "two", true, " family=\"two\"\n"},
      {"", "", true, "\n"},
      {"one", "two", false, " family=\"one\"\n"},
      {"", "two", false, "\n"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(std::string(each.first) + " and " + each.second);
    const auto head = [](const char* name, const std::string& family) {
      return std::string("\"") + name + "\" period=20nS" +
             (family.empty() ? "" : " family=\"" + family + "\"");
    };
    optimizeAlone(replaced(replaced(text, head("t0", ""), head("t0", each.first)),
                               head("t1", ""), head("t1", each.second)),
                      {each.checked ? "CheckEquations=yes" : "CheckEquations=no"});
    std::string left = linesOf("dest", "timeplate ");
    for (const char* plate : {"timeplate 0 \"t0\" period=20nS", "timeplate 1 \"t1\" period=20nS"}) {
      if (left.find(plate) != std::string::npos) left = replaced(left, plate, "");
    }
    EXPECT_EQ(left, each.left);
    EXPECT_EQ(data(), timeplates() == 1 ? "1011" : "1000");
  }
}

TEST_F(OptimizeTracks, ExpressionsOfEdges) {
  useShapes("S DS");
  struct Case {
    const char* what;
    const char* first;  // events of "a", expressions behind "="
    const char* second;
    const char* unchecked;  // what is left
    const char* checked;
  };
  const char* const apart = "0pS D 5nS S expr=\"t\" | 0pS D 5nS U expr=\"u\"";
  const char* const apartData = "0pS D 5nS S expr=\"t\" | 0pS D 5nS S expr=\"u\"";
  const char* const keepsT = "0pS D 5nS S expr=\"t\"";
  const char* const keepsU = "0pS D 5nS S expr=\"u\"";
  const Case table[] = {
      {"equal", "S=t", "S=t", keepsT, keepsT},
      {"different", "S=t", "S=u", keepsT, apartData},
      {"the first only", "S=t", "S", keepsT, keepsT},
      {"the second only", "S", "S=u", "0pS D 5nS S", keepsU},
      {"reduced, equal", "S=t", "U=t", keepsT, keepsT},
      {"reduced, different", "S=t", "U=u", keepsT, apart},
      {"reduced, the second only", "S", "U=u", "0pS D 5nS S", keepsU},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.what);
    const auto events = [](const std::string& edge) {
      const std::string state = edge.substr(0, 1);
      return "0pS D 5nS " + (edge == state ? state : state + " expr=\"" + edge.substr(2) + "\"");
    };
    // The strobes keep timeplates two that are equal otherwise.
    const Tracks first = {{"a", "0pS D 5nS FIRST", ""}, {"y", "0pS X 15nS Q", ""}};
    const Tracks second = {{"a", "0pS D 5nS SECOND", ""}, {"y", "0pS X 12nS Q", ""}};
    const std::string text =
        pairOf({{"a", "input"}, {"y", "output"}}, first, second, {"1-", "0-"}, {"1-", "0-"}).text();
    build("A", replaced(replaced(text, "0pS D\n    event 5nS FIRST",
                                 replaced(events(each.first), " 5nS", "\n    event 5nS")),
                        "0pS D\n    event 5nS SECOND",
                        replaced(events(each.second), " 5nS", "\n    event 5nS")));
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
  const char* const apart = "0pS D 20nS ? | 0pS U 20nS ?";
  const Case table[] = {
      {"those of all signals", "S", "", "20nS", pairs, "0pS S 20nS ?", "01/01"},
      {"none that fits", "DS", "", "20nS", pairs, apart, "11/00"},
      {"their own list", "S", "DS", "20nS", pairs, apart, "11/00"},
      {"one that fits in their list", "DS", "S", "20nS", pairs, "0pS S 20nS ?", "01/01"},
      {"other spans",
       "S",
       "",
       "30nS",
       {"t0 1", "t1 0", "t1 1", "t0 0"},
       "0pS D 20nS ? | 0pS U 30nS ?",
       "11/00"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.what);
    const std::string list = each.muxShapes;
    useShapes(each.shapes, list.empty() ? "" : "#% muxShape\n" + list + "\n");
    DatabaseText text;
    text.signal("a", "input").plate("t0", "20nS", {{"a", "0pS D", ""}});
    text.plate("t1", each.period, {{"a", "0pS U", ""}});
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
  const char* const clock = "0pS D 5nS U 15nS D";
  const char* const pulse = "0pS D 5nS S 15nS D";
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
      {"another wave", map, "0pS D 5nS Z 15nS D", "0pS D 5nS Z 15nS D", "0pS D 5nS Z 15nS D",
       "10/10"},
      {"of its family", inverse, clock, "0pS D 5nS C 15nS D", pulse, "00/11"},
      {"whatever the family", inverse, clock, pulse, pulse, "11/11", {"UseShapeFamilies=no"}},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(each.what);
    useShapes("S DSD DUD DCD", each.tables);
    DatabaseText text;
    text.signal("a", "input").signal("c", "input");
    text.plate("t0", "20nS", {{"a", each.wave, ""}, {"c", each.wave, ""}});
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
  for (const auto& [before, left] : {std::pair("0pS D 5nS S 15nS D", "0pS P 5nS U 15nS D"),
                                     std::pair("0pS D 5nS S 15nS Z", "0pS D 5nS U 15nS D")}) {
    build("A", pairOf({{"a", "input"}}, {{"a", before, ""}}, {{"a", "0pS D 5nS U 15nS D", ""}},
                      {"1"}, {"1", "0"}));
    merge();
    EXPECT_EQ(waves("a"), std::string(before) + " | " + left);
  }
}

}  // namespace
