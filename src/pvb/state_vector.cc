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

// Opens the database's file for reading; there need not be one.
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
  scan.file = VPageOpenRead(path, kBuffersOpened);
  if (scan.file == nullptr) {
    PBpostError("PVBscanOpen", postCode(VPageError), path);
    return vectorPageFailure(database);
  }
  errno = 0;
  if (stateNamesLoad(database, scan) == 0) return 0;
  PBpostError("PVBscanOpen", 87, path);
  return -2;
}

// --- The working copy ----------------------------------------------------------------

bool isWorkingCopy(const PVBscanData& scan) { return !scan.copy.path().empty(); }

int createWorkingFile(int database, PVBscanData& scan) {
  TempFile copy(PBtempFileName("mvk"));
  scan.file = VPageOpen(copy.path(), kBuffersCreated);
  if (scan.file == nullptr) return vectorPageFailure(database);
  if (stateNamesCreate(database, scan) != 0) {
    scan.file.reset();
    return -2;
  }
  scan.copy = std::move(copy);
  return 0;
}

int copyWorkingFile(int database, PVBscanData& scan) {
  TempFile copy = PBprivateCopy(VPagePath(*scan.file));
  if (copy.path().empty()) return vectorFailure(database, kStatusInternal);
  VPageFilePtr file = VPageOpen(copy.path(), kBuffersOpened);
  if (file == nullptr) return vectorPageFailure(database);
  scan.file = std::move(file);
  scan.copy = std::move(copy);
  return 0;
}

// Brings all that is known of the vectors into the pages. A database without
// vectors gets its file here.
int fillPages(int database, PVBscanData& scan) {
  if (scan.file == nullptr && vectorsWillChange(database, scan) != 0) return -2;
  if (stateVectorsPack(database, scan) != 0) return -2;
  if (!scan.namesDirty) return 0;
  return vectorsWillChange(database, scan) == 0 ? stateNamesStore(database, scan) : -2;
}

// The file of the database itself, unchanged, is where it belongs already.
int storeFile(int database, PVBscanData& scan, const std::string& path, bool own) {
  if (own && !isWorkingCopy(scan)) return 0;
  const bool stored = (!isWorkingCopy(scan) || VPageRepack(*scan.file, false) == 0) &&
                      VPageSaveAs(*scan.file, path) == 0;
  return stored ? 0 : vectorPageFailure(database);
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

int vectorsWillChange(int database, PVBscanData& scan) {
  if (isWorkingCopy(scan)) return 0;
  return scan.file == nullptr ? createWorkingFile(database, scan) : copyWorkingFile(database, scan);
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
  const bool save = db->writable && !unsaved && db->scan->changed;
  const int result = save ? PVBscanSave(database, "") : 0;
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
  if (vectorsWillChange(database, scan) != 0) return -1;
  const std::int64_t page = newPage(database, scan, name);
  if (page < 0) return -1;
  const PVBid id = PVBidMake(kClassStateVector, static_cast<std::uint32_t>(page));
  if (!name.empty() && scan.names.add(name, id)) scan.namesDirty = true;
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
  if (vectorsWillChange(database, scan) != 0) return -2;
  if (VPageDelete(*scan.file, vectorPage(vector)) != 0) return vectorPageFailure(database);
  stateVectorForget(scan, vector);
  if (scan.names.remove(vector)) scan.namesDirty = true;
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
