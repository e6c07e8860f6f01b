// Passes over a whole database as a user sees them: flatten, the compression that comments
// ask for, and the comments that name timeplates.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "support/any.h"
#include "support/pattern_model.h"

namespace {

using testing::HasSubstr;

class PassesTest : public testing::Test, protected OperationWorld {
 protected:
  PassesTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  Outcome flatten(const std::string& source, const std::string& destination = "") {
    return run("flatten", source, destination);
  }
  Outcome annotate(const std::string& source, const std::string& destination = "") {
    return run("annotate_vectors", source, destination);
  }
  // Keywords RPT and LOOP.
  Outcome compress(const std::string& source, int blockSize, const std::string& destination = "") {
    return run(
        "addcompression", source, destination,
        {"RepeatKeyword=RPT", "LoopKeyword=LOOP", "LoopBlockSize=" + std::to_string(blockSize)});
  }

 private:
  Outcome run(const std::string& operation, const std::string& source,
              const std::string& destination, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"Operation=" + operation, "SourcePVB1=" + source});
    if (!destination.empty()) more.push_back("DestinationPVB=" + destination);
    return runParameters(std::move(more));
  }
};

std::string prop(const std::string& text) { return "    prop 0 \"" + text + "\"\n"; }

std::string copyLine(const std::string& from, const std::string& to) {
  return "Copying source PVB (" + from + ") to destination PVB (" + to + ")\n";
}
std::string compressionLines(const std::string& path, const std::string& repeat,
                             const std::string& loop) {
  return "Adding compression to PVB: " + path + "\nUsing repeat keyword : '" + repeat +
         "'\nUsing loop keyword : '" + loop + "'\n";
}

// --- Flatten -------------------------------------------------------------------------

// With a chain of two cells, for scan rows.
DatabaseText withChain(DatabaseText text) {
  text.signalRecords(
      "signal 7:200000 \"ALLSCAN\" type=scan-group\n  members 9:1 5:1 5:2\n"
      "signal 9:1 \"chain\" type=chain\n  members 5:1 5:2\n  ate-pins 1 2\n"
      "signal 5:1 \"cell1\" type=cell\nsignal 5:2 \"cell2\" type=cell\n");
  return text.beforeRows("vector \"load\" value=7\n  cells |01\n");
}

// Every type of row, nested.
DatabaseText everyStructure(int version) {
  DatabaseText text = withChain(smallChip(version));
  text.plate("slow", "20nS", {{"a", "0pS S", ""}, {"y", "0pS X 15nS Q", ""}});
  text.rows(
      "  row \"tp\" x3 |10\n    prop 4 \"three\"\n"
      "  loop x2 comment=\"count\"\n    prop 7 \"loop\"\n    row \"tp\" |01\n"
      "    loop x2\n      scan \"tp\" x2\n        run in 9:1 \"load\"\n    end\n"
      "    call \"init\"\n  end\n    prop 8 \"end\"\n"
      "  call \"init\" x2 comment=\"twice\"\n  call \"none\" x1000000000\n"
      "  spacer spacer-time=5nS spacer-addresses=2\n  other type=8 \"tp\" x2 |00\n"
      "  loop x1\n    row \"slow\" |ZX\n  end\n");
  text.subroutine("init", "  row \"slow\" |11\n    prop 4 \"called\"\n  call \"deep\" x2\n");
  text.subroutine("none", "");
  text.subroutine("deep", "  loop x1\n    row \"tp\" x2 |0Z\n  end\n");
  text.more(
      "label \"first\" row=0\nlabel \"loop\" row=1\nlabel \"body\" row=2\n"
      "label \"call\" row=8\nlabel \"last\" row=13\nlabel \"called\" subroutine=0 row=0\n");
  return text;
}

std::string times(int count, const std::string& text) {
  return count == 0 ? std::string() : text + times(count - 1, text);
}

