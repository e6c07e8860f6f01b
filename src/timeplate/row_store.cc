#include "timeplate/row_store.h"

#include <fmt/printf.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "base/errors.h"
#include "base/text.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/row_rewrite.h"
#include "timeplate/row_store_internal.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr int kLeastQueue = 500;  // a limit has to be above
constexpr std::int32_t kMostRows = std::numeric_limits<std::int32_t>::max();

// The rows of a pattern in the store's numbers.
struct Stretch {
  int pattern = kMainPattern;
  std::int32_t first = 0;
  std::int32_t count = 0;
  std::uint32_t lastType = ROW_SUBR_DEF;  // of its last row
};

// Open from tpRowStoreOpen to tpRowStoreClose or tpRowStoreDrop.
struct RowStore {
  int database = -1;
  RowCache cache;
  std::vector<Stretch> stretches;
  // By row.
  std::vector<bool> entered;
  std::vector<bool> repeats;
  std::vector<bool> scans;
  TpRow incoming;  // room for a row on its way in
};
RowStore store;

bool flagOf(const std::vector<bool>& flags, std::int32_t row) {
  return row >= 0 && static_cast<std::size_t>(row) < flags.size() &&
         flags[static_cast<std::size_t>(row)];
}

int queueLimit() {
  const char* given = std::getenv("TPFORCE_QUEUE");
  const int limit = given != nullptr ? PBtextToInt(given) : 0;
  return limit > kLeastQueue ? limit : kQueueLimit;
}

bool failRead(std::int64_t row) {
  errno = 0;
  PBpostError("tpRowStoreOpen", 87, fmt::sprintf("pattern row %d", row));
  return false;
}

// --- Taking in -----------------------------------------------------------------------

bool isCycle(std::uint32_t type) {
  return type == ROW_LITERAL || type == ROW_SCAN || type == ROW_MATCH;
}

// Whether what follows a row of this type may be reached in another way than through the
// row before it, or depends on more than that row tells.
bool leavesUnknown(std::uint32_t type) {
  return type == ROW_LOOP || type == ROW_END_LOOP || type == ROW_SUBR_CALL || type == ROW_SCAN;
}

void takeFlags(const Stretch& stretch, const PVBrow& row) {
  const bool first = stretch.count == 0;
  store.entered.push_back(first || leavesUnknown(stretch.lastType) || row.type == ROW_SCAN);
  store.repeats.push_back(isCycle(row.type) && (row.type != ROW_LITERAL || row.count > 1));
  store.scans.push_back(row.type == ROW_SCAN);
}

// Takes in the next row of a stretch, which is the last one.
bool takeRow(Stretch& stretch, const PVBrow& row) {
  const std::int32_t number = stretch.first + stretch.count;
  if (number == kMostRows) return failRead(number);
  takeFlags(stretch, row);
  store.incoming.timeplate = isCycle(row.type) ? row.timeplate : kNoTimePlate;
  store.incoming.data.assign(row.states(), row.states() + store.incoming.data.size());
  store.cache.put(number, store.incoming);
  stretch.lastType = row.type;
  ++stretch.count;
  return true;
}

struct PatternSize {
  int pattern;
  std::int64_t rows;
};

// The patterns in the order of the store's numbers, as they are now.
bool listPatterns(std::vector<PatternSize>& patterns) {
  patterns.push_back({kMainPattern, 0});
  for (int s = PVBsubroutineFirst(store.database); s >= 0; s = PVBsubroutineNext(store.database)) {
    patterns.push_back({s, 0});
  }
  for (PatternSize& size : patterns) {
    PVBposition sums;
    if (PVBpatternInqSize(store.database, size.pattern, sums) != 0) return failRead(0);
    size.rows = sums.row;
  }
  return true;
}

bool takePattern(const PatternSize& size) {
  Stretch& stretch = store.stretches.emplace_back();
  stretch.pattern = size.pattern;
  stretch.first = store.cache.count();
  PatternWalk walk(store.database, size.pattern);
  while (walk.next()) {
    const RowHandle row(store.database, PVBrowGet(store.database, walk.entry().child));
    if (!row) return failRead(walk.rowNumber());
    if (!takeRow(stretch, *row)) return false;
  }
  return !walk.failed() && stretch.count == size.rows ? true : failRead(stretch.count);
}

bool takeAll() {
  std::vector<PatternSize> patterns;
  return listPatterns(patterns) && std::ranges::all_of(patterns, takePattern);
}

// --- Coming later --------------------------------------------------------------------

