#include "base/errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "base/platform.h"
#include "support/temp_dir.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kRows[] = {"plain", "%s!", "%s-%s-%s"};
constexpr MessageTable kTable = kRows;

class Errors : public testing::Test {
 protected:
  Errors() { reset(); }
  ~Errors() override { reset(); }

  static void reset() {
    PBerrClear();
    PBerrSetLogger({});
    PBwarnClear();
    PBdiscardErrors();
    PBprogramName.clear();
    tpNoticeSettings = {};
  }

  template <typename Action>
  static std::string onStderr(Action action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
  }
  static std::string printedMessages() {
    return onStderr([] { PBerrPrint(stderr); });
  }

  TempDir dir_;
};
using ErrorsDeathTest = Errors;

// --- Message-table and warning stacks ------------------------------------------------

TEST_F(Errors, MessagesKeepTheOldest32InOrderAndGoToTheirLogger) {
  for (int i = 1; i <= 33; ++i) PBerrPush(kTable, 1, std::to_string(i));
  EXPECT_EQ(PBerrCount(), 32);
  std::string expected;
  for (int i = 1; i <= 32; ++i) expected += std::to_string(i) + "!\n";
  EXPECT_EQ(printedMessages(), expected);
  PBwarnPush(kTable, 1, "warned");
  std::string lines;
  PBerrSetLogger([&](std::string_view line) { lines += line; });
  EXPECT_EQ(onStderr([] {
              PBerrPrint(stderr);
              PBwarnPrint(stderr);
            }),
            "warned!\n");
  std::erase(expected, '\n');
  EXPECT_EQ(lines, expected);
}

