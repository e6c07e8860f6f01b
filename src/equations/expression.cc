#include "equations/expression.h"

#include <fmt/format.h>

#include <array>
#include <span>

#include "equations/expression_internal.h"

namespace {

// Names of a circle that a message shows from each end.
constexpr std::size_t kShownNames = 4;

// By ssType.
constexpr std::array<Dimension, 6> kTypeDimensions = {Dimension{},       Dimension{},
                                                      kTimeDimension,    kFrequencyDimension,
                                                      kVoltageDimension, kCurrentDimension};

bool fitsType(ssType type, Quantity& value) {
  if (type == ssType::any) return true;
  const Dimension wanted = typeDimension(type);
  if (value.plainZero()) value.dimension = wanted;
  return value.dimension == wanted;
}

}  // namespace

Dimension typeDimension(ssType type) { return kTypeDimensions[static_cast<std::size_t>(type)]; }

// A variable that was evaluated, or is being.
struct ExpressionScope::Memo {
  enum { active, done, failed } state = active;
  ssType type = ssType::any;
  Quantity value;
  std::shared_ptr<const ExpressionError> error;
};

std::string expressionErrorText(const ExpressionError& error) {
  if (error.variable.empty()) return fmt::format("column {}: {}", error.column, error.text);
  return fmt::format("variable \"{}\", column {}: {}", error.variable, error.column, error.text);
}

// --- Evaluation ----------------------------------------------------------------------

// One evaluation: the expressions under way, each waiting for the one above it, and the
// values that their steps have left.
class Evaluation {
 public:
  Evaluation(ExpressionScope& scope, ExpressionError& error) : scope_(scope), error_(error) {}

  bool text(std::string_view text, Quantity& value) {
    frames_.emplace_back();
    if (!parseExpression(text, frames_.back().steps, error_)) return false;
    return run(value);
  }

  bool variable(const std::string& name, Quantity& value) {
    if (!enter(name, 1)) return failAll();
    return run(value);
  }

 private:
  struct Frame {
    std::string variable;  // empty for the text itself
    ExpressionScope::Memo* memo = nullptr;
    std::vector<ExpressionStep> steps;
    std::size_t next = 0;
  };

  bool run(Quantity& value) {
    while (!frames_.empty()) {
      const bool ended = frames_.back().next == frames_.back().steps.size();
      if (!(ended ? leave() : step())) return failAll();
    }
    value = values_.back();
    return true;
  }

  // A step may put a frame on top, so the one it belongs to is moved on first.
  bool step() {
    Frame& frame = frames_.back();
    const ExpressionStep& step = frame.steps[frame.next++];
    if (step.function != nullptr) return call(step);
    if (step.name.data() != nullptr) return name(std::string(step.name), step.column);
    values_.push_back(step.literal);
    return true;
  }

  bool fail(std::string text, std::size_t column) {
    error_ = {std::move(text), column, frames_.empty() ? "" : shownName(frames_.back().variable)};
    return false;
  }

  bool call(const ExpressionStep& step) {
    const std::size_t first = values_.size() - step.count;
    Quantity result;
    std::string reason;
    const auto arguments = std::span<const Quantity>(values_).subspan(first);
    if (!step.function->apply(arguments, result, reason)) return fail(reason, step.column);
    values_.resize(first);
    values_.push_back(result);
    return true;
  }

  bool name(const std::string& name, std::size_t column) {
    const bool ofText = frames_.back().memo == nullptr;
    const auto local = ofText ? scope_.locals_.find(name) : scope_.locals_.end();
    if (local == scope_.locals_.end() || scope_.find(name)) return enter(name, column);
    values_.push_back(local->second);
    return true;
  }

  // Takes the variable's value, or begins with its expression.
  bool enter(const std::string& name, std::size_t column) {
    const std::optional<ExpressionScope::Place> place = scope_.find(name);
    if (!place) return fail(fmt::format("there is no variable \"{}\"", shownName(name)), column);
    const auto [memo, fresh] = scope_.memo_.try_emplace(name);
    if (fresh) {
      memo->second = std::make_unique<ExpressionScope::Memo>();
      return begin(name, *place, *memo->second);
    }
    const ExpressionScope::Memo& known = *memo->second;
    if (known.state == ExpressionScope::Memo::active) return fail(circle(name), column);
    if (known.state == ExpressionScope::Memo::done) {
      values_.push_back(known.value);
      return true;
    }
    error_ = *known.error;
    return false;
  }

