// Operations over databases with equations, as a user sees them: which sheets reach the
// destination, and where equations forbid a cut.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/operation_world.h"

namespace {

using testing::HasSubstr;

// The file of equation data from its sheets.
std::string equations(const std::string& sheets) { return "SDB 1\n" + sheets + "end\n"; }

const char kSpeed[] =
    "sheet \"speed\" selected\n"
    "  variable \"rate\" frequency \"100MHz\"\n"
    "  variable \"edge\" time \"1/rate/4\"\n"
    "  set \"Set1\"\n"
    "    value \"rate\" min=9e+07 max=1.1e+08\n"
    "  set \"slow\" selected\n"
    "    value \"rate\" expr=\"50MHz\" measured=2:\"late\"\n";
const char kLevels[] =
    "sheet \"levels\"\n  variable \"vdd\" voltage \"3.3V\"\n  set \"Set1\" selected\n";
const char kOverlap[] =
    "merge: Equation database of PVB (A) and (B) cannot be merged because they have some sheets "
    "that are neither totally identical nor totally different.\n"
    "main: Merge operation failed.\n";

class EquationOperations : public testing::Test, protected OperationWorld {
 protected:
  EquationOperations() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  // Databases A and B with these sheets; none where the text is empty. They have signals
  // in common, so that every operation takes them.
  void buildWith(const std::string& sheetsA, const std::string& sheetsB) {
    const std::string both[] = {sheetsA, sheetsB};
    for (const int i : {0, 1}) {
      const std::string name = i == 0 ? "A" : "B";
      build(name, smallChip().rows(steps("tp", {"10", "01"})));
      if (!both[i].empty()) directory().write(name + "/pvb.sdb", equations(both[i]));
    }
  }
  std::string sheetsOfDest() const {
    if (!exists("dest/pvb.sdb")) return "";
    return directory().read("dest/pvb.sdb");
  }
  std::vector<Outcome> runAll() {
    std::vector<Outcome> outcomes;
    outcomes.push_back(runOperations("merge A B dest"));
    sheets_.push_back(sheetsOfDest());
    outcomes.push_back(runOperations("concat A B dest"));
    sheets_.push_back(sheetsOfDest());
    outcomes.push_back(
        runParameters({"Operation=insert", "SourcePVB1=A", "SourcePVB2=B", "DestinationPVB=dest"}));
    sheets_.push_back(sheetsOfDest());
    return outcomes;
  }

  std::vector<std::string> sheets_;  // of the destination after each of runAll()
};

TEST_F(EquationOperations, TheDestinationGetsTheSheetsOfBoth) {
  struct Sources {
    std::string a;
    std::string b;
    std::string dest;
  };
  const Sources table[] = {
      {"", "", ""},
      {"sheet \"empty\"\n", kSpeed, equations(kSpeed)},
      {kSpeed, "sheet \"empty\"\n", equations(kSpeed)},
      {kSpeed, kSpeed, equations(kSpeed)},
  };
  for (const Sources& row : table) {
    SCOPED_TRACE(row.a + "/" + row.b);
    sheets_.clear();
    buildWith(row.a, row.b);
    for (const Outcome& outcome : runAll()) expectDone(outcome);
    for (const std::string& sheets : sheets_) EXPECT_EQ(sheets, row.dest);
  }
}

TEST_F(EquationOperations, SheetsThatPartlyAgreeCannotBeMerged) {
  std::string other = kSpeed;
  buildWith(kSpeed, other.replace(other.find("100MHz"), 6, "101MHz"));
  expectRefused(runOperations("merge A B dest"), kOverlap);
  std::string lines = kOverlap;
  lines.replace(0, 5, "concat");
  lines.replace(lines.find("Merge"), 5, "Concatenation");
  expectRefused(runOperations("concat A B dest"), lines);
  lines.replace(lines.find("Concatenation"), 13, "Insert");
  expectRefused(
      runParameters({"Operation=insert", "SourcePVB1=A", "SourcePVB2=B", "DestinationPVB=dest"}),
      lines);
}

TEST_F(EquationOperations, CopyCarriesThemWhole) {
  buildWith(kSpeed, "");
  directory().write("A/pvb.sdb", "SDB 1\n# a remark\n" + std::string(kSpeed) + "end\n");
  expectDone(runOperations("copy A dest"));
  EXPECT_EQ(directory().read("dest/pvb.sdb"), directory().read("A/pvb.sdb"));
}

TEST_F(EquationOperations, NoBoundCutsACycle) {
  buildWith(kSpeed, "");
  const auto bounds = [](const std::string& of) {
    return "#% regionname pvbname start stop\n r A " + of +
           "\n#% operation operand1 operand2\n copy r dest\n";
  };
  const std::string failed =
      "copy: Detected internal error while concatenating PVB (r) to destination.\n"
      "main: Copy operation failed.\n";
  expectDone(runOperations(bounds("10ns end")));
  expectRefused(runOperations(bounds("4ns end")),
                "PVBregionPatternInqFirst: Start time (4nS) of equation containing PVB region (r) "
                "does not align with cycle boundary.\n"
                "concatRegion: No pattern rows in source region of PVB (A).\n" +
                    failed);
  expectRefused(runOperations(bounds("begin 14ns")),
                "PVBregionPatternInqNext: Stop time (14nS) of equation containing PVB region (r) "
                "does not align with cycle boundary.\n" +
                    failed);
  build("A", smallChip().rows("  row \"tp\" x2 |10\n"));
  directory().write("A/pvb.sdb", equations(kSpeed));
  expectDone(runOperations(bounds("4ns end")));  // a repeated row is cut nevertheless
}

TEST_F(EquationOperations, SourcesThatBothHaveThemNeedEqualPeriods) {
  const auto clocked = [](const std::string& signal, const std::string& period) {
    DatabaseText text;
    return text.signal(signal, "input")
        .plate("t", period, {{signal, "0pS S", ""}})
        .rows(steps("t", {"1", "0"}));
  };
  build("A", clocked("a", "10nS"));
  build("B", clocked("b", "20nS"));
  expectDone(runOperations("merge A B dest"));
  directory().write("A/pvb.sdb", equations(kSpeed));
  expectDone(runOperations("merge A B dest"));
  EXPECT_EQ(directory().read("dest/pvb.sdb"), equations(kSpeed));
  directory().write("B/pvb.sdb", equations(kLevels));
  expectRefused(runOperations("merge A B dest"),
                "merge: The two PVB regions are incompatible: (A) (B)\n"
                "main: Merge operation failed.\n");
}

TEST_F(EquationOperations, AFileThatIsNoneEndsTheOperation) {
  buildWith(kSpeed, kSpeed);
  for (const char* text : {"", "SDB 2\nend\n", "SDB 1\nsheet \"cut\"\n", "\xff\x00\n"}) {
    directory().write("A/pvb.sdb", text);
    for (const char* operation : {"merge A B dest", "concat A B dest"}) {
      const Outcome outcome = runOperations(operation);
      EXPECT_EQ(outcome.exitCode, 1) << operation << ": " << text;
      EXPECT_THAT(outcome.err, HasSubstr("A/pvb.sdb"));
    }
  }
}

}  // namespace
