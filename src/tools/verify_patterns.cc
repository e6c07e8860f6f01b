#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "pvb/pattern.h"
#include "pvb/scan_run.h"
#include "pvb/signal.h"
#include "pvb/state_vector.h"
#include "pvb/timeplate.h"
#include "storage/page.h"
#include "storage/swapendian.h"
#include "tools/tool_progress.h"
#include "tools/verify_internal.h"

namespace {

constexpr std::uint32_t kRunIdClass = static_cast<std::uint32_t>(kClassScanRun) << 24;

bool sameSums(const PVBposition& a, const PVBposition& b) {
  return a.time == b.time && a.row == b.row && a.cycle == b.cycle && a.address == b.address;
}

std::uint32_t blocksOf(int file) {
  std::uint32_t blocks = 0;
  std::uint32_t capacity = 0;
  PageInfo(file, blocks, capacity);
  return blocks;
}

// Subroutines that call themselves, in however many steps: calls of them stand for
// no time. Found only when a call row raises the question.
class CallCircles {
 public:
  explicit CallCircles(int database) : database_(database) {}

  bool contains(std::uint32_t subroutine) {
    if (calls_.empty()) readCalls();
    if (subroutine >= calls_.size()) return false;
    std::vector<bool> met(calls_.size());
    std::vector<std::uint32_t> open = {subroutine};
    while (!open.empty()) {
      const std::uint32_t caller = open.back();
      open.pop_back();
      for (const std::uint32_t callee : calls_[caller]) {
        if (callee == subroutine) return true;
        if (callee >= met.size() || met[callee]) continue;
        met[callee] = true;
        open.push_back(callee);
      }
    }
    return false;
  }

 private:
  void readCalls() {
    calls_.resize(PVBget(database_)->patterns->subroutines.size());
    for (std::size_t caller = 0; caller < calls_.size(); ++caller) {
      if (PVBsubroutineInq(database_, static_cast<int>(caller)) == nullptr) continue;
      PatternWalk walk(database_, static_cast<int>(caller));
      while (walk.next()) {
        if (walk.entry().type == ROW_SUBR_CALL) calls_[caller].insert(walk.entry().index);
      }
    }
  }

  int database_;
  std::vector<std::set<std::uint32_t>> calls_;  // by caller
};

class PatternCheck {
 public:
  PatternCheck(Verification& verification, int database, PropertyCheck& properties, bool quiet)
      : verification_(verification),
        database_(database),
        slot_(*PVBget(database)),
        data_(*slot_.patterns),
        properties_(properties),
        circles_(database),
        nodes_(blocksOf(data_.nodes)),
        rows_(blocksOf(data_.rows)),
        runs_(blocksOf(data_.runs)),
        progress_(static_cast<std::int64_t>(rows_.size()), "Checking rows", quiet) {}

  void run();

 private:
  // A tree still to be walked: a pattern's, or the body of a loop.
  struct Tree {
    std::uint32_t root;
    bool body;
    std::uint32_t count;  // of the loop
  };

  void pattern(std::uint32_t root);
  void tree(const Tree& tree);
  void entry(const Tree& tree, const PVBnodeEntry& entry);
  void row(const PVBrow& row, const PVBnodeEntry& entry);
  void compare(const PVBrow& row, const PVBnodeEntry& entry);
  void references(const PVBrow& row);
  void runs(const PVBrow& row);
  bool run(std::uint32_t block, const PVBrow& row, std::uint32_t& next);
  void tableSums(std::size_t index);
  void lost(std::string_view file, int handle, const std::vector<bool>& seen);

  void nodeFault(std::uint32_t block, std::string text) {
    verification_.fault(kTreeFault, "pvb.pk", fmt::format("node {}", block), std::move(text));
  }
  void rowFault(MessageCode code, std::uint32_t block, std::string text) {
    verification_.fault(code, "pvb.pd", fmt::format("row {}", block), std::move(text));
  }

