// Equations: a Spec for each sheet with a Category for each set, and expressions over
// their variables. The variable of a timeplate's period stands at its Period instead,
// where nothing else needs it.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "base/text.h"
#include "equations/quantity.h"
#include "pvb/database.h"
#include "tools/export_stil_internal.h"

namespace {

constexpr std::string_view kPeriodEnding = ".period";
constexpr std::string_view kOwnPeriod = "period";
constexpr std::string_view kBurst = "_burst_";
constexpr std::string_view kBadExpressions =
    "expressions that can't be evaluated or don't give their time";

// Units that are written in any case here, and in one way there.
constexpr std::array<std::string_view, 11> kUnits = {"fs", "ps",  "ns",  "us",  "ms", "s",
                                                     "Hz", "kHz", "MHz", "GHz", "THz"};

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isPlain(char c) { return isLetter(c) || isDigit(c) || c == '_'; }
bool startsName(char c) { return isLetter(c) || c == '_'; }
bool continuesName(char c) { return isPlain(c) || c == '.' || c == '$'; }

// --- Expressions ---------------------------------------------------------------------

// Writes an expression that can be evaluated with the names and units of STIL.
class Translation {
 public:
  Translation(const StilEquations& equations, std::string_view text, const std::string& period)
      : equations_(equations), text_(text), period_(period) {}

  std::string run() {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (isDigit(c) || c == '.') {
        number();
      } else if (startsName(c)) {
        const std::size_t begin = at_;
        while (at_ < text_.size() && continuesName(text_[at_])) ++at_;
        name(text_.substr(begin, at_ - begin), followsCall());
      } else if (c == '\'') {
        const std::size_t end = std::min(text_.find('\'', at_ + 1), text_.size());
        name(text_.substr(at_ + 1, end - at_ - 1), false);
        at_ = std::min(end + 1, text_.size());
      } else {
        out_ += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
        ++at_;
      }
    }
    return std::move(out_);
  }

 private:
  bool followsCall() const {
    const std::size_t next = text_.find_first_not_of(" \t\n\v\f\r", at_);
    return next != std::string_view::npos && text_[next] == '(';
  }

  void number() {
    const std::size_t begin = at_;
    Quantity value;
    std::string reason;
    if (!readQuantity(text_, at_, value, reason)) at_ = std::max(at_, begin + 1);
    const std::string_view literal = text_.substr(begin, at_ - begin);
    std::size_t unit = literal.size();
    while (unit > 0 && isLetter(literal[unit - 1])) --unit;
    out_ += literal.substr(0, unit);
    const auto known = std::ranges::find_if(
        kUnits, [&](std::string_view row) { return PBstrEq(row, literal.substr(unit)); });
    out_ += known != kUnits.end() ? *known : literal.substr(unit);
  }

  void name(std::string_view name, bool function) {
    const auto found = equations_.variables.find(std::string(name));
    if (function) {
      out_ += name;
    } else if (found != equations_.variables.end()) {
      out_ += found->second;
    } else if (name == kOwnPeriod) {
      out_ += period_;
    }
  }

  const StilEquations& equations_;
  std::string_view text_;
  const std::string& period_;
  std::size_t at_ = 0;
  std::string out_;
};

// As STIL writes a time.
std::string timeText(TIME time) { return time == TIME_ZERO ? "0ns" : PBtimeText(time); }

bool givesTime(StilEquations& equations, const std::string& expression, TIME time) {
  Quantity value;
  ExpressionError error;
  std::string reason;
  TIME result;
  return equations.scope->evaluate(expression, value, error) &&
         quantityToTime(value, result, reason) && result == time;
}

// --- Variables -----------------------------------------------------------------------

struct VariablePlace {
  std::size_t sheet = kNotFound;
  std::size_t row = kNotFound;
};

std::size_t selectedSet(const ssSheet& sheet) {
  return sheet.sets.empty() ? kNotFound : sheet.selectedSet;
}

VariablePlace findVariable(const ssData& data, const std::string& name) {
  if (data.sheets.empty()) return {};
  const std::size_t own = data.sheets[data.selectedSheet].variables.find(name);
  if (own != kNotFound) return {data.selectedSheet, own};
  for (std::size_t i = 0; i < data.sheets.size(); ++i) {
    const std::size_t row = data.sheets[i].variables.find(name);
    if (row != kNotFound) return {i, row};
  }
  return {};
}

// Calls `take` with each expression of the sheets.
void eachExpression(const ssData& data, const std::function<void(const std::string&)>& take) {
  for (const ssSheet& sheet : data.sheets) {
    for (const ssVariable& variable : sheet.variables) take(variable.expression);
    for (const ssSet& set : sheet.sets) {
      for (const auto& [row, item] : set.items) {
        if (item.expression) take(*item.expression);
      }
    }
  }
}

