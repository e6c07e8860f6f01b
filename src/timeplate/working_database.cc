#include "timeplate/working_database.h"

#include <cerrno>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/database_copy.h"

namespace {

// Rows of PBconditionerError.
constexpr int kNoSuchDatabase = 23;
constexpr int kCannotOpen = 50;
// Room for the rows that a pass holds at once.
constexpr int kBuffers = 8;

}  // namespace

int openWorkingDatabase(std::string_view function, const std::string& source,
                        const std::optional<std::string>& destination, FILE* report) {
  if (!PVBexists(source)) {
    errno = 0;
    PBerrPush(PBconditionerError, kNoSuchDatabase, function, source);
    return -1;
  }
  if (destination && !copySrcToDstPVB(source, *destination, report)) return -1;
  const std::string& path = destination ? *destination : source;
  const int database = PVBopenAny(path, true, 0, kBuffers, kAllSections, false);
  if (database < 0) PBerrPush(PBconditionerError, kCannotOpen, function, path);
  return database;
}
