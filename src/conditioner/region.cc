#include "conditioner/region.h"

#include <cctype>

#include "base/errors.h"
#include "base/platform.h"
#include "base/text.h"
#include "conditioner/messages.h"
#include "pvb/database.h"

std::unique_ptr<PVBregion> PVBregionNew() { return std::make_unique<PVBregion>(); }

void PVBregionInit(PVBregion& region, std::string_view name, std::string_view path, TIME start,
                   TIME stop) {
  region.regionName = name;
  region.pvbName = path;
  region.start = start;
  region.stop = stop;
}

int PVBregionClose(PVBregion* region) {
  if (region == nullptr) return 0;
  // Another region on the path may have closed the database, and the slot may since
  // have been given to another one.
  const PVBdatabase* slot = PVBget(region->pvbHandle);
  const bool isOpen = slot != nullptr && slot->path == region->pvbName;
  const int closed = isOpen ? PVBclose(region->pvbHandle) : 0;
  region->sigIDMap = {};
  region->cursor = {};
  region->cyclesPending = 0;
  region->sheets.reset();
  region->scanIDMap = {};
  region->vectorIDMap = {};
  return closed == 0 ? 0 : -2;
}

bool PVBregionEqual(const PVBregion& a, const PVBregion& b) {
  if (&a == &b) return true;
  return PBeqTIME(a.start, b.start) && PBeqTIME(a.stop, b.stop) &&
         sameDirectory(a.pvbName, b.pvbName);
}

bool PVBregionHasEquations(const PVBregion& region) { return eqHasContent(region.pvbHandle); }

namespace {

// The number of the row in force at a time; 0 when there is none.
std::uint32_t rowAt(const PVBregion& region, TIME time) {
  PVBposition position;
  position.time = time;
  const RowHandle row(region.pvbHandle,
                      PVBpatternInqRow(region.pvbHandle, kMainPattern, position, BY_TIME));
  return row ? position.row : 0;
}

}  // namespace

std::int64_t PVBregionRowCount(const PVBregion& region) {
  const std::int64_t first = rowAt(region, region.start);
  PVBposition sums;
  PVBpatternInqSize(region.pvbHandle, kMainPattern, sums);
  const bool wholeRest = PBcmpTIME(region.stop, sums.time) >= 0;
  const std::int64_t rows = (wholeRest ? sums.row : rowAt(region, region.stop)) - first;
  if (rows < 0) assertFail(__FILE__, __LINE__);
  return rows;
}

// --- The regions of a run ------------------------------------------------------------

PVBregion& RegionTable::insert(std::string_view key, std::unique_ptr<PVBregion> region) {
  regions_.push_back(std::move(region));
  newest_.insert_or_assign(std::string(key), regions_.back().get());
  return *regions_.back();
}

PVBregion* RegionTable::find(std::string_view key) const {
  const auto found = newest_.find(std::string(key));
  return found == newest_.end() ? nullptr : found->second;
}

void RegionTable::remove(const PVBregion& region) {
  std::erase_if(newest_, [&region](const auto& entry) { return entry.second == &region; });
}

std::string regionKey(std::string_view path) {
  if (path.ends_with('/')) path.remove_suffix(1);
  if (path.size() >= 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0]))) {
    path.remove_prefix(2);
  }
  const std::size_t separator = path.find_last_of("/\\");
  if (separator != std::string_view::npos) path.remove_prefix(separator + 1);
  return std::string(path);
}

namespace {

constexpr std::string_view kFunction = "initRegionFromParams";

// The time of a bound: `otherwise` when the text is absent or `word`.
bool boundTime(const std::string* text, std::string_view word, TIME otherwise, TIME& time) {
  time = otherwise;
  if (text == nullptr || PBstrEq(*text, word)) return true;
  if (parseTIME(*text, time) == 0) return true;
  PBerrPush(PBconditionerError, kInvalidTime, kFunction, *text);
  return false;
}

}  // namespace

int initRegionFromParams(PVBregion& region, std::string_view name, std::string_view path,
                         const std::string* startText, const std::string* stopText) {
  TIME start;
  TIME stop;
  if (!boundTime(startText, "begin", TIME_ZERO, start)) return -2;
  if (!boundTime(stopText, "end", TIME_MAX, stop)) return -2;
  if (PBcmpTIME(start, stop) > 0) {
    PBerrPush(PBconditionerError, kStartBehindStop, kFunction,
              startText != nullptr ? ErrArg(*startText) : ErrArg("begin"),
              stopText != nullptr ? ErrArg(*stopText) : ErrArg("end"));
    return -2;
  }
  PVBregionInit(region, name, path, start, stop);
  return 0;
}
