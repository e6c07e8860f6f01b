// Any bytes as a file of variable pages: opened, walked, changed, checked, closed
// and opened again.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "memory_file.h"
#include "storage/vpage.h"

namespace {

constexpr int kSteps = 64;  // pages looked at, so that a run stays short

void walk(VPageFile& file, bool change) {
  std::int64_t before = -1;
  int steps = 0;
  for (std::int64_t id = VPageNext(file, -1); id >= 0 && steps < kSteps; ++steps) {
    require(id > before);
    before = id;
    const auto page = static_cast<std::uint32_t>(id);
    const std::int64_t size = VPageSize(file, page);
    void* data = VPageGet(file, page);
    require((data == nullptr) == (VPageError != kVPageOk));
    require(data == nullptr || size > 0);
    if (change && data != nullptr) {
      if (id % 3 == 0) VPageResize(file, page, static_cast<std::size_t>(size) + 5);
      VPageDirty(file, page, id % 2 == 0);
    }
    VPageRelease(file, page);
    if (change && id % 5 == 4) VPageDelete(file, page);
    id = VPageNext(file, id);
  }
}

void change(VPageFile& file) {
  walk(file, true);
  void* data = nullptr;
  const std::int64_t id = VPageNew(file, 7, data);
  if (id < 0) return;
  std::memset(data, 'n', 7);
  VPageRelease(file, static_cast<std::uint32_t>(id));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemoryFile input({reinterpret_cast<const char*>(data), size});
  VPageCheck(input.path(), [](std::string_view) {});
  if (const VPageFilePtr file = VPageOpenRead(input.path(), 2)) {
    walk(*file, true);
    require(VPageFlush(*file) == 0);
  }
  VPageFilePtr file = VPageOpen(input.path(), 2);
  if (file == nullptr) return 0;
  change(*file);
  if (VPageClose(std::move(file)) != 0) return 0;
  // What was written is sound as long as the records don't lie over each other.
  file = VPageOpen(input.path(), 1);
  if (file != nullptr) walk(*file, false);
  return 0;
}
