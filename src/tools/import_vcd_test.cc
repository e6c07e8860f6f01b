#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <rapidcheck/gtest.h>
#include <fstream>

#include "base/errors.h"
#include "support/dump_support.h"
#include "support/fault_platform.h"
#include "tools/import.h"
#include "tools/new_database.h"
#include "tools/verify.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const std::string kHead =
    "$timescale 1 ns $end $scope module top $end $scope module dut $end\n"
    "$var wire 1 ! clk $end $var wire 1 \" d $end $var wire 1 # q $end\n"
    "$var wire 4 $ bus [3:0] $end $var real 64 % temp $end\n$upscope $end\n"
    "$var wire 1 ! clk $end $upscope $end $enddefinitions $end\n";

ImportOptions cycles(int nanoseconds) {
  ImportOptions options;
  options.period = {0, nanoseconds * 1000000};
  return options;
}

class Import : public DumpDirectory {
 public:
  bool run(const std::string& text, const ImportOptions& options) {
    counts = {};
    messages.clear();
    removeDatabaseDirectory(path());
    std::ofstream(path("in.vcd"), std::ios::binary) << text;
    return importVcd(path("in.vcd"), options, path(), keep(), counts);
  }
  // Lines of the dump that begin so, without that.
  std::vector<std::string> lines(std::string_view begin) {
    std::vector<std::string> found;
    const std::string text = dump();
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = text.find('\n', at);
      const std::string_view line = std::string_view(text).substr(at, end - at);
      if (line.starts_with(begin)) found.emplace_back(line.substr(begin.size()));
      at = end + 1;
    }
    return found;
  }
  MessageSink keep() {
    return [this](const Message& message) {
      messages.push_back(fmt::format("{} {}", static_cast<int>(message.code), message.text));
    };
  }
  bool sound() {
    return verifyDatabase(path(), [](const Message&) {}).faults == 0;
  }

  ImportCounts counts;
  std::vector<std::string> messages;
};

TEST(ImportVcd, KeepsPulsesAndLateDataInOneTimeplate) {
  Import import;
  ImportOptions options = cycles(10);
  options.clocks = {"top.dut.clk"};
  options.inputs = {"d"};
  options.outputs = {"q"};
  ASSERT_TRUE(import.run(kHead + "#0 0! x\" x# #3 1\" #4 1! #6 0! #8 1# #12 0\" #13 1\" #14 1! "
                                 "#16 0! #19 0# #23 0\" #33 1\" #34 1! #36 0! #1000000 ",
                         options));
  EXPECT_THAT(import.lines("    event "),
              ElementsAre("0pS D", "4nS S", "6nS D", "0pS N", "3nS S", "0pS X", "9nS Q", "0pS D",
                          "4nS S", "6nS D", "2nS S", "3nS U", "0pS X", "9nS Q", "0pS D", "4nS S",
                          "6nS D", "3nS S", "0pS X", "9nS Q"));
  EXPECT_THAT(import.lines("  row "),
              ElementsAre("\"cycle\" |111", "\"cycle_1\" |100", "\"cycle_2\" |000",
                          "\"cycle_2\" |110", "\"cycle_2\" x99996 |010"));
  EXPECT_EQ(import.counts.cycles, 100000U);
  EXPECT_TRUE(import.sound());
}

TEST(ImportVcd, TakesDirectionsFromPortStates) {
  Import import;
  ASSERT_TRUE(
      import.run("$timescale 1 ns $end $scope module t $end $var port 1 <0 i $end "
                 "$var port [1:2] <1 o $end $var port 1 <2 io $end $var port 1 <3 no $end "
                 "$enddefinitions $end\n#0 $dumpports pD 6 0 <0 pXT 66 66 <1 pU 0 6 <2 "
                 "$end #5 pU 0 6 <0 #10 pH 0 6 <2 pLH 60 06 <1 #20 pf 0 0 <2 #30 pA 6 6 <2"
                 " $vcdclose #40 $end\n",
                 cycles(10)));
  EXPECT_THAT(import.messages, ElementsAre(HasSubstr("ports without a state aren't taken: 1")));
  EXPECT_THAT(import.lines("signal "),
              testing::IsSupersetOf({HasSubstr("\"i\" type=scalar direction=input"),
                                     HasSubstr("\"o[1]\" type=scalar direction=output"),
                                     HasSubstr("\"o[2]\""), HasSubstr("\"o\" type=group"),
                                     HasSubstr("\"io\" type=scalar direction=bidir")}));
  EXPECT_THAT(import.lines("  row "), ElementsAre(HasSubstr("|1XZ1"), HasSubstr("|101Z1"),
                                                  HasSubstr("|101ZZ"), HasSubstr("|1010X")));
}

