#include "base/debug_token.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::string_view kDefaults =
    "#% token value description\n"
    "walk true \"rows of a walk\"\n"
    "size 12 size\n"
    "always false -\n"
    "never true -\n"
    "ratio 2.5 -\n"
    "empty null -\n";

class DebugTokenTest : public testing::Test {
 protected:
  DebugTokenTest() {
    PBdiscardErrors();
    DebugRegisterLogger([this](std::string_view line) { output += line; });
    load("");
  }
  ~DebugTokenTest() override {
    DebugRegisterLogger({});
    DebugRegisterEnabler({});
    DebugRegisterBreakPoint({});
    DebugPrintSuspend(false);
    DebugTokenLoad("", dir.path("none"));
    PBdiscardErrors();
  }
  bool load(std::string_view tokenFile) {
    return DebugTokenLoad(kDefaults, dir.write("debug.srf", tokenFile));
  }

  TempDir dir;
  std::string output;
};

TEST_F(DebugTokenTest, ValuesComeFromDefaultsAndTheTokenFile) {
  EXPECT_TRUE(DebugTokenEnabled("walk"));
  EXPECT_TRUE(DebugTokenIsDefault("walk"));
  EXPECT_EQ(DebugTokenValueLong("size"), 12);
  EXPECT_EQ(DebugTokenValueDouble("ratio"), 2.5);
  EXPECT_EQ(DebugTokenValue("empty"), std::nullopt);

  EXPECT_TRUE(
      load("#% Token Value\nwalk false\nsize 12\nalways false\nnever true\nmine \"a b\"\n"));
  EXPECT_FALSE(DebugTokenEnabled("walk"));
  EXPECT_EQ(DebugTokenValueLong("walk"), 0);
  EXPECT_FALSE(DebugTokenIsDefault("walk"));
  EXPECT_TRUE(DebugTokenIsDefault("size"));
  EXPECT_TRUE(DebugTokenEnabled("always"));
  EXPECT_FALSE(DebugTokenEnabled("never"));
  EXPECT_EQ(DebugTokenValue("mine"), "a b");
  EXPECT_TRUE(DebugTokenReset("walk"));
  EXPECT_TRUE(DebugTokenIsDefault("walk"));
  EXPECT_TRUE(DebugTokenSetValue("never", "true"));
  EXPECT_EQ(DebugTokenValue("never"), "false");
  EXPECT_FALSE(DebugTokenReset("nobody knows"));
  EXPECT_EQ(DebugTokenHashCopy().size(), 7u);

  testing::internal::CaptureStderr();
  EXPECT_FALSE(load("no table\n"));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Is file in SRF format?"));
  EXPECT_TRUE(DebugTokenEnabled("walk"));
}

TEST_F(DebugTokenTest, TheWrittenFileIsReadAgain) {
  EXPECT_FALSE(DebugTokenEnabled("met.later"));
  DebugTokenSetValue("walk", "say \"#\\\"");
  DebugTokenSetValue("a b", "");
  DebugTokenSetValue("size", "-");
  ASSERT_TRUE(DebugTokenWrite(dir.path("saved")));
  const std::string saved = dir.read("saved");
  EXPECT_THAT(saved, testing::StartsWith("# Debug token dump.\n"));
  EXPECT_THAT(
      saved,
      testing::EndsWith("# Only tokens NOT set to their default values appear in the table below.\n"
                        "#%token     value    description\n"
                        "\"a b\"       \"\"       <nil>\n"
                        "met.later   null     <nil>\n"
                        "size        \"-\"      size\n"
                        "walk        \"say \\\"\\#\\\\\\\"\" \"rows of a walk\"\n"
                        "#end of (token value description)\n"));

  DebugTokenSetValue("debug.token_order", "default");
  DebugTokenWrite(dir.path("ordered"));
  const std::string ordered = dir.read("ordered");
  EXPECT_LT(ordered.find("\nwalk"), ordered.find("\nsize"));

  ASSERT_TRUE(DebugTokenLoad(kDefaults, dir.path("saved")));
  EXPECT_EQ(DebugTokenValue("walk"), "say \"#\\\"");
  EXPECT_EQ(DebugTokenValue("a b"), "");
  EXPECT_EQ(DebugTokenValue("met.later"), std::nullopt);

  DebugTokenSetValue("walk", "two\nlines");
  EXPECT_FALSE(DebugTokenWrite(dir.path("saved")));
  EXPECT_TRUE(DebugTokenLoad(kDefaults, dir.path("saved")));
  EXPECT_FALSE(DebugTokenWrite(dir.path("no/place")));

  load("");
  EXPECT_TRUE(DebugTokenEndRun());
  EXPECT_EQ(dir.read("debug.srf"), "");
  DebugTokenSetValue("savetokens", "true");
  EXPECT_TRUE(DebugTokenEndRun());
  EXPECT_THAT(dir.read("debug.srf"), HasSubstr("savetokens   true  <nil>\n"));
  EXPECT_EQ(output, "** Writing token file '" + dir.path("debug.srf") +
                        "'\n** Edit the file and set the token value to \"true\" to enable debug "
                        "output.\n");
}

TEST_F(DebugTokenTest, LinesCarryTheirPrefixes) {
  DebugPrintf("walk", "row %d\nof %s\n", 3, "many");
  DebugPrintf("size", "not enabled");
  DebugPrefixPrint("walk", "");
  DebugAssertFailed("not enabled");
  DebugTokenSetValue("assert", "true");
  DebugTokenSetValue("problem", "true");
  DebugAssertFailed("x > 0");
  DebugTokenSetValue("debug.prefix.tokens", "true");
  DebugTokenSetValue("debug.prefix.line_numbers", "true");
  DebugProblem("late");
  DebugPrintSuspend(true);
  DebugPrintf("walk", "suspended");
  EXPECT_THAT(output, testing::MatchesRegex(
                          "row 3\nof many\n"
                          "\\[DebugPrefixPrint\\] message for debug token 'walk' is empty\n"
                          " !!!! \\(ASSERT\\): ASSERT FAILURE: x > 0\n"
                          "[0-9]+ +\\[problem\\]   !\\?!\\? \\(PROBLEM\\): PROBLEM: late\n"));
}

TEST_F(DebugTokenTest, OutputGoesToTheChosenStreams) {
  DebugRegisterLogger({});
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  DebugPrintf("walk", "one");
  DebugTokenSetValue("stdout", "true");
  DebugPrintf("walk", "two");
  DebugTokenSetValue("write_to_file", "true");
  DebugTokenSetValue("write_to_file_path", dir.path("log"));
  DebugTokenSetValue("stderr", "true");
  DebugPrintf("walk", "three");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "two\nthree\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "one\nthree\n");
  EXPECT_EQ(dir.read("log"), "three\n");
}

TEST_F(DebugTokenTest, RegisteredFunctionsTakePart) {
  std::vector<std::string> calls;
  DebugTokenSetValue("debug_token_display", "true");
  DebugTokenSetValue("debug_break_point_token", "walk");
  DebugRegisterBreakPoint([&](std::string_view token) { calls.emplace_back(token); });
  DebugRegisterEnabler([](std::string_view token) { return token == "size"; });
  EXPECT_FALSE(DebugTokenEnabled("walk"));
  EXPECT_TRUE(DebugTokenEnabled("size"));
  EXPECT_THAT(calls, ElementsAre("walk"));
  EXPECT_EQ(output,
            "[DebugTokenEnabled] debug token 'walk' is not enabled\n"
            "[DebugTokenEnabled] debug token 'size' is enabled\n");
}

}  // namespace
