#include <fmt/printf.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "pvb/database.h"
#include "pvb/state_vector.h"
#include "pvb/state_vector_internal.h"

namespace {

// What the cached vectors may hold together, whatever their number: it bounds the
// memory that a small file of long runs can ask for.
constexpr std::size_t kMaxCachedBytes = 8 * kMaxVectorBytes;
constexpr int kFirstSettable = 1;
constexpr int kLastCode = 4;

using CachePlace = std::list<StateVector>::iterator;

// --- Packing -------------------------------------------------------------------------

int packVector(int database, PVBscanData& scan, StateVector& vector) {
  if (vectorsWillChange(database, scan) != 0) return -2;
  const std::string_view name = scan.names.of(vector.id);
  const std::uint32_t page = vectorPage(vector.id);
  const std::size_t predicted = packedStateSize(vector.bytes);
  const std::size_t start = name.size() + 1;
  const VPageHold hold(*scan.file, page, VPageResize(*scan.file, page, start + predicted));
  if (!hold) return vectorPageFailure(database);
  if (!name.empty()) std::memcpy(hold.data(), name.data(), name.size());
  hold.data()[name.size()] = '\0';
  const std::size_t actual =
      packStates(vector.bytes, vector.value, {hold.data() + start, predicted});
  if (actual != predicted) {
    fmt::fprintf(stderr, "Bad predicted pack size (%d vs %d actual) for scan state \n", predicted,
                 actual);
  }
  VPageDirty(*scan.file, page, false);
  vector.dirty = false;
  return 0;
}

// --- Cache ---------------------------------------------------------------------------

void countBytes(PVBscanData& scan, StateVector& vector) {
  scan.cachedBytes += vector.bytes.capacity() - vector.counted;
  vector.counted = vector.bytes.capacity();
}

// Takes the least recently used vector out of the cache into `spare`.
void evict(PVBscanData& scan, std::list<StateVector>& spare) {
  const CachePlace last = std::prev(scan.cache.end());
  scan.cached.erase(last->id);
  scan.cachedBytes -= last->counted;
  last->counted = 0;
  spare.clear();
  spare.splice(spare.begin(), scan.cache, last);
}

// Makes room for one vector more; the last one that went is left in `spare`, whose
// memory can be used again.
int makeRoom(int database, PVBscanData& scan, std::list<StateVector>& spare) {
  const std::size_t limit = std::max<std::size_t>(scan.numVectors, 1);
  while (!scan.cache.empty() &&
         (scan.cache.size() >= limit || scan.cachedBytes > kMaxCachedBytes - kMaxVectorBytes)) {
    StateVector& last = scan.cache.back();
    if (last.dirty && packVector(database, scan, last) != 0) return -2;
    evict(scan, spare);
  }
  return 0;
}

// Reads a vector from its page, whose name must be the one it is known by.
int readVector(int database, PVBscanData& scan, StateVector& vector) {
  const std::uint32_t page = vectorPage(vector.id);
  const VPageHold hold(*scan.file, page, VPageGet(*scan.file, page));
  const std::int64_t size = hold ? VPageSize(*scan.file, page) : -1;
  if (size < 0) return vectorPageFailure(database);
  const std::string_view content(hold.data(), static_cast<std::size_t>(size));
  const std::size_t end = content.find('\0');
  const bool good = end != std::string_view::npos &&
                    content.substr(0, end) == scan.names.of(vector.id) &&
                    unpackStates(content.substr(end + 1), vector.bytes, vector.value);
  vector.dirty = false;
  return good ? 0 : vectorFailure(database, kStatusInternal);
}

// --- Cells ---------------------------------------------------------------------------

// The vector of an id, or null with a status.
StateVector* find(int database, PVBid vector, PVBscanData*& scan) {
  PVBdatabase* db = PVBgetSection(database, kSectionScan);
  if (db == nullptr) return nullptr;
  scan = db->scan.get();
  return stateVectorFetch(database, *scan, vector);
}

// What follows every change. Without a cache the vector goes to its page at once.
int markChanged(int database, PVBscanData& scan, StateVector& vector) {
  scan.changed = true;
  vector.dirty = true;
  countBytes(scan, vector);
  return scan.numVectors == 0 ? packVector(database, scan, vector) : 0;
}

// Whether cells can be stored: no code above the last, and no zero byte, which is
// the mark of the packed form.
bool storable(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte != 0 && (byte & 15) <= kLastCode && byte >> 4 <= kLastCode;
  });
}

}  // namespace

