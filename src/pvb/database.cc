#include "pvb/database.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include "base/errors.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "base/text.h"
#include "pvb/database_internal.h"

// Every slot of the process; PVBopen takes the first free one, PVBclose frees it.
// Never destroyed: a run that ends without closing must not write.
PVBdatabase* const PVBslots = std::make_unique<PVBdatabase[]>(MAXPVB).release();

namespace {

PVBdatabase& slotAt(int database) { return PVBslots[database]; }

// Chosen by MVK_PVB_CACHES at each open; an unknown text leaves it as it is.
CachePolicy cachePolicy = CachePolicy::automatic;

struct CacheWord {
  std::string_view word;
  CachePolicy policy;
};
constexpr std::array<CacheWord, 7> kCacheWords = {{
    {"false", CachePolicy::never},
    {"0", CachePolicy::never},
    {"never", CachePolicy::never},
    {"no", CachePolicy::never},
    {"always", CachePolicy::always},
    {"auto", CachePolicy::automatic},
    {"ondemand", CachePolicy::onDemand},
}};

void readCachePolicy() {
  const char* text = std::getenv("MVK_PVB_CACHES");
  if (text == nullptr) return;
  for (const CacheWord& row : kCacheWords) {
    if (PBstrEq(row.word, text)) cachePolicy = row.policy;
  }
}

int freeSlot() {
  for (int database = 0; database < MAXPVB; ++database) {
    if (!slotAt(database).inUse) return database;
  }
  errno = 0;
  PBpostError("PVBopen", 0, "Maximum number of open PVBs (MAXPVB) exceeded.");
  return -1;
}

struct OpenMode {
  bool strict;  // the classic data model only
  bool upgrade;
};

bool refuse(int code, const std::string& path) {
  PBpostError("PVBopen", code, path);
  return false;
}

// A header that is there but can't be looked at doesn't make a new database.
bool readHeaderIfThere(const std::string& path, bool strict, PVBheader& header) {
  const Presence presence = presenceOf(path);
  if (presence == Presence::unknown) return refuse(81, path);
  if (presence == Presence::absent) return true;
  if (ReadPVBheader(path, strict, header) < 1) return false;
  errno = 0;
  const bool sound = header.rowWidth >= 0 && header.rowWidth <= kMaxRowWidth;
  return sound || refuse(87, path);
}

bool loadHeader(PVBdatabase& slot, int rowWidth, OpenMode mode) {
  slot.header = PVBheader();
  slot.header.rowWidth = rowWidth > 0 ? rowWidth : kDefaultRowWidth;
  if (!readHeaderIfThere(PVBfilePath(slot.path, "pvb.h"), mode.strict, slot.header)) return false;
  slot.version = slot.header.version;
  if (mode.upgrade && slot.version <= 1500) slot.version = kExtendedVersion;
  return true;
}

void applyCachePolicy(PVBdatabase& slot) {
  if (cachePolicy == CachePolicy::automatic) slot.cachedIndex[2] = slot.cachedIndex[3] = true;
  if (cachePolicy == CachePolicy::always) slot.cachedIndex.fill(true);
  if (cachePolicy == CachePolicy::never) slot.cachedIndex.fill(false);
}

int openSlot(int database, const std::string& path, bool writable, int rowWidth, int numBuffers,
             OpenMode mode) {
  PVBdatabase& slot = slotAt(database);
  slot = PVBdatabase();
  slot.writable = writable;
  if (!haveDirectory(path)) {
    PBpostError("PVBopen", 0, "Could not create PVB directory.");
    return -1;
  }
  slot.path = path;
  if (!loadHeader(slot, rowWidth, mode)) return -1;
  slot.inUse = true;
  slot.tempDir = PBtempDirectory();
  slot.rowWidth = slot.header.rowWidth;
  slot.numBuffers = numBuffers;
  return database;
}

int openAny(const std::string& path, bool writable, int rowWidth, int numBuffers,
            std::uint32_t sections, OpenMode mode) {
  readCachePolicy();
  int database = PVBinqByPath(path);
  if (database < 0) {
    database = freeSlot();
    if (database < 0) return -1;
    if (openSlot(database, path, writable, rowWidth, numBuffers, mode) < 0) return -1;
  }
  if (loadSections(database, sections) != 0) {
    abandonSlot(database);
    return -1;
  }
  applyCachePolicy(slotAt(database));
  return database;
}

}  // namespace

// --- Slots ---------------------------------------------------------------------------

// --- Opening -------------------------------------------------------------------------

int PVBopen(const std::string& path, bool writable, int rowWidth, int numBuffers,
            std::uint32_t sections) {
  return openAny(path, writable, rowWidth, numBuffers, sections, {true, false});
}

int PVBopenAny(const std::string& path, bool writable, int rowWidth, int numBuffers,
               std::uint32_t sections, bool upgrade) {
  return openAny(path, writable, rowWidth, numBuffers, sections, {false, upgrade});
}

int PVBopenTimeplates(const std::string& path, bool writable, int rowWidth, int numBuffers) {
  return PVBopen(path, writable, rowWidth, numBuffers, kSectionTimePlates);
}

bool PVBexists(const std::string& path) {
  return directoryExists(path) && fileExists(PVBfilePath(path, "pvb.h"));
}

int PVBinqByPath(const std::string& path) {
  for (int database = 0; database < MAXPVB; ++database) {
    const PVBdatabase* slot = PVBget(database);
    if (slot != nullptr && slot->path == path) return database;
  }
  return -1;
}

int PVBinqByPath(const std::string& path, std::uint32_t& sections) {
  const int database = PVBinqByPath(path);
  if (const PVBdatabase* slot = PVBget(database)) sections = slot->sectionsOpen;
  return database;
}

// --- Of an open database -------------------------------------------------------------

std::int32_t PVBversion(int database) {
  const PVBdatabase* slot = PVBget(database);
  return slot != nullptr ? slot->version : -1;
}

bool PVBisWritable(int database) {
  const PVBdatabase* slot = PVBget(database);
  return slot != nullptr && slot->writable;
}

const std::string& PVBpath(int database) {
  static const std::string none;
  const PVBdatabase* slot = PVBget(database);
  return slot != nullptr ? slot->path : none;
}

bool PVBmodelExtended(int database, bool wanted) { return !wanted || PVBversion(database) > 999; }

void PVBraiseVersion(int database, bool wanted) {
  PVBdatabase* slot = PVBget(database);
  if (slot != nullptr && wanted) slot->version = std::max(slot->version, kExtendedVersion);
}

std::string PVBfilePath(const std::string& directory, std::string_view name) {
  std::string path = directory;
  path.append("/").append(name);
  return path;
}
