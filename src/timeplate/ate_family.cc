#include <fmt/printf.h>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/signal.h"
#include "timeplate/ate_internal.h"
#include "timeplate/tp_settings.h"

namespace {

constexpr std::size_t kTableWidth = 47;  // of a row of the summary

// The signal of a name, of a bus or group every one; null after a notice where the
// database has none of that name.
const PVBidList* signalsNamed(int database, const std::string& name) {
  const PVBsignal* signal = PVBsignalInqByName(database, name);
  if (signal != nullptr) return &PVBsignalListToScalars(database, {signal->id});
  PVBclearStatus(database);
  tpNotice(kNoticeText, fmt::sprintf("signal not in database: %s", name));
  return nullptr;
}

int bindNoMapping(int database) {
  for (const std::string& name : ateTables.noMappingSignals) {
    const PVBidList* signals = signalsNamed(database, name);
    if (signals == nullptr) return -2;
    for (const PVBid id : *signals) {
      const PVBsignal* signal = PVBsignalInqByID(database, id);
      if (signal != nullptr && signal->name) ateTables.noMapping.insert(*signal->name);
    }
  }
  return 0;
}

int bindFamilies(int database) {
  for (const auto& [name, family] : ateTables.familySignals) {
    const PVBidList* signals = signalsNamed(database, name);
    if (signals == nullptr) return -2;
    for (const PVBid id : *signals) ateTables.signalFamilies.insert_or_assign(id, family);
  }
  return 0;
}

// What a multiplexed wave has at its ends is no part of its shape.
std::string_view withoutOpenEnds(std::string_view states) {
  if (states.size() > 1 && states.front() == '?') states.remove_prefix(1);
  if (states.size() > 1 && states.back() == '?') states.remove_suffix(1);
  return states;
}

std::unordered_set<int> complexShapesOf(const PVBtimePlate& plate) {
  std::unordered_set<int> shapes;
  if (plate.levels.empty()) return shapes;
  for (const PVBtrack& track : plate.levels.front().tracks) {
    int id = ateTables.complexShapes.idOf(track.stateChars);
    if (id < 0) id = ateTables.complexShapes.idOf(withoutOpenEnds(track.stateChars));
    if (id >= 0) shapes.insert(id);
  }
  return shapes;
}

}  // namespace

int ateBindSignals(int database) {
  ateTables.noMapping.clear();
  ateTables.signalFamilies.clear();
  if (database < 0) return 0;
  if (bindNoMapping(database) != 0) return -2;
  return bindFamilies(database);
}

bool ateNoMapping(std::string_view signalName) { return ateTables.noMapping.contains(signalName); }

void ateCountUse(const PVBtimePlate& plate, std::int64_t rows) {
  const std::unordered_set<int> shapes = complexShapesOf(plate);
  for (ShapeFamily& family : ateTables.shapeFamilies) {
    bool uses = false;
    for (const int id : shapes) {
      if (!family.members.contains(id)) continue;
      family.used.insert(id);
      uses = true;
    }
    if (uses) family.rows += rows;
  }
}

void ateFamilySummary() {
  tpReport("\n\nShape Family Summary:\n\n");
  if (ateTables.shapeFamilies.empty()) return tpReport("No Shape Families Present\n");
  const std::string border = std::string(kTableWidth, '-') + "\n";
  tpReport(border);
  for (ShapeFamily& family : ateTables.shapeFamilies) {
    tpReport(fmt::sprintf("| %20s | %9d | %8d |\n", family.name, family.used.size(), family.rows));
    family.used.clear();
    family.rows = 0;
  }
  tpReport(border);
}
