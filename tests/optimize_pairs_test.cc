// Merges of two timeplates that differ in the waves of one input: which rule lets one of
// them serve the rows of both, what wave and what data come of it, and which near neighbour
// keeps both.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <span>

#include "support/optimize_world.h"

namespace {

// What a timeplate says of the input "a", and the data of its rows, a letter for each.
struct Half {
  const char* events;
  std::string_view data;
};

struct PairCase {
  const char* what;
  const char* shapes;
  Half first;
  Half second;
  const char* waves;  // what is left
  const char* data;   // of all rows, which take turns
  std::vector<std::string> parameters = {};
};

class OptimizePairs : public testing::Test, protected OptimizeWorld {
 protected:
  OptimizePairs() : OptimizeWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  void buildPair(const Half& first, const Half& second) {
    DatabaseText text;
    text.signal("a", "input");
    text.plate("t0", "20nS", {track("a", first.events)});
    text.plate("t1", "20nS", {track("a", second.events)});
    for (std::size_t i = 0; i < std::max(first.data.size(), second.data.size()); ++i) {
      if (i < first.data.size()) text.rows(steps("t0", {std::string(1, first.data[i])}));
      if (i < second.data.size()) text.rows(steps("t1", {std::string(1, second.data[i])}));
    }
    build("A", text);
  }
  void expectAll(std::span<const PairCase> table, const std::string& compared = "a",
                 const std::string& more = "") {
    for (const PairCase& each : table) {
      SCOPED_TRACE(each.what);
      useShapes(each.shapes, more);
      buildPair(each.first, each.second);
      const Outcome outcome = merge(each.parameters, compared);
      EXPECT_EQ(waves("a"), each.waves) << outcome.report;
      EXPECT_EQ(data(), each.data) << outcome.report;
    }
  }
};

TEST_F(OptimizePairs, DataServeWhatIsFlat) {
  const Half pulse = {"D 5S 15D", "10"};
  const Half clock = {"D 5U 15D", "00"};
  const Half turn = {"C 10S", "10"};
  const PairCase table[] = {
      {"data first", "S DSD", pulse, clock, pulse.events, "1101"},
      {"flat first", "S DSD", clock, pulse, pulse.events, "1110"},
      {"flat at another level", "S DSD", pulse, {"U 5D 15U", "00"}, "D 5S 15D | U 5D 15U", "1000"},
      {"no such shape of the tester", "S", pulse, clock, "D 5S 15D | D 5U 15D", "1000"},
      {"another time", "S DSD", pulse, {"D 6U 15D", "00"}, "D 5S 15D | D 6U 15D", "1000"},
      {"data at another time", "S DSD", pulse, {"D 5S 14D", "11"}, "D 5S 15D | D 5S 14D", "1101"},
      {"complement", "S CS", turn, {"D 10U", "00"}, turn.events, "1101"},
      {"complement of high impedance", "S CS", turn, {"Z 10Z", "00"}, turn.events, "1Z0Z"},
      {"no complement", "S CS", turn, {"D 10D", "11"}, "C 10S | D 10D", "1101"},
      {"high impedance", "S", {"S", "10"}, {"Z", "01"}, "S", "1Z0Z"},
      {"complement and data are each other's data", "S SC", {"S 10C", "10"}, turn, "S 10C", "1001"},
  };
  expectAll(table);
}

TEST_F(OptimizePairs, ShapesAreTriedInTheirOrder) {
  const Half low = {"D", "10"};
  const Half high = {"U", "00"};
  const PairCase table[] = {
      {"two levels", "S", low, high, "S", "0101"},
      {"simple shapes don't count", "D U S", low, high, "S", "0101"},
      {"the first that fits", "SS S", low, high, "S 10S", "0101"},
      {"that of fewer edges before", "S SS", low, high, "S", "0101"},
      {"rest and clock", "S DSD", low, {"D 5U 15D", "00"}, "D 5S 15D", "0101"},
      {"an edge too many", "S SU", low, {"D 5U 15D", "00"}, "D | D 5U 15D", "1000"},
      {"edges are added", "SS S", {"C", "10"}, high, "S 10S", "0111"},
      {"with room between them",
       "SS S",
       {"C", "10"},
       high,
       "S 10S",
       "0111",
       {"EdgeToEdgeDelta=9nS", "EndOfCycleDelta=19nS"}},
      {"no room between them", "SS S", {"C", "10"}, high, "S", "0111", {"EdgeToEdgeDelta=10nS"}},
      {"no room, but for a wave without rows to ask",
       "SS S",
       low,
       high,
       "S 10S",
       "0101",
       {"EdgeToEdgeDelta=10nS"}},
      {"no room at the end", "SS S", {"C", "10"}, high, "S", "0111", {"EndOfCycleDelta=20nS"}},
  };
  expectAll(table);
}

TEST_F(OptimizePairs, WhatIsOpenOrMaskedHasItsPlace) {
  const PairCase table[] = {
      {"open ends", "S S?", {"D 10?", "10"}, {"U 10?", "00"}, "S 10?", "0101"},
      {"an open end without a shape",
       "S SS",
       {"D 10?", "10"},
       {"U 10?", "00"},
       "D 10? | U 10?",
       "1000"},
      {"open at another time", "S S?", {"D 10?", "10"}, {"U 11?", "00"}, "D 10? | U 11?", "1000"},
      {"one open end", "S S?", {"D 10?", "10"}, {"U", "00"}, "D 10? | U", "1000"},
      {"an open begin", "S ?S", {"? 5S", "10"}, {"? 5U", "00"}, "? 5S", "1101"},
      {"nothing but open", "S", {"S", "10"}, {"?", "00"}, "S | ?", "1000"},
      {"masks", "S XS", {"X 5S", "10"}, {"X 5U", "00"}, "X 5S", "1101"},
      {"a mask in one", "S XS", {"X 5S", "10"}, {"N 5U", "00"}, "X 5S | N 5U", "1000"},
      {"a mask in the shape", "S XS", {"N 5D", "10"}, {"N 5U", "00"}, "N 5D | N 5U", "1000"},
      {"masks at other places", "S XS SX", {"X 5S", "10"}, {"S 5X", "00"}, "X 5S | S 5X", "1000"},
  };
  expectAll(table);
}

// Where nothing is known something may be driven, so "a" is left out of the comparison.
TEST_F(OptimizePairs, NothingKnownMatchesAll) {
  const Half pulse = {"D 5S 15D", "10"};
  const PairCase table[] = {
      {"behind", "S DSD", pulse, {"N 5U 15D", "00"}, pulse.events, "1101"},
      {"in front", "S DSD", {"N 5U 15D", "00"}, pulse, pulse.events, "1110"},
      {"for data", "S DSD", pulse, {"D 5N 15D", "00"}, pulse.events, "1-0-"},
      {"with a neighbour", "S DSD", pulse, {"N 5U 15U", "00"}, "D 5S 15D | N 5U 15U", "1000"},
  };
  expectAll(table, "");
}

// A difference of two times in seconds isn't exact, so the limit itself isn't tried.
TEST_F(OptimizePairs, TimesWithinTheToleranceAreEqual) {
  const Half early = {"D 10S", "10"};
  const Half late = {"D 10.1S", "01"};
  const Half lateFlat = {"D 10.1U", "00"};
  const PairCase table[] = {
      {"the same wave", "S DSD", early, late, "D 10S", "1001", {"TimeTolerance=150ps"}},
      {"further apart", "S DSD", early, late, "D 10S | D 10.1S", "1001", {"TimeTolerance=50ps"}},
      {"none", "S DSD", early, late, "D 10S | D 10.1S", "1001"},
      {"a flat wave", "S DS", early, lateFlat, "D 10S", "1101", {"TimeTolerance=150ps"}},
      {"a flat wave further apart",
       "S DS",
       early,
       lateFlat,
       "D 10S | D 10.1U",
       "1000",
       {"TimeTolerance=50ps"}},
  };
  // Edges move by the tolerance, which the comparison would tell.
  expectAll(table, "");
}

TEST_F(OptimizePairs, FamiliesLimitAndOrderShapes) {
  const std::string own = "#% familyShape shapeFamily\nS data\n#% signal family\na data\n";
  const std::string others = "#% familyShape shapeFamily\nS data\n#% signal family\nb data\n";
  const std::string global = "#% familyShape shapeFamily\nS data\nSS globalShapeFamily\n";
  const Half low = {"D", "10"};
  const Half high = {"U", "00"};
  const Half clock = {"D 5U 15D", "00"};
  const char* const pulse = "D 5S 15D";
  const PairCase limited = {"of its family only", "S DSD", low, clock, "D | D 5U 15D", "1000"};
  const PairCase free = {"any", "S DSD", low, clock, pulse, "0101"};
  PairCase off = free;
  off.parameters = {"UseShapeFamilies=no"};
  const PairCase kept = {"the wave with data stays", "S DSD", {pulse, "10"}, clock, pulse, "1101"};
  const PairCase keptSecond = {"or the other", "S DSD", clock, {pulse, "10"}, pulse, "1110"};
  expectAll(std::array{limited, off, kept, keptSecond}, "a", own);
  expectAll(std::array{free}, "a", others);
  const PairCase first = {"families come first", "S SS", low, high, "S 10S", "0101"};
  PairCase plain = {"plain table", "S SS", low, high, "S", "0101", {"UseShapeFamilies=no"}};
  expectAll(std::array{first, plain}, "a", global);
  plain.parameters.clear();
  expectAll(std::array{plain}, "a", global + "#% signal family\na data\n");
}

TEST_F(OptimizePairs, OnlyCyclesOfOneLengthMeet) {
  useShapes("S");
  for (const auto& [period, left] : {std::pair("20nS", "S"), {"10nS", "D | U"}}) {
    DatabaseText text;
    text.signal("a", "input").plate("t0", "20nS", {track("a", "D")});
    text.plate("t1", period, {track("a", "U")});
    build("A", text.rows(steps("t0", {"1", "0"}) + steps("t1", {"1", "0", "1", "0"})));
    const Outcome outcome = merge({"Trace=1"});
    EXPECT_EQ(waves("a"), left);
    EXPECT_EQ(outcome.report.find("\nMergable checking ") == std::string::npos,
              period == std::string("10nS"));
  }
}

// --- What was driven before ----------------------------------------------------------

// Rows of "before" and one of the timeplate "t1", twice; t0 keeps what was driven before
// and then has data, t1 begins with a level, t2 drives high and then expects low.
struct ModeCase {
  const char* what;
  std::vector<std::string> before;  // "t0 1"
  const char* keeps;                // the wave of t0
  const char* begins;               // that of t1
  std::string modes;                // the P modes in which t1 goes
};

TEST_F(OptimizePairs, EachModeSaysWhatWasBefore) {
  useShapes("PS DXP S");
  const std::vector<std::string> one = {"t0 1"};
  const std::vector<std::string> oneZ = {"t0 1", "t0 Z"};
  const std::vector<std::string> low = {"t0 1", "t2 1"};
  const ModeCase table[] = {
      {"the level before", one, "P 5S", "U 5D", "12345"},
      {"another", one, "P 5S", "D 5U", ""},
      {"high impedance was forced", oneZ, "P 5S", "Z 5U", "1345"},
      {"and not driven", oneZ, "P 5S", "U 5D", "2"},
      {"the end of the cycle isn't forced", low, "P 5S", "Z 5U", "35"},
      {"but what was before it", low, "P 5S", "U 5D", "124"},
      {"behind a mask, as before it", one, "D 5X 10P", "D 5X 10D", "12"},
      {"behind a mask, not forced", one, "D 5X 10P", "D 5X 10Z", "35"},
  };
  for (const ModeCase& each : table) {
    for (int mode = 0; mode <= 5; ++mode) {
      SCOPED_TRACE(std::string(each.what) + ", mode " + std::to_string(mode));
      DatabaseText text;
      text.mode(mode).signal("a", "input");
      text.plate("t0", "20nS", {track("a", each.keeps)});
      text.plate("t1", "20nS", {track("a", each.begins)});
      text.plate("t2", "20nS", {track("a", "U 10L")});
      for (int i = 0; i < 2; ++i) {
        for (const std::string& row : each.before)
          text.rows(steps(row.substr(0, 2), {row.substr(3)}));
        text.rows(steps("t1", {"0"}));
      }
      build("A", text);
      const Outcome outcome = merge({"Trace=1"});
      const bool goes = each.modes.find(std::to_string(mode)) != std::string::npos;
      const bool expects = each.before == low;
      EXPECT_EQ(waves("a"), each.keeps + std::string(expects ? " | U 10L" : "") +
                                (goes ? "" : std::string(" | ") + each.begins))
          << outcome.report;
    }
  }
}

}  // namespace
