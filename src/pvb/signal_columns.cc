#include <algorithm>

#include "pvb/pattern.h"
#include "pvb/signal.h"
#include "pvb/signal_internal.h"

namespace {

// The bit columns of a signal that isn't `multiBit`.
constexpr int kSingleBits = 2;

bool driven(std::int32_t direction) { return direction == INPUT || direction == BIDIR; }
bool expected(std::int32_t direction) { return direction == OUTPUT || direction == BIDIR; }
bool isColumn(std::int32_t column) { return column >= 0 && column < kMaxColumns; }

void claimColumn(PVBsignalData& data, std::int32_t column) {
  if (isColumn(column)) data.nextColumn = std::max(data.nextColumn, column + 1);
}

std::uint16_t takeColumn(PVBsignalData& data) {
  return static_cast<std::uint16_t>(data.nextColumn++);
}

// The data of an open database when a signal may have `n` columns of an extended
// model; null with a status when not.
PVBsignalData* extendedData(int database, int n, PVBstatusCode notEnabled) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return nullptr;
  if (!PVBmodelExtended(database, true)) {
    PVBsetStatus(database, notEnabled);
    return nullptr;
  }
  if (n >= 0 && n <= kMaxTracks) return data;
  PVBsetStatus(database, kStatusOutOfBounds);
  return nullptr;
}

// Lengthens a list of columns to `n`; as it was when they can't be had.
int growColumns(int database, PVBsignalData& data, PVBintList& list, int n) {
  const int missing = n - static_cast<int>(std::min<std::size_t>(list.size(), kMaxTracks));
  if (missing <= 0) return 0;
  if (reserveColumns(database, data, missing) != 0) return -2;
  for (int i = 0; i < missing; ++i) list.push_back(data.nextColumn++);
  noteChange(data);
  return 0;
}

// The columns that a signal has now, as a list.
PVBintList columnList(const PVBsignal& signal) {
  if (signal.multiTrack != 0) return signal.tracks;
  PVBintList list;
  for (const std::uint16_t column : {signal.inColumn, signal.outColumn}) {
    if (column != kNoColumn) list.push_back(column);
  }
  return list;
}

void setTracks(PVBsignal& signal, PVBintList tracks) {
  signal.tracks = std::move(tracks);
  signal.multiTrack = 1;
  signal.inColumn = signal.outColumn = kNoColumn;
}

// The bit columns that a signal has now, as a list.
PVBintList bitList(const PVBsignal& signal) {
  if (signal.multiBit != 0) return signal.bitTracks;
  PVBintList list;
  for (const std::int32_t column : {signal.bitIn, signal.bitOut}) {
    if (column >= 0) list.push_back(column);
  }
  return list;
}

void setBits(PVBsignal& signal, PVBintList bits) {
  if (signal.multiBit == 0 && bits.size() <= kSingleBits) {
    if (!bits.empty()) signal.bitIn = bits[0];
    if (bits.size() > 1) signal.bitOut = bits[1];
    return;
  }
  signal.bitTracks = std::move(bits);
  signal.multiBit = 1;
  signal.bitIn = signal.bitOut = -1;
}

// --- Multiplexed signals -------------------------------------------------------------

// The columns of all children one after the other: 0, or -2 with a status.
int childColumns(int database, const PVBsignal& parent, PVBintList& columns) {
  for (const PVBid id : parent.muxChildren) {
    const PVBsignal* child = PVBsignalInqByID(database, id);
    if (child == nullptr) return -2;
    const PVBintList own = columnList(*child);
    columns.insert(columns.end(), own.begin(), own.end());
    if (columns.size() > kMaxTracks) return failWith(database, kStatusOutOfBounds, -2);
  }
  return 0;
}

int resolveMux(int database, PVBsignalData& data, PVBsignal& signal) {
  PVBintList columns;
  if (childColumns(database, signal, columns) != 0) return -2;
  setTracks(signal, std::move(columns));
  signal.muxChildren.clear();
  signal.type = MEM_SIGNAL;
  PVBsignal* allMux = findById(data, kGroupAllMux);
  if (allMux != nullptr) PVBidListRemove(allMux->members, signal.id);
  return 0;
}

int resolveMuxBus(int database, PVBsignalData& data, PVBsignal& bus) {
  for (const PVBid id : bus.members) {
    PVBsignal* member = PVBsignalInqByID(database, id);
    if (member == nullptr) return -2;
    if (member->type == MEM_MUX && resolveMux(database, data, *member) != 0) return -2;
  }
  bus.muxChildren.clear();
  bus.type = MEM_BUS;
  return 0;
}

}  // namespace

