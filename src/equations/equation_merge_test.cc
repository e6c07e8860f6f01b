// Equation data of two databases: when they can be combined, and what comes of it.

#include "equations/equation_merge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "support/database.h"
#include "support/fault_platform.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string file(const std::string& lines) { return "SDB 1\n" + lines + "end\n"; }

// A sheet with one variable in one set, both with these lines' ends.
std::string sheet(const std::string& name, const std::string& variable,
                  const std::string& value = "min=1") {
  return "sheet \"" + name + "\"\n  variable \"" + variable + "\" time \"1nS\"\n" +
         "  set \"Set1\" selected\n    value \"" + variable + "\" " + value + "\n";
}

class EquationMerge : public testing::Test {
 protected:
  ~EquationMerge() override { PBdiscardErrors(); }

  static void write(const TestDatabase& database, const std::string& lines) {
    std::ofstream(database.path() + "/pvb.sdb") << file(lines);
  }
  static std::string content(const TestDatabase& database) {
    return directoryContent(database.path())["pvb.sdb"];
  }
  eqSheetCategories categories() const {
    eqSheetTable one;
    eqSheetTable two;
    eqSheetCategories out;
    EXPECT_EQ(eqLoad(src1_.handle(), one), 0);
    EXPECT_EQ(eqLoad(src2_.handle(), two), 0);
    EXPECT_EQ(eqCategorize(one, two, out), 0);
    return out;
  }
  int merge() const {
    const int code = eqInspect(src1_.handle(), src2_.handle());
    return eqMerge(dst_.handle(), src1_.handle(), src2_.handle(), code,
                   code == kEquationsInBoth ? categories() : eqSheetCategories());
  }

  TestDatabase src1_;
  TestDatabase src2_;
  TestDatabase dst_;
};

TEST_F(EquationMerge, CombinesDisjointAndIdenticalSheets) {
  write(src1_, sheet("both", "x") + sheet("one", "a") +
                   "sheet \"sets\" selected\n  variable \"b\" frequency \"1MHz\"\n"
                   "  set \"slow\"\n    value \"b\" expr=\"2MHz\" max=2:\"t\" measured=5:1.5\n"
                   "  set \"fast\" selected\n");
  write(src2_, sheet("two", "c") + sheet("both", "x"));
  EXPECT_THAT(categories(), ElementsAre(ElementsAre("one", "sets"), IsEmpty(), ElementsAre("two"),
                                        IsEmpty(), ElementsAre("both")));
  const std::string expected =
      file(sheet("one", "a") +
           "sheet \"sets\" selected\n  variable \"b\" frequency \"1MHz\"\n  set \"Set1\"\n"
           "  set \"slow\"\n    value \"b\" expr=\"2MHz\" max=2:\"t\" measured=5:1.5\n"
           "  set \"fast\" selected\n" +
           sheet("both", "x") + sheet("two", "c"));
  EXPECT_EQ(merge(), 0);
  EXPECT_EQ(content(dst_), expected);
  // A destination that holds a source's sheets already, as after a copy.
  std::ofstream(dst_.path() + "/pvb.sdb") << content(src2_);
  EXPECT_EQ(merge(), 0);
  EXPECT_EQ(content(dst_), expected);
}

TEST_F(EquationMerge, KnowsWhichSheetsAreIdentical) {
  const std::string variable = "sheet \"s\"\n  variable \"v\" any \"1\"\n";
  struct Case {
    std::string one;
    std::string two;
    bool identical;
  };
  const Case kCases[] = {
      {sheet("s", "v"), sheet("s", "v"), true},
      {sheet("", "v"), sheet("", "v"), true},  // without a name
      {sheet("", "v"), sheet("", "w"), false},
      {sheet("s", "v"), sheet("t", "v"), false},  // a variable shared
      {sheet("s", "v"), sheet("s", "w"), false},
      {sheet("s", "v", "min=1"), sheet("s", "v", "min=3:1"), false},
      {sheet("s", "v", "min=1"), sheet("s", "v", ""), false},
      {sheet("s", "v", "min=0"), sheet("s", "v", "min=-0"), true},
      {sheet("s", "v", "max=nan"), sheet("s", "v", "max=nan"), false},
      {sheet("s", "v", "max=2:none"), sheet("s", "v", "max=2:none"), true},
      {sheet("s", "v", "measured=2:none"), sheet("s", "v", "measured=2:\"\""), false},
      {sheet("s", "v", "expr=\"\""), sheet("s", "v", ""), false},
      {variable, variable + "  set \"a\"\n", false},
      {variable, "sheet \"s\"\n  variable \"v\" any \"2\"\n", false},
      {variable + "  set \"a\"\n  set \"b\"\n", variable + "  set \"b\" \n  set \"a\" selected\n",
       true},
      {variable + "  set \"a\"\n  set \"b\"\n", variable + "  set \"b\" \n  set \"a\"\n", false},
      {variable + "  set \"a\"\n", variable + "  set \"b\"\n", false},
  };
  for (const Case& row : kCases) {
    write(src1_, row.one);
    write(src2_, row.two);
    const eqSheetCategories found = categories();
    EXPECT_EQ(found[IDENTICAL_SHEETS].size(), row.identical ? 1u : 0u) << row.one << row.two;
    const std::size_t refused = row.identical ? 0u : 1u;
    EXPECT_EQ(found[SRC1_NON_IDENTICAL_NON_DISJOINT_SHEETS].size(), refused) << row.one << row.two;
    EXPECT_EQ(found[SRC2_NON_IDENTICAL_NON_DISJOINT_SHEETS].size(), refused) << row.one << row.two;
  }
}

TEST_F(EquationMerge, IgnoresWhatAnUndefinedValueHolds) {
  eqSheet a;
  a.sets["s"].items["v"].attribute5 = {kValueUndefined, 1, std::nullopt};
  eqSheet b = a;
  b.sets["s"].items["v"].attribute5 = {kValueUndefined, 2, "text"};
  EXPECT_TRUE(eqSheetsIdentical(a, b));
  EXPECT_FALSE(eqSheetsDisjoint(eqSheet(), eqSheet()));
}

TEST_F(EquationMerge, LeavesTheDestinationWholeWhenItFails) {
  const std::string before = file(sheet("before", "z"));
  write(src1_, sheet("one", "a"));
  write(src2_, sheet("two", "b"));
  const eqSheetCategories found = categories();
  for (const int code : {kEquationsIn1, kEquationsInBoth}) {
    for (int call = 1;; ++call) {
      ASSERT_LT(call, 200);
      std::ofstream(dst_.path() + "/pvb.sdb") << before;
      FaultPlatform faults;
      faults.failFileCall(call);
      const int result = eqMerge(dst_.handle(), src1_.handle(), src2_.handle(), code, found);
      if (!faults.failed()) break;
      if (result != 0) {
        EXPECT_GT(PBerrorCount(), 0) << call;
        EXPECT_EQ(content(dst_), before) << call;
      }
      PBdiscardErrors();
    }
    EXPECT_NE(content(dst_), before);
  }
}

}  // namespace
