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
#include "tools/table_output.h"
#include "tools/text_sink.h"

struct ImportOptions {
  // STIL
  std::string exec;                   // PatternExec; empty: the only one, or the one without a name
  std::string burst;                  // in place of that of the PatternExec
  std::vector<std::string> patterns;  // in place of a burst
  bool lenient = false;
  bool flat = false;
  // VCD
  std::optional<TIME> period;
  std::optional<TIME> strobe;       // where outputs are sampled; else at 90 % of the period
  std::vector<std::string> clocks;  // inputs that pulse
  std::vector<std::string> inputs;  // names or patterns with * of them
  std::vector<std::string> outputs;
  std::vector<std::string> bidirs;
  std::string scope;  // names are looked for below it, and shown without it
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

// Adds what a file of options says: period and strobe where `options` has none, names
// behind those that are there. A line is a keyword and its values; "#" begins a comment.
//
//   period TIME     strobe TIME     scope NAME
//   input NAME...   output NAME...  bidir NAME...   clock NAME...
//
// False after a message.
bool readImportOptions(const std::string& file, ImportOptions& options, const MessageSink& sink);

// The variables of a VCD file, one a row: scope, name with range, type, width, how often
// it changes, and the direction that port states tell. False after a message.
bool listVcd(const std::string& file, TableFormat format, TextSink& out, const MessageSink& sink);

// How files are known by the endings of their names, and read.
struct ImportFormat {
  std::string_view name;     // of --from
  std::string_view endings;  // separated by blanks
  std::string_view description;
  bool (*read)(const std::string& file, const ImportOptions& options, const std::string& path,
               const MessageSink& sink, ImportCounts& counts);
};
std::span<const ImportFormat> importFormats();
// By the ending of a file's name; null for none.
const ImportFormat* importFormatOf(std::string_view file);

// The verb: `pvb import FILE -o DB [options]`. The exit code.
int runImport(std::span<const std::string> arguments);
