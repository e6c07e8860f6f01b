#pragma once

// What the sources of the block file module share: the records of an open file
// and of a cached block, and the steps of the cache.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_copy.h"
#include "base/platform.h"
#include "storage/page.h"
#include "storage/page_free_index.h"

// What a file may say of itself: enough for any record there is, little enough
// that a damaged header can't ask for memory without end.
inline constexpr std::uint32_t kMaxBlockSize = std::uint32_t{1} << 24;
inline constexpr std::int64_t kNoHint = -1;
// The blocks of a size that 64-bit offsets can reach.
constexpr std::int64_t capacityOf(std::uint32_t blockSize) {
  return (0x7FFFFFFFFFFFFFFF - static_cast<std::int64_t>(kPageHeaderSize)) / blockSize;
}
// A descriptor of cio that isn't open.
inline constexpr int kNotOpen = -1;

// As on disk, in the host's order.
struct PageHeader {
  std::uint32_t marker = kNoBlock;
  std::uint32_t numBlocks = 0;
  std::uint32_t numFree = 0;
  std::uint32_t firstFree = kNoBlock;
  std::uint32_t blockSize = kMinBlockSize;
  std::uint32_t lastFree = kNoBlock;
  std::array<std::uint32_t, 2> reserved = {};
};
static_assert(sizeof(PageHeader) == kPageHeaderSize);

// The beginning of a free block, in the host's order.
struct FreeLinks {
  std::uint32_t prev = kNoBlock;
  std::uint32_t next = kNoBlock;
};

// A cached block; its bytes follow the record in the same piece of memory. They
// are what the block's bytes on disk, those to be written included, become by
// typeTag.
struct PageBuffer {
  std::uint32_t block = kNoBlock;  // none: the buffer is in no chain
  PageBuffer* lruPrev = nullptr;
  PageBuffer* lruNext = nullptr;
  PageBuffer* hashPrev = nullptr;
  PageBuffer* hashNext = nullptr;
  bool dirty = false;
  bool reserved = true;  // a new one is on no list yet
  int typeTag = 0;

  unsigned char* data() { return reinterpret_cast<unsigned char*>(this + 1); }
};
static_assert(sizeof(PageBuffer) % alignof(std::max_align_t) == 0);

struct PlatformRelease {
  void operator()(void* block) const { platform().release(block); }
};
template <typename T>
using PlatformPtr = std::unique_ptr<T, PlatformRelease>;

// A number that no file has had.
std::uint64_t nextStamp();

// One open file. The descriptor isn't open before the file's first write, and
// after the file was replaced or copied; the next access opens it.
struct PageFile {
  int descriptor = kNotOpen;
  PageHeader header;
  std::string path;
  std::uint32_t maxBuffers = 1;  // hash buckets, and the most blocks cached
  std::uint64_t inverse = 0;     // of maxBuffers: see bucketOf
  PlatformPtr<PageBuffer*[]> hashTable;
  std::uint32_t numBuffers = 0;
  PageBuffer* lruHead = nullptr;    // released last
  PageBuffer* lruTail = nullptr;    // the next victim
  std::uint32_t fileBlocks = 0;     // the most blocks that the file on disk has held
  std::int64_t freeHint = kNoHint;  // a block between firstFree and lastFree
  std::string tempDir;
  bool compressed = false;  // what a new file is to be
  bool packed = false;      // what the open one is
  bool headerDirty = false;
  bool onDisk = false;
  bool borrowed = false;  // someone else's, open for reading until makeOwn
  TempFile copy;          // what `path` names since then
  std::uint64_t stamp = nextStamp();
  std::vector<PlatformPtr<PageBuffer>> buffers;
  std::uint64_t walkSteps = 0;           // free blocks looked at to find places
  std::unique_ptr<FreeIndex> freeIndex;  // made when walking has become too long
  PlatformPtr<unsigned char> scratch;    // a block on its way to the file
};