TEST(ImportVcd, FindsSignalsByNamesAndPatterns) {
  struct Row {
    ImportOptions options;
    const char* message;  // or the first row
  };
  const auto with = [](std::vector<std::string> inputs, std::string scope = "") {
    ImportOptions options = cycles(10);
    options.inputs = std::move(inputs);
    options.scope = std::move(scope);
    return options;
  };
  ImportOptions twice = with({"d"});
  twice.outputs = {"dut.d"};
  const std::vector<Row> rows = {
      {with({"clk", "bus"}), "\"cycle\" |01010"},  // clk is one net in two scopes
      {with({"bus[2]"}), "\"cycle\" |0"},
      {with({"*"}), "\"cycle\" |0XX1010"},
      {with({"top.d*.b*"}), "\"cycle\" |1010"},
      {with({"d"}, "top.dut"), "\"cycle\" |X"},
      {with({"d"}, "top.du"), "804 no variable is below 'top.du'"},
      {with({"dd"}, "top.dut"),
       "804 no variable below 'top.dut' is called 'dd', did you mean 'd'?"},
      {with({"bus[4]"}), "804 no variable is called 'bus[4]', did you mean 'bus'?"},
      {with({"temp"}), "805 'top.dut.temp' is a real"},
      {with({"nothing*"}), "804 no variable is like"},
      {with({}),
       "804 no signals are chosen, and the file doesn't tell directions; it has "
       "top.dut.clk, top.dut.d"},
      {twice, "804 'top.dut.d' is given two directions"},
  };
  for (const Row& row : rows) {
    Import import;
    const bool done = import.run(kHead + "#0 0! b1010 $\n#10 ", row.options);
    const std::string shown = done ? import.lines("  row ").at(0) : import.messages.at(0);
    EXPECT_THAT(shown, HasSubstr(row.message));
  }
}

TEST(ImportVcd, RefusesTimesAndOptionsThatCantBe) {
  ImportOptions options = cycles(10);
  options.inputs = {"d"};
  ImportOptions late = options;
  late.strobe = late.period;
  struct Row {
    std::string text;
    ImportOptions options;
    const char* message;
  };
  ImportOptions none = options;
  none.period.reset();
  std::string busy = "#0 ";
  for (int i = 1; i < 2000; ++i) busy += fmt::format("#{} {}\" ", i, i % 2);
  ImportOptions slow = options;
  slow.period = {1000, 0};
  for (const Row& row :
       {Row{"", none, "803 a period is needed"}, Row{"", late, "803 the strobe must be within"},
        Row{"#999999999999999 ", options, "803 #999999999999999 is beyond 2^63"},
        Row{"#90000000000 1\" ", options, "902 the file has more than"},
        Row{busy, slow, "902 'd' changes more than 1000 times in cycle 0"}}) {
    Import import;
    ASSERT_FALSE(import.run(kHead + row.text, row.options)) << row.message;
    EXPECT_THAT(import.messages, ElementsAre(HasSubstr(row.message)));
  }
}

TEST(ImportVcd, EveryFileCallMayFail) {
  const std::string text = kHead + "#0 0! #4 1! #14 1\" #25 0\" ";
  ImportOptions options = cycles(10);
  options.inputs = {"clk", "d"};
  Import import;
  ASSERT_TRUE(import.run(text, options));
  const std::string whole = import.dump();
  for (int n = 1;; ++n) {
    removeDatabaseDirectory(import.path());
    import.messages.clear();
    bool done = false;
    {
      FaultPlatform faults;
      faults.failFileCall(n);
      done = importVcd(import.path("in.vcd"), options, import.path(), import.keep(), import.counts);
      if (!faults.failed()) break;
    }
    PBdiscardErrors();
    if (done) {
      EXPECT_EQ(import.dump(), whole) << n;
    } else {
      EXPECT_FALSE(import.messages.empty()) << n;
    }
  }
}

// --- Levels over time ----------------------------------------------------------------

using Levels = std::vector<std::pair<std::int64_t, char>>;

