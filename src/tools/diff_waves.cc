// Waves over time: what is driven and what is expected, wherever cycles begin.
//
// Each signal has a lane for each kind of state. An event waits in its lane until a
// later one comes, because of several at one time the last counts; then it is a change
// if the level is another one than before. Changes wait for their partner of the other
// side. The side that is behind walks on, so they wait no longer than a cycle.

#include <algorithm>
#include <array>
#include <cstdlib>

#include "pvb/timeplate.h"
#include "tools/diff_internal.h"

namespace {

enum Channel : std::uint8_t { kDriven, kExpected, kOther, kNoChannel };
constexpr std::size_t kChannels = 3;
constexpr char kNothing = 0;
constexpr std::size_t kWaiting = 64;  // changes that may wait in a lane before a look at the time
// Equal cycles in a row after which nothing new comes.
constexpr std::uint64_t kSteadyCycles = 3;

std::array<std::uint8_t, 256> channelTable() {
  std::array<std::uint8_t, 256> table{};
  for (std::size_t c = 0; c < table.size(); ++c) {
    const int direction = PVBstateDirection(static_cast<char>(c));
    table[c] = direction == 0 ? kDriven : direction == 1 ? kExpected : kOther;
  }
  table['?'] = kNoChannel;
  return table;
}
const std::array<std::uint8_t, 256> kChannelOf = channelTable();

struct RowPlace {
  int pattern = kMainPattern;
  std::uint32_t row = 0;
  std::uint64_t cycle = 0;
};

struct Change {
  std::int64_t time;
  char state;
  char before;
  RowPlace place;
};

struct Lane {
  char level = kNothing;
  char waitingState = kNothing;  // of the event that waits
  std::int64_t waitingTime = 0;
  RowPlace waitingPlace;
  std::vector<Change> changes;  // without a partner so far
  std::size_t first = 0;

  bool hasChanges() const { return first < changes.size(); }
  void drop() {
    if (++first < changes.size()) return;
    changes.clear();
    first = 0;
  }
};

// What the events of a cycle leave in the lanes of their signal.
struct ChannelEffect {
  char last = kNothing;    // nothing: no events
  char before = kNothing;  // at an earlier time of the cycle
  std::int64_t time = 0;   // of the last one
};
struct WaveEffect {
  bool known = false;
  std::array<ChannelEffect, kChannels> channels;
};

std::string levelText(char state) { return state == kNothing ? "nothing" : PVBstateText(state); }

class WaveDiff {
 public:
  WaveDiff(DiffSideWalk& a, DiffSideWalk& b, const DiffSignals& signals, const EventStore& store,
           DiffTally& tally)
      : sides_{&a, &b},
        signals_(signals),
        store_(store),
        tally_(tally),
        rows_(a, b),
        usesPrevious_(a.meaning().usesPrevious() || b.meaning().usesPrevious()) {
    events_.resize(signals.a.size());
    for (auto& lanes : lanes_) lanes.resize(signals.a.size() * kChannels);
  }

  bool run(Progress& progress);

 private:
  bool ready(std::size_t side) { return sides_[side]->ready(); }
  void together();
  void apart();
  void upToEnd(std::size_t side);
  bool steady() const;
  void skipSteady();
  void moveOn(std::int64_t from, std::int64_t time);
  bool sameEvents();
  bool inStep() const;
  void cyclesAlike();
  void separate();
  const WaveEffect& effect(EventListId id);
  void cycle(std::size_t side);
  void events(std::size_t side, const RowPlace& place);
  void commit(std::size_t side, std::size_t lane);
  void offer(std::size_t side, std::size_t lane, const Change& change);
  void catchUp(std::size_t side, std::size_t lane, std::int64_t time);
  void catchUpAll(std::int64_t time);
  void tell(std::size_t side, std::size_t lane, const Change& change, char otherLevel);
  void end();

