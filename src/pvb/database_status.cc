#include <fmt/format.h>

#include <array>
#include <string>

#include "pvb/database.h"
#include "pvb/property.h"

namespace {

struct StatusRow {
  std::int32_t code;
  const char* text;
};

constexpr std::array<StatusRow, 42> kStatusTable = {{
    {0, "Successful completion"},
    {1, "PVB not open or invalid database ID"},
    {2, "Memory allocation failed"},
    {3, "Can not manipulate an implicit group"},
    {4, "Can not delete scan register member"},
    {5, "Object ID is not in use"},
    {6, "Object class incompatible with function"},
    {7, "Name is not unique within the name space"},
    {8, "Name is not in use"},
    {9, "Name is an empty string"},
    {10, "Pointer argument is NULL"},
    {11, "Invalid name space"},
    {12, "Invalid radix argument"},
    {13, "Member class incompatible with object"},
    {14, "Position is not in range of list"},
    {15, "Object recursively defined"},
    {16, "Direction inappropriate for function"},
    {17, "Type inappropriate for function"},
    {18, "Scan runs not consistent with timeplate"},
    {19, "Scan cycle number out of expected range"},
    {20, "Too few parallel rows to create serial row"},
    {21, "Internal/system error"},
    {22, "Database is corrupt"},
    {23, "Database created on incompatible host"},
    {24, "String incompatible with radix"},
    {25, "String length incompatible with element"},
    {26, "Invalid state vector value"},
    {27, "Invalid field provided with PVBkey"},
    {28, "Invalid PVBmethod supplied"},
    {29, "Invalid PVBvariety supplied"},
    {30, "Object is not empty"},
    {31, "Symbol is not in table"},
    {32, "List type supplied is invalid with this object"},
    {33, "Can not delete last object in list"},
    {34, "Invalid expression entered"},
    {35, "Buffer size environment variable must be a positive integer."},
    {36, "Multi-track data model not enabled"},
    {37, "Multi-bit data model not enabled"},
    {38, "Wide track selector data model not enabled"},
    {39, "Signal has no track selector; see PIFsignalAllowTrackSelection"},
    {40, "Invalid string value supplied"},
    {41, "Integer parameter is not within bounds"},
}};

// "%s%s in %s\n" behind a count, as both summaries say it.
void addCount(std::string& summary, std::int32_t count, const char* what, const char* where) {
  summary += count < 0 ? "unknown number of" : count == 0 ? "no" : std::to_string(count);
  summary += fmt::format(" {}{} in {}\n", what, count == 1 ? "" : "s", where);
}

bool isClean(const PVBstatus& counts) {
  return counts.patternErrors == 0 && counts.timingErrors == 0 && counts.patternWarnings == 0 &&
         counts.timingWarnings == 0;
}

std::string summaryOf(const PVBstatus& counts) {
  if (isClean(counts)) return "no errors or warnings";
  if (counts.timingErrors == -1) return "PVBCHECKER utility has not been run\n";
  std::string summary;
  addCount(summary, counts.timingErrors, "error", "timing");
  addCount(summary, counts.timingWarnings, "warning", "timing");
  if (counts.patternErrors == -1) return summary + "patterns have not been checked\n";
  addCount(summary, counts.patternErrors, "error", "patterns");
  addCount(summary, counts.patternWarnings, "warning", "patterns");
  return summary;
}

}  // namespace

// --- Status --------------------------------------------------------------------------

void PVBsetStatus(int database, std::int32_t code) {
  if (PVBdatabase* slot = PVBget(database)) slot->status = code;
}

void PVBclearStatus(int database) { PVBsetStatus(database, kStatusOk); }

std::int32_t PVBinqStatus(int database, const char*& text) {
  const PVBdatabase* slot = PVBget(database);
  text = nullptr;
  if (slot == nullptr) return kStatusNotOpen;
  for (const StatusRow& row : kStatusTable) {
    if (row.code != slot->status) continue;
    text = row.text;
    return row.code;
  }
  text = "INTERNAL ERROR: Error table out of date";
  return kStatusInternal;
}

// --- Counts of the last check --------------------------------------------------------

void PVBmarkUnchecked(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return;
  slot->checkDirty = true;
  slot->header.counts = PVBstatus();
}

void PVBclearDirty(int database) {
  if (PVBdatabase* slot = PVBget(database)) slot->checkDirty = false;
}

bool PVBisDirty(int database) {
  const PVBdatabase* slot = PVBget(database);
  return slot != nullptr && slot->checkDirty;
}

PVBstatus* PVBcheckCounts(int database) {
  PVBdatabase* slot = PVBget(database);
  return slot != nullptr ? &slot->header.counts : nullptr;
}

bool PVBisClean(int database) {
  const PVBstatus* counts = PVBcheckCounts(database);
  return counts != nullptr && isClean(*counts);
}

bool PVBisChecked(int database) {
  const PVBstatus* counts = PVBcheckCounts(database);
  return counts != nullptr && counts->patternErrors >= 0 && counts->timingErrors >= 0;
}

const char* PVBcheckSummary(int database) {
  static std::string summary;
  const PVBstatus* counts = PVBcheckCounts(database);
  summary = summaryOf(counts != nullptr ? *counts : PVBstatus());
  return summary.c_str();
}

// --- Properties of the database itself -----------------------------------------------

PVBid PVBdbPropertyList(int database) {
  const PVBdatabase* slot = PVBgetSection(database, kSectionProperties);
  return slot != nullptr ? slot->header.propList : UNDEF;
}

PVBid PVBdbPropertyListMake(int database) {
  PVBdatabase* slot = PVBgetSection(database, kSectionProperties);
  if (slot == nullptr) return UNDEF;
  if (slot->header.propList == UNDEF) slot->header.propList = PVBpropListNew(database);
  return slot->header.propList;
}

int PVBdbPropertyListSet(int database, PVBid id) {
  PVBdatabase* slot = PVBgetSection(database, kSectionProperties);
  if (slot == nullptr) return -1;
  slot->header.propList = id;
  return 0;
}
