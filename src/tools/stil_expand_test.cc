#include "tools/stil_expand.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "base/errors.h"
#include "support/dump_support.h"
#include "tools/import_stil.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Columns: a, b, y, then io as input and as output.
constexpr std::string_view kHead = R"(STIL 1.0;
Signals { a In; b In; y Out; io InOut; }
SignalGroups { ins = 'a + b'; all = 'ins + y + io'; }
ScanStructures { ScanChain c { ScanLength 3; ScanIn b; ScanOut y; } }
Timing {
  WaveformTable t { Period '100ns'; Waveforms {
    ins { 01 { '0ns' D/U; } } y { LHX { '50ns' L/H/X; } }
    io { 01 { '0ns' D/U; } LHX { '50ns' L/H/X; } } } }
  WaveformTable u { Period '200ns'; Waveforms {
    ins { 01 { '0ns' D/U; } } y { LHX { '50ns' L/H/X; } } } }
}
)";
constexpr std::string_view kInit = " W t; C { all = 00X0; } ";

class StilExpandTest : public testing::Test {
 protected:
  // Imports a pattern and the blocks in front of it; the rows, without what is the same
  // in all tests: "10X0- x3", "u 10X0-" for those of the other table, "call sub".
  std::vector<std::string> rows(const std::string& blocks, const std::string& statements,
                                const ImportOptions& options = {}) {
    messages_.clear();
    const std::string name = fmt::format("db{}", ++databases_);
    const std::string text =
        fmt::format("{}{}Pattern p {{{}{}}}\n", kHead, blocks, kInit, statements);
    const auto keep = [this](const Message& message) { messages_.push_back(message.text); };
    counts_ = {};
    const bool good = importStilText(text, options, directory_.path(name), keep, counts_, limits_);
    PBdiscardErrors();
    if (!good) return {"failed"};
    return shortRows(directory_.dump(name));
  }
  std::vector<std::string> rows(const std::string& statements) { return rows("", statements); }

  std::vector<std::string> messages_;
  ImportCounts counts_;
  StilExpandOptions limits_;

 private:
  static std::vector<std::string> shortRows(const std::string& dump) {
    std::vector<std::string> result;
    std::istringstream lines(dump.substr(dump.find("rows main\n") + 10));
    for (std::string line; std::getline(lines, line) && line != "done";) {
      line.erase(0, line.find_first_not_of(' '));
      result.push_back(line.starts_with("row ") ? shortRow(line) : line);
    }
    return result;
  }
  // `row "t_1" x3 |10X0-`
  static std::string shortRow(const std::string& line) {
    const std::size_t bar = line.find('|');
    const std::size_t count = line.find(" x");
    std::string result = line[5] == 't' ? "" : std::string(1, line[5]) + " ";
    result += line.substr(bar + 1);
    if (count < bar) result += line.substr(count, bar - count - 1);
    return result;
  }

  DumpDirectory directory_;
  int databases_ = 0;
};

TEST_F(StilExpandTest, VectorsKeepWhatIsNotAssigned) {
  EXPECT_THAT(rows("V { } V { ins = 10; io = H; } C { b = 1; } V { y = L; } V { ins = 1; }"),
              ElementsAre("00X0", "10X-1", "110-1", "110-1"));
  EXPECT_THAT(messages_, IsEmpty());
}

TEST_F(StilExpandTest, FixedStatesHoldToTheEndOfTheirBlock) {
  EXPECT_THAT(rows("MacroDefs { m { F { a = 1; } V { a = 0; b = 1; } } }",
                   "Macro m; V { a = 0; } F { b = 0; } V { ins = 11; } Macro m;"),
              ElementsAre("11X0", "01X0", "10X0", "10X0"));
}

TEST_F(StilExpandTest, CodedDataGoByTheBase) {
  EXPECT_THAT(rows("SignalGroups { bus = 'a + b' { Base Hex 01; Alignment LSB; } "
                   "cmp = 'y' { Base Hex LHX; } }",
                   R"(V { bus = \h 2; } V { bus = \d 1; } V { cmp = \h 4; })"),
              ElementsAre("10X0", "01X0", "0110"));
}

