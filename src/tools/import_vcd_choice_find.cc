// What names and patterns of the options stand for.

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "tools/import_vcd_choice_internal.h"
#include "tools/nearest.h"

namespace {

constexpr std::size_t kLongestAlike = 100;  // of names that are looked at for a like one
constexpr std::int64_t kAllBits = std::int64_t{1} << 40;  // in place of the index of one

// Whether `pattern`, in which * stands for any text, is all of `text`.
bool matches(std::string_view pattern, std::string_view text) {
  std::size_t p = 0, t = 0, star = std::string_view::npos, resume = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      resume = t;
    } else if (p < pattern.size() && pattern[p] == text[t]) {
      ++p;
      ++t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++resume;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool isConstant(const VcdVar& var) { return var.type.find("parameter") != std::string::npos; }

// "[3]" at the end of a name, which is cut off.
std::optional<std::int32_t> cutIndex(std::string_view& name) {
  const std::size_t bracket = name.rfind('[');
  if (bracket == std::string_view::npos || bracket == 0 || name.back() != ']') return {};
  std::int32_t index = 0;
  const char* const end = name.data() + name.size() - 1;
  const auto [stop, error] = std::from_chars(name.data() + bracket + 1, end, index);
  if (error != std::errc() || stop != end) return {};
  name = name.substr(0, bracket);
  return index;
}

}  // namespace

// --- Finding -------------------------------------------------------------------------

void VcdChooser::addWanted(const std::vector<std::string>& names, SignalDirection direction,
                           bool clock) {
  for (const std::string& name : names) {
    wanted_.push_back({name, direction, clock, name.find('*') != std::string::npos});
  }
}

void VcdChooser::enterEndings(std::size_t wanted, std::string_view name) {
  for (std::size_t begin = 0; begin != std::string_view::npos;) {
    std::vector<std::size_t>& list = endings_[name.substr(begin)];
    if (list.empty() || list.back() != wanted) list.push_back(wanted);
    begin = name.find('.', begin);
    if (begin != std::string_view::npos) ++begin;
  }
}

// One pass over the variables; what is wanted is looked up by each one's own name.
void VcdChooser::find() {
  for (std::size_t i = 0; i < wanted_.size(); ++i) {
    if (wanted_[i].pattern) continue;
    std::string_view name = wanted_[i].text;
    enterEndings(i, name);
    if (cutIndex(name)) enterEndings(i, name);
  }
  found_.resize(wanted_.size());
  for (std::size_t var = 0; var < header_.vars.size(); ++var) {
    const auto entry = endings_.find(header_.vars[var].name);
    if (entry != endings_.end()) findNames(var, entry->second);
  }
}

// Which of the names that end like the variable's own are its whole path or an end of it,
// or name a bit of it.
void VcdChooser::findNames(std::size_t var, const std::vector<std::size_t>& wanted) {
  std::string name;
  if (!nameOf(var, name)) return;
  for (const std::size_t i : wanted) {
    std::string_view text = wanted_[i].text;
    std::optional<std::int32_t> index;
    if (!name.ends_with(text)) {
      index = cutIndex(text);
      const auto [left, right] = vcdBounds(header_.vars[var]);
      if (!index || !name.ends_with(text)) continue;
      if (*index < std::min(left, right) || *index > std::max(left, right)) continue;
    }
    if (name.size() == text.size()) {
      found_[i].whole.push_back({var, i, index});
    } else if (name[name.size() - text.size() - 1] == '.') {
      found_[i].ending.push_back({var, i, index});
    }
  }
}

bool VcdChooser::unknown(std::string_view name) {
  std::vector<std::string_view> names;
  bool any = false;
  for (const VcdVar& var : header_.vars) {
    if (!useScope(var.scope)) continue;
    any = true;
    if (var.name.size() <= kLongestAlike) names.push_back(var.name);
  }
  if (!any && !cut_.empty()) return refuse(fmt::format("no variable is below '{}'", cut_));
  const std::string_view own = name.substr(name.rfind('.') + 1);
  return refuse(fmt::format("no variable{} is called '{}'{}",
                            cut_.empty() ? "" : fmt::format(" below '{}'", cut_), name,
                            didYouMean(own, names)));
}

bool VcdChooser::ambiguous(std::string_view name, const std::vector<VcdTaken>& found) {
  std::string text = fmt::format("'{}' stands for several variables:", name);
  for (std::size_t i = 0; i < found.size() && i < kVcdNamesShown; ++i) {
    text += (i > 0 ? ", " : " ") + shown(found[i].var);
  }
  return refuse(text + "; give more of its path, or --scope");
}

// The variables that a plain name means: one, or the pieces of a vector; names of one
// net are as one.
bool VcdChooser::settlePlain(std::size_t wanted, const VcdFound& found) {
  const std::vector<VcdTaken>& list = found.whole.empty() ? found.ending : found.whole;
  const std::string_view name = wanted_[wanted].text;
  if (list.empty()) return unknown(name);
  const VcdVar& first = header_.vars[list.front().var];
  bool oneNet = true;
  bool pieces = true;
  for (const VcdTaken& taken : list) {
    const VcdVar& var = header_.vars[taken.var];
    oneNet = oneNet && var.net == first.net;
    pieces = pieces && var.ranged && var.scope == first.scope;
  }
  if (oneNet) return take(list.front());
  if (!pieces) return ambiguous(name, list);
  return std::ranges::all_of(list, [this](const VcdTaken& taken) { return take(taken); });
}

bool VcdChooser::take(const VcdTaken& taken) {
  const VcdVar& var = header_.vars[taken.var];
  if (var.kind != VcdKind::bits) {
    reader_.tell(Severity::error, kVcdNotCarried,
                 fmt::format("'{}' is a {} and can't be a signal", shown(taken.var), var.type));
    return false;
  }
  const std::int64_t index = taken.index ? std::int64_t{*taken.index} : kAllBits;
  const auto [place, fresh] = taken_.emplace(std::pair(taken.var, index), list_.size());
  if (fresh) {
    list_.push_back(taken);
    netScopes_.emplace(var.net, var.scope);
    return true;
  }
  VcdTaken& before = list_[place->second];
  if (wanted_[before.wanted].direction != wanted_[taken.wanted].direction) {
    return refuse(fmt::format("'{}' is given two directions", shown(taken.var)));
  }
  if (wanted_[taken.wanted].clock) before.wanted = taken.wanted;
  return true;
}

// Patterns take what no plain name has taken; of the names that a net has in several
// scopes, the first.
void VcdChooser::matchPatterns() {
  std::size_t notCarried = 0;
  std::string name;
  std::unordered_set<std::size_t> named;
  for (const VcdTaken& taken : list_) named.insert(taken.var);
  for (std::size_t var = 0; var < header_.vars.size(); ++var) {
    const VcdVar& record = header_.vars[var];
    if (isConstant(record) || named.contains(var) || !nameOf(var, name)) continue;
    for (std::size_t i = 0; i < wanted_.size(); ++i) {
      const VcdWanted& wanted = wanted_[i];
      if (!wanted.pattern) continue;
      const bool path = wanted.text.find('.') != std::string_view::npos;
      if (!matches(wanted.text, path ? std::string_view(name) : record.name)) continue;
      const auto before = netScopes_.find(record.net);
      if (record.kind != VcdKind::bits) {
        ++notCarried;
      } else if (before == netScopes_.end() || before->second == record.scope) {
        take({var, i, {}});
      }
      break;
    }
  }
  if (notCarried > 0) {
    reader_.tell(Severity::warning, kVcdNotCarried,
                 fmt::format("reals, strings and events aren't taken: {} left out", notCarried));
  }
}
