#include <array>
#include <cstring>
#include <vector>

#include "pvb/database.h"
#include "pvb/state_vector_internal.h"
#include "storage/swapendian.h"

namespace {

constexpr std::uint32_t kMagic = 0xAFAF0F0F;
constexpr std::uint32_t kFormat = 1;

// Page 0. The tag's layout covers the first three words; the last is turned by
// hand, so that all four stand most significant byte first.
struct Header {
  std::uint32_t magic = kMagic;
  std::uint32_t format = kFormat;
  std::uint32_t packedCount = 0;
  std::uint32_t namesDirty = 0;
};
static_assert(sizeof(Header) == 16);

// Pages named one after the other, as page 1 lists them.
struct IndexRun {
  std::uint32_t first;
  std::uint32_t count;
};
static_assert(sizeof(IndexRun) == 8);

Header turned(Header header) {
  SwapValue(&header.namesDirty, sizeof header.namesDirty);
  return header;
}

int corrupt(int database) { return vectorFailure(database, kStatusCorrupt); }

// --- Writing -------------------------------------------------------------------------

// A page 0 to 2 with new content, on disk when this returns.
int storePage(int database, PVBscanData& scan, std::uint32_t page, std::string_view content,
              int tag) {
  const VPageHold hold(*scan.file, page, VPageResizeTyped(*scan.file, page, content.size(), tag));
  if (!hold) return vectorPageFailure(database);
  std::memcpy(hold.data(), content.data(), content.size());
  return VPageDirty(*scan.file, page, true) == 0 ? 0 : vectorPageFailure(database);
}

template <typename T>
std::string_view bytesOf(const T& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

int storeHeader(int database, PVBscanData& scan) {
  Header header;
  header.packedCount = static_cast<std::uint32_t>(scan.names.byId.size());
  return storePage(database, scan, kHeaderPage, bytesOf(header), typeScanStateHeader);
}

// Page 1 for the ids of the table, which rise.
std::string indexContent(const StateNames& names) {
  std::vector<IndexRun> runs;
  for (const auto& [id, name] : names.byId) {
    const std::uint32_t page = vectorPage(id);
    if (runs.empty() || runs.back().first + runs.back().count != page) runs.push_back({page, 0});
    ++runs.back().count;
  }
  const auto count = static_cast<std::uint32_t>(runs.size());
  std::string content(bytesOf(count));
  content.append(reinterpret_cast<const char*>(runs.data()), runs.size() * sizeof(IndexRun));
  return content;
}

std::string namesContent(const StateNames& names) {
  std::string content;
  for (const auto& [id, name] : names.byId) content.append(name).push_back('\0');
  if (content.empty()) content.push_back('\0');
  return content;
}

// --- Reading -------------------------------------------------------------------------

// The bytes of a page 0 to 2 in the host's order; false with a status.
bool readPage(int database, PVBscanData& scan, std::uint32_t page, int tag, std::string& content) {
  const VPageHold hold(*scan.file, page, VPageGetTyped(*scan.file, page, tag));
  const std::int64_t size = hold ? VPageSize(*scan.file, page) : -1;
  if (size < 0) {
    vectorPageFailure(database);
    return false;
  }
  content.assign(hold.data(), static_cast<std::size_t>(size));
  return true;
}

bool readHeader(int database, PVBscanData& scan, Header& header) {
  std::string content;
  if (!readPage(database, scan, kHeaderPage, typeScanStateHeader, content)) return false;
  bool good = content.size() == sizeof header;
  if (good) std::memcpy(&header, content.data(), sizeof header);
  header = turned(header);
  good = good && header.magic == kMagic && header.format <= kFormat;
  if (!good) corrupt(database);
  return good;
}

bool isVectorPage(VPageFile& file, std::uint32_t page) {
  return page >= kFirstVectorPage && page <= static_cast<std::uint32_t>(kMaxIdIndex) &&
         VPageNext(file, std::int64_t{page} - 1) == page;
}

// Takes the names of a run from the front of `text`: each name costs bytes of it,
// so a run can't be longer than the names page.
bool enterRun(PVBscanData& scan, IndexRun run, std::string_view& text) {
  for (std::uint32_t i = 0; i < run.count; ++i) {
    const std::size_t end = text.find('\0');
    if (end == std::string_view::npos || end == 0) return false;
    if (run.first > static_cast<std::uint32_t>(kMaxIdIndex) - i) return false;
    const std::uint32_t page = run.first + i;
    if (!isVectorPage(*scan.file, page)) return false;
    if (!scan.names.add(text.substr(0, end), PVBidMake(kClassStateVector, page))) return false;
    text.remove_prefix(end + 1);
  }
  return true;
}

bool enterNames(PVBscanData& scan, std::string_view index, std::string_view text) {
  std::uint32_t count = 0;
  if (index.size() < sizeof count) return false;
  std::memcpy(&count, index.data(), sizeof count);
  index.remove_prefix(sizeof count);
  if (count > index.size() / sizeof(IndexRun)) return false;
  for (std::uint32_t i = 0; i < count; ++i) {
    IndexRun run;
    std::memcpy(&run, index.data() + i * sizeof run, sizeof run);
    if (!enterRun(scan, run, text)) return false;
  }
  return true;
}

int readTable(int database, PVBscanData& scan, const Header& header) {
  std::string index;
  std::string text;
  if (!readPage(database, scan, kIndexPage, typeInt, index)) return -2;
  if (!readPage(database, scan, kNamesPage, typeNoStruct, text)) return -2;
  if (!enterNames(scan, index, text)) return corrupt(database);
  return scan.names.byId.size() == header.packedCount ? 0 : corrupt(database);
}

// The name in front of a vector's page; false when the page can't be read. A page
// without a name's end, or with a name taken by a lower one, stays without: asking
// for such a vector tells.
bool enterNameOfPage(int database, PVBscanData& scan, std::uint32_t page) {
  std::string content;
  if (!readPage(database, scan, page, typeNoStruct, content)) return false;
  const std::size_t end = content.find('\0');
  if (end != std::string::npos && end > 0) {
    scan.names.add(std::string_view(content).substr(0, end), PVBidMake(kClassStateVector, page));
  }
  return true;
}

int rebuildTable(int database, PVBscanData& scan) {
  for (std::int64_t page = VPageNext(*scan.file, kNamesPage); page >= 0 && page <= kMaxIdIndex;
       page = VPageNext(*scan.file, page)) {
    if (!enterNameOfPage(database, scan, static_cast<std::uint32_t>(page))) return -2;
  }
  return 0;
}

}  // namespace

bool StateNames::add(std::string_view name, PVBid id) {
  if (byId.contains(id)) return false;
  const auto [entry, isNew] = byName.emplace(name, id);
  if (isNew) byId.emplace(id, entry->first);
  return isNew;
}

bool StateNames::remove(PVBid id) {
  const auto entry = byId.find(id);
  if (entry == byId.end()) return false;
  const auto key = byName.find(entry->second);
  byId.erase(entry);
  byName.erase(key);
  return true;
}

std::string_view StateNames::of(PVBid id) const {
  const auto entry = byId.find(id);
  return entry == byId.end() ? std::string_view() : entry->second;
}

int stateNamesCreate(int database, PVBscanData& scan) {
  constexpr std::array<std::uint32_t, 3> kPages = {kHeaderPage, kIndexPage, kNamesPage};
  for (const std::uint32_t page : kPages) {
    void* data = nullptr;
    if (VPageNew(*scan.file, 1, data) != page) return vectorPageFailure(database);
    *static_cast<char*>(data) = 0;
    VPageRelease(*scan.file, page);
  }
  return stateNamesStore(database, scan);
}

int stateNamesLoad(int database, PVBscanData& scan) {
  Header header;
  if (!readHeader(database, scan, header)) return -2;
  scan.namesDirty = header.namesDirty != 0;
  return scan.namesDirty ? rebuildTable(database, scan) : readTable(database, scan, header);
}

int stateNamesStore(int database, PVBscanData& scan) {
  if (storePage(database, scan, kIndexPage, indexContent(scan.names), typeInt) != 0) return -2;
  if (storePage(database, scan, kNamesPage, namesContent(scan.names), typeNoStruct) != 0) {
    return -2;
  }
  if (storeHeader(database, scan) != 0) return -2;
  scan.namesDirty = false;
  return 0;
}
