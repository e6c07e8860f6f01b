// Changes of a tree. All nodes that a change touches are held, and the new ones
// taken, before the first byte is written, so that nothing can fail half way.

#include <algorithm>
#include <span>
#include <utility>

#include "pvb/tree.h"
#include "pvb/tree_internal.h"

// The new nodes of one insertion; those that weren't used are freed.
class TreePath::Spares {
 public:
  explicit Spares(int file) : file_(file) {}
  ~Spares() {
    for (const Step& spare : std::span(taken_).first(count_)) {
      PageRelease(file_, spare.block);
      if (spare.node != nullptr) PageFree(file_, spare.block);
    }
  }
  Spares(const Spares&) = delete;
  Spares& operator=(const Spares&) = delete;

  // False when there is no block, or a broken file gives one that is in use.
  bool take(const TreePath& path) {
    NodeHandle node = newNode(file_);
    if (!node || path.contains(node.block())) return false;
    const std::uint32_t block = node.block();
    taken_[count_++] = {block, 0, node.detach()};
    return true;
  }
  PVBnode& use() { return *std::exchange(taken_[used_++].node, nullptr); }

 private:
  int file_;
  std::size_t count_ = 0;
  std::size_t used_ = 0;
  std::array<Step, kMaxHeldDepth + 1> taken_;
};

namespace {

void insertEntry(PVBnode& node, std::uint32_t index, const PVBnodeEntry& entry) {
  std::copy_backward(node.entries.begin() + index, node.entries.begin() + node.count,
                     node.entries.begin() + node.count + 1);
  node.entries[index] = entry;
  ++node.count;
}

void removeEntry(PVBnode& node, std::uint32_t index) {
  std::copy(node.entries.begin() + index + 1, node.entries.begin() + node.count,
            node.entries.begin() + index);
  node.entries[--node.count] = {};
}

// A block that is freed must not be taken for a node again.
void wipe(PVBnode& node) { node = {}; }

}  // namespace

int TreePath::fullLevels() const {
  int levels = 0;
  while (levels < depth_ &&
         steps_[static_cast<std::size_t>(depth_ - 1 - levels)].node->count == kNodeEntries) {
    ++levels;
  }
  return levels;
}

bool TreePath::contains(std::uint32_t block) const {
  const auto end = steps_.begin() + depth_;
  return std::any_of(steps_.begin(), end, [&](const Step& step) { return step.block == block; });
}

void TreePath::markDirty() {
  for (int i = 0; i < depth_; ++i) {
    const Step& step = steps_[static_cast<std::size_t>(i)];
    PageDirtyAt(file_, step.block, step.node);
  }
}

// Gives the entries from `index` on to a new node and ends the old one with
// `entry`; at the very end the new node gets `entry` alone, so that appending
// leaves full nodes behind. The new node's entry for the parent.
PVBnodeEntry TreePath::split(PVBnode& node, std::uint32_t index, const PVBnodeEntry& entry,
                             Spares& spares) {
  PVBnode& fresh = spares.use();
  fresh.leaf = node.leaf;
  if (index == kNodeEntries) {
    insertEntry(fresh, 0, entry);
    return entryFor(fresh);
  }
  const auto from = node.entries.begin() + index;
  const auto to = node.entries.begin() + kNodeEntries;
  std::copy(from, to, fresh.entries.begin());
  fresh.count = kNodeEntries - index;
  std::fill(from, to, PVBnodeEntry{});
  node.entries[index] = entry;
  node.count = index + 1;
  return entryFor(fresh);
}

// Splits a full root, which keeps its number: what it holds moves to a new node.
void TreePath::growRoot(const PVBnodeEntry& entry, Spares& spares) {
  PVBnode& root = *steps_[0].node;
  PVBnode& lower = spares.use();
  const std::uint32_t block = lower.self;
  lower = root;
  lower.self = block;
  const PVBnodeEntry sibling = split(lower, steps_[0].index, entry, spares);
  root.entries.fill({});
  root.entries[0] = entryFor(lower);
  root.entries[1] = sibling;
  root.count = 2;
  root.leaf = 0;
}

