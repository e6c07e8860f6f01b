// The header of a block file: reading and testing it, writing it, and turning the
// old one into the present one.

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/errors.h"
#include "storage/cio.h"
#include "storage/page_internal.h"
#include "storage/swapendian.h"

namespace {

constexpr std::size_t kHalfSize = kPageHeaderSize / 2;
constexpr std::int64_t kOldHeaderSize = 16;
constexpr std::int64_t kNewHeaderSize = kPageHeaderSize;
constexpr std::size_t kMovePiece = 1024;
constexpr std::int64_t kMoveBlocks = kMovePiece / kMinBlockSize;

// The old header's four words.
struct OldHeader {
  std::int32_t blockSize = 0;
  std::uint32_t numBlocks = 0;
  std::uint32_t numFree = 0;
  std::uint32_t firstFree = 0;
};
static_assert(sizeof(OldHeader) == kOldHeaderSize);

// --- Access --------------------------------------------------------------------------

bool readAt(int descriptor, std::int64_t offset, void* data, std::size_t size) {
  return PBcfseek(descriptor, offset, SEEK_SET) == 0 &&
         PBcfread(descriptor, data, size) == static_cast<std::int64_t>(size);
}

bool writeAt(int descriptor, std::int64_t offset, const void* data, std::size_t size) {
  return PBcfseek(descriptor, offset, SEEK_SET) == 0 &&
         PBcfwrite(descriptor, data, size) == static_cast<std::int64_t>(size);
}

int postUnreadable(const PageFile& file) {
  PBpostError("pOpen", 0, "can't read header of cpage file " + file.path);
  return -2;
}

int postBadHeader() { return postPage("pOpen", "some kind of bad header information"); }

// --- Testing -------------------------------------------------------------------------

bool blocksFit(std::int64_t headerSize, std::uint32_t numBlocks, std::uint32_t blockSize,
               std::int64_t fileSize) {
  return headerSize + std::int64_t{numBlocks} * blockSize <= fileSize;
}

bool isSound(const PageHeader& header, std::int64_t fileSize) {
  return header.blockSize >= kMinBlockSize && header.blockSize <= kMaxBlockSize &&
         blocksFit(kNewHeaderSize, header.numBlocks, header.blockSize, fileSize) &&
         freeListFits(header);
}

bool isSound(const OldHeader& header, std::int64_t fileSize) {
  const auto blockSize = static_cast<std::uint32_t>(header.blockSize);
  return blockSize <= kMaxBlockSize &&
         blocksFit(kOldHeaderSize, header.numBlocks, blockSize, fileSize);
}

// --- Conversion ----------------------------------------------------------------------

// Makes the file as long as it will be, so that a full disk shows before anything
// has been moved.
bool makeRoom(int descriptor, std::int64_t size) {
  const std::array<char, kMovePiece> zeros = {};
  std::int64_t end = PBcfsize(descriptor);
  while (end >= 0 && end < size) {
    const auto piece = std::min<std::int64_t>(size - end, kMovePiece);
    if (!writeAt(descriptor, end, zeros.data(), static_cast<std::size_t>(piece))) return false;
    end += piece;
  }
  return end >= 0 && PBcfflush(descriptor) == 0;
}

// Each block into one of kMinBlockSize with zeros at its end; from the end on, so
// that no block covers one that hasn't been moved.
bool widenBlocks(int descriptor, const OldHeader& old) {
  const auto oldSize = static_cast<std::size_t>(old.blockSize);
  std::array<char, kMovePiece> narrow;
  std::int64_t left = old.numBlocks;
  while (left > 0) {
    const auto count = static_cast<std::size_t>(std::min<std::int64_t>(left, kMoveBlocks));
    left -= static_cast<std::int64_t>(count);
    std::array<char, kMovePiece> wide = {};
    if (!readAt(descriptor, kOldHeaderSize + left * old.blockSize, narrow.data(),
                count * oldSize)) {
      return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
      std::memcpy(&wide[i * kMinBlockSize], &narrow[i * oldSize], oldSize);
    }
    if (!writeAt(descriptor, kNewHeaderSize + left * kMinBlockSize, wide.data(),
                 count * kMinBlockSize)) {
      return false;
    }
  }
  return true;
}

// From the end on, so that no piece covers what hasn't been moved.
bool moveUp(int descriptor, std::int64_t size) {
  std::array<char, kMovePiece> bytes;
  while (size > 0) {
    const auto piece = static_cast<std::size_t>(std::min<std::int64_t>(size, kMovePiece));
    size -= static_cast<std::int64_t>(piece);
    if (!readAt(descriptor, kOldHeaderSize + size, bytes.data(), piece)) return false;
    if (!writeAt(descriptor, kNewHeaderSize + size, bytes.data(), piece)) return false;
  }
  return true;
}

// Kept on purpose: the old free blocks don't come to the new list. They stay in
// the file, out of use; files that went through this before rely on their block
// numbers.
int convertFile(PageFile& file, const OldHeader& old) {
  file.header = PageHeader();
  file.header.blockSize =
      std::max(static_cast<std::uint32_t>(old.blockSize), std::uint32_t{kMinBlockSize});
  file.header.numBlocks = old.numBlocks;
  const std::int64_t size = std::int64_t{old.numBlocks} * file.header.blockSize;
  if (makeOwn(file) != 0 || !makeRoom(file.descriptor, kNewHeaderSize + size)) return -2;
  const bool small = old.blockSize < static_cast<std::int32_t>(kMinBlockSize);
  const bool moved = small ? widenBlocks(file.descriptor, old) : moveUp(file.descriptor, size);
  if (!moved) return -2;
  return writeHeader(file, "convertFile", "could not write header while converting file");
}

int convertOldFile(PageFile& file, const OldHeader& old) {
  const std::int64_t fileSize = PBcfsize(file.descriptor);
  if (fileSize < 0) return postUnreadable(file);
  if (!isSound(old, fileSize)) return postBadHeader();
  if (convertFile(file, old) == 0 && PBcfflush(file.descriptor) == 0) return 0;
  PBpostError("PageOpen", 0, "Can't convert old format");
  return -2;
}

}  // namespace

