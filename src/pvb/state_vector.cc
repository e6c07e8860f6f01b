#include "pvb/state_vector.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "base/errors.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "pvb/database.h"
#include "pvb/state_vector_internal.h"

namespace {

constexpr std::string_view kFileName = "pvb.st";
constexpr int kBuffersOpened = 3;
constexpr int kBuffersCreated = 5;
constexpr std::size_t kDefaultVectors = 64;
// A name's end can't be part of it; the text of this status is "Invalid string value
// supplied".
constexpr std::int32_t kStatusBadText = 40;

// --- Failure -------------------------------------------------------------------------

std::int32_t statusOfPageError(int error) {
  switch (error) {
    case kVPageOk:
      return kStatusOk;
    case kVPageBadHost:
      return kStatusWrongHost;
    case kVPageBadFile:
      return kStatusCorrupt;
    case kVPageNoMemory:
      return kStatusNoMemory;
    case kVPageNoPage:
      return kStatusNotInUse;
    default:
      return kStatusInternal;
  }
}

int postCode(int pageError) {
  switch (pageError) {
    case kVPageCantOpen:
      return 81;
    case kVPageCantWrite:
    case kVPageCantClose:
      return 85;
    default:
      return 87;
  }
}

// A failure of the file itself: status, and a post with its path.
int fileFailure(int database, std::string_view function, const std::string& path) {
  PBpostError(function, postCode(VPageError), path);
  return vectorPageFailure(database);
}

// --- Opening -------------------------------------------------------------------------

// How many vectors are to be cached.
std::size_t numVectors(int database) {
  const char* setting = std::getenv("MVK_NUM_STATES_BUFFERED");
  if (setting == nullptr) return kDefaultVectors;
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  std::size_t number = 0;
  for (const char* c = setting; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9') {
      PVBsetStatus(database, kStatusBufferVariable);
      static bool told = false;
      if (!std::exchange(told, true)) {
        std::fputs(
            "Environment variable, MVK_NUM_STATES_BUFFERED, must be a positive integer.\n"
            "Current setting is ignored.\n",
            stderr);
      }
      return kDefaultVectors;
    }
    number = std::min(kMost, number * 10 + static_cast<std::size_t>(*c - '0'));
  }
  return number;
}

// Opens the database's file, or a copy of it when the database isn't writable. A
// database without one gets a file with its first vector.
int openFile(int database, const PVBdatabase& db, PVBscanData& scan) {
  const std::string path = PVBfilePath(db.path, kFileName);
  struct stat info;
  if (platform().status(path.c_str(), info) != 0) {
    if (errno != ENOENT) {
      PBpostError("PVBscanOpen", 81, path);
      return vectorFailure(database, kStatusInternal);
    }
    errno = 0;
    return 0;
  }
  if (!db.writable) {
    scan.copy = PBprivateCopy(path);
    if (scan.copy.path().empty()) {
      PBpostError("PVBscanOpen", 81, path);
      return vectorFailure(database, kStatusInternal);
    }
  }
  scan.file = VPageOpen(db.writable ? path : scan.copy.path(), kBuffersOpened);
  if (scan.file == nullptr) return fileFailure(database, "PVBscanOpen", path);
  errno = 0;
  if (stateNamesLoad(database, scan) == 0) return 0;
  PBpostError("PVBscanOpen", 87, path);
  return -2;
}

// Makes a file in the temporary directory for a database that has none.
int ensureFile(int database, PVBscanData& scan) {
  if (scan.file != nullptr) return 0;
  scan.copy = TempFile(PBtempFileName("mvk"));
  scan.file = VPageOpen(scan.copy.path(), kBuffersCreated);
  if (scan.file == nullptr) return vectorPageFailure(database);
  if (stateNamesCreate(database, scan) == 0) return 0;
  scan.file.reset();
  return -2;
}

// --- Saving --------------------------------------------------------------------------

bool standsOnOwnFile(const PVBscanData& scan) { return scan.copy.path().empty(); }

