#include "tools/stil_reader.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string described(const StilStatement& statement);

std::string described(const std::vector<StilStatement>& body) {
  std::string text;
  for (const StilStatement& statement : body) text += described(statement) + " ";
  return text;
}

// "label: V a=01 b=\h2'5A'", a loop's body between brackets.
std::string described(const StilStatement& statement) {
  static constexpr const char* kWords[] = {
      "V",   "C",    "F",      "W",    "Loop",  "MatchLoop", "Call",      "Macro",  "Shift",
      "Ann", "Goto", "Branch", "Stop", "Break", "Iddq",      "ScanChain", "unknown"};
  std::string text = statement.label.empty() ? "" : statement.label + ": ";
  text += kWords[static_cast<std::size_t>(statement.kind)];
  if (statement.count != 0) text += fmt::format(" {}", statement.count);
  if (!statement.name.empty()) text += " " + statement.name;
  for (const StilAssignment& assignment : statement.assignments) {
    text += " " + assignment.signals.text + "=" + assignment.data.characters;
    for (const StilCoded& coded : assignment.data.coded) {
      text +=
          fmt::format("[{}:{}:{}:{}]", coded.position, coded.radix, coded.characters, coded.digits);
    }
  }
  if (!statement.body.empty()) text += " ( " + described(statement.body) + ")";
  return text;
}

// A reader of one text, with what it told: "2:5: text", warnings in brackets.
struct Reading {
  std::string text;
  std::vector<std::string> told;
  StilReader reader{[this](const Message& message) {
    const std::string line = fmt::format("{}:{}: {}", message.line, message.column, message.text);
    told.push_back(message.severity == Severity::warning ? "(" + line + ")" : line);
  }};
  bool good = false;

  explicit Reading(std::string blocks) : text("STIL 1.0;\n" + std::move(blocks)) {
    good = reader.openText(text, "a.stil");
  }
  StilModel& model() { return reader.model(); }
  std::vector<std::string> statements() {
    std::vector<std::string> found;
    StilStatement statement;
    for (const StilPatternPlace& pattern : reader.model().patterns) {
      if (!reader.beginPattern(pattern)) break;
      while (reader.nextStatement(statement)) found.push_back(described(statement));
    }
    return found;
  }
};

std::vector<std::string> statementsOf(const std::string& body) {
  Reading reading("Pattern p {" + body + "}");
  const std::vector<std::string> found = reading.statements();
  EXPECT_THAT(reading.told, IsEmpty()) << body;
  return found;
}

std::string toldOf(const std::string& blocks) {
  Reading reading(blocks);
  reading.statements();
  EXPECT_EQ(reading.told.size(), 1U) << blocks.substr(0, 200);
  return reading.told.empty() ? "" : reading.told.back();
}

TEST(StilReader, ReadsSignalsGroupsAndChains) {
  Reading reading(
      "Header { Title \"t\"; Date \"d\"; History { Ann {* h *} } }\n"
      "Signals { a In; \"b c\" Out { ScanOut; } Bus[2..1] InOut { ScanIn 7; Base Dec LHT;"
      " Alignment LSB; DefaultState ForceUp; Termination TerminateHigh; }\n"
      " \"q[0..1]\" In; \"q\"[0..1] Supply; }\n"
      "SignalGroups d { g = 'a + \"b c\"' { ScanIn 4; } h = g; i = a + \"b c\"; }\n"
      "ScanStructures { ScanChain c { ScanLength 9; ScanIn a; ScanOut \"b c\"; ScanInversion 1;\n"
      " ScanCells ! x \"y \\z\" !w r[1..0]; { u ; v ! t ;}; } }");
  ASSERT_TRUE(reading.good);
  EXPECT_THAT(reading.told, IsEmpty());
  std::vector<std::string> names;
  for (const StilSignal& signal : reading.model().signals) names.push_back(signal.name);
  EXPECT_THAT(names, ElementsAre("a", "b c", "Bus[2]", "Bus[1]", "q[0..1]", "q[0]", "q[1]"));
  const StilSignal& bus = reading.model().signals[3];
  EXPECT_EQ(bus.direction, StilDirection::inOut);
  EXPECT_EQ(bus.attributes.scanIn, 7U);
  EXPECT_EQ(bus.attributes.base->radix, 10);
  EXPECT_EQ(bus.attributes.base->characters, "LHT");
  EXPECT_EQ(bus.attributes.defaultState, 'U');
  EXPECT_FALSE(bus.attributes.alignLeft);
  EXPECT_EQ(reading.model().signals[1].attributes.scanOut, 0U);

  const std::vector<StilGroup>& groups = reading.model().groups;
  ASSERT_EQ(groups.size(), 3U);
  EXPECT_EQ(groups[0].domain, "d");
  EXPECT_EQ(groups[0].attributes.scanIn, 4U);
  EXPECT_TRUE(groups[0].members.expression);
  EXPECT_FALSE(groups[1].members.expression);
  EXPECT_EQ(groups[2].members.text, "\"a\" + \"b c\"");

  const StilChain& chain = reading.model().chains.at(0);
  EXPECT_EQ(chain.length, 9U);
  EXPECT_EQ(chain.scanOut, "b c");
  EXPECT_THAT(chain.cells,
              ElementsAre("!", "x", "y \\z", "!", "w", "r[1]", "r[0]", "u", "v", "!", "t"));
}