// As the dump says: by time, the last change of a time, changes to other levels only.
void addLevel(Levels& levels, std::int64_t time, char level) {
  if (!levels.empty() && levels.back().first == time) levels.pop_back();
  if (levels.empty() || levels.back().second != level) levels.emplace_back(time, level);
}

RC_GTEST_PROP(ImportVcd, LevelsOverTimeStayExactly, ()) {
  constexpr std::int64_t kPeriod = 8;
  std::string text = kHead + "#0 0! ";
  Levels d = {{0, 'x'}};
  std::int64_t time = 0;
  for (int i = *rc::gen::inRange(1, 60); i > 0; --i) {
    time += *rc::gen::weightedElement<std::int64_t>({{8, 1}, {4, 3}, {2, 8}, {1, 16}, {1, 500}});
    const char level = *rc::gen::elementOf(std::string("0011xz"));
    text += fmt::format("#{} {}\" ", time, level);
    addLevel(d, time, level);
  }
  text += fmt::format("#{} ", time + 1);
  ImportOptions options = cycles(kPeriod);
  options.inputs = {"d"};
  if (*rc::gen::arbitrary<bool>()) options.clocks = {"d"};
  Import import;
  RC_ASSERT(import.run(text, options));
  RC_ASSERT(import.sound());

  // Events of each timeplate, then the rows.
  std::map<std::string, std::vector<std::pair<std::int64_t, char>>> plates;
  std::string plate;
  Levels levels;
  std::int64_t begin = 0;
  const std::string dump = import.dump();
  std::istringstream in(dump);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string first, second, third;
    words >> first >> second >> third;
    if (first == "timeplate") plate = third;
    if (first == "event") plates[plate].emplace_back(std::stoll(second), third[0]);
    if (first != "row") continue;
    const std::int64_t count = third[0] == 'x' ? std::stoll(third.substr(1)) : 1;
    const char datum = static_cast<char>(std::tolower(line.back()));
    for (std::int64_t i = 0; i < std::min<std::int64_t>(count, 3); ++i) {
      for (const auto& [offset, state] : plates[second]) {
        const auto fixed = std::string_view("DUNZ").find(state);
        addLevel(levels, begin + i * kPeriod + offset,
                 fixed == std::string_view::npos ? datum : "01xz"[fixed]);
      }
    }
    begin += count * kPeriod;
  }
  RC_ASSERT(levels == d);
}

// --- Lists and files of options ------------------------------------------------------

TEST(ImportVcd, ListsVariables) {
  Import import;
  std::ofstream(import.path("in.vcd")) << kHead << "#0 0! b1 $\n#1 1!\n";
  std::string text;
  TextSink out([&](std::string_view piece) {
    text += piece;
    return true;
  });
  ASSERT_TRUE(listVcd(import.path("in.vcd"), TableFormat::csv, out, import.keep()));
  EXPECT_TRUE(out.finish());
  EXPECT_THAT(text, HasSubstr("top.dut,clk,wire,1,2,"));
  EXPECT_THAT(text, HasSubstr("top.dut,bus[3:0],wire,4,1,"));
}

TEST(ImportVcd, ReadsOptionsFromAFile) {
  Import import;
  const auto read = [&](std::string_view text, ImportOptions& options) {
    import.messages.clear();
    std::ofstream(import.path("opt")) << text;
    return readImportOptions(import.path("opt"), options, import.keep());
  };
  ImportOptions options;
  options.strobe = TIME{0, 5};
  options.inputs = {"first"};
  ASSERT_TRUE(read("# signals\ninput a b*  # two\nclock ck\nperiod 10ns\nstrobe 9ns\nscope t.u\n",
                   options));
  EXPECT_THAT(options.inputs, ElementsAre("first", "a", "b*"));
  EXPECT_EQ(options.period, (TIME{0, 10000000}));
  EXPECT_EQ(options.strobe, (TIME{0, 5}));
  EXPECT_EQ(options.scope, "t.u");
  for (const auto& [text, message] :
       {std::pair("inputs a\n", "203 'inputs' is no option, did you mean 'input'?"),
        std::pair("period 10\n", "212 '10' is no time"),
        std::pair("period\n", "205 a value is expected behind 'period'"),
        std::pair("scope a b\n", "209 'scope' takes one value")}) {
    EXPECT_FALSE(read(text, options));
    EXPECT_THAT(import.messages, ElementsAre(message));
  }
}

}  // namespace
