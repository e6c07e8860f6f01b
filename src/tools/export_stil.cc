#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "pvb/database.h"
#include "pvb/property.h"
#include "tools/dump_format.h"
#include "tools/export_stil_internal.h"

namespace {

// What a line of names has room for.
constexpr std::size_t kLineLength = 96;
// Properties under this key are comments.
constexpr std::int32_t kCommentKey = 0;

// --- Names ---------------------------------------------------------------------------

bool breaksNames(char c) { return c == '"' || c == '\'' || static_cast<unsigned char>(c) < ' '; }

bool isMultiplexed(const PVBsignal& signal) {
  return signal.type == MEM_MUX || !signal.muxChildren.empty();
}

std::string_view directionWord(std::int32_t direction) {
  return direction == INPUT ? "In" : direction == OUTPUT ? "Out" : "InOut";
}

// --- Signals -------------------------------------------------------------------------

StilColumns columnsOf(int database, const PVBsignal& signal) {
  StilColumns columns = {-1, -1, signal.multiBit != 0};
  const std::int32_t width = 2 * PVBrowDataSize(database);
  const DataColumns data = PVBsignalDataColumns(signal);
  if (data.in < width) columns.in = data.in;
  if (data.out < width) columns.out = data.out;
  return columns;
}

// The group that vectors are written by: one that the database has, else one of our own.
void takeAllSignals(StilExport& stil, StilNameTable& names) {
  std::vector<std::uint32_t> all(stil.signals.size());
  std::iota(all.begin(), all.end(), 0U);
  const auto known = std::ranges::find(stil.groups, all, &StilGroupMembers::signals);
  if (known != stil.groups.end()) {
    stil.allSignals = known->name;
    return;
  }
  stil.allSignals = names.take("_all_", {});
  stil.groups.push_back({stil.allSignals, std::move(all)});
}

// Buses and the users' groups.
void takeGroups(StilExport& stil, StilNameTable& names) {
  std::unordered_map<PVBid, std::uint32_t> places;
  for (std::size_t i = 0; i < stil.signals.size(); ++i) {
    places.emplace(stil.signals[i].signal->id, static_cast<std::uint32_t>(i));
  }
  const PVBidList ids = PVBsignalInqAll(stil.database);
  for (const PVBid id : ids) {
    const PVBsignal* signal = PVBsignalInqByID(stil.database, id);
    const bool group = signal != nullptr && signal->name && !PVBisImplicit(stil.database, id) &&
                       (signal->type == MEM_BUS || signal->type == MEM_GROUP);
    if (!group) continue;
    StilGroupMembers members;
    const PVBidList scalars = PVBsignalListToScalars(stil.database, signal->members);
    for (const PVBid scalar : scalars) {
      const auto found = places.find(scalar);
      if (found != places.end()) members.signals.push_back(found->second);
    }
    if (members.signals.empty()) continue;
    members.name = names.take(*signal->name, "group");
    stil.groups.push_back(std::move(members));
  }
}

void takePatternNames(StilExport& stil) {
  StilNameTable names;
  const auto& subroutines = PVBget(stil.database)->patterns->subroutines;
  stil.procedures.resize(subroutines.size());
  for (std::size_t i = 0; i < subroutines.size(); ++i) {
    if (subroutines[i].root == kNoNode) continue;
    stil.procedures[i] = names.take(subroutines[i].name.value_or(""), "procedure");
  }
  if (names.changed()) stil.warn("names of subroutines that STIL can't have are changed");
}

// --- The head ------------------------------------------------------------------------

void writeHeader(const StilExport& stil) {
  stil.line("STIL 1.0;");
  const PVBid list = PVBdbPropertyList(stil.database);
  if (list == UNDEF) return;
  const std::optional<std::string> title = PVBpropGet(stil.database, list, kCommentKey);
  if (!title || title->empty()) return;
  stil.line("Header {");
  stil.line(fmt::format("  Title {};", stilQuoted(StilNameTable().take(*title, {}))));
  stil.line("}");
}

void writeGroup(const StilExport& stil, const StilGroupMembers& group) {
  std::string line = fmt::format("  {} = '", stilQuoted(group.name));
  for (std::size_t i = 0; i < group.signals.size(); ++i) {
    if (line.size() > kLineLength) {
      stil.line(line);
      line = "   ";
    }
    if (i > 0) line += " + ";
    line += stilQuoted(stil.signals[group.signals[i]].name);
  }
  stil.line(line + "';");
}

std::int64_t rowCount(int database) {
  PVBposition sums;
  std::int64_t rows = 0;
  if (PVBpatternInqSize(database, kMainPattern, sums) == 0) rows = sums.row;
  const auto& subroutines = PVBget(database)->patterns->subroutines;
  for (const PVBsubroutine& subroutine : subroutines) {
    if (subroutine.root != kNoNode) rows += subroutine.sums.row;
  }
  return rows;
}

}  // namespace

