// Walks over whole trees. None of them recurses or holds a node across a step, so
// neither stack nor buffers can run out; a node that is reached twice, or a chain
// that doesn't end, is found by counting the nodes or by marking them.

#include <cstddef>
#include <utility>
#include <vector>

#include "pvb/tree.h"
#include "pvb/tree_internal.h"
#include "storage/swapendian.h"

// --- Cursor --------------------------------------------------------------------------

TreeCursor::TreeCursor(int file, std::uint32_t root) : TreeCursor(file, root, countNodes(file)) {}

TreeCursor::TreeCursor(int file, std::uint32_t root, std::uint32_t nodesLeft)
    : file_(file), nodesLeft_(nodesLeft) {
  enter(root);
}

void TreeCursor::enter(std::uint32_t node) {
  if (nodesLeft_ == 0 || path_.size() == kMaxTreeDepth) {
    failed_ = true;
    return;
  }
  --nodesLeft_;
  path_.push_back({node, 0});
}

bool TreeCursor::next(PVBnodeEntry& entry) {
  while (!failed_ && !path_.empty()) {
    Step& step = path_.back();
    const NodeHandle node = getNode(file_, step.node);
    if (!node) {
      failed_ = true;
    } else if (step.index >= node->count) {
      path_.pop_back();
    } else if (node->leaf == 1) {
      entry = node->entries[step.index++];
      return true;
    } else {
      enter(node->entries[step.index++].child);
    }
  }
  return false;
}

bool TreeCursor::replace(const PVBnodeEntry& entry) {
  if (path_.empty() || path_.back().index == 0) return false;
  const std::uint32_t index = path_.back().index - 1;
  NodeHandle node = getNode(file_, path_.back().node);
  if (!node || node->leaf != 1 || index >= node->count) return false;
  PVBnodeEntry& place = node->entries[index];
  if (place.child != entry.child || sumsOf(place) != sumsOf(entry)) return false;
  place = entry;
  node.markDirty();
  return true;
}

// --- Freeing -------------------------------------------------------------------------

namespace {

struct WalkStep {
  std::uint32_t node;
  std::uint32_t index;
};

// The node's bytes are cleared first: a link that leads there again finds no node.
int freeNode(int file, NodeHandle node) {
  *node = {};
  node.markDirty();
  const std::uint32_t block = node.block();
  node.release();
  return PageFree(file, block);
}

}  // namespace

int PVBtreeFree(int file, std::uint32_t root,
                const std::function<int(const PVBnodeEntry& entry)>& onRow) {
  int result = 0;
  std::vector<WalkStep> path;
  const auto enter = [&](std::uint32_t block) {
    const NodeHandle node = getNode(file, block);
    const bool taken = node && path.size() < kMaxTreeDepth;
    if (taken) path.push_back({block, node->count});
    if (!taken) result = -2;
  };
  enter(root);
  while (!path.empty()) {
    WalkStep& step = path.back();
    NodeHandle node = getNode(file, step.node);
    if (!node) {
      result = -2;
      path.pop_back();
    } else if (step.index == 0) {
      if (freeNode(file, std::move(node)) != 0) result = -2;
      path.pop_back();
    } else {
      --step.index;
      const PVBnodeEntry entry = node->entries[step.index];
      const bool leaf = node->leaf == 1;
      node.release();
      if (!leaf) {
        enter(entry.child);
      } else if (onRow && onRow(entry) != 0) {
        result = -2;
      }
    }
  }
  return result;
}

// --- Checking ------------------------------------------------------------------------

namespace {

class TreeCheck {
 public:
  TreeCheck(int file, const TreeFault& fault,
            const std::function<void(const PVBnodeEntry& entry)>& onRow, std::vector<bool>& seen)
      : file_(file), fault_(fault), onRow_(onRow), seen_(seen) {
    seen_.resize(countNodes(file));
  }

  int run(std::uint32_t root) {
    enter(root, nullptr);
    while (!path_.empty()) {
      const NodeHandle node = getNode(file_, path_.back().node);
      Step& step = path_.back();
      if (!node || step.index >= node->count) {
        path_.pop_back();
      } else {
        const PVBnodeEntry entry = node->entries[step.index++];
        const bool leaf = node->leaf == 1;
        visit(entry, leaf);
      }
    }
    return faults_;
  }

 private:
  using Step = WalkStep;

  void report(std::uint32_t node, const char* what) {
    ++faults_;
    if (fault_) fault_(node, what);
  }
  void visit(const PVBnodeEntry& entry, bool leaf) {
    if (!leaf) {
      enter(entry.child, &entry);
    } else if (onRow_) {
      onRow_(entry);
    }
  }
  void enter(std::uint32_t block, const PVBnodeEntry* parent) {
    const NodeHandle node = NodeHandle::get(file_, block, typePVBnode);
    if (!node) return report(block, "can't be read");
    if (seen_[block]) return report(block, "is in the trees twice");
    seen_[block] = true;
    if (const char* what = faultOf(*node, block)) return report(block, what);
    if (path_.size() == kMaxTreeDepth) return report(block, "lies too deep");
    if (parent != nullptr && sumsOf(*node) != sumsOf(*parent)) {
      report(block, "has other sums than its parent says");
    }
    path_.push_back({block, 0});
  }
  static const char* faultOf(const PVBnode& node, std::uint32_t block) {
    if (node.self != block) return "has another number";
    if (node.count > kNodeEntries) return "has too many entries";
    if (node.leaf > 1) return "is neither leaf nor inner node";
    if (node.leaf == 0 && node.count == 0) return "is an inner node without entries";
    return nullptr;
  }

  int file_;
  const TreeFault& fault_;
  const std::function<void(const PVBnodeEntry& entry)>& onRow_;
  std::vector<bool>& seen_;
  std::vector<Step> path_;
  int faults_ = 0;
};

}  // namespace

int PVBtreeCheck(int file, std::uint32_t root, const TreeFault& fault,
                 const std::function<void(const PVBnodeEntry& entry)>& onRow,
                 std::vector<bool>* seen) {
  std::vector<bool> own;
  return TreeCheck(file, fault, onRow, seen != nullptr ? *seen : own).run(root);
}
