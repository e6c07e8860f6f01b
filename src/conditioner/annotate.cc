#include "conditioner/annotate.h"

#include <fmt/printf.h>

#include <string>
#include <string_view>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "pvb/annotate.h"
#include "pvb/database.h"
#include "pvb/property.h"
#include "pvb/row_rewrite.h"
#include "pvb/timeplate.h"

namespace {

constexpr std::string_view kFunction = "annotateVectors";

int fail(const char* text) {
  PBerrPush(PBconditionerError, kFunctionAndText, kFunction, text);
  return -2;
}

// --- Rows ----------------------------------------------------------------------------

// Names another function than its own: kept, so that the line reads as it always did.
constexpr std::string_view kReader = "fixTpRowRefs";

// Whether annotateVector will go well.
bool canAnnotate(int database, const PVBrow& row) {
  return row.timeplate == kNoTimePlate ||
         (PVBtimePlateInqByID(database, row.timeplate) != nullptr && row.tag != UNDEF &&
          PVBpropListExists(database, row.tag));
}

// Looks first: comments reach the disk as they are made.
bool annotateAll(int database) {
  const auto look = [database](PVBrow& row) {
    return canAnnotate(database, row) ? RowChange::none : RowChange::refused;
  };
  const auto annotate = [database](PVBrow& row) {
    if (!annotateVector(database, row)) return RowChange::refused;
    return row.timeplate == kNoTimePlate ? RowChange::none : RowChange::changed;
  };
  return PVBrewriteAllRows(database, kReader, look) &&
         PVBrewriteAllRows(database, kReader, annotate);
}

}  // namespace

int annotateVectors(const PVBregion* src, const PVBregion* dest) {
  if (src == nullptr) return fail("src region is NULL");
  WorkingDatabase target;
  const int database = openWorking(kFunction, *src, dest, target);
  if (database < 0) return -2;
  const bool done = annotateAll(database);
  report(fmt::sprintf("Annotation of PVB (%s) %s.\n", target.path(), done ? "complete" : "FAILED"));
  if (!done) return -2;
  if (PVBsave(database) != 0) return fail("PVBsave() failed");
  if (target.close() != 0) return fail("PVBclose() failed");
  return 0;
}
