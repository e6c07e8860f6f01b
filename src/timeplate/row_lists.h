#pragma once

// Which rows use a timeplate, and what is known of its tracks: for each timeplate a list
// of its rows, ascending, and for each of its tracks a memo of which shapes can stand for
// it, two bits a shape.
//
// The memo answers for a track as it stands: a track that is replaced has to be forgotten.

#include <cstdint>
#include <span>

#include "pvb/id.h"

enum Memo : int { NOTSET = 0, MATCH = 1, NOMATCH = 2 };

// Empties the lists and makes room.
void tpRowListsBuild(int timeplateCount, std::int32_t rowCount, int trackCount);
void tpRowListsFree();
// A repeat is dropped.
void tpRowListAdd(std::int32_t row, PVBid timeplate);
// The walk; -1 at the end.
std::int32_t tpRowListFirst(PVBid timeplate);
std::int32_t tpRowListNext(PVBid timeplate);
// All rows of a timeplate at once. Good until the next change of the lists.
std::span<const std::int32_t> tpRowList(PVBid timeplate);
// Rows of `second` become rows of `first`, memos are combined: NOMATCH of either, MATCH
// of both.
void tpRowListMerge(PVBid first, PVBid second);
// The timeplate has a track that is undefined ('?') at an end; for the table.
void tpRowListSetQuestion(PVBid timeplate, bool hasQuestion);

// An id past the end reads as NOTSET and isn't written.
Memo tpMemoGet(PVBid timeplate, int track, int shapeId);
void tpMemoSet(PVBid timeplate, int track, int shapeId, Memo value);
// The track has a new wave.
void tpMemoForget(PVBid timeplate, int track);
struct MemoCounts {
  std::int64_t asked = 0;
  std::int64_t known = 0;
};
MemoCounts tpMemoCounts();

// The table of timeplates by their rows, in the report.
void tpTimeplateFrequency();
