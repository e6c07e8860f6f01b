// Waves of a text are written a row for each signal and character, and read back as what
// the rows mean.

#include "tools/stil_timing.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "base/errors.h"
#include "pvb/pattern.h"
#include "support/dump_support.h"
#include "tools/meaning.h"
#include "tools/stil_expression.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::string_view kSignals = R"(STIL 1.0;
Signals { a In; b In; y Out; z Out; d InOut; }
SignalGroups { ins = 'a + b'; outs = 'y + z'; all = 'ins + outs + d'; }
)";

class StilTimingTest : public testing::Test {
 protected:
  void TearDown() override { close(); }

  void close() {
    if (database_ < 0) return;
    writer_->abandon();
    PVBcloseUnsaved(database_);
    database_ = -1;
    std::filesystem::remove_all(directory_.path());
    PBdiscardErrors();
  }

  // Reads signals and a text; false after a message.
  bool read(const std::string& text, bool lenient = false) {
    close();
    messages_.clear();
    text_ = std::string(kSignals) + text;
    reader_ = std::make_unique<StilReader>([&](const Message& message) {
      messages_.push_back(std::to_string(message.line - 3) + " " + messageCodeText(message.code) +
                          " " + message.text);
    });
    equations_ = ssNew();
    if (!reader_->openText(text_, "text")) return false;
    const StilModel& model = reader_->model();
    names_ = std::make_unique<StilNames>(model, std::vector<std::string>{});
    timing_ = std::make_unique<StilTiming>(*reader_);
    if (!timing_->readSpecs(choice_, equations_)) return false;
    database_ = PVBopenAny(directory_.path(), true, 8, 16, kAllSections, false);
    writer_ = std::make_unique<PatternWriter>(database_, &equations_);
    const std::vector<SignalDirection> directions = {INPUT, INPUT, OUTPUT, OUTPUT, BIDIR};
    std::vector<WriterSignal> signals;
    for (std::size_t i = 0; i < directions.size(); ++i) {
      signals.push_back({model.signals[i].name, directions[i]});
    }
    return writer_->addSignals(signals) &&
           timing_->readTables(choice_, *names_, equations_, directions, lenient, *writer_);
  }
  // The same with one table "w" of 100 nanoseconds.
  bool waves(const std::string& waves, bool lenient = false) {
    return read("Timing { WaveformTable w { Period '100ns'; Waveforms {\n" + waves + "}}}\n",
                lenient);
  }

  const StilCharacters& characters(char signal, const std::string& table = "w") {
    return timing_->characters(static_cast<std::size_t>(timing_->table(table)),
                               static_cast<std::uint32_t>(names_->signal({&signal, 1})));
  }
  // What each character of a signal does, "-" where it does nothing.
  std::vector<std::string> events(char signal, const std::string& table = "w") {
    const auto number = static_cast<std::uint32_t>(names_->signal({&signal, 1}));
    const StilCharacters& all = characters(signal, table);
    writer_->useTable(static_cast<std::size_t>(timing_->table(table)));
    const std::vector<const PVBsignal*> signals = {
        PVBsignalInqByName(database_, std::string(1, signal))};
    std::vector<std::string> lines;
    for (std::size_t c = 0; c < all.size(); ++c) {
      if (!all[c].defined) continue;
      writer_->set(number, all[c].cycle);
      EXPECT_TRUE(writer_->cycle()) << writer_->failure();
      lines.push_back(std::string(1, static_cast<char>(c)) + ": " + lastRow(signals));
    }
    writer_->set(number, {});
    return lines;
  }
  std::string lastRow(const std::vector<const PVBsignal*>& signals) {
    EventStore store;
    Meaning meaning(database_, store, signals, PreviousMode::literal);
    PVBposition position;
    position.row = static_cast<std::uint32_t>(writer_->rowCount() - 1);
    const RowHandle row(database_, PVBpatternInqRow(database_, kMainPattern, position, BY_ROW));
    return store.text(meaning.events(meaning.plate(row->timeplate), *row, 0));
  }

  DumpDirectory directory_;
  std::string text_;
  StilTimingChoice choice_;
  ssData equations_;
  std::vector<std::string> messages_;
  std::unique_ptr<StilReader> reader_;
  std::unique_ptr<StilNames> names_;
  std::unique_ptr<StilTiming> timing_;
  std::unique_ptr<PatternWriter> writer_;
  int database_ = -1;
};