// The text of the message and the statements that give it.
TEST_F(StilExpandTest, RefusesWhatCantBeMeant) {
  const std::string routines =
      "Procedures { p1 { Call p2; } p2 { Call p1; } s { Shift { Shift { V { a = #; } } } } "
      "q { V { ins = ##; } } }";
  const std::pair<const char*, const char*> cases[] = {
      {"V { all = 01; }", "2 characters for the 4 signals of 'all'"},
      {"V { nobody = 0; }", "nobody"},
      {"V { a = L; }", "signal 'a' has no waveform for 'L'"},
      {"W u; V { }", "signal 'io' has no waveform for '0'"},
      {"W none;", "there is no WaveformTable 'none'"},
      {"Call none;", "there is no procedure 'none'"},
      {"Call p1;", "'p1' calls itself"},
      {"Macro q;", "there is no macro 'q'"},
      {"Call s { a = 01; }", "a Shift within a Shift"},
      {"Call q { ins = 011; }", "3 characters for the 2 signals of 'ins'"},
      {"Goto x;", "a Goto has no counterpart"},
      {"While 'n < 2' { V { a = 1; } }", "While has no counterpart"},
      {"MatchLoop 3 { V { } }", "a MatchLoop has no counterpart"},
      {"Loop 4294967296 { V { } }", "4294967296 passes are more than a row can count"},
      {R"(V { ins = \h 9; })", "doesn't give 2 characters"},
  };
  for (const auto& [statements, message] : cases) {
    EXPECT_THAT(rows(routines, statements), ElementsAre("failed")) << statements;
    ASSERT_EQ(messages_.size(), 1U) << statements;
    EXPECT_THAT(messages_.front(), HasSubstr(message));
  }
}

TEST_F(StilExpandTest, SignalsAreLeftAloneUntilTheyHaveAState) {
  rows("Pattern other { W t; C { ins = 00; } V { y = L; } V { io = 1; } }", "");
  EXPECT_THAT(messages_, ElementsAre(HasSubstr("'other', 'p'")));
  ImportOptions options;
  options.patterns = {"other"};
  EXPECT_THAT(
      rows("Pattern other { W t; C { ins = 00; } V { y = L; } V { io = 1; } }", "", options),
      ElementsAre("000", "0001"));
  EXPECT_THAT(messages_, ElementsAre("1 of 4 signals have no state yet, the first is 'io'"));
}

TEST_F(StilExpandTest, LenientImportsLeaveOutWhatHasNoWave) {
  ImportOptions options;
  options.lenient = true;
  EXPECT_THAT(rows("", "V { a = L; } V { } V { a = 1; } MatchLoop 2 { V { } }", options),
              ElementsAre("-0X0", "-0X0", "10X0", "10X0 x2"));
  EXPECT_THAT(messages_,
              ElementsAre("signal 'a' has no waveform for 'L'", "a MatchLoop is taken as a loop"));
}

// --- Calls ---------------------------------------------------------------------------

TEST_F(StilExpandTest, ProceduresWithoutDataAreSubroutinesForEachOfTheirBeginnings) {
  EXPECT_THAT(rows("Procedures { s { V { a = 1; } W u; C { io = X; } } }",
                   "Call s; V { } C { a = 1; } Call s; C { b = 1; } Call s;"),
              ElementsAre("call \"s\"", "00X0", "call \"s\"", "call \"s_2\"", "rows 0", "10X0",
                          "rows 1", "11X0"));
  EXPECT_EQ(counts_.cycles, 4U);
}

TEST_F(StilExpandTest, BeyondTheMostVariantsRowsStandInPlace) {
  std::string statements;
  for (std::size_t i = 0; i <= StilExpand::kMostVariants; ++i) {
    statements += fmt::format("C {{ b = {}; y = {}; io = {}; }} Call s;", "01"[i % 2],
                              "LHX"[i / 2 % 3], "01LHX"[i / 6]);
  }
  rows("Procedures { s { V { a = 1; } } }", statements);
  EXPECT_EQ(counts_.rows, 2 * StilExpand::kMostVariants + 1);
}

TEST_F(StilExpandTest, PatternsOfABurstFollowEachOther) {
  EXPECT_THAT(rows("PatternBurst b { PatList { p; q; p; } } PatternExec { PatternBurst b; } "
                   "Pattern q { W t; C { all = 11H1; } l: V { } Stop; V { } }",
                   "V { }"),
              ElementsAre("00X0", "1111", "00X0", "label \"p\" row=0", "label \"q\" row=1",
                          "label \"l\" row=1", "label \"p\" row=2"));
  EXPECT_THAT(messages_, ElementsAre("what follows a Stop is left out"));
}

// --- Loops ---------------------------------------------------------------------------

TEST_F(StilExpandTest, LoopsRepeatARowOrABody) {
  EXPECT_THAT(rows("Loop 3 { W t; V { a = 1; } } Loop 2 { V { b = 1; } V { } } Loop 0 { V { } }"),
              ElementsAre("10X0 x3", "loop x2", "11X0", "11X0", "end"));
  EXPECT_EQ(counts_.cycles, 7U);
}

