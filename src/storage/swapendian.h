#pragma once

// Byte order by type tag. Numbers stand on disk most significant byte first; in
// memory they are the host's, which is least significant byte first. Every block
// or record has a tag that tells where its numbers are; one table, in the source,
// holds the layout of each tag. The tags are part of the file formats: their
// values never change.

#include <cstddef>
#include <cstdint>
#include <cstdio>

enum TypeTag : int {
  typeNoStruct = 0,
  typePVBnode = 1,
  typeoldPVBnode1 = 2,
  typeoldPVBnode2 = 3,
  typeoldPVBnode3 = 4,
  typeoldPVBnode4 = 5,
  typePVBrow = 6,
  typePVBscanRun = 7,
  typePropList = 8,
  typePVBheader = 9,
  typePVBstatus = 10,
  typePVBid = 11,
  typeOldFileHeader = 12,
  typeNewFileHeader = 13,
  typeFreeList = 14,
  typeScanStateHeader = 15,
  typePVBwaveSet = 16,
  typeVPageHeader = 17,
  typeoldProperty = 18,
  typeProperty = 19,
  typePVBfileOffset = 20,
  typeoff_t = 21,
  typeIndexPage = 23,
  typeIndexPageWrite = 24,
  typeSEFstate = 25,
  typePVBregType = 26,
  typePVBtgType = 27,
  typePVBtable = 28,
  typekeyHeader = 29,
  typetemplate_t = 30,
  typetgdata_t = 31,
  typeBool = 32,
  typeTime = 33,
  typeInt = 34,
  typeShort = 35,
  typeLong = 36,
  typeDouble = 37,
  typeLongLong = 38,
};

// Reverses every number of `data` in place; what the layout says lies past
// `length` bytes is left alone. 1, or 0 for null.
int SwapBuffer(void* data, int tag, std::size_t length);
// The tag by which data are turned into the file's order: that of a layout with a
// count says where the count is read before it is reversed.
int SwapTagForWrite(int tag);
// Writes a swapped copy with one write; typeIndexPage is taken as
// typeIndexPageWrite. 1 when all was written; a length of 0 is.
int SwapWrite(const void* data, std::size_t length, int tag, FILE* stream);
// Reads count items of `length` bytes and swaps each. 1 when all was there.
int SwapRead(void* data, std::size_t length, std::size_t count, FILE* stream, int tag);
// Reverses a value of 1, 2, 4 or 8 bytes; any other width is a failed check.
void SwapValue(void* data, int width);
// "typePVBnode"; "unknownType" outside 0 to 38.
const char* SwapTagName(int tag);
