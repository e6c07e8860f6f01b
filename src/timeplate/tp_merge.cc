#include "timeplate/tp_merge.h"

#include <fmt/printf.h>

#include <algorithm>
#include <cstdio>

#include "base/errors.h"
#include "base/progress.h"
#include "timeplate/ate.h"
#include "timeplate/pstate_store.h"
#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_merge_internal.h"
#include "timeplate/tp_pair.h"
#include "timeplate/tp_rewrite.h"
#include "timeplate/tp_rows.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr std::int64_t kPercent = 100;

PVBtimePlate& plateOf(PVBid id) {
  PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
  if (plate == nullptr) assertFail(__FILE__, __LINE__);
  return *plate;
}

// --- Folding -------------------------------------------------------------------------

// Edges of second that have expressions give them to edges of first that have none and
// are at the same time.
void adoptExpressions(PVBtrack& first, const PVBtrack& second) {
  const std::size_t edges = std::min(first.eventTimes.size(), second.eventTimes.size());
  first.eventExprs.resize(first.eventTimes.size());
  for (std::size_t edge = 0; edge < std::min(edges, second.eventExprs.size()); ++edge) {
    if (first.eventExprs[edge] || first.eventTimes[edge] != second.eventTimes[edge]) continue;
    first.eventExprs[edge] = second.eventExprs[edge];
  }
}

void adoptEquations(PlateView& first, const PlateView& second) {
  if (!first.plate->family) first.plate->family = second.plate->family;
  for (std::size_t signal = 0; signal < first.tracks.size(); ++signal) {
    for (std::size_t d = 0; d < first.tracks[signal].size(); ++d) {
      const int a = first.tracks[signal][d];
      const PVBtrack* wave = tpTrack(*second.plate, second.tracks[signal][d]);
      if (wave == nullptr || tpTrack(*first.plate, a) == nullptr) continue;
      adoptExpressions(first.plate->levels.front().tracks[static_cast<std::size_t>(a)], *wave);
    }
  }
}

void rewriteRows(PlateView& first, PlateView& second) {
  if (!tpPairHasCandidate()) return;
  tpRewriteStaticRows(*first.plate, 0, false);
  tpRewriteStaticRows(*second.plate, 1, false);
  tpRewriteRows(*first.plate, second.plate, tpRun.trackPass);
}

// Rows that needed no rewriting go over to first as well.
void repointRows(PVBid first, PVBid second) {
  for (const std::int32_t number : tpRowList(second)) {
    TpRow* row = tpRowGet(number);
    if (row == nullptr || row->timeplate != static_cast<std::uint16_t>(second)) continue;
    row->timeplate = static_cast<std::uint16_t>(first);
    tpRowTouch(*row);
  }
}

// Signals with a track in one of two timeplates only.
void noteUnsettled(const PlateView& first, const PlateView& second) {
  const auto saysNothing = [](const std::array<std::int32_t, 3>& tracks) {
    return tracks[0] == kNoTrack && tracks[1] == kNoTrack && tracks[2] == kNoTrack;
  };
  for (std::size_t i = 0; i < first.tracks.size(); ++i) {
    if (saysNothing(first.tracks[i]) != saysNothing(second.tracks[i])) {
      tpMergeState.unsettled[i] = true;
    }
  }
}

bool isUndefinedAtAnEnd(const PVBtimePlate& plate) {
  if (plate.levels.empty()) return false;
  const std::vector<PVBtrack>& tracks = plate.levels.front().tracks;
  return std::any_of(tracks.begin(), tracks.end(), [](const PVBtrack& track) {
    return track.stateChars.starts_with('?') || track.stateChars.ends_with('?');
  });
}

void fold(PlateView& first, PlateView& second) {
  const PVBid kept = first.plate->id;
  const PVBid gone = second.plate->id;
  tpNoteOriginal(*second.plate);
  // Tracks that were taken over are right for the rows there are, not for those to come.
  tpNoteAbsorbed(gone, kept, tpPair.used.empty());
  if (tpSettings.tpoCheckEquations) adoptEquations(first, second);
  repointRows(kept, gone);
  if (tpPairHasCandidate()) {
    noteUnsettled(first, second);
    tpApplyCandidates(*first.plate);
    tpViewTracks(first);
    tpRowListSetQuestion(kept, isUndefinedAtAnEnd(*first.plate));
  }
  tpRowListMerge(kept, gone);
  if (PVBtimePlateDelete(tpRun.database, gone) != 0) assertFail(__FILE__, __LINE__);
  second = {};
}

// On the track pass both stay.
void shrink(PlateView& first, PlateView& second) {
  for (PlateView* view : {&first, &second}) {
    tpApplyCandidates(*view->plate);
    tpViewTracks(*view);
  }
}

// --- The pair loop -------------------------------------------------------------------