int TreePath::insert(const PVBnodeEntry& entry) {
  const int full = fullLevels();
  Spares spares(file_);
  const int needed = full + (full == depth_ ? 1 : 0);
  for (int i = 0; i < needed; ++i) {
    if (!spares.take(*this)) return -2;
  }
  markDirty();
  PVBnodeEntry rising = entry;  // goes in at `index` of the level in hand
  bool placed = false;
  for (int level = depth_ - 1; level >= 0; --level) {
    Step& step = steps_[static_cast<std::size_t>(level)];
    if (placed) {
      TreeSums sums = sumsOf(step.node->entries[step.index]);
      sums.add(sumsOf(entry));
      setSums(step.node->entries[step.index], sums);
      continue;
    }
    if (level < depth_ - 1) {
      const PVBnode& child = *steps_[static_cast<std::size_t>(level) + 1].node;
      setSums(step.node->entries[step.index], sumsOf(child));
      ++step.index;
    }
    placed = step.node->count < kNodeEntries;
    if (placed) {
      insertEntry(*step.node, step.index, rising);
    } else if (level == 0) {
      growRoot(rising, spares);
    } else {
      rising = split(*step.node, step.index, rising, spares);
    }
  }
  if (full == 0) notePlace(entry);
  release();
  return 0;
}

void TreePath::remove() {
  markDirty();
  const TreeSums removed = sumsOf(entry_);
  std::array<std::uint32_t, kMaxHeldDepth> emptied;
  std::size_t emptiedCount = 0;
  bool drop = true;  // the entry of the level in hand goes
  for (int level = depth_ - 1; level >= 0; --level) {
    const Step& step = steps_[static_cast<std::size_t>(level)];
    PVBnode& node = *step.node;
    if (!drop) {
      TreeSums sums = sumsOf(node.entries[step.index]);
      sums.subtract(removed);
      setSums(node.entries[step.index], sums);
      continue;
    }
    removeEntry(node, step.index);
    drop = node.count == 0 && level > 0;
    if (drop) emptied[emptiedCount++] = step.block;
    if (drop) wipe(node);
  }
  if (steps_[0].node->count == 0) steps_[0].node->leaf = 1;
  release();
  for (std::size_t i = 0; i < emptiedCount; ++i) PageFree(file_, emptied[i]);
}

void TreePath::replace(const PVBnodeEntry& entry) {
  markDirty();
  const TreeSums removed = sumsOf(entry_);
  const TreeSums added = sumsOf(entry);
  Step& last = steps_[static_cast<std::size_t>(depth_ - 1)];
  PVBnodeEntry& place = last.node->entries[last.index];
  place = entry;
  place.child = entry_.child;
  for (int level = depth_ - 2; level >= 0; --level) {
    const Step& step = steps_[static_cast<std::size_t>(level)];
    TreeSums sums = sumsOf(step.node->entries[step.index]);
    sums.subtract(removed);
    sums.add(added);
    setSums(step.node->entries[step.index], sums);
  }
  release();
}

// --- By key --------------------------------------------------------------------------

int PVBtreeInsert(int file, std::uint32_t root, PVBposition& position, int kind,
                  const PVBnodeEntry& entry) {
  TreeKey key;
  if (!makeKey(position, kind, key)) return -2;
  TreePath path(file, TreePath::Hold::yes);
  const Seek seek = path.descend(root, key);
  if (seek == Seek::bad) return -2;
  setPosition(position, path.before());
  if (seek == Seek::found && valueOf(path.before(), kind) != key.value) return -2;
  return path.insert(entry);
}

int PVBtreeDelete(int file, std::uint32_t root, PVBposition& position, int kind,
                  PVBnodeEntry& removed) {
  TreeKey key;
  if (!makeKey(position, kind, key)) return -2;
  TreePath path(file, TreePath::Hold::yes);
  if (path.descend(root, key) != Seek::found) return -2;
  setPosition(position, path.before());
  removed = path.entry();
  path.remove();
  return 0;
}

int PVBtreeReplace(int file, std::uint32_t root, PVBposition& position, int kind,
                   const PVBnodeEntry& entry) {
  TreeKey key;
  if (!makeKey(position, kind, key)) return -2;
  TreePath path(file, TreePath::Hold::yes);
  if (path.descend(root, key) != Seek::found) return -2;
  setPosition(position, path.before());
  path.replace(entry);
  return 0;
}
