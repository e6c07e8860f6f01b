#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <utility>

#include "storage/vpage_internal.h"

namespace {

// --- Byte order ----------------------------------------------------------------------

template <typename Number>
Number fromDisk(const std::uint8_t* bytes) {
  Number value = 0;
  for (std::size_t i = 0; i < sizeof value; ++i) value = static_cast<Number>(value << 8 | bytes[i]);
  return value;
}

template <typename Number>
void toDisk(Number value, std::uint8_t* bytes) {
  for (std::size_t i = sizeof value; i-- > 0; value = static_cast<Number>(value >> 8)) {
    bytes[i] = static_cast<std::uint8_t>(value);
  }
}

// --- Header --------------------------------------------------------------------------

constexpr std::size_t kStartAt = 1;  // four zero bytes and the cookie
constexpr std::size_t kGuardAt = 9;
constexpr std::size_t kIndexOffsetAt = 17;
constexpr std::size_t kBytesFreeAt = 25;
constexpr std::size_t kBytesUsedAt = 33;
constexpr std::size_t kNextPageAt = 41;
constexpr std::size_t kSecondGuardAt = 49;
using HeaderBytes = std::array<std::uint8_t, kVPageHeaderSize>;

bool headerIsSound(const HeaderBytes& bytes) {
  const auto word = [&](std::size_t at) { return fromDisk<std::uint64_t>(&bytes[at]); };
  return word(kStartAt) == kVPageCookie && word(kGuardAt) == kVPageGuard &&
         word(kSecondGuardAt) == kVPageGuard && word(kNextPageAt) <= kMaxNextPage;
}

bool readHeader(VPageFile& file) {
  HeaderBytes bytes;
  if (file.stream->seek(0, SEEK_SET) != 0) return vpageFail(kVPageCantRead);
  const std::int64_t first = file.stream->read(reinterpret_cast<char*>(bytes.data()), 1);
  if (first < 0) return vpageFail(kVPageCantRead);
  if (first == 0) return vpageFail(kVPageBadFile);
  if (bytes[0] != kVPageHostCode) return vpageFail(kVPageBadHost);
  if (!vpageReadAt(*file.stream, 1, &bytes[1], bytes.size() - 1)) return false;
  if (!headerIsSound(bytes)) return vpageFail(kVPageBadFile);
  file.indexOffset = fromDisk<std::uint64_t>(&bytes[kIndexOffsetAt]);
  file.bytesFree = fromDisk<std::uint64_t>(&bytes[kBytesFreeAt]);
  file.bytesUsed = fromDisk<std::uint64_t>(&bytes[kBytesUsedAt]);
  file.nextPage = fromDisk<std::uint64_t>(&bytes[kNextPageAt]);
  return true;
}

// --- Loading -------------------------------------------------------------------------

bool loadIndex(VPageFile& file) {
  const auto take = [&](std::uint64_t id, std::uint64_t offset) {
    const bool sound = id < kMaxNextPage && id >= file.tree.end() && offset >= kVPageHeaderSize &&
                       offset <= file.end - kRecordHeadSize;
    if (sound) file.tree.append(static_cast<std::uint32_t>(id), offset);
    return sound || vpageFail(kVPageBadFile);
  };
  return vpageWalkIndex(*file.stream, file.indexOffset, file.end, take);
}

struct FoundPage {
  VPageTree::Entry entry;
  std::uint32_t size;
};

// The later of two records of one page is the page; `found` is in file order.
void enterFound(VPageFile& file, std::vector<FoundPage>& found) {
  std::stable_sort(found.begin(), found.end(),
                   [](const FoundPage& a, const FoundPage& b) { return a.entry.id < b.entry.id; });
  for (std::size_t i = 0; i < found.size(); ++i) {
    const auto& [entry, size] = found[i];
    if (i + 1 < found.size() && found[i + 1].entry.id == entry.id) {
      file.superseded.push_back(entry.offset);
      file.bytesFree += size;
    } else {
      file.tree.append(entry.id, entry.offset);
      file.bytesUsed += size;
    }
  }
}

// What lies behind the last whole record is lost: the next record goes there.
bool scanRecords(VPageFile& file) {
  file.bytesFree = 0;
  file.bytesUsed = 0;
  std::vector<FoundPage> found;
  const auto take = [&](std::uint64_t offset, VPageRecordHead head) {
    if (head.id == kDeadPage) {
      file.bytesFree += head.size;
      return true;
    }
    if (head.id >= kMaxNextPage) return vpageFail(kVPageBadFile);
    found.push_back({{head.id, offset}, head.size});
    return true;
  };
  if (!vpageWalkRecords(*file.stream, file.end, file.end, take)) return false;
  enterFound(file, found);
  return true;
}

// --- Index ---------------------------------------------------------------------------

// A page that isn't placed has no part in the index: there is none when it is written.
std::uint64_t indexSize(const VPageTree& tree) {
  std::uint64_t words = 1;
  std::int64_t before = -2;
  for (const auto* entry = tree.next(-1); entry != nullptr; entry = tree.next(entry->id)) {
    words += entry->id == before + 1 ? 1 : 3;  // a run has its first id and its end
    before = entry->id;
  }
  return std::max<std::uint64_t>(words, 2) * sizeof(std::uint64_t);
}

// Numbers written one after the other.
class WordWriter {
 public:
  WordWriter(PlainFile& stream, std::uint64_t offset)
      : stream_(stream), good_(stream.seek(static_cast<std::int64_t>(offset), SEEK_SET) == 0) {}
  template <typename Number>
  void put(Number value) {
    std::array<std::uint8_t, sizeof value> bytes;
    toDisk(value, bytes.data());
    const auto size = static_cast<std::int64_t>(bytes.size());
    good_ =
        good_ && stream_.write(reinterpret_cast<const char*>(bytes.data()), bytes.size()) == size;
  }
  bool good() const { return good_; }

