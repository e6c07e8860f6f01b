// Repacking, saving and looking at whole files of variable pages.

#include <fcntl.h>
#include <fmt/printf.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "base/file_copy.h"
#include "storage/vpage_internal.h"

namespace {

// --- Repacking -----------------------------------------------------------------------

constexpr std::size_t kCopyBuffer = 1024;  // at first; it grows to the largest page

// The pages that have a place, in file order.
std::vector<VPageTree::Entry> placedPages(const VPageTree& tree) {
  std::vector<VPageTree::Entry> pages;
  for (const auto* entry = tree.next(-1); entry != nullptr; entry = tree.next(entry->id)) {
    if (entry->offset != kNoOffset) pages.push_back(*entry);
  }
  std::sort(pages.begin(), pages.end(),
            [](const auto& a, const auto& b) { return a.offset < b.offset; });
  return pages;
}

// Copies the records one behind the other; each entry's offset becomes the new
// one, `end` where they end. Records that overlap aren't multiplied.
bool copyRecords(VPageFile& from, PlainFile& to, std::vector<VPageTree::Entry>& pages,
                 std::uint64_t& end) {
  std::vector<std::uint8_t> data(kCopyBuffer);
  std::uint64_t free = kVPageHeaderSize;  // where the next record may begin
  end = kVPageHeaderSize;
  for (VPageTree::Entry& page : pages) {
    VPageRecordHead head = {};
    if (!vpageReadPageHead(from, page, head)) return false;
    if (page.offset < free) return vpageFail(kVPageBadFile);
    free = page.offset + kRecordHeadSize + head.size;
    if (data.size() < head.size) data.resize(head.size);
    if (!vpageReadAt(*from.stream, page.offset + kRecordHeadSize, data.data(), head.size) ||
        !vpageWriteHead(to, end, head) ||
        !vpageWriteAt(to, end + kRecordHeadSize, data.data(), head.size)) {
      return false;
    }
    page.offset = end;
    end += kRecordHeadSize + head.size;
  }
  return true;
}

void cantWriteTemp(const std::string& path) {
  fmt::fprintf(stderr, "VPageRepack: Can't write temp file '%s'.\n", path);
}

// The new file under its temporary name, header written; null after the line.
std::unique_ptr<PlainFile> startFile(VPageFile& file, const std::string& path) {
  std::unique_ptr<PlainFile> stream = PlainFile::open(path, O_RDWR | O_CREAT | O_TRUNC);
  if (stream == nullptr) {
    cantWriteTemp(path);
    vpageFail(kVPageCantOpen);
    return nullptr;
  }
  const std::uint64_t bytesFree = std::exchange(file.bytesFree, 0);
  const bool good = vpageWriteHeader(file, *stream) && stream->flush() == 0;
  file.bytesFree = bytesFree;
  if (good) return stream;
  cantWriteTemp(path);
  stream->discard();
  vpageFail(kVPageCantWrite);
  return nullptr;
}

// The file that was opened under the temporary name is the file from now on.
void adopt(VPageFile& file, std::unique_ptr<PlainFile> stream,
           const std::vector<VPageTree::Entry>& pages, std::uint64_t end) {
  file.stream->discard();
  file.stream = std::move(stream);
  file.bytesFree = 0;
  file.end = end;
  for (const VPageTree::Entry& page : pages) file.tree.find(page.id)->offset = page.offset;
}

// The old file stays as it is until the new one is whole.
bool repack(VPageFile& file) {
  if (!vpagePrepareChange(file)) return false;
  if (file.stream->flush() != 0) return vpageFail(kVPageCantWrite);
  TempFile temp(file.path + ".tmp");
  std::unique_ptr<PlainFile> stream = startFile(file, temp.path());
  if (stream == nullptr) return false;
  std::vector<VPageTree::Entry> pages = placedPages(file.tree);
  std::uint64_t end = 0;
  bool good = copyRecords(file, *stream, pages, end);
  if (good &&
      (stream->flush() != 0 || platform().rename(temp.path().c_str(), file.path.c_str()) != 0)) {
    good = vpageFail(kVPageCantWrite);
  }
  if (!good) {
    stream->discard();
    return false;
  }
  temp.release();
  adopt(file, std::move(stream), pages, end);
  return true;
}

// --- Checking ------------------------------------------------------------------------

std::string hex(std::uint64_t offset) { return fmt::sprintf("%016x", offset); }

struct FoundRecord {
  std::uint32_t id;
  std::uint64_t offset;
};

// Both by page id, once each.
int compare(const std::vector<FoundRecord>& index, const std::vector<FoundRecord>& records,
            const std::function<void(std::string_view)>& line) {
  int faults = 0;
  const auto report = [&](const std::string& text) {
    line(text);
    ++faults;
  };
  auto record = records.begin();
  const auto missing = [&] {
    report(fmt::sprintf("INDEX MISSING ENTRY for page: %d  offset: %s", record->id,
                        hex(record->offset)));
    ++record;
  };
  for (const FoundRecord& entry : index) {
    while (record != records.end() && record->id < entry.id) missing();
    if (record == records.end() || record->id != entry.id) {
      report(fmt::sprintf("INDEX EXTRA ENTRY: page: %d  offset: %s  (page not in file)", entry.id,
                          hex(entry.offset)));
      continue;
    }
    if (record->offset != entry.offset) {
      report(fmt::sprintf("INDEX CORRUPT ENTRY: page: %d  expected offset: %s ; found %s", entry.id,
                          hex(record->offset), hex(entry.offset)));
    }
    ++record;
  }
  while (record != records.end()) missing();
  return faults;
}

// The live records; the later of two of one page counts.
bool collectRecords(VPageFile& file, std::uint64_t length, std::vector<FoundRecord>& records,
                    std::uint64_t& stop) {
  const auto take = [&](std::uint64_t offset, VPageRecordHead head) {
    if (head.id != kDeadPage) records.push_back({head.id, offset});
    return true;
  };
  if (!vpageWalkRecords(*file.stream, length, stop, take)) return false;
  std::stable_sort(records.begin(), records.end(),
                   [](const FoundRecord& a, const FoundRecord& b) { return a.id < b.id; });
  const auto keep =
      std::unique(records.rbegin(), records.rend(),
                  [](const FoundRecord& a, const FoundRecord& b) { return a.id == b.id; });
  records.erase(records.begin(), keep.base());
  return true;
}

}  // namespace

