#include "base/memory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <thread>

#include "support/fault_platform.h"

namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;

constexpr const char* kWait =
    "Unable to allocate memory.\nSleeping for 30 seconds before trying again.\n\n";
constexpr const char* kEnd = "Still unable to allocate memory.  Exiting.\n\n";

std::string repeated(const std::string& text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) result += text;
  return result;
}

// Notes whether the critical flag was set at every wait.
class CriticalWatch : public FaultPlatform {
 public:
  void sleepOneSecond() override {
    alwaysCritical &= PBmemoryCritical();
    FaultPlatform::sleepOneSecond();
  }
  bool alwaysCritical = true;
};

TEST(Memory, ZeroSizesGiveABlockCallocClearsAndReallocKeeps) {
  for (const PBblock& block :
       {PBblock(PBmalloc(0)), PBblock(PBcalloc(0, 9)), PBblock(PBcalloc(9, 0)),
        PBblock(PBrealloc(PBmalloc(4), 0)), PBblock(PBrealloc(nullptr, 0))}) {
    ASSERT_NE(block, nullptr);
    *static_cast<char*>(block.get()) = 'x';
  }
  char* block = static_cast<char*>(PBcalloc(3, 5));
  EXPECT_EQ(std::string(block, 15), std::string(15, '\0'));
  std::memcpy(block, "kept", 4);
  const PBblock larger(PBrealloc(block, 10'000));
  EXPECT_EQ(std::string(static_cast<char*>(larger.get()), 4), "kept");
}

TEST(Memory, WaitsForMemoryToComeBack) {
  for (const int failures : {0, 1, 10}) {
    CriticalWatch faults;
    faults.failAllocations(failures);
    errno = ENOENT;
    testing::internal::CaptureStderr();
    const PBblock block(PBrealloc(PBmalloc(3), 5));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), repeated(kWait, failures));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(faults.secondsSlept(), 30 * failures);
    EXPECT_TRUE(faults.alwaysCritical);
    EXPECT_FALSE(PBmemoryCritical());
  }
  errno = 0;
}

TEST(MemoryDeathTest, EndsTheProcessWhenNoMemoryComesBack) {
  const auto allocateWithout = [](auto allocate) {
    FaultPlatform faults;
    faults.failAllocations(11);
    allocate();
  };
  const std::string all = repeated(kWait, 10) + kEnd;
  EXPECT_EXIT(allocateWithout([] { PBmalloc(1); }), ExitedWithCode(1), all);
  EXPECT_EXIT(allocateWithout([] { PBrealloc(nullptr, 1); }), ExitedWithCode(1), all);
  EXPECT_EXIT(
      {
        FaultPlatform faults;
        PBcalloc(SIZE_MAX / 2, 3);
      },
      ExitedWithCode(1), all);
}

class NewHandler : public testing::Test {
 protected:
  NewHandler() { PBinstallNewHandler(); }
  ~NewHandler() override { std::set_new_handler(before_); }
  // What operator new does after a try that failed.
  static void failOperatorNew(int times) {
    for (int i = 0; i < times; ++i) std::get_new_handler()();
  }

 private:
  std::new_handler before_ = std::get_new_handler();
};

TEST_F(NewHandler, EndsTheProcessUnlessItStartsAnewAfterASuccess) {
  FaultPlatform faults;
  testing::internal::CaptureStderr();
  failOperatorNew(9);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  errno = ENOMEM;
  failOperatorNew(10);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), repeated(kWait, 19));
  EXPECT_EQ(faults.secondsSlept(), 19 * 30);
  EXPECT_EQ(errno, 0);
  EXPECT_EXIT(failOperatorNew(11), ExitedWithCode(1), kEnd);
}

class Tracker : public testing::Test {
 protected:
  Tracker() { PBsetMemSummary(true); }
  ~Tracker() override { PBsetMemSummary(false); }

  template <typename Action>
  static std::string printed(Action action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
  }
};

TEST_F(Tracker, ReportsWhatWasNotGivenBackAndForgetsIt) {
  PBfreeTracked(PBmallocTracked(10, "/src/a.cc", 1));
  const PBblock leak(PBreallocTracked(PBcallocTracked(2, 3, "/src/b.cc", 2), 1234,
                                      "/home/build/src/with/parts.cc", 77));
  EXPECT_EQ(printed(PBmemSummary),
            "Memory leaks:\n"
            "  File:                                 Line: Amount Allocated:\n"
            " ...src/with/parts.cc                     77             1234\n");
  EXPECT_EQ(printed(PBmemSummary), "No memory Allocated!\n");
}

TEST_F(Tracker, UnknownBlockIsLeftAloneUnlessTheTrackerIsOff) {
  char unknown = 'x';
  EXPECT_THAT(printed([&] { PBfreeTracked(&unknown); }),
              HasSubstr("Attempting to free unallocated or untracked memory 0x"));
  EXPECT_EQ(printed([] { PBfreeTracked(nullptr); }), "");

  PBsetMemSummary(false);
  void* block = PBmallocTracked(10, "/src/a.cc", 1);
  EXPECT_EQ(printed(PBmemSummary),
            "Memory leakage report disabled: set MemSummary to TRUE to enable.\n");
  EXPECT_EQ(printed([&] { PBfreeTracked(block); }), "");
}

}  // namespace
