#include "base/progress.h"

#include <fmt/printf.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "base/platform.h"
#include "base/report.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;

std::time_t present = 0;

// Captured standard error is no terminal; isatty2 decides what it counts as.
class ProgressTest : public testing::Test {
 protected:
  ProgressTest() {
    std::filesystem::current_path(directory_.path());
    setenv("TZ", "UTC", 1);
    tzset();
    present = 1000000;
    PBsetClock([] { return present; });
    PBprogressEnable(true);
    PBprogressFastPath(false);
    PBisatty2Set();
    testing::internal::CaptureStderr();
  }
  ~ProgressTest() override {
    takeOutput();
    PBprogressEnable(true);
    PBprogressFastPath(false);
    PBsetClock(nullptr);
    unsetenv("isatty2");
    std::filesystem::current_path(before_);
  }

  // What was written to standard error since the last call.
  std::string output() {
    const std::string text = takeOutput();
    testing::internal::CaptureStderr();
    return text;
  }
  // The line that an update after `seconds` of a new pass writes.
  std::string lineAfter(int seconds, std::int64_t done, std::int64_t total,
                        const char* message = "Go") {
    PBprogressStart(total, message);
    present += seconds;
    PBprogressUpdate(done);
    return output();
  }
  std::string statusFile() { return directory_.read(statusName_); }
  bool statusFileExists() { return fileExists(directory_.path(statusName_)); }

 private:
  static std::string takeOutput() { return testing::internal::GetCapturedStderr(); }

  std::filesystem::path before_ = std::filesystem::current_path();
  TempDir directory_;
  std::string statusName_ = fmt::sprintf("mvkstatus%05d", getpid());
};

// The seconds since the start at which a pass that updates each second prints.
std::vector<int> printTimes(int from, int to) {
  std::vector<int> times;
  for (int second = 1; second <= to; ++second) {
    ++present;
    if (!PBprogressDue()) continue;
    PBprogressUpdate(1);
    if (second >= from) times.push_back(second);
  }
  return times;
}

TEST_F(ProgressTest, PrintsLessOftenTheLongerAPassTakes) {
  PBprogressStart(10, "Go");
  EXPECT_FALSE(PBprogressDue());
  EXPECT_THAT(printTimes(58, 85), ElementsAre(58, 59, 60, 70, 80));
  PBprogressStart(10, "Go");
  EXPECT_THAT(printTimes(580, 800), ElementsAre(580, 590, 600, 660, 720, 780));
  PBprogressStart(10, "Go");
  EXPECT_THAT(printTimes(3500, 4300), ElementsAre(3540, 3600, 3900, 4200));
  PBprogressFastPath(true);  // looks at the clock on every hundredth call, an update's too
  PBprogressStart(10, "Go");
  EXPECT_THAT(printTimes(0, 250), ElementsAre(1, 100, 199));
}

TEST_F(ProgressTest, ShowsPercentAndEstimate) {
  const std::string left = "complete.  Estimated time remaining = ";
  EXPECT_EQ(lineAfter(10, 50, 100), "\rGo 50.00% " + left + "10 seconds");
  EXPECT_EQ(lineAfter(1, 50, 100), "\rGo 50.00% " + left + "1 second");
  EXPECT_EQ(lineAfter(90, 50, 100), "\rGo 50.00% " + left + "1.5 minutes");
  EXPECT_EQ(lineAfter(3600, 50, 100), "\rGo 50.00% " + left + "1.00 hours");
  EXPECT_EQ(lineAfter(86400, 25, 100), "\rGo 25.00% " + left + "3.00 days");
  EXPECT_EQ(lineAfter(10, 100, 100), "\rGo 99.99% " + left + "0 seconds");
  EXPECT_EQ(lineAfter(10, 120, 100), "\rGo 99.99% " + left);
  EXPECT_EQ(lineAfter(10, 7, 0), "\rGo 7.");
  const std::string message(30, 'm');
  EXPECT_EQ(lineAfter(10, 50, 100, message.c_str()), "\r" + message + " 50.00% (10 seconds)");
}

TEST_F(ProgressTest, RewritesTheTerminalLineAndBlanksTheRest) {
  PBprogressStart(100, "Go");
  PBprogressAddTotal(100);
  PBprogressText(1, 2, 3);
  EXPECT_EQ(output(), "\rGo 1 for 2 of 3.");
  PBprogressPercentOnly();
  ++present;
  PBprogressUpdate(1);
  EXPECT_EQ(output(), "\rGo 0.50% complete.");
  PBprogressEnd(200);
  EXPECT_EQ(output(), "\rGo 100% complete. ");

  EXPECT_EQ(lineAfter(1, 0, 0), "\rGo 0.");
  PBprogressClear();
  PBprogressClear();
  EXPECT_EQ(output(), "\r     \r");
}

TEST_F(ProgressTest, StatusFileIsWrittenEachTwoMinutesAndRemovedAtTheEnd) {
  PBisatty2Clear();
  PBprogressStart(100, "Go");
  EXPECT_THAT(printTimes(0, 300), ElementsAre(6, 126, 246));  // first look at 1
  EXPECT_EQ(statusFile().substr(0, 9), "Go 1.00% ");
  EXPECT_THAT(statusFile(), testing::EndsWith("\nMon Jan 12 13:50:46 1970\n"));
  PBprogressEnd(100);
  EXPECT_FALSE(statusFileExists());
  EXPECT_EQ(output(), "");
}

TEST_F(ProgressTest, StatusFileThatCannotBeWrittenIsOnlyCounted) {
  unsetenv("isatty2");
  PBprogressStart(100, "Go");
  PBprogressText(1, 2, 3);
  {
    FaultPlatform faults;
    faults.setDiskSpace(5);
    PBprogressText(1, 2, 3);
    EXPECT_FALSE(statusFileExists());
    faults.failFileCall(1);
    PBprogressText(1, 2, 3);
    EXPECT_EQ(errno, 0);
  }
  PBprogressEnd(100);
  EXPECT_EQ(output(), "Status file write succeeded 2 times out of 4 attempts\n");
  EXPECT_FALSE(statusFileExists());
}

TEST_F(ProgressTest, SwitchedOffNothingIsWritten) {
  PBisatty2Inherit();
  setenv("MVKDOPROGRESS_OFF", "", 1);
  PBprogressStart(100, "Go");
  unsetenv("MVKDOPROGRESS_OFF");
  present += 10;
  PBprogressUpdate(5);
  PBprogressText(1, 2, 3);
  PBprogressEnd(100);
  EXPECT_EQ(output(), "");
  EXPECT_FALSE(statusFileExists());
}

}  // namespace
