#include "conditioner/debug_util.h"

#include <cstdio>

#include "conditioner/run.h"

namespace {

// Type numbers are those that a database stores.
struct SignalTypeName {
  std::int32_t type;
  const char* name;
  bool showsMembers;
};

constexpr SignalTypeName kSignalTypeNames[] = {
    {0, "MEM_SIGNAL", false},
    {1, "MEM_BUS", true},
    {2, "MEM_GROUP", true},
    {7, "MEM_MUX", false},
};
constexpr SignalTypeName kOtherType = {-1, "OTHER", false};

const SignalTypeName& nameOfType(std::int32_t type) {
  for (const SignalTypeName& known : kSignalTypeNames) {
    if (known.type == type) return known;
  }
  return kOtherType;
}

// A line of dashes as wide as the heading above it.
void printDashes(FILE* stream, int width) {
  std::fprintf(stream, "%s\n", std::string(static_cast<std::size_t>(width), '-').c_str());
}

void printMembers(FILE* stream, std::span<const std::int32_t> members) {
  std::fputs("( ", stream);
  for (const std::int32_t id : members) std::fprintf(stream, "%d ", id);
  std::fputs(")\n", stream);
}

}  // namespace

void dumpParams(std::span<const PBparam> table) {
  FILE* stream = run.debugStream;
  if (stream == nullptr) return;
  std::fputs("\n", stream);
  const int width =
      std::fprintf(stream, " %20s      %-20s %s\n", "Parameter Name", "String Value", "Required?");
  printDashes(stream, width - 1);
  for (const PBparam& param : table) {
    std::fprintf(stream, "%20s      %-20s    %s\n", param.name, param.value->value_or("").c_str(),
                 param.required ? "yes" : "no");
  }
}

void dumpSignals(std::span<const SignalDumpRow> signals) {
  FILE* stream = run.debugStream;
  if (stream == nullptr) return;
  const int width =
      std::fprintf(stream, "%12s %10s %13s %s\n", "sig name", "id", "type", "members");
  printDashes(stream, width - 1);
  for (const SignalDumpRow& signal : signals) {
    const SignalTypeName& type = nameOfType(signal.type);
    std::fprintf(stream, "%12s %10d %13s ", signal.name.c_str(), signal.id, type.name);
    if (type.showsMembers) {
      printMembers(stream, signal.members);
    } else {
      std::fputs("\n", stream);
    }
  }
}
