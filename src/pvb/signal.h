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
//
// A call that fails gives -1, -2, null or false and leaves a code in the status of
// the database; refused names and files that can't be read or written are posted.
// Ids in the lists of a record are as they were stored: they may name nothing, or
// lead round in circles. What walks them here ends all the same.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
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
inline constexpr std::int32_t kMuxUnknown = -2;
inline constexpr std::int32_t kMaxColumns = kNoColumn;  // of a database: 0 to 65534
inline constexpr std::int32_t kMaxTracks = 10000;       // of one signal

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
  // (kMuxUnknown: none) and the parent, which isn't owned. Never saved.
  std::int32_t muxPosition = kMuxUnknown;
  PVBsignal* muxParent = nullptr;
};

struct PVBsignalData {
  explicit PVBsignalData(int buckets);
  ~PVBsignalData();
  PVBsignalData(const PVBsignalData&) = delete;
  PVBsignalData& operator=(const PVBsignalData&) = delete;

  HashTable<PVBsignal> byId;    // owns the records, its destructor frees them
  HashTable<PVBsignal> byName;  // the same records that have a name
  PVBidList allGroups;
  std::int32_t nextColumn = 0;  // the next free column of the row data
  std::int32_t nextID = 1;
  std::array<std::int32_t, 4> nextScanIndex = {1, 1, 1, 1};  // cell, register, group, chain
  bool changed = false;  // since load or save, through this module's functions

  // Scalars that the next write leaves out; found by PVBsignalRenumber.
  std::unordered_set<PVBid> unused;

  // Caches, good until the next change through this module's functions.
  bool idsKnown = false;
  PVBidList signalIds;
  PVBidList objectIds;
  bool muxPartsKnown = false;
  PVBidList scalars;  // the last result of PVBsignalListToScalars
};

// --- The section ---------------------------------------------------------------------

// Reads "pvb.s" if it is there and adds what is missing of the implicit groups.
int SignalDataCreate(int database, int rowWidth);
// To `directory` (empty: the database's own).
int SignalDataWrite(int database, const std::string& directory);
int SignalDataClose(int database);
// Marks which scalars can be reached from "ALL" or are part of a multiplexed signal;
// the next write keeps only those.
void PVBsignalRenumber(int database);

// --- Records -------------------------------------------------------------------------

std::unique_ptr<PVBsignal> PVBsignalNew();
// Deep, with id and property list UNDEF. Its columns are still those of the original:
// who enters it in another database takes them away first.
std::unique_ptr<PVBsignal> PVBsignalCopy(const PVBsignal& signal);
// Enters a signal under a new id and gives a scalar its columns: the id, or -1.
PVBid PVBsignalInsert(int database, std::unique_ptr<PVBsignal> signal);
// Enters a signal under the id that it has, with the columns that it has (for
// readers of whole databases); -1 when id or name is in use.
PVBid PVBsignalInsertAs(int database, std::unique_ptr<PVBsignal> signal);
// Inserts, expands a bus that comes without members, joins the implicit groups: a
// scalar or multiplexed signal, and the children made for a bus. All or nothing.
PVBid PVBsignalAdd(int database, std::unique_ptr<PVBsignal> signal);
// Makes the children of a bus by its bounds, left one first; they join no group.
int PVBsignalExpand(int database, PVBsignal& bus);
// Also takes the id out of every list of members or mux children and away from pins,
// columns and the ends of scan chains, and frees the signal's properties.
int PVBsignalDelete(int database, PVBid id);
// The same for many, in one pass over the lists. -2 when one of them isn't there or is an
// implicit group; the others are gone.
int PVBsignalsDelete(int database, const PVBidList& ids);
// Scan objects too.
int PVBsignalRename(int database, PVBid id, std::string_view name);
// Signals and groups only; scan objects and "ALLSCAN" through the second.
PVBsignal* PVBsignalInqByID(int database, PVBid id);
PVBsignal* PVBobjectInqByID(int database, PVBid id);
// An object of either kind.
PVBsignal* PVBsignalInqByName(int database, std::string_view name);
// The multiplexed signal of which this one is a child, or null; the position among
// its children is then in `muxPosition`.
PVBsignal* PVBmuxParent(int database, PVBsignal& part);
// Ids of all signals and groups, in the id table's order, "ALLSCAN" and other scan
// objects left out. Good until the next change.
const PVBidList& PVBsignalInqAll(int database);
// The same with the scan objects.
const PVBidList& PVBobjectInqAll(int database);
bool PVBisImplicit(int database, PVBid id);
// Enters a scan cell, register, group or chain (by its type) under a new id of its
// class; it becomes a member of "ALLSCAN". The id, or -1.
PVBid PVBscanObjectInsert(int database, std::unique_ptr<PVBsignal> object);

// Whether the id stands in the list or, at any depth, in a bus or group of it.
bool PVBsignalListContains(int database, const PVBidList& list, PVBid id);
// The scalars (multiplexed signals among them) of a list in order, buses and groups
// taken apart, each bus or group once. Good until the next call.
const PVBidList& PVBsignalListToScalars(int database, const PVBidList& list);

// --- Columns and directions ----------------------------------------------------------

int PVBsignalColumns(const PVBsignal& signal);
// The column of track 1, 2, ...; -1 for none.
std::int32_t PVBsignalColumn(const PVBsignal& signal, int track);
// Gives a signal the columns that its direction asks for and that it hasn't got. The
// row width follows when the patterns are loaded; where that fails the column is none.
int PVBsignalAllocColumns(int database, PVBsignal& signal);
// Give a signal at least `n` columns of the multi-track or the multi-bit model, those
// included that it has. Up to two bit columns are `bitIn` and `bitOut`, more a list.
// -2 in a database of the classic model and above kMaxTracks.
int PVBsignalAllocTracks(int database, PVBsignal& signal, int n);
int PVBsignalAllocBits(int database, PVBsignal& signal, int n);
// Of every member of a bus or group.
int PVBsetVariety(int database, PVBid id, std::int32_t variety);
// Between input and output the column of a scalar goes with the direction.
void PVBsetDirection(PVBsignal& signal, std::int32_t direction);
// A signal that isn't the last of its old group stays where it is.
int PVBmoveToDirectionGroup(int database, PVBsignal& signal, std::int32_t oldDirection);
// Makes a scalar with its children's columns of a multiplexed signal, and an ordinary
// bus of a multiplexed one. -2 when a child is missing, or the model is classic.
int PVBmuxResolve(int database, PVBsignal& signal);

// Words for reports; "UNKNOWN" and "undefined" for what isn't in the tables.
const char* PVBsignalTypeName(std::int32_t type);
const char* PVBradixName(std::int32_t radix);
