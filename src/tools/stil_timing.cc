#include "tools/stil_timing.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "tools/flat_walk.h"
#include "tools/stil_timing_internal.h"

namespace {

// Tables that one stands on through others.
constexpr std::size_t kDeepestInheritance = 64;
// Events, and waves of signals, of all tables together: groups and inheritance would make
// many of few bytes.
constexpr std::size_t kMostWork = std::size_t{1} << 26;
constexpr std::size_t kNamesShown = 8;

// --- One table -----------------------------------------------------------------------

class TableReader {
 public:
  TableReader(StilReader& reader, StilNames& names, const ssData& equations,
              std::span<const SignalDirection> directions, bool lenient, PatternWriter& writer,
              StilTables& parts)
      : reader_(reader),
        model_(reader.model()),
        names_(names),
        directions_(directions),
        writer_(writer),
        parts_(parts),
        shapes_(writer),
        reading_(reader, equations, lenient, shapes_) {}

  bool choose(const std::string& timing);
  bool read();

 private:
  // A wave of one character on a signal, in the order in which they were defined.
  struct Given {
    char character;
    std::uint32_t wave;

    friend auto operator<=>(const Given&, const Given&) = default;
  };
  using GivenList = std::vector<Given>;

  bool spend(std::size_t work, const StilWhere& where);
  bool readTable(const StilTable& table);
  bool collect(const StilTable& table, std::vector<const StilTable*>& chain, std::size_t depth);
  const StilTable* parent(const StilTable& table, const std::string& name) const;
  bool readPeriod(const StilTable& table, const std::vector<const StilTable*>& chain);
  bool readWave(const StilWave& wave, StilNames& names);
  bool give(const StilWave& wave, StilNames& names);
  StilNames& namesOf(const StilTable& table);
  std::uint32_t characters(SignalDirection direction, const GivenList& given);
  std::uint32_t enter(const StilCharacters& set);

  StilReader& reader_;
  const StilModel& model_;
  StilNames& names_;
  std::span<const SignalDirection> directions_;
  PatternWriter& writer_;
  StilTables& parts_;
  ShapeMaker shapes_;
  WaveReader reading_;

  std::vector<const StilTable*> chosen_;
  std::map<std::pair<std::string_view, std::string_view>, const StilTable*> byName_;  // all
  std::map<std::vector<std::string>, std::unique_ptr<StilNames>> otherNames_;
  std::size_t work_ = 0;
  std::unordered_multimap<std::uint64_t, std::uint32_t> setByHash_;

