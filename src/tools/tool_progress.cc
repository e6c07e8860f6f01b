#include "tools/tool_progress.h"

#include <unistd.h>

#include <cerrno>

#include "base/progress.h"

namespace {

// Set while a pass shows: between its constructor and its destructor.
bool passShows = false;

bool isTerminal(int descriptor) {
  const int savedErrno = errno;
  const bool terminal = ::isatty(descriptor) == 1;
  errno = savedErrno;
  return terminal;
}

}  // namespace

Progress::Progress(std::int64_t total, std::string_view text, bool quiet)
    : shows_(!quiet && !passShows && isTerminal(STDERR_FILENO)) {
  if (!shows_) return;
  passShows = true;
  PBprogressEnable(true);
  PBprogressFastPath(false);
  PBprogressStart(total, text);
}

Progress::~Progress() {
  if (!shows_) return;
  clearProgress();
  PBprogressEnable(false);
  passShows = false;
}

void Progress::look(std::int64_t done) { PBprogressUpdate(done); }

void clearProgress() {
  if (passShows) PBprogressClear();
}

bool outputIsTerminal() { return isTerminal(STDOUT_FILENO); }
