// The program's front end as a user sees it: parameters and operation files in,
// report, messages and exit code out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "support/program.h"
#include "support/temp_dir.h"

namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class FrontEnd : public ::testing::Test {
 protected:
  ProgramResult runWith(std::vector<std::string> arguments) {
    ProgramCall call;
    call.arguments = std::move(arguments);
    call.directory = dir_.path();
    call.environment = environment_;
    return runProgram(PVBCONDITIONER_BINARY, call);
  }

  ProgramResult runFile(std::string_view operations, std::vector<std::string> more = {}) {
    dir_.write("test.ops", operations);
    more.insert(more.begin(), {"OpFile=test.ops", "TmpPrefix=."});
    return runWith(std::move(more));
  }

  ProgramResult runOperation(std::string operation, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"UseOpFile=no", "Operation=" + std::move(operation)});
    return runWith(std::move(more));
  }

  TempDir dir_;
  std::map<std::string, std::optional<std::string>> environment_ = {
      {"MVKDIR", dir_.path()},       {"MVK_TMPDIR", {}},        {"MVK_ENV_VARIABLES_ON", {}},
      {"MVK_SAVE_PARFILE_ONLY", {}}, {"MVK_SWALLOWED_EXT", {}},
  };
};

constexpr const char* kIdentity =
    "Meridane-MVK::PVBConditioner Conditioner Version 2019.1.0 (Windows 64-Bit)\n";

// The pushed lines stand behind the identity line, alone.
std::string failure(const std::string& lines) { return kIdentity + lines; }

void expectFailure(const ProgramResult& result, const std::string& lines) {
  EXPECT_EQ(result.err, failure(lines));
  EXPECT_EQ(result.exitCode, 1);
}

void expectSuccess(const ProgramResult& result) {
  EXPECT_EQ(result.err, failure("\n\nTotal run time = 0 seconds\n"));
  EXPECT_EQ(result.exitCode, 0);
}

// --- Starting ------------------------------------------------------------------------

