#pragma once

// The rows of a database for the length of an optimization: a temporary file of records
// of one size, and in memory those used last, up to a limit. The database's own rows are
// stale until tpRowStoreClose has written back.
//
// Record i of the file, at offset i * (rowSize + 4), host byte order:
//
//   OFFSET  SIZE     FIELD      MEANING
//      0      4      timeplate  low 16 bits: the row's timeplate; -1: written to fill a gap
//      4    rowSize  data       the row's states
//
// Invariant: a row is in the queue if and only if it is in the table; the queue's head is
// the row not used for longest.
//
// Rows are numbered through all patterns: those of the main pattern by row number, behind
// them those of each subroutine in list order.

#include <cstdint>
#include <string>

#include "timeplate/tp_run.h"

inline constexpr int kQueueLimit = 50000;  // rows; TPFORCE_QUEUE above 500 replaces it

// Opens over `fileName`, null for a temporary file, and takes in the rows of the
// database. True when usable; true at once when it is open for this database. A file that
// can't be made or written ends the program.
bool tpRowStoreOpen(int database, const char* fileName);
bool tpRowStoreIsOpen();
std::int32_t tpRowStoreCount();
// The row, null past the last. Good until the next call of tpRowGet or tpRowPut.
TpRow* tpRowGet(std::int32_t row);
// Stores or replaces a row.
void tpRowPut(std::int32_t row, const TpRow& record);
// Marks a row got by tpRowGet and edited in place as changed.
void tpRowTouch(const TpRow& row);
// Whether a row begins what may be entered from more than one place (a loop's body, a
// subroutine), or follows it: nothing is known of the states before it.
bool tpRowEntered(std::int32_t row);
// Writes timeplates and states back to the database's rows, reports the counts when
// tracing, and removes the file. 0 or -2.
int tpRowStoreClose();
// Removes the file without writing back.
void tpRowStoreDrop();
