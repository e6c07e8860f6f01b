// The rows of a merge. Both regions are walked side by side; what is left of the cycle
// that is longer is used for the next row of the destination too.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>

#include "base/errors.h"
#include "base/progress.h"
#include "conditioner/merge.h"
#include "conditioner/merge_internal.h"
#include "conditioner/messages.h"
#include "conditioner/row_transfer.h"
#include "conditioner/run.h"
#include "conditioner/timeplate_transfer.h"
#include "pvb/database.h"
#include "pvb/timeplate_match.h"
#include "timeplate/optimizer.h"
#include "timeplate/tp_successor.h"

namespace {

constexpr std::string_view kFunction = "mergeCycle";

// Of the short names, which several merges of a run go on counting.
std::uint32_t tpNameCounter = 0;

void push(int message, std::string_view arg1, ErrArg arg2 = {}) {
  errno = 0;
  PBerrPush(PBconditionerError, message, kFunction, arg1, arg2);
}

// --- One side ------------------------------------------------------------------------

// A source under way. The row in force, and how far into its cycle the rows of the
// destination have come.
struct Side {
  PVBregion& region;
  RegionRow row;
  TIME offset;

  TIME left() const { return PBsubTIME(row.plate->period, offset); }
  // What the region itself cut at its bounds has no name by which it could be found.
  bool isKnown() const { return !isPiece(*row.plate); }
  // The stretch of the cycle that the next row of the destination takes.
  PlatePtr piece(TIME duration) const {
    PlatePtr rest = splitTimePlate(row.plate, offset).rest;
    if (rest == nullptr) assertFail(__FILE__, __LINE__);
    return splitTimePlate(rest, duration).first;
  }
};

void requirePlate(const Side& side) {
  if (side.row.row && side.row.plate != nullptr) return;
  push(kFunctionAndText, "a pattern row without a timeplate can't be merged.");
  fatalExit();
}

// 0 or -1, as the walk of a region tells.
int advance(Side& side, TIME duration) {
  if (PBcmpTIME(duration, side.left()) < 0) {
    side.offset = PBaddTIME(side.offset, duration);
    return 0;
  }
  side.offset = TIME_ZERO;
  const int result = PVBregionPatternInqNext(side.region, kStepCycle, side.row);
  if (result == -2) fatalExit();
  if (result == 0) requirePlate(side);
  return result;
}

// --- Merged timeplates ---------------------------------------------------------------

// Plates of both sources and where in their cycles a row of the destination begins: this
// decides the row's timeplate.
struct PairKey {
  PVBid plate1;
  PVBid plate2;
  TIME offset1;
  TIME offset2;