TEST_F(FrontEnd, NeedsItsInstallationDirectory) {
  environment_["MVKDIR"] = std::nullopt;
  const ProgramResult result = runWith({});
  EXPECT_EQ(result.err,
            "MVKDIR is not set.  Please consult the installation instructions\n"
            "for more information.\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.exitCode, 1);
}

TEST_F(FrontEnd, TellsItsBuild) {
  for (const char* word : {"-vers", "-v", "--version"}) {
    const ProgramResult result = runWith({word});
    EXPECT_EQ(result.err, failure("Build 4439.2019.05.31.17.07\n"));
    EXPECT_EQ(result.exitCode, 0);
  }
  EXPECT_EQ(runWith({"-vers", "TmpPrefix=."}).exitCode, 1);
}

TEST_F(FrontEnd, WithoutParametersMissesItsOperationFile) {
  const ProgramResult result = runWith({});
  expectFailure(result,
                "initParams: File name for (PVB conditioner operation file) is not specified.\n");
  EXPECT_THAT(result.out, StartsWith("PVBConditioner    "));
  expectFailure(runWith({"Operation=copy"}),
                "initParams: File name for (PVB conditioner operation file) is not specified.\n");
}

TEST_F(FrontEnd, RefusesABadCommandLine) {
  const std::string failed = "initParams: Error occurred in parsing command line arguments.\n";
  expectFailure(runWith({"op=copy", "TmpPrefix=."}),
                failed +
                    "PBcmdLine: Bad command line\n"
                    "PBunixParams: Error 0: Ambiguous parameter: \"op=copy\", matches \"OpFile\" "
                    "and \"Operation\"\n");
  expectFailure(runWith({"one", "two"}),
                "Bad argument: one\n" + failed +
                    "PBcmdLine: Bad command line\n"
                    "PBunixParams: Error 0: Parameter must have form: name=value\n");
  const ProgramResult missing = runWith({"nowhere.par"});
  EXPECT_THAT(missing.err,
              AllOf(HasSubstr(failed),
                    HasSubstr("PBgatherParams: Can't open parameter file: nowhere.par\n"),
                    HasSubstr("PBopenParamFile: Can't open file: nowhere.par")));
  EXPECT_EQ(missing.exitCode, 1);
}

TEST_F(FrontEnd, ReadsAParameterFile) {
  dir_.write("regions.ops", "#% regionname pvbname\n a a.pvb\n");
  dir_.write("run.par", "a remark\n Op File =  regions.ops  \nTMPPREFIX=.\nUnknown=1\n");
  expectSuccess(runWith({"run.par"}));
  dir_.write("bare.par", "OpFile=regions.ops\n");
  EXPECT_THAT(runWith({"bare.par"}).err,
              HasSubstr("PBgatherParams: Missing parameter: TmpPrefix\n"));
  dir_.write("empty.par", "OpFile=\nTmpPrefix=.\n");
  EXPECT_THAT(runWith({"empty.par"}).err, HasSubstr("Illegal parameter value"));
}

// --- One operation from parameters ---------------------------------------------------

TEST_F(FrontEnd, RefusesOperationsThatParametersCannotGive) {
  for (const char* name : {"rename", "add", "cut", "deleteDB", "duplicateRow", "nonsense", ""}) {
    expectFailure(runOperation(name),
                  std::string("initParams: Invalid operation: (") + name + ")\n");
  }
}

TEST_F(FrontEnd, NamesTheParameterThatIsMissing) {
  const auto missing = [](const char* name) {
    return std::string("initParams: Parameter (") + name + ") not specified.\n";
  };
  expectFailure(runOperation("flatten"), missing("sourcePVB1"));
  for (const char* name : {"merge", "concat", "insert"}) {
    expectFailure(runOperation(name, {"SourcePVB1=a"}), missing("sourcePVB2"));
  }
  expectFailure(runOperation("MERGE", {"SourcePVB1=a", "SourcePVB2=b"}), missing("destinationPVB"));
  expectFailure(runOperation("copy", {"SourcePVB1=a"}), missing("destinationPVB"));
}

TEST_F(FrontEnd, ChecksTheBoundsOfARegion) {
  const auto bounds = [&](const std::string& start, const std::string& stop) {
    return runOperation("flatten", {"SourcePVB1=dir/a/", "Start1=" + start, "Stop1=" + stop});
  };
  const std::string invalid = "initParams: Invalid parameter(s) specified for PVB region: (a)\n";
  expectFailure(bounds("soon", "end"), "initRegionFromParams: Invalid time: (soon)\n" + invalid);
  expectFailure(bounds("0s", "100"), "initRegionFromParams: Invalid time: (100)\n" + invalid);
  expectFailure(bounds("2ns", "1999ps"),
                "initRegionFromParams: Start time (2ns) is behind stop time (1999ps)\n" + invalid);
  for (const auto& result : {bounds("BEGIN", "End"), bounds("1ns", "1000ps")}) {
    EXPECT_THAT(result.err, Not(HasSubstr("Invalid")));
  }
}

TEST_F(FrontEnd, ChecksMinPeriodBeforeTheReportStarts) {
  const ProgramResult result = runWith({"MinPeriod=10", "TmpPrefix=."});
  expectFailure(result, "initParams: Invalid time: (10)\n");
  EXPECT_EQ(result.out, "");
}

TEST_F(FrontEnd, MuxDegreeErrorsEndWithCodeZero) {
  const auto complaint = [&](std::vector<std::string> more) {
    const ProgramResult result = runOperation("muxify", std::move(more));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, StartsWith(failure("\n\nTotal run time = 0 seconds\n")));
    return result.err.substr(failure("\n\nTotal run time = 0 seconds\n").size());
  };
  EXPECT_EQ(complaint({"SourcePVB1=a"}), "'muxDegree' parameter missing\n");
  for (const std::string degree : {"-2", "0000000002"}) {
    EXPECT_EQ(complaint({"MuxDegree=" + degree}),
              "'muxDegree' parameter value (" + degree + ") is not a valid integer\n");
  }
  for (const std::string degree : {"1", "17"}) {
    EXPECT_EQ(complaint({"MuxDegree=" + degree}),
              "'muxDegree' parameter value (" + degree + ") is out of range [2..16]\n");
  }
}

