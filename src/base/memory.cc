#include "base/memory.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "base/hash.h"
#include "base/platform.h"

namespace {

constexpr int kRetries = 10;
constexpr int kSecondsBetweenTries = 30;
constexpr int kTrackerBuckets = 1023;

// --- Tries ---------------------------------------------------------------------------

// Set while an allocation is under way; a flag for whoever looks at the process
// in between, not a lock.
bool critical = false;

void waitForMemory() {
  std::fputs("Unable to allocate memory.\n", stderr);
  std::fprintf(stderr, "Sleeping for %d seconds before trying again.\n\n", kSecondsBetweenTries);
  std::fflush(stderr);
  for (int second = 0; second < kSecondsBetweenTries; ++second) platform().sleepOneSecond();
}

[[noreturn]] void giveUp() {
  std::fputs("Still unable to allocate memory.  Exiting.\n\n", stderr);
  std::fflush(stderr);
  critical = false;
  std::exit(1);
}

// errno is kept: the copies of a message's arguments are made while it still
// holds the reason of the message.
template <typename Attempt>
void* withRetries(Attempt attempt) {
  const int savedErrno = errno;
  critical = true;
  void* block = attempt();
  for (int retry = 0; block == nullptr && retry < kRetries; ++retry) {
    waitForMemory();
    block = attempt();
  }
  if (block == nullptr) giveUp();
  critical = false;
  errno = savedErrno;
  return block;
}

std::size_t atLeastOne(std::size_t size) { return std::max<std::size_t>(size, 1); }

// The waits of one operator new: it calls the handler after each failure and
// doesn't tell when it succeeds.
struct NewHandlerSeries {
  int waits = 0;
  std::chrono::steady_clock::time_point lastWaitEnded;
};
NewHandlerSeries newHandlerSeries;

void waitInOperatorNew() {
  using Clock = std::chrono::steady_clock;
  NewHandlerSeries& series = newHandlerSeries;
  if (Clock::now() - series.lastWaitEnded > std::chrono::seconds(1)) series.waits = 0;
  if (series.waits == kRetries) giveUp();
  ++series.waits;
  critical = true;
  waitForMemory();
  critical = false;
  series.lastWaitEnded = Clock::now();
  errno = 0;
}

// --- Tracker -------------------------------------------------------------------------

struct Record {
  const char* file;
  int line;
  std::size_t size;
  const void* block;
};

// The tracker's process-wide state. `table` holds a Record for each block, owned
// by the table's membership; 0 until the first block is tracked.
struct Tracker {
  bool on = false;
  int table = 0;
};
Tracker tracker;

int compareBlocks(const void* probe, const void* member) {
  return static_cast<const Record*>(probe)->block == static_cast<const Record*>(member)->block ? 0
                                                                                               : 1;
}

// Blocks are aligned, so their lowest four bits say nothing.
int hashBlock(const void* member) {
  const auto address = reinterpret_cast<std::uintptr_t>(static_cast<const Record*>(member)->block);
  return static_cast<int>(static_cast<std::uint32_t>(address >> 4));
}

void* track(void* block, std::size_t size, const char* file, int line) {
  if (!tracker.on) return block;
  if (tracker.table == 0) tracker.table = PBhashNew(kTrackerBuckets, compareBlocks, hashBlock);
  PBblock memory(PBmalloc(sizeof(Record)));
  auto* record = new (memory.get()) Record{file, line, size, block};
  if (PBhashInsert(tracker.table, record) == 0) static_cast<void>(memory.release());
  return block;
}

// Whether the block was known.
bool untrack(const void* block) {
  const Record probe{nullptr, 0, 0, block};
  void* record = PBhashFind(tracker.table, &probe);
  if (record == nullptr) return false;
  PBhashRemove(tracker.table, record);
  PBfree(record);
  return true;
}

// The last three parts of a path.
const char* shortPath(const char* path) {
  int slashes = 0;
  for (const char* c = path + std::strlen(path); c != path; --c) {
    if (c[-1] == '/' && ++slashes == 3) return c;
  }
  return path;
}

void printLeaks() {
  std::puts("Memory leaks:");
  std::printf("  %-30.30s     %8s %16s\n", "File:", "Line:", "Amount Allocated:");
  for (void* member = PBhashFirst(tracker.table); member != nullptr;
       member = PBhashNext(tracker.table)) {
    const PBblock memory(member);
    const auto* record = static_cast<const Record*>(member);
    std::printf(" ...%-30.30s  %8d %16zu\n", shortPath(record->file), record->line, record->size);
  }
}

}  // namespace

void* PBmalloc(std::size_t size) {
  return withRetries([&] { return platform().allocate(atLeastOne(size)); });
}

void* PBcalloc(std::size_t count, std::size_t size) {
  if (count == 0 || size == 0) count = size = 1;
  const bool fits = count <= std::numeric_limits<std::size_t>::max() / size;
  void* block = withRetries([&] { return fits ? platform().allocate(count * size) : nullptr; });
  return std::memset(block, 0, count * size);
}

void* PBrealloc(void* block, std::size_t size) {
  return withRetries([&] { return platform().reallocate(block, atLeastOne(size)); });
}

void PBfree(void* block) { platform().release(block); }

void PBinstallNewHandler() { std::set_new_handler(waitInOperatorNew); }

bool PBmemoryCritical() { return critical; }

void* PBmallocTracked(std::size_t size, const char* file, int line) {
  return track(PBmalloc(size), atLeastOne(size), file, line);
}

void* PBcallocTracked(std::size_t count, std::size_t size, const char* file, int line) {
  return track(PBcalloc(count, size), atLeastOne(count * size), file, line);
}

void* PBreallocTracked(void* block, std::size_t size, const char* file, int line) {
  untrack(block);
  return track(PBrealloc(block, size), atLeastOne(size), file, line);
}

void PBfreeTracked(void* block) {
  if (block == nullptr) return;
  if (!untrack(block) && tracker.on) {
    std::printf("Attempting to free unallocated or untracked memory %p \n", block);
    return;
  }
  PBfree(block);
}

void PBsetMemSummary(bool on) { tracker.on = on; }

void PBmemSummary() {
  if (PBhashCount(tracker.table) > 0) {
    printLeaks();
    PBhashDestroy(tracker.table);
    tracker.table = 0;
  } else {
    std::puts(tracker.on ? "No memory Allocated!"
                         : "Memory leakage report disabled: set MemSummary to TRUE to enable.");
  }
  std::fflush(stdout);
}
