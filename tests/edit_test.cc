// Add, cut and rename as a user sees them: signals that come, go and get other names, in a
// new database or in the source itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "support/operation_world.h"

namespace {

class EditTest : public testing::Test, protected OperationWorld {
 protected:
  EditTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  // A list "l" of the operation file, with columns of its own, and one operation with it.
  Outcome edit(const std::string& operation, const std::string& columns, const std::string& items,
               const std::string& operands, const std::string& more = "") {
    return runOperations("#% " + columns + "\n" + items + more +
                         "#% operation operand1 operand2 operand3\n " + operation + " " + operands +
                         "\n");
  }
  Outcome add(const std::string& items, const std::string& shapes = "",
              const std::string& operands = "A l dest") {
    return edit("add", "addlist addsigname sigdir track patbit", items, operands,
                shapes.empty() ? "" : "#% trackname sigshape\n" + shapes);
  }
  Outcome cut(const std::string& items, const std::string& operands = "A l dest") {
    return edit("cut", "cutlist cutsigname", items, operands);
  }
  Outcome rename(const std::string& items, const std::string& operands = "A l dest") {
    return edit("rename", "siglist oldsigname newsigname", items, operands);
  }
  void buildBus() {
    DatabaseText text;
    text.signal("a[0]", "input").signal("a[1]", "input").signal("a[2]", "input");
    text.signal("y", "output");
    text.plate("tp", "10nS", {{"a[0] a[1] a[2]", "0pS S", ""}, {"y", "0pS X 5nS Q", ""}});
    build("A", text.rows(steps("tp", {"1010", "0101"})));
  }
  // The names of the scalars, by id.
  std::string scalars(const std::string& database = "dest") const {
    std::string names;
    std::istringstream in(linesOf(database, "signal "));
    for (std::string line; std::getline(in, line);) {
      if (line.find("type=scalar") == std::string::npos) continue;
      const std::size_t at = line.find('"') + 1;
      names += line.substr(at, line.find('"', at) - at) + " ";
    }
    return names;
  }
};

// The run ended well and told these lines.
void expectDoneWith(const Outcome& outcome, const std::string& lines) {
  EXPECT_EQ(outcome.exitCode, 0);
  const std::string end = " seconds\n";
  const std::size_t at = outcome.err.find(end);
  EXPECT_EQ(outcome.err.substr(at == std::string::npos ? 0 : at + end.size()), lines);
}

// --- The shared road -----------------------------------------------------------------

TEST_F(EditTest, WorksOnACopyOrInTheSourceItself) {
  buildBus();
  build("dest", smallChip());
  for (const char* operation : {"add", "cut", "rename"}) {
    const std::string verb = operation;
    const std::string begin = "\n\nBeginning " + verb + " operation...\n";
    const auto run = [&](const std::string& operands) {
      if (verb == "add") return add(" l z i - -\n", "", operands);
      return verb == "cut" ? cut(" l a[0]\n", operands) : rename(" l a[0] z\n", operands);
    };
    Outcome outcome = run("A l dest");
    expectDone(outcome);
    EXPECT_EQ(outcome.report,
              begin + "\nWarning!..." + verb + " op will modify destination pvb (dest).\n\n\n");
    const std::string expected = dump("dest");
    outcome = run("A l destNew");
    expectDone(outcome);
    EXPECT_EQ(outcome.report, begin + "\n\n");
    EXPECT_EQ(dump("destNew"), expected);
    std::filesystem::create_directory_symlink(directory().path("destA"),
                                              directory().path("destLink"));
    for (const std::string operands : {"destA l -", "destA l ./destA", "destLink l -"}) {
      SCOPED_TRACE(operands);
      std::filesystem::copy(directory().path("A"), directory().path("destA"));
      directory().write("destA/notes.txt", "mine");
      outcome = run(operands);
      expectDone(outcome);
      EXPECT_EQ(outcome.report, begin + "\nWarning!..." + verb +
                                    " op will modify the source pvb (" +
                                    operands.substr(0, operands.find(' ')) + ").\n\n\n");
      EXPECT_EQ(dump("destA"), expected);
      EXPECT_EQ(directory().read("destA/notes.txt"), "mine");
      EXPECT_FALSE(exists("destA_"));
      EXPECT_FALSE(exists("destLink_"));
      std::filesystem::remove_all(directory().path("destA"));
    }
    std::filesystem::remove_all(directory().path("destNew"));
    std::filesystem::remove(directory().path("destLink"));
  }
}

TEST_F(EditTest, NamesWhatIsMissing) {
  buildBus();
  expectRefused(add(" l z i - -\n", "", "none l dest"),
                "adds: PVB: (none) does not exist.\nmain: Add operation failed\n");
  expectRefused(cut(" l z\n", "none l dest"),
                "cut: PVB: (none) does not exist.\nmain: Cut operation failed\n");
  expectRefused(rename(" l y z\n", "none l dest"),
                "renameSignal: PVB: (none) does not exist.\nmain: Rename operation failed\n");
  EXPECT_FALSE(exists("dest"));
  expectDone(add(" l z i - -\n", "", "A k dest"));
  expectDoneWith(cut(" l y\n", "A k dest1"),
                 "cut: operand2 (k) does not match a cutlist name in the operation file.\n");
  expectDoneWith(rename(" l y z\n", "A k dest2"),
                 "renameSignal: operand2 (k) does not match a siglist name in the operation "
                 "file.\n");
  EXPECT_EQ(scalars("dest1"), scalars("A"));
}

// --- Add -----------------------------------------------------------------------------

TEST_F(EditTest, AddsSignalsWithTracks) {
  build("A", smallChip()
                 .rows("  row \"tp\" |10\n  loop x2 comment=\"kept\"\n    row \"tp\" |01\n  end\n"
                       "  call \"s\" comment=\"too\"\n")
                 .subroutine("s", "  row \"tp\" |11\n"));
  expectDone(
      add(" l b[1..0] Input t 1\n - c out t2 x\n - d bio t3 0Z\n - e boi t3 10\n - f bx t 1\n",
          " t [10ns:C,20ns:s]\n t2 [0ps:n,3NS:q]\n t3 [5ns:X]\n t3 [1s:R,2us:C,.5ms:X]\n"));
  EXPECT_EQ(scalars(), "a y b[0] b[1] c d e f ");
  EXPECT_EQ(rowsOf("dest"),
            "rows main\n  row \"tp\" |1011X0Z01\n  loop x2 comment=\"kept\"\n"
            "    row \"tp\" |0111X0Z01\n  end\n  call \"s\" comment=\"too\"\n");
  EXPECT_EQ(sectionOf("dest", "rows 0"), sectionOf("A", "rows 0"));
  const std::string in = "    track\n    event 0pS C\n    event 20pS S\n    on ";
  const std::string both =
      "    track\n    event 0pS R\n    event 2nS C\n    event 500nS X\n    on ";
  EXPECT_EQ(sectionOf("dest", "timeplate 0"),
            "timeplate 0 \"tp\" period=10nS\n  slot input\n    of 1\n  slot output\n    of 2\n"
            "  slot input\n    of 3\n  slot input\n    of 4\n  slot output\n    of 5\n"
            "  slot bidir\n    of 6\n  slot bidir\n    of 7\n  slot undefined\n    of 8\n"
            "  level 0pS\n    track\n    event 0pS D\n    event 4nS S\n    on 1\n"
            "    track\n    event 0pS X\n    event 9nS Q\n    on 2\n" +
                in + "3\n" + in + "4\n    track\n    event 0pS N\n    event 3pS Q\n    on 5\n" +
                both + "6\n" + both + "7\n    track\n    on 8\n");
}

TEST_F(EditTest, ASignalWithoutTrackGetsItsEventInTheFirstTimeplateOnly) {
  build("A", smallChip()
                 .plate("slow", "25nS", {{"a", "0pS S", ""}, {"y", "0pS X", ""}})
                 .rows("  row \"tp\" |10\n  row \"slow\" |01\n"));
  expectDone(
      add(" l i i - -\n - o O - -\n - b1 bi - -\n - b2 BO - -\n - b3 bio - -\n"
          " - b4 boi - -\n"));
  const std::string first = sectionOf("dest", "timeplate 0");
  const std::string in = "    track\n    event 0pS N\n    on ";
  const std::string out = "    track\n    event 0pS X\n    on ";
  EXPECT_EQ(first.substr(first.find(in)),
            in + "3\n" + out + "4\n" + in + "5\n" + out +
                "6\n    track\n    event 0pS N\n    event 5nS X\n    on 7\n"
                "    track\n    event 0pS X\n    event 5nS N\n    on 8\n");
  const std::string second = sectionOf("dest", "timeplate 1");
  std::string empty;
  for (const char* id : {"3", "4", "5", "6", "7", "8"}) {
    empty += std::string("    track\n    on ") + id + "\n";
  }
  EXPECT_EQ(second.substr(second.find("    track\n    on 3")), empty);
  EXPECT_EQ(rowsOf("dest"), "rows main\n  row \"tp\" |10\n  row \"slow\" |01\n");
}

TEST_F(EditTest, BadItemsOfAnAddListAreToldAndPassedOver) {
  buildBus();
  expectDoneWith(
      add(" l a[2..4] i t 0\n - y o t 0\n - y i t 0\n - q maybe - -\n - event i t 0\n"
          " - r i none 0\n - s i t 2\n - u i t3 0\n - v i t4 0\n - w i t5 0\n - b[1.2] i - -\n"
          " - b[x..2] i - -\n - k boi t 0\n - good i t 0\n",
          " t [0ns:S]\n t3 [0ns:S,5:S]\n t4 [0ns:Y]\n t5 [0ns:S\n"),
      "PVBsignalInsert: Name already exists in database: y\n"
      "adds: Duplicate signal/bus (a[2]) found in operation file for addlist (l)\n"
      "addSigNameAndDirection: Found indetical signal (y) existing in PVB (dest)\n"
      "addSigNameAndDirection: Signal (y) to added in pvb (dest) failed.\n"
      "addSigNameAndDirection: Signal (q) to added in pvb (dest) failed.\n"
      "matchOpFileTrackToOpFileTrackname: signal (r): track (none) must match a trackname in "
      "operaion file.\n"
      "getPatternState: Invalid pattern bit (2) in operaion file for signal (s)...replacing "
      "invalid pattern bit with '-'.\n"
      "parseShape: Unknown time-unit (5) in operaion file for trackname (t3).\n"
      "parseShape: Unknown shape () in operaion file for trackname (t4).\n"
      "parseShape: Unknown time-unit () in operaion file for trackname (t5).\n"
      "validateBus: Expect two-period separator inside index of bus signal (b[1.2]) in operation "
      "file: siglist (l)\n"
      "validateBus: Malformed index in bus name (b[x..2]) in operation file: siglist (l)\n"
      "getPatternState: Invalid pattern bit () in operaion file for signal (k)...replacing "
      "invalid pattern bit with '-'.\n");
  EXPECT_EQ(scalars(), "a[0] a[1] a[2] y a[3] a[4] event s u v w k good ");
  // The signal without track that wasn't added has left its event to the next one.
  EXPECT_THAT(sectionOf("dest", "timeplate 0"),
              testing::HasSubstr("    track\n    event 0pS N\n    on 7\n"));
}

// Each widens the rows, which have room for 32 states.
TEST_F(EditTest, AddsMoreSignalsThanARowHasRoomFor) {
  build("A", smallChip().rows(steps("tp", {"10", "01"})));
  expectDone(add(" l d[0..49] i t 1\n - e[0..49] o t 0\n", " t [0ns:S]\n"));
  const std::string added = std::string(50, '1') + std::string(50, '0');
  EXPECT_EQ(rowsOf("dest"),
            "rows main\n  row \"tp\" |10" + added + "\n  row \"tp\" |01" + added + "\n");
  EXPECT_THAT(dump("dest"), testing::HasSubstr(" row-width=102"));
}

// --- Cut -----------------------------------------------------------------------------

TEST_F(EditTest, CutsSignalsAndTheTracksThatTheyLeaveEmpty) {
  buildBus();
  expectDone(cut(" l y\n - a[1..2]\n"));
  EXPECT_EQ(scalars(), "a[0] ");
  EXPECT_EQ(sectionOf("dest", "timeplate 0"),
            "timeplate 0 \"tp\" period=10nS\n  slot input\n    of 1\n  level 0pS\n    track\n"
            "    event 0pS S\n    on 1\n");
  EXPECT_EQ(rowsOf("dest"), rowsOf("A"));
}

// Pins and scan chains forget a signal that is gone.
TEST_F(EditTest, CutsAndRenamesWhatPinsAndChainsReferTo) {
  DatabaseText text = smallChip(1501);
  text.signalRecords(
      "signal 7:200000 \"ALLSCAN\" type=scan-group\n  members 9:1 5:1\n"
      "signal 9:1 \"chain\" type=chain\n  members 5:1\n  ate-pins 1 2\n"
      "signal 5:1 \"cell\" type=cell\n");
  text.beforeRows("pins\nate-pin 1 \"P\"\n  signals-of 1 2\n");
  std::string pinned = text.rows(steps("tp", {"10"})).text();
  build("A", pinned.insert(pinned.find("signal 2 "), "  ate-pins 1\n"));
  expectDone(cut(" l y\n"));
  EXPECT_THAT(dump("dest"), testing::AllOf(testing::HasSubstr("  signals-of 1\n"),
                                           testing::HasSubstr("  ate-pins 1 none\n")));
  expectDone(rename(" l cell first\n - chain a[0]\n"));
  EXPECT_THAT(linesOf("dest", "signal "), testing::AllOf(testing::HasSubstr("5:1 \"first\""),
                                                         testing::HasSubstr("9:1 \"a[0]\"")));
}

TEST_F(EditTest, NothingIsCutWhenTheLastNameIsUnknown) {
  buildBus();
  expectDoneWith(cut(" l y\n - z\n"),
                 "cut: Cut name (z), was expected but not found in source PVB (dest)\n");
  EXPECT_EQ(scalars(), scalars("A"));
  expectDoneWith(cut(" l z\n - a[0..3]\n - a[1..0]\n - y\n"),
                 "cut: Cut name (z), was expected but not found in source PVB (dest)\n"
                 "cut: Cut name (a[3]), was expected but not found in source PVB (dest)\n"
                 "checkThenBuildIDlist: Remove duplicate signal/bus (a[0]) found in operation file "
                 "having cutlist (l)\n"
                 "checkThenBuildIDlist: Remove duplicate signal/bus (a[1]) found in operation file "
                 "having cutlist (l)\n");
  EXPECT_EQ(scalars(), "");
}

// --- Rename --------------------------------------------------------------------------

TEST_F(EditTest, RenamesSignalsAndBuses) {
  buildBus();
  expectDone(rename(" l y out\n - a[0..2] d[7..5]\n"));
  EXPECT_EQ(scalars(), "d[0] d[1] d[2] out ");
  EXPECT_EQ(rowsOf("dest"), rowsOf("A"));
  // A narrower range selects by its own bounds, and so do all ranges after it.
  expectDone(rename(" l a[4..7] b[1..0]\n"));
  EXPECT_EQ(scalars(), "b[0] b[1] a[2] y ");
  expectDoneWith(rename(" l a[4..7] b[0..0]\n - a[1..2] c[2..1]\n - c[1..2] e[5..6]\n"),
                 "busRename: Bus name (c[1..2]), was expected but not found in source PVB (A)\n");
  EXPECT_EQ(scalars(), "b[0] c[1] c[2] y ");
}

TEST_F(EditTest, RenamePairsThatCannotBeAreToldAndPassedOver) {
  buildBus();
  struct Case {
    const char* pairs;
    const char* lines;
    const char* names;
  };
  const char same[] = "a[0] a[1] a[2] y ";
  const Case cases[] = {
      {" l a[0..2] a[0..2]\n - a[0..2] a[2..0]\n",
       "checkForIdenticalBuses: Found new sig name (a[0..2]) identical to old sig name in "
       "operation "
       "file: siglist (l)\n"
       "checkForIdenticalBuses: Found new sig name (a[2..0]) identical to old sig name in "
       "operation "
       "file: siglist (l)\n",
       same},
      {" l y a[0]\n - z x\n",
       "sigRename: Source PVB signal (a[0]) found in dest PVB (dest)\n"
       "sigRename: Signal name (z), was expected but not found in source PVB (A)\n",
       same},
      // Single names are looked up as they were before the list.
      {" l y x\n - x w\n - a[0] y\n - a[1] x\n",
       "sigRename: Signal name (x), was expected but not found in source PVB (A)\n"
       "sigRename: Source PVB signal (x) found in dest PVB (dest)\n"
       "sigRename: Source PVB signal (x) found in dest PVB (dest)\n",
       "a[0] a[1] a[2] x "},
      {" l a[0..2] b[0..3]\n",
       "getIndexBusRange: New bus range (b[0..3]) exceeds old bus range (a[0..2]) in operation "
       "file.\n",
       same},
      {" l a[0..2] b\n - a[0..2] b[0...2]\n - a[0..x] b[0..1]\n - .a] b[0..1]\n - .a[0 b[0..1]\n"
       " - [0..1] b[0..1]\n - a[0.1] b[0..1]\n",
       "validateBus: Malformed index in bus name (b) in operation file: siglist (l)\n"
       "validateBus: Expect two-period separator inside index of bus signal (b[0...2]) in "
       "operation "
       "file: siglist (l)\n"
       "validateBus: Malformed index in bus name (a[0..x]) in operation file: siglist (l)\n"
       "validateBus: Missing left bracket in bus signal (.a]) in operation file: siglist (l)\n"
       "validateBus: Missing right bracket in bus signal (.a[0) in operation file: siglist (l)\n"
       "validateBus: Index missing name in bus signal ([0..1]) in operation file: siglist (l)\n"
       "validateBus: Expect two-period separator inside index of bus signal (a[0.1]) in operation "
       "file: siglist (l)\n",
       same},
      {" l c[0..1] b[0..1]\n - a[0..2] y[0..2]\n",
       "busRename: Bus name (c[0..1]), was expected but not found in source PVB (A)\n"
       "validateBus: Bus name (y[0..2]), was expected but not found in source PVB (A)\n",
       same},
      // A name that is taken is never given twice.
      {" l a[0] b[1]\n - a[1..2] b[1..2]\n",
       "busRename: Source PVB signal (b[1]) found in dest PVB (dest)\n", "b[1] a[1] b[2] y "},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.pairs);
    expectDoneWith(rename(row.pairs), row.lines);
    EXPECT_EQ(scalars(), row.names);
  }
}

}  // namespace