TEST_F(FrontEnd, ChecksTheRenameParameters) {
  const auto rename = [&](std::vector<std::string> more) {
    more.push_back("SourcePVB1=a");
    return runOperation("timeplate_rename", std::move(more));
  };
  expectFailure(rename({}),
                "Error: TpRenameMode must be 'AUTO_INDEX' or 'STRING_REPLACE', found ''\n");
  expectFailure(rename({"TpRenameMode=auto_index"}),
                "Error: tpRenamePrefix value is missing or empty\n");
  expectFailure(
      rename({"TpRenameMode=AUTO_INDEX", "TpRenamePrefixStr=t", "TpRenameStartIndex=1234567890"}),
      "Error: tpRenameStartIndex (%s) is not a valid integer\n");
  expectFailure(rename({"TpRenameMode=STRING_REPLACE"}),
                "Error: tpRenameSearchStr value is missing or empty\n");
}

// --- The operation file --------------------------------------------------------------

TEST_F(FrontEnd, FilesWithoutOperationsEndWell) {
  expectSuccess(runFile(""));
  expectSuccess(runFile("# nothing here\n"));
  expectSuccess(
      runFile("#% REGIONNAME PvbName start stop\n r1 a.pvb begin END\n r2 b.pvb - 1us\n"
              "#% siglist oldsigname newsigname\n l a b\n - c d\n"
              "#% oldsigname newsigname\n e f\n"
              "#% addlist addsigname sigdir track patbit\n l a in - -\n - b bi t 0\n"
              "#% trackname sigshape\n t \"D 0ns\"\n"
              "#% cutlist cutsigname\n c a\n"
              "#% compressspec repeatkey loopkey loopblocksize\n z R L 4\n z - - 5\n"));
}

TEST_F(FrontEnd, MissingOperationFileIsNamed) {
  const ProgramResult result = runWith({"OpFile=nowhere.ops", "TmpPrefix=."});
  expectFailure(result, "initParams: File: (nowhere.ops) does not exist.\n");
}

struct BadRow {
  const char* file;
  const char* message;
};

TEST_F(FrontEnd, EveryBadRowIsToldWithItsLine) {
  const BadRow rows[] = {
      {"#% oldsigname newsigname\na b\n",
       "handleRenameSignalListSpec: Missing argument (siglist) in rename signal list spec, for "
       "signal (a)\n"},
      {"#% addsigname sigdir\nc in\n",
       "handleAddsListSpec: Missing argument (addlist) in add list spec, for signal (c)\n"},
      {"#% addlist addsigname sigdir track\nl c in t\n",
       "handleAddsListSpec: Missing argument (patbit) in add list spec, for signal (c)\n"},
      {"#% sigshape\n\"D 0nS\"\n",
       "handleAddsTrackSpec: Missing argument (trackname) in add track spec, for signal (D 0nS)\n"},
      {"#% cutsigname\nc\n",
       "handleCutListSpec: Missing argument (cutlist) in cut list spec, for signal (c)\n"},
      {"#% regionname pvbname\nr \"\"\n",
       "handleRegionSpec: Missing argument (pvbname) in region spec.\n"},
      {"#% regionname pvbname start\nr p noon\n",
       "initRegionFromParams: Invalid time: (noon)\n"
       "handleRegionSpec: Invalid parameter(s) specified for PVB region: (r)\n"},
      {"#% regionname pvbname start stop\nr p 2us 1us\n",
       "initRegionFromParams: Start time (2us) is behind stop time (1us)\n"
       "handleRegionSpec: Invalid parameter(s) specified for PVB region: (r)\n"},
      {"#% operation operand1\ncopy -\n",
       "handleOpSpec: Missing argument(s): (operand1) (operand2) for operation spec.\n"},
      {"#% operation operand1 operand2\ninsert a b\n",
       "handleOpSpec: Invalid operation: (insert)\n"},
      {"#% operation operand1 operand2\nmerge a b\n",
       "handleOpSpec: operand3 argument required, but missing in the operation file; associate "
       "arguments are: operand1 (a), operand2 (b)\n"},
      {"#% operation operand1 operand2 operand3\ncopy a b c\n",
       "handleOpSpec: Too many arguments for (copy) operation.\n"},
      {"#% operation operand1 operand2 operand3\nTimeplateRename a b c\n",
       "handleOpSpec: Too many arguments for (TimeplateRename) operation.\n"},
      {"#% operation operand1 operand2\ncut a -\n",
       "handleOpSpec: Missing argument(s): (a) (*** NO ARG ***) for operation spec.\n"},
      {"#% operation operand1 operand3\naddCompression a b\n",
       "handleOpSpec: Missing argument(s): (a) (*** NO ARG ***) for operation spec.\n"},
      {"#% operation operand1\ntimeplateRename a\n",
       "Error: TpRenameMode must be 'AUTO_INDEX' or 'STRING_REPLACE', found ''\n"},
  };
  for (const BadRow& row : rows) {
    const ProgramResult result = runFile(row.file);
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("Could not parse line number:  2: "), EndsWith(row.message)))
        << row.file;
    EXPECT_EQ(result.exitCode, 1);
  }
}

