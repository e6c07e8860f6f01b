#pragma once

// Rows of a pattern: one block of "pvb.pd" each, its number is the row's id. A
// PVBrow is the block itself in the host's byte order, so a pointer to one is a
// reserved block: good until it is given back by PVBrowFree, and no more of them
// may be held at once than the database has buffers. RowHandle gives back by itself.
// Holds are counted: a row got twice is given back twice, and one that is deleted
// while it is held stays readable until then.
//
// Block, tag typePVBrow, size 88 + (w + 1) / 2 for a row width w (104 up to 32):
//
//   OFFSET  SIZE  FIELD            MEANING
//      0      4   type             RowType
//      4      4   id               its own block number
//      8      2   repeat16         a repeat or address value, 65535 for none
//     10      2   timeplate        index, 65535 for none
//     12      4   link             loop: root node of the body; call: subroutine
//                                  index; scan: first scan run, -1 for none
//     16      8   startTime        0
//     24      4   count            repeat count, at least 1
//     28      4   spacerAddresses  spacer: addresses used
//     32      4   tag              property list of the row, -1 for none
//     36      8   endTime          0
//     44      8   spacerTime       spacer: its length
//     52     36                    0
//     88          states           two columns a byte, the even column in the low
//                                  half; in a loop, its end and a call: the comment,
//                                  text ended by a zero byte

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "base/time.h"
#include "pvb/id.h"

struct PVBsignal;

// Types; the values stand on disk.
enum RowType : std::uint32_t {
  ROW_SUBR_DEF = 0,
  ROW_END_DEF = 1,
  ROW_LOOP = 2,
  ROW_END_LOOP = 3,
  ROW_SUBR_CALL = 4,
  ROW_LITERAL = 5,
  ROW_SPACER = 6,
  ROW_SCAN = 7,
  ROW_MATCH = 8,
  ROW_PVBPOC = 9,
};
// "ROW_LITERAL"; "UNKNOWN".
const char* PVBrowTypeName(std::uint32_t type);

inline constexpr std::uint16_t kNoRepeat16 = 65535;
inline constexpr std::uint32_t kNoLink = 0xFFFFFFFF;

struct PVBrow {
  std::uint32_t type;
  std::uint32_t id;
  std::uint16_t repeat16;
  std::uint16_t timeplate;
  std::uint32_t link;
  TIME startTime;
  std::uint32_t count;
  std::uint32_t spacerAddresses;
  std::int32_t tag;
  TIME endTime;
  TIME spacerTime;
  std::uint8_t unused[36];

  // Behind the record in its block; how many bytes: PVBrowDataSize.
  std::uint8_t* states() { return reinterpret_cast<std::uint8_t*>(this) + 88; }
  const std::uint8_t* states() const { return reinterpret_cast<const std::uint8_t*>(this) + 88; }
};
inline constexpr std::size_t kRowStatesOffset = 88;
static_assert(sizeof(PVBrow) == kRowStatesOffset && offsetof(PVBrow, spacerTime) == 44);

// Code of a column in the states of a row, 0 to 15, and its setting.
inline int rowCode(const std::uint8_t* states, std::uint32_t column) {
  return (states[column / 2] >> (column % 2 * 4)) & 15;
}
inline void setRowCode(std::uint8_t* states, std::uint32_t column, int code) {
  const unsigned shift = column % 2 * 4;
  std::uint8_t& byte = states[column / 2];
  byte =
      static_cast<std::uint8_t>((byte & ~(15U << shift)) | (static_cast<unsigned>(code) << shift));
}

// Bytes of states in a row of the database: 16 up to 32 columns, else (w + 1) / 2.
int PVBrowDataSize(int database);
// The same for a row width.
constexpr int rowDataSize(int rowWidth) { return rowWidth <= 32 ? 16 : (rowWidth + 1) / 2; }

// --- Making and giving back ----------------------------------------------------------

// A new literal row, reserved: no timeplate, no link, no properties, count 1, all
// states '-'. Null after a post when there is no block.
PVBrow* PVBpatternNew(int database);
// Releases `row` first.
PVBrow* PVBpatternNewAfter(int database, PVBrow* row);
// A new row with the same fields and states. What hangs on the row is never shared:
// the copy has copies of the scan runs and properties, and a loop's has no body.
PVBrow* PVBpatternRowCopy(int database, const PVBrow& row);
// The row of an id, reserved; null when there is none.
PVBrow* PVBrowGet(int database, std::uint32_t id);
// Marks the row's block as changed.
void PVBrowDirty(int database, PVBrow& row);
// Releases the block; clears the states of the chains of a scan row first.
void PVBrowFree(int database, PVBrow* row);

// A reserved row that gives itself back.
class RowHandle {
 public:
  RowHandle() = default;
  RowHandle(int database, PVBrow* row) : database_(database), row_(row) {}
  ~RowHandle() { reset(); }
  RowHandle(RowHandle&& other) noexcept
      : database_(other.database_), row_(std::exchange(other.row_, nullptr)) {}
  RowHandle& operator=(RowHandle&& other) noexcept {
    std::swap(database_, other.database_);
    std::swap(row_, other.row_);
    return *this;
  }

  explicit operator bool() const { return row_ != nullptr; }
  PVBrow* operator->() const { return row_; }
  PVBrow& operator*() const { return *row_; }
  PVBrow* get() const { return row_; }
  // Gives the hold to the caller.
  PVBrow* detach() { return std::exchange(row_, nullptr); }
  void reset() {
    if (row_ != nullptr) PVBrowFree(database_, row_);
    row_ = nullptr;
  }

 private:
  int database_ = -1;
  PVBrow* row_ = nullptr;
};

// --- States and comments -------------------------------------------------------------

// The state of a signal: a scalar of the classic model has the code of its input
// column in the low half and that of its output column in the high half. '-' (45)
// for a signal without columns.
int PVBrowGetState(int database, const PVBrow& row, const PVBsignal& signal);
// 0, or -2 with status 41 for a value that doesn't fit.
int PVBrowSetState(int database, PVBrow& row, const PVBsignal& signal, int value);
void PVBrowClearStates(int database, PVBrow& row);
void PVBrowCopyStates(int database, PVBrow& to, const PVBrow& from);
std::span<std::uint8_t> PVBrowStates(int database, PVBrow& row);
// Of loop, end and call rows; a text that is too long is cut.
std::string_view PVBrowComment(int database, const PVBrow& row);
void PVBrowSetComment(int database, PVBrow& row, std::string_view comment);
