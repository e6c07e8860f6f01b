#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tools/stil_reader_internal.h"

namespace {

using Kind = StilTokenKind;

// States of events, by their letter and their long name. Those that drive or compare in
// a way that the database has no state for have none.
struct EventWord {
  std::string_view letter;
  std::string_view word;
  char state;
};
constexpr std::array<EventWord, 22> kEvents = {{
    {"D", "ForceDown", 'D'},
    {"U", "ForceUp", 'U'},
    {"Z", "ForceOff", 'Z'},
    {"N", "ForceUnknown", 'N'},
    {"P", "ForcePrior", 'P'},
    {"L", "CompareLow", 'L'},
    {"H", "CompareHigh", 'H'},
    {"X", "CompareUnknown", 'X'},
    {"x", "CompareUnknown", 'X'},
    {"T", "CompareOff", 'T'},
    {"l", "CompareLowWindow", 'l'},
    {"h", "CompareHighWindow", 'h'},
    {"t", "CompareOffWindow", 't'},
    {"V", "CompareValid", 0},
    {"v", "CompareValidWindow", 0},
    {"R", "ExpectLow", 0},
    {"G", "ExpectHigh", 0},
    {"Q", "ExpectOff", 0},
    {"M", "Marker", 0},
    {"A", "LogicLow", 0},
    {"B", "LogicHigh", 0},
    {"F", "LogicZ", 0},
}};

// --- Waveforms -----------------------------------------------------------------------

class WaveReader {
 public:
  WaveReader(StilCursor& cursor, StilTable& table) : cursor_(cursor), table_(table) {}

  // The waves of one reference.
  bool read() {
    StilReference signals;
    if (!cursor_.reference(signals, "a signal or a group")) return false;
    return cursor_.block("waveforms", [&] { return wave(signals); });
  }

 private:
  bool wave(const StilReference& signals) {
    if (cursor_.isWord("InheritWaveform")) {
      return cursor_.fail(kStilUnsupported, "InheritWaveform would change the waveform");
    }
    StilWave wave;
    wave.signals = signals;
    wave.where = cursor_.where();
    while (cursor_.isName()) {
      wave.characters += cursor_.token().text;
      cursor_.next();
    }
    if (wave.characters.empty()) return cursor_.expected("waveform characters");
    if (!cursor_.block("events", [&] { return event(wave); })) return false;
    table_.waves.push_back(std::move(wave));
    return true;
  }

  bool event(StilWave& wave) {
    StilEvent event;
    event.where = cursor_.where();
    if (!label()) return false;
    if (pending_.empty() && cursor_.is(Kind::expression)) {
      event.time = cursor_.token().text;
      cursor_.next();
    }
    const StilWhere states = cursor_.where();
    if (!this->states(event)) return false;
    if (event.states.size() != 1 && event.states.size() != wave.characters.size()) {
      return cursor_.failAt(
          states, kStilSyntax,
          fmt::format("there are {} states for the {} characters \"{}\"", event.states.size(),
                      wave.characters.size(), wave.characters));
    }
    wave.events.push_back(std::move(event));
    return true;
  }

  // "name:" before an event is for texts that this one is inherited by. A word without
  // a colon is a state; it is kept for states().
  bool label() {
    if (!cursor_.isName()) return true;
    pending_ = cursor_.token().text;
    pendingWhere_ = cursor_.where();
    cursor_.next();
    if (!cursor_.is(Kind::colon)) return true;
    pending_.clear();
    cursor_.next();
    return !cursor_.failed();
  }

  // States with "/" between, which may have blanks around it, up to the `;`.
  bool states(StilEvent& event) {
    bool slash = true;
    if (!pending_.empty()) {
      const std::string word = std::move(pending_);
      pending_.clear();
      if (!addStates(event, word, slash, pendingWhere_)) return false;
    }
    while (cursor_.isName()) {
      const StilWhere where = cursor_.where();
      const std::string word(cursor_.token().text);
      cursor_.next();
      if (!addStates(event, word, slash, where)) return false;
    }
    if (slash) return cursor_.expected("a state");
    return cursor_.take(Kind::stop, "'/' or ';'");
  }

