#include "pvb/pattern_internal.h"

PatternWalk::PatternWalk(int database, int pattern) {
  const PVBpatternData* data = patternData(database);
  const std::uint32_t root = data != nullptr ? rootOf(database, *data, pattern) : kNoNode;
  failed_ = root == kNoNode;
  if (failed_) return;
  nodes_ = data->nodes;
  nodesLeft_ = countNodes(nodes_);
  enter(root);
}

void PatternWalk::enter(std::uint32_t root) {
  levels_.emplace_back(nodes_, root, nodesLeft_);
  nodesLeft_ = levels_.back().nodesLeft();
}

bool PatternWalk::next() {
  if (started_) ++rowNumber_;
  started_ = true;
  entered_ = false;
  while (!failed_ && !levels_.empty()) {
    TreeCursor& level = levels_.back();
    level.setNodesLeft(nodesLeft_);
    const bool more = level.next(entry_);
    nodesLeft_ = level.nodesLeft();
    if (more) {
      entered_ = entry_.type == ROW_LOOP;
      if (entered_) enter(entry_.index);
      return true;
    }
    failed_ = level.failed();
    levels_.pop_back();
  }
  return false;
}
