#pragma once

// What the optimizer works on: the database, its signals, and what a row says of one of
// them. One run at a time; the record lives from tpRunBegin to tpRunEnd.
//
// A timeplate is looked at through its maps (PVBtimePlateRebuildMaps): who edits a plate
// builds them anew before the next call of tpRowTrack or tpTrackOf.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "pvb/signal.h"
#include "pvb/timeplate.h"

// A signal of the database. Its index never changes during a run; its place in the order
// in which signals are tried does.
struct TpSignal {
  PVBid id = UNDEF;
  int index = 0;
  std::string name;
  bool plain = false;  // of kind MEM_SIGNAL; others take no part
  bool muxed = false;  // a child of a multiplexed signal, whose columns it may share
  std::int32_t direction = kNoDirection;
  std::int32_t inColumn = -1;   // first data column
  std::int32_t outColumn = -1;  // second
  bool selects = false;         // rows hold a selector for it
  bool scans = false;           // at an end of a scan chain
  std::int64_t failCount = 0;   // pairs that it has kept apart
};

struct TpRun {
  int database = -1;
  int pmode = LAST_FORCE;
  int version = 1;                // 2: rows may hold selectors
  std::vector<TpSignal> signals;  // by index
  std::vector<int> tpoSignals;    // indices in the order of trying
  bool trackPass = false;         // tpoTrackPass
  // The first target state failed on a P, in the reduction at hand.
  bool firstFailedP = false;
  bool secondFailedP = false;
};
extern TpRun tpRun;

// Lists the scalars of the database in the order of "ALL", the children of a multiplexed
// signal behind it, and last any others that a timeplate could name. 0 or -2.
int tpRunBegin(int database);
void tpRunEnd();

// A row as the row store holds it.
struct TpRow {
  std::int32_t row = -1;
  std::uint16_t timeplate = kNoTimePlate;
  std::vector<std::uint8_t> data;  // two columns a byte
};

// The code (0 to 15) of a column; 0 for column -1.
int tpRowCode(const TpRow& row, std::int32_t column);
// The letter of the row's data for the signal, as tpDataLetter; a signal without a first
// column has its data in the second.
char tpRowLetter(const TpSignal& signal, const TpRow& row);
// The track that the row uses for the signal, and its direction (0 to 2): as
// PVBrowFindTrack, from the row's data. A track without a direction has that of its
// states. kNoTrack with kUndefinedDirection for none.
std::int32_t tpRowTrack(const TpSignal& signal, const PVBtimePlate& plate, const TpRow& row,
                        int& direction);
// The track of the signal in one direction by the plate's map; kNoTrack (also for
// several).
std::int32_t tpTrackOf(const PVBtimePlate& plate, const TpSignal& signal, int direction);
// The plate's track on its first level; null out of range.
const PVBtrack* tpTrack(const PVBtimePlate& plate, std::int32_t track);
