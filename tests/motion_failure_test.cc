// Operations that fail half-way: a full disk, damaged sources, a program that is killed.
// Whatever happens, the sources stay as they are and the next run can do its work.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>

#include "support/operation_world.h"
#include "support/pattern_model.h"
#include "support/untouched.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kOperations[] = {"copy A dest -", "concat A B dest", "merge A C dest"};

// Enough rows, all of them different, that files have several blocks.
std::string manyRows(const std::string& plate, int count) {
  std::mt19937 random(7);
  std::vector<std::string> states;
  for (int i = 0; i < count; ++i) {
    std::string row;
    for (int column = 0; column < 24; ++column) row += "01ZX"[random() % 4];
    states.push_back(row);
  }
  return steps(plate, states);
}

DatabaseText wideChip(const std::string& prefix) {
  DatabaseText text;
  std::string all;
  for (int i = 0; i < 24; ++i) {
    text.signal(prefix + std::to_string(i), "input");
    all += prefix + std::to_string(i) + " ";
  }
  text.plate("tp", "10nS", {{all, "0pS D 4nS S", ""}});
  const std::string first =
      steps("tp", {std::string(24, '0')}) + "    prop 1 \"" + std::string(500, '-') + "\"\n";
  return text.rows(first + manyRows("tp", 700) + "    prop 1 \"the last row\"\n")
      .more("label \"begin\" row=0\n");
}

class MotionFailure : public testing::Test, protected OperationWorld {
 protected:
  MotionFailure() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  void buildSources() {
    build("A", wideChip("s"));
    build("B", wideChip("s"));
    build("C", wideChip("c"));
  }
  // Runs the operation, and gives what its destination should be.
  std::string resultOf(const std::string& operation) {
    operation_ = operation;
    expectDone(runOperations(operation));
    return dump("dest");
  }
  // Over what a failed run has left the operation either succeeds or refuses to replace
  // what it can't open; without it, it succeeds.
  void expectRecovery(const std::string& expected) {
    const Outcome outcome = runAgain();
    if (outcome.exitCode != 0) {
      EXPECT_THAT(outcome.err, HasSubstr(": Unable to open PVB: (dest)\n"));
      expectDone(runOperations(" deleteDB dest - -\n " + operation_));
    }
    EXPECT_TRUE(dump("dest") == expected);
  }

 private:
  std::string operation_;
};

TEST_F(MotionFailure, AFullDiskIsToldAndLeavesTheSources) {
  for (const bool plain : {false, true}) {
    plainFiles_ = plain;
    buildSources();
    for (const char* operation : kOperations) {
      const std::string expected = resultOf(operation);
      ProgramCall full;
      full.outputPath = "/dev/null";
      std::uint64_t limit = 0;
      for (; limit < (1U << 24); limit = limit * 2 + 30) {
        SCOPED_TRACE(testing::Message() << operation << " with " << limit << " bytes");
        full.fileSizeLimit = limit;
        const Outcome outcome = runAgain(full);
        if (outcome.exitCode == 0) break;
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_THAT(outcome.err, ContainsRegex("(dest|A|B|C)/pvb"));
        EXPECT_THAT(outcome.err,
                    Not(ContainsRegex("seekAndRead|Internal Error.*\n.*PVBpropertyClose")));
        expectRecovery(expected);
      }
      EXPECT_TRUE(dump("dest") == expected);
      EXPECT_GT(limit, 2000U);
    }
  }
}

// What can be wrong with a file.
void damage(const std::string& path, int kind) {
  const auto size = std::filesystem::file_size(path);
  if (kind == 0) std::filesystem::remove(path);
  if (kind == 1) std::filesystem::resize_file(path, size / 2);
  if (kind == 2) std::ofstream(path, std::ios::binary) << std::string(size, '\xa5');
  if (kind == 3) std::filesystem::permissions(path, std::filesystem::perms::none);
}

TEST_F(MotionFailure, ADamagedSourceIsNamedAndLeftAlone) {
  buildSources();
  damaged_ = true;
  const auto whole = directoryContent(directory().path("A"));
  const int kinds = geteuid() == 0 ? 3 : 4;  // nothing is closed to root
  for (const char* operation : kOperations) {
    runOperations(operation);
    for (const auto& [file, content] : whole) {
      for (int kind = 0; kind < kinds; ++kind) {
        SCOPED_TRACE(testing::Message() << operation << ", " << file << " damaged: " << kind);
        damage(directory().path("A/" + file), kind);
        const Outcome outcome = runAgain();
        EXPECT_LE(outcome.exitCode, 1) << outcome.err;
        if (outcome.exitCode == 1) {
          EXPECT_THAT(outcome.err, ContainsRegex("A/pvb|[(]A[)]|Internal Error"));
        }
        std::filesystem::remove(directory().path("A/" + file));
        directory().write("A/" + file, content);
      }
    }
    expectDone(runAgain());
  }
}

TEST_F(MotionFailure, AKilledRunLeavesTheSourcesAndTheNextRunSucceeds) {
  buildSources();
  std::mt19937 random(11);
  int killed = 0;
  for (const char* operation : kOperations) {
    const std::string expected = resultOf(operation);
    for (int i = 0; i < 12; ++i) {
      ProgramCall call;
      call.killAfter = std::chrono::microseconds((500U << (random() % 8)) + random() % 500);
      SCOPED_TRACE(testing::Message() << operation << " after " << call.killAfter->count());
      const int exitCode = runAgain(call).exitCode;
      EXPECT_TRUE(exitCode == 0 || exitCode == 128 + 9) << exitCode;
      killed += exitCode == 0 ? 0 : 1;
      expectRecovery(expected);
    }
  }
  EXPECT_GT(killed, 6);
}

}  // namespace
