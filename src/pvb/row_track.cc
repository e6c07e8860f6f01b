#include "pvb/row_track.h"

#include <algorithm>

#include "pvb/database.h"

namespace {

// Where groups stand on more tracks than this with their signals the plate is damaged; no
// more are opened.
constexpr std::size_t kMostOpened = std::size_t{1} << 22;

// What a track without a selector bears.
constexpr char kUnsetSelector = '-';

// The slots that a signal stands on, one for each direction; a slot without a direction
// counts as one of both.
struct SlotChoice {
  std::int32_t in = kNoTrack;
  std::int32_t out = kNoTrack;
  std::int32_t both = kNoTrack;
};

void offerSlot(SlotChoice& choice, const DirectedSlot& slot) {
  std::int32_t& place = slot.direction == INPUT    ? choice.in
                        : slot.direction == OUTPUT ? choice.out
                                                   : choice.both;
  if (place == kNoTrack) place = slot.slot;
}

void offerSlot(SlotChoice& choice, const PVBtimePlate& plate, std::int32_t slot) {
  offerSlot(choice, {slot, PVBtrackDirection(plate, slot)});
}

bool isSelectedBy(const PVBtrack& wave, char selector) {
  return wave.selector == selector || PVBwaveSelectors(wave).find(selector) != std::string::npos;
}

// The first slot of each direction among some; with a selector only those that it names.
SlotChoice scanSome(const PVBtimePlate& plate, std::span<const DirectedSlot> slots, char selector) {
  SlotChoice choice;
  if (plate.levels.empty()) return choice;
  const std::vector<PVBtrack>& tracks = plate.levels.front().tracks;
  for (const DirectedSlot& slot : slots) {
    const auto t = static_cast<std::size_t>(slot.slot);
    if (t >= tracks.size() || (selector != kNoSelector && !isSelectedBy(tracks[t], selector))) {
      continue;
    }
    offerSlot(choice, slot);
  }
  return choice;
}

// The first slot of each direction that holds the signal; with a selector only those
// that it names.
SlotChoice scanSlots(const PVBtimePlate& plate, PVBid signal, char selector) {
  SlotChoice choice;
  if (plate.levels.empty()) return choice;
  const std::vector<PVBtrack>& tracks = plate.levels.front().tracks;
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    const auto slot = static_cast<std::int32_t>(t);
    if (selector != kNoSelector && !isSelectedBy(tracks[t], selector)) continue;
    const PVBidList& signals = PVBtrackSignals(plate, slot);
    if (std::find(signals.begin(), signals.end(), signal) == signals.end()) continue;
    offerSlot(choice, plate, slot);
  }
  return choice;
}

// The same by the plate's map, which tells all but which of several slots is the first.
SlotChoice allSlots(const PVBtimePlate& plate, PVBid signal) {
  SlotChoice choice;
  const SignalTracks* tracks = PVBsignalTracks(plate, signal);
  if (tracks == nullptr) return choice;
  for (const std::int32_t slot : tracks->track) {
    if (slot == kSeveralTracks) return scanSlots(plate, signal, kNoSelector);
    if (slot != kNoTrack) offerSlot(choice, plate, slot);
  }
  return choice;
}

bool anySlot(const SlotChoice& choice) {
  return choice.in != kNoTrack || choice.out != kNoTrack || choice.both != kNoTrack;
}

void take(RowTracks& tracks, std::int32_t slot) {
  if (slot == kNoTrack) return;
  tracks.slot[static_cast<std::size_t>(tracks.count++)] = slot;
}

RowTracks chooseByData(const SlotChoice& choice, bool inData, bool outData) {
  RowTracks tracks;
  const std::int32_t wanted = inData == outData ? kNoTrack : inData ? choice.in : choice.out;
  if (wanted != kNoTrack) {
    take(tracks, wanted);
  } else if (choice.both != kNoTrack) {
    take(tracks, choice.both);
  } else {
    take(tracks, choice.in);
    take(tracks, choice.out);
  }
  return tracks;
}

}  // namespace

DataColumns PVBsignalDataColumns(const PVBsignal& signal) {
  if (signal.multiTrack == 0) {
    const auto column = [](std::uint16_t number) {
      return number == kNoColumn ? -1 : static_cast<std::int32_t>(number);
    };
    return {column(signal.inColumn), column(signal.outColumn)};
  }
  if (signal.direction == OUTPUT) return {-1, PVBsignalColumn(signal, 1)};
  return {PVBsignalColumn(signal, 1), signal.direction == BIDIR ? PVBsignalColumn(signal, 2) : -1};
}

