#include "conditioner/copy.h"

#include <fmt/printf.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "base/progress.h"
#include "conditioner/concat.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "conditioner/scan_transfer.h"
#include "conditioner/timeplate_transfer.h"
#include "pvb/database.h"
#include "pvb/database_copy.h"
#include "pvb/property.h"

namespace {

constexpr std::string_view kFunction = "copy";
constexpr std::string_view kVectorFile = "pvb.st";
// Taken whole from the source after the rows, in this order.
constexpr std::array<std::string_view, 5> kWholeFiles = {"pvb.sdb", "pvb.m", "pvb.mt", kVectorFile,
                                                         "pvb.lb"};

// --- Files ---------------------------------------------------------------------------

int copyFile(const PVBregion& dest, const PVBregion& src, std::string_view name) {
  const std::string from = PVBfilePath(src.pvbName, name);
  if (presenceOf(from) == Presence::absent) return 0;
  if (PBcopyFile(from, PVBfilePath(dest.pvbName, name)) == 0) return 0;
  PBpostError(kFunction, 85, from);
  return -2;
}

int copyWholeFiles(const PVBregion& dest, const PVBregion& src) {
  for (const std::string_view name : kWholeFiles) {
    if (copyFile(dest, src, name) != 0) return -2;
  }
  return PVBadoptHeader(dest.pvbName, src.pvbName);
}

// The vectors are there before the rows, so that the scan runs of the copied rows refer
// to the vectors of the file that the destination ends up with.
int placeVectors(const PVBregion& dest, const PVBregion& src) {
  const std::string& path = dest.pvbName;
  if (!directoryExists(path) && platform().makeDirectory(path.c_str(), 0777) != 0) {
    PBerrPush(PBconditionerError, kCannotOpen, kFunction, path);
    return -2;
  }
  errno = 0;
  return copyFile(dest, src, kVectorFile);
}

// --- Opening -------------------------------------------------------------------------

int openBoth(PVBregion& dest, PVBregion& src) {
  if (!PVBexists(src.pvbName)) {
    errno = 0;
    PBerrPush(PBconditionerError, kNoSuchDatabase, kFunction, src.pvbName);
    return -2;
  }
  if (openSource(kFunction, src) != 0) return -2;
  if (clearDestination(kFunction, dest, {&src}) != 0) return -2;
  if (placeVectors(dest, src) != 0) return -2;
  return openDestination(kFunction, dest, PVBmodelExtended(src.pvbHandle, true));
}

std::int64_t announce(const PVBregion& dest, const PVBregion& src) {
  report("\n");
  report(fmt::sprintf("\nCopy the following PVB Region: %s to %s", src.regionName, dest.pvbName));
  report("\n");
  printRegionHead();
  printRegionLine(src);
  report("\n");
  const std::int64_t rows = PVBregionRowCount(src);
  PBprogressStart(rows,
                  fmt::sprintf("...copying PVBregion: %s to %s", src.regionName, dest.pvbName));
  return rows;
}

// --- Content -------------------------------------------------------------------------

// The first list that the destination makes, so that its id is most often the source's
// too and the header can be the source's byte for byte.
void copyDatabaseProperties(int dest, int src) {
  const PVBid from = PVBdbPropertyList(src);
  if (from == UNDEF || !PVBpropListExists(src, from)) return;
  std::vector<PVBproperty> properties;
  for (const PVBproperty* property = PVBpropInqFirst(src, from); property != nullptr;
       property = PVBpropInqNext(src)) {
    properties.push_back(*property);
  }
  const PVBid to = PVBdbPropertyListMake(dest);
  for (auto property = properties.rbegin(); property != properties.rend(); ++property) {
    PVBputProp(dest, to, *property);
  }
}

SignalTable copyAllSignals(PVBregion& dest, PVBregion& src) {
  SignalTable table = signalTableOf(src);
  if (table.empty()) assertFail(__FILE__, __LINE__);
  makeSigIDMap(src);
  copySignals(dest, src, table);
  return table;
}

int copyContent(PVBregion& dest, PVBregion& src, bool quiet) {
  copyDatabaseProperties(dest.pvbHandle, src.pvbHandle);
  expandTimePlates(src.pvbHandle);
  const SignalTable table = copyAllSignals(dest, src);
  SigCategories categories;
  if (categorizeSignals(src, dest, categories) != 0) assertFail(__FILE__, __LINE__);
  copyScanChains(src, dest, categories[SRC1_ALL_SCALARS], false);
  const StructuresAllowed allowed;
  ConcatOptions options;
  options.quiet = quiet;
  if (concatRegion(dest, src, table, options) == 0) return 0;
  errno = 0;
  PBerrPush(PBconditionerError, kConcatRegionFailed, kFunction, src.regionName);
  return -2;
}

}  // namespace

int copy(PVBregion& dest, PVBregion& src, bool quiet) {
  if (openBoth(dest, src) != 0) return -2;
  const std::int64_t rows = quiet ? 0 : announce(dest, src);
  if (copyContent(dest, src, quiet) != 0) return -2;
  PVBsetDatabaseFlags(dest.pvbHandle, PVBdatabaseFlags(src.pvbHandle));
  PVBsetPmode(dest.pvbHandle, PVBpmode(src.pvbHandle));
  closeOperands(kFunction, dest, {&src});
  if (copyWholeFiles(dest, src) != 0) return -2;
  if (!quiet) PBprogressEnd(rows);
  return 0;
}

// --- Deleting ------------------------------------------------------------------------

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
