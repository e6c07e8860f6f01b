// The free list of a block file: the free blocks in rising order, each with the
// numbers of its neighbours. What the links say is tested before anything is
// changed, and what was changed is taken back when a later step fails.

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "base/errors.h"
#include "storage/page_internal.h"
#include "storage/swapendian.h"

namespace {

constexpr std::string_view kBroken = "the free list is broken";

// --- Links ---------------------------------------------------------------------------

bool setLink(PageFile& file, std::uint32_t block, std::uint32_t FreeLinks::*link,
             std::uint32_t value) {
  PageBuffer* buffer = getBuf(file, block, typeFreeList);
  if (buffer == nullptr) return false;
  if (buffer->typeTag != typeFreeList) convertBuf(file, *buffer, typeFreeList);
  FreeLinks links;
  std::memcpy(&links, buffer->data(), sizeof links);
  links.*link = value;
  std::memcpy(buffer->data(), &links, sizeof links);
  buffer->dirty = true;
  return true;
}

// The links of a block of the list; none with a post when they can't be read or
// lead out of the list or against its order.
std::optional<FreeLinks> soundLinks(PageFile& file, std::uint32_t block,
                                    std::string_view function) {
  const PageHeader& header = file.header;
  const std::optional<FreeLinks> links = readLinks(file, block);
  if (!links) {
    PBpostError(function, 0, "can't read the free list");
    return std::nullopt;
  }
  const bool first = block == header.firstFree;
  const bool last = block == header.lastFree;
  const bool prevSound =
      first ? links->prev == kNoBlock : links->prev < block && links->prev >= header.firstFree;
  const bool nextSound =
      last ? links->next == kNoBlock : links->next > block && links->next <= header.lastFree;
  if (prevSound && nextSound) return links;
  postPage(function, kBroken);
  return std::nullopt;
}

bool isBetweenEnds(const PageHeader& header, std::int64_t block) {
  return header.firstFree != kNoBlock && block > header.firstFree && block < header.lastFree;
}

void checkHint(PageFile& file) {
  if (!isBetweenEnds(file.header, file.freeHint)) file.freeHint = kNoHint;
}

// --- Allocating ----------------------------------------------------------------------

PageBuffer* appendBlock(PageFile& file, std::uint32_t& block) {
  block = file.header.numBlocks;
  if (block == kNoBlock) {
    postPage("PageNew", "no more block numbers");
    return nullptr;
  }
  PageBuffer* buffer = newBuf(file);
  if (buffer == nullptr) return nullptr;
  enterBuf(file, *buffer, block);
  ++file.header.numBlocks;
  buffer->dirty = true;
  return buffer;
}

// Makes the block after the head the head of the list.
bool unlinkHead(PageFile& file, const FreeLinks& head) {
  if (head.next == kNoBlock) return true;
  const std::optional<FreeLinks> next = soundLinks(file, head.next, "PageNew");
  if (!next) return false;
  if (next->prev != file.header.firstFree) {
    postPage("PageNew", kBroken);
    return false;
  }
  return setLink(file, head.next, &FreeLinks::prev, kNoBlock);
}

PageHeader withoutHead(PageHeader header, const FreeLinks& head) {
  --header.numFree;
  header.firstFree = head.next;
  if (head.next == kNoBlock) header.lastFree = kNoBlock;
  return header;
}

PageBuffer* takeFreeBlock(PageFile& file, std::uint32_t& block, int tag) {
  block = file.header.firstFree;
  const std::optional<FreeLinks> links = soundLinks(file, block, "PageNew");
  if (!links) return nullptr;
  const PageHeader after = withoutHead(file.header, *links);
  if (!freeListFits(after)) {
    postPage("PageNew", kBroken);
    return nullptr;
  }
  if (!unlinkHead(file, *links)) return nullptr;
  PageBuffer* buffer = getBuf(file, block, tag);
  if (buffer == nullptr) {
    if (links->next != kNoBlock) setLink(file, links->next, &FreeLinks::prev, block);
    return nullptr;
  }
  file.header = after;
  checkHint(file);
  if (file.freeIndex) file.freeIndex->erase(block);
  return buffer;
}

// --- Freeing the last block ----------------------------------------------------------

// The header without the last block and the free blocks before it, which are
// then the last.
std::optional<PageHeader> withoutLastBlocks(PageFile& file) {
  PageHeader shrunk = file.header;
  --shrunk.numBlocks;
  while (shrunk.numBlocks > 0 && shrunk.lastFree == shrunk.numBlocks - 1) {
    const std::optional<FreeLinks> links = readLinks(file, shrunk.lastFree);
    if (!links) {
      PBpostError("PageFree", 0, "can't read the free list");
      return std::nullopt;
    }
    const std::uint32_t last = shrunk.lastFree;
    --shrunk.numBlocks;
    --shrunk.numFree;
    shrunk.lastFree = links->prev;
    if (links->prev == kNoBlock) shrunk.firstFree = kNoBlock;
    if (!freeListFits(shrunk) || (links->prev != kNoBlock && links->prev >= last)) {
      postPage("PageFree", kBroken);
      return std::nullopt;
    }
  }
  return shrunk;
}

int freeLastBlock(PageFile& file) {
  const PageHeader before = file.header;
  const std::optional<PageHeader> shrunk = withoutLastBlocks(file);
  if (!shrunk) return -2;
  if (shrunk->lastFree != before.lastFree && shrunk->lastFree != kNoBlock &&
      !setLink(file, shrunk->lastFree, &FreeLinks::next, kNoBlock)) {
    PBpostError("PageFree", 0, "can't change the free list");
    return -2;
  }
  for (std::uint32_t gone = shrunk->numBlocks; gone < before.numBlocks; ++gone) {
    forgetBlock(file, gone);
    if (file.freeIndex) file.freeIndex->erase(gone);
  }
  file.header = *shrunk;
  checkHint(file);
  return 0;
}

// --- Freeing in the middle -----------------------------------------------------------

// Of a sum that is taken as a signed number of 32 bits.
std::int64_t midpoint(std::int64_t low, std::int64_t high) {
  return static_cast<std::int32_t>(low + high) / 2;
}

struct WalkStart {
  std::uint32_t block;
  bool forward;
};

// From the end of the stretch that is likely to be nearer.
WalkStart chooseStart(const PageFile& file, std::uint32_t block) {
  const std::uint32_t first = file.header.firstFree;
  const std::uint32_t last = file.header.lastFree;
  if (file.freeHint == kNoHint) {
    return block < midpoint(last, first) ? WalkStart{first, true} : WalkStart{last, false};
  }
  const auto hint = static_cast<std::uint32_t>(file.freeHint);
  if (block > hint) {
    return block < midpoint(last, hint) ? WalkStart{hint, true} : WalkStart{last, false};
  }
  return block < midpoint(hint, first) ? WalkStart{first, true} : WalkStart{hint, false};
}

std::optional<FreeLinks> refuseAsFree(std::uint32_t block) {
  postPage("PageFree", fmt::format("block {} is free already", block));
  return std::nullopt;
}

// The free blocks on both sides of a block that lies between the ends. None with
// a post for one that is on the list itself, and for a broken list.
std::optional<FreeLinks> walkToPlace(PageFile& file, std::uint32_t block) {
  const auto [start, forward] = chooseStart(file, block);
  std::uint32_t at = start;
  for (std::uint32_t steps = 0; steps < file.header.numFree; ++steps, ++file.walkSteps) {
    if (at == block) return refuseAsFree(block);
    const std::optional<FreeLinks> links = soundLinks(file, at, "PageFree");
    if (!links) return std::nullopt;
    if (forward && links->next > block) return FreeLinks{at, links->next};
    if (!forward && links->prev < block) return FreeLinks{links->prev, at};
    at = forward ? links->next : links->prev;
  }
  postPage("PageFree", kBroken);
  return std::nullopt;
}

bool buildIndex(PageFile& file) {
  auto index = std::make_unique<FreeIndex>();
  std::uint32_t at = file.header.firstFree;
  std::uint32_t count = 0;
  for (; count < file.header.numFree && at != kNoBlock; ++count) {
    const std::optional<FreeLinks> links = soundLinks(file, at, "PageFree");
    if (!links) return false;
    index->insert(at);
    at = links->next;
  }
  if (count != file.header.numFree || at != kNoBlock) {
    postPage("PageFree", kBroken);
    return false;
  }
  file.freeIndex = std::move(index);
  return true;
}

// Walking is cheap as long as blocks are freed near each other. When as many were
// walked over as the list has, it pays to know them all.
std::optional<FreeLinks> findNeighbours(PageFile& file, std::uint32_t block) {
  constexpr std::uint64_t kCheapSteps = 1000;
  if (!file.freeIndex) {
    if (file.walkSteps < kCheapSteps + file.header.numFree) return walkToPlace(file, block);
    if (!buildIndex(file)) return std::nullopt;
  }
  const FreeLinks place{file.freeIndex->below(block), file.freeIndex->above(block)};
  if (file.freeIndex->above(place.prev) == block) return refuseAsFree(block);
  return place;
}

std::optional<FreeLinks> findPlace(PageFile& file, std::uint32_t block) {
  const PageHeader& header = file.header;
  if (header.firstFree == kNoBlock) return FreeLinks{};
  if (block < header.firstFree) return FreeLinks{kNoBlock, header.firstFree};
  if (block > header.lastFree) return FreeLinks{header.lastFree, kNoBlock};
  return findNeighbours(file, block);
}

// The neighbours know each other: the one that the walk didn't look at isn't a
// block that a broken link led to.
bool areNeighbours(PageFile& file, const FreeLinks& place) {
  if (place.prev == kNoBlock && place.next == kNoBlock) return true;
  const bool hasPrev = place.prev != kNoBlock;
  const bool hasNext = place.next != kNoBlock;
  const auto before = hasPrev ? soundLinks(file, place.prev, "PageFree") : FreeLinks{};
  const auto after = hasNext ? soundLinks(file, place.next, "PageFree") : FreeLinks{};
  if (!before || !after) return false;
  if (hasPrev && hasNext && (before->next != place.next || after->prev != place.prev)) {
    postPage("PageFree", kBroken);
    return false;
  }
  return true;
}

bool makeFree(PageFile& file, std::uint32_t block, const FreeLinks& links) {
  PageBuffer* buffer = getBuf(file, block, typeFreeList);
  if (buffer == nullptr) return false;
  std::memcpy(buffer->data(), &links, sizeof links);
  buffer->typeTag = typeFreeList;
  buffer->dirty = true;
  releaseBuf(file, *buffer, LruEnd::head);
  return true;
}

bool linkBlock(PageFile& file, std::uint32_t block, const FreeLinks& place) {
  const bool hasPrev = place.prev != kNoBlock;
  const bool hasNext = place.next != kNoBlock;
  if (hasNext && !setLink(file, place.next, &FreeLinks::prev, block)) return false;
  if (!hasPrev || setLink(file, place.prev, &FreeLinks::next, block)) {
    if (makeFree(file, block, place)) return true;
    if (hasPrev) setLink(file, place.prev, &FreeLinks::next, place.next);
  }
  if (hasNext) setLink(file, place.next, &FreeLinks::prev, place.prev);
  return false;
}

PageHeader withFreeBlock(PageHeader header, std::uint32_t block, const FreeLinks& place) {
  ++header.numFree;
  if (place.prev == kNoBlock) header.firstFree = block;
  if (place.next == kNoBlock) header.lastFree = block;
  return header;
}

int freeMiddleBlock(PageFile& file, std::uint32_t block) {
  const std::optional<FreeLinks> place = findPlace(file, block);
  if (!place || !areNeighbours(file, *place)) return -2;
  const PageHeader after = withFreeBlock(file.header, block, *place);
  if (!freeListFits(after)) return postPage("PageFree", kBroken);
  if (!linkBlock(file, block, *place)) {
    PBpostError("PageFree", 0, "could not add block to free list");
    return -2;
  }
  file.header = after;
  if (isBetweenEnds(after, block)) file.freeHint = block;
  if (file.freeIndex) file.freeIndex->insert(block);
  return 0;
}

}  // namespace

