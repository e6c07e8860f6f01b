// Which tracks the rows of a timeplate choose. A row chooses among the tracks of a signal
// by which data it has for it, driven or expected, so that a track taken over from another
// timeplate may change the choice.

#include <array>

#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_merge_internal.h"
#include "timeplate/tp_settings.h"

namespace {

// Bits of PlateView::rowKinds: the rows with which data there are, and whether one of them
// compares with what it expects.
constexpr std::uint8_t kNeither = 1;
constexpr std::uint8_t kInOnly = 2;
constexpr std::uint8_t kOutOnly = 4;
constexpr std::uint8_t kBothData = 8;
constexpr std::uint8_t kCompares = 16;
constexpr int kUnknownCode = 4;  // expects nothing

// Directions as bits.
constexpr unsigned kIn = 1;
constexpr unsigned kOut = 2;
constexpr unsigned kBoth = 4;

std::uint8_t kindOf(const TpSignal& signal, const TpRow& row) {
  const bool in = tpRowCode(row, signal.inColumn) != 0;
  const int expected = tpRowCode(row, signal.outColumn);
  const bool out = expected != 0;
  const std::uint8_t kind = in && out ? kBothData : in ? kInOnly : out ? kOutOnly : kNeither;
  return out && expected != kUnknownCode ? static_cast<std::uint8_t>(kind | kCompares) : kind;
}

// Once for each timeplate, for all signals.
void readRowKinds(PlateView& view) {
  view.rowKinds.assign(tpRun.signals.size(), 0);
  for (const std::int32_t number : tpRowList(view.plate->id)) {
    const TpRow* row = tpRowGet(number);
    if (row == nullptr) continue;
    for (const TpSignal& signal : tpRun.signals) {
      view.rowKinds[static_cast<std::size_t>(signal.index)] |= kindOf(signal, *row);
    }
  }
}

// The tracks that a row of a kind chooses among those of `present`.
unsigned chosen(unsigned present, std::uint8_t kind) {
  const unsigned wanted = kind == kInOnly ? kIn : kind == kOutOnly ? kOut : 0;
  if ((present & wanted) != 0) return wanted;
  if ((present & kBoth) != 0) return kBoth;
  return present & (kIn | kOut);
}

bool keepsTracks(unsigned before, unsigned after, std::uint8_t kind, bool compares) {
  const unsigned added = chosen(after, kind) ^ chosen(before, kind);
  if ((added & chosen(before, kind)) != 0) return false;
  if (added == kOut) return !tpSettings.tpoOptimizeOnly || !compares;
  return added == 0;
}

}  // namespace

bool tpRowsKeepTracks(PlateView& view, const TpSignal& signal, unsigned directions) {
  const auto index = static_cast<std::size_t>(signal.index);
  unsigned before = 0;
  for (unsigned d = 0; d < 3; ++d) {
    if (view.tracks[index][d] != kNoTrack) before |= 1U << d;
  }
  if ((before | directions) == before) return true;
  if (view.rowKinds.empty()) readRowKinds(view);
  const std::uint8_t kinds = view.rowKinds[index];
  const bool compares = (kinds & kCompares) != 0;
  // Of a signal without any track nothing was said.
  if (before == 0) return !tpSettings.tpoOptimizeOnly || !compares || (directions & ~kIn) == 0;
  for (const std::uint8_t kind : {kNeither, kInOnly, kOutOnly, kBothData}) {
    if ((kinds & kind) == 0) continue;
    if (!keepsTracks(before, before | directions, kind, compares)) return false;
  }
  return true;
}

void tpMergeRowKinds(PlateView& first, const PlateView& second) {
  if (first.rowKinds.empty() || second.rowKinds.empty()) {
    first.rowKinds.clear();
    return;
  }
  for (std::size_t i = 0; i < first.rowKinds.size(); ++i) first.rowKinds[i] |= second.rowKinds[i];
}
