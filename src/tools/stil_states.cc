#include <fmt/format.h>

#include <algorithm>

#include "tools/stil_expand_internal.h"

StilStates::StilStates(StilReader& reader, const StilTiming& timing, PatternWriter& writer,
                       bool lenient)
    : reader_(reader), timing_(timing), writer_(writer), lenient_(lenient) {
  const std::size_t count = reader.model().signals.size();
  characters_.assign(count, kNeverSet);
  fixed_.assign(count, 0);
  setAt_.assign(count, 0);
  places_.resize(kPlaces);
  dirty_.assign(count, 0);
  told_.resize(count);
  assigned_.assign(count, 0);
}

void StilStates::forget() {
  release(0);
  for (std::uint32_t signal = 0; signal < size(); ++signal) change(signal, kNeverSet);
  table_ = kNoTable;
}

void StilStates::useTable(std::int64_t table) {
  table_ = table;
  tableAssigned_ = true;
}

void StilStates::fix(std::uint32_t signal, char character) {
  set(signal, character);
  ++fixed_[signal];
  order_.push_back(signal);
}

void StilStates::release(std::size_t mark) {
  for (; order_.size() > mark; order_.pop_back()) --fixed_[order_.back()];
}

void StilStates::save(Saved& saved) const {
  saved.characters = characters_;
  saved.places = setAt_;
  saved.table = table_;
  if (!dry_) return;
  saved.assigned = assigned_;
  saved.tableAssigned = tableAssigned_;
}

void StilStates::restore(const Saved& saved) {
  for (std::uint32_t signal = 0; signal < size(); ++signal) {
    change(signal, saved.characters[signal]);
  }
  setAt_ = saved.places;
  table_ = saved.table;
  if (!dry_) return;
  assigned_ = saved.assigned;
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
  if (table_ != toldTable_) {
    writer_.useTable(static_cast<std::size_t>(table_));
    toldTable_ = table_;
    useWaves();
    if (!toldAny_) warnNeverSet(where);
    for (std::uint32_t signal = 0; signal < size(); ++signal) {
      if (!tellSignal(signal, where)) return false;
    }
    toldAny_ = true;
  } else {
    for (const std::uint32_t signal : changed_) {
      if (!tellSignal(signal, where)) return false;
    }
  }
  for (const std::uint32_t signal : changed_) dirty_[signal] = 0;
  changed_.clear();
  return true;
}

bool StilStates::tellSignal(std::uint32_t signal, const StilWhere& where) {
  const char character = characters_[signal];
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
  const bool known = place_ - setAt_[signal] < kPlaces;
  const StilWhere& place = known ? places_[setAt_[signal] % kPlaces] : where;
  const StilModel& model = reader_.model();
  std::string text = fmt::format("signal '{}' has no waveform for '{}'", model.signals[signal].name,
                                 characters_[signal]);
  if (!lenient_) return reader_.failAt(place, kStilUnknownWave, std::move(text));
  const std::uint64_t key = (static_cast<std::uint64_t>(table_) << 40) |
                            (static_cast<std::uint64_t>(signal) << 8) |
                            static_cast<unsigned char>(characters_[signal]);
  if (unknown_.insert(key).second) reader_.warnAt(place, kStilUnknownWave, std::move(text));
  return true;
}

void StilStates::warnNeverSet(const StilWhere& where) {
  const auto first = std::ranges::find(characters_, kNeverSet);
  if (first == characters_.end()) return;
  const StilModel& model = reader_.model();
  reader_.warnAt(
      where, kStilNoState,
      fmt::format("{} of {} signals have no state yet, the first is '{}'",
                  std::ranges::count(characters_, kNeverSet), size(),
                  model.signals[static_cast<std::size_t>(first - characters_.begin())].name));
}

// --- Passes that write nothing -------------------------------------------------------

void StilStates::beginDry() {
  dry_ = true;
  effect_ = {};
  effect_.inherited.assign(size(), 0);
  std::ranges::fill(assigned_, std::uint8_t{0});
  tableAssigned_ = false;
}

void StilStates::dryVector() {
  effect_.vectors = true;
  effect_.usesTable = effect_.usesTable || !tableAssigned_;
  for (std::size_t i = 0; i < assigned_.size(); ++i) {
    effect_.inherited[i] = static_cast<std::uint8_t>(effect_.inherited[i] | (assigned_[i] ^ 1U));
  }
}

void StilStates::endDry(const Saved& before, StilEffect& effect) {
  effect = std::move(effect_);
  effect.repeats = !effect.usesTable || table_ == before.table;
  for (std::size_t i = 0; i < size() && effect.repeats; ++i) {
    effect.repeats = effect.inherited[i] == 0 || characters_[i] == before.characters[i];
  }
  dry_ = false;
  restore(before);
}
