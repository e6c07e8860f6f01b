#include <fmt/format.h>

#include <limits>

#include "base/errors.h"
#include "pvb/checker.h"
#include "pvb/database.h"
#include "tools/check.h"
#include "tools/open_database.h"
#include "tools/table_output.h"
#include "tools/usage.h"

namespace {

constexpr int kBuffers = 64;
constexpr std::int32_t kUsualLimit = 100;

struct CheckOptions {
  bool full = false;
  bool errorsOnly = false;
  bool store = false;
  std::int32_t limit = kUsualLimit;
};

bool isError(const PVBmessageHeading& heading) {
  const PVBproblem* problem = PVBproblemByNumber(heading.number);
  return problem == nullptr || problem->problemClass == ProblemClass::error;
}

template <typename Tell>
void eachFinding(int database, const CheckOptions& options, Tell tell) {
  for (const PVBmessageHeading& heading : PVBmessages(database)) {
    if (options.errorsOnly && !isError(heading)) continue;
    for (const auto& items : heading.findings) {
      tell(heading, PVBfindingText(database, heading, items));
    }
  }
}

std::string_view classWord(const PVBmessageHeading& heading) {
  return isError(heading) ? "error" : "warning";
}

void printLines(int database, const CheckOptions& options, TextSink& out) {
  eachFinding(database, options, [&](const PVBmessageHeading& heading, const std::string& text) {
    out.text() += fmt::format("{}: {}\n", classWord(heading), text);
    out.offer();
  });
  out.text() += checkerSummary(database);
}

void printTable(int database, const CheckOptions& options, TableFormat format, TextSink& out) {
  TableOutput table(out, format, "pvb-check/1", {"class", "number", "name", "text"});
  eachFinding(database, options, [&](const PVBmessageHeading& heading, const std::string& text) {
    table.row(
        {std::string(classWord(heading)), std::int64_t{heading.number}, heading.shortName, text});
  });
  table.finish();
}

bool foundAny(int database, const CheckOptions& options) {
  const PVBstatus& counts = *PVBcheckCounts(database);
  const bool errors = counts.timingErrors != 0 || counts.patternErrors != 0;
  const bool warnings = counts.timingWarnings != 0 || counts.patternWarnings != 0;
  return errors || (warnings && !options.errorsOnly);
}

int failed(MessageCode code, const std::string& path, std::string_view what) {
  return refuse(code, fmt::format("{}: {}", what, takePostedReasons()), path);
}

// Checks an open database and prints; nothing is saved.
int checkOpen(int database, const std::string& path, const CheckOptions& options,
              TableFormat format) {
  if (PVBcheck(database, true, options.full, nullptr, options.limit) != 0) {
    return failed(kNotCheckable, path, "the database can't be checked");
  }
  TextSink out = streamSink(stdout);
  if (format == TableFormat::table) {
    printLines(database, options, out);
  } else {
    printTable(database, options, format, out);
  }
  if (!out.finish()) return refuse(kOutputLost, "standard output can't be written");
  return foundAny(database, options) ? kExitNo : kExitYes;
}

int checkReading(const std::string& path, const CheckOptions& options, TableFormat format) {
  ReadDatabase database;
  if (!database.open(path, printMessage)) return kExitFailed;
  return checkOpen(database.handle(), path, options, format);
}

int checkStoring(const std::string& path, const CheckOptions& options, TableFormat format) {
  if (!requireDatabase(path, printMessage)) return kExitFailed;
  const int database = PVBopenAny(path, true, 0, kBuffers, kAllSections, false);
  if (database < 0) return failed(kCantOpenDatabase, path, "the database can't be opened");
  const int exit = checkOpen(database, path, options, format);
  if (exit == kExitFailed) {
    PVBcloseUnsaved(database);
    return exit;
  }
  const bool saved = PVBsave(database) == 0;
  const bool closed = saved ? PVBclose(database) == 0 : PVBcloseUnsaved(database) == 0;
  if (saved && closed) return exit;
  return failed(kCantSaveDatabase, path, "the findings can't be saved");
}

}  // namespace

int runCheck(std::span<const std::string> arguments) {
  Usage usage("check");
  std::string path;
  CheckOptions options;
  usage.app.add_option("DB", path, "Directory of the database")->required();
  usage.app.add_flag("--full", options.full,
                     "Check also directions of slots, and their states and times");
  usage.app
      .add_option("--limit", options.limit, "Findings to list of one problem, 100 when not given")
      ->check(CLI::Range(0, std::numeric_limits<std::int32_t>::max()));
  usage.app.add_flag("--errors-only", options.errorsOnly,
                     "Leave warnings out, also of the exit code");
  usage.app.add_flag("--store", options.store, "Save findings and counters in the database");
  usage.addFormat();
  if (const auto exit = usage.parse(arguments)) return *exit;
  path = databasePath(path);
  const TableFormat format = usage.format();
  return options.store ? checkStoring(path, options, format) : checkReading(path, options, format);
}