bool freeListFits(const PageHeader& header) {
  if (header.numFree == 0) return header.firstFree == kNoBlock && header.lastFree == kNoBlock;
  if (header.firstFree > header.lastFree || header.lastFree >= header.numBlocks) return false;
  const std::uint32_t stretch = header.lastFree - header.firstFree;
  return header.numFree == 1 ? stretch == 0 : stretch > 0 && header.numFree - 1 <= stretch;
}

int readHeader(PageFile& file) {
  std::array<unsigned char, kPageHeaderSize> bytes;
  if (!readAt(file.descriptor, 0, bytes.data(), kHalfSize)) return postUnreadable(file);
  SwapBuffer(bytes.data(), typeOldFileHeader, kHalfSize);
  OldHeader old;
  std::memcpy(&old, bytes.data(), sizeof old);
  if (old.blockSize > 0) return convertOldFile(file, old);
  if (static_cast<std::uint32_t>(old.blockSize) != kNoBlock) return postBadHeader();
  if (!readAt(file.descriptor, kHalfSize, bytes.data() + kHalfSize, kHalfSize)) {
    return postUnreadable(file);
  }
  SwapBuffer(bytes.data() + kHalfSize, typeNewFileHeader, kHalfSize);
  std::memcpy(&file.header, bytes.data(), sizeof file.header);
  const std::int64_t fileSize = PBcfsize(file.descriptor);
  if (fileSize < 0) return postUnreadable(file);
  return isSound(file.header, fileSize) ? 0 : postBadHeader();
}

int writeHeader(PageFile& file, std::string_view function, std::string_view failure) {
  std::array<unsigned char, kPageHeaderSize> bytes;
  std::memcpy(bytes.data(), &file.header, sizeof file.header);
  SwapBuffer(bytes.data(), typeOldFileHeader, kHalfSize);
  SwapBuffer(bytes.data() + kHalfSize, typeNewFileHeader, kHalfSize);
  if (makeOwn(file) == 0 && writeAt(file.descriptor, 0, bytes.data(), bytes.size())) {
    file.headerDirty = false;
    return 0;
  }
  return postWrite(file, function, failure);
}
