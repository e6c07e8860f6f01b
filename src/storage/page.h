#pragma once

// Paged block files: numbered blocks of one size, with a write-back cache. They
// hold the rows, tree nodes and property lists of a database.
//
// A file is a 32-byte header and an array of blocks. All numbers are stored most
// significant byte first; the numbers inside a block by its type tag (swapendian).
//
//   OFFSET  SIZE  FIELD       MEANING
//      0      4   marker      0xFFFFFFFF; a positive value is the block size of
//                             the old format, which is converted at opening
//      4      4   numBlocks   blocks in the file, free ones included
//      8      4   numFree     blocks on the free list
//     12      4   firstFree   lowest free block, 0xFFFFFFFF for none
//     16      4   blockSize   bytes, 8 to 16 Mi
//     20      4   lastFree    highest free block, 0xFFFFFFFF for none
//     24      8   reserved    0
//     32          blocks: number n begins at 32 + n * blockSize
//
// A free block (tag typeFreeList) begins with the numbers of the free blocks
// before and after it, 0xFFFFFFFF at the ends; the rest of it means nothing. Old
// header: blockSize, numBlocks, numFree, firstFree, 4 bytes each; blocks follow at
// offset 16, and a free block begins with the number of the next.
//
// Invariants: a buffer is on the LRU list if and only if it is not reserved, so a
// reserved block is never evicted and its data stay where they are. Reservation
// is a flag, not a count: one holder a block. The free list rises by block number,
// and the last block of a file is never on it.
//
// A status is 0 or -2; a handle or block number is -1 on failure. Failures are
// posted under the function's name. After a failed flush the cache is as it was:
// the flush may be repeated. A block number past what offsets can hold ends the
// process with code 1.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

inline constexpr std::uint32_t kNoBlock = 0xFFFFFFFF;
inline constexpr std::size_t kPageHeaderSize = 32;
inline constexpr std::uint32_t kMinBlockSize = 8;

// --- Files ---------------------------------------------------------------------------

// Opens, or makes a new file, which is on disk from its first write on. A new file
// is stored compressed, or plain by PageOpenPlain; an existing one keeps its kind.
// `blockSize` is wanted for a new file (raised to 8) and becomes the size in force.
// `maxBuffers` blocks are cached, at least 1.
int PageOpen(const std::string& path, std::uint32_t& blockSize, int maxBuffers);
int PageOpenPlain(const std::string& path, std::uint32_t& blockSize, int maxBuffers);
// Opens an existing file that must stay as it is: it is read where it is, and the first
// write, whatever call leads to it, goes to a copy in the temporary directory, which the
// handle stands on from then on. The same file may be opened so any number of times, and
// needs no right to be written. Where the copy can't be made the call that needed it
// fails, and may be repeated. No one may change the file meanwhile.
int PageOpenPrivate(const std::string& path, std::uint32_t& blockSize, int maxBuffers);
// Writes everything, gives back the disk space past the last block, and frees the
// handle in any case. Of a file opened privately nothing is written: its copy goes.
int PageClose(int handle);
// Closes and deletes the file, or the copy of one opened privately; nothing is written.
int PageDiscard(int handle);
// Creates the file if need be and writes header and dirty blocks.
int PageFlush(int handle);
// Flushes and copies the file to `path`; the handle stays on the first file.
int PageSaveAs(int handle, const std::string& path);
// The path that the handle stands on.
const std::string& PagePath(int handle);
std::uint32_t PageBlockSize(int handle);
// Another number after each change of a block or of which there are; no two open
// files ever have the same. Who keeps what a block says keeps it as long as this stays.
std::uint64_t PageStamp(int handle);

// --- Blocks --------------------------------------------------------------------------

