#include "base/program.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <string>

#include "base/debug_token.h"
#include "base/errors.h"
#include "base/temp_directory.h"
#include "support/temp_dir.h"

namespace {

using testing::ExitedWithCode;

// The environment is looked at once a process, so each start has its own.
[[noreturn]] void startAndTell() {
  DebugTokenLoad("", "no such file");
  PBpostError("earlier", 0, "post");
  const int result = PBstartProgram("Tool Name", "Version 1");
  std::fprintf(stderr, "%d %d|%s|%s|%s|%d", result, PBerrorCount(), PBinstallDirectory().c_str(),
               PBtempDirectory().c_str(), getenv("PATH"), PBlocksEnabled() ? 1 : 0);
  if (DebugTokenEnabled("tfs.save_parfile_only")) std::fputs("|save", stderr);
  std::exit(0);
}

TEST(ProgramDeathTest, TakesItsDirectoriesFromTheEnvironment) {
  const TempDir dir;
  const std::string identity = "^Meridane-MVK::Tool Name Version 1 .Windows 64-Bit.\n0 0";
  const auto start = [&](const std::string& temp) {
    setenv("MVKDIR", "/install/", 1);
    setenv("MVK_TMPDIR", temp.c_str(), 1);
    setenv("PATH", "/bin", 1);
    setenv("MVK_ENABLE_LOCKS", "", 1);
    setenv("MVK_SAVE_PARFILE_ONLY", "", 1);
    startAndTell();
  };
  EXPECT_EXIT(start(dir.path()), ExitedWithCode(0),
              identity + "./install." + dir.path() + "./install;/bin.1.save$");
  EXPECT_EXIT(start(dir.path("none")), ExitedWithCode(0),
              identity + "./install.\\../install;/bin.1.save$");
}

}  // namespace
