#include "storage/vpage.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>

#include "storage/swapendian.h"
#include "storage/vpage_internal.h"

int VPageError = kVPageOk;

namespace {

using BufferPlace = std::list<VPageBuffer>::iterator;

int status(bool good) { return good ? 0 : -2; }

// --- Opening -------------------------------------------------------------------------

VPageFilePtr openWith(const std::string& path, int numBuffers, int flags) {
  VPageError = kVPageOk;
  VPageFilePtr file(new VPageFile);
  file->path = path;
  file->maxBuffers = static_cast<std::size_t>(std::max(numBuffers, 1));
  file->writable = (flags & O_ACCMODE) != O_RDONLY;
  file->stream = PlainFile::open(path, flags);
  if (file->stream == nullptr) vpageFail(kVPageCantOpen);
  return file;
}

VPageFilePtr load(VPageFilePtr file) {
  if (file->stream == nullptr || vpageLoad(*file)) {
    return file->stream != nullptr ? std::move(file) : nullptr;
  }
  const int reason = errno;
  file->stream->discard();
  errno = reason;
  return nullptr;
}

// --- Buffers -------------------------------------------------------------------------

BufferPlace findBuffer(VPageFile& file, std::uint32_t id) {
  return std::find_if(file.buffers.begin(), file.buffers.end(),
                      [&](const VPageBuffer& buffer) { return buffer.id == id; });
}

void moveToHead(VPageFile& file, BufferPlace place) {
  file.buffers.splice(file.buffers.begin(), file.buffers, place);
}

void forget(VPageFile& file, BufferPlace place) {
  place->id = -1;
  place->dirty = false;
  place->reserved = false;
  file.buffers.splice(file.buffers.end(), file.buffers, place);
}

// Between the order of the host and that of the disk.
void swapToDisk(VPageBuffer& buffer) {
  const int tag = buffer.tag == typeIndexPage ? typeIndexPageWrite : buffer.tag;
  if (tag != 0) SwapBuffer(buffer.data.get(), tag, buffer.size);
}
void swapFromDisk(VPageBuffer& buffer) {
  if (buffer.tag != 0) SwapBuffer(buffer.data.get(), buffer.tag, buffer.size);
}

bool writeRecord(VPageFile& file, std::uint64_t offset, VPageBuffer& buffer) {
  swapToDisk(buffer);
  const bool good =
      vpageWriteHead(*file.stream, offset, {static_cast<std::uint32_t>(buffer.id), buffer.size}) &&
      vpageWriteAt(*file.stream, offset + kRecordHeadSize, buffer.data.get(), buffer.size);
  swapFromDisk(buffer);
  return good;
}

// A page without a place goes to the end. On failure it stays as it was, dirty.
bool writeBuffer(VPageFile& file, VPageBuffer& buffer) {
  if (!buffer.dirty) return true;
  VPageTree::Entry* entry = file.tree.find(static_cast<std::uint32_t>(buffer.id));
  const bool placed = entry->offset != kNoOffset;
  if (!placed && !vpagePrepareChange(file)) return false;
  const std::uint64_t offset = placed ? entry->offset : file.end;
  if (!writeRecord(file, offset, buffer)) return false;
  if (!placed) {
    entry->offset = offset;
    file.end = offset + kRecordHeadSize + buffer.size;
    file.bytesUsed += buffer.size;
  }
  buffer.dirty = false;
  return true;
}

bool growTo(VPageBuffer& buffer, std::size_t size) {
  if (buffer.capacity >= size) return true;
  void* block = platform().reallocate(buffer.data.get(), size);
  if (block == nullptr) return vpageFail(kVPageNoMemory);
  static_cast<void>(buffer.data.release());
  buffer.data.reset(static_cast<std::uint8_t*>(block));
  buffer.capacity = size;
  return true;
}

// An empty buffer of that size at the head of the list, or null.
VPageBuffer* freeBuffer(VPageFile& file, std::uint32_t size) {
  const auto found = std::find_if(file.buffers.rbegin(), file.buffers.rend(),
                                  [](const VPageBuffer& buffer) { return !buffer.reserved; });
  BufferPlace place = found == file.buffers.rend() ? file.buffers.end() : std::prev(found.base());
  const bool empty = place != file.buffers.end() && place->id == -1;
  if (!empty && file.buffers.size() < file.maxBuffers) {
    place = file.buffers.emplace(file.buffers.end());
  }
  if (place == file.buffers.end()) {
    vpageFail(kVPageNoBuffer);
    return nullptr;
  }
  if (!writeBuffer(file, *place)) return nullptr;
  forget(file, place);
  if (!growTo(*place, size)) return nullptr;
  place->size = size;
  moveToHead(file, place);
  return &*place;
}

void give(VPageBuffer& buffer, std::uint32_t id, int tag) {
  buffer.id = id;
  buffer.tag = tag;
  buffer.reserved = true;
}

// What is cached becomes what reading it with the other tag would give.
void retag(VPageBuffer& buffer, int tag) {
  if (buffer.tag == tag) return;
  swapToDisk(buffer);
  buffer.tag = tag;
  swapFromDisk(buffer);
}

VPageBuffer* readPage(VPageFile& file, const VPageTree::Entry& entry, int tag) {
  VPageRecordHead head = {};
  if (!vpageReadPageHead(file, entry, head)) return nullptr;
  VPageBuffer* buffer = freeBuffer(file, head.size);
  if (buffer == nullptr) return nullptr;
  if (!vpageReadAt(*file.stream, entry.offset + kRecordHeadSize, buffer->data.get(), head.size)) {
    return nullptr;
  }
  give(*buffer, entry.id, tag);
  swapFromDisk(*buffer);
  return buffer;
}

// The page's buffer at the head of the list, reserved; null on failure.
VPageBuffer* getPage(VPageFile& file, std::uint32_t id, int tag) {
  const VPageTree::Entry* entry = file.tree.find(id);
  if (entry == nullptr) {
    vpageFail(kVPageNoPage);
    return nullptr;
  }
  const BufferPlace place = findBuffer(file, id);
  if (place == file.buffers.end()) return readPage(file, *entry, tag);
  moveToHead(file, place);
  retag(*place, tag);
  place->reserved = true;
  return &*place;
}

bool isPageSize(std::size_t size) {
  if (size > 0 && size <= std::numeric_limits<std::uint32_t>::max()) return true;
  return vpageFail(kVPageBadFile);
}

// The page loses its place; what it grows by is cleared.
bool changeSize(VPageFile& file, VPageBuffer& buffer, std::uint32_t size) {
  if (!vpagePrepareChange(file) || !growTo(buffer, size)) return false;
  VPageTree::Entry* entry = file.tree.find(static_cast<std::uint32_t>(buffer.id));
  if (entry->offset != kNoOffset) {
    if (!vpageKillRecord(file, entry->offset, buffer.size)) return false;
    entry->offset = kNoOffset;
  }
  if (size > buffer.size) std::memset(buffer.data.get() + buffer.size, 0, size - buffer.size);
  buffer.size = size;
  buffer.dirty = true;
  return true;
}

void release(VPageFile& file, std::uint32_t id, bool old) {
  VPageError = kVPageOk;
  const BufferPlace place = findBuffer(file, id);
  if (place == file.buffers.end()) return;
  place->reserved = false;
  file.buffers.splice(old ? file.buffers.end() : file.buffers.begin(), file.buffers, place);
}

bool writeAll(VPageFile& file) {
  if (!file.writable) return true;
  if (!vpageWriteDirty(file) || !vpageWriteIndex(file)) return false;
  return file.stream->flush() == 0 || vpageFail(kVPageCantWrite);
}

}  // namespace

