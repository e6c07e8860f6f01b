#include "pvb/scan_run.h"

#include <algorithm>

#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/scan_run_internal.h"
#include "pvb/signal.h"
#include "storage/page.h"
#include "storage/swapendian.h"

namespace {

using RunBlock = BlockHandle<PVBscanRun>;

// What a type of run needs of its chain.
struct RunTypeNeeds {
  bool input;
  bool output;
};
constexpr RunTypeNeeds kRunTypeNeeds[] = {{true, false}, {false, true}, {true, true}};

PVBpatternData* patternsOf(int database) {
  const PVBdatabase* db = PVBgetSection(database, kSectionPatterns);
  return db != nullptr ? db->patterns.get() : nullptr;
}

PVBid runId(std::uint32_t block) { return PVBidMake(kClassScanRun, block); }
std::uint32_t runBlock(PVBid run) { return static_cast<std::uint32_t>(PVBidIndex(run)); }

bool hasClass(PVBid id, int idClass) { return id != UNDEF && PVBidClass(id) == idClass; }

// The status of an id that should be of a class: 0 when it is.
std::int32_t idStatus(PVBid id, int idClass) {
  if (id == UNDEF) return kStatusNotInUse;
  return PVBidClass(id) == idClass ? kStatusOk : kStatusWrongClass;
}

// A free block has block numbers where a run has the ids of other classes.
bool looksLikeRun(const PVBscanRun& run) {
  return hasClass(run.chain, kClassScanChain) && hasClass(run.state, kClassStateVector) &&
         (run.next == UNDEF || PVBidClass(run.next) == kClassScanRun);
}

// The block of a run; empty with a status when there is no such run.
RunBlock getRun(int database, PVBid run) {
  const PVBpatternData* patterns = patternsOf(database);
  if (patterns == nullptr) return {};
  std::int32_t status = idStatus(run, kClassScanRun);
  if (status == kStatusOk) {
    RunBlock block = RunBlock::get(patterns->runs, runBlock(run), typePVBscanRun);
    if (block && looksLikeRun(*block)) return block;
    status = kStatusNotInUse;
  }
  scanRunFailure(database, status);
  return {};
}

// Changes a run in place.
template <typename Change>
int changeRun(int database, PVBid run, Change change) {
  RunBlock block = getRun(database, run);
  if (!block) return -2;
  change(*block);
  block.markDirty();
  patternsOf(database)->changed = true;
  return 0;
}

// A new block with these fields: the run's id, or -1.
PVBid newRun(int database, PVBpatternData& patterns, const PVBscanRun& fields) {
  void* data = nullptr;
  const std::int64_t number = PageNewTyped(patterns.runs, data, typePVBscanRun);
  if (number < 0) {
    scanRunFailure(database, kStatusInternal);
    return -1;
  }
  const auto block = static_cast<std::uint32_t>(number);
  {
    RunBlock handle(patterns.runs, block, data);
    *handle = fields;
    handle.markDirty();
  }
  patterns.changed = true;
  if (number <= kMaxIdIndex) return runId(block);
  PageFree(patterns.runs, block);
  scanRunFailure(database, kStatusInternal);
  return -1;
}

const PVBsignal* chainOf(int database, PVBid chain) {
  const std::int32_t status = idStatus(chain, kClassScanChain);
  const PVBsignal* found = status == kStatusOk ? PVBobjectInqByID(database, chain) : nullptr;
  if (found == nullptr) {
    scanRunFailure(database, status == kStatusOk ? std::int32_t{kStatusNotInUse} : status);
  }
  return found;
}

PVBid edgeSignal(int database, PVBid chain, std::size_t place) {
  const PVBsignal* found = chainOf(database, chain);
  return found != nullptr && place < found->lists3.size() ? found->lists3[place] : UNDEF;
}

// Whether a run of this type can go through the chain; otherwise a status.
bool typeFitsChain(int database, std::uint32_t type, PVBid chain) {
  if (chainOf(database, chain) == nullptr) return false;
  bool fits = type < std::size(kRunTypeNeeds);
  if (fits && kRunTypeNeeds[type].input) fits = PVBinqInSignal(database, chain) != UNDEF;
  if (fits && kRunTypeNeeds[type].output) fits = PVBinqOutSignal(database, chain) != UNDEF;
  if (!fits) scanRunFailure(database, kStatusBadType);
  return fits;
}

// Whether a row can take this run; otherwise a status.
bool runFits(int database, const PVBrow* row, const PVBscanRun& run) {
  std::int32_t status = kStatusOk;
  if (row == nullptr) {
    status = kStatusNullPointer;
  } else if (run.chain == UNDEF || run.state == UNDEF) {
    status = kStatusNotInUse;
  } else if (!hasClass(run.chain, kClassScanChain) || !hasClass(run.state, kClassStateVector)) {
    status = kStatusWrongClass;
  } else if (row->type != ROW_SCAN) {
    status = kStatusBadType;  // in other rows the link means something else
  }
  if (status == kStatusOk) return typeFitsChain(database, run.type, run.chain);
  scanRunFailure(database, status);
  return false;
}

// The last run of a row, UNDEF when it has none, and the longest chain of all;
// false for damaged links.
bool lastRun(int database, const PVBrow& row, PVBid& last, std::int32_t& longest) {
  ScanRunWalk walk(database, row);
  while (walk.next()) {
    last = walk.id();
    longest = std::max(longest, PVBchainLength(database, walk.run().chain));
  }
  return walk.good();
}

// Makes `run` follow `after`, or the row's first when that is UNDEF.
int linkRun(int database, PVBrow& row, PVBid after, PVBid run) {
  if (after != UNDEF) {
    return changeRun(database, after, [run](PVBscanRun& block) { block.next = run; });
  }
  row.link = static_cast<std::uint32_t>(run);
  PVBrowDirty(database, row);
  return 0;
}

int freeBlock(int database, PVBid run) {
  PVBpatternData& patterns = *patternsOf(database);
  patterns.changed = true;
  if (PageFree(patterns.runs, runBlock(run)) == 0) return 0;
  return scanRunFailure(database, kStatusInternal);
}

// A new run behind `last`, the row's first when that is UNDEF: its id, or -1.
PVBid appendRun(int database, PVBrow& row, PVBid last, const PVBscanRun& fields) {
  const PVBid run = newRun(database, *patternsOf(database), fields);
  if (run == -1 || linkRun(database, row, last, run) == 0) return run;
  freeBlock(database, run);
  return -1;
}

// The run before `run` in the row, UNDEF for the first; false when it isn't one of
// the row's.
bool runBefore(int database, const PVBrow& row, PVBid run, PVBid& before, PVBid& after) {
  ScanRunWalk walk(database, row);
  while (walk.next()) {
    if (walk.id() == run) {
      after = walk.run().next;
      return true;
    }
    before = walk.id();
  }
  if (walk.good()) scanRunFailure(database, kStatusNotInUse);
  return false;
}

}  // namespace

