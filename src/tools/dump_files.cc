#include <fcntl.h>

#include "base/errors.h"
#include "base/platform.h"
#include "equations/spec_data.h"
#include "tools/dump_internal.h"

namespace {

// Multiple of the bytes of a line.
constexpr std::size_t kReadSize = 1024 * kBytesPerDataLine;

class Descriptor {
 public:
  explicit Descriptor(const std::string& path)
      : descriptor_(platform().open(path.c_str(), O_RDONLY, 0)) {}
  ~Descriptor() {
    if (descriptor_ >= 0) platform().close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  explicit operator bool() const { return descriptor_ >= 0; }
  // Fills the buffer unless the file ends; -1 on failure.
  std::int64_t read(std::string& buffer) const {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
      const ssize_t got =
          platform().read(descriptor_, buffer.data() + filled, buffer.size() - filled);
      if (got < 0) return -1;
      if (got == 0) break;
      filled += static_cast<std::size_t>(got);
    }
    return static_cast<std::int64_t>(filled);
  }

 private:
  int descriptor_;
};

void dumpBytes(const DumpContext& dump, std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size(); i += kBytesPerDataLine) {
    dump.text() += "  data ";
    appendBase64(dump.text(), bytes.substr(i, kBytesPerDataLine));
    dump.end();
  }
}

bool dumpFile(const DumpContext& dump, const std::string& name) {
  const Descriptor file(PVBfilePath(PVBpath(dump.database), name));
  dump.text() += "file ";
  appendQuoted(dump.text(), name);
  dump.end();
  std::string buffer(kReadSize, '\0');
  while (file) {
    const std::int64_t got = file.read(buffer);
    if (got == 0) return true;
    if (got < 0) break;
    dumpBytes(dump, std::string_view(buffer).substr(0, static_cast<std::size_t>(got)));
  }
  return dump.fail(kCantRead, name + " can't be read");
}

// The lines of the equation data; false, with nothing written, when they can't be read.
bool dumpEquations(const DumpContext& dump) {
  const std::optional<ssData> data = ssOpen(PVBpath(dump.database));
  if (!data) {
    PBdiscardErrors();
    return false;
  }
  dump.text() += "equations";
  dump.end();
  ssWriteLines(*data, [&](std::string_view line) {
    dump.text() += line;
    dump.end();
  });
  return true;
}

}  // namespace

// Equation data that can't be read are carried along like any other file.
bool dumpCarriedFiles(const DumpContext& dump) {
  std::vector<std::string> names;
  if (!platform().list(PVBpath(dump.database).c_str(), names)) {
    return dump.fail(kCantRead, "the directory can't be read");
  }
  for (const std::string& name : names) {
    if (!isCarriedFile(name)) continue;
    if (name == kSpecFile && dumpEquations(dump)) continue;
    if (!dumpFile(dump, name)) return false;
  }
  return true;
}
