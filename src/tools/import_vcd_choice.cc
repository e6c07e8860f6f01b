// Which variables of a dump become signals: those that the options name, or the ports
// whose states tell a direction.

#include <fmt/format.h>

#include <algorithm>

#include "tools/import_vcd_choice_internal.h"

// --- Names ---------------------------------------------------------------------------

// `path_` becomes that of a scope, as names below --scope begin.
bool VcdChooser::useScope(std::int32_t scope) {
  if (scope == pathScope_) return inside_;
  pathScope_ = scope;
  vcdScopePath(header_, scope, path_);
  if (cut_.empty()) return inside_ = true;
  inside_ = path_.starts_with(cut_) && (path_.size() == cut_.size() || path_[cut_.size()] == '.');
  if (inside_) path_.erase(0, cut_.size() + 1);
  return inside_;
}

bool VcdChooser::nameOf(std::size_t var, std::string& name) {
  const VcdVar& record = header_.vars[var];
  if (!useScope(record.scope)) return false;
  name.assign(path_);
  if (!name.empty()) name += '.';
  name += record.name;
  return true;
}

std::string VcdChooser::shown(std::size_t var) {
  std::string name;
  nameOf(var, name);
  return name;
}

// --- Without options -----------------------------------------------------------------

bool VcdChooser::nothingWanted() {
  std::string text = "no signals are chosen, and the file doesn't tell directions";
  std::string name;
  std::size_t count = 0;
  for (std::size_t var = 0; var < header_.vars.size() && count < kVcdNamesShown; ++var) {
    if (header_.vars[var].kind != VcdKind::bits || !nameOf(var, name)) continue;
    text += (count++ > 0 ? ", " : "; it has ") + name;
  }
  if (count == kVcdNamesShown) text += " ...";
  return refuse(text);
}

// Reads the whole file: who drives a port shows in its states.
bool VcdChooser::takePorts() {
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
void VcdChooser::shorten() {
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

bool VcdChooser::addBits(const VcdTaken& taken, const std::string& name, VcdChoice& choice) {
  const VcdVar& var = header_.vars[taken.var];
  const VcdWanted& wanted = wanted_[taken.wanted];
  columns_ += std::size_t{taken.index ? 1 : var.width} * (wanted.direction == BIDIR ? 2 : 1);
  if (columns_ >= kMaxColumns) {
    reader_.tell(Severity::error, kImportRefused,
                 fmt::format("the chosen variables need more than {} columns", kMaxColumns));
    return false;
  }
  const VcdBounds bounds = vcdBounds(var);
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

bool VcdChooser::expand(VcdChoice& choice) {
  std::ranges::stable_sort(list_, {}, &VcdTaken::var);
  shorten();
  std::string name;
  return std::ranges::all_of(list_, [&](const VcdTaken& taken) {
    nameOf(taken.var, name);
    return addBits(taken, name, choice);
  });
}

bool VcdChooser::run(VcdChoice& choice) {
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

bool chooseVcdSignals(VcdReader& reader, const ImportOptions& options, VcdChoice& choice) {
  return VcdChooser(reader, options).run(choice);
}
