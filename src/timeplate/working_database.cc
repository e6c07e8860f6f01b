#include "timeplate/working_database.h"

#include <cerrno>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/database_copy.h"

namespace {

constexpr int kBuffers = 4;

int refuse(int message, std::string_view function, const std::string& path) {
  PBerrPush(PBconditionerError, message, function, path);
  return -1;
}

}  // namespace

int openWorkingDatabase(std::string_view function, const std::string& source,
                        const std::optional<std::string>& destination, FILE* report) {
  if (!PVBexists(source)) {
    errno = 0;
    return refuse(kNoSuchDatabase, function, source);
  }
  if (destination && !copySrcToDstPVB(source, *destination, report)) return -1;
  const std::string path = destination.value_or(source);
  const int database = openInPlace(path);
  return database >= 0 ? database : refuseWorkingDatabase(function, path);
}

int openInPlace(const std::string& path) {
  errno = 0;
  // A database without rows gets the least width; any other keeps what it has.
  return PVBopenAny(path, true, 1, kBuffers, kAllSections, false);
}

int refuseWorkingDatabase(std::string_view function, const std::string& path) {
  return refuse(kCannotOpen, function, path);
}