TEST_F(Errors, MissingArgumentsAreShown) {
  PBerrPush(PBconditionerError, 83, "main");
  PBerrPush(kTable, 2, std::nullopt, "b");
  PBerrPush(kTable, 0, "ignored");
  PBerrPushMemory("x", "y");
  PBerrPush(kTable, 1, std::string(100'000, 'a'));  // cut to the line
  EXPECT_EQ(printedMessages(),
            "main: AddCompression() failed to extract repeats in \"*** NO ARG ***\"\n"
            "*** NO ARG ***-b-*** NO ARG ***\n"
            "plain\n"
            "x y\n" +
                std::string(3099, 'a') + "\n");
}

TEST_F(Errors, SystemErrorIsPrintedOnStandardErrorWithItsRecord) {
  PBerrPush(kTable, 1, "before");
  errno = ENOENT;
  PBerrPush(kTable, 1, "failed");
  EXPECT_EQ(errno, 0);
  PBerrPush(kTable, 1, "after");
  StreamPtr stream = openStream(dir_.path("log"), "w");
  EXPECT_EQ(onStderr([&] { PBerrPrint(stream.get()); }),
            std::string("failed!: ") + std::strerror(ENOENT) + "\n");
  EXPECT_EQ(errno, 0);
  ASSERT_EQ(closeStream(std::move(stream)), 0);
  EXPECT_EQ(dir_.read("log"), "before!\nafter!\n");
}

// --- Numbered stack ------------------------------------------------------------------

TEST_F(Errors, PostedLineNamesFunctionCodeDetailAndReason) {
  PBpostError("", 82, "x");
  PBpostError("close", 0, "detail");
  PBpostError("close", 141);
  PBpostError("close", -1, "y");
  errno = EACCES;
  PBpostError("read", 82);
  EXPECT_EQ(onStderr(PBflushErrors), std::string("read: No more memory: ") + std::strerror(EACCES) +
                                         "\n"
                                         "close: Unknown error #-1: y\n"
                                         "close: Unknown error #141\n"
                                         "close: Error 0: detail\n"
                                         "No more memory: x\n");
  EXPECT_EQ(errno, 0);
}

TEST_F(Errors, PostsAreFoundByFunctionAndCode) {
  PBpostError("open", 82, "older");
  PBpostError("open", 82, "newer");
  PBpostError("close", 82);
  EXPECT_TRUE(PBerrorHas("open", 0));
  EXPECT_TRUE(PBerrorHas({}, 82));
  EXPECT_FALSE(PBerrorHas("open", 83));
  EXPECT_EQ(PBerrorFind("open", 82, true), "open: No more memory: newer");
  EXPECT_EQ(PBerrorFind({}, 82, true), "close: No more memory");
  EXPECT_EQ(PBerrorFind({}, 0, false), "newer");  // the newest that has a detail
  EXPECT_EQ(PBerrorFind("close", 0, false), std::nullopt);
  EXPECT_EQ(PBformatError(0, 5), "open");
  for (const auto& [position, size] : {std::pair{-1, 9}, {3, 9}, {0, 0}}) {
    EXPECT_EQ(PBformatError(position, size), "");
  }
  for (int i = 4; i <= 33; ++i) EXPECT_EQ(PBpostError("", 0, "old"), std::min(i, 32));
  EXPECT_EQ(PBerrorCount(), 32);
  EXPECT_EQ(PBpopError(), 0);
  PBpostError("long", 0, std::string(5000, 'a'));
  EXPECT_EQ(PBerrorFind("long", 0, true)->size(), 3071U);
}

// --- Ways out ------------------------------------------------------------------------

void printArgument(void* text) { std::fputs(static_cast<const char*>(text), stderr); }
char oneText[] = "one ";
char twoText[] = "two ";
char threeText[] = "three ";

TEST_F(ErrorsDeathTest, FatalExitRunsHandlersNewestFirst) {
  FatalHandler one{printArgument, oneText};
  FatalHandler two{printArgument, twoText};
  FatalHandler three{printArgument, threeText};
  const auto exitWith = [&] {
    for (FatalHandler* handler : {&one, &two, &three, &one}) PBaddFatalHandler(handler);
    PBremoveFatalHandler(&three);
    PBprogramName = "prog";
    PBfatalExit("text");
  };
  EXPECT_EXIT(exitWith(), ExitedWithCode(1),
              StartsWith("one two Error encountered in prog: text\n  Exiting.\n"));
  std::array<FatalHandler, 33> handlers;
  handlers.fill(one);
  EXPECT_EXIT(for (FatalHandler& handler
                   : handlers) PBaddFatalHandler(&handler),
              ExitedWithCode(1),
              StartsWith("Error detected within error package: "
                         "error hander stack overflow -- too many handlers\n"));
}

TEST_F(ErrorsDeathTest, HandlerThatFailsDoesNotRunTheHandlersAgain) {
  FatalHandler nested{[](void* text) {
                        PBsystemError("nested");
                        printArgument(text);
                      },
                      oneText};
  EXPECT_EXIT(
      {
        PBaddFatalHandler(&nested);
        PBuserError("text\n\n");
      },
      ExitedWithCode(1), StartsWith("one Error encountered: \n  (user error) text\n  Exiting.\n"));
  PBerrPush(kTable, 1, "reason");
  EXPECT_EXIT(assertFail("file.cc", 1), ExitedWithCode(1),
              StartsWith("reason!\nInternal Error. Save input files and contact KORVANE "
                         "representative.\n"));
}

TEST_F(ErrorsDeathTest, AbortRunsActionsNewestFirstWithTheLatestValue) {
  void* one = nullptr;
  void* two = twoText;
  SetAbortAction(printArgument, &one);
  SetAbortAction(printArgument, &two);
  one = threeText;
  EXPECT_EQ(onStderr(PBrunAbortActions), "two three ");
  PBpostError("post", 0, "x");
  EXPECT_EXIT(PBabort(), ExitedWithCode(1), StartsWith("two three post: Error 0: x\n"));

  PBdiscardErrors();
  UnsetAbortAction(&two);
  EXPECT_EQ(onStderr(PBrunAbortActions), "three ");
  UnsetAbortAction(&one);
  UnsetAbortAction(&one);
  EXPECT_EQ(onStderr(PBflushErrors), "UnsetAbortAction: Error 0: Delete from empty stack\n");
}

TEST_F(Errors, NoticeGoesToTheReportAndTheMessages) {
  PBprogramName = "prog";
  StreamPtr report = openStream(dir_.path("report"), "w");
  tpNoticeSettings = {report.get(), 1};
  errno = EIO;
  tpNotice(9, "lost");
  tpNoticeVerbose(0, "not shown");
  ASSERT_EQ(closeStream(std::move(report)), 0);
  const std::string messages = printedMessages();
  EXPECT_THAT(messages, AllOf(HasSubstr("prog"), EndsWith("bad error ID\n")));
  EXPECT_EQ(dir_.read("report"), "\n" + messages);

  PBerrClear();
  testing::internal::CaptureStdout();
  tpNoticeSettings = {stdout, 2};
  tpNoticeVerbose(8, "shown");
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("shown"));
  EXPECT_EQ(PBerrCount(), 0);
}

}  // namespace