  bool operator==(const PairKey&) const = default;
};

struct PairHash {
  std::size_t operator()(const PairKey& key) const {
    std::uint64_t hash = 0;
    for (const std::int32_t value : {key.plate1, key.plate2, key.offset1.major, key.offset1.minor,
                                     key.offset2.major, key.offset2.minor}) {
      hash = (hash ^ static_cast<std::uint32_t>(value)) * 0x9E3779B97F4A7C15U;
      hash ^= hash >> 32;
    }
    return hash;
  }
};

// The timeplate of a pair. Where the optimizer has put another in its place, rows may need
// other data there.
struct Target {
  PVBid plate = UNDEF;
  std::shared_ptr<TpRedirect> redirect;
};

using PairTable = std::unordered_map<PairKey, Target, PairHash>;
// Cycles that never meet at the same offsets again would fill the table with what isn't
// looked up twice.
constexpr std::size_t kMaxPairs = 1U << 20;

void mapTracks(PVBtimePlate& merged, const PlatePtr& piece, const PVBregion& src,
               const SignalTable& table) {
  if (piece == nullptr || mapTimePlateTracks(merged, *piece, src, table) != 0) {
    assertFail(__FILE__, __LINE__);
  }
}

// Signals of both sources take their timing from source 1.
std::unique_ptr<PVBtimePlate> mergeTimePlates(const Side& side1, const Side& side2,
                                              const SigCategories& categories, TIME duration,
                                              const PVBtimePlate& base) {
  const PlatePtr piece1 = side1.piece(duration);
  const PlatePtr piece2 = side2.piece(duration);
  auto merged = PVBtimePlateCopy(base);
  merged->name = side1.row.plate->name.value_or("") + '_' + PBformatTIME(TIME_ZERO);
  merged->period = duration;
  mapTracks(*merged, piece1, side1.region, categories[SRC1_DISJOINT_SCALARS]);
  mapTracks(*merged, piece1, side1.region, categories[OVERLAP_SCALARS]);
  mapTracks(*merged, piece2, side2.region, categories[SRC2_DISJOINT_SCALARS]);
  return merged;
}

std::string generatedName(int database, TIME now) {
  if (run.shortTpNames) {
    for (;;) {
      std::string name = "tp" + std::to_string(tpNameCounter++);
      if (PVBtimePlateInqByName(database, name) == nullptr) return name;
    }
  }
  if (std::optional<std::string> name = refTimePlateName(now)) return *std::move(name);
  push(kFunctionAndText, "the reference PVB has no timeplate at time " + PBformatTIME(now) + ".");
  fatalExit();
}

// --- The walk ------------------------------------------------------------------------

TIME lengthOf(const PVBregion& region) {
  PVBposition sums;
  if (PVBpatternInqSize(region.pvbHandle, kMainPattern, sums) != 0) return TIME_ZERO;
  return PBsubTIME(std::min(region.stop, sums.time), region.start);
}

class CycleMerge {
 public:
  CycleMerge(PVBregion& dest, PVBregion& src1, PVBregion& src2, const SigCategories& categories)
      : database_(dest.pvbHandle),
        categories_(categories),
        side1_{src1, {}, TIME_ZERO},
        side2_{src2, {}, TIME_ZERO},
        length_(std::min(lengthOf(src1), lengthOf(src2))),
        base_(baseTimePlate(dest.pvbHandle)),
        pairs_(buildScalarPairs(categories, src1, src2, dest)),
        now_(src1.start) {}

  int mergeRows() {
    begin(side1_);
    begin(side2_);
    for (std::uint32_t row = 0;; ++row) {
      const TIME duration = std::min(side1_.left(), side2_.left());
      RowHandle merged = makeRow(duration);
      if (!merged) return -2;
      now_ = PBaddTIME(now_, duration);
      PBprogressUpdate(PBpercentTIME(PBsubTIME(now_, side1_.region.start), length_));
      insertRow(row, *merged);
      const int result1 = advance(side1_, duration);
      if (advance(side2_, duration) == -1 || result1 == -1) return 0;
    }
  }

 private:
  static void begin(Side& side) {
    if (PVBregionPatternInqFirst(side.region, side.row) != 0) fatalExit();
    requirePlate(side);
  }

  std::optional<PairKey> pairKey() const {
    if (!side1_.isKnown() || !side2_.isKnown()) return std::nullopt;
    return PairKey{side1_.row.plate->id, side2_.row.plate->id, side1_.offset, side2_.offset};
  }

  // Where the row goes; without a plate after a push.
  Target findOrGenerate(TIME duration) {
    const std::optional<PairKey> key = pairKey();
    if (!key) return {generate(duration), nullptr};
    if (last_.second.plate != UNDEF && last_.first == *key) return last_.second;
    if (const auto found = plates_.find(*key); found != plates_.end()) {
      last_ = *found;
      return found->second;
    }
    return generateFor(*key, duration);
  }

  Target generateFor(const PairKey& key, TIME duration) {
    Target target = {generate(duration), nullptr};
    if (plates_.size() >= kMaxPairs) plates_.clear();
    last_ = {};
    if (target.plate != UNDEF) plates_[key] = target;
    return target;
  }

