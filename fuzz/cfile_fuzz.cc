// Any bytes as a compressed file: checked, read, written, cut and read again.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "base/errors.h"
#include "memory_file.h"
#include "storage/cfile.h"
#include "storage/cio.h"

namespace {

constexpr std::int64_t kBlock = 65536;

// Some bytes of the first blocks and of the last.
void readSome(CompressedFile& file) {
  std::vector<char> bytes(100);
  for (const std::int64_t at : {std::int64_t{0}, kBlock - 50, 2 * kBlock, file.size() - 50}) {
    if (file.seek(at, SEEK_SET) != 0) continue;
    const std::int64_t count = file.read(bytes.data(), bytes.size());
    require(count == -2 || (count >= 0 && count <= 100));
  }
}

void writeSome(CompressedFile& file) {
  constexpr std::array<std::int64_t, 3> kPlaces = {10, kBlock - 2, 5 * kBlock};
  for (const std::int64_t at : kPlaces) {
    if (file.seek(at, SEEK_SET) == 0) file.write("written", 7);
  }
  file.truncate(5 * kBlock + 3);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemoryFile input({reinterpret_cast<const char*>(data), size});
  PBcfCheck(input.path(), [](std::string_view) {});
  require(PBerrorCount() == 0);
  if (const auto file = CompressedFile::open(input.path(), false)) {
    readSome(*file);
    require(file->write("x", 1) == -2);
    require(file->close() == 0);
  }
  if (const auto file = CompressedFile::open(input.path(), true)) {
    readSome(*file);
    writeSome(*file);
    file->flush();
    readSome(*file);
    file->close();
  }
  PBdiscardErrors();
  return 0;
}
