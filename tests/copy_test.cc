// Copy and delete as a user sees them: regions of one database become databases, and
// databases go.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/operation_world.h"
#include "support/pattern_model.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class CopyTest : public testing::Test, protected OperationWorld {
 protected:
  CopyTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  // Copies a stretch of database A to "dest".
  Outcome copyRegion(const std::string& start, const std::string& stop,
                     std::vector<std::string> parameters = {}) {
    return runOperations("#% regionname pvbname start stop\n r A " + start + " " + stop +
                             "\n#% operation operand1 operand2\n copy r dest\n",
                         std::move(parameters));
  }
};

const char kFailed[] = "main: Copy operation failed.\n";
const char kRowsFailed[] =
    "copy: Detected internal error while concatenating PVB (A) to destination.\n"
    "main: Copy operation failed.\n";

// Every kind of row that a copy keeps.
DatabaseText everyStructure(int version) {
  DatabaseText text = smallChip(version);
  text.signalRecords(
      "signal 7:200000 \"ALLSCAN\" type=scan-group\n  members 9:1 5:1 5:2\n"
      "signal 9:1 \"chain\" type=chain\n  members 5:1 5:2\n  ate-pins 1 2\n"
      "signal 5:1 \"cell1\" type=cell\nsignal 5:2 \"cell2\" type=cell\n");
  text.plate("slow", "20nS", {{"a", "0pS S", ""}, {"y", "0pS X 15nS Q", ""}});
  text.beforeRows("vector \"load\" value=7\n  cells |01\n");
  text.rows(
      "  row \"tp\" |10\n    prop 1 \"first\"\n  loop x3 comment=\"count\"\n    prop 7 \"loop\"\n"
      "    row \"tp\" |01\n    loop x2\n      row \"slow\" x5 |11\n    end\n"
      "  end comment=\"counted\"\n    prop 8 \"end\"\n  call \"init\" x2 comment=\"twice\"\n  row "
      "\"tp\" x100000 |0-\n  call \"init\"\n"
      "  scan \"tp\" x2 |-1\n    run in 9:1 \"load\"\n  row \"tp\" |ZX\n");
  text.subroutine("init", "  row \"slow\" x3 |10\n  row \"tp\" |01\n");
  text.more("label \"start\" row=0\nlabel \"body\" row=2 kind=begin text=\"in the loop\"\n");
  return text;
}

TEST_F(CopyTest, KeepsEveryStructureOfAWholeDatabase) {
  for (const int version : {501, 1501}) {
    build("A", everyStructure(version));
    expectDone(runOperations("copy A dest"));
    EXPECT_EQ(recordsOf("dest"), recordsOf("A"));
    EXPECT_EQ(directory().read("dest/pvb.h"), directory().read("A/pvb.h"));
  }
}

TEST_F(CopyTest, ReportsTheRegion) {
  build("A", smallChip().rows(steps("tp", {"10", "01", "11"})));
  const auto body = [](const std::string& name, const std::string& start, const std::string& stop) {
    return "\n\nCopy the following PVB Region: " + name + " to dest\n" +
           regionTable({{name, "A", start, stop}}) + "\n";
  };
  EXPECT_EQ(runOperations("copy A dest").report, body("A", "begin", "end"));
  EXPECT_EQ(copyRegion("10ns", "0.02us").report, body("r", "10nS", "20nS"));
  const Outcome byParameters = runParameters(
      {"Operation=Copy", "SourcePVB1=A", "Start1=10ns", "DestinationPVB=dest", "SaveReport=yes"});
  expectDone(byParameters);
  EXPECT_EQ(byParameters.report, "");
  EXPECT_THAT(directory().read("pvbcond.rpt"), EndsWith(body("A", "10nS", "end")));
}

struct Bounds {
  const char* start;
  const char* stop;
  const char* rows;
  const char* plates;
};

