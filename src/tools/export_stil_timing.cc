// Waveform tables: a character for each list of events that a signal has in a
// timeplate, and signals whose characters all do the same under one heading.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <span>

#include "pvb/database.h"
#include "tools/export_stil_internal.h"
#include "tools/flat_walk.h"

namespace {

constexpr std::string_view kDriven = "DUZNP";
constexpr std::string_view kExpected = "LHTX";
constexpr std::string_view kWindows = "lhtX";  // by place in kExpected
// For events that no usual character stands for: those that usually mean something
// come last.
constexpr std::string_view kFreeCharacters =
    "ABCEFGIJKMOQRSVWYabcdefghijklmnopqrstuvwxyzDHLNPTUXZ0123456789";
constexpr std::size_t kLineLength = 96;

bool holds(std::string_view states, char state) {
  return states.find(state) != std::string_view::npos;
}

// --- Characters ----------------------------------------------------------------------

char levelCharacter(char driven) {
  const std::size_t place = kDriven.find(driven);
  return place < 4 ? "01ZN"[place] : '\0';
}

// What is driven as one character: unknown, a pulse, or the level that it ends with.
char drivenCharacter(std::string_view driven) {
  const bool constant = driven.find_first_not_of(driven.front()) == std::string_view::npos;
  const bool pulse = !constant && driven.size() > 2 && driven.front() == driven.back() &&
                     driven.find_first_not_of("DU") == std::string_view::npos;
  if (driven.find('N') != std::string_view::npos) return 'N';
  return pulse ? 'P' : levelCharacter(driven.back());
}

// The usual character of events; 0 where there is none.
char usualCharacter(std::span<const MeaningEvent> events) {
  std::string driven;
  char expected = '\0';
  for (const MeaningEvent& event : events) {
    if (holds(kDriven, event.state)) {
      driven += event.state;
    } else if (expected == '\0' || expected == 'X') {
      expected = event.state;
    } else if (event.state != 'X' && event.state != expected) {
      return '\0';
    }
  }
  const bool passive = driven.find_first_not_of('Z') == std::string::npos;
  const bool compares = expected != '\0' && expected != 'X';
  if (compares || driven.empty()) return passive ? expected : '\0';
  return drivenCharacter(driven);
}

class CharacterChoice {
 public:
  CharacterChoice(StilExport& stil, const StilPlate& plate, const StilExportSignal& signal)
      : stil_(stil), plate_(plate), signal_(signal) {}

  bool run(StilCodes& codes);

 private:
  bool check(EventListId id) const;
  bool plainDataOnly(EventListId id) const;
  std::string where() const {
    return fmt::format("timeplate \"{}\", signal \"{}\"", plate_.plate->name.value_or(""),
                       signal_.name);
  }

  StilExport& stil_;
  const StilPlate& plate_;
  const StilExportSignal& signal_;
};

bool CharacterChoice::check(EventListId id) const {
  for (const MeaningEvent& event : stil_.store.events(id)) {
    const bool known = holds(kDriven, event.state) || holds(kExpected, event.state);
    if (known && event.count == 1) continue;
    if (known) return stil_.refuse(where() + ": STIL can't repeat an event");
    return stil_.refuse(fmt::format("{}: STIL hasn't got the state '{}' ({})", where(), event.state,
                                    PVBstateText(event.state)));
  }
  return true;
}

bool CharacterChoice::plainDataOnly(EventListId id) const {
  const std::vector<MeaningEvent>& events = stil_.store.events(id);
  return !events.empty() && events.back().time < 0;
}

// Usual characters are given first, so that others don't take them.
bool CharacterChoice::run(StilCodes& codes) {
  std::map<EventListId, char> chosen;
  std::string used;
  for (EventListId& id : codes.events) {
    if (id == kNotWorkedOut) continue;
    if (plainDataOnly(id)) {
      stil_.leaveOut("data of signals that their timeplate has no wave for");
      id = kNoEvents;
    }
    const auto [place, isNew] = chosen.try_emplace(id, '\0');
    if (!isNew) continue;
    if (!check(id)) return false;
    const char usual = usualCharacter(stil_.store.events(id));
    if (usual == '\0' || holds(used, usual)) continue;
    place->second = usual;
    used += usual;
  }
  std::size_t next = 0;
  for (EventListId id : codes.events) {
    if (id == kNotWorkedOut || chosen[id] != '\0') continue;
    while (next < kFreeCharacters.size() && holds(used, kFreeCharacters[next])) ++next;
    if (next == kFreeCharacters.size()) {
      return stil_.refuse(fmt::format("{}: more than {} different waves", where(), next));
    }
    chosen[id] = kFreeCharacters[next++];
  }
  for (std::size_t place = 0; place < kCodePlaces; ++place) {
    if (codes.events[place] == kNotWorkedOut) continue;
    codes.characters[place] = chosen[codes.events[place]];
  }
  return true;
}

bool choose(StilExport& stil, StilPlate& plate) {
  std::vector<bool> done(plate.codes.size());
  for (std::size_t i = 0; i < stil.signals.size(); ++i) {
    const std::uint32_t codes = plate.signalCodes[i];
    if (done[codes]) continue;
    done[codes] = true;
    if (!CharacterChoice(stil, plate, stil.signals[i]).run(plate.codes[codes])) return false;
  }
  for (const std::uint32_t codes : plate.signalCodes) {
    plate.characters.push_back(plate.codes[codes].characters.data());
  }
  return true;
}

// --- Events --------------------------------------------------------------------------

using TimeExpressions = std::map<std::int64_t, std::string>;

// Where the times of a signal's events come from.
TimeExpressions expressionsOf(const PVBtimePlate& plate, std::span<const DirectedSlot> slots) {
  TimeExpressions expressions;
  if (plate.levels.empty()) return expressions;
  const std::vector<PVBtrack>& tracks = plate.levels.front().tracks;
  for (const DirectedSlot& slot : slots) {
    const auto t = static_cast<std::size_t>(slot.slot);
    if (t >= tracks.size()) break;
    const PVBtrack& track = tracks[t];
    const std::size_t size = std::min(track.eventTimes.size(), track.eventExprs.size());
    for (std::size_t e = 0; e < size; ++e) {
      if (!track.eventExprs[e]) continue;
      expressions.emplace(femtoseconds(track.eventTimes[e]), *track.eventExprs[e]);
    }
  }
  return expressions;
}

// An expected state with an X behind it is a window, which the X ends.
char stateCharacter(std::span<const MeaningEvent> events, std::size_t at) {
  const char state = events[at].state;
  if (!holds(kExpected, state)) return state;
  for (std::size_t next = at + 1; next < events.size(); ++next) {
    if (!holds(kExpected, events[next].state)) continue;
    return events[next].state == 'X' ? kWindows[kExpected.find(state)] : state;
  }
  return state;
}

class TableText {
 public:
  TableText(StilExport& stil, const StilPlate& plate)
      : stil_(stil), plate_(plate), slots_(stil.database, *plate.plate) {}

