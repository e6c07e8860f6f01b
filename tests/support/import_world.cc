#include "support/import_world.h"

#include <gmock/gmock.h>

#include "support/pattern_model.h"

ProgramResult ImportWorld::import(const std::string& name, const std::string& text,
                                  const std::vector<std::string>& options) {
  directory().write(name + ".stil", text);
  return importFile(name, name + ".stil", options);
}

ProgramResult ImportWorld::importFile(const std::string& name, const std::string& file,
                                      const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {"import", file, "-o", name, "--force"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return runCompanion(arguments);
}

void ImportWorld::expectEvents(const std::string& name, const std::vector<std::string>& signals,
                               std::size_t first,
                               const std::vector<std::vector<std::string>>& table) {
  const std::string dumped = dump(name);
  for (std::size_t s = 0; s < signals.size(); ++s) {
    const std::vector<std::string> events = cycleEvents(dumped, signals[s]);
    ASSERT_GE(events.size(), first - 1 + table.size()) << signals[s];
    for (std::size_t i = 0; i < table.size(); ++i) {
      EXPECT_EQ(events[first - 1 + i], table[i][s]) << signals[s] << ", cycle " << first + i;
    }
  }
}

void expectImported(const ProgramResult& result) {
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
}
