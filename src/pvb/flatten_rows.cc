#include "pvb/flatten_rows.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "pvb/pattern_internal.h"
#include "pvb/property.h"

namespace {

constexpr std::string_view kFunction = "flattenRows";
constexpr const char* kDamaged = "the pattern is damaged";
constexpr const char* kTooManyRows = "the flat pattern would have more rows than can be numbered";
constexpr const char* kTooLong = "a repeated spacer would be longer than a time can be";

std::uint32_t timesOf(const PVBrow& row) { return std::max<std::uint32_t>(row.count, 1); }

bool fail(const std::string& reason) {
  errno = 0;
  PBpostError(kFunction, 0, reason);
  return false;
}

// --- How much it will be -------------------------------------------------------------

// More than anything that is carried out; as good as endless.
constexpr std::uint64_t kEndless = std::uint64_t{1} << 62;
// Entries that are looked at for the rows that come of them: loops and calls that give
// few rows or none.
constexpr std::uint64_t kMaxSteps = std::uint64_t{4} * kMaxFlatRows;

std::uint64_t product(std::uint64_t a, std::uint64_t b) {
  return a != 0 && b > kEndless / a ? kEndless : a * b;
}
std::uint64_t sum(std::uint64_t a, std::uint64_t b) { return std::min(a + b, kEndless); }

struct FlatSize {
  std::uint64_t rows = 0;
  std::uint64_t steps = 0;
  bool isFlat = true;  // already
  std::string fault;   // why there is no size
};

// The sizes of patterns when they are flat, from the called to the callers.
class FlatSizes {
 public:
  FlatSizes(int database, PVBpatternData& data) : database_(database), data_(data) {
    sizes_.resize(data.subroutines.size());
    if (!hasSubroutines(data)) return;
    PVBidList marked;
    for (const std::uint32_t index : orderByCalls(database, data, marked)) {
      if (data.subroutines[index].root != kNoNode) sizes_[index] = of(static_cast<int>(index));
    }
  }

  FlatSize of(int pattern) const {
    FlatSize size;
    // How often the rows at each depth of loops come.
    std::vector<std::uint64_t> passes = {1};
    PatternWalk walk(database_, pattern);
    while (size.fault.empty() && walk.next()) {
      const auto depth = static_cast<std::size_t>(walk.depth());
      passes.resize(depth + 2);
      size.steps = sum(size.steps, passes[depth]);
      count(walk.entry(), passes[depth], passes[depth + 1], size);
    }
    if (walk.failed()) size.fault = kDamaged;
    return size;
  }
  bool isEmpty(std::uint32_t subroutine) const { return sizes_[subroutine].rows == 0; }

 private:
  void count(const PVBnodeEntry& entry, std::uint64_t passes, std::uint64_t& inner,
             FlatSize& size) const {
    if (entry.type == ROW_END_LOOP) return;
    if (entry.type == ROW_LITERAL) {
      size.rows = sum(size.rows, product(passes, std::max(entry.cycles, 1U)));
      size.isFlat = size.isFlat && entry.cycles < 2;
      return;
    }
    if (!isCounted(entry.type)) {
      size.rows = sum(size.rows, passes);
      return;
    }
    const RowHandle row(database_, PVBrowGet(database_, entry.child));
    if (!row || row->type != entry.type) {
      size.fault = kDamaged;
      return;
    }
    size.isFlat = size.isFlat && entry.type == ROW_SPACER && row->count < 2;
    if (entry.type == ROW_SPACER) size.rows = sum(size.rows, passes);
    if (entry.type == ROW_LOOP) inner = product(passes, timesOf(*row));
    if (entry.type == ROW_SUBR_CALL) addCall(row->link, product(passes, timesOf(*row)), size);
  }
  // Types whose whole count stands in the row only.
  static bool isCounted(std::uint8_t type) {
    return type == ROW_LOOP || type == ROW_SUBR_CALL || type == ROW_SPACER;
  }
  void addCall(std::uint32_t callee, std::uint64_t times, FlatSize& size) const {
    const PVBsubroutine* subroutine = findSubroutine(data_, callee);
    if (subroutine == nullptr) {
      size.fault = kDamaged;
    } else if (subroutine->recursive) {
      size.fault = "subroutine \"" + subroutine->name.value_or(std::string()) + "\" calls itself";
    } else {
      size.fault = sizes_[callee].fault;
      size.rows = sum(size.rows, product(times, sizes_[callee].rows));
      size.steps = sum(size.steps, product(times, sizes_[callee].steps));
    }
  }