  std::array<DiffSideWalk*, 2> sides_;
  const DiffSignals& signals_;
  const EventStore& store_;
  DiffTally& tally_;
  PassSkip skip_;
  EqualRows rows_;
  bool usesPrevious_;
  // By signal and channel. While both sides do the same those of the first stand for
  // both.
  std::array<std::vector<Lane>, 2> lanes_;
  bool alike_ = true;
  std::vector<EventListId> events_;  // of a cycle that is the same on both sides
  std::vector<WaveEffect> effects_;  // by list of events
};

// --- Steps ---------------------------------------------------------------------------

bool WaveDiff::run(Progress& progress) {
  bool moreA = ready(0);
  bool moreB = ready(1);
  while (moreA && moreB) {
    progress.update(sides_[0]->time());
    if (sides_[0]->time() == sides_[1]->time()) {
      together();
    } else if (steady()) {
      skipSteady();
    } else {
      apart();
    }
    moreA = ready(0);
    moreB = ready(1);
  }
  for (const std::size_t side : {0U, 1U}) upToEnd(side);
  if (sides_[0]->walk().failed() || sides_[1]->walk().failed()) return false;
  end();
  return true;
}

// What is left of a side, as far as the other one reaches.
void WaveDiff::upToEnd(std::size_t side) {
  while (ready(side)) {
    const bool shorter = sides_[side]->time() < sides_[1 - side]->time();
    if (!shorter && sides_[side]->step().period > 0) return;
    cycle(side);
  }
}

// Both sides begin a cycle at the same time.
void WaveDiff::together() {
  DiffSideWalk& a = *sides_[0];
  DiffSideWalk& b = *sides_[1];
  if (PassSkip::meets(a, b)) {
    catchUpAll(a.time());
    skip_.arrive(a, b, tally_);
  }
  const bool alike = a.step().period == b.step().period;
  if (steady()) {
    skipSteady();
  } else if (alike && sameEvents()) {
    cyclesAlike();
  } else if (a.step().period == 0) {
    cycle(0);
  } else {
    cycle(0);
    cycle(1);
  }
}

// The sides begin cycles at different times.
void WaveDiff::apart() {
  DiffSideWalk& a = *sides_[0];
  DiffSideWalk& b = *sides_[1];
  const std::int64_t apart = a.time() - b.time();
  if (skip_.meetsApart(a, b, apart)) {
    const std::int64_t from = std::min(a.time(), b.time());
    catchUpAll(from);
    skip_.arriveApart(a, b, tally_, apart);
    const std::int64_t skipped = std::min(a.time(), b.time()) - from;
    if (skipped > 0) moveOn(from, skipped);
  }
  cycle(apart < 0 ? 0 : 1);
}

// Whether both sides are in long runs of cycles of one length, less than one apart.
bool WaveDiff::steady() const {
  const auto& [a, b] = sides_;
  const std::int64_t apart = std::abs(a->time() - b->time());
  return a->step().period == b->step().period && (apart == 0 || apart < a->step().period) &&
         std::min(a->left(), b->left()) > kSteadyCycles;
}

// Some cycles of the runs are compared, all others but the last differ as the last of
// these does.
void WaveDiff::skipSteady() {
  const std::size_t behind = sides_[0]->time() <= sides_[1]->time() ? 0 : 1;
  const std::int64_t from = sides_[behind]->time();
  std::uint64_t before = tally_.count;
  for (std::uint64_t i = 0; i < kSteadyCycles; ++i) {
    before = tally_.count;
    cycle(behind);
    cycle(1 - behind);
    catchUpAll(sides_[behind]->time());
  }
  // The end of a stretch may cut the last one.
  const std::uint64_t rest = std::min(sides_[0]->left(), sides_[1]->left()) - 1;
  tally_.count += (tally_.count - before) * rest;
  moveOn(from, sides_[0]->step().period * static_cast<std::int64_t>(rest));
  for (DiffSideWalk* side : sides_) side->take(rest);
}

// What happened from a time on happens again after `time`.
void WaveDiff::moveOn(std::int64_t from, std::int64_t time) {
  for (std::vector<Lane>& lanes : lanes_) {
    for (Lane& lane : lanes) {
      if (lane.waitingTime >= from) lane.waitingTime += time;
      for (std::size_t i = lane.first; i < lane.changes.size(); ++i) {
        if (lane.changes[i].time >= from) lane.changes[i].time += time;
      }
    }
  }
}

void WaveDiff::cycle(std::size_t side) {
  separate();
  DiffSideWalk& walk = *sides_[side];
  if (!walk.isSpacer()) {
    events(side, {walk.step().pattern, walk.step().rowNumber, walk.cycle()});
  }
  // Cycles without length say the same again at the same time.
  walk.take(walk.step().period > 0 ? 1 : walk.step().count);
}

void WaveDiff::events(std::size_t side, const RowPlace& place) {
  DiffSideWalk& walk = *sides_[side];
  PlateMeaning& plate = walk.meaning().plate(walk.step().row->timeplate);
  const std::int64_t end = walk.stretch().to - walk.stretch().from;
  const std::int64_t begin = walk.step().start - walk.stretch().from;
  for (std::size_t signal = 0; signal < signals_.a.size(); ++signal) {
    const EventListId id = walk.settled(plate, signal);
    if (walk.meaning().usesPrevious()) walk.leave(signal, id);
    for (const MeaningEvent& event : store_.events(id)) {
      const std::uint8_t channel = kChannelOf[static_cast<unsigned char>(event.state)];
      if (event.time < 0 || channel == kNoChannel) continue;
      // What a cut cycle had before the stretch is the level that it begins with.
      const std::int64_t time = std::max<std::int64_t>(begin + event.time, 0);
      if (time >= end) break;
      const std::size_t index = signal * kChannels + channel;
      Lane& lane = lanes_[side][index];
      if (lane.waitingState == event.state) continue;
      if (lane.waitingState != kNothing && time > lane.waitingTime) commit(side, index);
      lane.waitingState = event.state;
      lane.waitingTime = time;
      lane.waitingPlace = place;
    }
  }
}

// --- Cycles that are the same on both sides ------------------------------------------

// Whether all signals have the same events in the cycle, all of them within the stretch,
// and both sides did the same up to here. The events are then in `events_`.
bool WaveDiff::sameEvents() {
  DiffSideWalk& a = *sides_[0];
  DiffSideWalk& b = *sides_[1];
  if (a.isSpacer() || b.isSpacer() || a.time() < 0) return false;
  for (const DiffSideWalk* side : sides_) {
    if (side->stretch().to - side->step().period < side->step().start) return false;
  }
  PlateMeaning& plateA = a.meaning().plate(a.step().row->timeplate);
  const bool equal = (!usesPrevious_ || a.previous() == b.previous()) && rows_.equal();
  PlateMeaning* plateB = equal ? nullptr : &b.meaning().plate(b.step().row->timeplate);
  for (std::size_t signal = 0; signal < events_.size(); ++signal) {
    events_[signal] = a.settled(plateA, signal);
    if (!equal && events_[signal] != b.settled(*plateB, signal)) return false;
  }
  return alike_ || (alike_ = inStep());
}

bool WaveDiff::inStep() const {
  const auto same = [](const Lane& a, const Lane& b) {
    return !a.hasChanges() && !b.hasChanges() && a.level == b.level &&
           a.waitingState == b.waitingState && a.waitingTime == b.waitingTime;
  };
  return std::equal(lanes_[0].begin(), lanes_[0].end(), lanes_[1].begin(), same);
}

void WaveDiff::cyclesAlike() {
  DiffSideWalk& walk = *sides_[0];
  const RowPlace place = {walk.step().pattern, walk.step().rowNumber, walk.cycle()};
  const std::int64_t begin = walk.time();
  for (std::size_t signal = 0; signal < events_.size(); ++signal) {
    if (usesPrevious_) walk.leave(signal, events_[signal]);
    const WaveEffect& left = effect(events_[signal]);
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
      const ChannelEffect& last = left.channels[channel];
      if (last.last == kNothing) continue;
      Lane& lane = lanes_[0][signal * kChannels + channel];
      if (last.before != kNothing) {
        lane.level = last.before;
      } else if (lane.waitingState == last.last) {
        continue;
      } else if (lane.waitingState != kNothing && lane.waitingTime < begin + last.time) {
        lane.level = lane.waitingState;
      }
      lane.waitingState = last.last;
      lane.waitingTime = begin + last.time;
      lane.waitingPlace = place;
    }
  }
  if (usesPrevious_) sides_[1]->previous() = walk.previous();
  for (DiffSideWalk* side : sides_) side->take(1);
}

