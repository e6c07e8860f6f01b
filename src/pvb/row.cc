#include "pvb/row.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/pattern_internal.h"
#include "pvb/property.h"
#include "pvb/scan_run.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "storage/swapendian.h"

namespace {

constexpr int kUnsetState = '-';
constexpr int kMaxScalarState = 255;

// --- Holds ---------------------------------------------------------------------------

PVBrow* hold(PVBpatternData& data, PVBrow* row, std::uint32_t id) {
  data.heldRows.push_back({row, id, false});
  return row;
}

auto findHold(PVBpatternData& data, const PVBrow* row) {
  return std::find_if(data.heldRows.begin(), data.heldRows.end(),
                      [&](const HeldRow& held) { return held.row == row; });
}

bool isHeld(const PVBpatternData& data, std::uint32_t id) {
  return std::any_of(data.heldRows.begin(), data.heldRows.end(),
                     [&](const HeldRow& held) { return held.id == id; });
}

// A zeroed block with its number, held; null on failure.
PVBrow* newBlock(PVBpatternData& data) {
  void* block = nullptr;
  const std::int64_t id = PageNewTyped(data.rows, block, typePVBrow);
  if (id < 0) return nullptr;
  const auto number = static_cast<std::uint32_t>(id);
  // A broken list of free blocks may give one that is in use.
  if (isHeld(data, number)) return nullptr;
  auto* row = static_cast<PVBrow*>(block);
  row->id = number;
  PageDirtyAt(data.rows, number, block);
  data.changed = true;
  return hold(data, row, number);
}

PVBrow* postNoRow(std::string_view function) {
  errno = 0;
  PBpostError(function, 0, "could not allocate new row");
  return nullptr;
}

// --- Columns -------------------------------------------------------------------------

bool isColumn(int database, std::int32_t column) {
  return column >= 0 && column < 2 * PVBrowDataSize(database);
}

bool isScalarColumn(int database, std::uint16_t column) {
  return column != kNoColumn && isColumn(database, column);
}

// The columns of a multi-bit value, lowest bits first.
bool allColumns(int database, const PVBintList& columns) {
  return std::all_of(columns.begin(), columns.end(),
                     [&](std::int32_t column) { return isColumn(database, column); });
}

int getMultiBit(int database, const PVBrow& row, const PVBintList& columns) {
  if (columns.empty() || !allColumns(database, columns)) return kUnsetState;
  std::uint64_t value = 0;
  for (std::size_t i = std::min<std::size_t>(columns.size(), 9); i-- > 0;) {
    const auto column = static_cast<std::uint32_t>(columns[i]);
    value = value << 4 | static_cast<unsigned>(rowCode(row.states(), column));
  }
  return static_cast<int>(static_cast<std::uint32_t>(value));
}

bool setMultiBit(int database, PVBrow& row, const PVBintList& columns, int value) {
  auto left = static_cast<std::uint32_t>(value);
  const bool fits = columns.size() >= 8 || left >> (4 * columns.size()) == 0;
  if (!fits || !allColumns(database, columns)) return false;
  for (const std::int32_t column : columns) {
    setRowCode(row.states(), static_cast<std::uint32_t>(column), static_cast<int>(left & 15));
    left >>= 4;
  }
  return true;
}

bool setScalar(int database, PVBrow& row, const PVBsignal& signal, int value) {
  if (value < 0 || value > kMaxScalarState) return false;
  if (isScalarColumn(database, signal.inColumn)) {
    setRowCode(row.states(), signal.inColumn, value & 15);
  }
  if (isScalarColumn(database, signal.outColumn)) {
    setRowCode(row.states(), signal.outColumn, value >> 4);
  }
  return true;
}

}  // namespace

const char* PVBrowTypeName(std::uint32_t type) {
  static constexpr std::array<const char*, 10> kNames = {
      "ROW_SUBR_DEF", "ROW_END_DEF", "ROW_LOOP", "ROW_END_LOOP", "ROW_SUBR_CALL",
      "ROW_LITERAL",  "ROW_SPACER",  "ROW_SCAN", "ROW_MATCH",    "ROW_PVBPOC"};
  return type < kNames.size() ? kNames[type] : "UNKNOWN";
}

int PVBrowDataSize(int database) {
  const PVBdatabase* slot = PVBget(database);
  return rowDataSize(slot != nullptr ? slot->rowWidth : 0);
}

// --- Making and giving back ----------------------------------------------------------

PVBrow* PVBpatternNew(int database) {
  PVBpatternData* data = patternData(database);
  PVBrow* row = data != nullptr ? newBlock(*data) : nullptr;
  if (row == nullptr) return postNoRow("PVBpatternNew");
  row->type = ROW_LITERAL;
  row->repeat16 = kNoRepeat16;
  row->timeplate = kNoTimePlate;
  row->link = kNoLink;
  row->tag = UNDEF;
  row->count = 1;
  return row;
}

