#include "timeplate/working_copy.h"

#include <cerrno>

#include "base/errors.h"
#include "base/platform.h"
#include "pvb/database.h"
#include "pvb/database_replace.h"

namespace {

constexpr mode_t kRights = 0777;
constexpr int kBuffers = 4;

std::string pathBeside(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path + ".working";
}

int openForChange(const std::string& path) {
  errno = 0;
  // A database without rows gets the least width; any other keeps what it has.
  return PVBopenAny(path, true, 1, kBuffers, kAllSections, false);
}

int refuse(std::string_view function, const std::string& path) {
  PBerrPush(PBconditionerError, kCannotOpen, function, path);
  return -1;
}

// Whether a directory is there or can be made.
bool haveDirectory(const std::string& path) {
  if (directoryExists(path) || platform().makeDirectory(path.c_str(), kRights) == 0) return true;
  return errno != EACCES && errno != EPERM && errno != EROFS;
}

}  // namespace

bool WorkingCopy::makeCopy() {
  const std::string copy = pathBeside(path_);
  beside_ = !sameDirectory(".", path_) && haveDirectory(copy);
  errno = 0;
  if (!beside_) return true;
  if (PVBreplacePrepare(path_, copy) != 0) return false;
  copy_ = copy;
  return PVBcopy(copy, path_) == 0;
}

int WorkingCopy::open(std::string_view function) {
  if (beside_ && copy_.empty() && !makeCopy()) {
    discard();
    return refuse(function, path_);
  }
  const int database = openForChange(beside_ ? copy_ : path_);
  return database >= 0 ? database : refuse(function, path_);
}

int WorkingCopy::putInPlace() {
  if (copy_.empty()) return 0;
  if (PVBreplace(path_, copy_) != 0) return -2;
  copy_.clear();
  return 0;
}

void WorkingCopy::discard() {
  if (copy_.empty()) return;
  const int reason = errno;
  const int posted = PBerrorCount();
  const int database = PVBinqByPath(copy_);
  if (database >= 0) PVBcloseUnsaved(database);
  PVBdeleteAll(copy_);
  // Whoever discards has a reason, and it is that which is to be told.
  while (PBerrorCount() > posted) PBpopError();
  PBrenameInErrors(copy_, path_);
  errno = reason;
  copy_.clear();
}
