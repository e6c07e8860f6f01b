#include "timeplate/tp_run.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <unordered_set>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/row.h"
#include "pvb/row_track.h"
#include "timeplate/wave.h"

TpRun tpRun;

namespace {

// --- Signals -------------------------------------------------------------------------

// The columns whose states stand in the runs of scan rows.
std::unordered_set<std::int32_t> scannedColumns(int database) {
  std::unordered_set<std::int32_t> columns;
  for (const PVBid id : PVBobjectInqAll(database)) {
    const PVBsignal* chain = PVBobjectInqByID(database, id);
    if (chain == nullptr || chain->type != kScanChainType) continue;
    for (const PVBid end : chain->lists3) {
      const PVBsignal* signal = PVBsignalInqByID(database, end);
      if (signal == nullptr) continue;
      const DataColumns at = PVBsignalDataColumns(*signal);
      columns.insert({at.in, at.out});
    }
  }
  columns.erase(-1);
  return columns;
}

// Enters signals in order, each once.
class SignalList {
 public:
  explicit SignalList(int database)
      : database_(database),
        columns_(2 * std::max(PVBrowDataSize(database), 0)),
        scanned_(scannedColumns(database)) {}

  void add(PVBid id) {
    const PVBsignal* signal = PVBsignalInqByID(database_, id);
    if (signal == nullptr || !entered_.insert(id).second) return;
    enter(*signal, *signal, false);
    for (const PVBid child : signal->muxChildren) {
      const PVBsignal* part = PVBsignalInqByID(database_, child);
      if (part != nullptr && entered_.insert(child).second) enter(*part, *signal, true);
    }
  }
  std::vector<TpSignal> take() { return std::move(signals_); }

 private:
  // A part without columns or a name has those of the whole.
  void enter(const PVBsignal& signal, const PVBsignal& whole, bool muxed) {
    TpSignal& entry = signals_.emplace_back();
    entry.id = signal.id;
    entry.index = static_cast<int>(signals_.size()) - 1;
    entry.name = signal.name ? *signal.name : whole.name.value_or("");
    entry.plain = signal.type == MEM_SIGNAL;
    entry.muxed = muxed;
    entry.direction = signal.direction;
    entry.selects = signal.multiBit != 0;
    DataColumns columns = PVBsignalDataColumns(signal);
    if (columns.in < 0 && columns.out < 0) columns = PVBsignalDataColumns(whole);
    entry.inColumn = columns.in < columns_ ? columns.in : -1;
    entry.outColumn = columns.out < columns_ ? columns.out : -1;
    entry.scans = scanned_.contains(entry.inColumn) || scanned_.contains(entry.outColumn);
  }

  int database_;
  std::int32_t columns_;
  std::unordered_set<std::int32_t> scanned_;
  std::vector<TpSignal> signals_;
  std::unordered_set<PVBid> entered_;
};

// --- Maps ----------------------------------------------------------------------------

// Where a signal stood last in the map of a plate. Plates hold much the same signals, so
// it mostly stands there in the next one too.
std::vector<std::size_t> places;

const SignalTracks* tracksOf(const PVBtimePlate& plate, const TpSignal& signal) {
  const auto& map = plate.signalToTrack;
  const auto index = static_cast<std::size_t>(signal.index);
  if (index >= places.size()) return PVBsignalTracks(plate, signal.id);
  std::size_t& place = places[index];
  if (place < map.size() && map[place].first == signal.id) return &map[place].second;
  const auto found = std::lower_bound(map.begin(), map.end(), signal.id,
                                      [](const auto& entry, PVBid id) { return entry.first < id; });
  if (found == map.end() || found->first != signal.id) return nullptr;
  place = static_cast<std::size_t>(found - map.begin());
  return &found->second;
}

bool isUndirected(const SignalTracks& tracks) {
  return tracks.track[INPUT] >= 0 && tracks.track[INPUT] == tracks.track[OUTPUT] &&
         tracks.track[INPUT] == tracks.track[BIDIR];
}

int directionByStates(const PVBtimePlate& plate, std::int32_t track) {
  const PVBtrack* wave = tpTrack(plate, track);
  return wave != nullptr ? tpClassifyDirection(wave->stateChars) : INPUT;
}

// The track by the plate's map, which has one at most for each direction.
std::int32_t trackByMap(const SignalTracks& tracks, bool inData, bool outData, int& direction) {
  direction = inData == outData ? kUndefinedDirection : inData ? INPUT : OUTPUT;
  const auto has = [&](int d) { return tracks.track[static_cast<std::size_t>(d)] != kNoTrack; };
  if (direction == kUndefinedDirection || !has(direction)) {
    direction = has(BIDIR)    ? BIDIR
                : has(INPUT)  ? INPUT
                : has(OUTPUT) ? OUTPUT
                              : kUndefinedDirection;
  }
  if (direction == kUndefinedDirection) return kNoTrack;
  return tracks.track[static_cast<std::size_t>(direction)];
}

// The selector stands in columns of the row that only the row's own module knows.
char selectorOf(const PVBsignal& signal, const TpRow& row) {
  static std::vector<std::uint64_t> block;
  const auto size = static_cast<std::size_t>(std::max(PVBrowDataSize(tpRun.database), 0));
  block.resize((kRowStatesOffset + std::max(size, row.data.size())) / sizeof(block[0]) + 1);
  auto* copy = reinterpret_cast<PVBrow*>(block.data());
  copy->type = ROW_LITERAL;
  std::ranges::copy(row.data, copy->states());
  return PVBrowSelector(tpRun.database, signal, *copy);
}

// As PVBrowFindTrack: the selector decides, or which of several slots is the first.
std::int32_t trackBySearch(const TpSignal& signal, const PVBtimePlate& plate, const TpRow& row,
                           bool inData, bool outData, int& direction) {
  direction = kUndefinedDirection;
  const PVBsignal* record = PVBsignalInqByID(tpRun.database, signal.id);
  if (record == nullptr) return kNoTrack;
  const char selector = signal.selects ? selectorOf(*record, row) : kNoSelector;
  const std::int32_t slot = PVBfindTracks(*record, plate, selector, inData, outData).slot[0];
  if (slot == kNoTrack) return kNoTrack;
  direction = PVBtrackDirection(plate, slot);
  if (direction == kUndefinedDirection) direction = directionByStates(plate, slot);
  return slot;
}

}  // namespace

