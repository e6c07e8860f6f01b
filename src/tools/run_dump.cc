#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "tools/dump.h"
#include "tools/open_database.h"
#include "tools/output_file.h"
#include "tools/tool_progress.h"
#include "tools/usage.h"

namespace {

int dumpToFile(int database, const std::string& path, bool quiet) {
  OutputFile file;
  if (!file.open(path)) return refuse(kCantWrite, std::strerror(errno), path);
  TextSink sink = streamSink(file.stream());
  const bool whole = dumpDatabase(database, sink, printMessage, quiet);
  if (!whole && sink.good()) return kExitFailed;
  if (!whole || !file.commit()) return refuse(kCantWrite, std::strerror(errno), path);
  return kExitYes;
}

}  // namespace

int runDump(std::span<const std::string> arguments) {
  Usage usage("dump");
  std::string path;
  std::string output;
  bool force = false;
  usage.app.add_option("DB", path, "Directory of the database")->required();
  usage.app.add_option("-o,--output", output, "File to write instead of standard output");
  usage.app.add_flag("--force", force, "Replace the file when it is there");
  usage.addQuiet();
  if (const auto exit = usage.parse(arguments)) return *exit;
  if (!output.empty() && !mayWriteFile(output, force, path)) return kExitFailed;
  ReadDatabase database;
  if (!database.open(databasePath(path), printMessage)) return kExitFailed;
  if (!output.empty()) return dumpToFile(database.handle(), output, usage.quiet());
  TextSink sink = streamSink(stdout);
  const bool quiet = usage.quiet() || outputIsTerminal();
  if (dumpDatabase(database.handle(), sink, printMessage, quiet)) return kExitYes;
  return sink.good() ? kExitFailed : refuse(kOutputLost, "standard output can't be written");
}
