#include "tools/stil_names.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/stil_range.h"

namespace {

using SignalList = std::vector<std::uint32_t>;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool endsName(char c) {
  return isBlank(c) || c == '+' || c == '-' || c == '(' || c == ')' || c == '"';
}

}  // namespace

// One search: groups within groups, and an expression as it is read.
class StilNameSearch {
 public:
  StilNameSearch(StilNames& names, std::string& problem) : names_(names), problem_(problem) {}

  bool reference(const StilReference& reference, StilTarget& target) {
    if (reference.expression) return expression(reference.text, target.signals);
    return name(reference.text, target);
  }

 private:
  // Text of an expression that hasn't been read yet.
  struct Rest {
    std::string_view text;
    int depth = 0;

    void skipBlanks() {
      while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    }
    bool take(char c) {
      skipBlanks();
      if (text.empty() || text.front() != c) return false;
      text.remove_prefix(1);
      return true;
    }
  };

  bool fail(std::string text) {
    problem_ = std::move(text);
    return false;
  }

  // --- Expressions ---

  bool expression(std::string_view text, SignalList& signals) {
    Rest rest{text};
    if (!sum(rest, signals)) return false;
    rest.skipBlanks();
    if (rest.text.empty()) return true;
    return fail(fmt::format("'+' or '-' is expected before '{}'", shown(rest.text)));
  }

  // The mark of a list is good while no other list was marked.
  bool sum(Rest& rest, SignalList& signals) {
    if (!term(rest, signals)) return false;
    std::uint64_t mark = 0;
    SignalList operand;
    for (;;) {
      const bool plus = rest.take('+');
      if (!plus && !rest.take('-')) return true;
      if (!term(rest, operand)) return false;
      if (!(plus ? add(signals, operand, mark) : takeAway(signals, operand))) return false;
    }
  }

  bool term(Rest& rest, SignalList& signals) {
    if (rest.take('(')) {
      if (++rest.depth > StilNames::kDeepest) return fail("brackets are nested too deep");
      if (!sum(rest, signals)) return false;
      --rest.depth;
      return rest.take(')') || fail("')' is missing");
    }
    std::string text;
    if (!readName(rest, text)) return false;
    StilTarget target;
    if (!name(text, target)) return false;
    signals = std::move(target.signals);
    return true;
  }

  // A name, quoted or not; strings joined by "." and a range behind a string belong to it.
  bool readName(Rest& rest, std::string& text) {
    rest.skipBlanks();
    while (rest.text.starts_with('"')) {
      const std::size_t end = rest.text.find('"', 1);
      if (end == std::string_view::npos) return fail("'\"' is missing");
      text += rest.text.substr(1, end - 1);
      rest.text.remove_prefix(end + 1);
      if (!rest.text.starts_with(".\"")) break;
      rest.text.remove_prefix(1);
    }
    const bool plain = text.empty() || rest.text.starts_with('[');
    while (plain && !rest.text.empty() && !endsName(rest.text.front())) {
      text += rest.text.front();
      rest.text.remove_prefix(1);
    }
    return !text.empty() || fail("a name is expected in the expression");
  }

  static std::string_view shown(std::string_view text) { return text.substr(0, 40); }

  std::uint64_t markAll(const SignalList& signals) {
    const std::uint64_t mark = ++names_.marks_;
    for (const std::uint32_t signal : signals) names_.marked_[signal] = mark;
    return mark;
  }

  bool add(SignalList& signals, const SignalList& operand, std::uint64_t& mark) {
    if (mark != names_.marks_ || mark == 0) {
      if (!step(signals.size())) return false;
      mark = markAll(signals);
    }
    for (const std::uint32_t signal : operand) {
      if (names_.marked_[signal] != mark) signals.push_back(signal);
      names_.marked_[signal] = mark;
    }
    return step(operand.size());
  }

