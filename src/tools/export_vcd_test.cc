// The waves that databases become.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/dump_support.h"
#include "tools/export.h"

namespace {

using testing::HasSubstr;

const std::string kDatabase = R"(pvb-dump 1
database version=501 row-width=32
signal 1 "clk" type=scalar direction=input in=0
signal 2 "$io x" type=scalar direction=bidir in=1 out=2
signal 3 "q" type=scalar direction=output out=3
signal 100000 "ALL" type=group
  members 1 2 3
timeplates mode=1
timeplate 0 "tp" period=100nS
  slot input
    of 1
  slot input
    of 2
  slot output
    of 2 3
  level 0pS
    track
    event 0pS D
    event 25nS S
    event 112.5nS U
    on 1
    track
    event 10nS S
    on 2
    track
    event 80nS Q
    on 2 3
rows main
)";

class VcdExportTest : public testing::Test {
 public:
  std::string exported(const std::string& rows, const ExportOptions& options = {}) {
    std::filesystem::remove_all(directory_.path());
    if (!directory_.build(kDatabase + rows + "done\n")) return directory_.firstMessage();
    ReadDatabase database;
    if (!database.open(directory_.path(), keep())) return "can't be opened";
    std::string text;
    TextSink out([&](std::string_view piece) {
      text += piece;
      return true;
    });
    return exportVcd(database.handle(), options, out, keep()) ? text : "failed: " + message_;
  }

 private:
  MessageSink keep() {
    return [this](const Message& message) { message_ = message.text; };
  }

  DumpDirectory directory_;
  std::string message_;
};

const std::string kHead =
    "$version pvb $end\n$timescale 100 ps $end\n$scope module db $end\n$var wire 1 ! clk $end\n"
    "$var wire 1 \" _$io_x $end\n$var wire 1 # q $end\n$upscope $end\n$enddefinitions $end\n";

// The clock's last event of a cycle falls into the next one, behind its beginning; what is
// expected shows where nothing is driven, and ends when it is driven again.
TEST_F(VcdExportTest, WavesChangeOnceAtATime) {
  EXPECT_EQ(exported("  row \"tp\" |11-0\n  row \"tp\" |1-1Z\n  row \"tp\" |0Z0X\n"
                     "  row \"tp\" |000-\n"),
            kHead +
                "#0\n$dumpvars\nx!\nx\"\nx#\n$end\n0!\n#100\n1\"\n#250\n1!\n#800\n0#\n"
                "#1000\n0!\n#1125\n1!\n#1800\nz#\n#2000\n0!\n#2125\n1!\n#2250\n0!\n"
                "#2800\n0\"\nx#\n#3125\n1!\n#3250\n0!\n#4000\n");
}

TEST_F(VcdExportTest, AStretchBeginsWithWhatHolds) {
  ExportOptions options;
  options.from = TIME{0, 150000000};
  options.to = TIME{0, 225000000};
  options.signals = {"q", "clk"};
  const std::string text = exported("  row \"tp\" x2 |11-0\n  row \"tp\" x1000 |1-1Z\n", options);
  EXPECT_THAT(text, HasSubstr("$timescale 100 ps $end\n"));
  EXPECT_EQ(text.substr(text.find("$enddef")),
            "$enddefinitions $end\n#1500\n$dumpvars\n1!\n0\"\n$end\n#2000\n0!\n#2125\n1!\n"
            "#2250\n");
  options.from = TIME{200, 0};
  options.to.reset();
  EXPECT_EQ(exported("  row \"tp\" x1000 |1-1Z\n", options),
            "failed: the pattern ends at 100uS, before the waves begin");
  options.from.reset();
  options.signals = {"clok"};
  EXPECT_EQ(exported("", options),
            "failed: 'clok' is no signal of the database, did you mean 'clk'?");
}

}  // namespace