std::string described(const StilTable& table) {
  std::string text = table.domain + "." + table.name + " " + table.period;
  for (const StilWave& wave : table.waves) {
    text += " " + wave.signals.text + "/" + wave.characters;
    for (const StilEvent& event : wave.events) {
      text += " " + event.time + ":";
      for (const StilState& state : event.states) {
        text += state.state != 0 ? std::string(1, state.state) : "?" + state.other;
      }
    }
  }
  return text;
}

TEST(StilReader, ReadsTimingAndItsValues) {
  Reading reading(
      "Timing t { WaveformTable w { Period '100ns'; InheritWaveformTable v; Waveforms {\n"
      " a { 01Z { '0ns' D / U/Z; 'x + 1' ForceDown/ForceUp/ForceOff; } P { e: '5ns' x; l; } }\n"
      " 'a + b' { 01 { } } \"q\"[0..1] { C { '0ns' ?; '1ns' CompareValidWindow; } } } }\n"
      " SignalGroups sg; }\n"
      "Spec s { Category c { u = '1ns'; v '2ns'; w { Min '1'; Typ = '2'; Max '3'; Meas '4'; } }\n"
      " Variable x { c = 5ns; } }\n"
      "Selector l { u Min; v Meas; }");
  ASSERT_TRUE(reading.good);
  EXPECT_THAT(reading.told, IsEmpty());
  const StilTable& table = reading.model().tables.at(0);
  EXPECT_EQ(described(table),
            "t.w 100ns a/01Z 0ns:DUZ x + 1:DUZ a/P 5ns:X :l a + b/01 q[0..1]/C 0ns:?? "
            "1ns:?CompareValidWindow");
  EXPECT_THAT(table.signalGroups, ElementsAre("sg"));
  EXPECT_THAT(table.inherit, ElementsAre("v"));
  const std::vector<StilSpecEntry>& entries = reading.model().specs.at(0).entries;
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(entries[1].value.typ, "2ns");
  EXPECT_EQ(entries[2].value.min.value() + entries[2].value.typ.value() +
                entries[2].value.max.value() + entries[2].value.meas.value(),
            "1234");
  EXPECT_EQ(entries[3].variable + entries[3].category + *entries[3].value.typ, "xc5ns");
  EXPECT_EQ(reading.model().selectors.at(0).entries.at(1).second, StilSelected::meas);
}

