#pragma once

// Memory that never runs out as far as the caller can see. An allocation that
// fails is announced on standard error and tried again, ten times half a minute
// apart; when there is still none the process ends with code 1. So no caller
// tests for null.
//
// Blocks belong to the caller: PBfree gives one back, PBblock does so by itself.
// errno is left as it was.
//
// The tracking forms also note file and line of each block while the tracker is
// on, for a report of what was never given back. It is off at the start. The
// tracker takes its own memory through the plain forms, so it never sees itself.

#include <cstddef>
#include <memory>

// A size of 0 counts as 1. For PBcalloc a 0 in either argument makes both 1; a
// product that doesn't fit is an allocation that fails at every try.
void* PBmalloc(std::size_t size);
void* PBcalloc(std::size_t count, std::size_t size);
void* PBrealloc(void* block, std::size_t size);
void PBfree(void* block);

struct BlockFree {
  void operator()(void* block) const { PBfree(block); }
};
// A block that gives itself back.
using PBblock = std::unique_ptr<void, BlockFree>;

// Gives operator new the same tries, texts and end. A series of tries is told
// from the next one by time: a failure within a second after a wait belongs to
// the wait's series, because operator new tries again at once.
void PBinstallNewHandler();

// Whether an allocation is under way, waits between its tries included.
bool PBmemoryCritical();

// --- Tracker -------------------------------------------------------------------------

// `file` is kept as it is: pass a constant text.
void* PBmallocTracked(std::size_t size, const char* file, int line);
void* PBcallocTracked(std::size_t count, std::size_t size, const char* file, int line);
void* PBreallocTracked(void* block, std::size_t size, const char* file, int line);
// While the tracker is on, a block that it doesn't know is reported on standard
// output and left alone, since it may have been given back before.
void PBfreeTracked(void* block);
void PBsetMemSummary(bool on);
// Prints the tracked blocks still held on standard output and forgets them; the
// blocks stay.
void PBmemSummary();