int tpRunBegin(int database) {
  tpRunEnd();
  if (PVBgetSection(database, kSectionSignals) == nullptr) return -2;
  SignalList list(database);
  const PVBidList scalars = PVBsignalListToScalars(database, {kGroupAll});
  for (const PVBid id : scalars) list.add(id);
  const PVBidList all = PVBsignalInqAll(database);
  for (const PVBid id : all) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal != nullptr && (signal->type == MEM_SIGNAL || signal->type == MEM_MUX)) list.add(id);
  }
  tpRun.database = database;
  tpRun.pmode = PVBpmode(database);
  tpRun.version = PVBmodelExtended(database, true) ? 2 : 1;
  tpRun.signals = list.take();
  tpRun.tpoSignals.resize(tpRun.signals.size());
  std::iota(tpRun.tpoSignals.begin(), tpRun.tpoSignals.end(), 0);
  places.assign(tpRun.signals.size(), 0);
  return 0;
}

void tpRunEnd() {
  tpRun = {};
  places.clear();
}

int tpRowCode(const TpRow& row, std::int32_t column) {
  if (column < 0 || static_cast<std::size_t>(column) / 2 >= row.data.size()) return 0;
  return rowCode(row.data.data(), static_cast<std::uint32_t>(column));
}

char tpRowLetter(const TpSignal& signal, const TpRow& row) {
  return tpDataLetter(tpRowCode(row, signal.inColumn >= 0 ? signal.inColumn : signal.outColumn));
}

std::int32_t tpRowTrack(const TpSignal& signal, const PVBtimePlate& plate, const TpRow& row,
                        int& direction) {
  const SignalTracks* tracks = tracksOf(plate, signal);
  if (tracks == nullptr) {
    direction = kUndefinedDirection;
    return kNoTrack;
  }
  if (!signal.selects && isUndirected(*tracks)) {
    direction = directionByStates(plate, tracks->track[INPUT]);
    return tracks->track[INPUT];
  }
  const bool inData = tpRowCode(row, signal.inColumn) != 0;
  const bool outData = tpRowCode(row, signal.outColumn) != 0;
  const bool several = std::ranges::find(tracks->track, kSeveralTracks) != tracks->track.end();
  if (signal.selects || several) {
    return trackBySearch(signal, plate, row, inData, outData, direction);
  }
  return trackByMap(*tracks, inData, outData, direction);
}

std::int32_t tpTrackOf(const PVBtimePlate& plate, const TpSignal& signal, int direction) {
  const SignalTracks* tracks = tracksOf(plate, signal);
  if (tracks == nullptr || direction < 0 || direction > BIDIR) return kNoTrack;
  return std::max(tracks->track[static_cast<std::size_t>(direction)], kNoTrack);
}

const PVBtrack* tpTrack(const PVBtimePlate& plate, std::int32_t track) {
  if (track < 0 || plate.levels.empty()) return nullptr;
  const std::vector<PVBtrack>& tracks = plate.levels.front().tracks;
  const auto place = static_cast<std::size_t>(track);
  return place < tracks.size() ? &tracks[place] : nullptr;
}
