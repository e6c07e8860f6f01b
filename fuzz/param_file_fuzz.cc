// Any bytes as a parameter file: it is read or refused with a post, and its pairs
// survive being written and read again.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "base/expand.h"
#include "base/param.h"
#include "memory_file.h"

namespace {

std::optional<std::string> operation, opFile, tmpPrefix;
const PBparam kTable[] = {
    {"Operation", &operation, false}, {"OpFile", &opFile, false}, {"TmpPrefix", &tmpPrefix, false}};

void clear() {
  operation = opFile = tmpPrefix = std::nullopt;
  PBdiscardErrors();
  PBresetParams();
}

void writeFile(const std::string& path) {
  require(PBopenParamFile(path, "w") == 0);
  for (const PBparam& row : kTable) {
    if (*row.value) require(PBputParam(row.name, **row.value) == 0);
  }
  require(PBcloseParamFile() == 0);
}

// In front of a line end a carriage return is a part of it.
bool canBeWritten() {
  return std::ranges::none_of(
      kTable, [](const PBparam& row) { return *row.value && (*row.value)->ends_with('\r'); });
}

void checkRoundTrip() {
  const auto before = {operation, opFile, tmpPrefix};
  const MemoryFile copy("");
  writeFile(copy.path());
  clear();
  require(PBgatherParams(copy.path(), kTable) == 0);
  for (std::size_t i = 0; i < before.size(); ++i) {
    require(*kTable[i].value == before.begin()[i]);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  clear();
  PBresetExpansion();
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  const MemoryFile file(content);
  const bool read = PBgatherParams(file.path(), kTable) == 0;
  require(read == (PBerrorCount() == 0));
  if (read && canBeWritten()) checkRoundTrip();
  clear();
  return 0;
}
