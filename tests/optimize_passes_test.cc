// The passes of the timeplate optimizer: when the limit of timeplates is reached, the second
// one for tracks, in several merges of one run, and with little memory for rows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "support/optimize_world.h"
#include "support/untouched.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class OptimizePasses : public testing::Test, protected OptimizeWorld {
 protected:
  OptimizePasses() : OptimizeWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  // A timeplate for each wave of the input "a", whose rows come back in turn.
  void buildTurns(const std::vector<std::string>& waves) {
    DatabaseText text;
    text.signal("a", "input").signal("y", "output");
    std::string rows;
    for (std::size_t i = 0; i < waves.size(); ++i) {
      const std::string name = "t" + std::to_string(i);
      text.plate(name, "20nS", {track("a", waves[i]), track("y", "X 15Q")});
      rows += steps(name, {"10", "01"});
    }
    build("A", text.rows(rows + rows + rows));
  }
};

TEST_F(OptimizePasses, RoomIsMadeWhenTheLimitIsReached) {
  useShapes("S DSD USU ZSZ");
  buildTurns({"D 5U 15D", "D 5D 15D", "U 6U 15U", "U 6D 15U", "Z 7U 15Z", "Z 7D 15Z"});
  const std::string low = "D 5S 15D";
  const std::string high = "U 6S 15U";
  const std::string open = "Z 7S 15Z";
  const std::string turn = "110011001100";
  struct Case {
    const char* limit;
    const char* passes;
    std::string left;
  };
  // What comes behind a pass takes the places that it has made.
  const Case table[] = {{"TPGenLimit=7", "6>3", low + " | " + high + " | " + open},
                        {"TPGenLimit=6", "6>3", low + " | " + high + " | " + open},
                        {"TPGenLimit=5", "5>3 4>3", low + " | " + high + " | " + open},
                        {"TPGenLimit=4", "4>2 4>3", low + " | " + open + " | " + high}};
  for (const Case& each : table) {
    SCOPED_TRACE(each.limit);
    const Outcome outcome = merge({each.limit}, "a,y");
    EXPECT_EQ(mergedCounts(outcome.report), each.passes);
    EXPECT_EQ(waves("a"), each.left) << outcome.report;
    EXPECT_EQ(data(), turn + turn + turn);
  }
}

TEST_F(OptimizePasses, WhatStillExceedsTheLimitIsRefused) {
  useShapes("DSD S");
  const std::string first = "D 5U 15D";
  const std::string other = "D 6U 15D";
  for (const auto& [second, code] : {std::pair("D 5D 15D", 0), {"D 7U", 1}}) {
    buildTurns({first, second, other});
    const Outcome outcome = tryMerge({"TPGenLimit=2"});
    EXPECT_EQ(outcome.exitCode, code) << outcome.err;
    EXPECT_EQ(mergedCounts(outcome.report), code == 0 ? "2>1 2>2" : "2>2");
    EXPECT_EQ(outcome.err.find("insertTimePlate: Number of generated timeplates (3) exceeds limit "
                               "(2)\n") != std::string::npos,
              code != 0);
  }
}

TEST_F(OptimizePasses, TheSecondPassShrinksTracks) {
  useShapes("S DS DSD");
  struct Case {
    const char* first;  // waves of "a"
    const char* second;
    const char* left;
    const char* data;  // of "a" in rows that take turns
  };
  const char* const pulse = "D 5S 15D";
  const Case table[] = {
      {"D 5U 15D", pulse, "D 5S 15D | D 5S 15D", "1110"},
      {"D", "U", "S | S", "0101"},
      {"D", "D", "S | S", "0000"},
      {"S", "S", "S | S", "1100"},
      {"D 5U 15D", "D 6U 15D", "D 5U 15D | D 6U 15D", "1100"},
  };
  for (const Case& each : table) {
    SCOPED_TRACE(std::string(each.first) + " and " + each.second);
    // "c" keeps the timeplates apart.
    DatabaseText text;
    text.signal("a", "input").signal("c", "input");
    text.plate("t0", "20nS", {track("a", each.first), track("c", "D 5S")});
    text.plate("t1", "20nS", {track("a", each.second), track("c", "D 6S")});
    for (const char* row : {"11", "00"}) text.rows(steps("t0", {row}) + steps("t1", {row}));
    build("A", text);
    EXPECT_THAT(merge({"DoTrackOptimize=no"}, "a,c").report, Not(HasSubstr("Track Reduction")));
    EXPECT_EQ(waves("a"), std::string(each.first) + " | " + each.second);
    EXPECT_EQ(data(), "1100");
    const Outcome outcome = merge({"DoTrackOptimize=please"}, "a,c");
    EXPECT_EQ(mergedCounts(outcome.report), "2>2 2>2");
    EXPECT_THAT(outcome.report, HasSubstr("...Performing Track Reduction Pass\n"));
    EXPECT_EQ(waves("a"), each.left);
    EXPECT_EQ(waves("c"), "D 5S | D 6S");
    EXPECT_EQ(data(), each.data);
  }
}

