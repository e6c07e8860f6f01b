// Which variables of a dump become signals: those that the options name, or the ports
// whose states tell a direction.

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "tools/import_vcd_internal.h"
#include "tools/nearest.h"

namespace {

constexpr std::size_t kNamesShown = 8;

// A name that an option gives.
struct Wanted {
  std::string_view text;
  SignalDirection direction = INPUT;
  bool clock = false;
  bool pattern = false;
};

// A variable that is taken, or one bit of it.
struct Taken {
  std::size_t var = 0;
  std::size_t wanted = 0;
  std::optional<std::int32_t> index;  // of the bit
};

// Variables that a plain name stands for, the whole name before its end.
struct Found {
  std::vector<Taken> whole;
  std::vector<Taken> ending;
};

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

struct Bounds {
  std::int64_t left;
  std::int64_t right;
};
Bounds boundsOf(const VcdVar& var) {
  if (var.ranged) return {var.left, var.right};
  return {std::int64_t{var.width} - 1, 0};
}

class Chooser {
 public:
  Chooser(VcdReader& reader, const ImportOptions& options)
      : reader_(reader), header_(reader.header()), options_(options) {}

  bool run(VcdChoice& choice);

 private:
  bool refuse(std::string text) {
    reader_.tell(Severity::error, kVcdNoSignals, std::move(text));
    return false;
  }
  bool useScope(std::int32_t scope);
  // The name of a variable below --scope; false for one that isn't there.
  bool nameOf(std::size_t var, std::string& name);
  std::string shown(std::size_t var);

  void addWanted(const std::vector<std::string>& names, SignalDirection direction, bool clock);
  void find();
  void findPlain(std::size_t var, std::string_view own, bool bit,
                 const std::optional<std::int32_t>& index);
  bool settlePlain(std::size_t wanted, const Found& found);
  bool unknown(std::string_view name);
  bool ambiguous(std::string_view name, const std::vector<Taken>& found);
  void matchPatterns();
  bool take(const Taken& taken);

  bool takePorts();
  bool nothingWanted();

  void shorten();
  bool expand(VcdChoice& choice);
  bool addBits(const Taken& taken, const std::string& name, VcdChoice& choice);

