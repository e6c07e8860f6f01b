#include "storage/page.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/temp_directory.h"
#include "storage/cio.h"
#include "storage/page_internal.h"
#include "storage/swapendian.h"

namespace {

constexpr std::size_t kTableGrowth = 16;

// Every open block file of the process, by handle: opening fills the first empty
// place, closing empties it; the table never shrinks.
std::vector<std::unique_ptr<PageFile>> table;

bool isOpenPath(const std::string& path) {
  return std::any_of(table.begin(), table.end(), [&](const auto& file) {
    return file && !file->borrowed && file->path == path;
  });
}

// Whoever only reads a file that is about to be changed keeps what it says now.
bool keepForReaders(const std::string& path) {
  return std::all_of(table.begin(), table.end(), [&](const auto& file) {
    return !file || !file->borrowed || file->path != path || makeOwn(*file) == 0;
  });
}

int enterTable(std::unique_ptr<PageFile> file) {
  auto place = std::find(table.begin(), table.end(), nullptr);
  const auto handle = place - table.begin();
  if (place == table.end()) table.resize(table.size() + kTableGrowth);
  table[static_cast<std::size_t>(handle)] = std::move(file);
  return static_cast<int>(handle);
}

// --- Opening -------------------------------------------------------------------------

int openExisting(PageFile& file) {
  file.onDisk = true;
  if (ensureOpen(file) != 0) return -2;
  file.compressed = PBcfisCompressed(file.descriptor);
  if (readHeader(file) == 0) return 0;
  PBcfclose(file.descriptor);
  return -2;
}

enum class Mode { packed, plain, borrowed };

int pOpen(const std::string& path, std::uint32_t& blockSize, int maxBuffers, Mode mode) {
  const bool borrowed = mode == Mode::borrowed;
  if (!borrowed && isOpenPath(path)) {
    postPage("pOpen", "cpage file " + path + " already opened");
    return -1;
  }
  if (!borrowed && !keepForReaders(path)) return -1;
  std::unique_ptr<PageFile> file = makePageFile(path, blockSize, maxBuffers);
  if (!file) return -1;
  file->compressed = mode == Mode::packed;
  file->borrowed = borrowed;
  const Presence presence = presenceOf(path);
  if (presence == Presence::unknown || (borrowed && presence == Presence::absent)) {
    PBpostError("pOpen", 81, path);
    return -1;
  }
  if (presence == Presence::present && openExisting(*file) != 0) return -1;
  file->headerDirty = presence == Presence::absent;
  file->fileBlocks = file->header.numBlocks;
  blockSize = file->header.blockSize;
  return enterTable(std::move(file));
}

// --- Closing -------------------------------------------------------------------------

bool flushBuffers(PageFile& file) {
  for (std::uint32_t bucket = 0; bucket < file.maxBuffers; ++bucket) {
    for (PageBuffer* buffer = file.hashTable[bucket]; buffer; buffer = buffer->hashNext) {
      if (buffer->dirty && writeBuf(file, *buffer) != 0) return false;
    }
  }
  return true;
}

// Gives back the space past the last block, if the file has shrunk, and closes.
// What is cached must have been written.
int shrinkAndClose(PageFile& file) {
  bool sound = true;
  if (file.header.numBlocks < file.fileBlocks) {
    const std::int64_t size = static_cast<std::int64_t>(kPageHeaderSize) +
                              std::int64_t{file.header.numBlocks} * file.header.blockSize;
    sound = PBcftruncate(file.descriptor, size) == 0;
    if (sound) file.fileBlocks = file.header.numBlocks;
  }
  const bool closed = PBcfclose(std::exchange(file.descriptor, kNotOpen)) == 0;
  return sound && closed ? 0 : -2;
}

// What lies at the path goes, unless it is someone else's.
int discardFile(PageFile& file) {
  if (file.borrowed) {
    if (file.descriptor >= 0) PBcfclose(file.descriptor);
    return 0;
  }
  if (file.descriptor >= 0) return PBcfdiscard(file.descriptor);
  return !file.onDisk || platform().remove(file.path.c_str()) == 0 ? 0 : -2;
}

bool isPrivate(const PageFile& file) { return file.borrowed || !file.copy.path().empty(); }

}  // namespace

// --- The table -----------------------------------------------------------------------

std::uint64_t nextStamp() {
  static std::uint64_t last = 0;
  return ++last;
}

PageFile* findPageFile(int handle) {
  const auto place = static_cast<std::size_t>(handle);
  if (handle >= 0 && place < table.size() && table[place]) return table[place].get();
  postPage("Page", "bad handle of a cpage file");
  return nullptr;
}

void replacePageFile(int handle, std::unique_ptr<PageFile> file) {
  table[static_cast<std::size_t>(handle)] = std::move(file);
}

