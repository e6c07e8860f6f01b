#pragma once

// What the sources of the tree module share: a node as it lies in its block, sums
// for counting, and the way from a root down to an entry.

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/time_internal.h"
#include "pvb/tree.h"
#include "storage/page.h"

struct PVBnode {
  std::array<PVBnodeEntry, kNodeEntries + 1> entries;
  std::uint32_t self;
  std::uint32_t count;
  std::uint8_t leaf;
  std::uint8_t unused[3];
};
static_assert(sizeof(PVBnode) == kNodeBlockSize && offsetof(PVBnode, self) == 1836 &&
              offsetof(PVBnode, leaf) == 1844);

using NodeHandle = BlockHandle<PVBnode>;

// Time as femtoseconds modulo 2^64, so that adding and taking off needs no carry
// and damaged values don't overflow.
struct TreeSums {
  std::uint64_t time = 0;
  std::uint32_t rows = 0;
  std::uint32_t cycles = 0;
  std::uint32_t addresses = 0;

  void add(const TreeSums& other) {
    time += other.time;
    rows += other.rows;
    cycles += other.cycles;
    addresses += other.addresses;
  }
  void subtract(const TreeSums& other) {
    time -= other.time;
    rows -= other.rows;
    cycles -= other.cycles;
    addresses -= other.addresses;
  }
  friend bool operator==(const TreeSums&, const TreeSums&) = default;
};
// Femtoseconds modulo 2^64, and back.
inline std::uint64_t toTreeTime(TIME time) {
  return static_cast<std::uint64_t>(toFemtoseconds(time));
}
inline TIME fromTreeTime(std::uint64_t time) {
  return fromFemtoseconds(static_cast<std::int64_t>(time));
}
inline TreeSums sumsOf(const PVBnodeEntry& entry) {
  return {toTreeTime(entry.time), entry.rows, entry.cycles, entry.addresses};
}
TreeSums sumsOf(const PVBnode& node);
inline void setSums(PVBnodeEntry& entry, const TreeSums& sums) {
  entry.time = fromTreeTime(sums.time);
  entry.rows = sums.rows;
  entry.cycles = sums.cycles;
  entry.addresses = sums.addresses;
}
// The sums in the fields of a position; the others keep their values.
void setPosition(PVBposition& position, const TreeSums& sums);
// The entry for a node in its parent.
PVBnodeEntry entryFor(const PVBnode& node);

// A node whose count, leaf mark and own number are right; empty otherwise.
NodeHandle getNode(int file, std::uint32_t block);
bool isSound(const PVBnode& node, std::uint32_t block);
// A new empty leaf, reserved; empty on failure.
NodeHandle newNode(int file);
std::uint32_t countNodes(int file);

// What is looked for: a number in the unit of the key kind (femtoseconds for time).
struct TreeKey {
  int kind = BY_ROW;
  std::uint64_t value = 0;
};
// False for a kind that no search goes by and for a negative time.
bool makeKey(const PVBposition& position, int kind, TreeKey& key);
// What the sums say in the unit of the key kind.
std::uint64_t valueOf(const TreeSums& sums, int kind);

enum class Seek { found, end, bad };

// The width of an entry in the unit of the key kind.
inline std::uint64_t widthOf(const PVBnodeEntry& entry, int kind) {
  if (kind == BY_TIME) return toTreeTime(entry.time);
  if (kind == BY_CYCLE) return entry.cycles;
  return kind == BY_ADDRESS ? entry.addresses : entry.rows;
}

// Where searches in the trees of a file stand, so that one whose key lies behind the
// last doesn't begin at the root again. All of it is good for as long as the file's
// stamp stays: who changes a tree in any way needn't know of it.

// A leaf that look-ups walk over.
struct LeafHint {
  std::uint64_t stamp = 0;  // of the file; 0 for none
  std::uint32_t root = kNoNode;
  int kind = BY_ROW;
  std::uint64_t key = 0;    // where the entry at `index` begins
  std::uint64_t limit = 0;  // keys from here on belong to other leaves
  TreeSums before;          // what lies before that entry
  std::uint32_t index = 0;
  std::uint32_t count = 0;
  std::array<PVBnodeEntry, kNodeEntries> entries;
};

// A node on the way to an entry; `node` where it lies while it is held.
struct TreeStep {
  std::uint32_t block;
  std::uint32_t index;
  PVBnode* node;
};
inline constexpr int kMaxHintDepth = 16;

// The place right behind the entry that was inserted last.
struct PlaceHint {
  std::uint64_t stamp = 0;
  std::uint32_t root = kNoNode;
  int kind = BY_ROW;
  std::uint64_t key = 0;
  TreeSums before;
  bool atEnd = false;  // of the tree
  int depth = 0;
  std::array<TreeStep, kMaxHintDepth> steps;
};

// As many leaves as walks that take turns.
struct TreeHints {
  std::array<LeafHint, 4> leaves;
  std::size_t nextLeaf = 0;
  PlaceHint place;
};

// The way from a root down to an entry of a leaf. Held, every node of it stays
// reserved until the path is released or taken again: what changes a tree does it
// on a held path. A held path is at most kMaxHeldDepth nodes long, so that as many
// new nodes fit into the buffers beside it.
inline constexpr int kMaxHeldDepth = 150;

class TreePath {
 public:
  enum class Hold { no, yes };
  // `hints` are of this file, and may be null.
  TreePath(int file, Hold hold, TreeHints* hints = nullptr)
      : file_(file), hold_(hold), hints_(hints) {}
  ~TreePath() { release(); }
  TreePath(const TreePath&) = delete;
  TreePath& operator=(const TreePath&) = delete;

  // Goes to the entry that holds the key; `end`: the key lies past the last entry,
  // and the path leads behind it.
  Seek descend(std::uint32_t root, const TreeKey& key);
  // What lies before the entry found in this tree.
  const TreeSums& before() const { return before_; }
  // The entry found; not after `end`.
  const PVBnodeEntry& entry() const { return entry_; }
  void release();

  // Changes at the place of a held path, which is released. A failed
  // insertion leaves the tree as it was.
  int insert(const PVBnodeEntry& entry);
  void remove();
  void replace(const PVBnodeEntry& entry);

 private:
  using Step = TreeStep;
  class Spares;

  bool resumeLeaf();
  void noteLeaf(const PVBnode& node, std::uint32_t index, std::uint64_t limit);
  bool resumePlace();
  void notePlace(const PVBnodeEntry& inserted);
  bool isLast() const;
  Seek descendFromRoot();
  int fullLevels() const;
  bool contains(std::uint32_t block) const;
  void markDirty();
  PVBnodeEntry split(PVBnode& node, std::uint32_t index, const PVBnodeEntry& entry, Spares& spares);
  void growRoot(const PVBnodeEntry& entry, Spares& spares);

  int file_;
  Hold hold_;
  TreeHints* hints_;
  std::uint32_t root_ = kNoNode;
  TreeKey key_;
  std::uint64_t passed_ = 0;  // of the key's value, what lies before the entry
  int depth_ = 0;
  TreeSums before_;
  PVBnodeEntry entry_;
  std::array<Step, kMaxTreeDepth + 1> steps_;
};
