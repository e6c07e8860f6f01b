#include "pvb/timeplate_match.h"

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

// What is equal has the same key, and little else has. Event times count only as long
// as they are compared exactly.
class ContentKey {
 public:
  explicit ContentKey(bool times) : times_(times) {}

  void number(std::int64_t value) {
    key_ = (key_ ^ static_cast<std::uint64_t>(value)) * 0x9E3779B97F4A7C15U;
    key_ ^= key_ >> 29;
  }
  void text(std::string_view value) {
    number(static_cast<std::int64_t>(value.size()));
    for (const char c : value) number(static_cast<unsigned char>(c));
  }
  void time(TIME value) {
    number(value.major);
    number(value.minor);
  }
  void wave(const PVBtrack& track) {
    text(track.stateChars);
    number(track.selector);
    if (times_) {
      for (const TIME& event : track.eventTimes) time(event);
    }
    for (const auto& expression : track.eventExprs) {
      if (expression) text(*expression);
    }
  }
  std::uint64_t value() const { return key_; }

 private:
  std::uint64_t key_ = 0;
  bool times_;
};

bool isBlank(const PVBtrack& track) { return track.stateChars.empty() && track.eventTimes.empty(); }

std::uint64_t contentKey(const PVBtimePlate& plate, TIME tolerance) {
  ContentKey key(tolerance == TIME_ZERO);
  key.time(plate.period);
  const int slots = PVBslotCount(plate);
  key.number(slots);
  for (int slot = 0; slot < slots; ++slot) {
    key.number(PVBtrackDirection(plate, slot));
    for (const PVBid signal : PVBtrackSignals(plate, slot)) key.number(signal);
  }
  for (std::size_t level = 0; level < plate.levels.size(); ++level) {
    const std::vector<PVBtrack>& tracks = plate.levels[level].tracks;
    for (std::size_t slot = 0; slot < tracks.size(); ++slot) {
      // A blank wave is equal to one that isn't there.
      if (isBlank(tracks[slot])) continue;
      key.number(static_cast<std::int64_t>(level));
      key.number(static_cast<std::int64_t>(slot));
      key.wave(tracks[slot]);
    }
  }
  return key.value();
}

bool contentEqual(const PVBtimePlate& a, const PVBtimePlate& b, TIME tolerance) {
  const int slots = PVBslotCount(a);
  if (a.period != b.period || slots != PVBslotCount(b)) return false;
  for (int slot = 0; slot < slots; ++slot) {
    if (!PVBslotEqual(a, b, slot, tolerance)) return false;
  }
  return true;
}

struct MatchTable {
  struct Entry {
    std::uint64_t key;
    PVBtimePlate* plate;
  };
  TIME tolerance = TIME_ZERO;
  std::vector<Entry> entries;  // in the order of their entering
  std::unordered_map<std::uint64_t, std::vector<PVBtimePlate*>> byKey;

  void enter(std::uint64_t key, PVBtimePlate* plate) {
    entries.push_back({key, plate});
    byKey[key].push_back(plate);
  }
};

// The table of the operation under way, between matchTimePlateClear and
// matchTimePlateEnd.
MatchTable table;

}  // namespace

void matchTimePlateClear() { table = MatchTable(); }

void matchTimePlateEnd() { table = MatchTable(); }

void matchTimePlateSetTolerance(TIME tolerance) {
  const MatchTable before = std::exchange(table, MatchTable());
  table.tolerance = tolerance;
  for (const MatchTable::Entry& entry : before.entries) {
    table.enter(contentKey(*entry.plate, tolerance), entry.plate);
  }
}

int matchTimePlate(PVBtimePlate* plate, PVBtimePlate*& existing) {
  existing = nullptr;
  if (plate == nullptr) return 1;
  const std::uint64_t key = contentKey(*plate, table.tolerance);
  if (const auto alike = table.byKey.find(key); alike != table.byKey.end()) {
    for (PVBtimePlate* other : alike->second) {
      if (!contentEqual(*plate, *other, table.tolerance)) continue;
      existing = other;
      return 0;
    }
  }
  table.enter(key, plate);
  return 1;
}

void matchTimePlateForget() {
  if (table.entries.empty()) return;
  table.byKey[table.entries.back().key].pop_back();
  table.entries.pop_back();
}
