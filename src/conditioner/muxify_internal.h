#pragma once

// What the steps of muxify share. All steps give false after the reason was pushed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "conditioner/muxify.h"
#include "pvb/signal.h"
#include "pvb/state_map.h"
#include "pvb/timeplate.h"

// Ids of a group's source timeplates in their order; the places from the degree on are 0.
using PlateGroup = std::array<PVBid, kMaxMuxDegree>;

struct PlateGroupHash {
  std::size_t operator()(const PlateGroup& group) const;
};

// Which tracks hold which signal: sorted, each pair once.
using SignalOnTrack = std::pair<PVBid, int>;
using TrackIndex = std::vector<SignalOnTrack>;

// Cycles that become one row. The states are copied as each cycle is read: the cycles of
// a scan row share one row with states that change from cycle to cycle.
struct CycleGroup {
  int count = 0;
  PlateGroup plates{};
  std::array<PVBid, kMaxMuxDegree> propLists{};
  std::vector<std::uint8_t> states;  // of all cycles, one after the other
};

// One run of the operation. Nothing in it grows with the rows.
struct Muxify {
  int src = -1;  // the databases
  int dest = -1;
  int degree = 0;

  std::vector<const PVBsignal*> srcSignals;         // scalars, each once
  std::map<PVBid, std::vector<PVBid>> muxChildren;  // by source signal, `degree` ids each

  std::unordered_map<PVBid, TrackIndex> trackIndex;  // by source timeplate
  std::unordered_map<PlateGroup, PVBid, PlateGroupHash> muxedPlates;

  std::size_t stateBytes = 0;      // of a source row
  std::optional<StateMap> states;  // from a CycleGroup's states to a row's
  std::uint32_t nextRow = 0;
};

// Pushes "function: text"; false.
bool muxifyFails(std::string_view function, std::string_view text);
// Pushes "Error: text"; false.
bool muxifyRefuses(std::string_view text);

// --- Signals -------------------------------------------------------------------------

bool createSignalList(Muxify& mux);
bool muxifySignals(Muxify& mux);
// Null when the signal isn't one of the source list.
const std::vector<PVBid>* getMuxedChildList(const Muxify& mux, const PVBsignal& signal);

// --- Timeplates ----------------------------------------------------------------------

// A new combined timeplate; null after a push.
std::unique_ptr<PVBtimePlate> combineTimeplates(Muxify& mux, const PlateGroup& sources);
// Stores a combined timeplate and enters it for its group.
bool insertMuxedTimeplate(Muxify& mux, std::unique_ptr<PVBtimePlate> plate,
                          const PlateGroup& sources);
// The destination's timeplate for a group, made if need be; UNDEF after a push.
PVBid muxedTimeplate(Muxify& mux, const PlateGroup& sources);

// --- Rows ----------------------------------------------------------------------------

bool muxifyPattern(Muxify& mux);
bool outputMuxedPatternRow(Muxify& mux, const CycleGroup& group, PVBid plate);

// --- For developers ------------------------------------------------------------------

// Prints the timeplates of a database on the debug stream.
void dumpTimeplates(int database);
