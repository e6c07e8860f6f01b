#include "base/param.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/expand.h"
#include "base/temp_directory.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::Optional;
using Value = std::optional<std::string>;

class Param : public testing::Test {
 protected:
  void SetUp() override { reset(); }
  void TearDown() override {
    unsetenv("MVK_ENV_VARIABLES_ON");
    reset();
  }
  void reset() {
    PBdiscardErrors();
    PBresetParams();
    PBresetExpansion();
    PBunlockTempDirectory();
    PBsetTempDirectory(".");
  }

  int unixParams(const std::vector<const char*>& arguments) {
    return PBunixParams(arguments, table);
  }
  int cmdLine(const std::vector<const char*>& arguments) { return PBcmdLine(arguments, table); }
  // The lines of the numbered stack, newest first, as they would be printed.
  static std::vector<std::string> errors() {
    std::vector<std::string> lines;
    for (int i = PBerrorCount() - 1; i >= 0; --i) lines.push_back(PBformatError(i, 3000));
    return lines;
  }

  TempDir dir;
  Value useOpFile, opFile, operation, source, tmpPrefix, optimize;
  const PBparam rows[6] = {
      {"UseOpFile", &useOpFile, false}, {"OpFile", &opFile, false},
      {"Operation", &operation, false}, {"SourcePVB1", &source, false},
      {"TmpPrefix", &tmpPrefix, true},  {"OptimizeTimePlates", &optimize, false}};
  ParamTable table = rows;
};

TEST_F(Param, ArgumentsMatchWithoutCaseAndByUniquePrefix) {
  EXPECT_EQ(unixParams({"oper=merge", " SOURCE pvb1\t= \t a b ", "opfile=x", "OPFILE=", "other=1"}),
            0);
  EXPECT_THAT(operation, Optional(std::string("merge")));
  EXPECT_THAT(source, Optional(std::string("a b ")));
  EXPECT_THAT(opFile, Optional(std::string()));
  EXPECT_EQ(useOpFile, std::nullopt);
  EXPECT_THAT(PBgetParam("OPER"), Optional(std::string("merge")));
  EXPECT_THAT(PBgetParam("opFile"), Optional(std::string("x"))) << "the first one, as it stands";
  EXPECT_THAT(PBgetParam("Other"), Optional(std::string("1")));
}

TEST_F(Param, BadArgumentsAreRefused) {
  EXPECT_EQ(unixParams({"op=merge"}), -2);
  EXPECT_EQ(unixParams({"=x"}), -2);
  EXPECT_THAT(errors(), ElementsAre("PBunixParams: Error 0: Ambiguous parameter: \"=x\", matches "
                                    "\"UseOpFile\" and \"OpFile\"",
                                    testing::HasSubstr("matches \"OpFile\" and \"Operation\"")));
  EXPECT_EQ(unixParams({"opfile=a", "merge"}), -2);
  EXPECT_THAT(opFile, Optional(std::string("a"))) << "what was set stays";
}

TEST_F(Param, MissingRequiredArgumentListsTheNames) {
  const PBparam needed[] = {{"OpFile", &opFile, true}, {"Operation", &operation, false}};
  testing::internal::CaptureStderr();
  EXPECT_EQ(PBcmdLine(std::vector<const char*>{"operation=x"}, needed), -2);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Expected parameter names are:\n  (required) OpFile\n             Operation\n");
  EXPECT_THAT(errors(), ElementsAre("PBcmdLine: Bad command line",
                                    "PBunixParams: Missing parameter: OpFile"));
}

TEST_F(Param, TemporaryDirectoryFollowsTheParameterOverALock) {
  PBsetTempDirectory("/locked");
  PBlockTempDirectory();
  EXPECT_EQ(unixParams({}), 0);
  EXPECT_EQ(PBtempDirectory(), ".");
  EXPECT_THAT(tmpPrefix, Optional(std::string(".")));
  EXPECT_EQ(unixParams({"tmp=/other/"}), 0);
  EXPECT_EQ(PBtempDirectory(), "/other");

  reset();
  PBlockTempDirectory();
  EXPECT_EQ(cmdLine({dir.write("p", "TmpPrefix=/file").c_str()}), 0);
  EXPECT_EQ(PBtempDirectory(), "/file");
}

TEST_F(Param, ALoneArgumentIsAFileFirst) {
  const std::string path =
      dir.write("a=b", "TmpPrefix = .\r\n# note\n\n Source PVB1 =  x y \t\r\nOPERATION=cut");
  EXPECT_EQ(cmdLine({path.c_str()}), 0);
  EXPECT_THAT(source, Optional(std::string("x y")));
  EXPECT_THAT(operation, Optional(std::string("cut")));
  EXPECT_EQ(PBparamFileName(), path);

  EXPECT_EQ(cmdLine({"oper=add"}), 0);
  EXPECT_EQ(PBerrorCount(), 0);
  EXPECT_THAT(operation, Optional(std::string("add")));

  EXPECT_EQ(cmdLine({path.c_str(), path.c_str()}), 0) << "two are never files";
}