 private:
  PlainFile& stream_;
  bool good_;
};

// At least the two words of an empty index.
void putRuns(WordWriter& words, const VPageTree& tree) {
  std::int64_t before = -2;
  for (const auto* entry = tree.next(-1); entry != nullptr; entry = tree.next(entry->id)) {
    if (entry->id != before + 1) {
      if (before >= 0) words.put(kNoOffset);
      words.put<std::uint64_t>(entry->id);
    }
    words.put(entry->offset);
    before = entry->id;
  }
  words.put(kNoOffset);
  words.put(kNoOffset);
}

// The size of the index record to be dropped.
bool readIndexSize(VPageFile& file, std::uint32_t& size) {
  VPageRecordHead head = {};
  if (!vpageReadHead(*file.stream, file.indexOffset, head)) return false;
  size = head.size;
  return head.id == kDeadPage || vpageFail(kVPageBadFile);
}

// On failure the file still has its index.
bool dropIndex(VPageFile& file) {
  std::uint32_t size = 0;
  if (!readIndexSize(file, size)) return false;
  const std::uint64_t offset = std::exchange(file.indexOffset, kNoOffset);
  file.bytesFree += size;
  if (vpageWriteHeader(file, *file.stream)) return true;
  file.indexOffset = offset;
  file.bytesFree -= size;
  return false;
}

bool killSuperseded(VPageFile& file) {
  while (!file.superseded.empty()) {
    const std::array<std::uint8_t, 4> dead = {0xFF, 0xFF, 0xFF, 0xFF};
    if (!vpageWriteAt(*file.stream, file.superseded.back(), dead.data(), dead.size())) return false;
    file.superseded.pop_back();
  }
  return true;
}

}  // namespace

bool vpageFail(VPageErrorCode code) {
  const bool system = code == kVPageCantOpen || code == kVPageCantRead || code == kVPageCantWrite ||
                      code == kVPageNoMemory || code == kVPageCantClose;
  if (!system) errno = 0;
  VPageError = code;
  return false;
}

bool vpageReadAt(PlainFile& stream, std::uint64_t offset, void* data, std::size_t size) {
  const bool placed = stream.seek(static_cast<std::int64_t>(offset), SEEK_SET) == 0;
  const std::int64_t count = placed ? stream.read(static_cast<char*>(data), size) : -2;
  if (count == static_cast<std::int64_t>(size)) return true;
  if (count >= 0) errno = 0;
  return vpageFail(kVPageCantRead);
}

bool vpageWriteAt(PlainFile& stream, std::uint64_t offset, const void* data, std::size_t size) {
  if (stream.seek(static_cast<std::int64_t>(offset), SEEK_SET) != 0 ||
      stream.write(static_cast<const char*>(data), size) != static_cast<std::int64_t>(size)) {
    return vpageFail(kVPageCantWrite);
  }
  return true;
}

bool vpageReadHead(PlainFile& stream, std::uint64_t offset, VPageRecordHead& head) {
  std::array<std::uint8_t, kRecordHeadSize> bytes;
  if (!vpageReadAt(stream, offset, bytes.data(), bytes.size())) return false;
  head = {fromDisk<std::uint32_t>(&bytes[0]), fromDisk<std::uint32_t>(&bytes[4])};
  return true;
}

bool vpageWriteHead(PlainFile& stream, std::uint64_t offset, VPageRecordHead head) {
  std::array<std::uint8_t, kRecordHeadSize> bytes;
  toDisk(head.id, &bytes[0]);
  toDisk(head.size, &bytes[4]);
  return vpageWriteAt(stream, offset, bytes.data(), bytes.size());
}

bool vpageReadPageHead(VPageFile& file, const VPageTree::Entry& entry, VPageRecordHead& head) {
  if (!vpageReadHead(*file.stream, entry.offset, head)) return false;
  const std::uint64_t room = file.end - std::min(file.end, entry.offset);
  if (head.id != entry.id || head.size == 0 || room < kRecordHeadSize + head.size) {
    return vpageFail(kVPageBadFile);
  }
  return true;
}