TEST_F(PassesTest, FlattenPlaysEveryStructureOut) {
  const std::string init =
      "  row \"slow\" |11\n    prop 4 \"called\"\n" + times(4, "  row \"tp\" |0Z\n");
  const std::string scan = "  scan \"tp\" x2\n    run in 9:1 \"load\"\n";
  const std::string rows = "rows main\n" + times(3, "  row \"tp\" |10\n    prop 4 \"three\"\n") +
                           times(2, "  row \"tp\" |01\n" + times(2, scan) + init) + times(2, init) +
                           "  spacer spacer-time=5nS spacer-addresses=2\n"
                           "  match \"tp\" x2 |00\n  row \"slow\" |ZX\n";
  for (const int version : {501, 1501}) {
    build("destA", everyStructure(version));
    build("A", everyStructure(version));
    const Outcome copied = flatten("destA", "dest");
    expectDone(copied);
    EXPECT_EQ(copied.report, copyLine("destA", "dest") + "Flattening PVB: dest\n" +
                                 compressionLines("destA", "", ""));
    EXPECT_EQ(recordsOf("destA"), recordsOf("A"));
    const Outcome inPlace = flatten("destA");
    expectDone(inPlace);
    EXPECT_EQ(inPlace.report, "Flattening PVB: destA\n" + compressionLines("destA", "", ""));
    for (const char* flat : {"dest", "destA"}) {
      EXPECT_EQ(rowsOf(flat), rows);
      expectSame("A", flat);
      EXPECT_EQ(linesOf(flat, "subroutine"), "");
      EXPECT_EQ(linesOf(flat, "label"),
                "label \"first\" row=0\nlabel \"loop\"\nlabel \"body\" row=3\nlabel \"call\"\n"
                "label \"last\" row=31\nlabel \"called\"\n");
    }
  }
}

TEST_F(PassesTest, FlattenMakesARepeatedSpacerLong) {
  build("destA", smallChip().rows("  spacer x65536 spacer-time=5nS\n"));
  expectDone(flatten("destA"));
  EXPECT_EQ(rowsOf("destA"), "rows main\n  spacer spacer-time=327.68uS\n");
}

TEST_F(PassesTest, FlattenReadsTheCommentsOfTheSourceForCompression) {
  build("destA", smallChip().rows("  row \"tp\" x2 |10\n" + prop("3 apples")));
  expectDone(flatten("destA", "dest"));
  EXPECT_EQ(linesOf("dest", "  row"), times(2, "  row \"tp\" |10\n"));
  const Outcome again = flatten("dest");
  EXPECT_THAT(again.report, HasSubstr("Repeat count in row 1 changed to 3.\n"));
  EXPECT_EQ(linesOf("destA", "  row"), "  row \"tp\" x3 |10\n");
}

TEST_F(PassesTest, FlattenRefusesWhatHasNoFlatForm) {
  const char tooMany[] = "the flat pattern would have more rows than can be numbered";
  const std::string row = "  row \"tp\" |10\n";
  const auto loops = [&](int depth) {
    return times(depth, "  loop x65536\n") + row + times(depth, "  end\n");
  };
  const std::pair<std::string, std::string> table[] = {
      {"  row \"tp\" x2147483647 |10\n" + row, tooMany},
      {loops(2), tooMany},
      {loops(60), tooMany},
      {row + "  call \"ring\"\n", "subroutine \"ring\" calls itself"},
      {"  spacer x4000000000 spacer-time=1S\n",
       "a repeated spacer would be longer than a time can be"},
  };
  for (const auto& [rows, reason] : table) {
    SCOPED_TRACE(rows);
    const std::string lines = "destA: Flatten operation failed.\nmain: Flatten operation failed.\n";
    build("destA", smallChip().rows(rows).subroutine("ring", row + "  call \"ring\"\n"));
    const std::string before = dump("destA");
    expectRefused(flatten("destA"), lines + "flattenRows: Error 0: " + reason + "\n");
    EXPECT_EQ(dump("destA"), before);
  }
  // What nothing calls may call itself.
  build("destA", smallChip().rows(row).subroutine("ring", row + "  call \"ring\"\n"));
  expectDone(flatten("destA"));
  EXPECT_EQ(rowsOf("destA"), "rows main\n" + row);
}