// Brings all that is known of the vectors into the pages.
int fillPages(int database, PVBscanData& scan) {
  if (ensureFile(database, scan) != 0 || stateVectorsPack(database, scan) != 0) return -2;
  return scan.namesDirty ? stateNamesStore(database, scan) : 0;
}

int storeFile(int database, PVBscanData& scan, const std::string& path, bool own) {
  int result = 0;
  if (own && standsOnOwnFile(scan)) {
    result = VPageFlush(*scan.file);
  } else {
    if (!standsOnOwnFile(scan)) result = VPageRepack(*scan.file, false);
    if (result == 0) result = VPageSaveAs(*scan.file, path);
  }
  return result == 0 ? 0 : vectorPageFailure(database);
}

// Gives the database's own file back to the system with its index.
int closeOwnFile(int database, PVBscanData& scan) {
  int result = 0;
  if (VPageChanged(*scan.file) && VPageRepack(*scan.file, false) != 0) {
    result = vectorPageFailure(database);
  }
  if (VPageClose(std::move(scan.file)) != 0) result = vectorPageFailure(database);
  return result;
}

// --- Vectors -------------------------------------------------------------------------

// A page without cells under a name: its number, or -1.
std::int64_t newPage(int database, PVBscanData& scan, std::string_view name) {
  const std::size_t size = name.size() + 1 + packedStateSize({});
  void* data = nullptr;
  const std::int64_t page = VPageNew(*scan.file, size, data);
  if (page < 0) {
    vectorPageFailure(database);
    return -1;
  }
  const auto number = static_cast<std::uint32_t>(page);
  const std::span<char> content(static_cast<char*>(data), size);
  if (!name.empty()) std::memcpy(content.data(), name.data(), name.size());
  content[name.size()] = '\0';
  packStates({}, 0, content.subspan(name.size() + 1));
  VPageRelease(*scan.file, number);
  if (page <= kMaxIdIndex) return page;
  VPageDelete(*scan.file, number);
  vectorFailure(database, kStatusInternal);
  return -1;
}

// Whether the page of a vector exists; otherwise a status.
bool vectorIsThere(int database, PVBscanData& scan, PVBid vector) {
  if (!vectorIdFits(database, scan, vector)) return false;
  if (VPageNext(*scan.file, std::int64_t{vectorPage(vector)} - 1) == vectorPage(vector)) {
    return true;
  }
  vectorFailure(database, kStatusNotInUse);
  return false;
}

}  // namespace

int vectorPageFailure(int database) {
  return vectorFailure(database, statusOfPageError(VPageError));
}

int vectorFailure(int database, std::int32_t status) {
  PVBsetStatus(database, status);
  return -2;
}

bool vectorIdFits(int database, const PVBscanData& scan, PVBid vector) {
  std::int32_t status = kStatusOk;
  if (vector != UNDEF && PVBidClass(vector) != kClassStateVector) {
    status = kStatusWrongClass;
  } else if (vector == UNDEF || vectorPage(vector) < kFirstVectorPage || scan.file == nullptr) {
    status = kStatusNotInUse;
  }
  if (status != kStatusOk) vectorFailure(database, status);
  return status == kStatusOk;
}

void ScanDataDelete::operator()(PVBscanData* data) const {
  const std::unique_ptr<PVBscanData> owner(data);
}

int PVBscanOpen(int database) {
  PVBdatabase* db = PVBgetSection(database, kSectionSignals);
  if (db == nullptr) return -2;
  if (db->scan != nullptr) return 0;
  auto scan = std::make_unique<PVBscanData>();
  scan->numVectors = numVectors(database);
  if (openFile(database, *db, *scan) != 0) return -2;
  db->scan.reset(scan.release());
  db->sectionsOpen |= kSectionScan;
  return 0;
}

int PVBscanSave(int database, const std::string& directory) {
  PVBdatabase* db = PVBgetSection(database, kSectionScan);
  if (db == nullptr) return -2;
  const bool own = directory.empty() || directory == db->path;
  if (own && !db->writable) return 0;
  PVBscanData& scan = *db->scan;
  const std::string path = PVBfilePath(own ? db->path : directory, kFileName);
  if (fillPages(database, scan) != 0 || storeFile(database, scan, path, own) != 0) {
    PBpostError("PVBscanSave", 85, path);
    return -2;
  }
  if (own) scan.changed = false;
  return 0;
}

