// Operators wait on a stack of their own, so that nesting costs memory only.

#include <fmt/format.h>

#include <array>

#include "equations/expression_internal.h"

namespace {

constexpr int kSignPrecedence = 3;

struct OperatorRow {
  char character;
  std::string_view function;
  int precedence;
};
constexpr std::array<OperatorRow, 4> kOperators = {
    {{'+', "+", 1}, {'-', "-", 1}, {'*', "*", 2}, {'/', "/", 2}}};

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool startsName(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool continuesName(char c) { return startsName(c) || isDigit(c) || c == '.' || c == '$'; }

// An operator whose right side isn't complete, or something open.
struct Pending {
  enum Kind { operation, parenthesis, call } kind;
  std::size_t column;
  const QuantityFunction* function;
  int precedence;
  std::size_t arguments;  // of a call, so far
};

class Parser {
 public:
  Parser(std::string_view text, std::vector<ExpressionStep>& steps, ExpressionError& error)
      : text_(text), steps_(steps), error_(error) {}

  bool run() {
    for (skipBlanks(); place_ < text_.size(); skipBlanks()) {
      if (!(operandNext_ ? operand() : operation())) return false;
    }
    if (operandNext_) return fail("a value is expected");
    emitDownTo(0);
    if (pending_.empty()) return true;
    place_ = pending_.back().column - 1;
    return fail("the parenthesis isn't closed");
  }

 private:
  bool fail(std::string reason) {
    error_ = {std::move(reason), place_ + 1, {}};
    return false;
  }
  void skipBlanks() {
    while (place_ < text_.size() && isBlank(text_[place_])) ++place_;
  }
  char peek() const { return place_ < text_.size() ? text_[place_] : '\0'; }

  bool operand() {
    const char c = text_[place_];
    if (isDigit(c) || c == '.') return literal();
    if (startsName(c)) return name();
    if (c == '\'') return quotedName();
    if (c == '(') return open({Pending::parenthesis, place_ + 1, nullptr, 0, 0});
    if (c != '-' && c != '+') return fail("a value is expected");
    if (c == '-') {
      pending_.push_back(
          {Pending::operation, place_ + 1, quantityFunction("neg"), kSignPrecedence, 1});
    }
    ++place_;
    return true;
  }

  bool open(const Pending& pending) {
    pending_.push_back(pending);
    ++place_;
    return true;
  }

  bool literal() {
    ExpressionStep step;
    step.column = place_ + 1;
    std::string reason;
    if (!readQuantity(text_, place_, step.literal, reason)) return fail(reason);
    steps_.push_back(step);
    operandNext_ = false;
    return true;
  }

  void pushName(std::size_t begin, std::string_view name) {
    ExpressionStep step;
    step.column = begin + 1;
    step.name = name;
    steps_.push_back(step);
    operandNext_ = false;
  }

  bool name() {
    const std::size_t begin = place_;
    while (place_ < text_.size() && continuesName(text_[place_])) ++place_;
    const std::string_view name = text_.substr(begin, place_ - begin);
    skipBlanks();
    if (peek() != '(') {
      pushName(begin, name);
      return true;
    }
    const QuantityFunction* function = name != "neg" ? quantityFunction(name) : nullptr;
    if (function != nullptr) return open({Pending::call, begin + 1, function, 0, 1});
    place_ = begin;
    return fail(fmt::format("there is no function \"{}\"", shownName(name)));
  }

  bool quotedName() {
    const std::size_t begin = place_;
    const std::size_t end = text_.find('\'', begin + 1);
    if (end == std::string_view::npos) return fail("the name has no closing quote");
    place_ = end + 1;
    pushName(begin, text_.substr(begin + 1, end - begin - 1));
    return true;
  }

  bool operation() {
    const char c = text_[place_];
    if (c == ')') return close();
    if (c == ',') return comma();
    for (const OperatorRow& row : kOperators) {
      if (row.character != c) continue;
      emitDownTo(row.precedence);
      operandNext_ = true;
      return open(
          {Pending::operation, place_ + 1, quantityFunction(row.function), row.precedence, 2});
    }
    return fail("an operator is expected");
  }

  // Operators above the last thing open that bind at least as much.
  void emitDownTo(int precedence) {
    while (!pending_.empty() && pending_.back().kind == Pending::operation &&
           pending_.back().precedence >= precedence) {
      emit(pending_.back());
      pending_.pop_back();
    }
  }

  void emit(const Pending& pending) {
    ExpressionStep step;
    step.column = pending.column;
    step.function = pending.function;
    step.count = pending.arguments;
    steps_.push_back(step);
  }

  bool comma() {
    emitDownTo(0);
    if (pending_.empty() || pending_.back().kind != Pending::call) {
      return fail("a comma belongs between the arguments of a function");
    }
    ++pending_.back().arguments;
    ++place_;
    operandNext_ = true;
    return true;
  }

  bool close() {
    emitDownTo(0);
    if (pending_.empty()) return fail("the parenthesis was never opened");
    const Pending top = pending_.back();
    pending_.pop_back();
    ++place_;
    if (top.kind == Pending::parenthesis) return true;
    const QuantityFunction& function = *top.function;
    if (top.arguments < function.least || top.arguments > function.most) {
      place_ = top.column - 1;
      return fail(fmt::format("\"{}\" doesn't take {} argument{}", function.name, top.arguments,
                              top.arguments == 1 ? "" : "s"));
    }
    emit(top);
    return true;
  }

  std::string_view text_;
  std::vector<ExpressionStep>& steps_;
  ExpressionError& error_;
  std::vector<Pending> pending_;
  std::size_t place_ = 0;
  bool operandNext_ = true;
};

}  // namespace

bool parseExpression(std::string_view text, std::vector<ExpressionStep>& steps,
                     ExpressionError& error) {
  steps.clear();
  return Parser(text, steps, error).run();
}