TEST_F(PassesTest, UselessDestinationsAndBlockSizesAreRefused) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  expectRefused(flatten("A", "A"),
                "copySrcToDstPVB: Destination PVB (A) is the same as source PVB (A)\n"
                "main: Flatten operation failed.\n");
  expectRefused(compress("A", 0),
                "AddCompression: the loop block size must be above 0\n"
                "main: AddCompression() failed to extract repeats in \"*** NO ARG ***\"\n");
  expectRefused(annotate("gone"),
                "annotateVectors: PVB: (gone) does not exist.\nmain: Vector annotation failed.\n");
}

TEST_F(PassesTest, AFullDiskEndsAFlattenWithoutHarmToTheSource) {
  plainFiles_ = true;
  build("A", smallChip().rows("  loop x2\n    row \"tp\" x100000 |10\n  end\n"));
  ProgramCall full;
  full.fileSizeLimit = 1 << 20;
  expectDone(runOperations("copy A dest"));
  full.arguments = {"UseOpFile=no", "Operation=flatten", "SourcePVB1=dest"};
  full.directory = directory().path("");
  full.environment = {{"MVKDIR", directory().path("")}, {"MVK_COMPRESSION_OFF", "1"}};
  const ProgramResult result = runProgram(PVBCONDITIONER_BINARY, full);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("main: Flatten operation failed.\n"));
  expectSame("A", "dest");
}

// --- Compression ---------------------------------------------------------------------

// Rows of one cycle each; a comment on some of them, "-" for none.
std::string commented(const std::vector<std::string>& comments) {
  std::string rows;
  for (const std::string& comment : comments) {
    rows += "  row \"tp\" |10\n";
    if (comment != "-") rows += prop(comment);
  }
  return rows;
}

// Rows without their comments, in short: "r", "r3" for a repeated one, "3(" and ")" for
// a loop.
std::string shape(const std::string& rows) {
  std::istringstream in(rows);
  std::string shape;
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    const std::size_t x = line.find(" x");
    const std::string count =
        x == std::string::npos ? "" : line.substr(x + 2, line.find(' ', x + 1) - x - 2);
    if (word == "row") shape += "r" + count;
    if (word == "loop") shape += count + "(";
    if (word == "end") shape += ")";
    if (word == "call") shape += "c";
  }
  return shape;
}

struct Comments {
  int blockSize;
  std::string rows;
  const char* shape;
  const char* report;
};

TEST_F(PassesTest, CompressionFollowsTheComments) {
  const std::string row = "  row \"tp\" |10\n";
  const Comments table[] = {
      {1, commented({"-", "free text", "RPT", "RPT none", "RPT -2", "RPT 0"}), "rrrrrr", ""},
      {1, commented({"x RPT 5 y", "RPT\t+7LOOP 1,2"}), "r5r7",
       "Repeat count in row 0 changed to 5.\nRepeat count in row 1 changed to 7.\n"},
      // Only the comment that is read first says how often.
      {1, row + prop("RPT") + prop("RPT 3"), "r", ""},
      {1, commented({"-", "LOOP 2, 3", "-", "-"}), "r3(rr)r",
       "Loop inserted starting at row 1, ending at row 4\n"},
      {1, commented({"LOOP 4,2", "-", "RPT 9", "LOOP 1,5", "LOOP 1\t2"}), "2(rrrr)2(r)",
       "Loop inserted starting at row 0, ending at row 5\n"
       "Repeat comment at row 3 ignored because it is inside the loop that ends on row 5.\n"
       "Loop inserted starting at row 6, ending at row 8\n"},
      {4, commented({"-", "-", "-", "LOOP 1 2", "-", "-", "-", "-", "-"}), "rrrr2(rrrr)r",
       "Loop inserted starting at row 4, ending at row 9\n"},
      {4, commented({"-", "LOOP 1,2"}), "rr",
       "Can't insert loop at cycle 4: cycle doesn't exist\n"},
      {1, commented({"-", "LOOP 2,2"}), "rr",
       "There aren't enough rows after cycle 1; ignoring loop in comments\n"},
      {1, commented({"LOOP 0,2", "LOOP 1,0"}), "rr",
       "There aren't enough rows after cycle 0; ignoring loop in comments\n"
       "There aren't enough rows after cycle 1; ignoring loop in comments\n"},
      {1, "  row \"tp\" x2 |10\n" + prop("LOOP 1,2"), "r2",
       "Attempting to insert loop in a repeated row at cycle 0; ignoring loop in comments\n"},
      {1, commented({"LOOP 2,2"}) + "  row \"tp\" x3 |10\n", "rr3",
       "Attempting to insert loop in a repeated row at cycle 2; ignoring loop in comments\n"},
      {2, "  row \"tp\" x3 |10\n" + commented({"LOOP 1,2", "-", "-"}), "r3r2(rr)",
       "Loop inserted starting at row 2, ending at row 5\n"},
      {1, "  loop x2\n  " + row + prop("LOOP 1,2") + "  end\n", "2(r)",
       "A loop already exists at cycle 0; ignoring loop in comments\n"},
      // A call comes whole or not at all.
      {1, commented({"LOOP 2,2"}) + "  call \"sub\"\n", "rc",
       "Attempting to insert loop in a repeated row at cycle 2; ignoring loop in comments\n"},
      {1, commented({"LOOP 3,2"}) + "  call \"sub\"\n", "2(rc)",
       "Loop inserted starting at row 0, ending at row 3\n"},
  };
  for (const Comments& test : table) {
    SCOPED_TRACE(test.rows);
    build("A", smallChip().rows(test.rows).subroutine("sub", commented({"-", "-"})));
    const Outcome outcome = compress("A", test.blockSize, "dest");
    expectDone(outcome);
    EXPECT_EQ(shape(rowsOf("dest")), test.shape);
    EXPECT_EQ(outcome.report,
              copyLine("A", "dest") + compressionLines("dest", "RPT", "LOOP") + test.report);
  }
}