bool vpageLoad(VPageFile& file) {
  if (!readHeader(file)) return false;
  const std::int64_t length = file.stream->size();
  if (length < 0) return vpageFail(kVPageCantRead);
  file.end = static_cast<std::uint64_t>(length);
  const bool loaded = file.indexOffset != kNoOffset ? loadIndex(file) : scanRecords(file);
  file.nextPage = std::max(file.nextPage, file.tree.end());
  return loaded;
}

bool vpageWriteHeader(VPageFile& file, PlainFile& stream) {
  HeaderBytes bytes = {kVPageHostCode};
  toDisk<std::uint64_t>(kVPageCookie, &bytes[kStartAt]);
  toDisk(kVPageGuard, &bytes[kGuardAt]);
  toDisk(file.indexOffset, &bytes[kIndexOffsetAt]);
  toDisk(file.bytesFree, &bytes[kBytesFreeAt]);
  toDisk(file.bytesUsed, &bytes[kBytesUsedAt]);
  toDisk(file.nextPage, &bytes[kNextPageAt]);
  toDisk(kVPageGuard, &bytes[kSecondGuardAt]);
  return vpageWriteAt(stream, 0, bytes.data(), bytes.size());
}

bool vpagePrepareChange(VPageFile& file) {
  if (!file.writable) {
    errno = EBADF;
    return vpageFail(kVPageCantWrite);
  }
  file.changed = true;
  return killSuperseded(file) && (file.indexOffset == kNoOffset || dropIndex(file));
}

bool vpageKillRecord(VPageFile& file, std::uint64_t offset, std::uint32_t size) {
  if (!vpageWriteHead(*file.stream, offset, {kDeadPage, size})) return false;
  file.bytesFree += size;
  file.bytesUsed -= std::min<std::uint64_t>(file.bytesUsed, size);
  return true;
}

// The file ends with its index, whatever an earlier try may have left there. On
// failure there is no index, and the next try writes to the same place.
bool vpageWriteIndex(VPageFile& file) {
  if (file.indexOffset != kNoOffset) return true;
  if (!killSuperseded(file)) return false;
  const std::uint64_t size = indexSize(file.tree);
  if (size > std::numeric_limits<std::uint32_t>::max()) {
    errno = EFBIG;
    return vpageFail(kVPageCantWrite);
  }
  WordWriter words(*file.stream, file.end);
  words.put(kDeadPage);
  words.put(static_cast<std::uint32_t>(size));
  putRuns(words, file.tree);
  const std::uint64_t end = file.end + kRecordHeadSize + size;
  if (!words.good() || file.stream->truncate(static_cast<std::int64_t>(end)) != 0) {
    return vpageFail(kVPageCantWrite);
  }
  file.indexOffset = file.end;
  if (!vpageWriteHeader(file, *file.stream)) {
    file.indexOffset = kNoOffset;
    return false;
  }
  file.end = end;
  return true;
}

bool vpageWalkIndex(PlainFile& stream, std::uint64_t offset, std::uint64_t length,
                    const std::function<bool(std::uint64_t, std::uint64_t)>& take) {
  VPageRecordHead head = {};
  if (offset < kVPageHeaderSize || offset > length - kRecordHeadSize) {
    return vpageFail(kVPageBadFile);
  }
  if (!vpageReadHead(stream, offset, head)) return false;
  if (head.id != kDeadPage || head.size > length - kRecordHeadSize - offset) {
    return vpageFail(kVPageBadFile);
  }
  std::uint64_t at = offset + kRecordHeadSize;
  std::uint64_t left = head.size / sizeof(std::uint64_t);
  const auto next = [&](std::uint64_t& word) {
    std::array<std::uint8_t, sizeof word> bytes;
    if (left == 0) return vpageFail(kVPageBadFile);
    if (!vpageReadAt(stream, at, bytes.data(), bytes.size())) return false;
    word = fromDisk<std::uint64_t>(bytes.data());
    at += sizeof word;
    --left;
    return true;
  };
  std::uint64_t id = 0;
  std::uint64_t page = 0;
  while (next(id)) {
    if (id == kNoOffset) return true;
    page = 0;
    for (; next(page) && page != kNoOffset; ++id) {
      if (!take(id, page)) return false;
    }
    if (page != kNoOffset) return false;
  }
  return false;
}

bool vpageWalkRecords(PlainFile& stream, std::uint64_t length, std::uint64_t& stop,
                      const std::function<bool(std::uint64_t, VPageRecordHead)>& take) {
  std::uint64_t at = std::min(kVPageHeaderSize, length);
  while (length - at >= kRecordHeadSize) {
    VPageRecordHead head = {};
    if (!vpageReadHead(stream, at, head)) return false;
    if (head.size > length - at - kRecordHeadSize) break;
    if (!take(at, head)) return false;
    at += kRecordHeadSize + head.size;
  }
  stop = at;
  return true;
}
