// Concatenate and insert as a user sees them: the rows of one region behind or in front
// of another's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/operation_world.h"
#include "support/pattern_model.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

const char kFailed[] = "main: Concatenation operation failed.\n";
const char kInsertFailed[] = "main: Insert operation failed.\n";

class ConcatTest : public testing::Test, protected OperationWorld {
 protected:
  ConcatTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  Outcome concatAB(std::vector<std::string> parameters = {}) {
    return runOperations("concat A B dest", std::move(parameters));
  }
  Outcome insertAB(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"Operation=insert", "SourcePVB1=A", "SourcePVB2=B"});
    return runParameters(std::move(more));
  }
  // The wave of database A, then that of B.
  ModelWave aThenB() const {
    const PatternModel a = modelOf(dump("A"));
    return joined(a.wave, a.duration, modelOf(dump("B")).wave);
  }
};

std::string property(int indent, const std::string& text) {
  return std::string(static_cast<std::size_t>(indent), ' ') + "prop 0 \"" + text + "\"\n";
}

TEST_F(ConcatTest, PutsTheRowsBehindEachOtherAndMarksBothStretches) {
  for (const int version : {501, 1501}) {
    build("A", smallChip(version).rows(steps("tp", {"10", "01"})));
    build("B", smallChip(version).rows(steps("tp", {"11"})));
    const Outcome outcome = concatAB();
    expectDone(outcome);
    EXPECT_EQ(outcome.report,
              "\n\nConcatenate the following PVB Regions: A and B to dest\n" +
                  regionTable({{"A", "A", "begin", "end"}, {"B", "B", "begin", "end"}}) + "\n\n");
    EXPECT_EQ(rowsOf("dest"), "rows main\n  row \"tp\" |10\n" + property(4, "A_PATTERN_BEGIN") +
                                  "  row \"tp\" |01\n" + property(4, "A_PATTERN_END") +
                                  "  row \"tp\" |11\n" + property(4, "B_PATTERN_BEGIN") +
                                  property(4, "B_PATTERN_END"));
    EXPECT_EQ(linesOf("dest", "label "),
              "label \"A\" row=0 kind=begin\nlabel \"A\" row=1 kind=end\n"
              "label \"B\" row=2 kind=begin\nlabel \"B\" row=2 kind=end\n");
    EXPECT_EQ(sectionOf("dest", "timeplate "), sectionOf("A", "timeplate "));
    EXPECT_EQ(linesOf("dest", "signal "), linesOf("A", "signal "));
  }
}

TEST_F(ConcatTest, SignalsMeetByNameWhateverTheirOrder) {
  build("A", smallChip().rows(steps("tp", {"1X"})));
  DatabaseText turned;
  turned.signal("y", "output").signal("a", "input");
  turned.plate("tp", "10nS", {{"y", "0pS X 9nS Q", ""}, {"a", "0pS D 4nS S", ""}});
  build("B", turned.rows(steps("tp", {"Z0"})));
  const ModelWave wave = aThenB();
  for (const int version : {501, 1501}) {
    build("A", smallChip(version).rows(steps("tp", {"1X"})));
    expectDone(concatAB());
    EXPECT_EQ(linesOf("dest", "  row "), version == 501 ? "  row \"tp\" |1X\n  row \"tp\" |0Z\n"
                                                        : "  row \"tp\" |1X\n  row \"tp_1\" |0Z\n");
    EXPECT_EQ(shown(modelOf(dump("dest")).wave), shown(wave));
  }
}

TEST_F(ConcatTest, KeepsStructuresAndCopiesASubroutineOnce) {
  const std::string rows =
      "  call \"init\" x2\n  loop x3 comment=\"count\"\n    row \"tp\" |01\n    loop x2\n"
      "      row \"tp\" x5 |11\n    end\n    call \"init\"\n  end\n";
  const std::string body = "  row \"tp\" x3 |10\n  call \"step\"\n";
  const std::string step = "  row \"tp\" |0Z\n";
  build("A", smallChip()
                 .rows(rows + "  row \"tp\" |10\n")
                 .subroutine("init", body)
                 .subroutine("step", step));
  build("B", smallChip().rows(rows).subroutine("step", step).subroutine("init", body));
  expectDone(concatAB());
  EXPECT_EQ(linesOf("dest", "subroutine "), "subroutine 0 \"init\"\nsubroutine 1 \"step\"\n");
  EXPECT_EQ(sectionOf("dest", "rows 0"), "rows 0\n" + body);
  EXPECT_EQ(shown(modelOf(dump("dest")).wave), shown(aThenB()));
  // The second stretch ends with the end of its loop.
  EXPECT_EQ(linesOf("dest", "label "),
            "label \"A\" row=0 kind=begin\nlabel \"A\" row=8 kind=end\n"
            "label \"B\" row=9 kind=begin\nlabel \"B\" row=16 kind=end\n");
}

