#pragma once

// What the targets of shape files and signal lists share: a file for the input, in memory
// where the system has one, and what holds of tables that were read.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "timeplate/ate.h"
#include "timeplate/tp_settings.h"

inline void check(bool holds) {
  if (!holds) std::abort();
}

inline void writeInput(const std::string& path, std::string_view text) {
  StreamPtr file = openStream(path, "w");
  check(file != nullptr);
  std::fwrite(text.data(), 1, text.size(), file.get());
  check(closeStream(std::move(file)) == 0);
}

inline void readParameters(const std::vector<std::string>& texts) {
  std::vector<const char*> arguments;
  for (const std::string& text : texts) arguments.push_back(text.c_str());
  check(tpReadSettings(arguments) == 0);
}

// Each shape offered is one of its table's, and the walk ends.
inline void checkWalk(int table, PVBid signal) {
  ShapeWalk walk;
  int offered = 0;
  for (const Wave* shape = ateFirstShape(walk, table, signal); shape != nullptr;
       shape = ateNextShape(walk)) {
    ++offered;
    check(!shape->states.empty() && shape->states.size() == shape->times.size());
    check(tpShapeSimple(shape->states) == (table == kSimpleShapes) || table == kMuxShapes);
    const int id = ateShapeId(table, shape->states);
    check(id >= 0 && id < ateShapeCount(table));
    const Wave* forced = ateForcedMap(shape->states, signal);
    check(forced == nullptr || (table == kSimpleShapes) || table == kMuxShapes);
    check(forced == nullptr || ateShapeId(kComplexShapes, forced->states) >= 0);
  }
  check(ateNextShape(walk) == nullptr);
  check(table == kComplexShapes || offered == ateShapeCount(table));
}

inline void forgetErrors() {
  PBerrClear();
  PBdiscardErrors();
}