  // The optimizer has folded plates to make room for one more. What can't be led to the
  // plate that took its place is generated anew when it comes again.
  void followPasses() {
    passes_ = tpOptimizerPasses();
    last_ = {};
    Redirects redirects;
    for (auto& [key, target] : plates_) target = follow(target, redirects);
    std::erase_if(plates_, [](const auto& entry) { return entry.second.plate == UNDEF; });
    tpOptimizerForgetChanges();
  }

  // By the plate as it was generated.
  using Redirects = std::map<std::shared_ptr<const PVBtimePlate>, std::shared_ptr<TpRedirect>>;

  static Target follow(const Target& target, Redirects& redirects) {
    const TpSuccessor next = tpOptimizerSuccessor(target.plate);
    if (next.alike && target.redirect == nullptr) return {next.plate, nullptr};
    const auto original = target.redirect != nullptr ? target.redirect->original()
                                                     : tpOptimizerOriginal(target.plate);
    if (original == nullptr) return {};
    std::shared_ptr<TpRedirect>& redirect = redirects[original];
    if (redirect == nullptr && redirects.size() <= tpRedirectLimit()) {
      redirect = std::make_shared<TpRedirect>(original, next.plate);
    }
    return redirect != nullptr ? Target{next.plate, redirect} : Target{};
  }

  PVBid generate(TIME duration) {
    if (PBcmpTIME(duration, run.minPeriod) < 0) {
      push(kPeriodTooShort, PBformatTIME(duration), PBformatTIME(run.minPeriod));
      return UNDEF;
    }
    auto merged = mergeTimePlates(side1_, side2_, categories_, duration, *base_);
    merged->name = generatedName(database_, now_);
    const PVBtimePlate* stored = matchOrInsertTimePlate(database_, std::move(merged));
    if (passes_ != tpOptimizerPasses()) followPasses();
    return stored != nullptr ? stored->id : UNDEF;
  }

  RowHandle mergedRow(PVBid plate) const {
    return mergeRow(database_, *side1_.row.row, *side2_.row.row, plate, pairs_.first,
                    pairs_.second);
  }

  // An empty handle after a push.
  RowHandle makeRow(TIME duration) {
    const Target target = findOrGenerate(duration);
    if (target.plate == UNDEF) return {};
    RowHandle row = mergedRow(target.plate);
    if (!row || target.redirect == nullptr) return row;
    const auto size = static_cast<std::size_t>(PVBrowDataSize(database_));
    if (target.redirect->rewrite({row->states(), size})) return row;
    // This row doesn't fit there: its pair gets a plate of its own again.
    row.reset();
    const PVBid plate = generateFor(*pairKey(), duration).plate;
    return plate != UNDEF ? mergedRow(plate) : RowHandle();
  }

  void insertRow(std::uint32_t number, PVBrow& row) {
    mergeRowProperties(row, database_, *side1_.row.row, side1_.region.pvbHandle, *side2_.row.row,
                       side2_.region.pvbHandle);
    PVBposition position;
    position.row = number;
    if (PVBrowInsert(database_, kMainPattern, position, BY_ROW, row) < 0) fatalExit();
  }

  int database_;
  const SigCategories& categories_;
  Side side1_;
  Side side2_;
  TIME length_;  // expected, for the progress display
  std::unique_ptr<PVBtimePlate> base_;
  std::pair<ScalarPairs, ScalarPairs> pairs_;
  PairTable plates_;
  std::pair<PairKey, Target> last_;  // looked up in `plates_`
  TIME now_;
  unsigned passes_ = tpOptimizerPasses();  // that `plates_` has followed
};

}  // namespace

int mergeCycle(PVBregion& dest, PVBregion& src1, PVBregion& src2, const SigCategories& categories) {
  matchTimePlateClear();
  const int result = CycleMerge(dest, src1, src2, categories).mergeRows();
  matchTimePlateEnd();
  return result;
}