TEST_F(StilTimingTest, LevelsShareAShapeAndPulsesHaveTheirOwn) {
  ASSERT_TRUE(waves("ins { 01ZN { '10ns' D/U/Z/N; }} a { P { '0ns' D; '45ns' U; '55ns' D; }}"))
      << messages_[0];
  EXPECT_THAT(events('a'), ElementsAre("0: 10nS D", "1: 10nS U", "N: 10nS N",
                                       "P: 0pS D, 45nS U, 55nS D", "Z: 10nS Z"));
  EXPECT_THAT(events('b'), ElementsAre("0: 10nS D", "1: 10nS U", "N: 10nS N", "Z: 10nS Z"));
  EXPECT_EQ(characters('a')['0'].cycle, characters('b')['0'].cycle);
  EXPECT_EQ(characters('a')['1'].cycle.in, characters('a')['Z'].cycle.in);
  EXPECT_NE(characters('a')['P'].cycle.in, characters('a')['0'].cycle.in);
}

TEST_F(StilTimingTest, DataChooseThePulseAndItsSurroundings) {
  ASSERT_TRUE(
      waves("a { 01 { '0ns' D; '40ns' D/U; '50ns' D; }}\n"
            "b { 01 { '0ns' U/D; '40ns' D/U; '50ns' U/D; } 2 { '0ns' P; '40ns' U; }}"));
  EXPECT_THAT(events('a'), ElementsAre("0: 0pS D, 40nS D, 50nS D", "1: 0pS D, 40nS U, 50nS D"));
  EXPECT_THAT(events('b'), ElementsAre("0: 0pS U, 40nS D, 50nS U", "1: 0pS D, 40nS U, 50nS D",
                                       "2: 0pS P, 40nS U"));
  EXPECT_EQ(characters('a')['0'].cycle.in, characters('a')['1'].cycle.in);
  EXPECT_EQ(characters('b')['0'].cycle.in, characters('b')['1'].cycle.in);
  EXPECT_NE(characters('b')['2'].cycle.inCode, 0);
}

TEST_F(StilTimingTest, WhatComparesNothingIsAStrobeWithoutData) {
  ASSERT_TRUE(
      waves("y { X { '0ns' X; '40ns' X; } HLT { '0ns' X; '40ns' H/L/T; }}\n"
            "z { X { '0ns' X; } HL { '0ns' X; '40ns' H/L; }}"));
  EXPECT_THAT(events('y'), ElementsAre("H: 0pS X, 40nS H", "L: 0pS X, 40nS L", "T: 0pS X, 40nS T",
                                       "X: 0pS X, 40nS X"));
  EXPECT_THAT(events('z'), ElementsAre("H: 0pS X, 40nS H", "L: 0pS X, 40nS L", "X: 0pS X, 40nS X"));
  EXPECT_EQ(characters('y')['X'].cycle, characters('z')['X'].cycle);
  EXPECT_EQ(characters('y')['T'].cycle.out, characters('z')['X'].cycle.out);
}

TEST_F(StilTimingTest, WindowsEndAndEdgesDoNot) {
  ASSERT_TRUE(waves(
      "y { LHX { '0ns' X; '10ns' l/h/X; '40ns' X; } T { '10ns' t; } 2 { '5ns' l; '9ns' h; }}\n"
      "z { LHX { '0ns' X; '10ns' L/H/X; '11ns' X; } 2 { '10ns' L; '20ns' X; '30ns' H; }}"));
  EXPECT_THAT(events('y'), ElementsAre("2: 5nS L, 9nS X, 9nS H, 100nS X",
                                       "H: 0pS X, 10nS H, 40nS X", "L: 0pS X, 10nS L, 40nS X",
                                       "T: 10nS T, 100nS X", "X: 0pS X, 10nS X, 40nS X"));
  EXPECT_THAT(events('z'), ElementsAre("2: 10nS L, 30nS H", "H: 0pS X, 10nS H", "L: 0pS X, 10nS L",
                                       "X: 0pS X, 10nS X"));
  EXPECT_EQ(characters('y')['X'].cycle.out, characters('y')['H'].cycle.out);
}

