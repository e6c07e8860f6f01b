#pragma once

// Which rows use a timeplate, and what is known of its tracks: for each timeplate a list
// of its rows, ascending, and for each of its tracks a memo of which shapes can stand for
// it, two bits a shape.
//
// The memo answers for a track as it stands, with the rows that its timeplate has: a track
// that is replaced has to be forgotten, and a row that is added makes an end of each MATCH.
// It is kept for tracks of one signal only, because it can't tell signals apart.

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
// of both. Where a track number stands for another signal in each of the two, nothing is
// combined and the MATCHes of `first` go.
void tpRowListMerge(PVBid first, PVBid second);
// The timeplate has a track that is undefined ('?') at an end; for the table.
void tpRowListSetQuestion(PVBid timeplate, bool hasQuestion);
// The timeplates that have a list, in the order of their slots.
PVBidList tpRowListOwners();

// An id past the end reads as NOTSET and isn't written.
Memo tpMemoGet(PVBid timeplate, int track, int shapeId);
void tpMemoSet(PVBid timeplate, int track, int shapeId, Memo value);
// The track has a new wave.
void tpMemoForget(PVBid timeplate, int track);
// Its tracks have new numbers.
void tpMemoForgetAll(PVBid timeplate);
struct MemoCounts {
  std::int64_t asked = 0;
  std::int64_t known = 0;
};
MemoCounts tpMemoCounts();

// The table of timeplates by their rows, in the report.
void tpTimeplateFrequency();
