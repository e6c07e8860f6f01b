#include "storage/cfile.h"

#include <fcntl.h>
#include <fmt/printf.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/errors.h"
#include "storage/cio.h"
#include "storage/plain_file.h"
#include "storage/swapendian.h"

namespace {

constexpr int kMaxOpen = 256;
constexpr std::uint32_t kMarker = 0xFFFFFFFF;
constexpr std::uint32_t kNoPage = 0xFFFFFFFF;
constexpr std::size_t kTableAt = 16;
constexpr std::size_t kFirstTableSize = 32;
constexpr std::int64_t kMaxBlocks = std::int64_t{1} << 28;  // a table of a gigabyte
constexpr auto kBlockSize = static_cast<std::int64_t>(kZipBlockSize);
// More than any block packs to: pages that lie over each other in a damaged file
// would be read again and again.
constexpr std::int64_t kMaxPacked = 2 * kBlockSize;
constexpr int kBadFormat = 87;
constexpr int kOldFormat = 106;

int openFiles = 0;

bool post(int code, ErrArg text) {
  PBpostError("cfile", code, text);
  return false;
}

// After a failed call of the page file; `operation` without its "VPage".
bool postStore(const char* operation) {
  return post(0, fmt::sprintf("VPage%s: error %d", operation, VPageError));
}

bool postRange(const char* function) {
  errno = 0;
  return post(0, fmt::sprintf("file offset out of range: data set is probably too large (%s)\n"
                              "   Try smaller amounts of data, such as fewer vectors",
                              function));
}

// Unpacked blocks a file keeps. A value that can't be is told once.
std::size_t cacheSizeFromEnvironment() {
  static bool warned = false;
  constexpr const char* kName = "MVK_NUM_COMPRESS_CACHE";
  constexpr int kStandard = 4;
  constexpr int kLeast = 2;
  constexpr int kMost = 40;
  const char* text = std::getenv(kName);
  if (text == nullptr) return kStandard;
  int value = 0;
  std::from_chars(text, text + std::strlen(text), value);
  if (value >= kLeast && value <= kMost) return static_cast<std::size_t>(value);
  if (!std::exchange(warned, true)) {
    fmt::fprintf(stderr, "Warning: ignoring %s (%d < %s < %d)\n", kName, kLeast, text, kMost);
  }
  return kStandard;
}

template <typename Number>
Number load(const std::uint8_t* from) {
  Number value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

// No page may be named twice, nor one that there isn't.
bool pagesAreSound(VPageFile& store, const std::vector<std::uint32_t>& table) {
  std::vector<std::uint32_t> pages;
  for (const std::uint32_t page : table) {
    if (page == kNoPage) continue;
    if (page == 0 || VPageNext(store, std::int64_t{page} - 1) != page) return false;
    pages.push_back(page);
  }
  std::sort(pages.begin(), pages.end());
  return std::adjacent_find(pages.begin(), pages.end()) == pages.end();
}

// A reserved page is released with its owner.
struct PageRelease {
  VPageFile& store;
  std::uint32_t page;
  ~PageRelease() {
    const int error = VPageError;
    VPageReleaseOld(store, page);
    VPageError = error;
  }
};

}  // namespace

std::optional<bool> isCompressedFile(const std::string& path) {
  constexpr std::array<char, 4> kCookie = {'\xF0', '\x0F', '\xDA', '\xDA'};
  constexpr std::size_t kCookieAt = 5;
  std::array<char, kCookieAt + kCookie.size()> start;
  const std::unique_ptr<PlainFile> file = PlainFile::open(path, O_RDONLY);
  if (file == nullptr) return std::nullopt;
  const std::int64_t count = file->read(start.data(), start.size());
  if (count < 0 || file->close() != 0) return std::nullopt;
  return count == static_cast<std::int64_t>(start.size()) && start[0] == 11 &&
         std::equal(kCookie.begin(), kCookie.end(), start.begin() + kCookieAt);
}

// --- Opening -------------------------------------------------------------------------

CompressedFile::CompressedFile(VPageFilePtr store, bool writable)
    : store_(std::move(store)), writable_(writable), cacheSize_(cacheSizeFromEnvironment()) {
  ++openFiles;
}

CompressedFile::~CompressedFile() {
  close();
  --openFiles;
}

std::unique_ptr<CompressedFile> CompressedFile::create(const std::string& path) {
  errno = 0;
  if (openFiles >= kMaxOpen) return post(0, "Too many open cfiles"), nullptr;
  VPageFilePtr store = VPageCreate(path, 1);
  if (store == nullptr) return postStore("Open"), nullptr;
  std::unique_ptr<CompressedFile> file(new CompressedFile(std::move(store), true));
  file->table_.assign(kFirstTableSize, kNoPage);
  void* header = nullptr;
  const std::size_t size = kTableAt + kFirstTableSize * sizeof(std::uint32_t);
  if (VPageNewTyped(*file->store_, size, header, typeIndexPage) != 0) {
    postStore("New");
    file->discard();
    return nullptr;
  }
  VPageRelease(*file->store_, 0);
  if (file->writeHeader()) return file;
  file->discard();
  return nullptr;
}

std::unique_ptr<CompressedFile> CompressedFile::open(const std::string& path, bool writable) {
  errno = 0;
  if (openFiles >= kMaxOpen) return post(0, "Too many open cfiles"), nullptr;
  VPageFilePtr store = writable ? VPageOpen(path, 1) : VPageOpenRead(path, 1);
  if (store == nullptr) return postStore("Open"), nullptr;
  std::unique_ptr<CompressedFile> file(new CompressedFile(std::move(store), writable));
  if (file->loadHeader()) return file;
  file->store_.reset();
  return nullptr;
}

bool CompressedFile::loadHeader() {
  const void* page = VPageGetTyped(*store_, 0, typeIndexPage);
  if (page == nullptr) return postStore("Get");
  const PageRelease release = {*store_, 0};
  const std::int64_t size = VPageSize(*store_, 0);
  errno = 0;
  return takeTable(static_cast<const std::uint8_t*>(page), size);
}

// Blocks behind the length count as never written.
bool CompressedFile::takeTable(const std::uint8_t* header, std::int64_t size) {
  if (size < static_cast<std::int64_t>(kTableAt)) return post(kBadFormat, VPagePath(*store_));
  if (load<std::uint32_t>(header) != kMarker) {
    return post(kOldFormat, "found non-2GB database format; expected 2GB");
  }
  const auto tableSize = load<std::uint32_t>(header + 4);
  length_ = load<std::int64_t>(header + 8);
  const std::int64_t room = (size - static_cast<std::int64_t>(kTableAt)) / 4;
  if (tableSize > room || tableSize > kMaxBlocks || length_ < 0 ||
      length_ > tableSize * kBlockSize) {
    return post(kBadFormat, VPagePath(*store_));
  }
  table_.resize(tableSize);
  if (tableSize > 0) std::memcpy(table_.data(), header + kTableAt, tableSize * 4UL);
  const std::int64_t blocks = (length_ + kBlockSize - 1) / kBlockSize;
  std::fill(table_.begin() + blocks, table_.end(), kNoPage);
  return pagesAreSound(*store_, table_) || post(kBadFormat, VPagePath(*store_));
}

bool CompressedFile::writeHeader() {
  const std::size_t size = kTableAt + table_.size() * sizeof(std::uint32_t);
  auto* header = static_cast<std::uint8_t*>(VPageResizeTyped(*store_, 0, size, typeIndexPage));
  if (header == nullptr) return postStore("Resize");
  const PageRelease release = {*store_, 0};
  const auto tableSize = static_cast<std::uint32_t>(table_.size());
  std::memcpy(header, &kMarker, sizeof kMarker);
  std::memcpy(header + 4, &tableSize, sizeof tableSize);
  std::memcpy(header + 8, &length_, sizeof length_);
  std::memcpy(header + kTableAt, table_.data(), table_.size() * sizeof(std::uint32_t));
  if (VPageDirty(*store_, 0, true) != 0) return postStore("Write");
  headerDirty_ = false;
  return true;
}

// --- Blocks --------------------------------------------------------------------------

// An empty block at the head of the cache, or null.
CompressedFile::Block* CompressedFile::freeBlock() {
  if (cache_.size() < cacheSize_) return &cache_.emplace_front();
  Block& last = cache_.back();
  if (last.dirty && !storeBlock(last)) return nullptr;
  last.number = -1;
  cache_.splice(cache_.begin(), cache_, std::prev(cache_.end()));
  return &last;
}

// The block at the head of the cache, its first `end` bytes unpacked; null on
// failure.
CompressedFile::Block* CompressedFile::findBlock(std::int64_t number, std::int64_t end) {
  Block* block = cacheBlock(number);
  if (block == nullptr || block->ready >= end) return block;
  if (unpackBlock(*block, end)) return block;
  block->number = -1;
  return nullptr;
}

CompressedFile::Block* CompressedFile::cacheBlock(std::int64_t number) {
  if (!cache_.empty() && cache_.front().number == number) return &cache_.front();
  const auto place = std::find_if(cache_.begin(), cache_.end(),
                                  [&](const Block& block) { return block.number == number; });
  if (place != cache_.end()) {
    cache_.splice(cache_.begin(), cache_, place);
    return &*place;
  }
  Block* block = freeBlock();
  if (block == nullptr) return nullptr;
  block->number = number;
  if (startBlock(*block)) return block;
  block->number = -1;
  return nullptr;
}

// Brings the packed bytes of a block into memory.
bool CompressedFile::startBlock(Block& block) {
  const auto number = static_cast<std::size_t>(block.number);
  const std::uint32_t page = number < table_.size() ? table_[number] : kNoPage;
  block.ready = 0;
  if (page == kNoPage) {
    std::fill(block.data.begin(), block.data.end(), std::uint8_t{0});
    block.ready = kBlockSize;
    return true;
  }
  if (VPageSize(*store_, page) > kMaxPacked) {
    errno = 0;
    PBpostError("unzip", 0, "Error decoding");
    return false;
  }
  const auto* packed = static_cast<const std::uint8_t*>(VPageGet(*store_, page));
  if (packed == nullptr) return postStore("Get");
  const PageRelease release = {*store_, page};
  return block.packed.start({packed, static_cast<std::size_t>(VPageSize(*store_, page))}) == 0;
}

bool CompressedFile::unpackBlock(Block& block, std::int64_t end) {
  const std::int64_t unpacked = block.packed.upTo(static_cast<std::size_t>(end), block.data);
  block.ready = std::max(unpacked, std::int64_t{0});
  if (unpacked >= end) return true;
  errno = 0;
  if (unpacked >= 0) PBpostError("unzip", 0, "Error decoding");
  return false;
}

// The bytes of the block's page, which becomes a new one if there is none.
void* CompressedFile::placeBlock(std::uint32_t& page, std::size_t size) {
  void* data = nullptr;
  if (page == kNoPage) {
    const std::int64_t id = VPageNew(*store_, size, data);
    if (id < 0) return postStore("New"), nullptr;
    page = static_cast<std::uint32_t>(id);
    headerDirty_ = true;
  } else {
    data = VPageResize(*store_, page, size);
    if (data == nullptr) postStore("Resize");
  }
  return data;
}

// On failure the block stays dirty.
bool CompressedFile::storeBlock(Block& block) {
  static std::vector<std::uint8_t> packed;
  const auto size = static_cast<std::size_t>(zip(block.data, packed));
  std::uint32_t& page = table_[static_cast<std::size_t>(block.number)];
  void* data = placeBlock(page, size);
  if (data == nullptr) return false;
  const PageRelease release = {*store_, page};
  std::memcpy(data, packed.data(), size);
  if (VPageDirty(*store_, page, true) != 0) return postStore("Write");
  block.dirty = false;
  return true;
}

bool CompressedFile::storeAll() {
  for (Block& block : cache_) {
    if (block.dirty && !storeBlock(block)) return false;
  }
  return !headerDirty_ || writeHeader();
}

bool CompressedFile::growTable(std::int64_t number) {
  if (number >= kMaxBlocks) return postRange("cwrite");
  std::size_t size = std::max(table_.size(), kFirstTableSize);
  while (size <= static_cast<std::size_t>(number)) size *= 2;
  table_.resize(size, kNoPage);
  return true;
}

// Clears what the last block has past the length.
bool CompressedFile::clearTail() {
  const std::int64_t offset = length_ % kBlockSize;
  tailClear_ = offset == 0;
  if (tailClear_) return true;
  Block* block = findBlock(length_ / kBlockSize, kBlockSize);
  if (block == nullptr) return false;
  std::fill(block->data.begin() + offset, block->data.end(), std::uint8_t{0});
  block->dirty = true;
  tailClear_ = true;
  return true;
}

// --- Bytes ---------------------------------------------------------------------------

std::int64_t CompressedFile::read(char* data, std::size_t size) {
  const std::int64_t left = std::max<std::int64_t>(length_ - position_, 0);
  const std::int64_t wanted =
      size < static_cast<std::size_t>(left) ? static_cast<std::int64_t>(size) : left;
  std::int64_t done = 0;
  while (done < wanted) {
    if (position_ / kBlockSize >= kMaxBlocks) return postRange("cread"), -2;
    const std::int64_t offset = position_ % kBlockSize;
    const std::int64_t count = std::min(wanted - done, kBlockSize - offset);
    const Block* block = findBlock(position_ / kBlockSize, offset + count);
    if (block == nullptr) return -2;
    std::memcpy(data + done, block->data.data() + offset, static_cast<std::size_t>(count));
    position_ += count;
    done += count;
  }
  return done;
}

// A failed one leaves the position where it was.
std::int64_t CompressedFile::write(const char* data, std::size_t size) {
  if (!writable_) errno = EBADF;
  if (!writable_) return post(0, VPagePath(*store_)), -2;
  if (size == 0) return 0;
  constexpr std::int64_t kLimit = kMaxBlocks * kBlockSize;
  if (position_ >= kLimit || size > static_cast<std::size_t>(kLimit - position_)) {
    return postRange("cwrite"), -2;
  }
  const auto total = static_cast<std::int64_t>(size);
  if (position_ > length_ && !tailClear_ && !clearTail()) return -2;
  if (!growTable((position_ + total - 1) / kBlockSize)) return -2;
  std::int64_t done = 0;
  while (done < total) {
    const std::int64_t at = position_ + done;
    Block* block = findBlock(at / kBlockSize, kBlockSize);
    if (block == nullptr) return -2;
    const std::int64_t offset = at % kBlockSize;
    const std::int64_t count = std::min(total - done, kBlockSize - offset);
    std::memcpy(block->data.data() + offset, data + done, static_cast<std::size_t>(count));
    block->dirty = true;
    done += count;
    headerDirty_ = headerDirty_ || at + count > length_;
    length_ = std::max(length_, at + count);
  }
  position_ += total;
  return total;
}

int CompressedFile::seek(std::int64_t offset, int whence) {
  const std::int64_t base = whence == SEEK_CUR ? position_ : whence == SEEK_END ? length_ : 0;
  const std::int64_t target = seekTarget(base, offset);
  if (target < 0) return -2;
  position_ = target;
  return 0;
}

int CompressedFile::getc() {
  char byte = 0;
  const std::int64_t count = read(&byte, 1);
  return count == 1 ? static_cast<unsigned char>(byte) : count == 0 ? -1 : -2;
}

// --- Whole files ---------------------------------------------------------------------

int CompressedFile::flush() {
  if (!writable_) return 0;
  if (!storeAll()) return -2;
  if (VPageFlush(*store_) != 0) postStore("Flush");
  return VPageError == kVPageOk ? 0 : -2;
}

bool CompressedFile::dropBlock(std::int64_t number) {
  const auto cached = std::find_if(cache_.begin(), cache_.end(),
                                   [&](const Block& block) { return block.number == number; });
  std::uint32_t& page = table_[static_cast<std::size_t>(number)];
  if (page != kNoPage && VPageDelete(*store_, page) != 0) return postStore("Delete");
  page = kNoPage;
  headerDirty_ = true;
  if (cached == cache_.end()) return true;
  cached->number = -1;
  cached->dirty = false;
  cache_.splice(cache_.end(), cache_, cached);
  return true;
}

// From the end on, so that the length is right wherever it fails.
int CompressedFile::truncate(std::int64_t size) {
  if (!writable_ || size < 0) {
    errno = writable_ ? EINVAL : EBADF;
    return -2;
  }
  while (size < length_) {
    const std::int64_t last = (length_ - 1) / kBlockSize;
    const std::int64_t start = last * kBlockSize;
    if (start >= size && !dropBlock(last)) return -2;
    length_ = std::max(size, start);
    headerDirty_ = true;
    if (start < size && !clearTail()) return -2;
  }
  return 0;
}

// Squeezing out dead space is worth a try only: the file is whole without it.
int CompressedFile::close() {
  if (store_ == nullptr) return 0;
  const bool stored = !writable_ || storeAll();
  if (stored && writable_ && VPageChanged(*store_)) VPageRepack(*store_, false);
  const bool closed = VPageClose(std::move(store_)) == 0 || postStore("Close");
  return stored && closed ? 0 : -2;
}

int CompressedFile::discard() {
  store_.reset();
  return 0;
}

int CompressedFile::check(const std::function<void(std::string_view)>& fault) {
  int faults = 0;
  Block block;
  for (std::size_t number = 0; number < table_.size(); ++number) {
    block.number = static_cast<std::int64_t>(number);
    // One byte more than a block has, so that what follows its end is seen too.
    if (startBlock(block) && (block.ready == kBlockSize ||
                              block.packed.upTo(kBlockSize + 1, block.data) == kBlockSize)) {
      continue;
    }
    PBdiscardErrors();
    fault(fmt::sprintf("block %d: can't be unpacked (page %d)", number, table_[number]));
    ++faults;
  }
  return faults;
}

// --- Checking ------------------------------------------------------------------------

int PBcfCheck(const std::string& path, const std::function<void(std::string_view)>& fault) {
  const std::optional<bool> compressed = isCompressedFile(path);
  errno = 0;
  if (!compressed) fault("can't be read");
  if (!compressed || !*compressed) return compressed ? 0 : 1;
  const int pageFaults = VPageCheck(path, [&](std::string_view line) {
    if (line != "INDEX OK" && line != "INDEX MISSING") fault(line);
  });
  const int posts = PBerrorCount();
  const std::unique_ptr<CompressedFile> file = CompressedFile::open(path, false);
  if (file != nullptr) return std::max(pageFaults, 0) + file->check(fault);
  while (PBerrorCount() > posts) PBpopError();
  fault("header: can't be read");
  return std::max(pageFaults, 0) + 1;
}
