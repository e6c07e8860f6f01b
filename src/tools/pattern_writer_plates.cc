#include <fmt/format.h>

#include <algorithm>

#include "base/errors.h"
#include "tools/flat_walk.h"
#include "tools/message.h"
#include "tools/pattern_writer_internal.h"

namespace {

constexpr std::string_view kUnnamedTable = "tp";
constexpr std::string_view kPeriodSuffix = ".period";
constexpr std::size_t kMostPlates = std::size_t{kMaxTimePlate} + 1;

// Spreads a word over all bits; equal words give equal numbers.
std::uint64_t mix(std::uint64_t word) {
  word ^= word >> 33;
  word *= 0xFF51AFD7ED558CCD;
  word ^= word >> 33;
  word *= 0xC4CEB9FE1A85EC53;
  return word ^ word >> 33;
}

// Of a pair without shapes it is 0, so that signals which never have any don't count.
std::uint64_t signalHash(std::uint32_t signal, ShapePair pair) {
  return pair != 0 ? mix(mix(pair) + signal + 1) : 0;
}

std::uint64_t tableHash(std::size_t table) { return mix(~std::uint64_t{table}); }

std::uint64_t shapeHash(const Shape& shape) {
  std::uint64_t hash = shape.size();
  for (const ShapeEvent& event : shape) {
    hash = mix(hash + static_cast<std::uint64_t>(femtoseconds(event.time)));
    hash = mix(hash + static_cast<unsigned char>(event.state));
    hash += std::hash<std::string>()(event.expression);
  }
  return hash;
}

ShapePair directionMask(SignalDirection direction) {
  if (direction == INPUT) return kInHalf;
  return direction == OUTPUT ? ~kInHalf : ~ShapePair{0};
}

}  // namespace

bool PlateMaker::fail(std::string text) {
  if (failure_.empty()) failure_ = std::move(text);
  return false;
}

// --- Signals, tables, shapes ---------------------------------------------------------

void PlateMaker::addSignal(PVBid id, SignalDirection direction) {
  ids_.push_back(id);
  masks_.push_back(directionMask(direction));
  pairs_.push_back(0);
}

std::size_t PlateMaker::addTable(std::string_view name, TIME period, std::string_view expression) {
  if (period <= TIME_ZERO || period > TIME_MAX) {
    fail(fmt::format("the period of '{}' is {}", name,
                     period > TIME_MAX ? "longer than a database can hold" : "not above zero"));
  }
  if (tables_.empty()) hash_ ^= tableHash(0);
  tables_.push_back({std::string(name.empty() ? kUnnamedTable : name), femtoseconds(period),
                     std::string(expression)});
  return tables_.size() - 1;
}

ShapeId PlateMaker::addShape(const Shape& shape) {
  if (shape.empty()) return kNoShape;
  const std::uint64_t hash = shapeHash(shape);
  const auto [first, last] = shapeByHash_.equal_range(hash);
  const auto same =
      std::find_if(first, last, [&](const auto& entry) { return shapes_[entry.second] == shape; });
  if (same != last) return same->second;
  const auto id = static_cast<ShapeId>(shapes_.size());
  shapes_.push_back(shape);
  shapeByHash_.emplace(hash, id);
  return id;
}

bool PlateMaker::useTable(std::size_t table) {
  if (table >= tables_.size()) return fail(fmt::format("there is no waveform table {}", table));
  if (table == table_) return true;
  hash_ ^= tableHash(table_) ^ tableHash(table);
  table_ = table;
  changed_ = true;
  return true;
}

void PlateMaker::change(std::uint32_t signal, ShapePair pair) {
  hash_ ^= signalHash(signal, pairs_[signal]) ^ signalHash(signal, pair);
  pairs_[signal] = pair;
  changed_ = true;
}

// --- Combinations --------------------------------------------------------------------

bool PlateMaker::isCurrent(std::size_t plate) const {
  const auto first = platePairs_.begin() + static_cast<std::ptrdiff_t>(plate * pairs_.size());
  return plates_[plate].table == table_ && std::equal(pairs_.begin(), pairs_.end(), first);
}