TEST_F(FrontEnd, ABadRowDoesNotHideTheNext) {
  const ProgramResult result =
      runFile("#% operation operand1 operand2\nnonsense a b\ncopy a b\nfolly a b\n");
  EXPECT_THAT(result.err, AllOf(HasSubstr("line number:  2: "), HasSubstr("line number:  4: "),
                                Not(HasSubstr("line number:  3: ")),
                                EndsWith("handleOpSpec: Invalid operation: (nonsense)\n"
                                         "handleOpSpec: Invalid operation: (folly)\n")));
}

TEST_F(FrontEnd, AnAddedSignalWithoutDirectionIsAnInternalError) {
  expectFailure(runFile("#% addlist addsigname\nl c\n"),
                "handleAddsListSpec: Missing argument (sigdir) in add list spec, for signal (c)\n"
                "Internal Error. Save input files and contact KORVANE representative.\n");
}

TEST_F(FrontEnd, UnknownColumnsAreNotedAndIgnored) {
  const ProgramResult result = runFile("#% regionname colour pvbname\nr red p\n");
  EXPECT_THAT(result.err, HasSubstr("No keyword named \"colour\" -- ignoring column"));
  EXPECT_EQ(result.exitCode, 0);
}

TEST_F(FrontEnd, ReadsACompressedFileInPlaceOfAMissingOne) {
  dir_.write("packed.ops", "#% operation operand1 operand2\nnonsense a b\n");
  ASSERT_EQ(std::system(("gzip " + dir_.path("packed.ops")).c_str()), 0);
  const ProgramResult result = runWith({"OpFile=packed.ops", "TmpPrefix=."});
  EXPECT_THAT(result.err, HasSubstr("Invalid operation: (nonsense)"));
}

// --- The report ----------------------------------------------------------------------

TEST_F(FrontEnd, ReportBeginsWithHeadingAndBanner) {
  const std::string frame = "# *" + std::string(69, '*') + "\n";
  const std::string date = "[A-Z][a-z][a-z] [A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]* [0-9]*";
  const ProgramResult result = runFile("");
  EXPECT_THAT(result.out, ContainsRegex("^PVBConditioner    " + date + "    page 1\n\n# "));
  EXPECT_THAT(result.out,
              HasSubstr("\n\n" + frame + "# * PVBConditioner Conditioner Version 2019.1.0" +
                        std::string(25, ' ') + "\n# *\n# * "));
  EXPECT_THAT(result.out, EndsWith("\n# *\n" + frame + "\n"));
}

TEST_F(FrontEnd, ReportGoesToAFileWhenAsked) {
  const ProgramResult named = runFile("", {"SaveReport=YES", "ReportFile=my.rpt"});
  EXPECT_EQ(named.out, "");
  EXPECT_THAT(dir_.read("my.rpt"), StartsWith("PVBConditioner    "));
  EXPECT_EQ(runFile("", {"SaveReport=yes"}).out, "");
  EXPECT_THAT(dir_.read("pvbcond.rpt"), StartsWith("PVBConditioner    "));
  const ProgramResult fallback = runFile("", {"SaveReport=yes", "ReportFile=no/such/dir.rpt"});
  expectSuccess(fallback);
  EXPECT_THAT(fallback.out, StartsWith("PVBConditioner    "));
}

