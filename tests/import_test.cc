// What STIL texts become: each way of writing a pattern beside the same pattern written
// plainly, events of whole stretches typed by hand, and what is refused.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/import_world.h"
#include "support/pattern_model.h"
#include "support/shipped.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Signals in the order clk a b y z io, two tables.
const std::string kChip = R"(STIL 1.0;
Signals { clk In; a In; b In; y Out; z Out; io InOut; }
SignalGroups { all = 'clk + a + b + y + z + io'; in = 'a + b'; out = 'y + z'; }
Timing {
  WaveformTable t {
    Period '100ns';
    Waveforms {
      clk { 0P { '0ns' D; '40ns' D/U; '60ns' D; } }
      in { 01Z { '0ns' D/U/Z; } }
      b { R { '0ns' U; '30ns' D; '70ns' U; } }
      out { LHX { '0ns' X; '80ns' L/H/X; } }
      io { 01Z { '10ns' D/U/Z; } }
      io { LHX { '0ns' Z; '80ns' L/H/X; } }
    }
  }
  WaveformTable slow {
    Period '250ns';
    Waveforms {
      clk { 0P { '0ns' D; '100ns' D/U; '200ns' D; } }
      in { 01Z { '0ns' D/U/Z; } }
      out { LHX { '0ns' X; '240ns' L/H/X; } }
      io { 01Z { '10ns' D/U/Z; } }
    }
  }
}
PatternBurst all_of_it { PatList { p; } }
PatternExec { PatternBurst all_of_it; }
)";

// Vectors "P10LHZ" of all signals, "slow" and "t" for a change of the table.
std::string plainly(const std::vector<std::string>& vectors) {
  std::string text = kChip + "Pattern p {\n  W t;\n";
  for (const std::string& vector : vectors) {
    const bool table = vector == "t" || vector == "slow";
    text += table ? "  W " + vector + ";\n" : "  V { all = " + vector + "; }\n";
  }
  return text + "}\n";
}

class ImportTest : public testing::Test, protected ImportWorld {
 protected:
  ImportTest() : ImportWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}
};

struct Writing {
  const char* what;
  const char* text;  // from the patterns on
  std::vector<std::string> plain;
};

// The pattern's beginning sets the table t.
const std::vector<Writing> kWritings = {
    {"the first load has nothing to compare, the last unload nothing to load",
     "Procedures { load_unload { W t; C { clk = 0; in = 01; out = XX; io = Z; }\n"
     "  Shift { V { clk = P; in = ##; out = ##; } } V { clk = 0; } } }\n"
     "Pattern p { W t; Call load_unload { a = 10; } Call load_unload { y = LH; } }",
     {"P11XXZ", "P01XXZ", "001XXZ", "P01LXZ", "P01HXZ", "001HXZ"}},
    {"a procedure gives back states and table, a macro leaves its own",
     "Procedures { p1 { W slow; V { a = 0; y = H; } } }\n"
     "MacroDefs { m1 { W slow; V { b = 1; y = L; } } }\n"
     "Pattern p { W t; V { all = P10XXZ; } Call p1; V { } Macro m1; V { a = 0; } }",
     {"P10XXZ", "slow", "P00HXZ", "t", "P10XXZ", "slow", "P11LXZ", "P01LXZ"}},
    {"loops in loops, and a condition in one",
     "Pattern p { W t; V { all = 000XXZ; } Loop 2 { Loop 2 { V { a = 0; } V { a = 1; } }\n"
     "  C { b = 1; } } V { } }",
     {"000XXZ", "000XXZ", "010XXZ", "000XXZ", "010XXZ", "001XXZ", "011XXZ", "001XXZ", "011XXZ",
      "011XXZ"}},
    {"a procedure in a loop of a procedure",
     "Procedures { one { W t; V { all = P00LXZ; } } two { Loop 2 { Call one; V { } } } }\n"
     "Pattern p { W t; V { all = 011XXZ; } Call two; V { clk = P; } }",
     {"011XXZ", "P00LXZ", "011XXZ", "P00LXZ", "011XXZ", "P11XXZ"}},
    {"data over lines, repeats, comments between them, long words for short ones",
     "Pattern p { // first\n WaveformTable t; Ann {* V { all = 1; } *}\n \"l 1\": Vector { all =\n"
     "   0\\r2 1\n   /* out */ \\r2 X\tZ; }\n l2: Condition { in = \\r2 0; } V { y=L;z=H; } }",
     {"011XXZ", "000LHZ"}},
};

