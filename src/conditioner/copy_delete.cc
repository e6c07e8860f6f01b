// Databases removed from disk.

#include <fmt/printf.h>

#include <cerrno>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "base/progress.h"
#include "conditioner/copy.h"
#include "conditioner/messages.h"
#include "conditioner/region_report.h"
#include "pvb/database.h"

namespace {

// The total of a display that has no steps.
constexpr std::int64_t kWholeDelete = 100;

// Removes one name: a file, a link without what it leads to, an empty directory.
bool removeOne(const char* path) {
  if (platform().remove(path) == 0) return true;
  const int reason = errno;
  if (reason != EISDIR && reason != EPERM) return false;
  if (platform().removeDirectory(path) == 0) return true;
  if (errno == ENOTDIR) errno = reason;
  return false;
}

// Removes a directory with all it holds. False with errno set; what could be removed by
// then is gone.
bool removeTree(const std::string& path) {
  std::vector<std::string> left = {path};
  std::vector<std::string> names;
  while (!left.empty()) {
    const std::string at = left.back();
    if (removeOne(at.c_str())) {
      left.pop_back();
      continue;
    }
    if (errno != ENOTEMPTY && errno != EEXIST) return false;
    if (!platform().list(at.c_str(), names) || names.empty()) return false;
    for (const std::string& name : names) left.push_back(PVBfilePath(at, name));
  }
  errno = 0;
  return true;
}

}  // namespace

int deleteObject(const PVBregion& region) {
  if (region.pvbName.empty()) assertFail(__FILE__, __LINE__);
  PBprogressStart(kWholeDelete, fmt::sprintf("...deleting %s", region.regionName));
  report("\n");
  report(fmt::sprintf("\nDelete %s", region.regionName));
  report("\n");
  printRegionHead();
  printRegionLine(region);
  report("\n");
  if (directoryExists(region.pvbName) && !removeTree(region.pvbName)) {
    PBerrPush(PBconditionerError, kDeleteFailed, "deleteObject", region.pvbName);
    return -2;
  }
  PBprogressEnd(kWholeDelete);
  return 0;
}

int deleteDB(OpSpec& operation, RegionTable& regions) {
  for (const PVBregion* region : {operation.src1, operation.src2, operation.dest}) {
    if (region == nullptr) continue;
    if (deleteObject(*region) != 0) return -2;
    regions.remove(*region);
  }
  return 0;
}
