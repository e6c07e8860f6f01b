// The lines of the equation data, written and read one by one.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "base/quote.h"
#include "equations/spec_data.h"

namespace {

constexpr std::string_view kSelected = "selected";
constexpr std::string_view kExpressionField = "expr";
constexpr std::string_view kNoText = "none";
constexpr std::string_view kBlanks = " \t\r\n";

struct TypeRow {
  ssType type;
  std::string_view word;
};
constexpr std::array<TypeRow, 6> kTypes = {{{ssType::any, "any"},
                                            {ssType::number, "number"},
                                            {ssType::time, "time"},
                                            {ssType::frequency, "frequency"},
                                            {ssType::voltage, "voltage"},
                                            {ssType::current, "current"}}};

struct AttributeField {
  std::string_view word;
  ssValue ssItem::*value;
};
constexpr std::array<AttributeField, 3> kAttributes = {
    {{"min", &ssItem::minimum}, {"max", &ssItem::maximum}, {"measured", &ssItem::measured}}};

// --- Writing -------------------------------------------------------------------------

template <typename T>
void appendNumber(std::string& out, T number) {
  std::array<char, 32> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
  out.append(buffer.data(), end);
}

void appendValue(std::string& out, const ssValue& value) {
  if (value.code != kValueNumber) {
    appendNumber(out, value.code);
    out += ':';
  }
  if (value.code != kValueText) {
    appendNumber(out, value.number);
  } else if (value.text) {
    appendQuoted(out, *value.text);
  } else {
    out += kNoText;
  }
}

void appendItem(std::string& out, const ssItem& item) {
  if (item.expression) {
    out.append(" ").append(kExpressionField).append("=");
    appendQuoted(out, *item.expression);
  }
  for (const AttributeField& field : kAttributes) {
    const ssValue& value = item.*field.value;
    if (value.code == kValueUndefined) continue;
    out.append(" ").append(field.word).append("=");
    appendValue(out, value);
  }
}

class LineWriter {
 public:
  explicit LineWriter(const std::function<void(std::string_view line)>& write) : write_(write) {}

  void sheet(const ssSheet& sheet, bool selected) {
    begin("sheet ", sheet.name);
    end(selected);
    for (const ssVariable& variable : sheet.variables) {
      begin("  variable ", variable.name);
      line_.append(" ").append(ssTypeWord(variable.type)).append(" ");
      appendQuoted(line_, variable.expression);
      end(false);
    }
    for (std::size_t i = 0; i < sheet.sets.size(); ++i) {
      set(sheet, sheet.sets[i], i == sheet.selectedSet);
    }
  }

 private:
  void set(const ssSheet& sheet, const ssSet& set, bool selected) {
    begin("  set ", set.name);
    end(selected);
    for (const auto& [row, item] : set.items) {
      if (ssHoldsNothing(item)) continue;
      begin("    value ", sheet.variables[row].name);
      appendItem(line_, item);
      end(false);
    }
  }
  void begin(std::string_view keyword, std::string_view name) {
    line_ = keyword;
    appendQuoted(line_, name);
  }
  void end(bool selected) {
    if (selected) line_.append(" ").append(kSelected);
    write_(line_);
  }

  const std::function<void(std::string_view line)>& write_;
  std::string line_;
};

}  // namespace

std::string_view ssTypeWord(ssType type) { return kTypes[static_cast<std::size_t>(type)].word; }

// --- Lines ---------------------------------------------------------------------------

std::string_view ssLineContent(std::string_view line) {
  const std::size_t first = line.find_first_not_of(kBlanks);
  if (first == std::string_view::npos || line[first] == '#') return {};
  return line.substr(first, line.find_last_not_of(kBlanks) + 1 - first);
}

void ssWriteLines(const ssData& data, const std::function<void(std::string_view line)>& write) {
  LineWriter writer(write);
  for (std::size_t i = 0; i < data.sheets.size(); ++i) {
    writer.sheet(data.sheets[i], i == data.selectedSheet);
  }
}

bool ssLineReader::take(std::string_view line) {
  line_ = line.substr(0, line.find_last_not_of(kBlanks) + 1);
  place_ = 0;
  if (ssLineContent(line).empty()) return true;
  const std::string_view keyword = word("\"");
  if (keyword == "sheet") return sheet();
  if (keyword == "variable") return variable();
  if (keyword == "set") return set();
  if (keyword == "value") return value();
  place_ = 0;
  skipBlanks();
  return fail(fmt::format("\"{}\" isn't sheet, variable, set or value", keyword));
}

bool ssLineReader::fail(std::string text) {
  error_ = std::move(text);
  return false;
}

void ssLineReader::skipBlanks() {
  place_ = std::min(line_.find_first_not_of(kBlanks, place_), line_.size());
}

// What stands up to a blank or one of `stops`.
std::string_view ssLineReader::word(std::string_view stops) {
  skipBlanks();
  const std::size_t begin = place_;
  while (place_ < line_.size() && kBlanks.find(line_[place_]) == std::string_view::npos &&
         stops.find(line_[place_]) == std::string_view::npos) {
    ++place_;
  }
  return line_.substr(begin, place_ - begin);
}

