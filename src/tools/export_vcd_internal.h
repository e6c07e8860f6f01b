#pragma once

// What the parts of the VCD export share: the unit of time (export_vcd_timescale.cc),
// and signals that change over time (export_vcd_waves.cc).

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/meaning.h"
#include "tools/text_sink.h"

struct VcdTimescale {
  std::int64_t femtoseconds;
  std::string_view text;
};
// The longest in which all times of the database, and `other`, are whole steps.
VcdTimescale vcdTimescale(int database, std::int64_t other);

inline constexpr char kVcdNothing = 0;  // in place of a value

// A list of events, as values.
struct VcdListWave {
  struct Event {
    std::int64_t time;  // from the cycle's beginning
    char driven;        // value; kVcdNothing: it stays
    char expected;      // likewise
  };
  bool known = false;
  bool drives = false;
  bool expects = false;
  bool level = true;  // one value of each kind, and no more
  std::int64_t latest = 0;
  std::vector<Event> events;
};
VcdListWave vcdListWave(const std::vector<MeaningEvent>& events);

// The values of signals from a time on. Events wait in buckets, one for each time, until
// no earlier one can come: those of a cycle may reach into the next. All of a bucket
// happen together, so that a signal changes once at a time. When too many wait, because
// they stand far behind the ends of their cycles, no more are taken.
class VcdWaves {
 public:
  // Written as changes from `begin` on; signals are known by their places in `codes`.
  VcdWaves(std::vector<std::string> codes, std::int64_t begin, std::int64_t step, TextSink& out);

  // The events of a signal in the cycle that begins at `start`.
  void add(std::size_t signal, std::int64_t start, const VcdListWave& list);
  bool overflown() const { return waiting_ > kMostWaiting; }
  // Lets happen what comes before a time.
  void happenBefore(std::int64_t time);
  // The last time, behind all that happens before it.
  void finish(std::int64_t time);

 private:
  struct Wave {
    std::string code;
    char driven = kVcdNothing;
    char expected = kVcdNothing;
    char written = 'x';
    bool touched = false;

    char value() const {
      if (driven != kVcdNothing && driven != 'z') return driven;
      if (expected != kVcdNothing) return expected;
      return driven != kVcdNothing ? driven : 'x';
    }
  };
  struct WaveEvent {
    std::uint32_t signal;
    char driven;
    char expected;
    bool alone;  // ends the other kind
  };
  using Bucket = std::vector<WaveEvent>;
  using Buckets = std::map<std::int64_t, Bucket>;  // by time
  static constexpr std::size_t kMostWaiting = std::size_t{1} << 22;

  Bucket& bucket(std::int64_t time);
  void take(const Bucket& bucket);
  void happen(std::int64_t time, const Bucket& bucket);
  void dumpValues();
  void stamp(std::int64_t time);

  std::int64_t begin_;
  std::int64_t step_;  // of the timescale, in femtoseconds
  TextSink& out_;
  std::vector<Wave> waves_;
  Buckets buckets_;
  std::vector<Buckets::node_type> spare_;
  std::size_t waiting_ = 0;  // events in buckets
  std::vector<std::uint32_t> touched_;
  std::int64_t stamped_ = -1;
  bool begun_ = false;  // the values at the beginning are written
};