std::optional<FreeLinks> readLinks(PageFile& file, std::uint32_t block) {
  PageBuffer* buffer = getBuf(file, block, typeFreeList);
  if (buffer == nullptr) return std::nullopt;
  FreeLinks links;
  if (buffer->typeTag == typeFreeList) {
    std::memcpy(&links, buffer->data(), sizeof links);
    return links;
  }
  std::vector<unsigned char> copy(buffer->data(), buffer->data() + file.header.blockSize);
  SwapBuffer(copy.data(), SwapTagForWrite(buffer->typeTag), copy.size());
  SwapBuffer(copy.data(), typeFreeList, copy.size());
  std::memcpy(&links, copy.data(), sizeof links);
  return links;
}

std::int64_t newBlock(PageFile& file, PageBuffer*& buffer, int tag) {
  std::uint32_t block = kNoBlock;
  const bool fresh = file.header.firstFree == kNoBlock;
  buffer = fresh ? appendBlock(file, block) : takeFreeBlock(file, block, tag);
  if (buffer == nullptr) return -1;
  file.headerDirty = true;
  file.stamp = nextStamp();
  reserveBuf(file, *buffer);
  buffer->typeTag = tag;
  std::memset(buffer->data(), 0, file.header.blockSize);
  return block;
}

int freeBlock(PageFile& file, std::uint32_t block) {
  const PageHeader& header = file.header;
  if (block >= header.numBlocks) {
    return postPage("PageFree", fmt::format("there is no block {}", block));
  }
  if (block == header.firstFree || block == header.lastFree) {
    return postPage("PageFree", fmt::format("block {} is free already", block));
  }
  file.stamp = nextStamp();
  const bool last = block == header.numBlocks - 1;
  const int result = last ? freeLastBlock(file) : freeMiddleBlock(file, block);
  if (result == 0) file.headerDirty = true;
  return result;
}
