#pragma once

// Timeplates: how one cycle of a pattern behaves in time. A plate has a period and
// tracks; a track is a sequence of timed events with the states that they drive or
// expect, for the signals of its slot. All plates of a database live in memory and
// are kept in "pvb.tp" (layout in timeplate_file.cc).
//
// A plate's id is its index; rows refer to it by 16 bits. The section owns the
// plates: a pointer is good until the plate is deleted or the section closed.
// Deleted indices are given out again, the lowest first.
//
// Slot t of a plate is the t-th track of its levels, with the signals and the
// direction that all levels share; what a plate means stands on its first level.
//
// Functions that change the section mark it as changed; a plate that a caller edits
// through its pointer doesn't. Failure: -2 (-1 for an id, null for a plate) and a
// code in the database's status; reading and writing also post, as does building a
// track out of range.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/time.h"
#include "pvb/id.h"

inline constexpr std::uint16_t kNoTimePlate = 65535;
inline constexpr PVBid kMaxTimePlate = kNoTimePlate - 1;

// Values of SignalTracks.
inline constexpr std::int32_t kNoTrack = -1;
inline constexpr std::int32_t kSeveralTracks = -2;
// Direction of a slot that wasn't given any; the others are those of a signal.
inline constexpr std::int32_t kUndefinedDirection = 3;

// A wave: events and their states, and what selects it.
struct PVBtrack {
  std::vector<TIME> eventTimes;
  std::vector<std::optional<std::string>> eventExprs;  // as long as eventTimes
  std::string stateChars;
  std::vector<std::int32_t> stateCounts;  // as long as stateChars, at least 1 each
  PVBid propList = UNDEF;
  PVBidList signals;
  PVBid slotIn = UNDEF;
  PVBid slotOut = UNDEF;
  PVBid slotBoth = UNDEF;
  std::int32_t repeat = 1;
  char selector = '-';  // none
  // Selector entries, three lists of one length: character, entry type, row state.
  std::array<PVBintList, 3> selectorLists;
  std::int32_t cycleOffset = 0;
  std::int32_t cycleLength = 0;
};

struct PVBlevel {
  TIME time;
  std::vector<PVBtrack> tracks;
};

// The tracks that a signal stands on, by direction. A slot of undefined direction
// counts in all three.
struct SignalTracks {
  std::array<std::int32_t, 3> track = {kNoTrack, kNoTrack, kNoTrack};
};

// From selector character to a value, -1 while the character is free.
using PVBselectorTable = std::array<std::int32_t, 256>;

struct PVBtimePlate {
  PVBid id = UNDEF;
  std::optional<std::string> name;  // in a database changed by PVBtimePlateRename only
  TIME period;
  std::optional<std::string> family;  // of the tester the plate was made for
  std::vector<PVBlevel> levels;
  std::uint16_t multiplier = 1;
  // Entry t belongs to slot t: its direction (0 input, 1 output, 2 bidirectional,
  // 3 undefined) and its signals. It counts where it has signals or the track itself
  // has none; see PVBtrackSignals and PVBtrackDirection.
  std::vector<std::pair<std::int32_t, PVBidList>> selectorLists;
  std::vector<std::optional<PVBselectorTable>> selectorTables;  // per slot; never saved
  PVBid firstRow = UNDEF;                                       // the plate's own property list
  PVBid lastRow = UNDEF;
  bool used = false;

  // In rising id; made by PVBtimePlateRebuildMaps, never saved.
  std::vector<std::pair<PVBid, SignalTracks>> signalToTrack;
};

struct PVBcycle {
  std::int32_t index = 0;  // as it stands on disk
  std::optional<std::string> name;
  TIME time;
};