TEST_F(Param, FilesMatchWholeNamesOnly) {
  const std::string path = dir.write("p", "oper=merge\nOperation=cut\noperation=late\n");
  EXPECT_EQ(PBgatherParams(path, table), -2);
  EXPECT_THAT(errors(), ElementsAre("PBgatherParams: Missing parameter: TmpPrefix"));
  EXPECT_THAT(operation, Optional(std::string("cut")));
  EXPECT_EQ(PBparamFileName(), "");
  EXPECT_THAT(PBgetParam(" o P e r"), Optional(std::string("merge"))) << "the file stays open";
  EXPECT_EQ(PBcloseParamFile(), 0);
}

TEST_F(Param, BadLinesAreShown) {
  for (const char* text : {"name=", "name= \t\r\n", "=value"}) {
    const std::string path = dir.write("p", std::string("a=b\n") + text);
    EXPECT_EQ(PBopenParamFile(path, "r"), -2);
    const std::string line = std::string(text).substr(0, std::string(text).find_first_of("\r\n"));
    EXPECT_THAT(errors(), ElementsAre("PBopenParamFile: Illegal parameter value: (" + path +
                                      ") line 2: \"" + line + "\""));
    PBdiscardErrors();
  }
  EXPECT_EQ(PBopenParamFile(dir.path(), "r"), -2);
  EXPECT_EQ(errors()[0], "PBopenParamFile: Internal MVK error: Error reading param file");
  EXPECT_EQ(errors()[1], "getPhysLine: Error reading file: " + dir.path());
}

TEST_F(Param, ValuesAreExpandedInFilesOnly) {
  setenv("PX_PARAM", "v", 1);
  const std::string path = dir.write("p", "TmpPrefix=.\nOperation=${PX_PARAM}x\n");
  EXPECT_EQ(cmdLine({path.c_str()}), 0);
  EXPECT_THAT(operation, Optional(std::string("${PX_PARAM}x")));

  PBresetExpansion();
  setenv("MVK_ENV_VARIABLES_ON", "1", 1);
  EXPECT_EQ(cmdLine({path.c_str()}), 0);
  EXPECT_THAT(operation, Optional(std::string("vx")));

  PBswitchExpansionOff();
  EXPECT_EQ(cmdLine({path.c_str()}), 0);
  EXPECT_THAT(operation, Optional(std::string("${PX_PARAM}x")));
  EXPECT_FALSE(PBexpansionOff()) << "closing the file ends the switch-off";

  EXPECT_EQ(unixParams({"operation=${PX_PARAM}x"}), 0);
  EXPECT_THAT(operation, Optional(std::string("${PX_PARAM}x")));
  unsetenv("PX_PARAM");
}

TEST_F(Param, WrittenFilesReadBack) {
  const std::string path = dir.path("out");
  EXPECT_EQ(PBopenParamFile(path, "w"), 0);
  EXPECT_EQ(PBputParam("TmpPrefix", "/t"), 0);
  EXPECT_EQ(PBputParam("OpFile", "a=b c"), 0);
  EXPECT_EQ(PBgetParam("OpFile"), std::nullopt);
  EXPECT_EQ(PBcloseParamFile(), 0);
  EXPECT_EQ(dir.read("out"), "TmpPrefix=/t\nOpFile=a=b c\n");
  EXPECT_EQ(PBopenParamFile(path, "r"), 0);
  EXPECT_EQ(PBputParam("a", "b"), -2);
  EXPECT_EQ(PBfillParams("caller", table), 0);
  EXPECT_THAT(opFile, Optional(std::string("a=b c")));
  EXPECT_EQ(PBcloseParamFile(), 0);
  EXPECT_EQ(PBcloseParamFile(), -2);
  EXPECT_EQ(PBopenParamFile(path, "rw"), -2);
  EXPECT_THAT(errors(), ElementsAre("PBopenParamFile: Error 0: Invalid mode",
                                    "PBcloseParamFile: Error 0: No param file open",
                                    "PBputParam: Error 0: Param file not open for writing",
                                    "PBgetParam: Error 0: Param file not open for reading"));
}

TEST_F(Param, LostWritesAndFailedCallsAreTold) {
  FaultPlatform faults;
  faults.setDiskSpace(4);
  EXPECT_EQ(PBopenParamFile(dir.path("out"), "w"), 0);
  EXPECT_EQ(PBputParam("name", "value"), 0);
  EXPECT_EQ(PBcloseParamFile(), -2);
  EXPECT_THAT(errors(), ElementsAre("PBcloseParamFile: Error 0: fclose failed"));

  const std::string path = dir.write("p", "TmpPrefix=.\n");
  // The look at the name and the opening; gzip reads and closes by itself.
  failEachFileCall([&](FaultPlatform& inner) {
    PBdiscardErrors();
    const int result = PBgatherParams(path, table);
    const bool failed = inner.stop();
    EXPECT_EQ(result, failed ? -2 : 0);
    EXPECT_EQ(PBerrorCount() > 0, failed);
  });
}

}  // namespace
