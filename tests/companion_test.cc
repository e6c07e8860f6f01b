// The companion program as a user runs it: exit codes, messages, files.

#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "support/program.h"
#include "support/temp_dir.h"
#include "support/untouched.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class CompanionTest : public testing::Test {
 protected:
  ProgramResult run(std::vector<std::string> arguments) {
    std::unique_ptr<Untouched> untouched;
    if (arguments.empty() || arguments.front() != "build") {
      untouched = std::make_unique<Untouched>(dir_.path("db"));
    }
    ProgramCall call;
    call.arguments = std::move(arguments);
    call.directory = dir_.path();
    call.environment["MVK_TMPDIR"] = dir_.path("tmp");
    return runProgram(PVB_BINARY, call);
  }
  void SetUp() override {
    std::filesystem::create_directory(dir_.path("tmp"));
    dir_.write("small.pvbt",
               "pvb-dump 1\ndatabase version=501 row-width=8\ntimeplate 0 \"tp\" period=10nS\n"
               "rows main\n  row \"tp\" x2 |01\ndone\n");
  }
  // Names in the directory, the temporary files' aside.
  std::vector<std::string> names(const std::string& of = "") {
    std::vector<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path(of))) {
      result.push_back(entry.path().filename().string());
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  TempDir dir_;
};

TEST_F(CompanionTest, BuildsDumpsShowsAndVerifies) {
  EXPECT_EQ(run({"build", "small.pvbt", "db"}).exitCode, 0);
  const ProgramResult dump = run({"dump", "db/"});
  EXPECT_EQ(dump.exitCode, 0);
  EXPECT_THAT(dump.out, HasSubstr("\nrows main\n  row \"tp\" x2 |01\ndone\n"));
  EXPECT_EQ(run({"dump", "db", "-o", "out.pvbt"}).exitCode, 0);
  EXPECT_EQ(dir_.read("out.pvbt"), dump.out);
  EXPECT_EQ(run({"dump", "db", "-o", "out.pvbt"}).exitCode, 2);
  EXPECT_EQ(run({"dump", "db", "-o", "out.pvbt", "--force"}).exitCode, 0);
  EXPECT_EQ(run({"dump", "db", "-o", "./db/pvb.s", "--force"}).exitCode, 2);
  EXPECT_EQ(run({"verify", "db"}).out, "sound\n");
  for (const char* section :
       {"overview", "signals", "timeplates", "rows", "labels", "subroutines", "properties", "pins",
        "columns", "vectors", "findings", "equations", "files"}) {
    const ProgramResult shown = run({"show", "db", section, "--json"});
    EXPECT_EQ(shown.exitCode, 0) << section;
    EXPECT_THAT(shown.out, StartsWith("{\"schema\":\"pvb-show-"));
  }
  EXPECT_THAT(names(), testing::ElementsAre("db", "out.pvbt", "small.pvbt", "tmp"));
  EXPECT_THAT(names("tmp"), IsEmpty());
}

TEST_F(CompanionTest, ShowsEachVariableInEachSet) {
  dir_.write("equations.pvbt",
             "pvb-dump 1\ndatabase version=501 row-width=8\nequations\nsheet \"s\"\n"
             "  variable \"tck\" time \"10nS\"\n  variable \"f\" any \"1/tck\"\n"
             "  set \"a\"\n    value \"tck\" min=9e-9 measured=2:\"t\"\n"
             "  set \"b\"\n    value \"tck\" expr=\"lost\"\ndone\n");
  ASSERT_EQ(run({"build", "equations.pvbt", "db"}).exitCode, 0);
  EXPECT_EQ(run({"show", "db", "equations", "--format", "csv"}).out,
            "sheet,set,variable,expression,value,min,max,measured\n"
            "s,a,tck,10nS,10nS,9nS,,t\n"
            "s,a,f,1/tck,100MHz,,,\n"
            "s,b,tck,lost,\"error: variable \"\"tck\"\", column 1: there is no variable "
            "\"\"lost\"\"\",,,\n"
            "s,b,f,1/tck,\"error: variable \"\"tck\"\", column 1: there is no variable "
            "\"\"lost\"\"\",,,\n");
  dir_.write("db/pvb.sdb", "SDB 1\nsheet\nend\n");
  const ProgramResult refused = run({"show", "db", "equations"});
  EXPECT_EQ(refused.exitCode, 2);
  EXPECT_THAT(refused.err, HasSubstr("line 2: column 6: a text in double quotes is expected"));
}

