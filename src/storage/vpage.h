#pragma once

// Variable page files: numbered pages of any size in one file, as records behind a
// header, with an index at the end while the file is closed. They hold the scan
// state vectors of a database and carry the blocks of compressed files.
//
// All numbers are stored most significant byte first; a page's own by its tag.
//
//   OFFSET  SIZE  FIELD
//      0      1   host code 11
//      1      4   0
//      5      4   cookie 0xF00FDADA
//      9      8   guard 0xDEC0DE640FF1CE32
//     17      8   offset of the index record's head, all ones for none
//     25      8   bytes free
//     33      8   bytes used
//     41      8   next page number
//     49      8   guard
//     57          records: u32 page id, u32 size, then so many bytes
//
// Page id 0xFFFFFFFF marks dead space: a deleted or moved page, or a stale index.
// The index is such a record too, so a file whose header is stale can be scanned.
// Its bytes are runs: u64 first page id, a u64 offset for each page in a row, u64
// all ones; one more u64 all ones stands where the next run would begin.
//
// Invariant: while the index offset on disk is valid, the index agrees with the
// pages; it is dropped before the first change.
//
// Every call leaves its outcome in VPageError. Nothing is posted.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

enum VPageErrorCode : int {
  kVPageOk = 0,
  kVPageCantOpen = 1,
  kVPageBadHost = 2,
  kVPageBadFile = 3,  // bad cookie, empty file, a record that disagrees with the index
  kVPageCantRead = 4,
  kVPageCantWrite = 5,
  kVPageNoMemory = 6,
  kVPageNoBuffer = 7,  // every buffer is reserved
  kVPageNoPage = 8,
  kVPageCantClose = 9,
};
// The outcome of the last call of this module; errno holds the system's reason.
extern int VPageError;

struct VPageFile;
struct VPageFileDelete {
  void operator()(VPageFile* file) const;
};
// Dropping one without VPageClose writes nothing more.
using VPageFilePtr = std::unique_ptr<VPageFile, VPageFileDelete>;

// Opens for update, or creates. Null on failure.
VPageFilePtr VPageOpen(const std::string& path, int numBuffers);
// The same, but always a new, empty file.
VPageFilePtr VPageCreate(const std::string& path, int numBuffers);
// Opens an existing file without ever writing to it; changes fail with
// kVPageCantWrite. A missing index is found by scanning, in memory only.
VPageFilePtr VPageOpenRead(const std::string& path, int numBuffers);
// Writes dirty pages and index and closes; 0 or -2. The file is gone in any case.
int VPageClose(VPageFilePtr file);
// Closes and deletes the file, writing nothing.
int VPageDiscard(VPageFilePtr file);

// A new page of `size` bytes, reserved and dirty, not cleared: its id, or -1.
std::int64_t VPageNew(VPageFile& file, std::size_t size, void*& data);
std::int64_t VPageNewTyped(VPageFile& file, std::size_t size, void*& data, int tag);
// The page's bytes, reserved; null on failure.
void* VPageGet(VPageFile& file, std::uint32_t id);
void* VPageGetTyped(VPageFile& file, std::uint32_t id, int tag);
// The same with the size changed; another size gives the page a new place.
void* VPageResize(VPageFile& file, std::uint32_t id, std::size_t size);
void* VPageResizeTyped(VPageFile& file, std::uint32_t id, std::size_t size, int tag);
// 0, or -2 when it was to be written now and couldn't. Nothing for a page that
// isn't cached.
int VPageDirty(VPageFile& file, std::uint32_t id, bool writeNow);
void VPageRelease(VPageFile& file, std::uint32_t id);
void VPageReleaseOld(VPageFile& file, std::uint32_t id);
// Bytes, or -1.
std::int64_t VPageSize(VPageFile& file, std::uint32_t id);
int VPageDelete(VPageFile& file, std::uint32_t id);
// The lowest page id above `id` (-1: the first), or -1.
std::int64_t VPageNext(VPageFile& file, std::int64_t id);

// Squeezes dead space out; unless `force`, only when more than half as much is
// free as used.
int VPageRepack(VPageFile& file, bool force);
int VPageFlush(VPageFile& file);
int VPageSaveAs(VPageFile& file, const std::string& path);
const std::string& VPagePath(const VPageFile& file);
// Whether anything was changed since opening.
bool VPageChanged(const VPageFile& file);

// Prints header, buffers and index for diagnosis.
void VPageDump(VPageFile& file, FILE* stream);

// Walks the records and the index on disk against each other and gives a line for
// each finding, "INDEX OK" or "INDEX MISSING" first (a missing index is no fault).
// The count of faults, or -1 when the file can't be read.
int VPageCheck(const std::string& path, const std::function<void(std::string_view)>& line);
