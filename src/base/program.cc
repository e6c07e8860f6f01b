#include "base/program.h"

#include <fmt/printf.h>
#include <stdlib.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "base/debug_token.h"
#include "base/errors.h"
#include "base/memory.h"
#include "base/platform.h"
#include "base/temp_directory.h"

namespace {

constexpr std::size_t kMaxDirectory = 255;
constexpr int kEndedBySignal = 2;

// Filled by PBstartProgram; lives as long as the process.
struct ProgramState {
  bool environmentRead = false;
  std::string installDirectory;
  bool locksEnabled = false;
};
ProgramState state;

void exitOnSignal(int /*signal*/) { std::exit(kEndedBySignal); }

bool readInstallDirectory() {
  const char* value = std::getenv("MVKDIR");
  if (value == nullptr) {
    std::fputs("MVKDIR is not set.  Please consult the installation instructions\n", stderr);
    std::fputs("for more information.\n", stderr);
    std::fflush(stderr);
    return false;
  }
  std::string directory = std::string(value).substr(0, kMaxDirectory);
  if (directory.size() > 1 && (directory.ends_with('/') || directory.ends_with('\\'))) {
    directory.pop_back();
  }
  state.installDirectory = directory;
  return true;
}

void readTempDirectory() {
  const char* value = std::getenv("MVK_TMPDIR");
  if (value != nullptr && directoryExists(value)) {
    PBsetTempDirectory(value);
    PBlockTempDirectory();
  }
  errno = 0;
}

// Without effect while no token table is loaded.
void readDebugSwitches() {
  if (std::getenv("MVK_SAVE_PARFILE_ONLY") == nullptr) return;
  DebugTokenSetValue("tfs.save_parfile_only", "true");
}

// The ";" is kept on every platform: other tools of the suite look for it.
void extendPath() {
  if (state.installDirectory.empty()) return;
  std::string path = state.installDirectory;
  if (const char* before = std::getenv("PATH")) path.append(";").append(before);
  setenv("PATH", path.c_str(), 1);
}

bool readEnvironment() {
  if (state.environmentRead) return true;
  if (!readInstallDirectory()) return false;
  readTempDirectory();
  readDebugSwitches();
  extendPath();
  state.locksEnabled = std::getenv("MVK_ENABLE_LOCKS") != nullptr;
  state.environmentRead = true;
  return true;
}

}  // namespace

int PBstartProgram(std::string_view name, std::string_view version) {
  PBinstallNewHandler();
  PBcatchSignal(SIGINT, exitOnSignal);
  PBcatchSignal(SIGTERM, exitOnSignal);
  if (!readEnvironment()) return -2;
  fmt::fprintf(stderr, "Meridane-MVK::%s %s (Windows 64-Bit)\n", name, version);
  std::fflush(stderr);
  PBdiscardErrors();
  return 0;
}

const std::string& PBinstallDirectory() { return state.installDirectory; }
bool PBlocksEnabled() { return state.locksEnabled; }
