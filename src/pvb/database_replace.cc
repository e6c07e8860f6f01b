#include "pvb/database_replace.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "pvb/database.h"

namespace {

constexpr std::string_view kNamePrefix = "pvb";  // of a database's own files
constexpr int kCannotWrite = 85;
constexpr mode_t kRights = 07777;

using Names = std::vector<std::string>;

int fail(std::string_view function, const std::string& path) {
  PBpostError(function, kCannotWrite, path);
  return -2;
}

// --- Preparing -----------------------------------------------------------------------

// Whoever may work in the old directory may work in the new one.
bool makeAlike(const std::string& newPath, const std::string& path) {
  struct stat status;
  if (platform().status(path.c_str(), status) != 0) return false;
  const mode_t rights = status.st_mode & kRights;
  errno = 0;
  return platform().makeDirectory(newPath.c_str(), rights) == 0 &&
         platform().setRights(newPath.c_str(), rights) == 0;
}

// An entry that is a file of a database, or a second name of one in `home`, goes; what
// else there is can only have been on its way between the two directories.
bool clearEntry(const std::string& entry, const std::string& home, std::string_view name) {
  const bool own = name.starts_with(kNamePrefix) || sameDirectory(entry, home);
  if (own && platform().remove(entry.c_str()) == 0) return true;
  return !fileExists(home) && platform().rename(entry.c_str(), home.c_str()) == 0;
}

// --- Replacing -----------------------------------------------------------------------

// Those of `names` that aren't in `others`; both are sorted.
Names without(const Names& names, const Names& others) {
  Names left;
  std::ranges::set_difference(names, others, std::back_inserter(left));
  return left;
}

// Gives the entries a second name in the other directory: those that can't have one.
Names linkEntries(const Names& names, const std::string& from, const std::string& to) {
  Names left;
  for (const std::string& name : names) {
    const int linked =
        platform().link(PVBfilePath(from, name).c_str(), PVBfilePath(to, name).c_str());
    if (linked != 0) left.push_back(name);
  }
  return left;
}

bool renameOver(const std::string& path, const std::string& newPath) {
  const std::string old = path + "_old";
  if (platform().rename(path.c_str(), old.c_str()) != 0) return false;
  if (platform().rename(newPath.c_str(), path.c_str()) == 0) {
    return platform().rename(old.c_str(), newPath.c_str()) == 0;
  }
  const int reason = errno;
  platform().rename(old.c_str(), path.c_str());
  errno = reason;
  return false;
}

bool swapDirectories(const std::string& path, const std::string& newPath) {
  std::string real;
  std::string realNew;
  if (!platform().realPath(path.c_str(), real)) return false;
  if (!platform().realPath(newPath.c_str(), realNew)) return false;
  if (platform().exchange(real.c_str(), realNew.c_str()) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  return renameOver(real, realNew);
}

bool moveEntries(const Names& names, const std::string& from, const std::string& to) {
  return std::ranges::all_of(names, [&](const std::string& name) {
    return platform().rename(PVBfilePath(from, name).c_str(), PVBfilePath(to, name).c_str()) == 0;
  });
}

bool removeEntries(const Names& names, const std::string& directory) {
  return std::ranges::all_of(names, [&](const std::string& name) {
    return platform().remove(PVBfilePath(directory, name).c_str()) == 0;
  });
}

bool moveFiles(const std::string& path, const std::string& newPath, const Names& linked) {
  removeEntries(linked, newPath);
  errno = 0;
  return PVBrename(newPath, path) == 0;
}

}  // namespace

int PVBreplacePrepare(const std::string& path, const std::string& newPath) {
  constexpr std::string_view kFunction = "PVBreplacePrepare";
  if (sameDirectory(path, newPath)) {
    errno = EEXIST;
    return fail(kFunction, newPath);
  }
  if (presenceOf(newPath) == Presence::absent) {
    return makeAlike(newPath, path) ? 0 : fail(kFunction, newPath);
  }
  Names names;
  if (!platform().list(newPath.c_str(), names)) return fail(kFunction, newPath);
  for (const std::string& name : names) {
    const std::string entry = PVBfilePath(newPath, name);
    if (!clearEntry(entry, PVBfilePath(path, name), name)) return fail(kFunction, entry);
  }
  errno = 0;
  return 0;
}

int PVBreplace(const std::string& path, const std::string& newPath) {
  constexpr std::string_view kFunction = "PVBreplace";
  if (PVBinqByPath(path) >= 0 || PVBinqByPath(newPath) >= 0) return -2;
  Names oldNames;
  Names newNames;
  if (!platform().list(path.c_str(), oldNames)) return fail(kFunction, path);
  if (!platform().list(newPath.c_str(), newNames)) return fail(kFunction, newPath);
  const Names kept = without(oldNames, newNames);
  const Names unlinked = linkEntries(kept, path, newPath);
  if (!swapDirectories(path, newPath)) {
    return moveFiles(path, newPath, without(kept, unlinked)) ? 0 : fail(kFunction, path);
  }
  if (!moveEntries(unlinked, newPath, path)) return fail(kFunction, newPath);
  if (!removeEntries(without(oldNames, unlinked), newPath)) return fail(kFunction, newPath);
  if (platform().removeDirectory(newPath.c_str()) != 0) return fail(kFunction, newPath);
  errno = 0;
  return 0;
}
