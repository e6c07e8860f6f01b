// The rewrite of a pair of files: without dead records, and from the old form into
// the new. Both new files are made beside the old ones and put in their places when
// they are whole, one right after the other.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "pvb/property_internal.h"
#include "storage/cio.h"
#include "storage/swapendian.h"

namespace {

constexpr std::size_t kStep = 1024;  // bytes of a value copied in one go

// A descriptor that is closed with its owner.
class OpenValues {
 public:
  explicit OpenValues(int descriptor) : descriptor_(descriptor) {}
  ~OpenValues() { close(); }
  OpenValues(const OpenValues&) = delete;
  OpenValues& operator=(const OpenValues&) = delete;

  int get() const { return descriptor_; }
  int close() {
    const int descriptor = std::exchange(descriptor_, -1);
    return descriptor >= 0 ? PBcfclose(descriptor) : 0;
  }

 private:
  int descriptor_;
};

// The same for a block file.
class OpenLists {
 public:
  explicit OpenLists(const std::string& path) {
    std::uint32_t blockSize = kListBlockSize;
    handle_ = PageOpen(path, blockSize, 1);
  }
  ~OpenLists() { close(); }
  OpenLists(const OpenLists&) = delete;
  OpenLists& operator=(const OpenLists&) = delete;

  int get() const { return handle_; }
  int close() {
    const int handle = std::exchange(handle_, -1);
    return handle >= 0 ? PageClose(handle) : 0;
  }

 private:
  int handle_ = -1;
};

class Rewrite {
 public:
  Rewrite(const PropValues& from, int to, std::string_view listsPath)
      : from_(from), to_(to), listsPath_(listsPath), recordsLeft_(from.mostRecords()) {}

  bool run(int lists);

 private:
  bool rewriteList(PropList& list);
  bool copyRecord(const PropRecord& record, std::uint32_t& head);
  bool copyValue(const PropRecord& record, std::uint32_t length);
  bool trim(int lists, std::uint32_t firstUnused, std::uint32_t numBlocks);
  bool fail(int code) {
    PBpostError("stripGarbage", code, listsPath_);
    return false;
  }

