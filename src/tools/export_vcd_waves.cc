#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "tools/export_vcd_internal.h"

namespace {

constexpr std::string_view kDriven = "DUZN";
constexpr std::string_view kExpected = "LHTX";
constexpr std::string_view kValues = "01zx";  // by place in both

char valueOf(std::string_view states, char state) {
  const std::size_t place = states.find(state);
  return place != std::string_view::npos ? kValues[place] : kVcdNothing;
}

}  // namespace

VcdListWave vcdListWave(const std::vector<MeaningEvent>& events) {
  VcdListWave list;
  list.known = true;
  std::unordered_set<char> driven = {kVcdNothing};
  std::unordered_set<char> expected = {kVcdNothing};
  for (const MeaningEvent& event : events) {
    const VcdListWave::Event values = {event.time, valueOf(kDriven, event.state),
                                       valueOf(kExpected, event.state)};
    if (event.time < 0 || (values.driven == kVcdNothing && values.expected == kVcdNothing))
      continue;
    driven.insert(values.driven);
    expected.insert(values.expected);
    list.latest = std::max(list.latest, event.time);
    list.events.push_back(values);
  }
  list.drives = driven.size() > 1;
  list.expects = expected.size() > 1;
  list.level = driven.size() <= 2 && expected.size() <= 2;
  return list;
}

VcdWaves::VcdWaves(std::vector<std::string> codes, std::int64_t begin, std::int64_t step,
                   TextSink& out)
    : begin_(begin), step_(step), out_(out), waves_(codes.size()) {
  for (std::size_t i = 0; i < codes.size(); ++i) waves_[i].code = std::move(codes[i]);
}

// --- Events --------------------------------------------------------------------------

void VcdWaves::add(std::size_t signal, std::int64_t start, const VcdListWave& list) {
  const bool alone = list.drives != list.expects;
  for (const VcdListWave::Event& event : list.events) {
    bucket(start + event.time)
        .push_back({static_cast<std::uint32_t>(signal), event.driven, event.expected, alone});
  }
  waiting_ += list.events.size();
}

VcdWaves::Bucket& VcdWaves::bucket(std::int64_t time) {
  const auto place = buckets_.lower_bound(time);
  if (place != buckets_.end() && place->first == time) return place->second;
  if (spare_.empty()) return buckets_.try_emplace(place, time)->second;
  Buckets::node_type node = std::move(spare_.back());
  spare_.pop_back();
  node.key() = time;
  return buckets_.insert(place, std::move(node))->second;
}

void VcdWaves::happenBefore(std::int64_t time) {
  while (!buckets_.empty() && buckets_.begin()->first < time) {
    Buckets::node_type node = buckets_.extract(buckets_.begin());
    happen(node.key(), node.mapped());
    waiting_ -= node.mapped().size();
    node.mapped().clear();
    spare_.push_back(std::move(node));
  }
}

// Values as they are behind a bucket.
void VcdWaves::take(const Bucket& bucket) {
  touched_.clear();
  for (const WaveEvent& event : bucket) {
    Wave& wave = waves_[event.signal];
    if (event.driven != kVcdNothing) wave.driven = event.driven;
    if (event.expected != kVcdNothing) wave.expected = event.expected;
    if (event.alone && event.driven != kVcdNothing) wave.expected = kVcdNothing;
    if (event.alone && event.expected != kVcdNothing) wave.driven = kVcdNothing;
    if (!wave.touched) touched_.push_back(event.signal);
    wave.touched = true;
  }
}

void VcdWaves::happen(std::int64_t time, const Bucket& bucket) {
  take(bucket);
  if (time >= begin_ && !begun_) dumpValues();
  for (const std::uint32_t signal : touched_) {
    Wave& wave = waves_[signal];
    wave.touched = false;
    const char value = wave.value();
    if (value == wave.written) continue;
    wave.written = value;
    if (time < begin_) continue;
    if (stamped_ != time) stamp(time);
    out_.text().append(1, value).append(wave.code) += '\n';
  }
}

void VcdWaves::finish(std::int64_t time) {
  happenBefore(time);
  if (!begun_) dumpValues();
  if (stamped_ != time) stamp(time);
}

// --- Text ----------------------------------------------------------------------------

// What holds where the stretch begins.
void VcdWaves::dumpValues() {
  begun_ = true;
  stamp(begin_);
  out_.text() += "$dumpvars\n";
  for (const Wave& wave : waves_) {
    out_.text().append(1, wave.written).append(wave.code) += '\n';
    out_.offer();
  }
  out_.text() += "$end\n";
}

void VcdWaves::stamp(std::int64_t time) {
  stamped_ = time;
  out_.text().append(1, '#').append(std::to_string(time / step_)) += '\n';
}
