// The whole road of an operation file: rows into regions, lists and the queue.

#include <strings.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/errors.h"
#include "base/platform.h"
#include "base/srf.h"
#include "conditioner/op_file.h"
#include "conditioner/run.h"

namespace {

// A file in memory where the system has one, made once for the process.
const std::string& inputPath() {
  static const std::string path = (directoryExists("/dev/shm") ? "/dev/shm/" : "/tmp/") +
                                  std::string("operation_file_fuzz.") + std::to_string(getpid());
  return path;
}

void writeInput(const std::uint8_t* data, std::size_t size) {
  StreamPtr file = openStream(inputPath(), "w");
  std::fwrite(data, 1, size, file.get());
  if (closeStream(std::move(file)) != 0) std::abort();
}

// A queued operation is one of the file's words with at least one operand.
void checkQueue() {
  for (const OpSpec& op : run.opList) {
    const auto kind = static_cast<std::size_t>(op.type);
    if (kind >= operations().size() || operations()[kind].fileName == nullptr) std::abort();
    if (op.src1 == nullptr && op.src2 == nullptr && op.type != kOpAddCompression) std::abort();
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
  writeInput(data, size);
  run = Run();
  readOperationFile(inputPath(), {"", "AUTO_INDEX", "1", "tp", "", ""});
  checkQueue();
  PBerrClear();
  PBdiscardErrors();
  return 0;
}
