#include "tools/stil_choice.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "tools/nearest.h"

namespace {

constexpr std::size_t kDeepestBurst = 64;
constexpr std::size_t kMostEntries = 100000;  // of lists, those of bursts in bursts too
constexpr std::size_t kMostListed = 20;

template <typename T>
const T* byName(const std::vector<T>& records, std::string_view name) {
  const auto found = std::ranges::find(records, name, &T::name);
  return found != records.end() ? &*found : nullptr;
}

template <typename T>
std::string listOf(const std::vector<T>& records) {
  std::string text;
  for (std::size_t i = 0; i < std::min(records.size(), kMostListed); ++i) {
    text += fmt::format("{}'{}'", i == 0 ? "" : ", ", records[i].name);
  }
  if (records.size() > kMostListed) text += ", ...";
  return text;
}

class Chooser {
 public:
  Chooser(StilReader& reader, const ImportOptions& options, StilChoice& choice)
      : reader_(reader), model_(reader.model()), options_(options), choice_(choice) {
    for (const StilPatternPlace& place : model_.patterns) patterns_.emplace(place.name, &place);
  }

  bool run();

 private:
  bool chooseExec();
  bool chooseBurst();
  bool namedPatterns();
  bool onlyPattern();
  bool addBurst(const StilBurst& burst, const StilDomains& outer, std::size_t depth);
  bool addEntry(const StilBurstEntry& entry, const StilDomains& domains, std::size_t depth);
  void addPattern(const StilPatternPlace& place, const StilDomains& domains);
  void warnOfUnknown(const StilDomains& domains, const StilWhere& where);
  const StilPatternPlace* pattern(std::string_view name) const {
    const auto found = patterns_.find(name);
    return found != patterns_.end() ? found->second : nullptr;
  }

  // The one of that name, which `where` asks for; without a name the only one. Else a
  // message.
  template <typename T>
  const T* one(const std::vector<T>& records, const std::string& name, std::string_view kind,
               const StilWhere& where);
  bool fail(const StilWhere& where, std::string text) {
    return reader_.failAt(where, kStilNoPattern, std::move(text));
  }
  static StilDomains within(const StilDomains& outer, const StilDomains& inner);

