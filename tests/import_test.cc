// What STIL texts become: each way of writing a pattern beside the same pattern written
// plainly, events of whole stretches typed by hand, and what is refused.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

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
    {"each vector keeps what it doesn't name, pulses too",
     "Pattern p { W t; V { all = P10LXZ; } V { } V { a = 0; } V { all = 001XHZ; } V { out = LL; } "
     "}",
     {"P10LXZ", "P10LXZ", "P00LXZ", "001XHZ", "001LLZ"}},
    {"a condition holds for the vectors behind it",
     "Pattern p { W t; V { all = 000XXZ; } C { a = 1; y = L; } C { b = 1; } V { } V { b = 0; }\n"
     "C { clk = P; a = 0; } W slow; V { y = X; } }",
     {"000XXZ", "011LXZ", "010LXZ", "slow", "P00XXZ"}},
    {"a load's chains end together, what is compared begins together",
     "Procedures { load_unload { W t; C { clk = 0; in = 01; out = XX; io = Z; }\n"
     "  V { } Shift { V { clk = P; in = ##; out = ##; } } } }\n"
     "Pattern p { W t; Call load_unload { a = 1011; b = 10; y = LHLH; z = HL; } }",
     {"001XXZ", "P11LHZ", "P01HLZ", "P11LXZ", "P10HXZ"}},
    {"the first load has nothing to compare, the last unload nothing to load",
     "Procedures { load_unload { W t; C { clk = 0; in = 01; out = XX; io = Z; }\n"
     "  Shift { V { clk = P; in = ##; out = ##; } } V { clk = 0; } } }\n"
     "Pattern p { W t; Call load_unload { a = 10; } Call load_unload { y = LH; } }",
     {"P11XXZ", "P01XXZ", "001XXZ", "P01LXZ", "P01HXZ", "001HXZ"}},
    {"data of a group go to its signals vector by vector",
     "Procedures { load { W t; C { all = 000XXZ; } V { in = ##; } Shift { V { a = #; b = #; } } } "
     "}\n"
     "Pattern p { W t; Call load { in = 10 01 11; } }",
     {"010XXZ", "001XXZ", "011XXZ"}},
    {"a procedure gives back states and table, a macro leaves its own",
     "Procedures { p1 { W slow; V { a = 0; y = H; } } }\n"
     "MacroDefs { m1 { W slow; V { b = 1; y = L; } } }\n"
     "Pattern p { W t; V { all = P10XXZ; } Call p1; V { } Macro m1; V { a = 0; } }",
     {"P10XXZ", "slow", "P00HXZ", "t", "P10XXZ", "slow", "P11LXZ", "P01LXZ"}},
    {"a macro takes all data of a group at once",
     "MacroDefs { m1 { V { in = %; out = %; } } }\n"
     "Pattern p { W t; C { all = 000XXZ; } Macro m1 { in = 10; out = LH; } Macro m1 { in = 01; } }",
     {"010LHZ", "001LHZ"}},
    {"what is fixed stays against vectors up to the end of its block",
     "Procedures { p1 { F { a = 0; } V { in = ##; } V { a = 1; b = 0; } } }\n"
     "Pattern p { W t; V { all = 010XXZ; } Call p1 { in = 11; } V { in = 11; } }",
     {"010XXZ", "001XXZ", "000XXZ", "011XXZ"}},
    {"a loop whose first pass is another one",
     "Pattern p { W t; V { all = 000XXZ; } Loop 3 { V { b = 1; } V { a = 1; y = L; } }\n"
     "  Loop 4 { V { all = P01XXZ; } } Loop 3 { V { a = 1; } } }",
     {"000XXZ", "001XXZ", "011LXZ", "011LXZ", "011LXZ", "011LXZ", "011LXZ", "P01XXZ", "P01XXZ",
      "P01XXZ", "P01XXZ", "P11XXZ", "P11XXZ", "P11XXZ"}},
    {"loops in loops, and a condition in one",
     "Pattern p { W t; V { all = 000XXZ; } Loop 2 { Loop 2 { V { a = 0; } V { a = 1; } }\n"
     "  C { b = 1; } } V { } }",
     {"000XXZ", "000XXZ", "010XXZ", "000XXZ", "010XXZ", "001XXZ", "011XXZ", "001XXZ", "011XXZ",
      "011XXZ"}},
    {"a procedure without data from two places",
     "Procedures { idle { V { clk = P; } V { clk = 0; } } }\n"
     "Pattern p { W t; V { all = 010XXZ; } Call idle; V { a = 0; } Call idle; Call idle; V { } }",
     {"010XXZ", "P10XXZ", "010XXZ", "000XXZ", "P00XXZ", "000XXZ", "P00XXZ", "000XXZ", "000XXZ"}},
    {"a procedure in a loop of a procedure",
     "Procedures { one { W t; V { all = P00LXZ; } } two { Loop 2 { Call one; V { } } } }\n"
     "Pattern p { W t; V { all = 011XXZ; } Call two; V { clk = P; } }",
     {"011XXZ", "P00LXZ", "011XXZ", "P00LXZ", "011XXZ", "P11XXZ"}},
    {"data over lines, repeats, comments between them, long words for short ones",
     "Pattern p { // first\n WaveformTable t; Ann {* V { all = 1; } *}\n \"l 1\": Vector { all =\n"
     "   0\\r2 1\n   /* out */ \\r2 X\tZ; }\n l2: Condition { in = \\r2 0; } V { y=L;z=H; } }",
     {"011XXZ", "000LHZ"}},
    {"groups by expression, by range and by another group",
     "SignalGroups { most = 'all - clk - io'; some = 'in - a + out'; }\n"
     "Pattern p { W t; C { clk = 0; io = Z; } V { most = 10LH; } V { some = 1XX; }\n"
     "  V { 'a + y' = 0L; } }",
     {"010LHZ", "011XXZ", "001LXZ"}},
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

