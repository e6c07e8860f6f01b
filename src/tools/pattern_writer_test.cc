#include "tools/pattern_writer.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>

#include "base/errors.h"
#include "pvb/timeplate.h"
#include "support/dump_support.h"
#include "support/fault_platform.h"
#include "tools/verify.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr int kBuffers = 16;
constexpr int kRowWidth = 8;

TIME ns(std::int32_t value) { return PBlongToTIME(value * 1000000); }

// A clock (a pulse or a level), an input, an output and a signal for both directions.
enum : std::uint32_t { kClock, kIn, kOut, kBoth };

class PatternWriterTest : public testing::Test {
 protected:
  void SetUp() override { begin(); }
  void TearDown() override {
    if (database_ >= 0) {
      writer_->abandon();
      PVBcloseUnsaved(database_);
    }
    PBdiscardErrors();
  }

  void begin() {
    database_ = PVBopenAny(directory_.path(), true, kRowWidth, kBuffers, kAllSections, false);
    ASSERT_GE(database_, 0);
    writer_ = std::make_unique<PatternWriter>(database_, &equations_);
    const std::vector<WriterSignal> signals = {
        {"clk", INPUT}, {"a", INPUT}, {"y", OUTPUT}, {"d[0]", BIDIR}};
    ASSERT_TRUE(writer_->addSignals(signals)) << writer_->failure();
    table_ = writer_->addTable("t", ns(10), "");
    drive_ = writer_->addShape({{ns(0), "", 'S'}});
    pulse_ = writer_->addShape({{ns(0), "", 'D'}, {ns(5), "tr", 'S'}, {ns(7), "", 'D'}});
    strobe_ = writer_->addShape({{ns(9), "", 'Q'}});
  }
  // Every signal at once; '-' in a column of the signal for both leaves that out.
  void states(std::string_view codes, bool pulse = false) {
    const auto code = [&](std::size_t i) {
      return static_cast<std::uint8_t>(std::string_view("-01ZX").find(codes[i]));
    };
    writer_->set(kClock, {pulse ? pulse_ : drive_, 0, code(0), 0});
    writer_->set(kIn, {drive_, strobe_, code(1), 0});  // an input has no use for the strobe
    writer_->set(kOut, {drive_, strobe_, 0, code(2)});
    writer_->set(kBoth, {drive_, strobe_, code(3), code(4)});
  }
  void cycle(std::string_view codes, bool pulse = false, std::uint32_t count = 1) {
    states(codes, pulse);
    EXPECT_TRUE(writer_->cycle(count)) << writer_->failure();
  }
  // Finishes the database, checks it, and gives its dump.
  std::string result() {
    EXPECT_TRUE(writer_->finish()) << writer_->failure();
    writer_.reset();
    EXPECT_EQ(PVBclose(database_), 0);
    database_ = -1;
    verifyDatabase(directory_.path(), [](const Message& message) {
      ADD_FAILURE() << message.file << " " << message.place << " " << message.text;
    });
    return directory_.dump();
  }
  static std::string from(const std::string& text, std::string_view begin) {
    const std::size_t at = text.find(begin);
    return at == std::string::npos ? "" : text.substr(at);
  }
  static std::string upTo(const std::string& text, std::string_view end) {
    return text.substr(0, text.find(end));
  }

  DumpDirectory directory_;
  ssData equations_ = ssNew();
  int database_ = -1;
  std::unique_ptr<PatternWriter> writer_;
  std::size_t table_ = 0;
  ShapeId drive_ = 0;
  ShapeId pulse_ = 0;
  ShapeId strobe_ = 0;
};