TEST_F(StilExpandTest, AFirstPassThatDiffersStandsInFront) {
  EXPECT_THAT(rows("Loop 3 { V { b = 1; } l: V { a = 1; } }"),
              ElementsAre("01X0", "11X0", "loop x2", "11X0", "11X0", "end", "label \"l\" row=1"));
  EXPECT_THAT(rows("Loop 2 { V { } W u; C { io = X; } }"), ElementsAre("failed"));
  EXPECT_THAT(rows("C { io = H; } Loop 2 { V { } Loop 2 { V { a = 1; } V { y = L; } } }"),
              ElementsAre("00X-1", "10X-1", "100-1", "100-1", "100-1", "100-1", "loop x2", "100-1",
                          "100-1", "end"));
}

// --- Data ----------------------------------------------------------------------------

constexpr const char* kShifts =
    "Procedures { q { V { a = 1; } Shift { l: V { ins = ##; y = #; } } V { a = 1; } }"
    "             two { Shift { V { ins = #; y = L; } V { a = #; } } }"
    "             w { V { ins = %; } V { ins = %; y = #; } } "
    "             n { Loop 4 { V { a = #; } } } }"
    "MacroDefs { in { V { a = #; } V { a = #; } } out { V { a = #; } Macro in { a = #; } } }";

TEST_F(StilExpandTest, LoadsEndTogetherAndComparisonsBeginTogether) {
  EXPECT_THAT(
      rows(kShifts, "C { b = 1; } one: Call q { a = 0101; b = 00; y = HL; } V { }"),
      ElementsAre("11X0", "0110", "1100", "00X0", "10X0", "10X0", "01X0", "label \"one\" row=0"));
  EXPECT_THAT(messages_, IsEmpty());
}

TEST_F(StilExpandTest, DataOfAGroupAreOneCharacterASignalAndVector) {
  EXPECT_THAT(rows(kShifts, "Call q { ins = 0110; } Call two { ins = 0110; a = 011; }"),
              ElementsAre("10X0", "01X0", "10X0", "10X0", "0100", "0100", "1000", "1000"));
}

TEST_F(StilExpandTest, AShiftWithoutDataIsAsLongAsItsChain) {
  EXPECT_THAT(rows(kShifts, "Call q;"), ElementsAre("10X0", "10X0 x3", "10X0"));
  EXPECT_THAT(rows("Procedures { s { Shift { V { io = #; } } } }", "Call s;"), IsEmpty());
  EXPECT_THAT(messages_,
              ElementsAre("a Shift without data on chains of unknown length does nothing"));
}

TEST_F(StilExpandTest, PercentTakesOnceAndDataThatEndHold) {
  EXPECT_THAT(rows(kShifts, "Call w { ins = 10; y = H; } Call n { a = 01; }"),
              ElementsAre("10X0", "1010", "00X0", "10X0", "10X0", "10X0"));
  EXPECT_THAT(rows(kShifts, "Macro out { a = 101; }"), ElementsAre("10X0", "00X0", "10X0"));
}

TEST_F(StilExpandTest, WarnsOnceOfDataThatNothingTakes) {
  EXPECT_THAT(rows(kShifts, "Call w { io = 1; ins = 0110; } Call w { io = 1; }"),
              ElementsAre("01X0", "01X0", "00X0", "00X0"));
  EXPECT_THAT(messages_, ElementsAre("'w' takes no data for 'io'",
                                     "'w' takes 1 of 2 characters for each signal of 'ins'"));
}

TEST_F(StilExpandTest, HostilePatternsEnd) {
  std::string macros = "MacroDefs { m0 { C { a = 1; } }";
  for (int i = 1; i < 60; ++i)
    macros += fmt::format(" m{} {{ Macro m{}; Macro m{}; }}", i, i - 1, i - 1);
  limits_.mostIdle = 10000;
  EXPECT_THAT(rows(macros + "}", "Macro m59;"), ElementsAre("failed"));
  EXPECT_THAT(messages_, ElementsAre("statements go on without a vector"));
  limits_.mostRows = 10;
  rows("Procedures { s { V { a = #; } V { } } }", "Loop 20 { Call s { a = 1; } V { } } V { } ");
  EXPECT_EQ(counts_.cycles, 61U);
  ImportOptions flat;
  flat.flat = true;
  EXPECT_THAT(rows("", "Loop 4000000000 { V { } V { } }", flat), ElementsAre("failed"));
  EXPECT_THAT(messages_, ElementsAre("the pattern has too many rows"));
}

}  // namespace
