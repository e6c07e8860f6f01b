// The cache of a block file: chains of buffers by block number, and a list of
// those that no one holds, from the one released last to the next victim.

#include <fmt/printf.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/errors.h"
#include "storage/cio.h"
#include "storage/page_internal.h"
#include "storage/swapendian.h"

namespace {

// --- Lists ---------------------------------------------------------------------------

void removeFromLru(PageFile& file, PageBuffer& buffer) {
  (buffer.lruPrev != nullptr ? buffer.lruPrev->lruNext : file.lruHead) = buffer.lruNext;
  (buffer.lruNext != nullptr ? buffer.lruNext->lruPrev : file.lruTail) = buffer.lruPrev;
  buffer.lruPrev = buffer.lruNext = nullptr;
}

void addToLru(PageFile& file, PageBuffer& buffer, LruEnd end) {
  const bool head = end == LruEnd::head;
  buffer.lruPrev = head ? nullptr : file.lruTail;
  buffer.lruNext = head ? file.lruHead : nullptr;
  (buffer.lruPrev != nullptr ? buffer.lruPrev->lruNext : file.lruHead) = &buffer;
  (buffer.lruNext != nullptr ? buffer.lruNext->lruPrev : file.lruTail) = &buffer;
}

PageBuffer*& chainOf(const PageFile& file, std::uint32_t block) {
  return file.hashTable[bucketOf(file, block)];
}

void removeFromChain(PageFile& file, PageBuffer& buffer) {
  if (buffer.block == kNoBlock) return;
  if (buffer.hashPrev == nullptr) {
    chainOf(file, buffer.block) = buffer.hashNext;
  } else {
    buffer.hashPrev->hashNext = buffer.hashNext;
  }
  if (buffer.hashNext != nullptr) buffer.hashNext->hashPrev = buffer.hashPrev;
  buffer.hashPrev = buffer.hashNext = nullptr;
  buffer.block = kNoBlock;
}

// --- Buffers and blocks --------------------------------------------------------------

PageBuffer* allocateBuf(PageFile& file) {
  void* memory = platform().allocate(sizeof(PageBuffer) + file.header.blockSize);
  if (memory == nullptr) {
    PBpostError("newBuf", 0, "no memory for new buffer");
    return nullptr;
  }
  file.buffers.emplace_back(new (memory) PageBuffer);
  ++file.numBuffers;
  return file.buffers.back().get();
}

// The place for a block on its way to the file; null with a post.
unsigned char* scratchOf(PageFile& file) {
  if (!file.scratch) {
    file.scratch.reset(static_cast<unsigned char*>(platform().allocate(file.header.blockSize)));
  }
  if (!file.scratch) PBpostError("newBuf", 0, "no memory for new buffer");
  return file.scratch.get();
}

int seekTo(PageFile& file, std::uint32_t block, const char* direction) {
  const std::int64_t offset = blockOffset(file.header.blockSize, block, direction);
  if (ensureOpen(file) != 0) return -2;
  return PBcfseek(file.descriptor, offset, SEEK_SET);
}

bool readBuf(PageFile& file, PageBuffer& buffer, std::uint32_t block, int tag) {
  const std::size_t size = file.header.blockSize;
  if (seekTo(file, block, "read") != 0) return false;
  if (PBcfread(file.descriptor, buffer.data(), size) != static_cast<std::int64_t>(size)) {
    return false;
  }
  buffer.typeTag = tag;
  return SwapBuffer(buffer.data(), tag, size) == 1;
}

}  // namespace

std::int64_t blockOffset(std::uint32_t blockSize, std::uint32_t block, const char* direction) {
  // Every number of a block of allowed size.
  static_assert(capacityOf(kMaxBlockSize) > kNoBlock);
  if (blockSize <= kMaxBlockSize || block < capacityOf(blockSize)) {
    return static_cast<std::int64_t>(kPageHeaderSize) + std::int64_t{block} * blockSize;
  }
  errno = 0;
  PBpostError("Page File Access", 0,
              fmt::sprintf("[%s] capacity exceeded (%d)\n   Try smaller amounts of data, such as "
                           "fewer pattern vectors",
                           direction, static_cast<std::int32_t>(capacityOf(blockSize))));
  PBflushErrors();
  assertFail(__FILE__, __LINE__);
}

