#include "timeplate/row_lists.h"

#include <fmt/printf.h>

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "pvb/timeplate.h"
#include "timeplate/ate.h"
#include "timeplate/tp_run.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr std::int32_t kNoSlot = -1;
constexpr int kEntriesAByte = 4;
constexpr std::uint8_t kNoMatchBits = 0xAA;
// Tracks of a memo that grows; a higher one is answered without.
constexpr int kMostTracks = 65536;

struct Slot {
  PVBid owner = UNDEF;  // UNDEF: the slot is free
  std::vector<std::int32_t> rows;
  std::size_t next = 0;  // of the walk
  bool hasQuestion = false;
  // memoBytes for each track; shorter where nothing is known of the last ones.
  std::vector<std::uint8_t> memo;
  bool mayMatch = false;  // there may be a MATCH in it
};

// Filled by tpRowListsBuild, emptied by tpRowListsFree.
struct RowLists {
  std::vector<Slot> tpoRowLists;
  std::vector<std::int32_t> tpoRowListIndex;  // slot by timeplate
  std::size_t firstFree = 0;                  // no free slot is lower
  std::size_t usualRows = 0;                  // of a timeplate
  std::size_t usualTracks = 0;
  std::size_t memoBytes = 1;  // of a track
  MemoCounts counts;
};
RowLists lists;

Slot* slotOf(PVBid timeplate) {
  if (timeplate < 0 || static_cast<std::size_t>(timeplate) >= lists.tpoRowListIndex.size()) {
    return nullptr;
  }
  const std::int32_t slot = lists.tpoRowListIndex[static_cast<std::size_t>(timeplate)];
  return slot != kNoSlot ? &lists.tpoRowLists[static_cast<std::size_t>(slot)] : nullptr;
}

std::int32_t& indexOf(PVBid timeplate) {
  const auto place = static_cast<std::size_t>(timeplate);
  if (place >= lists.tpoRowListIndex.size()) lists.tpoRowListIndex.resize(place + 1, kNoSlot);
  return lists.tpoRowListIndex[place];
}

Slot& startSlot(PVBid timeplate) {
  std::size_t& place = lists.firstFree;
  while (place < lists.tpoRowLists.size() && lists.tpoRowLists[place].owner != UNDEF) ++place;
  if (place == lists.tpoRowLists.size()) lists.tpoRowLists.emplace_back();
  indexOf(timeplate) = static_cast<std::int32_t>(place);
  Slot& slot = lists.tpoRowLists[place];
  slot.owner = timeplate;
  slot.rows.reserve(lists.usualRows);
  return slot;
}

// A MATCH was found by the rows that there were.
void dropMatches(Slot& slot) {
  if (!slot.mayMatch) return;
  for (std::uint8_t& byte : slot.memo) byte &= kNoMatchBits;
  slot.mayMatch = false;
}

}  // namespace

// --- Lists ---------------------------------------------------------------------------

void tpRowListsBuild(int timeplateCount, std::int32_t rowCount, int trackCount) {
  tpRowListsFree();
  const auto timeplates = static_cast<std::size_t>(std::max(timeplateCount, 1));
  lists.tpoRowLists.reserve(timeplates);
  lists.usualRows = static_cast<std::size_t>(std::max(rowCount, 0)) / timeplates;
  lists.usualTracks = static_cast<std::size_t>(std::clamp(trackCount, 0, kMostTracks));
  const int shapes = std::max(ateShapeCount(kComplexShapes), ateShapeCount(kMuxShapes));
  lists.memoBytes = static_cast<std::size_t>(std::max(shapes, 0)) / kEntriesAByte + 1;
}

void tpRowListsFree() { lists = {}; }

void tpRowListAdd(std::int32_t row, PVBid timeplate) {
  if (row < 0 || timeplate < 0 || timeplate > kMaxTimePlate) return;
  Slot* slot = slotOf(timeplate);
  if (slot == nullptr) slot = &startSlot(timeplate);
  std::vector<std::int32_t>& rows = slot->rows;
  if (rows.empty() || row > rows.back()) {
    rows.push_back(row);
  } else {
    const auto place = std::lower_bound(rows.begin(), rows.end(), row);
    if (*place == row) return;
    rows.insert(place, row);
  }
  dropMatches(*slot);
}

