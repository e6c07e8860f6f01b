// What a database can hold that STIL has no place for: told once for each kind.

#include <algorithm>
#include <array>

#include "base/platform.h"
#include "pvb/database.h"
#include "pvb/pin.h"
#include "pvb/property.h"
#include "pvb/state_vector.h"
#include "tools/dump_format.h"
#include "tools/export_stil_internal.h"

namespace {

constexpr std::int32_t kCommentKey = 0;

bool hasPins(const StilExport& stil) {
  return PVBatePinFirst(stil.database) != nullptr || PVBdutPinFirst(stil.database) != nullptr ||
         PVBcolumnFirst(stil.database) != nullptr;
}

bool hasScanObjects(const StilExport& stil) {
  return std::ranges::any_of(PVBobjectInqAll(stil.database), [&](PVBid id) {
    const PVBsignal* object = PVBobjectInqByID(stil.database, id);
    return id != kGroupAllScan && object != nullptr && object->type >= kScanCellType &&
           object->type <= kScanChainType;
  });
}

bool hasVectors(const StilExport& stil) {
  return PVBstateVectorNext(stil.database, UNDEF) != UNDEF;
}

bool hasFindings(const StilExport& stil) { return !PVBmessages(stil.database).empty(); }

bool hasCycles(const StilExport& stil) {
  return !PVBget(stil.database)->timePlates->cycleTable.empty();
}

bool hasUnusedPlates(const StilExport& stil) {
  return static_cast<std::size_t>(PVBtimePlateCount(stil.database)) > stil.plateCount;
}

bool hasDescriptions(const StilExport& stil) {
  return std::ranges::any_of(stil.signals, [](const StilExportSignal& signal) {
    return signal.signal->alias || signal.signal->description;
  });
}

bool holdsProperties(const StilExport& stil, PVBid list) {
  return list != UNDEF && PVBpropListExists(stil.database, list) &&
         PVBpropInqFirst(stil.database, list) != nullptr;
}

bool hasProperties(const StilExport& stil) {
  const PVBid list = PVBdbPropertyList(stil.database);
  if (list != UNDEF) {
    for (const PVBproperty* property = PVBpropInqFirst(stil.database, list); property != nullptr;
         property = PVBpropInqNext(stil.database)) {
      if (property->key != kCommentKey) return true;
    }
  }
  const auto ofSignal = [&](const StilExportSignal& signal) {
    return holdsProperties(stil, signal.signal->propList);
  };
  const auto ofPlate = [&](const auto& plate) {
    return plate != nullptr && holdsProperties(stil, plate->plate->firstRow);
  };
  return std::ranges::any_of(stil.signals, ofSignal) || std::ranges::any_of(stil.plates, ofPlate);
}

// Readers take the previous state for the one that was forced last.
bool hasOtherPrevious(const StilExport& stil) {
  if (PVBpmode(stil.database) == LAST_FORCE) return false;
  for (const auto& plate : stil.plates) {
    if (plate == nullptr || plate->plate->levels.empty()) continue;
    for (const PVBtrack& track : plate->plate->levels.front().tracks) {
      if (track.stateChars.find('P') != std::string::npos) return true;
    }
  }
  return false;
}

bool hasFiles(const StilExport& stil) {
  std::vector<std::string> names;
  platform().list(PVBpath(stil.database).c_str(), names);
  return std::ranges::any_of(
      names, [](const std::string& name) { return name != kSpecFile && isCarriedFile(name); });
}

struct LeftOut {
  bool (*present)(const StilExport& stil);
  std::string_view text;
};
constexpr std::array<LeftOut, 10> kLeftOut = {{
    {hasPins, "pins and their columns"},
    {hasScanObjects, "scan chains and cells; what scan rows shift is written out"},
    {hasVectors, "state vectors"},
    {hasFindings, "findings of checks"},
    {hasCycles, "the table of cycles"},
    {hasUnusedPlates, "timeplates that no row uses"},
    {hasDescriptions, "aliases and descriptions of signals"},
    {hasProperties, "properties of the database, its signals and timeplates"},
    {hasOtherPrevious, "the P mode: a previous state is the one forced last"},
    {hasFiles, "other files in the database's directory"},
}};

}  // namespace

void stilTellNotCarried(StilExport& stil) {
  for (const LeftOut& kind : kLeftOut) {
    if (kind.present(stil)) stil.leaveOut(kind.text);
  }
}