  bool takeAway(SignalList& signals, const SignalList& operand) {
    if (!step(signals.size() + operand.size())) return false;
    const std::uint64_t mark = markAll(operand);
    std::erase_if(signals, [&](std::uint32_t signal) { return names_.marked_[signal] == mark; });
    return true;
  }

  bool step(std::size_t count) {
    names_.steps_ += count + 1;
    return names_.steps_ <= StilNames::kMostSteps ||
           fail("the references to signals name too many");
  }

  // --- Names ---

  bool name(std::string_view text, StilTarget& target) {
    const auto signal = names_.signals_.find(text);
    if (signal != names_.signals_.end()) {
      target.signals = {signal->second};
      target.attributes = &names_.model_.signals[signal->second].attributes;
      return step(1);
    }
    const auto group = names_.groups_.find(text);
    if (group != names_.groups_.end()) return members(group->second, target);
    if (const auto range = stilRange(text)) return ranged(text, *range, target);
    const auto bus = names_.buses_.find(text);
    if (bus == names_.buses_.end()) return unknown(text);
    target.signals = bus->second;
    return step(bus->second.size());
  }

  bool unknown(std::string_view text) {
    return fail(fmt::format("there is no signal and no group \"{}\"", shown(text)));
  }

  bool ranged(std::string_view text, const StilRange& range, StilTarget& target) {
    if (range.size() > names_.signals_.size()) return unknown(text);
    if (!step(static_cast<std::size_t>(range.size()))) return false;
    for (std::uint64_t i = 0; i < range.size(); ++i) {
      const std::string part = range.name(i);
      const auto signal = names_.signals_.find(part);
      if (signal == names_.signals_.end()) return unknown(part);
      target.signals.push_back(signal->second);
    }
    return true;
  }

  bool members(StilNames::Group& group, StilTarget& target) {
    if (group.target == nullptr && !search(group)) return false;
    target = *group.target;
    return step(target.signals.size());
  }

  bool search(StilNames::Group& group) {
    const std::string& name = group.group->name;
    if (group.searched) return fail(fmt::format("the group \"{}\" contains itself", shown(name)));
    if (depth_ >= StilNames::kDeepest) return fail("groups are nested too deep");
    auto target = std::make_unique<StilTarget>();
    group.searched = true;
    ++depth_;
    const bool found = reference(group.group->members, *target);
    --depth_;
    group.searched = false;
    if (!found) return false;
    target->attributes = &group.group->attributes;
    group.target = std::move(target);
    return true;
  }

  StilNames& names_;
  std::string& problem_;
  int depth_ = 0;
};

StilNames::StilNames(const StilModel& model, std::span<const std::string> domains)
    : model_(model), marked_(model.signals.size()) {
  for (std::uint32_t i = 0; i < model.signals.size(); ++i) {
    const std::string_view name = model.signals[i].name;
    signals_.emplace(name, i);
    const std::string_view bus = stilBusName(name);
    if (!bus.empty()) buses_[bus].push_back(i);
  }
  const auto addDomain = [&](std::string_view domain) {
    for (const StilGroup& group : model.groups) {
      if (group.domain == domain) groups_.try_emplace(group.name, &group);
    }
  };
  for (const std::string& domain : domains) addDomain(domain);
  addDomain("");
}

const StilTarget* StilNames::find(const StilReference& reference, std::string& problem) {
  if (reference.number < found_.size() && found_[reference.number] != nullptr) {
    return found_[reference.number].get();
  }
  auto target = std::make_unique<StilTarget>();
  if (!StilNameSearch(*this, problem).reference(reference, *target)) return nullptr;
  if (reference.number >= found_.size()) found_.resize(reference.number + std::size_t{1});
  found_[reference.number] = std::move(target);
  return found_[reference.number].get();
}

std::int64_t StilNames::signal(std::string_view name) const {
  const auto signal = signals_.find(name);
  return signal != signals_.end() ? static_cast<std::int64_t>(signal->second) : -1;
}
