#pragma once

// Signals: scalars, buses, groups, multiplexed signals and scan objects of a
// database, held in memory while the section is loaded and kept in the text file
// "pvb.s". Every scalar owns one or two columns of the row data, which is the link
// between a signal and the states of a pattern.
//
// "pvb.s", all numbers decimal:
//
//   SIGNALS version        0 to 3 and 9 to 12 are read; 10, 11 or 12 written
//   nextColumn nextID
//   allGroups              id list: count, an id a line
//   for each signal        the record line (fields by version, see signal_file.cc),
//                          from version 1 on name, alias and description as counted
//                          texts, the lists members, muxChildren (10), lists3,
//                          lists4, lists5, state tables with entries, tracks (11),
//                          bitTracks (12)
//
// Records stand in the order of the id table, which is visible here and in
// PVBsignalInqAll. The section owns its signals: a PVBsignal pointer is good until
// that signal is deleted or the section closed.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/hash.h"
#include "pvb/id.h"

// Types; the values stand on disk.
enum SignalType : std::int32_t {
  MEM_SIGNAL = 0,
  MEM_BUS = 1,
  MEM_GROUP = 2,
  kScanCellType = 3,
  kScanRegisterType = 4,
  kScanGroupType = 5,
  kScanChainType = 6,
  MEM_MUX = 7,
  MEM_MUX_BUS = 8,
};
enum SignalDirection : std::int32_t { INPUT = 0, OUTPUT = 1, BIDIR = 2, kNoDirection = 255 };

inline constexpr std::uint16_t kNoColumn = 65535;
inline constexpr std::uint16_t kNoBound = 65535;

// Ids of the implicit groups.
inline constexpr PVBid kGroupAll = 100000;
inline constexpr PVBid kGroupAllInput = 100001;
inline constexpr PVBid kGroupAllOutput = 100002;
inline constexpr PVBid kGroupAllBidir = 100003;
inline constexpr PVBid kGroupAllMux = 100004;
inline constexpr PVBid kGroupAllScan = 0x7030D40;

// A list of texts and ids, read and written as pairs. `count` and `id` are stored
// as they stand.
struct PVBstateTable {
  std::int32_t count = 0;
  PVBid id = UNDEF;
  std::vector<std::pair<std::optional<std::string>, PVBid>> entries;
};

struct PVBsignal {
  PVBid id = UNDEF;
  std::optional<std::string> name;  // none for a part of a multiplexed signal
  std::int32_t memberCount = 0;     // kept by the caller
  PVBid propList = UNDEF;
  std::int32_t type = MEM_SIGNAL;
  std::uint16_t inColumn = kNoColumn;   // of the row data, driven states
  std::uint16_t outColumn = kNoColumn;  // expected states
  std::int32_t multiTrack = 0;          // columns stand in `tracks`
  PVBintList tracks;
  std::int32_t bitIn = -1;  // columns of the multi-bit model
  std::int32_t bitOut = -1;
  PVBintList bitTracks;
  std::int32_t multiBit = 0;
  std::uint16_t leftIndex = kNoBound;  // bus bounds
  std::uint16_t rightIndex = kNoBound;
  PVBidList members;  // parts of a bus or group, in order; cells of a chain
  PVBidList muxChildren;
  PVBidList lists3;  // ATE pins; on a scan chain input and output signal, -1 for none
  PVBidList lists4;  // DUT pins
  PVBidList lists5;  // pin columns
  std::optional<std::string> alias;
  std::optional<std::string> description;
  std::int32_t variety = 0;
  PVBstateTable inStates;
  PVBstateTable outStates;
  std::int32_t direction = kNoDirection;
  char radix = 'D';

  // Where a part of a multiplexed signal was last found: position in the parent
  // (-2: not known) and the parent, which isn't owned. Never saved.
  std::int32_t muxPosition = -2;
  PVBsignal* muxParent = nullptr;
};

struct PVBsignalData {
  explicit PVBsignalData(int buckets);
  ~PVBsignalData();

  HashTable<PVBsignal> byId;    // owns the records, its destructor frees them
  HashTable<PVBsignal> byName;  // the same records that have a name
  PVBidList allGroups;
  std::int32_t nextColumn = 0;  // the next free column of the row data
  std::int32_t nextID = 1;
  bool changed = false;  // since load or save, through this module's functions
};

// --- The section ---------------------------------------------------------------------

// Reads "pvb.s" if it is there and adds what is missing of the implicit groups.
int SignalDataCreate(int database, int rowWidth);
// To `directory` (empty: the database's own).
int SignalDataWrite(int database, const std::string& directory);
int SignalDataClose(int database);
// Marks which scalars can be reached from "ALL"; the next write keeps only those.
void PVBsignalRenumber(int database);

// --- Records -------------------------------------------------------------------------

std::unique_ptr<PVBsignal> PVBsignalNew();
// Deep, with id and property list UNDEF.
std::unique_ptr<PVBsignal> PVBsignalCopy(const PVBsignal& signal);
// Enters a signal under a new id and gives a scalar its columns: the id, or -1.
PVBid PVBsignalInsert(int database, std::unique_ptr<PVBsignal> signal);
// Enters a signal under the id that it has (for readers of whole databases); -1
// when id or name is in use.
PVBid PVBsignalInsertAs(int database, std::unique_ptr<PVBsignal> signal);
// Inserts, expands buses, joins the implicit groups.
PVBid PVBsignalAdd(int database, std::unique_ptr<PVBsignal> signal);
int PVBsignalExpand(int database, PVBsignal& bus);
int PVBsignalDelete(int database, PVBid id);
int PVBsignalRename(int database, PVBid id, std::string_view name);
// Signals and groups only; scan objects and "ALLSCAN" through the second.
PVBsignal* PVBsignalInqByID(int database, PVBid id);
PVBsignal* PVBobjectInqByID(int database, PVBid id);
PVBsignal* PVBsignalInqByName(int database, std::string_view name);
// Ids of all, in the id table's order. Good until the next call.
const PVBidList& PVBsignalInqAll(int database);
bool PVBisImplicit(int database, PVBid id);
// Enters a scan cell, register, group or chain (by its type) under a new id of its
// class: the id, or -1.
PVBid PVBscanObjectInsert(int database, std::unique_ptr<PVBsignal> object);

bool PVBsignalListContains(int database, const PVBidList& list, PVBid id);
// The scalars of a list, buses and groups taken apart. Good until the next call.
const PVBidList& PVBsignalListToScalars(int database, const PVBidList& list);

// --- Columns and directions ----------------------------------------------------------

int PVBsignalColumns(const PVBsignal& signal);
// The column of track 1, 2, ...; -1 for none.
std::int32_t PVBsignalColumn(const PVBsignal& signal, int track);
int PVBsignalAllocColumns(int database, PVBsignal& signal);
int PVBsignalAllocTracks(int database, PVBsignal& signal, int n);
int PVBsignalAllocBits(int database, PVBsignal& signal, int n);
int PVBsetVariety(int database, PVBid id, std::int32_t variety);
void PVBsetDirection(PVBsignal& signal, std::int32_t direction);
int PVBmoveToDirectionGroup(int database, PVBsignal& signal, std::int32_t oldDirection);
int PVBmuxResolve(int database, PVBsignal& signal);

// Words for reports; "UNKNOWN" and "undefined" for what isn't in the tables.
const char* PVBsignalTypeName(std::int32_t type);
const char* PVBradixName(std::int32_t radix);
