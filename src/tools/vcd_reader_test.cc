#include "tools/vcd_reader.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// A text that comes in pieces of a few bytes.
class Pieces : public ByteSource {
 public:
  Pieces(std::string text, std::size_t piece) : text_(std::move(text)), piece_(piece) {
    name_ = "text";
  }
  std::ptrdiff_t read(char* to, std::size_t size) override {
    const std::size_t got = text_.copy(to, std::min(size, piece_), at_);
    at_ += got;
    return static_cast<std::ptrdiff_t>(got);
  }
  bool seek(std::uint64_t offset) override {
    at_ = offset;
    return true;
  }
  std::int64_t size() const override { return -1; }
  std::int64_t consumed() const override { return -1; }

 private:
  std::string text_;
  std::size_t piece_;
  std::size_t at_ = 0;
};

struct Result {
  std::vector<std::string> events;  // "#5", "0=01xz", "real 2=1.5"
  std::vector<std::string> messages;
};

std::string eventText(VcdEvent event, const VcdReader& reader) {
  if (event == VcdEvent::time) return fmt::format("#{}", reader.time());
  constexpr std::array kKinds = {"", "", "", "real ", "string ", "ports "};
  return fmt::format("{}{}={}", kKinds[static_cast<std::size_t>(event)], reader.net(),
                     reader.value());
}

Result readText(const std::string& text, std::size_t piece = 1 << 20) {
  Result result;
  VcdReader reader(std::make_unique<Pieces>(text, piece), [&](const Message& message) {
    result.messages.push_back(fmt::format("{}:{} {} {}", message.line, message.column,
                                          static_cast<int>(message.code), message.text));
  });
  if (!reader.readHeader()) return result;
  for (VcdEvent event = reader.next(); event != VcdEvent::end; event = reader.next()) {
    result.events.push_back(eventText(event, reader));
  }
  return result;
}

const std::string kHead =
    "$date today $end $version 1 $end\n$timescale 10 ps $end\n"
    "$scope module top $end\n$var wire 1 ! clk $end\n"
    "$scope module  $end\n$var reg 8 \"# bus [7:0] $end\n$var real 64 r temp $end\n"
    "$upscope $end\n$var string 0 <1234 text $end\n$var port [1:2] <5 io $end\n"
    "$upscope $end\n$enddefinitions $end\n";

VcdHeader headOf(const std::string& text) {
  VcdReader reader(std::make_unique<Pieces>(text, 7), [](const Message&) {});
  EXPECT_TRUE(reader.readHeader()) << text;
  return reader.header();
}

TEST(VcdReader, SplitsRangesOffNames) {
  struct Row {
    const char* words;
    const char* name;
    bool ranged;
    std::int32_t left;
  };
  for (const Row& row :
       {Row{"wire 4 ! a[3:0]", "a", true, 3}, Row{"wire 1 ! a [5]", "a", true, 5},
        Row{"wire 8 ! mem[3] [7:0]", "mem[3]", true, 7}, Row{"wire 8 ! mem[3]", "mem[3]", false, 0},
        Row{"wire 4 ! a [7:0]", "a[7:0]", false, 0}, Row{"wire 1 ! \\x[2] ", "x[2]", false, 0},
        Row{"wire 2 ! \\x.y [-1:-2]", "x.y", true, -1}, Row{"integer 32 ! n", "n", false, 0}}) {
    const VcdHeader head =
        headOf(fmt::format("$timescale 1ns $end $var {} $end $enddefinitions $end", row.words));
    EXPECT_EQ(head.vars[0].name, row.name);
    EXPECT_EQ(head.vars[0].ranged, row.ranged) << row.words;
    EXPECT_EQ(head.vars[0].left, row.left) << row.words;
  }
}

const std::string kBody =
    "$dumpvars\n0!\nbx \"#\nr1.5 r\n$end\n#5\n1!\n$comment not 0! a change $end\n"
    "B1Z0 \"#\nshello <1234\n#5\nZ!\nu!\nbU1LH \"#\n#70 x! pDh 60 06 <5\n$vcdclose #90 $end\n";

