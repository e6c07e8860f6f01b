#include "conditioner/add_compression.h"

#include <fmt/printf.h>

#include <algorithm>
#include <limits>

#include "base/errors.h"
#include "base/text.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "pvb/annotate.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/property.h"

namespace {

constexpr std::string_view kFunction = "AddCompression";
constexpr std::string_view kTokenEnds = ", \t";

// --- Comments ------------------------------------------------------------------------

// The number at the start of a text, behind white space; what doesn't fit becomes the
// nearest one. None when there are no digits.
std::optional<std::int32_t> numberAt(std::string_view text) {
  while (!text.empty() && PBisSpace(text.front())) text.remove_prefix(1);
  std::string_view digits = text;
  if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) digits.remove_prefix(1);
  if (digits.empty() || digits.front() < '0' || digits.front() > '9') return std::nullopt;
  return PBtextToInt(text);
}

// The first token of a text, which is taken off it.
std::string_view takeToken(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kTokenEnds), text.size()));
  const std::string_view token = text.substr(0, text.find_first_of(kTokenEnds));
  text.remove_prefix(token.size());
  return token;
}

// Calls `take` with what stands behind the keyword in each comment that holds it, in
// reading order, until it says true.
template <typename Take>
void eachComment(int database, const PVBrow& row, std::string_view keyword, Take take) {
  if (row.tag == UNDEF) return;
  const PVBproperty* comment = PVBpropInqFirstKey(database, row.tag, kCommentProperty);
  for (; comment != nullptr; comment = PVBpropInqNextKey(database, kCommentProperty)) {
    const std::string_view text = comment->value ? *comment->value : std::string_view();
    const std::size_t place = text.find(keyword);
    if (place != std::string_view::npos && take(text.substr(place + keyword.size()))) return;
  }
}

}  // namespace

// Only the first comment that holds the keyword is read, with or without a number.
std::optional<std::int32_t> findRepeatComment(int database, const PVBrow& row,
                                              std::string_view keyword) {
  std::optional<std::int32_t> repeat;
  eachComment(database, row, keyword, [&](std::string_view text) {
    repeat = numberAt(text);
    return true;
  });
  return repeat.value_or(0) > 0 ? repeat : std::nullopt;
}

std::optional<LoopComment> findLoopComment(int database, const PVBrow& row,
                                           std::string_view keyword) {
  std::optional<LoopComment> loop;
  eachComment(database, row, keyword, [&](std::string_view text) {
    const std::optional<std::int32_t> cycles = numberAt(takeToken(text));
    const std::optional<std::int32_t> count = numberAt(takeToken(text));
    if (cycles && count) loop = {*cycles, *count};
    return loop.has_value();
  });
  return loop;
}

// --- Patterns ------------------------------------------------------------------------

namespace {

struct Settings {
  std::int32_t loopBlockSize;
  std::string repeatKeyword;
  std::string loopKeyword;
};

// A row in its pattern; one that is called counts as the call.
struct Place {
  std::uint32_t row;
  std::uint32_t count;
};

// The comments of one pattern, row by row.
class RepeatExtraction {
 public:
  RepeatExtraction(int database, int pattern, const Settings& settings)
      : database_(database), pattern_(pattern), settings_(settings) {
    if (pattern != kMainPattern) {
      suffix_ = fmt::sprintf(" in subroutine '%s'", PVBsubroutineName(database, pattern));
    }
  }

  bool run() {
    // The sums of callers follow at the end.
    FixBatch batch(database_);
    for (std::uint32_t number = 0; number < rowCount(); ++number) {
      if (!readRow(number)) return false;
    }
    return batch.end() == 0;
  }

 private:
  std::uint32_t rowCount() const {
    PVBposition sums;
    return PVBpatternInqSize(database_, pattern_, sums) == 0 ? sums.row : 0;
  }

  bool readRow(std::uint32_t number) {
    PVBposition position;
    position.row = number;
    RowHandle row(database_, PVBpatternInqRow(database_, pattern_, position, BY_ROW));
    if (!row) return false;
    // An end row has its count from its loop.
    if (row->tag == UNDEF || row->type == ROW_END_LOOP) return true;
    if (const auto repeat = findRepeatComment(database_, *row, settings_.repeatKeyword)) {
      return setRepeat(position, *row, *repeat);
    }
    const auto loop = findLoopComment(database_, *row, settings_.loopKeyword);
    row.reset();
    if (loop && number >= endOfLoop_) insertLoop(position.cycle, *loop);
    return true;
  }

  bool setRepeat(PVBposition& position, PVBrow& row, std::int32_t repeat) {
    const std::uint32_t number = position.row;
    if (number < endOfLoop_) {
      report(
          fmt::sprintf("Repeat comment at row %ld ignored because it is inside the loop that ends "
                       "on row %ld.\n",
                       number, endOfLoop_));
      return true;
    }
    row.count = static_cast<std::uint32_t>(repeat);
    if (PVBrowUpdate(database_, pattern_, position, BY_ROW, row) != 0) return false;
    report(fmt::sprintf("Repeat count in row %ld changed to %ld%s.\n", number, repeat, suffix_));
    return true;
  }

