#pragma once

// What the parts of the STIL writer share. The text comes in two walks over the rows:
// the first one, the survey, collects for each timeplate and signal the codes that
// occur with the events that they give. Then each signal's different events get a
// waveform character, the blocks in front of the patterns are written, and the second
// walk writes the rows.
//
// A function that gives bool gives false after a message.

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "equations/expression.h"
#include "equations/spec_data.h"
#include "pvb/pattern.h"
#include "tools/export.h"
#include "tools/meaning.h"
#include "tools/tool_progress.h"

// --- Names ---------------------------------------------------------------------------

// Names of one kind of things. They stand between double quotes in the text, so they
// have none inside, are on one line, not empty, and different from each other.
class StilNameTable {
 public:
  // `usual` where the name is empty.
  std::string take(std::string_view name, std::string_view usual);
  // Whether a name given came out as another one.
  bool changed() const { return changed_; }

 private:
  std::unordered_set<std::string> taken_;
  bool changed_ = false;
};
std::string stilQuoted(std::string_view text);

// --- Equations -----------------------------------------------------------------------

struct StilEquations {
  ssData data;
  std::unique_ptr<ExpressionScope> scope;                  // over `data`
  std::unordered_map<std::string, std::string> variables;  // as they stand in the text
  std::vector<std::vector<std::string>> categories;        // by sheet and set
  std::unordered_set<std::string> periods;                 // variables that a Period says
};

// --- Signals and timeplates ----------------------------------------------------------

struct StilExportSignal {
  const PVBsignal* signal = nullptr;
  std::string name;  // in the text
};
// Where a row holds the data of a signal.
struct StilColumns {
  std::int32_t in = -1;
  std::int32_t out = -1;
  bool selects = false;  // the row may name the slots to take
};

inline constexpr std::size_t kCodePlaces = 256;

// What the codes of a row come to, for signals on the same slots of a timeplate. The
// place of two codes is in + 16 * out; a signal that selects has codes of its own, whose
// places are the combinations met.
struct StilCodes {
  StilCodes() { events.fill(kNotWorkedOut); }
  std::array<EventListId, kCodePlaces> events;  // kNotWorkedOut where they don't occur
  std::array<char, kCodePlaces> characters{};
  std::vector<std::uint32_t> selected;  // by place, selector above the codes
};

inline std::size_t stilPlainPlace(const PVBrow& row, const StilColumns& columns) {
  int place = 0;
  if (columns.in >= 0) place = rowCode(row.states(), static_cast<std::uint32_t>(columns.in));
  if (columns.out >= 0) {
    place |= rowCode(row.states(), static_cast<std::uint32_t>(columns.out)) << 4;
  }
  return static_cast<std::size_t>(place);
}

struct StilPlate {
  const PVBtimePlate* plate = nullptr;
  std::string name;
  std::vector<StilCodes> codes;
  std::vector<std::uint32_t> signalCodes;  // by signal, index in `codes`
  std::vector<const char*> characters;     // by signal, those of its codes
};

// The name of the one pattern, the same for all databases: equal ones make equal texts.
inline constexpr std::string_view kStilPattern = "_pattern_";

struct StilGroupMembers {
  std::string name;
  std::vector<std::uint32_t> signals;
};

struct StilRowPlace {
  int pattern = kMainPattern;
  std::uint32_t row = 0;
};

struct StilExport {
  StilExport(int theDatabase, TextSink& theText, const MessageSink& theSink, Progress& theProgress)
      : database(theDatabase), out(theText), sink(theSink), progress(theProgress) {}

  int database;
  TextSink& out;
  const MessageSink& sink;
  Progress& progress;  // by rows, those of both walks

  std::vector<StilExportSignal> signals;
  std::vector<StilColumns> columns;  // by signal
  std::string allSignals;            // name of the group of all
  std::vector<StilGroupMembers> groups;
  std::vector<std::string> procedures;  // by subroutine; empty where there is none

  EventStore store;
  std::vector<std::unique_ptr<StilPlate>> plates;  // by id, null where no row uses it
  std::size_t plateCount = 0;                      // of these
  StilEquations equations;
  std::unordered_set<std::string> warnings;  // each is told once
  std::int64_t rowsDone = 0;

  bool refuse(std::string text) const;
  // Tells once.
  void warn(std::string text);
  void leaveOut(std::string_view what) { warn(std::string("left out: ").append(what)); }
  std::string& text() const { return out.text(); }
  void line(std::string_view text) const {
    out.text().append(text) += '\n';
    out.offer();
  }
  // "row 12", "row 3 of subroutine \"init\"".
  std::string placeText(StilRowPlace place) const;
  // Of the row's codes; for a signal that selects the size of `selected` when it isn't
  // there yet.
  std::size_t codePlace(const PVBrow& row, std::size_t signal, const StilCodes& codes) const {
    const StilColumns& place = columns[signal];
    return place.selects ? selectedPlace(row, signal, codes) : stilPlainPlace(row, place);
  }
  std::size_t selectedPlace(const PVBrow& row, std::size_t signal, const StilCodes& codes) const;
};

// --- Rows of a pattern ---------------------------------------------------------------

// What a walk over the rows of a pattern meets, in their order. Loops that are never
// run are left out with all that stands in them.
class StilRowVisitor {
 public:
  virtual ~StilRowVisitor() = default;
  // A row of any kind, in front of what follows for it.
  virtual bool row(const PVBrow&, StilRowPlace) { return true; }
  // Cycles of one timeplate with the same states.
  virtual bool cycles(const PVBrow& row, std::uint32_t count, StilRowPlace place) = 0;
  virtual bool beginLoop(std::uint32_t) { return true; }
  virtual void endLoop() {}
  virtual bool call(const PVBrow&, StilRowPlace) { return true; }
};
bool stilWalkRows(StilExport& stil, int pattern, StilRowVisitor& visitor);

// --- Parts, in the order in which they are called ------------------------------------

bool stilTakeSignals(StilExport& stil);
bool stilSurvey(StilExport& stil);
bool stilChooseCharacters(StilExport& stil);
bool stilReadEquations(StilExport& stil);
void stilTellNotCarried(StilExport& stil);
void stilWriteSignals(StilExport& stil);
void stilWriteSpecs(StilExport& stil);
void stilWriteTiming(StilExport& stil);
void stilWriteExec(StilExport& stil);
bool stilWritePatterns(StilExport& stil);

// A time, or the expression that it comes from where that gives it, between single
// quotes. `period` is that of the timeplate, whose time `period` means in expressions.
std::string stilTime(StilExport& stil, TIME time, const std::optional<std::string>& expression,
                     TIME period);
// The same of a timeplate's period.
std::string stilPeriod(StilExport& stil, const StilPlate& plate);
