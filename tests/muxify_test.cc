// Muxify as a user sees it: groups of cycles become rows of multiplexed signals.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/operation_world.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class MuxifyTest : public testing::Test, protected OperationWorld {
 protected:
  MuxifyTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  Outcome muxify(int degree, const std::string& destination = "dest") {
    return runParameters({"Operation=muxify", "SourcePVB1=A", "DestinationPVB=" + destination,
                          "MuxDegree=" + std::to_string(degree)});
  }
  // Muxifies a database that is fit for it: the rows that came of it.
  std::string muxed(int degree, const DatabaseText& text) {
    build("A", text);
    expectDone(muxify(degree));
    return rowsOf("dest");
  }
  // Muxifies one that isn't: the run goes on, with these lines.
  void expectErrors(const std::string& lines) {
    const Outcome outcome = muxify(2);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.err, EndsWith(" seconds\n" + lines));
    EXPECT_THAT(outcome.report, HasSubstr("Muxify operation completed with errors.\n"));
  }
};

DatabaseText twoPlates() {
  DatabaseText text = smallChip();
  return text.plate("slow", "30nS", {{"a", "0pS U", ""}, {"y", "0pS X 25nS Q", ""}});
}

// --- Folding -------------------------------------------------------------------------

TEST_F(MuxifyTest, MakesARowOfEveryGroupAndPadsTheLast) {
  const DatabaseText text = smallChip().rows(steps("tp", {"10", "01", "11", "00", "ZX"}));
  EXPECT_EQ(muxed(2, text),
            "rows main\n  row \"tp_tp\" |1001\n  row \"tp_tp\" |1010\n  row \"tp_tp\" |ZZXX\n");
  EXPECT_THAT(dump("dest"),
              HasSubstr("signal 1 \"a_1\" type=scalar direction=input in=0\n"
                        "signal 2 \"a_2\" type=scalar direction=input in=1\n"
                        "signal 3 \"a\" type=mux direction=input\n  mux-children 1 2\n"
                        "signal 4 \"y_1\" type=scalar direction=output out=2\n"));
  EXPECT_EQ(sectionOf("dest", "signal 100000"),
            "signal 100000 \"ALL\" type=group\n  members 3 6\n");
  EXPECT_EQ(sectionOf("dest", "timeplate 0"),
            "timeplate 0 \"tp_tp\" period=20nS\n"
            "  slot input\n    of 1\n  slot input\n    of 2\n"
            "  slot output\n    of 4\n  slot output\n    of 5\n  level 0pS\n"
            "    track\n    event 0pS D\n    event 4nS S\n    event 10nS ?\n    on 1\n"
            "    track\n    event 0pS ?\n    event 10nS D\n    event 14nS S\n    on 2\n"
            "    track\n    event 0pS X\n    event 9nS Q\n    event 10nS ?\n    on 4\n"
            "    track\n    event 0pS ?\n    event 10nS X\n    event 19nS Q\n    on 5\n");
  EXPECT_EQ(muxed(3, text), "rows main\n  row \"tp_tp_tp\" |101011\n  row \"tp_tp_tp\" |0ZZ0XX\n");
  const ProgramResult shown = runCompanion({"show", "dest"});
  EXPECT_EQ(shown.exitCode, 0);
  EXPECT_THAT(shown.out, HasSubstr("columns in use                    6"));
}

TEST_F(MuxifyTest, GroupsOfTheSameTimeplatesShareACombinedOne) {
  std::string rows;
  for (const char* plate : {"tp", "slow", "slow", "tp", "tp", "slow", "slow"}) {
    rows += steps(plate, {"10"});
  }
  EXPECT_EQ(muxed(2, twoPlates().rows(rows)),
            "rows main\n  row \"tp_slow\" |1100\n  row \"slow_tp\" |1100\n"
            "  row \"tp_slow\" |1100\n  row \"slow_slow\" |1100\n");
  EXPECT_EQ(linesOf("dest", "timeplate "),
            "timeplate 0 \"tp_slow\" period=40nS\ntimeplate 1 \"slow_tp\" period=40nS\n"
            "timeplate 2 \"slow_slow\" period=60nS\n");
}

