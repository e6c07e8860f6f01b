// What databases become as STIL, and that they come back the same.

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/database_text.h"
#include "support/dump_support.h"
#include "support/fault_platform.h"
#include "support/shipped.h"
#include "tools/diff.h"
#include "tools/export.h"
#include "tools/import.h"

namespace {

using testing::HasSubstr;

const std::string kSignals = R"(pvb-dump 1
database version=501 row-width=32
  prop 0 "one \"of\" each"
signals next-column=6 next-id=6
  groups 100000 100001 100002 100003 100004
signal 1 "clk" type=scalar direction=input in=0
signal 2 "io[1]" type=scalar direction=bidir in=1 out=2 left=1 right=1
signal 3 "io[0]" type=scalar direction=bidir in=3 out=4 left=0 right=0
signal 4 "io" type=bus direction=bidir left=1 right=0
  members 2 3
signal 5 "q" type=scalar direction=output out=5
signal 100000 "ALL" type=group
  members 1 2 3 5
signal 100001 "ALLINPUT" type=group
  members 1
signal 100002 "ALLOUTPUT" type=group
  members 5
signal 100003 "ALLBIDIR" type=group
  members 2 3
signal 100004 "ALLMUX" type=group
timeplates mode=1
)";
const std::string kPlates = R"(timeplate 0 "wide" period=100nS
  slot input
    of 1
  slot input
    of 2 3
  slot output
    of 2 3 5
  level 0pS
    track
    event 0pS D
    event 25nS S expr="period/4"
    event 50nS D expr="'half.way'"
    on 1
    track
    event 10nS S
    on 2 3
    track
    event 0pS X
    event 40nS Q
    event 60nS X
    on 2 3 5
timeplate 1 "fast" period=20nS
  slot input
    of 1
  slot bidir
    of 2 3
  slot output
    of 5
  level 0pS
    track
    event 0pS P
    event 5nS C
    on 1
    track
    event 0pS S
    event 15nS Q
    on 2 3
    track
    event 12.5nS R
    on 5
)";
const std::string kEquations = R"(equations
sheet "timing" selected
  variable "tck" time "100NS"
  variable "wide.period" time "tck"
  variable "half.way" time "tck * 0.5"
  set "typ" selected
    value "tck" min=9e-08 max=1.1e-07
  set "fast"
    value "tck" expr="80nS"
sheet "levels"
  variable "vdd" voltage "3.3V"
  set "fast" selected
)";
const std::string kOnePlate = R"(timeplate 0 "tp" period=10nS
  slot input
    of 1 2 3
  level 0pS
    track
    event 0pS S
    on 1 2 3
)";

class StilExportTest : public testing::Test {
 public:
  // The text of a database, or "failed: " with the first message.
  std::string exported(const std::string& name = "db") {
    messages_.clear();
    ReadDatabase database;
    if (!database.open(directory_.path(name), keep())) return "can't be opened";
    std::string text;
    TextSink out([&](std::string_view piece) {
      text += piece;
      return true;
    });
    const bool good = exportStil(database.handle(), {}, out, keep());
    return good ? text : "failed: " + messages_.front().text;
  }
  std::string exportedText(const std::string& dump) {
    std::filesystem::remove_all(directory_.path("db"));
    if (!directory_.build(dump)) return "not built: " + directory_.firstMessage();
    return exported();
  }

  // What two databases differ in.
  std::string differences(const std::string& first, const std::string& second) {
    ReadDatabase a;
    ReadDatabase b;
    const bool open =
        a.open(directory_.path(first), keep()) && b.open(directory_.path(second), keep());
    if (!open) return "can't be opened";
    std::string differences;
    const auto tell = [&](const Difference& difference) {
      differences += difference.what + " " + difference.signal + ": " + difference.a.text + " / " +
                     difference.b.text + "\n";
    };
    const bool done = diffDatabases(a.handle(), b.handle(), {}, tell, keep()).done;
    return done ? differences : "not compared";
  }

  // Whether a database that was built comes back the same from its text; what differs.
  std::string roundTrip() {
    const std::string text = exported();
    if (text.starts_with("failed")) return text;
    const std::string file = directory_.path("db.stil");
    std::ofstream(file) << text;
    const std::string copy = directory_.path("copy");
    std::filesystem::remove_all(copy);
    ImportCounts counts;
    if (!importStil(file, {}, copy, keep(), counts)) return messages_.back().text + "\n" + text;
    const std::string found = differences("db", "copy");
    return found.empty() ? "" : found + text;
  }

  std::string warnings() const {
    std::string text;
    for (const Message& message : messages_) text += message.text + "\n";
    return text;
  }
  DumpDirectory& directory() { return directory_; }

 private:
  MessageSink keep() {
    return [this](const Message& message) { messages_.push_back(message); };
  }

  DumpDirectory directory_;
  std::vector<Message> messages_;
};

std::string example(const std::string& name) { return shippedText("examples/" + name); }

