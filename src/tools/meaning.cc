#include "tools/meaning.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string_view>

#include "pvb/database.h"
#include "tools/dump_format.h"
#include "tools/flat_walk.h"

namespace {

// Beside the modes of PMode.
constexpr std::int32_t kLiteralMode = -1;
// What is kept of timeplates; above that all is made anew.
constexpr std::size_t kMostBytesKept = std::size_t{1} << 28;
constexpr std::size_t kTableBytes = sizeof(SlotTable) + 128;  // with its place in a map
constexpr std::size_t kShownEvents = 12;

// --- Data ----------------------------------------------------------------------------

enum Code : unsigned { kCodeNone = 0, kCodeLow = 1, kCodeHigh = 2, kCodeHighZ = 3 };

// States that the data stand for: of codes 1, 2, 3 and all others.
struct SampleRule {
  char state;
  bool output;
  std::string_view byCode;
};
constexpr std::array<SampleRule, 8> kSampleRules = {{
    {'S', false, "DUZN"},
    {'C', false, "UDZN"},
    {'Q', true, "LHTX"},
    {'R', true, "HLTX"},
    {'s', true, "duzn"},
    {'c', true, "udzn"},
    {'q', true, "lhtx"},
    {'r', true, "hltx"},
}};

char withData(char state, unsigned in, unsigned out) {
  for (const SampleRule& rule : kSampleRules) {
    if (rule.state != state) continue;
    const unsigned code = rule.output ? out : in;
    return rule.byCode[code >= kCodeLow && code <= kCodeHighZ ? code - 1 : 3];
  }
  return state;
}

// --- Previous states -----------------------------------------------------------------

constexpr std::string_view kPrevious = "DUNZ";

bool isDriven(char state) { return kPrevious.find(state) != std::string_view::npos; }

// Whether a state counts as what went before, within a cycle and behind it.
bool countsWithin(std::int32_t mode, char state) {
  if (mode == LAST_FORCE) return isDriven(state);
  if (mode == LAST_DRIVE) return state == 'D' || state == 'U';
  return state != '?' && state != 'P';
}
bool countsBehind(std::int32_t mode, char state) {
  return countsWithin(mode, state) && (mode != ADVANTEST || isDriven(state));
}

// What `P` is behind a state that counts.
char previousOf(std::int32_t mode, char state) {
  switch (mode) {
    case LAST_FORCE:
    case LAST_DRIVE:
      return state;
    case FORCE_OR_Z:
      return isDriven(state) ? state : 'Z';
    case ADVANTEST:
      if (state == 'T' || state == 'L') return 'D';
      if (state == 'H' || state == 'X') return 'U';
      return state == 'D' || state == 'U' || state == 'N' ? state : 'Z';
    case IMS:
      return state == 'D' || state == 'U' || state == 'N' ? state : 'Z';
    default:
      return 'N';
  }
}

bool dataDecide(std::int32_t mode) {
  return mode == LAST_FORCE || mode == LAST_DRIVE || mode == ADVANTEST;
}

bool holdsPrevious(int database) {
  for (const auto& plate : PVBget(database)->timePlates->plates) {
    if (plate == nullptr || plate->levels.empty()) continue;
    for (const PVBtrack& track : plate->levels.front().tracks) {
      if (track.stateChars.find('P') != std::string::npos) return true;
    }
  }
  return false;
}

void sortByTime(std::vector<MeaningEvent>& events) {
  std::ranges::stable_sort(events, {}, &MeaningEvent::time);
}

// At one time what is driven comes before what is expected: which of them was said first
// makes no difference.
void sortByKind(std::vector<MeaningEvent>& events) {
  const auto key = [](const MeaningEvent& event) {
    const int direction = PVBstateDirection(event.state);
    return std::pair(event.time, direction < 0 ? kUndefinedDirection : direction);
  };
  std::ranges::stable_sort(events, {}, key);
}

}  // namespace

// --- The store -----------------------------------------------------------------------

EventStore::EventStore() { intern({}); }