// Whether the patterns are those of the store, but for rows at the end of the last one:
// these get numbers that are free.
bool grewAtEnd(const std::vector<PatternSize>& patterns) {
  if (patterns.size() != store.stretches.size()) return false;
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    const Stretch& known = store.stretches[i];
    const bool grew = i + 1 == patterns.size() && patterns[i].rows > known.count;
    if (patterns[i].pattern != known.pattern || (patterns[i].rows != known.count && !grew)) {
      return false;
    }
  }
  return true;
}

bool takeAppended(Stretch& stretch, std::int64_t rows) {
  while (stretch.count < rows) {
    PVBposition position;
    position.row = static_cast<std::uint32_t>(stretch.count);
    const RowHandle row(store.database,
                        PVBpatternInqRow(store.database, stretch.pattern, position, BY_ROW));
    if (!row) return failRead(stretch.count);
    if (!takeRow(stretch, *row)) return false;
  }
  return true;
}

RowsTaken renew() {
  const int database = store.database;
  const bool done = tpRowStoreClose() == 0 && tpRowStoreOpen(database, nullptr);
  return done ? RowsTaken::renewed : RowsTaken::failed;
}

// --- Writing back --------------------------------------------------------------------

RowChange writeBack(PVBrow& row, const TpRow& record) {
  if (!isCycle(row.type) || record.timeplate == kNoTimePlate) return RowChange::none;
  const std::size_t size = std::min(record.data.size(), store.incoming.data.size());
  const bool sameData = std::memcmp(row.states(), record.data.data(), size) == 0;
  if (sameData && row.timeplate == record.timeplate) return RowChange::none;
  std::memcpy(row.states(), record.data.data(), size);
  row.timeplate = record.timeplate;
  return RowChange::changed;
}

bool writeBackStretch(const Stretch& stretch) {
  std::int32_t place = 0;
  return PVBrewriteRows(store.database, stretch.pattern, "tpRowStoreClose", [&](PVBrow& row) {
    // What came later was never rewritten.
    const std::int32_t number = stretch.first + place;
    const TpRow* record = place < stretch.count ? store.cache.get(number) : nullptr;
    ++place;
    return record != nullptr ? writeBack(row, *record) : RowChange::none;
  });
}

bool writeBackAll() {
  for (const Stretch& stretch : store.stretches) {
    if (writeBackStretch(stretch)) continue;
    errno = 0;
    PBpostError("tpRowStoreClose", 0, "the rows couldn't be written back.");
    return false;
  }
  return true;
}

}  // namespace

bool tpRowStoreOpen(int database, const char* fileName) {
  if (store.cache.isOpen() && store.database == database) return true;
  tpRowStoreDrop();
  if (PVBgetSection(database, kSectionPatterns) == nullptr) return failRead(0);
  store.database = database;
  store.incoming.data.resize(static_cast<std::size_t>(PVBrowDataSize(database)));
  store.cache.open(store.incoming.data.size(), queueLimit(), fileName);
  if (takeAll()) return true;
  tpRowStoreDrop();
  return false;
}

RowsTaken tpRowStoreRefresh() {
  std::vector<PatternSize> patterns;
  if (!store.cache.isOpen() || !listPatterns(patterns)) return RowsTaken::failed;
  if (!grewAtEnd(patterns)) return renew();
  const bool taken = takeAppended(store.stretches.back(), patterns.back().rows);
  return taken ? RowsTaken::appended : RowsTaken::failed;
}

bool tpRowStoreIsOpen() { return store.cache.isOpen(); }
std::int32_t tpRowStoreCount() { return store.cache.count(); }
TpRow* tpRowGet(std::int32_t row) { return store.cache.get(row); }
void tpRowPut(std::int32_t row, const TpRow& record) { store.cache.put(row, record); }
void tpRowTouch(const TpRow& row) { store.cache.touch(row.row); }
bool tpRowEntered(std::int32_t row) { return flagOf(store.entered, row); }
bool tpRowRepeats(std::int32_t row) { return flagOf(store.repeats, row); }
bool tpRowScans(std::int32_t row) { return flagOf(store.scans, row); }

int tpRowStoreClose() {
  if (!store.cache.isOpen()) return 0;
  const bool written = writeBackAll();
  const RowCacheCounts& counts = store.cache.counts();
  if (tpTraces(1)) {
    tpReport(fmt::sprintf("LRU Queue: %d hits, %d misses\n", counts.hits, counts.misses));
  }
  tpRowStoreDrop();
  return written ? 0 : -2;
}

void tpRowStoreDrop() {
  store.cache.close();
  store.database = -1;
  store.stretches.clear();
  store.entered.clear();
  store.repeats.clear();
  store.scans.clear();
}
