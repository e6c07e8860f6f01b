#pragma once

// Timeplates: how one cycle of a pattern behaves in time. A plate has a period and
// tracks; a track is a sequence of timed events with the states that they drive or
// expect, for the signals of its slot. All plates of a database live in memory and
// are kept in "pvb.tp" (layout in timeplate_file.cc).
//
// A plate's id is its index; rows refer to it by 16 bits. The section owns the
// plates: a pointer is good until the plate is deleted or the section closed.
// Deleted indices are given out again, the lowest first.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/time.h"
#include "pvb/id.h"

inline constexpr std::uint16_t kNoTimePlate = 65535;

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

// The tracks that a signal stands on, by direction: -1 for none, -2 for more than one.
struct SignalTracks {
  std::array<std::int32_t, 3> track = {-1, -1, -1};
};

struct PVBtimePlate {
  PVBid id = UNDEF;
  std::optional<std::string> name;
  TIME period;
  std::optional<std::string> family;  // of the tester the plate was made for
  std::vector<PVBlevel> levels;
  std::uint16_t multiplier = 1;
  // Entry t belongs to slot t: its direction (0 input, 1 output, 2 bidirectional,
  // 3 undefined) and its signals.
  std::vector<std::pair<std::int32_t, PVBidList>> selectorLists;
  // Per slot, from selector character to a value, -1 while the character is free.
  std::vector<std::array<std::int32_t, 256>> selectorTables;
  PVBid firstRow = UNDEF;  // the plate's own property list
  PVBid lastRow = UNDEF;
  bool used = false;

  // In rising id; made by PVBtimePlateRebuildMaps, never saved.
  std::vector<std::pair<PVBid, SignalTracks>> signalToTrack;
};

struct PVBcycle {
  std::optional<std::string> name;
  TIME time;
};

struct PVBtimePlateData {
  std::vector<std::unique_ptr<PVBtimePlate>> plates;  // by id; null where free
  std::int32_t tpVersion = 1;                         // low 8 bits P mode, above them flags
  std::vector<PVBid> tpFirstFree;                     // a stack, the lowest index on top
  PVBid nextTPid = 0;
  std::vector<PVBcycle> cycleTable;
  std::int16_t cycleCapacity = 0;
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

int PVBtimePlateOpen(int database);
int PVBtimePlateSave(int database, const std::string& directory);
int PVBtimePlateClose(int database);

// --- Plates --------------------------------------------------------------------------

std::unique_ptr<PVBtimePlate> PVBtimePlateNew();
// Enters a plate: its id, or -1 (a name in use).
PVBid PVBtimePlateInsert(int database, std::unique_ptr<PVBtimePlate> plate);
// Enters a plate under the id that it has.
PVBid PVBtimePlateInsertAs(int database, std::unique_ptr<PVBtimePlate> plate);
PVBtimePlate* PVBtimePlateInqByID(int database, PVBid id);
PVBtimePlate* PVBtimePlateInqByName(int database, std::string_view name);
// Ids in rising order. Good until the next call.
const PVBidList& PVBtimePlateInqAll(int database);
int PVBtimePlateCount(int database);
int PVBtimePlateDelete(int database, PVBid id);
std::unique_ptr<PVBtimePlate> PVBtimePlateCopy(const PVBtimePlate& plate);
// Any time but zero stays as it is for the rows: the period of a plate, TIME_ZERO
// when there is no such plate. Never posts.
TIME PVBtimePlatePeriod(int database, PVBid id);
// The database's P mode and the word that holds it.
std::int32_t PVBpmode(int database);
int PVBsetPmode(int database, std::int32_t mode);

// --- Building tracks -----------------------------------------------------------------

void PVBtimePlateExpandLevel(PVBlevel& level, int n);
int PVBallocLevelAsNecessary(PVBtimePlate& plate, int level, int track, int position, TIME time,
                             char state, std::int32_t count);
// The same with an expression.
int PVBallocLevelAsNecessary(PVBtimePlate& plate, int level, int track, int position, TIME time,
                             std::string_view expression, char state, std::int32_t count);
int PVBtrackInsert(PVBtrack& track, int position, TIME time, char state, std::int32_t count);
// Makes room for track `track` of level 0, and adds a signal to a slot's list.
int PVBallocAsNecessary(PVBtimePlate& plate, int track);
int PVBlistInsert(PVBtimePlate& plate, int track, PVBid signal);
// Removes slot and wave `index`; those above move down. False out of range.
bool PVBtimePlateDeleteTrack(PVBtimePlate& plate, int index);
void PVBtimePlateRebuildMaps(PVBtimePlate& plate);
// Null when the plate doesn't hold the signal.
const SignalTracks* PVBsignalTracks(const PVBtimePlate& plate, PVBid signal);
// The direction of slot `index`, worked out from its states where none is stored.
int PVBtrackDirection(const PVBtimePlate& plate, int index);
// The signals of slot `index`.
const PVBidList& PVBtrackSignals(const PVBtimePlate& plate, int index);
bool PVBtrackEqual(const PVBtrack& a, const PVBtrack& b, TIME tolerance);
int PVBmuxSwitchInsert(PVBtimePlate& plate, int track, int position, TIME time);
int PVBcycleCreate(int database, std::string_view name, TIME time);

// --- Selectors -----------------------------------------------------------------------

char PVBtrackSelectorPick(const PVBtimePlate& plate, int slot, int direction, int state,
                          bool narrow);
char PVBtrackSelectorEncode(const std::uint8_t* digits, int count);
// The selectors of the wave's entries of type 1, row states in the order 1, 2, 4, 3, 0.
std::string PVBwaveSelectors(const PVBtrack& wave);
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

int PVBfamilyToMode(std::int32_t& mode, std::string_view family);
int PVBmodeFromName(std::int32_t& mode, std::string_view text);
