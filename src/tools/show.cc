#include "tools/show.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/platform.h"
#include "equations/expression.h"
#include "equations/spec_data.h"
#include "pvb/label.h"
#include "pvb/pattern.h"
#include "pvb/property.h"
#include "pvb/state_vector.h"
#include "tools/dump_format.h"
#include "tools/nearest.h"
#include "tools/open_database.h"
#include "tools/usage.h"

namespace {

// Rows wanted, both ends included.
struct RowRange {
  std::uint32_t from = 0;
  std::uint32_t to = 0xFFFFFFFF;
};

struct Show {
  int database;
  TextSink& out;
  TableFormat format;
  RowRange range;

  PVBdatabase& slot() const { return *PVBget(database); }
  TableOutput table(std::string_view section, std::vector<std::string> columns) const {
    return TableOutput(out, format, fmt::format("pvb-show-{}/1", section), std::move(columns));
  }
};

Cell textCell(const std::optional<std::string>& text) {
  return text ? Cell(*text) : Cell(std::monostate());
}
Cell numberCell(std::int64_t number) { return number; }
Cell numberUnless(std::int64_t number, std::int64_t none) {
  return number == none ? Cell(std::monostate()) : Cell(number);
}
Cell idCell(PVBid id) {
  std::string text;
  appendId(text, id);
  return text;
}
Cell timeCell(TIME time) {
  std::string text;
  appendTime(text, time);
  return text;
}
Cell wordCell(ValueWords words, std::int64_t value) {
  std::string text;
  appendWord(text, words, value);
  return text;
}

// --- Sections ------------------------------------------------------------------------

bool showOverview(const Show& show) {
  TableOutput table = show.table("overview", {"what", "value"});
  PVBdatabase& slot = show.slot();
  PVBposition sums;
  PVBpatternInqSize(show.database, kMainPattern, sums);
  const auto subroutines = std::ranges::count_if(
      slot.patterns->subroutines, [](const PVBsubroutine& entry) { return entry.root != kNoNode; });
  std::int64_t vectors = 0;
  for (PVBid id = PVBstateVectorNext(show.database, UNDEF); id != UNDEF;
       id = PVBstateVectorNext(show.database, id)) {
    ++vectors;
  }
  const auto number = [&](const char* what, std::int64_t value) {
    table.row({std::string(what), numberCell(value)});
  };
  number("version", slot.version);
  number("columns in a row", slot.rowWidth);
  number("columns in use", slot.signals->nextColumn);
  number("signals, groups and scan objects", slot.signals->byId.count());
  number("timeplates", PVBtimePlateCount(show.database));
  number("rows", sums.row);
  number("cycles", sums.cycle);
  table.row({std::string("time"), timeCell(sums.time)});
  number("subroutines", subroutines);
  number("labels", static_cast<std::int64_t>(PVBlabels(show.database).size()));
  number("state vectors", vectors);
  number("tester pins", slot.pins->atePins.count());
  number("device pins", slot.pins->dutPins.count());
  number("pattern errors", slot.header.counts.patternErrors);
  number("timing errors", slot.header.counts.timingErrors);
  number("pattern warnings", slot.header.counts.patternWarnings);
  number("timing warnings", slot.header.counts.timingWarnings);
  return table.finish();
}

bool showSignals(const Show& show) {
  TableOutput table =
      show.table("signals", {"id", "name", "type", "direction", "in", "out", "members", "alias"});
  show.slot().signals->byId.forEach([&](const PVBsignal& signal) {
    table.row({idCell(signal.id), textCell(signal.name), wordCell(kSignalTypeWords, signal.type),
               wordCell(kDirectionWords, signal.direction),
               numberUnless(signal.inColumn, kNoColumn), numberUnless(signal.outColumn, kNoColumn),
               numberCell(static_cast<std::int64_t>(signal.members.size())),
               textCell(signal.alias)});
  });
  return table.finish();
}

bool showTimePlates(const Show& show) {
  TableOutput table =
      show.table("timeplates", {"id", "name", "period", "family", "slots", "tracks", "events"});
  for (const auto& plate : show.slot().timePlates->plates) {
    if (!plate) continue;
    std::int64_t tracks = 0;
    std::int64_t events = 0;
    for (const PVBlevel& level : plate->levels) {
      tracks += static_cast<std::int64_t>(level.tracks.size());
      for (const PVBtrack& track : level.tracks) {
        events += static_cast<std::int64_t>(track.eventTimes.size());
      }
    }
    table.row({numberCell(plate->id), textCell(plate->name), timeCell(plate->period),
               textCell(plate->family),
               numberCell(static_cast<std::int64_t>(plate->selectorLists.size())),
               numberCell(tracks), numberCell(events)});
  }
  return table.finish();
}

std::string statesText(const PVBrow& row, int columns) {
  std::string text;
  for (int column = 0; column < columns; ++column) {
    text += kStateCharacters[static_cast<std::size_t>(
        rowCode(row.states(), static_cast<std::uint32_t>(column)))];
  }
  return text;
}

Cell rowNames(const Show& show, const PVBrow& row) {
  if (row.type == ROW_SUBR_CALL) {
    return std::string(PVBsubroutineName(show.database, static_cast<int>(row.link)));
  }
  const PVBtimePlate* plate =
      row.timeplate != kNoTimePlate ? PVBtimePlateInqByID(show.database, row.timeplate) : nullptr;
  return plate != nullptr ? textCell(plate->name) : Cell(std::monostate());
}

bool showRows(const Show& show) {
  TableOutput table =
      show.table("rows", {"pattern", "row", "depth", "type", "count", "timeplate", "states"});
  const int columns = std::min(show.slot().rowWidth, show.slot().signals->nextColumn);
  const auto pattern = [&](int index) {
    PatternWalk walk(show.database, index);
    while (walk.next() && walk.rowNumber() <= show.range.to) {
      if (walk.rowNumber() < show.range.from) continue;
      const RowHandle row(show.database, PVBrowGet(show.database, walk.entry().child));
      if (!row) return false;
      const bool comment =
          row->type == ROW_LOOP || row->type == ROW_END_LOOP || row->type == ROW_SUBR_CALL;
      table.row(
          {index == kMainPattern ? Cell(std::string("main"))
                                 : Cell(std::string(PVBsubroutineName(show.database, index))),
           numberCell(walk.rowNumber()), numberCell(walk.depth()),
           std::string(PVBrowTypeName(row->type)), numberCell(row->count), rowNames(show, *row),
           comment ? std::string(PVBrowComment(show.database, *row)) : statesText(*row, columns)});
    }
    return !walk.failed();
  };
  bool good = pattern(kMainPattern);
  const auto count = static_cast<int>(show.slot().patterns->subroutines.size());
  for (int index = 0; index < count && good; ++index) {
    if (PVBsubroutineInq(show.database, index) != nullptr) good = pattern(index);
  }
  return table.finish() && good;
}

bool showSubroutines(const Show& show) {
  TableOutput table = show.table("subroutines", {"slot", "name", "rows", "cycles", "time", "base"});
  const auto& all = show.slot().patterns->subroutines;
  for (std::size_t slot = 0; slot < all.size(); ++slot) {
    if (all[slot].root == kNoNode) continue;
    table.row({numberCell(static_cast<std::int64_t>(slot)), textCell(all[slot].name),
               numberCell(all[slot].sums.row), numberCell(all[slot].sums.cycle),
               timeCell(all[slot].sums.time), numberCell(all[slot].addressBase)});
  }
  return table.finish();
}

bool showLabels(const Show& show) {
  TableOutput table = show.table("labels", {"name", "kind", "subroutine", "row", "text"});
  for (const PVBlabel& label : PVBlabels(show.database)) {
    table.row({label.name, wordCell(kLabelKindWords, label.kind),
               numberUnless(label.subroutine, kMainPattern),
               numberUnless(label.rowNumber, kNoRowNumber), textCell(label.text)});
  }
  return table.finish();
}

// --- Properties ----------------------------------------------------------------------

struct PropertyTable {
  const Show& show;
  TableOutput& table;

