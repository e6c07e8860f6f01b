#include "base/hash.h"

#include <fmt/printf.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "base/errors.h"
#include "base/memory.h"
#include "base/platform.h"

namespace {

constexpr std::uint32_t kMinBuckets = 8;
constexpr std::size_t kHandlesPerGrowth = 16;
constexpr std::size_t kMinChunkNodes = 16;
constexpr std::size_t kMaxChunkNodes = 1024;
constexpr int kNoMoreMemory = 82;

struct Node {
  void* member;
  Node* next;
};

// Nodes of one table, cut from chunks that live as long as the table.
class NodePool {
 public:
  // Null when there is no memory.
  Node* take() {
    if (free_ != nullptr) return std::exchange(free_, free_->next);
    if (unused_ == chunkEnd_ && !addChunk()) return nullptr;
    return unused_++;
  }
  void give(Node* node) { node->next = std::exchange(free_, node); }

 private:
  bool addChunk() {
    PBblock chunk(platform().allocate(chunkNodes_ * sizeof(Node)));
    if (!chunk) return false;
    unused_ = static_cast<Node*>(chunk.get());
    chunkEnd_ = unused_ + chunkNodes_;
    chunks_.push_back(std::move(chunk));
    chunkNodes_ = std::min(chunkNodes_ * 2, kMaxChunkNodes);
    return true;
  }

  std::vector<PBblock> chunks_;
  std::size_t chunkNodes_ = kMinChunkNodes;  // of the next chunk
  Node* free_ = nullptr;
  Node* unused_ = nullptr;  // up to chunkEnd_: never taken yet
  Node* chunkEnd_ = nullptr;
};

// The heads of the chains.
using Buckets = std::unique_ptr<Node*[], BlockFree>;

// Invariant of the iteration: what follows is the rest of the chain behind
// `cursorNode` when there is one, then the buckets above `cursorBucket`.
struct Table {
  static constexpr std::int64_t kBeforeFirst = -1;
  static constexpr std::int64_t kPastLast = std::numeric_limits<std::int64_t>::max();

  PBhashCompare compare;
  PBhashFunction hash;
  Buckets buckets;
  std::uint32_t bucketCount;
  int memberCount = 0;
  std::int64_t cursorBucket = kBeforeFirst;
  Node* cursorNode = nullptr;
  NodePool nodes;
};

// The tables by handle - 1, empty places included. Every place below
// `lowestFree` is in use. Left alive at the exit, when tables of static life are
// still destroyed.
struct Registry {
  std::vector<std::unique_ptr<Table>> tables;
  std::size_t lowestFree = 0;
};

Registry& registry() {
  static Registry& instance = *std::make_unique<Registry>().release();
  return instance;
}

Table* tableOf(int handle) {
  const auto& tables = registry().tables;
  if (handle < 1 || static_cast<std::size_t>(handle) > tables.size()) return nullptr;
  return tables[static_cast<std::size_t>(handle) - 1].get();
}

std::uint32_t bucketOf(const Table& table, const void* member, std::uint32_t bucketCount) {
  return static_cast<std::uint32_t>(table.hash(member)) % bucketCount;
}

void putAtHead(Node*& chain, Node* node) { node->next = std::exchange(chain, node); }

void moveNodes(Table& table, Buckets& to, std::uint32_t toCount) {
  for (std::uint32_t from = 0; from < table.bucketCount; ++from) {
    for (Node* node = table.buckets[from]; node != nullptr;) {
      Node* next = node->next;
      const std::uint32_t bucket = bucketOf(table, node->member, toCount);
      putAtHead(to[bucket], node);
      if (node == table.cursorNode) table.cursorBucket = bucket;
      node = next;
    }
  }
}

// false, with the table as it was, when there is no memory.
bool doubleBuckets(Table& table) {
  const std::uint32_t count = table.bucketCount * 2;
  Buckets buckets(static_cast<Node**>(platform().allocate(count * sizeof(Node*))));
  if (!buckets) return false;
  std::fill_n(buckets.get(), count, nullptr);
  moveNodes(table, buckets, count);
  table.buckets = std::move(buckets);
  table.bucketCount = count;
  return true;
}

bool isFull(const Table& table) {
  return static_cast<std::uint32_t>(table.memberCount) >= table.bucketCount;
}

int postNoMemory() {
  PBpostError("HashInsert", kNoMoreMemory);
  return -2;
}

// Takes the node behind `previous` (null: the head) out of its chain. The
// iteration steps back from a node that goes, so that it next hands out the one
// behind it.
void removeNode(Table& table, std::uint32_t bucket, Node* previous) {
  Node*& link = previous != nullptr ? previous->next : table.buckets[bucket];
  Node* node = link;
  link = node->next;
  if (node == table.cursorNode) {
    table.cursorNode = previous;
    if (previous == nullptr) table.cursorBucket = static_cast<std::int64_t>(bucket) - 1;
  }
  table.nodes.give(node);
  --table.memberCount;
}

bool removeFromBucket(Table& table, std::uint32_t bucket, const void* member) {
  Node* previous = nullptr;
  for (Node* node = table.buckets[bucket]; node != nullptr; previous = node, node = node->next) {
    if (node->member != member) continue;
    removeNode(table, bucket, previous);
    return true;
  }
  return false;
}

int chainLength(const Node* node) {
  int length = 0;
  for (; node != nullptr; node = node->next) ++length;
  return length;
}

}  // namespace

