#include "timeplate/tp_rows.h"

#include <fmt/printf.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "base/progress.h"
#include "pvb/timeplate.h"
#include "timeplate/ate.h"
#include "timeplate/previous_state.h"
#include "timeplate/pstate_store.h"
#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr int kProgressStep = 1024;

// A progress display that may be left out.
class Meter {
 public:
  Meter(bool shown, std::int64_t total, const char* label) : shown_(shown) {
    if (shown_) PBprogressStart(total, label);
  }
  ~Meter() {
    if (shown_) PBprogressEnd(done_);
  }
  Meter(const Meter&) = delete;
  Meter& operator=(const Meter&) = delete;

  void step() {
    if (++done_ % kProgressStep == 0 && shown_) PBprogressUpdate(done_);
  }

 private:
  bool shown_;
  std::int64_t done_ = 0;
};

void warnUnmapped(const char* step, std::int32_t row) {
  tpReport(fmt::sprintf("WARNING: %s: Unmapped row at %d\n", step, row));
}

// --- Tracks --------------------------------------------------------------------------

bool isEmptySlot(const PVBtimePlate& plate, std::size_t slot) {
  return std::ranges::all_of(plate.levels, [&](const PVBlevel& level) {
    return slot >= level.tracks.size() || level.tracks[slot].stateChars.empty();
  });
}

// Where a signal has other slots, an empty one is what some of its rows choose.
bool isChoice(const PVBtimePlate& plate, std::size_t slot) {
  const auto index = static_cast<std::int32_t>(slot);
  return std::ranges::any_of(PVBtrackSignals(plate, index), [&](PVBid id) {
    const SignalTracks* tracks = PVBsignalTracks(plate, id);
    return tracks != nullptr && std::ranges::any_of(tracks->track, [&](std::int32_t track) {
             return track != kNoTrack && track != index;
           });
  });
}

template <typename Vector>
void keepOnly(Vector& values, const std::vector<bool>& doomed) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i < doomed.size() && doomed[i]) continue;
    if (kept != i) values[kept] = std::move(values[i]);
    ++kept;
  }
  values.erase(values.begin() + static_cast<std::ptrdiff_t>(kept), values.end());
}

// Whether there were any.
bool removeEmptyTracks(PVBtimePlate& plate) {
  std::vector<bool> doomed(static_cast<std::size_t>(PVBslotCount(plate)));
  for (std::size_t slot = 0; slot < doomed.size(); ++slot) {
    doomed[slot] = isEmptySlot(plate, slot) && !isChoice(plate, slot);
  }
  if (std::ranges::find(doomed, true) == doomed.end()) return false;
  keepOnly(plate.selectorLists, doomed);
  keepOnly(plate.selectorTables, doomed);
  for (PVBlevel& level : plate.levels) keepOnly(level.tracks, doomed);
  PVBtimePlateRebuildMaps(plate);
  return true;
}

void rebuildMaps(std::span<const PVBid> ids) {
  for (const PVBid id : ids) {
    PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
    if (plate != nullptr) PVBtimePlateRebuildMaps(*plate);
  }
}

int mostTracks(std::span<const PVBid> ids) {
  int most = 0;
  for (const PVBid id : ids) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
    if (plate != nullptr) most = std::max(most, PVBslotCount(*plate));
  }
  return most;
}

bool hasQuestion(const PVBtimePlate& plate) {
  return !plate.levels.empty() &&
         std::ranges::any_of(plate.levels.front().tracks, [](const PVBtrack& track) {
           const std::string& states = track.stateChars;
           return !states.empty() && (states.front() == '?' || states.back() == '?');
         });
}

void markQuestions() {
  for (const PVBid id : tpRowListOwners()) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
    if (plate != nullptr) tpRowListSetQuestion(id, hasQuestion(*plate));
  }
}

// --- P states ------------------------------------------------------------------------

// In a record of zeros.
void setNibble(std::vector<std::uint8_t>& record, int index, int code) {
  const auto place = static_cast<std::size_t>(index);
  record[place / 2] = static_cast<std::uint8_t>(record[place / 2] | code << (place % 2 * 4));
}

// What the tester is taken to hold before the first row: of each signal, the state that
// the first track begins with.
class PStateSeed {
 public:
  PStateSeed() : codes_(tpRun.signals.size(), 0) {
    for (const TpSignal& signal : tpRun.signals) {
      if (signal.plain) missing_.push_back(signal.index);
    }
  }

  void look(const PVBtimePlate& plate, const TpRow& row) {
    std::erase_if(missing_, [&](int index) {
      const auto place = static_cast<std::size_t>(index);
      int direction = kUndefinedDirection;
      const PVBtrack* track =
          tpTrack(plate, tpRowTrack(tpRun.signals[place], plate, row, direction));
      if (track == nullptr) return false;
      codes_[place] = code(track->stateChars);
      return true;
    });
  }
  // The record of row 0.
  void tpPStateSeed() const {
    std::vector<std::uint8_t> record(codes_.size() / 2 + 2);
    for (std::size_t i = 0; i < codes_.size(); ++i) {
      setNibble(record, static_cast<int>(i), codes_[i]);
    }
    tpPStatePut(0, record);
  }

 private:
  static int code(std::string_view states) {
    std::size_t place = 0;
    if (tpRun.pmode == LAST_FORCE) place = states.find_first_of("DNUZ");
    if (tpRun.pmode == LAST_DRIVE) place = states.find_first_of("DU");
    if (place >= states.size()) return 0;
    const char state = states[place] == '?' ? 'Z' : states[place];
    return tpStoredCode(state);
  }

  std::vector<int> codes_;
  std::vector<int> missing_;
};

// --- Tagging -------------------------------------------------------------------------