  // --- Loops

  void insertLoop(std::uint32_t cycle, const LoopComment& loop) {
    const std::int64_t block = settings_.loopBlockSize;
    const std::int64_t start = (cycle + block - 1) / block * block;
    const std::int64_t last = start + block * loop.cycles - 1;
    const std::optional<Place> first = find(start);
    const std::optional<Place> final = find(last);
    if (!first) {
      return report(
          fmt::sprintf("Can't insert loop at cycle %ld%s: cycle doesn't exist\n", start, suffix_));
    }
    if (beginsLoop(*first)) return tell("A loop already exists at", start);
    const bool spans = final && loop.cycles >= 1 && loop.count >= 1;
    const std::int64_t cut = spans ? cutRow(*first, start, *final, last) : -1;
    if (cut >= 0) return tell("Attempting to insert loop in a repeated row at", cut);
    // Rows in between may also begin or end in the middle of another loop.
    if (!spans || !make(*first, *final, loop.count)) {
      tell("There aren't enough rows after", start);
    }
  }

  bool make(const Place& first, const Place& final, std::int32_t count) {
    if (final.row < first.row) return false;
    const std::uint32_t rows = final.row - first.row + 1;
    const auto passes = static_cast<std::uint32_t>(count);
    if (PVBloopMake(database_, pattern_, first.row, rows, passes) < 0) return false;
    endOfLoop_ = final.row + 2;
    report(fmt::sprintf("Loop inserted%s starting at row %ld, ending at row %ld\n", suffix_,
                        first.row, endOfLoop_));
    return true;
  }

  void tell(const char* what, std::int64_t cycle) const {
    report(fmt::sprintf("%s cycle %ld%s; ignoring loop in comments\n", what, cycle, suffix_));
  }

  // The cycle at which the loop would begin or end inside of a row; -1 for none.
  std::int64_t cutRow(const Place& first, std::int64_t start, const Place& final,
                      std::int64_t last) const {
    if (first.count > 1 || beginOf(first.row) != start) return start;
    const std::optional<Place> behind = find(last + 1);
    if (!behind || behind->row != final.row) return -1;
    return behind->row == first.row ? last : last + 1;
  }

  std::optional<Place> find(std::int64_t cycle) const {
    if (cycle < 0 || cycle > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    PVBposition position;
    position.cycle = static_cast<std::uint32_t>(cycle);
    const RowHandle row(database_, PVBpatternInqRow(database_, pattern_, position, BY_CYCLE));
    if (!row) return std::nullopt;
    return Place{position.row, row->count};
  }
  std::int64_t beginOf(std::uint32_t number) const {
    PVBposition position;
    position.row = number;
    const RowHandle row(database_, PVBpatternInqRow(database_, pattern_, position, BY_ROW));
    return row ? std::int64_t{position.cycle} : -1;
  }
  // A cycle leads to the rows in a loop, never to the loop itself.
  bool beginsLoop(const Place& first) const {
    if (first.row == 0) return false;
    PVBposition position;
    position.row = first.row - 1;
    const RowHandle row(database_, PVBpatternInqRow(database_, pattern_, position, BY_ROW));
    return row && row->type == ROW_LOOP;
  }

  int database_;
  int pattern_;
  const Settings& settings_;
  std::string suffix_;
  std::uint32_t endOfLoop_ = 0;  // of the loop inserted last: its end row
};

int extractRepeats(int database, int pattern, const Settings& settings) {
  return RepeatExtraction(database, pattern, settings).run() ? 0 : -2;
}

int extractAll(int database, const Settings& settings) {
  if (extractRepeats(database, kMainPattern, settings) != 0) return -2;
  for (int index = PVBsubroutineFirst(database); index >= 0; index = PVBsubroutineNext(database)) {
    if (extractRepeats(database, index, settings) != 0) return -2;
  }
  return 0;
}

int fail(const std::string& text) {
  PBerrPush(PBconditionerError, kFunctionAndText, kFunction, text);
  return -2;
}

}  // namespace

int AddCompression(const PVBregion* dest, const PVBregion& src, std::int32_t loopBlockSize,
                   const std::string& repeatKeyword, const std::string& loopKeyword) {
  if (loopBlockSize < 1) return fail("the loop block size must be above 0");
  WorkingDatabase target;
  const int database = openWorking(kFunction, src, dest, target);
  if (database < 0) return -2;
  report(fmt::sprintf("Adding compression to PVB: %s\n", target.path()));
  report(fmt::sprintf("Using repeat keyword : '%s'\n", repeatKeyword));
  report(fmt::sprintf("Using loop keyword : '%s'\n", loopKeyword));
  if (extractAll(database, {loopBlockSize, repeatKeyword, loopKeyword}) != 0) {
    return fail("a row can't be read or changed");
  }
  if (target.close() != 0) assertFail(__FILE__, __LINE__);
  return 0;
}