// From here on each side has lanes of its own.
void WaveDiff::separate() {
  if (!alike_) return;
  alike_ = false;
  for (std::size_t index = 0; index < lanes_[0].size(); ++index) {
    const Lane& from = lanes_[0][index];
    Lane& to = lanes_[1][index];
    to.level = from.level;
    to.waitingState = from.waitingState;
    to.waitingTime = from.waitingTime;
    to.waitingPlace = from.waitingPlace;
  }
}

const WaveEffect& WaveDiff::effect(EventListId id) {
  if (id >= effects_.size()) effects_.resize(id + 1);
  WaveEffect& found = effects_[id];
  if (found.known) return found;
  found.known = true;
  for (const MeaningEvent& event : store_.events(id)) {
    const std::uint8_t channel = kChannelOf[static_cast<unsigned char>(event.state)];
    if (event.time < 0 || channel == kNoChannel) continue;
    ChannelEffect& left = found.channels[channel];
    if (left.last != kNothing && left.time < event.time) left.before = left.last;
    left.last = event.state;
    left.time = event.time;
  }
  return found;
}

// --- Lanes ---------------------------------------------------------------------------

void WaveDiff::commit(std::size_t side, std::size_t index) {
  Lane& lane = lanes_[side][index];
  const Change change = {lane.waitingTime, lane.waitingState, lane.level, lane.waitingPlace};
  lane.waitingState = kNothing;
  if (change.state == lane.level) return;
  lane.level = change.state;
  offer(side, index, change);
}