TEST_F(ConcatTest, SubroutinesOfOneNameAreThoseOfTheFirstSource) {
  build("A", smallChip().rows("  call \"sub\"\n").subroutine("sub", steps("tp", {"10"})));
  build("B", smallChip().rows("  call \"sub\" x2\n").subroutine("sub", steps("tp", {"01"})));
  expectDone(concatAB());
  EXPECT_EQ(linesOf("dest", "  call "), "  call \"sub\"\n  call \"sub\" x2\n");
  EXPECT_EQ(sectionOf("dest", "rows 0"), "rows 0\n  row \"tp\" |10\n");
}

TEST_F(ConcatTest, FormsBusesAndTellsWhichItCannot) {
  const auto bits = [](const std::vector<std::string>& names) {
    DatabaseText text;
    std::string states;
    for (const std::string& name : names) text.signal(name, "input");
    for (const std::string& name : names) states += name.ends_with("]") ? '1' : '0';
    std::string all;
    for (const std::string& name : names) all += name + " ";
    text.plate("tp", "10nS", {{all, "0pS S", ""}});
    return text.rows(steps("tp", {states}));
  };
  build("A", bits({"d[1]", "d[0]", "e[0]", "e[2]", "f[5]", "g", "g[0]", "g[1]"}));
  const Outcome outcome = runOperations("concat A A dest");
  expectDone(outcome);
  EXPECT_THAT(outcome.report,
              HasSubstr("Bus e is not being formed because index value 1 is missing.\n"));
  EXPECT_THAT(outcome.report,
              HasSubstr("Bus f is not being formed because it has only a single element [5].\n"));
  EXPECT_THAT(outcome.report,
              HasSubstr("Bus g is not being formed because the name already exists.\n"));
  EXPECT_THAT(
      sectionOf("dest", "signal 9 "),
      StartsWith("signal 9 \"d\" type=bus direction=input left=0 right=1\n  members 1 2\n"));
}

// --- Refusals ------------------------------------------------------------------------

TEST_F(ConcatTest, ListsTheSignalsThatOnlyOneSourceHas) {
  build("A", smallChip().signal("only_a", "input").rows(steps("tp", {"100"})));
  build("B", smallChip().signal("only_b", "output").rows(steps("tp", {"100"})));
  const auto line = [](const std::string& left, const std::string& right) {
    return std::string(25 - left.size(), ' ') + left + "   " + right +
           std::string(25 - right.size(), ' ') + "\n";
  };
  const std::string head =
      "concat: Signal names are disjoint [not the same] in the two PVB regions: (A) (B)\n" +
      line("PVB Name", "Disjoint Signals:") + line("--------", "----------------");
  expectRefused(concatAB(), head + line("A", "only_a") + line("B", "only_b") + kFailed);
  expectRefused(insertAB({"DestinationPVB=dest"}),
                head + line("A", "only_a") + line("B", "only_b") + kInsertFailed);
  DatabaseText many = smallChip();
  for (int i = 0; i < 50; ++i) many.signal("s" + std::to_string(i), "input");
  build("A", many.rows(steps("tp", {"10"})));
  const std::string err = concatAB().err;
  const std::string tooMany =
      "Too many disjoint signals to list; Correct known disjoint signals and re-run.\n";
  // The stack of messages is full then, so the operation's own line finds no room.
  EXPECT_THAT(err, testing::EndsWith(line("A", "s27") + tooMany));
}

TEST_F(ConcatTest, TellsEverySignalOfAnotherDirection) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  DatabaseText turned;
  turned.signal("a", "output").signal("y", "input");
  turned.plate("tp", "10nS", {{"y", "0pS S", ""}});
  build("B", turned.rows(steps("tp", {"10"})));
  const std::string lines =
      "ERROR: Signal \"a\" differs in direction between source PVBs.\n"
      "ERROR: Signal \"y\" differs in direction between source PVBs.\n";
  expectRefused(concatAB(), lines + kFailed);
  expectRefused(insertAB({"DestinationPVB=dest"}), lines + kInsertFailed);
}

struct Modes {
  int a;
  int b;
  bool aUses;
  bool bUses;
  int dest;  // 0: refused
};