TEST_F(MuxifyTest, SeesThroughLoopsCallsRepeatsAndScan) {
  DatabaseText text = smallChip();
  text.signalRecords(
      "signal 7:200000 \"ALLSCAN\" type=scan-group\n  members 9:1 5:1 5:2\n"
      "signal 9:1 \"chain\" type=chain\n  members 5:1 5:2\n  ate-pins 1 2\n"
      "signal 5:1 \"cell1\" type=cell\nsignal 5:2 \"cell2\" type=cell\n");
  text.beforeRows("vector \"load\" value=7\n  cells |X10\n");
  text.rows(
      "  loop x2\n    row \"tp\" x3 |11\n    row \"tp\" |0Z\n  end\n  call \"init\" x2\n"
      "  scan \"tp\" x2 |-1\n    run in 9:1 \"load\"\n");
  text.subroutine("init", "  row \"tp\" |Z0\n");
  EXPECT_EQ(muxed(4, text),
            "rows main\n  row \"tp_tp_tp_tp\" |1110111Z\n  row \"tp_tp_tp_tp\" |1110111Z\n"
            "  row \"tp_tp_tp_tp\" |ZZ010011\n");
}

TEST_F(MuxifyTest, PassesOverRowsWithoutTimeplate) {
  EXPECT_EQ(muxed(2, smallChip().rows("  row x3 |11\n" + steps("tp", {"10"}) + "  row |11\n" +
                                      steps("tp", {"01"}))),
            "rows main\n  row \"tp_tp\" |1001\n");
  EXPECT_EQ(muxed(2, smallChip().rows("  row x3 |11\n")), "rows main\n");
  EXPECT_EQ(muxed(2, smallChip()), "rows main\n");
}

TEST_F(MuxifyTest, GathersTheProperties) {
  EXPECT_EQ(
      muxed(2, smallChip().rows(
                   "  row \"tp\" |10\n    prop 1 \"a\"\n    prop 2 \"b\"\n"
                   "  row \"tp\" |01\n    prop 3 \"c\"\n  row \"tp\" |11\n  row \"tp\" |11\n"
                   "  row \"tp\" |00\n    prop 4 \"d\"\n")),
      "rows main\n  row \"tp_tp\" |1001\n    prop 3 \"c\"\n    prop 1 \"a\"\n    prop 2 \"b\"\n"
      "  row \"tp_tp\" |1111\n  row \"tp_tp\" |0000\n    prop 4 \"d\"\n    prop 4 \"d\"\n");
}

// --- Timeplates ----------------------------------------------------------------------

TEST_F(MuxifyTest, ACycleThatBeginsWithPreviousLengthensTheOneBefore) {
  DatabaseText text = smallChip();
  text.plate("hold", "10nS", {{"a", "2nS P 3nS S", ""}, {"y", "0pS X 9nS Q", ""}});
  muxed(2, text.rows(steps("hold", {"10", "01"})));
  EXPECT_THAT(sectionOf("dest", "timeplate 0"),
              HasSubstr("    track\n    event 2nS P\n    event 3nS S\n    event 12nS ?\n"
                        "    on 1\n    track\n    event 0pS ?\n    event 13nS S\n    on 2\n"));
}

TEST_F(MuxifyTest, TakesTracksOfBusesAndBothDirections) {
  DatabaseText text;
  text.signal("d0", "input").signal("d1", "input").signal("b", "bidir");
  text.signalRecords("signal 9 \"d\" type=bus direction=input left=1 right=0\n  members 2 1\n");
  text.plate("tp", "10nS",
             {{"d0", "0pS S", ""}, {"b", "0pS S", "input"}, {"b", "0pS X 9nS Q", "output"}});
  std::string bused = text.rows(steps("tp", {"01Z-", "10-1"})).text();
  for (const char* list : {"of 1\n", "on 1\n"}) bused.replace(bused.find(list) + 3, 1, "9");
  build("A", bused);
  expectDone(muxify(2));
  EXPECT_EQ(rowsOf("dest"), "rows main\n  row \"tp_tp\" |0110Z--1\n");
  EXPECT_THAT(sectionOf("dest", "timeplate 0"),
              AllOf(HasSubstr("  slot input\n    of 5\n  slot input\n    of 7\n  slot output\n"
                              "    of 7\n  slot input\n    of 8\n  slot output\n    of 8\n"),
                    EndsWith("    event 10nS X\n    event 19nS Q\n    on 8\n")));
}

// --- Names ---------------------------------------------------------------------------

TEST_F(MuxifyTest, ChildrenStepOverNamesOfTheSource) {
  DatabaseText text;
  text.signal("a", "input").signal("a_1", "input").signal("a_3", "input");
  text.plate("tp", "10nS", {{"a a_1 a_3", "0pS S", ""}});
  muxed(2, text.rows(steps("tp", {"101"})));
  EXPECT_THAT(linesOf("dest", "signal "),
              AllOf(HasSubstr("1 \"a_2\""), HasSubstr("2 \"a_4\""), HasSubstr("\"a_1\" type=mux"),
                    HasSubstr("\"a_1_1\""), HasSubstr("\"a_1_2\""), HasSubstr("\"a_3_2\"")));
}

