// Expressions by their texts: values with units, errors with their places.

#include "equations/expression.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

struct Variable {
  const char* name;
  const char* expression;
  ssType type = ssType::any;
};

void fill(ssSheet& sheet, const std::vector<Variable>& variables) {
  for (const Variable& row : variables) {
    EXPECT_NE(ssAddSymbol(sheet, row.name, row.type, row.expression), nullptr);
  }
}

// A sheet "Sheet1" that is selected, with these variables.
ssData sheetOf(const std::vector<Variable>& variables) {
  ssData data = ssNew();
  fill(data.sheets[0], variables);
  return data;
}

// The value's text, or the error's.
std::string evaluated(ExpressionScope& scope, std::string_view text) {
  Quantity value;
  ExpressionError error;
  return scope.evaluate(text, value, error) ? quantityText(value) : expressionErrorText(error);
}

const std::vector<Variable> kVariables = {
    {"tck", "10nS", ssType::time},
    {"third", "tck / 3"},
    {"zero", "0", ssType::time},
    {"odd name", "7"},
    {"wrong", "3V", ssType::time},
    {"bad", "1 + + "},
    {"usesBad", "bad * 2"},
    {"self", "self"},
    {"a", "b"},
    {"b", "max(c, 1)"},
    {"c", "a"},
    {"_x.y$1", "'odd name'"},
    {"nothing", ""},
};

TEST(Expressions, HaveTheseValuesAndErrors) {
  const ssData data = sheetOf(kVariables);
  ExpressionScope scope(data);
  const std::pair<const char*, const char*> kCases[] = {
      // Numbers and units.
      {"2e3", "2000"},
      {" .5 ", "0.5"},
      {"12.5NS", "12.5nS"},
      {"0.000000000000001s", "1fS"},
      {"2.5us", "2.5uS"},
      {"100mhz", "100MHz"},
      {"1.5 * 2kV", "3kV"},
      {"3.3V * 2A", "6.6 V A"},
      {"0.1nS * 1pS * 1pS", "1e-34 S^3"},
      {"2MV", "column 2: \"MV\" is no unit"},
      {"3tck", "column 2: \"tck\" is no unit"},
      {"1e999", "column 1: the number is out of range"},
      {".", "column 1: a number is expected"},
      // Exact times.
      {"3 * tck + 0.5nS", "30.5nS"},
      {"third", "3.333333nS"},
      {"third * 3 - tck", "0pS"},
      {"5fS / 2", "3fS"},
      {"0.1nS + 0.2nS - 0.3nS", "0pS"},
      {"1 / 100MHz", "10nS"},
      {"999S - 1fS", "998.999999999999999S"},
      // Operators and functions.
      {"2 + 3 * 4 - 6 / 3 - 1", "11"},
      {"-(2 - -3) * +2", "-10"},
      {"min(3, 1, 2) + max(1nS, 2nS) / 1nS", "3"},
      {"abs(-2nS)", "2nS"},
      {"floor(-2.5) + ceil(-2.5) + round(2.5)", "-2"},
      {"floor(tck, 3nS) + ceil(tck, 3nS) + round(tck, 3nS)", "30nS"},
      {"mod(tck, 3nS)", "1nS"},
      {"sqrt(4nS * 1nS)", "2nS"},
      {"sqrt(2) - sqrt(2)", "0"},
      {"pow(2, 10) + pow(4, 0.5)", "1026"},
      {"pow(tck, -1)", "100MHz"},
      {"zero + 5nS", "5nS"},
      {"_x.y$1 * 'odd name'", "49"},
      // What isn't one.
      {"", "column 1: a value is expected"},
      {"1 +", "column 4: a value is expected"},
      {"1 2", "column 3: an operator is expected"},
      {"(1", "column 1: the parenthesis isn't closed"},
      {"1)", "column 2: the parenthesis was never opened"},
      {"(1, 2)", "column 3: a comma belongs between the arguments of a function"},
      {"sin(1)", "column 1: there is no function \"sin\""},
      {"1 + mod(1)", "column 5: \"mod\" doesn't take 1 argument"},
      {"min()", "column 5: a value is expected"},
      {"'odd", "column 1: the name has no closing quote"},
      {"1 + nowhere", "column 5: there is no variable \"nowhere\""},
      {"5V + 1nS", "column 4: a voltage and a time don't fit together"},
      {"1 / (tck - 10nS)", "column 3: division by zero"},
      {"mod(1, 0)", "column 1: division by zero"},
      {"pow(1e300, 2)", "column 1: the number is too large"},
      {"pow(pow(1fS, 60), 2)", "column 1: the power of a unit is too high"},
      {"pow(-8, 0.5)", "column 1: a number below zero takes whole exponents only"},
      {"sqrt(tck)", "column 1: a time has no root"},
      {"floor(tck)", "column 1: a time is rounded to the multiples of a step, the second argument"},
      {"wrong",
       "variable \"wrong\", column 1: the expression gives a voltage where a time is "
       "expected"},
      {"1 + usesBad", "variable \"bad\", column 7: a value is expected"},
      {"nothing", "variable \"nothing\", column 1: a value is expected"},
      {"self", "variable \"self\", column 1: circular reference: self -> self"},
      {"a + 1", "variable \"c\", column 1: circular reference: a -> b -> c -> a"},
  };
  for (const auto& [text, expected] : kCases) EXPECT_EQ(evaluated(scope, text), expected) << text;
}

