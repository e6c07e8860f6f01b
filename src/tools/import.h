#pragma once

// Patterns from other programs' files into new databases. A reader is a row of a table:
// the names of its files, what it is for, and the function that does it. The database
// grows in a directory of its own beside the final one and is renamed when it is whole.

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/time.h"
#include "tools/message.h"

struct ImportOptions {
  // STIL
  std::string exec;                   // PatternExec; empty: the only one, or the one without a name
  std::string burst;                  // in place of that of the PatternExec
  std::vector<std::string> patterns;  // in place of a burst
  bool lenient = false;
  bool flat = false;
  // VCD
  std::optional<TIME> period;
  std::optional<TIME>
      strobe;  // where outputs are sampled; else the last femtosecond-step before the end
  std::vector<std::string> clocks;
  std::vector<std::string> inputs;  // names or patterns with * of them
  std::vector<std::string> outputs;
  std::vector<std::string> bidirs;
  std::string scope;
  // both
  bool quiet = false;
};

struct ImportCounts {
  std::uint64_t signals = 0;
  std::uint64_t timeplates = 0;
  std::uint64_t rows = 0;
  std::uint64_t cycles = 0;
  std::uint64_t warnings = 0;
};

// Into the directory `path`, which must not exist. False after messages; the directory
// may then hold anything.
bool importStil(const std::string& file, const ImportOptions& options, const std::string& path,
                const MessageSink& sink, ImportCounts& counts);
bool importVcd(const std::string& file, const ImportOptions& options, const std::string& path,
               const MessageSink& sink, ImportCounts& counts);

// The verb: `pvb import FILE -o DB [options]`. The exit code.
int runImport(std::span<const std::string> arguments);
