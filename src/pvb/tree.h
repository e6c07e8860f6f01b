#pragma once

// Counted trees: the order of the rows of a pattern. A tree is a set of blocks of
// "pvb.pk"; each entry of a node keeps how much time and how many rows, cycles and
// addresses lie under it, so a row is found by any of the four in as many steps as
// the tree is high, and inserted anywhere without moving others. The main pattern,
// each subroutine and the body of each loop has a tree of its own.
//
// Node, tag typePVBnode, 1848 bytes:
//
//   OFFSET   SIZE     FIELD
//      0     51 x 36  entries; at most 50 in use, the 51st is scratch
//   1836      4       self     its own block number
//   1840      4       count    entries in use
//   1844      1       leaf     1 in a leaf
//   1845      3                0
//
// Entry:
//
//   OFFSET  SIZE  FIELD      IN A LEAF                           IN AN INNER NODE
//      0      8   time       of the row                          sum of the subtree
//      8      4   rows       rows it stands for                  sum
//     12      4   cycles     cycles                              sum
//     16      4   addresses  addresses                           sum
//     20      4   child      row id                              node number
//     24      2   count      low half of the row's count         0
//     26      2              0
//     28      4   index      timeplate, subroutine or body       0
//     32      1   type       row type                            0
//     33      1              0
//     34      2   address16  the row's repeat16 if above 0,
//                            else 65535                          0
//
// Invariants: an inner entry's four sums are those of its child's entries; a root
// keeps its block number for life; nodes are never merged. Nothing in a node is
// trusted: a count above 50, a bad child or a chain deeper than kMaxTreeDepth makes
// the call fail.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "base/time.h"

// How a look-up names its place; the values are fixed.
enum KeyKind : int { BY_ROW = 0, BY_CYCLE = 1, BY_TIME = 2, BY_ID = 3, BY_ADDRESS = 4 };
// "BY_ROW"; "BY_UNDEF".
const char* PVBkeyKindName(int kind);

// A place in a pattern. The field of the key kind is read, all are filled with the
// beginning of the row found. As a sum: how much lies under a node.
struct PVBposition {
  TIME time;
  std::uint32_t row = 0;
  std::uint32_t cycle = 0;
  std::uint32_t address = 0;
  std::uint32_t rowID = 0xFFFFFFFF;
  std::uint16_t count = 0;
  std::uint32_t index = 0xFFFFFFFF;
  std::uint8_t type = 0;
  std::uint16_t address16 = 65535;
};

struct PVBnodeEntry {
  TIME time;
  std::uint32_t rows;
  std::uint32_t cycles;
  std::uint32_t addresses;
  std::uint32_t child;
  std::uint16_t count;
  std::uint16_t unused1;
  std::uint32_t index;
  std::uint8_t type;
  std::uint8_t unused2;
  std::uint16_t address16;
};
static_assert(sizeof(PVBnodeEntry) == 36 && offsetof(PVBnodeEntry, address16) == 34);

inline constexpr std::uint32_t kNodeEntries = 50;
inline constexpr std::uint32_t kNodeBlockSize = 1848;
inline constexpr int kNodeBuffers = 305;
inline constexpr int kMaxTreeDepth = 302;
inline constexpr std::uint32_t kNoNode = 0xFFFFFFFF;

// All calls take the handle of the block file of nodes. 0, or -2.

// A new empty leaf; its number, or -1.
std::int64_t PVBtreeNew(int file);
// Descends to the entry that holds the key; `position` gets its beginning and the
// leaf entry is copied to `found`. -2 with `position` at the end of the pattern
// when the key lies past it, or when a node is bad.
int PVBtreeFind(int file, std::uint32_t root, PVBposition& position, int kind, PVBnodeEntry& found);
// Inserts before the entry that the key finds, or at the end; -2 when the key isn't
// the beginning of an entry.
int PVBtreeInsert(int file, std::uint32_t root, PVBposition& position, int kind,
                  const PVBnodeEntry& entry);
// Removes the entry that holds the key; it is copied to `removed`.
int PVBtreeDelete(int file, std::uint32_t root, PVBposition& position, int kind,
                  PVBnodeEntry& removed);
// Replaces the entry that holds the key, its row's id stays; the sums above follow.
int PVBtreeReplace(int file, std::uint32_t root, PVBposition& position, int kind,
                   const PVBnodeEntry& entry);
// The sums of a whole tree, from its root.
int PVBtreeSums(int file, std::uint32_t root, PVBposition& sums);
// Frees all nodes, entries from last to first; `onRow` is called for each leaf
// entry before its node goes.
int PVBtreeFree(int file, std::uint32_t root,
                const std::function<int(const PVBnodeEntry& entry)>& onRow);
// A fault in the structure or the sums of a tree, with its node and what is wrong.
using TreeFault = std::function<void(std::uint32_t node, const char* what)>;
// Walks the whole tree: links, counts, self numbers, depth, sums; `onRow` is called
// for each leaf entry in order. `seen`, a bit for each node of the file, tells which
// were met in other trees and is added to: no node may be met twice. The count of
// faults.
int PVBtreeCheck(int file, std::uint32_t root, const TreeFault& fault,
                 const std::function<void(const PVBnodeEntry& entry)>& onRow,
                 std::vector<bool>* seen = nullptr);

// Walks the leaf entries of a tree in order. The tree must not change meanwhile.
class TreeCursor {
 public:
  TreeCursor(int file, std::uint32_t root);
  // Meets at most `nodesLeft` nodes: who walks over many trees of one file shares
  // out the count of its blocks, so that no set of links keeps the walk going.
  TreeCursor(int file, std::uint32_t root, std::uint32_t nodesLeft);

  // The next entry; false at the end and after a fault.
  bool next(PVBnodeEntry& entry);
  // Replaces the entry that `next` gave last by one with the same row and sums. False
  // when it is another one by now.
  bool replace(const PVBnodeEntry& entry);
  bool failed() const { return failed_; }
  std::uint32_t nodesLeft() const { return nodesLeft_; }
  void setNodesLeft(std::uint32_t nodes) { nodesLeft_ = nodes; }

 private:
  struct Step {
    std::uint32_t node;
    std::uint32_t index;
  };
  void enter(std::uint32_t node);

  int file_;
  bool failed_ = false;
  std::uint32_t nodesLeft_;
  std::vector<Step> path_;
};
