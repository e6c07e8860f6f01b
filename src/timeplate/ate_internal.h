#pragma once

// The tables that a shape file fills, shared by the sources of ate.h: ate.cc settles what
// is read and answers questions, ate_file.cc reads, ate_family.cc binds signals and counts.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "timeplate/ate.h"

// Containers that are asked with a view.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>()(text);
  }
};
template <typename T>
using TextMap = std::unordered_map<std::string, T, TextHash, std::equal_to<>>;
using TextSet = std::unordered_set<std::string, TextHash, std::equal_to<>>;

// Shapes in the order of the file. Of equal ones the last has the id.
struct ShapeTable {
  std::vector<Wave> shapes;
  TextMap<int> ids;

  int count() const { return static_cast<int>(shapes.size()); }
  int idOf(std::string_view states) const {
    const auto found = ids.find(states);
    return found != ids.end() ? found->second : -1;
  }
};

// What `muxShape` said of the table of multiplexed signals.
enum MuxShapeMode : int { kMuxNotSet = -1, kMuxNone = 0, kMuxAll = 1, kMuxOwnList = 2 };

struct ShapeFamily {
  std::string name;
  std::vector<int> shapes;          // ids of the complex table, as the file gives them
  std::unordered_set<int> members;  // the same
  std::unordered_set<int> used;     // those counted since the last summary
  std::int64_t rows = 0;            // that were counted
};

struct AteTables {
  ShapeTable simpleShapes;
  ShapeTable complexShapes;
  ShapeTable muxShapes;  // in force with kMuxOwnList only
  int muxShapeMode = kMuxNotSet;
  TextMap<std::vector<int>> forcedMaps;  // complex ids by simple states, in the file's order

  std::vector<ShapeFamily> shapeFamilies;
  TextMap<int> familyByName;
  // Names as the shape file and the signal list give them.
  std::vector<std::string> noMappingSignals;
  std::vector<std::pair<std::string, int>> familySignals;
  // What they are in the database bound last: of a bus every signal.
  TextSet noMapping;
  std::unordered_map<PVBid, int> signalFamilies;

  int pmode = -1;
};
// Filled by ateInit, lives until the next.
extern AteTables ateTables;

// Read into the tables. 0, or -2 after a notice.
int ateReadShapeFile(const std::string& path);
int ateReadSignalList(const std::string& path);
