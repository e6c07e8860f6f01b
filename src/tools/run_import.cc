#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/text.h"
#include "tools/import.h"
#include "tools/message_limit.h"
#include "tools/new_database.h"
#include "tools/open_database.h"
#include "tools/usage.h"

namespace {

constexpr std::string_view kStandardInput = "-";

struct Command {
  std::string file;
  std::string database;
  std::string from;
  std::string optionFile;
  std::string period;
  std::string strobe;
  bool force = false;
  bool list = false;
  ImportOptions options;
};

// --- The command line ----------------------------------------------------------------

void declare(Usage& usage, Command& command) {
  CLI::App& app = usage.app;
  ImportOptions& options = command.options;
  app.add_option("FILE", command.file, "File to read; - for standard input")->required();
  app.add_option("-o,--output", command.database, "Directory of the new database");
  app.add_option("--from", command.from, "Kind of the file (stil, vcd) whatever its name");
  app.add_flag("--force", command.force, "Replace the database when it is there");
  usage.addQuiet();

  app.add_option("--exec", options.exec,
                 "STIL: PatternExec to take; else the only one, or the one without a name");
  app.add_option("--burst", options.burst, "STIL: PatternBurst, in place of the PatternExec's");
  app.add_option("--pattern", options.patterns,
                 "STIL: patterns to take in this order, in place of a burst")
      ->delimiter(',')
      ->allow_extra_args(false);
  app.add_flag("--lenient", options.lenient,
               "STIL: warn of what has no counterpart, and go on where that is possible");
  app.add_flag("--flat", options.flat, "STIL: write out loops, repeats and calls");

  app.add_option("--period", command.period, "VCD: length of a cycle, such as 100nS");
  app.add_option("--strobe", command.strobe,
                 "VCD: where in a cycle outputs are sampled; else at 90 % of the period");
  app.add_option("--clock", options.clocks, "VCD: inputs that pulse")
      ->delimiter(',')
      ->allow_extra_args(false);
  app.add_option("--inputs", options.inputs, "VCD: names, or patterns with *")
      ->delimiter(',')
      ->allow_extra_args(false);
  app.add_option("--outputs", options.outputs, "VCD: names, or patterns with *")
      ->delimiter(',')
      ->allow_extra_args(false);
  app.add_option("--bidirs", options.bidirs, "VCD: names, or patterns with *")
      ->delimiter(',')
      ->allow_extra_args(false);
  app.add_option("--scope", options.scope, "VCD: look for names below this scope");
  app.add_option("--options", command.optionFile, "VCD: file of such options, a line each");
  app.add_flag("--list", command.list, "VCD: list the variables and import nothing");
  usage.addFormat();
}

const ImportFormat* chooseFormat(const Command& command) {
  if (command.from.empty()) {
    const ImportFormat* format = importFormatOf(command.file);
    if (format == nullptr) {
      refuse(kUnknownFormat,
             command.file == kStandardInput ? "the kind of standard input isn't known"
                                            : "the kind of the file isn't known by its name",
             command.file == kStandardInput ? "" : command.file);
    }
    return format;
  }
  for (const ImportFormat& format : importFormats()) {
    if (format.name == command.from) return &format;
  }
  refuse(kUnknownFormat, fmt::format("'{}' is no kind of file that is read", command.from));
  return nullptr;
}

// Options of the other formats, whose descriptions begin with their names, would do nothing.
bool optionsFit(const CLI::App& app, const ImportFormat& format) {
  for (const CLI::Option* option : app.get_options()) {
    const std::string& description = option->get_description();
    const std::string_view kind = std::string_view(description).substr(0, description.find(": "));
    const bool foreign = std::ranges::any_of(importFormats(), [&](const ImportFormat& other) {
      return other.name != format.name && PBstrEq(other.name, kind);
    });
    if (!foreign || option->count() == 0) continue;
    refuse(kBadUsage, fmt::format("{} is for {} files only", option->get_name(), kind));
    return false;
  }
  return true;
}

// --- The import ----------------------------------------------------------------------

std::string plural(std::uint64_t count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

void printSummary(const ImportCounts& counts) {
  std::string line = fmt::format("imported {} in {}: {}, {}", plural(counts.cycles, "cycle"),
                                 plural(counts.rows, "row"), plural(counts.signals, "signal"),
                                 plural(counts.timeplates, "timeplate"));
  if (counts.warnings > 0) line += ", " + plural(counts.warnings, "warning");
  fmt::print("{}\n", line);
}

int import(const ImportFormat& format, const Command& command) {
  NewDatabase fresh(command.database);
  if (!fresh.canBeMade()) return refuse(kCantWrite, std::strerror(errno), command.database);
  ImportCounts counts;
  MessageLimit messages(printMessage);
  const bool read = format.read(
      command.file, command.options, fresh.directory(),
      [&](const Message& message) { messages.tell(message); }, counts);
  messages.tellRest();
  if (!read) return kExitFailed;
  if (!fresh.putInPlace()) return refuse(kCantWrite, std::strerror(errno), command.database);
  printSummary(counts);
  return kExitYes;
}

int list(const Command& command, TableFormat format) {
  TextSink sink = streamSink(stdout);
  if (listVcd(command.file, format, sink, printMessage) && sink.finish()) return kExitYes;
  return sink.good() ? kExitFailed : refuse(kOutputLost, "standard output can't be written");
}

}  // namespace

int runImport(std::span<const std::string> arguments) {
  Usage usage("import");
  Command command;
  declare(usage, command);
  if (const auto exit = usage.parse(arguments)) return *exit;
  ImportOptions& options = command.options;
  options.quiet = usage.quiet();
  if (!readTimeOption(command.period, "period", options.period) ||
      !readTimeOption(command.strobe, "strobe", options.strobe)) {
    return kExitFailed;
  }
  if (!command.optionFile.empty() &&
      !readImportOptions(command.optionFile, options, printMessage)) {
    return kExitFailed;
  }
  const ImportFormat* format = chooseFormat(command);
  if (format == nullptr || !optionsFit(usage.app, *format)) return kExitFailed;
  if (command.list) return list(command, usage.format());
  if (command.database.empty()) return refuse(kBadUsage, "-o DB is missing");
  command.database = databasePath(command.database);
  return mayReplace(command.database, command.force) ? import(*format, command) : kExitFailed;
}
