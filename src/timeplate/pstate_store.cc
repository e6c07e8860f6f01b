#include "timeplate/pstate_store.h"

#include <algorithm>
#include <vector>

#include "timeplate/record_file.h"
#include "timeplate/row_store.h"
#include "timeplate/wave.h"

namespace {

// Open from tpPStateOpen to tpPStateClose.
struct PStateStore {
  RecordFile file;
  std::vector<std::uint8_t> record;  // that of `row`
  std::int32_t row = -1;
};
PStateStore store;

void fill(std::int32_t row) {
  store.row = row;
  if (row < 0 || !store.file.read(row, store.record)) std::ranges::fill(store.record, 0);
}

}  // namespace

bool tpPStateOpen(int signalCount, const char* fileName) {
  const auto size = static_cast<std::size_t>(std::max(signalCount, 0)) / 2 + 2;
  store.file.open(size, fileName);
  store.record.assign(size, 0);
  store.row = -1;
  return true;
}

std::span<const std::uint8_t> tpPStateGet(std::int32_t row) {
  if (row != store.row) fill(row);
  return store.record;
}

void tpPStatePut(std::int32_t row, std::span<const std::uint8_t> record) {
  if (row < 0 || !store.file.isOpen()) return;
  if (store.file.count() < row) {
    fill(-1);
    while (store.file.count() < row) store.file.write(store.file.count(), store.record);
  }
  store.record.assign(record.begin(), record.end());
  store.record.resize(store.file.recordSize());
  store.row = row;
  store.file.write(row, store.record);
}

void tpPStateClose() {
  store.file.close();
  store.record.clear();
  store.row = -1;
}

char tpPStateLetter(std::int32_t row, int signalIndex) {
  if (signalIndex < 0 || tpRowEntered(row)) return 'N';
  const std::span<const std::uint8_t> record = tpPStateGet(row);
  const auto index = static_cast<std::size_t>(signalIndex);
  if (index / 2 >= record.size()) return 'N';
  const int code = (record[index / 2] >> (index % 2 * 4)) & 15;
  return code == 0 ? 'N' : tpStoredLetter(code);
}