  void list(PVBid id, const std::string& of) {
    if (id == UNDEF || !PVBpropListExists(show.database, id)) return;
    for (const PVBproperty* property = PVBpropInqFirst(show.database, id); property != nullptr;
         property = PVBpropInqNext(show.database)) {
      table.row({of, numberCell(property->key), textCell(property->value)});
    }
  }
  void rows(int pattern, const std::string& name) {
    PatternWalk walk(show.database, pattern);
    while (walk.next() && walk.rowNumber() <= show.range.to) {
      if (walk.rowNumber() < show.range.from) continue;
      const RowHandle row(show.database, PVBrowGet(show.database, walk.entry().child));
      if (row && row->tag != UNDEF)
        list(row->tag, fmt::format("{} row {}", name, walk.rowNumber()));
    }
  }
};

bool showProperties(const Show& show) {
  TableOutput table = show.table("properties", {"of", "key", "value"});
  PropertyTable properties{show, table};
  properties.list(show.slot().header.propList, "database");
  show.slot().signals->byId.forEach([&](const PVBsignal& signal) {
    std::string of = "signal ";
    appendOptional(of, signal.name);
    properties.list(signal.propList, of);
  });
  for (const auto& plate : show.slot().timePlates->plates) {
    if (plate) properties.list(plate->firstRow, "timeplate " + plate->name.value_or("none"));
  }
  properties.rows(kMainPattern, "main");
  const auto count = static_cast<int>(show.slot().patterns->subroutines.size());
  for (int index = 0; index < count; ++index) {
    if (PVBsubroutineInq(show.database, index) == nullptr) continue;
    properties.rows(index, std::string(PVBsubroutineName(show.database, index)));
  }
  return table.finish();
}

// --- Pins, vectors, findings, files --------------------------------------------------

bool showPins(const Show& show) {
  TableOutput table = show.table("pins", {"kind", "id", "name", "node", "class", "description"});
  const auto add = [&](const char* kind) {
    return [&table, kind](const PVBpin& pin) {
      table.row({std::string(kind), idCell(pin.id), textCell(pin.name), textCell(pin.node),
                 numberUnless(pin.pinClass, -1), textCell(pin.description)});
    };
  };
  show.slot().pins->atePins.forEach(add("tester"));
  show.slot().pins->dutPins.forEach(add("device"));
  return table.finish();
}

bool showColumns(const Show& show) {
  TableOutput table = show.table("columns", {"id", "number", "flag", "signals"});
  show.slot().pins->columns.forEach([&](const PVBcolumn& column) {
    table.row({idCell(column.id), numberCell(column.number), numberCell(column.flag),
               numberCell(static_cast<std::int64_t>(column.signals.size()))});
  });
  return table.finish();
}

bool showVectors(const Show& show) {
  TableOutput table = show.table("vectors", {"number", "name", "cells", "value"});
  std::int64_t number = 0;
  for (PVBid id = PVBstateVectorNext(show.database, UNDEF); id != UNDEF;
       id = PVBstateVectorNext(show.database, id)) {
    const std::string* bytes = PVBstateVectorBytes(show.database, id);
    if (bytes == nullptr) return false;
    const auto cells = static_cast<std::int64_t>(2 * bytes->size());
    const std::string name = PVBstateVectorName(show.database, id);
    table.row({numberCell(++number), name.empty() ? Cell(std::monostate()) : Cell(name),
               numberCell(cells), numberCell(PVBstateVectorValue(show.database, id))});
  }
  return table.finish();
}

bool showFindings(const Show& show) {
  TableOutput table = show.table("findings", {"number", "name", "text", "findings"});
  for (const PVBmessageHeading& heading : PVBmessages(show.database)) {
    table.row({numberCell(heading.number), heading.shortName, heading.text,
               numberCell(static_cast<std::int64_t>(heading.findings.size()))});
  }
  return table.finish();
}

// --- Equations -----------------------------------------------------------------------

Cell attributeCell(const ssValue& value, ssType type) {
  if (value.code == kValueUndefined) return std::monostate();
  if (value.code == kValueText) return textCell(value.text);
  return quantityText(quantityOfNumber(value.number, typeDimension(type)));
}

// The value in the set that the scope has selected, or why there is none.
Cell evaluatedCell(ExpressionScope& scope, const std::string& variable) {
  Quantity value;
  ExpressionError error;
  if (scope.variable(variable, value, error)) return quantityText(value);
  return "error: " + expressionErrorText(error);
}

void showSet(TableOutput& table, const ssSheet& sheet, std::size_t set, ExpressionScope& scope) {
  static const ssItem kEmpty;
  const bool exists = set < sheet.sets.size();
  for (std::size_t row = 0; row < sheet.variables.size(); ++row) {
    const std::string& name = sheet.variables[row].name;
    const ssType type = sheet.variables[row].type;
    const ssItem* item = &kEmpty;
    if (exists && sheet.sets[set].items.contains(row)) item = &sheet.sets[set].items.at(row);
    table.row({sheet.name, exists ? Cell(sheet.sets[set].name) : Cell(std::monostate()), name,
               ssExpression(sheet, set, row), evaluatedCell(scope, name),
               attributeCell(item->minimum, type), attributeCell(item->maximum, type),
               attributeCell(item->measured, type)});
  }
}

bool showEquations(const Show& show) {
  TableOutput table = show.table(
      "equations", {"sheet", "set", "variable", "expression", "value", "min", "max", "measured"});
  const bool exists = ssExists(PVBpath(show.database));
  const std::optional<ssData> data = exists ? ssOpen(PVBpath(show.database)) : ssData();
  if (!data) return table.finish() && false;
  ExpressionScope scope(*data);
  for (std::size_t sheet = 0; sheet < data->sheets.size(); ++sheet) {
    // A sheet without sets has the variables' own expressions.
    const std::size_t sets = std::max<std::size_t>(data->sheets[sheet].sets.size(), 1);
    for (std::size_t set = 0; set < sets; ++set) {
      scope.select(sheet, set);
      showSet(table, data->sheets[sheet], set, scope);
    }
  }
  return table.finish();
}

bool showFiles(const Show& show) {
  TableOutput table = show.table("files", {"name", "bytes"});
  std::vector<std::string> names;
  if (!platform().list(PVBpath(show.database).c_str(), names)) return false;
  for (const std::string& name : names) {
    struct stat status {};
    if (platform().status(PVBfilePath(PVBpath(show.database), name).c_str(), status) != 0) continue;
    table.row({name, numberCell(status.st_size)});
  }
  return table.finish();
}

struct Section {
  std::string_view name;
  bool (*show)(const Show& show);
  MessageCode fault = kRowsNotReadable;  // what a failure means
};
constexpr std::array<Section, 13> kSections = {{{"overview", showOverview},
                                                {"signals", showSignals},
                                                {"timeplates", showTimePlates},
                                                {"rows", showRows},
                                                {"labels", showLabels},
                                                {"subroutines", showSubroutines},
                                                {"properties", showProperties},
                                                {"pins", showPins},
                                                {"columns", showColumns},
                                                {"vectors", showVectors},
                                                {"findings", showFindings},
                                                {"equations", showEquations, kEquationsNotReadable},
                                                {"files", showFiles}}};

const Section* findSection(std::string_view name) {
  const auto found =
      std::ranges::find_if(kSections, [name](const Section& row) { return row.name == name; });
  return found != kSections.end() ? &*found : nullptr;
}

// "{overview,signals,...}"
std::string sectionNames() {
  std::string names;
  for (const Section& section : kSections) names += fmt::format(",{}", section.name);
  return fmt::format("{{{}}}", names.substr(1));
}

bool readNumber(std::string_view text, std::uint32_t& out) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
  return error == std::errc() && end == text.data() + text.size();
}

