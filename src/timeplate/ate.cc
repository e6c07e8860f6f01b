#include "timeplate/ate.h"

#include <fmt/format.h>

#include "base/errors.h"
#include "base/program.h"
#include "base/text.h"
#include "base/text_file.h"
#include "timeplate/ate_internal.h"
#include "timeplate/tp_settings.h"

AteTables ateTables;

namespace {

constexpr std::string_view kOtherFamily = "other";

void status(std::string_view line) { tpStatus(std::string(line).append("\n")); }

bool isOtherFamily() { return tpParamIs(TpParam::ATEFamily, kOtherFamily); }

// The file that a parameter names. 0, or -2 after a notice.
int namedFile(TpParam parameter, std::string& path) {
  if (PBisEmpty(tpParam(parameter))) return tpRefuseParam(kMissingParameter, parameter);
  path = *tpParam(parameter);
  if (PBtextFileExists(path)) return 0;
  tpNotice(kFileNotFound, path);
  return -2;
}

int findShapeFile(std::string& path) {
  if (isOtherFamily()) return namedFile(TpParam::ShapeFile, path);
  const std::string family = PBlowerText(*tpParam(TpParam::ATEFamily));
  path = fmt::format("{0}/ate/{1}/{1}.shp", PBinstallDirectory(), family);
  if (PBtextFileExists(path)) return 0;
  tpNotice(kFileNotFound, path);
  return -2;
}

int readSignalList() {
  if (!tpParamIs(TpParam::UseSignalList, "yes")) return 0;
  std::string path;
  return namedFile(TpParam::SignalListFile, path) == 0 ? ateReadSignalList(path) : -2;
}

int pmodeOfFamily(std::int32_t& mode) {
  const bool known = PVBfamilyToMode(mode, *tpParam(TpParam::ATEFamily)) == 0;
  return known ? 0 : tpRefuseParam(kIllegalParameter, TpParam::ATEFamily);
}

int pmodeOfParameter(std::int32_t& mode) {
  const std::optional<std::string>& name = tpParam(TpParam::Pmode);
  if (PBisEmpty(name)) return tpRefuseParam(kMissingParameter, TpParam::Pmode);
  const bool known = PVBmodeFromName(mode, *name) == 0;
  return known ? 0 : tpRefuseParam(kIllegalParameter, TpParam::Pmode);
}

// The mode is told, and no database gets it: one that is merged or optimized has its own.
int settlePmode() {
  const bool testers =
      !tpParam(TpParam::UseTesterPmode) || tpParamIs(TpParam::UseTesterPmode, "yes");
  std::int32_t mode = 0;
  const bool ofFamily = testers && !isOtherFamily();
  if ((ofFamily ? pmodeOfFamily(mode) : pmodeOfParameter(mode)) != 0) return -2;
  ateTables.pmode = mode;
  status(fmt::format("pmode is: {}", mode));
  return 0;
}

const ShapeTable& tableOf(int table) {
  if (table == kSimpleShapes) return ateTables.simpleShapes;
  const bool own = table == kMuxShapes && ateTables.muxShapeMode == kMuxOwnList;
  return own ? ateTables.muxShapes : ateTables.complexShapes;
}

// --- Families ------------------------------------------------------------------------

bool familiesInUse() { return tpSettings.useShapeFamilies && !ateTables.shapeFamilies.empty(); }

const ShapeFamily& familyAt(int family) {
  return ateTables.shapeFamilies[static_cast<std::size_t>(family)];
}

// -1 for a signal without one.
int familyOf(PVBid signal) {
  const auto found = ateTables.signalFamilies.find(signal);
  return found != ateTables.signalFamilies.end() ? found->second : -1;
}

const Wave* nextOf(const std::vector<int>& ids, ShapeWalk& walk) {
  const auto place = static_cast<std::size_t>(walk.next);
  if (place >= ids.size()) return nullptr;
  ++walk.next;
  return &ateTables.complexShapes.shapes[static_cast<std::size_t>(ids[place])];
}

// Goes on to the next family, behind the last one to the plain table.
void leaveFamily(ShapeWalk& walk) {
  walk.next = 0;
  ++walk.family;
  if (walk.family == static_cast<int>(ateTables.shapeFamilies.size())) walk.family = -1;
}

}  // namespace

int ateInit() {
  status("initializing ATE info...");
  ateTables = {};
  const std::optional<std::string>& family = tpParam(TpParam::ATEFamily);
  if (PBisEmpty(family)) return tpRefuseParam(kMissingParameter, TpParam::ATEFamily);
  status(fmt::format("ATE family is: {}", *family));
  std::string path;
  if (findShapeFile(path) != 0) return -2;
  if (ateReadShapeFile(path) != 0) return -2;
  if (ateTables.muxShapeMode == kMuxNotSet) ateTables.muxShapeMode = kMuxAll;
  if (readSignalList() != 0) return -2;
  if (!tpSettings.tpoOptimizeOnly && settlePmode() != 0) return -2;
  status("");
  return 0;
}

int atePmode() { return ateTables.pmode; }

const Wave* ateFirstShape(ShapeWalk& walk, int table, PVBid signal) {
  walk = {.table = table, .signal = signal};
  if (table == kComplexShapes && familiesInUse()) {
    const int family = familyOf(signal);
    walk.own = family >= 0;
    walk.family = walk.own ? family : 0;
  }
  return ateNextShape(walk);
}

const Wave* ateNextShape(ShapeWalk& walk) {
  while (walk.family >= 0) {
    const Wave* shape = nextOf(familyAt(walk.family).shapes, walk);
    if (shape != nullptr || walk.own) return shape;
    leaveFamily(walk);
  }
  const std::vector<Wave>& shapes = tableOf(walk.table).shapes;
  const auto place = static_cast<std::size_t>(walk.next);
  if (place >= shapes.size()) return nullptr;
  ++walk.next;
  return &shapes[place];
}

const Wave* ateShapeLookup(int table, std::string_view states, int& id) {
  id = ateShapeId(table, states);
  return id >= 0 ? &tableOf(table).shapes[static_cast<std::size_t>(id)] : nullptr;
}

int ateShapeId(int table, std::string_view states) { return tableOf(table).idOf(states); }

int ateShapeCount(int table) { return tableOf(table).count(); }

const Wave* ateForcedMap(std::string_view states, PVBid signal) {
  const auto maps = ateTables.forcedMaps.find(states);
  if (maps == ateTables.forcedMaps.end()) return nullptr;
  const int family = familiesInUse() ? familyOf(signal) : -1;
  for (const int id : maps->second) {
    if (family >= 0 && !familyAt(family).members.contains(id)) continue;
    return &ateTables.complexShapes.shapes[static_cast<std::size_t>(id)];
  }
  return nullptr;
}

bool ateUseMux() { return tpSettings.useMuxTiming && ateTables.muxShapeMode != kMuxNone; }
