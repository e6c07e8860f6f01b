// What the timeplate optimizer tells: its tables, what it traces, and which lines are status
// and leave the report to itself where that is a file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "support/optimize_world.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

const std::string kRule(34, '-');

class OptimizeReport : public testing::Test, protected OptimizeWorld {
 protected:
  OptimizeReport() : OptimizeWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {
    useShapes("S S? DSD");
    // t1 folds into t0, t2 can't be made valid, and t3 says something else at the same times.
    DatabaseText text;
    text.signal("c", "input").signal("a", "input");
    text.plate("t0", "20nS", {track("a", "D 5S 15D"), track("c", "C")});
    text.plate("t1", "20nS", {track("a", "D 5U 15D"), track("c", "S")});
    text.plate("t2", "20nS", {track("a", "D 6C 15U"), track("c", "S 9?")});
    text.plate("t3", "20nS", {track("a", "D 7U 15D"), track("c", "S")});
    text.rows(steps("t0", {"00"}) + steps("t1", {"11"}) + steps("t2", {"11", "00"}));
    build("A", text.rows(steps("t3", {"11", "00", "01"})));
  }
  // The report in a file, behind the line in which the merge is told.
  std::string savedReport(std::vector<std::string> parameters = {}) {
    parameters.insert(parameters.end(), {"SaveReport=yes", "ReportFile=own.rpt"});
    const Outcome outcome = merge(std::move(parameters), "a,c");
    status_ = outcome.err;
    EXPECT_EQ(outcome.report, "");
    std::ostringstream text;
    text << std::ifstream(directory().path("own.rpt")).rdbuf();
    const std::size_t begin = text.str().find("\nChecking for valid shapes:\n");
    return begin == std::string::npos ? "" : text.str().substr(begin);
  }

  std::string status_;  // of the last run
};

TEST_F(OptimizeReport, TellsWhatItDid) {
  const std::string checked =
      "\nChecking for valid shapes:\n"
      "Checking TimePlate t0_0pS\n"
      "\tINPUT track for Signal c is not valid.\n"
      "\t\tfixed\n"
      "\tTimePlate t0_0pS has 1 fixed of 1 invalid tracks.\n"
      "Checking TimePlate t1_20nS\n"
      "\tTimePlate t1_20nS is valid.\n"
      "Checking TimePlate t2_40nS\n"
      "\tINPUT track for Signal a is not valid.\n"
      "\tTimePlate t2_40nS has 0 fixed of 1 invalid tracks.\n"
      "Checking TimePlate t3_80nS\n"
      "\tTimePlate t3_80nS is valid.\n"
      "\nTimePlate Optimize: There are 1 invalid shapes in the timeplates\n";
  const std::string tables =
      "\nMerged 4 timeplates into 3 timeplates.\n"
      "\nSignal List - Fail Frequency\n" +
      kRule +
      "\n"
      "                   c         2\n"
      "                   a         1\n" +
      kRule + "\n" + kRule +
      "\n"
      "\n\nShape Family Summary:\n\n"
      "No Shape Families Present\n"
      "\nTimeplate Frequency\n"
      "      Timeplate Name     # Rows    Has '?'\n"
      "             t3_80nS          3      -\n"
      "              t0_0pS          2      -\n"
      "             t2_40nS          2     YES\n"
      "\nTotal entries examined = 3, Total rows = 7\n";
  const std::string pairs =
      "\nMergable checking t0_0pS and t1_20nS merge t0_0pS and t1_20nS, delete the latter\n"
      "\nMergable checking t0_0pS and t2_40nS"
      "\nt0_0pS and t2_40nS not merged: signal c, input, S against S?: "
      "no match shape D and U\n"
      "\nMergable checking t0_0pS and t3_80nS"
      "\nt0_0pS and t3_80nS not merged: signal a, input, DSD against DUD: shape too short\n"
      "\nMergable checking t2_40nS and t3_80nS"
      "\nt2_40nS and t3_80nS not merged: signal c, input, S? against S: no match shape D and U\n";
  EXPECT_EQ(savedReport(), checked + tables);
  EXPECT_EQ(std::regex_replace(savedReport({"Trace=1"}), std::regex("[0-9]+ hits"), "N hits"),
            checked + pairs + tables + "LRU Queue: N hits, 0 misses\n");
}