TEST_F(CopyTest, TakesTheRowsBetweenTheBounds) {
  build("A", smallChip().rows(steps("tp", {"10", "01", "11", "00"})));
  const char whole[] = "timeplate 0 \"tp\" period=10nS\n";
  const Bounds table[] = {
      {"begin", "end", "  row \"tp\" |10\n  row \"tp\" |01\n  row \"tp\" |11\n  row \"tp\" |00\n",
       whole},
      {"10ns", "30ns", "  row \"tp\" |01\n  row \"tp\" |11\n", whole},
      {"30ns", "40ns", "  row \"tp\" |00\n", whole},
      {"4ns", "20ns", "  row \"tp_4nS\" |10\n  row \"tp\" |01\n",
       "timeplate 0 \"tp_4nS\" period=6nS\ntimeplate 1 \"tp\" period=10nS\n"},
      {"10ns", "25ns", "  row \"tp\" |01\n  row \"tp_0pS\" |11\n",
       "timeplate 0 \"tp\" period=10nS\ntimeplate 1 \"tp_0pS\" period=5nS\n"},
      {"19.5ns", "20.5ns", "  row \"tp_9.5nS\" |01\n  row \"tp_0pS\" |11\n",
       "timeplate 0 \"tp_9.5nS\" period=500pS\ntimeplate 1 \"tp_0pS\" period=500pS\n"},
      // The row that holds the start is taken to its end, whatever the stop.
      {"4ns", "6ns", "  row \"tp_4nS\" |10\n", "timeplate 0 \"tp_4nS\" period=6nS\n"},
  };
  for (const Bounds& row : table) {
    SCOPED_TRACE(std::string(row.start) + " to " + row.stop);
    expectDone(copyRegion(row.start, row.stop));
    EXPECT_EQ(rowsOf("dest"), std::string("rows main\n") + row.rows);
    EXPECT_EQ(linesOf("dest", "timeplate "), row.plates);
  }
  expectDone(copyRegion("4ns", "15ns"));
  EXPECT_EQ(sectionOf("dest", "timeplate 0"),
            "timeplate 0 \"tp_4nS\" period=6nS\n  slot input\n    of 1\n  slot output\n    of 2\n"
            "  level 0pS\n    track\n    event 0pS S\n    on 1\n"
            "    track\n    event 0pS X\n    event 5nS Q\n    on 2\n");
  EXPECT_EQ(sectionOf("dest", "timeplate 1"),
            "timeplate 1 \"tp_0pS\" period=5nS\n  slot input\n    of 1\n  slot output\n    of 2\n"
            "  level 0pS\n    track\n    event 0pS D\n    event 4nS S\n    on 1\n"
            "    track\n    event 0pS X\n    on 2\n");
}

TEST_F(CopyTest, RefusesWhatARegionCannotHold) {
  struct Refused {
    const char* rows;
    const char* start;
    const char* stop;
    std::string lines;
  };
  const std::string compression = "Use of compression was detected but is not supported: (";
  const std::string noRows = "concatRegion: No pattern rows in source region of PVB (A).\n";
  const Refused table[] = {
      {"  row \"tp\" |10\n", "10ns", "end", noRows},
      {"  row \"tp\" |10\n  spacer spacer-time=1uS spacer-addresses=2\n", "begin", "end",
       "PVBregionPatternInqNext: " + compression +
           "Skip structure found on row 1, duration 1uS. )\n"},
      {"  row \"tp\" |10\n  match \"tp\"\n", "begin", "end",
       "PVBregionPatternInqNext: " + compression + "Unsupported structure found on row 1. )\n"},
      {"  row \"tp\" |10\n  row \"tp\" x3 |01\n", "begin", "20ns",
       "PVBregionPatternInqNext: Stop time (20nS) of equation containing PVB region (r) does not "
       "align with cycle boundary.\n"},
      {"  row \"tp\" |10\n  loop x3\n    row \"tp\" |01\n  end\n", "25ns", "end",
       "PVBregionPatternInqFirst: " + compression +
           "Loop structure with 3 repeats found on row 1, cycle 1. )\n" + noRows},
  };
  for (const Refused& row : table) {
    SCOPED_TRACE(row.rows);
    build("A", smallChip().rows(row.rows));
    std::string failed = kRowsFailed;
    failed.replace(failed.find("(A)"), 3, "(r)");
    expectRefused(copyRegion(row.start, row.stop), row.lines + failed);
  }
}