  int database_;
  const PVBpatternData& data_;
  std::vector<FlatSize> sizes_;  // by subroutine
};

// --- Single rows ---------------------------------------------------------------------

// What is left of a row in one passage. False for a spacer that is too long.
bool makeSingle(PVBrow& row) {
  if (row.count < 2 || (row.type != ROW_LITERAL && row.type != ROW_SPACER)) return true;
  if (row.type == ROW_SPACER) {
    const TIME whole = timesCount(row.spacerTime, row.count);
    if (whole > TIME_MAX || whole < row.spacerTime) return false;
    row.spacerTime = whole;
  }
  row.count = 1;
  return true;
}

// --- The flat tree -------------------------------------------------------------------

// Appends the rows of a pattern to a new tree.
class FlatTree {
 public:
  FlatTree(int database, PVBpatternData& data, int pattern, const FlatSizes& sizes)
      : database_(database), data_(data), pattern_(pattern), sizes_(sizes) {}

  // False after a post; then `abandon` is called.
  bool build() {
    const std::int64_t root = PVBtreeNew(data_.nodes);
    if (root < 0) return false;
    root_ = static_cast<std::uint32_t>(root);
    std::uint32_t blocks = 0;
    std::uint32_t capacity = 0;
    PageInfo(data_.rows, blocks, capacity);
    kept_.resize(blocks);
    enter(rootOf(database_, data_, pattern_), 1, true);
    PVBnodeEntry entry;
    while (!levels_.empty()) {
      if (levels_.back().cursor.next(entry)) {
        if (!take(entry)) return false;
      } else if (levels_.back().cursor.failed()) {
        return fail(kDamaged);
      } else {
        endPass();
      }
    }
    return true;
  }

  // The tree with all that was copied into it.
  void abandon() {
    if (root_ == kNoNode) return;
    PVBtreeFree(data_.nodes, root_, [&](const PVBnodeEntry& entry) {
      const bool kept = entry.child < kept_.size() && kept_[entry.child];
      return kept ? 0 : freeRowDeep(database_, data_, pattern_, entry.child);
    });
  }

  // The two change places by what is in their roots, since roots keep their numbers.
  bool exchange() {
    NodeHandle old = getNode(data_.nodes, rootOf(database_, data_, pattern_));
    NodeHandle flat = getNode(data_.nodes, root_);
    if (!old || !flat) return fail(kDamaged);
    std::swap(*old, *flat);
    std::swap(old->self, flat->self);
    old.markDirty();
    flat.markDirty();
    return true;
  }
  // Where the old tree is after the exchange.
  std::uint32_t root() const { return root_; }

 private:
  // A tree on the way to the row in hand: a pattern's or a body's.
  struct Level {
    TreeCursor cursor;
    std::uint32_t root;
    std::uint32_t passesLeft;  // the one in hand included
    std::uint32_t rowsBefore;  // of the result, when the pass began
    bool first;                // what comes now comes for the first time
  };

  void enter(std::uint32_t root, std::uint32_t passes, bool first) {
    levels_.push_back({TreeCursor(data_.nodes, root), root, passes, rows_, first});
  }
  // A pass without rows is like all that follow it.
  void endPass() {
    Level& level = levels_.back();
    if (--level.passesLeft == 0 || level.rowsBefore == rows_) {
      levels_.pop_back();
      return;
    }
    level.cursor = TreeCursor(data_.nodes, level.root);
    level.rowsBefore = rows_;
    level.first = false;
  }

  bool take(const PVBnodeEntry& entry) {
    if (entry.type == ROW_END_LOOP) return true;
    const bool first = levels_.back().first;
    const RowHandle row(database_, PVBrowGet(database_, entry.child));
    if (!row || row->type != entry.type || levels_.size() > countNodes(data_.nodes)) {
      return fail(kDamaged);
    }
    if (entry.type == ROW_LOOP) {
      enter(entry.index, timesOf(*row), first);
      return true;
    }
    if (entry.type == ROW_SUBR_CALL) {
      const PVBsubroutine* subroutine = findSubroutine(data_, row->link);
      if (subroutine == nullptr) return fail(kDamaged);
      if (!sizes_.isEmpty(row->link)) enter(subroutine->root, timesOf(*row), false);
      return true;
    }
    std::uint32_t copies = entry.type == ROW_LITERAL ? timesOf(*row) : 1;
    if (first) {
      if (!keep(*row)) return false;
      --copies;
    }
    for (; copies > 0; --copies) {
      if (!copy(*row)) return false;
    }
    return true;
  }

