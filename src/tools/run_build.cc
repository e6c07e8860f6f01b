#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "base/errors.h"
#include "tools/build.h"
#include "tools/new_database.h"
#include "tools/open_database.h"
#include "tools/usage.h"

namespace {

constexpr std::string_view kStandardInput = "-";

int build(const std::string& text, const std::string& path, bool quiet) {
  const bool standardInput = text == kStandardInput;
  TextFilePtr file =
      PBopenCompressedTextFile(standardInput ? "/dev/stdin" : text, "r", false, kTextGzip);
  if (!file) {
    return refuse(kCantRead, fmt::format("the text can't be opened: {}", takePostedReasons()),
                  text);
  }
  DumpScanner in(std::move(file), standardInput ? "<stdin>" : text, printMessage);
  NewDatabase fresh(path);
  if (!fresh.canBeMade()) return refuse(kCantWrite, std::strerror(errno), path);
  if (!buildDatabase(in, fresh.directory(), quiet)) return kExitFailed;
  if (fresh.putInPlace()) return kExitYes;
  return refuse(kCantWrite, std::strerror(errno), path);
}

}  // namespace

int runBuild(std::span<const std::string> arguments) {
  Usage usage("build");
  std::string text;
  std::string path;
  bool force = false;
  usage.app.add_option("TEXT", text, "Dump to read; - for standard input")->required();
  usage.app.add_option("DB", path, "Directory of the new database")->required();
  usage.app.add_flag("--force", force, "Replace the database when it is there");
  usage.addQuiet();
  if (const auto exit = usage.parse(arguments)) return *exit;
  path = databasePath(path);
  return mayReplace(path, force) ? build(text, path, usage.quiet()) : kExitFailed;
}