int scanRunFailure(int database, std::int32_t status) {
  PVBsetStatus(database, status);
  return -2;
}

ScanRunWalk::ScanRunWalk(int database, const PVBrow& row)
    : database_(database), next_(row.type == ROW_SCAN ? static_cast<PVBid>(row.link) : UNDEF) {
  const PVBpatternData* patterns = patternsOf(database);
  if (patterns != nullptr) left_ = PageCount(patterns->runs);
  good_ = patterns != nullptr;
}

bool ScanRunWalk::next() {
  if (!good_ || next_ == UNDEF) return false;
  good_ = PVBscanRunInq(database_, next_, run_);
  if (good_ && left_ == 0) {
    scanRunFailure(database_, kStatusCorrupt);
    good_ = false;
  }
  if (!good_) return false;
  --left_;
  id_ = next_;
  next_ = run_.next;
  return true;
}

// --- Runs of a row -------------------------------------------------------------------

PVBid PVBscanRunInsert(int database, PVBrow* row, std::uint32_t type, PVBid chain, PVBid state) {
  if (patternsOf(database) == nullptr) return -1;
  if (PVBgetSection(database, kSectionSignals) == nullptr) return -1;
  const PVBscanRun fields{type, chain, state, UNDEF};
  if (!runFits(database, row, fields)) return -1;
  PVBid last = UNDEF;
  std::int32_t longest = 0;
  if (!lastRun(database, *row, last, longest)) return -1;
  const PVBid run = appendRun(database, *row, last, fields);
  if (run == -1) return -1;
  const std::int32_t length = PVBchainLength(database, chain);
  const auto count = static_cast<std::uint32_t>(std::max(length, 0));
  if (length > longest && (last == UNDEF || count > row->count)) {
    row->count = count;
    PVBrowDirty(database, *row);
  }
  return run;
}

int PVBscanRunsAppend(int database, PVBrow& row, std::span<const PVBscanRun> runs) {
  if (patternsOf(database) == nullptr) return -2;
  if (PVBgetSection(database, kSectionSignals) == nullptr) return -2;
  PVBid last = UNDEF;
  std::int32_t longest = 0;
  if (!lastRun(database, row, last, longest)) return -2;
  for (const PVBscanRun& run : runs) {
    if (!runFits(database, &row, run)) continue;
    last = appendRun(database, row, last, {run.type, run.chain, run.state, UNDEF});
    if (last == -1) return -2;
  }
  return 0;
}

int PVBscanRunDelete(int database, PVBrow& row, PVBid run) {
  const std::int32_t status = idStatus(run, kClassScanRun);
  if (status != kStatusOk) return scanRunFailure(database, status);
  PVBid before = UNDEF;
  PVBid after = UNDEF;
  if (!runBefore(database, row, run, before, after)) return -2;
  if (linkRun(database, row, before, after) != 0) return -2;
  return freeBlock(database, run);
}

