#pragma once

// Databases as files that other programs read. The database isn't changed; rows are
// streamed. The file comes under its name when it is whole.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/time.h"
#include "tools/message.h"
#include "tools/text_sink.h"

struct ExportOptions {
  std::optional<TIME> from;  // VCD: the stretch of time
  std::optional<TIME> to;
  std::vector<std::string> signals;  // VCD: these only
  bool quiet = true;                 // no progress is shown
};

// Of an open database. False after messages.
bool exportStil(int database, const ExportOptions& options, TextSink& out, const MessageSink& sink);
bool exportVcd(int database, const ExportOptions& options, TextSink& out, const MessageSink& sink);

// How files are written, and known by the endings of their names.
struct ExportFormat {
  std::string_view name;     // of --to
  std::string_view endings;  // separated by blanks; what ends in ".gz" is compressed
  std::string_view description;
  bool takesStretch;  // --begin, --end and --signals say something
  bool (*write)(int database, const ExportOptions& options, TextSink& out, const MessageSink& sink);
};
std::span<const ExportFormat> exportFormats();

// The verb: `pvb export DB -o FILE.stil|FILE.vcd`. The exit code.
int runExport(std::span<const std::string> arguments);
