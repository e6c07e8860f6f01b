#pragma once

// A hash table of members owned by the caller, known by an integer handle of 1
// or above. Its order can be seen on disk and in reports, so it is fixed:
//
//   - the bucket of a member is its hash, taken unsigned, modulo the buckets;
//   - a new member goes to the head of its bucket's chain, also when one of
//     equal key is there, so the newest of equal key is found first;
//   - before an insert into a table with as many members as buckets the buckets
//     are doubled: the old buckets are walked upwards, each chain from its head,
//     and each member goes to the head of its new chain;
//   - an iteration walks the buckets upwards, each chain from its head.
//
// A table carries one iteration at a time. It may be changed meanwhile: removing
// the member just handed out (or any other) doesn't disturb what follows. An
// inserted member may be handed out or not; an insert that doubles the buckets
// makes the iteration go on from its last member's new place, so members may
// come again or be left out.
//
// Failure: a handle that isn't in use gives null, false or -2. A member that
// can't be stored for want of memory is told by -2 and a post of code 82.

#include <functional>
#include <string_view>
#include <utility>

// 0 when the member has the key of the probe.
using PBhashCompare = int (*)(const void* probe, const void* member);
using PBhashFunction = int (*)(const void* member);

// A new table with at least 8 buckets; its handle is the lowest one free.
int PBhashNew(int bucketCount, PBhashCompare compare, PBhashFunction hash);
// Frees the table, not its members, and the handle for reuse.
void PBhashDestroy(int handle);
// `member` isn't null. 0, or -2.
int PBhashInsert(int handle, void* member);
// The first member whose compare with `probe` gives 0, or null.
void* PBhashFind(int handle, const void* probe);
// Removes by address. The search starts in the member's bucket and goes round
// all buckets, so that a member whose key was changed meanwhile is found too.
// Whether it was there.
bool PBhashRemove(int handle, const void* member);
// The iteration; null at the end, and from then on until the next first.
void* PBhashFirst(int handle);
void* PBhashNext(int handle);
// Members, or -2.
int PBhashCount(int handle);

// Prints how the members are spread. `dump`, when given, is called with the
// members of each chain that is printed as a new maximum.
void PBhashStats(int handle, const std::function<void(std::string_view text)>& print,
                 const std::function<void(const void* member)>& dump = {});

// A table that is destroyed with its owner; the members stay the caller's.
template <typename T>
class HashTable {
 public:
  HashTable(int bucketCount, PBhashCompare compare, PBhashFunction hash)
      : handle_(PBhashNew(bucketCount, compare, hash)) {}
  ~HashTable() { PBhashDestroy(handle_); }
  HashTable(HashTable&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  HashTable& operator=(HashTable&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }

  [[nodiscard]] int insert(T* member) { return PBhashInsert(handle_, member); }
  T* find(const T& probe) const { return static_cast<T*>(PBhashFind(handle_, &probe)); }
  bool remove(const T* member) { return PBhashRemove(handle_, member); }
  int count() const { return PBhashCount(handle_); }

  // Calls `visit` with each member in the table's order; it may remove its
  // member. This is the table's one iteration: calls don't nest.
  template <typename Visit>
  void forEach(Visit visit) const {
    for (void* member = PBhashFirst(handle_); member != nullptr; member = PBhashNext(handle_)) {
      visit(*static_cast<T*>(member));
    }
  }

  int handle() const { return handle_; }

 private:
  int handle_;  // 0 after a move
};
