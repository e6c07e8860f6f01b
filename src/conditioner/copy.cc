#include "conditioner/copy.h"

#include <fmt/printf.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>

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
#include "pvb/label.h"
#include "pvb/property.h"
#include "pvb/state_vector.h"
#include "pvb/timeplate_expand.h"

namespace {

constexpr std::string_view kFunction = "copy";
constexpr std::string_view kVectorFile = "pvb.st";
constexpr std::string_view kLabelFile = "pvb.lb";
// Taken whole from the source after the rows, in this order.
constexpr std::array<std::string_view, 5> kWholeFiles = {"pvb.sdb", "pvb.m", "pvb.mt", kVectorFile,
                                                         kLabelFile};

// --- Files ---------------------------------------------------------------------------

int copyFile(const PVBregion& dest, const PVBregion& src, std::string_view name) {
  const std::string from = PVBfilePath(src.pvbName, name);
  if (presenceOf(from) == Presence::absent) return 0;
  if (PBcopyFile(from, PVBfilePath(dest.pvbName, name)) == 0) return 0;
  PBpostError(kFunction, 85, from);
  return -2;
}

int copyWholeFiles(const PVBregion& dest, const PVBregion& src, bool ownLabels) {
  for (const std::string_view name : kWholeFiles) {
    if (ownLabels && name == kLabelFile) continue;
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
int copyDatabaseProperties(int dest, int src) {
  const PVBid from = PVBdbPropertyList(src);
  if (from == UNDEF || !PVBpropListExists(src, from)) return 0;
  const PVBid to = PVBpropListCarry(dest, src, from);
  return to != UNDEF ? PVBdbPropertyListSet(dest, to) : -2;
}

SignalTable copyAllSignals(PVBregion& dest, PVBregion& src) {
  SignalTable table = signalTableOf(src);
  if (table.empty()) assertFail(__FILE__, __LINE__);
  makeSigIDMap(src);
  copySignals(dest, src, table);
  return table;
}

// The vectors without a name, which only their ids tell apart, are those of the file that
// was placed; those with one are found by it.
void keepNamelessVectors(PVBregion& src) {
  const int database = src.pvbHandle;
  for (PVBid id = PVBstateVectorNext(database, UNDEF); id != UNDEF;
       id = PVBstateVectorNext(database, id)) {
    if (PVBstateVectorName(database, id).empty()) src.vectorIDMap[id] = id;
  }
}

// --- Labels --------------------------------------------------------------------------

// The destination's subroutine with the name of one of the source, -1 for none.
std::int32_t subroutineLike(int dest, int src, std::int32_t subroutine) {
  const std::string_view name = PVBsubroutineName(src, subroutine);
  return name.empty() ? -1 : PVBsubroutineByName(dest, name);
}

PVBid rowIdAt(int database, std::int32_t subroutine, std::uint32_t rowNumber) {
  PVBposition position;
  position.row = rowNumber;
  const RowHandle row(database, PVBpatternInqRow(database, subroutine, position, BY_ROW));
  return row ? static_cast<PVBid>(row->id) : UNDEF;
}

// Whether a label of the source means the row of its number in the destination too.
bool labelFits(int dest, int src, const PVBlabel& label) {
  if (label.subroutine != kMainPattern &&
      subroutineLike(dest, src, label.subroutine) != label.subroutine) {
    return false;
  }
  if (label.rowNumber == kNoRowNumber) return true;
  const PVBid row = rowIdAt(dest, label.subroutine, label.rowNumber);
  return row == UNDEF || row == label.rowId;
}

// The destination's labels are those of the whole source, its file as it stands. Where
// the rows or subroutines got other ids the labels keep all but these.
bool needsOwnLabels(int dest, int src) {
  return !std::ranges::all_of(PVBlabels(src),
                              [&](const PVBlabel& label) { return labelFits(dest, src, label); });
}

void makeOwnLabels(int dest, int src) {
  PVBlabelData& own = *PVBget(dest)->labels;
  for (PVBlabel label : PVBlabels(src)) {
    if (label.subroutine != kMainPattern) {
      label.subroutine = subroutineLike(dest, src, label.subroutine);
      if (label.subroutine < 0) label.rowNumber = kNoRowNumber;
    }
    label.rowId = rowIdAt(dest, label.subroutine, label.rowNumber);
    own.labels.push_back(std::move(label));
  }
  own.changed = true;
}

// --- Steps ---------------------------------------------------------------------------

int copyContent(PVBregion& dest, PVBregion& src, bool quiet) {
  if (copyDatabaseProperties(dest.pvbHandle, src.pvbHandle) != 0) return -2;
  PVBget(dest.pvbHandle)->patterns->addressBase = PVBget(src.pvbHandle)->patterns->addressBase;
  if (!expandTimePlates(src.pvbHandle)) return -2;
  const SignalTable table = copyAllSignals(dest, src);
  SigCategories categories;
  if (categorizeSignals(src, dest, categories) != 0) assertFail(__FILE__, __LINE__);
  copyScanChains(src, dest, categories[SRC1_ALL_SCALARS], false);
  keepNamelessVectors(src);
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
  const bool ownLabels = needsOwnLabels(dest.pvbHandle, src.pvbHandle);
  if (ownLabels) makeOwnLabels(dest.pvbHandle, src.pvbHandle);
  closeOperands(kFunction, dest, {&src});
  if (copyWholeFiles(dest, src, ownLabels) != 0) return -2;
  if (!quiet) PBprogressEnd(rows);
  return 0;
}