  // `slash`: the text before ended with one, or there was none.
  bool addStates(StilEvent& event, std::string_view text, bool& slash, const StilWhere& where) {
    while (!text.empty()) {
      if (text.front() == '/') {
        if (slash) return cursor_.failAt(where, kStilSyntax, "a state is expected before '/'");
        slash = true;
        text.remove_prefix(1);
        continue;
      }
      const std::string_view word = text.substr(0, text.find('/'));
      StilState state;
      if (!slash) return cursor_.failAt(where, kStilSyntax, "'/' is expected between states");
      if (!stilState(word, state)) {
        return cursor_.failAt(where, kStilSyntax,
                              fmt::format("{} is no event; a state such as D, U, Z, L, H or X "
                                          "is expected",
                                          word));
      }
      event.states.push_back(std::move(state));
      slash = false;
      text.remove_prefix(word.size());
    }
    return true;
  }

  StilCursor& cursor_;
  StilTable& table_;
  std::string pending_;
  StilWhere pendingWhere_;
};

bool readTableStatement(StilBlocks& blocks, StilTable& table) {
  StilCursor& cursor = blocks.cursor;
  const StilWhere where = cursor.where();
  std::string word;
  if (!cursor.name(word, "a statement of a WaveformTable")) return false;
  if (word == "Period") {
    return cursor.expressionText(table.period, "a time between single quotes") && cursor.end();
  }
  if (word == "InheritWaveformTable") {
    return cursor.name(table.inherit.emplace_back(), "a WaveformTable") && cursor.end();
  }
  if (word == "Waveforms") {
    WaveReader waves(cursor, table);
    return cursor.block("Waveforms", [&] { return waves.read(); });
  }
  if (word == "SubWaveforms") {
    return cursor.failAt(where, kStilUnsupported, "SubWaveforms would change the waveforms");
  }
  return passOverUnknown(blocks, where, word, "WaveformTable");
}

// The groups that a Timing names hold for all its tables, wherever it names them.
bool readTimingStatement(StilBlocks& blocks, const std::string& domain,
                         std::vector<std::string>& groups) {
  StilCursor& cursor = blocks.cursor;
  const StilWhere where = cursor.where();
  std::string word;
  if (!cursor.name(word, "WaveformTable")) return false;
  if (word == "SignalGroups") {
    return cursor.name(groups.emplace_back(), "a domain of SignalGroups") && cursor.end();
  }
  if (word != "WaveformTable") return passOverUnknown(blocks, where, word, "Timing");
  StilTable table;
  table.domain = domain;
  table.where = where;
  if (!cursor.name(table.name, "the name of a WaveformTable")) return false;
  if (!cursor.block("the WaveformTable", [&] { return readTableStatement(blocks, table); })) {
    return false;
  }
  if (!defineStil(blocks, where, "WaveformTable", domain, table.name)) return false;
  blocks.model.tables.push_back(std::move(table));
  return true;
}

// --- Values --------------------------------------------------------------------------

std::optional<std::string>* selectedValue(StilSpecValue& value, std::string_view word) {
  if (word == "Min") return &value.min;
  if (word == "Typ") return &value.typ;
  if (word == "Max") return &value.max;
  return word == "Meas" ? &value.meas : nullptr;
}

bool readSelectedValue(StilCursor& cursor, StilSpecValue& value) {
  std::optional<std::string>* selected =
      cursor.isName() ? selectedValue(value, cursor.token().text) : nullptr;
  if (selected == nullptr) return cursor.expected("Min, Typ, Max or Meas");
  cursor.next();
  if (cursor.is(Kind::equals)) cursor.next();
  return cursor.expressionText(selected->emplace(), "a value between single quotes") &&
         cursor.end();
}

// = '1ns';  '1ns';  { Min '1ns'; Max '2ns'; }
bool readSpecValue(StilCursor& cursor, StilSpecValue& value) {
  if (cursor.is(Kind::open)) {
    return cursor.block("values", [&] { return readSelectedValue(cursor, value); });
  }
  if (cursor.is(Kind::equals)) cursor.next();
  return cursor.expressionText(value.typ.emplace(), "a value between single quotes") &&
         cursor.end();
}

// A Category names variables, a Variable names categories.
bool readSpecEntries(StilBlocks& blocks, StilSpec& spec) {
  StilCursor& cursor = blocks.cursor;
  const StilWhere where = cursor.where();
  std::string word;
  if (!cursor.name(word, "Category or Variable")) return false;
  if (word != "Category" && word != "Variable") return passOverUnknown(blocks, where, word, "Spec");
  const bool category = word == "Category";
  std::string owner;
  if (!cursor.name(owner, category ? "the name of a category" : "the name of a variable")) {
    return false;
  }
  return cursor.block(word, [&] {
    StilSpecEntry entry;
    entry.where = cursor.where();
    std::string& name = category ? entry.variable : entry.category;
    (category ? entry.category : entry.variable) = owner;
    if (!cursor.name(name, category ? "the name of a variable" : "the name of a category") ||
        !readSpecValue(cursor, entry.value)) {
      return false;
    }
    spec.entries.push_back(std::move(entry));
    return true;
  });
}

bool readSelected(StilCursor& cursor, StilSelector& selector) {
  static constexpr std::array<std::pair<std::string_view, StilSelected>, 4> kWords = {{
      {"Min", StilSelected::min},
      {"Typ", StilSelected::typ},
      {"Max", StilSelected::max},
      {"Meas", StilSelected::meas},
  }};
  std::string variable;
  if (!cursor.name(variable, "the name of a variable")) return false;
  const auto* row = std::find_if(kWords.begin(), kWords.end(),
                                 [&](const auto& entry) { return cursor.isWord(entry.first); });
  if (row == kWords.end()) return cursor.expected("Min, Typ, Max or Meas");
  selector.entries.emplace_back(std::move(variable), row->second);
  cursor.next();
  return cursor.end();
}

}  // namespace