struct PVBtimePlateData {
  std::vector<std::unique_ptr<PVBtimePlate>> plates;  // by id; null where free
  std::int32_t tpVersion = 1;                         // low 8 bits P mode, above them flags
  std::vector<PVBid> tpFirstFree;                     // a stack, the lowest index on top
  std::unordered_map<std::string, PVBid> byName;      // of the plates with a name
  // By a name, the number up to which all that PVBtimePlateFreeName tries are taken;
  // good until a name is given back.
  std::unordered_map<std::string, std::int32_t> takenNumbers;
  std::vector<PVBcycle> cycleTable;
  std::int16_t cycleCapacity = 0;  // stands on disk, never below the cycles
  bool changed = false;
};

// P modes; the values stand on disk.
enum PMode : std::int32_t {
  DONT_CARE = 0,
  LAST_FORCE = 1,
  LAST_DRIVE = 2,
  FORCE_OR_Z = 3,
  ADVANTEST = 4,
  IMS = 5,
};

// --- The section ---------------------------------------------------------------------

// Reads "pvb.tp" if it is there. After a failure the plates read so far are loaded.
int PVBtimePlateOpen(int database);
// To `directory` (empty: the database's own).
int PVBtimePlateSave(int database, const std::string& directory);
int PVBtimePlateClose(int database);

// --- Plates --------------------------------------------------------------------------

std::unique_ptr<PVBtimePlate> PVBtimePlateNew();
// Enters a plate and builds its maps: its id, or -1 (a name in use).
PVBid PVBtimePlateInsert(int database, std::unique_ptr<PVBtimePlate> plate);
// Enters a plate under the id that it has.
PVBid PVBtimePlateInsertAs(int database, std::unique_ptr<PVBtimePlate> plate);
PVBtimePlate* PVBtimePlateInqByID(int database, PVBid id);
PVBtimePlate* PVBtimePlateInqByName(int database, std::string_view name);
// `base` itself when no plate has this name, else `base` with the lowest number from 1 on
// behind it ("tp_1") that makes it free.
std::string PVBtimePlateFreeName(int database, std::string_view base);
// Ids in rising order. Good until the next call.
const PVBidList& PVBtimePlateInqAll(int database);
int PVBtimePlateCount(int database);
int PVBtimePlateDelete(int database, PVBid id);
// Doesn't mark the section as changed, like any edit of a plate.
int PVBtimePlateRename(int database, PVBid id, std::string_view name);
// Deep, with id UNDEF and not used.
std::unique_ptr<PVBtimePlate> PVBtimePlateCopy(const PVBtimePlate& plate);
// The period, TIME_ZERO when there is no such plate. Called for every row that is
// appended; leaves stacks and status alone.
TIME PVBtimePlatePeriod(int database, PVBid id);
// The database's P mode (LAST_FORCE without the section) and its flags, which share
// a word of 32 bits: the mode has the low 8, the flags are the others in place.
std::int32_t PVBpmode(int database);
int PVBsetPmode(int database, std::int32_t mode);
std::uint32_t PVBdatabaseFlags(int database);
int PVBsetDatabaseFlags(int database, std::uint32_t flags);

// --- Building tracks -----------------------------------------------------------------

// Gives the level at least `n` tracks.
void PVBtimePlateExpandLevel(PVBlevel& level, int n);
// Grows the plate to hold level and track, and inserts the event.
int PVBallocLevelAsNecessary(PVBtimePlate& plate, int level, int track, int position, TIME time,
                             char state, std::int32_t count);
// The same with the expression that `time` comes from.
int PVBallocLevelAsNecessary(PVBtimePlate& plate, int level, int track, int position, TIME time,
                             std::string_view expression, char state, std::int32_t count);