TEST_F(CopyTest, RefusesItsOwnSourceAsDestination) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  std::filesystem::create_directory_symlink(directory().path("A"), directory().path("destLink"));
  for (const std::string destination : {"A", "./A", "A/", "destLink"}) {
    expectRefused(
        runParameters({"Operation=copy", "SourcePVB1=A", "DestinationPVB=" + destination}),
        "copy: Destination PVB (" + destination + ") is the same as source PVB (A)\n" + kFailed);
  }
}

TEST_F(CopyTest, ReplacesADestinationWithAllItHolds) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  build("dest", everyStructure(1501).more("file \"pvb.sdb\"\n  data c3BlYyBkYXRhAP8=\n"));
  expectDone(runOperations("copy A dest"));
  EXPECT_EQ(dump("dest"), dump("A"));
  EXPECT_FALSE(exists("dest/pvb.sdb"));
  // What was there goes before the source's rows are looked at.
  build("dest", everyStructure(501));
  expectRefused(copyRegion("1us", "end"),
                "concatRegion: No pattern rows in source region of PVB (A).\n"
                "copy: Detected internal error while concatenating PVB (r) to destination.\n" +
                    std::string(kFailed));
  EXPECT_FALSE(exists("dest/pvb.h"));
}

// What a link leads to is emptied but stays.
TEST_F(CopyTest, ADestinationMayBeALink) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  std::filesystem::create_directory(directory().path("destDisk"));
  std::filesystem::create_directory_symlink(directory().path("destDisk"), directory().path("dest"));
  for (int run = 0; run < 2; ++run) expectDone(runOperations("copy A dest"));
  EXPECT_EQ(dump("destDisk"), dump("A"));
}

TEST_F(CopyTest, CarriesTheFilesBesideTheRowsWhole) {
  build("A", smallChip()
                 .rows(steps("tp", {"10", "01", "11"}))
                 .more("label \"late\" row=2 text=\"kept\"\n"
                       "heading 12 \"short\" \"A longer text\" items=2 limit=100\n  finding\n"
                       "    item kind=1 number=5\nfile \"pvb.pg\"\n  data c3BlYyBkYXRhAP8=\n"));
  expectDone(copyRegion("begin", "20ns"));
  for (const char* file : {"pvb.lb", "pvb.m", "pvb.mt", "pvb.h"}) {
    EXPECT_EQ(directory().read(std::string("dest/") + file),
              directory().read(std::string("A/") + file))
        << file;
  }
}

TEST_F(CopyTest, BusesOfTimeplatesBecomeTheirScalarsAndAreNotCarried) {
  DatabaseText text;
  text.signal("d[1]", "input").signal("d[0]", "input").signal("y", "output");
  text.signalRecords(
      "signal 9 \"d\" type=bus direction=input left=1 right=0\n  members 1 2\n"
      "signal 8 \"mine\" type=group\n  members 1 3\n");
  text.plate("tp", "10nS", {{"d[1] d[0]", "0pS D 4nS S", ""}, {"y", "0pS X 9nS Q", ""}});
  std::string bused = text.rows(steps("tp", {"101", "01Z"})).text();
  for (const std::string list : {"    of 1 2\n", "    on 1 2\n"}) {
    bused.replace(bused.find(list), list.size(), list.substr(0, 6) + " 9\n");
  }
  build("A", bused);
  expectDone(runOperations("copy A dest"));
  EXPECT_EQ(linesOf("dest", "signal 9") + linesOf("dest", "signal 8"), "");
  EXPECT_EQ(shown(modelOf(dump("dest")).wave), shown(modelOf(text.text()).wave));
}

