#include <fmt/format.h>

#include "tools/open_database.h"
#include "tools/table_output.h"
#include "tools/usage.h"
#include "tools/verify.h"
#include "tools/verify_internal.h"

namespace {

constexpr std::string_view severityWord(Severity severity) {
  return severity == Severity::error ? "error" : severity == Severity::note ? "note" : "warning";
}

// Lines in the form of messages, without what to do: `pvb explain` tells that.
std::string findingLine(const Message& message) {
  return fmt::format("{}{}{}: {}: {} [{}]\n", message.file, message.place.empty() ? "" : ": ",
                     message.place, severityWord(message.severity), message.text,
                     messageCodeText(message.code));
}

VerifyCounts verifyAsLines(const std::string& path, TextSink& out, bool quiet) {
  const VerifyCounts counts = verifyDatabase(
      path,
      [&](const Message& message) {
        out.text() += findingLine(message);
        out.offer();
      },
      quiet);
  out.text() +=
      counts.faults == 0 && counts.notes == 0
          ? "sound\n"
          : fmt::format("{}: {} faults, {} notes\n", counts.faults == 0 ? "sound" : "damaged",
                        counts.faults, counts.notes);
  out.finish();
  return counts;
}

VerifyCounts verifyAsTable(const std::string& path, TextSink& out, TableFormat format, bool quiet) {
  TableOutput table(out, format, "pvb-verify/1", {"severity", "file", "place", "text", "code"});
  const VerifyCounts counts = verifyDatabase(
      path,
      [&](const Message& message) {
        table.row({std::string(severityWord(message.severity)), message.file, message.place,
                   message.text, messageCodeText(message.code)});
      },
      quiet);
  table.finish();
  return counts;
}

}  // namespace

int runVerify(std::span<const std::string> arguments) {
  Usage usage("verify");
  std::string path;
  usage.app.add_option("DB", path, "Directory of the database")->required();
  usage.addFormat();
  usage.addQuiet();
  if (const auto exit = usage.parse(arguments)) return *exit;
  path = databasePath(path);
  if (!requireDatabase(path, printMessage)) return kExitFailed;
  TextSink out = streamSink(stdout);
  const TableFormat format = usage.format();
  const VerifyCounts counts = format == TableFormat::table
                                  ? verifyAsLines(path, out, usage.quiet())
                                  : verifyAsTable(path, out, format, usage.quiet());
  return counts.faults == 0 ? kExitYes : kExitNo;
}
