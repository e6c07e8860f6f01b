// Any text as the file of equation data: it is refused with a post, or is written in a
// form that comes back the same. Its variables are evaluated in every set; what is
// left out of the text's beginning up to the first zero byte is an expression.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "equations/equation_merge.h"
#include "equations/expression.h"
#include "memory_file.h"
#include "scratch_directory.h"

namespace {

// So many variables in sets are evaluated; the product of both may be large.
constexpr int kMostValues = 2000;

void checkValue(bool good, const Quantity& value, const ExpressionError& error) {
  require(good == error.text.empty());
  if (!good) {
    require(error.column > 0);
    return;
  }
  require(value.denominator > 0);
  require(!quantityText(value).empty());
  TIME time;
  std::string reason;
  const bool isTime = quantityToTime(value, time, reason);
  require(isTime == reason.empty());
  if (isTime) require(time >= TIME_ZERO && time <= TIME_MAX);
}

void evaluate(ExpressionScope& scope, std::string_view text) {
  Quantity value;
  ExpressionError error;
  const bool good = scope.evaluate(text, value, error);
  checkValue(good, value, error);
}

void evaluateAll(const ssData& data, std::string_view text) {
  ExpressionScope scope(data);
  scope.setLocal("period", quantityOfTime({10, 0}));
  evaluate(scope, text);
  int left = kMostValues;
  for (std::size_t sheet = 0; sheet < data.sheets.size(); ++sheet) {
    for (std::size_t set = 0; set <= data.sheets[sheet].sets.size() && left > 0; ++set) {
      scope.select(sheet, set);
      for (const ssVariable& variable : data.sheets[sheet].variables) {
        if (--left < 0) break;
        Quantity value;
        ExpressionError error;
        const bool good = scope.variable(variable.name, value, error);
        checkValue(good, value, error);
        require(!good || variable.type == ssType::any ||
                value.dimension == typeDimension(variable.type));
      }
    }
  }
}

std::string lines(const ssData& data) {
  std::string text;
  ssWriteLines(data, [&](std::string_view line) { text.append(line).append("\n"); });
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static ScratchDirectory scratch;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t zero = std::min(input.find('\0'), input.size());
  const std::string_view expression = zero < input.size() ? input.substr(0, zero) : "tck";
  const std::string_view text = zero < input.size() ? input.substr(zero + 1) : input;

  const std::string path = scratch.path("pvb.sdb");
  FILE* file = std::fopen(path.c_str(), "w");
  require(file != nullptr);
  std::fwrite(text.data(), 1, text.size(), file);
  std::fclose(file);
  const auto read = ssOpen(scratch.path("."));
  require(read.has_value() == (PBerrorCount() == 0));
  if (read) {
    require(ssSave(*read, scratch.path(".")) == 0);
    const auto again = ssOpen(scratch.path("."));
    require(again.has_value() && lines(*again) == lines(*read));
    require(again->selectedSheet == read->selectedSheet);
  }
  evaluateAll(read ? *read : ssData(), expression);
  PBdiscardErrors();
  return 0;
}