namespace {

// The dirty blocks that share a packed block with one that was just written: now
// they cost a copy, later they would cost packing it again. Not those in someone's
// hands, who may change them yet. One that fails stays dirty, and its own eviction
// tells.
void writeNeighbours(PageFile& file, std::uint32_t block) {
  constexpr std::int64_t kPackedTogether = 65536;
  const auto placeOf = [&](std::uint32_t cached) {
    return blockOffset(file.header.blockSize, cached, "write") / kPackedTogether;
  };
  const std::int64_t place = placeOf(block);
  for (const PlatformPtr<PageBuffer>& buffer : file.buffers) {
    if (!buffer->dirty || buffer->reserved || buffer->block == kNoBlock) continue;
    if (placeOf(buffer->block) != place) continue;
    if (writeBuf(file, *buffer) != 0) return;
  }
}

}  // namespace

PageBuffer* newBuf(PageFile& file) {
  if (file.numBuffers < file.maxBuffers) return allocateBuf(file);
  PageBuffer* victim = file.lruTail;
  if (victim == nullptr) {
    std::fputs("Page: No more buffers\n", stderr);
    std::fflush(stderr);
    return nullptr;
  }
  const bool wasDirty = victim->dirty;
  if (wasDirty && writeBuf(file, *victim) != 0) {
    postWrite(file, "newBuf", "can't write buffer to free space for new one");
    return nullptr;
  }
  if (wasDirty && file.packed) writeNeighbours(file, victim->block);
  reserveBuf(file, *victim);
  removeFromChain(file, *victim);
  return victim;
}

PageBuffer* findBuf(const PageFile& file, std::uint32_t block) {
  PageBuffer* buffer = chainOf(file, block);
  while (buffer != nullptr && buffer->block != block) buffer = buffer->hashNext;
  return buffer;
}

PageBuffer* getBuf(PageFile& file, std::uint32_t block, int tag) {
  if (block >= file.header.numBlocks) return nullptr;
  if (PageBuffer* cached = findBuf(file, block)) return cached;
  PageBuffer* buffer = newBuf(file);
  if (buffer == nullptr) return nullptr;
  buffer->dirty = false;
  if (!readBuf(file, *buffer, block, tag)) {
    releaseBuf(file, *buffer, LruEnd::tail);
    return nullptr;
  }
  enterBuf(file, *buffer, block);
  releaseBuf(file, *buffer, LruEnd::head);
  return buffer;
}

PageBuffer* getBufTyped(PageFile& file, std::uint32_t block, int tag) {
  PageBuffer* buffer = getBuf(file, block, tag);
  if (buffer == nullptr || buffer->typeTag == tag) return buffer;
  if (!buffer->dirty && !buffer->reserved) convertBuf(file, *buffer, tag);
  buffer->typeTag = tag;
  return buffer;
}

void convertBuf(PageFile& file, PageBuffer& buffer, int tag) {
  SwapBuffer(buffer.data(), SwapTagForWrite(buffer.typeTag), file.header.blockSize);
  SwapBuffer(buffer.data(), tag, file.header.blockSize);
  buffer.typeTag = tag;
}

void enterBuf(PageFile& file, PageBuffer& buffer, std::uint32_t block) {
  PageBuffer*& head = chainOf(file, block);
  buffer.block = block;
  buffer.hashPrev = nullptr;
  buffer.hashNext = head;
  if (head != nullptr) head->hashPrev = &buffer;
  head = &buffer;
}

void forgetBlock(PageFile& file, std::uint32_t block) {
  PageBuffer* buffer = findBuf(file, block);
  if (buffer == nullptr) return;
  buffer->dirty = false;
  removeFromChain(file, *buffer);
  releaseBuf(file, *buffer, LruEnd::head);
}

// The copy is what is swapped: the buffer stays in the host's order.
int writeBuf(PageFile& file, PageBuffer& buffer) {
  const std::size_t size = file.header.blockSize;
  const unsigned char* bytes = buffer.data();
  if (buffer.typeTag != typeNoStruct) {
    unsigned char* copy = scratchOf(file);
    if (copy == nullptr) return -2;
    std::memcpy(copy, buffer.data(), size);
    SwapBuffer(copy, SwapTagForWrite(buffer.typeTag), size);
    bytes = copy;
  }
  if (makeOwn(file) != 0 || seekTo(file, buffer.block, "write") != 0) return -2;
  if (PBcfwrite(file.descriptor, bytes, size) != static_cast<std::int64_t>(size)) return -2;
  if (file.fileBlocks <= buffer.block) file.fileBlocks = buffer.block + 1;
  buffer.dirty = false;
  return 0;
}

void reserveBuf(PageFile& file, PageBuffer& buffer) {
  if (buffer.reserved) return;
  removeFromLru(file, buffer);
  buffer.reserved = true;
}

void releaseBuf(PageFile& file, PageBuffer& buffer, LruEnd end) {
  if (!buffer.reserved) return;
  buffer.reserved = false;
  addToLru(file, buffer, end);
}
