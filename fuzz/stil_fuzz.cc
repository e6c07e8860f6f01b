// Any text as a STIL pattern: it is refused with an error, or makes a sound database.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "base/temp_directory.h"
#include "memory_file.h"
#include "scratch_directory.h"
#include "tools/import_stil.h"
#include "tools/verify.h"

namespace {

// Little enough for runs to be fast.
constexpr std::uint64_t kMostRows = 20000;
constexpr std::uint64_t kMostIdle = 20000;
constexpr std::size_t kLongestText = 64 << 10;

void import(std::string_view text, const ImportOptions& options, const std::string& path) {
  int errors = 0;
  ImportCounts counts;
  StilExpandOptions limits;
  limits.mostRows = kMostRows;
  limits.mostIdle = kMostIdle;
  const bool good = importStilText(
      text, options, path,
      [&](const Message& message) { errors += message.severity == Severity::error ? 1 : 0; },
      counts, limits);
  PBdiscardErrors();
  PBerrClear();
  require(good == (errors == 0));
  if (good) require(verifyDatabase(path, [](const Message&) {}).faults == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || size > kLongestText) return 0;
  static ScratchDirectory scratch;
  scratch.clear();
  PBsetTempDirectory(scratch.path("tmp"));
  // The first byte chooses the options.
  ImportOptions options;
  options.quiet = true;
  options.lenient = (data[0] & 1U) != 0;
  options.flat = (data[0] & 2U) != 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  import(text, options, scratch.path("db"));
  return 0;
}