TEST(StilReader, ReadsBurstsExecsAndRoutines) {
  Reading reading(
      "PatternBurst b { SignalGroups g; PatList { p; \"q r\" { MacroDefs m; Procedures n; } }\n"
      " ParallelPatList LockStep { s; } }\n"
      "PatternExec { Timing t; Category c; Selector l; PatternBurst b; }\n"
      "Procedures d { \"load\" { W w; C { a=0; } Shift { V { a=#; } } } }\n"
      "MacroDefs { m { Ann {* x *} V { g=%; } } }");
  ASSERT_TRUE(reading.good);
  EXPECT_THAT(reading.told, IsEmpty());
  const StilBurst& burst = reading.model().bursts.at(0);
  ASSERT_EQ(burst.entries.size(), 3U);
  EXPECT_THAT(burst.domains.signalGroups, ElementsAre("g"));
  EXPECT_EQ(burst.entries[1].name, "q r");
  EXPECT_THAT(burst.entries[1].domains.procedures, ElementsAre("n"));
  EXPECT_EQ(reading.model().execs.at(0).timing, "t");
  EXPECT_EQ(reading.model().procedures.at(0).domain, "d");
  EXPECT_EQ(described(reading.model().procedures[0].body), "W w C a=0 Shift ( V a=# ) ");
  EXPECT_EQ(described(reading.model().macros.at(0).body), "Ann  x  V g=% ");
}

TEST(StilReader, ReadsTheStatementsOfPatterns) {
  EXPECT_THAT(
      statementsOf("l: W w; \"a b\": V { a=01; 'b + c'=1; } V { } ; Vector { Bus[0..3]=\n01\n10; }"
                   "Call p; Call \"q\" { x=1; Ann {* y *} } Macro m { z=0; } F { a=1; }"
                   "Goto l; Stop; IddqTestPoint; ScanChain c; BreakPoint; V: Condition { }"),
      ElementsAre("l: W w", "a b: V a=01 b + c=1", "V", "V Bus[0..3]=0110", "Call p", "Call q x=1",
                  "Macro m z=0", "F a=1", "Goto l", "Stop", "Iddq", "ScanChain c", "Break",
                  "V: C"));
  // Room is used again: nothing of a statement stays in the next.
  EXPECT_THAT(
      statementsOf("Loop 3 { x: V { a=1; b=2; } V { a=3; } Ann {* n *} } Ann {* m *} Loop 2"
                   " { V { c=1; } } V { } BreakPoint { Stop; } BreakPoint;"
                   "MatchLoop Infinite { Loop 18446744073709551615 { W w; } }"),
      ElementsAre("Loop 3 ( x: V a=1 b=2 V a=3 Ann  n  )", "Ann  m ", "Loop 2 ( V c=1 )", "V",
                  "Break ( Stop )", "Break", "MatchLoop ( Loop 18446744073709551615 ( W w ) )"));
}

TEST(StilReader, WritesDataOut) {
  const std::pair<const char*, const char*> cases[] = {
      {"01 \n LH", "01LH"},
      {"\\r4 X", "XXXX"},
      {"\\r3 N 0\\r2 N 0NN", "NNN0NN0NN"},
      {"\\r2 01 Z", "0101Z"},
      {"\\r0 X 1", "1"},
      {"\\r4X", "XXXX"},
      {"\"01\"", "01"},
      {"1\\hA5", "1[1:16::A5]"},
      {"\\h A5 0f \\w LH", "LH[0:16::A50f]"},
      {"\\hLH A5 \\d12", "[0:16:LH:A5][0:10::12]"},
      {"\\h \\r3 F", "[0:16::FFF]"},
  };
  for (const auto& [written, meant] : cases) {
    EXPECT_THAT(statementsOf(fmt::format("V {{ a={}; }}", written)),
                ElementsAre(std::string("V a=") + meant));
  }
}

TEST(StilReader, WarnsOnceOfWhatItPassesOver) {
  Reading reading(
      "UserKeywords mine;\nmine x { { } }\nmine;\nEnvironment e { }\nOdd \"x\" { y; }\n"
      "PatternBurst b { Start s; PatList { p; } }\n"
      "Pattern p { Maybe 'x' { V { } } V { } Maybe 'y' { } }");
  EXPECT_TRUE(reading.good);
  EXPECT_THAT(reading.statements(), ElementsAre("unknown Maybe", "V", "unknown Maybe"));
  EXPECT_THAT(reading.told,
              ElementsAre("(3:1: mine is a keyword of the user)", "(5:1: Environment is left out)",
                          "(6:1: Odd is no statement of a STIL text)",
                          "(7:18: Start: the pattern is taken whole, from its first statement to "
                          "its last)",
                          "(8:13: Maybe is no statement of a pattern)"));
}

