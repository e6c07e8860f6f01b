#pragma once

// Shapes of driven signals: which shape with which datum gives the levels of a cycle.

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "tools/import_vcd_internal.h"
#include "tools/pattern_writer.h"

struct VcdChange {
  std::int64_t offset;  // from the cycle's beginning
  VcdLevel level;
};

struct VcdShape {
  ShapeId id = kNoShape;
  std::vector<std::pair<std::int64_t, char>> events;  // rising times; S is the datum
};

// The datum with which a shape, at a level `entry` before, gives these changes; none
// where no datum does.
std::optional<VcdLevel> vcdDatum(const VcdShape& shape, VcdLevel entry,
                                 std::span<const VcdChange> changes);

// All shapes, each once.
class VcdShapes {
 public:
  explicit VcdShapes(PatternWriter& writer) : writer_(writer) {}
  // That of these changes, which aren't none and each to another level than before.
  const VcdShape* make(VcdLevel entry, std::span<const VcdChange> changes);
  const VcdShape* add(std::vector<std::pair<std::int64_t, char>> events);

 private:
  PatternWriter& writer_;
  std::deque<VcdShape> shapes_;
  std::map<std::vector<std::pair<std::int64_t, char>>, const VcdShape*> known_;
};

// The shapes of one signal, those needed most often first.
class VcdShapeList {
 public:
  struct Fit {
    const VcdShape* shape = nullptr;
    VcdLevel datum = kVcdNone;
  };
  Fit find(VcdLevel entry, std::span<const VcdChange> changes);
  void add(const VcdShape* shape);

 private:
  static constexpr std::size_t kMostShapes = 32;
  struct Entry {
    const VcdShape* shape;
    std::uint64_t needed;
  };
  std::vector<Entry> entries_;
};