bool usesPrevious() { return tpRun.pmode >= LAST_FORCE && tpRun.pmode <= IMS; }

const PVBtimePlate* plateOf(const TpRow& row) {
  if (row.timeplate == kNoTimePlate) return nullptr;
  const PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, row.timeplate);
  if (plate == nullptr) warnUnmapped("loadPrevious", row.row);
  return plate;
}

// Enters rows in lists and P states.
class Tagging {
 public:
  Tagging() : record_(tpRun.signals.size() / 2 + 2) {}

  // From row `first` on to the last.
  void run(std::int32_t first, bool withProgress) {
    const std::int32_t count = tpRowStoreCount();
    Meter meter(withProgress, count - first, "...Tag PState Properties");
    if (first > 0 && first < count) resume(first - 1);
    for (std::int32_t i = first; i < count; ++i) {
      if (const TpRow* row = tpRowGet(i); row != nullptr) tag(*row, first == 0);
      meter.step();
    }
    if (first == 0 && count > 0) seed_.tpPStateSeed();
  }

 private:
  // Behind a row that was tagged before.
  void resume(std::int32_t last) {
    for (const TpSignal& signal : tpRun.signals) {
      states_.set(signal, tpPStateLetter(last, signal.index));
    }
    if (const TpRow* row = tpRowGet(last); row != nullptr) pass(*row, plateOf(*row));
  }

  void tag(const TpRow& row, bool seeds) {
    const PVBtimePlate* plate = plateOf(row);
    if (plate != nullptr) {
      tpRowListAdd(row.row, plate->id);
      if (seeds) seed_.look(*plate, row);
    }
    if (!usesPrevious()) return;
    if (tpRowEntered(row.row)) states_.forget();
    pass(row, plate);
    if (row.row > 0) tpPStatePut(row.row, record_);
  }

  // The states going into a row to the record, and on to those going into the next.
  void pass(const TpRow& row, const PVBtimePlate* plate) {
    std::ranges::fill(record_, std::uint8_t{0});
    const bool repeats = tpRowRepeats(row.row);
    for (const TpSignal& signal : tpRun.signals) {
      if (!signal.plain) continue;
      const char before = states_.letter(signal);
      const char after = plate != nullptr ? states_.behind(signal, *plate, row) : before;
      states_.set(signal, after);
      const bool known = before != kUnknownLetter && (!repeats || before == after);
      if (known) setNibble(record_, signal.index, tpStoredCode(before));
    }
  }

  std::vector<std::uint8_t> record_;
  PreviousStates states_;
  PStateSeed seed_;
};

int loadRows(std::span<const PVBid> ids, bool withProgress) {
  if (!tpRowStoreOpen(tpRun.database, nullptr)) return -2;
  if (!tpPStateOpen(static_cast<int>(tpRun.signals.size()), nullptr)) return -2;
  tpRowListsBuild(PVBtimePlateCount(tpRun.database), tpRowStoreCount(), mostTracks(ids));
  Tagging().run(0, withProgress);
  return 0;
}

// The lists follow each merge by themselves; they need what came since.
int refreshRows(std::span<const PVBid> ids, bool withProgress) {
  const std::int32_t known = tpRowStoreCount();
  const RowsTaken taken = tpRowStoreRefresh();
  if (taken == RowsTaken::failed) return -2;
  if (taken == RowsTaken::renewed) return loadRows(ids, withProgress);
  for (const PVBid id : tpRowListOwners()) {
    if (PVBtimePlateInqByID(tpRun.database, id) != nullptr) continue;
    for (const std::int32_t row : tpRowList(id)) warnUnmapped("loadPProperty", row);
  }
  Tagging().run(known, withProgress);
  return 0;
}

}  // namespace

void tpRemoveEmptyTracks(std::span<const PVBid> ids, bool withProgress) {
  Meter meter(withProgress, static_cast<std::int64_t>(ids.size()), "...Remove Empty Tracks");
  for (const PVBid id : ids) {
    PVBtimePlate* plate = PVBtimePlateInqByID(tpRun.database, id);
    if (plate != nullptr && removeEmptyTracks(*plate)) tpMemoForgetAll(id);
    meter.step();
  }
}

int tpPrepareRows(std::span<const PVBid> ids, bool withProgress) {
  tpRun.pmode = PVBpmode(tpRun.database);
  if (tpRun.trackPass) tpStatus("Track Reduction Pass\n");
  rebuildMaps(ids);
  if (!ateUseMux()) tpRemoveEmptyTracks(ids, withProgress);
  const int result =
      tpRowStoreIsOpen() ? refreshRows(ids, withProgress) : loadRows(ids, withProgress);
  if (result == 0) markQuestions();
  return result;
}

char loadPrevious(std::int32_t row, const TpSignal& signal) {
  if (row < 0 || (tpRun.pmode <= LAST_DRIVE && row > 0)) return 'N';
  return tpPStateLetter(row, signal.index);
}

char tpPState(char value, char pstate, char previous) {
  const char driven = tpIsDrive(previous) ? previous : '\0';
  switch (tpRun.pmode) {
    case LAST_FORCE:
    case LAST_DRIVE:
      if (value == 'Z') return 'Z';
      if (pstate != 'N') return pstate;
      return driven != '\0' ? driven : 'N';
    case FORCE_OR_Z:
      return driven != '\0' ? driven : 'Z';
    case ADVANTEST:
      if (value == 'Z') return 'Z';
      if (pstate != 'N') return pstate;
      if (previous == 'T' || previous == 'L') return 'D';
      if (previous == 'H' || previous == 'X') return 'U';
      return std::string_view("DNU").find(previous) != std::string_view::npos ? previous : 'Z';
    case IMS:
      return std::string_view("DNU").find(previous) != std::string_view::npos ? previous : 'Z';
    default:
      return 'N';
  }
}
