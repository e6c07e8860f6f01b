#include "tools/stil_names.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

// Signals a, b, c, "x y", Bus[0] to Bus[3], pdata[11]; groups as they are added.
class StilNamesTest : public testing::Test {
 protected:
  StilNamesTest() {
    for (const char* name :
         {"a", "b", "c", "x y", "Bus[0]", "Bus[1]", "Bus[2]", "Bus[3]", "pdata[11]"}) {
      model_.signals.emplace_back().name = name;
    }
  }

  void group(const std::string& name, const std::string& members, const std::string& domain = "") {
    StilGroup& group = model_.groups.emplace_back();
    group.name = name;
    group.domain = domain;
    group.members.text = members;
    group.members.expression = true;
  }
  // Names of what is found with blanks between, or "?" and the problem.
  static std::string found(StilNames& names, const StilModel& model, const std::string& text,
                           bool expression, std::uint32_t number) {
    StilReference reference;
    reference.text = text;
    reference.expression = expression;
    reference.number = number;
    std::string problem;
    const StilTarget* target = names.find(reference, problem);
    if (target == nullptr) return "?" + problem;
    EXPECT_EQ(names.find(reference, problem), target);
    std::string list;
    for (const std::uint32_t signal : target->signals) list += model.signals[signal].name + " ";
    return list;
  }
  std::string found(const std::string& text, bool expression = true) {
    StilNames names(model_, domains_);
    return found(names, model_, text, expression, 7);
  }

  StilModel model_;
  std::vector<std::string> domains_;
};

TEST_F(StilNamesTest, ResolvesNamesAndExpressions) {
  group("g", "a + \"x y\"");
  group("all", "g + Bus + c");
  group("g", "c + b", "d");
  const std::pair<const char*, const char*> cases[] = {
      {"a", "a "},
      {"a+b", "a b "},
      {" b + \"a\"\n+ b ", "b a "},
      {"Bus[3..1]", "Bus[3] Bus[2] Bus[1] "},
      {"\"Bus\"[0..1] - Bus[1] + a", "Bus[0] a "},
      {"\"B\".\"us\"", "Bus[0] Bus[1] Bus[2] Bus[3] "},
      {"Bus", "Bus[0] Bus[1] Bus[2] Bus[3] "},
      {"pdata[11]", "pdata[11] "},
      {"all - (Bus - Bus[2]) + a", "a x y Bus[2] c "},
      {"all - all", ""},
  };
  for (const auto& [text, meant] : cases) EXPECT_EQ(found(text), meant) << text;
  EXPECT_EQ(found("x y", false), "x y ");
  EXPECT_EQ(found("Bus[2..3]", false), "Bus[2] Bus[3] ");
  domains_ = {"d"};
  EXPECT_EQ(found("g"), "c b ");
  EXPECT_EQ(found("all"), "c b Bus[0] Bus[1] Bus[2] Bus[3] ");
}

TEST_F(StilNamesTest, TellsWhatIsWrong) {
  group("m", "a + n");
  group("n", "b + m");
  const std::pair<const char*, const char*> cases[] = {
      {"q", "?there is no signal and no group \"q\""},
      {"Bus[2..4]", "?there is no signal and no group \"Bus[4]\""},
      {"Bus[0..4000000000]", "?there is no signal and no group \"Bus[0..4000000000]\""},
      {"a b", "?'+' or '-' is expected before 'b'"},
      {"a +", "?a name is expected in the expression"},
      {"(a + b", "?')' is missing"},
      {"\"a", "?'\"' is missing"},
      {"", "?a name is expected in the expression"},
      {"m", "?the group \"m\" contains itself"},
  };
  for (const auto& [text, told] : cases) EXPECT_EQ(found(text), told) << text;
}

TEST_F(StilNamesTest, AttributesAreThoseOfTheGroupOrTheSignal) {
  model_.signals[0].attributes.scanIn = 3;
  group("g", "a + b");
  model_.groups[0].attributes.scanIn = 5;
  StilNames names(model_, {});
  std::string problem;
  StilReference reference;
  reference.text = "a";
  EXPECT_EQ(names.find(reference, problem)->attributes->scanIn, 3U);
  reference.text = "g";
  reference.number = 1;
  EXPECT_EQ(names.find(reference, problem)->attributes->scanIn, 5U);
  EXPECT_EQ(names.signal("c"), 2);
  EXPECT_EQ(names.signal("g"), -1);
}

TEST_F(StilNamesTest, BoundsDepthAndWork) {
  group("g0", "a");
  for (int i = 1; i < 100; ++i) group(fmt::format("g{}", i), fmt::format("g{}", i - 1));
  EXPECT_THAT(found("g99"), HasSubstr("nested too deep"));
  EXPECT_THAT(found(std::string(100000, '(')), HasSubstr("nested too deep"));

  std::string sum = "Bus";
  for (int i = 0; i < 100000; ++i) sum += " + a - a";
  EXPECT_EQ(found(sum), "Bus[0] Bus[1] Bus[2] Bus[3] ");

  for (int i = 0; i < 20000; ++i) {
    model_.signals.emplace_back().name = fmt::format("Wide[{}]", i);
  }
  StilNames names(model_, {});
  std::string last;
  for (std::uint32_t i = 0; i < 4000 && !last.starts_with("?"); ++i) {
    StilReference reference;
    reference.text = "Wide";
    reference.number = i;
    if (names.find(reference, last) == nullptr) last = "?" + last;
  }
  EXPECT_THAT(last, HasSubstr("name too many"));
}

}  // namespace