int PBhashNew(int bucketCount, PBhashCompare compare, PBhashFunction hash) {
  auto table = std::make_unique<Table>();
  table->compare = compare;
  table->hash = hash;
  table->bucketCount = static_cast<std::uint32_t>(std::max<int>(bucketCount, kMinBuckets));
  table->buckets.reset(static_cast<Node**>(PBcalloc(table->bucketCount, sizeof(Node*))));

  auto& [tables, place] = registry();
  while (place < tables.size() && tables[place]) ++place;
  if (place == tables.size()) tables.resize(tables.size() + kHandlesPerGrowth);
  tables[place] = std::move(table);
  return static_cast<int>(place) + 1;
}

void PBhashDestroy(int handle) {
  if (tableOf(handle) == nullptr) return;
  const auto place = static_cast<std::size_t>(handle) - 1;
  registry().tables[place].reset();
  registry().lowestFree = std::min(registry().lowestFree, place);
}

int PBhashInsert(int handle, void* member) {
  Table* table = tableOf(handle);
  if (table == nullptr) return -2;
  if (isFull(*table) && !doubleBuckets(*table)) return postNoMemory();
  Node* node = table->nodes.take();
  if (node == nullptr) return postNoMemory();
  node->member = member;
  putAtHead(table->buckets[bucketOf(*table, member, table->bucketCount)], node);
  ++table->memberCount;
  return 0;
}

void* PBhashFind(int handle, const void* probe) {
  const Table* table = tableOf(handle);
  if (table == nullptr) return nullptr;
  const Node* node = table->buckets[bucketOf(*table, probe, table->bucketCount)];
  while (node != nullptr && table->compare(probe, node->member) != 0) node = node->next;
  return node != nullptr ? node->member : nullptr;
}

bool PBhashRemove(int handle, const void* member) {
  Table* table = tableOf(handle);
  if (table == nullptr) return false;
  std::uint32_t bucket = bucketOf(*table, member, table->bucketCount);
  for (std::uint32_t step = 0; step < table->bucketCount; ++step) {
    if (removeFromBucket(*table, bucket, member)) return true;
    if (++bucket == table->bucketCount) bucket = 0;
  }
  return false;
}

void* PBhashFirst(int handle) {
  Table* table = tableOf(handle);
  if (table == nullptr) return nullptr;
  table->cursorBucket = Table::kBeforeFirst;
  table->cursorNode = nullptr;
  return PBhashNext(handle);
}

void* PBhashNext(int handle) {
  Table* table = tableOf(handle);
  if (table == nullptr || table->cursorBucket == Table::kPastLast) return nullptr;
  Node* node = table->cursorNode != nullptr ? table->cursorNode->next : nullptr;
  while (node == nullptr && ++table->cursorBucket < table->bucketCount) {
    node = table->buckets[static_cast<std::size_t>(table->cursorBucket)];
  }
  table->cursorNode = node;
  if (node != nullptr) return node->member;
  table->cursorBucket = Table::kPastLast;
  return nullptr;
}

int PBhashCount(int handle) {
  const Table* table = tableOf(handle);
  return table != nullptr ? table->memberCount : -2;
}

void PBhashStats(int handle, const std::function<void(std::string_view text)>& print,
                 const std::function<void(const void* member)>& dump) {
  const Table* table = tableOf(handle);
  if (table == nullptr) return;
  int longest = 0;
  int used = 0;
  for (std::uint32_t bucket = 0; bucket < table->bucketCount; ++bucket) {
    const int length = chainLength(table->buckets[bucket]);
    if (length > 0) ++used;
    if (length <= longest) continue;
    longest = length;
    print(fmt::sprintf("new maximum chain:  Table Entry[%d]; chain length = %d\n", bucket, length));
    for (const Node* node = table->buckets[bucket]; dump && node != nullptr; node = node->next) {
      dump(node->member);
    }
  }
  print(
      fmt::sprintf("\nAverage Chain = %d, Max Chain = %d, Used Entries %d of %d; NumMembers=%d\n\n",
                   used > 0 ? table->memberCount / used : 0, longest, used, table->bucketCount,
                   table->memberCount));
}
