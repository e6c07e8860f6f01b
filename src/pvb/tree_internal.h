#pragma once

// What the sources of the tree module share: a node as it lies in its block, sums
// for counting, and the way from a root down to an entry.

#include <array>
#include <cstddef>
#include <cstdint>

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

  void add(const TreeSums& other);
  void subtract(const TreeSums& other);
  friend bool operator==(const TreeSums&, const TreeSums&) = default;
};
TreeSums sumsOf(const PVBnodeEntry& entry);
TreeSums sumsOf(const PVBnode& node);
void setSums(PVBnodeEntry& entry, const TreeSums& sums);
// The sums in the fields of a position; the others keep their values.
void setPosition(PVBposition& position, const TreeSums& sums);
// Femtoseconds modulo 2^64, and back.
std::uint64_t toTreeTime(TIME time);
TIME fromTreeTime(std::uint64_t time);
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

// The way from a root down to an entry of a leaf. Held, every node of it stays
// reserved until the path is released or taken again: what changes a tree does it
// on a held path. A held path is at most kMaxHeldDepth nodes long, so that as many
// new nodes fit into the buffers beside it.
inline constexpr int kMaxHeldDepth = 150;

class TreePath {
 public:
  enum class Hold { no, yes };
  TreePath(int file, Hold hold) : file_(file), hold_(hold) {}
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
  struct Step {
    std::uint32_t block;
    std::uint32_t index;
    PVBnode* node;
  };
  class Spares;

  int fullLevels() const;
  bool contains(std::uint32_t block) const;
  void markDirty();
  PVBnodeEntry split(PVBnode& node, std::uint32_t index, const PVBnodeEntry& entry, Spares& spares);
  void growRoot(const PVBnodeEntry& entry, Spares& spares);

  int file_;
  Hold hold_;
  int depth_ = 0;
  TreeSums before_;
  PVBnodeEntry entry_;
  std::array<Step, kMaxTreeDepth + 1> steps_;
};