TEST_F(CopyTest, PropertiesSwapTheirValues) {
  build("A", smallChip().rows("  row \"tp\" |10\n    prop 1 \"one\"\n    prop 2 \"two\"\n"
                              "    prop 3\n    prop 4 \"\"\n"));
  expectDone(runOperations("copy A dest"));
  // Values keep their order and kinds don't; saving turns the whole list round.
  EXPECT_EQ(rowsOf("dest"),
            "rows main\n  row \"tp\" |10\n    prop 1 \"\"\n    prop 2\n    prop 3 \"two\"\n"
            "    prop 4 \"one\"\n");
}

TEST_F(CopyTest, TimeplatesKeepTheirProperties) {
  const std::string notes = "  prop 1 \"for the tester\"\n  prop 7\n";
  for (const int version : {501, 1501}) {
    std::string text = smallChip(version).rows(steps("tp", {"10", "01"})).text();
    build("B", text);
    const std::string head = "timeplate 0 \"tp\" period=10nS\n";
    build("A", text.insert(text.find(head) + head.size(), notes));
    expectDone(runOperations("copy A dest1\nconcat A B dest2\nconcat B A dest3\n"));
    for (const char* properties : {"  prop 1 \"for the tester\"\n", "  prop 7\n"}) {
      EXPECT_THAT(sectionOf("dest1", "timeplate 0"), HasSubstr(properties));
      EXPECT_THAT(sectionOf("dest2", "timeplate 0"), HasSubstr(properties));
    }
    // A plate that is there already keeps its own.
    EXPECT_EQ(sectionOf("dest3", "timeplate 0"), sectionOf("B", "timeplate 0"));
  }
}

TEST_F(CopyTest, ASignalWithoutATrackIsAnInternalError) {
  DatabaseText text;
  text.signal("a", "input").signal("y", "output");
  text.plate("half", "10nS", {{"a", "0pS S", ""}});
  build("A", text.rows(steps("half", {"10"})));
  expectRefused(runOperations("copy A dest"),
                "\nFATAL: validateSignalToTrackMapEntry (half, y) failed\n"
                "Internal Error. Save input files and contact KORVANE representative.\n");
}

TEST_F(CopyTest, ExtendedDatabasesKeepSelectorsAndBitColumns) {
  std::string text =
      DatabaseText(1501)
          .signal("a", "input")
          .signal("y", "output")
          .plate("tp", "10nS",
                 {{"a", "0pS D 4nS S", ""}, {"a", "0pS U 4nS S", ""}, {"y", "0pS X 9nS Q", ""}})
          .rows(steps("tp", {"1Z0!?", "0Z1X0"}))
          .text();
  const auto replace = [&](const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
  };
  replace("direction=input in=0", "direction=input multi-track=1\n  tracks 0 2");
  replace("direction=output out=1", "direction=output out=1 bit-in=3 bit-out=4");
  replace("next-column=2", "next-column=5");
  replace("    track\n", "    track selector=\"a\"\n");
  replace("    track\n", "    track selector=\"b\"\n");
  build("A", text);
  for (const char* operation : {"copy A dest -", "concat A A dest"}) {
    expectDone(runOperations(operation));
    EXPECT_EQ(sectionOf("dest", "timeplate 0"), sectionOf("A", "timeplate 0"));
    expectSame("A", "dest", {"--b-to", "20nS"});
  }
}

TEST_F(CopyTest, RefusesMultiplexedSignals) {
  build("A", smallChip().signal("io", "input", "mux").rows(steps("tp", {"10"})));
  expectRefused(runOperations("copy A dest"),
                "categorizeSignals: (1) multiplexed signal(s) found in PVB region (A), multiplexed "
                "signals currently not supported.\n"
                "Internal Error. Save input files and contact KORVANE representative.\n");
}

TEST_F(CopyTest, LimitsTheTimeplates) {
  build("A", smallChip()
                 .plate("slow", "20nS", {{"a", "0pS S", ""}, {"y", "0pS X 15nS Q", ""}})
                 .rows(steps("tp", {"10"}) + steps("slow", {"01"}) + steps("tp", {"11"})));
  for (const std::string limit : {"0", "1"}) {
    const std::string count = limit == "0" ? "1" : "2";
    const Outcome outcome = runOperations("copy A dest", {"TPGenLimit=" + limit});
    EXPECT_THAT(outcome.err, HasSubstr("Number of generated timeplates (" + count +
                                       ") exceeds limit (" + limit + ")\n" + kRowsFailed));
    EXPECT_EQ(outcome.exitCode, 1);
  }
  expectDone(runOperations("copy A dest", {"TPGenLimit=2"}));
  expectDone(runOperations("copy A dest", {"TPGenLimit=-1"}));
}

