#pragma once

// The import of STIL in its parts, for tests and fuzzing: of a text in memory, with
// limits that keep hostile ones short.

#include <string>
#include <string_view>

#include "tools/import.h"
#include "tools/stil_expand.h"

// As importStil. Of `limits` only the limits count.
bool importStilText(std::string_view text, const ImportOptions& options, const std::string& path,
                    const MessageSink& sink, ImportCounts& counts,
                    const StilExpandOptions& limits = {});
