#include "base/temp_directory.h"

#include <fcntl.h>
#include <fmt/printf.h>
#include <unistd.h>

#include <cerrno>

#include "base/expand.h"
#include "base/platform.h"

namespace {

constexpr std::size_t kMaxLength = 255;
// Set by PBsetTempDirectory and the lock calls; lives as long as the process.
struct TempDirectory {
  std::string path = ".";
  bool locked = false;
  unsigned namesGiven = 0;
};
TempDirectory chosen;

bool isSeparator(char c) { return c == '/' || c == '\\'; }

// "/" and "C:\" lose their meaning without the separator.
bool isRoot(std::string_view path) {
  return path.size() == 1 || (path.size() == 3 && path[1] == ':');
}

// Each process has numbers of its own, also for names under which a file is made later:
// processes that run at the same time never get the same one.
constexpr unsigned kNumbersOfAProcess = 1024;
// A number that is taken is passed over; a directory full of leftovers must not keep
// the search going for ever.
constexpr int kMaxTries = kNumbersOfAProcess;

std::string nextName(std::string_view prefix) {
  const unsigned number = static_cast<unsigned>(::getpid()) * kNumbersOfAProcess +
                          chosen.namesGiven++ % kNumbersOfAProcess;
  std::string name = chosen.path;
  if (!isSeparator(name.back())) name += '/';
  return name.append(prefix).append(fmt::sprintf("%05u", number));
}

}  // namespace

void PBsetTempDirectory(std::string_view directory) {
  if (chosen.locked) return;
  std::string path = PBexpandEnvironment(directory).substr(0, kMaxLength);
  if (!path.empty() && isSeparator(path.back()) && !isRoot(path)) path.pop_back();
  chosen.path = path.empty() ? "." : path;
}

void PBlockTempDirectory() { chosen.locked = true; }
void PBunlockTempDirectory() { chosen.locked = false; }
const std::string& PBtempDirectory() { return chosen.path; }

std::string PBtempFileName(std::string_view prefix) {
  std::string name = nextName(prefix);
  for (int tries = 1; tries < kMaxTries && fileExists(name); ++tries) name = nextName(prefix);
  errno = 0;
  return name;
}

int PBcreateTempFile(std::string_view prefix, std::string& path) {
  int descriptor = -1;
  int tries = 0;
  do {
    path = nextName(prefix);
    descriptor = platform().open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  } while (descriptor < 0 && errno == EEXIST && ++tries < kMaxTries);
  if (descriptor >= 0) errno = 0;
  return descriptor;
}