bool stilState(std::string_view name, StilState& state) {
  const auto* row = std::find_if(kEvents.begin(), kEvents.end(), [name](const EventWord& event) {
    return event.letter == name || event.word == name;
  });
  const bool unknown = name == "?" || name == "Unknown";
  if (row == kEvents.end() && !unknown) return false;
  state.state = unknown ? '\0' : row->state;
  state.other = state.state == 0 ? std::string(name) : std::string();
  return true;
}

bool readStilTiming(StilBlocks& blocks) {
  StilCursor& cursor = blocks.cursor;
  std::string domain;
  std::vector<std::string> groups;
  const std::size_t first = blocks.model.tables.size();
  if (!cursor.optionalName(domain)) return false;
  if (!cursor.block("Timing", [&] { return readTimingStatement(blocks, domain, groups); })) {
    return false;
  }
  for (std::size_t i = first; i < blocks.model.tables.size(); ++i) {
    blocks.model.tables[i].signalGroups = groups;
  }
  return true;
}

bool readStilSpec(StilBlocks& blocks) {
  StilSpec spec;
  if (!blocks.cursor.optionalName(spec.name)) return false;
  if (!blocks.cursor.block("Spec", [&] { return readSpecEntries(blocks, spec); })) return false;
  blocks.model.specs.push_back(std::move(spec));
  return true;
}

bool readStilSelector(StilBlocks& blocks) {
  StilSelector selector;
  if (!blocks.cursor.name(selector.name, "the name of a Selector")) return false;
  if (!blocks.cursor.block("Selector", [&] { return readSelected(blocks.cursor, selector); })) {
    return false;
  }
  blocks.model.selectors.push_back(std::move(selector));
  return true;
}