// --- Files ---------------------------------------------------------------------------

void VPageFileDelete::operator()(VPageFile* file) const {
  if (file->stream) file->stream->discard();
  delete file;
}

VPageFilePtr VPageOpen(const std::string& path, int numBuffers) {
  VPageFilePtr file = openWith(path, numBuffers, O_RDWR);
  if (file->stream == nullptr && errno == ENOENT) return VPageCreate(path, numBuffers);
  return load(std::move(file));
}

VPageFilePtr VPageCreate(const std::string& path, int numBuffers) {
  VPageFilePtr file = openWith(path, numBuffers, O_RDWR | O_CREAT | O_TRUNC);
  if (file->stream == nullptr) return nullptr;
  file->changed = true;
  return vpageWriteHeader(*file, *file->stream) ? std::move(file) : nullptr;
}

VPageFilePtr VPageOpenRead(const std::string& path, int numBuffers) {
  return load(openWith(path, numBuffers, O_RDONLY));
}

int VPageClose(VPageFilePtr file) {
  VPageError = kVPageOk;
  const bool written = writeAll(*file);
  const int reason = errno;
  const bool closed = file->stream->close() == 0;
  if (written && !closed) vpageFail(kVPageCantClose);
  if (!written) errno = reason;
  return status(written && closed);
}

int VPageDiscard(VPageFilePtr file) {
  VPageError = kVPageOk;
  const bool closed = file->stream->discard() == 0;
  const bool removed = platform().remove(file->path.c_str()) == 0;
  return status((closed && removed) || vpageFail(kVPageCantClose));
}

int VPageFlush(VPageFile& file) {
  VPageError = kVPageOk;
  return status(writeAll(file));
}