  Verification& verification_;
  int database_;
  const PVBdatabase& slot_;
  const PVBpatternData& data_;
  PropertyCheck& properties_;
  CallCircles circles_;
  std::vector<bool> nodes_, rows_, runs_;  // blocks met so far
  std::vector<Tree> open_;
  std::uint32_t lastType_ = ROW_LITERAL;  // of the tree's last entry so far
  Progress progress_;
  std::int64_t rowsMet_ = 0;
};

void PatternCheck::run() {
  pattern(static_cast<std::uint32_t>(slot_.header.mainRoot));
  for (std::size_t i = 0; i < data_.subroutines.size(); ++i) {
    if (data_.subroutines[i].root == kNoNode) continue;
    pattern(data_.subroutines[i].root);
    tableSums(i);
  }
  lost("pvb.pk", data_.nodes, nodes_);
  lost("pvb.pd", data_.rows, rows_);
  lost("pvb.rd", data_.runs, runs_);
}

// --- Trees ---------------------------------------------------------------------------

void PatternCheck::pattern(std::uint32_t root) {
  open_.push_back({root, false, 0});
  while (!open_.empty()) {
    const Tree next = open_.back();
    open_.pop_back();
    tree(next);
  }
}

void PatternCheck::tree(const Tree& tree) {
  lastType_ = ROW_LITERAL;
  const auto fault = [&](std::uint32_t node, const char* what) { nodeFault(node, what); };
  const auto row = [&](const PVBnodeEntry& next) { entry(tree, next); };
  const int faults = PVBtreeCheck(data_.nodes, tree.root, fault, row, &nodes_);
  if (tree.body && faults == 0 && lastType_ != ROW_END_LOOP) {
    verification_.fault(kLoopFault, "pvb.pk", fmt::format("node {}", tree.root),
                        "the body of a loop has no end row");
  }
}

// --- Rows ----------------------------------------------------------------------------

void PatternCheck::entry(const Tree& tree, const PVBnodeEntry& entry) {
  if (lastType_ == ROW_END_LOOP) {
    rowFault(kLoopFault, entry.child, "stands behind the end of its loop");
  }
  lastType_ = entry.type;
  if (entry.child < rows_.size() && rows_[entry.child]) {
    rowFault(kSharedRow, entry.child, "is reached twice");
    return;
  }
  const RowHandle held(database_,
                       entry.child < rows_.size() ? PVBrowGet(database_, entry.child) : nullptr);
  if (!held) {
    rowFault(kRowFault, entry.child, "can't be read");
    return;
  }
  rows_[entry.child] = true;
  progress_.update(++rowsMet_);
  row(*held, entry);
  if (held->type == ROW_END_LOOP) {
    const bool fits = tree.body && held->count == tree.count;
    if (!fits) rowFault(kLoopFault, entry.child, "is an end row that doesn't fit its loop");
  }
  if (held->type == ROW_LOOP) open_.push_back({held->link, true, held->count});
}

void PatternCheck::row(const PVBrow& row, const PVBnodeEntry& entry) {
  if (row.id != entry.child) {
    rowFault(kRowFault, entry.child, fmt::format("calls itself row {}", row.id));
  }
  if (row.type > ROW_PVBPOC) {
    rowFault(kRowFault, entry.child, fmt::format("has the unknown type {}", row.type));
  }
  if (row.count == 0) rowFault(kRowFault, entry.child, "has the count 0");
  compare(row, entry);
  references(row);
  properties_.own(row.tag, "pvb.pd", fmt::format("row {}", entry.child));
}

void PatternCheck::compare(const PVBrow& row, const PVBnodeEntry& entry) {
  const PVBnodeEntry expected = PVBrowToEntry(database_, row);
  const char* what = entry.type != expected.type             ? "type"
                     : entry.index != expected.index         ? "timeplate, subroutine or body"
                     : entry.count != expected.count         ? "count"
                     : entry.address16 != expected.address16 ? "repeat value"
                     : entry.rows != expected.rows           ? "number of rows"
                     : entry.cycles != expected.cycles       ? "number of cycles"
                     : entry.addresses != expected.addresses ? "number of addresses"
                     : entry.time != expected.time           ? "time"
                                                             : nullptr;
  if (what == nullptr) return;
  const bool timeless = entry.cycles == 0 && entry.time == TIME_ZERO;
  if (row.type == ROW_SUBR_CALL && timeless && circles_.contains(row.link)) return;
  rowFault(kEntryFault, entry.child, fmt::format("its tree has another {}", what));
}

void PatternCheck::references(const PVBrow& row) {
  const bool timed = row.type == ROW_LITERAL || row.type == ROW_SCAN || row.type == ROW_MATCH;
  if (timed && row.timeplate != kNoTimePlate && slot_.timePlates &&
      PVBtimePlateInqByID(database_, row.timeplate) == nullptr) {
    rowFault(kUnknownTimePlate, row.id, fmt::format("timeplate {} doesn't exist", row.timeplate));
  }
  if (row.type == ROW_SUBR_CALL) {
    const bool known =
        row.link < data_.subroutines.size() && data_.subroutines[row.link].root != kNoNode;
    if (!known) {
      rowFault(kUnknownSubroutine, row.id, fmt::format("subroutine {} doesn't exist", row.link));
    }
  }
  if (row.type == ROW_SCAN && row.link != kNoLink) runs(row);
}

// --- Scan runs -----------------------------------------------------------------------

void PatternCheck::runs(const PVBrow& row) {
  std::uint32_t next = row.link;
  while (next != kNoLink) {
    const std::uint32_t block = next & static_cast<std::uint32_t>(kMaxIdIndex);
    if ((next & ~static_cast<std::uint32_t>(kMaxIdIndex)) != kRunIdClass || block >= runs_.size()) {
      rowFault(kScanRunFault, row.id, fmt::format("scan run {:#x} doesn't exist", next));
      return;
    }
    if (!run(block, row, next)) return;
  }
}

bool PatternCheck::run(std::uint32_t block, const PVBrow& row, std::uint32_t& next) {
  const auto fault = [&](std::string text) {
    verification_.fault(kScanRunFault, "pvb.rd", fmt::format("run {}", block),
                        fmt::format("(row {}) {}", row.id, text));
  };
  if (runs_[block]) {
    fault("is reached twice");
    return false;
  }
  runs_[block] = true;
  PVBscanRun fields{};
  {
    const auto held = BlockHandle<PVBscanRun>::get(data_.runs, block, typePVBscanRun);
    if (!held) {
      fault("can't be read");
      return false;
    }
    fields = *held;
  }
  if (fields.type > RUN_FEEDBACK) fault(fmt::format("has the unknown type {}", fields.type));
  const PVBsignal* chain = slot_.signals ? PVBobjectInqByID(database_, fields.chain) : nullptr;
  if (slot_.signals && (chain == nullptr || PVBidClass(fields.chain) != kClassScanChain)) {
    fault("names a chain that doesn't exist");
  }
  if (slot_.scan && !PVBstateVectorExists(database_, fields.state)) {
    fault("names a state vector that doesn't exist");
  }
  next = static_cast<std::uint32_t>(fields.next);
  return true;
}

// --- Tables and room -----------------------------------------------------------------

void PatternCheck::tableSums(std::size_t index) {
  PVBposition sums;
  const PVBsubroutine& subroutine = data_.subroutines[index];
  if (subroutine.recursive || PVBtreeSums(data_.nodes, subroutine.root, sums) != 0) return;
  if (sameSums(sums, subroutine.sums)) return;
  verification_.fault(kTableSumsFault, "pvb.ps", fmt::format("subroutine {}", index),
                      "its sums aren't those of its tree");
}

void PatternCheck::lost(std::string_view file, int handle, const std::vector<bool>& seen) {
  const auto met = static_cast<std::int64_t>(std::count(seen.begin(), seen.end(), true));
  const std::int64_t inUse = PageCount(handle);
  if (met >= inUse) return;
  verification_.note(kLostBlocks, file, "",
                     fmt::format("{} blocks are neither in use nor free", inUse - met));
}

}  // namespace

void verifyPatterns(Verification& verification, int database, PropertyCheck& properties,
                    bool quiet) {
  PatternCheck(verification, database, properties, quiet).run();
}