TEST(StilReader, TellsPlaceFoundAndExpected) {
  const std::pair<const char*, const char*> cases[] = {
      {"Signals { a Inn; }", "2:13: In, Out, InOut, Supply or Pseudo is expected, not Inn"},
      {"Signals { a In; a Out; }", "2:17: the signal \"a\" is there already"},
      {"Signals { Bus[0..200000] In; }", "2:11: there are more than 131072 signals"},
      {"Signals { a In { ScanIn 4294967296; } }", "2:25: 4294967296 is more than 2147483648"},
      {"Signals {\n a In;", "2:9: the block of Signals has no '}'"},
      {"SignalGroups { a 'b'; }", "2:18: '=' is expected, not 'b'"},
      {"ScanStructures { ScanChain c { ScanCells x[0..4000000000]; } }",
       "2:58: ranges name more than 1048576 scan cells"},
      {"Timing { WaveformTable w { Waveforms { a { 01 { '0ns' D/Q2; } } } } }",
       "2:55: Q2 is no event; a state such as D, U, Z, L, H or X is expected"},
      {"Timing { WaveformTable w { Waveforms { a { 01 { '0ns' D U; } } } } }",
       "2:57: '/' is expected between states"},
      {"Timing { WaveformTable w { Waveforms { a { 01 { '0ns'; } } } } }",
       "2:54: a state is expected, not ';'"},
      {"Timing { WaveformTable w { Waveforms { a { 01Z { '0ns' D/U; } } } } }",
       "2:56: there are 2 states for the 3 characters \"01Z\""},
      {"Timing { WaveformTable w { SubWaveforms { } } }",
       "2:28: SubWaveforms would change the waveforms"},
      {"PatternBurst b { ParallelPatList { p; q; } }",
       "2:18: ParallelPatList runs several patterns side by side"},
      {"Pattern p { V { a=01 } }", "2:22: data or ';' is expected, not '}'"},
      {"Pattern p { V { a; } }", "2:18: '=' is expected, not ';'"},
      {"Pattern p { V { a=; } }", "2:19: data is expected, not ';'"},
      {"Pattern p { V { =01; } }", "2:17: a signal or a group is expected, not '='"},
      {"Pattern p { 0101; }", "2:13: a statement is expected, not 0101"},
      {"Pattern p { \"l\" V { } }", "2:17: ':' behind the label is expected, not V"},
      {"Pattern p { a: b: V { } }", "2:17: a statement behind the label is expected, not ':'"},
      {"Pattern p { Loop x { } }", "2:18: how many times is expected, not x"},
      {"Pattern p { Loop 18446744073709551616 { } }",
       "2:18: 18446744073709551616 is more than 18446744073709551615"},
      {"Pattern p { Call p { a=\\m 01; } }",
       "2:24: data with \\m can't be read; \\r, \\h, \\d and \\w can"},
      {"Pattern p { V { a=\\h 0G; } }", "2:22: a hexadecimal number is expected, not 0G"},
      {"Pattern p { V { a=\\r999999999 X; } }", "2:19: data are repeated more than 67108864 times"},
      {"Pattern p { V { a=\\r9999999 0123456789; } }",
       "2:29: the data of one assignment are more than 67108864 characters"},
      {"Pattern p { V { a=\\r3 ; } }", "2:23: data behind \\r is expected, not ';'"},
      {"Pattern p { V { a=\\r; } }", "2:19: a number behind \\r is expected, not \\r"},
      {"Pattern p { Include \"b\"; }", "2:13: a file can be included between blocks only"},
      {"Procedures d { p { } } Procedures { p { } } Procedures d { p { } }",
       "2:60: the procedure \"p\" is there already"},
      {"Include \"b.stil\";", "2:9: b.stil can't be read: a text in memory includes no files"},
  };
  for (const auto& [text, told] : cases) EXPECT_EQ(toldOf(text), told) << text;
}

