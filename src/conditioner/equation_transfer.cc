#include "conditioner/equation_transfer.h"

#include <cerrno>

#include "base/errors.h"
#include "conditioner/messages.h"

namespace {

int fail(int message, std::string_view function, const PVBregion& region1,
         const PVBregion& region2) {
  errno = 0;
  PBerrPush(PBconditionerError, message, function, region1.pvbName, region2.pvbName);
  return -2;
}

int loadSheets(PVBregion& region) {
  if (region.sheets) return 0;
  return eqLoad(region.pvbHandle, region.sheets.emplace());
}

}  // namespace

int categorizeSheets(PVBregion& region1, PVBregion& region2, eqSheetCategories& categories) {
  if (loadSheets(region1) != 0 || loadSheets(region2) != 0) return -2;
  return eqCategorize(*region1.sheets, *region2.sheets, categories);
}

int refuseMixedSheets(std::string_view function, const eqSheetCategories& categories,
                      const PVBregion& region1, const PVBregion& region2) {
  if (categories[SRC1_NON_IDENTICAL_NON_DISJOINT_SHEETS].empty() &&
      categories[SRC2_NON_IDENTICAL_NON_DISJOINT_SHEETS].empty()) {
    return 0;
  }
  return fail(kSheetsOverlap, function, region1, region2);
}

int mergeEquations(std::string_view function, const PVBregion& dest, const PVBregion& region1,
                   const PVBregion& region2, int state, const eqSheetCategories& categories) {
  const int merged =
      eqMerge(dest.pvbHandle, region1.pvbHandle, region2.pvbHandle, state, categories);
  return merged == 0 ? 0 : failEquations(function, region1, region2);
}

int failEquations(std::string_view function, const PVBregion& region1, const PVBregion& region2) {
  return fail(kEquationMergeFailed, function, region1, region2);
}
