#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "tools/dump.h"
#include "tools/open_database.h"
#include "tools/usage.h"

namespace {

int fail(MessageCode code, const std::string& file, std::string text) {
  Message message;
  message.code = code;
  message.file = file;
  message.text = std::move(text);
  printMessage(message);
  return kExitFailed;
}

int dumpToFile(int database, const std::string& path) {
  OutputFile file;
  if (!file.open(path)) return fail(kCantWrite, path, std::strerror(errno));
  TextSink sink = streamSink(file.stream());
  const bool whole = dumpDatabase(database, sink, printMessage);
  if (!whole && sink.good()) return kExitFailed;
  if (!whole || !file.commit()) return fail(kCantWrite, path, std::strerror(errno));
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
  if (const auto exit = usage.parse(arguments)) return *exit;
  if (!output.empty() && !force && fileExists(output)) {
    return fail(kExists, output, "the file is there already");
  }
  ReadDatabase database;
  if (!database.open(databasePath(path), printMessage)) return kExitFailed;
  if (!output.empty()) return dumpToFile(database.handle(), output);
  TextSink sink = streamSink(stdout);
  if (dumpDatabase(database.handle(), sink, printMessage)) return kExitYes;
  return sink.good() ? kExitFailed : fail(kOutputLost, "", "standard output can't be written");
}
