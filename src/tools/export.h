#pragma once

// Databases as files that other programs read. The database isn't changed; rows are
// streamed. The file comes under its name when it is whole.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/time.h"
#include "tools/message.h"
#include "tools/text_sink.h"

struct ExportOptions {
  std::optional<TIME> from;  // VCD: the stretch of time
  std::optional<TIME> to;
  std::vector<std::string> signals;  // VCD: these only
};

// Of an open database. False after messages.
bool exportStil(int database, const ExportOptions& options, TextSink& out, const MessageSink& sink);
bool exportVcd(int database, const ExportOptions& options, TextSink& out, const MessageSink& sink);

// The verb: `pvb export DB -o FILE.stil|FILE.vcd`. The exit code.
int runExport(std::span<const std::string> arguments);
