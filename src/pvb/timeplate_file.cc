// The file "pvb.tp", lines of text stored compressed. Times are words such as
// "10nS"; a counted text is its length, a new line and, unless that is 0, the
// characters and a new line; a list is its count and its entries, a line each. A
// word that is absent is "*".
//
//   SINCE  LINES                       MEANING
//          TIMEPLATES version count    plates in the file
//      2   D word                      P mode in the low 8 bits, flags above them
//
//          then for each plate, in rising id:
//          id                          its index; holes are free indices
//          name                        counted text
//          period                      time
//          levels                      how many
//      8   family                      word; "*" also for one that is no name
//      7   multiplier
//          slots                       how many, then for each its direction, a line,
//                                      and the list of its signals
//          firstRow, lastRow           a line each
//
//          then for each level its time, a line, and the number of its tracks, a line;
//          then for each track:
//          events states propList ...  one line, the further fields in kTrackFields
//          time                        for each event
//      8   expression                  word, behind the time of each event
//          states                      the characters in one run, when there are any
//      9   count                       for each state
//      1   signals                     list
//      9   selector entries            three lists: characters, types, row states
//
//      6   (empty line)                and then the cycles:
//      6   capacity count              then for each cycle its index, a line, its
//                                      name, a counted text, and its time, a line
//
// Nothing follows. Versions 0 to 10 are read; 10 is written for the extended data
// model, 8 for the classic one, which has no selectors and no repeat counts.

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/errors.h"
#include "base/text.h"
#include "pvb/timeplate_internal.h"

namespace {

constexpr std::string_view kMagic = "TIMEPLATES";
constexpr char kWordLetter = 'D';
constexpr std::string_view kNone = "*";

// The versions in which the parts of the file came.
constexpr int kTrackSignals = 1;
constexpr int kDatabaseWord = 2;
constexpr int kCycles = 6;
constexpr int kMultiplier = 7;
constexpr int kFamily = 8;
constexpr int kExpressions = 8;
constexpr int kStateCounts = 9;
constexpr int kSelectorLists = 9;

// The fields of a track's line behind the two counts. The one without a number is
// the selector, a character.
struct TrackField {
  int since;
  std::int32_t PVBtrack::*number;
};
constexpr std::array<TrackField, 8> kTrackFields = {{
    {0, &PVBtrack::propList},
    {3, &PVBtrack::slotIn},
    {4, &PVBtrack::slotOut},
    {4, &PVBtrack::slotBoth},
    {5, &PVBtrack::repeat},
    {9, nullptr},
    {10, &PVBtrack::cycleOffset},
    {10, &PVBtrack::cycleLength},
}};

// The fewest bytes that one of these can take.
constexpr std::size_t kPlateBytes = 15;
constexpr std::size_t kLevelBytes = 5;
constexpr std::size_t kTrackBytes = 6;
constexpr std::size_t kSlotBytes = 4;
constexpr std::size_t kEventBytes = 3;

bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// --- Reading -------------------------------------------------------------------------

class Reader {
 public:
  Reader(SectionReader& in, PVBtimePlateData& data) : in_(in), data_(data) {}

  bool file(int highestVersion) {
    std::int32_t count = 0;
    if (!header(highestVersion, count)) return false;
    for (std::int32_t i = 0; i < count; ++i) {
      auto fresh = std::make_unique<PVBtimePlate>();
      if (!plate(*fresh) || !tpEnter(data_, std::move(fresh))) return false;
    }
    return has(kCycles) ? cycles() && in_.atExactEnd() : lastLineEnd();
  }

 private:
  bool has(int since) const { return version_ >= since; }

  bool header(int highestVersion, std::int32_t& count) {
    if (!in_.keyword(kMagic) || !in_.number(version_)) return false;
    if (version_ < 0 || version_ > highestVersion) return false;
    if (!in_.count(count, kPlateBytes)) return false;
    char letter = 0;
    return !has(kDatabaseWord) ||
           (in_.character(letter) && letter == kWordLetter && in_.number(data_.tpVersion));
  }

  // The old files end in a line, of which the end may have been read already.
  bool lastLineEnd() { return in_.atExactEnd() || (in_.lineEnd() && in_.atExactEnd()); }

  bool plate(PVBtimePlate& plate) {
    std::int32_t levels = 0;
    const bool head = in_.number(plate.id) && in_.countedText(plate.name) &&
                      in_.time(plate.period) && in_.count(levels, kLevelBytes) &&
                      levels <= kMaxLevels;
    if (!head) return false;
    if (has(kFamily) && !family(plate.family)) return false;
    if (has(kMultiplier) && !in_.number(plate.multiplier)) return false;
    if (!slots(plate) || !in_.number(plate.firstRow) || !in_.number(plate.lastRow)) return false;
    for (std::int32_t i = 0; i < levels; ++i) {
      if (!level(plate, plate.levels.emplace_back())) return false;
    }
    plate.used = true;
    return true;
  }