int VPageRepack(VPageFile& file, bool force) {
  VPageError = kVPageOk;
  if (!force && file.bytesFree <= file.bytesUsed / 2) return 0;
  return repack(file) ? 0 : -2;
}

int VPageSaveAs(VPageFile& file, const std::string& path) {
  if (VPageFlush(file) != 0) return -2;
  if (PBcopyFile(file.path, path) == 0) return 0;
  vpageFail(kVPageCantWrite);
  return -2;
}

void VPageDump(VPageFile& file, FILE* stream) {
  VPageError = kVPageOk;
  fmt::fprintf(stream, "VPage File: %s\n", file.path);
  fmt::fprintf(stream, "Index Offset: %s\n", hex(file.indexOffset));
  fmt::fprintf(stream, "Bytes Free: %d\n", file.bytesFree);
  fmt::fprintf(stream, "Bytes Used: %d\n", file.bytesUsed);
  fmt::fprintf(stream, "Next Page: %d\n", file.nextPage);
  fmt::fprintf(stream, "\nBuffers: \n");
  for (const VPageBuffer& buffer : file.buffers) {
    fmt::fprintf(stream, "  %d  %d%s%s\n", buffer.id, buffer.size, buffer.dirty ? " dirty" : "",
                 buffer.reserved ? " reserved" : "");
  }
  fmt::fprintf(stream, "\nIndex: \n  ID   Offset\n");
  for (const auto* entry = file.tree.next(-1); entry != nullptr;
       entry = file.tree.next(entry->id)) {
    fmt::fprintf(stream, "  %d  %d\n", entry->id, static_cast<std::int64_t>(entry->offset));
  }
}

int VPageCheck(const std::string& path, const std::function<void(std::string_view)>& line) {
  const VPageFilePtr file = VPageOpenRead(path, 1);
  if (file == nullptr) return -1;
  const std::int64_t length = file->stream->size();
  std::vector<FoundRecord> records;
  std::uint64_t stop = 0;
  if (length < 0 || !collectRecords(*file, static_cast<std::uint64_t>(length), records, stop)) {
    return -1;
  }
  int faults = 0;
  if (file->indexOffset == kNoOffset) {
    line("INDEX MISSING");
  } else {
    std::vector<FoundRecord> index;
    for (const auto* entry = file->tree.next(-1); entry != nullptr;
         entry = file->tree.next(entry->id)) {
      index.push_back({entry->id, entry->offset});
    }
    faults = compare(index, records, line);
    if (faults == 0) line("INDEX OK");
  }
  if (stop == static_cast<std::uint64_t>(length)) return faults;
  line(fmt::sprintf("RECORD CUT OFF: offset: %s", hex(stop)));
  return faults + 1;
}
