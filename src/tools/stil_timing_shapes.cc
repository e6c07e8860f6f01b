#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "tools/flat_walk.h"
#include "tools/stil_timing_internal.h"

namespace {

// States that data stand for, by code from 1 on.
constexpr std::string_view kDriven = "DUZN";
constexpr std::string_view kCompared = "LHTX";
constexpr std::uint8_t kCodeX = 4;
constexpr std::size_t kNoPosition = std::string_view::npos;

std::uint8_t codeIn(std::string_view states, char state) {
  const std::size_t place = states.find(state);
  return place != std::string_view::npos ? static_cast<std::uint8_t>(place + 1) : 0;
}

// 0 for a state that no data stand for.
std::uint8_t codeOf(char state) {
  return std::max(codeIn(kDriven, state), codeIn(kCompared, state));
}

// Of a wave that stands as it is: some code, so that the signal's slot is in use.
std::uint8_t codeOfLast(char state) {
  constexpr std::string_view kUndirected = "01F";
  const std::uint8_t code = std::max(codeOf(state), codeIn(kUndirected, state));
  return code != 0 ? code : kCodeX;
}

bool isStrobe(char state) { return state == 'L' || state == 'H' || state == 'T'; }
bool isWindow(char state) { return state == 'l' || state == 'h' || state == 't'; }

}  // namespace

bool drives(char state) {
  return kCompared.find(state) == std::string_view::npos && !isWindow(state);
}

// --- Windows and edges ---------------------------------------------------------------

namespace {

// What a wave compares as it goes on.
enum class Comparing { nothingYet, nothing, edge, window };

struct CompareWalk {
  Wave out;
  Comparing now = Comparing::nothingYet;
  char window = 0;

  void take(const WaveEvent& event) {
    if (isWindow(event.state)) return takeWindow(event);
    if (event.state == 'X') return takeX(event);
    endWindow(event);
    if (isStrobe(event.state)) now = Comparing::edge;
    out.push_back(event);
  }
  void takeWindow(const WaveEvent& event) {
    if (now == Comparing::window && window == event.state) return;
    endWindow(event);
    now = Comparing::window;
    window = event.state;
    out.push_back(event);
    out.back().state = static_cast<char>(event.state & ~0x20);
  }
  // Behind an edge it would make a window of it.
  void takeX(const WaveEvent& event) {
    if (now == Comparing::edge) return;
    out.push_back(event);
    out.back().redundant = now == Comparing::nothing;
    now = Comparing::nothing;
  }
  void endWindow(const WaveEvent& at) {
    if (now != Comparing::window) return;
    now = Comparing::nothing;
    out.push_back({at.time, at.expression, 'X'});
  }
};

}  // namespace

Wave plainCompares(std::span<const WaveEvent> events, const WaveEvent& end) {
  CompareWalk walk;
  for (const WaveEvent& event : events) walk.take(event);
  const bool late = !events.empty() && events.back().time > end.time;
  walk.endWindow(late ? events.back() : end);
  return std::move(walk.out);
}

