#pragma once

// A database from the text of a dump, so that dump, build and dump again give the
// same text. The new database grows in a directory of its own beside the final
// one and is renamed when it is whole; a text that is wrong leaves nothing behind.

#include <span>
#include <string>

#include "tools/dump_text.h"
#include "tools/message.h"

// Builds into the directory `path`, which must not exist. False after a message
// of the scanner; the directory may then hold anything.
bool buildDatabase(DumpScanner& in, const std::string& path, bool quiet = true);

// The verb: `pvb build TEXT DB [--force] [--quiet]`. The exit code.
int runBuild(std::span<const std::string> arguments);
