// The file of the equation data: what it looks like, comes back as, and refuses.

#include "equations/spec_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "base/errors.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using testing::EndsWith;

constexpr std::string_view kText =
    "SDB 1\n"
    "sheet \"\"\n"
    "sheet \"t\\n\\xff\" selected\n"
    "  variable \"tck\" time \"10nS\"\n"
    "  variable \"NullVarName\" any \"\"\n"
    "  set \"Set1\"\n"
    "    value \"tck\" expr=\"\" min=0.1 max=-7:inf measured=2:\"a \\\"text\\\"\"\n"
    "    value \"NullVarName\" min=2:none\n"
    "  set \"\" selected\n"
    "end\n";

class SpecFile : public testing::Test {
 protected:
  ~SpecFile() override { PBdiscardErrors(); }
  std::string directory() const { return dir_.path(); }
  void write(std::string_view text) { dir_.write("pvb.sdb", text); }
  std::string read() const { return dir_.read("pvb.sdb"); }
  // The text that the file comes back as; the reason when it is refused.
  std::string reread(std::string_view text) {
    write(text);
    PBdiscardErrors();
    const auto data = ssOpen(directory());
    EXPECT_EQ(data.has_value(), PBerrorCount() == 0);
    if (!data) return PBerrorFind("ssOpen", 87, false).value_or("another post");
    EXPECT_EQ(ssSave(*data, directory()), 0);
    return read();
  }

  TempDir dir_;
};

TEST_F(SpecFile, ComesBackAsItWas) { EXPECT_EQ(reread(kText), kText); }

// Blanks, comments, line ends and what is usual may be written in other ways.
TEST_F(SpecFile, IsWrittenInOneForm) {
  EXPECT_EQ(reread("# by hand\r\n\n SDB 1 \r\nsheet \"a\"\n# more\nvariable\t\"\" any \"\"\nset "
                   "\"s\"\nvalue \"\"\nvalue \"NullVarName\" max=1:2e0  min=9e-3\nend"),
            "SDB 1\nsheet \"a\" selected\n  variable \"NullVarName\" any \"\"\n"
            "  set \"s\" selected\n    value \"NullVarName\" min=0.009 max=2\nend\n");
}

TEST_F(SpecFile, NeverLoadsCutShort) {
  for (std::size_t size = 0; size + 1 < kText.size(); ++size) {
    EXPECT_THAT(reread(kText.substr(0, size)), testing::HasSubstr("pvb.sdb line ")) << size;
  }
}

TEST_F(SpecFile, TellsWhatIsWrongAndWhere) {
  const std::string head = "SDB 1\nsheet \"s\"\nvariable \"v\" any \"1\"\n";
  const std::pair<std::string, const char*> kCases[] = {
      {"SDB 2\nend\n", "line 1: the file doesn't begin with \"SDB 1\""},
      {head + "end\nsheet", "line 5: there is more behind \"end\""},
      {head + "  sheet \"s\"", "line 4: column 12: the sheet stands here twice"},
      {head + "sheet s", "line 4: column 7: a text in double quotes is expected"},
      {head + "sheet \"t\" chosen", "line 4: column 11: nothing more is expected on this line"},
      {head + "sheet \"t\" selected\nsheet \"u\" selected",
       "line 5: column 19: a sheet above is selected"},
      {head + "variable \"v\" any \"\"",
       "line 4: column 20: the variable stands in its sheet twice"},
      {head + "variable \"w\" length \"\"", "line 4: column 20: \"length\" is no type"},
      {head + "set \"s\"\nvariable \"w\" any \"\"",
       "line 5: column 20: variables stand above the sets of their sheet"},
      {head + "set \"s\"\nset \"s\"", "line 5: column 8: the set stands in its sheet twice"},
      {head + "value \"v\" min=1", "line 4: column 10: there is no set above"},
      {head + "set \"s\"\nvalue \"w\"", "line 5: column 10: the sheet has no such variable"},
      {head + "set \"s\"\nvalue \"v\" min=1\nvalue \"v\" min=1",
       "line 6: column 16: the variable stands in its set twice"},
      {head + "set \"s\"\nvalue \"v\" low=1",
       "line 5: column 11: expr=, min=, max= or measured= is expected"},
      {head + "set \"s\"\nvalue \"v\" min=1nS",
       "line 5: column 16: a blank is expected behind the value"},
      {head + "set \"s\"\nvalue \"v\" min=9:1",
       "line 5: column 17: code 9 has no value; leave the field out"},
      {head + "set \"s\"\nvalue \"v\" min=2:x",
       "line 5: column 17: a text in double quotes or \"none\" is expected"},
      {head + "set \"s\"\nvalue \"v\" min=1e999", "line 5: column 15: a number is expected"},
      {"SDB 1\nset \"s\"", "line 2: column 8: there is no sheet above"},
      {head + "thing", "line 4: column 1: \"thing\" isn't sheet, variable, set or value"},
  };
  for (const auto& [text, reason] : kCases) EXPECT_THAT(reread(text), EndsWith(reason)) << text;
}

TEST_F(SpecFile, StaysWholeWhenSavingFails) {
  const ssData data = ssNew();
  for (int call = 1;; ++call) {
    ASSERT_LT(call, 100);
    write(kText);
    FaultPlatform faults;
    faults.failFileCall(call);
    const int result = ssSave(data, directory());
    if (!faults.failed()) break;
    EXPECT_EQ(result, -2);
    EXPECT_TRUE(PBerrorHas("ssSave", 85));
    EXPECT_EQ(read(), kText) << call;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory()), {}), 1) << call;
    PBdiscardErrors();
  }
}

TEST(SpecSheets, KeepTheSelectionWhenOthersAreCut) {
  ssData data = ssNew();
  EXPECT_EQ(ssAddSheet(data, kFirstSheet), nullptr);
  ASSERT_NE(ssAddSheet(data, "a"), nullptr);
  ASSERT_NE(ssAddSheet(data, "b"), nullptr);
  EXPECT_EQ(ssSelectSheet(data, "b"), 2u);
  EXPECT_EQ(ssSelectSheet(data, "c"), kNotFound);
  ssCutSheets(data, [](const ssSheet& sheet) { return sheet.name == "a"; });
  EXPECT_EQ(data.selectedSheet, 1u);
  EXPECT_EQ(data.sheets.find("b"), 1u);
  ssCutSheets(data, [](const ssSheet& sheet) { return sheet.name == "b"; });
  EXPECT_EQ(data.selectedSheet, 0u);
}

}  // namespace
