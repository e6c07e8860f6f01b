// Any bytes as a text: from memory and from a file the reader gives the same
// lines, physical lines lose nothing, logical lines are never blank.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/errors.h"
#include "base/text_file.h"
#include "memory_file.h"

namespace {

struct Text {
  std::vector<std::string> lines;
  std::int64_t result = 0;  // of the last read

  bool operator==(const Text&) const = default;
};

Text readAll(const TextFilePtr& file) {
  Text text;
  std::string_view line, comment;
  std::int64_t before = 0;
  while ((text.result = PBreadTextLine(file.get(), line, comment)) >= 0) {
    text.lines.emplace_back(line);
    text.lines.back().append(comment);
    require(PBfirstTextLineNumber(file.get()) > before);
    before = PBgetTextLineNumber(file.get());
    require(PBfirstTextLineNumber(file.get()) <= before);
    require(PBtextPosition(file.get()).size() < 1200);
  }
  return text;
}

void checkPhysical(const Text& text, std::string_view content) {
  std::string all;
  for (const std::string& line : text.lines) {
    require(!line.empty() && line.find('\n') >= line.size() - 1);
    all += line;
  }
  require(text.result == -1 && all == content);
}

void checkLogical(const Text& text) {
  require(text.result == -1);
  for (const std::string& line : text.lines) {
    require(line.find_first_not_of(" \t\f\r\n") != std::string::npos);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  const MemoryFile file(content);
  const Text physical = readAll(PBopenMemoryText(content, "memory", false));
  const Text logical = readAll(PBopenMemoryText(content, "memory", true));
  checkPhysical(physical, content);
  checkLogical(logical);
  require(readAll(PBopenCompressedTextFile(file.path(), "r", false, 0)) == physical);
  require(readAll(PBopenCompressedTextFile(file.path(), "r", true, 0)) == logical);

  require(PBerrorCount() == 0);
  const Text unpacked = readAll(PBopenCompressedTextFile(file.path(), "r", true, kTextGzip));
  require((unpacked.result == -2) == (PBerrorCount() > 0));
  if (!content.starts_with("\x1f\x8b")) require(unpacked == logical);
  PBdiscardErrors();
  return 0;
}
