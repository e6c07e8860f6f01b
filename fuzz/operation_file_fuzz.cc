// The whole road of an operation file: rows into regions, lists and the queue.

#include <strings.h>

#include <cstdint>
#include <string>

#include "base/errors.h"
#include "base/srf.h"
#include "conditioner/op_file.h"
#include "conditioner/run.h"
#include "memory_file.h"

namespace {

// A queued operation is one of the file's words with at least one operand.
void checkQueue() {
  for (const OpSpec& op : run.opList) {
    const auto kind = static_cast<std::size_t>(op.type);
    require(kind < operations().size() && operations()[kind].fileName != nullptr);
    require(op.src1 != nullptr || op.src2 != nullptr || op.type == kOpAddCompression);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A row that lacks a needed column ends the process, as it must: such inputs
  // are recognised by their keyword and left out.
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto isAddSigName = [](std::string_view word) {
    return strncasecmp(word.data(), "addsigname", word.size()) == 0;
  };
  for (std::size_t at = 0; at + 10 <= text.size(); ++at) {
    if (isAddSigName(text.substr(at, 10))) return -1;
  }
  const MemoryFile file(text);
  run = Run();
  readOperationFile(file.path(), {"", "AUTO_INDEX", "1", "tp", "", ""});
  checkQueue();
  PBerrClear();
  PBdiscardErrors();
  return 0;
}
