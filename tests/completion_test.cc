// The completion of bash as the program writes it: what a user who presses Tab is offered.

#include <gmock/gmock.h>

#include <filesystem>

#include "support/program.h"
#include "support/temp_dir.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::UnorderedElementsAre;

class CompletionTest : public testing::Test {
 protected:
  void SetUp() override {
    ProgramCall call;
    call.arguments = {"help", "--bash-completion"};
    call.directory = dir_.path();
    const ProgramResult made = runProgram(PVB_BINARY, call);
    ASSERT_EQ(made.exitCode, 0);
    dir_.write("completion", made.out);
    std::filesystem::create_directory(dir_.path("chip one.pvb"));
    dir_.write("chip.pvbt", "");
  }
  // The words offered at the end of a line.
  std::vector<std::string> offered(std::vector<std::string> words) {
    ProgramCall call;
    call.arguments = {"-c",
                      "source completion; COMP_WORDS=(pvb \"$@\"); COMP_CWORD=$#; _pvb; "
                      "((${#COMPREPLY[@]} == 0)) || printf '%s\\n' \"${COMPREPLY[@]}\"",
                      "bash"};
    call.arguments.insert(call.arguments.end(), words.begin(), words.end());
    call.directory = dir_.path();
    const ProgramResult result = runProgram("/bin/bash", call);
    EXPECT_EQ(result.err, "");
    std::vector<std::string> lines;
    std::istringstream text(result.out);
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

  TempDir dir_;
};

TEST_F(CompletionTest, OffersVerbsOptionsAndTheirWords) {
  EXPECT_THAT(offered({""}), IsSupersetOf({"dump", "build", "import", "help"}));
  EXPECT_THAT(offered({"du"}), ElementsAre("dump"));
  EXPECT_THAT(offered({"help", "ver"}), ElementsAre("verify"));
  EXPECT_THAT(offered({"diff", "--ig"}), ElementsAre("--ignore-cycles"));
  EXPECT_THAT(offered({"diff", "a", "b", "--color", "a"}), ElementsAre("auto", "always"));
  EXPECT_THAT(offered({"show", "--json", "db", "ti"}), ElementsAre("timeplates"));
  EXPECT_THAT(offered({"nothing", ""}), IsEmpty());
}

TEST_F(CompletionTest, OffersDirectoriesForDatabasesAndFilesElsewhere) {
  EXPECT_THAT(offered({"dump", "ch"}), ElementsAre("chip one.pvb"));
  EXPECT_THAT(offered({"dump", "db", "-o", "ch"}),
              UnorderedElementsAre("chip one.pvb", "chip.pvbt"));
  EXPECT_THAT(offered({"build", "ch"}), Contains("chip.pvbt"));
  EXPECT_THAT(offered({"build", "chip.pvbt", "ch"}), Not(Contains("chip.pvbt")));
  EXPECT_THAT(offered({"dump", "db", "c"}), IsEmpty());
}

}  // namespace
