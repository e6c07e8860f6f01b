// Block files written anew with another block size, and blocks copied between
// files.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/temp_directory.h"
#include "storage/cio.h"
#include "storage/page_internal.h"
#include "storage/swapendian.h"

namespace {

// --- Copying -------------------------------------------------------------------------

// A new block with the bytes of `source`, as many as fit, and its tag, so that
// both reach the disk in the same order. It is released.
std::int64_t appendCopy(PageFile& to, PageBuffer& source, std::size_t sourceSize) {
  PageBuffer* copy = nullptr;
  const std::int64_t block = newBlock(to, copy, source.typeTag);
  if (block < 0) return -1;
  const std::size_t size = std::min<std::size_t>(sourceSize, to.header.blockSize);
  std::memcpy(copy->data(), source.data(), size);
  copy->dirty = true;
  releaseBuf(to, *copy, LruEnd::head);
  return block;
}

// The source block is held meanwhile, and afterwards if it was before.
std::int64_t copyBlock(PageFile& from, PageFile& to, PageBuffer* source) {
  if (source == nullptr) return -1;
  const bool held = source->reserved;
  reserveBuf(from, *source);
  const std::int64_t block = appendCopy(to, *source, from.header.blockSize);
  if (!held) releaseBuf(from, *source, LruEnd::head);
  return block;
}

// --- Resizing ------------------------------------------------------------------------

constexpr const char* kTempPrefix = "mvk";

// A name in the directory that was the temporary one when the file was opened.
std::string tempNameFor(const PageFile& file) {
  std::string name;
  do {
    const std::filesystem::path proposed = PBtempFileName(kTempPrefix);
    name = (std::filesystem::path(file.tempDir) / proposed.filename()).string();
  } while (fileExists(name));
  errno = 0;
  return name;
}

// A file under construction: closed and removed unless it is kept.
class DraftFile {
 public:
  explicit DraftFile(std::unique_ptr<PageFile> file) : file_(std::move(file)) {}
  DraftFile(const DraftFile&) = delete;
  DraftFile& operator=(const DraftFile&) = delete;
  ~DraftFile() {
    if (!file_) return;
    const int error = errno;
    if (file_->descriptor >= 0) {
      PBcfdiscard(file_->descriptor);
    } else if (file_->onDisk) {
      platform().remove(file_->path.c_str());
    }
    errno = error;
  }

  PageFile* operator->() const { return file_.get(); }
  PageFile& operator*() const { return *file_; }
  explicit operator bool() const { return file_ != nullptr; }
  std::unique_ptr<PageFile> keep() { return std::move(file_); }

 private:
  std::unique_ptr<PageFile> file_;
};

// Block numbers stay, because the new file has no free list while it is filled.
// The links of free blocks are copied like all else.
bool copyBlocks(PageFile& from, PageFile& to, int tag) {
  for (std::uint32_t block = 0; block < from.header.numBlocks; ++block) {
    PageBuffer* source = getBuf(from, block, tag);
    if (source == nullptr || appendCopy(to, *source, from.header.blockSize) != block) return false;
    releaseBuf(from, *source, LruEnd::head);
  }
  to.header.firstFree = from.header.firstFree;
  to.header.lastFree = from.header.lastFree;
  to.header.numFree = from.header.numFree;
  to.freeHint = from.freeHint;
  to.headerDirty = true;
  return true;
}

// A draft that can only be copied is removed afterwards; one that can't be
// removed is no reason to refuse the new file, which is in force by then.
bool moveOver(const std::string& from, const std::string& to) {
  if (platform().rename(from.c_str(), to.c_str()) == 0) return true;
  if (errno != EXDEV || PBcopyFile(from, to) != 0) return false;
  TempFile(from).remove();
  return true;
}

// Makes the draft whole on disk, then puts it where the old file is. The old
// descriptor is closed before that, with nothing left to be written to its name.
bool putInPlace(PageFile& old, PageFile& draft) {
  if (flushFile(draft) != 0) return false;
  if (PBcfclose(std::exchange(draft.descriptor, kNotOpen)) != 0) return false;
  if (old.descriptor >= 0) {
    if (PBcfflush(old.descriptor) != 0) return false;
    PBcfclose(std::exchange(old.descriptor, kNotOpen));
  }
  return old.borrowed || moveOver(draft.path, old.path);
}

// The new file is known by the old one's path. Someone else's file keeps that, and the
// draft is the private copy.
void takeName(PageFile& old, PageFile& draft) {
  if (old.borrowed) {
    draft.copy = TempFile(draft.path);
    return;
  }
  draft.copy = std::move(old.copy);
  draft.path = old.path;
}

int resize(int handle, std::uint32_t newBlockSize, int tag) {
  PageFile* old = findPageFile(handle);
  if (old == nullptr) return -2;
  DraftFile draft(makePageFile(tempNameFor(*old), newBlockSize, static_cast<int>(old->maxBuffers)));
  if (!draft) return -2;
  draft->compressed = old->compressed;
  const bool written = copyBlocks(*old, *draft, tag) &&
                       ((!old->onDisk && !draft->onDisk) || putInPlace(*old, *draft));
  if (!written) {
    PBpostError("PageResize", 0, "can't write " + old->path + " with another block size");
    return -2;
  }
  takeName(*old, *draft);
  replacePageFile(handle, draft.keep());
  return 0;
}

}  // namespace

int PageResize(int handle, std::uint32_t newBlockSize) {
  return resize(handle, newBlockSize, typeNoStruct);
}

int PageResizeTyped(int handle, std::uint32_t newBlockSize, int tag) {
  return resize(handle, newBlockSize, tag);
}

std::int64_t PageCopyBlock(int from, int to, std::uint32_t block) {
  PageFile* source = findPageFile(from);
  PageFile* target = findPageFile(to);
  if (source == nullptr || target == nullptr) return -1;
  return copyBlock(*source, *target, getBuf(*source, block, typeNoStruct));
}

std::int64_t PageCopyBlockTyped(int from, int to, std::uint32_t block, int tag) {
  PageFile* source = findPageFile(from);
  PageFile* target = findPageFile(to);
  if (source == nullptr || target == nullptr) return -1;
  return copyBlock(*source, *target, getBufTyped(*source, block, tag));
}
