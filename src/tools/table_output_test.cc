#include "tools/table_output.h"

#include <gmock/gmock.h>

#include <array>

#include "tools/message.h"
#include "tools/nearest.h"

namespace {

std::string written(TableFormat format) {
  std::string text;
  TextSink sink([&](std::string_view piece) {
    text += piece;
    return true;
  });
  TableOutput table(sink, format, "test/1", {"name", "count"});
  table.row({std::string("a,\"b\"|\n"), std::int64_t{5}});
  table.row({std::string("\xff"), std::monostate()});
  EXPECT_TRUE(table.finish());
  return text;
}

TEST(TableOutput, WritesTheSameRowsInFiveForms) {
  EXPECT_EQ(written(TableFormat::table), "name     count\na,\"b\"|       5\n\xff\n");
  EXPECT_EQ(written(TableFormat::csv), "name,count\n\"a,\"\"b\"\"|\n\",5\n\xff,\n");
  EXPECT_EQ(written(TableFormat::md),
            "| name | count |\n| --- | --- |\n| a,\"b\"\\|  | 5 |\n"
            "| \xff |  |\n");
  EXPECT_EQ(
      written(TableFormat::jsonl),
      "{\"name\":\"a,\\\"b\\\"|\\n\",\"count\":5}\n{\"name\":\"\xEF\xBF\xBD\",\"count\":null}\n");
  EXPECT_EQ(written(TableFormat::json),
            "{\"schema\":\"test/1\",\"rows\":[\n{\"name\":\"a,\\\"b\\\"|\\n\",\"count\":5},\n"
            "{\"name\":\"\xEF\xBF\xBD\",\"count\":null}\n]}\n");
}

TEST(Messages, HaveUniqueCodesInRisingOrderAndSayWhatToDo) {
  int before = 0;
  for (const MessageRow& row : messageTable()) {
    EXPECT_GT(row.code, before);
    before = row.code;
    EXPECT_TRUE(row.remedy.ends_with('.')) << row.title;
    EXPECT_FALSE(row.explanation.empty()) << row.title;
  }
}

TEST(Messages, ShowPlaceLineAndCaret) {
  Message message;
  message.code = kBadTime;
  message.text = "'1' is no time";
  message.file = "a.pvbt";
  message.line = 3;
  message.column = 5;
  message.sourceLine = "x\ty 1";
  EXPECT_EQ(formatMessage(message, false),
            "a.pvbt:3:5: error: '1' is no time [PVB0212]\n  x y 1\n      ^\n"
            "  Write a number and a unit, such as 12.5nS.\n");
  message.sourceLine = std::string(1000, 'a');
  message.column = 900;
  EXPECT_LT(formatMessage(message, false).size(), 350U);
}

TEST(Nearest, ProposesWhatIsNear) {
  const std::array<std::string_view, 3> words = {"build", "dump", "verify"};
  EXPECT_EQ(nearestWord("biuld", words), "build");
  EXPECT_EQ(nearestWord("dmp", words), "dump");
  EXPECT_EQ(nearestWord("frobnicate", words), "");
  EXPECT_EQ(nearestWord(std::string(100000, 'a'), words), "");
}

}  // namespace
