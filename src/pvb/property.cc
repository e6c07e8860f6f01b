#include "pvb/property.h"

#include <algorithm>
#include <cerrno>

#include "base/errors.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "pvb/database.h"
#include "pvb/property_internal.h"
#include "storage/cio.h"
#include "storage/swapendian.h"

namespace {

constexpr std::string_view kListsName = "pvb.l";
constexpr std::string_view kValuesName = "pvb.v";
constexpr std::string_view kRewriteEnding = ".strip";

int fail(std::string_view function, int code, std::string_view path) {
  PBpostError(function, code, path);
  return -2;
}

int failOpen(std::string_view path) { return fail("PVBpropertyOpen", 81, path); }

// The two files that a section stands on.
struct FilePair {
  std::string lists;
  std::string values;
};

// The files that are worked on, and those of the database that they stand for, which
// messages name.
struct WorkingFiles {
  FilePair opened;
  FilePair named;
  bool borrowed;  // they must stay as they are
};

FilePair filesOf(const std::string& directory) {
  return {PVBfilePath(directory, kListsName), PVBfilePath(directory, kValuesName)};
}

// --- Opening -------------------------------------------------------------------------

int copyPrivately(const std::string& from, TempFile& to) {
  to = PBprivateCopy(from);
  return to.path().empty() ? failOpen(from) : 0;
}

// A database that isn't writable works on its own files as long as it only reads, or on
// new files that aren't in its directory.
WorkingFiles choosePaths(const PVBdatabase& slot, bool exists, PVBpropertyData& data) {
  const FilePair own = filesOf(slot.path);
  data.borrowedValues = !slot.writable && exists;
  if (slot.writable || exists) return {own, own, data.borrowedValues};
  data.listsCopy = TempFile(PBtempFileName("mvk"));
  data.valuesCopy = TempFile(PBtempFileName("mvk"));
  return {{data.listsCopy.path(), data.valuesCopy.path()}, own, false};
}

// Files of the old form are rewritten where they are.
int copyBoth(PVBpropertyData& data, WorkingFiles& files) {
  if (copyPrivately(files.named.lists, data.listsCopy) != 0) return -2;
  if (copyPrivately(files.named.values, data.valuesCopy) != 0) return -2;
  files.opened = {data.listsCopy.path(), data.valuesCopy.path()};
  files.borrowed = data.borrowedValues = false;
  return 0;
}

int openValues(const WorkingFiles& files, bool exists, PVBpropertyData& data) {
  const int existing = data.borrowedValues ? kCfRead : kCfUpdate;
  data.values = PBcfopen(files.opened.values, exists ? existing : kCfNew);
  if (data.values < 0) return failOpen(files.named.values);
  data.pathOfValues = files.opened.values;
  PropValues values;
  if (propValuesOpen(data.values, data.pathOfValues, values) != 0) {
    return failOpen(files.named.values);
  }
  data.format = values.format;
  if (values.size == 0) {
    data.format = kPropertyFormat;
    values.size = kPropertyHeaderSize;
    if (propOwnValues(data) != 0 || !propWriteHeader(data.values) || PBcfflush(data.values) != 0) {
      return fail("PVBpropertyOpen", 85, files.named.values);
    }
  }
  data.valuesEnd =
      static_cast<std::uint32_t>(std::min<std::int64_t>(values.size, std::int64_t{kNoRecord}));
  return 0;
}

// Free blocks of the block file itself aren't lists: where there are any, which no
// rewrite leaves, new lists come from the file alone.
int openLists(const WorkingFiles& files, int numBuffers, PVBpropertyData& data) {
  std::uint32_t blockSize = kListBlockSize;
  const auto open = files.borrowed ? PageOpenPrivate : PageOpen;
  data.lists = open(files.opened.lists, blockSize, numBuffers);
  if (data.lists < 0) return failOpen(files.named.lists);
  std::uint32_t numBlocks = 0;
  std::uint32_t capacity = 0;
  PageInfo(data.lists, numBlocks, capacity);
  if (PageCount(data.lists) != numBlocks) data.firstFreeList = numBlocks;
  return 0;
}

int closeFiles(PVBpropertyData& data) {
  const bool valuesGood = data.values < 0 || PBcfclose(data.values) == 0;
  const bool listsGood = data.lists < 0 || PageClose(data.lists) == 0;
  data.values = -1;
  data.lists = -1;
  return valuesGood && listsGood ? 0 : -2;
}

int openFiles(WorkingFiles& files, bool exists, int numBuffers, PVBpropertyData& data) {
  if (openValues(files, exists, data) != 0) return -2;
  if (data.format != 0) return openLists(files, numBuffers, data);
  if (closeFiles(data) != 0) return failOpen(files.named.values);
  if (files.borrowed && copyBoth(data, files) != 0) return -2;
  if (propStrip(files.opened.lists, files.opened.values,
                files.opened.values + std::string(kRewriteEnding)) != 0) {
    return failOpen(files.named.values);
  }
  if (openValues(files, true, data) != 0) return -2;
  return openLists(files, numBuffers, data);
}

}  // namespace