const std::string& VPagePath(const VPageFile& file) { return file.path; }

bool VPageChanged(const VPageFile& file) { return file.changed; }

bool vpageWriteDirty(VPageFile& file) {
  return std::all_of(file.buffers.begin(), file.buffers.end(),
                     [&](VPageBuffer& buffer) { return writeBuffer(file, buffer); });
}

// --- Pages ---------------------------------------------------------------------------

std::int64_t VPageNew(VPageFile& file, std::size_t size, void*& data) {
  return VPageNewTyped(file, size, data, typeNoStruct);
}

std::int64_t VPageNewTyped(VPageFile& file, std::size_t size, void*& data, int tag) {
  VPageError = kVPageOk;
  data = nullptr;
  if (!isPageSize(size)) return -1;
  if (file.nextPage >= kMaxNextPage) {
    vpageFail(kVPageBadFile);
    return -1;
  }
  if (!vpagePrepareChange(file)) return -1;
  VPageBuffer* buffer = freeBuffer(file, static_cast<std::uint32_t>(size));
  if (buffer == nullptr) return -1;
  const auto id = static_cast<std::uint32_t>(file.nextPage++);
  file.tree.append(id, kNoOffset);
  give(*buffer, id, tag);
  buffer->dirty = true;
  data = buffer->data.get();
  return id;
}

void* VPageGet(VPageFile& file, std::uint32_t id) { return VPageGetTyped(file, id, typeNoStruct); }

void* VPageGetTyped(VPageFile& file, std::uint32_t id, int tag) {
  VPageError = kVPageOk;
  VPageBuffer* buffer = getPage(file, id, tag);
  return buffer != nullptr ? buffer->data.get() : nullptr;
}

void* VPageResize(VPageFile& file, std::uint32_t id, std::size_t size) {
  return VPageResizeTyped(file, id, size, typeNoStruct);
}

// A page that couldn't be changed isn't left reserved.
void* VPageResizeTyped(VPageFile& file, std::uint32_t id, std::size_t size, int tag) {
  VPageError = kVPageOk;
  if (!isPageSize(size)) return nullptr;
  const BufferPlace cached = findBuffer(file, id);
  const bool reserved = cached != file.buffers.end() && cached->reserved;
  VPageBuffer* buffer = getPage(file, id, tag);
  if (buffer == nullptr) return nullptr;
  if (buffer->size == size || changeSize(file, *buffer, static_cast<std::uint32_t>(size))) {
    return buffer->data.get();
  }
  buffer->reserved = reserved;
  return nullptr;
}

int VPageDirty(VPageFile& file, std::uint32_t id, bool writeNow) {
  VPageError = kVPageOk;
  const BufferPlace place = findBuffer(file, id);
  if (place == file.buffers.end()) return 0;
  if (!file.writable) {
    errno = EBADF;
    return status(vpageFail(kVPageCantWrite));
  }
  place->dirty = true;
  file.changed = true;
  moveToHead(file, place);
  return status(!writeNow || writeBuffer(file, *place));
}

void VPageRelease(VPageFile& file, std::uint32_t id) { release(file, id, false); }

void VPageReleaseOld(VPageFile& file, std::uint32_t id) { release(file, id, true); }

std::int64_t VPageSize(VPageFile& file, std::uint32_t id) {
  VPageError = kVPageOk;
  const VPageTree::Entry* entry = file.tree.find(id);
  if (entry == nullptr) vpageFail(kVPageNoPage);
  if (entry == nullptr) return -1;
  const BufferPlace place = findBuffer(file, id);
  if (place != file.buffers.end()) return place->size;
  VPageRecordHead head = {};
  return vpageReadPageHead(file, *entry, head) ? std::int64_t{head.size} : -1;
}

int VPageDelete(VPageFile& file, std::uint32_t id) {
  VPageError = kVPageOk;
  const VPageTree::Entry* entry = file.tree.find(id);
  if (entry == nullptr) return status(vpageFail(kVPageNoPage));
  if (!vpagePrepareChange(file)) return -2;
  if (entry->offset != kNoOffset) {
    VPageRecordHead head = {};
    if (!vpageReadPageHead(file, *entry, head)) return -2;
    if (!vpageKillRecord(file, entry->offset, head.size)) return -2;
  }
  if (const BufferPlace place = findBuffer(file, id); place != file.buffers.end()) {
    forget(file, place);
  }
  file.tree.erase(id);
  return 0;
}

std::int64_t VPageNext(VPageFile& file, std::int64_t id) {
  VPageError = kVPageOk;
  const VPageTree::Entry* entry = file.tree.next(id);
  return entry != nullptr ? std::int64_t{entry->id} : -1;
}
