#include "conditioner/merge.h"

#include <fmt/printf.h>

#include <cstdint>
#include <initializer_list>

#include "base/errors.h"
#include "base/progress.h"
#include "conditioner/copy.h"
#include "conditioner/merge_internal.h"
#include "conditioner/messages.h"
#include "conditioner/region_report.h"
#include "conditioner/run.h"
#include "conditioner/timeplate_transfer.h"
#include "pvb/database.h"
#include "pvb/timeplate.h"

namespace {

constexpr std::string_view kFunction = "merge";
constexpr int kBuffers = 8;
constexpr std::uint32_t kMergedFlag = 0x40000000;
constexpr int kPercent = 100;

int fail(int message, std::string_view arg1, ErrArg arg2 = {}) {
  PBerrPush(PBconditionerError, message, kFunction, arg1, arg2);
  return -2;
}

// --- Opening -------------------------------------------------------------------------

int checkExistence(std::initializer_list<const std::string*> paths) {
  for (const std::string* path : paths) {
    if (!PVBexists(*path)) return fail(kNoSuchDatabase, *path);
  }
  return 0;
}

int openSource(PVBregion& src) {
  src.pvbHandle = PVBopenAny(src.pvbName, false, 0, kBuffers, kAllSections, false);
  return src.pvbHandle >= 0 ? 0 : fail(kCannotOpen, src.pvbName);
}

// Two extended sources hold what only an extended destination can.
int openDestination(PVBregion& dest, const PVBregion& src1, const PVBregion& src2) {
  const bool upgrade =
      PVBmodelExtended(src1.pvbHandle, true) || PVBmodelExtended(src2.pvbHandle, true);
  dest.pvbHandle = PVBopenAny(dest.pvbName, true, 0, kBuffers, kAllSections, upgrade);
  return dest.pvbHandle >= 0 ? 0 : fail(kCannotOpen, dest.pvbName);
}

// Removes a database that stands where the destination goes. Opened for reading only:
// it may turn out to be a source.
int clearDestination(const std::string& dest, const PVBregion& src1, const PVBregion& src2,
                     const std::string& refPvb) {
  if (!PVBexists(dest)) return 0;
  const int database = PVBopenAny(dest, false, 0, kBuffers, kAllSections, false);
  if (database < 0) return fail(kCannotOpen, dest);
  for (const PVBregion* src : {&src1, &src2}) {
    if (sameDirectory(dest, src->pvbName)) return fail(kSameDatabase, dest, src->pvbName);
  }
  if (sameDirectory(dest, refPvb)) return fail(kSameReference, dest, refPvb);
  if (PVBclose(database) != 0) fatalExit();
  return PVBdeleteAll(dest) == 0 ? 0 : -2;
}

// --- Equal regions -------------------------------------------------------------------

std::string mergeLine(const PVBregion& dest, const PVBregion& src1, const PVBregion& src2,
                      const std::string& refPvb) {
  return fmt::sprintf(
      "\nMerge the following PVB Regions: %s and %s to %s using %s as reference PVB",
      src1.regionName, src2.regionName, dest.pvbName, refPvb);
}

void reportRegions(const PVBregion& src1, const PVBregion& src2) {
  printRegionHead();
  printRegionLine(src1);
  printRegionLine(src2);
}

int copyInstead(PVBregion& dest, PVBregion& src1, PVBregion& src2, const std::string& refPvb) {
  if (PVBregionClose(&src2) != 0) fatalExit();
  report(mergeLine(dest, src1, src2, refPvb));
  reportRegions(src1, src2);
  report(
      "\nThe merge operation is changed to a copy because the two source PVB regions are the "
      "same.");
  if (copy(dest, src1) == 0) return 0;
  PBerrPush(PBconditionerError, kCopyOperationFailed, kFunction);
  fatalExit();
}

// --- Combining -----------------------------------------------------------------------

void carryFlag(const PVBregion& dest, const PVBregion& src1, const PVBregion& src2) {
  const std::uint32_t flags = PVBdatabaseFlags(src1.pvbHandle) | PVBdatabaseFlags(src2.pvbHandle);
  if ((flags & kMergedFlag) == 0) return;
  PVBsetDatabaseFlags(dest.pvbHandle, PVBdatabaseFlags(dest.pvbHandle) | kMergedFlag);
}

void loadSheets(PVBregion& region) {
  if (region.sheets) return;
  if (eqLoad(region.pvbHandle, region.sheets.emplace()) != 0) fatalExit();
}

int categorizeSheets(PVBregion& src1, PVBregion& src2, eqSheetCategories& categories) {
  loadSheets(src1);
  loadSheets(src2);
  if (eqCategorize(*src1.sheets, *src2.sheets, categories) != 0) fatalExit();
  const bool overlap = !categories[SRC1_NON_IDENTICAL_NON_DISJOINT_SHEETS].empty() ||
                       !categories[SRC2_NON_IDENTICAL_NON_DISJOINT_SHEETS].empty();
  return overlap ? fail(kSheetsOverlap, src1.pvbName, src2.pvbName) : 0;
}

int mergeEquations(const PVBregion& dest, PVBregion& src1, PVBregion& src2, int state) {
  eqSheetCategories categories;
  if (state == kEquationsInBoth && categorizeSheets(src1, src2, categories) != 0) return -2;
  if (eqMerge(dest.pvbHandle, src1.pvbHandle, src2.pvbHandle, state, categories) == 0) return 0;
  return fail(kEquationMergeFailed, src1.pvbName, src2.pvbName);
}

// The order of the destination's signals: those only in source 1, those in both, those
// only in source 2.
void mergeSignals(PVBregion& dest, PVBregion& src1, PVBregion& src2,
                  const SigCategories& categories) {
  copySignals(dest, src1, categories[SRC1_DISJOINT_SCALARS]);
  copyOverlapSignals(dest, src1, src2, categories[OVERLAP_SCALARS]);
  copySignals(dest, src2, categories[SRC2_DISJOINT_SCALARS]);
}

int mergeData(PVBregion& dest, PVBregion& src1, PVBregion& src2) {
  if (mergePmode(dest, src1, src2) != 0) return -2;
  expandTimePlates(src1.pvbHandle);
  expandTimePlates(src2.pvbHandle);
  SigCategories categories;
  if (categorizeSignals(src1, src2, categories) != 0) fatalExit();
  const int state = eqInspect(src1.pvbHandle, src2.pvbHandle);
  if (!PVBregionCompatible(src1, src2, state, categories)) {
    return fail(kIncompatibleRegions, src1.regionName, src2.regionName);
  }
  if (mergeEquations(dest, src1, src2, state) != 0) return -2;
  mergeSignals(dest, src1, src2, categories);
  if (mergeCycle(dest, src1, src2, categories) == 0) return 0;
  return fail(kPatternMergeFailed, src1.regionName, src2.regionName);
}

void saveAndClose(const PVBregion& dest, PVBregion& src1, PVBregion& src2,
                  const std::string& refPvb) {
  if (PVBsave(dest.pvbHandle) != 0 || PVBclose(dest.pvbHandle) != 0) fatalExit();
  if (closeRefPVB(refPvb) != 0) fatalExit();
  if (PVBregionClose(&src1) != 0 || PVBregionClose(&src2) != 0) fatalExit();
}

}  // namespace

int merge(PVBregion& dest, PVBregion& src1, PVBregion& src2, const std::string& refPvb) {
  if (checkExistence({&src1.pvbName, &src2.pvbName, &refPvb}) != 0) return -2;
  if (openSource(src1) != 0 || openSource(src2) != 0) return -2;
  if (clearDestination(dest.pvbName, src1, src2, refPvb) != 0) return -2;
  if (PVBregionEqual(src1, src2)) return copyInstead(dest, src1, src2, refPvb);
  if (openDestination(dest, src1, src2) != 0) return -2;
  carryFlag(dest, src1, src2);

  PBprogressStart(kPercent, fmt::sprintf("...merging PVB regions: %s %s to %s", src1.regionName,
                                         src2.regionName, dest.pvbName));
  report("\n");
  report(mergeLine(dest, src1, src2, refPvb));
  report("\n");
  reportRegions(src1, src2);
  report("\n");
  if (initRefPVB(refPvb) != 0) fatalExit();
  if (mergeData(dest, src1, src2) != 0) return -2;
  saveAndClose(dest, src1, src2, refPvb);
  PBprogressEnd(kPercent);
  return 0;
}