TEST_F(StilExportTest, WholeTextOfASmallDatabase) {
  const std::string rows = R"(subroutine 0 "init"
subroutine 1 ""
rows main
  row "wide" |11---X
    prop 0 "second *} line\nthird"
    prop 0 "first"
  row "wide" x5 |1-11-1
  loop x3 comment="again"
    row "wide" |00-1-0
    row "fast" |101--0
    call "init" x2
  end comment="again"
  loop x0
    row "fast" |X
  end
  row "wide" |00-1-0
  call #1
rows 0
  row "fast" |0----1
  row "wide" |0Z0X1Z
rows 1
label "start" row=0
label "also" row=0 kind=begin
label "loop" row=2 kind=end
label "sub" row=1 subroutine=0
)";
  EXPECT_EQ(exportedText(kSignals + kPlates + rows + kEquations + "done\n"), R"(STIL 1.0;
Header {
  Title "one _of_ each";
}
Signals {
  "clk" In;
  "io[1]" InOut;
  "io[0]" InOut;
  "q" Out;
}
SignalGroups {
  "io" = '"io[1]" + "io[0]"';
  "_all_" = '"clk" + "io[1]" + "io[0]" + "q"';
}
Spec "timing" {
  Category "typ" {
    tck { Typ '100ns'; Min '90ns'; Max '110ns'; }
    "half.way" = 'tck * 0.5';
  }
  Category "timing.fast" {
    tck = '80ns';
    "half.way" = 'tck * 0.5';
  }
}
Spec "levels" {
  Category "fast" {
    vdd = '3.3V';
  }
}
Timing {
  WaveformTable "wide" {
    Period 'tck';
    Waveforms {
      "clk" {
        0 { '0ns' D; '100ns/4' D; '"half.way"' D; }
        P { '0ns' D; '100ns/4' U; '"half.way"' D; }
      }
      '"io[1]" + "io[0]"' {
        0 { '10ns' D; }
        1 { '10ns' U; }
        A { '0ns' X; '10ns' N; '40ns' l; '60ns' X; }
        B { '0ns' X; '10ns' N; '40ns' h; '60ns' X; }
        H { '0ns' X; '40ns' h; '60ns' X; }
        L { '0ns' X; '10ns' Z; '40ns' l; '60ns' X; }
        N { '0ns' X; '10ns' N; '40ns' X; '60ns' X; }
      }
      "q" {
        H { '0ns' X; '40ns' h; '60ns' X; }
        L { '0ns' X; '40ns' l; '60ns' X; }
        T { '0ns' X; '40ns' t; '60ns' X; }
        X { '0ns' X; '40ns' X; '60ns' X; }
      }
    }
  }
  WaveformTable "fast" {
    Period '20ns';
    Waveforms {
      "clk" {
        0 { '0ns' P; '5ns' D; }
        1 { '0ns' P; '5ns' U; }
      }
      '"io[1]" + "io[0]"' {
        A { '0ns' N; '15ns' L; }
        B { '0ns' D; '15ns' H; }
        C { '0ns' N; '15ns' H; }
        N { '0ns' N; '15ns' X; }
      }
      "q" {
        H { '12.5ns' H; }
        L { '12.5ns' L; }
      }
    }
  }
}
PatternBurst "_burst_" {
  PatList { "_pattern_"; }
}
PatternExec {
  Category "typ";
  Category "fast";
  PatternBurst "_burst_";
}
Procedures {
  "init" {
    W "fast";
    V { "_all_"=1NNL; }
    W "wide";
    "sub": V { "_all_"=0LBT; }
  }
  "procedure" {
  }
}
Pattern "_pattern_" {
  Ann {* first *}
  Ann {* second * } line
third *}
  Ann {* label start *}
  W "wide";
  "also": V { "_all_"=P1NX; }
  Loop 5 { V { "_all_"=PH1H; } }
  Ann {* again *}
  "loop": Loop 3 {
    W "wide";
    V { "_all_"=001L; }
    W "fast";
    V { "_all_"=0BNH; }
    Loop 2 { Call "init"; }
  }
  W "wide";
  V { "_all_"=001L; }
  Call "procedure";
}
)");
  EXPECT_EQ(warnings(), "several labels of one row: all but the last are comments\n");
  EXPECT_EQ(roundTrip(), "");
}