  PropValues from_;
  int to_;
  std::string_view listsPath_;
  std::uint64_t end_ = kPropertyHeaderSize;  // of the new values
  // A record belongs to one list and a value to one record, so no more of either is
  // copied than the old file can hold, whatever its links say.
  std::uint64_t recordsLeft_;
  std::uint64_t valueBytes_ = 0;
};

bool Rewrite::run(int lists) {
  std::uint32_t numBlocks = 0;
  std::uint32_t capacity = 0;
  PageInfo(lists, numBlocks, capacity);
  std::uint32_t firstUnused = 0;
  for (std::uint32_t block = 0; block < numBlocks; ++block) {
    ListHandle list = ListHandle::get(lists, block, typePropList);
    if (!list) return fail(87);
    if (list->inUse == 0) continue;
    if (!rewriteList(*list)) return false;
    list.markDirty();
    firstUnused = block + 1;
  }
  return trim(lists, firstUnused, numBlocks);
}

// The record written last is the list's new head, so its order reverses.
bool Rewrite::rewriteList(PropList& list) {
  PropWalk walk(from_, list.head);
  list.head = kNoRecord;
  while (walk.next()) {
    if (recordsLeft_ == 0) {
      errno = 0;
      return fail(87);
    }
    --recordsLeft_;
    if (walk.record().valid != 0 && !copyRecord(walk.record(), list.head)) return false;
  }
  return !walk.failed();
}

bool Rewrite::copyRecord(const PropRecord& record, std::uint32_t& head) {
  const std::int64_t length = propValueLength(from_, record);
  if (length < 0) return false;
  const auto bytes = static_cast<std::uint64_t>(length);
  valueBytes_ += bytes;
  errno = 0;
  if (valueBytes_ > static_cast<std::uint64_t>(from_.size)) return fail(87);
  if (end_ + bytes + sizeof record >= kNoRecord) return fail(85);
  PropRecord copy;
  copy.next = head;
  copy.key = record.key;
  if (length > 0) {
    copy.value = static_cast<std::uint32_t>(end_);
    copy.length = static_cast<std::uint32_t>(length);
    if (!copyValue(record, copy.length)) return false;
    end_ += bytes;
  }
  if (!propWriteRecord(to_, copy)) return fail(85);
  head = static_cast<std::uint32_t>(end_);
  end_ += sizeof copy;
  return true;
}

bool Rewrite::copyValue(const PropRecord& record, std::uint32_t length) {
  std::array<char, kStep> piece;
  for (std::uint32_t at = 0; at < length;) {
    const std::size_t size = std::min<std::size_t>(kStep, length - at);
    const std::span<char> bytes(piece.data(), size);
    if (!propReadBytes(from_, std::uint64_t{record.value} + at, bytes)) return false;
    if (PBcfwrite(to_, bytes.data(), size) != static_cast<std::int64_t>(size)) return fail(85);
    at += static_cast<std::uint32_t>(size);
  }
  return true;
}

// Gives back the free lists at the end of the block file. Where the file itself has
// free blocks, which no rewrite leaves, those at the end may be among them.
bool Rewrite::trim(int lists, std::uint32_t firstUnused, std::uint32_t numBlocks) {
  if (PageCount(lists) != numBlocks) return true;
  while (numBlocks > firstUnused) {
    if (PageFree(lists, --numBlocks) != 0) return fail(85);
  }
  return true;
}

int fail(int code, std::string_view listsPath) {
  PBpostError("stripGarbage", code, listsPath);
  return -2;
}

// A file that is plain stays plain.
int openNewValues(const std::string& path, bool compressed) {
  const int descriptor = compressed ? PBcfopen(path, kCfNew) : PBcfopenPlain(path, kCfNew);
  if (descriptor >= 0 && !propWriteHeader(descriptor)) {
    PBcfdiscard(descriptor);
    return -1;
  }
  return descriptor;
}

// Writes the new pair, complete and closed.
int makeNewPair(const std::string& lists, const std::string& newLists, const std::string& values,
                const std::string& newValues) {
  OpenValues from(PBcfopen(values, kCfRead));
  if (from.get() < 0 || PBcopyFile(lists, newLists) != 0) return fail(81, lists);
  PropValues old;
  if (propValuesOpen(from.get(), values, old) != 0) return fail(87, lists);
  OpenLists blocks(newLists);
  OpenValues to(openNewValues(newValues, PBcfisCompressed(from.get())));
  if (blocks.get() < 0 || to.get() < 0) return fail(81, lists);
  if (!Rewrite(old, to.get(), lists).run(blocks.get())) return -2;
  if (to.close() != 0 || blocks.close() != 0 || from.close() != 0) return fail(78, lists);
  return 0;
}

// In one step: `from` is either gone or still there and to be removed.
int putInPlace(const std::string& from, const std::string& to) {
  if (platform().rename(from.c_str(), to.c_str()) == 0) return 0;
  return errno == EXDEV ? PBcopyFile(from, to) : -2;
}

}  // namespace

int propStrip(const std::string& lists, const std::string& values, const std::string& newValues) {
  const TempFile listsFile(lists + ".strip");
  const TempFile valuesFile(newValues);
  const TempFile listsBackup(lists + ".old");
  if (makeNewPair(lists, listsFile.path(), values, newValues) != 0) return -2;
  if (PBcopyFile(lists, listsBackup.path()) != 0) return fail(85, lists);
  if (putInPlace(listsFile.path(), lists) != 0) return fail(85, lists);
  if (putInPlace(newValues, values) == 0) return 0;
  const int error = errno;
  putInPlace(listsBackup.path(), lists);
  errno = error;
  return fail(85, lists);
}
