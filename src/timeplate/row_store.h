#pragma once

// The rows of a database for the length of an optimization: a temporary file of records
// of one size, and in memory those used last, up to a limit. The database's own rows are
// stale until tpRowStoreClose has written back.
//
// Record i of the file, at offset i * (rowSize + 4), host byte order:
//
//   OFFSET  SIZE     FIELD      MEANING
//      0      4      timeplate  low 16 bits: the row's timeplate; -1: written to fill a gap,
//                               there is no such row yet
//      4    rowSize  data       the row's states
//
// Invariant: a row is in the queue if and only if it is in the table; the queue's head is
// the row not used for longest.
//
// Rows are numbered through all patterns: those of the main pattern by row number, behind
// them those of each subroutine in list order. A row that isn't a cycle (a loop, its end, a
// call, a spacer) has no timeplate here and stays as it is in the database.
//
// A file that can't be made, read or written ends the program: the rows as they were
// rewritten stand nowhere else.

#include <cstdint>
#include <string>

#include "timeplate/tp_run.h"

inline constexpr int kQueueLimit = 50000;  // rows; TPFORCE_QUEUE above 500 replaces it

// Opens over `fileName`, null for a temporary file, and takes in the rows of the
// database. True when usable; true at once when it is open for this database. False after a
// post when the rows can't be read. A file under a name given stays when the store goes.
bool tpRowStoreOpen(int database, const char* fileName);
bool tpRowStoreIsOpen();
std::int32_t tpRowStoreCount();
// The row, null past the last and for one never stored. Good until the next call of tpRowGet
// or tpRowPut (loadPrevious makes none).
TpRow* tpRowGet(std::int32_t row);
// Stores or replaces a row; data of another length are cut or filled with 0.
void tpRowPut(std::int32_t row, const TpRow& record);
// Marks a row got by tpRowGet and edited in place as changed.
void tpRowTouch(const TpRow& row);

enum class RowsTaken { failed, appended, renewed };
// Takes in the rows that the main pattern got at its end since (`appended`, also when there
// are none). Where rows were added that would have numbers in use, all are written back and
// read anew: what was known by row numbers is void then. `failed` after a post.
RowsTaken tpRowStoreRefresh();

// Whether a row begins what may be entered from more than one place (a loop's body, a
// subroutine), or follows it, or is the first of a pattern: nothing is known of the states
// before it. A scan row and the row behind it count as such, because its states stand
// elsewhere.
bool tpRowEntered(std::int32_t row);
// Whether a row may be followed by itself, so that the state before it is also its own.
bool tpRowRepeats(std::int32_t row);
// Whether states of the row stand in scan runs.
bool tpRowScans(std::int32_t row);

// Writes timeplates and states back to the database's rows, where they differ, reports the
// counts when tracing, and removes the file. 0 or -2.
int tpRowStoreClose();
// Removes the file without writing back.
void tpRowStoreDrop();
