// Times and states of waves.

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tools/flat_walk.h"
#include "tools/stil_timing_internal.h"

namespace {

// Events that the reader has no state for and the database has.
struct OtherState {
  std::string_view name;
  char state;
};
constexpr std::array<OtherState, 8> kOtherStates = {{{"A", '0'},
                                                     {"LogicLow", '0'},
                                                     {"B", '1'},
                                                     {"LogicHigh", '1'},
                                                     {"F", 'F'},
                                                     {"LogicZ", 'F'},
                                                     {"?", '?'},
                                                     {"Unknown", '?'}}};
// Those that can be left uncompared.
constexpr std::array<std::string_view, 4> kValidWords = {"V", "v", "CompareValid",
                                                         "CompareValidWindow"};

}  // namespace

bool WaveReader::readPeriod(const std::string& text, const StilWhere& where) {
  return time(text, nullptr, where, period_) &&
         (period_.value > 0 || reader_.failAt(where, kStilBadTime, "the Period is zero"));
}

bool WaveReader::read(const StilWave& wave, std::vector<Wave>& waves) {
  if (!readTimes(wave)) return false;
  for (std::size_t i = 0; i < wave.characters.size(); ++i) {
    if (!readCharacter(wave, i, waves)) return false;
  }
  return true;
}

bool WaveReader::readTimes(const StilWave& wave) {
  times_.clear();
  for (const StilEvent& event : wave.events) {
    WaveTime time;
    const WaveTime* before = times_.empty() ? nullptr : &times_.back();
    if (event.time.empty()) {
      if (before != nullptr) time = *before;
    } else if (!this->time(event.time, before, event.where, time)) {
      return false;
    }
    times_.push_back(std::move(time));
  }
  warnOutOfOrder(wave);
  warnBehindPeriod(wave);
  return true;
}

bool WaveReader::time(const std::string& text, const WaveTime* before, const StilWhere& where,
                      WaveTime& out) {
  static const StilTime kBeginning;
  std::string reason;
  if (!stilExpression(text, before != nullptr ? &before->text : &kBeginning, out.text, reason)) {
    return reader_.failAt(where, kStilBadExpression, fmt::format("'{}': {}", text, reason));
  }
  Quantity value;
  ExpressionError error;
  if (!scope_.evaluate(out.text.text, value, error)) {
    return reader_.failAt(where, kStilBadExpression,
                          fmt::format("'{}': {}", text, expressionErrorText(error)));
  }
  TIME time;
  if (!quantityToTime(value, time, reason)) {
    return reader_.failAt(where, kStilBadTime, fmt::format("'{}': {}", text, reason));
  }
  out.value = femtoseconds(time);
  return true;
}

void WaveReader::warnOutOfOrder(const StilWave& wave) {
  for (std::size_t i = 1; i < times_.size(); ++i) {
    if (times_[i].value >= times_[i - 1].value) continue;
    const std::string text = fmt::format("an event at {} stands behind one at {}",
                                         PBtimeText(timeOfFemtoseconds(times_[i].value)),
                                         PBtimeText(timeOfFemtoseconds(times_[i - 1].value)));
    reader_.warnAt(wave.events[i].where, kStilBadTime, text);
  }
}

// Such an event takes place in a later cycle, if at all.
void WaveReader::warnBehindPeriod(const StilWave& wave) {
  const auto late = std::ranges::find_if(
      times_, [this](const WaveTime& time) { return time.value > period_.value; });
  if (late == times_.end()) return;
  const std::string text = fmt::format("an event at {} lies behind the period of {}",
                                       PBtimeText(timeOfFemtoseconds(late->value)),
                                       PBtimeText(timeOfFemtoseconds(period_.value)));
  reader_.warnAt(wave.events[static_cast<std::size_t>(late - times_.begin())].where, kStilBadTime,
                 text);
}

bool WaveReader::readCharacter(const StilWave& wave, std::size_t character,
                               std::vector<Wave>& waves) {
  Wave events;
  for (std::size_t i = 0; i < wave.events.size(); ++i) {
    const std::vector<StilState>& states = wave.events[i].states;
    const std::size_t place = character < states.size() ? character : 0;
    char to = 0;
    const bool warns = place == character;
    if (!state(states[place], wave.events[i].where, warns, to)) return false;
    if (to != 0) events.push_back(event(times_[i], to));
  }
  std::ranges::stable_sort(events, {}, &WaveEvent::time);
  waves.push_back(plainCompares(events, event(period_, 'X')));
  return true;
}

WaveEvent WaveReader::event(const WaveTime& time, char state) {
  return {time.value, time.text.named ? shapes_.expression(time.text.text) : 0, state};
}

// 0 for one that is left out.
bool WaveReader::state(const StilState& from, const StilWhere& where, bool warns, char& to) {
  to = from.state;
  if (to != 0) return true;
  const auto* other = std::ranges::find(kOtherStates, from.other, &OtherState::name);
  if (other != kOtherStates.end()) {
    to = other->state;
    return true;
  }
  const std::string text = fmt::format("a database has no event like \"{}\"", from.other);
  if (!lenient_) return reader_.failAt(where, kStilUnsupported, text);
  if (warns) reader_.warnAt(where, kStilUnsupported, text);
  if (std::ranges::find(kValidWords, from.other) != kValidWords.end()) to = 'X';
  return true;
}
