#include "base/text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>

#include "base/errors.h"
#include "support/fault_platform.h"

namespace {

const char* const kNull = nullptr;

TEST(Text, ComparesWithoutCaseAndTellsNoneFromEmpty) {
  const std::string text = "SetupTime";
  EXPECT_TRUE(PBstrEq("setupTIME", text));
  EXPECT_TRUE(PBstrEq(std::string_view(text).substr(5), std::optional<std::string>("time")));
  EXPECT_FALSE(PBstrEq(text, "SetupTim"));
  EXPECT_FALSE(PBstrEq("[", "{"));        // 32 apart, but no letters
  EXPECT_FALSE(PBstrEq("\xC4", "\xE4"));  // letters, but not of ASCII
  EXPECT_TRUE(PBstrEq(kNull, std::nullopt));
  EXPECT_FALSE(PBstrEq(kNull, ""));
  EXPECT_FALSE(PBstrEq(text, std::optional<std::string_view>()));
  EXPECT_TRUE(PBisEmpty(kNull));
  EXPECT_TRUE(PBisEmpty(std::optional<std::string>("")));
  EXPECT_FALSE(PBisEmpty(text));
}

TEST(Text, HashesBytesAsSignedAndOrdersNullLast) {
  EXPECT_EQ(PBstrHash("abc"), 'a' + 'b' + 'c');
  EXPECT_EQ(PBstrHash("\xFF\xFE"), -3);
  EXPECT_EQ(PBstrHash(kNull), 0);
  EXPECT_EQ(PBstrCompare(nullptr, nullptr), 0);
  EXPECT_EQ(PBstrCompare(nullptr, "a"), 1);
  EXPECT_EQ(PBstrCompare("a", nullptr), -1);
  EXPECT_LT(PBstrCompare("A", "a"), 0);
}

TEST(Text, ReadsNumbersAsAtoiButHoldsThemInAnInt) {
  struct {
    std::string_view text;
    int value;
  } const cases[] = {{"42", 42},
                     {" \t\n\v\f\r-7x9", -7},
                     {"", 0},
                     {"+-1", 0},
                     {"x1", 0},
                     {"2147483647", INT_MAX},
                     {"2147483648", INT_MAX},
                     {"-2147483648", INT_MIN},
                     {"-99999999999999999999999999", INT_MIN},
                     {"000000000000000000000000012", 12},
                     {std::string_view("123456", 3), 123}};
  for (const auto& [text, value] : cases) EXPECT_EQ(PBtextToInt(text), value) << text;
}

TEST(Text, LowersAndStripsAsciiOnly) {
  EXPECT_EQ(PBlowerText("AbZ[\xC4"), "abz[\xC4");
  EXPECT_EQ(PBstripSpace(" a\t b\r\n\v\fc "), "abc");
}

TEST(Text, CopiesTextsAndArraysDeeply) {
  EXPECT_EQ(PBcopyStr(nullptr), nullptr);
  EXPECT_EQ(PBcopyStrArray(nullptr), nullptr);
  char word[] = "word";
  const char* const words[] = {word, "", nullptr};
  const PBtext copy = PBcopyStr(word);
  const PBtextArray copies = PBcopyStrArray(words);
  word[0] = 'W';
  EXPECT_STREQ(copy.get(), "word");
  EXPECT_STREQ(copies[0], "word");
  EXPECT_STREQ(copies[1], "");
  EXPECT_EQ(copies[2], nullptr);
  FaultPlatform faults;
  faults.failAllocations(1);
  EXPECT_EQ(PBcopyStr("text"), nullptr);
  EXPECT_TRUE(PBerrorHas("PBcopyStr", 82));
  EXPECT_EQ(faults.secondsSlept(), 0);
  PBdiscardErrors();
}

}  // namespace