TEST(VcdReader, HandsOutChangesWhateverThePieces) {
  for (const std::size_t piece : {std::size_t{1}, std::size_t{5}, std::size_t{100000}}) {
    const Result result = readText(kHead + kBody, piece);
    EXPECT_THAT(result.events,
                ElementsAre("0=0", "1=x", "real 2=1.5", "#5", "0=1", "1=1z0", "string 3=hello",
                            "#5", "0=z", "0=x", "1=x101", "#70", "0=x", "ports 4=Dh", "#90"));
    EXPECT_THAT(result.messages, ElementsAre());
  }
}

TEST(VcdReader, ReadsTextsLongerThanItsBuffer) {
  const std::string bits(700000, '1');
  std::string body = "#1\nb" + bits + " \"#\n";
  for (int i = 0; i < 300000; ++i) body += "0!\n";
  const Result result = readText(kHead + body + "0?\n");
  ASSERT_EQ(result.events.size(), 300002U);
  EXPECT_EQ(result.events[1], "1=" + bits);
  EXPECT_THAT(result.messages, ElementsAre(HasSubstr("300015:2 802")));
}

// All that a cut leaves is a beginning of what the whole gives, and at most a warning.
TEST(VcdReader, TakesWhatStandsBeforeACut) {
  const std::vector<std::string> whole = readText(kHead + kBody).events;
  for (std::size_t length = 0; length < kBody.size(); ++length) {
    Result cut = readText(kHead + kBody.substr(0, length), 3);
    for (const std::string& message : cut.messages) EXPECT_THAT(message, HasSubstr(" 806 "));
    ASSERT_LE(cut.events.size(), whole.size());
    // The last change may be one with a shorter code or time.
    if (!cut.events.empty() && cut.events.back().starts_with('#')) cut.events.pop_back();
    EXPECT_TRUE(std::equal(cut.events.begin(), cut.events.end(), whole.begin())) << length;
  }
  EXPECT_THAT(readText(kHead + "#5\n0!\nb01").messages,
              ElementsAre(HasSubstr("15:4 806 the file ends in the middle of a change")));
  EXPECT_THAT(readText(kHead.substr(0, 100)).messages, ElementsAre(HasSubstr(" 806 ")));
}

TEST(VcdReader, RefusesWhatIsNoDump) {
  struct Row {
    std::string text;
    const char* message;
  };
  const std::string timescale = "$timescale 1 ns $end ";
  const std::string rest = " $enddefinitions $end";
  const std::vector<Row> rows = {
      {"hello", "1:1 801 a definition"},
      {"$timescale 7 parsecs $end" + rest, "1:1 803"},
      {timescale + "$var wire 0 ! a $end" + rest, "801 '0' is no size"},
      {timescale + "$var wire 1 ! $end" + rest, "801 $var TYPE"},
      {timescale + "$upscope $end" + rest, "801 $upscope"},
      {kHead + "#5\n#4\n", "14:1 803 the time goes back"},
      {kHead + "#99999999999999999999 ", "803 the time is too great"},
      {kHead + "#1x ", "803 '#1x' is no time"},
      {kHead + " 0 ! ", "13:3 801 the code"},
      {kHead + "0!!\n", "13:2 802 no variable has the code '!!'"},
      {kHead + "b012 !\n", "13:2 801 '012' aren't bits"},
      {kHead + "b !\n", "801 bits are expected"},
      {kHead + "pD 0 0 <5\n", "801 1 states for a port of 2 bits"},
      {kHead + "pDQ 0 0 <5\n", "801 'DQ' aren't states"},
      {kHead + "$var wire 1 ? b $end", "801 $var stands behind"},
      {kHead + std::string("\0\0", 2), "13:1 801"},
  };
  for (const Row& row : rows) {
    EXPECT_THAT(readText(row.text, 4).messages, ElementsAre(HasSubstr(row.message))) << row.text;
  }
}

TEST(VcdReader, ReadsAgainFromTheFirstChange) {
  std::vector<std::string> messages;
  VcdReader reader(
      std::make_unique<Pieces>(kHead + "#3\n1!\n#4\n0!\n0?\n", 9),
      [&](const Message& message) { messages.push_back(std::to_string(message.line)); });
  ASSERT_TRUE(reader.readHeader());
  while (reader.time() < 4) reader.next();
  ASSERT_TRUE(reader.rewind());
  EXPECT_EQ(reader.next(), VcdEvent::time);
  EXPECT_EQ(reader.time(), 3U);
  while (reader.next() != VcdEvent::end) {
  }
  EXPECT_THAT(messages, ElementsAre("17"));
}

}  // namespace