int PVBscanClose(int database, bool unsaved) {
  PVBdatabase* db = PVBget(database);
  if (db == nullptr) return -2;
  if (db->scan == nullptr) return 0;
  int result = 0;
  if (db->writable && !unsaved) {
    if (db->scan->changed) result = PVBscanSave(database, "");
    if (db->scan->file != nullptr && standsOnOwnFile(*db->scan) &&
        closeOwnFile(database, *db->scan) != 0) {
      PBpostError("PVBscanClose", 85, PVBfilePath(db->path, kFileName));
      result = -2;
    }
  }
  db->scan.reset();
  db->sectionsOpen &= ~static_cast<std::uint32_t>(kSectionScan);
  return result;
}

bool PVBscanChanged(int database) {
  const PVBdatabase* db = PVBget(database);
  return db != nullptr && db->scan != nullptr && db->scan->changed;
}

PVBid PVBstateVectorNew(int database, std::string_view name) {
  PVBdatabase* db = PVBgetSection(database, kSectionScan);
  if (db == nullptr) return -1;
  PVBscanData& scan = *db->scan;
  if (name.find('\0') != std::string_view::npos) {
    vectorFailure(database, kStatusBadText);
    return -1;
  }
  if (scan.names.byName.contains(name)) {
    vectorFailure(database, kStatusNameTaken);
    return -1;
  }
  if (ensureFile(database, scan) != 0) return -1;
  if (!name.empty() && stateNamesTouch(database, scan) != 0) return -1;
  const std::int64_t page = newPage(database, scan, name);
  if (page < 0) return -1;
  const PVBid id = PVBidMake(kClassStateVector, static_cast<std::uint32_t>(page));
  if (!name.empty()) scan.names.add(name, id);
  scan.changed = true;
  return id;
}

PVBid PVBstateVectorByName(int database, std::string_view name) {
  PVBdatabase* db = PVBgetSection(database, kSectionScan);
  if (db == nullptr) return UNDEF;
  const auto entry = db->scan->names.byName.find(name);
  if (entry != db->scan->names.byName.end()) return entry->second;
  vectorFailure(database, kStatusNoSuchName);
  return UNDEF;
}

std::string PVBstateVectorName(int database, PVBid vector) {
  PVBdatabase* db = PVBgetSection(database, kSectionScan);
  if (db == nullptr || !vectorIsThere(database, *db->scan, vector)) return {};
  return std::string(db->scan->names.of(vector));
}

int PVBstateVectorDelete(int database, PVBid vector) {
  PVBdatabase* db = PVBgetSection(database, kSectionScan);
  if (db == nullptr || !vectorIsThere(database, *db->scan, vector)) return -2;
  PVBscanData& scan = *db->scan;
  if (!scan.names.of(vector).empty() && stateNamesTouch(database, scan) != 0) return -2;
  if (VPageDelete(*scan.file, vectorPage(vector)) != 0) return vectorPageFailure(database);
  stateVectorForget(scan, vector);
  scan.names.remove(vector);
  scan.changed = true;
  return 0;
}

PVBid PVBstateVectorNext(int database, PVBid vector) {
  PVBdatabase* db = PVBgetSection(database, kSectionScan);
  if (db == nullptr || db->scan->file == nullptr) return UNDEF;
  if (vector != UNDEF && !vectorIdFits(database, *db->scan, vector)) return UNDEF;
  const std::int64_t from = vector == UNDEF ? kNamesPage : vectorPage(vector);
  const std::int64_t page = VPageNext(*db->scan->file, from);
  if (page < 0 || page > kMaxIdIndex) return UNDEF;
  return PVBidMake(kClassStateVector, static_cast<std::uint32_t>(page));
}

bool PVBstateVectorExists(int database, PVBid vector) {
  PVBdatabase* db = PVBgetSection(database, kSectionScan);
  return db != nullptr && vectorIsThere(database, *db->scan, vector);
}
