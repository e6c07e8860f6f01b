#pragma once

// Pins and columns: tester channels (ATE pins), package pins (DUT pins) and
// pattern columns of a tester format, with their cross references to signals, in
// the text file "pvb.p" (layout in pin_file.cc). The section owns its records: a
// pointer is good until that record is deleted or the section closed.
//
// The lists of a record are its caller's: entering a record adds nothing to the
// lists of others, deleting one takes it out of all of them.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "base/hash.h"
#include "pvb/id.h"

struct PVBpin {
  PVBid id = UNDEF;
  std::optional<std::string> name;
  std::int32_t number = -1;         // of `node`, when that is a plain number; never stored
  std::optional<std::string> node;  // channel text
  std::int32_t pinClass = -1;
  PVBidList linkedPins;  // pins of the other kind tied to this one
  PVBidList signals;
  PVBidList columns;
  PVBidList spare;
  PVBid propList = UNDEF;
  std::int32_t flags = 0;
  std::optional<std::string> description;
};

struct PVBcolumn {
  PVBid id = UNDEF;
  std::int32_t number = -1;
  std::uint8_t flag = 255;
  PVBidList atePins;
  PVBidList dutPins;
  PVBidList signals;
};

enum class PinKind { ate, dut };

struct PVBpinData {
  explicit PVBpinData(int buckets);
  ~PVBpinData();
  PVBpinData(const PVBpinData&) = delete;
  PVBpinData& operator=(const PVBpinData&) = delete;

  HashTable<PVBpin> atePins;  // by id; these three own the records
  HashTable<PVBpin> dutPins;
  HashTable<PVBcolumn> columns;
  HashTable<PVBpin> ateByName;
  HashTable<PVBpin> dutByName;
  HashTable<PVBpin> ateByNode;
  HashTable<PVBpin> dutByNode;
  HashTable<PVBcolumn> columnsByNumber;  // those that have a number
  std::int32_t nextID = 1;
  std::int32_t atePinCount = 0;
  bool changed = false;
};

int PVBpinsOpen(int database);
int PVBpinSave(int database, const std::string& directory);
int PVBpinsClose(int database);

std::unique_ptr<PVBpin> PVBpinNew();
std::unique_ptr<PVBcolumn> PVBcolumnNew();
// Enter a record under the next free id: the id, or -1.
PVBid PVBatePinInsert(int database, std::unique_ptr<PVBpin> pin);
PVBid PVBdutPinInsert(int database, std::unique_ptr<PVBpin> pin);
PVBid PVBcolumnInsert(int database, std::unique_ptr<PVBcolumn> column);
// Enter a record under the id that it has; -1 when that is in use.
PVBid PVBpinInsertAs(int database, PinKind kind, std::unique_ptr<PVBpin> pin);
PVBid PVBcolumnInsertAs(int database, std::unique_ptr<PVBcolumn> column);
PVBpin* PVBatePinInqByID(int database, PVBid id);
PVBpin* PVBdutPinInqByID(int database, PVBid id);
PVBcolumn* PVBcolumnInqByID(int database, PVBid id);
PVBpin* PVBatePinInqByName(int database, std::string_view name);
PVBpin* PVBdutPinInqByName(int database, std::string_view name);
PVBpin* PVBatePinInqByNode(int database, std::string_view node);
PVBpin* PVBdutPinInqByNode(int database, std::string_view node);
PVBcolumn* PVBcolumnInqByNumber(int database, std::int32_t number);
// Remove an object and every reference to it.
int PVBatePinDelete(int database, PVBid id);
int PVBdutPinDelete(int database, PVBid id);
int PVBcolumnDelete(int database, PVBid id);
// Takes signals that are no more out of the lists of all pins and columns.
void PVBpinsForgetSignals(int database, const std::unordered_set<PVBid>& signals);
// The walks, in the order of the id tables.
PVBpin* PVBatePinFirst(int database);
PVBpin* PVBatePinNext(int database);
PVBpin* PVBdutPinFirst(int database);
PVBpin* PVBdutPinNext(int database);
PVBcolumn* PVBcolumnFirst(int database);
PVBcolumn* PVBcolumnNext(int database);
