// pvb: looks into pattern databases, writes them as text and makes them from text.

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/temp_directory.h"
#include "equations/checker_times.h"
#include "tools/verbs.h"

namespace {

// Private copies go where the suite's temporary files go, else where the system's do.
void chooseTempDirectory() {
  for (const char* name : {"MVK_TMPDIR", "TMPDIR"}) {
    const char* directory = std::getenv(name);
    if (directory == nullptr || *directory == '\0') continue;
    PBsetTempDirectory(directory);
    return;
  }
  PBsetTempDirectory("/tmp");
}

}  // namespace

int main(int argc, char** argv) {
  PBprogramName = "pvb";
  // A closed pipe shows as a failed write, with a message and an exit code.
  std::signal(SIGPIPE, SIG_IGN);
  // So does a file that gets longer than a limit of the system allows.
  std::signal(SIGXFSZ, SIG_IGN);
  chooseTempDirectory();
  installCheckerTimeUpdate();
  return runCompanion(std::vector<std::string>(argv + 1, argv + argc));
}