  bool family(std::optional<std::string>& family) {
    if (!in_.word(word_)) return false;
    if (isLetter(word_.front())) family = word_;
    return true;
  }

  bool slots(PVBtimePlate& plate) {
    std::int32_t count = 0;
    if (!in_.count(count, kSlotBytes)) return false;
    for (std::int32_t i = 0; i < count; ++i) {
      auto& [direction, signals] = plate.selectorLists.emplace_back();
      if (!in_.number(direction) || !in_.idList(signals)) return false;
    }
    return true;
  }

  bool level(const PVBtimePlate& plate, PVBlevel& level) {
    std::int32_t tracks = 0;
    if (!in_.time(level.time) || !in_.count(tracks, kTrackBytes)) return false;
    for (std::int32_t i = 0; i < tracks; ++i) {
      if (!track(level.tracks.emplace_back())) return false;
    }
    dropEmptyTracks(plate, level);
    return true;
  }

  // Keeps the tracks up to the last one that holds anything; signals count.
  static void dropEmptyTracks(const PVBtimePlate& plate, PVBlevel& level) {
    const auto holdsAnything = [&](std::size_t slot) {
      const PVBtrack& track = level.tracks[slot];
      return !track.eventTimes.empty() || !track.stateChars.empty() || !track.signals.empty() ||
             track.propList != UNDEF || !track.selectorLists[0].empty() ||
             (slot < plate.selectorLists.size() && !plate.selectorLists[slot].second.empty());
    };
    while (!level.tracks.empty() && !holdsAnything(level.tracks.size() - 1)) {
      level.tracks.pop_back();
    }
  }

  bool track(PVBtrack& track) {
    std::int32_t events = 0;
    std::int32_t states = 0;
    if (!in_.count(events, kEventBytes) || !in_.count(states, 1)) return false;
    return fields(track) && readEvents(track, events) && readStates(track, states) &&
           (!has(kTrackSignals) || in_.idList(track.signals)) &&
           (!has(kSelectorLists) ||
            std::all_of(track.selectorLists.begin(), track.selectorLists.end(),
                        [this](PVBintList& list) { return in_.intList(list); }));
  }

  bool fields(PVBtrack& track) {
    for (const TrackField& field : kTrackFields) {
      if (!has(field.since)) continue;
      const bool good =
          field.number != nullptr ? in_.number(track.*field.number) : in_.character(track.selector);
      if (!good) return false;
    }
    return in_.lineEnd();
  }

  bool readEvents(PVBtrack& track, std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
      if (!in_.time(track.eventTimes.emplace_back())) return false;
      auto& expression = track.eventExprs.emplace_back();
      if (!has(kExpressions)) continue;
      if (!in_.word(word_)) return false;
      if (word_ != kNone) expression = word_;
    }
    return true;
  }

  bool readStates(PVBtrack& track, std::int32_t count) {
    if (count == 0) return true;
    std::string& states = track.stateChars;
    char first = 0;
    if (!in_.character(first) || !in_.characters(states, static_cast<std::size_t>(count) - 1)) {
      return false;
    }
    states.insert(states.begin(), first);
    if (!std::all_of(states.begin(), states.end(), PVBstateValid) || !in_.lineEnd()) return false;
    track.stateCounts.assign(states.size(), 1);
    if (!has(kStateCounts)) return true;
    return std::all_of(track.stateCounts.begin(), track.stateCounts.end(),
                       [this](std::int32_t& repeats) {
                         const bool good = in_.number(repeats);
                         repeats = std::max(repeats, 1);
                         return good;
                       });
  }

  bool cycles() {
    std::int16_t count = 0;
    if (!in_.number(data_.cycleCapacity) || !in_.number(count) || !in_.lineEnd()) return false;
    if (data_.cycleCapacity < 0 || count < 0) {
      data_.cycleCapacity = 0;
      PBpostError("cyclesRead", 82);
      return false;
    }
    if (count > data_.cycleCapacity) return false;
    std::vector<bool> seen(static_cast<std::size_t>(data_.cycleCapacity) + 1);
    for (std::int16_t i = 0; i < count; ++i) {
      if (!cycle(seen)) return false;
    }
    return true;
  }

  bool cycle(std::vector<bool>& seen) {
    PVBcycle cycle;
    if (!in_.number(cycle.index) || !in_.countedText(cycle.name)) return false;
    if (!in_.time(cycle.time) || !in_.lineEnd()) return false;
    const auto place = static_cast<std::uint32_t>(cycle.index);
    if (place >= seen.size() || seen[place]) return false;
    seen[place] = true;
    data_.cycleTable.push_back(std::move(cycle));
    return true;
  }

  SectionReader& in_;
  PVBtimePlateData& data_;
  std::int32_t version_ = 0;
  std::string word_;  // scratch
};