TEST_F(FrontEnd, ALostReportIsTold) {
  for (const bool toFile : {true, false}) {
    ProgramCall call;
    dir_.write("test.ops", "");
    call.arguments = {"OpFile=" + dir_.path("test.ops"), "TmpPrefix=."};
    if (toFile)
      call.arguments.insert(call.arguments.end(), {"SaveReport=yes", "ReportFile=/dev/full"});
    if (!toFile) call.outputPath = "/dev/full";
    call.environment = environment_;
    const ProgramResult result = runProgram(PVBCONDITIONER_BINARY, call);
    EXPECT_THAT(result.err, HasSubstr("The report could not be written: "));
    EXPECT_EQ(result.exitCode, 1);
  }
}

TEST_F(FrontEnd, TheOptimizerMovesTheRunTimeLineToItsReport) {
  std::filesystem::create_directories(dir_.path("ate/ims"));
  dir_.write("ate/ims/ims.shp", "#% shape\nS\n");
  const std::vector<std::string> parameters = {"OptimizeTimePlates=yes", "ATEFamily=IMS"};
  const ProgramResult result = runFile("", parameters);
  EXPECT_EQ(result.err, kIdentity);
  EXPECT_THAT(result.out, HasSubstr("\tshape S read\npmode is: 5\n\n"));
  EXPECT_THAT(result.out, EndsWith("\n\nTotal run time = 0 seconds\n"));
  const ProgramResult noted = runFile("#% regionname regionname\n", parameters);
  EXPECT_THAT(noted.out, HasSubstr("Total run time"));
  EXPECT_EQ(noted.exitCode, 1);
}

TEST_F(FrontEnd, TheOptimizerNeedsATester) {
  const std::string fault = "TimePlate Optimize: missing parameter: ATEFamily\n";
  const std::string failed = "*** NO ARG ***: Failed to initialize timeplate optimizer.\n";
  for (const bool toFile : {false, true}) {
    std::vector<std::string> parameters = {"OptimizeTimePlates=yes"};
    if (toFile) parameters.push_back("SaveReport=yes");
    const ProgramResult result = runFile("", parameters);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(toFile ? dir_.read("pvbcond.rpt") : result.out, HasSubstr("\n" + fault));
    EXPECT_THAT(result.err, HasSubstr((toFile ? fault : kIdentity) + failed));
  }
}

// --- Hostile files -------------------------------------------------------------------

TEST_F(FrontEnd, SurvivesBinaryAndTruncatedFiles) {
  std::mt19937 random(20260);
  const std::string good =
      "#% regionname pvbname start stop\n r \"a b\\\"c\" 1ns 2ns # x\n\\\n r2 p \\\n - -\n"
      "#% operation operand1 operand2 operand3\n merge r r2 out\n";
  for (std::size_t cut = 0; cut < good.size(); cut += 7) {
    EXPECT_LE(runFile(good.substr(0, cut)).exitCode, 1);
  }
  for (int i = 0; i < 10; ++i) {
    std::string noise = "#% operation operand1\n";
    for (int n = 0; n < 4000; ++n) noise += static_cast<char>(random());
    EXPECT_LE(runFile(noise).exitCode, 1);
    dir_.write("noise.par", noise);
    EXPECT_LE(runWith({"noise.par"}).exitCode, 1);
  }
}

TEST_F(FrontEnd, SurvivesAnEnormousLine) {
  const std::string line = "#% regionname pvbname\nr " + std::string(8 << 20, 'x') + "\n";
  expectSuccess(runFile(line));
  dir_.write("long.par", "OpFile=" + std::string(8 << 20, 'x') + "\nTmpPrefix=.\n");
  EXPECT_EQ(runWith({"long.par"}).exitCode, 1);
}

}  // namespace
