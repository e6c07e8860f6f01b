#include "pvb/tree.h"

#include <limits>

#include "pvb/tree_internal.h"
#include "storage/swapendian.h"

// --- Sums ----------------------------------------------------------------------------

TreeSums sumsOf(const PVBnode& node) {
  TreeSums sums;
  for (std::uint32_t i = 0; i < node.count; ++i) sums.add(sumsOf(node.entries[i]));
  return sums;
}

void setPosition(PVBposition& position, const TreeSums& sums) {
  position.time = fromTreeTime(sums.time);
  position.row = sums.rows;
  position.cycle = sums.cycles;
  position.address = sums.addresses;
}

// --- Nodes ---------------------------------------------------------------------------

PVBnodeEntry entryFor(const PVBnode& node) {
  PVBnodeEntry entry = {};
  setSums(entry, sumsOf(node));
  entry.child = node.self;
  return entry;
}

bool isSound(const PVBnode& node, std::uint32_t block) {
  if (node.self != block || node.count > kNodeEntries || node.leaf > 1) return false;
  return node.leaf == 1 || node.count > 0;
}

NodeHandle getNode(int file, std::uint32_t block) {
  NodeHandle node = NodeHandle::get(file, block, typePVBnode);
  if (node && !isSound(*node, block)) node.release();
  return node;
}

NodeHandle newNode(int file) {
  void* data = nullptr;
  const std::int64_t block = PageNewTyped(file, data, typePVBnode);
  if (block < 0) return {};
  NodeHandle node(file, static_cast<std::uint32_t>(block), data);
  node->self = node.block();
  node->leaf = 1;
  node.markDirty();
  return node;
}

std::uint32_t countNodes(int file) {
  std::uint32_t blocks = 0;
  std::uint32_t capacity = 0;
  PageInfo(file, blocks, capacity);
  return blocks;
}

// --- Searching -----------------------------------------------------------------------

namespace {

// Adds up entries while the key lies past them: the index of the one that holds it,
// or the count.
template <typename Width>
std::uint32_t walkEntries(const PVBnode& node, TreeSums& before, std::uint64_t& left,
                          Width widthOf) {
  std::uint32_t i = 0;
  for (; i < node.count; ++i) {
    const PVBnodeEntry& entry = node.entries[i];
    const std::uint64_t width = widthOf(entry);
    if (width > left) break;
    left -= width;
    before.add(sumsOf(entry));
  }
  return i;
}

std::uint32_t walkNode(const PVBnode& node, int kind, TreeSums& before, std::uint64_t& left) {
  switch (kind) {
    case BY_CYCLE:
      return walkEntries(node, before, left, [](const PVBnodeEntry& e) { return e.cycles; });
    case BY_TIME:
      return walkEntries(node, before, left,
                         [](const PVBnodeEntry& e) { return toTreeTime(e.time); });
    case BY_ADDRESS:
      return walkEntries(node, before, left, [](const PVBnodeEntry& e) { return e.addresses; });
    default:
      return walkEntries(node, before, left, [](const PVBnodeEntry& e) { return e.rows; });
  }
}

}  // namespace

bool makeKey(const PVBposition& position, int kind, TreeKey& key) {
  key.kind = kind;
  switch (kind) {
    case BY_ROW:
      key.value = position.row;
      return true;
    case BY_CYCLE:
      key.value = position.cycle;
      return true;
    case BY_TIME:
      key.value = toTreeTime(position.time);
      return position.time >= TIME_ZERO;
    case BY_ADDRESS:
      key.value = position.address;
      return true;
    default:
      return false;
  }
}

std::uint64_t valueOf(const TreeSums& sums, int kind) {
  if (kind == BY_TIME) return sums.time;
  if (kind == BY_CYCLE) return sums.cycles;
  return kind == BY_ADDRESS ? sums.addresses : sums.rows;
}

Seek TreePath::descend(std::uint32_t root, const TreeKey& key) {
  release();
  root_ = root;
  key_ = key;
  if (hints_ == nullptr) return descendFromRoot();
  if (hold_ == Hold::no) return resumeLeaf() ? Seek::found : descendFromRoot();
  if (!resumePlace()) return descendFromRoot();
  return hints_->place.atEnd ? Seek::end : Seek::found;
}

Seek TreePath::descendFromRoot() {
  before_ = {};
  const int limit = hold_ == Hold::yes ? kMaxHeldDepth : kMaxTreeDepth;
  std::uint64_t left = key_.value;
  std::uint64_t keyLimit = std::numeric_limits<std::uint64_t>::max();
  std::uint32_t block = root_;
  bool pastEnd = false;
  while (depth_ < limit) {
    // A change on a path that crosses itself would find counts that it didn't expect.
    if (hold_ == Hold::yes && contains(block)) break;
    NodeHandle node = getNode(file_, block);
    if (!node) break;
    std::uint32_t index = node->count;
    if (!pastEnd) index = walkNode(*node, key_.kind, before_, left);
    if (index == node->count && depth_ > 0 && !pastEnd) break;  // less than the parent says
    pastEnd = index == node->count;
    const bool leaf = node->leaf == 1;
    if (pastEnd && !leaf) --index;
    entry_ = node->entries[index];
    passed_ = key_.value - left;
    if (leaf && !pastEnd) noteLeaf(*node, index, keyLimit);
    const std::uint64_t width = widthOf(entry_, key_.kind);
    if (width < keyLimit - passed_) keyLimit = passed_ + width;
    steps_[static_cast<std::size_t>(depth_++)] = {block, index,
                                                  hold_ == Hold::yes ? node.detach() : nullptr};
    if (leaf) return pastEnd ? Seek::end : Seek::found;
    block = entry_.child;
  }
  release();
  return Seek::bad;
}

void TreePath::release() {
  while (depth_ > 0) {
    const Step& step = steps_[static_cast<std::size_t>(--depth_)];
    if (hold_ == Hold::yes) PageReleaseAt(file_, step.block, step.node);
  }
}

// --- Whole trees ---------------------------------------------------------------------

const char* PVBkeyKindName(int kind) {
  static constexpr std::array<const char*, 5> kNames = {"BY_ROW", "BY_CYCLE", "BY_TIME", "BY_ID",
                                                        "BY_ADDRESS"};
  return kind >= 0 && kind < static_cast<int>(kNames.size())
             ? kNames[static_cast<std::size_t>(kind)]
             : "BY_UNDEF";
}

std::int64_t PVBtreeNew(int file) {
  const NodeHandle node = newNode(file);
  return node ? std::int64_t{node.block()} : -1;
}

int PVBtreeFind(int file, std::uint32_t root, PVBposition& position, int kind,
                PVBnodeEntry& found) {
  TreeKey key;
  if (!makeKey(position, kind, key)) return -2;
  TreePath path(file, TreePath::Hold::no);
  const Seek seek = path.descend(root, key);
  if (seek != Seek::bad) setPosition(position, path.before());
  if (seek != Seek::found) return -2;
  found = path.entry();
  position.rowID = found.child;
  position.count = found.count;
  position.index = found.index;
  position.type = found.type;
  position.address16 = found.address16;
  return 0;
}

int PVBtreeSums(int file, std::uint32_t root, PVBposition& sums) {
  const NodeHandle node = getNode(file, root);
  if (!node) return -2;
  setPosition(sums, sumsOf(*node));
  return 0;
}
