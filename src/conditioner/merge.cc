#include "conditioner/merge.h"

#include <fmt/printf.h>

#include <cerrno>
#include <cstdio>
#include <initializer_list>

#include "base/errors.h"
#include "base/platform.h"
#include "base/progress.h"
#include "conditioner/copy.h"
#include "conditioner/equation_transfer.h"
#include "conditioner/merge_internal.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "conditioner/run.h"
#include "conditioner/timeplate_transfer.h"
#include "pvb/database.h"
#include "pvb/timeplate_expand.h"
#include "timeplate/optimizer.h"
#include "timeplate/tp_rewrite.h"

namespace {

constexpr std::string_view kFunction = "merge";
constexpr int kPercent = 100;

int fail(int message, std::string_view arg1, ErrArg arg2 = {}) {
  errno = 0;
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

// Extended sources hold what only an extended destination can.
bool needsExtended(const PVBregion& src1, const PVBregion& src2) {
  return PVBmodelExtended(src1.pvbHandle, true) || PVBmodelExtended(src2.pvbHandle, true);
}

int makeRoom(const PVBregion& dest, const PVBregion& src1, const PVBregion& src2,
             const std::string& refPvb) {
  const bool isSource =
      sameDirectory(dest.pvbName, src1.pvbName) || sameDirectory(dest.pvbName, src2.pvbName);
  if (!isSource && sameDirectory(dest.pvbName, refPvb)) {
    return fail(kSameReference, dest.pvbName, refPvb);
  }
  return clearDestination(kFunction, dest, {&src1, &src2});
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
  errno = 0;
  PBerrPush(PBconditionerError, kCopyOperationFailed, kFunction);
  fatalExit();
}

// --- Combining -----------------------------------------------------------------------

int compareSheets(PVBregion& src1, PVBregion& src2, eqSheetCategories& sheets) {
  if (categorizeSheets(src1, src2, sheets) != 0) fatalExit();
  return refuseMixedSheets(kFunction, sheets, src1, src2);
}

int takeEquations(const PVBregion& dest, PVBregion& src1, PVBregion& src2, int state) {
  eqSheetCategories sheets;
  if (state == kEquationsInBoth && compareSheets(src1, src2, sheets) != 0) return -2;
  return mergeEquations(kFunction, dest, src1, src2, state, sheets);
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
  if (!expandTimePlates(src1.pvbHandle) || !expandTimePlates(src2.pvbHandle)) return -2;
  SigCategories categories;
  if (categorizeSignals(src1, src2, categories) != 0) fatalExit();
  const int state = eqInspect(src1.pvbHandle, src2.pvbHandle);
  if (!PVBregionCompatible(src1, src2, state, categories)) {
    return fail(kIncompatibleRegions, src1.regionName, src2.regionName);
  }
  if (takeEquations(dest, src1, src2, state) != 0) return -2;
  mergeSignals(dest, src1, src2, categories);
  if (mergeCycle(dest, src1, src2, categories) == 0) return 0;
  return fail(kPatternMergeFailed, src1.regionName, src2.regionName);
}

// The pass over what was generated. Rows reach the database at its end.
int optimizeTimePlates() {
  if (tpOptimizerBegin() != 0 || !tpCheckShapes()) return -2;
  if (run.reportStream != nullptr) std::fflush(run.reportStream);
  std::fflush(stderr);
  std::fflush(stdout);
  if (tpOptimizeGenerated(true) < 0) return -2;
  tpOptimizerSetDatabase(-1);
  return 0;
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
  if (openSource(kFunction, src1) != 0 || openSource(kFunction, src2) != 0) return -2;
  if (makeRoom(dest, src1, src2, refPvb) != 0) return -2;
  if (PVBregionEqual(src1, src2)) return copyInstead(dest, src1, src2, refPvb);
  if (openDestination(kFunction, dest, needsExtended(src1, src2)) != 0) return -2;
  inheritFlag(dest, src1, src2);

  PBprogressStart(kPercent, fmt::sprintf("...merging PVB regions: %s %s to %s", src1.regionName,
                                         src2.regionName, dest.pvbName));
  report("\n");
  report(mergeLine(dest, src1, src2, refPvb));
  report("\n");
  reportRegions(src1, src2);
  report("\n");
  if (initRefPVB(refPvb) != 0) fatalExit();
  if (run.optimizeTimePlates) tpOptimizerSetDatabase(dest.pvbHandle);
  if (mergeData(dest, src1, src2) != 0) return -2;
  if (run.optimizeTimePlates && optimizeTimePlates() != 0) return -2;
  saveAndClose(dest, src1, src2, refPvb);
  PBprogressEnd(kPercent);
  return 0;
}
