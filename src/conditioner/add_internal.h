#pragma once

// What the sources of add share: an add under way, and the slots of a new signal.

#include <cstdint>
#include <string_view>
#include <vector>

#include "pvb/signal.h"

// A state that all rows of the main pattern are to have.
struct ColumnState {
  std::uint16_t column;
  int state;
};

struct AddRun {
  int database;
  std::string_view path;  // of the working database
  std::string_view srcPath;
  std::string_view listName;
  // The signal in hand gets the event of its direction. Cleared by the first timeplate
  // that has taken it, so that the second one gets an empty slot and all others none: kept
  // on purpose. A signal that takes no event leaves it to the next one.
  bool noTrackSpec = false;
  // Written to the rows in one walk at the end: what a row holds can't be seen before.
  std::vector<ColumnState> states;
};

// Gives a signal its slot in all timeplates. 0, or -2 after a push, silent for a track
// without a shape; slots made by then stay.
int addSlot(AddRun& add, const PVBsignal& signal, std::string_view track,
            std::string_view direction, std::string_view patBit);
// 1 when the operation file has a track of this name, else 0 after a push.
int matchOpFileTrackToOpFileTrackname(std::string_view signalName, std::string_view track);
// The shape of a track, null for none.
const std::string* shapeOfTrack(std::string_view track);