// The number of a zeroed block, reserved. One from the free list isn't marked
// dirty: the caller does. The buffer's tag is `tag` (PageNew: typeNoStruct).
std::int64_t PageNew(int handle, void*& data);
std::int64_t PageNewTyped(int handle, void*& data, int tag);
// The block's bytes in the host's order, reserved; null past the end of the file
// (nothing posted) and when it can't be read. PageGet leaves a cached block its
// tag. PageGetTyped makes `tag` the block's; a block that was changed or is
// reserved keeps its bytes as they stand and reaches the disk by that tag.
void* PageGet(int handle, std::uint32_t block);
void* PageGetTyped(int handle, std::uint32_t block, int tag);
// The block must be in the cache; it becomes dirty and reserved.
void PageDirty(int handle, std::uint32_t block);
// Unreserves: to the head of the LRU list, or to its tail so that it goes first.
void PageRelease(int handle, std::uint32_t block);
void PageReleaseOld(int handle, std::uint32_t block);
// The same for who knows where the block's bytes are, or were when the file last had
// the stamp that it has: PageGetAt gives null when they are there no more.
void* PageGetAt(int handle, std::uint32_t block, int tag, void* data);
void PageDirtyAt(int handle, std::uint32_t block, void* data);
void PageReleaseAt(int handle, std::uint32_t block, void* data);
int PageFree(int handle, std::uint32_t block);
// Blocks in use.
std::uint32_t PageCount(int handle);
// `numBlocks`: blocks in the file, free ones included. `capacity`: the most that
// offsets can reach, at most 0x7FFFFFFF.
void PageInfo(int handle, std::uint32_t& numBlocks, std::uint32_t& capacity);

// Rewrites the file with another block size; block numbers and free list stay. No
// block may be reserved. A failure leaves the old file in force.
int PageResize(int handle, std::uint32_t newBlockSize);
int PageResizeTyped(int handle, std::uint32_t newBlockSize, int tag);
// A new block in `to` with the bytes of a block of `from`; its number.
std::int64_t PageCopyBlock(int from, int to, std::uint32_t block);
std::int64_t PageCopyBlockTyped(int from, int to, std::uint32_t block, int tag);

// --- Checking ------------------------------------------------------------------------

// Takes one line about a fault: what and where ("free list: block 12 ...").
using PageFault = std::function<void(std::string_view text)>;
// Tests header and free list of an open file against each other; the count of
// faults. Nothing is changed, no block may be reserved.
int PageCheck(int handle, const PageFault& fault);

// --- Holding a block -----------------------------------------------------------------

// A reserved block that is released with its owner. Empty when the get failed.
// T is a record laid over the block's bytes.
template <typename T>
class BlockHandle {
 public:
  BlockHandle() = default;
  BlockHandle(int file, std::uint32_t block, void* data)
      : file_(file), block_(block), data_(static_cast<T*>(data)) {}
  ~BlockHandle() { release(); }
  BlockHandle(BlockHandle&& other) noexcept
      : file_(other.file_), block_(other.block_), data_(std::exchange(other.data_, nullptr)) {}
  BlockHandle& operator=(BlockHandle&& other) noexcept {
    std::swap(file_, other.file_);
    std::swap(block_, other.block_);
    std::swap(data_, other.data_);
    return *this;
  }

  static BlockHandle get(int file, std::uint32_t block, int tag) {
    return BlockHandle(file, block, PageGetTyped(file, block, tag));
  }

  explicit operator bool() const { return data_ != nullptr; }
  T* operator->() const { return data_; }
  T& operator*() const { return *data_; }
  T* data() const { return data_; }
  std::uint32_t block() const { return block_; }
  void markDirty() { PageDirtyAt(file_, block_, data_); }
  void release() {
    if (data_ != nullptr) PageReleaseAt(file_, block_, data_);
    data_ = nullptr;
  }
  // Gives the reservation to the caller.
  T* detach() { return std::exchange(data_, nullptr); }

 private:
  int file_ = -1;
  std::uint32_t block_ = kNoBlock;
  T* data_ = nullptr;
};
