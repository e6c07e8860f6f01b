// Random operations on a counted tree, some of which damage a node. A tree that
// wasn't damaged must check clean and hold what was put in; a damaged one must not
// crash a call or keep it going. The file is new and fits into its buffers, so that
// nothing reaches the disk.

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "base/errors.h"
#include "memory_file.h"
#include "pvb/tree.h"
#include "pvb/tree_internal.h"
#include "storage/page.h"
#include "storage/swapendian.h"

namespace {

constexpr int kKinds[] = {BY_ROW, BY_CYCLE, BY_TIME, BY_ADDRESS};
constexpr std::uint32_t kMaxEntries = 6000;

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool done() const { return next_ >= size_; }
  std::uint32_t byte() { return done() ? 0 : data_[next_++]; }
  std::uint32_t word() { return byte() << 8 | byte(); }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t next_ = 0;
};

class Run {
 public:
  explicit Run(Input input) : input_(input) {
    std::uint32_t size = kNodeBlockSize;
    file_ = PageOpenPlain("/dev/shm/tree_fuzz." + std::to_string(getpid()), size, kNodeBuffers);
    require(file_ >= 0);
    root_ = static_cast<std::uint32_t>(PVBtreeNew(file_));
  }
  ~Run() {
    PageDiscard(file_);
    PBdiscardErrors();
  }

  void all() {
    while (!input_.done()) {
      step();
      PBdiscardErrors();
    }
    check();
  }

 private:
  void step() {
    switch (input_.byte() % 10) {
      case 0:
      case 1:
        return insert();
      case 2:
        return append(input_.byte());
      case 3:
        return remove();
      case 4:
        return replace();
      case 5:
        return find();
      case 6:
        return walk();
      case 7:
        return check();
      case 8:
        return damage();
      default:
        return restart();
    }
  }

  PVBnodeEntry makeEntry() {
    const std::uint32_t bits = input_.byte();
    PVBnodeEntry entry = {};
    entry.time = {static_cast<std::int32_t>(bits >> 6), static_cast<std::int32_t>(bits) * 3900000};
    entry.rows = 1 + (bits & 3);
    entry.cycles = bits >> 2 & 3;
    entry.addresses = bits >> 4 & 1;
    entry.child = nextId_++;
    return entry;
  }
  PVBposition makeKey() {
    const std::uint32_t key = input_.word();
    PVBposition position;
    position.time = {static_cast<std::int32_t>(key / 3), static_cast<std::int32_t>(key) * 3900};
    position.row = position.cycle = position.address = key;
    return position;
  }
  int kind() { return kKinds[input_.byte() % 4]; }

  void insert() {
    if (entries_ >= kMaxEntries) return;
    PVBposition position = makeKey();
    entries_ += PVBtreeInsert(file_, root_, position, kind(), makeEntry()) == 0 ? 1 : 0;
  }
  void append(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count && entries_ < kMaxEntries; ++i) {
      PVBposition position;
      position.row = 0xFFFFFFFF;
      const int result = PVBtreeInsert(file_, root_, position, BY_ROW, makeEntry());
      require(result == 0 || damaged_);
      if (result == 0) ++entries_;
    }
  }
  void remove() {
    PVBposition position = makeKey();
    PVBnodeEntry removed;
    if (PVBtreeDelete(file_, root_, position, kind(), removed) == 0) --entries_;
  }
  void replace() {
    PVBposition position = makeKey();
    PVBtreeReplace(file_, root_, position, kind(), makeEntry());
  }
  void find() {
    PVBposition position = makeKey();
    const int by = kind();
    PVBnodeEntry found;
    if (PVBtreeFind(file_, root_, position, by, found) != 0 || damaged_ || by != BY_ROW) return;
    PVBposition again = position;
    require(PVBtreeFind(file_, root_, again, BY_ROW, found) == 0 && again.row == position.row);
  }
  void walk() {
    TreeCursor cursor(file_, root_);
    PVBnodeEntry entry;
    std::uint32_t count = 0;
    while (cursor.next(entry)) ++count;
    require(damaged_ || (count == entries_ && !cursor.failed()));
    require(count <= kNodeEntries * countNodes(file_));
  }
  void check() {
    std::uint32_t count = 0;
    const int faults = PVBtreeCheck(file_, root_, nullptr, [&](const PVBnodeEntry&) { ++count; });
    require(damaged_ || (faults == 0 && count == entries_));
  }
  // Any bytes of any node; free blocks are left to the block file's own fuzzing.
  void damage() {
    const std::uint32_t block = input_.byte() % countNodes(file_);
    NodeHandle node = NodeHandle::get(file_, block, typePVBnode);
    if (!node || !isSound(*node, block)) return;
    const std::uint32_t offset = input_.word() % (kNodeBlockSize - 3);
    const std::uint32_t at = offset % 3 == 0 ? 1836 + offset % 9 : offset;
    std::uint32_t value = input_.byte() % 4 == 0 ? input_.word() << 16 : input_.byte() % 8;
    std::memcpy(reinterpret_cast<char*>(node.data()) + at, &value, sizeof value);
    node.markDirty();
    damaged_ = true;
  }
  void restart() {
    const int result = PVBtreeFree(file_, root_, [](const PVBnodeEntry&) { return 0; });
    require(damaged_ || (result == 0 && PageCount(file_) == 0));
    const std::int64_t root = PVBtreeNew(file_);
    require(root >= 0);
    root_ = static_cast<std::uint32_t>(root);
    entries_ = 0;
  }

  Input input_;
  int file_ = -1;
  std::uint32_t root_ = 0;
  std::uint32_t entries_ = 0;
  std::uint32_t nextId_ = 1;
  bool damaged_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 2000) return 0;
  Run(Input(data, size)).all();
  return 0;
}