TEST(StilReader, BoundsNestingAndRoom) {
  std::string deep = "Pattern p { ";
  for (int i = 0; i < 10000; ++i) deep += "Shift { ";
  EXPECT_THAT(toldOf(deep + std::string(10001, '}')), HasSubstr("nested deeper than 64 levels"));
  EXPECT_EQ(toldOf("Pattern p " + std::string(10000, '{')).substr(0, 3), "2:1");

  std::string wide = "Pattern p { V { ";
  for (int i = 0; i < 5; ++i) wide += "a=\\r67000000 X; ";
  EXPECT_THAT(toldOf(wide + "} }"), HasSubstr("would take up more than"));
}

TEST(StilReader, EachTruncationFailsOnceOrIsWhole) {
  const std::string whole =
      "Signals { a In { ScanIn 3; } } Timing { WaveformTable w { Waveforms { a { 01 { '0ns' D/U;\n"
      "} } } } } Procedures { p { Loop 2 { V { a=\\r2 0; } } } } Pattern q { \"l\": Call p { a=0; "
      "} }";
  for (std::size_t size = 1; size < whole.size(); ++size) {
    Reading reading(whole.substr(0, size));
    const auto errors = std::count_if(reading.told.begin(), reading.told.end(),
                                      [](const auto& told) { return told.front() != '('; });
    EXPECT_EQ(errors, reading.good ? 0 : 1) << size;
    EXPECT_EQ(reading.good, !reading.reader.failed()) << size;
  }
}

class StilIncludes : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& text) {
    std::ofstream(files_.path(name)) << text;
  }
  bool open(const std::string& name) {
    reader_ = std::make_unique<StilReader>(
        [this](const Message& message) { told_.push_back(message.text); });
    return reader_->open(files_.path(name));
  }

  TempDir files_;
  std::vector<std::string> told_;
  std::unique_ptr<StilReader> reader_;
};

TEST_F(StilIncludes, AreReadWhereTheyStand) {
  std::filesystem::create_directory(files_.path("sub"));
  write("a.stil",
        "STIL 1.0; Include \"sub/b.stil\"; Include \"sub/c.stil\" IfNeed Pattern;\n"
        "Signals { last In; }");
  write("sub/b.stil", "STIL 1.0; Signals { first In; } Include \"c.stil\" IfNeed Pattern;");
  write("sub/c.stil", "Pattern p { Stop; }");
  ASSERT_TRUE(open("a.stil"));
  const StilModel& model = reader_->model();
  EXPECT_THAT(model.files, ElementsAre(files_.path("a.stil"), files_.path("sub/b.stil"),
                                       files_.path("sub/c.stil")));
  EXPECT_EQ(model.signals.at(0).name + model.signals.at(1).name, "firstlast");
  ASSERT_EQ(model.patterns.size(), 1U);
  EXPECT_EQ(model.patterns[0].body.file, 2U);
  StilStatement statement;
  ASSERT_TRUE(reader_->beginPattern(model.patterns[0]));
  EXPECT_TRUE(reader_->nextStatement(statement));
  EXPECT_FALSE(reader_->nextStatement(statement));
  EXPECT_FALSE(reader_->failed());
}

TEST_F(StilIncludes, AreBoundedAndPlainFiles) {
  write("self.stil", "STIL 1.0; Include \"self.stil\";");
  EXPECT_FALSE(open("self.stil"));
  write("other.stil", "STIL 1.0; Include \"./other.stil\";");
  EXPECT_FALSE(open("other.stil"));
  write("many.stil", "STIL 1.0; Include \"twice\";");
  write("twice", "Include \"./empty\"; Include \"empty\";");
  write("empty", "");
  EXPECT_TRUE(open("many.stil"));
  write("device.stil", "STIL 1.0; Include \"/dev/zero\";");
  EXPECT_FALSE(open("device.stil"));
  EXPECT_FALSE(open("missing.stil"));
  ASSERT_EQ(told_.size(), 4U);
  EXPECT_THAT(told_[0], HasSubstr("includes itself"));
  EXPECT_THAT(told_[1], HasSubstr("more than 16 deep"));
  EXPECT_THAT(told_[2], HasSubstr("isn't a plain file"));
}

}  // namespace