std::unique_ptr<PageFile> makePageFile(const std::string& path, std::uint32_t blockSize,
                                       int maxBuffers) {
  if (blockSize > kMaxBlockSize) {
    postPage("pOpen", "some kind of bad header information");
    return nullptr;
  }
  auto file = std::make_unique<PageFile>();
  file->path = path;
  file->header.blockSize = std::max(blockSize, kMinBlockSize);
  file->maxBuffers = static_cast<std::uint32_t>(std::max(maxBuffers, 1));
  file->inverse = inverseOf(file->maxBuffers);
  const std::size_t tableSize = file->maxBuffers * sizeof(PageBuffer*);
  file->hashTable.reset(static_cast<PageBuffer**>(platform().allocate(tableSize)));
  if (!file->hashTable) {
    PBpostError("pOpen", 0, "can't allocate hash table");
    return nullptr;
  }
  std::fill_n(file->hashTable.get(), file->maxBuffers, nullptr);
  file->tempDir = PBtempDirectory();
  file->headerDirty = true;
  return file;
}

int ensureOpen(PageFile& file) {
  if (file.descriptor >= 0) return 0;
  const auto open = file.compressed || file.onDisk ? PBcfopen : PBcfopenPlain;
  const int existing = file.borrowed ? kCfRead : kCfUpdate;
  file.descriptor = open(file.path, file.onDisk ? existing : kCfNew);
  if (file.descriptor >= 0) {
    file.onDisk = true;
    file.packed = PBcfisCompressed(file.descriptor);
    return 0;
  }
  PBpostError("openFile", 0, "Can't open paged file");
  file.descriptor = kNotOpen;
  return -2;
}

int makeOwn(PageFile& file) {
  if (!file.borrowed) return ensureOpen(file);
  TempFile copy = PBprivateCopy(file.path);
  const int descriptor = copy.path().empty() ? kNotOpen : PBcfopen(copy.path(), kCfUpdate);
  if (descriptor < 0) {
    PBpostError("openFile", 85, "a private copy of " + file.path);
    return -2;
  }
  if (file.descriptor >= 0) PBcfclose(file.descriptor);
  file.descriptor = descriptor;
  file.copy = std::move(copy);
  file.path = file.copy.path();
  file.borrowed = false;
  return 0;
}

int flushFile(PageFile& file) {
  if (ensureOpen(file) != 0) return -2;
  if (file.headerDirty && writeHeader(file, "PageFlush", "could not write dirty header") != 0) {
    return -2;
  }
  if (!flushBuffers(file)) return postWrite(file, "PageFlush", "can't write buffer");
  if (PBcfflush(file.descriptor) == 0) return 0;
  PBpostError("PageFlush", 85, file.path);
  return -2;
}

int postPage(std::string_view function, std::string_view text) {
  errno = 0;
  PBpostError(function, 0, text);
  return -2;
}

int postWrite(const PageFile& file, std::string_view function, std::string_view text) {
  PBpostError(function, 0, text);
  PBpostError(function, 85, file.path);
  return -2;
}

// --- Files ---------------------------------------------------------------------------

int PageOpen(const std::string& path, std::uint32_t& blockSize, int maxBuffers) {
  return pOpen(path, blockSize, maxBuffers, Mode::packed);
}

int PageOpenPlain(const std::string& path, std::uint32_t& blockSize, int maxBuffers) {
  return pOpen(path, blockSize, maxBuffers, Mode::plain);
}

int PageOpenPrivate(const std::string& path, std::uint32_t& blockSize, int maxBuffers) {
  return pOpen(path, blockSize, maxBuffers, Mode::borrowed);
}

int PageClose(int handle) {
  PageFile* file = findPageFile(handle);
  if (file == nullptr) return -2;
  if (isPrivate(*file)) return PageDiscard(handle);
  int result = flushFile(*file);
  if (result == 0) {
    result = shrinkAndClose(*file);
    if (result != 0) PBpostError("PageClose", 85, file->path);
  } else if (file->descriptor >= 0) {
    PBcfclose(file->descriptor);
  }
  replacePageFile(handle, nullptr);
  return result;
}

int PageDiscard(int handle) {
  PageFile* file = findPageFile(handle);
  if (file == nullptr) return -2;
  const int result = discardFile(*file);
  replacePageFile(handle, nullptr);
  return result;
}

int PageFlush(int handle) {
  PageFile* file = findPageFile(handle);
  return file != nullptr ? flushFile(*file) : -2;
}

// The file is closed while it is copied: only then is it as whole as one that
// nobody has open. The next access opens it again.
int PageSaveAs(int handle, const std::string& path) {
  PageFile* file = findPageFile(handle);
  if (file == nullptr || flushFile(*file) != 0) return -2;
  if (path == file->path) return 0;
  if (isOpenPath(path)) return postPage("PageSaveAs", "cpage file " + path + " already opened");
  if (!keepForReaders(path) || shrinkAndClose(*file) != 0 || PBcopyFile(file->path, path) != 0) {
    PBpostError("PageSaveAs", 85, path);
    return -2;
  }
  return 0;
}