TEST_F(StilTimingTest, ASignalForBothDirectionsDrivesAndCompares) {
  ASSERT_TRUE(
      waves("d { 01 { '10ns' D/U; } LHX { '0ns' Z; '40ns' L/H/X; } X { '30ns' X; }\n"
            "P { '10ns' D; '25ns' U; '50ns' D; } e { } b { '10ns' D; '20ns' H; }}"));
  EXPECT_THAT(events('d'),
              ElementsAre("0: 10nS D", "1: 10nS U", "H: 0pS Z, 40nS H", "L: 0pS Z, 40nS L",
                          "P: 10nS D, 25nS U, 50nS D", "X: 40nS X", "b: 10nS D, 20nS H", "e: -"));
  const StilCharacters& d = characters('d');
  EXPECT_EQ(d['0'].cycle.out, d['H'].cycle.out);
  EXPECT_EQ(d['0'].cycle.outCode, 0);
  EXPECT_EQ(d['X'].cycle.in, d['0'].cycle.in);
  EXPECT_EQ(d['X'].cycle.inCode, 0);
  EXPECT_TRUE(d['e'].defined);
  EXPECT_EQ(d['e'].cycle, SignalCycle());
}

TEST_F(StilTimingTest, LaterWavesTakeThePlaceOfEarlierAndInheritedOnes) {
  ASSERT_TRUE(read(R"(Timing t {
  WaveformTable base { Period '50ns'; Waveforms {
    all { 0 { '0ns' D; }} ins { 0 { '1ns' D; } 1 { '1ns' U; }}
  }}
  WaveformTable next { InheritWaveformTable t.base; Waveforms { b { 0 { '2ns' D; }}}}
  WaveformTable last { InheritWaveformTable next; Period '60ns'; }
}
)")) << messages_[0];
  EXPECT_THAT(events('a', "base"), ElementsAre("0: 1nS D", "1: 1nS U"));
  EXPECT_THAT(events('a', "next"), ElementsAre("0: 1nS D", "1: 1nS U"));
  EXPECT_THAT(events('b', "last"), ElementsAre("0: 2nS D", "1: 1nS U"));
  EXPECT_THAT(events('y', "next"), ElementsAre("0: 0pS D"));
  EXPECT_EQ(timing_->table("other"), -1);
  const auto period = [&](const char* name) {
    return PBtimeText(PVBtimePlateInqByName(database_, name)->period);
  };
  EXPECT_EQ(period("next"), "50ns");
  EXPECT_EQ(period("last"), "60ns");
}

TEST_F(StilTimingTest, SelectorsAndCategoriesChooseTheValues) {
  choice_ = {"", {"s"}, {"slow"}};
  const std::string text = R"(
Spec { Category fast { tper = '10ns'; f { Min '1MHz'; Typ '2MHz'; Max '4MHz'; } }
       Category slow { tper = '40ns'; f { Min '0.5MHz'; Max '2MHz'; } "a b" = 'tper/4'; } }
Selector s { f Max; tper Min; }
Timing { WaveformTable w { Period 'tper * 2'; Waveforms {
  a { 0 { '"a b"' D; '@+ 1 / f' D; '@' Z; '20us' U; } }
}}}
)";
  ASSERT_TRUE(read(text)) << messages_[0];
  EXPECT_THAT(events('a'), ElementsAre("0: 10nS D, 510nS D, 510nS Z, 20uS U"));
  std::string lines;
  ssWriteLines(equations_, [&](std::string_view line) { lines.append(line).append("\n"); });
  EXPECT_EQ(lines, R"(sheet "Spec" selected
  variable "tper" time "10ns"
  variable "f" any "4MHz"
  variable "a_b" time "tper/4"
  variable "w.period" time "tper*2"
  set "fast"
    value "tper" expr="10ns"
    value "f" expr="4MHz" min=1e+06 max=4e+06
  set "slow" selected
    value "tper" expr="40ns"
    value "f" expr="2MHz" min=5e+05 max=2e+06
    value "a_b" expr="tper/4"
)");
  const PVBtrack& track = PVBtimePlateInqByName(database_, "w")->levels[0].tracks[0];
  EXPECT_THAT(track.eventExprs, ElementsAre("a_b", "(a_b)+1/f", "((a_b)+1/f)", std::nullopt));
}