// --- Destination ---------------------------------------------------------------------

TEST_F(MuxifyTest, ReplacesTheDestinationAndReports) {
  build("A", smallChip().mode(3).rows(steps("tp", {"10", "01"})));
  build("dest", twoPlates().rows(steps("slow", {"10"})).more("label \"old\" row=0\n"));
  const Outcome outcome = muxify(2);
  expectDone(outcome);
  EXPECT_EQ(outcome.report,
            "Beginning muxify operation (degree = 2)...\n"
            "Muxify operation completed successfully.\n");
  EXPECT_EQ(rowsOf("dest"), "rows main\n  row \"tp_tp\" |1001\n");
  EXPECT_THAT(dump("dest"), AllOf(HasSubstr("timeplates mode=3\n"), Not(HasSubstr("slow")),
                                  Not(HasSubstr("old"))));
}

TEST_F(MuxifyTest, RefusesWhatItCantOpenAndItsOwnSource) {
  const std::string failed = "main: Muxify operation failed.\n";
  expectRefused(muxify(2), "muxify(): PVB: (A) does not exist.\n" + failed);
  build("A", smallChip().rows(steps("tp", {"10", "01"})));
  for (const char* path : {"A", "./A"}) {
    expectRefused(muxify(2, path), "muxify(): Destination PVB (" + std::string(path) +
                                       ") is the same as source PVB (A)\n" + failed);
  }
  expectRefused(runParameters({"Operation=muxify", "SourcePVB1=A", "MuxDegree=2"}),
                "muxify(): Parameter (destinationPVB) not specified.\n" + failed);
  EXPECT_THAT(muxify(2, "no/dest").err,
              StartsWith("muxify(): Unable to open PVB: (no/dest)\n" + failed));
}

TEST_F(MuxifyTest, PrintsTheTimeplatesInsteadWhenAsked) {
  build("A", smallChip().rows(steps("tp", {"10", "01"})));
  setenv("DUMP_TPS", "", 1);
  const Outcome outcome = muxify(2);
  unsetenv("DUMP_TPS");
  expectDone(outcome);
  EXPECT_EQ(outcome.report,
            "Beginning muxify operation (degree = 2)...\n"
            "timeplate 0 tp period 10nS\n  track 0 input: a | 0pS D 4nS S\n"
            "  track 1 output: y | 0pS X 9nS Q\n");
  EXPECT_FALSE(exists("dest"));
}

// --- Refusals ------------------------------------------------------------------------

TEST_F(MuxifyTest, StopsAtSignalsThatCantBeFolded) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  expectDone(muxify(2));
  build("A", dump("dest"));
  expectErrors(
      "Error: Muxed signal (a) detected in source PVB.  Not supported.\n"
      "muxify(): createSignalList() failed\n");
  std::string text = smallChip().rows(steps("tp", {"10"})).text();
  build("A", text.erase(text.find(" out=1"), 6));
  expectErrors(
      "outputMuxedPatternRow(): No OUTPUT pattern column defined for source signal y.\n"
      "muxify(): muxifyPattern() failed\n");
}

TEST_F(MuxifyTest, StopsAtTimeplatesThatCantBeFolded) {
  const std::pair<TrackText, const char*> table[] = {
      {{"a", "0pS S", "bidir"}, "Error: Bidir track found in timeplate odd.  Not supported.\n"},
      {{"a", "2nS P", ""},
       "Error: 'P'-only track found for signal a in timeplate odd.  Not supported.\n"},
  };
  for (const auto& [track, line] : table) {
    build("A", smallChip()
                   .plate("odd", "10nS", {track})
                   .rows(steps("tp", {"10", "01"}) + steps("odd", {"11"})));
    expectErrors(line + std::string("muxify(): muxifyPattern() failed\n"));
    EXPECT_EQ(rowsOf("dest"), "rows main\n  row \"tp_tp\" |1001\n");
  }
  // Two groups whose names join to the same.
  DatabaseText text = smallChip();
  text.plate("tp_tp", "10nS", {{"a", "0pS S", ""}, {"y", "0pS X", ""}});
  build("A", text.rows(steps("tp", {"10"}) + steps("tp_tp", {"10", "10"}) + steps("tp", {"10"})));
  expectErrors(
      "insertMuxedTimeplate(): PVBtimePlateInsert() failed.\n"
      "muxify(): muxifyPattern() failed\n");
}

}  // namespace
