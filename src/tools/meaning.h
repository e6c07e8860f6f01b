#pragma once

// What the rows of a database mean: for each signal the events of a cycle with the
// states that they drive or expect, the row's data put in and what a `P` stands for
// worked out. Lists of events are interned, so that equal ones have equal numbers in
// all databases that share a store, and a row costs a look-up for each signal.
//
// `S` and `C` become D, U, Z or N by the row's input data, `Q` and `R` become L, H, T
// or X by its output data; a signal with one column has its data there for both. A `P`
// goes by the P mode of the database:
//
//   mode 1  the last of D, N, U, Z driven before      mode 3  what was driven last, else Z
//   mode 2  the last of D, U                          mode 5  the same without Z
//   mode 4  as 1, expected states in the same cycle   others  N
//           count as driven
//
// In modes 1, 2 and 4 a row whose input data are Z has Z for it. Before anything was
// driven it is N. What a row's signal has no slot for shows as plain data.

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "pvb/row.h"
#include "pvb/row_track.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"

struct MeaningEvent {
  std::int64_t time;   // femtoseconds from the cycle's beginning; kInData, kOutData
  std::int32_t count;  // of the state
  char state;

  friend bool operator==(const MeaningEvent&, const MeaningEvent&) = default;
};
// Times of what stands in a row without having a place in time; `state` is the
// character of the row's code.
inline constexpr std::int64_t kInData = -2;
inline constexpr std::int64_t kOutData = -1;

using EventListId = std::uint32_t;
inline constexpr EventListId kNoEvents = 0;

// Lists of events by number; kNoEvents is the empty one. Lists stay where they are.
class EventStore {
 public:
  EventStore();
  EventListId intern(std::vector<MeaningEvent> events);
  const std::vector<MeaningEvent>& events(EventListId id) const { return *lists_[id]; }
  // "0pS D, 25nS U"; "-" for the empty list.
  std::string text(EventListId id) const;

 private:
  struct Hash {
    std::size_t operator()(const std::vector<MeaningEvent>& events) const;
  };
  std::unordered_map<std::vector<MeaningEvent>, EventListId, Hash> ids_;
  std::vector<const std::vector<MeaningEvent>*> lists_;
};

// Codes of what a signal was left at.
enum PreviousState : std::uint8_t { kLeftLow, kLeftHigh, kLeftUnknown, kLeftHighZ };
inline constexpr std::size_t kPreviousStates = 4;

// How the events of a cycle leave a signal.
struct ListEffect {
  bool known = false;
  bool needsPrevious = false;  // begins with a `P` that the cycle itself doesn't settle
  bool drives = false;
  std::uint8_t after = kLeftUnknown;  // where it drives
  // What the list is for each state left before; itself when none is needed.
  std::array<EventListId, kPreviousStates> settled{};
};

inline constexpr unsigned kRowCodes = 16;
// Events of the slots in force for each code of the data.
struct SlotTable {
  std::array<RowTracks, 4> tracks;  // by which data there are: 1 input, 2 output
  bool hasIn = false;
  bool hasOut = false;
  std::vector<EventListId> ids;  // by place

  std::size_t places() const {
    return std::size_t{hasIn ? kRowCodes : 1U} * (hasOut ? kRowCodes : 1U);
  }
  // Of two codes; that of a column that isn't there is 0.
  std::size_t place(unsigned in, unsigned out) const { return hasIn ? in + kRowCodes * out : out; }
};
inline constexpr EventListId kNotWorkedOut = 0xFFFFFFFF;

// A timeplate as the chosen signals see it.
struct PlateMeaning {
  const PVBtimePlate* plate = nullptr;  // null for rows without one
  PlateSlots slots;
  std::map<std::array<std::int32_t, 10>, std::unique_ptr<SlotTable>> tables;
  std::vector<SlotTable*> parts;  // by part of a signal
};

enum class PreviousMode {
  resolve,  // `P` as the state that it stands for
  literal,  // `P` as itself
};

class Meaning {
 public:
  // `signals` must live as long as this.
  Meaning(int database, EventStore& store, const std::vector<const PVBsignal*>& signals,
          PreviousMode mode);

  std::size_t signalCount() const { return firstPart_.size() - 1; }
  // Whether any timeplate leaves something to what went before.
  bool usesPrevious() const { return usesPrevious_; }

  // A plate, or what rows without one are; good until the next call.
  PlateMeaning& plate(std::uint16_t id);
  // The events of a signal in a cycle of the row, `P` not settled.
  EventListId events(PlateMeaning& plate, const PVBrow& row, std::size_t signal);
  const ListEffect& effect(EventListId id) {
    return id < effects_.size() && effects_[id].known ? effects_[id] : workOut(id);
  }

  // Whether two databases give a signal the same events for the same row bytes, for
  // rows of these plates and all signals.
  friend bool sameMeaning(Meaning& a, PlateMeaning& plateA, Meaning& b, PlateMeaning& plateB);
  // Bytes of states up to the last column of the signals.
  std::size_t usedBytes() const { return usedBytes_; }

 private:
  // A signal, or one of those that it multiplexes.
  struct Part {
    const PVBsignal* signal;
    std::int32_t in;
    std::int32_t out;
    bool selects;
  };

  void addPart(const PVBsignal& signal, DataColumns own);
  SlotTable* table(PlateMeaning& plate, const Part& part, char selector);
  EventListId fill(const PlateMeaning& plate, SlotTable& table, unsigned in, unsigned out);
  EventListId partEvents(PlateMeaning& plate, const PVBrow& row, std::size_t part);
  EventListId merge(EventListId a, EventListId b);
  void settle(std::vector<MeaningEvent>& events, bool dataHighZ) const;
  const ListEffect& workOut(EventListId id);
  bool sameTables(const PlateMeaning& plate, SlotTable& mine, Meaning& other,
                  const PlateMeaning& otherPlate, SlotTable& its);

  int database_;
  EventStore& store_;
  std::int32_t pMode_;  // kLiteralMode: `P` stays
  bool usesPrevious_ = false;
  std::size_t usedBytes_ = 0;
  std::vector<Part> parts_;
  std::vector<std::size_t> firstPart_;                 // by signal, and the end
  std::vector<std::unique_ptr<PlateMeaning>> plates_;  // the last one for rows without
  std::size_t bytesKept_ = 0;                          // of their tables, about
  std::vector<ListEffect> effects_;
  std::map<std::pair<EventListId, EventListId>, EventListId> merged_;
};