TEST_F(StilTimingTest, WhatIsWrongIsToldAtItsPlace) {
  struct Case {
    std::string text;
    std::string message;
  };
  const auto wave = [](const std::string& events) {
    return "Timing { WaveformTable w { Period '1ns';\n Waveforms { a { 0 {\n" + events + "}}}}}";
  };
  const std::vector<Case> cases = {
      {wave("'-5ns' D;"), "3 PVB0716 '-5ns': "},
      {wave("'5ns +' D;"), "3 PVB0706 '5ns +': column 5: a value is expected"},
      {wave("'5 6' D;"), "3 PVB0706 '5 6': an operator is expected"},
      {wave("'tt' D;"), "3 PVB0706 'tt': column 1: there is no variable \"tt\""},
      {wave("'5Ohm' D;"), "3 PVB0706 '5Ohm': \"Ohm\" is no unit"},
      {wave("'@lab' D;"), "3 PVB0706 '@lab': an event can't be named"},
      {wave("'0ns' M;"), "3 PVB0710 a database has no event like \"M\""},
      {"Timing { WaveformTable w { Waveforms { q { 0 { }}}}}", "1 PVB0716 WaveformTable \"w\""},
      {"Timing { WaveformTable w { Period '1ns';\nWaveforms { q { 0 { }}}}}", "2 PVB0704 "},
      {"Timing { WaveformTable w { Period '0ns'; }}", "1 PVB0716 the Period is zero"},
      {"Timing { WaveformTable w { InheritWaveformTable w; }}", "1 PVB0706 WaveformTable \"w\""},
      {"Timing { WaveformTable w { InheritWaveformTable v; }}", "1 PVB0708 there is no Wave"},
      {"Timing p { WaveformTable w { } } Timing q { WaveformTable w { } }",
       "PVB0708 no PatternExec chooses between the Timings \"p\", \"q\""},
      {"Spec { Category c { t = '5 %'; } }", "1 PVB0706 '5 %': '%' isn't known here"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.text);
    EXPECT_FALSE(read(row.text));
    ASSERT_EQ(messages_.size(), 1U);
    EXPECT_THAT(messages_[0], HasSubstr(row.message));
  }
}

TEST_F(StilTimingTest, OddEventsAreWarnings) {
  ASSERT_TRUE(waves("a { 0 { '90ns' D; '100ns' U; '110ns' D; '120ns' U; }}"));
  EXPECT_THAT(messages_,
              ElementsAre(HasSubstr("an event at 110ns lies behind the period of 100ns")));
  ASSERT_TRUE(waves("a { 0 { '5ns' D; '4ns' U; }}"));
  EXPECT_THAT(events('a'), ElementsAre("0: 4nS U, 5nS D"));
  EXPECT_THAT(messages_, ElementsAre(HasSubstr("an event at 4ns stands behind one at 5ns")));
  ASSERT_TRUE(waves("y { VL { '10ns' V/L; '5ns' M/X; }}", true));
  EXPECT_THAT(events('y'), ElementsAre("L: 5nS X, 10nS L", "V: 5nS X, 10nS X"));
  EXPECT_EQ(messages_.size(), 3U);
}

TEST(StilExpression, UnitsAndNamesAreThoseOfEquations) {
  const auto text = [](std::string_view stil) {
    StilTime time;
    std::string reason;
    return stilExpression(stil, nullptr, time, reason) ? time.text : "? " + reason;
  };
  EXPECT_EQ(text(" 5 NS+2.5E3ps "), "? an operator is expected");
  EXPECT_EQ(text("5NS + 2.5E3ps"), "5ns+2.5e3ps");
  EXPECT_EQ(text("3as*2Ms-1e2ks"), "3e-18s*2e6s-1e5s");
  EXPECT_EQ(text("1/1mHz + 1/2MHZ+1/3khz"), "1/1e-3Hz+1/2MHz+1/3kHz");
  EXPECT_EQ(text("MAX( a , \"b c\",\"d[0]\")"), "max(a,b_c,'d[0]')");
  EXPECT_EQ(text("@+1ns"), "? there is no event that '@' could stand for");
  EXPECT_EQ(text(""), "? there is no expression");
}

}  // namespace
