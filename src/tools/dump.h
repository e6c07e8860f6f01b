#pragma once

// A database as text: everything that it holds, in an order that depends on
// nothing but its content, so that two dumps can be compared line by line and a
// database be built from one (dump_format.h has the form). Rows are streamed: a
// dump takes as much memory as the sections that are kept in memory anyway.

#include <span>
#include <string>

#include "tools/message.h"
#include "tools/text_sink.h"

// Dumps an open database with all its sections. False after a message, or when
// the sink lost something.
bool dumpDatabase(int database, TextSink& out, const MessageSink& sink, bool quiet = true);

// The verb: `pvb dump DB [-o FILE] [--force] [--quiet]`. The exit code.
int runDump(std::span<const std::string> arguments);