TEST_F(ConcatTest, TheModeOfTheDestinationFollowsTheSourceThatUsesIt) {
  const auto moded = [](int mode, bool uses) {
    DatabaseText text;
    text.mode(mode).signal("a", "input").signal("y", "output");
    text.plate("tp", "10nS",
               {{"a", uses ? "0pS P 4nS S" : "0pS D 4nS S", ""}, {"y", "0pS X 9nS Q", ""}});
    return text.rows(steps("tp", {"10"}));
  };
  constexpr int kFlag = 0x40000000;  // carried from either source
  const Modes table[] = {{1, 1, true, true, 1},
                         {2, 2, false, true, 2},
                         {1, 2, true, false, 1},
                         {1, 2, false, true, 2},
                         {1, 2, false, false, 1},
                         {1, 2, true, true, 0},
                         {1, kFlag | 1, true, true, kFlag | 1}};
  for (const Modes& row : table) {
    SCOPED_TRACE(testing::Message() << row.a << row.b << row.aUses << row.bUses);
    build("A", moded(row.a, row.aUses));
    build("B", moded(row.b, row.bUses));
    const Outcome outcome = concatAB();
    if (row.dest == 0) {
      const std::string refused = "mergePmode: P modes of (A) and (B) are incompatible.\n";
      expectRefused(outcome, refused + kFailed);
      expectRefused(insertAB({"DestinationPVB=dest"}), refused + kInsertFailed);
    } else {
      expectDone(outcome);
      EXPECT_THAT(linesOf("dest", "timeplates "),
                  StartsWith("timeplates mode=" + std::to_string(row.dest)));
    }
  }
}

TEST_F(ConcatTest, RefusesWhatItCannotOpenOrOverwrite) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  build("B", smallChip().rows(steps("tp", {"10"})));
  build("broken", smallChip());
  directory().write("broken/pvb.tp", "TIMEPLATES x");
  struct Refused {
    const char* operands;
    std::string lines;
  };
  const Refused table[] = {
      {"A none dest", "concat: PVB: (none) does not exist.\n"},
      {"A broken dest", "concat: Unable to open PVB: (broken)\n"},
      // A path whose last component names a region means that region.
      {"A B ./A", "concat: Destination PVB (A) is the same as source PVB (A)\n"},
      {"A B B", "concat: Destination PVB (B) is the same as source PVB (B)\n"},
  };
  for (const Refused& row : table) {
    const std::string operands = row.operands;
    const Outcome outcome = runOperations("concat " + operands);
    EXPECT_THAT(outcome.err, StartsWith(row.lines + kFailed)) << operands;
    EXPECT_EQ(outcome.exitCode, 1) << operands;
    EXPECT_FALSE(exists("dest"));
  }
}

// --- Insert --------------------------------------------------------------------------

TEST_F(ConcatTest, InsertPutsTheRowsInFrontOfACopy) {
  build("A", smallChip().rows(steps("tp", {"10", "01", "11"})));
  build("B", smallChip()
                 .plate("slow", "20nS", {{"a", "0pS S", ""}, {"y", "0pS X 15nS Q", ""}})
                 .rows("  row \"slow\" |ZZ\n  loop x2\n    row \"tp\" |00\n  end\n")
                 .more("label \"mine\" row=2 text=\"kept\"\nfile \"pvb.pg\"\n  data AAAA\n"));
  build("dest", smallChip());
  // The bounds of operand 2 don't count.
  const Outcome outcome = insertAB({"DestinationPVB=dest", "Stop1=20ns", "Start2=1us"});
  expectDone(outcome);
  EXPECT_EQ(outcome.report,
            "\n\nConcatenate the following PVB Regions: A and B to dest\n" +
                regionTable({{"A", "A", "begin", "20nS"}, {"B", "B", "1uS", "end"}}) + "\n\n");
  EXPECT_EQ(rowsOf("dest"),
            "rows main\n  row \"tp\" |10\n  row \"tp\" |01\n  row \"slow\" |ZZ\n  loop x2\n"
            "    row \"tp\" |00\n  end\n");
  EXPECT_EQ(linesOf("dest", "timeplate "), linesOf("B", "timeplate "));
  EXPECT_EQ(linesOf("dest", "label "), "label \"mine\" row=4 text=\"kept\"\n");
  EXPECT_EQ(directory().read("dest/pvb.pg"), directory().read("B/pvb.pg"));
}

TEST_F(ConcatTest, InsertNeedsADestinationOfItsOwn) {
  build("A", smallChip().rows(steps("tp", {"10"})));
  build("B", smallChip().rows(steps("tp", {"10"})));
  for (const std::string name : {"A", "B"}) {
    expectRefused(insertAB({"DestinationPVB=./" + name + "/"}),
                  "concat: Destination PVB (./" + name + "/) is the same as source PVB (" + name +
                      ")\n" + kInsertFailed);
  }
  expectRefused(insertAB(),
                "concat: Parameter (destinationPVB) not specified.\n"
                "Internal Error. Save input files and contact KORVANE representative.\n");
}

}  // namespace
