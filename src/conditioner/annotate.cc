#include "conditioner/annotate.h"

#include <fmt/printf.h>

#include <cstdio>
#include <string>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "pvb/annotate.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/timeplate.h"

namespace {

constexpr std::string_view kFunction = "annotateVectors";

int fail(const char* text) {
  PBerrPush(PBconditionerError, kFunctionAndText, kFunction, text);
  return -2;
}

// --- Rows ----------------------------------------------------------------------------

using RowVisit = bool (*)(int database, int pattern, PVBposition& position, PVBrow& row);

// Whether annotateVector will go well.
bool canAnnotate(int, int, PVBposition&, PVBrow& row) {
  return row.timeplate == kNoTimePlate || row.tag != UNDEF;
}

bool annotateRow(int database, int pattern, PVBposition& position, PVBrow& row) {
  if (!annotateVector(database, row)) return false;
  return row.timeplate == kNoTimePlate ||
         PVBrowUpdate(database, pattern, position, BY_ROW, row) == 0;
}

// The line names another function than its own: kept, so that it reads as it always did.
void tellMissingRow(std::uint32_t number, std::uint32_t count) {
  fmt::fprintf(stderr, "fixTpRowRefs: PVBpatternInqRow (row = %ld) failed (rowCnt = %ld)\n", number,
               count);
}

bool visitPattern(int database, int pattern, RowVisit visit) {
  PVBposition sums;
  if (PVBpatternInqSize(database, pattern, sums) != 0) return false;
  for (std::uint32_t number = 0; number < sums.row; ++number) {
    PVBposition position;
    position.row = number;
    const RowHandle row(database, PVBpatternInqRow(database, pattern, position, BY_ROW));
    if (!row) tellMissingRow(number, sums.row);
    if (!row || !visit(database, pattern, position, *row)) return false;
  }
  return true;
}

bool visitAll(int database, RowVisit visit) {
  if (!visitPattern(database, kMainPattern, visit)) return false;
  for (int index = PVBsubroutineFirst(database); index >= 0; index = PVBsubroutineNext(database)) {
    if (!visitPattern(database, index, visit)) return false;
  }
  return true;
}

}  // namespace

int annotateVectors(const PVBregion* src, const PVBregion* dest) {
  if (src == nullptr) return fail("src region is NULL");
  const int database = openWorking(kFunction, *src, dest);
  if (database < 0) return -2;
  const std::string path = PVBpath(database);
  // Looking first: comments reach the disk as they are made.
  const bool done = visitAll(database, canAnnotate) && visitAll(database, annotateRow);
  report(fmt::sprintf("Annotation of PVB (%s) %s.\n", path, done ? "complete" : "FAILED"));
  if (!done) return -2;
  if (PVBsave(database) != 0) return fail("PVBsave() failed");
  if (PVBclose(database) != 0) return fail("PVBclose() failed");
  return 0;
}