int PVBscanRunsFree(int database, PVBrow& row) {
  if (row.type != ROW_SCAN || row.link == kNoLink) return 0;
  PVBidList runs;
  ScanRunWalk walk(database, row);
  while (walk.next()) runs.push_back(walk.id());
  if (patternsOf(database) == nullptr) return -2;
  linkRun(database, row, UNDEF, UNDEF);
  int result = walk.good() ? 0 : -2;
  for (const PVBid run : runs) {
    if (freeBlock(database, run) != 0) result = -2;
  }
  return result;
}

int PVBscanRunsCopy(int database, PVBrow& to, const PVBrow& from) {
  if (from.type != ROW_SCAN) return 0;
  if (to.type != ROW_SCAN) return scanRunFailure(database, kStatusBadType);
  if (to.link != kNoLink) return scanRunFailure(database, kStatusNotEmpty);
  PVBid last = UNDEF;
  ScanRunWalk walk(database, from);
  bool good = true;
  while (good && walk.next()) {
    PVBscanRun fields = walk.run();
    fields.next = UNDEF;
    last = appendRun(database, to, last, fields);
    good = last != -1;
  }
  if (good && walk.good()) return 0;
  PVBscanRunsFree(database, to);
  return -2;
}

// --- One run -------------------------------------------------------------------------

bool PVBscanRunInq(int database, PVBid run, PVBscanRun& out) {
  const RunBlock block = getRun(database, run);
  if (block) out = *block;
  return static_cast<bool>(block);
}

std::int32_t PVBscanRunType(int database, PVBid run) {
  const RunBlock block = getRun(database, run);
  return block ? static_cast<std::int32_t>(block->type) : -1;
}

int PVBscanRunSetType(int database, PVBid run, std::uint32_t type) {
  PVBscanRun fields;
  if (!PVBscanRunInq(database, run, fields)) return -2;
  if (!typeFitsChain(database, type, fields.chain)) return -2;
  return changeRun(database, run, [type](PVBscanRun& block) { block.type = type; });
}

PVBid PVBscanRunChain(int database, PVBid run) {
  const RunBlock block = getRun(database, run);
  return block ? block->chain : UNDEF;
}

int PVBscanRunSetChain(int database, PVBid run, PVBid chain) {
  PVBscanRun fields;
  if (!PVBscanRunInq(database, run, fields)) return -2;
  if (!typeFitsChain(database, fields.type, chain)) return -2;
  return changeRun(database, run, [chain](PVBscanRun& block) { block.chain = chain; });
}

PVBid PVBscanRunState(int database, PVBid run) {
  const RunBlock block = getRun(database, run);
  return block ? block->state : UNDEF;
}

int PVBscanRunSetState(int database, PVBid run, PVBid state) {
  const std::int32_t status = idStatus(state, kClassStateVector);
  if (status != kStatusOk) return scanRunFailure(database, status);
  return changeRun(database, run, [state](PVBscanRun& block) { block.state = state; });
}

PVBid PVBscanRunNext(int database, PVBid run) {
  const RunBlock block = getRun(database, run);
  return block ? block->next : UNDEF;
}

PVBid PVBinqChain(int database, PVBid run) { return PVBscanRunChain(database, run); }
PVBid PVBinqStateVector(int database, PVBid run) { return PVBscanRunState(database, run); }

// --- Iterator ------------------------------------------------------------------------

PVBscanRunIterator PVBcreateScanRunIterator(int database, const PVBrow& row) {
  PVBscanRunIterator iterator;
  ScanRunWalk walk(database, row);
  while (walk.next()) iterator.runs.push_back(walk.id());
  iterator.whole = walk.good();
  return iterator;
}

PVBid PVBscanRunIterFirst(PVBscanRunIterator& iterator) {
  iterator.position = -1;
  return PVBscanRunIterNext(iterator);
}

PVBid PVBscanRunIterNext(PVBscanRunIterator& iterator) {
  const int count = PVBscanRunIterCount(iterator);
  iterator.position = std::min(iterator.position + 1, count);
  return iterator.position < count ? iterator.runs[static_cast<std::size_t>(iterator.position)]
                                   : UNDEF;
}

int PVBscanRunIterCount(const PVBscanRunIterator& iterator) {
  return static_cast<int>(iterator.runs.size());
}

int PVBscanRunIterPosition(const PVBscanRunIterator& iterator) { return iterator.position; }

void PVBscanRunIterFree(PVBscanRunIterator& iterator) { iterator = {}; }

// --- Chains --------------------------------------------------------------------------

PVBid PVBinqInSignal(int database, PVBid chain) { return edgeSignal(database, chain, 0); }
PVBid PVBinqOutSignal(int database, PVBid chain) { return edgeSignal(database, chain, 1); }

std::int32_t PVBchainLength(int database, PVBid chain) {
  const PVBsignal* found = chainOf(database, chain);
  return found != nullptr ? static_cast<std::int32_t>(found->members.size()) : -1;
}
