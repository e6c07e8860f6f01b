#pragma once

// Properties: numbered names with a text value, on signals, timeplates, rows or
// the database. Objects hold only the id of a list. Lists are blocks of "pvb.l",
// records and values stand in the append-only "pvb.v"; a deletion marks a record
// dead, and dead ones are squeezed out when the section is closed.
//
// List block, tag typePropList, 8 bytes; its number is the list's id:
//
//   OFFSET  SIZE  FIELD  MEANING
//      0      4   head   offset in "pvb.v" of the newest record, -1 for none
//      4      1   inUse  1
//      5      3          0
//
// "pvb.v": u32 magic 0xAAFAF0AF, u32 format 1, then records and values as they
// were written. A file without the magic, or of a format above 1, has records of
// the old form and begins with one.
//
//   RECORD, tag typeProperty, 20 bytes               OLD, tag typeoldProperty, 16
//      0      4   next    offset of the next record;    the same
//                         -1 or its own offset ends
//      4      4   key     the property's number         the same
//      8      4   value   offset of the value, or -1    the same
//     12      2           0                             length, signed
//     14      1   valid   1; 0 is dead                  valid
//     15      1           0
//     16      4   length  of the value with its zero byte

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_copy.h"
#include "pvb/id.h"

struct PVBproperty {
  std::int32_t key = 0;
  std::optional<std::string> value;
};
inline constexpr std::int32_t kAnyKey = -1;

struct PVBpropertyData {
  PVBpropertyData();
  ~PVBpropertyData();

  int lists = -1;   // handle of the block file "pvb.l"
  int values = -1;  // descriptor of "pvb.v"
  std::int32_t format = 1;
  // Blocks below firstFreeList are in use or stand in freedLists, a heap with the
  // lowest on top.
  std::uint32_t firstFreeList = 0;
  std::vector<std::uint32_t> freedLists;
  std::string pathOfValues;
  std::uint32_t valuesEnd = 0;  // where the next record goes
  // The heads before the records that may not have reached the disk: when these are
  // lost, the lists keep what they had.
  struct OldHead {
    PVBid list;
    std::uint32_t head;
  };
  std::vector<OldHead> unflushed;
  // In a database not writable: the values are the database's own, open for reading,
  // until propOwnValues. Then, and where there are none, they stand on these, as do
  // lists of the old form or of none.
  bool borrowedValues = false;
  TempFile listsCopy;
  TempFile valuesCopy;
  bool dirty = false;  // something changed
  bool needRewrite = false;
  bool hasGarbage = false;  // a record died
};

// Both files exist from then on; those of the old form are rewritten.
int PVBpropertyOpen(int database, int numBuffers);
// Dead records go at the close, or at once from a copy in another directory.
int PVBpropertySave(int database, const std::string& directory);
// Rewrites the values when lists were made or records have died. A rewrite that
// fails leaves the files as they were, and its posts are printed at once.
int PVBpropertyClose(int database);
// Rewrites the values of a database directory's "pvb.l" and "pvb.v" without the
// dead records, through a file at `tempPath`. The order of each list reverses. The
// old pair stands until both new files are whole.
int stripGarbage(const std::string& directory, const std::string& tempPath);

// The list's id, or -1.
PVBid PVBpropListNew(int database);
void PVBpropListFree(int database, PVBid list);
// Appends a record. When it can't be written the list is empty afterwards.
int PVBputProp(int database, PVBid list, const PVBproperty& property);
// Removes what has the key and, when there is a value, the same value.
int PVBdelProp(int database, PVBid list, const PVBproperty& property);
// The live records, newest first; one walk at a time in the process. The result
// is good until the next step; null at the end.
const PVBproperty* PVBpropInqFirst(int database, PVBid list);
const PVBproperty* PVBpropInqNext(int database);
const PVBproperty* PVBpropInqFirstKey(int database, PVBid list, std::int32_t key);
const PVBproperty* PVBpropInqNextKey(int database, std::int32_t key);
// The newest value under a key; none when there is no such property.
std::optional<std::string> PVBpropGet(int database, PVBid list, std::int32_t key);
// A new list with copies of all live records, in the same order; -1 on failure.
PVBid PVBpropListDup(int database, PVBid list);
// Whether copied kinds stay with their values, or run against them: the first kind then
// goes with the last value.
enum class PropKinds { kept, reversed };
// Adds copies of all live records of a list, of another database as well; the copied
// values read in the same order. A record that can't be read is told on standard error
// and left out. -2 after a post when one can't be written.
int PVBpropListAppend(int database, PVBid list, int fromDatabase, PVBid fromList, PropKinds kinds);
// A new list with copies of all live records of a list of another database, in the same
// order; -1 after a post when it can't be written.
PVBid PVBpropListCarry(int database, int fromDatabase, PVBid fromList);
// Whether `list` is a list in use.
bool PVBpropListExists(int database, PVBid list);
// Whether nothing was put into the list yet, what is dead by now included. No record is
// read, so that what waits to be written may wait on.
bool PVBpropListIsUnused(int database, PVBid list);
