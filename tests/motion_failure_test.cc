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

using testing::HasSubstr;

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
  return text.rows(manyRows("tp", 700) + "    prop 1 \"the last row\"\n")
      .more("label \"begin\" row=0\n");
}

class MotionFailure : public testing::Test, protected OperationWorld {
 protected:
  MotionFailure() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {
    build("A", wideChip("s"));
    build("B", wideChip("s"));
    build("C", wideChip("c"));
  }
  // Runs the operation, and gives what its destination should be.
  std::string resultOf(const char* operation) {
    expectDone(runOperations(operation));
    return dump("dest");
  }
};

TEST_F(MotionFailure, AFullDiskIsToldAndLeavesTheSources) {
  for (const char* operation : kOperations) {
    const std::string expected = resultOf(operation);
    ProgramCall full;
    full.outputPath = "/dev/null";
    int failures = 0;
    for (std::uint64_t limit = 0; limit < (1U << 22); limit = limit * 3 / 2 + 20) {
      SCOPED_TRACE(testing::Message() << operation << " with " << limit << " bytes");
      full.fileSizeLimit = limit;
      const Outcome outcome = runAgain(full);
      if (outcome.exitCode == 0) {
        EXPECT_EQ(dump("dest"), expected);
        break;
      }
      ++failures;
      EXPECT_EQ(outcome.exitCode, 1);
      EXPECT_THAT(outcome.err, testing::AnyOf(HasSubstr("dest"), HasSubstr("tmp/")));
    }
    EXPECT_GT(failures, 10);
    expectDone(runAgain());
    EXPECT_EQ(dump("dest"), expected);
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
        if (outcome.exitCode == 1) EXPECT_THAT(outcome.err, HasSubstr("A"));
        std::filesystem::remove(directory().path("A/" + file));
        directory().write("A/" + file, content);
      }
    }
    expectDone(runAgain());
  }
}

TEST_F(MotionFailure, AKilledRunLeavesTheSourcesAndTheNextRunSucceeds) {
  std::mt19937 random(11);
  for (const char* operation : kOperations) {
    const auto begin = std::chrono::steady_clock::now();
    const std::string expected = resultOf(operation);
    const auto usual = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - begin);
    for (int i = 0; i < 12; ++i) {
      ProgramCall killed;
      killed.killAfter = std::chrono::microseconds(random() % usual.count());
      SCOPED_TRACE(testing::Message() << operation << " after " << killed.killAfter->count());
      const int exitCode = runAgain(killed).exitCode;
      EXPECT_TRUE(exitCode == 0 || exitCode == 128 + 9) << exitCode;
      if (i % 3 == 2) {
        // What is left of the temporary files is not the next run's business.
        std::filesystem::remove_all(directory().path("tmp"));
        std::filesystem::create_directory(directory().path("tmp"));
        expectDone(runAgain());
        EXPECT_EQ(dump("dest"), expected);
      }
    }
  }
}

}  // namespace
