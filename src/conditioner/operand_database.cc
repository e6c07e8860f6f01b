#include "conditioner/operand_database.h"

#include <cerrno>
#include <optional>
#include <string>

#include "base/errors.h"
#include "base/platform.h"
#include "conditioner/messages.h"
#include "conditioner/run.h"
#include "pvb/database.h"

namespace {

int open(std::string_view function, const std::string& path, bool writable, bool upgrade) {
  const int database = PVBopenAny(path, writable, 0, kOperandBuffers, kAllSections, upgrade);
  if (database < 0) PBerrPush(PBconditionerError, kCannotOpen, function, path);
  return database;
}

// What can't be written is told before the run ends.
[[noreturn]] void failClosing(std::string_view function, int message, const std::string& path) {
  PBerrPush(PBconditionerError, message, function, path);
  assertFail(__FILE__, __LINE__);
}

void closeOperand(std::string_view function, PVBregion& region) {
  if (PVBregionClose(&region) != 0) failClosing(function, kCannotClose, region.pvbName);
}

}  // namespace

int openSource(std::string_view function, PVBregion& source) {
  source.pvbHandle = open(function, source.pvbName, false, false);
  return source.pvbHandle >= 0 ? 0 : -2;
}

int clearDestination(std::string_view function, const PVBregion& dest,
                     std::initializer_list<const PVBregion*> sources) {
  const std::string& path = dest.pvbName;
  // Before anything is opened for change.
  for (const PVBregion* source : sources) {
    if (!sameDirectory(path, source->pvbName)) continue;
    errno = 0;
    PBerrPush(PBconditionerError, kSameDatabase, function, path, source->pvbName);
    return -2;
  }
  errno = 0;
  if (PVBexists(path)) {
    const int database = open(function, path, true, false);
    if (database < 0) return -2;
    if (PVBclose(database) != 0) failClosing(function, kCannotClose, path);
    return PVBdeleteAll(path);
  }
  return PVBhasFiles(path) ? PVBdeleteAll(path) : 0;
}

int openDestination(std::string_view function, PVBregion& dest, bool upgrade) {
  dest.pvbHandle = open(function, dest.pvbName, true, upgrade);
  return dest.pvbHandle >= 0 ? 0 : -2;
}

int openWorking(std::string_view function, const PVBregion& source, const PVBregion* dest,
                WorkingDatabase& target) {
  std::optional<std::string> destination;
  if (dest != nullptr) destination = dest->pvbName;
  return target.open(function, source.pvbName, destination, run.reportStream);
}

void closeOperands(std::string_view function, PVBregion& dest,
                   std::initializer_list<PVBregion*> sources) {
  if (PVBsave(dest.pvbHandle) != 0) failClosing(function, kCannotSave, dest.pvbName);
  closeOperand(function, dest);
  for (PVBregion* source : sources) closeOperand(function, *source);
}