// A text with windows, edges that an X ends, inherited waves, and waves that say nothing.
const std::string kShapes = R"(STIL 1.0;
Signals { c In; d In; q Out; w Out; }
SignalGroups { pins = 'c + d'; outs = 'q + w'; everything = 'pins + outs'; }
Spec s { Category k { p = '40ns'; s0 { Min '10ns'; Typ '12ns'; Max '14ns'; } } }
Timing {
  WaveformTable one {
    Period 'p';
    Waveforms {
      pins { 01 { '0ns' D/U; } }
      c { P { '0ns' U; 'p / 4' D; 'p / 2' U; } E { } }
      q { LHX { '0ns' X; 's0' l/h/X; 's0 + 8ns' X; } }
      w { LHX { '0ns' X; '30ns' L/H/X; '31ns' X; } }
      w { S { '20ns' h; } }
    }
  }
  WaveformTable two { Period 'p * 2'; InheritWaveformTable one; Waveforms { d { 1 { '5ns' U; } } } }
}
PatternBurst b { PatList { p; } }
PatternExec { Category k; PatternBurst b; }
Pattern p {
  W one;
  V { everything = 00XX; }
  V { everything = P1LH; }
  Loop 3 { V { everything = P0HL; } }
  V { c = E; }
  Loop 2 { V { everything = E1LS; } }
  W two;
  V { everything = 01XX; }
  V { everything = P0LL; }
  Loop 4 { V { d = 1; q = H; } }
  W one;
  V { everything = 11XS; }
  Loop 5 { V { c = P; d = 0; w = X; } }
}
)";

