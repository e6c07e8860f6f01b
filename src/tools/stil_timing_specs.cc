// Spec blocks as equation sheets.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>

#include "equations/expression.h"
#include "tools/stil_expression.h"
#include "tools/stil_timing_internal.h"

namespace {

constexpr std::string_view kUnnamedSpec = "Spec";
// Sets by variables: above that attributes and types are left out, since each set may
// evaluate all variables anew.
constexpr std::size_t kMostValues = std::size_t{1} << 24;
constexpr double kFemtoseconds = 1e15;  // in a second

using Text = std::optional<std::string> StilSpecValue::*;
struct SelectedText {
  StilSelected selected;
  Text text;
  ssValue ssItem::*attribute;
};
// Without a Selector the first of them that there is holds.
constexpr std::array<SelectedText, 4> kSelectedTexts = {{
    {StilSelected::typ, &StilSpecValue::typ, nullptr},
    {StilSelected::max, &StilSpecValue::max, &ssItem::maximum},
    {StilSelected::min, &StilSpecValue::min, &ssItem::minimum},
    {StilSelected::meas, &StilSpecValue::meas, &ssItem::measured},
}};

// In seconds, hertz, volts, amperes.
double baseUnits(const Quantity& value) {
  const double upper = value.exact ? static_cast<double>(value.numerator) : value.number;
  const double lower = value.exact ? static_cast<double>(value.denominator) : 1;
  const double scale = std::pow(kFemtoseconds, std::abs(value.dimension.time));
  return value.dimension.time > 0 ? upper / (lower * scale) : upper * scale / lower;
}

class SpecReader {
 public:
  SpecReader(StilReader& reader, const StilTimingChoice& choice)
      : reader_(reader), model_(reader.model()), choice_(choice) {}

  bool read(ssData& equations) {
    if (!findSelectors()) return false;
    for (const StilSpec& spec : model_.specs) {
      if (!readSpec(spec)) return false;
    }
    if (!selectCategories()) return false;
    evaluate();
    store();
    equations = std::move(data_);
    return true;
  }

 private:
  // What can be said of an item only when all variables are there.
  struct Item {
    std::size_t sheet;
    std::size_t set;
    std::size_t row;
    ssValue ssItem::*attribute;  // null for the expression
    std::string text;
    bool good;
    Quantity value;
  };

  bool findSelectors();
  bool readSpec(const StilSpec& spec);
  bool readEntry(std::size_t sheet, const StilSpecEntry& entry);
  bool translate(const StilSpecEntry& entry, const std::string& text, std::string& out);
  const SelectedText& selected(const StilSpecEntry& entry);
  bool selectCategories();
  void evaluate();
  void store();

