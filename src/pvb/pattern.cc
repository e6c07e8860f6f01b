// The section: four files, opened together and saved together. A database that
// isn't writable changes private copies of its block files.

#include "pvb/pattern.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "pvb/pattern_internal.h"
#include "pvb/scan_run.h"
#include "storage/swapendian.h"

namespace {

constexpr std::string_view kOpen = "PVBpatternOpen";
constexpr std::string_view kSave = "PVBpatternSave";
constexpr std::string_view kRowFile = "pvb.pd";
constexpr std::string_view kNodeFile = "pvb.pk";
constexpr std::string_view kRunFile = "pvb.rd";
constexpr std::string_view kTableFile = "pvb.ps";
constexpr int kMinRowBuffers = 4;
constexpr int kRunBuffers = 16;

std::uint32_t rowBlockSize(int rowWidth) {
  return static_cast<std::uint32_t>(kRowStatesOffset) +
         static_cast<std::uint32_t>(rowDataSize(rowWidth));
}

// Columns that rows of a block size have room for.
int columnsOf(std::uint32_t blockSize) {
  return 2 * static_cast<int>(blockSize - kRowStatesOffset);
}

int badFormat(const std::string& path) {
  errno = 0;
  PBpostError(kOpen, 87, path);
  return -2;
}

// --- Block files ---------------------------------------------------------------------

using PageOpener = int (*)(const std::string& path, std::uint32_t& blockSize, int maxBuffers);

// `open` makes a file that there isn't: of a database that isn't writable, one in the
// temporary directory, which goes with PageDiscard.
int openFile(const PVBdatabase& slot, std::string_view name, PageOpener open,
             std::uint32_t& blockSize, int buffers) {
  const std::string path = PVBfilePath(slot.path, name);
  const bool absent = !slot.writable && presenceOf(path) == Presence::absent;
  if (absent) errno = 0;
  const PageOpener opener = slot.writable || absent ? open : PageOpenPrivate;
  const int handle = opener(absent ? PBtempFileName("pvb") : path, blockSize, buffers);
  if (handle < 0) PBpostError(kOpen, 81, path);
  return handle;
}

int openRows(PVBdatabase& slot, PVBpatternData& data, int numBuffers) {
  std::uint32_t size = rowBlockSize(slot.header.rowWidth);
  data.rows = openFile(slot, kRowFile, PageOpen, size, std::max(numBuffers, kMinRowBuffers));
  if (data.rows < 0) return -2;
  if (size < rowBlockSize(0) || size > rowBlockSize(kMaxRowWidth)) {
    return badFormat(PVBfilePath(slot.path, kRowFile));
  }
  slot.rowWidth = columnsOf(size);
  // Columns are given out up to the header's width: a shorter row would be written
  // past its end.
  if (slot.rowWidth >= slot.header.rowWidth) return 0;
  size = rowBlockSize(slot.header.rowWidth);
  slot.rowWidth = columnsOf(size);
  return PageResizeTyped(data.rows, size, typePVBrow);
}

int openMovedAside(const std::string& path, std::uint32_t& size, TempFile& aside) {
  std::string name = PBtempFileName("pvb");
  if (PBmoveFile(path, name) != 0) return -1;
  aside = TempFile(std::move(name));
  return PageOpen(aside.path(), size, kNodeBuffers);
}

// A file of nodes of an old version, moved aside unless it must stay: its handle, or -1.
int openOldNodes(PVBdatabase& slot, TempFile& aside) {
  const std::string path = PVBfilePath(slot.path, kNodeFile);
  std::uint32_t size = oldNodeSize(slot.version);
  const int handle =
      slot.writable ? openMovedAside(path, size, aside) : PageOpenPrivate(path, size, kNodeBuffers);
  if (handle >= 0 && size == oldNodeSize(slot.version)) return handle;
  PBpostError(kOpen, handle < 0 ? 81 : 87, path);
  if (handle >= 0) PageClose(handle);
  const bool moved = slot.writable && !aside.path().empty();
  if (moved && PBmoveFile(aside.path(), path) == 0) aside.release();
  return -1;
}

int openNodes(const PVBdatabase& slot, PVBpatternData& data) {
  std::uint32_t size = kNodeBlockSize;
  data.nodes = openFile(slot, kNodeFile, PageOpen, size, kNodeBuffers);
  if (data.nodes < 0) return -2;
  return size == kNodeBlockSize ? 0 : badFormat(PVBfilePath(slot.path, kNodeFile));
}

int openRuns(const PVBdatabase& slot, PVBpatternData& data) {
  std::uint32_t size = kScanRunBlockSize;
  data.runs = openFile(slot, kRunFile, PageOpenPlain, size, kRunBuffers);
  if (data.runs < 0) return -2;
  return size == kScanRunBlockSize ? 0 : badFormat(PVBfilePath(slot.path, kRunFile));
}

// --- Roots ---------------------------------------------------------------------------

int openMainRoot(PVBdatabase& slot, PVBpatternData& data) {
  if (slot.header.mainRoot != -1) {
    const auto root = static_cast<std::uint32_t>(slot.header.mainRoot);
    return root < countNodes(data.nodes) ? 0 : badFormat(PVBfilePath(slot.path, kNodeFile));
  }
  const std::int64_t root = PVBtreeNew(data.nodes);
  if (root < 0) return -2;
  slot.header.mainRoot = static_cast<std::int32_t>(root);
  data.changed = true;
  return 0;
}

int openCurrent(PVBdatabase& slot, PVBpatternData& data) {
  if (openNodes(slot, data) != 0 || openRuns(slot, data) != 0) return -2;
  if (readSubroutines(data, PVBfilePath(slot.path, kTableFile), countNodes(data.nodes)) != 0) {
    return -2;
  }
  return openMainRoot(slot, data);
}

// Every root of the table and the header moves to the new file.
int convertRoots(PVBdatabase& slot, PVBpatternData& data, int database, int oldNodes,
                 std::vector<ConvertedLoop>& loops) {
  for (PVBsubroutine& subroutine : data.subroutines) {
    if (subroutine.root == kNoNode) continue;
    const std::int64_t root =
        convertTree(database, data, oldNodes, subroutine.root, slot.version, loops);
    if (root < 0) return -2;
    subroutine.root = static_cast<std::uint32_t>(root);
  }
  if (slot.header.mainRoot == -1) return openMainRoot(slot, data);
  const auto oldRoot = static_cast<std::uint32_t>(slot.header.mainRoot);
  const std::int64_t root = convertTree(database, data, oldNodes, oldRoot, slot.version, loops);
  if (root < 0) return -2;
  slot.header.mainRoot = static_cast<std::int32_t>(root);
  return 0;
}

int convertFrom(PVBdatabase& slot, PVBpatternData& data, int database, int oldNodes) {
  const std::string table = PVBfilePath(slot.path, kTableFile);
  if (openNodes(slot, data) != 0 || openRuns(slot, data) != 0) return -2;
  if (readSubroutines(data, table, countNodes(oldNodes)) != 0) return -2;
  slot.sectionsOpen |= kSectionPatterns;
  std::vector<ConvertedLoop> loops;
  if (convertRoots(slot, data, database, oldNodes, loops) == 0) return 0;
  undoConversion(database, loops);
  return -2;
}

// What fails puts everything back: the old file into its place, the loops to their
// old bodies.
int openOld(PVBdatabase& slot, PVBpatternData& data, int database) {
  TempFile aside;
  const int oldNodes = openOldNodes(slot, aside);
  if (oldNodes < 0) return -2;
  const int result = convertFrom(slot, data, database, oldNodes);
  PageClose(oldNodes);
  if (result == 0) {
    slot.version = kClassicVersion;
    data.changed = true;
    return fixAllCalls(database, data);
  }
  const std::string path = PVBfilePath(slot.path, kNodeFile);
  if (slot.writable) {
    if (data.nodes >= 0) PageDiscard(std::exchange(data.nodes, -1));
    if (PBmoveFile(aside.path(), path) == 0) aside.release();
  }
  return badFormat(path);
}

int openAll(PVBdatabase& slot, PVBpatternData& data, int database, int numBuffers) {
  if (openRows(slot, data, numBuffers) != 0) return -2;
  const bool old =
      slot.version < kFirstCurrentVersion && fileExists(PVBfilePath(slot.path, kNodeFile));
  errno = 0;
  return old ? openOld(slot, data, database) : openCurrent(slot, data);
}

std::array<int*, 3> handlesOf(PVBpatternData& data) {
  return {&data.rows, &data.nodes, &data.runs};
}

// Written, or thrown away with the copies that they are.
int closeFiles(PVBpatternData& data, bool writable) {
  int result = 0;
  for (int* handle : handlesOf(data)) {
    if (*handle < 0) continue;
    const int closed = writable ? PageClose(*handle) : PageDiscard(*handle);
    if (writable && closed != 0) result = -2;
    *handle = -1;
  }
  errno = writable ? errno : 0;
  return result;
}

void drop(PVBdatabase& slot) {
  closeFiles(*slot.patterns, slot.writable);
  slot.patterns.reset();
  slot.sectionsOpen &= ~static_cast<std::uint32_t>(kSectionPatterns);
}

}  // namespace