std::size_t EventStore::Hash::operator()(const std::vector<MeaningEvent>& events) const {
  std::size_t hash = events.size();
  for (const MeaningEvent& event : events) {
    const auto value = static_cast<std::size_t>(event.time) * 131 +
                       static_cast<std::size_t>(event.count) * 31 +
                       static_cast<unsigned char>(event.state);
    hash = (hash ^ value) * 0x9E3779B97F4A7C15U;
    hash ^= hash >> 29;
  }
  return hash;
}

EventListId EventStore::intern(std::vector<MeaningEvent> events) {
  const auto [place, isNew] =
      ids_.try_emplace(std::move(events), static_cast<EventListId>(lists_.size()));
  if (isNew) lists_.push_back(&place->first);
  return place->second;
}

std::string EventStore::text(EventListId id) const {
  std::string text;
  const std::vector<MeaningEvent>& list = events(id);
  for (std::size_t i = 0; i < std::min(list.size(), kShownEvents); ++i) {
    const MeaningEvent& event = list[i];
    if (i > 0) text += ", ";
    if (event.time < 0) {
      text += event.time == kInData ? "data " : "expected data ";
    } else {
      appendTime(text, timeOfFemtoseconds(event.time));
      text += ' ';
    }
    text += event.state;
    if (event.count != 1) text += fmt::format(" x{}", event.count);
  }
  if (list.size() > kShownEvents) text += ", ...";
  return text.empty() ? "-" : text;
}

// --- Signals -------------------------------------------------------------------------

Meaning::Meaning(int database, EventStore& store, const std::vector<const PVBsignal*>& signals,
                 PreviousMode mode)
    : database_(database),
      store_(store),
      pMode_(mode == PreviousMode::literal ? kLiteralMode : PVBpmode(database)),
      usesPrevious_(mode == PreviousMode::resolve && holdsPrevious(database)) {
  for (const PVBsignal* signal : signals) {
    firstPart_.push_back(parts_.size());
    const DataColumns own = PVBsignalDataColumns(*signal);
    addPart(*signal, own);
    for (const PVBid child : signal->muxChildren) {
      const PVBsignal* part = PVBsignalInqByID(database, child);
      if (part != nullptr && part != signal) addPart(*part, own);
    }
  }
  firstPart_.push_back(parts_.size());
  plates_.resize(PVBget(database)->timePlates->plates.size() + 1);
}

// A part without columns has the data of the whole.
void Meaning::addPart(const PVBsignal& signal, DataColumns own) {
  DataColumns columns = PVBsignalDataColumns(signal);
  if (columns.in < 0 && columns.out < 0) columns = own;
  const std::int32_t width = 2 * PVBrowDataSize(database_);
  for (std::int32_t* column : {&columns.in, &columns.out}) {
    if (*column < 0 || *column >= width) *column = -1;
    usedBytes_ = std::max(usedBytes_, static_cast<std::size_t>(*column / 2 + 1));
  }
  parts_.push_back({&signal, columns.in, columns.out, signal.multiBit != 0});
}

// --- Plates --------------------------------------------------------------------------

PlateMeaning& Meaning::plate(std::uint16_t id) {
  std::unique_ptr<PlateMeaning>& place = plates_[std::min<std::size_t>(id, plates_.size() - 1)];
  if (place != nullptr) return *place;
  if (bytesKept_ > kMostBytesKept) {
    for (auto& plate : plates_) plate.reset();
    bytesKept_ = 0;
  }
  place = std::make_unique<PlateMeaning>();
  const auto& plates = PVBget(database_)->timePlates->plates;
  if (id < plates.size()) place->plate = plates[id].get();
  if (place->plate != nullptr) place->slots = PlateSlots(database_, *place->plate);
  place->parts.reserve(parts_.size());
  for (const Part& part : parts_) place->parts.push_back(table(*place, part, kNoSelector));
  bytesKept_ += sizeof(PlateMeaning) + place->slots.bytes() + parts_.size() * sizeof(SlotTable*);
  return *place;
}

