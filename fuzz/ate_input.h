#pragma once

// What the targets of shape files and signal lists share: a file for the input, in memory
// where the system has one, and what holds of tables that were read.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "require.h"
#include "timeplate/ate.h"
#include "timeplate/tp_settings.h"

inline void writeInput(const std::string& path, std::string_view text) {
  StreamPtr file = openStream(path, "w");
  require(file != nullptr);
  std::fwrite(text.data(), 1, text.size(), file.get());
  require(closeStream(std::move(file)) == 0);
}

inline void readParameters(const std::vector<std::string>& texts) {
  std::vector<const char*> arguments;
  for (const std::string& text : texts) arguments.push_back(text.c_str());
  require(tpReadSettings(arguments) == 0);
}

// Each shape offered is one of its table's, and the walk ends.
inline void checkWalk(int table, PVBid signal) {
  ShapeWalk walk;
  int offered = 0;
  for (const Wave* shape = ateFirstShape(walk, table, signal); shape != nullptr;
       shape = ateNextShape(walk)) {
    ++offered;
    require(!shape->states.empty() && shape->states.size() == shape->times.size());
    require(tpShapeSimple(shape->states) == (table == kSimpleShapes) || table == kMuxShapes);
    const int id = ateShapeId(table, shape->states);
    require(id >= 0 && id < ateShapeCount(table));
    const Wave* forced = ateForcedMap(shape->states, signal);
    require(forced == nullptr || (table == kSimpleShapes) || table == kMuxShapes);
    require(forced == nullptr || ateShapeId(kComplexShapes, forced->states) >= 0);
  }
  require(ateNextShape(walk) == nullptr);
  require(table == kComplexShapes || offered == ateShapeCount(table));
}

inline void forgetErrors() {
  PBerrClear();
  PBdiscardErrors();
}
