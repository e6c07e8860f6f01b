#pragma once

// An expression as steps for a stack of values, what the parser gives the evaluation.

#include <string_view>
#include <vector>

#include "equations/expression.h"
#include "equations/quantity_internal.h"

struct ExpressionStep {
  std::size_t column = 0;  // from 1
  // One of three: a call, which takes `count` values from the stack, a name, a literal.
  const QuantityFunction* function = nullptr;
  std::size_t count = 0;
  std::string_view name;
  Quantity literal;
};

// The steps leave one value. Names are views into `text`.
bool parseExpression(std::string_view text, std::vector<ExpressionStep>& steps,
                     ExpressionError& error);