  // Of the table being read.
  std::vector<Wave> waves_;    // of single characters
  std::size_t firstWave_ = 0;  // of the wave being read
  std::vector<GivenList> ofSignal_;
  std::map<std::pair<SignalDirection, GivenList>, std::uint32_t> sets_;
};

// --- Which tables --------------------------------------------------------------------

// Those of the domain; without one the domain without a name, or the only one there is.
bool TableReader::choose(const std::string& timing) {
  std::set<std::string_view> domains;
  for (const StilTable& table : model_.tables) {
    byName_.emplace(std::pair(std::string_view(table.domain), std::string_view(table.name)),
                    &table);
    domains.insert(table.domain);
    if (table.domain == timing) chosen_.push_back(&table);
  }
  if (!chosen_.empty()) return true;
  if (!timing.empty()) {
    return reader_.failAt({}, kStilUnknownTable, fmt::format("there is no Timing \"{}\"", timing));
  }
  if (domains.empty()) {
    return reader_.failAt({}, kStilUnknownTable, "there is no WaveformTable");
  }
  if (domains.size() > 1) {
    std::string text;
    std::size_t shown = 0;
    for (auto domain = domains.begin(); domain != domains.end() && shown < kNamesShown; ++shown) {
      text += fmt::format("{}\"{}\"", text.empty() ? "" : ", ", *domain++);
    }
    return reader_.failAt({}, kStilUnknownTable,
                          fmt::format("no PatternExec chooses between the Timings {}", text));
  }
  for (const StilTable& table : model_.tables) chosen_.push_back(&table);
  return true;
}

bool TableReader::read() {
  parts_.sets.emplace_back();
  for (const StilTable* table : chosen_) {
    if (!readTable(*table)) return false;
  }
  return true;
}

bool TableReader::spend(std::size_t work, const StilWhere& where) {
  work_ += work;
  return work_ <= kMostWork ||
         reader_.failAt(where, kStilTooLong, "the waveforms are too many for all their signals");
}

bool TableReader::readTable(const StilTable& table) {
  if (parts_.byName.contains(table.name)) {
    return reader_.failAt(table.where, kStilTwice,
                          fmt::format("there are two WaveformTables \"{}\"", table.name));
  }
  std::vector<const StilTable*> chain;
  if (!spend(model_.signals.size(), table.where)) return false;
  if (!collect(table, chain, 0) || !readPeriod(table, chain)) return false;
  waves_.clear();
  sets_.clear();
  ofSignal_.assign(model_.signals.size(), {});
  for (const StilTable* part : chain) {
    for (const StilWave& wave : part->waves) {
      if (!readWave(wave, namesOf(*part))) return false;
    }
  }
  const WaveTime& period = reading_.period();
  const std::size_t number = writer_.addTable(table.name, timeOfFemtoseconds(period.value),
                                              period.text.named ? period.text.text : "");
  StilTables::Table& entry = parts_.tables.emplace_back();
  entry.number = number;
  parts_.byName.emplace(table.name, number);
  for (std::size_t i = 0; i < ofSignal_.size(); ++i) {
    entry.signals.push_back(characters(directions_[i], ofSignal_[i]));
  }
  return true;
}

// --- Inheritance ---------------------------------------------------------------------

// The tables that one takes its waves from, itself last, each once.
bool TableReader::collect(const StilTable& table, std::vector<const StilTable*>& chain,
                          std::size_t depth) {
  if (depth > kDeepestInheritance) {
    return reader_.failAt(table.where, kStilBadExpression,
                          fmt::format("WaveformTable \"{}\" inherits itself, or through more than "
                                      "{} others",
                                      table.name, kDeepestInheritance));
  }
  for (const std::string& name : table.inherit) {
    const StilTable* other = parent(table, name);
    if (other == nullptr) {
      return reader_.failAt(table.where, kStilUnknownTable,
                            fmt::format("there is no WaveformTable \"{}\" to inherit", name));
    }
    if (!spend(chain.size() + 1, table.where)) return false;
    if (std::ranges::find(chain, other) != chain.end()) continue;
    if (!collect(*other, chain, depth + 1)) return false;
  }
  if (std::ranges::find(chain, &table) == chain.end()) chain.push_back(&table);
  return true;
}

// By its name in the same domain, else as "domain.name".
const StilTable* TableReader::parent(const StilTable& table, const std::string& name) const {
  const auto find = [&](std::string_view domain, std::string_view own) -> const StilTable* {
    const auto found = byName_.find({domain, own});
    return found != byName_.end() ? found->second : nullptr;
  };
  const std::string_view text = name;
  const StilTable* found = find(table.domain, text);
  for (std::size_t dot = text.find('.'); found == nullptr && dot != std::string_view::npos;
       dot = text.find('.', dot + 1)) {
    found = find(text.substr(0, dot), text.substr(dot + 1));
  }
  return found != nullptr ? found : find({}, text);
}

// The table's own, else that of the nearest table that it inherits.
bool TableReader::readPeriod(const StilTable& table, const std::vector<const StilTable*>& chain) {
  const auto own = std::find_if(chain.rbegin(), chain.rend(),
                                [](const StilTable* part) { return !part->period.empty(); });
  if (own == chain.rend()) {
    return reader_.failAt(table.where, kStilBadTime,
                          fmt::format("WaveformTable \"{}\" has no Period", table.name));
  }
  return reading_.readPeriod((*own)->period, (*own)->where);
}

// --- Waves ---------------------------------------------------------------------------

bool TableReader::readWave(const StilWave& wave, StilNames& names) {
  firstWave_ = waves_.size();
  if (!spend(wave.events.size() * wave.characters.size(), wave.where)) return false;
  return reading_.read(wave, waves_) && give(wave, names);
}

// --- Signals -------------------------------------------------------------------------

// Groups that the Timing of a table names stand in front of those in force.
StilNames& TableReader::namesOf(const StilTable& table) {
  if (table.signalGroups.empty()) return names_;
  std::unique_ptr<StilNames>& names = otherNames_[table.signalGroups];
  if (names == nullptr) names = std::make_unique<StilNames>(model_, table.signalGroups);
  return *names;
}

// A wave takes the place of an earlier one for the same signal and character.
bool TableReader::give(const StilWave& wave, StilNames& names) {
  std::string problem;
  const StilTarget* target = names.find(wave.signals, problem);
  if (target == nullptr) return reader_.failAt(wave.signals.where, kStilUnknownName, problem);
  if (!spend(target->signals.size() * wave.characters.size(), wave.where)) return false;
  for (const std::uint32_t signal : target->signals) {
    for (std::size_t i = 0; i < wave.characters.size(); ++i) {
      const Given given = {wave.characters[i], static_cast<std::uint32_t>(firstWave_ + i)};
      GivenList& list = ofSignal_[signal];
      const auto earlier = std::ranges::find(list, given.character, &Given::character);
      if (earlier != list.end()) {
        *earlier = given;
      } else {
        list.push_back(given);
      }
    }
  }
  return true;
}

std::uint32_t TableReader::characters(SignalDirection direction, const GivenList& given) {
  if (given.empty()) return 0;
  const auto [place, isNew] = sets_.emplace(std::pair(direction, given), 0);
  if (!isNew) return place->second;
  std::string characters;
  std::vector<const Wave*> waves;
  for (const Given& one : given) {
    characters += one.character;
    waves.push_back(&waves_[one.wave]);
  }
  return place->second = enter(shapes_.characters(direction, characters, waves));
}

// The number of a set, that of an equal one of any table where there is one.
std::uint32_t TableReader::enter(const StilCharacters& set) {
  std::uint64_t hash = 0;
  for (const StilCharacter& one : set) {
    const std::uint64_t shapes = std::uint64_t{one.cycle.in} << 32 | one.cycle.out;
    hash = (hash ^ shapes ^ (one.defined ? 1U : 0U)) * 0x9E3779B97F4A7C15;
    hash = (hash ^ hash >> 29) + one.cycle.inCode * 16U + one.cycle.outCode;
  }
  const auto [first, last] = setByHash_.equal_range(hash);
  const auto same = std::find_if(
      first, last, [&](const auto& entry) { return parts_.sets[entry.second] == set; });
  if (same != last) return same->second;
  const auto number = static_cast<std::uint32_t>(parts_.sets.size());
  parts_.sets.push_back(set);
  setByHash_.emplace(hash, number);
  return number;
}

}  // namespace

// --- The timing ----------------------------------------------------------------------

StilTiming::StilTiming(StilReader& reader) : reader_(reader), parts_(std::make_unique<Parts>()) {}
StilTiming::~StilTiming() = default;

bool StilTiming::readTables(const StilTimingChoice& choice, StilNames& names,
                            const ssData& equations, std::span<const SignalDirection> directions,
                            bool lenient, PatternWriter& writer) {
  *parts_ = {};
  TableReader tables(reader_, names, equations, directions, lenient, writer, *parts_);
  if (!tables.choose(choice.timing) || !tables.read()) return false;
  return writer.failure().empty() || reader_.failAt({}, kImportRefused, writer.failure());
}

std::int64_t StilTiming::table(std::string_view name) const {
  const auto found = parts_->byName.find(std::string(name));
  return found != parts_->byName.end() ? static_cast<std::int64_t>(found->second) : -1;
}

const StilCharacters& StilTiming::characters(std::size_t table, std::uint32_t signal) const {
  const StilTables::Table& entry = parts_->tables[table - parts_->tables.front().number];
  return parts_->sets[entry.signals[signal]];
}