TEST_F(ImportTest, WhateverWayItIsWrittenAPatternMeansTheSame) {
  for (const Writing& writing : kWritings) {
    SCOPED_TRACE(writing.what);
    expectImported(import("plain", plainly(writing.plain)));
    for (const bool flat : {false, true}) {
      const std::vector<std::string> options =
          flat ? std::vector<std::string>{"--flat"} : std::vector<std::string>{};
      expectImported(import("A", kChip + writing.text, options));
      expectSame("A", "plain");
      if (flat) {
        EXPECT_EQ(linesOf("A", "  loop") + linesOf("A", "  call"), "");
      }
    }
    EXPECT_EQ(runCompanion({"verify", "A"}).exitCode, 0);
  }
}

TEST_F(ImportTest, EventsAreThoseOfTheWaves) {
  expectImported(import("A", plainly({"P1RLHZ", "00ZXXL", "slow", "P11HX0", "t", "001LLH"})));
  expectEvents("A", {"clk", "a", "b", "y", "io"}, 1,
               {{"0 D, 40 U, 60 D", "0 U", "0 U, 30 D, 70 U", "0 X, 80 L", "10 Z"},
                {"0 D, 40 D, 60 D", "0 D", "0 Z", "0 X, 80 X", "0 Z, 80 L"},
                {"0 D, 100 U, 200 D", "0 U", "0 U", "0 X, 240 H", "10 D"},
                {"0 D, 40 D, 60 D", "0 D", "0 U", "0 X, 80 L", "0 Z, 80 H"}});
  EXPECT_THAT(linesOf("A", "timeplate "), HasSubstr("\"slow\" period=250nS"));
}

TEST_F(ImportTest, ExampleMemoryTestEventByEvent) {
  expectImported(importFile("A", shippedFile("examples/first-minute/memory.stil")));
  const std::string pulse = "0 D, 20 U, 35 D", none = "0 X, 15 X";
  expectEvents(
      "A", {"wrck", "wsi", "wso"}, 1,
      {{"0 D", "0 D", none}, {"0 D", "0 D", none}, {pulse, "0 D", none}, {pulse, "0 D", none},
       {pulse, "0 D", none}, {pulse, "0 D", none}, {"0 D", "0 D", none}, {pulse, "0 U", none},
       {pulse, "0 D", none}, {pulse, "0 D", none}, {pulse, "0 D", none}, {pulse, "0 U", none},
       {pulse, "0 D", none}, {pulse, "0 D", none}, {pulse, "0 D", none}, {pulse, "0 D", none},
       {"0 D", "0 D", none}, {pulse, "0 D", none}, {pulse, "0 U", none}, {pulse, "0 D", none}});
  // The end of the first run, and the second load with the first result.
  expectEvents("A", {"ram_clk", "wrck", "ram.done", "ram.fail[0]", "wso"}, 92,
               {{pulse, "0 D", "0 X, 40 X", "0 X, 40 X", none},
                {"0 D", "0 D", "0 X, 40 H", "0 X, 40 L", none},
                {"0 D", pulse, "0 X, 40 X", "0 X, 40 X", none},
                {"0 D", pulse, "0 X, 40 X", "0 X, 40 X", "0 X, 15 H"},
                {"0 D", pulse, "0 X, 40 X", "0 X, 40 X", "0 X, 15 H"},
                {"0 D", pulse, "0 X, 40 X", "0 X, 40 X", "0 X, 15 L"}});
  EXPECT_EQ(cycleEvents(dump("A"), "wrck").size(), 707U);
}