const std::string& PagePath(int handle) {
  static const std::string none;
  const PageFile* file = findPageFile(handle);
  return file != nullptr ? file->path : none;
}

std::uint64_t PageStamp(int handle) {
  const PageFile* file = findPageFile(handle);
  return file != nullptr ? file->stamp : nextStamp();
}

std::uint32_t PageBlockSize(int handle) {
  const PageFile* file = findPageFile(handle);
  return file != nullptr ? file->header.blockSize : 0;
}

// --- Blocks --------------------------------------------------------------------------

std::int64_t PageNew(int handle, void*& data) { return PageNewTyped(handle, data, typeNoStruct); }

std::int64_t PageNewTyped(int handle, void*& data, int tag) {
  PageFile* file = findPageFile(handle);
  PageBuffer* buffer = nullptr;
  const std::int64_t block = file != nullptr ? newBlock(*file, buffer, tag) : -1;
  data = block >= 0 ? buffer->data() : nullptr;
  return block;
}

void* PageGet(int handle, std::uint32_t block) {
  PageFile* file = findPageFile(handle);
  PageBuffer* buffer = file != nullptr ? getBuf(*file, block, typeNoStruct) : nullptr;
  if (buffer == nullptr) return nullptr;
  reserveBuf(*file, *buffer);
  return buffer->data();
}

void* PageGetTyped(int handle, std::uint32_t block, int tag) {
  PageFile* file = findPageFile(handle);
  PageBuffer* buffer = file != nullptr ? getBufTyped(*file, block, tag) : nullptr;
  if (buffer == nullptr) return nullptr;
  reserveBuf(*file, *buffer);
  return buffer->data();
}

namespace {

// The buffer around the bytes of a block, if the block is still there.
PageBuffer* bufferAt(const PageFile& file, std::uint32_t block, void* data) {
  PageBuffer* buffer = static_cast<PageBuffer*>(data) - 1;
  return buffer->block == block ? buffer : findBuf(file, block);
}

void makeDirty(PageFile* file, PageBuffer* buffer) {
  if (buffer == nullptr) assertFail(__FILE__, __LINE__);
  buffer->dirty = true;
  file->stamp = nextStamp();
  reserveBuf(*file, *buffer);
}

}  // namespace

void* PageGetAt(int handle, std::uint32_t block, int tag, void* data) {
  PageFile* file = findPageFile(handle);
  PageBuffer* buffer = static_cast<PageBuffer*>(data) - 1;
  if (file == nullptr || buffer->block != block || buffer->typeTag != tag) return nullptr;
  reserveBuf(*file, *buffer);
  return data;
}

void PageDirty(int handle, std::uint32_t block) {
  PageFile* file = findPageFile(handle);
  makeDirty(file, file != nullptr ? findBuf(*file, block) : nullptr);
}

void PageDirtyAt(int handle, std::uint32_t block, void* data) {
  PageFile* file = findPageFile(handle);
  makeDirty(file, file != nullptr ? bufferAt(*file, block, data) : nullptr);
}

void PageRelease(int handle, std::uint32_t block) {
  PageFile* file = findPageFile(handle);
  PageBuffer* buffer = file != nullptr ? findBuf(*file, block) : nullptr;
  if (buffer != nullptr) releaseBuf(*file, *buffer, LruEnd::head);
}

void PageReleaseAt(int handle, std::uint32_t block, void* data) {
  PageFile* file = findPageFile(handle);
  PageBuffer* buffer = file != nullptr ? bufferAt(*file, block, data) : nullptr;
  if (buffer != nullptr) releaseBuf(*file, *buffer, LruEnd::head);
}

void PageReleaseOld(int handle, std::uint32_t block) {
  PageFile* file = findPageFile(handle);
  PageBuffer* buffer = file != nullptr ? findBuf(*file, block) : nullptr;
  if (buffer != nullptr) releaseBuf(*file, *buffer, LruEnd::tail);
}

int PageFree(int handle, std::uint32_t block) {
  PageFile* file = findPageFile(handle);
  return file != nullptr ? freeBlock(*file, block) : -2;
}

std::uint32_t PageCount(int handle) {
  const PageFile* file = findPageFile(handle);
  return file != nullptr ? file->header.numBlocks - file->header.numFree : 0;
}

void PageInfo(int handle, std::uint32_t& numBlocks, std::uint32_t& capacity) {
  const PageFile* file = findPageFile(handle);
  numBlocks = capacity = 0;
  if (file == nullptr) return;
  numBlocks = file->header.numBlocks;
  capacity = static_cast<std::uint32_t>(std::min<std::int64_t>(
      capacityOf(file->header.blockSize), std::numeric_limits<std::int32_t>::max()));
}