TEST_F(PatternWriterTest, ACombinationOfShapesIsATimeplate) {
  cycle("0010-");
  cycle("110-1");
  cycle("1110-", true, 7);
  cycle("00X0-");
  EXPECT_EQ(writer_->plateCount(), 2U);
  EXPECT_EQ(writer_->rowCount(), 4U);
  const std::string text = result();
  EXPECT_EQ(upTo(from(text, "timeplate 1"), "pins"), R"(timeplate 1 "t_1" period=10nS
  slot input
    of 1
  slot input
    of 2 4
  slot output
    of 3 4
  level 0pS
    track
    event 0pS D
    event 5nS S expr="tr"
    event 7nS D
    on 1
    track
    event 0pS S
    on 2 4
    track
    event 9nS Q
    on 3 4
)");
  EXPECT_EQ(from(text, "rows main"), R"(rows main
  row "t" |0010
  row "t" |110-1
  row "t_1" x7 |1110
  row "t" |00X0
done
)");
}

TEST_F(PatternWriterTest, TablesHavePlatesOfTheirOwn) {
  const std::size_t slow = writer_->addTable("slow", ns(100), "2 * tper");
  EXPECT_EQ(writer_->addShape({{ns(0), "", 'S'}}), drive_);
  EXPECT_NE(writer_->addShape({{ns(0), "t0", 'S'}}), drive_);
  cycle("0010-");
  writer_->useTable(slow);
  cycle("0010-", true);
  cycle("1110-");
  writer_->useTable(table_);
  EXPECT_TRUE(writer_->cycle());
  const std::string rows = from(result(), "rows main");
  EXPECT_EQ(rows, R"(rows main
  row "t" |0010
  row "slow" |0010
  row "slow_1" |1110
  row "t" |1110
done
)");
  std::vector<std::string> variables;
  for (const ssVariable& variable : equations_.sheets[0].variables) {
    variables.push_back(variable.name + " = " + variable.expression);
  }
  EXPECT_THAT(variables, ElementsAre("slow.period = 2 * tper", "slow_1.period = 2 * tper"));
}

TEST_F(PatternWriterTest, CommentsAndLabelsStandAtTheNextRow) {
  writer_->comment("first");
  writer_->comment("second\nline");
  writer_->label("begin");
  cycle("0010-");
  writer_->label("around");
  const int routine = writer_->beginSubroutine("sub");
  writer_->label("inside");
  cycle("0010-");
  writer_->comment("the last of sub");
  EXPECT_TRUE(writer_->endSubroutine());
  EXPECT_TRUE(writer_->beginLoop(2));
  EXPECT_TRUE(writer_->call(routine));
  writer_->comment("the loop ends");
  EXPECT_TRUE(writer_->endLoop());
  writer_->label("the end");
  EXPECT_EQ(from(result(), "rows main"), R"(rows main
  row "t" |0010
    prop 0 "first"
    prop 0 "second\nline"
  loop x2
    call "sub"
  end
    prop 0 "the loop ends"
rows 0
  row "t" |0010
    prop 0 "the last of sub"
label "begin" row=0
label "inside" row=0 subroutine=0
label "around" row=1
label "the end" row=3
done
)");
}

TEST_F(PatternWriterTest, GroupsHoldTheirSignals) {
  const std::vector<std::uint32_t> members = {kOut, kIn};
  EXPECT_TRUE(writer_->addGroup("g", members));
  EXPECT_FALSE(writer_->addGroup("g", members));
  EXPECT_FALSE(writer_->addGroup("a", members));
  EXPECT_THAT(result(), HasSubstr("\"g\" type=group\n  members 3 2\n"));
}