TEST_F(CopyTest, NamesDatabasesThatAreMissingOrCannotBeOpened) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  expectRefused(runOperations("copy none dest"),
                "copy: PVB: (none) does not exist.\n" + std::string(kFailed));
  std::filesystem::create_directory(directory().path("empty"));
  expectRefused(runOperations("copy empty dest"),
                "copy: PVB: (empty) does not exist.\n" + std::string(kFailed));
  EXPECT_FALSE(exists("dest"));
  build("broken", smallChip().rows(steps("tp", {"10"})));
  directory().write("broken/pvb.s", "SIGNALS many\n");
  const Outcome source = runOperations("copy broken dest");
  EXPECT_THAT(source.err,
              StartsWith("copy: Unable to open PVB: (broken)\n" + std::string(kFailed)));
  EXPECT_EQ(source.exitCode, 1);
  build("destBroken", smallChip());
  directory().write("destBroken/pvb.h", "\xff");
  const Outcome destination = runOperations("copy A destBroken");
  EXPECT_THAT(destination.err,
              StartsWith("copy: Unable to open PVB: (destBroken)\n" + std::string(kFailed)));
  EXPECT_EQ(directory().read("destBroken/pvb.h"), "\xff");
}

// --- Several operations --------------------------------------------------------------

TEST_F(CopyTest, OperationsOfOneFileShareTheirRegions) {
  build("A", smallChip().rows(steps("tp", {"10", "01", "11"})));
  const Outcome outcome = runOperations(
      "#% regionname pvbname start stop\n r A 10ns 30ns\n"
      "#% operation operand1 operand2 operand3\n"
      " copy r dest1\n copy r dest2\n concat r r dest3\n copy dest3 dest4\n deleteDB dest1 "
      "dest2\n");
  expectDone(outcome);
  EXPECT_FALSE(exists("dest1"));
  EXPECT_FALSE(exists("dest2"));
  EXPECT_EQ(dump("dest3"), dump("dest4"));
  EXPECT_EQ(modelOf(dump("dest4")).cycles.size(), 4U);
  // The first failure ends the run; what was done before stays.
  expectRefused(runOperations(" copy A dest5\n copy none dest6\n copy A dest7"),
                "copy: PVB: (none) does not exist.\n" + std::string(kFailed));
  EXPECT_TRUE(exists("dest5"));
  EXPECT_FALSE(exists("dest7"));
}

TEST_F(CopyTest, ADuplicateRowEndsTheRunAfterTheCopy) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  expectRefused(runOperations(" copy A dest -\n duplicateRow A dest -"),
                "Internal error: Unrecognized operation.  Exiting...\n");
  EXPECT_EQ(dump("dest"), dump("A"));
}

// --- Delete --------------------------------------------------------------------------

TEST_F(CopyTest, DeletesEachOperandAndReportsIt) {
  build("dest1", smallChip().rows(steps("tp", {"10"})));
  std::filesystem::create_directories(directory().path("dest2/deep/er"));
  const Outcome outcome = runOperations("deleteDB dest1 dest2 destNone");
  expectDone(outcome);
  std::string body;
  for (const std::string name : {"dest1", "dest2", "destNone"}) {
    EXPECT_FALSE(exists(name));
    body += "\n\nDelete " + name + "\n" + regionTable({{name, name, "begin", "end"}}) + "\n";
  }
  EXPECT_EQ(outcome.report, body);
  build("dest1", smallChip().rows(steps("tp", {"10"})));
  expectRefused(runOperations(" deleteDB dest1 - -\n copy dest1 dest2 -"),
                "copy: PVB: (dest1) does not exist.\n" + std::string(kFailed));
}

}  // namespace