// Signals on the same slots share a table.
SlotTable* Meaning::table(PlateMeaning& plate, const Part& part, char selector) {
  SlotTable fresh;
  fresh.hasIn = part.in >= 0;
  fresh.hasOut = part.out >= 0;
  std::array<std::int32_t, 10> key{};
  const std::span<const DirectedSlot> slots = plate.slots.of(part.signal->id);
  for (std::size_t data = 0; data < 4; ++data) {
    const bool in = (data & 1) != 0;
    const bool out = (data & 2) != 0;
    if (plate.plate != nullptr && (fresh.hasIn || !in) && (fresh.hasOut || !out)) {
      fresh.tracks[data] = PVBfindTracksAmong(*plate.plate, slots, selector, in, out);
    }
    key[2 * data] = fresh.tracks[data].slot[0];
    key[2 * data + 1] = fresh.tracks[data].slot[1];
  }
  key[8] = fresh.hasIn;
  key[9] = fresh.hasOut;
  std::unique_ptr<SlotTable>& place = plate.tables[key];
  if (place == nullptr) {
    fresh.ids.assign(fresh.places(), kNotWorkedOut);
    bytesKept_ += kTableBytes + fresh.ids.size() * sizeof(EventListId);
    place = std::make_unique<SlotTable>(std::move(fresh));
  }
  return place.get();
}

EventListId Meaning::fill(const PlateMeaning& plate, SlotTable& table, unsigned in, unsigned out) {
  const RowTracks& tracks = table.tracks[(in != 0 ? 1U : 0U) | (out != 0 ? 2U : 0U)];
  const unsigned driven = table.hasIn ? in : out;
  const unsigned expected = table.hasOut ? out : in;
  std::vector<MeaningEvent> events;
  for (int i = 0; i < tracks.count; ++i) {
    const auto slot = static_cast<std::size_t>(tracks.slot[static_cast<std::size_t>(i)]);
    const std::vector<PVBtrack>& waves = plate.plate->levels.front().tracks;
    if (slot >= waves.size()) continue;
    const PVBtrack& track = waves[slot];
    const std::size_t size = std::min(track.eventTimes.size(), track.stateChars.size());
    for (std::size_t e = 0; e < size; ++e) {
      events.push_back({std::max<std::int64_t>(femtoseconds(track.eventTimes[e]), 0),
                        e < track.stateCounts.size() ? track.stateCounts[e] : 1,
                        withData(track.stateChars[e], driven, expected)});
    }
  }
  sortByTime(events);
  if (tracks.count == 0) {
    if (in != 0) events.push_back({kInData, 1, kStateCharacters[in]});
    if (out != 0) events.push_back({kOutData, 1, kStateCharacters[out]});
  }
  if (pMode_ != kLiteralMode) settle(events, driven == kCodeHighZ);
  sortByKind(events);
  return table.ids[table.place(in, out)] = store_.intern(std::move(events));
}

// Replaces each `P` that the row itself decides.
void Meaning::settle(std::vector<MeaningEvent>& events, bool dataHighZ) const {
  const bool alwaysUnknown = pMode_ < LAST_FORCE || pMode_ > IMS;
  std::optional<char> previous;
  for (MeaningEvent& event : events) {
    if (event.time < 0) continue;
    if (event.state == 'P') {
      if (alwaysUnknown) {
        event.state = 'N';
      } else if (dataHighZ && dataDecide(pMode_)) {
        event.state = 'Z';
      } else if (previous) {
        event.state = previousOf(pMode_, *previous);
      } else {
        continue;
      }
    }
    if (countsWithin(pMode_, event.state)) previous = event.state;
  }
}

// --- Rows ----------------------------------------------------------------------------

EventListId Meaning::partEvents(PlateMeaning& plate, const PVBrow& row, std::size_t index) {
  const Part& part = parts_[index];
  const auto code = [&](std::int32_t column) {
    return column < 0
               ? 0U
               : static_cast<unsigned>(rowCode(row.states(), static_cast<std::uint32_t>(column)));
  };
  const unsigned in = code(part.in);
  const unsigned out = code(part.out);
  SlotTable* slots = plate.parts[index];
  if (part.selects) {
    slots = table(plate, part, PVBrowSelector(database_, *part.signal, row));
  }
  const EventListId id = slots->ids[slots->place(in, out)];
  return id != kNotWorkedOut ? id : fill(plate, *slots, in, out);
}

