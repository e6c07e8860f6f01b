#include "conditioner/flatten.h"

#include <fmt/printf.h>

#include <cerrno>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "pvb/database.h"
#include "pvb/flatten_rows.h"
#include "pvb/label.h"
#include "pvb/pattern.h"

namespace {

constexpr std::string_view kFunction = "flatten";

bool isStructure(int database, PVBid rowId) {
  if (rowId == UNDEF) return false;
  const RowHandle row(database, PVBrowGet(database, static_cast<std::uint32_t>(rowId)));
  return row && (row->type == ROW_LOOP || row->type == ROW_END_LOOP || row->type == ROW_SUBR_CALL);
}

// The labels of rows that are about to go: their blocks are used for other rows, which must not be
// taken for them. A label on the first row stays on the first row.
void releaseLabels(int database) {
  for (PVBlabel& label : PVBget(database)->labels->labels) {
    const bool inSubroutine = label.subroutine != kMainPattern;
    if (!inSubroutine && !isStructure(database, label.rowId)) continue;
    label.rowId = UNDEF;
    label.subroutine = kMainPattern;
    if (inSubroutine) label.rowNumber = kNoRowNumber;
  }
}

int deleteSubroutines(int database) {
  // They call each other: sums are of no use until all are gone.
  FixBatch batch(database);
  for (int index = PVBsubroutineFirst(database); index >= 0; index = PVBsubroutineNext(database)) {
    if (PVBsubroutineDelete(database, index) != 0) return -2;
  }
  return batch.end();
}

// Subroutines aren't flattened before: what they stand for is copied into the main
// pattern at every call, and nothing else is left of them.
int flattenDatabase(int database) {
  releaseLabels(database);
  if (flattenRows(database, kMainPattern) != 0) return -2;
  if (PVBlabelRecompute(database) != 0) return -2;
  return deleteSubroutines(database);
}

}  // namespace

int flatten(const PVBregion& src, const PVBregion* dest) {
  WorkingDatabase target;
  const int database = openWorking(kFunction, src, dest, target);
  if (database < 0) return -2;
  report(fmt::sprintf("Flattening PVB: %s\n", target.path()));
  if (flattenDatabase(database) != 0) {
    errno = 0;
    PBerrPush(PBconditionerError, kFlattenFailed, target.path());
    return -2;
  }
  if (target.close() != 0) assertFail(__FILE__, __LINE__);
  return 0;
}
