#include "tools/import_vcd_shapes.h"

#include <algorithm>

#include "base/time.h"

namespace {

TIME timeOf(std::int64_t femtoseconds) {
  return {static_cast<std::int32_t>(femtoseconds / kFemtosecondsPerMajor),
          static_cast<std::int32_t>(femtoseconds % kFemtosecondsPerMajor)};
}

// The level that stands as S. Where the signal comes back to its level, or changes
// often, the last level is the rest between pulses.
VcdLevel datumLevel(VcdLevel entry, std::span<const VcdChange> changes) {
  const VcdLevel last = changes.back().level;
  if (changes.size() == 1 || (changes.size() == 2 && last != entry)) return last;
  return std::ranges::find_if(changes, [last](const VcdChange& c) { return c.level != last; })
      ->level;
}

}  // namespace

std::optional<VcdLevel> vcdDatum(const VcdShape& shape, VcdLevel entry,
                                 std::span<const VcdChange> changes) {
  std::optional<VcdLevel> datum;
  VcdLevel wanted = entry;
  VcdLevel given = entry;
  auto event = shape.events.begin();
  auto change = changes.begin();
  while (event != shape.events.end() || change != changes.end()) {
    const bool changes_ =
        change != changes.end() && (event == shape.events.end() || change->offset <= event->first);
    const bool drives =
        event != shape.events.end() && (change == changes.end() || event->first <= change->offset);
    if (changes_) wanted = (change++)->level;
    if (drives) {
      const char state = (event++)->second;
      if (state == 'S' && !datum) datum = wanted;
      given = state == 'S' ? *datum : static_cast<VcdLevel>(kVcdDriven.find(state));
    }
    if (given != wanted) return {};
  }
  return datum;
}

const VcdShape* VcdShapes::add(std::vector<std::pair<std::int64_t, char>> events) {
  const auto [place, fresh] = known_.try_emplace(std::move(events), nullptr);
  if (!fresh) return place->second;
  Shape shape;
  for (const auto& [offset, state] : place->first) shape.push_back({timeOf(offset), {}, state});
  shapes_.push_back({writer_.addShape(shape), place->first});
  return place->second = &shapes_.back();
}

const VcdShape* VcdShapes::make(VcdLevel entry, std::span<const VcdChange> changes) {
  const VcdLevel datum = datumLevel(entry, changes);
  std::vector<std::pair<std::int64_t, char>> events;
  for (const VcdChange& change : changes) {
    events.emplace_back(change.offset, change.level == datum ? 'S' : kVcdDriven[change.level]);
  }
  return add(std::move(events));
}

VcdShapeList::Fit VcdShapeList::find(VcdLevel entry, std::span<const VcdChange> changes) {
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const std::optional<VcdLevel> datum = vcdDatum(*entries_[i].shape, entry, changes);
    if (!datum) continue;
    const Fit fit = {entries_[i].shape, *datum};
    if (!changes.empty()) {
      ++entries_[i].needed;
      for (; i > 0 && entries_[i - 1].needed <= entries_[i].needed; --i) {
        std::swap(entries_[i - 1], entries_[i]);
      }
    }
    return fit;
  }
  return {};
}

// Behind the others that were needed more than once.
void VcdShapeList::add(const VcdShape* shape) {
  if (entries_.size() == kMostShapes) entries_.pop_back();
  const auto place = std::ranges::find_if(entries_, [](const Entry& e) { return e.needed <= 1; });
  entries_.insert(place, {shape, 1});
}
