#pragma once

// Operations that change a database where it is, killed or failing at any of their file
// calls: each time the database is the old or the new one, and what is left doesn't stop
// the next run.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "base/errors.h"
#include "base/platform.h"
#include "base/progress.h"
#include "base/temp_directory.h"
#include "conditioner/run.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"
#include "support/untouched.h"

// One that works on the database "A" of the directory.
struct InPlaceOperation {
  std::function<int()> run;  // 0 when done
  std::string result;        // the content then
  bool repeatable = true;    // done again it changes nothing
};

// "A" is a copy of the database "whole", which the test makes, with files of a user's own.
class InPlaceTest : public testing::Test {
 protected:
  InPlaceTest() {
    std::filesystem::create_directories(dir_.path("tmp"));
    std::filesystem::create_directories(dir_.path("whole/waves"));
    dir_.write("whole/notes.txt", "mine");
    dir_.write("whole/waves/one", "wave");
    PBsetTempDirectory(dir_.path("tmp"));
    PBprogressEnable(false);
    run.reportFile = openStream("/dev/null", "w");
    run.reportStream = run.reportFile.get();
  }
  ~InPlaceTest() override {
    run.reportStream = nullptr;
    run.reportFile.reset();
    PBprogressEnable(true);
    PBsetTempDirectory("");
    PBdiscardErrors();
    PBerrClear();
  }

  // What tells the old database from the new one, and both from a damaged one.
  virtual std::string content(const std::string& database) const = 0;

  std::string path() const { return dir_.path("A"); }
  void restore() const {
    for (const char* name : {"A", "A_", "A_old", "A.working"}) {
      std::filesystem::remove_all(dir_.path(name));
    }
    std::filesystem::copy(dir_.path("whole"), path(), std::filesystem::copy_options::recursive);
  }

  // Exit codes of a run, next to that of one that died.
  static constexpr int kFailed = 2;
  static constexpr int kTolerated = 3;  // done, though a call failed
  static constexpr int kCrashed = 255;

  // A run in a process of its own that dies at its n-th file call, or where that call
  // fails, 0 for never: its exit code.
  template <typename SomePlatform = FaultPlatform>
  static int runInChild(const InPlaceOperation& operation, int n, bool dies = true) {
    const pid_t child = fork();
    if (child == 0) {
      if (std::freopen("/dev/null", "w", stderr) == nullptr) ::_exit(kCrashed);
      SomePlatform faults;
      if (n > 0 && dies) faults.dieAtFileCall(n);
      if (n > 0 && !dies) faults.failFileCall(n);
      const int result = operation.run();
      ::_exit(result != 0 ? kFailed : faults.failed() ? kTolerated : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kCrashed;
  }

  // Calls `endsAt` with samples of the file calls of a run, of which the many before the
  // database is touched are one much like the other, and with all, or every so many, of
  // the last.
  template <typename Function>
  static void atFileCalls(int stepOfLast, const Function& endsAt) {
    constexpr int kStride = 73;
    constexpr int kLastCalls = 60;
    int n = 1;
    while (!endsAt(n)) n += kStride;
    for (n -= kLastCalls; !endsAt(n); n += stepOfLast) {
    }
  }

  // Whether there was no file call so late.
  template <typename SomePlatform = FaultPlatform>
  bool endsAt(const InPlaceOperation& operation, int n, bool dies) {
    SCOPED_TRACE(testing::Message() << operation.result << n << " dies: " << dies);
    restore();
    const int code = runInChild<SomePlatform>(operation, n, dies);
    if (code == 0) return true;
    EXPECT_TRUE(dies ? code == FaultPlatform::kDeathCode : code != kCrashed) << code;
    const std::string now = content(path());
    EXPECT_TRUE(code != kTolerated || now == operation.result);
    EXPECT_EQ(dir_.read("A/notes.txt"), "mine");
    seen_.insert(now);
    if (operation.repeatable || now != operation.result) expectDone(operation);
    return false;
  }

  // Over what the last run has left.
  template <typename SomePlatform = FaultPlatform>
  void expectDone(const InPlaceOperation& operation) const {
    EXPECT_EQ(runInChild<SomePlatform>(operation, 0), 0);
    EXPECT_EQ(content(path()), operation.result);
    EXPECT_EQ(dir_.read("A/notes.txt"), "mine");
    EXPECT_EQ(dir_.read("A/waves/one"), "wave");
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path(""))) {
      names.insert(entry.path().filename());
    }
    EXPECT_THAT(names, testing::ElementsAre("A", "tmp", "whole"));
  }

  // Wherever the run were killed, the files are byte for byte those of before or after it.
  void expectOldOrNewAtEveryCall(const InPlaceOperation& operation) const {
    restore();
    std::set<std::map<std::string, std::string>> seen = {directoryContent(path())};
    {
      FaultPlatform faults;
      faults.watchFileCalls([&] { seen.insert(directoryContent(path())); });
      EXPECT_EQ(operation.run(), 0);
    }
    EXPECT_EQ(content(path()), operation.result);
    EXPECT_TRUE(seen.contains(directoryContent(path())));
    EXPECT_EQ(seen.size(), 2U) << operation.result;
  }

  TempDir dir_;
  std::set<std::string> seen_;  // contents
};
