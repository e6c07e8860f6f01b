// Any text as a value change dump: the reader hands out the same whatever the pieces
// that the text comes in, and the import is refused with one error or makes a sound
// database. The first byte chooses the options.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "base/temp_directory.h"
#include "memory_file.h"
#include "scratch_directory.h"
#include "tools/import.h"
#include "tools/vcd_reader.h"
#include "tools/verify.h"

namespace {

class Pieces : public ByteSource {
 public:
  Pieces(std::string_view text, std::size_t piece) : text_(text), piece_(piece) {}
  std::ptrdiff_t read(char* to, std::size_t size) override {
    const std::size_t got = text_.copy(to, std::min(size, piece_), at_);
    at_ += got;
    return static_cast<std::ptrdiff_t>(got);
  }
  bool seek(std::uint64_t offset) override {
    at_ = std::min<std::size_t>(offset, text_.size());
    return true;
  }
  std::int64_t size() const override { return -1; }
  std::int64_t consumed() const override { return -1; }

 private:
  std::string_view text_;
  std::size_t piece_;
  std::size_t at_ = 0;
};

// All that a reader gives, as one text.
std::string readAll(std::string_view text, std::size_t piece) {
  std::string all;
  VcdReader reader(std::make_unique<Pieces>(text, piece), [&](const Message& message) {
    all += std::to_string(message.line) + ':' + std::to_string(message.column) + message.text;
  });
  if (!reader.readHeader()) return all;
  for (VcdEvent event = reader.next(); event != VcdEvent::end; event = reader.next()) {
    all += std::to_string(static_cast<int>(event)) + ' ' + std::to_string(reader.time());
    if (event == VcdEvent::time) continue;
    require(reader.net() < reader.header().netWidths.size());
    (all += ' ' + std::to_string(reader.net()) + ' ') += reader.value();
  }
  return all;
}

ImportOptions optionsOf(unsigned choice) {
  ImportOptions options;
  options.quiet = true;
  options.period = (choice & 1) != 0 ? TIME{0, 10000000} : TIME{0, 7};
  if ((choice & 2) != 0) options.inputs = {"*a*", "*clk"};
  if ((choice & 4) != 0) options.outputs = {"*"};
  if ((choice & 8) != 0) options.clocks = {"clk"};
  if ((choice & 16) != 0) options.bidirs = {"b*"};
  if ((choice & 32) != 0) options.scope = "t";
  return options;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static ScratchDirectory scratch;
  scratch.clear();
  PBsetTempDirectory(scratch.path("tmp"));
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  require(readAll(text, 1) == readAll(text, std::size_t{1} << 20));

  std::ofstream(scratch.path("in"), std::ios::binary) << text;
  int errors = 0;
  ImportCounts counts;
  const auto sink = [&](const Message& message) { errors += message.severity == Severity::error; };
  if (importVcd(scratch.path("in"), optionsOf(data[0]), scratch.path("db"), sink, counts)) {
    require(errors == 0);
    require(verifyDatabase(scratch.path("db"), [](const Message&) {}).faults == 0);
  } else {
    require(errors == 1);
  }
  PBdiscardErrors();
  PBerrClear();
  return 0;
}