std::int32_t tpRowListFirst(PVBid timeplate) {
  Slot* slot = slotOf(timeplate);
  if (slot == nullptr) return -1;
  slot->next = 0;
  return tpRowListNext(timeplate);
}

std::int32_t tpRowListNext(PVBid timeplate) {
  Slot* slot = slotOf(timeplate);
  return slot != nullptr && slot->next < slot->rows.size() ? slot->rows[slot->next++] : -1;
}

std::span<const std::int32_t> tpRowList(PVBid timeplate) {
  const Slot* slot = slotOf(timeplate);
  return slot != nullptr ? std::span<const std::int32_t>(slot->rows)
                         : std::span<const std::int32_t>();
}

PVBidList tpRowListOwners() {
  PVBidList owners;
  for (const Slot& slot : lists.tpoRowLists) {
    if (slot.owner != UNDEF) owners.push_back(slot.owner);
  }
  return owners;
}

void tpRowListSetQuestion(PVBid timeplate, bool hasQuestion) {
  if (Slot* slot = slotOf(timeplate); slot != nullptr) slot->hasQuestion = hasQuestion;
}

// --- Merging -------------------------------------------------------------------------

namespace {

// Whether a track number means the same signal in both. Without the timeplates, it does.
bool isSameTrack(const PVBtimePlate* first, const PVBtimePlate* second, std::size_t track) {
  if (first == nullptr || second == nullptr) return true;
  const int index = static_cast<int>(track);
  return index < PVBslotCount(*first) && index < PVBslotCount(*second) &&
         PVBtrackSignals(*first, index) == PVBtrackSignals(*second, index) &&
         PVBtrackDirection(*first, index) == PVBtrackDirection(*second, index);
}

// What isn't there is NOTSET.
void mergeMemos(Slot& first, const Slot& second) {
  const PVBtimePlate* firstPlate = PVBtimePlateInqByID(tpRun.database, first.owner);
  const PVBtimePlate* secondPlate = PVBtimePlateInqByID(tpRun.database, second.owner);
  first.memo.resize(std::max(first.memo.size(), second.memo.size()));
  bool same = false;
  for (std::size_t i = 0; i < first.memo.size(); ++i) {
    if (i % lists.memoBytes == 0) {
      same = isSameTrack(firstPlate, secondPlate, i / lists.memoBytes);
    }
    const unsigned a = first.memo[i];
    const unsigned b = same && i < second.memo.size() ? second.memo[i] : 0U;
    first.memo[i] = static_cast<std::uint8_t>(((a | b) & kNoMatchBits) | (a & b));
  }
  first.mayMatch = first.mayMatch && second.mayMatch;
}

void mergeRows(std::vector<std::int32_t>& rows, const std::vector<std::int32_t>& more) {
  std::vector<std::int32_t> all;
  all.reserve(rows.size() + more.size());
  std::ranges::set_union(rows, more, std::back_inserter(all));
  rows = std::move(all);
}

void freeSlot(PVBid timeplate) {
  std::int32_t& index = indexOf(timeplate);
  lists.tpoRowLists[static_cast<std::size_t>(index)] = {};
  lists.firstFree = std::min(lists.firstFree, static_cast<std::size_t>(index));
  index = kNoSlot;
}

}  // namespace

void tpRowListMerge(PVBid first, PVBid second) {
  Slot* from = slotOf(second);
  if (from == nullptr || first == second || first < 0 || first > kMaxTimePlate) return;
  Slot* to = slotOf(first);
  if (to == nullptr) {
    indexOf(first) = std::exchange(indexOf(second), kNoSlot);
    from->owner = first;
    dropMatches(*from);
    return;
  }
  mergeRows(to->rows, from->rows);
  mergeMemos(*to, *from);
  freeSlot(second);
}