  bool begin(const std::string& name, ExpressionScope::Place place, ExpressionScope::Memo& memo) {
    memo.type = scope_.data_.sheets[place.sheet].variables[place.row].type;
    Frame& frame = frames_.emplace_back();
    frame.variable = name;
    frame.memo = &memo;
    if (parseExpression(scope_.expression(place), frame.steps, error_)) return true;
    error_.variable = shownName(name);
    return false;
  }

  bool leave() {
    Frame& frame = frames_.back();
    if (frame.memo != nullptr) {
      ExpressionScope::Memo& memo = *frame.memo;
      if (!fitsType(memo.type, values_.back())) {
        return fail(fmt::format("the expression gives {} where a {} is expected",
                                dimensionText(values_.back().dimension), ssTypeWord(memo.type)),
                    1);
      }
      memo.value = values_.back();
      memo.state = ExpressionScope::Memo::done;
    }
    frames_.pop_back();
    return true;
  }

  // What waits for a value that can't be had has failed for the same reason.
  bool failAll() {
    const auto error = std::make_shared<const ExpressionError>(error_);
    for (Frame& frame : frames_) {
      if (frame.memo == nullptr) continue;
      frame.memo->state = ExpressionScope::Memo::failed;
      frame.memo->error = error;
    }
    return false;
  }

  std::string circle(const std::string& name) const {
    std::size_t first = 0;
    while (frames_[first].variable != name) ++first;
    const std::size_t count = frames_.size() - first;
    std::string text = "circular reference: ";
    for (std::size_t i = 0; i < count; ++i) {
      const bool shown = i < kShownNames || i + kShownNames >= count;
      if (shown) text.append(shownName(frames_[first + i].variable)).append(" -> ");
      if (!shown && i == kShownNames) text += "... -> ";
    }
    return text + shownName(name);
  }

  ExpressionScope& scope_;
  ExpressionError& error_;
  std::vector<Frame> frames_;
  std::vector<Quantity> values_;
};

// --- Scope ---------------------------------------------------------------------------

ExpressionScope::ExpressionScope(const ssData& data) : data_(data) {
  for (std::size_t sheet = 0; sheet < data.sheets.size(); ++sheet) {
    const auto& variables = data.sheets[sheet].variables;
    for (std::size_t row = 0; row < variables.size(); ++row) {
      others_.try_emplace(variables[row].name, Place{sheet, row});
    }
  }
  if (data.sheets.empty()) return;
  select(data.selectedSheet, data.sheets[data.selectedSheet].selectedSet);
}

ExpressionScope::~ExpressionScope() = default;

void ExpressionScope::select(std::size_t sheet, std::size_t set) {
  sheet_ = sheet;
  set_ = set;
  memo_.clear();
}

void ExpressionScope::setLocal(std::string name, const Quantity& value) {
  locals_.insert_or_assign(std::move(name), value);
}

std::optional<ExpressionScope::Place> ExpressionScope::find(const std::string& name) const {
  if (sheet_ < data_.sheets.size()) {
    const std::size_t row = data_.sheets[sheet_].variables.find(name);
    if (row != kNotFound) return Place{sheet_, row};
  }
  const auto other = others_.find(name);
  if (other == others_.end()) return std::nullopt;
  return other->second;
}

const std::string& ExpressionScope::expression(Place place) const {
  const ssSheet& sheet = data_.sheets[place.sheet];
  return ssExpression(sheet, place.sheet == sheet_ ? set_ : sheet.selectedSet, place.row);
}

bool ExpressionScope::has(std::string_view variable) const {
  return find(std::string(variable)).has_value();
}

bool ExpressionScope::variable(std::string_view name, Quantity& value, ExpressionError& error) {
  return Evaluation(*this, error).variable(std::string(name), value);
}

bool ExpressionScope::evaluate(std::string_view text, Quantity& value, ExpressionError& error) {
  return Evaluation(*this, error).text(text, value);
}