TEST_F(OptimizePasses, MergesOfOneRunFollowEachOther) {
  useShapes("S");
  buildTurns({"D", "U"});
  const Outcome outcome = runOperations(
      "merge A B dest1\n merge A B dest2\n concat dest1 dest2 dest",
      {"OptimizeTimePlates=yes", "ATEFamily=other", "ShapeFile=tester.shp", "Pmode=last_force"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(mergedCounts(outcome.report), "2>1 2>1");
  EXPECT_EQ(waves("a", "dest"), "S");
  EXPECT_EQ(dump("dest1"), dump("dest2"));
  expectSame("A", "dest1", {"--ignore-cycles", "--signals", "a,y"});
}

// --- Little memory -------------------------------------------------------------------

class QueueLimit {
 public:
  explicit QueueLimit(const char* rows) { setenv("TPFORCE_QUEUE", rows, 1); }
  ~QueueLimit() { unsetenv("TPFORCE_QUEUE"); }
  QueueLimit(const QueueLimit&) = delete;
  QueueLimit& operator=(const QueueLimit&) = delete;
};

TEST_F(OptimizePasses, AShortQueueOfRowsChangesNothing) {
  constexpr int kRows = 20000;
  useShapes("S DSD PS");
  const std::vector<std::string> kinds = {"D 5S 15D", "D 5U 15D", "P 6S", "D 6U"};
  DatabaseText a;
  DatabaseText b;
  a.signal("a", "input").signal("y", "output");
  b.signal("b", "input").plate("tb", "20nS", {track("b", "S")});
  for (std::size_t i = 0; i < 2 * kinds.size(); ++i) {
    const TrackText expects = track("y", i < kinds.size() ? "X 15Q" : "X 12Q");
    a.plate("t" + std::to_string(i), "20nS", {track("a", kinds[i % kinds.size()]), expects});
  }
  std::string rowsA;
  std::string rowsB;
  for (unsigned i = 0, random = 1; i < kRows; ++i) {
    random = random * 1103515245 + 12345;
    // Pulses end low, which is what the others begin with.
    const unsigned plate = i % 2 * 2 + (random >> 16 & 5);
    rowsA += steps("t" + std::to_string(plate), {random >> 20 & 1 ? "1-" : "0-"});
    rowsB += steps("tb", {random >> 24 & 1 ? "1" : "0"});
  }
  build("A", a.rows(rowsA));
  build("B", b.rows(rowsB));
  int misses = -1;
  const auto merged = [&](const char* limit) {
    const QueueLimit queue(limit);
    const std::string report = merge({"Trace=1"}).report;
    misses = std::atoi(report.c_str() + report.find(" hits, ") + std::strlen(" hits, "));
    return directoryContent(directory().path("dest"));
  };
  // Values up to 500 don't count.
  const auto usual = merged("500");
  EXPECT_EQ(misses, 0);
  EXPECT_TRUE(merged("501") == usual);
  EXPECT_GT(misses, kRows);
  EXPECT_EQ(waves("a"), "D 5S 15D | P 6S");
  EXPECT_NE(data(), data(0, "A"));
}

}  // namespace
