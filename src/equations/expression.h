#pragma once

// Expressions over the variables of equation data, evaluated with their units.
//
//   numbers    3, 0.5, 2e3, with or without a unit right behind: fS pS nS uS mS S and
//              Hz kHz MHz GHz THz in any case, V kV mV uV nV, A mA uA nA pA as they stand
//   names      letters, digits, `_`, `.` and `$`, not beginning with a digit, `.` or `$`;
//              any other name between single quotes
//   operators  + - * / and the signs, with the usual precedence and parentheses
//   functions  min(a, ...) max(a, ...) abs(a) sqrt(a) mod(a, b) pow(a, n)
//              floor(a) ceil(a) round(a) of plain numbers, round(a, step) ... to the
//              multiples of a step; a tie goes up
//
// Units are tracked: 1 / 10nS is a frequency, 5V + 1nS a mismatch. Only a plain 0 goes
// with everything. Numbers are exact fractions of 64 bits, times counted in
// femtoseconds, so period / 4 and 3 * tck + 0.5nS are exact, and so is what comes back
// whole from 10nS / 3 * 3. A result that doesn't fit, a root that doesn't come out and
// a power that isn't whole go on as a double. Making a TIME rounds to the nearest
// femtosecond, a tie going up.
//
// Names are looked up in the selected sheet first, then in the other sheets in their
// order; each variable has the expression of its sheet's selected set. That holds
// also inside the expressions of variables, whatever their sheet. A variable is
// evaluated once for each selection; nesting and chains of names may have any depth.
//
// Nothing is posted: failure is false with an ExpressionError.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "equations/quantity.h"
#include "equations/spec_data.h"

struct ExpressionError {
  std::string text;
  std::size_t column = 0;  // from 1, in the text or in the variable's expression
  std::string variable;    // that the expression belongs to; empty for the text itself
};
// `variable "tck", column 3: there is no variable "x"`.
std::string expressionErrorText(const ExpressionError& error);

// The unit of a type; `any` has none.
Dimension typeDimension(ssType type);

class ExpressionScope {
 public:
  // Evaluates in the selected sheet. `data` must stay as it is while the scope lives.
  explicit ExpressionScope(const ssData& data);
  ~ExpressionScope();
  ExpressionScope(const ExpressionScope&) = delete;
  ExpressionScope& operator=(const ExpressionScope&) = delete;

  // Evaluates in another sheet, with one of its sets (kNotFound: none) in place of the
  // selected one.
  void select(std::size_t sheet, std::size_t set);
  // A name that texts can use, but not the expressions of variables, where no variable
  // has it.
  void setLocal(std::string name, const Quantity& value);

  bool has(std::string_view variable) const;
  bool variable(std::string_view name, Quantity& value, ExpressionError& error);
  bool evaluate(std::string_view text, Quantity& value, ExpressionError& error);

 private:
  friend class Evaluation;
  struct Place {
    std::size_t sheet;
    std::size_t row;
  };
  struct Memo;

  std::optional<Place> find(const std::string& name) const;
  const std::string& expression(Place place) const;

  const ssData& data_;
  std::unordered_map<std::string, Place> others_;  // the first sheet of each name
  std::unordered_map<std::string, Quantity> locals_;
  std::unordered_map<std::string, std::unique_ptr<Memo>> memo_;  // by name
  std::size_t sheet_ = 0;
  std::size_t set_ = kNotFound;
};