// "FROM..TO", "FROM..", "..TO" or one number.
bool readRange(std::string_view text, RowRange& range) {
  const std::size_t dots = text.find("..");
  if (dots == std::string_view::npos) {
    const bool good = readNumber(text, range.from);
    range.to = range.from;
    return good;
  }
  const std::string_view from = text.substr(0, dots);
  const std::string_view to = text.substr(dots + 2);
  return (from.empty() || readNumber(from, range.from)) &&
         (to.empty() || readNumber(to, range.to)) && range.from <= range.to;
}

}  // namespace

int runShow(std::span<const std::string> arguments) {
  Usage usage("show");
  std::string path;
  std::string name = "overview";
  std::string rows;
  usage.app.add_option("DB", path, "Directory of the database")->required();
  usage.app.add_option("SECTION", name, "What to show; without it an overview")
      ->type_name(sectionNames());
  usage.app.add_option("--rows", rows, "Only these rows: FROM..TO, FROM.., ..TO or one");
  usage.addFormat();
  if (const auto exit = usage.parse(arguments)) return *exit;
  const Section* section = findSection(name);
  if (section == nullptr) {
    std::vector<std::string_view> names;
    names.reserve(std::size(kSections));
    for (const Section& row : kSections) names.push_back(row.name);
    return refuse(kBadUsage, fmt::format("'{}' is no section{}", name, didYouMean(name, names)));
  }
  RowRange range;
  if (!rows.empty() && !readRange(rows, range)) {
    return refuse(kBadUsage, fmt::format("'{}' is no range of rows", rows));
  }
  ReadDatabase database;
  if (!database.open(databasePath(path), printMessage)) return kExitFailed;
  TextSink out = streamSink(stdout);
  const Show show{database.handle(), out, usage.format(), range};
  if (section->show(show)) return kExitYes;
  if (!out.good()) return refuse(kOutputLost, "standard output can't be written");
  const std::string reasons = takePostedReasons();
  return refuse(section->fault,
                "not everything could be read" + (reasons.empty() ? "" : ": " + reasons), path);
}
