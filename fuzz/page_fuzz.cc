// Any bytes as a block file that is worked with. The first byte says how many
// operations follow, two bytes each: what to do and with which block. The rest is
// the file. A free list that was sound stays so, and then what was stored in a
// block is there until the block is freed, also after the file was closed.

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "memory_file.h"
#include "storage/page.h"
#include "storage/swapendian.h"

namespace {

constexpr std::size_t kMaxOperations = 64;
// New blocks of a larger size take time and show nothing more.
constexpr std::uint32_t kMaxSize = 2048;

const std::string& filePath() {
  static const std::string path = [] {
    PBsetTempDirectory(directoryExists("/dev/shm") ? "/dev/shm" : "/tmp");
    return PBtempDirectory() + "/page_fuzz." + std::to_string(getpid());
  }();
  return path;
}

void writeFile(std::string_view content) {
  const StreamPtr file = openStream(filePath(), "w");
  require(file && std::fwrite(content.data(), 1, content.size(), file.get()) == content.size());
}

class Run {
 public:
  // False when the file was refused.
  bool open(int maxBuffers) {
    std::uint32_t blockSize = 8;
    file_ = PageOpenPlain(filePath(), blockSize, maxBuffers);
    sound_ = sound_ && file_ >= 0 && check() == 0;
    return file_ >= 0;
  }

  void step(std::uint8_t what, std::uint32_t block) {
    switch (what % 8) {
      case 0:
      case 1:
        return add(what);
      case 2:
      case 3:
        return free(block);
      case 4:
        return change(block, what);
      case 5:
        return testStored();
      case 6:
        require(PageFlush(file_) == 0);
        return;
      default:
        return resize(8 + block);
    }
  }

  void testStored() {
    if (!sound_) return;
    require(check() == 0);
    for (const auto& [block, value] : stored_) require(load(block) == value);
  }

  bool isSound() const { return sound_; }
  bool isQuick() const { return PageBlockSize(file_) <= kMaxSize; }

  void close() { require(PageClose(file_) == 0); }

 private:
  int check() const { return PageCheck(file_, {}); }

  std::uint32_t load(std::uint32_t block) const {
    const auto held = BlockHandle<std::uint32_t>::get(file_, block, typeInt);
    require(static_cast<bool>(held));
    return *held;
  }

  void add(std::uint32_t value) {
    void* data = nullptr;
    const std::int64_t block = PageNewTyped(file_, data, typeInt);
    require(block >= 0 || !sound_);
    if (block < 0) return;
    require(stored_.count(static_cast<std::uint32_t>(block)) == 0 || !sound_);
    std::memcpy(data, &value, sizeof value);
    PageDirty(file_, static_cast<std::uint32_t>(block));
    PageRelease(file_, static_cast<std::uint32_t>(block));
    stored_[static_cast<std::uint32_t>(block)] = value;
  }

  void free(std::uint32_t block) {
    const bool known = stored_.erase(block) > 0;
    require(PageFree(file_, block) == 0 || !known || !sound_);
  }

  void change(std::uint32_t block, std::uint32_t value) {
    const auto known = stored_.find(block);
    if (known == stored_.end()) return;
    auto held = BlockHandle<std::uint32_t>::get(file_, block, typeInt);
    if (!held) return;
    *held = known->second = value;
    held.markDirty();
  }

  void resize(std::uint32_t blockSize) {
    const std::uint32_t before = PageCount(file_);
    require(PageResize(file_, blockSize) == 0);
    require(PageCount(file_) == before && PageBlockSize(file_) == blockSize);
  }

  int file_ = -1;
  bool sound_ = true;
  std::map<std::uint32_t, std::uint32_t> stored_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t operations = data[0] % kMaxOperations;
  if (size < 1 + 2 * operations) return 0;
  const std::size_t start = 1 + 2 * operations;
  writeFile({reinterpret_cast<const char*>(data) + start, size - start});
  Run run;
  if (run.open(1 + data[0] / static_cast<int>(kMaxOperations))) {
    for (std::size_t i = 0; i < operations && run.isQuick(); ++i)
      run.step(data[1 + 2 * i], data[2 + 2 * i]);
    run.testStored();
    const bool sound = run.isSound();
    run.close();
    require(run.open(3) && run.isSound() == sound);
    run.testStored();
    run.close();
  }
  platform().remove(filePath().c_str());
  PBdiscardErrors();
  return 0;
}
