#include "equations/spec_data.h"

namespace {

bool isUndefined(const ssValue& value) { return value.code == kValueUndefined; }

}  // namespace

bool ssHoldsNothing(const ssItem& item) {
  return !item.expression && isUndefined(item.minimum) && isUndefined(item.maximum) &&
         isUndefined(item.measured);
}

ssData ssNew() {
  ssData data;
  ssAddSheet(data, kFirstSheet);
  return data;
}

std::size_t ssSelectSheet(ssData& data, std::string_view name) {
  const std::size_t found = data.sheets.find(name);
  if (found != kNotFound) data.selectedSheet = found;
  return found;
}

std::size_t ssSelectSet(ssSheet& sheet, std::string_view name) {
  const std::size_t found = sheet.sets.find(name);
  if (found != kNotFound) sheet.selectedSet = found;
  return found;
}

ssSheet* ssAddSheet(ssData& data, std::string_view name) {
  ssSheet sheet;
  sheet.name = name;
  ssAddSet(sheet, kFirstSet);
  return data.sheets.add(std::move(sheet));
}

void ssCutSheets(ssData& data, const std::function<bool(const ssSheet& sheet)>& cut) {
  if (data.sheets.empty()) return;
  const std::string selected = data.sheets[data.selectedSheet].name;
  data.sheets.cut(cut);
  const std::size_t left = data.sheets.find(selected);
  data.selectedSheet = left != kNotFound ? left : 0;
}

ssSet* ssAddSet(ssSheet& sheet, std::string_view name) {
  return sheet.sets.add({std::string(name), {}});
}

ssVariable* ssAddSymbol(ssSheet& sheet, std::string_view name, ssType type,
                        std::string_view expression) {
  return sheet.variables.add(
      {std::string(name.empty() ? kNullVariable : name), type, std::string(expression)});
}

const std::string& ssExpression(const ssSheet& sheet, std::size_t set, std::size_t variable) {
  if (set < sheet.sets.size()) {
    const auto item = sheet.sets[set].items.find(variable);
    if (item != sheet.sets[set].items.end() && item->second.expression) {
      return *item->second.expression;
    }
  }
  return sheet.variables[variable].expression;
}