void WaveDiff::offer(std::size_t side, std::size_t index, const Change& change) {
  Lane& mine = lanes_[side][index];
  Lane& other = lanes_[1 - side][index];
  while (other.hasChanges() && other.changes[other.first].time < change.time) {
    tell(1 - side, index, other.changes[other.first], change.before);
    other.drop();
  }
  if (!other.hasChanges()) {
    mine.changes.push_back(change);
    if (mine.changes.size() - mine.first > kWaiting) {
      catchUp(side, index, sides_[1 - side]->time());
    }
    return;
  }
  const Change& partner = other.changes[other.first];
  if (partner.time > change.time) {
    tell(side, index, change, partner.before);
    return;
  }
  if (partner.state != change.state) tell(side, index, change, partner.state);
  other.drop();
}

// Tells the changes before `time`, up to which the other side has walked.
void WaveDiff::catchUp(std::size_t side, std::size_t index, std::int64_t time) {
  Lane& other = lanes_[1 - side][index];
  if (other.waitingState != kNothing && other.waitingTime < time) commit(1 - side, index);
  Lane& mine = lanes_[side][index];
  while (mine.hasChanges() && mine.changes[mine.first].time < time) {
    const Change change = mine.changes[mine.first];
    mine.drop();
    tell(side, index, change, other.level);
  }
}

void WaveDiff::catchUpAll(std::int64_t time) {
  separate();
  for (std::size_t index = 0; index < lanes_[0].size(); ++index) {
    for (std::size_t side = 0; side < 2; ++side) {
      Lane& lane = lanes_[side][index];
      if (lane.waitingState != kNothing && lane.waitingTime < time) commit(side, index);
    }
    for (std::size_t side = 0; side < 2; ++side) catchUp(side, index, time);
  }
}

void WaveDiff::tell(std::size_t side, std::size_t index, const Change& change, char otherLevel) {
  Difference found;
  found.what = "wave";
  found.signal = *signals_.a[index / kChannels]->name;
  found.cycle = change.place.cycle;
  DiffSide& mine = side == 0 ? found.a : found.b;
  DiffSide& other = side == 0 ? found.b : found.a;
  mine.row = sides_[side]->place(change.place.pattern, change.place.row);
  mine.time = sides_[side]->stretch().from + change.time;
  mine.text = levelText(change.state);
  if (change.before != kNothing) mine.text = levelText(change.before) + " to " + mine.text;
  other.time = sides_[1 - side]->stretch().from + change.time;
  other.text = levelText(otherLevel);
  tally_.tell(found);
}

// What one side does behind the end of the other is told by the length.
void WaveDiff::end() {
  const auto [shorter, longer] = std::minmax({sides_[0]->time(), sides_[1]->time()});
  catchUpAll(shorter < longer ? shorter : std::numeric_limits<std::int64_t>::max());
  Difference found;
  found.what = "length";
  const auto tellSide = [](DiffSideWalk& side, DiffSide& told) {
    const bool more = side.ready();
    told.time = side.stretch().from + side.time();
    told.text = more ? "goes on" : "ends";
    if (more) told.row = side.place();
    return more;
  };
  const bool moreA = tellSide(*sides_[0], found.a);
  const bool moreB = tellSide(*sides_[1], found.b);
  if (moreA || moreB || sides_[0]->time() != sides_[1]->time()) tally_.tell(found);
}

}  // namespace

bool diffWaves(DiffSideWalk& a, DiffSideWalk& b, const DiffSignals& signals,
               const EventStore& store, DiffTally& tally, Progress& progress) {
  return WaveDiff(a, b, signals, store, tally).run(progress);
}
