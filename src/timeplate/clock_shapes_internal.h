#pragma once

// What deciding, converting and row rewriting of clock shapes share.

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "pvb/row_track.h"
#include "pvb/signal.h"
#include "timeplate/tp_optimize_internal.h"

// Levels of the row data; the values stand in the rows.
inline constexpr int kLowLevel = 1;
inline constexpr int kHighLevel = 2;

// A track as it was at the beginning of the pass. The shape, a state for each edge, is that
// of before also when the wave was converted for another signal meanwhile.
struct TpSlotRecord {
  PVBtimePlate* timeplate = nullptr;
  PVBtrack* wave = nullptr;  // null when the first level lacks the track
  int track = 0;             // counted from 0
  int direction = kUndefinedDirection;
  std::string shape;
  std::uint32_t statesSeen = 0;  // a bit for each
};

// The clock of a signal on a timeplate.
struct TpClock {
  const TpSlotRecord* slot = nullptr;  // null: none
  char returnState = 'F';              // none
  int returnLevel = 0;
  bool convertToSample = false;  // the clock's second state isn't data yet
};

// How rows of a timeplate show the clock of a signal.
struct TpRowClock {
  const PVBsignal* signal;
  std::vector<DirectedSlot> slots;  // that the signal stands on
  std::int32_t column;              // of the signal's data, -1 for none
  int track;
  char selector;  // the clock's
  int returnLevel;
  bool convertToSample;
};

struct TpClockPass {
  int database = -1;
  FILE* report = nullptr;
  int tpVersionMode = 1;  // 2: rows choose tracks by selectors

  std::vector<TpSlotRecord> slots;
  // By signal the slots that it stands on, itself or by a bus or group, in rising order;
  // those of one timeplate together.
  std::map<PVBid, std::vector<std::uint32_t>> tpSignalSlots;
  std::size_t places = 0;  // in tpSignalSlots
  std::map<PVBid, std::set<int>> tpTracksToDelete;
  bool anyClock = false;  // rows are to be gone over
  std::map<PVBid, std::vector<TpRowClock>> rowClocks;
};

using TpSlotSpan = std::span<const TpSlotRecord* const>;

// --- Deciding (clock_shapes_decide.cc) -----------------------------------------------

// The clock among a signal's slots of one timeplate. False when they must be left as they
// are; true without a clock when there is none.
bool tpFindClock(TpSlotSpan slots, TpClock& clock);
// Whether all slots can be merged into the clock.
bool tpCanMerge(TpSlotSpan slots, const TpClock& clock);

// --- Rows (clock_shapes_rows.cc) -----------------------------------------------------

// Rewrites the rows of a pattern, -1 for the main one.
bool updateSlotAndState(const TpClockPass& pass, int pattern);