TEST_F(PassesTest, CompressionNamesTheSubroutineAndKeepsCallersRight) {
  build("A", smallChip()
                 .rows("  call \"one\"\n" + steps("tp", {"10"}))
                 .subroutine("one", commented({"RPT 3", "LOOP 1,4", "LOOP 9,9"})));
  const Outcome outcome = runOperations(
      "#% compressspec repeatkey loopkey\n spec RPT LOOP\n"
      "#% operation operand1 operand2 operand3\n addCompression A spec dest\n");
  expectDone(outcome);
  EXPECT_THAT(
      outcome.report,
      HasSubstr("Repeat count in row 0 changed to 3 in subroutine 'one'.\n"
                "Loop inserted in subroutine 'one' starting at row 1, ending at row 3\n"
                "There aren't enough rows after cycle 7 in subroutine 'one'; ignoring loop in "
                "comments\n"));
  EXPECT_EQ(modelOf(dump("dest")).cycles.size(), 9U);
}

// --- Annotation ----------------------------------------------------------------------

TEST_F(PassesTest, AnnotationNamesTheTimeplateOnEveryRow) {
  build("A", smallChip()
                 .rows("  row \"tp\" |10\n" + prop("kept") + "  loop x2\n    row \"tp\" |01\n" +
                       prop("x") + "  end\n  call \"sub\"\n  spacer spacer-time=1nS\n")
                 .subroutine("sub", "  row \"tp\" |11\n    prop 5\n"));
  const Outcome outcome = annotate("A", "dest");
  expectDone(outcome);
  EXPECT_EQ(outcome.report, copyLine("A", "dest") + "Annotation of PVB (dest) complete.\n");
  EXPECT_EQ(linesOf("dest", "    prop 0 \"tp\""), times(2, prop("tp")));
  EXPECT_EQ(linesOf("dest", "      prop 0 \"tp\""), "  " + prop("tp"));
  EXPECT_THAT(dump("dest"), HasSubstr("kept"));
  expectSame("A", "dest");
  build("destEmpty", smallChip());
  EXPECT_EQ(annotate("destEmpty").report, "Annotation of PVB (destEmpty) complete.\n");
}

TEST_F(PassesTest, AnnotationFailsAtARowWithoutProperties) {
  build("destA", smallChip().rows("  row \"tp\" |10\n" + prop("has one") + "  row \"tp\" |01\n"));
  const std::string before = dump("destA");
  for (int i = 0; i < 2; ++i) {
    const Outcome outcome = annotate("destA");
    expectRefused(outcome, "main: Vector annotation failed.\n");
    EXPECT_EQ(outcome.report, "Annotation of PVB (destA) FAILED.\n");
    EXPECT_EQ(dump("destA"), before);
  }
}

