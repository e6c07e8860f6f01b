#include <fmt/format.h>

#include <algorithm>

#include "base/errors.h"
#include "tools/build_internal.h"

namespace {

// As the sections make their tables when they are loaded.
int tableBuckets(const PVBdatabase& slot) {
  constexpr int kSpareBuckets = 4;
  return std::clamp(slot.header.rowWidth, 0, kMaxRowWidth) + kSpareBuckets;
}

template <typename T>
std::vector<std::size_t> orderOf(const std::vector<std::unique_ptr<T>>& records, int buckets) {
  std::vector<PVBid> ids;
  ids.reserve(records.size());
  for (const auto& record : records) ids.push_back(record->id);
  return entryOrder(ids, buckets);
}

}  // namespace

// --- Signals -------------------------------------------------------------------------

bool SignalBuild::section() {
  begun_ = true;
  return readFields(build_.in, kSignalCounterFields, counters_);
}

bool SignalBuild::groups() {
  if (!begun_) return build_.in.failLine(kWrongPlace, "groups stand below 'signals'");
  return build_.in.idList(groups_);
}

bool SignalBuild::signal() {
  begun_ = true;
  signals_.push_back(PVBsignalNew());
  PVBsignal& signal = *signals_.back();
  if (!build_.in.id(signal.id)) return false;
  if (signal.id == UNDEF) return build_.in.fail(kBadId, "a signal needs an id");
  if (!build_.in.optionalText(signal.name)) return false;
  build_.ownProperties(signal.propList);
  return readFields(build_.in, kSignalFields, signal);
}

bool SignalBuild::stateEntry() {
  if (signals_.empty()) return build_.in.failLine(kWrongPlace, "states stand below a signal");
  PVBsignal& signal = *signals_.back();
  const bool in = build_.in.keyword() == "in-state";
  auto& entry = (in ? signal.inStates : signal.outStates).entries.emplace_back();
  return build_.in.optionalText(entry.first) && build_.in.id(entry.second) && build_.in.finish();
}

ListLine SignalBuild::list() {
  if (signals_.empty()) return ListLine::unknown;
  return readListLine(build_.in, kSignalLists, *signals_.back());
}

// The text says all that there is, so what the opening made doesn't stay.
bool SignalBuild::finish() {
  if (!begun_) return true;
  PVBdatabase& slot = build_.slot();
  const std::vector<std::size_t> order = orderOf(signals_, tableBuckets(slot));
  slot.signals = std::make_unique<PVBsignalData>(tableBuckets(slot));
  for (const std::size_t index : order) {
    const PVBid id = signals_[index]->id;
    const std::string name = signals_[index]->name.value_or("");
    if (PVBsignalInsertAs(build_.database, std::move(signals_[index])) >= 0 || id < 0) continue;
    PBdiscardErrors();
    return build_.in.failText(kSignalRefused,
                              fmt::format("signal {} '{}': its id or name is in use", id, name));
  }
  signals_.clear();
  slot.signals->nextColumn = counters_.nextColumn;
  slot.signals->nextID = counters_.nextID;
  slot.signals->allGroups = groups_;
  slot.signals->changed = true;
  begun_ = false;
  return true;
}

// --- Pins ----------------------------------------------------------------------------

bool PinBuild::section() { return readFields(build_.in, kPinCounterFields, counters_.emplace()); }

bool PinBuild::pin() {
  const bool ate = build_.in.keyword() == "ate-pin";
  auto& pins = ate ? atePins_ : dutPins_;
  pins.push_back(PVBpinNew());
  pin_ = pins.back().get();
  column_ = nullptr;
  if (!build_.in.id(pin_->id)) return false;
  if (pin_->id == UNDEF) return build_.in.fail(kBadId, "a pin needs an id");
  build_.ownProperties(pin_->propList);
  return build_.in.optionalText(pin_->name) && readFields(build_.in, kPinFields, *pin_);
}

bool PinBuild::column() {
  columns_.push_back(PVBcolumnNew());
  column_ = columns_.back().get();
  pin_ = nullptr;
  build_.noProperties();
  if (!build_.in.id(column_->id)) return false;
  if (column_->id == UNDEF) return build_.in.fail(kBadId, "a column needs an id");
  return readFields(build_.in, kColumnFields, *column_);
}

ListLine PinBuild::list() {
  if (pin_ != nullptr) return readListLine(build_.in, kPinLists, *pin_);
  if (column_ != nullptr) return readListLine(build_.in, kColumnLists, *column_);
  return ListLine::unknown;
}

bool PinBuild::finish() {
  const int buckets = tableBuckets(build_.slot());
  const auto enter = [&](auto& records, std::string_view kind, auto insert) {
    for (const std::size_t index : orderOf(records, buckets)) {
      const PVBid id = records[index]->id;
      if (insert(std::move(records[index])) == id) continue;
      return build_.in.failText(kPinRefused, fmt::format("{} {}: its id is in use", kind, id));
    }
    records.clear();
    return true;
  };
  const int database = build_.database;
  const auto ate = [&](std::unique_ptr<PVBpin> pin) {
    return PVBpinInsertAs(database, PinKind::ate, std::move(pin));
  };
  const auto dut = [&](std::unique_ptr<PVBpin> pin) {
    return PVBpinInsertAs(database, PinKind::dut, std::move(pin));
  };
  const auto column = [&](std::unique_ptr<PVBcolumn> record) {
    return PVBcolumnInsertAs(database, std::move(record));
  };
  pin_ = nullptr;
  column_ = nullptr;
  if (!enter(atePins_, "ate-pin", ate) || !enter(dutPins_, "dut-pin", dut)) return false;
  if (!enter(columns_, "column", column)) return false;
  if (counters_) {
    build_.slot().pins->nextID = counters_->nextID;
    build_.slot().pins->changed = true;
    counters_.reset();
  }
  return true;
}
