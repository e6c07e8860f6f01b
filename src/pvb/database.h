#pragma once

// Pattern databases: the table of the open ones, their header, and the sections
// that are loaded on demand, saved and closed in fixed orders. A database is a
// directory whose file "pvb.h" makes it one; every other file belongs to a section.
//
// "pvb.h", numbers most significant byte first:
//
//   OFFSET  SIZE  FIELD            MEANING
//      0      4   version          501 classic data model, 1501 extended
//      4      4   host code        11
//      8      4   main root        root node of the main pattern in "pvb.pk", -1 for none
//     12      4   row width        states that a row has room for
//     16      4   pattern errors   counts of the last check; -1 in all four when
//     20      4   timing errors    the database hasn't been checked
//     24      4   pattern warnings
//     28      4   timing warnings
//     32      4   property list    of the database itself, -1 for none
//
// A database is known by its slot, 0 to 15, and lives until it is closed. A
// function that fails returns -2 (-1 where it gives a handle), leaves a code in the
// slot's status and, for files, a post under its name. A database that isn't
// writable is never changed on disk: its files are read where they are, and a section
// that would write makes a private copy first.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "pvb/id.h"

struct PVBsignalData;
struct PVBtimePlateData;
struct PVBpatternData;
struct PVBpropertyData;
struct PVBpinData;
struct PVBlabelData;
struct PVBscanData;
struct PVBmessageData;

// Defined with the scan section, whose record is its own affair.
struct ScanDataDelete {
  void operator()(PVBscanData* data) const;
};

inline constexpr int MAXPVB = 16;
inline constexpr std::int32_t kClassicVersion = 501;
inline constexpr std::int32_t kExtendedVersion = 1501;
inline constexpr int kDefaultRowWidth = 32;
// Columns are 16-bit numbers, one of which means none.
inline constexpr int kMaxRowWidth = 65536;

// Bits of the loaded sections and of the mask of PVBopen.
enum PVBsectionBit : std::uint32_t {
  kSectionProperties = 0x001,
  kSectionPins = 0x002,  // pins, and pin groups after the signals
  kSectionSignals = 0x004,
  kSectionTimePlates = 0x008,
  kSectionPatterns = 0x010,
  kSectionAte = 0x020,
  kSectionMessages = 0x040,
  kSectionScan = 0x080,
  kSectionLabels = 0x100,
  kSectionSpec = 0x200,
  kAllSections = 0xFFF,
};

struct PVBstatus {
  std::int32_t patternErrors = -1;
  std::int32_t timingErrors = -1;
  std::int32_t patternWarnings = -1;
  std::int32_t timingWarnings = -1;
};

struct PVBheader {
  std::int32_t version = kClassicVersion;
  std::int32_t hostCode = 11;
  std::int32_t mainRoot = -1;
  std::int32_t rowWidth = 0;
  PVBstatus counts;
  PVBid propList = UNDEF;
};

// When the caches of the sections may be used; MVK_PVB_CACHES chooses.
enum class CachePolicy { never = 0, always = 1, automatic = 2, onDemand = 3 };

// One slot. The sections own their data and free it at close; a section that isn't
// loaded is null.
struct PVBdatabase {
  PVBdatabase();
  ~PVBdatabase();
  PVBdatabase(PVBdatabase&&) noexcept;
  PVBdatabase& operator=(PVBdatabase&&) noexcept;

  PVBheader header;
  std::int32_t version = kClassicVersion;  // the working version, written at save
  std::uint32_t sectionsOpen = 0;
  std::string path;
  std::int32_t rowWidth = 0;  // states a row has room for; the pattern section raises it
  int numBuffers = 0;
  bool inUse = false;
  bool writable = false;
  bool checkDirty = false;
  std::string tempDir;
  std::array<bool, 5> cachedIndex{};
  std::int32_t status = 0;  // code of the last failure

  std::unique_ptr<PVBpropertyData> properties;
  std::unique_ptr<PVBpinData> pins;
  std::unique_ptr<PVBsignalData> signals;
  std::unique_ptr<PVBtimePlateData> timePlates;
  std::unique_ptr<PVBpatternData> patterns;
  std::unique_ptr<PVBmessageData> messages;
  std::unique_ptr<PVBscanData, ScanDataDelete> scan;
  std::unique_ptr<PVBlabelData> labels;
};

// --- Slots and status ----------------------------------------------------------------

// Codes of the status table that the sections set.
enum PVBstatusCode : std::int32_t {
  kStatusOk = 0,
  kStatusNotOpen = 1,
  kStatusNoMemory = 2,
  kStatusImplicitGroup = 3,
  kStatusScanMember = 4,
  kStatusNotInUse = 5,
  kStatusWrongClass = 6,
  kStatusNameTaken = 7,
  kStatusNoSuchName = 8,
  kStatusEmptyName = 9,
  kStatusNullPointer = 10,
  kStatusBadPosition = 14,
  kStatusRecursive = 15,
  kStatusBadDirection = 16,
  kStatusBadType = 17,
  kStatusScanTimePlate = 18,
  kStatusScanCycle = 19,
  kStatusInternal = 21,
  kStatusCorrupt = 22,
  kStatusWrongHost = 23,
  kStatusBadRadix = 24,
  kStatusBadLength = 25,
  kStatusBadVectorValue = 26,
  kStatusBadKeyField = 27,
  kStatusNotEmpty = 30,
  kStatusBufferVariable = 35,
  kStatusNoMultiTrack = 36,
  kStatusNoMultiBit = 37,
  kStatusOutOfBounds = 41,
};

