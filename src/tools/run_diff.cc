#include <fmt/format.h>

#include <algorithm>

#include "tools/diff.h"
#include "tools/dump_format.h"
#include "tools/open_database.h"
#include "tools/table_output.h"
#include "tools/usage.h"

namespace {

struct StretchTexts {
  std::string from;
  std::string to;
};

bool readTime(const std::string& text, std::int64_t& out) {
  if (text.empty()) return true;
  TIME time;
  if (!parseWholeTIME(text, time)) return false;
  out = PBtimeToLong(time);
  return true;
}

// An exit code when the texts make no stretch.
std::optional<int> readStretch(const StretchTexts& texts, DiffStretch& stretch) {
  for (const auto& [text, place] :
       {std::pair(&texts.from, &stretch.from), {&texts.to, &stretch.to}}) {
    if (!readTime(*text, *place)) return refuse(kBadStretch, fmt::format("'{}' is no time", *text));
  }
  if (stretch.from < stretch.to) return std::nullopt;
  return refuse(kBadStretch, fmt::format("{} isn't behind {}", texts.to, texts.from));
}

// --- Output --------------------------------------------------------------------------

Cell textCell(const std::string& text) { return text.empty() ? Cell() : Cell(text); }

Cell timeCell(const std::optional<std::int64_t>& time) {
  if (!time) return {};
  std::string text;
  appendTime(text, TIME{static_cast<std::int32_t>(*time / 1000000000),
                        static_cast<std::int32_t>(*time % 1000000000)});
  return text;
}

Cell countCell(std::uint64_t count) { return static_cast<std::int64_t>(count); }

void addRow(TableOutput& table, const Difference& found) {
  table.row({found.what, textCell(found.signal), textCell(found.a.row), textCell(found.b.row),
             found.cycle ? countCell(*found.cycle) : Cell(), timeCell(found.a.time),
             timeCell(found.b.time), countCell(found.cycles), found.a.text, found.b.text});
}

std::string summary(const DiffResult& result, std::uint64_t told, bool structure) {
  if (result.differences == 0 && structure) return "same\n";
  if (result.differences == 0) {
    return fmt::format("same: {} signals, {} cycles\n", result.signals, result.cycles);
  }
  const bool all = told == result.differences;
  return fmt::format("different: {} difference{}{}\n", result.differences,
                     result.differences == 1 ? "" : "s",
                     all ? "" : fmt::format(", {} shown", told));
}

struct Comparison {
  DiffOptions options;
  bool structure = false;
  std::uint64_t limit = 20;
};

int compare(int a, int b, const Comparison& wanted, TableFormat format) {
  TextSink out = streamSink(stdout);
  std::uint64_t lines = 0;
  std::uint64_t told = 0;
  DiffResult result;
  {
    TableOutput table(
        out, format, "pvb-diff/1",
        {"what", "signal", "row_a", "row_b", "cycle", "time_a", "time_b", "cycles", "a", "b"});
    const DifferenceSink sink = [&](const Difference& found) {
      if (lines == wanted.limit) return;
      ++lines;
      told += found.cycles;
      addRow(table, found);
    };
    result = wanted.structure ? diffStructures(a, b, sink, printMessage)
                              : diffDatabases(a, b, wanted.options, sink, printMessage);
    const bool shown = lines > 0 || format != TableFormat::table;
    if (shown) table.finish();
  }
  if (!result.done) return kExitFailed;
  if (format == TableFormat::table) out.text() += summary(result, told, wanted.structure);
  if (!out.finish()) return refuse(kOutputLost, "standard output can't be written");
  return result.differences == 0 ? kExitYes : kExitNo;
}

// The same database twice stands in two slots.
std::string otherText(const std::string& path, const std::string& first) {
  return path == first ? path + "/." : path;
}

}  // namespace

int runDiff(std::span<const std::string> arguments) {
  Usage usage("diff");
  std::string pathA;
  std::string pathB;
  Comparison wanted;
  DiffOptions& options = wanted.options;
  StretchTexts stretchA;
  StretchTexts stretchB;
  bool literal = false;
  usage.app.add_option("A", pathA, "Directory of the first database")->required();
  usage.app.add_option("B", pathB, "Directory of the second database")->required();
  usage.app.add_option("--signals", options.signals, "Compare these signals only: NAME,NAME...")
      ->delimiter(',');
  usage.app.add_flag("--common", options.common, "Compare only signals that both have");
  usage.app.add_flag("--ignore-cycles", options.ignoreCycles,
                     "Compare driven and expected levels over time, not cycles");
  usage.app.add_option("--a-from", stretchA.from, "Time in A where the comparison begins");
  usage.app.add_option("--a-to", stretchA.to, "Time in A where it ends");
  usage.app.add_option("--b-from", stretchB.from, "Time in B where the comparison begins");
  usage.app.add_option("--b-to", stretchB.to, "Time in B where it ends");
  usage.app.add_flag("--literal-previous", literal,
                     "Compare the state P as itself, not as what it stands for");
  usage.app.add_flag("--structure", wanted.structure,
                     "Compare what is stored: rows, names, properties, labels, pins");
  usage.app.add_option("--limit", wanted.limit, "Differences to list, 20 when not given");
  usage.addFormat();
  usage.addQuiet();
  if (const auto exit = usage.parse(arguments)) return *exit;
  options.quiet = usage.quiet();
  options.previous = literal ? PreviousMode::literal : PreviousMode::resolve;
  if (const auto exit = readStretch(stretchA, options.stretchA)) return *exit;
  if (const auto exit = readStretch(stretchB, options.stretchB)) return *exit;
  ReadDatabase a;
  ReadDatabase b;
  pathA = databasePath(pathA);
  pathB = databasePath(pathB);
  if (!a.open(pathA, printMessage) || !b.open(otherText(pathB, pathA), printMessage)) {
    return kExitFailed;
  }
  return compare(a.handle(), b.handle(), wanted, usage.format());
}
