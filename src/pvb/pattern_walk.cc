#include "pvb/pattern_internal.h"

PatternWalk::PatternWalk(int database, int pattern) : database_(database), pattern_(pattern) {
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

int PatternWalk::update(PVBrow& row) {
  PVBpatternData* data = patternData(database_);
  if (data == nullptr || levels_.empty() || row.id != entry_.child) return -2;
  const bool hasBody = row.type == ROW_LOOP || row.type == ROW_END_LOOP;
  if (!hasBody && row.type == entry_.type && row.type != ROW_SUBR_CALL) {
    const PVBnodeEntry after = PVBrowToEntry(database_, row);
    if (sumsOf(after) == sumsOf(entry_) && levels_.back().replace(after)) {
      PVBrowDirty(database_, row);
      markTimePlate(database_, row);
      data->changed = true;
      entry_ = after;
      return 0;
    }
  }
  PVBposition position;
  position.row = rowNumber_;
  return PVBrowUpdate(database_, pattern_, position, BY_ROW, row);
}
