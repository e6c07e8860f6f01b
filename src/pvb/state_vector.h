#pragma once

// State vectors: the long runs of states that scan rows shift through chains,
// named and packed in the variable page file "pvb.st". A cell's place in a vector is
// the index of its id, so one vector can serve any number of chains. Two cells a
// byte, the even one in the low half: 0 '-', 1 '0', 2 '1', 3 'Z', 4 'X'; what was
// never set reads as 'X'.
//
//   PAGE   CONTENT
//     0    tag typeScanStateHeader: u32 magic 0xAFAF0F0F, u32 format (at most 1),
//          u32 packedCount, u32 namesDirty
//     1    tag typeInt: u32 number of runs, then per run u32 first page id, u32
//          count: which pages are named
//     2    their names in page order, each with a final zero byte; a lone zero byte
//          when there are none
//   others a vector each: name with a final zero byte (a lone one for no name), the
//          states packed, the end mark
//
// Packed states: a byte stands for itself; more than 4 equal bytes in a row (up to
// 65535) are the byte, a zero byte, and the length less one, low byte first. End
// mark: 0, 0xFF, 0xFF, then the vector's value word, low byte first. The id of a
// vector is 0x08000000 | page.
//
// A vector has at most as many cells as ids have indices, which bounds what a page
// can expand to.
//
// The database's own file is only read. The first change makes a copy in the
// temporary directory, and a save puts that in place of the file, so what isn't saved
// leaves it as it was. `namesDirty` in a file says that pages 1 and 2 are behind the
// vectors: the names are then read from these.
//
// A call that fails sets the status of the database; a failure of the file is posted
// too when it is opened or saved. Unpacked vectors are cached,
// MVK_NUM_STATES_BUFFERED of them (64).

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pvb/id.h"

struct PVBscanData;

// What PVBstateVectorGet gives when it fails.
inline constexpr int kVectorFailure = 6;

int PVBscanOpen(int database);
// Nothing into the database's own directory when that isn't writable.
int PVBscanSave(int database, const std::string& directory);
// A writable database with changes is saved; `unsaved` writes nothing.
int PVBscanClose(int database, bool unsaved = false);
bool PVBscanChanged(int database);

// A new vector without cells; an empty name is none. The id, or -1.
PVBid PVBstateVectorNew(int database, std::string_view name);
PVBid PVBstateVectorByName(int database, std::string_view name);
std::string PVBstateVectorName(int database, PVBid vector);
int PVBstateVectorDelete(int database, PVBid vector);
// The lowest vector above `vector` (UNDEF: the first), UNDEF at the end.
PVBid PVBstateVectorNext(int database, PVBid vector);
bool PVBstateVectorExists(int database, PVBid vector);
// The code of a cell, or kVectorFailure.
int PVBstateVectorGet(int database, PVBid vector, std::uint32_t cell);
// `code` is 1 to 4; a cell past the end makes the vector longer.
int PVBstateVectorSet(int database, PVBid vector, std::uint32_t cell, int code);
// All cells as stored, two a byte; null with a status on failure. Good until the
// next call of this module.
const std::string* PVBstateVectorBytes(int database, PVBid vector);
// No byte may be zero, no code above 4.
int PVBstateVectorSetBytes(int database, PVBid vector, std::string_view bytes);
std::uint32_t PVBstateVectorValue(int database, PVBid vector);
int PVBstateVectorSetValue(int database, PVBid vector, std::uint32_t value);
// The cells of a bus, register or chain of at most 32 as one value, the first member
// the highest bit: digits in a radix (0 binary, 1 octal, 2 decimal, 3 hexadecimal),
// the code's letter when all have the same other code, else "?". -2 with a status.
int PVBstateVectorFormat(int database, PVBid vector, PVBid id, int radix, std::string& text);
// The reverse, in the radix of the bus itself; "X" and "x" make all unknown.
int PVBstateVectorParse(int database, PVBid vector, PVBid id, std::string_view text);
// Replaces runs of more than 4 'X' at either end of a name of more than 5 characters
// by "X<n>"; not when USE_ALLSCAN is set.
void PVBscanNameCompress(std::string& text);