class PairLoop {
 public:
  explicit PairLoop(int timeplates) : remaining_(timeplates) {
    for (const OrderEntry& entry : tpMergeState.tpoOrder) {
      PlateView view;
      view.plate = &plateOf(entry.id);
      view.isProtected = entry.isProtected;
      tpViewTracks(view);
      periods_.push_back(view.plate->period);
      views_.push_back(std::move(view));
    }
  }

  // The number of timeplates left.
  int run() {
    const auto count = views_.size();
    const auto last = static_cast<std::size_t>(tpMergeState.tpoLastCount);
    for (std::size_t i = 0; i + 1 < count && remaining_ > tpMergeState.tpoLastCount; ++i) {
      if (views_[i].plate == nullptr) continue;
      PBprogressUpdate(kPercent * static_cast<std::int64_t>(i) / static_cast<std::int64_t>(count));
      // Those that survived the last pass have been compared with each other.
      for (std::size_t j = std::max(last, i + 1); j < count; ++j) {
        if (views_[j].plate != nullptr && canMeet(i, j)) tryPair(i, j);
      }
    }
    return remaining_;
  }

 private:
  // What is told from the timeplates as such.
  bool canMeet(std::size_t i, std::size_t j) const {
    if (periods_[i] != periods_[j]) return false;
    if (tpSettings.tpoCheckEquations) {
      const auto& a = views_[i].plate->family;
      const auto& b = views_[j].plate->family;
      if (a && b && *a != *b) return false;
    }
    return !(views_[i].isProtected && views_[j].isProtected);
  }

  void tryPair(std::size_t i, std::size_t j) {
    PlateView& first = views_[i];
    PlateView& second = views_[j];
    if (tpTraces(1)) tell("\nMergable checking %s and %s", first, second);
    if (!tpComparePair(first, second)) return;
    if (tpRun.trackPass) {
      if (tpPair.reduced == 0) return;
      rewriteRows(first, second);
      return shrink(first, second);
    }
    if (tpTraces(1)) tell(" merge %s and %s, delete the latter\n", first, second);
    rewriteRows(first, second);
    ++tpMergeState.tpoOrder[i].mergeCount;
    fold(first, second);
    tpMergeState.tpoOrder[j].id = UNDEF;
    --remaining_;
  }

  static void tell(const char* format, const PlateView& first, const PlateView& second) {
    tpReport(fmt::sprintf(format, first.plate->name.value_or(""), second.plate->name.value_or("")));
  }

  std::vector<PlateView> views_;  // in working order
  std::vector<TIME> periods_;     // of the views, for the test that most pairs fail
  int remaining_;
};

std::vector<PVBid> idsLeft() {
  std::vector<PVBid> left;
  for (const OrderEntry& entry : tpMergeState.tpoOrder) {
    if (entry.id != UNDEF) left.push_back(entry.id);
  }
  return left;
}

void comparePairs(std::span<const PVBid> ids) {
  if (tpRun.trackPass) {
    tpStatus("...Performing Track Reduction Pass\n");
    tpMergeState.tpoLastCount = 0;
  }
  tpUpdateOrder(ids);
  tpReportOrder();
  const auto count = static_cast<int>(ids.size());
  PBprogressStart(kPercent, "...Merge Stimulus");
  const int remaining = PairLoop(count).run();
  if (!tpRun.trackPass) tpMergeState.tpoLastCount = remaining;
  PBprogressEnd(kPercent);
  tpReport(fmt::sprintf("\nMerged %d timeplates into %d timeplates.\n", count, remaining));
  if (tpReportStream() != nullptr) std::fflush(tpReportStream());
}

// --- The end -------------------------------------------------------------------------

void countShapes(std::span<const PVBid> ids) {
  for (const PVBid id : ids) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
    if (plate != nullptr) ateCountUse(*plate, static_cast<std::int64_t>(tpRowList(id).size()));
  }
}

// False when rows couldn't be written back.
bool finishPasses(std::span<const PVBid> left) {
  tpForcedMappings(left);
  countShapes(left);
  ateFamilySummary();
  tpTimeplateFrequency();
  tpPStateClose();
  const bool written = tpRowStoreClose() == 0;
  tpRowListsFree();
  tpMergeReset();
  return written;
}

}  // namespace

void tpMergeReset() {
  tpMergeState = {};
  tpPair = {};
}

std::vector<PVBid> tpMergeAll(std::span<const PVBid> ids, bool finish, bool& failed) {
  failed = false;
  std::vector<PVBid> left(ids.begin(), ids.end());
  const auto count = static_cast<int>(ids.size());
  const bool compared = count > 1 && (count != tpMergeState.tpoLastCount || tpRun.trackPass);
  if ((compared || (finish && count > 0)) && tpPrepareRows(ids, true) != 0) {
    failed = true;
    return left;
  }
  if (compared) {
    comparePairs(ids);
    left = idsLeft();
  }
  tpPairBegin(UNDEF, UNDEF);
  if (!finish) return left;
  if (compared) tpReportFailures();
  failed = !finishPasses(left);
  return left;
}