PVBrow* PVBpatternNewAfter(int database, PVBrow* row) {
  PVBrowFree(database, row);
  return PVBpatternNew(database);
}

PVBrow* PVBpatternRowCopy(int database, const PVBrow& row) {
  PVBpatternData* data = patternData(database);
  PVBrow* copy = data != nullptr ? newBlock(*data) : nullptr;
  if (copy == nullptr) return postNoRow("PVBpatternRowCopy");
  const std::uint32_t id = copy->id;
  *copy = row;
  copy->id = id;
  PVBrowCopyStates(database, *copy, row);
  if (row.type == ROW_SCAN || row.type == ROW_LOOP) copy->link = kNoLink;
  if (row.tag != UNDEF) copy->tag = PVBpropListDup(database, row.tag);
  if (row.type != ROW_SCAN || PVBscanRunsCopy(database, *copy, row) == 0) return copy;
  freeRowDeep(database, *data, kMainPattern, id);
  PVBrowFree(database, copy);
  return nullptr;
}

PVBrow* PVBrowGet(int database, std::uint32_t id) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return nullptr;
  auto* row = static_cast<PVBrow*>(PageGetTyped(data->rows, id, typePVBrow));
  if (row == nullptr) return nullptr;
  if (row->id == id) return hold(*data, row, id);
  if (!isHeld(*data, id)) PageRelease(data->rows, id);
  return nullptr;
}

void PVBrowDirty(int database, PVBrow& row) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return;
  const auto held = findHold(*data, &row);
  if (held == data->heldRows.end()) return;
  PageDirtyAt(data->rows, held->id, &row);
  data->changed = true;
}

void PVBrowFree(int database, PVBrow* row) {
  PVBpatternData* data = row != nullptr ? patternData(database) : nullptr;
  if (data == nullptr) return;
  const auto place = findHold(*data, row);
  if (place == data->heldRows.end()) return;
  const HeldRow held = *place;
  *place = data->heldRows.back();
  data->heldRows.pop_back();
  if (isHeld(*data, held.id)) return;
  if (row->type == ROW_SCAN && !held.doomed) PVBscanClearStates(database, *row);
  PageReleaseAt(data->rows, held.id, row);
  if (held.doomed) PageFree(data->rows, held.id);
}

void freeRowBlock(PVBpatternData& data, std::uint32_t id) {
  bool held = false;
  for (HeldRow& row : data.heldRows) {
    if (row.id == id) held = row.doomed = true;
  }
  if (!held) PageFree(data.rows, id);
}

// --- States and comments -------------------------------------------------------------

int PVBrowGetState(int database, const PVBrow& row, const PVBsignal& signal) {
  if (signal.multiBit != 0) return getMultiBit(database, row, signal.bitTracks);
  const bool in = isScalarColumn(database, signal.inColumn);
  const bool out = isScalarColumn(database, signal.outColumn);
  if (!in && !out) return kUnsetState;
  const int low = in ? rowCode(row.states(), signal.inColumn) : 0;
  const int high = out ? rowCode(row.states(), signal.outColumn) : 0;
  return low | high << 4;
}

int PVBrowSetState(int database, PVBrow& row, const PVBsignal& signal, int value) {
  const bool done = signal.multiBit != 0 ? setMultiBit(database, row, signal.bitTracks, value)
                                         : setScalar(database, row, signal, value);
  if (!done) PVBsetStatus(database, kStatusOutOfBounds);
  return done ? 0 : -2;
}

void PVBrowClearStates(int database, PVBrow& row) {
  const auto states = PVBrowStates(database, row);
  std::fill(states.begin(), states.end(), std::uint8_t{0});
}

void PVBrowCopyStates(int database, PVBrow& to, const PVBrow& from) {
  std::memmove(to.states(), from.states(), static_cast<std::size_t>(PVBrowDataSize(database)));
}

std::span<std::uint8_t> PVBrowStates(int database, PVBrow& row) {
  return {row.states(), static_cast<std::size_t>(PVBrowDataSize(database))};
}

std::string_view PVBrowComment(int database, const PVBrow& row) {
  if (!hasComment(row.type)) return {};
  const auto size = static_cast<std::size_t>(PVBrowDataSize(database));
  const auto* text = reinterpret_cast<const char*>(row.states());
  return {text, static_cast<std::size_t>(std::find(text, text + size, '\0') - text)};
}

void PVBrowSetComment(int database, PVBrow& row, std::string_view comment) {
  if (!hasComment(row.type)) return;
  PVBrowClearStates(database, row);
  const auto size = static_cast<std::size_t>(PVBrowDataSize(database));
  const std::string_view kept = comment.substr(0, std::min(comment.find('\0'), size - 1));
  std::copy(kept.begin(), kept.end(), row.states());
}
