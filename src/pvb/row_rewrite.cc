#include "pvb/row_rewrite.h"

#include <fmt/printf.h>

#include "pvb/pattern.h"

namespace {

bool failReading(std::string_view function, std::int64_t row, std::int64_t rows) {
  fmt::fprintf(stderr, "%s: PVBpatternInqRow (row = %ld) failed (rowCnt = %ld)\n", function, row,
               rows);
  return false;
}

}  // namespace

bool PVBrewriteRows(int database, int pattern, std::string_view function,
                    const RowRewrite& rewrite) {
  PVBposition sums;
  if (PVBpatternInqSize(database, pattern, sums) != 0) return failReading(function, 0, 0);
  PatternWalk walk(database, pattern);
  for (std::uint32_t i = 0; i < sums.row; ++i) {
    if (!walk.next()) return failReading(function, i, sums.row);
    const RowHandle row(database, PVBrowGet(database, walk.entry().child));
    if (!row) return failReading(function, i, sums.row);
    const RowChange change = rewrite(*row);
    if (change == RowChange::refused) return false;
    if (change == RowChange::changed && walk.update(*row) != 0) return false;
  }
  return true;
}

bool PVBrewriteAllRows(int database, std::string_view function, const RowRewrite& rewrite) {
  if (!PVBrewriteRows(database, kMainPattern, function, rewrite)) return false;
  for (int subroutine = PVBsubroutineFirst(database); subroutine >= 0;
       subroutine = PVBsubroutineNext(database)) {
    if (!PVBrewriteRows(database, subroutine, function, rewrite)) return false;
  }
  return true;
}