// --- Laws ----------------------------------------------------------------------------

std::string counted(int count) { return count > 1 ? " x" + std::to_string(count) : std::string(); }
std::string anyStates() { return {"01ZX"[number(0, 3)], "01X-"[number(0, 3)]}; }
std::string anyLiteral(int count) {
  return std::string("  row \"") + (number(0, 1) == 0 ? "tp" : "slow") + "\"" + counted(count) +
         " |" + anyStates() + "\n";
}

std::string anyRows(int depth, const std::vector<std::string>& called) {
  std::string rows;
  for (int left = number(0, 5); left > 0; --left) {
    const int kind = number(0, 9);
    if (kind < 3 && depth > 0) {
      rows += "  loop" + counted(number(1, 4)) + "\n" + anyRows(depth - 1, called) + "  end\n";
    } else if (kind == 3 && !called.empty()) {
      rows += "  call \"" + oneOf(called) + "\"" + counted(number(1, 3)) + "\n";
    } else if (kind == 4) {
      rows += "  spacer spacer-time=5nS\n";
    } else if (kind == 5) {
      rows += "  scan \"tp\"" + counted(number(1, 3)) + " |" + anyStates() +
              "\n    run in 9:1 \"load\"\n";
    } else {
      rows += anyLiteral(kind == 6 ? number(2, 70) : 1);
    }
  }
  return rows;
}

DatabaseText chip() {
  DatabaseText text = smallChip(number(0, 1) == 0 ? 501 : 1501);
  return text.plate("slow", "25nS", {{"a", "0pS U 5nS C", ""}, {"y", "0pS X 15nS R", ""}});
}

RC_GTEST_PROP(PassesProperty, FlattenKeepsEveryCycle, ()) {
  OperationWorld world({PVBCONDITIONER_BINARY, PVB_BINARY});
  DatabaseText text = withChain(chip());
  // Each may call those behind it.
  text.rows(anyRows(3, {"one", "two"}));
  text.subroutine("one", anyRows(2, {"two"})).subroutine("two", anyRows(2, {}));
  RC_LOG() << text.text();
  world.build("A", text);
  world.build("destA", text);
  std::vector<std::string> parameters = {"Operation=flatten", "SourcePVB1=destA"};
  const bool inPlace = number(0, 1) == 0;
  if (!inPlace) parameters.push_back("DestinationPVB=dest");
  requireDone(world.runParameters(parameters));
  const std::string flat = inPlace ? "destA" : "dest";
  requireSame(world, {"A", flat});
  RC_ASSERT(shape(world.rowsOf(flat)).find_first_not_of('r') == std::string::npos);
}

// A pattern with counts and loops, and the one whose comments ask for them.
RC_GTEST_PROP(PassesProperty, CompressionMakesWhatTheCommentsSay, ()) {
  std::string made;
  std::string asked;
  for (int left = number(1, 6); left > 0; --left) {
    const int count = number(1, 5);
    if (number(0, 1) == 0) {
      const std::string row = anyLiteral(1);
      asked += row + prop("RPT " + std::to_string(count));
      made += row.substr(0, row.find(" |")) + counted(count) + row.substr(row.find(" |"));
      continue;
    }
    const int length = number(1, 4);
    made += "  loop x" + std::to_string(count) + "\n";
    for (int i = 0; i < length; ++i) {
      const std::string row = anyLiteral(1);
      asked += row;
      if (i == 0) asked += prop("LOOP " + std::to_string(length) + "," + std::to_string(count));
      made += row;
    }
    made += "  end\n";
  }
  OperationWorld world({PVBCONDITIONER_BINARY, PVB_BINARY});
  DatabaseText text = chip();
  RC_LOG() << asked;
  world.build("A", DatabaseText(text).rows(made));
  world.build("B", text.rows(asked));
  requireDone(
      world.runParameters({"Operation=addcompression", "SourcePVB1=B", "DestinationPVB=dest",
                           "RepeatKeyword=RPT", "LoopKeyword=LOOP"}));
  requireSame(world, {"A", "dest"});
  RC_ASSERT(shape(world.rowsOf("dest")) == shape(world.rowsOf("A")));
}

}  // namespace
