#pragma once

// Names of objects in a database: 32-bit ids with a class and an index, and the
// growing lists of ids and integers that most records hold. Plain values; an empty
// list owns nothing.
//
//   top bit set      class 4 (a subroutine), index in the low 31 bits
//   else             class in the top byte, index in the low 24 bits
//   -1               UNDEF, no object
//
// Scalar signals and groups have class 0: their id is their index. Ids are
// compared and printed as signed numbers.

#include <cstdint>
#include <vector>

using PVBid = std::int32_t;
using PVBidList = std::vector<PVBid>;
using PVBintList = std::vector<std::int32_t>;

inline constexpr PVBid UNDEF = -1;

// Classes whose values stand on disk.
enum PVBclass : int {
  kClassSignal = 0,
  kClassSubroutine = 4,
  kClassScanCell = 5,
  kClassScanRegister = 6,
  kClassScanGroup = 7,
  kClassStateVector = 8,
  kClassScanChain = 9,
  kClassScanRun = 10,
  kClassNoIndex = 18,
};
inline constexpr std::int32_t kMaxIdIndex = 0xFFFFFF;

constexpr PVBid PVBidMake(int idClass, std::uint32_t index) {
  const std::uint32_t bits =
      idClass == kClassSubroutine
          ? 0x80000000U | (index & 0x7FFFFFFFU)
          : (static_cast<std::uint32_t>(idClass) << 24) | (index & 0xFFFFFFU);
  return static_cast<PVBid>(bits);
}
// -1 for UNDEF.
constexpr int PVBidClass(PVBid id) {
  if (id == UNDEF) return -1;
  return id < 0 ? kClassSubroutine : id >> 24;
}
// -1 for UNDEF and for the class without an index.
constexpr std::int32_t PVBidIndex(PVBid id) {
  if (id == UNDEF || PVBidClass(id) == kClassNoIndex) return -1;
  return id < 0 ? id & 0x7FFFFFFF : id & kMaxIdIndex;
}

bool PVBidListContains(const PVBidList& list, PVBid id);
// Removes every entry equal to `id`; how many there were.
int PVBidListRemove(PVBidList& list, PVBid id);
