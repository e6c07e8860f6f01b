#include "timeplate/working_database.h"

#include <cerrno>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/database_copy.h"

int WorkingDatabase::open(std::string_view function, const std::string& source,
                          const std::optional<std::string>& destination, FILE* report) {
  if (!PVBexists(source)) {
    errno = 0;
    PBerrPush(PBconditionerError, kNoSuchDatabase, function, source);
    return -1;
  }
  if (destination && !copySrcToDstPVB(source, *destination, report)) return -1;
  target_.emplace(destination.value_or(source), !destination);
  return openAgain(function);
}

int WorkingDatabase::openAgain(std::string_view function) {
  return database_ = target_->open(function);
}

int WorkingDatabase::close() {
  if (PVBclose(database_) == 0 && target_->putInPlace() == 0) return 0;
  discard();
  return -2;
}

void WorkingDatabase::discard() {
  if (target_) target_->discard();
}