  void write();

 private:
  std::string waves(std::size_t signal);
  void events(std::string& text, EventListId id, const TimeExpressions& expressions);
  void heading(const std::vector<std::size_t>& signals);

  StilExport& stil_;
  const StilPlate& plate_;
  PlateSlots slots_;
};

void TableText::write() {
  stil_.line(fmt::format("  WaveformTable {} {{", stilQuoted(plate_.name)));
  stil_.line(fmt::format("    Period {};", stilPeriod(stil_, plate_)));
  stil_.line("    Waveforms {");
  std::vector<std::string> ofCodes(plate_.codes.size());
  std::vector<std::string> order;
  std::unordered_map<std::string, std::vector<std::size_t>> signals;
  for (std::size_t i = 0; i < stil_.signals.size(); ++i) {
    std::string& text = ofCodes[plate_.signalCodes[i]];
    if (text.empty()) text = waves(i);
    std::vector<std::size_t>& same = signals[text];
    if (same.empty()) order.push_back(text);
    same.push_back(i);
  }
  for (const std::string& text : order) {
    heading(signals[text]);
    stil_.text() += text;
    stil_.line("      }");
  }
  stil_.line("    }");
  stil_.line("  }");
}

void TableText::heading(const std::vector<std::size_t>& signals) {
  std::string line = "      ";
  if (signals.size() == 1) {
    line += stilQuoted(stil_.signals[signals.front()].name);
  } else if (signals.size() == stil_.signals.size()) {
    line += stilQuoted(stil_.allSignals);
  } else {
    line += '\'';
    for (std::size_t i = 0; i < signals.size(); ++i) {
      if (line.size() > kLineLength) {
        stil_.line(line);
        line = "       ";
      }
      if (i > 0) line += " + ";
      line += stilQuoted(stil_.signals[signals[i]].name);
    }
    line += '\'';
  }
  stil_.line(line + " {");
}

std::string TableText::waves(std::size_t signal) {
  const StilCodes& codes = plate_.codes[plate_.signalCodes[signal]];
  const TimeExpressions expressions =
      expressionsOf(*plate_.plate, slots_.of(stil_.signals[signal].signal->id));
  std::map<char, EventListId> byCharacter;
  for (std::size_t place = 0; place < kCodePlaces; ++place) {
    if (codes.events[place] != kNotWorkedOut) {
      byCharacter.emplace(codes.characters[place], codes.events[place]);
    }
  }
  std::string text;
  for (const auto& [character, id] : byCharacter) {
    text += fmt::format("        {} {{ ", character);
    events(text, id, expressions);
    text += "}\n";
  }
  return text;
}

void TableText::events(std::string& text, EventListId id, const TimeExpressions& expressions) {
  const std::vector<MeaningEvent>& events = stil_.store.events(id);
  for (std::size_t i = 0; i < events.size(); ++i) {
    const auto found = expressions.find(events[i].time);
    const auto expression =
        found != expressions.end() ? std::optional(found->second) : std::nullopt;
    text += stilTime(stil_, timeOfFemtoseconds(events[i].time), expression, plate_.plate->period);
    text += ' ';
    text += stateCharacter(events, i);
    text += "; ";
  }
}

}  // namespace

bool stilChooseCharacters(StilExport& stil) {
  StilNameTable names;
  for (std::size_t id = 0; id < stil.plates.size(); ++id) {
    if (stil.plates[id] == nullptr) continue;
    StilPlate& plate = *stil.plates[id];
    plate.name = names.take(plate.plate->name.value_or(""), fmt::format("tp{}", id));
    if (!choose(stil, plate)) return false;
  }
  if (names.changed()) stil.warn("names of timeplates that STIL can't have are changed");
  return true;
}

void stilWriteTiming(StilExport& stil) {
  stil.line("Timing {");
  for (const auto& plate : stil.plates) {
    if (plate != nullptr) TableText(stil, *plate).write();
  }
  stil.line("}");
}
