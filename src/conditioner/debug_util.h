#pragma once

// Printers of internal tables for whoever works on the program. They write to
// the run's debug stream and do nothing while it isn't set.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/param.h"

// What the signal dump shows of a signal. `type` is the signal's type number.
struct SignalDumpRow {
  std::string name;
  std::int32_t id = -1;
  std::int32_t type = 0;
  std::vector<std::int32_t> members;  // ids; shown for buses and groups
};

void dumpParams(std::span<const PBparam> table);
void dumpSignals(std::span<const SignalDumpRow> signals);