namespace {

bool comparesNothing(const Wave& wave) {
  return !wave.empty() && std::ranges::all_of(wave, [](const auto& e) { return e.state == 'X'; });
}

// In a wave that does something, an X where nothing is compared stays only where another
// wave of the signal has an event that does something, so that both can have one shape.
// One that compares nothing at all keeps its times: what is written of a shape that only
// X use comes back as it was.
void dropRedundant(std::vector<Wave>& waves) {
  const auto key = [](const WaveEvent& event) { return std::pair(event.time, event.expression); };
  std::vector<std::pair<std::int64_t, std::uint32_t>> needed;
  for (const Wave& wave : waves) {
    for (const WaveEvent& event : wave) {
      if (!event.redundant) needed.push_back(key(event));
    }
  }
  std::ranges::sort(needed);
  for (Wave& wave : waves) {
    if (comparesNothing(wave)) continue;
    std::erase_if(wave, [&](const WaveEvent& event) {
      return event.redundant && !std::ranges::binary_search(needed, key(event));
    });
  }
}

std::string statesOf(const Wave& wave) {
  std::string states;
  for (const WaveEvent& event : wave) states += event.state;
  return states;
}

bool sameTimes(const Wave& a, const Wave& b) {
  return std::ranges::equal(a, b,
                            [](const WaveEvent& x, const WaveEvent& y) { return x.sameTime(y); });
}

// --- Data ----------------------------------------------------------------------------

// Where a wave that stands alone has its data: an event that is all it does, the middle
// of a pulse, the one strobe, the last of what compares nothing.
std::size_t usualPosition(std::string_view states) {
  if (states.size() == 1) return codeOf(states[0]) != 0 ? 0 : kNoPosition;
  const auto isPlain = [](char c) { return c == 'D' || c == 'U'; };
  if (states.size() == 3 && states[0] == states[2] && std::ranges::all_of(states, isPlain)) {
    return 1;
  }
  if (std::ranges::count_if(states, isStrobe) == 1) return states.find_first_of("LHT");
  const bool nothing = states.find_first_not_of('X') == std::string_view::npos;
  return nothing ? states.size() - 1 : kNoPosition;
}

// The state of a position that gives each wave its own by the wave's code; 0 for none.
char dataState(const std::vector<std::string>& waves, const std::vector<std::uint8_t>& codes,
               std::size_t position) {
  struct Rule {
    char state;
    std::string_view byCode;
  };
  static constexpr std::array<Rule, 4> kRules = {
      {{'S', kDriven}, {'C', "UDZN"}, {'Q', kCompared}, {'R', "HLTX"}}};
  for (const Rule& rule : kRules) {
    bool fits = true;
    for (std::size_t i = 0; fits && i < waves.size(); ++i) {
      fits = rule.byCode[codes[i] - 1U] == waves[i][position];
    }
    if (fits) return rule.state;
  }
  return 0;
}

}  // namespace

// --- Classes -------------------------------------------------------------------------

// Waves with the same times that one shape gives.
struct ShapeMaker::Class {
  Wave times;
  std::vector<std::string> waves;   // their states
  std::string states;               // of the shape
  std::vector<std::uint8_t> codes;  // by wave

  // Adds a wave if one shape can give all.
  bool add(const Wave& wave) {
    if (!waves.empty() && !sameTimes(times, wave)) return false;
    waves.push_back(statesOf(wave));
    if (solve()) return true;
    waves.pop_back();
    solve();
    return false;
  }
  // Whether the shape compares nothing with the code for X.
  bool givesNothing() const { return states.find_first_not_of("XQR") == std::string::npos; }

  bool solve();
};

bool ShapeMaker::Class::solve() {
  const std::size_t count = waves.front().size();
  std::vector<std::size_t> varying;
  for (std::size_t i = 0; i < count; ++i) {
    const auto differs = [&](const std::string& wave) { return wave[i] != waves.front()[i]; };
    if (std::ranges::any_of(waves, differs)) varying.push_back(i);
  }
  const std::size_t usual = usualPosition(waves.front());
  if (varying.empty() && usual != kNoPosition) varying.push_back(usual);
  states = waves.front();
  codes.clear();
  if (varying.empty()) {
    codes.assign(waves.size(), codeOfLast(states.back()));
    return true;
  }
  const bool middle = count == 3 && std::ranges::find(varying, 1U) != varying.end();
  const std::size_t first = middle ? 1 : varying.front();
  for (const std::string& wave : waves) {
    codes.push_back(codeOf(wave[first]));
    if (codes.back() == 0) return false;
  }
  for (const std::size_t position : varying) {
    states[position] = dataState(waves, codes, position);
    if (states[position] == 0) return false;
  }
  return true;
}

std::uint32_t ShapeMaker::expression(const std::string& text) {
  if (text.empty()) return 0;
  const auto [place, isNew] = numbers_.emplace(text, static_cast<std::uint32_t>(texts_.size()));
  if (isNew) texts_.push_back(text);
  return place->second;
}