// --- The section ---------------------------------------------------------------------

int PVBpatternOpen(int database, int rowWidth, int numBuffers) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  if (slot->patterns != nullptr) return 0;
  if (slot->header.rowWidth == 0) slot->header.rowWidth = std::max(rowWidth, 32);
  if (slot->header.rowWidth < 0 || slot->header.rowWidth > kMaxRowWidth) {
    return badFormat(PVBfilePath(slot->path, kRowFile));
  }
  slot->patterns = std::make_unique<PVBpatternData>();
  if (openAll(*slot, *slot->patterns, database, numBuffers) != 0) {
    drop(*slot);
    return -2;
  }
  slot->sectionsOpen |= kSectionPatterns;
  return 0;
}

int PVBpatternSave(int database, const std::string& directory) {
  PVBdatabase* slot = PVBget(database);
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return -2;
  const bool own = directory.empty() || directory == slot->path;
  if (own && !slot->writable) return -2;
  const std::string& target = own ? slot->path : directory;
  int result = fixPending(database, *data);
  const std::array<std::string_view, 3> names = {kRowFile, kNodeFile, kRunFile};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const int handle = *handlesOf(*data)[i];
    const int saved = own ? PageFlush(handle) : PageSaveAs(handle, PVBfilePath(target, names[i]));
    if (saved == 0) continue;
    PBpostError(kSave, 85, PVBfilePath(target, names[i]));
    result = -2;
  }
  if (writeSubroutines(*data, PVBfilePath(target, kTableFile)) != 0) result = -2;
  if (own && result == 0) data->changed = false;
  return result;
}

int PVBpatternClose(int database, bool unsaved) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || slot->patterns == nullptr) return 0;
  PVBpatternData& data = *slot->patterns;
  int result = 0;
  if (slot->writable && !unsaved && data.changed) result = PVBpatternSave(database, {});
  if (closeFiles(data, slot->writable) != 0) result = -2;
  drop(*slot);
  return result;
}

bool PVBpatternExists(const std::string& directory) {
  const auto exists = [&](std::string_view name) {
    return fileExists(PVBfilePath(directory, name));
  };
  return exists(kRowFile) && exists(kNodeFile) && exists(kTableFile);
}

int PVBpatternWidenRows(int database, int newWidth) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr) return -2;
  if (newWidth > kMaxRowWidth) {
    PVBsetStatus(database, kStatusOutOfBounds);
    return -2;
  }
  PVBdatabase* slot = PVBget(database);
  const std::uint32_t size = rowBlockSize(newWidth);
  if (size <= PageBlockSize(data->rows)) return 0;
  if (!data->heldRows.empty() || PageResizeTyped(data->rows, size, typePVBrow) != 0) return -2;
  slot->rowWidth = slot->header.rowWidth = columnsOf(size);
  data->changed = true;
  return 0;
}
