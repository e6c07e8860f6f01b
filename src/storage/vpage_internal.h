#pragma once

// What the parts of the variable page files share.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "base/platform.h"
#include "storage/plain_file.h"
#include "storage/vpage.h"

// --- Fixed by the file format --------------------------------------------------------

inline constexpr std::uint8_t kVPageHostCode = 11;
inline constexpr std::uint32_t kVPageCookie = 0xF00FDADA;
inline constexpr std::uint64_t kVPageGuard = 0xDEC0DE640FF1CE32;
inline constexpr std::uint64_t kVPageHeaderSize = 57;
inline constexpr std::uint64_t kRecordHeadSize = 8;
inline constexpr std::uint32_t kDeadPage = 0xFFFFFFFF;
inline constexpr std::uint64_t kNoOffset = ~std::uint64_t{0};
inline constexpr std::uint64_t kMaxNextPage = 0x7FFFFFFF;

// The words in front of a record's bytes.
struct VPageRecordHead {
  std::uint32_t id;
  std::uint32_t size;
};

// --- In memory -----------------------------------------------------------------------

// Where each page is, by rising page id: entries in chunks of a bounded size, so
// that taking one out moves few others. New pages have the highest id, so entries
// are only ever added at the end.
class VPageTree {
 public:
  struct Entry {
    std::uint32_t id;
    std::uint64_t offset;  // kNoOffset: the page has no place on disk yet
  };

  // `id` must be above all others.
  void append(std::uint32_t id, std::uint64_t offset);
  // Null when there is no such page. Good until the next append or erase.
  Entry* find(std::uint32_t id);
  // The page of the lowest id above `id`, or null.
  const Entry* next(std::int64_t id) const;
  void erase(std::uint32_t id);
  // All ids, dead ones aside, are below this.
  std::uint64_t end() const;

 private:
  using Chunk = std::vector<Entry>;
  // The chunk that has `id`, if any has; the first that ends at or above it.
  std::size_t chunkOf(std::uint32_t id) const;

  std::vector<Chunk> chunks_;  // none is empty
};

struct PlatformFree {
  void operator()(std::uint8_t* block) const { platform().release(block); }
};

struct VPageBuffer {
  std::int64_t id = -1;  // -1: holds nothing
  bool dirty = false;
  bool reserved = false;
  std::uint32_t size = 0;
  int tag = 0;  // 0: bytes as they stand
  std::size_t capacity = 0;
  std::unique_ptr<std::uint8_t, PlatformFree> data;
};

struct VPageFile {
  std::string path;
  std::unique_ptr<PlainFile> stream;
  bool writable = true;
  bool changed = false;
  std::uint64_t indexOffset = kNoOffset;
  std::uint64_t bytesFree = 0;
  std::uint64_t bytesUsed = 0;
  std::uint64_t nextPage = 0;
  std::uint64_t end = kVPageHeaderSize;  // where the next record goes
  VPageTree tree;
  std::list<VPageBuffer> buffers;  // most recently used first
  std::size_t maxBuffers = 1;
  // Found by a scan: records that a later one of the same page replaces. They are
  // marked dead before the first change.
  std::vector<std::uint64_t> superseded;
};

// --- Records, header, index (vpage_format.cc) ----------------------------------------

// These set VPageError and give false, null or -1 on failure.
bool vpageFail(VPageErrorCode code);

bool vpageReadAt(PlainFile& stream, std::uint64_t offset, void* data, std::size_t size);
bool vpageWriteAt(PlainFile& stream, std::uint64_t offset, const void* data, std::size_t size);
bool vpageReadHead(PlainFile& stream, std::uint64_t offset, VPageRecordHead& head);
bool vpageWriteHead(PlainFile& stream, std::uint64_t offset, VPageRecordHead head);
// The head of a live page's record, tested against id and end of file.
bool vpageReadPageHead(VPageFile& file, const VPageTree::Entry& entry, VPageRecordHead& head);

// Header and pages of an existing file.
bool vpageLoad(VPageFile& file);
bool vpageWriteHeader(VPageFile& file, PlainFile& stream);
// What must be done before pages come, go or move.
bool vpagePrepareChange(VPageFile& file);
// Marks a record dead and counts its bytes as free.
bool vpageKillRecord(VPageFile& file, std::uint64_t offset, std::uint32_t size);
// Nothing when the index is on disk.
bool vpageWriteIndex(VPageFile& file);

// The words of an index record, one at a time; pages in the order of the record.
// `take` gets id and offset of each page and may end the walk with false.
bool vpageWalkIndex(PlainFile& stream, std::uint64_t offset, std::uint64_t length,
                    const std::function<bool(std::uint64_t id, std::uint64_t offset)>& take);
// Goes over the records behind the header: offset and head of each. False when
// reading failed; `stop` becomes where the whole records end.
bool vpageWalkRecords(PlainFile& stream, std::uint64_t length, std::uint64_t& stop,
                      const std::function<bool(std::uint64_t offset, VPageRecordHead head)>& take);

// --- Pages (vpage.cc) ----------------------------------------------------------------

// Writes every dirty page.
bool vpageWriteDirty(VPageFile& file);