EventListId Meaning::events(PlateMeaning& plate, const PVBrow& row, std::size_t signal) {
  const std::size_t end = firstPart_[signal + 1];
  std::size_t part = firstPart_[signal];
  EventListId id = partEvents(plate, row, part);
  while (++part < end) id = merge(id, partEvents(plate, row, part));
  return id;
}

// Events of two parts of a multiplexed signal; where one is silent it says "?".
EventListId Meaning::merge(EventListId a, EventListId b) {
  const auto [place, isNew] = merged_.try_emplace({a, b}, kNoEvents);
  if (!isNew) return place->second;
  std::vector<MeaningEvent> events = store_.events(a);
  const std::vector<MeaningEvent>& more = store_.events(b);
  events.insert(events.end(), more.begin(), more.end());
  std::erase_if(events, [](const MeaningEvent& event) { return event.state == '?'; });
  // Plain data count only where no part has a slot.
  const auto timed = [](const MeaningEvent& event) { return event.time >= 0; };
  if (std::ranges::any_of(events, timed)) std::erase_if(events, std::not_fn(timed));
  sortByKind(events);
  return place->second = store_.intern(std::move(events));
}

const ListEffect& Meaning::workOut(EventListId id) {
  if (id >= effects_.size()) effects_.resize(id + 1);
  ListEffect effect;
  effect.known = true;
  effect.settled.fill(id);
  const std::vector<MeaningEvent>& events = store_.events(id);
  for (const MeaningEvent& event : events) {
    if (event.time < 0) continue;
    if (event.state == 'P') {
      effect.needsPrevious = effect.needsPrevious || pMode_ != kLiteralMode;
    } else if (countsBehind(pMode_, event.state)) {
      effect.drives = true;
      effect.after = static_cast<std::uint8_t>(kPrevious.find(previousOf(pMode_, event.state)));
    }
  }
  for (std::size_t before = 0; effect.needsPrevious && before < kPreviousStates; ++before) {
    std::vector<MeaningEvent> settled = events;
    for (MeaningEvent& event : settled) {
      if (event.state == 'P' && event.time >= 0) event.state = kPrevious[before];
    }
    effect.settled[before] = store_.intern(std::move(settled));
  }
  return effects_[id] = effect;
}

// --- Comparing plates ----------------------------------------------------------------

bool Meaning::sameTables(const PlateMeaning& plate, SlotTable& mine, Meaning& other,
                         const PlateMeaning& otherPlate, SlotTable& its) {
  if (mine.hasIn != its.hasIn || mine.hasOut != its.hasOut) return false;
  for (unsigned out = 0; out < (mine.hasOut ? kRowCodes : 1); ++out) {
    for (unsigned in = 0; in < (mine.hasIn ? kRowCodes : 1); ++in) {
      const std::size_t place = mine.place(in, out);
      if (mine.ids[place] == kNotWorkedOut) fill(plate, mine, in, out);
      if (its.ids[place] == kNotWorkedOut) other.fill(otherPlate, its, in, out);
      if (mine.ids[place] != its.ids[place]) return false;
    }
  }
  return true;
}

bool sameMeaning(Meaning& a, PlateMeaning& plateA, Meaning& b, PlateMeaning& plateB) {
  if (a.pMode_ != b.pMode_ || a.parts_.size() != b.parts_.size()) return false;
  if (a.firstPart_ != b.firstPart_) return false;
  std::map<std::pair<const SlotTable*, const SlotTable*>, bool> known;
  for (std::size_t i = 0; i < a.parts_.size(); ++i) {
    const Meaning::Part& mine = a.parts_[i];
    const Meaning::Part& its = b.parts_[i];
    if (mine.selects || its.selects || mine.in != its.in || mine.out != its.out) return false;
    const auto [place, isNew] = known.try_emplace({plateA.parts[i], plateB.parts[i]}, true);
    if (!isNew) continue;
    if (!a.sameTables(plateA, *plateA.parts[i], b, plateB, *plateB.parts[i])) return false;
  }
  return true;
}
