#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "base/errors.h"
#include "base/srf.h"
#include "base/text.h"
#include "timeplate/ate_internal.h"
#include "timeplate/tp_settings.h"

namespace {

// Columns in the order of kColumns.
enum Column {
  kShape,
  kMuxShape,
  kSimpleShape,
  kForceMap,
  kNoMapping,
  kFamilyShape,
  kShapeFamily,
  kSignal,
  kFamily,
};
constexpr std::string_view kColumns[] = {
    "shape",       "muxShape",    "simpleShape", "forceMap", "noMapping",
    "familyShape", "shapeFamily", "signal",      "family",
};
constexpr std::uint32_t bit(Column column) { return std::uint32_t{1} << column; }

constexpr const char* kGlobalFamily = "globalShapeFamily";

std::string_view valueOf(const SRFtuple& row, Column column) {
  const auto item = std::ranges::find(row.items, bit(column), &SRFitem::attribute);
  return item != row.items.end() ? item->value : std::string_view();
}

// A fault ends the reading.
bool fail(const std::string& text) {
  tpNotice(kNoticeText, text);
  SRF_stopParse();
  return false;
}

// --- Shapes --------------------------------------------------------------------------

bool checkShape(std::string_view states) {
  if (states.empty()) return fail("bad shape in file: length 0");
  for (const char state : states) {
    if (tpStateClass(state) == 0) {
      return fail(fmt::format("invalid shape char in file: shape number {}",
                              ateTables.complexShapes.count() + 1));
    }
    if (!tpIsDrive(state) && state != 'X' && state != '?') {
      return fail(fmt::format("disallowed shape char in file: {}", state));
    }
  }
  return true;
}

bool addShape(ShapeTable& table, std::string_view states) {
  if (!checkShape(states)) return false;
  table.ids.insert_or_assign(std::string(states), table.count());
  table.shapes.push_back({std::string(states), std::vector<TIME>(states.size())});
  tpStatus(fmt::format("\tshape {} read\n", states));
  return true;
}

bool handleShape(const SRFtuple& row, std::uint32_t /*matched*/) {
  const std::string_view states = valueOf(row, kShape);
  return addShape(tpShapeSimple(states) ? ateTables.simpleShapes : ateTables.complexShapes, states);
}

bool setMuxMode(int mode, std::string_view word) {
  if (ateTables.muxShapeMode != kMuxNotSet) {
    return fail(fmt::format("Cannot set muxShape to {} once it has been previously set.", word));
  }
  ateTables.muxShapeMode = mode;
  return true;
}

bool handleMuxShape(const SRFtuple& row, std::uint32_t /*matched*/) {
  const std::string_view text = valueOf(row, kMuxShape);
  if (PBstrEq(text, "NONE")) return setMuxMode(kMuxNone, "NONE");
  if (PBstrEq(text, "ALL")) return setMuxMode(kMuxAll, "ALL");
  if (ateTables.muxShapeMode == kMuxNone || ateTables.muxShapeMode == kMuxAll) {
    return fail("Cannot set muxShape when NONE or ALL has been specified.");
  }
  ateTables.muxShapeMode = kMuxOwnList;
  return addShape(ateTables.muxShapes, text);
}

// --- Forced maps ---------------------------------------------------------------------

bool checkMapShape(const ShapeTable& table, std::string_view kind, std::string_view states) {
  const bool simple = &table == &ateTables.simpleShapes;
  if (table.shapes.empty()) {
    return fail(fmt::format("Missing {} shape list.", simple ? "simple" : "complex"));
  }
  if (table.idOf(states) >= 0) return true;
  return fail(fmt::format("{} Map must exist in shape list <{}>.", kind, states));
}

bool handleForceMap(const SRFtuple& row, std::uint32_t /*matched*/) {
  const std::string_view simple = valueOf(row, kSimpleShape);
  const std::string_view complex = valueOf(row, kForceMap);
  if (!tpShapeSimple(simple) || tpShapeSimple(complex)) {
    return fail(fmt::format("Map pairs must be a simple shape and a complex shape <{}> <{}>.",
                            simple, complex));
  }
  if (!checkMapShape(ateTables.simpleShapes, "Simple", simple)) return false;
  if (!checkMapShape(ateTables.complexShapes, "Complex", complex)) return false;
  ateTables.forcedMaps[std::string(simple)].push_back(ateTables.complexShapes.idOf(complex));
  return true;
}

bool handleNoMapping(const SRFtuple& row, std::uint32_t /*matched*/) {
  ateTables.noMappingSignals.emplace_back(valueOf(row, kNoMapping));
  return true;
}

// --- Families ------------------------------------------------------------------------

ShapeFamily& familyNamed(std::string_view name) {
  const auto [entry, isNew] = ateTables.familyByName.try_emplace(
      std::string(name), static_cast<int>(ateTables.shapeFamilies.size()));
  if (isNew) ateTables.shapeFamilies.emplace_back().name = name;
  return ateTables.shapeFamilies[static_cast<std::size_t>(entry->second)];
}

bool handleFamilyShape(const SRFtuple& row, std::uint32_t /*matched*/) {
  const std::string_view states = valueOf(row, kFamilyShape);
  const std::string_view name = valueOf(row, kShapeFamily);
  const int id = ateTables.complexShapes.idOf(states);
  if (id < 0) {
    return fail(
        fmt::format("<{}> must first appear as a complex shape for family <{}>.", states, name));
  }
  if (ateTables.shapeFamilies.empty()) familyNamed(kGlobalFamily);
  ShapeFamily& family = familyNamed(name);
  family.shapes.push_back(id);
  family.members.insert(id);
  return true;
}

bool handleSignalFamily(const SRFtuple& row, std::uint32_t /*matched*/) {
  const std::string_view name = valueOf(row, kFamily);
  const auto family = ateTables.familyByName.find(name);
  if (family == ateTables.familyByName.end()) return fail(fmt::format("unknown family: {}", name));
  ateTables.familySignals.emplace_back(valueOf(row, kSignal), family->second);
  return true;
}

// --- Files ---------------------------------------------------------------------------

const SRFrowHandler kShapeFileRows[] = {
    {bit(kShape), handleShape},
    {bit(kMuxShape), handleMuxShape},
    {bit(kSimpleShape) | bit(kForceMap), handleForceMap},
    {bit(kNoMapping), handleNoMapping},
    {bit(kFamilyShape) | bit(kShapeFamily), handleFamilyShape},
    {bit(kSignal) | bit(kFamily), handleSignalFamily},
};
// A list of signals names no shapes.
const SRFrowHandler kSignalListRows[] = {
    {bit(kNoMapping), handleNoMapping},
    {bit(kSignal) | bit(kFamily), handleSignalFamily},
};

// The reader's own notes are told in its way, with the line, before the faults.
int readTables(const std::string& path, std::span<const SRFrowHandler> rows,
               std::string_view faultLabel) {
  SRF_resetModes();
  SRF_setKeywords(kColumns);
  const bool sound = SRF_parseFile(path, rows);
  SRF_resetModes();
  if (sound) return 0;
  if (SRF_noMoreMessages()) tpNotice(kNoticeText, std::string(faultLabel).append(path));
  while (std::optional<std::string> message = SRF_nextMessage()) {
    if (message->ends_with('\n')) message->pop_back();
    tpNotice(kNoticeText, std::string(faultLabel).append(*message));
  }
  return -2;
}

}  // namespace

int ateReadShapeFile(const std::string& path) {
  tpStatus(fmt::format("reading shape file {}...\n", path));
  if (readTables(path, kShapeFileRows, "Shape file parse error: ") != 0) return -2;
  const bool none = ateTables.simpleShapes.shapes.empty() &&
                    ateTables.complexShapes.shapes.empty() && ateTables.muxShapes.shapes.empty();
  if (!none) return 0;
  tpNotice(kNoticeText, "no shapes in shape file");
  return -2;
}

int ateReadSignalList(const std::string& path) {
  return readTables(path, kSignalListRows, "Signal file parse error: ");
}