// The MAXPVB slots: for the two functions below, which each row calls many times.
extern PVBdatabase* const PVBslots;
// The slot of an open database, or null.
inline PVBdatabase* PVBget(int database) {
  if (database < 0 || database >= MAXPVB || !PVBslots[database].inUse) return nullptr;
  return &PVBslots[database];
}
// The same when the section is loaded too; otherwise null with status 1.
inline PVBdatabase* PVBgetSection(int database, std::uint32_t sectionBit) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || (slot->sectionsOpen & sectionBit) == sectionBit) return slot;
  slot->status = kStatusNotOpen;
  return nullptr;
}
// Ignored for a slot not in use.
void PVBsetStatus(int database, std::int32_t code);
void PVBclearStatus(int database);
// The code, and its text in `text`; code 1 without a text (null) when not open.
std::int32_t PVBinqStatus(int database, const char*& text);

// --- Opening and closing -------------------------------------------------------------

// The slot, or -1. A database already open under the same path text is shared. A
// directory without "pvb.h" is a new, empty database; a missing one is made.
int PVBopen(const std::string& path, bool writable, int rowWidth, int numBuffers,
            std::uint32_t sections);
// Takes both data models; `upgrade` raises the working version to the extended one.
int PVBopenAny(const std::string& path, bool writable, int rowWidth, int numBuffers,
               std::uint32_t sections, bool upgrade);
int PVBopenTimeplates(const std::string& path, bool writable, int rowWidth, int numBuffers);
bool PVBexists(const std::string& path);
int PVBinqByPath(const std::string& path);
int PVBinqByPath(const std::string& path, std::uint32_t& sections);

// 0, or -2 when any section failed; the others are saved all the same.
int PVBsave(int database);
int PVBsaveAs(int database, const std::string& path);
// A writable database has its header and its changed sections written.
int PVBclose(int database);
int PVBcloseAll();
// As PVBclose, with the header kept in the closed slot.
int PVBcloseKeep(int database, bool flag);
// Closes without writing a text section: what a run that fails does. Block files
// are flushed.
int PVBcloseUnsaved(int database);
// Closes and deletes a database opened for this run.
int PVBdiscard(int database);
int PVBreload(int database);
int PVBreloadSections(int database, std::uint32_t mask);
// A copy in the classic format under the temporary directory: its slot, or -1.
int PVBdemote(int database);

// --- Database directories ------------------------------------------------------------

// Copies every file but the lock, byte for byte. The source isn't opened as a
// database; a section that fails makes the result -2 and the copying goes on.
int PVBcopy(const std::string& toPath, const std::string& fromPath);
int PVBdelete(const std::string& path, bool sideFilesToo);
int PVBdeleteAll(const std::string& path);
// Moves every entry whose name begins with "pvb", then removes the source directory. Until
// all have come the target's own files stay; a failure before that leaves all as it was.
int PVBrename(const std::string& fromPath, const std::string& toPath);
// Whether a directory is a database or holds files of a section: those without "pvb.h" are
// what a run left that failed, and no new database must begin with them.
bool PVBhasFiles(const std::string& path);
// Bytes.
std::int64_t PVBlargestFile(const std::string& path, bool sideFilesToo);
// -1: can't be read; -2: can't be opened.
std::int32_t PVBversionOf(const std::string& path);
bool PVBisExtended(const std::string& path);
// 1, 0 for another host, or -1, as opening would judge.
int PVBcheckHeader(const std::string& path);
int PVBcheckHeaderModel(const std::string& path, bool& extended, std::int32_t& host);

// --- Of an open database -------------------------------------------------------------

std::int32_t PVBversion(int database);
bool PVBisWritable(int database);
const std::string& PVBpath(int database);
// Whether the model is extended; 1 when not wanted.
bool PVBmodelExtended(int database, bool wanted);
void PVBraiseVersion(int database, bool wanted);

void PVBmarkUnchecked(int database);
void PVBclearDirty(int database);
bool PVBisDirty(int database);
// Null when not open; owned by the slot.
PVBstatus* PVBcheckCounts(int database);
bool PVBisClean(int database);
bool PVBisChecked(int database);
// Good until the next call.
const char* PVBcheckSummary(int database);

// Need the property section, else -1.
PVBid PVBdbPropertyList(int database);
PVBid PVBdbPropertyListMake(int database);
int PVBdbPropertyListSet(int database, PVBid id);

// The path of a file of a database directory: directory, "/", name.
std::string PVBfilePath(const std::string& directory, std::string_view name);
