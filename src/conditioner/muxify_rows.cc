// The rows: cycles of the source are gathered in groups, and each group becomes a row.

#include <fmt/printf.h>

#include <algorithm>

#include "conditioner/muxify_internal.h"
#include "conditioner/timeplate_transfer.h"
#include "pvb/pattern.h"
#include "pvb/property.h"
#include "pvb/timeplate_expand.h"

namespace {

constexpr std::string_view kPattern = "muxifyPattern()";
constexpr std::string_view kOutput = "outputMuxedPatternRow()";

// --- Collecting ----------------------------------------------------------------------

void add(const Muxify& mux, CycleGroup& group, const PVBrow& row) {
  const auto place = static_cast<std::size_t>(group.count++);
  group.plates[place] = row.timeplate;
  group.propLists[place] = row.tag;
  std::copy_n(row.states(), mux.stateBytes, &group.states[place * mux.stateBytes]);
}

// Reads cycles on from `cycle` until the group is full or the pattern ends.
bool collect(const Muxify& mux, std::uint32_t cycles, std::uint32_t& cycle, CycleGroup& group) {
  group.count = 0;
  while (group.count < mux.degree && cycle < cycles) {
    PVBposition position;
    position.cycle = cycle++;
    const RowHandle row(mux.src, PVBpatternInqRow(mux.src, kMainPattern, position, BY_CYCLE));
    if (!row) return muxifyFails(kPattern, "PVBpatternInqRow() failed.");
    if (row->timeplate == kNoTimePlate) continue;
    if (PVBtimePlateInqByID(mux.src, row->timeplate) == nullptr) {
      return muxifyFails(kPattern, "PVBtimePlateInqByID() failed.");
    }
    add(mux, group, *row);
  }
  return true;
}

// The last group of a pattern is filled up with its last cycle.
void pad(const Muxify& mux, CycleGroup& group) {
  const auto last = static_cast<std::size_t>(group.count - 1);
  for (; group.count < mux.degree; ++group.count) {
    const auto place = static_cast<std::size_t>(group.count);
    group.plates[place] = group.plates[last];
    group.propLists[place] = group.propLists[last];
    std::copy_n(&group.states[last * mux.stateBytes], mux.stateBytes,
                &group.states[place * mux.stateBytes]);
  }
}

// --- States --------------------------------------------------------------------------

bool noColumn(const char* kind, const char* side, const PVBsignal& signal) {
  return muxifyFails(kOutput, fmt::sprintf("No %s pattern column defined for %s signal %s.", kind,
                                           side, signal.name.value_or("")));
}

// Maps a column of the signal in the `place`-th cycle to one of its child.
bool mapColumn(const Muxify& mux, StateMap& map, const PVBsignal& signal, std::size_t place,
               const PVBsignal& child, std::uint16_t PVBsignal::*column) {
  const char* kind = column == &PVBsignal::inColumn ? "INPUT" : "OUTPUT";
  if (signal.*column == kNoColumn) return noColumn(kind, "source", signal);
  if (child.*column == kNoColumn) return noColumn(kind, "destination", child);
  // Where the source's rows have no room for the column, nothing stands in it.
  const std::size_t columns = 2 * mux.stateBytes;
  if (signal.*column >= columns) return true;
  map.add(static_cast<std::uint32_t>(place * columns + signal.*column), child.*column);
  return true;
}

bool mapSignal(const Muxify& mux, StateMap& map, const PVBsignal& signal) {
  const std::vector<PVBid>* children = getMuxedChildList(mux, signal);
  if (children == nullptr) return false;
  const bool driven = signal.direction == INPUT || signal.direction == BIDIR;
  const bool expected = signal.direction == OUTPUT || signal.direction == BIDIR;
  for (std::size_t i = 0; i < children->size(); ++i) {
    const PVBsignal& child = *PVBsignalInqByID(mux.dest, (*children)[i]);
    if (driven && !mapColumn(mux, map, signal, i, child, &PVBsignal::inColumn)) return false;
    if (expected && !mapColumn(mux, map, signal, i, child, &PVBsignal::outColumn)) return false;
  }
  return true;
}

// Which columns go where is the same for all rows, and is worked out with the first.
bool mapStates(Muxify& mux) {
  if (mux.states) return true;
  StateMap map;
  for (const PVBsignal* signal : mux.srcSignals) {
    if (!mapSignal(mux, map, *signal)) return false;
  }
  map.compile();
  mux.states = std::move(map);
  return true;
}

// --- Properties ----------------------------------------------------------------------

bool copyProperties(const Muxify& mux, PVBid from, PVBid to) {
  const PVBproperty* property = PVBpropInqFirst(mux.src, from);
  for (; property != nullptr; property = PVBpropInqNext(mux.src)) {
    if (PVBputProp(mux.dest, to, *property) != 0) return false;
  }
  return true;
}

// Those of the last cycle first; a cycle that pads the group brings its own once more.
bool copyAllProperties(const Muxify& mux, const CycleGroup& group, PVBrow& row) {
  const auto count = static_cast<std::ptrdiff_t>(mux.degree);
  const auto isThere = [](PVBid list) { return list != UNDEF; };
  if (std::none_of(group.propLists.begin(), group.propLists.begin() + count, isThere)) return true;
  row.tag = PVBpropListNew(mux.dest);
  if (row.tag == UNDEF) return muxifyFails(kOutput, "Failed to allocate new property list.");
  for (auto i = static_cast<std::size_t>(mux.degree); i-- > 0;) {
    const PVBid list = group.propLists[i];
    if (list != UNDEF && !copyProperties(mux, list, row.tag)) return false;
  }
  return true;
}

}  // namespace

// --- Rows ----------------------------------------------------------------------------

bool muxifyPattern(Muxify& mux) {
  PVBposition sums;
  if (PVBpatternInqSize(mux.src, kMainPattern, sums) != 0) {
    return muxifyFails(kPattern, "PVBpatternInqSize() failed.");
  }
  if (!expandTimePlates(mux.src)) return muxifyFails(kPattern, "expandTimePlates() failed.");
  mux.stateBytes = static_cast<std::size_t>(PVBrowDataSize(mux.src));
  CycleGroup group;
  group.states.resize(static_cast<std::size_t>(mux.degree) * mux.stateBytes);
  std::uint32_t cycle = 0;
  while (true) {
    if (!collect(mux, sums.cycle, cycle, group)) return false;
    if (group.count == 0) return true;
    pad(mux, group);
    const PVBid plate = muxedTimeplate(mux, group.plates);
    if (plate == UNDEF || !outputMuxedPatternRow(mux, group, plate)) return false;
  }
}

bool outputMuxedPatternRow(Muxify& mux, const CycleGroup& group, PVBid plate) {
  if (!mapStates(mux)) return false;
  const RowHandle row(mux.dest, PVBpatternNew(mux.dest));
  if (!row) return false;
  row->timeplate = static_cast<std::uint16_t>(plate);
  mux.states->copy(row->states(), group.states.data());
  if (!copyAllProperties(mux, group, *row)) return false;
  PVBposition position;
  position.row = mux.nextRow++;
  if (PVBrowInsert(mux.dest, kMainPattern, position, BY_ROW, *row) < 0) {
    return muxifyFails(kOutput, "PVBrowInsert() failed");
  }
  return true;
}
