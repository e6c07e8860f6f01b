#include <algorithm>

#include "pvb/property.h"
#include "pvb/state_vector.h"
#include "tools/dump_internal.h"

// --- Signals -------------------------------------------------------------------------

namespace {

void dumpStateTable(const DumpContext& dump, std::string_view keyword, const PVBstateTable& table) {
  for (const auto& [text, id] : table.entries) {
    dump.text().append("  ").append(keyword).append(" ");
    appendOptional(dump.text(), text);
    dump.text() += ' ';
    appendId(dump.text(), id);
    dump.end();
  }
}

bool dumpSignal(const DumpContext& dump, const PVBsignal& signal) {
  dump.text() += "signal ";
  appendId(dump.text(), signal.id);
  dump.text() += ' ';
  appendOptional(dump.text(), signal.name);
  appendFields(dump.text(), kSignalFields, signal);
  dump.end();
  dumpLists(dump, kSignalLists, signal);
  dumpStateTable(dump, "in-state", signal.inStates);
  dumpStateTable(dump, "out-state", signal.outStates);
  return dumpProperties(dump, signal.propList, "  ");
}

}  // namespace

bool dumpSignals(const DumpContext& dump) {
  const PVBsignalData& data = *PVBget(dump.database)->signals;
  dump.text() += "signals";
  appendFields(dump.text(), kSignalCounterFields, SignalCounters{data.nextColumn, data.nextID});
  dump.end();
  dumpIdLists(dump, "groups", data.allGroups, true, "  ");
  // Scan objects stand in the same table.
  bool good = true;
  data.byId.forEach([&](const PVBsignal& signal) { good = good && dumpSignal(dump, signal); });
  return good;
}

// --- Timeplates ----------------------------------------------------------------------

namespace {

// A state as it stands, or between quotes where that could be misread.
void appendStateCharacter(std::string& out, char state) {
  const bool plain = state > ' ' && state < 0x7F && state != '"';
  if (plain) {
    out += state;
  } else {
    appendQuoted(out, std::string_view(&state, 1));
  }
}

void dumpEvents(const DumpContext& dump, const PVBtrack& track) {
  const std::size_t count = std::max(track.eventTimes.size(), track.stateChars.size());
  for (std::size_t i = 0; i < count; ++i) {
    const bool timed = i < track.eventTimes.size();
    dump.text() += timed ? "    event " : "    state";
    if (timed) appendTime(dump.text(), track.eventTimes[i]);
    if (i < track.stateChars.size()) {
      dump.text() += ' ';
      appendStateCharacter(dump.text(), track.stateChars[i]);
      if (i < track.stateCounts.size() && track.stateCounts[i] != 1) {
        dump.text() += " x";
        appendNumber(dump.text(), track.stateCounts[i]);
      }
    }
    if (timed && i < track.eventExprs.size() && track.eventExprs[i]) {
      dump.text() += " expr=";
      appendQuoted(dump.text(), *track.eventExprs[i]);
    }
    dump.end();
  }
}

void dumpSelectors(const DumpContext& dump, const PVBtrack& track) {
  constexpr std::array<std::string_view, 3> kKeywords = {"selectors", "selector-types",
                                                         "selector-states"};
  for (std::size_t i = 0; i < kKeywords.size(); ++i) {
    dumpIdLists(dump, kKeywords[i], track.selectorLists[i], false, "    ");
  }
}

bool dumpTrack(const DumpContext& dump, const PVBtrack& track) {
  dump.text() += "    track";
  appendFields(dump.text(), kTrackFields, track);
  dump.end();
  dumpEvents(dump, track);
  dumpIdLists(dump, "on", track.signals, true, "    ");
  dumpSelectors(dump, track);
  return dumpProperties(dump, track.propList, "    ");
}

bool dumpLevel(const DumpContext& dump, const PVBlevel& level) {
  dump.text() += "  level ";
  appendTime(dump.text(), level.time);
  dump.end();
  return std::ranges::all_of(level.tracks,
                             [&](const PVBtrack& track) { return dumpTrack(dump, track); });
}

// Slots of more signals than a line holds go on in lines of "more".
void dumpSlot(const DumpContext& dump, std::int32_t direction, const PVBidList& signals) {
  dump.text() += "  slot ";
  appendWord(dump.text(), kSlotWords, direction);
  dump.end();
  dumpIdLists(dump, "of", signals, true, "    ");
}

bool dumpTimePlate(const DumpContext& dump, const PVBtimePlate& plate) {
  dump.text() += "timeplate ";
  appendNumber(dump.text(), plate.id);
  dump.text() += ' ';
  appendOptional(dump.text(), plate.name);
  appendFields(dump.text(), kTimePlateFields, plate);
  dump.end();
  if (!dumpProperties(dump, plate.firstRow, "  ")) return false;
  for (const auto& [direction, signals] : plate.selectorLists) dumpSlot(dump, direction, signals);
  return std::ranges::all_of(plate.levels,
                             [&](const PVBlevel& level) { return dumpLevel(dump, level); });
}

}  // namespace

