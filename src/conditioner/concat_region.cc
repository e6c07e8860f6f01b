// The rows of one region into the destination, and the marks that tell where they
// came from.

#include <cerrno>
#include <string>

#include "base/errors.h"
#include "base/progress.h"
#include "conditioner/concat_internal.h"
#include "conditioner/messages.h"
#include "pvb/label.h"
#include "pvb/property.h"
#include "pvb/timeplate_match.h"

namespace {

constexpr std::string_view kFunction = "concatRegion";
constexpr std::int32_t kCommentKey = 0;

// The table of the destination's timeplates by content, for the length of a scope.
class MatchTable {
 public:
  explicit MatchTable(int database) {
    matchTimePlateClear();
    for (const PVBid id : PVBtimePlateInqAll(database)) {
      PVBtimePlate* plate = PVBtimePlateInqByID(database, id);
      if (plate == nullptr) assertFail(__FILE__, __LINE__);
      PVBtimePlate* existing = nullptr;
      matchTimePlate(plate, existing);
    }
  }
  ~MatchTable() { matchTimePlateEnd(); }
  MatchTable(const MatchTable&) = delete;
  MatchTable& operator=(const MatchTable&) = delete;
};

std::uint32_t rowCount(int database) {
  PVBposition sums;
  return PVBpatternInqSize(database, kMainPattern, sums) == 0 ? sums.row : 0;
}

// --- Rows ----------------------------------------------------------------------------

// Sums of callers are brought up to date once, behind the last row.
int copyRows(RowCopy& copy, PatternCopy& to, RegionRow& row, bool quiet) {
  FixBatch batch(copy.dest.pvbHandle);
  const std::uint32_t rowOffset = to.next;
  std::uint32_t walked = 0;
  int step = 0;
  while (step == 0) {
    const SourceRow source = {*row.row, copy.src.cursor.row, row.plate.get(), row.count};
    if (concatRow(copy, to, source) != 0) return -2;
    if (!quiet) PBprogressUpdate(std::int64_t{rowOffset} + walked);
    ++walked;
    step = PVBregionPatternInqNext(copy.src, kStepRow, row);
  }
  if (step != -1 || concatSubroutines(copy) != 0) return -2;
  return batch.end();
}

// --- Marks ---------------------------------------------------------------------------

// What follows the last "/", one "/" at the end left out.
std::string baseName(std::string_view path) {
  if (path.ends_with('/')) path.remove_suffix(1);
  return std::string(path.substr(path.rfind('/') + 1));
}

int addComment(int database, std::uint32_t rowNumber, const std::string& text) {
  PVBposition position;
  position.row = rowNumber;
  const RowHandle row(database, PVBpatternInqRow(database, kMainPattern, position, BY_ROW));
  if (!row) return -2;
  if (row->tag == UNDEF) {
    row->tag = PVBpropListNew(database);
    PVBrowDirty(database, *row);
  }
  return row->tag != UNDEF ? PVBputProp(database, row->tag, {kCommentKey, text}) : -2;
}

int addLabel(int database, const std::string& name, LabelKind kind, std::uint32_t rowNumber) {
  if (PVBlabelAdd(database, kMainPattern, name.c_str(), kind, rowNumber) != 0) return -2;
  return PVBlabelRecompute(database);
}

// A stretch that ends with a loop has the loop's end row as its last row.
int markStretch(int database, const std::string& path, std::uint32_t first, std::uint32_t last) {
  const std::string name = baseName(path);
  if (addLabel(database, name, kLabelBlockBegin, first) != 0) return -2;
  if (addComment(database, first, name + "_PATTERN_BEGIN") != 0) return -2;
  if (addComment(database, last, name + "_PATTERN_END") != 0) return -2;
  return addLabel(database, name, kLabelBlockEnd, last);
}

}  // namespace

int concatRegion(PVBregion& dest, PVBregion& src, const SignalTable& table,
                 const ConcatOptions& options) {
  const int database = dest.pvbHandle;
  const MatchTable match(database);
  const std::uint32_t rowOffset = options.mode == kPrepend ? 0 : rowCount(database);
  RegionRow row;
  if (PVBregionPatternInqFirst(src, row) != 0) {
    errno = 0;
    PBerrPush(PBconditionerError, kNoPatternRows, kFunction, src.pvbName);
    return -2;
  }
  RowCopy copy = makeRowCopy(dest, src, table);
  PatternCopy to = {kMainPattern, rowOffset, {}};
  if (copyRows(copy, to, row, options.quiet) != 0) return -2;
  if (!options.label || options.mode != kAppend) return 0;
  return markStretch(database, src.pvbName, rowOffset, rowCount(database) - 1);
}
