#pragma once

// Which patterns of a STIL text are imported, in which order, with which timing: those
// of a PatternExec, of a PatternBurst, or some by their names. Where nothing is asked
// for, the only PatternExec is taken or the one without a name; without any the only
// PatternBurst, else the only Pattern.

#include <vector>

#include "tools/import.h"
#include "tools/stil_model.h"
#include "tools/stil_reader.h"
#include "tools/stil_timing.h"

struct StilChosenPattern {
  const StilPatternPlace* place;
  StilDomains domains;
};

struct StilChoice {
  StilTimingChoice timing;
  std::vector<StilChosenPattern> patterns;
};

// False after a message that lists what there is.
bool chooseStilPatterns(StilReader& reader, const ImportOptions& options, StilChoice& choice);
