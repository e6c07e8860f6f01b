#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/errors.h"
#include "base/platform.h"
#include "tools/build.h"
#include "tools/dump_format.h"
#include "tools/open_database.h"
#include "tools/usage.h"

namespace {

constexpr std::string_view kStandardInput = "-";

// Whether what stands under the final name may go: a database, or nothing.
bool mayReplace(const std::string& path, bool force) {
  if (!fileExists(path)) return true;
  if (!force) {
    refuse(kExists, "the destination is there already", path);
    return false;
  }
  std::vector<std::string> names;
  if (!directoryExists(path) || !platform().list(path.c_str(), names)) {
    refuse(kNotReplaceable, "this is no database", path);
    return false;
  }
  const auto foreign =
      std::ranges::find_if(names, [](const std::string& name) { return !isDatabaseFile(name); });
  if (foreign == names.end()) return true;
  refuse(kNotReplaceable, fmt::format("'{}' in it is no file of a database", *foreign), path);
  return false;
}

// The old database goes aside and comes back when the new one can't take its place.
bool putInPlace(const std::string& fresh, const std::string& path) {
  if (!fileExists(path)) return platform().rename(fresh.c_str(), path.c_str()) == 0;
  const std::string aside = fmt::format("{}.old{}", path, getpid());
  if (platform().rename(path.c_str(), aside.c_str()) != 0) return false;
  if (platform().rename(fresh.c_str(), path.c_str()) == 0) {
    removeDatabaseDirectory(aside);
    return true;
  }
  const int reason = errno;
  platform().rename(aside.c_str(), path.c_str());
  errno = reason;
  return false;
}

int build(const std::string& text, const std::string& path, bool quiet) {
  const bool standardInput = text == kStandardInput;
  TextFilePtr file =
      PBopenCompressedTextFile(standardInput ? "/dev/stdin" : text, "r", false, kTextGzip);
  if (!file) {
    return refuse(kCantRead, fmt::format("the text can't be opened: {}", takePostedReasons()),
                  text);
  }
  DumpScanner in(std::move(file), standardInput ? "<stdin>" : text, printMessage);
  const std::string fresh = fmt::format("{}.tmp{}", path, getpid());
  const bool built = buildDatabase(in, fresh, quiet);
  if (built && putInPlace(fresh, path)) return kExitYes;
  const std::string reason = std::strerror(errno);
  removeDatabaseDirectory(fresh);
  return built ? refuse(kCantWrite, reason, path) : kExitFailed;
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
