#include "conditioner/concat.h"

#include <fmt/printf.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "base/errors.h"
#include "base/progress.h"
#include "conditioner/equation_transfer.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "conditioner/run.h"
#include "conditioner/scan_transfer.h"
#include "conditioner/timeplate_transfer.h"
#include "pvb/bus.h"
#include "pvb/database.h"
#include "pvb/timeplate_expand.h"

namespace {

constexpr std::string_view kFunction = "concat";

struct Operands {
  PVBregion& dest;
  PVBregion& src1;
  PVBregion& src2;
  bool insert;
};

template <typename... Args>
int fail(int message, const Args&... args) {
  errno = 0;
  PBerrPush(PBconditionerError, message, args...);
  return -2;
}

// --- Opening -------------------------------------------------------------------------

int requireSources(const Operands& on) {
  for (const PVBregion* source : {&on.src1, &on.src2}) {
    if (!PVBexists(source->pvbName)) return fail(kNoSuchDatabase, kFunction, source->pvbName);
  }
  return 0;
}

int prepareDestination(const Operands& on) {
  if (clearDestination(kFunction, on.dest, {&on.src1, &on.src2}) != 0) return -2;
  if (!on.insert || PVBcopy(on.dest.pvbName, on.src2.pvbName) == 0) return 0;
  return fail(kCopyFailed, kFunction, on.src2.pvbName, on.dest.pvbName);
}

int openAll(const Operands& on) {
  if (requireSources(on) != 0) return -2;
  const bool newFormat = PVBisExtended(on.src1.pvbName) || PVBisExtended(on.src2.pvbName);
  if (openSource(kFunction, on.src1) != 0 || openSource(kFunction, on.src2) != 0) return -2;
  if (prepareDestination(on) != 0) return -2;
  return openDestination(kFunction, on.dest, newFormat && !on.insert);
}

// An insertion is announced in the same words.
void announce(const Operands& on) {
  report("\n");
  report(fmt::sprintf("\nConcatenate the following PVB Regions: %s and %s to %s",
                      on.src1.regionName, on.src2.regionName, on.dest.pvbName));
  report("\n");
  printRegionHead();
  printRegionLine(on.src1);
  printRegionLine(on.src2);
  report("\n\n");
  std::fflush(run.reportStream);
}

// The rows to be read; an insertion counts those of the second region too.
std::int64_t startProgress(const Operands& on) {
  const std::int64_t rows = PVBregionRowCount(on.src1) + PVBregionRowCount(on.src2);
  PBprogressStart(rows, fmt::sprintf("...concatenating PVB regions: %s %s to %s",
                                     on.src1.regionName, on.src2.regionName, on.dest.pvbName));
  return rows;
}

// --- Signals -------------------------------------------------------------------------

// Both sources must have the same signals.
int compareSignals(const Operands& on, SigCategories& categories) {
  PVBregion& other = on.insert ? on.dest : on.src2;
  if (categorizeSignals(on.src1, other, categories) != 0) assertFail(__FILE__, __LINE__);
  if (categories[SRC1_DISJOINT_SCALARS].empty() && categories[SRC2_DISJOINT_SCALARS].empty()) {
    return 0;
  }
  fail(kSignalsDisjoint, kFunction, on.src1.regionName, on.src2.regionName);
  listDisjointSignals(categories, on.src1, on.src2);
  return -2;
}

// All signals that differ are told.
int compareDirections(const SigCategories& categories) {
  int result = 0;
  for (const PVBsignal* signal : categories[SRC1_ALL_SCALARS].signals()) {
    const std::string name = signal->name.value_or("");
    const PVBsignal* other = categories[SRC2_ALL_SCALARS].find(name);
    if (other == nullptr) {
      return fail(kText, fmt::sprintf("FATAL: Failed to find signal \"%s\" in "
                                      "sigCategories[SRC2_ALL_SCALARS]",
                                      name));
    }
    if (other->direction == signal->direction) continue;
    result = fail(kText, fmt::sprintf("ERROR: Signal \"%s\" differs in direction between "
                                      "source PVBs.",
                                      name));
  }
  return result;
}

int takeSignals(const Operands& on, SigCategories& categories) {
  if (compareSignals(on, categories) != 0 || compareDirections(categories) != 0) return -2;
  if (on.insert) {
    mapSignalsByName(on.src1, on.dest);
  } else {
    copyOverlapSignals(on.dest, on.src1, on.src2, categories[OVERLAP_SCALARS]);
  }
  return 0;
}

// --- Equations -----------------------------------------------------------------------

int compareSheets(const Operands& on, eqSheetCategories& sheets) {
  if (categorizeSheets(on.src1, on.src2, sheets) != 0) {
    return failEquations(kFunction, on.src1, on.src2);
  }
  return refuseMixedSheets(kFunction, sheets, on.src1, on.src2);
}

int takeEquations(const Operands& on) {
  const int state = eqInspect(on.src1.pvbHandle, on.src2.pvbHandle);
  eqSheetCategories sheets;
  if (state == kEquationsInBoth && compareSheets(on, sheets) != 0) return -2;
  // The destination of an insertion has those of the second source already.
  if (on.insert && state == kEquationsIn2) return 0;
  return mergeEquations(kFunction, on.dest, on.src1, on.src2, state, sheets);
}

// --- Rows ----------------------------------------------------------------------------

int takeRows(const Operands& on, PVBregion& src, const SignalTable& table) {
  ConcatOptions options;
  options.mode = on.insert ? kPrepend : kAppend;
  options.label = !on.insert;
  if (concatRegion(on.dest, src, table, options) == 0) return 0;
  return fail(kConcatRegionFailed, kFunction, src.regionName);
}

int concatenateRows(const Operands& on, const SigCategories& categories) {
  copyScanChains(on.src2, on.dest, categories[SRC2_ALL_SCALARS], true);
  const StructuresAllowed allowed;
  if (takeRows(on, on.src1, categories[SRC1_ALL_SCALARS]) != 0) return -2;
  if (takeRows(on, on.src2, categories[SRC2_ALL_SCALARS]) != 0) return -2;
  return busifyPVB(on.dest.pvbHandle) ? 0 : fail(kText, "busifyPVB() failed");
}

int insertRows(const Operands& on, const SigCategories& categories) {
  const StructuresAllowed allowed;
  return takeRows(on, on.src1, categories[SRC1_ALL_SCALARS]);
}

int takeAll(const Operands& on) {
  if (!expandTimePlates(on.src1.pvbHandle) || !expandTimePlates(on.src2.pvbHandle)) return -2;
  if (mergePmode(on.dest, on.src1, on.src2) != 0) return -2;
  SigCategories categories;
  if (takeSignals(on, categories) != 0 || takeEquations(on) != 0) return -2;
  copyScanChains(on.src1, on.dest, categories[SRC1_ALL_SCALARS], false);
  return on.insert ? insertRows(on, categories) : concatenateRows(on, categories);
}

}  // namespace

int concat(PVBregion& dest, PVBregion& src1, PVBregion& src2, int mode) {
  const Operands on = {dest, src1, src2, mode == kPrepend};
  if (openAll(on) != 0) return -2;
  inheritFlag(dest, src1, src2);
  announce(on);
  const std::int64_t rows = startProgress(on);
  if (takeAll(on) != 0) return -2;
  if (&src1 == &src2) {
    closeOperands(kFunction, dest, {&src1});
  } else {
    closeOperands(kFunction, dest, {&src1, &src2});
  }
  PBprogressEnd(rows);
  return 0;
}
