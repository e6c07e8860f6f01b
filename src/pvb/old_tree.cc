// Trees of the versions before 8, whose nodes have smaller entries:
//
//   VERSION  TAG               BLOCK  ENTRY  child AT
//   0 to 2   typeoldPVBnode1   1032    20     16
//   3        typeoldPVBnode2   1236    24     16
//   4 to 6   typeoldPVBnode3   1440    28     16
//   7        typeoldPVBnode4   1644    32     20
//
// 51 entries, then self, count and the leaf mark; time, rows and cycles of an entry
// stand at 0, 8 and 12 in all of them. What an entry says beyond these comes from
// its row. The rows of a tree are taken in order and appended to a new one.

#include <array>
#include <cstring>
#include <vector>

#include "pvb/pattern_internal.h"
#include "storage/swapendian.h"

namespace {

struct OldFormat {
  int lastVersion;
  int tag;
  std::uint32_t entrySize;
  std::uint32_t childOffset;

  std::uint32_t countOffset() const { return (kNodeEntries + 1) * entrySize + 4; }
  std::uint32_t leafOffset() const { return countOffset() + 4; }
  std::uint32_t blockSize() const { return leafOffset() + 4; }
};

constexpr std::array<OldFormat, 4> kFormats = {{
    {2, typeoldPVBnode1, 20, 16},
    {3, typeoldPVBnode2, 24, 16},
    {6, typeoldPVBnode3, 28, 16},
    {7, typeoldPVBnode4, 32, 20},
}};

const OldFormat& formatOf(int version) {
  for (const OldFormat& format : kFormats) {
    if (version <= format.lastVersion) return format;
  }
  return kFormats.back();
}

std::uint32_t wordAt(const std::uint8_t* bytes, std::uint32_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes + offset, sizeof word);
  return word;
}

// The leaf entries of one old tree in order.
class OldCursor {
 public:
  OldCursor(int file, const OldFormat& format, std::uint32_t& nodesLeft)
      : file_(file), format_(format), nodesLeft_(nodesLeft) {}

  void enter(std::uint32_t node) {
    failed_ = nodesLeft_ == 0 || path_.size() == kMaxTreeDepth;
    if (failed_) return;
    --nodesLeft_;
    path_.push_back({node, 0});
  }
  bool failed() const { return failed_; }

  bool next(PVBnodeEntry& entry) {
    while (!failed_ && !path_.empty()) {
      Step& step = path_.back();
      const auto node = BlockHandle<std::uint8_t>::get(file_, step.node, format_.tag);
      if (!node || wordAt(node.data(), format_.countOffset()) > kNodeEntries) {
        failed_ = true;
      } else if (step.index == wordAt(node.data(), format_.countOffset())) {
        path_.pop_back();
      } else {
        entry = entryAt(node.data(), step.index++);
        if (node.data()[format_.leafOffset()] == 1) return true;
        enter(entry.child);
      }
    }
    return false;
  }

 private:
  struct Step {
    std::uint32_t node;
    std::uint32_t index;
  };

  PVBnodeEntry entryAt(const std::uint8_t* node, std::uint32_t index) const {
    const std::uint8_t* bytes = node + std::size_t{index} * format_.entrySize;
    PVBnodeEntry entry = {};
    entry.time.major = static_cast<std::int32_t>(wordAt(bytes, 0));
    entry.time.minor = static_cast<std::int32_t>(wordAt(bytes, 4));
    entry.rows = wordAt(bytes, 8);
    entry.cycles = wordAt(bytes, 12);
    entry.child = wordAt(bytes, format_.childOffset);
    return entry;
  }

  int file_;
  const OldFormat& format_;
  std::uint32_t& nodesLeft_;
  bool failed_ = false;
  std::vector<Step> path_;
};

// A tree still to be converted, and the new one that it goes to.
struct Pending {
  std::uint32_t oldRoot;
  std::uint32_t newRoot;
};

