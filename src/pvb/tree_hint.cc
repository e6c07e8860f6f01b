// Searches that go on where the last one ended.

#include <algorithm>

#include "pvb/tree_internal.h"
#include "storage/swapendian.h"

// --- Look-ups ------------------------------------------------------------------------

// Walks on in a leaf that the key belongs to. At the end of its entries the search
// from the root says what is behind them.
bool TreePath::resumeLeaf() {
  const std::uint64_t stamp = PageStamp(file_);
  for (LeafHint& leaf : hints_->leaves) {
    const bool holdsKey = key_.value >= leaf.key && key_.value < leaf.limit;
    if (!holdsKey || leaf.root != root_ || leaf.kind != key_.kind || leaf.stamp != stamp) continue;
    for (; leaf.index < leaf.count; ++leaf.index) {
      const PVBnodeEntry& entry = leaf.entries[leaf.index];
      const std::uint64_t width = widthOf(entry, leaf.kind);
      if (width > key_.value - leaf.key) {
        before_ = leaf.before;
        entry_ = entry;
        passed_ = leaf.key;
        return true;
      }
      leaf.key += width;
      leaf.before.add(sumsOf(entry));
    }
    leaf.stamp = 0;
  }
  return false;
}

void TreePath::noteLeaf(const PVBnode& node, std::uint32_t index, std::uint64_t limit) {
  if (hints_ == nullptr || hold_ == Hold::yes) return;
  LeafHint& leaf = hints_->leaves[hints_->nextLeaf];
  hints_->nextLeaf = (hints_->nextLeaf + 1) % hints_->leaves.size();
  leaf.stamp = PageStamp(file_);
  leaf.root = root_;
  leaf.kind = key_.kind;
  leaf.key = passed_;
  leaf.limit = limit;
  leaf.before = before_;
  leaf.index = index;
  leaf.count = node.count;
  std::copy(node.entries.begin() + index, node.entries.begin() + node.count,
            leaf.entries.begin() + index);
}

// --- Changes -------------------------------------------------------------------------

// Takes the nodes on the way to the place again, if that is where the key leads.
bool TreePath::resumePlace() {
  const PlaceHint& place = hints_->place;
  if (place.root != root_ || place.kind != key_.kind || place.stamp != PageStamp(file_)) {
    return false;
  }
  if (place.atEnd ? key_.value < place.key : key_.value != place.key) return false;
  for (; depth_ < place.depth; ++depth_) {
    const Step& step = place.steps[static_cast<std::size_t>(depth_)];
    NodeHandle node(file_, step.block, PageGetAt(file_, step.block, typePVBnode, step.node));
    if (!node) node = getNode(file_, step.block);
    if (!node) {
      release();
      return false;
    }
    entry_ = node->entries[step.index];
    steps_[static_cast<std::size_t>(depth_)] = {step.block, step.index, node.detach()};
  }
  before_ = place.before;
  passed_ = place.key;
  return true;
}

// After an entry was put at the path's place without a split, whose nodes are held:
// where the next one goes.
void TreePath::notePlace(const PVBnodeEntry& inserted) {
  if (hints_ == nullptr) return;
  PlaceHint& place = hints_->place;
  place.stamp = 0;
  const Step& last = steps_[static_cast<std::size_t>(depth_ - 1)];
  const std::uint32_t next = last.index + 1;
  const bool atEnd = next == last.node->count;
  if (depth_ > kMaxHintDepth || (atEnd && !isLast())) return;
  // An entry without width isn't where its key leads.
  if (!atEnd && widthOf(last.node->entries[next], key_.kind) == 0) return;
  std::copy_n(steps_.begin(), depth_, place.steps.begin());
  place.steps[static_cast<std::size_t>(depth_ - 1)].index = next;
  place.root = root_;
  place.kind = key_.kind;
  place.key = passed_ + widthOf(inserted, key_.kind);
  place.before = before_;
  place.before.add(sumsOf(inserted));
  place.atEnd = atEnd;
  place.depth = depth_;
  place.stamp = PageStamp(file_);
}

// Whether nothing lies behind the path's leaf.
bool TreePath::isLast() const {
  for (int i = 0; i < depth_ - 1; ++i) {
    const Step& step = steps_[static_cast<std::size_t>(i)];
    if (step.index + 1 != step.node->count) return false;
  }
  return true;
}
