// What the timeplate optimizer tells: its tables, what it traces, and which lines are status
// and leave the report to itself where that is a file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/optimize_world.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const std::string kRule(34, '-');

class OptimizeReport : public testing::Test, protected OptimizeWorld {
 protected:
  OptimizeReport() : OptimizeWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {
    useShapes("S S? DSD");
    // t1 folds into t0, t2 can't be made valid, and t3 says something else at the same times.
    DatabaseText text;
    text.signal("c", "input").signal("a", "input");
    text.plate("t0", "20nS", {{"a", "0pS D 5nS S 15nS D", ""}, {"c", "0pS C", ""}});
    text.plate("t1", "20nS", {{"a", "0pS D 5nS U 15nS D", ""}, {"c", "0pS S", ""}});
    text.plate("t2", "20nS", {{"a", "0pS D 6nS C 15nS U", ""}, {"c", "0pS S 9nS ?", ""}});
    text.plate("t3", "20nS", {{"a", "0pS D 7nS U 15nS D", ""}, {"c", "0pS S", ""}});
    text.rows(steps("t0", {"00"}) + steps("t1", {"11"}) + steps("t2", {"11", "00"}));
    build("A", text.rows(steps("t3", {"11", "00", "01"})));
  }
  // The report in a file, behind the line in which the merge is told.
  std::string savedReport(std::vector<std::string> parameters) {
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
      "no match shape S and ?\n";
  EXPECT_EQ(savedReport({}), checked + tables);
  EXPECT_EQ(status_, "");
  EXPECT_EQ(savedReport({"Trace=1"}), checked + pairs + tables + "LRU");
}

}  // namespace