RowTracks PVBfindTracks(const PVBsignal& signal, const PVBtimePlate& plate, char selector,
                        bool inData, bool outData) {
  if (selector != kNoSelector) {
    const SlotChoice named = scanSlots(plate, signal.id, selector);
    if (anySlot(named)) return chooseByData(named, inData, outData);
  }
  return chooseByData(allSlots(plate, signal.id), inData, outData);
}

RowTracks PVBfindTracksAmong(const PVBtimePlate& plate, std::span<const DirectedSlot> slots,
                             char selector, bool inData, bool outData) {
  if (selector != kNoSelector) {
    const SlotChoice named = scanSome(plate, slots, selector);
    if (anySlot(named)) return chooseByData(named, inData, outData);
  }
  return chooseByData(scanSome(plate, slots, kNoSelector), inData, outData);
}

char PVBrowSelector(int database, const PVBsignal& signal, const PVBrow& row) {
  if (signal.multiBit == 0) return kNoSelector;
  const auto selector = static_cast<char>(PVBrowGetState(database, row, signal));
  return selector == kUnsetSelector ? kNoSelector : selector;
}

namespace {

// What a row says about the tracks of a signal.
struct RowData {
  char selector;
  bool in;
  bool out;
};

RowData dataOf(int database, const PVBsignal& signal, const PVBrow& row) {
  const int columns = 2 * PVBrowDataSize(database);
  const auto hasData = [&](std::int32_t column) {
    return column >= 0 && column < columns &&
           rowCode(row.states(), static_cast<std::uint32_t>(column)) != 0;
  };
  const DataColumns data = PVBsignalDataColumns(signal);
  return {PVBrowSelector(database, signal, row), hasData(data.in), hasData(data.out)};
}

}  // namespace

RowTracks PVBrowFindTracks(int database, const PVBsignal& signal, const PVBtimePlate& plate,
                           const PVBrow& row) {
  const RowData data = dataOf(database, signal, row);
  return PVBfindTracks(signal, plate, data.selector, data.in, data.out);
}

RowTracks PVBrowFindTracksAmong(int database, const PVBsignal& signal, const PVBtimePlate& plate,
                                std::span<const DirectedSlot> slots, const PVBrow& row) {
  const RowData data = dataOf(database, signal, row);
  return PVBfindTracksAmong(plate, slots, data.selector, data.in, data.out);
}

std::int32_t PVBrowFindTrack(int database, const PVBsignal& signal, const PVBtimePlate& plate,
                             const PVBrow& row, int& direction) {
  const RowTracks tracks = PVBrowFindTracks(database, signal, plate, row);
  const std::int32_t slot = tracks.slot[0];
  direction = slot == kNoTrack ? kUndefinedDirection : PVBtrackDirection(plate, slot);
  return slot;
}

// --- All signals of a plate ----------------------------------------------------------

namespace {

struct SignalSlot {
  PVBid signal;
  DirectedSlot slot;
};

bool isOpened(int database, PVBid id) {
  const PVBsignal* signal = PVBsignalInqByID(database, id);
  return signal != nullptr && !signal->members.empty();
}

std::vector<SignalSlot> openSlots(int database, const PVBtimePlate& plate) {
  std::vector<SignalSlot> found;
  const int count = PVBslotCount(plate);
  for (int index = 0; index < count; ++index) {
    const DirectedSlot slot = {index, PVBtrackDirection(plate, index)};
    for (const PVBid id : PVBtrackSignals(plate, index)) {
      if (!isOpened(database, id)) {
        found.push_back({id, slot});
      } else if (found.size() < kMostOpened) {
        for (const PVBid part : PVBsignalListToScalars(database, {id})) {
          found.push_back({part, slot});
        }
      }
    }
  }
  return found;
}

}  // namespace

PlateSlots::PlateSlots(int database, const PVBtimePlate& plate) {
  std::vector<SignalSlot> found = openSlots(database, plate);
  // The slots of a signal come in rising order.
  std::ranges::stable_sort(found, {}, &SignalSlot::signal);
  signals_.reserve(found.size());
  slots_.reserve(found.size());
  for (const SignalSlot& entry : found) {
    signals_.push_back(entry.signal);
    slots_.push_back(entry.slot);
  }
}

std::span<const DirectedSlot> PlateSlots::of(PVBid signal) const {
  const auto [first, last] = std::equal_range(signals_.begin(), signals_.end(), signal);
  return std::span(slots_).subspan(static_cast<std::size_t>(first - signals_.begin()),
                                   static_cast<std::size_t>(last - first));
}
