// Any text as a dump: it is refused with a message, or makes a sound database
// whose dump makes the same again.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "base/temp_directory.h"
#include "memory_file.h"
#include "scratch_directory.h"
#include "tools/build.h"
#include "tools/dump.h"
#include "tools/open_database.h"

namespace {

bool build(std::string_view text, const std::string& path, int& messages) {
  DumpScanner in(PBopenMemoryText(text, "text", false), "text",
                 [&](const Message&) { ++messages; });
  return buildDatabase(in, path);
}

std::string dump(const std::string& path) {
  std::string text;
  ReadDatabase database;
  require(database.open(path, [](const Message&) {}));
  TextSink out([&](std::string_view piece) {
    text += piece;
    return true;
  });
  require(dumpDatabase(database.handle(), out, [](const Message&) {}));
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static ScratchDirectory scratch;
  scratch.clear();
  PBsetTempDirectory(scratch.path("tmp"));
  int messages = 0;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (build(text, scratch.path("db"), messages)) {
    const std::string first = dump(scratch.path("db"));
    require(build(first, scratch.path("again"), messages));
    require(dump(scratch.path("again")) == first);
  } else {
    require(messages == 1);
  }
  PBdiscardErrors();
  PBerrClear();
  return 0;
}