// --- Writing -------------------------------------------------------------------------

class Writer {
 public:
  Writer(SectionWriter& out, int version) : out_(out), version_(version) {}

  bool file(const PVBtimePlateData& data) {
    out_.text(kMagic);
    put(" ", version_);
    const auto count = std::count_if(data.plates.begin(), data.plates.end(),
                                     [](const auto& plate) { return plate != nullptr; });
    put(" ", count);
    put("\nD ", data.tpVersion);
    out_.text("\n");
    for (const auto& entry : data.plates) {
      if (entry != nullptr) plate(*entry);
    }
    cycles(data);
    return good_;
  }

 private:
  bool has(int since) const { return version_ >= since; }

  void put(std::string_view before, std::int64_t number) {
    out_.text(before);
    out_.number(number);
  }

  void time(TIME value) {
    PBformatTIME(word_, '?', -1, -1, value);
    out_.text(word_);
    out_.text("\n");
  }

  // A word mustn't hold white space.
  void word(const std::optional<std::string>& value) {
    word_ = value ? PBstripSpace(*value) : std::string();
    out_.text(word_.empty() ? kNone : word_);
    out_.text("\n");
  }

  void plate(const PVBtimePlate& plate) {
    out_.line(plate.id);
    out_.countedText(plate.name);
    time(plate.period);
    out_.line(static_cast<std::int64_t>(plate.levels.size()));
    word(plate.family);
    out_.line(plate.multiplier);
    out_.line(static_cast<std::int64_t>(plate.selectorLists.size()));
    for (const auto& [direction, signals] : plate.selectorLists) {
      out_.line(direction);
      out_.idList(signals);
    }
    out_.line(plate.firstRow);
    out_.line(plate.lastRow);
    for (const PVBlevel& level : plate.levels) {
      time(level.time);
      out_.line(static_cast<std::int64_t>(level.tracks.size()));
      for (std::size_t i = 0; i < level.tracks.size(); ++i) {
        track(level.tracks[i], slotSignals(plate, level, i));
      }
    }
  }

  // The slot's signals stand in its entry and again with the track of every level.
  static const PVBidList& slotSignals(const PVBtimePlate& plate, const PVBlevel& level,
                                      std::size_t slot) {
    const bool hasEntry =
        slot < plate.selectorLists.size() && !plate.selectorLists[slot].second.empty();
    return hasEntry ? plate.selectorLists[slot].second : level.tracks[slot].signals;
  }

  void track(const PVBtrack& track, const PVBidList& signals) {
    put("", static_cast<std::int64_t>(track.eventTimes.size()));
    put(" ", static_cast<std::int64_t>(track.stateChars.size()));
    fields(track);
    for (std::size_t i = 0; i < track.eventTimes.size(); ++i) {
      time(track.eventTimes[i]);
      word(i < track.eventExprs.size() ? track.eventExprs[i] : std::nullopt);
    }
    states(track);
    out_.idList(signals);
    if (!has(kSelectorLists)) return;
    for (const PVBintList& list : track.selectorLists) out_.intList(list);
  }

  void fields(const PVBtrack& track) {
    for (const TrackField& field : kTrackFields) {
      if (!has(field.since)) continue;
      if (field.number != nullptr) {
        put(" ", track.*field.number);
      } else {
        selector(track.selector);
      }
    }
    out_.text("\n");
  }

  // Only a character that shows can be read again.
  void selector(char value) {
    const std::array<char, 2> text = {' ', value > ' ' && value <= '~' ? value : '-'};
    out_.text({text.data(), text.size()});
  }

  void states(const PVBtrack& track) {
    const std::string& states = track.stateChars;
    if (states.empty()) return;
    good_ = good_ && std::all_of(states.begin(), states.end(), PVBstateValid);
    out_.text(states);
    out_.text("\n");
    if (!has(kStateCounts)) return;
    for (std::size_t i = 0; i < states.size(); ++i) {
      out_.line(i < track.stateCounts.size() ? std::max(track.stateCounts[i], 1) : 1);
    }
  }

  void cycles(const PVBtimePlateData& data) {
    put("\n", data.cycleCapacity);
    put(" ", static_cast<std::int64_t>(data.cycleTable.size()));
    out_.text("\n");
    for (const PVBcycle& cycle : data.cycleTable) {
      out_.line(cycle.index);
      out_.countedText(cycle.name);
      time(cycle.time);
    }
  }

  SectionWriter& out_;
  const int version_;
  bool good_ = true;
  std::string word_;  // scratch
};

}  // namespace

bool tpReadFile(SectionReader& reader, PVBtimePlateData& data, int highestVersion) {
  return Reader(reader, data).file(highestVersion);
}

bool tpWriteFile(SectionWriter& writer, const PVBtimePlateData& data, int version) {
  errno = 0;
  return Writer(writer, version).file(data);
}