// --- Shared --------------------------------------------------------------------------

int columnsOfDirection(std::int32_t direction) {
  return (driven(direction) ? 1 : 0) + (expected(direction) ? 1 : 0);
}

int reserveColumns(int database, const PVBsignalData& data, int count) {
  if (count > kMaxColumns - data.nextColumn) return failWith(database, kStatusOutOfBounds, -2);
  const PVBdatabase& slot = *PVBget(database);
  const int width = data.nextColumn + count;
  const bool fits = (slot.sectionsOpen & kSectionPatterns) == 0 || width <= slot.rowWidth;
  return fits ? 0 : PVBpatternWidenRows(database, width);
}

void claimColumns(PVBsignalData& data, const PVBsignal& signal) {
  for (const std::int32_t column : columnList(signal)) claimColumn(data, column);
  for (const std::int32_t column : bitList(signal)) claimColumn(data, column);
}

// --- Columns -------------------------------------------------------------------------

int PVBsignalColumns(const PVBsignal& signal) {
  if (signal.multiTrack != 0) return static_cast<int>(signal.tracks.size());
  return (signal.inColumn != kNoColumn ? 1 : 0) + (signal.outColumn != kNoColumn ? 1 : 0);
}

std::int32_t PVBsignalColumn(const PVBsignal& signal, int track) {
  if (track < 1) return -1;
  const PVBintList& tracks = signal.tracks;
  std::int32_t column = -1;
  if (signal.multiTrack == 0) {
    const bool out = signal.direction == OUTPUT || (signal.direction == BIDIR && track == 2);
    column = out ? signal.outColumn : signal.inColumn;
  } else if (static_cast<std::size_t>(track) <= tracks.size()) {
    column = tracks[static_cast<std::size_t>(track) - 1];
  } else if (track == 2 && expected(signal.direction) && !tracks.empty()) {
    column = tracks[0];
  }
  return isColumn(column) ? column : -1;
}

int PVBsignalAllocColumns(int database, PVBsignal& signal) {
  PVBsignalData* data = signalData(database);
  if (data == nullptr) return -2;
  const bool in = signal.inColumn == kNoColumn && driven(signal.direction);
  const bool out = signal.outColumn == kNoColumn && expected(signal.direction);
  const int missing = (in ? 1 : 0) + (out ? 1 : 0);
  if (missing == 0) return 0;
  if (reserveColumns(database, *data, missing) != 0) return -2;
  if (in) signal.inColumn = takeColumn(*data);
  if (out) signal.outColumn = takeColumn(*data);
  noteChange(*data);
  return 0;
}

int PVBsignalAllocTracks(int database, PVBsignal& signal, int n) {
  PVBsignalData* data = extendedData(database, n, kStatusNoMultiTrack);
  if (data == nullptr) return -2;
  PVBintList tracks = columnList(signal);
  if (growColumns(database, *data, tracks, n) != 0) return -2;
  setTracks(signal, std::move(tracks));
  noteChange(*data);
  return 0;
}

int PVBsignalAllocBits(int database, PVBsignal& signal, int n) {
  PVBsignalData* data = extendedData(database, n, kStatusNoMultiBit);
  if (data == nullptr) return -2;
  PVBintList bits = bitList(signal);
  if (growColumns(database, *data, bits, n) != 0) return -2;
  setBits(signal, std::move(bits));
  noteChange(*data);
  return 0;
}

// --- Directions ----------------------------------------------------------------------

void PVBsetDirection(PVBsignal& signal, std::int32_t direction) {
  const std::int32_t before = signal.direction;
  signal.direction = direction;
  if (signal.type != MEM_SIGNAL) return;
  const bool toOutput = before == INPUT && direction == OUTPUT;
  const bool toInput = before == OUTPUT && direction == INPUT;
  if (!toOutput && !toInput) return;
  std::uint16_t& target = toOutput ? signal.outColumn : signal.inColumn;
  std::uint16_t& source = toOutput ? signal.inColumn : signal.outColumn;
  if (target == kNoColumn && source != kNoColumn) std::swap(target, source);
}

// --- Multiplexed signals -------------------------------------------------------------

int PVBmuxResolve(int database, PVBsignal& signal) {
  PVBsignalData* data = extendedData(database, 0, kStatusNoMultiTrack);
  if (data == nullptr) return -2;
  if (!isMux(signal)) return failWith(database, kStatusBadType, -2);
  const int result = signal.type == MEM_MUX ? resolveMux(database, *data, signal)
                                            : resolveMuxBus(database, *data, signal);
  noteChange(*data);
  return result;
}