TEST_F(PatternWriterTest, WhatADatabaseCanNotHoldIsTold) {
  struct Case {
    std::string failure;
    std::function<void(PatternWriter& writer)> act;
  };
  const auto twice = [](PatternWriter& w, std::string name) {
    const std::vector<WriterSignal> signals = {{std::move(name), INPUT}};
    EXPECT_FALSE(w.addSignals(signals));
  };
  constexpr std::uint32_t kMost = 0xFFFFFFFF;
  const std::vector<Case> cases = {
      {"signal 'a' can't be entered: ", [&](auto& w) { twice(w, "a"); }},
      {"signal '' can't be entered: ", [&](auto& w) { twice(w, ""); }},
      {"the period of 'z' is not above zero", [](auto& w) { w.addTable("z", TIME_ZERO, ""); }},
      {"the period of 'z' is longer",
       [](auto& w) {
         w.addTable("z", {1999999999, 0}, "");
       }},
      {"there is no waveform table 7", [](auto& w) { w.useTable(7); }},
      {"a row needs a cycle", [](auto& w) { w.cycle(0); }},
      {"a loop needs a pass", [](auto& w) { w.beginLoop(0); }},
      {"there is no loop to end", [](auto& w) { w.endLoop(); }},
      {"a loop has no end", [](auto& w) { w.beginLoop(2); }},
      {"a subroutine has no end", [](auto& w) { w.beginSubroutine("s"); }},
      {"subroutine '' can't be made: ", [](auto& w) { w.beginSubroutine(""); }},
      {"there is no such subroutine", [](auto& w) { w.call(w.beginSubroutine("s")); }},
      {"longer than a database can hold",
       [](auto& w) { EXPECT_FALSE(w.cycle(kMost) && w.cycle(1)); }},
      {"longer than a database can hold",
       [](auto& w) {
         EXPECT_TRUE(w.beginLoop(1U << 16) && w.beginLoop(1U << 15) && w.cycle());
         EXPECT_FALSE(w.cycle());
       }},
      {"longer than a database can hold",
       [](auto& w) {
         w.useTable(w.addTable("long", {99999999, 0}, ""));
         EXPECT_TRUE(w.cycle(10));
         EXPECT_FALSE(w.cycle());
       }},
      {"longer than a database can hold",
       [](auto& w) {
         const int routine = w.beginSubroutine("s");
         EXPECT_TRUE(w.cycle(kMost) && w.endSubroutine() && w.call(routine));
         EXPECT_FALSE(w.call(routine));
       }},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.failure);
    TearDown();
    std::filesystem::remove_all(directory_.path());
    begin();
    writer_->useTable(writer_->addTable("short", PBlongToTIME(1), ""));
    states("0010-");
    row.act(*writer_);
    EXPECT_FALSE(writer_->finish());
    EXPECT_THAT(writer_->failure(), HasSubstr(row.failure));
    EXPECT_FALSE(writer_->cycle());
  }
}

TEST_F(PatternWriterTest, TimeplatesRunOutWithTheirNumber) {
  std::uint32_t made = 0;
  ShapeId last = 0;
  states("0010-");
  do {
    last = writer_->addShape({{PBlongToTIME(static_cast<std::int32_t>(++made)), "", 'S'}});
    writer_->set(kClock, {last, 0, 1, 0});
  } while (writer_->cycle());
  EXPECT_EQ(made, 65536U);
  EXPECT_THAT(writer_->failure(), HasSubstr("65536 combinations"));
}

TEST_F(PatternWriterTest, FailingFileCallsLeaveAFailureOrASoundDatabase) {
  const auto write = [&] {
    writer_->comment("c");
    writer_->label("l");
    const int routine = writer_->beginSubroutine("s");
    bool good = routine >= 0 && writer_->cycle() && writer_->endSubroutine();
    good = good && writer_->beginLoop(3) && writer_->call(routine);
    for (int i = 0; good && i < 3000; ++i) good = writer_->cycle();
    return good && writer_->endLoop() && writer_->finish();
  };
  bool failing = true;
  for (int n = 1; failing; n += 1 + n / 8) {
    TearDown();
    std::filesystem::remove_all(directory_.path());
    begin();
    states("0010-");
    FaultPlatform faults;
    faults.failFileCall(n);
    const bool good = write();
    EXPECT_EQ(good, writer_->failure().empty());
    failing = faults.failed();
    EXPECT_TRUE(failing || good) << writer_->failure();
  }
  EXPECT_THAT(result(), HasSubstr("row \"t\" |0010\n"));
}

}  // namespace