class Conversion {
 public:
  Conversion(int database, PVBpatternData& data, int oldNodes, const OldFormat& format,
             std::vector<ConvertedLoop>& loops)
      : database_(database),
        data_(data),
        oldNodes_(oldNodes),
        format_(format),
        loops_(loops),
        nodesLeft_(countNodes(oldNodes)) {}

  // The new root, or -1. Bodies are converted like trees of their own.
  std::int64_t run(std::uint32_t oldRoot) {
    const std::int64_t root = begin(oldRoot);
    while (!pending_.empty()) {
      const Pending tree = pending_.back();
      pending_.pop_back();
      if (!convert(tree)) return -1;
    }
    return root;
  }

 private:
  std::int64_t begin(std::uint32_t oldRoot) {
    const std::int64_t root = PVBtreeNew(data_.nodes);
    if (root >= 0) pending_.push_back({oldRoot, static_cast<std::uint32_t>(root)});
    return root;
  }
  bool convert(const Pending& tree) {
    OldCursor cursor(oldNodes_, format_, nodesLeft_);
    cursor.enter(tree.oldRoot);
    PVBnodeEntry entry;
    PVBposition end;
    end.row = kEnd;
    while (cursor.next(entry)) {
      if (!complete(entry)) return false;
      PVBposition position = end;
      if (PVBtreeInsert(data_.nodes, tree.newRoot, position, BY_ROW, entry) != 0) return false;
    }
    return !cursor.failed();
  }
  // What the row knows and the old entry doesn't.
  bool complete(PVBnodeEntry& entry) {
    const RowHandle row(database_, PVBrowGet(database_, entry.child));
    if (!row) return false;
    if (row->type == ROW_LOOP) {
      const std::int64_t body = begin(row->link);
      if (body < 0) return false;
      loops_.push_back({row->id, row->link});
      row->link = static_cast<std::uint32_t>(body);
      PVBrowDirty(database_, *row);
    }
    const bool links = row->type == ROW_LOOP || row->type == ROW_SUBR_CALL;
    entry.count = 1;
    entry.index = links ? row->link : row->timeplate;
    entry.type = static_cast<std::uint8_t>(row->type);
    entry.address16 = row->repeat16 > 0 ? row->repeat16 : kNoRepeat16;
    entry.addresses = hasTimePlate(row->type) ? 1 : 0;
    return true;
  }

  static constexpr std::uint32_t kEnd = 0xFFFFFFFF;
  int database_;
  PVBpatternData& data_;
  int oldNodes_;
  const OldFormat& format_;
  std::vector<ConvertedLoop>& loops_;
  std::uint32_t nodesLeft_;
  std::vector<Pending> pending_;
};

}  // namespace

std::uint32_t oldNodeSize(int version) { return formatOf(version).blockSize(); }

std::int64_t convertTree(int database, PVBpatternData& data, int oldNodes, std::uint32_t oldRoot,
                         int version, std::vector<ConvertedLoop>& loops) {
  return Conversion(database, data, oldNodes, formatOf(version), loops).run(oldRoot);
}

void undoConversion(int database, const std::vector<ConvertedLoop>& loops) {
  for (auto loop = loops.rbegin(); loop != loops.rend(); ++loop) {
    const RowHandle row(database, PVBrowGet(database, loop->row));
    if (!row) continue;
    row->link = loop->oldBody;
    PVBrowDirty(database, *row);
  }
}

std::int64_t PVBpatternConvertTree(int database, int oldNodes, std::uint32_t oldRoot, int version) {
  PVBpatternData* data = patternData(database);
  if (data == nullptr || version >= kFirstCurrentVersion) return -1;
  std::vector<ConvertedLoop> loops;
  const std::int64_t root = convertTree(database, *data, oldNodes, oldRoot, version, loops);
  if (root < 0) undoConversion(database, loops);
  return root;
}