  StilReader& reader_;
  const StilModel& model_;
  const ImportOptions& options_;
  StilChoice& choice_;
  const StilExec* exec_ = nullptr;
  std::unordered_map<std::string_view, const StilPatternPlace*> patterns_;
  std::size_t entries_ = 0;
  std::set<std::pair<std::string_view, std::string_view>> checked_;  // domains by kind and name
};

bool Chooser::run() {
  if (!chooseExec()) return false;
  if (exec_ != nullptr) choice_.timing = {exec_->timing, exec_->selectors, exec_->categories};
  if (!options_.patterns.empty()) return namedPatterns();
  return chooseBurst();
}

template <typename T>
const T* Chooser::one(const std::vector<T>& records, const std::string& name, std::string_view kind,
                      const StilWhere& where) {
  const bool any = name.empty();
  const T* found = any && records.size() == 1 ? &records.front() : byName(records, name);
  if (found != nullptr) return found;
  std::vector<std::string_view> names;
  names.reserve(records.size());
  for (const T& record : records) names.push_back(record.name);
  fail(any && !records.empty() ? records.front().where : where,
       any ? fmt::format("which {}? There are {}", kind, listOf(records))
           : fmt::format("there is no {} '{}'{}", kind, name, didYouMean(name, names)));
  return nullptr;
}

// A burst that is asked for brings the timing of the exec that names it.
bool Chooser::chooseExec() {
  if (options_.exec.empty() && !options_.burst.empty()) {
    const auto found = std::ranges::find(model_.execs, options_.burst, &StilExec::burst);
    if (found != model_.execs.end()) {
      exec_ = &*found;
      return true;
    }
  }
  if (model_.execs.empty() && options_.exec.empty()) return true;
  exec_ = one(model_.execs, options_.exec, "PatternExec", {});
  return exec_ != nullptr;
}

bool Chooser::chooseBurst() {
  const bool byExec = options_.burst.empty() && exec_ != nullptr;
  const std::string& name = byExec ? exec_->burst : options_.burst;
  if (name.empty() && model_.bursts.empty()) return onlyPattern();
  const StilBurst* burst =
      one(model_.bursts, name, "PatternBurst", byExec ? exec_->where : StilWhere());
  if (burst == nullptr || !addBurst(*burst, {}, 0)) return false;
  return !choice_.patterns.empty() || fail(burst->where, "the burst has no patterns");
}

bool Chooser::namedPatterns() {
  const bool byExec = options_.burst.empty() && exec_ != nullptr;
  const StilBurst* burst = byName(model_.bursts, byExec ? exec_->burst : options_.burst);
  const StilDomains domains = burst != nullptr ? burst->domains : StilDomains();
  for (const std::string& name : options_.patterns) {
    const StilPatternPlace* place = pattern(name);
    if (place == nullptr) {
      return fail({},
                  fmt::format("there is no Pattern '{}' among {}", name, listOf(model_.patterns)));
    }
    addPattern(*place, domains);
  }
  return true;
}

bool Chooser::onlyPattern() {
  if (model_.patterns.size() == 1) {
    addPattern(model_.patterns.front(), {});
    return true;
  }
  return fail({}, model_.patterns.empty()
                      ? "there is no Pattern"
                      : fmt::format("which Pattern? There are {}", listOf(model_.patterns)));
}

bool Chooser::addBurst(const StilBurst& burst, const StilDomains& outer, std::size_t depth) {
  if (depth == kDeepestBurst) return fail(burst.where, "bursts nest too deep");
  const StilDomains own = within(outer, burst.domains);
  warnOfUnknown(burst.domains, burst.where);
  return std::ranges::all_of(burst.entries, [&](const StilBurstEntry& entry) {
    warnOfUnknown(entry.domains, entry.where);
    return addEntry(entry, within(own, entry.domains), depth);
  });
}

bool Chooser::addEntry(const StilBurstEntry& entry, const StilDomains& domains, std::size_t depth) {
  if (++entries_ > kMostEntries) {
    return fail(entry.where, fmt::format("the bursts list more than {} patterns", kMostEntries));
  }
  if (const StilPatternPlace* place = pattern(entry.name)) {
    addPattern(*place, domains);
    return true;
  }
  const StilBurst* inner = byName(model_.bursts, entry.name);
  if (inner != nullptr) return addBurst(*inner, domains, depth + 1);
  return fail(entry.where, fmt::format("there is no Pattern '{}'", entry.name));
}

void Chooser::addPattern(const StilPatternPlace& place, const StilDomains& domains) {
  choice_.patterns.push_back({&place, domains});
}

// Calls and names then find what other blocks define.
void Chooser::warnOfUnknown(const StilDomains& domains, const StilWhere& where) {
  const auto check = [&](MessageCode code, std::string_view kind,
                         const std::vector<std::string>& wanted, const auto& records) {
    using Record = typename std::decay_t<decltype(records)>::value_type;
    for (const std::string& name : wanted) {
      if (!checked_.emplace(kind, name).second) continue;
      if (std::ranges::find(records, name, &Record::domain) != records.end()) continue;
      reader_.warnAt(where, code, fmt::format("there is nothing in {} '{}'", kind, name));
    }
  };
  check(kStilUnknownName, "SignalGroups", domains.signalGroups, model_.groups);
  check(kStilUnknownRoutine, "Procedures", domains.procedures, model_.procedures);
  check(kStilUnknownRoutine, "MacroDefs", domains.macros, model_.macros);
}

StilDomains Chooser::within(const StilDomains& outer, const StilDomains& inner) {
  StilDomains domains = outer;
  for (const auto list : {&StilDomains::signalGroups, &StilDomains::procedures,
                          &StilDomains::macros, &StilDomains::scanStructures}) {
    if (!(inner.*list).empty()) domains.*list = inner.*list;
  }
  return domains;
}

}  // namespace

bool chooseStilPatterns(StilReader& reader, const ImportOptions& options, StilChoice& choice) {
  return Chooser(reader, options, choice).run();
}