  StilReader& reader_;
  const StilModel& model_;
  const StilTimingChoice& choice_;
  std::unordered_map<std::string, StilSelected> selected_;  // by variable
  ssData data_;
  std::vector<Item> items_;
};

bool SpecReader::findSelectors() {
  for (const std::string& name : choice_.selectors) {
    const auto found = std::ranges::find(model_.selectors, name, &StilSelector::name);
    if (found == model_.selectors.end()) {
      return reader_.failAt({}, kStilUnknownName, fmt::format("there is no Selector \"{}\"", name));
    }
    for (const auto& [variable, selected] : found->entries) selected_.emplace(variable, selected);
  }
  return true;
}

// Specs of one name are one sheet.
bool SpecReader::readSpec(const StilSpec& spec) {
  const std::string name(spec.name.empty() ? kUnnamedSpec : std::string_view(spec.name));
  std::size_t sheet = data_.sheets.find(name);
  if (sheet == kNotFound) {
    sheet = data_.sheets.size();
    data_.sheets.add({name, {}, {}, 0});
  }
  return std::ranges::all_of(spec.entries,
                             [&](const StilSpecEntry& entry) { return readEntry(sheet, entry); });
}

// A later entry for the same variable and category takes the place of an earlier one.
bool SpecReader::readEntry(std::size_t sheet, const StilSpecEntry& entry) {
  ssSheet& to = data_.sheets[sheet];
  const SelectedText& chosen = selected(entry);
  std::string expression;
  if (!translate(entry, *(entry.value.*chosen.text), expression)) return false;
  const std::string variable = stilVariable(entry.variable);
  if (to.variables.find(variable) == kNotFound) {
    ssAddSymbol(to, variable, ssType::any, expression);
  }
  const std::size_t row = to.variables.find(variable);
  if (to.sets.find(entry.category) == kNotFound) to.sets.add({entry.category, {}});
  const std::size_t set = to.sets.find(entry.category);
  if (set == 0) to.variables[row].expression = expression;
  to.sets[set].items[row] = {expression, {}, {}, {}};
  items_.push_back({sheet, set, row, nullptr, expression, false, {}});
  for (const SelectedText& one : kSelectedTexts) {
    const std::optional<std::string>& text = entry.value.*one.text;
    if (!text || one.attribute == nullptr) continue;
    if (!translate(entry, *text, expression)) return false;
    items_.push_back({sheet, set, row, one.attribute, expression, false, {}});
  }
  return true;
}

bool SpecReader::translate(const StilSpecEntry& entry, const std::string& text, std::string& out) {
  StilTime time;
  std::string reason;
  if (!stilExpression(text, nullptr, time, reason)) {
    return reader_.failAt(entry.where, kStilBadExpression, fmt::format("'{}': {}", text, reason));
  }
  out = std::move(time.text);
  return true;
}

// What a Selector chooses and there is, else Typ, else what there is.
const SelectedText& SpecReader::selected(const StilSpecEntry& entry) {
  const auto there = [&](const SelectedText& one) { return (entry.value.*one.text).has_value(); };
  const auto choice = selected_.find(entry.variable);
  if (choice != selected_.end()) {
    const auto* chosen = std::ranges::find(kSelectedTexts, choice->second, &SelectedText::selected);
    if (there(*chosen)) return *chosen;
  }
  const auto* first = std::ranges::find_if(kSelectedTexts, there);
  if (first->selected != StilSelected::typ && std::ranges::count_if(kSelectedTexts, there) > 1) {
    reader_.warnAt(
        entry.where, kStilBadExpression,
        fmt::format("no Selector chooses a value of \"{}\", which has no Typ", entry.variable));
  }
  return *first;
}

// The first category in force that a sheet has is its set; the first sheet that has one
// is the selected one.
bool SpecReader::selectCategories() {
  bool sheetChosen = false;
  std::vector<bool> met(choice_.categories.size());
  for (std::size_t i = 0; i < data_.sheets.size(); ++i) {
    ssSheet& sheet = data_.sheets[i];
    bool setChosen = false;
    for (std::size_t k = 0; k < choice_.categories.size(); ++k) {
      const std::size_t set = sheet.sets.find(choice_.categories[k]);
      if (set == kNotFound) continue;
      met[k] = true;
      if (!setChosen) sheet.selectedSet = set;
      setChosen = true;
    }
    if (setChosen && !sheetChosen) data_.selectedSheet = i;
    sheetChosen = sheetChosen || setChosen;
  }
  const auto unknown = std::ranges::find(met, false);
  if (unknown == met.end()) return true;
  const auto place = static_cast<std::size_t>(unknown - met.begin());
  return reader_.failAt({}, kStilUnknownName,
                        fmt::format("there is no Category \"{}\"", choice_.categories[place]));
}

// What can't be evaluated is told where it is used.
void SpecReader::evaluate() {
  std::size_t sets = 0;
  std::size_t variables = 0;
  for (const ssSheet& sheet : data_.sheets) {
    sets += sheet.sets.size();
    variables += sheet.variables.size();
  }
  if (sets * variables > kMostValues) return items_.clear();
  const auto place = [](const Item& item) { return std::pair(item.sheet, item.set); };
  std::ranges::stable_sort(items_, {}, place);
  ExpressionScope scope(data_);
  const Item* before = nullptr;
  for (Item& item : items_) {
    ExpressionError error;
    if (before == nullptr || place(*before) != place(item)) scope.select(item.sheet, item.set);
    item.good = scope.evaluate(item.text, item.value, error);
    before = &item;
  }
}

// Attributes in base units, and the type of variables that are times in all sets.
void SpecReader::store() {
  std::map<std::pair<std::size_t, std::size_t>, bool> isTime;  // by sheet and row
  for (const Item& item : items_) {
    const bool time = item.good && item.value.dimension == kTimeDimension;
    const auto [place, isNew] = isTime.emplace(std::pair(item.sheet, item.row), time);
    if (!isNew) place->second = place->second && time;
    if (item.attribute == nullptr || !item.good) continue;
    ssValue& value = data_.sheets[item.sheet].sets[item.set].items[item.row].*item.attribute;
    value.code = kValueNumber;
    value.number = baseUnits(item.value);
  }
  for (const auto& [place, time] : isTime) {
    if (time) data_.sheets[place.first].variables[place.second].type = ssType::time;
  }
}

}  // namespace

bool StilTiming::readSpecs(const StilTimingChoice& choice, ssData& equations) {
  if (reader_.model().specs.empty()) return true;
  return SpecReader(reader_, choice).read(equations);
}
