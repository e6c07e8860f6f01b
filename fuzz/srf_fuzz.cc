// Any bytes as an operation file; what is read from it is written and read
// again, and must be the same. Bit 0 of the first byte chooses raw escapes, in
// which written values aren't the same text, so that they are only read.

#include <unistd.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "base/srf.h"
#include "require.h"

namespace {

constexpr std::string_view kColumns[] = {
    "addlist",    "addsigname", "sigdir",       "track",     "patbit",     "trackname",
    "sigshape",   "cutlist",    "cutsigname",   "siglist",   "oldsigname", "newsigname",
    "regionname", "pvbname",    "start",        "stop",      "operation",  "operand1",
    "operand2",   "operand3",   "compressspec", "repeatkey", "loopkey",    "loopblocksize",
    "rowNumber",  "copies"};

using Row = std::vector<std::pair<std::string, std::string>>;

std::vector<Row> collect(std::string_view text, bool& sound) {
  std::vector<Row> rows;
  const auto hook = [&](const SRFtuple& row) {
    std::uint32_t mask = 0;
    Row& copy = rows.emplace_back();
    for (const SRFitem& item : row.items) {
      require(SRF_get(row, item.keyword) == item.value);
      copy.emplace_back(item.keyword, item.value);
      mask |= item.attribute;
    }
    require(mask == row.mask && mask != 0);
    return true;
  };
  SRF_setRowHook(hook);
  sound = SRF_parseBuffer(text, "fuzz", {});
  int failed = 0;
  while (const auto message = SRF_nextMessage()) {
    require(message->ends_with('\n') && message->find('\n') == message->size() - 1);
    ++failed;
  }
  require(failed == 0 || !sound);
  return rows;
}

// What the writer refuses (values too long) is taken out of `rows`.
std::string write(std::vector<Row>& rows) {
  static const std::string path = "/tmp/srf_fuzz." + std::to_string(getpid());
  require(SRF_openSrf(path));
  std::erase_if(rows, [](const Row& row) {
    SRFtuple tuple;
    for (const auto& [keyword, value] : row) require(SRF_set(tuple, keyword, value));
    return !SRF_putTpl(tuple);
  });
  require(SRF_closeSrf());
  std::string text;
  const StreamPtr stream = openStream(path, "r");
  require(stream != nullptr);
  for (int c = std::fgetc(stream.get()); c != EOF; c = std::fgetc(stream.get())) {
    text += static_cast<char>(c);
  }
  platform().remove(path.c_str());
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool raw = (data[0] & 1) != 0;
  SRF_resetModes();
  SRF_setKeywords(kColumns);
  SRF_setNoteHook([](std::string_view note) {
    require(note.ends_with('\n'));
    return false;
  });
  SRF_setRawEscapes(raw);
  bool sound = false;
  std::vector<Row> rows = collect({reinterpret_cast<const char*>(data + 1), size - 1}, sound);
  PBdiscardErrors();
  if (raw || rows.empty()) return 0;
  const std::string written = write(rows);
  const std::vector<Row> again = collect(written, sound);
  require(sound && again == rows);
  PBdiscardErrors();
  return 0;
}