// --- Memo ----------------------------------------------------------------------------

namespace {

// The byte of an entry in a slot's memo.
std::size_t memoPlace(int track, int shapeId) {
  return static_cast<std::size_t>(track) * lists.memoBytes +
         static_cast<std::size_t>(shapeId) / kEntriesAByte;
}

bool hasEntry(int track, int shapeId) {
  return track >= 0 && track < kMostTracks && shapeId >= 0 &&
         static_cast<std::size_t>(shapeId) < lists.memoBytes * kEntriesAByte;
}

bool isShared(PVBid timeplate, int track) {
  const PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, timeplate);
  return plate != nullptr && PVBtrackSignals(*plate, track).size() > 1;
}

}  // namespace

Memo tpMemoGet(PVBid timeplate, int track, int shapeId) {
  ++lists.counts.asked;
  const Slot* slot = slotOf(timeplate);
  if (slot == nullptr || !hasEntry(track, shapeId)) return NOTSET;
  const std::size_t place = memoPlace(track, shapeId);
  if (place >= slot->memo.size()) return NOTSET;
  const int value = (slot->memo[place] >> (shapeId % kEntriesAByte * 2)) & 3;
  lists.counts.known += value != NOTSET ? 1 : 0;
  return static_cast<Memo>(value);
}

void tpMemoSet(PVBid timeplate, int track, int shapeId, Memo value) {
  Slot* slot = slotOf(timeplate);
  if (slot == nullptr || !hasEntry(track, shapeId) || isShared(timeplate, track)) return;
  const std::size_t place = memoPlace(track, shapeId);
  if (place >= slot->memo.size()) {
    const auto tracks = std::max(lists.usualTracks, static_cast<std::size_t>(track) + 1);
    slot->memo.resize(tracks * lists.memoBytes);
  }
  const unsigned shift = static_cast<unsigned>(shapeId % kEntriesAByte) * 2;
  std::uint8_t& byte = slot->memo[place];
  byte =
      static_cast<std::uint8_t>((byte & ~(3U << shift)) | (static_cast<unsigned>(value) << shift));
  slot->mayMatch = slot->mayMatch || value == MATCH;
}

void tpMemoForget(PVBid timeplate, int track) {
  Slot* slot = slotOf(timeplate);
  if (slot == nullptr || !hasEntry(track, 0)) return;
  const std::size_t begin = std::min(memoPlace(track, 0), slot->memo.size());
  const std::size_t end = std::min(begin + lists.memoBytes, slot->memo.size());
  std::fill(slot->memo.begin() + static_cast<std::ptrdiff_t>(begin),
            slot->memo.begin() + static_cast<std::ptrdiff_t>(end), std::uint8_t{0});
}

void tpMemoForgetAll(PVBid timeplate) {
  if (Slot* slot = slotOf(timeplate); slot != nullptr) slot->memo.clear();
}

MemoCounts tpMemoCounts() { return lists.counts; }

// --- Table ---------------------------------------------------------------------------

void tpTimeplateFrequency() {
  std::vector<const Slot*> used;
  for (const Slot& slot : lists.tpoRowLists) {
    if (slot.owner != UNDEF) used.push_back(&slot);
  }
  // Equal counts stay in the order of their slots, as an insertion sort leaves them.
  std::ranges::stable_sort(used, std::ranges::greater{},
                           [](const Slot* slot) { return slot->rows.size(); });
  std::string text = "\nTimeplate Frequency\n";
  text += fmt::sprintf("%20s %10s    %s\n", "Timeplate Name", "# Rows", "Has '?'");
  std::size_t rows = 0;
  for (const Slot* slot : used) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, slot->owner);
    text += fmt::sprintf("%20s %10d     %s\n", plate != nullptr ? plate->name.value_or("") : "",
                         slot->rows.size(), slot->hasQuestion ? "YES" : " -");
    rows += slot->rows.size();
  }
  text += fmt::sprintf("\nTotal entries examined = %d, Total rows = %d\n", used.size(), rows);
  tpReport(text);
}
