#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "pvb/database.h"
#include "pvb/database_internal.h"

namespace {

// Files of a database that belong to no section, besides "pvb.h" itself.
constexpr std::array<std::string_view, 5> kOwnSideFiles = {"pvb.lock", "pvb.ttb", "hist.srf",
                                                           "sigwave.srf", "physwfm.srf"};
// Those of the editors: deleted only when asked.
constexpr std::array<std::string_view, 6> kEditorFiles = {"pvb.SEini", "pvb.PEini", "pvb.TEini",
                                                          "pvb.WEini", "pvb.EQini", "pvb.pmp"};
constexpr std::string_view kHeaderFile = "pvb.h";
constexpr std::string_view kLockFile = "pvb.lock";
constexpr std::string_view kNamePrefix = "pvb";
constexpr const char* kArriving = ".arriving";  // behind the name of a file on its way

std::vector<std::string_view> databaseFiles(bool sideFilesToo) {
  std::vector<std::string_view> files = {kHeaderFile};
  for (const SectionRow* row : saveOrder()) {
    files.insert(files.end(), row->files.begin(), row->files.end());
  }
  files.insert(files.end(), kOwnSideFiles.begin(), kOwnSideFiles.end());
  if (sideFilesToo) files.insert(files.end(), kEditorFiles.begin(), kEditorFiles.end());
  return files;
}

// The directory goes when nothing of someone else's is left in it, and when it is one that
// can go: not what a link leads to, "." or a mounted disk.
int removeDirectory(const std::string& path) {
  if (platform().removeDirectory(path.c_str()) == 0) return 0;
  const bool stays = errno == ENOTEMPTY || errno == EEXIST || errno == ENOTDIR || errno == EINVAL ||
                     errno == EBUSY;
  if (stays) errno = 0;
  return stays ? 0 : -2;
}

// Moves files to another directory under names of their own, so that what stands there is
// whole until all have come. On failure all are back.
bool bringFiles(const std::vector<std::string>& names, const std::string& fromPath,
                const std::string& toPath) {
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string arriving = PVBfilePath(toPath, names[i]) + kArriving;
    if (PBmoveFile(PVBfilePath(fromPath, names[i]), arriving) == 0) continue;
    const int reason = errno;
    while (i-- > 0) {
      PBmoveFile(PVBfilePath(toPath, names[i]) + kArriving, PVBfilePath(fromPath, names[i]));
    }
    errno = reason;
    return false;
  }
  return true;
}

}  // namespace

bool haveDirectory(const std::string& path) {
  return directoryExists(path) || platform().makeDirectory(path.c_str(), 0777) == 0;
}

int PVBcopy(const std::string& toPath, const std::string& fromPath) {
  if (!haveDirectory(toPath)) {
    PBpostError("PVBcopy", 81, toPath);
    return -2;
  }
  int result = 0;
  for (const std::string_view name : databaseFiles(true)) {
    const std::string source = PVBfilePath(fromPath, name);
    if (name == kLockFile || presenceOf(source) == Presence::absent) continue;
    if (PBcopyFile(source, PVBfilePath(toPath, name)) == 0) continue;
    PBpostError("PVBcopy", 85, source);
    result = -2;
  }
  errno = 0;
  return result;
}

int PVBdelete(const std::string& path, bool sideFilesToo) {
  if (PVBinqByPath(path) >= 0) return -2;
  if (!directoryExists(path)) {
    errno = 0;
    return 0;
  }
  int result = 0;
  for (const std::string_view name : databaseFiles(sideFilesToo)) {
    const std::string file = PVBfilePath(path, name);
    if (presenceOf(file) == Presence::absent) continue;
    if (platform().remove(file.c_str()) != 0) result = -2;
  }
  return removeDirectory(path) == 0 ? result : -2;
}

int PVBdeleteAll(const std::string& path) { return PVBdelete(path, true); }

int PVBrename(const std::string& fromPath, const std::string& toPath) {
  std::vector<std::string> names;
  if (PVBinqByPath(fromPath) >= 0 || !platform().list(fromPath.c_str(), names)) return -2;
  std::erase_if(names, [](const std::string& name) { return !name.starts_with(kNamePrefix); });
  if (!haveDirectory(toPath) || !bringFiles(names, fromPath, toPath)) return -2;
  const auto takesItsName = [&toPath](const std::string& name) {
    const std::string file = PVBfilePath(toPath, name);
    return platform().rename((file + kArriving).c_str(), file.c_str()) == 0;
  };
  if (!std::ranges::all_of(names, takesItsName)) return -2;
  return platform().removeDirectory(fromPath.c_str()) == 0 ? 0 : -2;
}

bool PVBhasFiles(const std::string& path) {
  if (PVBexists(path)) return true;
  const auto isThere = [&path](std::string_view name) {
    return presenceOf(PVBfilePath(path, name)) == Presence::present;
  };
  return std::ranges::any_of(saveOrder(), [&isThere](const SectionRow* row) {
    return std::ranges::any_of(row->files, isThere);
  });
}

std::int64_t PVBlargestFile(const std::string& path, bool sideFilesToo) {
  std::int64_t largest = 0;
  for (const std::string_view name : databaseFiles(sideFilesToo)) {
    struct stat status;
    if (platform().status(PVBfilePath(path, name).c_str(), status) != 0) continue;
    largest = std::max<std::int64_t>(largest, status.st_size);
  }
  errno = 0;
  return largest;
}