ShapeId ShapeMaker::enter(const Wave& times, std::string_view states) {
  Shape shape;
  for (std::size_t i = 0; i < times.size(); ++i) {
    shape.push_back({timeOfFemtoseconds(times[i].time), texts_[times[i].expression], states[i]});
  }
  return writer_.addShape(shape);
}

// 1. Waves that do something find their classes in order.
// 2. Those that compare nothing take what is there already, whatever its times: an X more
//    or less makes no difference to them, and a timeplate of their own would.
// 3. Each class is a shape.
std::vector<ShapedWave> ShapeMaker::shape(std::vector<Wave> waves) {
  constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  struct Place {
    std::size_t group = kNone;
    std::size_t member = kNone;  // kNone: by the code for X
  };
  dropRedundant(waves);
  std::vector<Class> classes;
  std::vector<Place> places(waves.size());
  const auto join = [&](std::size_t wave) {
    std::size_t group = 0;
    while (group < classes.size() && !classes[group].add(waves[wave])) ++group;
    if (group == classes.size()) {
      classes.push_back({waves[wave], {}, {}, {}});
      classes.back().add(waves[wave]);
    }
    places[wave] = {group, classes[group].waves.size() - 1};
  };
  for (std::size_t i = 0; i < waves.size(); ++i) {
    if (!waves[i].empty() && !comparesNothing(waves[i])) join(i);
  }
  for (std::size_t i = 0; i < waves.size(); ++i) {
    if (!comparesNothing(waves[i])) continue;
    const auto fitting = std::ranges::find_if(classes, &Class::givesNothing);
    if (fitting == classes.end()) {
      join(i);
    } else {
      places[i] = {static_cast<std::size_t>(fitting - classes.begin()), kNone};
    }
  }
  std::vector<ShapeId> shapes;
  shapes.reserve(classes.size());
  for (const Class& group : classes) shapes.push_back(enter(group.times, group.states));
  std::vector<ShapedWave> shaped(waves.size());
  for (std::size_t i = 0; i < waves.size(); ++i) {
    const auto [group, member] = places[i];
    if (group == kNone) continue;
    shaped[i] = {shapes[group], member != kNone ? classes[group].codes[member] : kCodeX};
  }
  return shaped;
}

// --- Characters ----------------------------------------------------------------------

namespace {

// The part of each wave that drives, or that compares.
std::vector<Wave> partOf(std::span<const Wave* const> waves, bool driving) {
  std::vector<Wave> parts;
  for (const Wave* wave : waves) {
    Wave& part = parts.emplace_back();
    std::ranges::copy_if(*wave, std::back_inserter(part),
                         [&](const WaveEvent& event) { return drives(event.state) == driving; });
  }
  return parts;
}

// The first shape; a character without events on this side keeps the signal on it.
ShapeId firstShape(const std::vector<ShapedWave>& waves) {
  const auto first =
      std::ranges::find_if(waves, [](const ShapedWave& wave) { return wave.shape != kNoShape; });
  return first != waves.end() ? first->shape : kNoShape;
}

}  // namespace

StilCharacters ShapeMaker::characters(SignalDirection direction, std::string_view characters,
                                      std::span<const Wave* const> waves) {
  StilCharacters result;
  std::vector<ShapedWave> in(waves.size());
  std::vector<ShapedWave> out(waves.size());
  if (direction == BIDIR) {
    in = shape(partOf(waves, true));
    out = shape(partOf(waves, false));
  } else {
    std::vector<Wave> all;
    for (const Wave* wave : waves) all.push_back(*wave);
    (direction == OUTPUT ? out : in) = shape(std::move(all));
  }
  const ShapeId firstIn = firstShape(in);
  const ShapeId firstOut = firstShape(out);
  for (std::size_t i = 0; i < waves.size(); ++i) {
    StilCharacter& character = result[static_cast<unsigned char>(characters[i])];
    character.defined = true;
    if (waves[i]->empty()) continue;
    const bool noIn = in[i].shape == kNoShape;
    const bool noOut = out[i].shape == kNoShape;
    character.cycle = {noIn ? firstIn : in[i].shape, noOut ? firstOut : out[i].shape, in[i].code,
                       out[i].code};
  }
  return result;
}