  // The block itself is changed when the old tree goes.
  bool keep(const PVBrow& row) {
    PVBrow single = row;
    if (!makeSingle(single)) return fail(kTooLong);
    if (!append(PVBrowToEntry(database_, single))) return false;
    kept_[row.id] = true;
    return true;
  }
  bool copy(const PVBrow& row) {
    const RowHandle own(database_, PVBpatternRowCopy(database_, row));
    if (!own) return false;
    if (finish(row, *own)) return true;
    freeRowDeep(database_, data_, pattern_, own->id);
    return false;
  }
  bool finish(const PVBrow& row, PVBrow& own) {
    const bool bare = row.tag != UNDEF && own.tag == UNDEF;
    if (bare && PVBpropListExists(database_, row.tag)) {
      return fail("the properties of a row can't be copied");
    }
    return makeSingle(own) ? append(PVBrowToEntry(database_, own)) : fail(kTooLong);
  }
  bool append(const PVBnodeEntry& entry) {
    if (rows_ == kMaxFlatRows) return fail(kTooManyRows);
    TreePath path(data_.nodes, TreePath::Hold::yes, data_.hints.get());
    if (path.descend(root_, {BY_ROW, rows_}) != Seek::end || path.insert(entry) != 0) {
      return fail("the tree of the rows can't grow");
    }
    ++rows_;
    return true;
  }

  int database_;
  PVBpatternData& data_;
  int pattern_;
  const FlatSizes& sizes_;
  std::uint32_t root_ = kNoNode;
  std::uint32_t rows_ = 0;
  std::vector<bool> kept_;  // by block of a row: it stands in both trees
  std::vector<Level> levels_;
};

// --- The old tree --------------------------------------------------------------------

// Frees what stood around the rows, and makes the rows single that went over.
class OldTree {
 public:
  OldTree(int database, PVBpatternData& data, int pattern)
      : database_(database), data_(data), pattern_(pattern) {}

  int retire(std::uint32_t root) {
    int result = 0;
    trees_ = {root};
    while (!trees_.empty()) {
      const std::uint32_t tree = trees_.back();
      trees_.pop_back();
      const auto onRow = [&](const PVBnodeEntry& entry) { return retireRow(entry); };
      if (PVBtreeFree(data_.nodes, tree, onRow) != 0) result = -2;
    }
    return result;
  }

 private:
  int retireRow(const PVBnodeEntry& entry) {
    if (entry.type == ROW_LITERAL && entry.cycles == 1) return 0;
    const bool structure =
        entry.type == ROW_LOOP || entry.type == ROW_END_LOOP || entry.type == ROW_SUBR_CALL;
    if (!structure && entry.type != ROW_LITERAL && entry.type != ROW_SPACER) return 0;
    const RowHandle row(database_, PVBrowGet(database_, entry.child));
    if (!row) return -2;
    if (!structure) {
      makeSingle(*row);
      PVBrowDirty(database_, *row);
      return 0;
    }
    if (entry.type == ROW_LOOP) {
      trees_.push_back(entry.index);
      row->link = kNoLink;
    }
    return freeRowDeep(database_, data_, pattern_, entry.child);
  }

  int database_;
  PVBpatternData& data_;
  int pattern_;
  std::vector<std::uint32_t> trees_;  // bodies left to go
};

// How well rows pack isn't known before they are there, so the disk must have room for
// them as they are: a count that was meant otherwise doesn't fill it.
bool fitsOnDisk(int database, const PVBpatternData& data, std::uint64_t rows) {
  const int kept = errno;
  std::uint64_t bytes = 0;
  const bool known = platform().freeSpace(PVBpath(database).c_str(), bytes);
  errno = kept;
  return !known || rows <= bytes / (PageBlockSize(data.rows) + sizeof(PVBnodeEntry));
}

// Empty when the pattern can be flattened, else why not.
std::string faultOf(int database, const PVBpatternData& data, const FlatSize& size) {
  if (!size.fault.empty()) return size.fault;
  if (size.rows > kMaxFlatRows || size.steps > kMaxSteps) return kTooManyRows;
  const bool fits = size.isFlat || fitsOnDisk(database, data, size.rows);
  return fits ? std::string() : "the disk has no room for the rows of the flat pattern";
}

}  // namespace

int flattenRows(int database, int pattern) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr || rootOf(database, *data, pattern) == kNoNode) return -2;
  const FlatSizes sizes(database, *data);
  const FlatSize size = sizes.of(pattern);
  const std::string fault = faultOf(database, *data, size);
  if (!fault.empty()) {
    fail(fault);
    return -2;
  }
  if (size.isFlat) return 0;
  FlatTree flat(database, *data, pattern, sizes);
  if (!flat.build() || !flat.exchange()) {
    flat.abandon();
    return -2;
  }
  const int result = OldTree(database, *data, pattern).retire(flat.root());
  return propagateChange(database, *data, pattern, {}) == 0 ? result : -2;
}