TEST_F(CompanionTest, ReplacesOnlyDatabasesAndOnlyWhenTold) {
  ASSERT_EQ(run({"build", "small.pvbt", "db"}).exitCode, 0);
  const ProgramResult refused = run({"build", "small.pvbt", "db"});
  EXPECT_EQ(refused.exitCode, 2);
  EXPECT_THAT(refused.err, HasSubstr("db: error: the destination is there already [PVB0103]"));
  EXPECT_EQ(run({"build", "small.pvbt", "db", "--force"}).exitCode, 0);
  dir_.write("db/notes.txt", "mine");
  EXPECT_THAT(run({"build", "small.pvbt", "db", "--force"}).err, HasSubstr("[PVB0106]"));
  EXPECT_EQ(dir_.read("db/notes.txt"), "mine");
  EXPECT_THAT(names(), testing::ElementsAre("db", "small.pvbt", "tmp"));
}

TEST_F(CompanionTest, LeavesNothingOfABadText) {
  dir_.write("bad.pvbt", "pvb-dump 1\ndatabase version=501 row-width=8\nrows main\n  row |2\n");
  const ProgramResult built = run({"build", "bad.pvbt", "db"});
  EXPECT_EQ(built.exitCode, 2);
  EXPECT_EQ(built.err,
            "bad.pvbt:4:8: error: '2' (column 0) is no state [PVB0211]\n    row |2\n"
            "         ^\n  Use one of - 0 1 Z X ? ! * . and A to G.\n");
  EXPECT_THAT(names(), testing::ElementsAre("bad.pvbt", "small.pvbt", "tmp"));
}

TEST_F(CompanionTest, ComparesDatabases) {
  ASSERT_EQ(run({"build", "small.pvbt", "db"}).exitCode, 0);
  std::string other = dir_.read("small.pvbt");
  other.replace(other.find("|01"), 3, "|11");
  dir_.write("other.pvbt", other);
  ASSERT_EQ(run({"build", "other.pvbt", "db2"}).exitCode, 0);
  const ProgramResult same = run({"diff", "db", "db/"});
  EXPECT_EQ(same.exitCode, 0);
  EXPECT_THAT(same.out, StartsWith("same: "));
  const ProgramResult different = run({"diff", "db", "db2", "--structure", "--json"});
  EXPECT_EQ(different.exitCode, 1);
  EXPECT_THAT(different.out, StartsWith("{\"schema\":\"pvb-diff/1\""));
  const std::vector<std::vector<std::string>> wrong = {{"diff", "db"},
                                                       {"diff", "db", "none"},
                                                       {"diff", "db", "db2", "--signals", "nope"},
                                                       {"diff", "db", "db2", "--a-from", "soon"},
                                                       {"diff", "db", "db2", "--a-to", "0ns"}};
  for (const auto& arguments : wrong) {
    const ProgramResult result = run(arguments);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, HasSubstr("[PVB0"));
  }
  EXPECT_THAT(names("tmp"), IsEmpty());
}

TEST_F(CompanionTest, ExplainsItself) {
  EXPECT_THAT(run({"help"}).out, HasSubstr("verify"));
  EXPECT_THAT(run({"help", "--scdoc"}).out, HasSubstr("\n*-o*, *--output* _VALUE_\n\t"));
  const std::string formats = run({"formats", "--format", "csv"}).out;
  EXPECT_THAT(formats, HasSubstr("\nimport,stil,,--lenient,off,"));
  EXPECT_THAT(formats, HasSubstr("\nexport,vcd,.vcd .vcd.gz,"));
  EXPECT_THAT(run({"dump", "-h"}).out, HasSubstr("pvb dump design.pvb\n"));
  EXPECT_THAT(run({"explain", "PVB0203"}).out, StartsWith("PVB0203: unknown keyword\n"));
  const std::vector<std::vector<std::string>> wrong = {{},
                                                       {"bild"},
                                                       {"dump"},
                                                       {"show", "db", "rws"},
                                                       {"explain", "7777"},
                                                       {"verify", "db", "--formt", "json"}};
  for (const auto& arguments : wrong) {
    const ProgramResult result = run(arguments);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_FALSE(result.err.empty());
  }
  EXPECT_THAT(run({"bild"}).err, HasSubstr("did you mean 'build'?"));
}

}  // namespace