int propOwnValues(PVBpropertyData& data) {
  if (!data.borrowedValues) return 0;
  TempFile copy = PBprivateCopy(data.pathOfValues);
  const int own = copy.path().empty() ? -1 : PBcfopen(copy.path(), kCfUpdate);
  if (own < 0) return -2;
  PBcfswap(data.values, own);
  PBcfclose(own);
  data.valuesCopy = std::move(copy);
  data.borrowedValues = false;
  return 0;
}

namespace {

// --- Saving --------------------------------------------------------------------------

// The values first: a list never names a record that the disk hasn't taken.
bool flushFiles(PVBpropertyData& data) {
  if (PBcfflush(data.values) != 0) return false;
  data.unflushed.clear();
  return PageFlush(data.lists) == 0;
}

// Both files come under their names one right after the other.
bool saveFilesTo(PVBpropertyData& data, const FilePair& target) {
  if (PBcfflush(data.values) != 0) return false;
  data.unflushed.clear();
  TempFile values(target.values + ".part");
  const std::string& copy = data.valuesCopy.path();
  if (PBcopyFile(copy.empty() ? data.pathOfValues : copy, values.path()) != 0) return false;
  if (PageSaveAs(data.lists, target.lists) != 0) return false;
  if (PBmoveFile(values.path(), target.values) != 0) return false;
  values.release();
  return true;
}

// Gives the lists whose newest records are lost their last known heads.
void restoreHeads(PVBpropertyData& data) {
  for (auto old = data.unflushed.rbegin(); old != data.unflushed.rend(); ++old) {
    ListHandle list =
        ListHandle::get(data.lists, static_cast<std::uint32_t>(old->list), typePropList);
    if (!list) continue;
    list->head = old->head;
    list.markDirty();
  }
}

}  // namespace

PVBpropertyData::PVBpropertyData() = default;

// The safety net of an open that failed; a section is closed by PVBpropertyClose.
PVBpropertyData::~PVBpropertyData() {
  if (values >= 0) PBcfclose(values);
  if (lists >= 0) PageClose(lists);
}

int PVBpropertyOpen(int database, int numBuffers) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  if (slot->properties) return 0;
  auto data = std::make_unique<PVBpropertyData>();
  // One that can't be looked at is opened, which fails, rather than made anew.
  const bool exists = presenceOf(PVBfilePath(slot->path, kListsName)) != Presence::absent;
  WorkingFiles files = choosePaths(*slot, exists, *data);
  if (openFiles(files, exists, numBuffers, *data) != 0) return -2;
  slot->properties = std::move(data);
  slot->sectionsOpen |= kSectionProperties;
  return 0;
}

int PVBpropertySave(int database, const std::string& directory) {
  PVBdatabase* slot = PVBgetSection(database, kSectionProperties);
  if (slot == nullptr) return -2;
  PVBpropertyData& data = *slot->properties;
  const bool inPlace = directory.empty() || directory == slot->path;
  if (inPlace && !slot->writable) return 0;
  if (inPlace) {
    data.needRewrite = data.needRewrite || data.hasGarbage;
    if (!flushFiles(data)) return fail("PVBpropertySave", 85, PagePath(data.lists));
  } else {
    const FilePair target = filesOf(directory);
    if (!saveFilesTo(data, target)) return fail("PVBpropertySave", 85, target.lists);
    const std::string newValues = target.values + std::string(kRewriteEnding);
    if (data.hasGarbage && propStrip(target.lists, target.values, newValues) != 0) return -2;
  }
  data.dirty = false;
  return 0;
}

int PVBpropertyClose(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  slot->sectionsOpen &= ~static_cast<std::uint32_t>(kSectionProperties);
  const std::unique_ptr<PVBpropertyData> data = std::move(slot->properties);
  if (!data) return 0;
  propForgetWalk(database);
  const FilePair files = {PagePath(data->lists), data->pathOfValues};
  const bool rewrite = slot->writable && (data->hasGarbage || data->needRewrite);
  const bool flushed = PBcfflush(data->values) == 0;
  if (!flushed) {
    PBpostError("PVBpropertyClose", 85, files.values);
    restoreHeads(*data);
  }
  const bool closed = closeFiles(*data) == 0;
  if (flushed && !closed) PBpostError("PVBpropertyClose", 85, files.lists);
  if (!flushed || !closed) return -2;
  if (!rewrite) return 0;
  const std::string newValues = files.values + std::string(kRewriteEnding);
  if (propStrip(files.lists, files.values, newValues) == 0) return 0;
  PBflushErrors();
  return -2;
}

int stripGarbage(const std::string& directory, const std::string& tempPath) {
  const FilePair files = filesOf(directory);
  return propStrip(files.lists, files.values, tempPath);
}