bool ssLineReader::name(std::string& out) {
  skipBlanks();
  return readQuoted(line_, place_, out) || fail("a text in double quotes is expected");
}

bool ssLineReader::lineEnd() {
  skipBlanks();
  return place_ == line_.size() || fail("nothing more is expected on this line");
}

bool ssLineReader::selected(bool& out) {
  skipBlanks();
  const std::size_t begin = place_;
  out = word({}) == kSelected;
  if (!out) place_ = begin;
  return lineEnd();
}

ssSheet* ssLineReader::lastSheet() {
  return data_.sheets.empty() ? nullptr : &data_.sheets[data_.sheets.size() - 1];
}

bool ssLineReader::sheet() {
  ssSheet sheet;
  bool isSelected = false;
  if (!name(sheet.name) || !selected(isSelected)) return false;
  if (isSelected && sheetSelected_) return fail("a sheet above is selected");
  if (data_.sheets.add(std::move(sheet)) == nullptr) return fail("the sheet stands here twice");
  if (isSelected) data_.selectedSheet = data_.sheets.size() - 1;
  sheetSelected_ = sheetSelected_ || isSelected;
  setSelected_ = false;
  return true;
}

bool ssLineReader::variable() {
  std::string text;
  if (!name(text)) return false;
  const std::string_view type = word("\"");
  const auto row = std::ranges::find(kTypes, type, &TypeRow::word);
  if (row == kTypes.end()) return fail(fmt::format("\"{}\" is no type", type));
  std::string expression;
  if (!name(expression) || !lineEnd()) return false;
  ssSheet* sheet = lastSheet();
  if (sheet == nullptr) return fail("there is no sheet above");
  if (!sheet->sets.empty()) return fail("variables stand above the sets of their sheet");
  return ssAddSymbol(*sheet, text, row->type, expression) != nullptr ||
         fail("the variable stands in its sheet twice");
}

bool ssLineReader::set() {
  std::string text;
  bool isSelected = false;
  if (!name(text) || !selected(isSelected)) return false;
  ssSheet* sheet = lastSheet();
  if (sheet == nullptr) return fail("there is no sheet above");
  if (isSelected && setSelected_) return fail("a set above is selected");
  if (ssAddSet(*sheet, text) == nullptr) return fail("the set stands in its sheet twice");
  if (isSelected) sheet->selectedSet = sheet->sets.size() - 1;
  setSelected_ = setSelected_ || isSelected;
  return true;
}

bool ssLineReader::value() {
  std::string text;
  if (!name(text)) return false;
  ssSheet* sheet = lastSheet();
  if (sheet == nullptr || sheet->sets.empty()) return fail("there is no set above");
  const std::size_t row = sheet->variables.find(text.empty() ? kNullVariable : text);
  if (row == kNotFound) return fail("the sheet has no such variable");
  ssItem item;
  for (skipBlanks(); place_ < line_.size(); skipBlanks()) {
    if (!field(item)) return false;
    const bool ends = place_ == line_.size() || kBlanks.find(line_[place_]) != kNotFound;
    if (!ends) return fail("a blank is expected behind the value");
  }
  if (ssHoldsNothing(item)) return true;
  ssSet& set = sheet->sets[sheet->sets.size() - 1];
  return set.items.emplace(row, std::move(item)).second ||
         fail("the variable stands in its set twice");
}

bool ssLineReader::field(ssItem& item) {
  const std::size_t begin = place_;
  const std::string_view key = word("=\"");
  const bool hasValue = place_ < line_.size() && line_[place_] == '=';
  if (hasValue && key == kExpressionField) {
    ++place_;
    std::string& expression = item.expression.emplace();
    return readQuoted(line_, place_, expression) || fail("a text in double quotes is expected");
  }
  for (const AttributeField& attributeField : kAttributes) {
    if (!hasValue || attributeField.word != key) continue;
    ++place_;
    return attribute(item.*attributeField.value);
  }
  place_ = begin;
  return fail("expr=, min=, max= or measured= is expected");
}

bool ssLineReader::attribute(ssValue& value) {
  const auto number = [this](auto& out) {
    const char* end = line_.data() + line_.size();
    const auto [stop, error] = std::from_chars(line_.data() + place_, end, out);
    if (error != std::errc()) return false;
    place_ = static_cast<std::size_t>(stop - line_.data());
    return true;
  };
  value.code = kValueNumber;
  const std::size_t begin = place_;
  if (number(value.code) && place_ < line_.size() && line_[place_] == ':') {
    ++place_;
  } else {
    place_ = begin;
    value.code = kValueNumber;
  }
  if (value.code == kValueUndefined) return fail("code 9 has no value; leave the field out");
  if (value.code == kValueText) return attributeText(value);
  return number(value.number) || fail("a number is expected");
}

bool ssLineReader::attributeText(ssValue& value) {
  if (line_.substr(place_).starts_with(kNoText)) {
    place_ += kNoText.size();
    value.text.reset();
    return true;
  }
  return readQuoted(line_, place_, value.text.emplace()) ||
         fail("a text in double quotes or \"none\" is expected");
}