  VcdReader& reader_;
  const VcdHeader& header_;
  const ImportOptions& options_;
  std::vector<Wanted> wanted_;
  // Names and their ends behind a dot, with the names that they belong to.
  std::unordered_map<std::string_view, std::vector<std::size_t>> endings_;
  std::vector<Found> found_;                                           // by name
  std::map<std::pair<std::size_t, std::int64_t>, std::size_t> taken_;  // variable and bit
  std::vector<Taken> list_;
  std::unordered_map<std::uint32_t, std::int32_t> netScopes_;  // where a net was taken
  std::unordered_set<std::string> names_;
  std::size_t columns_ = 0;
  std::string cut_;  // what names are shown without
  std::int32_t pathScope_ = -2;
  std::string path_;
  bool inside_ = false;
};

constexpr std::int64_t kAllBits = std::int64_t{1} << 40;

// --- Names ---------------------------------------------------------------------------

// `path_` becomes that of a scope, as names below --scope begin.
bool Chooser::useScope(std::int32_t scope) {
  if (scope == pathScope_) return inside_;
  pathScope_ = scope;
  vcdScopePath(header_, scope, path_);
  if (cut_.empty()) return inside_ = true;
  inside_ = path_.starts_with(cut_) && (path_.size() == cut_.size() || path_[cut_.size()] == '.');
  if (inside_) path_.erase(0, cut_.size() + 1);
  return inside_;
}

bool Chooser::nameOf(std::size_t var, std::string& name) {
  const VcdVar& record = header_.vars[var];
  if (!useScope(record.scope)) return false;
  name.assign(path_);
  if (!name.empty()) name += '.';
  name += record.name;
  return true;
}

std::string Chooser::shown(std::size_t var) {
  std::string name;
  nameOf(var, name);
  return name;
}

// --- Finding -------------------------------------------------------------------------

void Chooser::addWanted(const std::vector<std::string>& names, SignalDirection direction,
                        bool clock) {
  for (const std::string& name : names) {
    wanted_.push_back({name, direction, clock, name.find('*') != std::string::npos});
  }
}

// One pass over the variables; what is wanted is looked up by each one's own name.
void Chooser::find() {
  for (std::size_t i = 0; i < wanted_.size(); ++i) {
    if (wanted_[i].pattern) continue;
    const auto enter = [&](std::string_view ending) {
      for (std::size_t dot = 0; dot != std::string_view::npos;) {
        std::vector<std::size_t>& list = endings_[ending.substr(dot)];
        if (list.empty() || list.back() != i) list.push_back(i);
        dot = ending.find('.', dot);
        if (dot != std::string_view::npos) ++dot;
      }
    };
    std::string_view name = wanted_[i].text;
    enter(name);
    if (cutIndex(name)) enter(name);
  }
  found_.resize(wanted_.size());
  for (std::size_t var = 0; var < header_.vars.size(); ++var) {
    const auto entry = endings_.find(header_.vars[var].name);
    if (entry == endings_.end()) continue;
    std::string name;
    if (!nameOf(var, name)) continue;
    for (const std::size_t i : entry->second) {
      std::string_view text = wanted_[i].text;
      std::optional<std::int32_t> index;
      if (!name.ends_with(text)) {
        index = cutIndex(text);
        const Bounds bounds = boundsOf(header_.vars[var]);
        if (!index || !name.ends_with(text) || *index < std::min(bounds.left, bounds.right) ||
            *index > std::max(bounds.left, bounds.right)) {
          continue;
        }
      }
      if (name.size() == text.size()) {
        found_[i].whole.push_back({var, i, index});
      } else if (name[name.size() - text.size() - 1] == '.') {
        found_[i].ending.push_back({var, i, index});
      }
    }
  }
}

bool Chooser::unknown(std::string_view name) {
  std::vector<std::string_view> names;
  for (const VcdVar& var : header_.vars) names.push_back(var.name);
  const std::string_view own = name.substr(name.rfind('.') + 1);
  return refuse(fmt::format("no variable{} is called '{}'{}",
                            cut_.empty() ? "" : fmt::format(" below '{}'", cut_), name,
                            didYouMean(own, names)));
}

bool Chooser::ambiguous(std::string_view name, const std::vector<Taken>& found) {
  std::string text = fmt::format("'{}' stands for several variables:", name);
  for (std::size_t i = 0; i < found.size() && i < kNamesShown; ++i) {
    text += (i > 0 ? ", " : " ") + shown(found[i].var);
  }
  return refuse(text + "; give more of its path, or --scope");
}

// The variables that a plain name means: one, or the pieces of a vector; names of one
// net are as one.
bool Chooser::settlePlain(std::size_t wanted, const Found& found) {
  const std::vector<Taken>& list = found.whole.empty() ? found.ending : found.whole;
  const std::string_view name = wanted_[wanted].text;
  if (list.empty()) return unknown(name);
  const VcdVar& first = header_.vars[list.front().var];
  bool oneNet = true;
  bool pieces = true;
  for (const Taken& taken : list) {
    const VcdVar& var = header_.vars[taken.var];
    oneNet = oneNet && var.net == first.net;
    pieces = pieces && var.ranged && var.scope == first.scope;
  }
  if (oneNet) return take(list.front());
  if (!pieces) return ambiguous(name, list);
  return std::ranges::all_of(list, [this](const Taken& taken) { return take(taken); });
}

bool Chooser::take(const Taken& taken) {
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
  Taken& before = list_[place->second];
  if (wanted_[before.wanted].direction != wanted_[taken.wanted].direction) {
    return refuse(fmt::format("'{}' is given two directions", shown(taken.var)));
  }
  if (wanted_[taken.wanted].clock) before.wanted = taken.wanted;
  return true;
}

// Patterns take what no plain name has taken; of the names that a net has in several
// scopes, the first.
void Chooser::matchPatterns() {
  std::size_t notCarried = 0;
  std::string name;
  std::unordered_set<std::size_t> named;
  for (const Taken& taken : list_) named.insert(taken.var);
  for (std::size_t var = 0; var < header_.vars.size(); ++var) {
    const VcdVar& record = header_.vars[var];
    if (isConstant(record) || named.contains(var) || !nameOf(var, name)) continue;
    for (std::size_t i = 0; i < wanted_.size(); ++i) {
      const Wanted& wanted = wanted_[i];
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

// --- Without options -----------------------------------------------------------------

bool Chooser::nothingWanted() {
  std::string text = "no signals are chosen, and the file doesn't tell directions";
  std::string name;
  std::size_t count = 0;
  for (std::size_t var = 0; var < header_.vars.size() && count < kNamesShown; ++var) {
    if (header_.vars[var].kind != VcdKind::bits || !nameOf(var, name)) continue;
    text += (count++ > 0 ? ", " : "; it has ") + name;
  }
  if (count == kNamesShown) text += " ...";
  return refuse(text);
}

// Reads the whole file: who drives a port shows in its states.
bool Chooser::takePorts() {
  std::vector<std::uint8_t> sides(header_.netWidths.size(), 0);
  bool any = false;
  for (VcdEvent event = reader_.next(); event != VcdEvent::end; event = reader_.next()) {
    if (event != VcdEvent::ports) continue;
    noteVcdSides(reader_.value(), sides[reader_.net()]);
    any = true;
  }
  if (reader_.failed() || !reader_.rewind()) return false;
  if (!any) return nothingWanted();
  wanted_ = {{{}, INPUT}, {{}, OUTPUT}, {{}, BIDIR}};
  std::size_t silent = 0;
  for (std::size_t var = 0; var < header_.vars.size(); ++var) {
    const VcdVar& record = header_.vars[var];
    if (record.type != "port" || !useScope(record.scope)) continue;
    if (sides[record.net] == 0) {
      ++silent;
    } else if (!take({var, static_cast<std::size_t>(vcdDirection(sides[record.net])), {}})) {
      return false;
    }
  }
  if (silent > 0) {
    reader_.tell(Severity::warning, kVcdNotCarried,
                 fmt::format("ports without a state aren't taken: {} left out", silent));
  }
  return true;
}

// --- Signals -------------------------------------------------------------------------

// Without --scope names lose the scopes that all have in common.
void Chooser::shorten() {
  if (!cut_.empty() || list_.empty()) return;
  std::string common;
  std::int32_t last = -2;
  for (std::size_t i = 0; i < list_.size(); ++i) {
    const std::int32_t scope = header_.vars[list_[i].var].scope;
    if (scope == last) continue;
    last = scope;
    useScope(scope);
    if (i == 0) {
      common = path_;
      continue;
    }
    std::size_t same = 0;
    while (same < common.size() && same < path_.size() && common[same] == path_[same]) ++same;
    const auto ends = [same](const std::string& text) {
      return same == text.size() || text[same] == '.';
    };
    if (!ends(common) || !ends(path_)) {
      const std::size_t dot = same == 0 ? std::string::npos : common.rfind('.', same - 1);
      same = dot == std::string::npos ? 0 : dot;
    }
    common.resize(same);
  }
  cut_ = common;
  pathScope_ = -2;
}

bool Chooser::addBits(const Taken& taken, const std::string& name, VcdChoice& choice) {
  const VcdVar& var = header_.vars[taken.var];
  const Wanted& wanted = wanted_[taken.wanted];
  columns_ += std::size_t{taken.index ? 1 : var.width} * (wanted.direction == BIDIR ? 2 : 1);
  if (columns_ >= kMaxColumns) {
    reader_.tell(Severity::error, kImportRefused,
                 fmt::format("the chosen variables need more than {} columns", kMaxColumns));
    return false;
  }
  const Bounds bounds = boundsOf(var);
  const std::int64_t step = bounds.left < bounds.right ? 1 : -1;
  const bool plain = var.width == 1 && !var.ranged;
  const auto first = static_cast<std::uint32_t>(choice.signals.size());
  for (std::uint32_t i = 0; i < var.width; ++i) {
    const std::int64_t index = bounds.left + step * i;
    if (taken.index && index != *taken.index) continue;
    const std::string full = plain ? name : fmt::format("{}[{}]", name, index);
    if (!names_.insert(full).second) {
      return refuse(fmt::format("two of the chosen variables are called '{}'", full));
    }
    choice.signals.push_back({full, wanted.direction, wanted.clock, var.net, var.width - 1 - i});
  }
  const auto count = static_cast<std::uint32_t>(choice.signals.size()) - first;
  if (count > 1) choice.buses.push_back({name, first, count});
  return true;
}

bool Chooser::expand(VcdChoice& choice) {
  std::ranges::stable_sort(list_, {}, &Taken::var);
  shorten();
  std::string name;
  return std::ranges::all_of(list_, [&](const Taken& taken) {
    nameOf(taken.var, name);
    return addBits(taken, name, choice);
  });
}

bool Chooser::run(VcdChoice& choice) {
  cut_ = options_.scope;
  const bool directed =
      !options_.inputs.empty() || !options_.outputs.empty() || !options_.bidirs.empty();
  if (!directed && (!header_.hasPorts || !takePorts())) {
    return header_.hasPorts ? false : nothingWanted();
  }
  const std::size_t first = wanted_.size();
  addWanted(options_.inputs, INPUT, false);
  addWanted(options_.outputs, OUTPUT, false);
  addWanted(options_.bidirs, BIDIR, false);
  addWanted(options_.clocks, INPUT, true);
  find();
  for (std::size_t i = first; i < wanted_.size(); ++i) {
    if (!wanted_[i].pattern && !settlePlain(i, found_[i])) return false;
  }
  matchPatterns();
  if (list_.empty()) return refuse("no variable is like the names that the options give");
  return expand(choice);
}

}  // namespace

bool chooseVcdSignals(VcdReader& reader, const ImportOptions& options, VcdChoice& choice) {
  return Chooser(reader, options).run(choice);
}