StateVector* stateVectorFetch(int database, PVBscanData& scan, PVBid vector) {
  if (!vectorIdFits(database, scan, vector)) return nullptr;
  if (const auto known = scan.cached.find(vector); known != scan.cached.end()) {
    scan.cache.splice(scan.cache.begin(), scan.cache, known->second);
    return &scan.cache.front();
  }
  std::list<StateVector> fresh;
  if (makeRoom(database, scan, fresh) != 0) return nullptr;
  if (fresh.empty()) fresh.emplace_back();
  fresh.front().id = vector;
  if (readVector(database, scan, fresh.front()) != 0) return nullptr;
  scan.cache.splice(scan.cache.begin(), fresh);
  scan.cached[vector] = scan.cache.begin();
  countBytes(scan, scan.cache.front());
  return &scan.cache.front();
}

int stateVectorsPack(int database, PVBscanData& scan) {
  int result = 0;
  for (StateVector& vector : scan.cache) {
    if (vector.dirty && packVector(database, scan, vector) != 0) result = -2;
  }
  return result;
}

void stateVectorForget(PVBscanData& scan, PVBid vector) {
  const auto known = scan.cached.find(vector);
  if (known == scan.cached.end()) return;
  scan.cachedBytes -= known->second->counted;
  scan.cache.erase(known->second);
  scan.cached.erase(known);
}

int PVBstateVectorGet(int database, PVBid vector, std::uint32_t cell) {
  PVBscanData* scan = nullptr;
  const StateVector* found = find(database, vector, scan);
  if (found == nullptr) return kVectorFailure;
  std::int32_t status = kStatusOk;
  int code = kLastCode;
  if (cell > static_cast<std::uint32_t>(kMaxIdIndex)) {
    status = kStatusOutOfBounds;
  } else if (cell / 2 < found->bytes.size()) {
    code = static_cast<unsigned char>(found->bytes[cell / 2]) >> cell % 2 * 4 & 15;
    if (code > kLastCode) status = kStatusInternal;
  }
  if (status == kStatusOk) return code;
  vectorFailure(database, status);
  return kVectorFailure;
}

int PVBstateVectorSet(int database, PVBid vector, std::uint32_t cell, int code) {
  PVBscanData* scan = nullptr;
  StateVector* found = find(database, vector, scan);
  if (found == nullptr) return -2;
  if (code < kFirstSettable || code > kLastCode) {
    return vectorFailure(database, kStatusBadVectorValue);
  }
  if (cell > static_cast<std::uint32_t>(kMaxIdIndex)) {
    return vectorFailure(database, kStatusOutOfBounds);
  }
  if (cell / 2 >= found->bytes.size()) found->bytes.resize(cell / 2 + 1, kFillByte);
  const unsigned shift = cell % 2 * 4;
  char& byte = found->bytes[cell / 2];
  byte = static_cast<char>((static_cast<unsigned char>(byte) & ~(15U << shift)) |
                           static_cast<unsigned>(code) << shift);
  return markChanged(database, *scan, *found);
}

const std::string* PVBstateVectorBytes(int database, PVBid vector) {
  PVBscanData* scan = nullptr;
  const StateVector* found = find(database, vector, scan);
  return found != nullptr ? &found->bytes : nullptr;
}

int PVBstateVectorSetBytes(int database, PVBid vector, std::string_view bytes) {
  PVBscanData* scan = nullptr;
  StateVector* found = find(database, vector, scan);
  if (found == nullptr) return -2;
  if (bytes.size() > kMaxVectorBytes) return vectorFailure(database, kStatusOutOfBounds);
  if (!storable(bytes)) return vectorFailure(database, kStatusBadVectorValue);
  found->bytes = bytes;
  return markChanged(database, *scan, *found);
}

std::uint32_t PVBstateVectorValue(int database, PVBid vector) {
  PVBscanData* scan = nullptr;
  const StateVector* found = find(database, vector, scan);
  return found != nullptr ? found->value : 0;
}

int PVBstateVectorSetValue(int database, PVBid vector, std::uint32_t value) {
  PVBscanData* scan = nullptr;
  StateVector* found = find(database, vector, scan);
  if (found == nullptr) return -2;
  found->value = value;
  return markChanged(database, *scan, *found);
}