bool PlateMaker::settle() {
  if (tables_.empty()) return fail("a cycle needs a table");
  const auto [first, last] = plateByHash_.equal_range(hash_);
  const auto same =
      std::find_if(first, last, [&](const auto& entry) { return isCurrent(entry.second); });
  if (same == last && !make()) return false;
  current_ = same != last ? plates_[same->second].id : plates_.back().id;
  changed_ = false;
  return true;
}

// A plate for what is in force, entered as the last one.
bool PlateMaker::make() {
  if (plates_.size() == kMostPlates) {
    return fail(fmt::format(
        "{} combinations of a table and the signals' waves occur, but a database holds no more "
        "than {} timeplates",
        kMostPlates + 1, kMostPlates));
  }
  const Table& table = tables_[table_];
  auto plate = PVBtimePlateNew();
  const std::string name = PVBtimePlateFreeName(database_, table.name);
  plate->name = name;
  plate->period = timeOfFemtoseconds(table.period);
  int index = 0;
  for (const Slot& slot : slots()) {
    if (!addWave(*plate, index++, slot)) {
      return fail(
          fmt::format("a wave of timeplate '{}' can't be made: {}", name, takePostedReasons()));
    }
  }
  const PVBid id = PVBtimePlateInsert(database_, std::move(plate));
  if (id == UNDEF) {
    return fail(fmt::format("timeplate '{}' can't be entered: {}", name, takePostedReasons()));
  }
  if (!addPeriodVariable(name)) return false;
  plateByHash_.emplace(hash_, plates_.size());
  plates_.push_back({table_, static_cast<std::uint16_t>(id)});
  platePairs_.insert(platePairs_.end(), pairs_.begin(), pairs_.end());
  return true;
}

// In the order of the first signal, its input before its output.
std::vector<PlateMaker::Slot> PlateMaker::slots() const {
  std::vector<Slot> slots;
  std::unordered_map<std::uint64_t, std::size_t> places;  // by direction and shape
  const auto put = [&](SignalDirection direction, ShapeId shape, PVBid signal) {
    if (shape == kNoShape) return;
    const auto key = std::uint64_t{shape} << 1 | (direction == OUTPUT ? 1U : 0U);
    const auto [place, isNew] = places.emplace(key, slots.size());
    if (isNew) slots.push_back({direction, shape, {}});
    slots[place->second].signals.push_back(signal);
  };
  for (std::size_t i = 0; i < pairs_.size(); ++i) {
    put(INPUT, static_cast<ShapeId>(pairs_[i] & kInHalf), ids_[i]);
    put(OUTPUT, static_cast<ShapeId>(pairs_[i] >> 32), ids_[i]);
  }
  return slots;
}

bool PlateMaker::addWave(PVBtimePlate& plate, int index, const Slot& slot) const {
  if (PVBallocAsNecessary(plate, index) != 0) return false;
  for (const ShapeEvent& event : shapes_[slot.shape]) {
    const int added =
        event.expression.empty()
            ? PVBallocLevelAsNecessary(plate, 0, index, -1, event.time, event.state, 1)
            : PVBallocLevelAsNecessary(plate, 0, index, -1, event.time, event.expression,
                                       event.state, 1);
    if (added != 0) return false;
  }
  return PVBtrackSetDirection(plate, index, slot.direction) &&
         PVBtrackSetSignals(plate, index, slot.signals);
}

bool PlateMaker::addPeriodVariable(const std::string& plate) {
  const std::string& expression = tables_[table_].expression;
  if (equations_ == nullptr || expression.empty()) return true;
  if (equations_->sheets.empty()) ssAddSheet(*equations_, kFirstSheet);
  ssSheet& sheet = equations_->sheets[equations_->selectedSheet];
  const std::string name = plate + std::string(kPeriodSuffix);
  return ssAddSymbol(sheet, name, ssType::time, expression) != nullptr ||
         fail(fmt::format("variable '{}' is there already, in place of the timeplate's period",
                          name));
}
