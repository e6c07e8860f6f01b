// Any bytes as a packed block, and any bytes packed and unpacked again.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/errors.h"
#include "memory_file.h"
#include "storage/block_coder.h"

namespace {

// A room that isn't a multiple of anything, so that every end is met.
constexpr std::size_t kRoom = 4099;

void unpackAsIs(std::span<const std::uint8_t> input) {
  static std::vector<std::uint8_t> out(kRoom);
  const std::int64_t size = unzip(input, out);
  require(size == -2 || (size >= 0 && size <= static_cast<std::int64_t>(kRoom)));
  require((size == -2) == PBerrorHas("unzip", 0));
}

void packAndUnpack(std::span<const std::uint8_t> input) {
  static std::vector<std::uint8_t> packed;
  const std::int64_t size = zip(input, packed);
  require(size >= 1);
  std::vector<std::uint8_t> out(input.size());
  const std::int64_t back = unzip(std::span(packed).first(static_cast<std::size_t>(size)), out);
  require(back == static_cast<std::int64_t>(input.size()));
  require(std::equal(input.begin(), input.end(), out.begin()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> input(data, std::min(size, kZipBlockSize));
  unpackAsIs(input);
  packAndUnpack(input);
  PBdiscardErrors();
  return 0;
}
