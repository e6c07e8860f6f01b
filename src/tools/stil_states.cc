#include <fmt/format.h>

#include <algorithm>

#include "tools/stil_expand_internal.h"

StilStates::StilStates(StilReader& reader, const StilTiming& timing, PatternWriter& writer,
                       bool lenient)
    : reader_(reader), timing_(timing), writer_(writer), lenient_(lenient) {
  const std::size_t count = reader.model().signals.size();
  const std::vector<StilSignal>& signals = reader.model().signals;
  carried_ = static_cast<std::size_t>(
      std::ranges::find(signals, StilDirection::supply, &StilSignal::direction) - signals.begin());
  states_.resize(count);
  changed_.resize(count + 1);
  places_.resize(kPlaces);
  told_.resize(count);
}

void StilStates::forget() {
  release(0);
  for (std::uint32_t signal = 0; signal < size(); ++signal) {
    change(states_[signal], signal, kNeverSet);
  }
  table_ = kNoTable;
  begins_ = true;
}

void StilStates::useTable(std::int64_t table) {
  table_ = table;
  tableAssigned_ = true;
}

void StilStates::fix(std::uint32_t signal, char character) {
  State& state = states_[signal];
  set(state, signal, character);
  ++state.fixed;
  order_.push_back(signal);
}

void StilStates::release(std::size_t mark) {
  for (; order_.size() > mark; order_.pop_back()) --states_[order_.back()].fixed;
}

void StilStates::save(Saved& saved) const {
  saved.states = states_;
  saved.table = table_;
  saved.tableAssigned = tableAssigned_;
}

// What is fixed stays fixed: blocks that end have released theirs.
void StilStates::restore(const Saved& saved) {
  for (std::uint32_t signal = 0; signal < size(); ++signal) {
    State& state = states_[signal];
    const State& before = saved.states[signal];
    change(state, signal, before.character);
    state.setAt = before.setAt;
    state.assigned = before.assigned;
  }
  table_ = saved.table;
  tableAssigned_ = saved.tableAssigned;
}

// --- For the writer ------------------------------------------------------------------

const StilCharacter* StilStates::wave(std::uint32_t signal, char character) const {
  if (table_ == kNoTable || character == kNeverSet) return nullptr;
  const StilCharacters& all = timing_.characters(static_cast<std::size_t>(table_), signal);
  const StilCharacter& wave = all[static_cast<unsigned char>(character)];
  return wave.defined ? &wave : nullptr;
}

bool StilStates::tell(const StilWhere& where) {
  if (begins_) warnNeverSet(where);
  begins_ = false;
  if (table_ != toldTable_) {
    writer_.useTable(static_cast<std::size_t>(table_));
    toldTable_ = table_;
    useWaves();
    for (std::uint32_t signal = 0; signal < carried_; ++signal) {
      if (!tellSignal(signal, where)) return false;
    }
    toldAny_ = true;
  } else {
    for (const std::uint32_t signal : changed()) {
      if (signal < carried_ && !tellSignal(signal, where)) return false;
    }
  }
  for (const std::uint32_t signal : changed()) states_[signal].dirty = false;
  changedCount_ = 0;
  return true;
}

bool StilStates::tellSignal(std::uint32_t signal, const StilWhere& where) {
  const char character = states_[signal].character;
  SignalCycle cycle;
  if (character != kNeverSet) {
    const StilCharacters& all = *waves_[static_cast<std::size_t>(table_)][signal];
    const StilCharacter& wave = all[static_cast<unsigned char>(character)];
    if (!wave.defined && !unknownWave(signal, where)) return false;
    if (wave.defined) cycle = wave.cycle;
  }
  if (toldAny_ && cycle == told_[signal]) return true;
  told_[signal] = cycle;
  writer_.set(signal, cycle);
  return true;
}

void StilStates::useWaves() {
  const auto table = static_cast<std::size_t>(table_);
  if (waves_.size() <= table) waves_.resize(table + 1);
  std::vector<const StilCharacters*>& waves = waves_[table];
  for (auto signal = static_cast<std::uint32_t>(waves.size()); signal < size(); ++signal) {
    waves.push_back(&timing_.characters(table, signal));
  }
}

// A place that is no longer known is that of the vector.
bool StilStates::unknownWave(std::uint32_t signal, const StilWhere& where) {
  const std::uint32_t setAt = states_[signal].setAt;
  const bool known = place_ - setAt < kPlaces;
  const StilWhere& place = known ? places_[setAt % kPlaces] : where;
  const StilModel& model = reader_.model();
  std::string text = fmt::format("signal '{}' has no waveform for '{}'", model.signals[signal].name,
                                 states_[signal].character);
  if (!lenient_) return reader_.failAt(place, kStilUnknownWave, std::move(text));
  const std::uint64_t key = (static_cast<std::uint64_t>(table_) << 40) |
                            (static_cast<std::uint64_t>(signal) << 8) |
                            static_cast<unsigned char>(states_[signal].character);
  if (unknown_.insert(key).second) reader_.warnAt(place, kStilUnknownWave, std::move(text));
  return true;
}

void StilStates::warnNeverSet(const StilWhere& where) {
  const std::span<const State> carried(states_.data(), carried_);
  const auto first = std::ranges::find(carried, kNeverSet, &State::character);
  if (first == carried.end() || !warnedAt_.emplace(where.file, where.place.offset).second) return;
  const StilModel& model = reader_.model();
  reader_.warnAt(
      where, kStilNoState,
      fmt::format("{} of {} signals have no state yet, the first is '{}'",
                  std::ranges::count(carried, kNeverSet, &State::character), carried_,
                  model.signals[static_cast<std::size_t>(first - carried.begin())].name));
}

// --- Passes that write nothing -------------------------------------------------------

void StilStates::beginDry() {
  dry_ = true;
  effect_ = {};
  effect_.inherited.assign(size(), 0);
  for (State& state : states_) state.assigned = false;
  tableAssigned_ = false;
}

void StilStates::dryVector() {
  effect_.vectors = true;
  effect_.usesTable = effect_.usesTable || !tableAssigned_;
  for (std::size_t i = 0; i < size(); ++i) {
    if (!states_[i].assigned) effect_.inherited[i] = 1;
  }
}

void StilStates::endDry(const Saved& before, StilEffect& effect) {
  effect = std::move(effect_);
  effect.repeats = !effect.usesTable || table_ == before.table;
  for (std::size_t i = 0; i < size() && effect.repeats; ++i) {
    effect.repeats = effect.inherited[i] == 0 || states_[i].character == before.states[i].character;
  }
  dry_ = false;
  restore(before);
}