// The largest number of which maxBuffers times are below 2^64, plus 1.
constexpr std::uint64_t inverseOf(std::uint32_t maxBuffers) {
  return ~std::uint64_t{0} / maxBuffers + 1;
}
// `block` modulo maxBuffers without a division, which costs as much as all else that
// finding a cached block does. The product's low half is the quotient's fraction in units
// of 2^-64: exact for numbers of 32 bits.
inline std::uint32_t bucketOf(const PageFile& file, std::uint32_t block) {
  __extension__ using Wide = unsigned __int128;
  return static_cast<std::uint32_t>(Wide{file.inverse * block} * file.maxBuffers >> 64);
}

// --- The table (page.cc) -------------------------------------------------------------

// Null with a post for a handle that isn't open.
PageFile* findPageFile(int handle);
// The record in the handle's place; the one before it goes.
void replacePageFile(int handle, std::unique_ptr<PageFile> file);
// A record with an empty hash table; null with a post.
std::unique_ptr<PageFile> makePageFile(const std::string& path, std::uint32_t blockSize,
                                       int maxBuffers);
// Opens or creates the file when it isn't open; 0 or -2 with a post.
int ensureOpen(PageFile& file);
// The same for who will write: a borrowed file is exchanged for a copy of it. A
// failure leaves the file as it was.
int makeOwn(PageFile& file);
int flushFile(PageFile& file);
// Posts a text that isn't about a call of the system; -2.
int postPage(std::string_view function, std::string_view text);
// Posts what could not be written, then of which file. -2.
int postWrite(const PageFile& file, std::string_view function, std::string_view text);

// --- Header and conversion (page_header.cc) ------------------------------------------

// Whether the ends of the free list go with each other and with its length.
bool freeListFits(const PageHeader& header);
// Reads and tests the header of an open file, and converts an old one.
int readHeader(PageFile& file);
int writeHeader(PageFile& file, std::string_view function, std::string_view failure);

// --- Cache (page_cache.cc) -----------------------------------------------------------

// Where a block stands; `direction` is "read" or "write". A block past what
// offsets can hold ends the process.
std::int64_t blockOffset(std::uint32_t blockSize, std::uint32_t block, const char* direction);
// A buffer without a block, on no list; null with a post or a notice.
PageBuffer* newBuf(PageFile& file);
// The block as cached, whatever its tag; null when it isn't.
PageBuffer* findBuf(const PageFile& file, std::uint32_t block);
// The block as cached, or read by `tag`; null at the end and on failure.
PageBuffer* getBuf(PageFile& file, std::uint32_t block, int tag);
// The same with `tag` put in force. A block that was changed or is held keeps its
// bytes as they stand, and reaches the disk by the new tag.
PageBuffer* getBufTyped(PageFile& file, std::uint32_t block, int tag);
// Converts the bytes to those of another tag.
void convertBuf(PageFile& file, PageBuffer& buffer, int tag);
// Gives a buffer from newBuf its number.
void enterBuf(PageFile& file, PageBuffer& buffer, std::uint32_t block);
// The block is no more: what is cached of it can't be found again.
void forgetBlock(PageFile& file, std::uint32_t block);
int writeBuf(PageFile& file, PageBuffer& buffer);
void reserveBuf(PageFile& file, PageBuffer& buffer);
enum class LruEnd { head, tail };
void releaseBuf(PageFile& file, PageBuffer& buffer, LruEnd end);

// --- Free list (page_free_list.cc) ---------------------------------------------------

// A zeroed, reserved block; its number or -1.
std::int64_t newBlock(PageFile& file, PageBuffer*& buffer, int tag);
int freeBlock(PageFile& file, std::uint32_t block);
// What a block says as one of the free list; none when it can't be read. A block
// in use, to which a broken list may lead, isn't changed by that.
std::optional<FreeLinks> readLinks(PageFile& file, std::uint32_t block);