bool isUsed(const StilExport& stil, const std::string& variable) {
  bool used = false;
  const auto look = [&](const std::string& text) {
    used = used || text.find(variable) != std::string::npos;
  };
  eachExpression(stil.equations.data, look);
  for (const auto& plate : stil.plates) {
    if (plate == nullptr || plate->plate->levels.empty()) continue;
    for (const PVBtrack& track : plate->plate->levels.front().tracks) {
      for (const auto& expression : track.eventExprs) look(expression.value_or(""));
    }
  }
  return used;
}

bool differsInSets(const ssSheet& sheet, std::size_t row) {
  return std::ranges::any_of(sheet.sets, [row](const ssSet& set) {
    const auto item = set.items.find(row);
    return item != set.items.end() && !ssHoldsNothing(item->second);
  });
}

std::optional<std::string> periodExpression(StilEquations& equations, const PVBtimePlate& plate) {
  if (!plate.name) return std::nullopt;
  const VariablePlace place =
      findVariable(equations.data, std::string(*plate.name) + std::string(kPeriodEnding));
  if (place.sheet == kNotFound) return std::nullopt;
  const ssSheet& sheet = equations.data.sheets[place.sheet];
  return ssExpression(sheet, selectedSet(sheet), place.row);
}

void takePeriods(StilExport& stil) {
  for (const auto& plate : stil.plates) {
    if (plate == nullptr) continue;
    const auto expression = periodExpression(stil.equations, *plate->plate);
    if (!expression || !givesTime(stil.equations, *expression, plate->plate->period)) continue;
    const std::string variable = *plate->plate->name + std::string(kPeriodEnding);
    const VariablePlace place = findVariable(stil.equations.data, variable);
    const bool needed =
        differsInSets(stil.equations.data.sheets[place.sheet], place.row) || isUsed(stil, variable);
    if (!needed) stil.equations.periods.insert(variable);
  }
}

void nameVariables(StilEquations& equations) {
  StilNameTable names;
  for (const ssSheet& sheet : equations.data.sheets) {
    for (const ssVariable& variable : sheet.variables) {
      if (equations.variables.contains(variable.name)) continue;
      const std::string name = names.take(variable.name, kNullVariable);
      const bool plain = startsName(name.front()) && std::ranges::all_of(name, isPlain);
      equations.variables.emplace(variable.name, plain ? name : stilQuoted(name));
    }
  }
}

// --- Categories ----------------------------------------------------------------------

// One name is selected or not in all Specs together: a set that isn't, of a name that
// is elsewhere, is written under another one.
void nameCategories(StilEquations& equations) {
  const ssData& data = equations.data;
  StilNameTable names;
  std::unordered_map<std::string, std::string> chosen;
  const auto take = [&](const std::string& name) {
    const auto [place, isNew] = chosen.try_emplace(name);
    if (isNew) place->second = names.take(name, "category");
    return place->second;
  };
  for (const ssSheet& sheet : data.sheets) {
    equations.categories.emplace_back(std::max<std::size_t>(sheet.sets.size(), 1));
    const std::size_t selected = selectedSet(sheet);
    equations.categories.back()[selected == kNotFound ? 0 : selected] =
        take(selected == kNotFound ? "" : sheet.sets[selected].name);
  }
  for (std::size_t i = 0; i < data.sheets.size(); ++i) {
    const ssSheet& sheet = data.sheets[i];
    for (std::size_t set = 0; set < sheet.sets.size(); ++set) {
      if (set == sheet.selectedSet) continue;
      const std::string& name = sheet.sets[set].name;
      equations.categories[i][set] =
          chosen.contains(name) ? names.take(sheet.name + "." + name, {}) : names.take(name, {});
    }
  }
}

// --- Specs ---------------------------------------------------------------------------

class SpecText {
 public:
  SpecText(StilExport& stil, std::size_t sheet)
      : stil_(stil), index_(sheet), sheet_(stil.equations.data.sheets[sheet]) {}

  void write() {
    stil_.line(sheet_.name.empty()
                   ? "Spec {"
                   : fmt::format("Spec {} {{", stilQuoted(names_.take(sheet_.name, {}))));
    for (std::size_t set = 0; set < stil_.equations.categories[index_].size(); ++set) {
      stil_.equations.scope->select(index_, sheet_.sets.empty() ? kNotFound : set);
      stil_.line(
          fmt::format("  Category {} {{", stilQuoted(stil_.equations.categories[index_][set])));
      for (std::size_t row = 0; row < sheet_.variables.size(); ++row) variable(set, row);
      stil_.line("  }");
    }
    stil_.line("}");
  }

