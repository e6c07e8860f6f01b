#include "tools/new_database.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "base/platform.h"
#include "pvb/database.h"
#include "tools/dump_format.h"
#include "tools/usage.h"

namespace {

// A name beside `path` that nothing has, not even what a killed run of the same process
// number left.
std::string freeNameBeside(const std::string& path, std::string_view kind) {
  const std::string first = fmt::format("{}.{}{}", path, kind, getpid());
  std::string name = first;
  for (int tries = 1; fileExists(name); ++tries) name = fmt::format("{}.{}", first, tries);
  return name;
}

}  // namespace

bool mayReplace(const std::string& path, bool force) {
  if (!fileExists(path)) return true;
  if (!force) {
    refuse(kExists, "the destination is there already", path);
    return false;
  }
  std::vector<std::string> names;
  if (!directoryExists(path) || !platform().list(path.c_str(), names)) {
    refuse(kNotReplaceable, "this is no database", path);
    return false;
  }
  const auto foreign =
      std::ranges::find_if(names, [](const std::string& name) { return !isDatabaseFile(name); });
  if (foreign == names.end()) return true;
  refuse(kNotReplaceable, fmt::format("'{}' in it is no file of a database", *foreign), path);
  return false;
}

bool removeDatabaseDirectory(const std::string& path) {
  std::vector<std::string> names;
  if (!platform().list(path.c_str(), names)) return false;
  for (const std::string& name : names) platform().remove(PVBfilePath(path, name).c_str());
  return platform().removeDirectory(path.c_str()) == 0;
}

NewDatabase::NewDatabase(const std::string& path)
    : path_(path), directory_(freeNameBeside(path, "tmp")) {}

NewDatabase::~NewDatabase() {
  if (!directory_.empty()) removeDatabaseDirectory(directory_);
}

bool NewDatabase::canBeMade() const {
  constexpr mode_t kForAll = 0777;
  return platform().makeDirectory(directory_.c_str(), kForAll) == 0 &&
         platform().removeDirectory(directory_.c_str()) == 0;
}

bool NewDatabase::putInPlace() {
  const bool replaces = fileExists(path_);
  const std::string aside = replaces ? freeNameBeside(path_, "old") : std::string();
  if (replaces && platform().rename(path_.c_str(), aside.c_str()) != 0) return false;
  if (platform().rename(directory_.c_str(), path_.c_str()) == 0) {
    directory_.clear();
    if (replaces) removeDatabaseDirectory(aside);
    return true;
  }
  const int reason = errno;
  if (replaces) platform().rename(aside.c_str(), path_.c_str());
  errno = reason;
  return false;
}