TEST_F(OptimizeReport, TracesSignalsAndReductions) {
  const std::string report = savedReport({"Trace=2"});
  for (const char* text :
       {" signal a\ntkFirst:\nDSD\ntkSecond:\nDUD\nfirst contains S or C, second is simple\n",
        "\tmatching shape:\n\tDSD\nfirst\nsecond\n\t*** matched shape, reduced ***\n",
        " merge t0_0pS and t1_20nS, delete the latter\n", "\tno match shape D and U\n",
        "shape too short:\n", "history first\n",
        "\nt0_0pS and t2_40nS FAILED because of signal c\n",
        "\nt0_0pS and t3_80nS FAILED because of signal a\n"}) {
    EXPECT_THAT(report, HasSubstr(text));
  }
}

TEST_F(OptimizeReport, StatusIsOnStandardErrorUnlessTheReportIsOnStandardOutput) {
  const std::string started =
      "initializing ATE info...\nATE family is: other\nreading shape file tester.shp...\n"
      "\tshape S read\n\tshape S? read\n\tshape DSD read\npmode is: 1\n\n";
  const std::string ended =
      "\n\nTotal run time = 0 seconds\n"
      "TimePlate Optimize: There are 1 invalid shapes in the timeplates\n";
  savedReport();
  EXPECT_EQ(status_, started + "Checking for valid shapes.\nPerforming Forced Mappings\n" + ended);
  savedReport({"DoTrackOptimize=yes"});
  EXPECT_EQ(status_, started +
                         "Checking for valid shapes.\nTrack Reduction Pass\n"
                         "...Performing Track Reduction Pass\nPerforming Forced Mappings\n" +
                         ended);
  const Outcome outcome = merge({}, "a,c");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.report,
              AllOf(HasSubstr("Checking for valid shapes.\n\nChecking for valid shapes:\n"),
                    HasSubstr(kRule + "\nPerforming Forced Mappings\n\n\nShape Family Summary:"),
                    EndsWith("\n\nTotal run time = 0 seconds\n")));
}

// Counts are those of the shapes that timeplates have in the end, and of their rows.
TEST_F(OptimizeReport, SummarizesFamilies) {
  const std::string border(47, '-');
  useShapes("S S? DSD SU",
            "#% familyShape shapeFamily\nDSD clocks\nS data\nS? data\nSU none\n"
            "#% signal family\na clocks\n");
  EXPECT_THAT(savedReport(), HasSubstr("\n\nShape Family Summary:\n\n" + border +
                                       "\n"
                                       "|    globalShapeFamily |         0 |        0 |\n"
                                       "|               clocks |         1 |        2 |\n"
                                       "|                 data |         2 |        7 |\n"
                                       "|                 none |         0 |        0 |\n" +
                                       border + "\n\nTimeplate Frequency\n"));
}

TEST_F(OptimizeReport, OneTimeplateHasNothingToBeComparedWith) {
  DatabaseText text;
  text.signal("a", "input").signal("c", "input");
  build("A", text.plate("t0", "20nS", {track("a c", "S")}).rows(steps("t0", {"11", "00"})));
  EXPECT_EQ(savedReport(),
            "\nChecking for valid shapes:\nChecking TimePlate t0_0pS\n"
            "\tTimePlate t0_0pS is valid.\n"
            "\n\nShape Family Summary:\n\nNo Shape Families Present\n"
            "\nTimeplate Frequency\n      Timeplate Name     # Rows    Has '?'\n"
            "              t0_0pS          2      -\n"
            "\nTotal entries examined = 1, Total rows = 2\n");
  EXPECT_THAT(status_, HasSubstr("Performing Forced Mappings\n"));
}

}  // namespace