std::string StilNameTable::take(std::string_view name, std::string_view usual) {
  std::string base(name.empty() ? usual : name);
  std::ranges::replace_if(base, breaksNames, '_');
  std::string result = base;
  for (int number = 1; !taken_.insert(result).second; ++number) {
    result = fmt::format("{}_{}", base, number);
  }
  changed_ = changed_ || (!name.empty() && result != name);
  return result;
}

std::string stilQuoted(std::string_view text) { return fmt::format("\"{}\"", text); }

bool StilExport::refuse(std::string text) const {
  sink(failureMessage(kExportRefused, std::move(text), PVBpath(database)));
  return false;
}

void StilExport::warn(std::string text) {
  if (!warnings.insert(text).second) return;
  Message message;
  message.severity = Severity::warning;
  message.code = kExportNotCarried;
  message.text = std::move(text);
  message.file = PVBpath(database);
  sink(message);
}

bool stilTakeSignals(StilExport& stil) {
  const PVBsignal* all = PVBsignalInqByID(stil.database, kGroupAll);
  const PVBidList ids =
      all != nullptr ? PVBsignalListToScalars(stil.database, all->members) : PVBidList();
  StilNameTable names;
  for (const PVBid id : ids) {
    const PVBsignal* signal = PVBsignalInqByID(stil.database, id);
    if (signal == nullptr || !signal->name) continue;
    if (isMultiplexed(*signal)) {
      return stil.refuse(fmt::format(
          "signal \"{}\" is multiplexed; STIL has one wave a signal and cycle", *signal->name));
    }
    stil.signals.push_back({signal, names.take(*signal->name, "signal")});
    stil.columns.push_back(columnsOf(stil.database, *signal));
  }
  if (stil.signals.empty()) return stil.refuse("there are no signals");
  takeGroups(stil, names);
  takeAllSignals(stil, names);
  if (names.changed()) stil.warn("names of signals that STIL can't have are changed");
  takePatternNames(stil);
  return true;
}

void stilWriteSignals(StilExport& stil) {
  writeHeader(stil);
  stil.line("Signals {");
  for (const StilExportSignal& signal : stil.signals) {
    stil.line(
        fmt::format("  {} {};", stilQuoted(signal.name), directionWord(signal.signal->direction)));
  }
  stil.line("}");
  stil.line("SignalGroups {");
  for (const StilGroupMembers& group : stil.groups) writeGroup(stil, group);
  stil.line("}");
}

bool exportStil(int database, const ExportOptions& options, TextSink& out,
                const MessageSink& sink) {
  Progress progress(2 * rowCount(database), "Writing rows", options.quiet);
  StilExport stil(database, out, sink, progress);
  if (!stilTakeSignals(stil) || !stilSurvey(stil)) return false;
  if (!stilChooseCharacters(stil) || !stilReadEquations(stil)) return false;
  stilTellNotCarried(stil);
  stilWriteSignals(stil);
  stilWriteSpecs(stil);
  stilWriteTiming(stil);
  stilWriteExec(stil);
  return stilWritePatterns(stil) && out.finish();
}
