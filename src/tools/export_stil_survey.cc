// The walk over rows, and what it finds that they use of the timeplates.

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "pvb/database.h"
#include "pvb/scan_run.h"
#include "tools/export_stil_internal.h"
#include "tools/flat_walk.h"

namespace {

std::uint32_t selection(const StilExport& stil, const PVBrow& row, std::size_t signal) {
  const char selector = PVBrowSelector(stil.database, *stil.signals[signal].signal, row);
  return static_cast<std::uint32_t>(static_cast<unsigned char>(selector) << 8) |
         static_cast<std::uint32_t>(stilPlainPlace(row, stil.columns[signal]));
}

// Codes of the row data.
constexpr int kLow = 1;
constexpr int kHigh = 2;
constexpr int kUnknown = 4;

// Whether strobes are there, but nothing for them to see.
bool comparesNothing(const std::vector<MeaningEvent>& events) {
  const auto has = [&](std::string_view states) {
    return std::ranges::any_of(events, [states](const MeaningEvent& event) {
      return states.find(event.state) != std::string_view::npos;
    });
  };
  return has("X") && !has("LHT");
}

bool isCycleRow(std::uint32_t type) { return type == ROW_LITERAL || type == ROW_SCAN; }

// Room for a row whose states are changed.
class RowCopy {
 public:
  PVBrow* take(int database, const PVBrow& row) {
    const std::size_t bytes = kRowStatesOffset + static_cast<std::size_t>(PVBrowDataSize(database));
    room_.resize(bytes / sizeof(std::uint64_t) + 1);
    std::memcpy(room_.data(), &row, bytes);
    return reinterpret_cast<PVBrow*>(room_.data());
  }

 private:
  std::vector<std::uint64_t> room_;
};

class RowWalk {
 public:
  RowWalk(StilExport& stil, int pattern, StilRowVisitor& visitor)
      : stil_(stil), pattern_(pattern), visitor_(visitor) {}

  bool run();

 private:
  bool row(const PVBrow& row, StilRowPlace place, int depth);
  bool shift(const PVBrow& row, StilRowPlace place);
  bool openLoop(std::uint32_t count, int depth);
  void closeLoops(int depth);

  StilExport& stil_;
  int pattern_;
  StilRowVisitor& visitor_;
  int openLoops_ = 0;
  int skippedDepth_ = -1;  // of a loop that is never run; -1 for none
  RowCopy copy_;           // with the states of a shift
};

bool RowWalk::run() {
  PatternWalk walk(stil_.database, pattern_);
  while (walk.next()) {
    stil_.progress.update(++stil_.rowsDone);
    const int depth = std::max(walk.depth(), 0);
    if (skippedDepth_ >= 0 && depth > skippedDepth_) continue;
    skippedDepth_ = -1;
    closeLoops(depth);
    const StilRowPlace place = {pattern_, walk.rowNumber()};
    const RowHandle handle(stil_.database, PVBrowGet(stil_.database, walk.entry().child));
    if (!handle) return stil_.refuse(stil_.placeText(place) + " can't be read");
    if (!row(*handle, place, depth)) return false;
  }
  closeLoops(0);
  return !walk.failed() || stil_.refuse("pvb.pk: the order of the rows can't be read");
}

bool RowWalk::row(const PVBrow& row, StilRowPlace place, int depth) {
  if (row.type == ROW_SPACER || row.type == ROW_MATCH) {
    return stil_.refuse(fmt::format("{} is a {} row, which STIL has no statement for",
                                    stil_.placeText(place),
                                    row.type == ROW_SPACER ? "spacer" : "match"));
  }
  if (row.type == ROW_LOOP && row.count == 0) {
    skippedDepth_ = depth;
    return true;
  }
  if (!visitor_.row(row, place)) return false;
  if (row.type == ROW_LOOP) return openLoop(row.count, depth);
  if (row.count == 0) return true;
  if (row.type == ROW_SUBR_CALL) return visitor_.call(row, place);
  if (!isCycleRow(row.type)) return true;
  if (row.type == ROW_SCAN && row.link != kNoLink) return shift(row, place);
  return visitor_.cycles(row, row.count, place);
}

bool RowWalk::openLoop(std::uint32_t count, int depth) {
  openLoops_ = depth + 1;
  return visitor_.beginLoop(count);
}

void RowWalk::closeLoops(int depth) {
  for (; openLoops_ > depth; --openLoops_) visitor_.endLoop();
}

// A scan row cycle by cycle, in a copy: behind a chain's end the row's own states are
// needed.
bool RowWalk::shift(const PVBrow& row, StilRowPlace place) {
  std::int32_t length = 0;
  const PVBscanRunIterator runs = PVBcreateScanRunIterator(stil_.database, row);
  for (const PVBid run : runs.runs) {
    length = std::max(length, PVBchainLength(stil_.database, PVBinqChain(stil_.database, run)));
  }
  std::uint32_t cycle = 0;
  while (cycle < row.count) {
    PVBrow* copy = copy_.take(stil_.database, row);
    if (!runs.whole || PVBscanFillStates(stil_.database, *copy, cycle) != 0) {
      return stil_.refuse(stil_.placeText(place) + ": what it shifts can't be read");
    }
    const bool shifts = cycle < static_cast<std::uint32_t>(length);
    const std::uint32_t count = shifts ? 1 : row.count - cycle;
    if (!visitor_.cycles(*copy, count, place)) return false;
    cycle += count;
  }
  return true;
}

// --- The survey ----------------------------------------------------------------------

class Survey : public StilRowVisitor {
 public:
  explicit Survey(StilExport& stil)
      : stil_(stil),
        signals_(pointers(stil)),
        meaning_(stil.database, stil.store, signals_, PreviousMode::literal) {
    stil.plates.resize(PVBget(stil.database)->timePlates->plates.size());
  }