bool dumpTimePlates(const DumpContext& dump) {
  const PVBtimePlateData& data = *PVBget(dump.database)->timePlates;
  dump.text() += "timeplates";
  appendFields(dump.text(), kTimePlateHeadFields,
               TimePlateHead{data.tpVersion, data.cycleCapacity});
  dump.end();
  for (const PVBcycle& cycle : data.cycleTable) {
    dump.text() += "  cycle ";
    appendNumber(dump.text(), cycle.index);
    dump.text() += ' ';
    appendOptional(dump.text(), cycle.name);
    dump.text() += ' ';
    appendTime(dump.text(), cycle.time);
    dump.end();
  }
  return std::ranges::all_of(data.plates, [&](const std::unique_ptr<PVBtimePlate>& plate) {
    return plate == nullptr || dumpTimePlate(dump, *plate);
  });
}

// --- Pins ----------------------------------------------------------------------------

namespace {

bool dumpPin(const DumpContext& dump, std::string_view keyword, const PVBpin& pin) {
  dump.text().append(keyword).append(" ");
  appendId(dump.text(), pin.id);
  dump.text() += ' ';
  appendOptional(dump.text(), pin.name);
  appendFields(dump.text(), kPinFields, pin);
  dump.end();
  dumpLists(dump, kPinLists, pin);
  return dumpProperties(dump, pin.propList, "  ");
}

void dumpColumn(const DumpContext& dump, const PVBcolumn& column) {
  dump.text() += "column ";
  appendId(dump.text(), column.id);
  appendFields(dump.text(), kColumnFields, column);
  dump.end();
  dumpLists(dump, kColumnLists, column);
}

}  // namespace

bool dumpPins(const DumpContext& dump) {
  const PVBpinData& data = *PVBget(dump.database)->pins;
  dump.text() += "pins";
  appendFields(dump.text(), kPinCounterFields, PinCounters{data.nextID});
  dump.end();
  bool good = true;
  data.atePins.forEach([&](const PVBpin& pin) { good = good && dumpPin(dump, "ate-pin", pin); });
  data.dutPins.forEach([&](const PVBpin& pin) { good = good && dumpPin(dump, "dut-pin", pin); });
  data.columns.forEach([&](const PVBcolumn& column) { dumpColumn(dump, column); });
  return good;
}

// --- State vectors -------------------------------------------------------------------

namespace {

constexpr std::size_t kBytesPerCellLine = 48;

bool dumpVector(const DumpContext& dump, PVBid vector) {
  const std::string* bytes = PVBstateVectorBytes(dump.database, vector);
  if (bytes == nullptr) {
    return dump.fail(kVectorsNotReadable, "pvb.st: a state vector can't be unpacked");
  }
  const std::string cells = *bytes;  // the name is asked for from the same cache
  const std::string name = PVBstateVectorName(dump.database, vector);
  dump.text() += "vector ";
  appendOptional(dump.text(), name.empty() ? std::nullopt : std::optional<std::string>(name));
  appendFields(dump.text(), kVectorFields, VectorHead{PVBstateVectorValue(dump.database, vector)});
  dump.end();
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (i % kBytesPerCellLine == 0) dump.text() += "  cells |";
    const auto byte = static_cast<unsigned char>(cells[i]);
    dump.text() += kStateCharacters[byte & 15];
    dump.text() += kStateCharacters[byte >> 4];
    if (i % kBytesPerCellLine == kBytesPerCellLine - 1 || i + 1 == cells.size()) dump.end();
  }
  return true;
}

}  // namespace

bool dumpVectors(const DumpContext& dump) {
  PVBid before = UNDEF;
  for (PVBid vector = PVBstateVectorNext(dump.database, UNDEF); vector != UNDEF && vector > before;
       vector = PVBstateVectorNext(dump.database, vector)) {
    if (!dumpVector(dump, vector)) return false;
    before = vector;
  }
  return true;
}

// --- Labels --------------------------------------------------------------------------

bool dumpLabels(const DumpContext& dump) {
  for (const PVBlabel& label : PVBlabels(dump.database)) {
    dump.text() += "label ";
    appendQuoted(dump.text(), label.name);
    appendFields(dump.text(), kLabelFields, label);
    dump.end();
  }
  return true;
}

// --- Check findings ------------------------------------------------------------------

bool dumpFindings(const DumpContext& dump) {
  for (const PVBmessageHeading& heading : PVBmessages(dump.database)) {
    dump.text() += "heading ";
    appendNumber(dump.text(), heading.number);
    dump.text() += ' ';
    appendQuoted(dump.text(), heading.shortName);
    dump.text() += ' ';
    appendQuoted(dump.text(), heading.text);
    appendFields(dump.text(), kHeadingFields, heading);
    dump.end();
    for (const auto& finding : heading.findings) {
      dump.text() += "  finding";
      dump.end();
      for (const PVBmessageItem& item : finding) {
        dump.text() += "    item";
        appendFields(dump.text(), kItemFields, item);
        dump.end();
      }
    }
  }
  return true;
}