TEST_F(ImportTest, NamesAreTakenAsTheyAre) {
  expectImported(import("A", R"(STIL 1.0;
Signals { "two words" In; "top.u1[3]" In; pdata[11] In; "SET\q .SI" Out; bus[1..0] InOut; _x In; }
SignalGroups { "every one" = '"two words" + "top.u1[3]" + pdata[11] + "SET\q .SI" + bus[1..0] + _x'; }
Timing { WaveformTable "a table" { Period '10ns'; Waveforms {
  "every one" { 01LH { '0ns' D/U/L/H; } } } } }
PatternBurst b { PatList { "a pattern"; } } PatternExec { PatternBurst b; }
Pattern "a pattern" { W "a table"; Ann {* first "vector" *} "load 1": V { "every one" = 010L111; }
  V { "two words" = 1; bus[0] = H; } }
)"));
  const std::string signals = linesOf("A", "signal ");
  for (const char* name : {"\"two words\" type=scalar direction=input", "\"top.u1[3]\"",
                           "\"pdata[11]\"", "\"SET\\\\q .SI\" type=scalar direction=output",
                           "\"bus[1]\" type=scalar direction=bidir", "\"bus[0]\"", "\"_x\""}) {
    EXPECT_THAT(signals, HasSubstr(name));
  }
  EXPECT_EQ(linesOf("A", "label "), "label \"load 1\" row=0\n");
  EXPECT_THAT(rowsOf("A"), HasSubstr("prop 0 \"first \\\"vector\\\"\"\n"));
  EXPECT_THAT(linesOf("A", "timeplate "), HasSubstr("\"a table\" period=10nS"));
}

TEST_F(ImportTest, NoPatternBeginsWithTheStatesOfTheOneBefore) {
  const ProgramResult result = import(
      "A", kChip + "Pattern p { W t; V { all = 010XXZ; } }\nPattern q { W t; V { a = 1; } }\n",
      {"--pattern", "p,q"});
  EXPECT_THAT(result.err, StartsWith("A.stil:29:18: warning: 5 of 6 signals have no state yet"));
  expectEvents("A", {"a", "b", "io"}, 1, {{"0 U", "0 D", "10 Z"}, {"0 U", "-", "-"}});
}

TEST_F(ImportTest, BurstsWithoutEndAreRefused) {
  std::string bursts = "PatternBurst b0 { PatList { } }\n";
  for (int i = 1; i < 60; ++i) {
    const std::string inner = " b" + std::to_string(i - 1) + ";";
    bursts += "PatternBurst b" + std::to_string(i) + " { Procedures none; PatList {" + inner +
              inner + " } }\n";
  }
  const ProgramResult result = import("A", kChip + bursts, {"--burst", "b59"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_THAT(result.err, AllOf(HasSubstr("warning: there is nothing in Procedures 'none'"),
                                HasSubstr("error: the bursts list more than 100000 patterns")));
}

TEST_F(ImportTest, WarningsAreCountedAndManyOfAKindOnlyCounted) {
  std::string text = kChip;
  for (int i = 0; i < 25; ++i) text += "Signals { v" + std::to_string(i) + " Supply; }\n";
  const ProgramResult result =
      import("A", text + "Pattern p { W t; V { all = 010XXZ; } V { a = C; } }", {"--lenient"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.err, AllOf(HasSubstr("'v9' is left out"), Not(HasSubstr("'v10'")),
                                HasSubstr("note: 15 more such warnings [PVB0709]\n")));
  EXPECT_EQ(result.err.find("Nothing, if"), result.err.rfind("Nothing, if"));
  EXPECT_THAT(result.out, HasSubstr(", 26 warnings\n"));
}

TEST_F(ImportTest, OptionsOfAnotherKindOfFileAreRefused) {
  const ProgramResult result = import("A", kChip, {"--period", "10nS"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_THAT(result.err, StartsWith("pvb: error: --period is for VCD files only [PVB0002]"));
}

TEST_F(ImportTest, ADestinationThatCantBeMadeIsToldFirst) {
  const ProgramResult result = importFile("none/A", "nothing.stil");
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_THAT(result.err, AllOf(HasSubstr("A: error: No such file or directory [PVB0102]"),
                                Not(HasSubstr("nothing.stil"))));
}

struct Refusal {
  const char* text;   // behind the head, whose last line is 27
  const char* place;  // "LINE:COLUMN"
  const char* code;
};

TEST_F(ImportTest, RefusalsNameThePlaceAndLeaveNothing) {
  const std::vector<Refusal> refusals = {
      {"Pattern p { W t; V { all = 010XXZ; }", "28:11", "0702"},
      {"Pattern p { W t; V { all = 010XXZ } }", "28:35", "0701"},
      {"Pattern p { W none; V { in = 01; } }", "28:13", "0708"},
      {"Procedures { r { Call r; } }\nPattern p { W t; Call r; }", "28:18", "0707"},
      {"Pattern p { W t; MatchLoop Infinite { V { all = 010XXZ; } } }", "28:18", "0710"},
      {"", "26:36", "0713"},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.text);
    const ProgramResult result = import("A", kChip + refusal.text + "\n");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, StartsWith(std::string("A.stil:") + refusal.place));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("error: "), HasSubstr("[PVB" + std::string(refusal.code) + "]")));
    EXPECT_FALSE(exists("A"));
  }
}

}  // namespace
