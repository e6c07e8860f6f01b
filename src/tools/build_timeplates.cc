#include <fmt/format.h>

#include "base/errors.h"
#include "tools/build_internal.h"

bool TimePlateBuild::section() {
  TimePlateHead head;
  if (!readFields(build_.in, kTimePlateHeadFields, head)) return false;
  if (head.cycleCapacity < 0 || head.cycleCapacity > 32767) {
    return build_.in.failLine(kOutOfRange, "cycle-capacity doesn't fit");
  }
  PVBtimePlateData& data = *build_.slot().timePlates;
  data.tpVersion = head.modeWord;
  data.cycleCapacity = static_cast<std::int16_t>(head.cycleCapacity);
  data.changed = true;
  return true;
}

bool TimePlateBuild::cycle() {
  PVBcycle cycle;
  if (!build_.in.number(cycle.index)) return false;
  if (!build_.in.optionalText(cycle.name) || !build_.in.time(cycle.time)) return false;
  PVBtimePlateData& data = *build_.slot().timePlates;
  auto& cycles = data.cycleTable;
  if (static_cast<std::int64_t>(cycles.size()) >= data.cycleCapacity) {
    return build_.in.failLine(kOutOfRange, "there are more cycles than cycle-capacity says");
  }
  cycles.push_back(std::move(cycle));
  return build_.in.finish();
}

bool TimePlateBuild::plate() {
  if (!finish()) return false;
  plate_ = PVBtimePlateNew();
  if (!build_.in.number(plate_->id) || !build_.in.optionalText(plate_->name)) return false;
  build_.ownProperties(plate_->firstRow);
  return readFields(build_.in, kTimePlateFields, *plate_);
}

bool TimePlateBuild::slot() {
  if (!plate_) return build_.in.failLine(kWrongPlace, "slots stand below a timeplate");
  std::int64_t direction = 0;
  if (!readWord(build_.in, kSlotWords, direction)) return false;
  const auto stored = static_cast<std::int32_t>(direction);
  if (stored != direction) return build_.in.fail(kOutOfRange, "the number doesn't fit");
  plate_->selectorLists.emplace_back(stored, PVBidList());
  return build_.in.finish();
}

bool TimePlateBuild::slotSignals() {
  if (!plate_ || plate_->selectorLists.empty()) {
    return build_.in.failLine(kWrongPlace, "'of' stands below a slot");
  }
  return build_.in.idList(plate_->selectorLists.back().second);
}

bool TimePlateBuild::level() {
  if (!plate_) return build_.in.failLine(kWrongPlace, "levels stand below a timeplate");
  build_.noProperties();
  return build_.in.time(plate_->levels.emplace_back().time) && build_.in.finish();
}

PVBtrack* TimePlateBuild::currentTrack() {
  if (plate_ && !plate_->levels.empty() && !plate_->levels.back().tracks.empty()) {
    return &plate_->levels.back().tracks.back();
  }
  build_.in.failLine(kWrongPlace, "this line stands below a track");
  return nullptr;
}

bool TimePlateBuild::track() {
  if (!plate_ || plate_->levels.empty()) {
    return build_.in.failLine(kWrongPlace, "tracks stand below a level");
  }
  PVBtrack& track = plate_->levels.back().tracks.emplace_back();
  build_.ownProperties(track.propList);
  return readFields(build_.in, kTrackFields, track);
}

// A character, then its count where that isn't 1.
bool TimePlateBuild::readState(PVBtrack& track) {
  char state = build_.in.peek();
  if (state == '"') {
    if (!build_.in.quotedCharacter(state)) return false;
  } else {
    build_.in.skip();
  }
  if (!PVBstateValid(state)) return build_.in.failLine(kBadState, "the state isn't known");
  std::int32_t count = 1;
  if (build_.in.peek() == 'x') {
    build_.in.skip();
    if (!build_.in.number(count)) return false;
  }
  track.stateChars += state;
  track.stateCounts.push_back(count);
  return true;
}

bool TimePlateBuild::event() {
  PVBtrack* track = currentTrack();
  if (track == nullptr) return false;
  if (!build_.in.time(track->eventTimes.emplace_back())) return false;
  std::optional<std::string>& expression = track->eventExprs.emplace_back();
  std::string_view key;
  bool hasKey = build_.in.attribute(key);
  if (!hasKey && !build_.in.atEnd()) {
    if (!readState(*track)) return false;
    hasKey = build_.in.attribute(key);
  }
  if (!hasKey) return build_.in.finish();
  constexpr std::array<std::string_view, 1> kKnown = {"expr"};
  if (key != kKnown.front()) return build_.in.unknownAttribute(key, kKnown);
  return build_.in.quoted(expression.emplace()) && build_.in.finish();
}

bool TimePlateBuild::state() {
  PVBtrack* track = currentTrack();
  if (track == nullptr) return false;
  if (build_.in.atEnd()) return build_.in.fail(kExpected, "a state is expected");
  return readState(*track) && build_.in.finish();
}

bool TimePlateBuild::trackList() {
  PVBtrack* track = currentTrack();
  if (track == nullptr) return false;
  if (build_.in.keyword() == "on") return build_.in.idList(track->signals);
  const std::size_t which = build_.in.keyword() == "selectors"        ? 0
                            : build_.in.keyword() == "selector-types" ? 1
                                                                      : 2;
  return build_.in.intList(track->selectorLists[which]);
}

bool TimePlateBuild::finish() {
  if (!plate_) return true;
  const PVBid id = plate_->id;
  const std::string name = plate_->name.value_or("");
  if (PVBtimePlateInsertAs(build_.database, std::move(plate_)) == id && id >= 0) return true;
  PBdiscardErrors();
  return build_.in.failText(
      kTimePlateRefused,
      fmt::format("timeplate {} '{}': its id or name is in use or out of range", id, name));
}