TEST(Expressions, MakeTimesUpToTheLargest) {
  const ssData data;
  ExpressionScope scope(data);
  const std::tuple<const char*, TIME, const char*> kCases[] = {
      {"0.5fS", {0, 1}, ""},
      {"0", TIME_ZERO, ""},
      {"1000S - 1fS", TIME_MAX, ""},
      {"1000S", {}, "the time is too large"},
      {"sqrt(2) * 1nS", {0, 1414214}, ""},
      {"-1fS", {}, "the time is below zero"},
      {"5", {}, "a plain number isn't a time"},
  };
  for (const auto& [text, expected, why] : kCases) {
    Quantity value;
    ExpressionError error;
    ASSERT_TRUE(scope.evaluate(text, value, error)) << text;
    TIME time;
    std::string reason;
    const bool isTime = quantityToTime(value, time, reason);
    EXPECT_EQ(isTime, reason.empty());
    EXPECT_EQ(reason, why) << text;
    EXPECT_TRUE(!isTime || time == expected) << text;
  }
}

TEST(Expressions, SeeTheSelectedSheetThenTheOthersInOrder) {
  ssData data = sheetOf({{"x", "1"}, {"sum", "x + y"}});
  fill(*ssAddSheet(data, "second"), {{"x", "10"}, {"y", "20"}, {"z", "x"}});
  fill(*ssAddSheet(data, "third"), {{"y", "300"}, {"period", "4"}});
  ssSheet& second = data.sheets[1];
  ASSERT_NE(ssAddSet(second, "other"), nullptr);
  second.sets[1].items[1].expression = "21";

  ExpressionScope scope(data);
  EXPECT_EQ(evaluated(scope, "sum"), "21");
  EXPECT_EQ(evaluated(scope, "z"), "1");
  scope.setLocal("period", quantityOfTime({0, 5}));
  scope.setLocal("own", quantityOfTime({0, 5}));
  EXPECT_EQ(evaluated(scope, "period + own / 5fS"), "5");
  scope.select(1, 1);
  EXPECT_EQ(evaluated(scope, "sum"), "31");
  scope.select(2, kNotFound);
  EXPECT_EQ(evaluated(scope, "sum"), "301");
}

// Names lead to names twenty thousand deep, each used twice; parentheses as deep.
TEST(Expressions, MayHaveAnyDepth) {
  constexpr int kDepth = 20000;
  ssData data = ssNew();
  for (int i = 0; i < kDepth; ++i) {
    const std::string next = "v" + std::to_string(i + 1);
    ssAddSymbol(data.sheets[0], "v" + std::to_string(i), ssType::any,
                "min(" + next + "," + next + ")");
  }
  ssAddSymbol(data.sheets[0], "v" + std::to_string(kDepth), ssType::any, "v50");
  ExpressionScope circle(data);
  EXPECT_EQ(evaluated(circle, "v0"),
            "variable \"v20000\", column 1: circular reference: v50 -> v51 -> v52 -> v53 -> ... -> "
            "v19997 -> v19998 -> v19999 -> v20000 -> v50");
  data.sheets[0].variables[kDepth].expression =
      std::string(kDepth, '(') + "4" + std::string(kDepth, ')');
  ExpressionScope chain(data);
  EXPECT_EQ(evaluated(chain, std::string(kDepth, '-') + "v0"), "4");
}

}  // namespace