  bool cycles(const PVBrow& row, std::uint32_t count, StilRowPlace place) override;

 private:
  static std::vector<const PVBsignal*> pointers(const StilExport& stil) {
    std::vector<const PVBsignal*> signals;
    for (const StilExportSignal& signal : stil.signals) signals.push_back(signal.signal);
    return signals;
  }
  StilPlate* plate(const PVBrow& row, StilRowPlace place);
  bool tooMany(const StilPlate& plate, std::size_t signal) const;
  void addCompared(const PVBrow& row, std::size_t signal, StilCodes& codes, EventListId events);

  StilExport& stil_;
  std::vector<const PVBsignal*> signals_;
  Meaning meaning_;
  RowCopy copy_;
};

bool Survey::cycles(const PVBrow& row, std::uint32_t, StilRowPlace place) {
  StilPlate* plate = this->plate(row, place);
  if (plate == nullptr) return false;
  const std::size_t size = stil_.signals.size();
  for (std::size_t i = 0; i < size; ++i) {
    StilCodes& codes = plate->codes[plate->signalCodes[i]];
    const std::size_t at = stil_.codePlace(row, i, codes);
    if (at >= kCodePlaces) return tooMany(*plate, i);
    if (codes.events[at] != kNotWorkedOut) continue;
    codes.events[at] = meaning_.events(meaning_.plate(row.timeplate), row, i);
    addCompared(row, i, codes, codes.events[at]);
    if (stil_.columns[i].selects) codes.selected.push_back(selection(stil_, row, i));
  }
  return true;
}

// Where nothing is compared, what would be compared there belongs to the wave too: a
// strobe that is never used is an X like any other. Without data on either side both
// slots of a signal are in force, which takes data for both.
void Survey::addCompared(const PVBrow& row, std::size_t signal, StilCodes& codes,
                         EventListId events) {
  const StilColumns& columns = stil_.columns[signal];
  if (columns.selects || columns.out < 0 || !comparesNothing(stil_.store.events(events))) return;
  PVBrow* copy = copy_.take(stil_.database, row);
  if (columns.in >= 0 && stilPlainPlace(row, columns) == 0) {
    setRowCode(copy->states(), static_cast<std::uint32_t>(columns.in), kUnknown);
  }
  for (const int compared : {kLow, kHigh}) {
    setRowCode(copy->states(), static_cast<std::uint32_t>(columns.out), compared);
    EventListId& place = codes.events[stilPlainPlace(*copy, columns)];
    if (place != kNotWorkedOut) continue;
    place = meaning_.events(meaning_.plate(row.timeplate), *copy, signal);
  }
}

bool Survey::tooMany(const StilPlate& plate, std::size_t signal) const {
  return stil_.refuse(fmt::format("timeplate \"{}\": signal \"{}\" has too many waves",
                                  plate.plate->name.value_or(""), stil_.signals[signal].name));
}

// Signals on the same slots share codes.
StilPlate* Survey::plate(const PVBrow& row, StilRowPlace place) {
  if (row.timeplate >= stil_.plates.size() ||
      PVBget(stil_.database)->timePlates->plates[row.timeplate] == nullptr) {
    stil_.refuse(stil_.placeText(place) + " has no timeplate");
    return nullptr;
  }
  std::unique_ptr<StilPlate>& found = stil_.plates[row.timeplate];
  if (found != nullptr) return found.get();
  found = std::make_unique<StilPlate>();
  ++stil_.plateCount;
  const PlateMeaning& meaning = meaning_.plate(row.timeplate);
  found->plate = meaning.plate;
  std::unordered_map<const SlotTable*, std::uint32_t> known;
  for (std::size_t i = 0; i < signals_.size(); ++i) {
    std::uint32_t codes = static_cast<std::uint32_t>(found->codes.size());
    if (!stil_.columns[i].selects) codes = known.try_emplace(meaning.parts[i], codes).first->second;
    found->signalCodes.push_back(codes);
    if (codes == found->codes.size()) found->codes.emplace_back();
  }
  return found.get();
}

}  // namespace

std::string StilExport::placeText(StilRowPlace place) const {
  if (place.pattern == kMainPattern) return fmt::format("row {}", place.row);
  return fmt::format("row {} of subroutine \"{}\"", place.row,
                     PVBsubroutineName(database, place.pattern));
}

std::size_t StilExport::selectedPlace(const PVBrow& row, std::size_t signal,
                                      const StilCodes& codes) const {
  const auto found = std::ranges::find(codes.selected, selection(*this, row, signal));
  return static_cast<std::size_t>(found - codes.selected.begin());
}

bool stilWalkRows(StilExport& stil, int pattern, StilRowVisitor& visitor) {
  return RowWalk(stil, pattern, visitor).run();
}

// Calls that come back to their caller and trees that are no trees are found before.
bool stilSurvey(StilExport& stil) {
  const FlatWalk check(stil.database, kMainPattern);
  if (check.failed()) return stil.refuse(check.failure());
  Survey survey(stil);
  if (!stilWalkRows(stil, kMainPattern, survey)) return false;
  const auto& subroutines = PVBget(stil.database)->patterns->subroutines;
  for (std::size_t i = 0; i < subroutines.size(); ++i) {
    if (subroutines[i].root == kNoNode) continue;
    if (!stilWalkRows(stil, static_cast<int>(i), survey)) return false;
  }
  return true;
}