TEST_F(ImportTest, EventsOfWindowsEdgesAndEmptyWaves) {
  expectImported(import("A", kShapes));
  const std::vector<std::string> repeated = {"0 U, 10 D, 20 U", "0 D", "0 X, 12 H, 20 X",
                                             "0 X, 30 L"};
  const std::vector<std::string> inTwo = {"0 U, 10 D, 20 U", "5 U", "0 X, 12 H, 20 X", "0 X, 30 L"};
  const std::vector<std::string> last = {"0 U, 10 D, 20 U", "0 D", "0 X, 12 X, 20 X", "0 X, 30 X"};
  expectEvents("A", {"c", "d", "q", "w"}, 1,
               {{"0 D", "0 D", "0 X, 12 X, 20 X", "0 X, 30 X"},
                {"0 U, 10 D, 20 U", "0 U", "0 X, 12 L, 20 X", "0 X, 30 H"},
                repeated,
                repeated,
                repeated,
                {"-", "0 D", "0 X, 12 H, 20 X", "0 X, 30 L"},
                {"-", "0 U", "0 X, 12 L, 20 X", "20 H, 40 X"},
                {"-", "0 U", "0 X, 12 L, 20 X", "20 H, 40 X"},
                {"0 D", "5 U", "0 X, 12 X, 20 X", "0 X, 30 X"},
                {"0 U, 10 D, 20 U", "0 D", "0 X, 12 L, 20 X", "0 X, 30 L"},
                inTwo,
                inTwo,
                inTwo,
                inTwo,
                {"0 U", "0 U", "0 X, 12 X, 20 X", "20 H, 40 X"},
                last,
                last,
                last,
                last,
                last});
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

TEST_F(ImportTest, ExampleRegisterBusEventByEvent) {
  expectImported(
      importFile("A", shippedFile("examples/first-minute/bus.stil"), {"--exec", "readback"}));
  const std::string low = "0 X, 45 L", high = "0 X, 45 H";
  expectEvents(
      "A", {"clk", "sel", "data[0]", "ready"}, 17,
      {{"0 D, 25 U, 48 D", "2 D", "5 Z", "0 X, 45 X"}, {"0 D, 25 U, 48 D", "2 D", "5 Z", low},
       {"0 D, 25 U, 48 D", "2 D", "5 Z", low},         {"0 D, 25 U, 48 D", "2 D", "5 Z", low},
       {"0 D, 25 U, 48 D", "2 D", "5 Z", low},         {"0 D, 25 U, 48 D", "2 D", "5 Z", low},
       {"0 D, 25 U, 48 D", "2 D", "5 Z", low},         {"0 D, 25 U, 48 D", "2 D", "5 Z", low},
       {"0 D, 25 U, 48 D", "2 U", "5 D", low},         {"0 D, 25 U, 48 D", "2 D", "5 D", high},
       {"0 D, 25 U, 48 D", "2 U", "5 U", low},         {"0 D, 25 U, 48 D", "2 D", "5 U", high},
       {"0 D, 25 U, 48 D", "2 U", "5 D", low},         {"0 D, 25 U, 48 D", "2 D", "5 D", high},
       {"0 D, 25 U, 48 D", "2 U", "5 U", low},         {"0 D, 25 U, 48 D", "2 D", "5 U", high},
       {"0 D, 25 U, 48 D", "2 U", "5 D", low},         {"0 D, 25 U, 48 D", "2 D", "5 D", high},
       {"0 D, 25 U, 48 D", "2 U", "5 U", low},         {"0 D, 25 U, 48 D", "2 D", "5 U", high}});
  EXPECT_EQ(cycleEvents(dump("A"), "clk").size(), 606U);

  expectImported(
      importFile("B", shippedFile("examples/first-minute/bus.stil"), {"--exec", "walking"}));
  expectEvents("B", {"clk", "data[0]", "ready"}, 1,
               {{"0 D, 25 U, 48 D", "5 U", low},        {"0 D, 25 U, 48 D", "5 U", high},
                {"0 D, 25 U, 48 D", "5 Z", low},        {"0 D, 25 U, 48 D", "0 Z, 45 H", high},
                {"0 D, 25 U, 48 D", "5 Z", low},        {"0 D, 25 U, 48 D", "5 D", low},
                {"0 D, 25 U, 48 D", "5 D", high},       {"0 D, 25 U, 48 D", "5 Z", low},
                {"0 D, 25 U, 48 D", "0 Z, 45 L", high}, {"0 D, 25 U, 48 D", "5 Z", low},
                {"0 D, 25 U, 48 D", "5 D", low},        {"0 D, 25 U, 48 D", "5 D", high},
                {"0 D, 25 U, 48 D", "5 Z", low},        {"0 D, 25 U, 48 D", "0 Z, 45 L", high},
                {"0 D, 25 U, 48 D", "5 Z", low},        {"0 D, 25 U, 48 D", "5 D", low},
                {"0 D, 25 U, 48 D", "5 D", high},       {"0 D, 25 U, 48 D", "5 Z", low},
                {"0 D, 25 U, 48 D", "0 Z, 45 L", high}, {"0 D, 25 U, 48 D", "5 Z", low}});
  EXPECT_EQ(cycleEvents(dump("B"), "clk").size(), 101U);
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

TEST_F(ImportTest, APatternMayStandInAFileOfItsOwn) {
  directory().write("vectors.stil", "STIL 1.0;\nPattern p { W t; V { all = P10LHZ; } }\n");
  expectImported(import("A", kChip + "Include \"vectors.stil\" IfNeed Pattern;\n"));
  expectImported(import("B", plainly({"P10LHZ"})));
  expectSame("A", "B");
  std::filesystem::remove(directory().path("vectors.stil"));
  EXPECT_THAT(import("A", kChip + "Include \"vectors.stil\" IfNeed Pattern;\n").err,
              StartsWith("A.stil:28:9: error: "));
}

TEST_F(ImportTest, CharactersWithoutAWaveAreWarningsWhenLenient) {
  const std::string text =
      kChip + "Pattern p { W t;\n V { all = 010XXZ; }\n V { a = C; } V { a = 1; } }";
  const ProgramResult refused = import("A", text);
  EXPECT_EQ(refused.exitCode, 2);
  EXPECT_THAT(refused.err, StartsWith("A.stil:30:"));
  EXPECT_THAT(refused.err, HasSubstr("signal 'a' has no waveform for 'C' [PVB0705]"));
  EXPECT_FALSE(exists("A"));
  const ProgramResult taken = import("A", text, {"--lenient"});
  EXPECT_EQ(taken.exitCode, 0) << taken.err;
  EXPECT_THAT(taken.err, AllOf(HasSubstr("A.stil:30:"), HasSubstr("warning"), HasSubstr("'C'")));
  expectEvents("A", {"a", "clk"}, 1,
               {{"0 U", "0 D, 40 D, 60 D"}, {"-", "0 D, 40 D, 60 D"}, {"0 U", "0 D, 40 D, 60 D"}});
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

TEST_F(ImportTest, WhatNeverComesIsAWarning) {
  expectImported(import("plain", plainly({"010XXZ", "P10XXZ"})));
  const ProgramResult result = import("A", kChip + R"(
Procedures { shift { V { clk = P; } Shift { V { a = #; } } } }
Pattern p { W t; V { all = 010XXZ; } Call shift; Stop; V { all = 001XXZ; } })");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.err,
              AllOf(HasSubstr("A.stil:29:37: warning: "), HasSubstr("A.stil:30:56: warning: ")));
  expectSame("A", "plain");
}

TEST_F(ImportTest, ManyWarningsOfAKindAreCounted) {
  std::string text = kChip;
  for (int i = 0; i < 25; ++i) text += "Signals { v" + std::to_string(i) + " Supply; }\n";
  const ProgramResult result = import("A", text + "Pattern p { W t; V { all = 010XXZ; } }");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.err, AllOf(HasSubstr("'v9' is left out"), Not(HasSubstr("'v10'")),
                                HasSubstr("note: 15 more such warnings [PVB0709]\n")));
  EXPECT_EQ(result.err.find("Nothing, if"), result.err.rfind("Nothing, if"));
  EXPECT_THAT(result.out, HasSubstr(", 25 warnings\n"));
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
      {"Pattern p { W t; V { nobody = 0; } }", "28:22", "0704"},
      {"Pattern p { W t; V { in = 011; } }", "28:22", "0711"},
      {"Pattern p { W none; V { in = 01; } }", "28:13", "0708"},
      {"Pattern p { V { all = 010XXZ; } }", "28:13", "0708"},
      {"Pattern p { W t; Call none; }", "28:18", "0707"},
      {"Procedures { r { Call r; } }\nPattern p { W t; Call r; }", "28:18", "0707"},
      {"Pattern p { W t; MatchLoop Infinite { V { all = 010XXZ; } } }", "28:18", "0710"},
      {"Pattern p { W t; Goto there; }", "28:18", "0710"},
      {"Ann {* without end", "28:5", "0702"},
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
