#pragma once

// Checks the structure of a database on disk without opening it for change: every
// file against itself and against the others. Each finding names its file and the
// place in it.

#include <span>
#include <string>

#include "tools/message.h"

struct VerifyCounts {
  std::int64_t faults = 0;
  std::int64_t notes = 0;
};
// Tells each finding to the sink, `file` being the name of the file within the
// directory; nothing on disk changes. The memory it takes is a bit a block beside
// the sections that are kept in memory anyway.
VerifyCounts verifyDatabase(const std::string& path, const MessageSink& sink, bool quiet = true);

// The verb: `pvb verify DB [--format FORM] [--quiet]`. The exit code.
int runVerify(std::span<const std::string> arguments);
