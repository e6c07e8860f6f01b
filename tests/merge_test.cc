// Merge as a user sees it: two regions side by side in time, cut wherever either has a
// boundary of cycles.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/operation_world.h"
#include "support/pattern_model.h"

namespace {

using testing::EndsWith;
using testing::StartsWith;

const char kFailed[] = "main: Merge operation failed.\n";
const char kRowsFailed[] =
    "merge: Detected error while merging timeplate and pattern data of PVB regions: (A) (B)\n"
    "main: Merge operation failed.\n";
const char kIncompatible[] =
    "merge: The two PVB regions are incompatible: (A) (B)\nmain: Merge operation failed.\n";
const char kReferTo[] = " using A as reference PVB";

// One input and one output; nothing else has these names.
DatabaseText chip(const std::string& input, const std::string& output, const std::string& plate,
                  const std::string& period, int version = 501) {
  DatabaseText text(version);
  text.signal(input, "input").signal(output, "output");
  return text.plate(plate, period, {{input, "0pS D 10nS S", ""}, {output, "0pS X 15nS Q", ""}});
}

class MergeTest : public testing::Test, protected OperationWorld {
 protected:
  MergeTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  // Cycles of 30 and of 20 nanoseconds that meet at 60.
  void buildThirtyAndTwenty(int version = 501) {
    build("A", chip("a", "x", "ta", "30nS", version).rows(steps("ta", {"10", "01"})));
    build("B", chip("b", "y", "tb", "20nS", version).rows(steps("tb", {"11", "00", "1Z"})));
  }
  Outcome mergeAB(std::vector<std::string> parameters = {}) {
    return runOperations("merge A B dest", std::move(parameters));
  }
  // What A and B mean from 0 to `stop` picoseconds, side by side.
  std::string sideBySide(std::int64_t stop) const {
    ModelWave wave = sliceOf(modelOf(dump("A")).wave, 0, stop);
    wave.merge(sliceOf(modelOf(dump("B")).wave, 0, stop));
    return shown(wave);
  }
};

TEST_F(MergeTest, CutsTheCyclesOfBothAtTheBoundariesOfEither) {
  for (const int version : {501, 1501}) {
    buildThirtyAndTwenty(version);
    const Outcome outcome = mergeAB();
    expectDone(outcome);
    EXPECT_EQ(outcome.report,
              "\n\nMerge the following PVB Regions: A and B to dest" + std::string(kReferTo) +
                  "\n" + regionTable({{"A", "A", "begin", "end"}, {"B", "B", "begin", "end"}}) +
                  "\n");
    EXPECT_EQ(rowsOf("dest"),
              "rows main\n  row \"ta_0pS\" |1011\n  row \"ta_20nS\" |1000\n"
              "  row \"ta_30nS\" |0100\n  row \"ta_40nS\" |011Z\n");
    EXPECT_EQ(linesOf("dest", "timeplate "),
              "timeplate 0 \"ta_0pS\" period=20nS\ntimeplate 1 \"ta_20nS\" period=10nS\n"
              "timeplate 2 \"ta_30nS\" period=10nS\ntimeplate 3 \"ta_40nS\" period=20nS\n");
    EXPECT_EQ(linesOf("dest", "signal 1 ") + linesOf("dest", "signal 3 "),
              "signal 1 \"a\" type=scalar direction=input in=0\n"
              "signal 3 \"b\" type=scalar direction=input in=2\n");
    EXPECT_EQ(shown(modelOf(dump("dest")).wave), sideBySide(60000));
  }
  EXPECT_EQ(sectionOf("dest", "timeplate 3"),
            "timeplate 3 \"ta_40nS\" period=20nS\n  slot input\n    of 1\n  slot output\n    of 2\n"
            "  slot input\n    of 3\n  slot output\n    of 4\n  level 0pS\n"
            "    track\n    event 0pS S\n    on 1\n"
            "    track\n    event 0pS X\n    event 5nS Q\n    on 2\n"
            "    track\n    event 0pS D\n    event 10nS S\n    on 3\n"
            "    track\n    event 0pS X\n    event 15nS Q\n    on 4\n");
}

TEST_F(MergeTest, ARegionMayStartInsideACycle) {
  buildThirtyAndTwenty();
  expectDone(
      runOperations("#% regionname pvbname start stop\n ra A 12ns end\n rb B 20ns end\n"
                    "#% operation operand1 operand2 operand3\n merge ra rb dest\n",
                    {"ReferencePVB=B"}));
  // Names count from the start of the first region.
  EXPECT_THAT(
      linesOf("dest", "timeplate "),
      StartsWith("timeplate 0 \"tb_12nS\" period=18nS\ntimeplate 1 \"tb_30nS\" period=2nS\n"));
}

TEST_F(MergeTest, ShortNamesCountThroughTheRun) {
  buildThirtyAndTwenty();
  build("C", chip("c", "z", "tc", "20nS").rows(steps("tc", {"11"})));
  expectDone(runOperations(" merge A B dest1\n merge B C dest2", {"TpNamingMode=SHORT"}));
  EXPECT_EQ(linesOf("dest1", "  row "),
            "  row \"tp0\" |1011\n  row \"tp1\" |1000\n  row \"tp2\" |0100\n  row \"tp3\" |011Z\n");
  EXPECT_EQ(linesOf("dest2", "  row "), "  row \"tp4\" |1111\n");
}

TEST_F(MergeTest, CommonSignalsStandBetweenTheOthers) {
  const auto shared = [](const std::string& own, const std::string& states, bool first) {
    DatabaseText text;
    if (first) text.signal(own, "input").signal("clk", "input").signal("q", "output");
    if (!first) text.signal("q", "output").signal("clk", "input").signal(own, "input");
    text.plate("t" + own, "20nS",
               {{"clk", "0pS D 5nS S 15nS D", ""}, {"q", "0pS X 18nS Q", ""}, {own, "0pS S", ""}});
    return text.rows(steps("t" + own, {states, states}));
  };
  build("A", shared("a", "011", true));
  build("B", shared("b", "110", false));
  expectDone(mergeAB());
  EXPECT_EQ(linesOf("dest", "signal 1 ") + linesOf("dest", "signal 2 ") +
                linesOf("dest", "signal 3 ") + linesOf("dest", "signal 4 "),
            "signal 1 \"a\" type=scalar direction=input in=0\n"
            "signal 2 \"clk\" type=scalar direction=input in=1\n"
            "signal 3 \"q\" type=scalar direction=output out=2\n"
            "signal 4 \"b\" type=scalar direction=input in=3\n");
  EXPECT_EQ(linesOf("dest", "  row "), "  row \"ta_0pS\" |0110\n  row \"ta_0pS\" |0110\n");
  EXPECT_EQ(shown(modelOf(dump("dest")).wave), sideBySide(40000));
}

TEST_F(MergeTest, CommonSignalsMustAgreeAtEveryRow) {
  const auto clocked = [](const std::string& own, const std::string& events,
                          const std::string& period, const std::vector<std::string>& states) {
    DatabaseText text;
    text.signal("clk", "input").signal(own, "input");
    return text.plate("t", period, {{"clk", events, ""}, {own, "0pS S", ""}})
        .rows(steps("t", states));
  };
  build("A", clocked("a", "0pS D 5nS S", "20nS", {"11", "01"}));
  const DatabaseText others[] = {
      clocked("b", "0pS D 6nS S", "20nS", {"11", "01"}),  // another time
      clocked("b", "0pS D 5nS U", "20nS", {"11", "01"}),  // another event
      clocked("b", "0pS D", "20nS", {"11", "01"}),        // fewer events
      clocked("b", "0pS D 5nS S", "20nS", {"11", "11"}),  // another state in row 1
      clocked("b", "0pS D 5nS S", "10nS", {"11", "01"}),  // another period
  };
  for (const DatabaseText& other : others) {
    build("B", other);
    expectRefused(mergeAB(), kIncompatible);
  }
  build("B", clocked("b", "0pS D 5nS S", "20nS", {"11", "01", "11"}));
  expectDone(mergeAB());
}

TEST_F(MergeTest, EqualRegionsBecomeACopy) {
  build("A", chip("a", "x", "ta", "30nS").rows("  row \"ta\" x3 |10\n"));
  build("C", chip("c", "x", "tc", "30nS"));
  const std::string regions = regionTable({{"A", "A", "begin", "end"}, {"A", "A", "begin", "end"}});
  const Outcome outcome = runOperations("merge A A dest", {"ReferencePVB=C"});
  expectDone(outcome);
  EXPECT_EQ(outcome.report,
            "\nMerge the following PVB Regions: A and A to dest using C as reference PVB" +
                regions +
                "\nThe merge operation is changed to a copy because the two source PVB regions are "
                "the same."
                "\n\nCopy the following PVB Region: A to dest\n" +
                regionTable({{"A", "A", "begin", "end"}}) + "\n");
  EXPECT_EQ(dump("dest"), dump("A"));
  // The same directory by another path, with the same bounds.
  expectDone(
      runOperations("#% regionname pvbname start stop\n r A begin 90ns\n s ./A/ 0s 0.09us\n"
                    "#% operation operand1 operand2 operand3\n merge r s dest\n",
                    {"ReferencePVB=C"}));
  EXPECT_EQ(rowsOf("dest"), rowsOf("A"));
}

TEST_F(MergeTest, StretchesOfOneDatabaseAreMerged) {
  build("A", chip("a", "x", "ta", "20nS").rows(steps("ta", {"10", "01", "10", "01", "11"})));
  const auto stretches = [](const std::string& second) {
    return "#% regionname pvbname start stop\n r A begin 40ns\n s A " + second +
           "\n#% operation operand1 operand2 operand3\n merge r s dest\n";
  };
  expectDone(runOperations(stretches("40ns 80ns"), {"ReferencePVB=A"}));
  EXPECT_EQ(linesOf("dest", "  row "), "  row \"ta_0pS\" |10\n  row \"ta_0pS\" |01\n");
  expectRefused(runOperations(stretches("60ns end"), {"ReferencePVB=A"}),
                "merge: The two PVB regions are incompatible: (r) (s)\n" + std::string(kFailed));
}

TEST_F(MergeTest, RowsKeepThePropertiesOfBoth) {
  build("A", chip("a", "x", "ta", "20nS")
                 .rows("  row \"ta\" |10\n    prop 1 \"a new\"\n    prop 2 \"a old\"\n"
                       "  row \"ta\" |01\n"));
  build("B", chip("b", "y", "tb", "20nS")
                 .rows("  row \"tb\" |10\n    prop 3 \"b\"\n  row \"tb\" |01\n    prop 4 \"c\"\n"));
  expectDone(mergeAB());
  EXPECT_EQ(rowsOf("dest"),
            "rows main\n  row \"ta_0pS\" |1010\n    prop 1 \"a old\"\n    prop 2 \"a new\"\n"
            "    prop 3 \"b\"\n  row \"ta_0pS\" |0101\n    prop 4 \"c\"\n");
}

// --- References ----------------------------------------------------------------------

TEST_F(MergeTest, NamesComeFromTheReference) {
  buildThirtyAndTwenty();
  build("R", chip("r", "s", "ref", "25nS")
                 .plate("other", "1uS", {{"r", "0pS S", ""}})
                 .rows(steps("ref", {"00"}) + steps("other", {"11"})));
  expectDone(mergeAB({"ReferencePVB=./R"}));
  EXPECT_EQ(linesOf("dest", "  row "),
            "  row \"ref_0pS\" |1011\n  row \"ref_20nS\" |1000\n  row \"other_30nS\" |0100\n"
            "  row \"other_40nS\" |011Z\n");
  build("R", chip("r", "s", "ref", "25nS").rows(steps("ref", {"00"})));
  // No row to name after from 25 nanoseconds on.
  expectRefused(mergeAB({"ReferencePVB=R"}),
                "mergeCycle: the reference PVB has no timeplate at time 30nS.\n");
  expectRefused(mergeAB({"ReferencePVB=none"}),
                "merge: PVB: (none) does not exist.\n" + std::string(kFailed));
  // By parameters the reference is the first source's path, in an operation file its
  // region's name, which is no path.
  expectDone(runParameters(
      {"Operation=merge", "SourcePVB1=A", "SourcePVB2=B", "DestinationPVB=dest", "Stop1=60ns"}));
  expectRefused(runOperations("#% regionname pvbname\n r A\n"
                              "#% operation operand1 operand2 operand3\n merge r B dest\n"),
                "merge: PVB: (r) does not exist.\n" + std::string(kFailed));
}

// --- Refusals ------------------------------------------------------------------------

TEST_F(MergeTest, LimitsPeriodsAndCounts) {
  buildThirtyAndTwenty();
  expectRefused(mergeAB({"MinPeriod=15ns"}),
                "mergeCycle: The period of a generated timeplate (10nS) is less than the minimum "
                "period (15nS)\n" +
                    std::string(kRowsFailed));
  expectDone(mergeAB({"MinPeriod=10ns"}));
  const Outcome limited = mergeAB({"TPGenLimit=3"});
  EXPECT_THAT(limited.err, EndsWith(": Number of generated timeplates (4) exceeds limit (3)\n" +
                                    std::string(kRowsFailed)));
  EXPECT_EQ(limited.exitCode, 1);
  expectDone(mergeAB({"TPGenLimit=4"}));
}

TEST_F(MergeTest, RefusesStructures) {
  struct Structure {
    const char* rows;
    const char* text;  // of the message; none where the first row alone is refused
  };
  const Structure table[] = {
      {"  row \"tb\" |10\n  row \"tb\" x2 |11\n", "Next/2 repeats found on row 1, cycle 1. "},
      {"  row \"tb\" x3 |10\n", "First/3 repeats found on row 0, cycle 0. "},
      {"  row \"tb\" |10\n  loop x2\n    row \"tb\" |11\n  end\n",
       "Next/Loop structure with 2 repeats found on row 1, cycle 1. "},
      {"  row \"tb\" |10\n  loop\n    row \"tb\" |11\n  end\n",
       "Next/Loop structure found on row 1, cycle 1. "},
      {"  row \"tb\" |10\n  call \"s\"\n", "Next/Subroutine structure found on row 1. "},
      {"  row \"tb\" |10\n  spacer spacer-time=5nS\n",
       "Next/Skip structure found on row 1, duration 5nS. "},
      {"  row \"tb\" |10\n  match \"tb\"\n", "Next/Unsupported structure found on row 1. "},
      {"  scan \"tb\" |10\n  row \"tb\" |11\n", ""},
  };
  build("A", chip("a", "x", "ta", "20nS").rows(steps("ta", {"10", "01", "11", "00"})));
  for (const Structure& structure : table) {
    SCOPED_TRACE(structure.rows);
    build("B",
          chip("b", "y", "tb", "20nS").rows(structure.rows).subroutine("s", steps("tb", {"11"})));
    const std::string text = structure.text;
    const std::size_t slash = text.find('/');
    const std::string message =
        text.empty() ? ""
                     : "PVBregionPatternInq" + text.substr(0, slash) +
                           ": Use of compression was detected but is not supported: (" +
                           text.substr(slash + 1) + ")\n";
    expectRefused(mergeAB(), message + kIncompatible);
  }
}

TEST_F(MergeTest, ModesAndMultiplexedSignalsMustFit) {
  const auto previous = [](const std::string& signal, int mode) {
    DatabaseText text;
    text.mode(mode).signal(signal, "input");
    return text.plate("t", "20nS", {{signal, "0pS P 5nS S", ""}}).rows(steps("t", {"1"}));
  };
  build("A", previous("a", 1));
  build("B", previous("b", 2));
  expectRefused(mergeAB(),
                "mergePmode: P modes of (A) and (B) are incompatible.\n" + std::string(kFailed));
  build("B", chip("b", "y", "tb", "20nS").mode(2).rows(steps("tb", {"10"})));
  expectDone(mergeAB());
  EXPECT_EQ(linesOf("dest", "timeplates "), "timeplates mode=1\n");
  build("B", chip("b", "y", "tb", "20nS").signal("m", "input", "mux").rows(steps("tb", {"10"})));
  expectRefused(mergeAB(),
                "categorizeSignals: (1) multiplexed signal(s) found in PVB region (B), multiplexed "
                "signals currently not supported.\n");
}

TEST_F(MergeTest, RefusesWhatItCannotOpenOrOverwrite) {
  buildThirtyAndTwenty();
  build("broken", smallChip());
  directory().write("broken/pvb.tp", "TIMEPLATES x");
  build("destBefore", smallChip().rows(steps("tp", {"10"})));
  struct Refused {
    const char* source2;
    const char* destination;
    std::string more;  // another parameter
    std::string line;
  };
  const std::string none = "MinPeriod=1ns";
  const Refused table[] = {
      {"none", "destBefore", none, std::string("merge: PVB: (none) does not exist.\n") + kFailed},
      {"broken", "destBefore", none,
       std::string("merge: Unable to open PVB: (broken)\n") + kFailed},
      {"B", "./A", none,
       std::string("merge: Destination PVB (./A) is the same as source PVB (A)\n") + kFailed},
      {"B", "B/", none,
       std::string("merge: Destination PVB (B/) is the same as source PVB (B)\n") + kFailed},
      {"B", "destBefore", "ReferencePVB=./destBefore",
       "merge: Destination PVB (destBefore) is the same as the reference PVB (./destBefore)\n"},
      {"B", "dest", "ReferencePVB=broken", "initRefPVB: Unable to open PVB: (broken)\n"},
      {"B", "dest", "Start1=1us", kIncompatible},
  };
  for (const Refused& row : table) {
    const Outcome outcome =
        runParameters({"Operation=merge", "SourcePVB1=A", std::string("SourcePVB2=") + row.source2,
                       std::string("DestinationPVB=") + row.destination, row.more});
    EXPECT_THAT(outcome.err, StartsWith(row.line));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(rowsOf("destBefore"), "rows main\n  row \"tp\" |10\n");
  }
}

}  // namespace