std::string replaced(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

TEST_F(StilExportTest, TracksThroughBusesAndGroupsAreThoseOfTheirSignals) {
  const std::string signals =
      replaced(replaced(kSignals, "next-id=6", "next-id=7"), "signal 100000 \"ALL\"",
               "signal 6 \"outs\" type=group\n  members 5 4\nsignal 100000 \"ALL\"");
  const std::string rows = "rows main\n  row \"wide\" |11--1X\n  row \"fast\" |101--0\ndone\n";
  const std::string scalars = exportedText(signals + kPlates + rows);
  ASSERT_THAT(scalars, HasSubstr("io[1]"));
  ASSERT_TRUE(directory().build(signals + kPlates + rows, "scalars"));
  const std::string plates = replaced(replaced(kPlates, " 2 3 5\n", " 6\n"), " 2 3\n", " 4\n");
  EXPECT_EQ(exportedText(signals + plates + rows), scalars);
  EXPECT_EQ(differences("scalars", "db"), "");
  EXPECT_EQ(roundTrip(), "");
}

TEST_F(StilExportTest, LongRunsAreRepeats) {
  DatabaseText database;
  std::string all;
  for (int i = 0; i < 24; ++i) {
    const std::string name = "s" + std::to_string(i);
    database.signal(name, "input");
    all += name + " ";
  }
  database.plate("tp", "10nS", {{all, "0pS S", ""}});
  database.rows(steps(
      "tp", {"100000000011111111000000", "101010101010101010101010", "111111111111111111111111"}));
  const std::string text =
      exportedText(replaced(replaced(database.text(), "0 \"tp\"", "0 none"), "\"tp\"", "#0"));
  EXPECT_THAT(text, HasSubstr("=1\\r9 0 11111111000000; }\n"));
  EXPECT_THAT(text, HasSubstr("=101010101010101010101010; }\n"));
  EXPECT_THAT(text, HasSubstr("=\\r24 1; }\n"));
  EXPECT_THAT(text, HasSubstr("WaveformTable \"tp0\" {\n"));
}

TEST_F(StilExportTest, WhatStilCantSayIsRefused) {
  struct Case {
    std::string body;
    const char* reason;
  };
  const std::string monitor =
      "timeplate 0 \"tp\" period=10nS\n  slot input\n    of 1\n  level 0pS\n    track\n"
      "    event 0pS u\n    on 1\n";
  for (const Case& refused : {
           Case{kOnePlate + "rows main\n  row \"tp\" |1\n  row |1\n", "row 1 has no timeplate"},
           Case{kOnePlate + "subroutine 3 \"s\"\nrows main\nrows 3\n  match \"tp\"\n",
                "row 0 of subroutine \"s\" is a match row, which STIL has no statement for"},
           Case{kOnePlate + "rows main\n  spacer spacer-time=1uS\n",
                "row 0 is a spacer row, which STIL has no statement for"},
           Case{monitor + "rows main\n  row \"tp\" |1\n",
                "timeplate \"tp\", signal \"clk\": STIL hasn't got the state 'u' (monitor high)"},
       }) {
    EXPECT_EQ(exportedText(kSignals + refused.body + "done\n"),
              std::string("failed: ") + refused.reason);
  }
  EXPECT_EQ(exportedText(example("database/everything.pvbt")),
            "failed: signal \"io\" is multiplexed; STIL has one wave a signal and cycle");
}

std::string contentOf(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Whatever fails, the file there is the old one or the whole new one.
TEST_F(StilExportTest, FilesComeWhenTheyAreWhole) {
  const std::string whole =
      exportedText(kSignals + kOnePlate + "rows main\n  row \"tp\" |1\ndone\n");
  const std::string file = directory().path("db.stil");
  std::ofstream(file) << "old";
  testing::internal::CaptureStderr();
  std::vector<std::string> arguments = {directory().path(), "-o", file};
  EXPECT_EQ(runExport(arguments), 2);
  arguments.push_back("--force");
  int exit = 2;
  for (int n = 1; exit != 0; ++n) {
    ASSERT_EQ(contentOf(file), "old") << n;
    FaultPlatform faults;
    faults.failFileCall(n);
    exit = runExport(arguments);
  }
  EXPECT_EQ(contentOf(file), whole);
  arguments[2] = directory().path("db.tester");
  EXPECT_EQ(runExport(arguments), 2);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("doesn't tell its kind"));
}

// Rows with any data on any of the timeplates, in loops, repeats and calls.
std::string anyRows(int depth) {
  std::string text;
  const int count = *rc::gen::inRange(1, 5);
  for (int i = 0; i < count; ++i) {
    const int kind = *rc::gen::inRange(0, depth < 2 ? 6 : 4);
    const int passes = *rc::gen::inRange(1, 4);
    if (kind == 4) {
      text += "loop x" + std::to_string(passes) + "\n" + anyRows(depth + 1) + "end\n";
    } else if (kind == 5) {
      text += "call \"init\" x" + std::to_string(passes) + "\n";
    } else {
      const auto states =
          *rc::gen::container<std::string>(6, rc::gen::elementOf(std::string("-01ZX")));
      text += "row \"" + std::string(kind % 2 == 0 ? "wide" : "fast") + "\" x" +
              std::to_string(passes) + " |" + states + "\n";
    }
  }
  return text;
}

RC_GTEST_FIXTURE_PROP(StilExportTest, GeneratedPatternsComeBackTheSame, ()) {
  std::filesystem::remove_all(directory().path());
  std::string text = kSignals + kPlates + "subroutine 0 \"init\"\nrows main\n" + anyRows(0);
  text += "rows 0\n" + anyRows(2) + kEquations + "done\n";
  RC_ASSERT(directory().build(text));
  RC_ASSERT(roundTrip() == "");
}

}  // namespace
