// The tour in README.md is true: its commands, run as written from the clone's root, say
// what stands below them.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/import_world.h"
#include "support/program.h"
#include "support/shipped.h"
#include "support/temp_dir.h"

namespace {

// Without the four blanks in front; empty when there is no tour.
std::string tour() {
  std::ifstream readme(shippedFile("README.md"));
  std::string text;
  for (std::string line; std::getline(readme, line);) {
    const bool code = line.starts_with("    ");
    if (text.empty() ? line.starts_with("    $ ") : code) text += line.substr(4) + "\n";
    if (!text.empty() && !code && !line.empty()) break;
  }
  return text;
}

// Runs what stands behind "$ ", and shows it as a terminal does.
std::string scriptOf(const std::string& tour) {
  std::istringstream lines(tour);
  std::string script = "exec 2>&1\n";
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("$ ")) continue;
    const std::string command = line.substr(2);
    script += "cat <<'END'\n" + line + "\nEND\n" + command + "\n";
  }
  return script;
}

TEST(ReadmeTest, TheTourSaysWhatItsCommandsSay) {
  const std::string text = tour();
  ASSERT_NE(text, "");
  const TempDir root;
  std::filesystem::create_directory(root.path("build"));
  std::filesystem::create_directory_symlink(shippedFile("examples"), root.path("examples"));
  std::filesystem::create_directory_symlink(std::filesystem::path(PVB_BINARY).parent_path(),
                                            root.path("build/release"));
  root.write("tour.sh", scriptOf(text));
  ProgramCall call;
  call.arguments = {"tour.sh"};
  call.directory = root.path();
  EXPECT_EQ(runProgram("/bin/bash", call).out, text);
}

}  // namespace
