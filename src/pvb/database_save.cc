#include <cerrno>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "pvb/database.h"
#include "pvb/database_internal.h"
#include "pvb/signal.h"

namespace {

// What a demoted copy is opened with: everything but tester data and messages.
constexpr std::uint32_t kDemotedSections = 0x39F;
constexpr int kDemotedBuffers = 300;

int writeHeader(PVBdatabase& slot, const std::string& directory) {
  slot.header.version = slot.version;
  return WritePVBheader(PVBfilePath(directory, "pvb.h"), slot.header);
}

// A section that isn't in memory goes along as its files stand.
int copySectionFiles(const SectionRow& row, const std::string& from, const std::string& to) {
  int result = 0;
  for (const std::string_view name : row.files) {
    const std::string source = PVBfilePath(from, name);
    if (presenceOf(source) == Presence::absent) continue;
    if (PBcopyFile(source, PVBfilePath(to, name)) == 0) continue;
    PBpostError("PVBsaveAs", 85, source);
    result = -2;
  }
  errno = 0;
  return result;
}

int saveSections(PVBdatabase& slot, int database, const std::string& directory) {
  int result = 0;
  for (const SectionRow* row : saveOrder()) {
    const bool loaded = row->save != nullptr && (slot.sectionsOpen & row->bit) != 0;
    if (loaded) {
      if (row->save(database, directory) != 0) result = -2;
    } else if (directory != slot.path) {
      if (copySectionFiles(*row, slot.path, directory) != 0) result = -2;
    }
  }
  return result;
}

int saveInto(PVBdatabase& slot, int database, const std::string& directory) {
  if (!haveDirectory(directory)) {
    PBpostError("PVBsaveAs", 81, directory);
    return -2;
  }
  PVBsignalRenumber(database);
  int result = writeHeader(slot, directory);
  if (saveSections(slot, database, directory) != 0) result = -2;
  return result;
}

int close(int database, CloseMode mode) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  int result = 0;
  if (mode == CloseMode::save && slot->writable) {
    PVBsignalRenumber(database);
    result = writeHeader(*slot, slot->path);
  }
  if (closeSections(*slot, database, mode) != 0) result = -2;
  slot->inUse = false;
  slot->path.clear();
  return result;
}

}  // namespace

// --- Saving --------------------------------------------------------------------------

int PVBsave(int database) {
  const PVBdatabase* slot = PVBget(database);
  return slot != nullptr ? PVBsaveAs(database, slot->path) : -2;
}

int PVBsaveAs(int database, const std::string& path) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  const std::string directory = path.empty() ? slot->path : path;
  if (!slot->writable && directory == slot->path) {
    errno = EROFS;
    PBpostError("PVBsaveAs", 85, directory);
    return -2;
  }
  const int result = saveInto(*slot, database, directory);
  if (result == 0) slot->checkDirty = false;
  return result;
}

// --- Closing -------------------------------------------------------------------------

int PVBclose(int database) { return close(database, CloseMode::save); }

int PVBcloseUnsaved(int database) { return close(database, CloseMode::unsaved); }

int PVBcloseKeep(int database, bool) { return close(database, CloseMode::save); }

int PVBcloseAll() {
  int result = 0;
  for (int database = 0; database < MAXPVB; ++database) {
    if (PVBget(database) != nullptr) result = PVBclose(database);
  }
  return result;
}

int PVBdiscard(int database) {
  const PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  const std::string path = slot->path;
  const int closed = close(database, CloseMode::unsaved);
  return PVBdeleteAll(path) == 0 ? closed : -2;
}

// --- Reading again -------------------------------------------------------------------

int PVBreload(int database) {
  const PVBdatabase* slot = PVBget(database);
  return slot != nullptr ? PVBreloadSections(database, slot->sectionsOpen) : -2;
}

int PVBreloadSections(int database, std::uint32_t mask) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  mask &= slot->sectionsOpen;
  int result = 0;
  const auto closeThose = [&](std::uint32_t bits) {
    for (const SectionRow* row : closeOrder()) {
      if ((row->bit & bits) == 0) continue;
      if (row->close(database, CloseMode::unsaved) != 0) result = -2;
      slot->sectionsOpen &= ~row->bit;
    }
  };
  // Rows before signals: giving a row back asks for its signals.
  closeThose(mask & kSectionPatterns);
  closeThose(mask & ~static_cast<std::uint32_t>(kSectionPatterns));
  return loadSections(database, mask) == 0 ? result : -2;
}

// --- The classic copy ----------------------------------------------------------------

int PVBdemote(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -1;
  const std::string path = PBtempFileName("mvk");
  const PVBheader kept = slot->header;
  const std::int32_t version = slot->version;
  slot->header.mainRoot = -1;
  slot->version = kClassicVersion;
  const int saved = saveInto(*slot, database, path);
  slot->header = kept;
  slot->version = version;
  if (saved != 0) return -1;
  const int copy = PVBopenAny(path, true, kept.rowWidth, kDemotedBuffers, kDemotedSections, false);
  PVBraiseVersion(copy, version > kClassicVersion);
  return copy;
}
