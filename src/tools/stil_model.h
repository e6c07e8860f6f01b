#pragma once

// What a STIL text says outside its patterns, as records, names as they are written:
// references are resolved by who uses them (stil_names, stil_timing, stil_expand).
// A domain is the name behind the keyword of a block ("Timing t1 {"), empty for none.
//
// Statements of patterns, procedures and macros have one form. Those of patterns are
// read one at a time and never kept; procedures, macros and the bodies of loops are.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/stil_scanner.h"

// Place of a text in one of the files read (an Include makes several).
struct StilWhere {
  std::uint32_t file = 0;  // index in StilModel::files
  StilPlace place;
};

// A name or an expression over names where a signal, a group or a list of them is
// meant: `clk`, `"a b"`, 'si + so', 'ALL - CLOCK', Bus[0..7].
struct StilReference {
  std::string text;
  bool expression = false;  // stood between single quotes
  // Number of the text (and `expression`) among all references of the model, from 0 on:
  // equal references have equal numbers, so that they are resolved once. The quotes and
  // "." of names aren't part of the text, but for those within an expression.
  std::uint32_t number = 0;
  StilWhere where;
};

// --- Signals -------------------------------------------------------------------------

enum class StilDirection : std::uint8_t { in, out, inOut, supply, pseudo };

// How \h and \d data are made characters: of "Base Hex 01Z".
struct StilBase {
  int radix = 16;          // 10 or 16
  std::string characters;  // "01Z"
};

struct StilAttributes {
  std::optional<std::uint32_t> scanIn;  // length, 0 when not given
  std::optional<std::uint32_t> scanOut;
  std::optional<StilBase> base;
  std::optional<char> defaultState;  // event character
  bool alignLeft = true;             // Alignment MSB
};

struct StilSignal {
  std::string name;  // of one signal: "Bus[3]"; ranges are taken apart
  StilDirection direction = StilDirection::in;
  StilAttributes attributes;
  StilWhere where;
};

struct StilGroup {
  std::string name;
  std::string domain;
  StilReference members;  // an expression
  StilAttributes attributes;
  StilWhere where;
};

struct StilChain {
  std::string name;
  std::string domain;
  std::uint32_t length = 0;
  std::string scanIn;
  std::string scanOut;
  std::vector<std::string> cells;  // "!" for an inversion
  StilWhere where;
};

// --- Timing --------------------------------------------------------------------------

// An event: PVB state character ('D', 'U', 'Z', 'N', 'P', 'L', 'H', 'X', 'T', or a
// window 'l', 'h', 't'); 0 for one that has no counterpart, named in `other`.
struct StilState {
  char state = 0;
  std::string other;
};

struct StilEvent {
  std::string time;               // an expression; empty: at the time of the event before
  std::vector<StilState> states;  // one, or one for each character of the wave
  StilWhere where;
};

struct StilWave {
  StilReference signals;
  std::string characters;         // WFCs, "01Z"
  std::vector<StilEvent> events;  // none: the wave does nothing
  StilWhere where;
};

struct StilTable {
  std::string name;
  std::string domain;
  std::string period;                     // an expression; empty when not given
  std::vector<std::string> inherit;       // names of tables, "domain.name" possible
  std::vector<std::string> signalGroups;  // domains of groups that its Timing names
  std::vector<StilWave> waves;            // in the order in which they stand
  StilWhere where;
};

enum class StilSelected : std::uint8_t { min, typ, max, meas };

// A value of a variable in a category: one expression, or some of four.
struct StilSpecValue {
  std::optional<std::string> typ;  // also "= '...'"
  std::optional<std::string> min;
  std::optional<std::string> max;
  std::optional<std::string> meas;
};
struct StilSpecEntry {
  std::string variable;
  std::string category;
  StilSpecValue value;
  StilWhere where;
};
struct StilSpec {
  std::string name;
  std::vector<StilSpecEntry> entries;  // in order, from Category and Variable blocks
};

struct StilSelector {
  std::string name;
  std::vector<std::pair<std::string, StilSelected>> entries;
};

// --- Statements ----------------------------------------------------------------------

// Data of an assignment, written out: a character a signal and vector, \r taken apart;
// '#' and '%' stand for parameters. Data in \h or \d is kept as digits, with where it
// stands among the characters, since the base is that of the group.
struct StilCoded {
  std::size_t position;    // in `characters`
  int radix;               // 10, 16
  std::string characters;  // of a base given in the text, "" for the group's
  std::string digits;
};
struct StilData {
  std::string characters;
  std::vector<StilCoded> coded;
};

struct StilAssignment {
  StilReference signals;
  StilData data;
};

enum class StilStatementKind : std::uint8_t {
  vector,      // V: assignments
  condition,   // C
  fixed,       // F
  table,       // W: name
  loop,        // count, body
  matchLoop,   // count (0: Infinite), body
  call,        // name, assignments
  macro,       // name, assignments
  shift,       // body
  annotation,  // name is the text
  gotoLabel,   // name
  branch,      // If, Else, While: name is the word; passed over
  stop,
  breakPoint,  // body, possibly empty
  iddq,
  scanChain,  // name
  unknown,    // a statement that isn't known, name is its first word; passed over
};

struct StilStatement {
  StilStatementKind kind = StilStatementKind::vector;
  StilWhere where;
  std::string label;  // empty: none
  std::string name;
  std::uint64_t count = 0;
  std::vector<StilAssignment> assignments;
  std::vector<StilStatement> body;
};

struct StilRoutine {  // of Procedures or MacroDefs
  std::string name;
  std::string domain;
  std::vector<StilStatement> body;
  StilWhere where;
};

// --- Patterns ------------------------------------------------------------------------

// Names of domains that hold for a burst, or for one entry of its list.
struct StilDomains {
  std::vector<std::string> signalGroups;
  std::vector<std::string> procedures;
  std::vector<std::string> macros;
  std::vector<std::string> scanStructures;
};
struct StilBurstEntry {
  std::string name;  // of a pattern or a burst
  StilDomains domains;
  StilWhere where;
};
struct StilBurst {
  std::string name;
  StilDomains domains;
  std::vector<StilBurstEntry> entries;
  StilWhere where;
};
struct StilExec {
  std::string name;  // empty: the one without
  std::string timing;
  std::vector<std::string> selectors;
  std::vector<std::string> categories;
  std::string burst;
  StilWhere where;
};
// A pattern is where its block stands; its statements are read from there.
struct StilPatternPlace {
  std::string name;
  StilWhere body;  // the `{`
};

struct StilModel {
  std::vector<std::string> files;  // paths as they are opened, the first is the text's own
  std::string title;
  std::vector<StilSignal> signals;
  std::vector<StilGroup> groups;
  std::vector<StilChain> chains;
  std::vector<StilTable> tables;
  std::vector<StilSpec> specs;
  std::vector<StilSelector> selectors;
  std::vector<StilRoutine> procedures;
  std::vector<StilRoutine> macros;
  std::vector<StilBurst> bursts;
  std::vector<StilExec> execs;
  std::vector<StilPatternPlace> patterns;
  std::uint32_t references = 0;  // how many different ones the model has
};