// Inserts an event and its state at `position`, at the end of the events when it is
// negative; fails beyond that end. States missing up to there become '?'. A count
// below 1 becomes 1.
int PVBtrackInsert(PVBtrack& track, int position, TIME time, char state, std::int32_t count);
// Makes room for slot `track` and its track on the first level.
int PVBallocAsNecessary(PVBtimePlate& plate, int track);
// Adds a signal to a slot's list; the maps stay as they are.
int PVBlistInsert(PVBtimePlate& plate, int track, PVBid signal);
// Removes slot and wave `index` from all levels; those above move down, the maps are
// built again. False out of range.
bool PVBtimePlateDeleteTrack(PVBtimePlate& plate, int index);
// The same for all slots that `gone` has true for.
void PVBtimePlateDeleteTracks(PVBtimePlate& plate, const std::vector<bool>& gone);
void PVBtimePlateRebuildMaps(PVBtimePlate& plate);
// Null when the plate doesn't hold the signal.
const SignalTracks* PVBsignalTracks(const PVBtimePlate& plate, PVBid signal);
// Slots of all levels and of the list of slots, whichever is longest.
int PVBslotCount(const PVBtimePlate& plate);
// The direction of slot `index`, worked out from its states where none is stored:
// driven, expected, both or neither.
int PVBtrackDirection(const PVBtimePlate& plate, int index);
// The signals of slot `index`; none out of range.
const PVBidList& PVBtrackSignals(const PVBtimePlate& plate, int index);
// Sets the signals of slot `index` on all levels; the maps stay. False out of range.
bool PVBtrackSetSignals(PVBtimePlate& plate, int index, const PVBidList& signals);
// Stores the direction of slot `index` (0 to 3); the maps stay. False out of range.
bool PVBtrackSetDirection(PVBtimePlate& plate, int index, int direction);
// Whether two waves do the same: the same states, counts, expressions and selector
// entries, the times within `tolerance` (zero: exactly). Signals, slots and property
// lists aren't looked at.
bool PVBtrackEqual(const PVBtrack& a, const PVBtrack& b, TIME tolerance);
// Whether the slots `index` of two plates hold the same signals in the same
// direction, with equal waves on every level.
bool PVBslotEqual(const PVBtimePlate& a, const PVBtimePlate& b, int index, TIME tolerance);
// Enters a cycle: its index, or -1 (a name in use).
int PVBcycleCreate(int database, std::string_view name, TIME time);

// --- Selectors -----------------------------------------------------------------------

// A selector character for a signal of `direction` on a slot that is free by the
// slot's table; `state` 1 to 4 prefers the characters that suit it, `narrow` keeps to
// letters and digits. 0 when there is none.
char PVBtrackSelectorPick(const PVBtimePlate& plate, int slot, int direction, int state,
                          bool narrow);
// The character for digits of base 3, the lowest first; '-' beyond the alphabet.
char PVBtrackSelectorEncode(const std::uint8_t* digits, int count);
// The selectors of the wave's entries of type 1, row states in the order 1, 2, 4, 3, 0.
std::string PVBwaveSelectors(const PVBtrack& wave);
// Overwrites the first entry of that type and state, or adds one.
void PVBwaveSetSelector(PVBtrack& wave, char selector, std::int32_t type, std::int32_t state);

// --- States --------------------------------------------------------------------------

// "force low"; "ILLEGAL_SEF_STATE".
const char* PVBstateText(char state);
bool PVBstateValid(char state);
// 1 for expect, 0 for force, -1 otherwise.
int PVBstateDirection(char state);
// The level, 0 to 6; -1 for no state.
int PVBstateLevel(char state);
// The character of a four-bit code of the row data: "-01ZX?!*."; '?' above 8.
char PVBcodeCharacter(int code);
// The same for the five plain codes; '?' above 4.
char PVBplainCodeCharacter(int code);
// The code of a character of the row data, -1 for none.
int PVBcharacterCode(char character);

// The P mode of a tester family; -2 and `mode` untouched for an unknown one.
int PVBfamilyToMode(std::int32_t& mode, std::string_view family);
// From "P_LAST_FORCE", "last_drive"; -2 and LAST_FORCE for an unknown name.
int PVBmodeFromName(std::int32_t& mode, std::string_view text);
