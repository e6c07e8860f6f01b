// Searches that go on where the last one ended, beside searches that don't: the same
// answers, and in the end the same file.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <cstring>
#include <random>

#include "pvb/tree_internal.h"
#include "storage/swapendian.h"
#include "support/temp_dir.h"

namespace {

constexpr std::size_t kRoots = 2;

// A file with two trees.
class Trees {
 public:
  Trees(const std::string& path, TreeHints* hints) : hints_(hints) {
    std::uint32_t size = kNodeBlockSize;
    file_ = PageOpenPlain(path, size, kNodeBuffers);
    for (std::uint32_t& root : roots_) root = static_cast<std::uint32_t>(PVBtreeNew(file_));
  }
  ~Trees() { PageClose(file_); }
  Trees(const Trees&) = delete;
  Trees& operator=(const Trees&) = delete;

  int file() const { return file_; }
  std::uint32_t root(std::size_t tree) const { return roots_[tree]; }
  TreePath path(TreePath::Hold hold) const { return TreePath(file_, hold, hints_); }

 private:
  int file_ = -1;
  TreeHints* hints_;
  std::array<std::uint32_t, kRoots> roots_{};
};

bool sameEntry(const PVBnodeEntry& a, const PVBnodeEntry& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

class Twins {
 public:
  explicit Twins(unsigned seed) : random_(seed) {}

  // A few changes or look-ups one after the other, as operations make them.
  void burst() {
    const std::size_t tree = pick(kRoots);
    const int kind = std::array{BY_ROW, BY_CYCLE, BY_TIME, BY_ADDRESS}[pick(4)];
    const std::size_t what = pick(10);
    TreeKey key = {pick(3) == 0 ? kind : int{BY_ROW}, anyKey(tree, kind)};
    const std::size_t length = 1 + pick(what < 4 ? 130 : 60);
    for (std::size_t i = 0; i < length; ++i) {
      if (what < 4) {
        insert(tree, key);
      } else if (what < 9) {
        lookUp(tree, key);
        if (pick(4) == 0) lookUp(pick(kRoots), {kind, anyKey(tree, kind)});
      } else if (i < 12) {
        removeOrReplace(tree, key);
      }
    }
  }

  void compareFiles() {
    const std::uint32_t count = countNodes(plain_.file());
    RC_ASSERT(countNodes(hinted_.file()) == count);
    for (std::uint32_t block = 0; block < count; ++block) {
      const NodeHandle a = NodeHandle::get(plain_.file(), block, typePVBnode);
      const NodeHandle b = NodeHandle::get(hinted_.file(), block, typePVBnode);
      RC_ASSERT(std::memcmp(a.data(), b.data(), kNodeBlockSize) == 0);
    }
  }

 private:
  std::size_t pick(std::size_t count) { return random_() % count; }
  std::uint64_t anyKey(std::size_t tree, int kind) {
    PVBposition sums;
    PVBtreeSums(plain_.file(), plain_.root(tree), sums);
    TreeKey end;
    makeKey(sums, kind, end);
    return random_() % (end.value + 3);
  }
  PVBnodeEntry anyEntry() {
    PVBnodeEntry entry = {};
    entry.time = {0, static_cast<std::int32_t>(pick(3))};
    entry.rows = static_cast<std::uint32_t>(pick(8) == 0 ? pick(4) : 1);
    entry.cycles = static_cast<std::uint32_t>(pick(3));
    entry.addresses = static_cast<std::uint32_t>(pick(2));
    entry.child = nextId_++;
    return entry;
  }

  // The same search in both: the paths lead to the same place.
  Seek descend(TreePath& plain, TreePath& hinted, std::size_t tree, const TreeKey& key) {
    const Seek seek = plain.descend(plain_.root(tree), key);
    RC_ASSERT(hinted.descend(hinted_.root(tree), key) == seek);
    RC_ASSERT(hinted.before() == plain.before());
    RC_ASSERT(seek != Seek::found || sameEntry(plain.entry(), hinted.entry()));
    return seek;
  }
  // The key then is the one behind what was found.
  void lookUp(std::size_t tree, TreeKey key) {
    TreePath plain = plain_.path(TreePath::Hold::no);
    TreePath hinted = hinted_.path(TreePath::Hold::no);
    for (int step = 0; step < 3; ++step) {
      if (descend(plain, hinted, tree, key) != Seek::found) return;
      key.value += 1 + pick(2);
    }
  }
  void insert(std::size_t tree, TreeKey& key) {
    TreePath plain = plain_.path(TreePath::Hold::yes);
    TreePath hinted = hinted_.path(TreePath::Hold::yes);
    descend(plain, hinted, tree, key);
    const PVBnodeEntry entry = anyEntry();
    key.value = valueOf(plain.before(), key.kind) + widthOf(entry, key.kind);
    RC_ASSERT(plain.insert(entry) == 0);
    RC_ASSERT(hinted.insert(entry) == 0);
  }
  void removeOrReplace(std::size_t tree, const TreeKey& key) {
    TreePath plain = plain_.path(TreePath::Hold::yes);
    TreePath hinted = hinted_.path(TreePath::Hold::yes);
    if (descend(plain, hinted, tree, key) != Seek::found) return;
    const PVBnodeEntry entry = anyEntry();
    const bool remove = pick(2) == 0;
    remove ? plain.remove() : plain.replace(entry);
    remove ? hinted.remove() : hinted.replace(entry);
  }

  std::mt19937 random_;
  TempDir dir_;
  TreeHints hints_;
  Trees plain_{dir_.path("plain"), nullptr};
  Trees hinted_{dir_.path("hinted"), &hints_};
  std::uint32_t nextId_ = 0;
};

RC_GTEST_PROP(TreeHintLaw, ChangesNoAnswerAndNoNode, ()) {
  Twins twins(*rc::gen::arbitrary<unsigned>());
  const auto bursts = *rc::gen::inRange(1, 60);
  for (int i = 0; i < bursts; ++i) twins.burst();
  twins.compareFiles();
}

}  // namespace