 private:
  void variable(std::size_t set, std::size_t row) {
    const ssVariable& variable = sheet_.variables[row];
    if (stil_.equations.periods.contains(variable.name)) return;
    const std::string& expression =
        ssExpression(sheet_, sheet_.sets.empty() ? kNotFound : set, row);
    Quantity value;
    ExpressionError error;
    if (!stil_.equations.scope->evaluate(expression, value, error)) {
      stil_.leaveOut(kBadExpressions);
      return;
    }
    const std::string text = Translation(stil_.equations, expression, {}).run();
    const std::string limits = attributes(set, row);
    const std::string& name = stil_.equations.variables.at(variable.name);
    stil_.line(limits.empty() ? fmt::format("    {} = '{}';", name, text)
                              : fmt::format("    {} {{ Typ '{}';{} }}", name, text, limits));
  }

  std::string attributes(std::size_t set, std::size_t row) {
    if (sheet_.sets.empty()) return {};
    const auto item = sheet_.sets[set].items.find(row);
    if (item == sheet_.sets[set].items.end()) return {};
    const Dimension dimension = typeDimension(sheet_.variables[row].type);
    return attribute("Min", item->second.minimum, dimension) +
           attribute("Max", item->second.maximum, dimension) +
           attribute("Meas", item->second.measured, dimension);
  }

  std::string attribute(std::string_view word, const ssValue& value, Dimension dimension) {
    if (value.code == kValueUndefined) return {};
    if (value.code == kValueText || !std::isfinite(value.number)) {
      stil_.leaveOut("values of variables that aren't numbers");
      return {};
    }
    const std::string text = quantityText(quantityOfNumber(value.number, dimension));
    const std::string sign = text.starts_with('-') ? "-" : "";
    return fmt::format(
        " {} '{}{}';", word, sign,
        Translation(stil_.equations, std::string_view(text).substr(sign.size()), {}).run());
  }

  StilExport& stil_;
  std::size_t index_;
  const ssSheet& sheet_;
  StilNameTable names_;
};

}  // namespace

bool stilReadEquations(StilExport& stil) {
  std::optional<ssData> data = ssOpen(PVBpath(stil.database));
  if (!data) return stil.refuse("the equations can't be read");
  StilEquations& equations = stil.equations;
  equations.data = std::move(*data);
  equations.scope = std::make_unique<ExpressionScope>(equations.data);
  nameVariables(equations);
  nameCategories(equations);
  takePeriods(stil);
  return true;
}

void stilWriteSpecs(StilExport& stil) {
  const ssData& data = stil.equations.data;
  for (std::size_t i = 0; i < data.sheets.size(); ++i) {
    if (!data.sheets[i].variables.empty()) SpecText(stil, i).write();
  }
  if (data.sheets.empty()) return;
  stil.equations.scope->select(data.selectedSheet, selectedSet(data.sheets[data.selectedSheet]));
}

void stilWriteExec(StilExport& stil) {
  stil.line(fmt::format("PatternBurst {} {{", stilQuoted(kBurst)));
  stil.line(fmt::format("  PatList {{ {}; }}", stilQuoted(kStilPattern)));
  stil.line("}");
  stil.line("PatternExec {");
  const ssData& data = stil.equations.data;
  std::vector<std::string> categories;
  for (std::size_t i = 0; i < data.sheets.size(); ++i) {
    if (data.sheets[i].variables.empty()) continue;
    const std::size_t selected = selectedSet(data.sheets[i]);
    const std::string& name = stil.equations.categories[i][selected == kNotFound ? 0 : selected];
    if (std::ranges::find(categories, name) != categories.end()) continue;
    categories.insert(i == data.selectedSheet ? categories.begin() : categories.end(), name);
  }
  for (const std::string& name : categories) {
    stil.line(fmt::format("  Category {};", stilQuoted(name)));
  }
  stil.line(fmt::format("  PatternBurst {};", stilQuoted(kBurst)));
  stil.line("}");
}

std::string stilTime(StilExport& stil, TIME time, const std::optional<std::string>& expression,
                     TIME period) {
  const std::string plain = timeText(time);
  if (!expression) return fmt::format("'{}'", plain);
  stil.equations.scope->setLocal(std::string(kOwnPeriod), quantityOfTime(period));
  if (!givesTime(stil.equations, *expression, time)) {
    stil.leaveOut(kBadExpressions);
    return fmt::format("'{}'", plain);
  }
  return fmt::format("'{}'", Translation(stil.equations, *expression, timeText(period)).run());
}

std::string stilPeriod(StilExport& stil, const StilPlate& plate) {
  return stilTime(stil, plate.plate->period, periodExpression(stil.equations, *plate.plate),
                  plate.plate->period);
}
